// The audit archive. Every step runs with faults ignored: a step that fails is skipped
// and the next one runs, so a file that could not be archived is still deleted and a
// failure only ever shows as the result code.
#include "maintenance/audit_archive.h"

#include <cstdint>
#include <string>

#include "platform/archive.h"
#include "platform/clock.h"
#include "platform/fault.h"
#include "platform/messages.h"
#include "platform/paths.h"

namespace tqdb {
namespace {

constexpr std::string_view kAuditFolder = "Brinvale/Auditoria/";

bool IsSeparator(char C) { return C == '/' || C == '\\'; }

std::string_view DropTrailingSeparator(std::string_view Path) {
  if (!Path.empty() && IsSeparator(Path.back())) Path.remove_suffix(1);
  return Path;
}

// Runs Step; a fault, or any other exception, becomes its number (5 when it has none).
template <typename F>
int32_t FaultNumberOf(F&& Step) {
  try {
    Step();
    return 0;
  } catch (const platform::Fault& Fault) {
    return Fault.Number();
  } catch (...) {
    return platform::kInvalidCall;
  }
}

// Result codes are 16-bit; a number that does not fit keeps its low bits non-zero.
int16_t ToResultCode(int32_t Number) {
  if (Number >= INT16_MIN && Number <= INT16_MAX) return static_cast<int16_t>(Number);
  return platform::kPathFileAccess;
}

}  // namespace

void MakeDirTree(std::string_view Path) {
  const std::string Directory(DropTrailingSeparator(Path));
  if (Directory.empty()) return;
  FaultNumberOf([&] {
    if (platform::DirectoryExists(Directory)) return;
    const std::string Parent = platform::DirectoryPart(Directory);
    // The parent is shorter than Directory, so the recursion ends at the root.
    if (!Parent.empty() && Parent.size() < Directory.size()) MakeDirTree(Parent);
    platform::MakeDirectory(Directory);
  });
}

std::string AuditPath(std::string_view Name) {
  const std::string Folder = platform::TempDirectory() + std::string(kAuditFolder);
  MakeDirTree(Folder);
  std::string Path(DropTrailingSeparator(Folder));
  if (Name.empty() || !IsSeparator(Name.front())) Path += '/';
  Path += Name;
  return Path;
}

int16_t ZipAndKill(std::string_view FullPath) {
  bool Exists = false;
  FaultNumberOf([&] { Exists = platform::FileExists(FullPath); });
  if (!Exists) return 0;

  int16_t Code = 0;
  const int32_t ZipFault = FaultNumberOf([&] {
    const std::string ArchiveName =
        platform::FilePart(FullPath) + platform::ArchiveTimestamp() + ".zip";
    Code = platform::ZipOneFile(FullPath, AuditPath(ArchiveName));
  });
  if (ZipFault != 0) Code = ToResultCode(ZipFault);

  const int32_t DeleteFault = FaultNumberOf([&] { platform::DeleteFile(FullPath); });
  if (DeleteFault != 0) Code = ToResultCode(DeleteFault);
  return Code;
}

void ArchiveAndDelete(std::string_view FullPath) {
  const int16_t Code = ZipAndKill(FullPath);
  if (Code == 0) return;
  try {
    platform::ShowMessage("Error " + std::to_string(Code) + " en auditoria");
  } catch (...) {
    // A sink that fails must not stop the caller, which goes on in any case.
  }
}

}  // namespace tqdb

// Staged files, the commit mark, and the commit of a rebuild (see rebuild_files.h).
#include "maintenance/rebuild_files.h"

#include <fcntl.h>
#include <unistd.h>

#include <system_error>

#include <string>

#include "maintenance/audit_archive.h"
#include "platform/archive.h"
#include "platform/clock.h"
#include "platform/codepage.h"
#include "platform/fault.h"
#include "platform/file_pool.h"
#include "platform/messages.h"
#include "platform/paths.h"
#include "platform/scoped_file_number.h"

namespace tqdb {
namespace {

using platform::Fault;


void DeleteIfPresent(const std::string& Path) {
  try {
    if (platform::FileExists(Path)) platform::DeleteFile(Path);
  } catch (const Fault&) {
    // Left for the next rebuild, which truncates or deletes it again.
  }
}

// Makes the renames and deletions in the table's directory durable (a rename is only on
// disk once its directory is). Best effort: a machine crash is all it guards against.
void SyncDirectory(const std::string& AnyFileInIt) {
  const std::string Directory = platform::ResolvePath(platform::DirectoryPart(AnyFileInIt));
  const char* Name = Directory.empty() ? "." : Directory.c_str();
  const int Descriptor = ::open(Name, O_RDONLY | O_DIRECTORY | O_CLOEXEC);
  if (Descriptor < 0) return;
  (void)::fsync(Descriptor);
  ::close(Descriptor);
}

std::string ReadMark(const RebuildFiles& Files) {
  const platform::ScopedFileNumber Mark(Files.Mark(), platform::OpenMode::ReadOnly);
  return platform::ReadAt(Mark.get(), 1, platform::Length(Mark.get()));
}

void WriteMark(const RebuildFiles& Files) {
  {
    const platform::ScopedFileNumber Mark(Files.Mark(), platform::OpenMode::Truncate);
    platform::WriteAt(Mark.get(), 1, Files.Suffix);
    platform::Sync(Mark.get());
  }
  SyncDirectory(Files.Mark());
}

// Renames Staged over Live when it is still waiting.
void MoveIn(const std::string& Staged, const std::string& Live) {
  if (platform::FileExists(Staged)) platform::RenameFile(Staged, Live);
}

// The name an archive of Path gets in the audit folder: the file's name and the time.
std::string ArchiveNameOf(std::string_view Path) {
  return AuditPath(platform::FilePart(Path) + platform::ArchiveTimestamp() + ".zip");
}

// Puts the archive Prepared of Path in the audit folder under the usual name; false when
// the rename fails.
bool MovePreparedArchive(const std::string& Prepared, std::string_view Path) {
  try {
    if (Prepared.empty() || !platform::FileExists(Prepared)) return false;
    platform::RenameFile(Prepared, ArchiveNameOf(Path));
    return true;
  } catch (const Fault&) {
    return false;
  }
}

// Steps 2 to 4 of the commit. Each step looks at what is still waiting, so that running
// it again after a crash anywhere inside finishes the same commit.
void CompleteCommit(const RebuildFiles& Files, const std::string& PreparedDataArchive) {
  const bool DataWaits = platform::FileExists(Files.StagedData());
  // A zero-length data file holds nothing to keep.
  if (DataWaits && platform::FileExists(Files.LiveData()) &&
      platform::FileLengthByName(Files.LiveData()) > 0 &&
      !MovePreparedArchive(PreparedDataArchive, Files.Live + ".TQd")) {
    ArchiveCopy(Files.Live + ".TQd");
  }
  if (platform::FileExists(Files.StagedImage())) ArchiveCopy(Files.Live + ".TQw");
  if (platform::FileExists(Files.StagedText())) ArchiveCopy(Files.Live + ".TQY");

  // Without a key file an open builds one from whatever data file is in place, so the
  // old keys never meet the new records.
  if (platform::FileExists(Files.StagedKey()) && platform::FileExists(Files.LiveKey())) {
    platform::DeleteFile(Files.LiveKey());
  }
  MoveIn(Files.StagedData(), Files.LiveData());
  MoveIn(Files.StagedImage(), Files.LiveImage());
  MoveIn(Files.StagedText(), Files.LiveText());
  MoveIn(Files.StagedKey(), Files.LiveKey());
  SyncDirectory(Files.LiveData());

  platform::DeleteFile(Files.Mark());
  SyncDirectory(Files.LiveData());
}

}  // namespace

RebuildFiles RebuildFilesOf(const TableState& State) {
  return RebuildFilesOf(State.DataPath, State.BaseName, State.TableSuffix);
}

RebuildFiles RebuildFilesOf(std::string_view DataPath, std::string_view Name,
                            std::string_view Suffix) {
  const std::string Base = std::string(DataPath) + std::string(Name);
  RebuildFiles Files;
  Files.Live = Base + std::string(Suffix);
  Files.Staged = Base + "ZZ";
  Files.Suffix = std::string(Suffix);
  return Files;
}

void DiscardStaged(const RebuildFiles& Files) {
  DeleteIfPresent(Files.StagedData());
  DeleteIfPresent(Files.StagedKey());
  DeleteIfPresent(Files.StagedImage());
  DeleteIfPresent(Files.StagedText());
  DeleteIfPresent(Files.Work());
}

bool RecoverRebuild(const RebuildFiles& Files) {
  if (!platform::FileExists(Files.Mark())) {
    DiscardStaged(Files);
    return false;
  }
  const std::string Mark = ReadMark(Files);
  if (Mark.empty()) {
    // The mark file was created but its text never written: the commit had not begun.
    DiscardStaged(Files);
    DeleteIfPresent(Files.Mark());
    return false;
  }
  if (platform::UpperCase(Mark) != platform::UpperCase(Files.Suffix)) {
    throw Fault(platform::kPathFileAccess);
  }
  DeleteIfPresent(Files.Work());
  CompleteCommit(Files, "");
  return true;
}

void CommitRebuild(const RebuildFiles& Files, const std::string& PreparedDataArchive) {
  WriteMark(Files);
  CompleteCommit(Files, PreparedDataArchive);
}

EarlyDataArchive::EarlyDataArchive(const RebuildFiles& Files) {
  try {
    const std::string Source = Files.Live + ".TQd";
    if (!platform::FileExists(Source) || platform::FileLengthByName(Source) <= 0) return;
    pending_ =
        AuditPath(platform::FilePart(Source) + " pending " + std::to_string(::getpid()) + ".zip");
    thread_ = std::thread([this, Source] { code_ = platform::ZipOneFile(Source, pending_); });
  } catch (const Fault&) {
    pending_.clear();  // the commit archives the file itself
  } catch (const std::system_error&) {
    pending_.clear();
  }
}

EarlyDataArchive::~EarlyDataArchive() {
  if (thread_.joinable()) thread_.join();
  if (!pending_.empty()) DeleteIfPresent(pending_);
}

std::string EarlyDataArchive::Finish() {
  if (thread_.joinable()) thread_.join();
  return code_ == 0 ? pending_ : "";
}

void ArchiveCopy(std::string_view Path) {
  int32_t Code = 0;
  try {
    if (!platform::FileExists(Path)) return;
    const std::string Name = platform::FilePart(Path) + platform::ArchiveTimestamp() + ".zip";
    Code = platform::ZipOneFile(Path, AuditPath(Name));
  } catch (const Fault& Failure) {
    Code = Failure.Number();
  } catch (...) {
    Code = platform::kInvalidCall;
  }
  if (Code == 0) return;
  try {
    platform::ShowMessage("Error " + std::to_string(Code) + " en auditoria");
  } catch (...) {
    // The rebuild goes on whatever the message sink does.
  }
}

void SyncFile(std::string_view Path) {
  const platform::ScopedFileNumber File(Path, platform::OpenMode::ReadOnly);
  platform::Sync(File.get());
}

}  // namespace tqdb

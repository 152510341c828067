// Opening, closing and deleting a table: the file set, the presence lock, and the silent
// rebuild of a key file that cannot be opened.
#include "table/open_table.h"

#include <algorithm>
#include <optional>
#include <string>

#include "maintenance/audit_archive.h"
#include "maintenance/rebuild_files.h"
#include "platform/fault.h"
#include "platform/file_pool.h"
#include "platform/messages.h"
#include "platform/paths.h"
#include "platform/scoped_file_number.h"
#include "table/TQFile.h"
#include "table/bulk_load.h"
#include "table/channel.h"
#include "table/dictionary.h"
#include "table/exclusive_use.h"
#include "table/key_file_build.h"

namespace tqdb {
namespace {

constexpr int16_t kKeyFileNotOpened = 26;
constexpr int16_t kImageFieldType = 62;

// Mid(Text, Start, Length) with a 0-based Start: what there is of the range, maybe "".
std::string Mid(std::string_view Text, size_t Start, size_t Length) {
  if (Start >= Text.size()) return "";
  return std::string(Text.substr(Start, Length));
}

std::string FileBase(const TableState& State) {
  return State.DataPath + State.TableName + State.TableSuffix;
}

bool HasImageField(const TableState& State) {
  const int32_t Last =
      std::min<int32_t>(State.NumFields, static_cast<int32_t>(State.FieldTypes.size()) - 1);
  for (int32_t I = 1; I <= Last; ++I) {
    if (State.FieldTypes[static_cast<size_t>(I)] == kImageFieldType) return true;
  }
  return false;
}

// Opens Path on the data file's number and takes the presence lock on it.
void OpenDataFile(TableState& State, const std::string& Path) {
  platform::Open(State.DataFileNo, Path);
  platform::HoldPresence(State.DataFileNo);
}

void OpenImageFile(TableState& State) {
  if (State.ImageFileNo == 0) {
    State.ImageFileNo = platform::TakeFreeNumber();
  } else {
    platform::Close(static_cast<platform::FileNo>(State.ImageFileNo));
  }
  platform::Open(static_cast<platform::FileNo>(State.ImageFileNo), FileBase(State) + ".tqw");
}

// A rebuild killed after its commit mark leaves its new files waiting beside the table.
// The first user to open the table alone completes that commit before reading anything,
// so that nothing is written into the old files that the pending renames would then
// replace. With the table open elsewhere (it was opened without the mark being seen) or
// with a mark that belongs to another suffix, the open goes on with the files in place.
void FinishInterruptedRebuild(TableState& State, const std::string& DataPath) {
  const RebuildFiles Files = RebuildFilesOf(State.DataPath, State.TableName, State.TableSuffix);
  if (!platform::FileExists(Files.Mark())) return;
  if (!platform::TryExclusivePresence(State.DataFileNo)) return;
  platform::Close(State.DataFileNo);
  try {
    RecoverRebuild(Files);
  } catch (const platform::Fault&) {
  }
  OpenDataFile(State, DataPath);
}

// Raises Fault 70 when another table object holds DataFile open (its presence lock).
// With the table's own data file open, the check converts this object's presence lock to
// the exclusive one, which it keeps until the file is closed.
void RequireExclusiveUse(TableState& State, const std::string& DataFile) {
  bool Exclusive = true;
  if (State.DataFileNo > 0 && platform::IsOpen(State.DataFileNo)) {
    Exclusive = platform::TryExclusivePresence(State.DataFileNo);
  } else if (platform::FileExists(DataFile)) {
    const platform::ScopedFileNumber Probe(DataFile, platform::OpenMode::Binary);
    Exclusive = platform::TryExclusivePresence(Probe.get());
  }
  if (!Exclusive) throw platform::Fault(platform::kPermissionDenied);
}

// Builds the key file again from the dictionary and the data file; success reopens the
// data file so that it is read afresh. The new key file is whole: a bulk-load mark no
// longer applies.
void RebuildKeyFile(TableState& State, const std::string& KeyPath, const std::string& DataPath) {
  if (BuildKeyFile(State, KeyPath) != 0) return;
  ClearBulkLoadMark(State);
  platform::Close(State.DataFileNo);
  OpenDataFile(State, DataPath);
}

}  // namespace

int32_t OpenFile(TableState& State, std::string_view FileName, std::string_view TableDirectory,
                 bool TableDirectoryGiven) {
  if (!State.DataFileOpen) {
    State.DataFileNo = platform::TakeFreeNumber();
    State.DataFileOpen = true;
  } else {
    platform::Close(State.DataFileNo);
  }
  State.TableDirectoryGiven = TableDirectoryGiven;
  if (TableDirectoryGiven) {
    State.DictionaryDir = std::string(TableDirectory);
    SendCommand(State, "T\\" + CommandPath(State.DictionaryDir));
  }
  State.DataPath = platform::DirectoryPart(FileName);
  State.TableSuffix = Mid(FileName, State.DataPath.size() + 5, 2);
  State.TableName = Mid(FileName, State.DataPath.size(), 5);
  // A filtered view belongs to the table it was built on, as numbered then (a rebuild
  // renumbers): the open starts without one.
  State.FilterActive = false;
  State.FilterList.assign(1, 0);
  State.FilterPos = 0;
  OpenRoutine(State, 1, "");
  return State.LastError;
}

void OpenRoutine(TableState& State, int OpenIndexFlag, const std::string& ExplicitDataPath) {
  const std::string Name = State.TableName;
  LoadDictionary(State, Name);
  platform::Close(State.DataFileNo);

  std::string DataPath = FileBase(State) + ".tqd";
  if (ExplicitDataPath.empty()) {
    OpenDataFile(State, DataPath);
    FinishInterruptedRebuild(State, DataPath);
    if (HasImageField(State)) OpenImageFile(State);
  } else {
    OpenIndexFlag = 0;
    DataPath = ExplicitDataPath;
    OpenDataFile(State, DataPath);
  }

  const std::string KeyPath = FileBase(State) + ".tqc";
  bool Recreate = false;
  // A bulk load that did not end left its mark: the key pages it kept in memory never
  // reached the key file. Holding the table alone, the key file is deleted so that it is
  // built again from the data file below, as a missing one is.
  std::optional<ExclusiveUse> Alone;
  if (OpenIndexFlag == 1 && platform::FileExists(BulkLoadMarkPath(State))) {
    Alone.emplace(State.DataFileNo);
    if (platform::FileExists(KeyPath)) platform::DeleteFile(KeyPath);
  }
  if (OpenIndexFlag == 1) {
    std::string Tail = "/";
    Tail += std::to_string(State.DataFileNo);
    SendCommand(State, "/O/" + CommandPath(KeyPath) + Tail);
    if (State.LastError == kKeyFileNotOpened) {
      // The command as the engine read it, but with the path as the user wrote it.
      platform::ShowMessage(
          "Error indexados " + std::to_string(kKeyFileNotOpened) + "  O/" + KeyPath + Tail,
          MessageIcon::Critical);
      return;
    }
    Recreate = State.LastError != 0;
  }
  State.BaseName = Name;
  if (Recreate) RebuildKeyFile(State, KeyPath, DataPath);
}

void CloseDB(TableState& State) {
  // The number goes back to the pool, where another table may take it: DataFileNo reads 0
  // so that nothing of this object reaches that table's file through it.
  if (State.DataFileNo > 0) platform::ReleaseNumber(State.DataFileNo);
  State.DataFileNo = 0;
  if (State.ImageFileNo > 0) {
    platform::ReleaseNumber(static_cast<platform::FileNo>(State.ImageFileNo));
    State.ImageFileNo = 0;
  }
  SendCommand(State, "K");
  State.DataFileOpen = false;
  for (LinkedTable& Linked : State.LinkedTables) {
    if (!Linked.Name.empty() && Linked.Table) Linked.Table->CloseDB();
  }
}

void KillDB(TableState& State, bool Confirm) {
  if (!Confirm) return;
  const std::string Base = State.DataPath + State.BaseName + State.TableSuffix;
  RequireExclusiveUse(State, Base + ".TQd");
  if (State.DataFileNo > 0) platform::Close(State.DataFileNo);
  SendCommand(State, "K");
  ArchiveAndDelete(Base + ".TQd");
  ArchiveAndDelete(Base + ".TQc");
}

}  // namespace tqdb

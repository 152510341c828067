// Rebuild: the copy phase, the key phase and the compaction passes write a new file set
// beside the table's own (rebuild_files.h); the commit then puts it in place.
#include "maintenance/rebuild.h"

#include <algorithm>
#include <limits>
#include <memory>
#include <optional>
#include <string>
#include <vector>

#include "engine/bulk_builder.h"
#include "engine/create_key_file.h"
#include "engine/key_file.h"
#include "engine/key_text_table.h"
#include "maintenance/compaction.h"
#include "maintenance/rebuild_files.h"
#include "maintenance/record_check.h"
#include "platform/clock.h"
#include "platform/codepage.h"
#include "platform/fault.h"
#include "platform/file_pool.h"
#include "platform/paths.h"
#include "records/key_text.h"
#include "table/channel.h"
#include "table/dictionary.h"
#include "table/open_table.h"

namespace tqdb {
namespace {

using platform::Fault;

constexpr int32_t kNotOpen = 50230;
constexpr int64_t kCopyChunkBytes = 63000;
constexpr int32_t kCopyPhaseEnd = 50;  // Progress at the end of the copy phase

[[noreturn]] void RefuseInUse(TableState& State) {
  State.LastError = platform::kPermissionDenied;
  throw Fault(platform::kPermissionDenied,
              "No se puede Rebuild si el archivo está en uso por otro usuario");
}

// Before anything changes: refuses when another table object has the table open. With
// the table's data file open the check makes this object's presence lock exclusive; a
// refusal leaves it shared, as it was.
void CheckNotInUse(TableState& State, const std::string& DataFile) {
  if (State.DataFileNo > 0 && platform::IsOpen(State.DataFileNo)) {
    if (!platform::TryExclusivePresence(State.DataFileNo)) RefuseInUse(State);
    return;
  }
  if (!platform::FileExists(DataFile)) return;
  const platform::FileNo Probe = platform::TakeFreeNumber();
  bool Alone = false;
  try {
    platform::Open(Probe, DataFile);
    Alone = platform::TryExclusivePresence(Probe);
  } catch (...) {
    platform::ReleaseNumber(Probe);
    throw;
  }
  platform::ReleaseNumber(Probe);
  if (!Alone) RefuseInUse(State);
}

// After the open routine has reopened the data file: takes the table for this object
// alone until its files are closed, so that nobody opens it while it is rebuilt.
void HoldAlone(TableState& State) {
  if (!platform::TryExclusivePresence(State.DataFileNo)) RefuseInUse(State);
}

std::vector<int> KeyLengths(const TableState& State, int Keys) {
  std::vector<int> Lengths;
  for (int K = 1; K <= Keys; ++K) {
    Lengths.push_back(KeyFileKeyLength(State, static_cast<int16_t>(K)));
  }
  return Lengths;
}

int64_t RecordTotal(const TableState& State) {
  if (State.RecordLength <= 0) return 0;
  const int64_t Total = platform::Length(State.DataFileNo) / State.RecordLength;
  if (Total > std::numeric_limits<int32_t>::max()) throw Fault(platform::kOverflow);
  return Total;
}

// Progress of the copy phase: one more every Total / 50 records kept (at least every
// record), without a cap. It ends near 50, and above it when the division rounds far
// down: 119 records kept of 119 count 1 to 59.
class CopyProgress {
 public:
  CopyProgress(const TableState& State, int64_t Total)
      : state_(State), step_(std::max<int64_t>(1, Total / kCopyPhaseEnd)) {}
  void RecordKept() {
    if (++kept_ % step_ != 0) return;
    state_.RaiseProgress(++counter_);
  }

 private:
  const TableState& state_;
  int64_t step_;
  int64_t kept_ = 0;
  int32_t counter_ = 0;
};

// Progress of the key phase: from 50 to 100 over all the entries of all keys, raised
// every fiftieth of them (at least every entry).
class KeyProgress {
 public:
  KeyProgress(const TableState& State, int64_t Total)
      : state_(State), total_(Total), step_(std::max<int64_t>(1, Total / 50)) {}
  void EntryLoaded() {
    if (++done_ % step_ != 0) return;
    state_.RaiseProgress(static_cast<int32_t>(kCopyPhaseEnd + done_ * 50 / total_));
  }

 private:
  const TableState& state_;
  int64_t total_;
  int64_t step_;
  int64_t done_ = 0;
};

// A second table state on the new data file, so that the record, image and long-text
// routines can work on it. Its suffix stays the table's own: the old image and long-text
// files are where it reads from.
std::unique_ptr<TableState> OpenStagedData(const TableState& State, const RebuildFiles& Files) {
  auto Work = std::make_unique<TableState>();
  Work->DictionaryDir = State.DictionaryDir;
  Work->DataPath = State.DataPath;
  Work->BaseName = State.BaseName;
  Work->TableSuffix = State.TableSuffix;
  LoadDictionary(*Work, State.TableName);
  platform::Open(Work->DataFileNo, Files.StagedData(), platform::OpenMode::Truncate);
  return Work;
}

// Copies the records kept, in file order, to Target and enters their key texts in Table
// (when there is one). Returns the number of records kept. The copy's pages start on
// their way to disk; the staging syncs them at its end.
int32_t CopyRecords(TableState& State, platform::FileNo Target, KeyTextTable* Table,
                    int64_t Total) {
  const int64_t Length = State.RecordLength;
  const int64_t PerChunk = std::max<int64_t>(1, kCopyChunkBytes / std::max<int64_t>(Length, 1));
  std::vector<std::string> Texts(Table != nullptr ? static_cast<size_t>(Table->Keys()) : 0);
  CopyProgress Progress(State, Total);
  std::string Out;
  platform::SequentialReader Reader(State.DataFileNo);
  int32_t Kept = 0;
  for (int64_t First = 0; First < Total; First += PerChunk) {
    const int64_t Count = std::min(PerChunk, Total - First);
    const std::span<const uint8_t> Bytes =
        Reader.Read(First * Length + 1, static_cast<size_t>(Count * Length));
    const std::string_view Chunk(reinterpret_cast<const char*>(Bytes.data()), Bytes.size());
    const int32_t KeptBefore = Kept;
    Out.clear();
    for (int64_t I = 0; I < Count; ++I) {
      const std::string_view Record = std::string_view(Chunk).substr(
          static_cast<size_t>(I * Length), static_cast<size_t>(Length));
      if (IsDeletedRecord(State, Record) || !FirstFieldIsSound(State, Record)) continue;
      Out.append(Record);
      ++Kept;
      if (Table != nullptr) {
        for (int K = 1; K <= Table->Keys(); ++K) {
          KeyTextFromRecordInto(State, static_cast<int16_t>(K), Record,
                                Texts[static_cast<size_t>(K - 1)]);
        }
        Table->AddRow(Texts, Kept, true);
      }
      Progress.RecordKept();
    }
    if (!Out.empty()) platform::WriteAt(Target, int64_t{KeptBefore} * Length + 1, Out);
  }
  platform::StartWriteBack(Target);
  return Kept;
}

// Builds the new key file at Path from the sorted key texts: an empty file for the keys,
// each key's tree loaded bottom-up, and the last record number set to Kept.
void BuildKeyFile(TableState& State, const std::string& Path, KeyTextTable& Table, int32_t Kept) {
  engine::CreateEmptyKeyFile(Path, KeyLengths(State, Table.Keys()));
  EngineState& Engine = State.Engine;
  Engine.EngineStatus = 0;
  engine::OpenKeyFile(Engine, Path);
  if (Engine.EngineStatus != 0 || Engine.KeyFileNo == 0) throw Fault(platform::kPathFileAccess);
  try {
    engine::KeyBulkBuilder Builder(Engine);
    KeyProgress Progress(State, int64_t{Kept} * Table.Keys());
    std::string Text;
    int32_t Record = 0;
    Table.SortAndLoadEach([&](int K) {
      Builder.BeginKey(K + 1, Kept);
      for (int64_t Row = 0; Row < Table.Rows(); ++Row) {
        Table.Entry(K, Row, Text, Record);
        Builder.Add(Text, Record);
        Progress.EntryLoaded();
      }
      Builder.FinishKey();
      platform::StartWriteBack(Engine.KeyFileNo);
    });
    Builder.Finish(Kept);
    platform::Sync(Engine.KeyFileNo);
  } catch (...) {
    engine::CloseKeyFile(Engine);
    throw;
  }
  SendCommand(State, "K");
}

// A table whose key texts are too many to sort in memory: once the new data file is
// complete, the key file is built from it as a missing one is, record by record in the
// engine's bounded image. Its progress is the key phase's, from 50 to 100.
void BuildKeyFileByRecords(TableState& State, const RebuildFiles& Files) {
  EngineState& Engine = State.Engine;
  const auto Saved = std::move(Engine.Progress);
  Engine.Progress = [&State](int32_t P) { State.RaiseProgress(kCopyPhaseEnd + P / 2); };
  try {
    engine::CreateKeyFile(Engine, 0, Files.Staged);
  } catch (...) {
    Engine.Progress = Saved;
    engine::CloseKeyFile(Engine);
    throw;
  }
  Engine.Progress = Saved;
  platform::Sync(Engine.KeyFileNo);
  SendCommand(State, "K");
}

// Writes the complete new file set under the staged names: data, keys, images, long
// texts, each synced. Nothing of the table's own files is changed.
void StageNewFiles(TableState& State, const RebuildFiles& Files, int Keys) {
  const int64_t Total = RecordTotal(State);
  const std::vector<int> Lengths = KeyLengths(State, Keys);
  std::optional<KeyTextTable> Table;
  if (KeyTextTable::BytesFor(Lengths, Total) <= State.Engine.SortedBuildBudget) {
    Table.emplace(Lengths, DigitCount(Total), Total);
  }
  const std::unique_ptr<TableState> Work = OpenStagedData(State, Files);
  int32_t Kept = 0;
  {
    const platform::ScopedRangeLock FirstByte(State.DataFileNo, 1, 1);
    Kept = CopyRecords(State, Work->DataFileNo, Table ? &*Table : nullptr, Total);
  }

  if (Table) {
    BuildKeyFile(State, Files.StagedKey(), *Table, Kept);
  } else {
    BuildKeyFileByRecords(State, Files);
  }

  if (!ImageFields(State).empty()) {
    Work->ImageFileNo = platform::TakeFreeNumber();
    platform::Open(static_cast<platform::FileNo>(Work->ImageFileNo), Files.LiveImage());
    CompactImages(*Work, Kept, Files.Work());
    platform::RenameFile(Files.Work(), Files.StagedImage());
  }
  if (!LongTextFields(State).empty()) {
    CompactLongTexts(*Work, Kept, Files.Work());
    platform::RenameFile(Files.Work(), Files.StagedText());
  }
  platform::Sync(Work->DataFileNo);
}

// After a failure before the commit: the new files go, the table's own stay as they were.
void AbandonStaging(TableState& State, const RebuildFiles& Files) noexcept {
  try {
    engine::CloseKeyFile(State.Engine);
    DiscardStaged(Files);
    if (State.DataFileNo > 0 && platform::IsOpen(State.DataFileNo)) {
      platform::HoldPresence(State.DataFileNo);
    }
  } catch (...) {
    // What cannot be cleaned now is cleaned by the next rebuild.
  }
}

void CloseTableFiles(TableState& State) {
  if (State.DataFileNo > 0) platform::Close(State.DataFileNo);
  if (State.ImageFileNo > 0) {
    platform::ReleaseNumber(static_cast<platform::FileNo>(State.ImageFileNo));
    State.ImageFileNo = 0;
  }
}

}  // namespace

int RebuildKeyCount(const TableState& State) {
  return std::clamp<int>(State.KeyCount, 0, kMaxKeys);  // unused key numbers included
}

// The steps: refuse unless alone; reopen without the key file and hold the table
// exclusively; finish or clean up an earlier rebuild; stage the new files (copy, keys,
// images, long texts) while a second thread compresses the old data file for the audit
// archive; commit; close. A crash before the commit mark leaves the old files
// untouched, one after it is finished by the next rebuild; the one window an ordinary open
// can see (new records beside the old image or long-text file, for the instants between
// the renames) is described in rebuild_files.h.
double Rebuild(TableState& State) {
  const double Started = platform::Timer();
  State.RaiseProgress(1);
  if (State.BaseName.empty() || State.BaseName[0] == '\0') {
    throw Fault(kNotOpen, "Base de datos no abierto");
  }
  if (platform::UpperCase(State.TableSuffix) == "ZZ") throw Fault(platform::kPathFileAccess);
  const RebuildFiles Files = RebuildFilesOf(State);
  CheckNotInUse(State, Files.LiveData());

  SendCommand(State, "K");
  OpenRoutine(State, 0, "");
  HoldAlone(State);
  if (RecoverRebuild(Files)) {
    OpenRoutine(State, 0, "");
    HoldAlone(State);
  }
  const int Keys = RebuildKeyCount(State);

  EarlyDataArchive Archive(Files);
  try {
    StageNewFiles(State, Files, Keys);
  } catch (...) {
    AbandonStaging(State, Files);
    throw;
  }
  CommitRebuild(Files, Archive.Finish());

  CloseTableFiles(State);
  SendCommand(State, "K");
  State.RaiseProgress(100);
  return platform::MinutesDotSeconds(platform::Timer() - Started);
}

}  // namespace tqdb

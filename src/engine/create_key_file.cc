// Building a key file from the dictionary and the data file (letter C).
//
// Records are entered in file order, so record n of the data file gets record number n;
// a deleted record's number goes onto the deleted-record stack. Key texts are taken from
// the record's raw bytes, so a key over a binary field holds the field's stored bytes,
// exactly as the data file does.
//
// The file is built under the key file's name + ".new" and renamed into place when
// complete. Two ways give the same entries in the same order. Normally every key's texts are
// collected, sorted and loaded bottom-up (one read of the data file, one write of the key
// file). A table too large to sort in memory is built record by record through
// InsertKeys in the key file's memory image instead, whose resident part stays bounded.
#include "engine/create_key_file.h"

#include <algorithm>
#include <limits>
#include <string_view>
#include <vector>

#include "engine/bulk_builder.h"
#include "engine/key_file.h"
#include "engine/key_text_table.h"
#include "engine/key_update.h"
#include "engine/record_allocator.h"
#include "platform/fault.h"
#include "platform/file_pool.h"
#include "platform/messages.h"
#include "platform/numbers.h"
#include "platform/paths.h"
#include "platform/scoped_file_number.h"
#include "platform/settings.h"
#include "records/key_text.h"
#include "records/record_codecs.h"
#include "table/dictionary.h"

namespace tqdb::engine {
namespace {

using platform::Fault;

constexpr int64_t kChunkBytes = 32768;
constexpr int64_t kShortestDictionary = 100;
constexpr int32_t kProgressStep = 100;

std::string DictionaryDirectory(EngineState& Engine) {
  if (Engine.EngineDir.empty()) Engine.EngineDir = platform::GetRegSetting("Directory", "", "");
  const char Last = Engine.EngineDir.empty() ? '\0' : Engine.EngineDir.back();
  if (Last != '\\' && Last != '/') Engine.EngineDir += '\\';
  return Engine.EngineDir;
}

// The table name is the base path itself when it is 5 characters long, else the 5
// characters before the 2-character suffix at its end.
std::string DictionaryPath(const std::string& Directory, const std::string& BasePath) {
  if (BasePath.size() == 5) return Directory + BasePath + ".TQA";
  if (BasePath.size() < 7) throw Fault(platform::kInvalidCall);
  return Directory + BasePath.substr(BasePath.size() - 7, 5) + ".TQA";
}

Dictionary ReadTableDictionary(const std::string& Path) {
  const std::string Shown = platform::ResolvePath(Path);  // as the user sees the file
  platform::ScopedFileNumber File;
  try {
    platform::Open(File.get(), Path, platform::OpenMode::ReadOnly);
  } catch (const Fault& Failure) {
    if (Failure.Number() != platform::kFileNotFound) throw;
    throw Fault(50225, "Table not found: " + Shown);
  }
  if (platform::Length(File.get()) < kShortestDictionary) {
    throw Fault(50225, "Table not found: " + Shown);
  }
  const std::string Bytes = platform::ReadAt(File.get(), 1, kDictionaryReadSize);
  if (TwoDigits(std::string_view(Bytes).substr(0, 2)) > kMaxFields) {
    throw Fault(50226, "Invalid table: " + Shown);
  }
  return ParseDictionary(Bytes);
}

std::vector<int> KeyLengths(const Dictionary& Dict) {
  std::vector<int> Lengths;
  for (int K = 1; K <= Dict.KeyCount; ++K) {
    Lengths.push_back(KeyFileKeyLength(Dict, static_cast<int16_t>(K)));
  }
  return Lengths;
}

[[noreturn]] void CountMismatch() {
  platform::ShowMessage("Error fatal en tqidx", MessageIcon::Critical);
  platform::ShowMessage("No se debe utilizar el archivo hasta averiguar el problema",
                        MessageIcon::Critical);
  throw Fault(platform::kInvalidCall, "Error fatal en tqidx");
}

// Enters record Record (its raw bytes) into the key file being built record by record.
void InsertRecord(EngineState& Engine, const Dictionary& Dict, int32_t Record,
                  std::string_view Bytes, std::vector<std::string>& Keys) {
  if (Bytes.substr(0, kDeletedMark.size()) == kDeletedMark) {
    Engine.Header.LastRecord = Record;
    WriteHeader(Engine);
    ReleaseRecordNumber(Engine, Record);
    return;
  }
  for (int K = 1; K <= Dict.KeyCount; ++K) {
    Keys[K - 1] = KeyTextFromRecord(Dict, static_cast<int16_t>(K), Bytes, true);
  }
  InsertKeys(Engine, Keys);
}

// The data file of the table, open for reading; the number is 0 without a data file.
struct DataFile {
  platform::ScopedFileNumber File;
  int64_t Records = 0;
  bool Exists = false;
};

void OpenDataFile(DataFile& Data, const Dictionary& Dict, const std::string& Path) {
  try {
    platform::Open(Data.File.get(), Path, platform::OpenMode::ReadOnly);
  } catch (const Fault& Failure) {
    if (Failure.Number() == platform::kFileNotFound) return;  // no data file: no records
    throw;
  }
  Data.Exists = true;
  if (Dict.RecordLength <= 0) return;
  Data.Records = platform::Length(Data.File.get()) / Dict.RecordLength;
  if (Data.Records > std::numeric_limits<int32_t>::max()) throw Fault(platform::kOverflow);
}

// Reads the data file in chunks of whole records and hands each record, numbered from 1
// in file order, to Enter, raising Progress every 100 records. Before each record the
// engine's count of records entered must match the records read.
template <typename EnterFn>
void ForEachRecord(EngineState& Engine, const Dictionary& Dict, const DataFile& Data,
                   EnterFn&& Enter) {
  const int64_t Length = Dict.RecordLength;
  const int64_t Total = Data.Records;
  if (Length <= 0 || Total == 0) return;
  const int64_t PerChunk = std::max<int64_t>(1, kChunkBytes / Length);
  int32_t Entered = 0;
  platform::SequentialReader Reader(Data.File.get());
  for (int64_t First = 0; First < Total; First += PerChunk) {
    const int64_t Count = std::min(PerChunk, Total - First);
    const std::span<const uint8_t> Bytes =
        Reader.Read(First * Length + 1, static_cast<size_t>(Count * Length));
    const std::string_view Chunk(reinterpret_cast<const char*>(Bytes.data()), Bytes.size());
    for (int64_t i = 0; i < Count; ++i) {
      if (Engine.Header.LastRecord != Entered) CountMismatch();
      ++Entered;
      Enter(Entered, std::string_view(Chunk).substr(static_cast<size_t>(i * Length), Length));
      if (Entered % kProgressStep == 0 && Engine.Progress) {
        Engine.Progress(static_cast<int32_t>(
            platform::RoundHalfEven(static_cast<double>(Entered) * 100 / Total)));
      }
    }
  }
}

// Record by record: every live record's keys through InsertKeys, in the key file's memory
// image (which past its limit continues in a mapping of the file).
void InsertRecords(EngineState& Engine, const Dictionary& Dict, const DataFile& Data) {
  std::vector<std::string> Keys(static_cast<size_t>(Dict.KeyCount));
  BeginKeyFileImage(Engine);
  ForEachRecord(Engine, Dict, Data, [&](int32_t Record, std::string_view Bytes) {
    InsertRecord(Engine, Dict, Record, Bytes, Keys);
  });
  if (Engine.ImageMode) {
    FlushKeyFileImage(Engine);
  } else {
    WriteHeader(Engine);
  }
}

// Sorted: the key texts of every live record are collected, each key's are sorted and its
// tree is loaded bottom-up; the deleted records' numbers form the deleted-record stack in
// file order. The trees hold the same entries in the same order as the record-by-record
// build, packed more tightly; the last record number is the number of records read.
void LoadSortedKeys(EngineState& Engine, const Dictionary& Dict, const DataFile& Data,
                    const std::vector<int>& Lengths) {
  KeyTextTable Table(Lengths, DigitCount(Data.Records), Data.Records);
  std::vector<int32_t> Deleted;
  std::vector<std::string> Keys(Lengths.size());
  ForEachRecord(Engine, Dict, Data, [&](int32_t Record, std::string_view Bytes) {
    Engine.Header.LastRecord = Record;
    if (Bytes.substr(0, kDeletedMark.size()) == kDeletedMark) {
      Deleted.push_back(Record);
      return;
    }
    for (size_t K = 0; K < Keys.size(); ++K) {
      KeyTextFromRecordInto(Dict, static_cast<int16_t>(K + 1), Bytes, Keys[K]);
    }
    Table.AddRow(Keys, Record, true);
  });
  KeyBulkBuilder Builder(Engine);
  std::string Text;
  int32_t Record = 0;
  Table.SortAndLoadEach([&](int K) {
    Builder.BeginKey(K + 1, Table.Rows());
    for (int64_t Row = 0; Row < Table.Rows(); ++Row) {
      Table.Entry(K, Row, Text, Record);
      Builder.Add(Text, Record);
    }
    Builder.FinishKey();
  });
  WriteDeletedStack(Engine, Deleted);
  Builder.Finish(static_cast<int32_t>(Data.Records));
}

// Sets the building flag for the life of the object (the dispatcher sets it too).
class BuildingFlag {
 public:
  explicit BuildingFlag(EngineState& Engine) : engine_(Engine), saved_(Engine.Creating) {
    Engine.Creating = true;
  }
  ~BuildingFlag() { engine_.Creating = saved_; }
  BuildingFlag(const BuildingFlag&) = delete;
  BuildingFlag& operator=(const BuildingFlag&) = delete;

 private:
  EngineState& engine_;
  bool saved_;
};

}  // namespace

void CreateKeyFile(EngineState& Engine, int16_t /*FileNo*/, const std::string& BasePath) {
  const std::string Directory = DictionaryDirectory(Engine);
  const Dictionary Dict = ReadTableDictionary(DictionaryPath(Directory, BasePath));
  const std::vector<int> Lengths = KeyLengths(Dict);
  const std::string KeyPath = BasePath + ".TQC";
  // Built under another name and renamed over the key file when complete, so that a
  // crash in the middle never leaves a key file that opens but lacks entries.
  const std::string WorkPath = KeyPath + ".new";

  CloseKeyFile(Engine);
  try {
    CreateEmptyKeyFile(WorkPath, Lengths);
  } catch (const Fault& Failure) {
    if (Failure.Number() == platform::kInvalidCall) throw;  // lengths no key file can hold
    throw KeyFileNotCreated(Failure);
  }
  OpenKeyFile(Engine, WorkPath);
  if (Engine.EngineStatus != 0 || Engine.KeyFileNo == 0) throw Fault(platform::kPathFileAccess);
  try {
    const BuildingFlag Building(Engine);
    DataFile Data;
    OpenDataFile(Data, Dict, BasePath + ".TQd");
    if (KeyTextTable::BytesFor(Lengths, Data.Records) <= Engine.SortedBuildBudget) {
      LoadSortedKeys(Engine, Dict, Data, Lengths);
    } else {
      InsertRecords(Engine, Dict, Data);
    }
    CloseKeyFile(Engine);
    platform::RenameFile(WorkPath, KeyPath);
  } catch (...) {
    CloseKeyFile(Engine);  // the half-built file is not to be used
    try {
      platform::DeleteFile(WorkPath);
    } catch (const Fault&) {
    }
    throw;
  }
  OpenKeyFile(Engine, KeyPath);
  if (Engine.EngineStatus != 0 || Engine.KeyFileNo == 0) throw Fault(platform::kPathFileAccess);
}

}  // namespace tqdb::engine

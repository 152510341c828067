// Building a key file from the dictionary and the data file (letter C).
//
// The new file is built in memory (the key file's image mode) and written out at the
// end. Records are entered in file order, so record n of the data file gets record number
// n: a live record's keys go through InsertKeys (which, while a file is being built,
// always hands out the next number), a deleted record's number goes onto the
// deleted-record stack. Key texts are taken from the record's raw bytes, so a key over a
// binary field holds the field's stored bytes, exactly as the data file does.
#include "engine/create_key_file.h"

#include <algorithm>
#include <limits>
#include <string_view>
#include <vector>

#include "engine/key_file.h"
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

// Enters record Record (its raw bytes) into the key file being built.
void EnterRecord(EngineState& Engine, const Dictionary& Dict, int32_t Record,
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

// Reads the data file in chunks of whole records and enters every record.
void EnterRecords(EngineState& Engine, const Dictionary& Dict, const std::string& DataPath) {
  const int64_t Length = Dict.RecordLength;
  if (Length <= 0) return;
  platform::ScopedFileNumber Data;
  try {
    platform::Open(Data.get(), DataPath, platform::OpenMode::ReadOnly);
  } catch (const Fault& Failure) {
    if (Failure.Number() == platform::kFileNotFound) return;  // no data file: no records
    throw;
  }
  const int64_t Total = platform::Length(Data.get()) / Length;
  if (Total > std::numeric_limits<int32_t>::max()) throw Fault(platform::kOverflow);
  const int64_t PerChunk = kChunkBytes / Length;
  std::vector<std::string> Keys(static_cast<size_t>(Dict.KeyCount));
  int32_t Entered = 0;
  for (int64_t First = 0; First < Total; First += PerChunk) {
    const int64_t Count = std::min(PerChunk, Total - First);
    const std::string Chunk = platform::ReadAt(Data.get(), First * Length + 1, Count * Length);
    for (int64_t i = 0; i < Count; ++i) {
      if (Engine.Header.LastRecord != Entered) CountMismatch();
      ++Entered;
      EnterRecord(Engine, Dict, Entered,
                  std::string_view(Chunk).substr(static_cast<size_t>(i * Length), Length), Keys);
      if (Entered % kProgressStep == 0 && Engine.Progress) {
        Engine.Progress(static_cast<int32_t>(
            platform::RoundHalfEven(static_cast<double>(Entered) * 100 / Total)));
      }
    }
  }
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

  CloseKeyFile(Engine);
  try {
    CreateEmptyKeyFile(KeyPath, Lengths);
  } catch (const Fault& Failure) {
    if (Failure.Number() == platform::kInvalidCall) throw;  // lengths no key file can hold
    throw KeyFileNotCreated(Failure);
  }
  OpenKeyFile(Engine, KeyPath);
  if (Engine.EngineStatus != 0 || Engine.KeyFileNo == 0) throw Fault(platform::kPathFileAccess);
  const BuildingFlag Building(Engine);
  try {
    BeginKeyFileImage(Engine);
    EnterRecords(Engine, Dict, BasePath + ".TQd");
    if (Engine.ImageMode) {
      FlushKeyFileImage(Engine);
    } else {
      WriteHeader(Engine);
    }
  } catch (...) {
    CloseKeyFile(Engine);  // the half-built file is not to be used
    throw;
  }
}

}  // namespace tqdb::engine

// Deleting records.
#include "records/delete.h"

#include <exception>
#include <string>

#include "platform/codepage.h"
#include "platform/fault.h"
#include "records/edit_values.h"
#include "records/external_text.h"
#include "records/images.h"
#include "records/key_text.h"
#include "records/record_codecs.h"
#include "records/seek.h"
#include "table/channel.h"

namespace tqdb {
namespace {

constexpr int32_t kDeleteFailed = 50220;

// Holds the lock on a whole record for a scope. The lock is taken in the constructor
// (Fault 70 at once when another table holds it) and released in the destructor on every
// way out; a failure to release is dropped there (the descriptor's close drops it anyway).
class RecordLock {
 public:
  RecordLock(const TableState& State, int32_t Record) : state_(State), record_(Record) {
    LockField(state_, record_, 0, 0);
  }
  ~RecordLock() {
    try {
      unLockField(state_, record_, 0, 0);
    } catch (...) {
    }
  }
  RecordLock(const RecordLock&) = delete;
  RecordLock& operator=(const RecordLock&) = delete;

 private:
  const TableState& state_;
  int32_t record_;
};

// Keeps the current record number (EngineResult) aside for a scope and puts it back on
// every way out, so that an engine command inside does not move the current record.
class KeepCurrentRecord {
 public:
  explicit KeepCurrentRecord(TableState& State) : state_(State), kept_(State.EngineResult) {}
  ~KeepCurrentRecord() { state_.EngineResult = kept_; }
  KeepCurrentRecord(const KeepCurrentRecord&) = delete;
  KeepCurrentRecord& operator=(const KeepCurrentRecord&) = delete;

 private:
  TableState& state_;
  int32_t kept_;
};

// Releases the images and long texts of Record. Every field is tried; the first failure
// is handed back so that the caller can still mark the record.
std::exception_ptr ReleaseOutsideValues(TableState& State, int32_t Record) {
  std::exception_ptr First;
  for (int16_t F = 1; F <= State.NumFields; ++F) {
    const int16_t Type = State.FieldTypes[static_cast<size_t>(F)];
    if (!IsImageType(Type) && !IsExternalTextType(Type)) continue;
    try {
      if (IsImageType(Type)) {
        DeleteImage(State, Record, F);
      } else {
        DeleteExternalText(State, Record, F);
      }
    } catch (...) {
      if (!First) First = std::current_exception();
    }
  }
  return First;
}

}  // namespace

std::string GetRecordKeys(const TableState& State, int32_t Record) {
  std::string Keys;
  if (State.KeyCount < 1) return Keys;
  // One read of the record serves every key.
  const std::string Bytes = GetFullReg(State, Record, State.DataFileNo);
  for (int16_t K = 1; K <= State.KeyCount; ++K) {
    Keys += '\\';
    Keys += KeyTextFromRecord(State, K, Bytes, false);
  }
  return Keys;
}

void DeleteRecord(TableState& State, int32_t Record) {
  if (Record < 1 || IsAnulado(State, Record)) return;
  RecordLock Lock(State, Record);
  SendCommand(State, "D\\" + std::to_string(Record) + "\\Y\\" + std::to_string(State.DataFileNo) +
                         GetRecordKeys(State, Record));
  if (State.LastError != 0) {
    throw platform::Fault(kDeleteFailed, "Error indexados anulando registro: " +
                                             platform::Cp1252ToUtf8(State.TableName));
  }
  const std::exception_ptr ReleaseFailure = ReleaseOutsideValues(State, Record);
  MarkDeleted(State, Record);
  if (ReleaseFailure) std::rethrow_exception(ReleaseFailure);
}

void Delete(TableState& State, int32_t BookMark) {
  if (BookMark == 0) return;
  if (BookMark == -1) {
    if (!State.FilterActive) return;
    for (size_t I = State.FilterList.size(); I-- > 1;) DeleteRecord(State, State.FilterList[I]);
    State.FilterActive = false;
    State.FilterList.assign(1, 0);
    State.FilterPos = 0;
    State.EngineResult = 0;
    return;
  }
  if (State.FilterActive) {
    DeleteRecord(State, BookMark);
    for (size_t I = 1; I < State.FilterList.size(); ++I) {
      if (State.FilterList[I] == BookMark) {
        State.FilterList[I] = 0;
        break;
      }
    }
    State.EngineResult = 0;
    return;
  }
  State.PositionText = GetSpecialSeekKeys(State);
  State.ResumeFromSaved = !State.PositionText.empty();
  KeepCurrentRecord Keep(State);
  DeleteRecord(State, BookMark);
}

int32_t DeletedRecordCount(TableState& State) {
  KeepCurrentRecord Keep(State);
  SendCommand(State, "U");
  return State.EngineResult;
}

}  // namespace tqdb

// Update of an Edit (field by field, keys replaced one by one) and of an AddNew (keys
// inserted, then the whole record written).
#include "records/update.h"

#include <bit>
#include <cstdint>
#include <optional>
#include <string>
#include <utility>
#include <vector>

#include "platform/codepage.h"
#include "platform/fault.h"
#include "platform/file_pool.h"
#include "platform/numbers.h"
#include "records/edit_values.h"
#include "records/external_text.h"
#include "records/images.h"
#include "records/key_text.h"
#include "records/record_codecs.h"
#include "records/seek.h"
#include "records/waiting_lock.h"
#include "table/channel.h"

namespace tqdb {
namespace {

constexpr int32_t kNoCurrentRecord = 50201;
constexpr int32_t kInsertFailed = 50221;

// One field's value, converted and ready to be written.
struct PlannedField {
  int16_t Field = 0;
  int16_t Type = 0;
  bool InKey = false;
  std::string Bytes;    // the stored bytes (for the record and the key texts)
  std::string Outside;  // an image's or long text's value (Windows-1252)
};

const Variant& BufferValue(const TableState& State, int16_t Field) {
  static const Variant kEmpty;
  const size_t F = static_cast<size_t>(Field);
  return F < State.FieldValues.size() ? State.FieldValues[F] : kEmpty;
}

bool InKey(const TableState& State, int16_t Field) {
  const size_t F = static_cast<size_t>(Field);
  return F < State.FieldInKey.size() && State.FieldInKey[F];
}

bool LivesOutside(int16_t Type) { return IsImageType(Type) || IsExternalTextType(Type); }

// Converts the buffer value of Field. A key field is always written into the record as
// stored bytes; the text of an image or long-text key field goes into the record as text.
PlannedField Plan(const TableState& State, int16_t Field) {
  PlannedField P;
  P.Field = Field;
  P.Type = State.FieldTypes.at(static_cast<size_t>(Field));
  P.InKey = InKey(State, Field);
  const Variant& Value = BufferValue(State, Field);
  if (LivesOutside(P.Type) && P.InKey) {
    P.Bytes = TextFromBuffer(Value);
    P.Bytes.resize(static_cast<size_t>(State.FieldWidth.at(static_cast<size_t>(Field))), ' ');
  } else {
    P.Bytes = StoredFieldBytes(State, Field, Value);
    if (LivesOutside(P.Type)) P.Outside = TextFromBuffer(Value);
  }
  return P;
}

// Writes a field's stored bytes: a binary field with its binary writer, any other with
// PutField.
void WriteField(TableState& State, int32_t Record, const PlannedField& P) {
  if (!IsBinaryType(P.Type)) {
    PutField(State, Record, P.Field, P.Bytes);
    return;
  }
  std::string Bytes = P.Bytes;
  auto Little = [&Bytes](size_t Width) {
    uint64_t Value = 0;
    for (size_t i = Width; i-- > 0;) Value = (Value << 8) | static_cast<uint8_t>(Bytes[i]);
    return Value;
  };
  switch (P.Type) {
    case 1:
      PutInteger(State, Record, P.Field, static_cast<int16_t>(static_cast<uint16_t>(Little(2))));
      break;
    case 4:
      PutLong(State, Record, P.Field, static_cast<int32_t>(static_cast<uint32_t>(Little(4))));
      break;
    case 2:
    case 6:
      PutSingle(State, Record, P.Field, std::bit_cast<float>(static_cast<uint32_t>(Little(4))));
      break;
    default:
      PutDouble(State, Record, P.Field, std::bit_cast<double>(Little(8)));
      break;
  }
}

bool KeyUsesField(const TableState& State, int16_t Key, int16_t Field) {
  for (int S = 1; S <= State.KeySegCount[Key] && S <= kMaxSegments; ++S) {
    if (State.KeySegField[Key][S] == Field) return true;
  }
  return false;
}

// PutIns: brings every key that field P.Field belongs to in step with its new value,
// while the old value is still on disk ("R\" key "\" record "\" file "\" old "\" new).
// A key whose text does not change is left alone.
// Disk is the record as just read by the caller, if it has it.
void PutIns(TableState& State, int32_t Record, const PlannedField& P, std::string Disk = {}) {
  if (Disk.empty()) Disk = GetFullReg(State, Record, State.DataFileNo);
  std::string Changed = Disk;
  const size_t Offset = static_cast<size_t>(State.FieldOffset.at(static_cast<size_t>(P.Field)));
  if (Offset + P.Bytes.size() > Changed.size()) throw platform::Fault(platform::kSubscript);
  Changed.replace(Offset, P.Bytes.size(), P.Bytes);
  for (int16_t K = 1; K <= State.KeyCount && K <= kMaxKeys; ++K) {
    if (!KeyUsesField(State, K, P.Field)) continue;
    const std::string Old = KeyTextFromRecord(State, K, Disk, false);
    const std::string New = KeyTextFromRecord(State, K, Changed, false);
    if (platform::UpperCase(Old) == platform::UpperCase(New)) continue;
    SendCommand(State, "R\\" + std::to_string(K) + "\\" + std::to_string(Record) + "\\" +
                           std::to_string(State.DataFileNo) + "\\" + Old + "\\" + New);
    if (State.LastError != 0) {
      throw platform::Fault(platform::kEngineFault,
                            "Error indexados: " + std::to_string(State.LastError) +
                                " actualizando registro " +
                                platform::Cp1252ToUtf8(State.EngineCommand));
    }
  }
}

void UpdateEdit(TableState& State) {
  // Every value is converted before the first field is written, so that a value that
  // cannot be stored leaves the record as it was rather than changed in part.
  std::vector<PlannedField> Plans;
  for (int16_t F = 1; F <= State.NumFields; ++F) {
    const size_t I = static_cast<size_t>(F);
    if (I < State.FieldChanged.size() && State.FieldChanged[I]) Plans.push_back(Plan(State, F));
  }
  if (Plans.empty()) return;
  const int32_t Record = State.EngineResult;
  if (Record < 1) throw platform::Fault(kNoCurrentRecord, "No hay un registro activo para editar");

  bool PositionSaved = false;
  for (const PlannedField& P : Plans) {
    if (P.InKey) {
      std::string Disk;  // the record as read for the saved position: PutIns needs it too
      if (!PositionSaved) {
        State.PositionText = GetSpecialSeekKeys(State, Disk);
        State.ResumeFromSaved = !State.PositionText.empty();
        PositionSaved = true;
      }
      PutIns(State, Record, P, std::move(Disk));
      WriteField(State, Record, P);
    } else if (IsImageType(P.Type)) {
      UpdateImage(State, Record, P.Field, P.Outside);
    } else if (IsExternalTextType(P.Type)) {
      UpdateExternalText(State, Record, P.Field, P.Outside);
    } else {
      WriteField(State, Record, P);
    }
  }
}

// Takes back the keys of a new record whose bytes could not be written, so that no key
// points at a record that is not there; its number goes back to the allocator. Best
// effort: the write's own failure is what the caller hears about.
void WithdrawKeys(TableState& State, int32_t Record, const std::string& Keys) noexcept {
  try {
    SendCommand(State,
                "D\\" + std::to_string(Record) + "\\Y\\" + std::to_string(State.DataFileNo) + Keys);
  } catch (...) {
  }
  State.EngineResult = 0;
}

// The lock of a whole new record, held while its bytes are written. A delete in another
// process gives its record's number back inside its D command but writes the deletion
// mark only afterwards, holding the record's lock in between; a new record handed that
// number waits for the mark, or the mark would land on it. A number taken after the last
// record number was never given back by anybody, so nobody can be marking it: such a
// record is written without the lock, as is any record of a table held alone.
class NewRecordLock {
 public:
  NewRecordLock(const TableState& State, int32_t Record)
      : lock_(State.DataFileNo, FieldLockRange(State, Record, 0, 0).first,
              FieldLockRange(State, Record, 0, 0).second) {}

 private:
  WaitingRangeLock lock_;
};

// InsertRecord and WriteNewRecord: the keys first, then the record in one write, then
// its values kept outside the record.
void UpdateAddNew(TableState& State) {
  std::string Bytes(static_cast<size_t>(State.RecordLength), '\0');
  std::vector<PlannedField> Outside;
  for (int16_t F = 1; F <= State.NumFields; ++F) {
    PlannedField P = Plan(State, F);
    const size_t Offset = static_cast<size_t>(State.FieldOffset.at(static_cast<size_t>(F)));
    if (Offset + P.Bytes.size() > Bytes.size()) throw platform::Fault(platform::kSubscript);
    Bytes.replace(Offset, P.Bytes.size(), P.Bytes);
    if (!P.Outside.empty()) Outside.push_back(std::move(P));
  }
  std::string Keys;  // GetJustKeys
  for (int16_t K = 1; K <= State.KeyCount && K <= kMaxKeys; ++K) {
    Keys += '\\';
    Keys += KeyTextFromRecord(State, K, Bytes, false);
  }

  SendCommand(State, "I\\" + std::to_string(State.DataFileNo) + Keys);
  if (State.LastError != 0) {
    throw platform::Fault(kInsertFailed, "Error indexados: " + std::to_string(State.LastError) +
                                             " insertando registro " +
                                             platform::Cp1252ToUtf8(State.EngineCommand));
  }
  const int32_t Record = State.Engine.LastAllocated;
  if (Record < 1) throw platform::Fault(platform::kBadRecordNumber);
  State.EngineResult = Record;
  std::optional<NewRecordLock> Lock;
  try {
    if (State.Engine.LastAllocatedReused && !State.Engine.Alone) Lock.emplace(State, Record);
    platform::WriteAt(State.DataFileNo, RecordPosition(State, Record), Bytes);
  } catch (...) {
    Lock.reset();
    WithdrawKeys(State, Record, Keys);
    throw;
  }
  for (const PlannedField& P : Outside) {
    if (IsImageType(P.Type)) {
      PutImage(State, Record, P.Field, P.Outside);
    } else {
      PutExternalText(State, Record, P.Field, P.Outside);
    }
  }
}

}  // namespace

void Update(TableState& State) {
  const int32_t Mode = std::exchange(State.EditState, 0);
  try {
    if (Mode == 1) {
      UpdateEdit(State);
    } else if (Mode == 2) {
      UpdateAddNew(State);
    }
  } catch (const platform::Fault& Failure) {
    // Only a refused insert has written nothing, and leaves the buffer for a corrected
    // retry. After any other failure the edit is over: the new record's keys may be in
    // already, and a retry would insert them a second time.
    if (Mode == 2 && Failure.Number() == kInsertFailed) State.EditState = Mode;
    throw;
  }
}

}  // namespace tqdb

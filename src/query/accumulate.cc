#include "query/accumulate.h"

#include <cmath>
#include <string>

#include "platform/fault.h"
#include "platform/numbers.h"
#include "records/field_access.h"
#include "records/record_codecs.h"

namespace tqdb::query {
namespace {

using platform::Fault;

void CheckField(const TableState& State, int16_t Field) {
  if (Field < 1 || Field > State.NumFields) throw Fault(platform::kSubscript);
}

// The field's value as Sum and the additions read it.
double ReadAccumulated(const TableState& State, int32_t Record, int16_t Field) {
  const int16_t Type = State.FieldTypes[Field];
  if (Type == 1) return GetInteger(State, Record, Field);
  if (Type == 2 || Type == 6) return GetSingle(State, Record, Field);
  if (IsDoubleType(Type)) return GetDouble(State, Record, Field);
  return platform::Val(GetField(State, Record, Field, false));
}

// Holds the lock of one field of one record for a scope.
class FieldLock {
 public:
  FieldLock(const TableState& State, int32_t Record, int16_t Field)
      : state_(State), record_(Record), field_(Field) {
    LockField(State, Record, Field, 0);
  }
  ~FieldLock() {
    try {
      unLockField(state_, record_, field_, 0);
    } catch (...) {
      // The descriptor is gone, and its locks with it.
    }
  }
  FieldLock(const FieldLock&) = delete;
  FieldLock& operator=(const FieldLock&) = delete;

 private:
  const TableState& state_;
  int32_t record_;
  int16_t field_;
};

double AddInPlace(TableState& State, int16_t Field, double AddValue) {
  CheckField(State, Field);
  const int32_t Record = State.EngineResult;
  if (Record < 1) throw Fault(platform::kBadRecordNumber);  // no current record
  const FieldLock Lock(State, Record, Field);
  const double New = ReadAccumulated(State, Record, Field) + AddValue;
  const int16_t Type = State.FieldTypes[Field];
  if (Type == 1) {
    PutInteger(State, Record, Field, platform::ToInt16(New));
  } else if (Type == 2 || Type == 6) {
    PutSingle(State, Record, Field, platform::ToSingle(New));
  } else if (IsDoubleType(Type)) {
    if (std::isinf(New)) throw Fault(platform::kOverflow);
    PutDouble(State, Record, Field, New);
  } else {
    PutField(State, Record, Field, platform::DoubleToText(New));
  }
  return New;
}

// Runs an addition under the member's own error trap: every fault leaves with Source.
template <typename Work>
double Trapped(const char* Source, Work&& Run) {
  try {
    return Run();
  } catch (Fault& Error) {
    Error.SetSource(Source);
    throw;
  }
}

}  // namespace

double Sum(const TableState& State, const Variant& NField) {
  if (!State.FilterActive) return 0;
  const int16_t Field = FieldNumber(State, NField);
  CheckField(State, Field);
  double Total = 0;
  for (size_t I = 1; I < State.FilterList.size(); ++I) {
    const int32_t Record = State.FilterList[I];
    if (Record <= 0) continue;  // deleted since the view was made
    Total += ReadAccumulated(State, Record, Field);
    if (std::isinf(Total)) throw Fault(platform::kOverflow);
  }
  return Total;
}

double AddToField(TableState& State, const Variant& FieldN, double AddValue) {
  return Trapped("AddToField",
                 [&] { return AddInPlace(State, FieldNumber(State, FieldN), AddValue); });
}

double AddToKField(TableState& State, int16_t Field, double AddValue, int16_t Offset) {
  return Trapped("AddToKfield",
                 [&] { return AddInPlace(State, KFieldNumber(State, Field, Offset), AddValue); });
}

}  // namespace tqdb::query

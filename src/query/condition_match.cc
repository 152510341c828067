#include "query/condition_match.h"

#include <algorithm>
#include <cfloat>
#include <cmath>
#include <cstring>
#include <string>

#include "platform/codepage.h"
#include "platform/numbers.h"
#include "query/like_pattern.h"
#include "records/record_codecs.h"

namespace tqdb::query {
namespace {

// Copies up to Width little-endian bytes into a zero-filled value of type T.
template <typename T>
T Decode(std::string_view Bytes) {
  unsigned char Raw[sizeof(T)] = {};
  std::memcpy(Raw, Bytes.data(), std::min(Bytes.size(), sizeof(T)));
  T Value;
  std::memcpy(&Value, Raw, sizeof(T));  // the platform is little-endian, as the files
  return Value;
}

// Applies a comparison operator to the result of a three-way comparison.
bool OrderSatisfies(FilterOp Op, int Order) {
  switch (Op) {
    case kOpGreaterEq:
      return Order >= 0;
    case kOpLessEq:
      return Order <= 0;
    case kOpEqual:
    case kOpDirectKey:
      return Order == 0;
    case kOpGreater:
      return Order > 0;
    case kOpLess:
      return Order < 0;
    case kOpNotEqual:
      return Order != 0;
    default:
      return false;
  }
}

// Numbers: NaN is equal to nothing and ordered against nothing, so only "<>" holds.
bool NumberSatisfies(FilterOp Op, double Field, double Value) {
  if (std::isnan(Field) || std::isnan(Value)) return Op == kOpNotEqual;
  return OrderSatisfies(Op, (Field > Value) - (Field < Value));
}

// A single-precision field is compared with the value rounded to single precision, so that
// "PRECIO = 0.1" finds the single 0.1.
double AsSingle(double Value) {
  if (std::isfinite(Value) && std::fabs(Value) <= FLT_MAX) return static_cast<float>(Value);
  return Value;
}

struct NumberReading {
  double Value = 0;
  bool Single = false;
};

NumberReading ReadNumber(const TableState& State, int16_t Type, std::string_view Bytes) {
  switch (Type) {
    case 1:
      return {static_cast<double>(Decode<int16_t>(Bytes))};
    case 4:
      return {static_cast<double>(Decode<int32_t>(Bytes))};
    case 2:
    case 6:
      return {static_cast<double>(Decode<float>(Bytes)), true};
    default: {
      const double Value = Decode<double>(Bytes);
      return {State.AbsMode ? std::fabs(Value) : Value};
    }
  }
}

}  // namespace

bool FieldBytesMatch(const TableState& State, const FilterCondition& Condition,
                     std::string_view FieldBytes, bool UpperForLike) {
  if (Condition.Op == kOpNone) return false;
  const int16_t Type = State.FieldTypes[Condition.Field];
  if (IsNumericFilterType(Type)) {
    const NumberReading Number = ReadNumber(State, Type, FieldBytes);
    if (Condition.Op == kOpLike) {
      const std::string Text = Number.Single
                                   ? platform::SingleToText(static_cast<float>(Number.Value))
                                   : platform::DoubleToText(Number.Value);
      return MatchesPattern(Text, Condition.Text);
    }
    const double Value = Number.Single ? AsSingle(Condition.Number) : Condition.Number;
    return NumberSatisfies(Condition.Op, Number.Value, Value);
  }
  const std::string_view Text = platform::TrimRight(FieldBytes);
  if (Condition.Op == kOpLike) {
    if (UpperForLike) return MatchesPattern(platform::UpperCase(Text), Condition.Text);
    return MatchesPattern(Text, Condition.Text);
  }
  return OrderSatisfies(Condition.Op, platform::CompareText(Text, Condition.Text));
}

bool RecordMatches(const TableState& State, int32_t Record, const FilterCondition& Condition,
                   bool UpperForLike) {
  if (Record <= 0 || Condition.Op == kOpNone) return false;
  const std::string Bytes = GetField(State, Record, Condition.Field, false);
  return FieldBytesMatch(State, Condition, Bytes, UpperForLike);
}

}  // namespace tqdb::query

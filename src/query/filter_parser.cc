#include "query/filter_parser.h"

#include <algorithm>
#include <charconv>
#include <string>
#include <system_error>

#include "platform/codepage.h"
#include "platform/fault.h"
#include "platform/numbers.h"
#include "records/field_access.h"

namespace tqdb::query {
namespace {

using platform::Trim;

bool EndsWith(std::string_view Text, std::string_view Tail) {
  return Text.size() >= Tail.size() && Text.substr(Text.size() - Tail.size()) == Tail;
}

// One operator test: the first of its (one or two) spellings found in the condition.
struct OperatorHit {
  size_t Position = std::string_view::npos;
  size_t Length = 0;
};

OperatorHit FindOperator(std::string_view Condition, std::string_view First,
                         std::string_view Second = {}) {
  size_t At = Condition.find(First);
  if (At != std::string_view::npos) return {At, First.size()};
  if (!Second.empty()) {
    At = Condition.find(Second);
    if (At != std::string_view::npos) return {At, Second.size()};
  }
  return {};
}

// A number written with "." as the decimal point: optional sign, digits with at most one
// point, optional exponent; the whole text must be used.
bool ReadDotDecimal(std::string_view Text, double& Out) {
  bool Negative = false;
  if (!Text.empty() && (Text.front() == '+' || Text.front() == '-')) {
    Negative = Text.front() == '-';
    Text.remove_prefix(1);
  }
  // from_chars also reads "inf" and "nan"; a number here starts with a digit or a point.
  if (Text.empty() || !(Text.front() == '.' || (Text.front() >= '0' && Text.front() <= '9'))) {
    return false;
  }
  double Value = 0;
  const char* End = Text.data() + Text.size();
  const auto [Stop, Error] = std::from_chars(Text.data(), End, Value);
  if (Error != std::errc() || Stop != End) return false;
  Out = Negative ? -Value : Value;
  return true;
}

}  // namespace

void RaiseFilterError(int32_t Number, std::string_view Text) {
  throw platform::Fault(Number, "Error en filtro: " + platform::Cp1252ToUtf8(Text));
}

std::string StripQuotes(std::string_view Value) {
  if (!Value.empty() && Value.front() == '\'') Value.remove_prefix(1);
  if (!Value.empty() && Value.back() == '\'') Value.remove_suffix(1);
  return std::string(Trim(Value));
}

ConditionText SplitCondition(std::string_view Condition) {
  struct Test {
    std::string_view First, Second;
    FilterOp Op;
  };
  static constexpr Test kTests[] = {
      {"LIKE", {}, kOpLike}, {">=", "=>", kOpGreaterEq}, {"<=", "=<", kOpLessEq},
      {"=", {}, kOpEqual},   {"<>", "><", kOpNotEqual},  {">", {}, kOpGreater},
      {"<", {}, kOpLess},
  };
  ConditionText Parts;
  for (const Test& Each : kTests) {
    const OperatorHit Hit = FindOperator(Condition, Each.First, Each.Second);
    if (Hit.Position == std::string_view::npos) continue;
    Parts.Name = std::string(Trim(Condition.substr(0, Hit.Position)));
    Parts.Value = StripQuotes(Trim(Condition.substr(Hit.Position + Hit.Length)));
    Parts.Op = Each.Op;
    if (Parts.Op == kOpEqual && Parts.Value.find('*') != std::string::npos) Parts.Op = kOpLike;
    return Parts;
  }
  return Parts;
}

std::string PatternKeyPrefix(std::string_view Pattern) {
  std::string_view Text = Trim(Pattern);
  while (!Text.empty() && Text.back() == '*') Text.remove_suffix(1);
  while (!Text.empty() && Text.back() == '?') Text.remove_suffix(1);
  while (!Text.empty() && Text.front() == '*') Text.remove_prefix(1);
  return std::string(Text);
}

std::string_view PatternLiteralHead(std::string_view Pattern) {
  return Pattern.substr(0, std::min(Pattern.find('*'), Pattern.find('?')));
}

double ParseNumberText(std::string_view Text) {
  Text = Trim(Text);
  if (Text.empty()) return 0;
  const unsigned char First = static_cast<unsigned char>(Text.front());
  if (First < 43 || First > 57) return 0;
  double Value = 0;
  const bool DotOnly =
      Text.find('.') != std::string_view::npos && Text.find(',') == std::string_view::npos;
  const bool Converted =
      DotOnly ? ReadDotDecimal(Text, Value) : platform::TryLocaleToDouble(Text, Value);
  return Converted ? Value : 0;
}

int ConnectorCode(std::string_view Text) {
  const std::string_view Word = Trim(Text);
  if (EndsWith(Word, "AND")) return 1;
  if (EndsWith(Word, "OR")) return 0;
  RaiseFilterError(kFilterConnectorError, Text);
}

bool IsGroupedFilter(std::string_view Expr) {
  const size_t Open = Expr.find('(', 2);
  if (Open == std::string_view::npos || Expr.find(')') == std::string_view::npos) return false;
  const std::string_view Before = Trim(Expr.substr(0, Open));
  return EndsWith(Before, "AND") || EndsWith(Before, "OR");
}

bool IsNumericFilterType(int16_t Type) {
  return Type == 1 || Type == 2 || Type == 3 || Type == 4 || Type == 6 || Type == 7 ||
         (Type >= 80 && Type <= 85);
}

FilterCondition ParseCondition(const TableState& State, std::string_view Condition) {
  const ConditionText Parts = SplitCondition(Condition);
  FilterCondition Parsed;
  if (Parts.Op == kOpNone) return Parsed;
  const int16_t Field = FieldNumber(State, Variant(platform::Cp1252ToUtf8(Parts.Name)));
  // "*" and "*+" name no single field.
  if (Field < 1 || Field > State.NumFields ||
      static_cast<size_t>(Field) >= State.FieldTypes.size()) {
    throw platform::Fault(50234, "Campo " + platform::Cp1252ToUtf8(Parts.Name) + " no existe");
  }
  const int16_t Type = State.FieldTypes[Field];
  Parsed.Field = Field;
  Parsed.Op = Parts.Op;
  Parsed.Text = Parts.Value;
  Parsed.Numeric = IsNumericFilterType(Type) && Parts.Op != kOpLike;
  if (Parsed.Numeric) Parsed.Number = ParseNumberText(Parts.Value);
  const bool Keyed =
      static_cast<size_t>(Field) < State.FieldInKey.size() && State.FieldInKey[Field];
  if (Parsed.Op == kOpEqual && Type == 0 && !Keyed && Parts.Value.size() < 5) {
    Parsed.Op = kOpDirectKey;
  }
  return Parsed;
}

}  // namespace tqdb::query

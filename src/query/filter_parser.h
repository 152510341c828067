// The pieces of the filter language: conditions, values and connectors.
//
// A filter is a flat list of conditions "field operator value" joined by AND and OR, with
// at most one level of parentheses (filter_eval.h evaluates it). Everything here works on
// the filter text after it has been upper-cased whole, in Windows-1252.
//
// Failures: ConnectorCode raises Fault 50230 ("Error en filtro: " + the connector text);
// ParseCondition raises Fault 50234 ("Campo " + name + " no existe") for an unknown field.
// Nothing else here raises: a value that is not a number reads as 0, a condition without
// an operator is reported as operator 0.
#pragma once

#include <cstdint>
#include <string>
#include <string_view>

#include "table/TableState.h"

namespace tqdb::query {

// Operator codes; the numbers are part of the design (the scan and the narrowing step
// switch on them). 0 marks a condition in which no operator was found.
enum FilterOp : int16_t {
  kOpNone = 0,
  kOpGreaterEq = 1,  // ">=" or "=>"
  kOpLessEq = 2,     // "<=" or "=<"
  kOpEqual = 3,      // "="
  kOpGreater = 4,    // ">"
  kOpLess = 5,       // "<"
  kOpLike = 6,       // "LIKE", or "=" whose value holds "*"
  kOpNotEqual = 7,   // "<>" or "><"
  kOpDirectKey = 8,  // a direct key walk; compares as "=" when narrowing
};

inline constexpr int32_t kFilterConnectorError = 50230;
inline constexpr int32_t kFilterGroupError = 50232;

// Raises Fault Number with the description "Error en filtro: " + Text (Text is
// Windows-1252; the description is UTF-8 as every description).
[[noreturn]] void RaiseFilterError(int32_t Number, std::string_view Text);

// A condition split into its three texts, before the field is looked up.
struct ConditionText {
  std::string Name;  // trimmed text before the operator
  FilterOp Op = kOpNone;
  std::string Value;  // trimmed text after the operator, quotes removed (StripQuotes)
};

// Finds the operator by these tests in order, the first that succeeds deciding (each looks
// for its text anywhere in the condition): "LIKE"; ">=" or "=>"; "<=" or "=<"; "=" (LIKE
// when the value holds "*"); "<>" or "><"; ">"; "<". Op is kOpNone when none is found.
ConditionText SplitCondition(std::string_view Condition);

// Removes one leading "'" and one trailing "'", then trims. A quote inside stays.
std::string StripQuotes(std::string_view Value);

// The literal head of a LIKE pattern: trimmed, every trailing "*" removed, then trailing
// "?" one at a time, then every leading "*".
std::string PatternKeyPrefix(std::string_view Pattern);

// The characters of a pattern before its first wildcard ("*" or "?"): the part every
// matching text begins with, and so the only safe text to position a key walk with.
std::string_view PatternLiteralHead(std::string_view Pattern);

// A number typed in a filter. Trimmed; "" gives 0. When the first character is one of
// "+,-./0123456789": a text with "." and no "," is read with "." as the decimal point
// whatever the locale ("1.5" is always one and a half); any other is read by the user's
// locale ("1,5" follows it). A text that does not convert, or that begins with any other
// character, gives 0.
double ParseNumberText(std::string_view Text);

// 1 for a connector ending in "AND", 0 for one ending in "OR" (so "XOR" is an OR: only
// the last letters are looked at), after trimming. Anything else raises Fault 50230 with
// the text.
int ConnectorCode(std::string_view Text);

// True when a "(" occurs at or after the third character, a ")" occurs anywhere, and the
// trimmed text before that "(" ends in "AND" or in "OR". A text that begins with "(" and
// has no second "(" is therefore flat.
bool IsGroupedFilter(std::string_view Expr);

// Field types compared as numbers in filters: 1, 2, 3, 4, 6, 7 and 80..85.
bool IsNumericFilterType(int16_t Type);

// One parsed condition.
struct FilterCondition {
  int16_t Field = 0;  // 1..NumFields
  FilterOp Op = kOpNone;
  bool Numeric = false;  // the field is compared as a number
  double Number = 0;     // the value as a number (numeric fields, not LIKE)
  std::string Text;      // the value as text; for LIKE the pattern
};

// Parses one condition of the upper-cased filter. The field is looked up by name as the
// field access does (Fault 50234 when unknown, also for a name that does not stand for one
// field). An "=" on a field of type 0 without a key and with a value shorter than 5
// characters becomes operator 8. Op is kOpNone (and nothing is looked up) when the text
// holds no operator.
FilterCondition ParseCondition(const TableState& State, std::string_view Condition);

}  // namespace tqdb::query

// Testing one record's field against one parsed condition.
//
// The field's type decides the comparison: 1 (16-bit integer), 4 (32-bit integer), 2 and
// 6 (single precision: the value is taken as a single too) and 3, 7, 80..85 (double
// precision, absolute value while AbsMode is on) compare as numbers; every other type
// compares its text, without the blank padding of the fixed-width field, with the value
// by character (binary order). LIKE matches the field's text against the pattern (for a
// numeric field, the number's plain decimal text). Operator 8 compares as "=" (3); a
// condition without an operator matches nothing.
#pragma once

#include <cstdint>
#include <string_view>

#include "query/filter_parser.h"
#include "table/TableState.h"

namespace tqdb::query {

// Whether a field's stored bytes (as many as the field is wide; fewer read as if padded
// with zero bytes) satisfy Condition. With UpperForLike the text is upper-cased before a
// LIKE match (the rule inside a key walk). REQUIRES: Condition.Field is 1..NumFields.
bool FieldBytesMatch(const TableState& State, const FilterCondition& Condition,
                     std::string_view FieldBytes, bool UpperForLike = false);

// Reads the condition's field of Record from the data file and tests it. Record 0 or
// below (an entry deleted from a view) matches nothing and is not read. Raises the field
// reader's faults.
bool RecordMatches(const TableState& State, int32_t Record, const FilterCondition& Condition,
                   bool UpperForLike = false);

}  // namespace tqdb::query

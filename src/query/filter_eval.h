// Evaluation of a filter expression into a collection of record numbers.
//
// The collection is ordered and may hold a record more than once: a condition applied in
// union mode (the first one, or one after OR) appends its matches; one applied after AND
// keeps only the members that satisfy it. Connectors apply strictly from left to right,
// with no precedence: "A = 1 OR B = 2 AND C = 3" is (A OR B) AND C, and a record that
// satisfies both sides of an OR is listed twice. One level of parentheses groups
// conditions: each group is evaluated on its own, then OR appends its records and AND
// keeps the members of the collection so far that the group also holds.
//
// All texts are the upper-cased filter in Windows-1252. REQUIRES: an open table.
// Failures: Fault 50230 for a connector between groups that is neither AND nor OR (or a
// direct key condition naming no key), Fault 50232 for a "(" without a ")" after it,
// Fault 50234 for an unknown field, and the reader's and the engine channel's faults.
// A condition without an operator selects nothing. Nothing but the collection, the
// engine's cursor and the status are changed.
#pragma once

#include <cstdint>
#include <string>
#include <string_view>
#include <vector>

#include "table/TableState.h"

namespace tqdb::query {

using RecordList = std::vector<int32_t>;

// Conditions joined by " AND " and " OR ". Mode 0 applies the first condition as a union,
// mode 1 as an intersection.
void EvalFlatFilter(TableState& State, std::string_view Expr, RecordList& Records, int Mode);

// An expression with parenthesised groups (IsGroupedFilter says which).
void EvalGroupedFilter(TableState& State, std::string_view Expr, RecordList& Records);

// Appends every record that satisfies one condition: by walking its field's key when the
// field has one that can answer it (never for "<>"), else by one pass over the data file
// in record order that skips deleted records. A condition beginning with "\" is the direct
// key form. When Rest is given, the condition is "=" or LIKE walked on a key and *Rest
// holds no " OR ", the conditions of *Rest (split at " AND ") are checked on each walked
// record as well and *Rest is emptied. Raises Progress above 2000 records.
void ScanCondition(TableState& State, std::string_view Condition, RecordList& Records,
                   std::string* Rest = nullptr);

// The members of Records, in order, that satisfy one condition (read from each record).
// Raises Progress above 2000 entries.
RecordList NarrowByCondition(TableState& State, std::string_view Condition,
                             const RecordList& Records);

}  // namespace tqdb::query

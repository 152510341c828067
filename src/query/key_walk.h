// Key walks: answering one filter condition on a keyed field from the key file, through
// the engine's positioning commands (G to position, N and P to step), so that records the
// key excludes are never read.
//
// A walk compares the field's own part of each entry's key text: the first segment of
// the key, which covers the whole field, with its trailing blanks removed. Key texts hold
// the field upper-cased, as the filter is, and are ordered by character; so a range on a
// keyed field decides on the upper-cased text, while "=" and LIKE read the walked records.
//
// REQUIRES: an open table whose key file is the engine's. Raises the channel's Fault
// 55000 for a failed engine command and Fault 9 for a cursor the engine left outside its
// buffers.
#pragma once

#include <cstdint>
#include <span>
#include <string_view>
#include <vector>

#include "query/filter_parser.h"
#include "query/progress_counter.h"
#include "table/TableState.h"

namespace tqdb::query {

// The key that answers conditions on Field: the first key (FieldKeyNo first) whose first
// segment is the whole field (from its first character, at least as long as the field).
// Only text and date fields qualify: a key over a binary number orders its stored bytes,
// not its value, and image and external-text fields hold positions. 0 when there is none
// or no key file is open; the condition then takes a pass over the data file.
int16_t WalkableKey(const TableState& State, int16_t Field);

// ">=" and ">": from the value forward to the last entry; "<=" and "<": from the last entry
// equal to the value back to the first entry. Adds each record whose key passes, in the
// order walked. Reads no record.
void WalkRange(TableState& State, int16_t Key, const FilterCondition& Condition,
               std::vector<int32_t>& Records, ProgressCounter& Progress);

// "=" and LIKE: walks the entries whose key begins with the value (for LIKE the pattern's
// literal head; the whole key when the pattern begins with a wildcard) and adds each
// record that satisfies every condition of List, in list order, checked on the record
// with LIKE matching the upper-cased field text. List[0] is the walked condition itself;
// entries whose key already rules it out are not read.
void WalkEqual(TableState& State, int16_t Key, std::span<const FilterCondition> List,
               std::vector<int32_t>& Records, ProgressCounter& Progress);

// "=" on a binary number whose field a key begins with: walks the entries that hold the
// value's stored bytes and adds the records whose field equals the value, in record
// order, which is exactly what a pass over the data file adds. False, with nothing done,
// when the key cannot stand for the value: no such key, or no single stored form that
// equals it (0 and -0 in floating point, a double under ABS, a value the type cannot
// hold); the condition then takes the pass.
bool WalkStoredNumber(TableState& State, const FilterCondition& Condition,
                      std::vector<int32_t>& Records, ProgressCounter& Progress);

// The direct form: "\" + a two-digit key number + a value. Adds every record whose key
// text begins with the value, in key order. Raises Fault 50230 ("Error en filtro: " +
// Text) for a key number that is not one of the table's keys.
void WalkDirect(TableState& State, std::string_view Text, std::vector<int32_t>& Records,
                ProgressCounter& Progress);

}  // namespace tqdb::query

// Numeric accumulation straight on the data file, without the edit buffer: the total of a
// field over the filtered view, and additions to one field of the current record under a
// byte-range lock, so that concurrent additions from several processes are not lost.
//
// Reading and writing go by the field's type: 1 as a 16-bit integer, 2 and 6 as a single,
// 3, 7 and 80..85 as a double; every other type, the 32-bit integer type 4 included, goes
// through its text (the leading number in it, "." as the decimal point) and an addition
// is written back as the number's text. That text path for type 4 is deliberate and kept.
//
// None of these looks at or changes an open edit. REQUIRES: an open table.
#pragma once

#include <cstdint>

#include "table/TableState.h"
#include "table/Variant.h"

namespace tqdb::query {

// The total of field NField (a name or number, as Fields takes) over the records of the
// view; 0 without a view, and nothing is read then. An entry 0 of the view counts 0.
// Raises Fault 50234 for an unknown field, Fault 6 when the total overflows.
double Sum(const TableState& State, const Variant& NField);

// Adds AddValue to field FieldN of the current record in place and returns the new value.
// The field's bytes are locked from before the read until after the write; the lock does
// not wait, so a range another table object holds fails at once with Fault 70. On any
// failure (lock, read, write, a new value that does not fit the field: Fault 6) the lock
// is released, the field keeps its old value and the fault names "AddToField" as source.
// An unknown field raises Fault 50234; no current record, Fault 63.
double AddToField(TableState& State, const Variant& FieldN, double AddValue);

// As AddToField for the field FieldById[Field] + Offset (as KField addresses it); faults
// name "AddToKfield" as source.
double AddToKField(TableState& State, int16_t Field, double AddValue, int16_t Offset);

}  // namespace tqdb::query

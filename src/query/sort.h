// Sorting a view: Sort reorders the records of the filtered view by one or several
// fields without touching the data or key files, then moves to the first record.
//
// SortFields: "FIELD" (ascending), "FIELD DESC" (the last four characters, in any case,
// make the whole sort descending), "F1+F2+F3" (the fields' texts joined in that order,
// each with its blank padding, compared as one text), "ABS(FIELD)" (a number field by
// absolute value). A single field of type 1, 2, 3, 4, 6, 7 or 80..85 sorts by number;
// every other field, and every several-field sort, by text in character order. Text is
// the field's stored text, so a date field (yymmdd) sorts in date order.
//
// Without a view in force Sort first makes one of every live record in file order. An
// entry 0 of the view (a record deleted since the view was made) sorts as an empty text or
// zero. The sort is not stable.
//
// The sort's work arrays belong to the whole process: a second sort, from another table
// object in another thread, waits until the first is done.
//
// REQUIRES: an open table. Failures: Fault 50234 for an unknown field name, before
// anything is changed; the record reader's faults.
#pragma once

#include <string_view>

#include "table/TableState.h"

namespace tqdb::query {

// SortFields is Windows-1252.
void Sort(TableState& State, std::string_view SortFields);

}  // namespace tqdb::query

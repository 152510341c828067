// The filtered view: Filter turns a table into a view of the records a condition
// selects, which navigation then walks in the order the filter found them.
//
// Text: "" removes the view (navigation walks the whole file again; the list is kept);
// "CLEAN" compacts the list, dropping the entries of records deleted since it was built
// (the view and its place are kept, the place moved back inside the list when it was
// beyond its new end); "\" + key number + value selects the records whose key begins
// with the value; "ABS(condition)" evaluates the condition with double fields read as
// absolute values; anything else is a filter expression (filter_eval.h), upper-cased
// whole first.
//
// After a filter the view is on (FilterActive), FilterList holds 0 and then the records
// found; the current record is the first of them with status 0, or record 0 with status
// 16 (Bof and Eof) when there is none.
//
// REQUIRES: an open table. Failures: Fault 50230 / 50232 "Error en filtro: " + text for a
// malformed grouped filter, Fault 50234 for an unknown field, and the faults of the record
// reader and the engine channel. A failed filter leaves FilterActive, FilterList and
// FilterPos as they were; AbsMode is always off afterwards.
#pragma once

#include <string_view>

#include "table/TableState.h"

namespace tqdb::query {

// Parameters is Windows-1252.
void Filter(TableState& State, std::string_view Parameters);

}  // namespace tqdb::query

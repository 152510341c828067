// Navigation: moving the current record of a table (EngineResult; 0 = no record).
//
// Two regimes. Without a filter result every move is one command on the engine channel
// in the order of the current key (Index), and the status lands in LastError: 0 on a
// record, 13 before the first, 15 past the last, 16 nowhere. With a filter result in
// force (FilterActive) the moves walk FilterList (elements 1..n; element 0 is not a
// result) at FilterPos and never talk to the engine.
//
// REQUIRES for the key regime: the table is open (its key file is the engine's). A
// status of 105 from the engine raises Fault 55000 (the channel's rule).
#pragma once

#include <cstdint>

#include "table/TableState.h"

namespace tqdb {

// Key regime: "F\<Index>\<DataFileNo>". Status 16 (empty key) leaves no current record;
// any status other than 0 and 16 raises Fault(status, "Error Indexados <status>").
// Filter regime: the first element, or status 16 when the list is empty.
// Both regimes drop a saved position (ResumeFromSaved): it belonged to the walk it
// interrupted.
void MoveFirst(TableState& State);
// As MoveFirst with "L\<Index>\<DataFileNo>" and the last element; raises nothing.
void MoveLast(TableState& State);
// Key regime: "N\<DataFileNo>", or "A\<PositionText>" once when ResumeFromSaved is set.
// Filter regime: the next element (LastError untouched), or status 15 at the end.
void MoveNext(TableState& State);
// Key regime: "P\<DataFileNo>", or "E\<PositionText>" once when ResumeFromSaved is set.
// Filter regime: the previous element; a step back from element 1 lands on element 0
// (no record) and only a further step sets status 13.
void MovePrevious(TableState& State);

// The current record number (with a filter, the element at FilterPos).
int32_t BookMark(const TableState& State);
// Without a filter: Record becomes the current record, unchecked. With a filter: the
// first element equal to Record becomes the place; the place is kept when none is.
void SetBookMark(TableState& State, int32_t Record);

// FilterPos with a filter, else the current record number.
int32_t Position(const TableState& State);
// With a filter: Place becomes FilterPos (a place beyond the list leaves FilterPos and no
// current record; a negative place raises Fault 9). Without a filter: nothing changes.
void SetPosition(TableState& State, int32_t Place);

// The number of record places in the data file (deleted records included): its length
// over RecordLength, rounded halves to even; 0 when RecordLength is 0 or the data file
// is not open. With a filter, the number of elements of FilterList.
int32_t RecordCount(const TableState& State);

}  // namespace tqdb

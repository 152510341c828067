// Sequential reading of a table's data file, whole records at a time.
//
// REQUIRES: an open table (DataFileNo open, dictionary loaded). Raises the file layer's
// faults for a failed read.
#pragma once

#include <cstdint>
#include <functional>
#include <string_view>

#include "query/progress_counter.h"
#include "table/TableState.h"

namespace tqdb::query {

// The number of whole records in the data file (its length over RecordLength, rounded
// down; deleted records count, since they keep their places). 0 when RecordLength is 0.
int64_t DataRecordCount(const TableState& State);

// Calls Visit(record number, the record's RecordLength bytes) for every record of the
// data file that is not marked deleted, in file order, reading the file in chunks of
// whole records. Progress, when given, counts every record, deleted ones included.
void ForEachLiveRecord(const TableState& State,
                       const std::function<void(int32_t, std::string_view)>& Visit,
                       ProgressCounter* Progress = nullptr);

}  // namespace tqdb::query

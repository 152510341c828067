// Bulk load: a table held alone keeps its key file in memory while records are added and
// writes it once at the end.
//
// Begin takes the table alone (the presence lock made exclusive, as ReIndex does), writes
// the bulk-load mark (directory + name + suffix + ".tqb") and turns on the engine's memory
// image of the key file: from then on key pages are read and written in memory, the
// header too, and neither the key-file lock nor the lock of a new record is taken (nobody
// else can have the table open). New records are gathered and written to the data file
// 16 KiB at a time (platform::BeginWriteBehind); any read of the file writes them first,
// so reads see them at once. End writes the rest of the records, then the image into the
// key file, syncs it, deletes the mark and shares the table again.
//
// Crash rule: while the mark exists the key file on disk cannot be trusted. The next open
// (and ReIndex, Rebuild) builds the key file again from the data file and deletes the
// mark, so every record whose bytes reached the data file is in the table and indexed.
#pragma once

#include <string>

#include "table/TableState.h"

namespace tqdb {

// The bulk-load mark of the table State names (directory + name + suffix + ".tqb").
std::string BulkLoadMarkPath(const TableState& State);

// REQUIRES: an open table with its key file (Fault 52 otherwise), no edit in progress and
// no bulk load already running (Fault 5). Fault 70 when another table object has the
// table open; then nothing is changed.
void BeginBulkLoad(TableState& State);

// Ends the bulk load; nothing happens without one. The gathered records and the key file
// are written, the key file synced, then the mark deleted. When a write fails (a record
// write that failed earlier counts too) the fault passes on, the mark stays (the next
// open repairs the key file), the key file is closed (the table must be opened again) and
// the bulk load is over all the same.
void EndBulkLoad(TableState& State);

// EndBulkLoad for the way out of a scope or a destructor: a failure is dropped.
void EndBulkLoadQuietly(TableState& State) noexcept;

// Deletes the mark after the key file has been built again from the data file.
void ClearBulkLoadMark(const TableState& State);

}  // namespace tqdb

// Rebuild: compacting and repairing a table in place.
//
// The live records of the data file are copied, in file order and renumbered from 1
// without gaps, into a new data file; deleted records and records whose first field is
// damaged (record_check.h) are dropped. The key file is built anew from the records kept
// by sorting each key's texts and loading its tree bottom-up (bulk_builder.h); the image
// and long-text files are compacted to the values still referred to (compaction.h). The
// old data, image and long-text files go to the audit archive. rebuild_files.h describes
// how the new files replace the old ones so that a crash at any point loses nothing.
#pragma once

#include "table/TableState.h"

namespace tqdb {

// Rebuilds the open table of State and returns the time it took as minutes.seconds,
// rounded to 2 decimals (2 minutes 30 seconds give 2.3). Raises Progress 1 at the start,
// up to about 50 while the records are copied, from 50 to 100 while the keys are loaded,
// and 100 at the end. Afterwards every file of the table is closed: open it again with
// OpenFile before using it. The key file's last record number is the count of records
// kept, so the next new record continues the numbering.
//
// REQUIRES: the table was opened (BaseName set). A rebuild interrupted by a crash is
// finished or cleaned up first.
//
// Failures: Fault 50230 "Base de datos no abierto" when no table was opened; Fault 70
// "No se puede Rebuild si el archivo está en uso por otro usuario" (LastError 70) when
// another table object has the table open, before anything is changed; Fault 75 for a
// table whose suffix is "ZZ" (the rebuild's own) or when an unfinished rebuild of another
// suffix of the same table is pending; the faults of the open routine, the file layer and
// the key builder (Fault 9 when a key holds more entries than its tree can). A failure
// before the commit leaves the table's files as they were (the new ones are discarded);
// the table must then be opened again.
double Rebuild(TableState& State);

// The number of keys a rebuild builds: every key number up to KeyCount, unused ones
// included (their entries are one blank each, see KeyFileKeyLength).
int RebuildKeyCount(const TableState& State);

}  // namespace tqdb

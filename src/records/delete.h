// Deleting records: removing a record's keys through the engine ("D"), releasing its
// images and long texts and writing the deletion mark ("ANULADO" and zero bytes).
//
// The keys are removed before the mark is written, so a marked record never has keys, and
// a refused "D" leaves a live record with its keys, its images and its long texts. The
// whole record is locked from before its keys are removed until after the mark is
// written; the lock is released on every way out.
//
// REQUIRES for every routine: an open table (dictionary loaded, data file and key file
// open). Failures of the engine channel (Fault 55000) and of the field codecs pass to the
// caller.
#pragma once

#include <cstdint>
#include <string>

#include "table/TableState.h"

namespace tqdb {

// The key texts of Record as its bytes stand on disk, for the engine's D command:
// "\" + key 1 + "\" + key 2 ... for keys 1..KeyCount, each at its full length.
std::string GetRecordKeys(const TableState& State, int32_t Record);

// Deletes one record. Nothing happens for a number below 1 or a record deleted already
// (no command is sent). Raises Fault 70 at once when another table holds a lock on the
// record; Fault 50220 "Error indexados anulando registro: " + TableName when the engine
// refuses the keys (the record stays live and whole).
void DeleteRecord(TableState& State, int32_t Record);

// The public Delete:
//   0   nothing;
//   -1  with a filter result, every record of it (last element first), after which the
//       filter result is dropped and there is no current record; without one, nothing;
//   n   without a filter result, the position of the current record is saved first
//       (PositionText, ResumeFromSaved) so that the next MoveNext or MovePrevious goes on
//       from where it stood, and the current record number is kept; with a filter result,
//       the first element equal to n becomes 0 and there is no current record.
void Delete(TableState& State, int32_t BookMark);

// The number of deleted records waiting for reuse ("U"); the current record is kept.
int32_t DeletedRecordCount(TableState& State);

}  // namespace tqdb

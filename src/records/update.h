// Update: writing the open edit buffer (Edit or AddNew) to the data file and keeping the
// keys in step through the engine ("R" per changed key, "I" for a new record).
//
// Every value of the buffer is converted to what its field stores before anything is
// written or sent, so a value that cannot be stored (Fault 6 for a number beyond its
// field's range, Fault 13 for a text that is not a number) leaves the record and the keys
// as they were and the edit open. Numbers put as text: "" is 0; a text holding "." is
// read with the point as decimal separator in any locale; any other text by the user's
// locale. Dates are stored by the length of their text (see DateValueToStored). Key
// segments over binary numeric fields carry the field's stored bytes.
//
// REQUIRES: an open table (dictionary loaded, data file and key file open; the image file
// when the table has image fields).
#pragma once

#include "table/TableState.h"

namespace tqdb {

// EditState 1 (Edit): writes every field whose FieldChanged flag is set into the current
// record, in field order. A key field first has every key it belongs to replaced ("R",
// old text from disk, new text with the new value) and is then written; the position of
// the current record is saved once, before the first key field changes (PositionText,
// ResumeFromSaved), so that the next MoveNext or MovePrevious goes on from where the
// record stood. Other fields are written by type; image and long-text fields replace
// their value outside the record. No byte range is locked: another table may see the
// record changed in part. Raises Fault 50201 when fields were put but there is no current
// record, and Fault 55000 "Error indexados: <status> actualizando registro <command>" when
// the engine refuses a key replacement (the field is not written; fields written before
// stay written).
//
// EditState 2 (AddNew): sends "I\" DataFileNo "\" key 1 "\" key 2 ..., which inserts the
// new record's keys and allocates its number; the number becomes the current record and
// the whole record is written in one positioned write, then its images and long texts.
// When the engine refuses (LastError not 0) raises Fault 50221 "Error indexados: <status>
// insertando registro <command>": nothing reaches the data file and the edit stays open
// (EditState 2), so that a second Update retries.
//
// Ends with EditState 0 (any other mode only sets it to 0), after a failure too: only the
// refused insert (50221) leaves the edit open.
void Update(TableState& State);

}  // namespace tqdb

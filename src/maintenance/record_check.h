// Which records a rebuild keeps: deleted records and records whose first field is damaged
// are dropped, every other record is copied.
#pragma once

#include <string_view>

#include "table/TableState.h"

namespace tqdb {

// True when the record (its RecordLength raw bytes) is deleted: the seven bytes at the
// start of field 1 read "ANULADO".
bool IsDeletedRecord(const TableState& State, std::string_view Record);

// True when field 1 of the record holds what its type allows:
//   - date (5): a valid stored date yymmdd (the first year digit folded to A..J for 20xx),
//     or six blanks, or six zero bytes (a date never written);
//   - binary numbers (1, 2, 3, 4, 6, 7, 80..85), images (62) and long text (74, 75): any
//     bytes;
//   - numeric text (8, 20): blanks and the digits 0..9 only;
//   - any other text: no control character (codes 0..31 and 127); letters beyond ASCII
//     such as "Ñ" are fine.
// A table without fields has nothing to check: true.
bool FirstFieldIsSound(const TableState& State, std::string_view Record);

// True for a stored date yymmdd that names a day of the calendar.
bool IsValidStoredDate(std::string_view Stored);

}  // namespace tqdb

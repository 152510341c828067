// Seeking by key values on the table's current key (Index), and the special seek key that
// names one exact entry of that key.
//
// A seek value is a fixed-length key text (Windows-1252) as long as the current key: the
// plain sum of its segment lengths. The engine orders keys in upper case; the dispatcher
// upper-cases every command, so a value may be given in any case.
//
// REQUIRES for every routine: an open table (dictionary loaded, data file and key file
// open). Failures of the engine channel (Fault 55000) and of the field codecs pass to the
// caller; a seek that finds nothing is not a failure (see SeekKey).
#pragma once

#include <cstdint>
#include <string>

#include "table/TableState.h"
#include "table/Variant.h"

namespace tqdb {

// The key text of key Key for Record as its bytes stand on disk, not upper-cased. Segments
// over binary numeric fields carry the field's stored bytes. Fault 9 for a key outside
// 1..10.
std::string RecordKeyText(const TableState& State, int16_t Key, int32_t Record);

// The special seek key of the current record on the current key:
// Index "\" record "\" DataFileNo "\" key text (numbers in plain decimal), or "" when there
// is no current record (EngineResult not above 0). It is the argument of the engine's A
// and E commands, and the form PositionText keeps.
std::string GetSpecialSeekKeys(const TableState& State);
// The same, also handing back in Bytes the current record as it was read for it (empty
// when there is no current record), for a caller that needs the record too.
std::string GetSpecialSeekKeys(const TableState& State, std::string& Bytes);

// The search value for KeyValues on key Key:
// - an Array: element i fills segment i, padded with blanks or cut to the segment's
//   length before the texts are joined; a Date element takes its stored form; an element
//   on a binary numeric field takes the field's stored bytes of its numeric value (the part
//   the segment covers). Elements beyond the key's segments are ignored.
// - anything else: its text as it stands.
// Either way the result is left-aligned in a blank field of the key's length (padded or
// cut). Fault 9 for a key outside 1..10; Fault 13 or 6 for an array element that cannot be
// the number its binary field holds.
std::string SeekValue(const TableState& State, int16_t Key, const Variant& KeyValues);

// Seeks on the current key with one of the SeekEnum options and returns the record number
// it lands on, which also becomes the current record (EngineResult). Options:
//   1 adseekfirsteq  the first entry equal to the value;
//   2 adSeekLastEQ   the last of the entries equal to the value (compared in upper case);
//                    the engine's cursor stands one entry further on; status 0;
//   4 adSeekAfterEQ  the first entry not below the value;
//   8 adSeekAfter    the entry after the one KeyValues (a special seek key) names;
//  16 adSeekBeforeEQ the value's first equal entry, else the greatest entry below it, else
//                    the last entry;
//  32 adSeekBefore   the entry before the one KeyValues (a special seek key) names.
// A final status other than 0 (12 not found, 13 before the first, 15 after the last, 16
// empty key) stays in LastError, returns 0 and leaves no current record. Any other option
// returns 0 and sends no command. A seek that sends a command drops a saved position
// (ResumeFromSaved).
int32_t SeekKey(TableState& State, const Variant& KeyValues, int32_t SeekOption);

}  // namespace tqdb

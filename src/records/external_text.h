// External (long) text fields, types 74 and 75: the text lives in the table's long-text
// file (".tqy", DataPath + BaseName + TableSuffix + ".tqy"); the record's field holds its
// place.
//
// Field layout: bytes 1-8 are the raw bytes of an IEEE double, the text's 1-based byte
// position in the long-text file; bytes 9-12 a signed 32-bit little-endian length. The
// rest of the field is left as it was. Position 0 / length 0 is "no text". The file holds
// the texts end to end with no headers, so a reader needs nothing but position and length
// (which is what lets a rebuild copy the live texts into a fresh file).
//
// Write rule (Update and Delete):
//   - a non-empty text that is not longer than the old one is rewritten in place at the
//     old position; the old bytes beyond the new length are zeroed;
//   - a longer text is appended at the end of the file, and the old bytes are zeroed;
//   - an empty text releases the old one (its bytes zeroed) and stores 0 / 0.
// Space given up is not reused until a rebuild compacts the file. Texts are stored
// exactly as given (Windows-1252 bytes, no trimming).
//
// The file is opened on a temporary file number for one operation and closed again on
// every path. Writers lock the whole file while they work (Fault 70 at once when another
// table holds it). Every routine REQUIRES an open table (data file open, dictionary
// loaded) and Field a field of the table (Fault 9 otherwise); a field narrower than 12
// bytes cannot hold a place and raises Fault 5. A place read from a record is checked
// against the file: one that does not lie inside it reads as empty and is never written
// over.
#pragma once

#include <cstdint>
#include <string>
#include <string_view>

#include "table/TableState.h"

namespace tqdb {

// Bytes of a field taken by the place of its text.
inline constexpr int kExternalTextPlaceSize = 12;
// Longest text kept in the long-text file.
inline constexpr int32_t kMaxExternalText = 1 << 26;

// The long-text file's name: DataPath + BaseName + TableSuffix + ".tqy".
std::string ExternalTextPath(const TableState& State);

// Where a field says its text is, as stored (not yet checked against the file).
struct ExternalTextPlace {
  double Position = 0;
  int32_t Length = 0;
};
ExternalTextPlace GetExternalTextPlace(const TableState& State, int32_t Record, int16_t Field);
// Stores a place in the field's first 12 bytes, keeping the rest of the field.
void SetExternalTextPlace(TableState& State, int32_t Record, int16_t Field,
                          ExternalTextPlace Place);

// The text of Field in Record; empty when the position or the length is below 1, or the
// text does not lie wholly inside the long-text file (Fault 53 when the file is missing
// but the field names a place in it).
std::string GetExternalText(const TableState& State, int32_t Record, int16_t Field);

// Writes Value as a new text, whatever the field held before (for a record being created:
// its bytes may be left over from a deleted record). An empty value stores 0 / 0 without
// opening the file. Fault 6 for a value longer than kMaxExternalText.
void PutExternalText(TableState& State, int32_t Record, int16_t Field, std::string_view Value);

// Replaces the text of Field in Record by the write rule above.
void UpdateExternalText(TableState& State, int32_t Record, int16_t Field, std::string_view Value);

// Releases the text of Field in Record and stores 0 / 0. Opens no file when the field
// names no text.
void DeleteExternalText(TableState& State, int32_t Record, int16_t Field);

}  // namespace tqdb

// The table dictionary (".tqa"): field and key-segment definitions of one table.
//
// The file is single-byte text without line structure; only its first 4000 bytes are
// read. They form 33-character records: record 0 is the header (field count, table
// description), records 1..n describe the fields, records n+1..n+30 may describe key
// segments (those whose first character is "I" or "i"). Numbers are two-character
// decimal fields read by TwoDigits. docs/formats.md has the byte layout.
//
// Arrays follow the table object's convention: an array sized by a count n has elements
// 0..n, element 0 is spare.
#pragma once

#include <array>
#include <cstdint>
#include <string>
#include <string_view>
#include <vector>

#include "table/TableState.h"

namespace tqdb {

inline constexpr int kDictionaryReadSize = 4000;
inline constexpr int kDictionaryRecordSize = 33;
inline constexpr int kMaxFields = 99;
inline constexpr int kKeyRecordSlots = 30;

// A two-character decimal field: d1, d2 = character codes minus 48. d1 >= 0 gives
// 10*d1 + d2 when d2 >= 0, else d1; d1 < 0 gives d2 when d2 >= 1, else 0. "07", " 7" and
// "7 " give 7; two blanks give 0; characters above "9" are not rejected. Missing
// characters (a text shorter than 2) count as code 0. Never negative, never above 2277.
int16_t TwoDigits(std::string_view Text);

// Storage width in bytes of the types that have one of their own (numbers, dates, image
// places); 0 for the types that store their declared length.
int16_t FixedStorageWidth(int16_t Type);

// Storage width in bytes of a field of the given type code and declared length.
int16_t StorageWidth(int16_t Type, int16_t DeclaredLength);

// The parsed dictionary. Per-field arrays have elements 0..NumFields (FieldOffset
// 0..NumFields+1, FieldById 0..99); per-key arrays keys 0..10, segments 0..5.
struct Dictionary {
  int16_t NumFields = 0;
  int32_t RecordLength = 0;
  std::string TableDescripcion;         // trimmed, Windows-1252
  std::vector<std::string> FieldNames;  // trimmed, upper-cased
  std::vector<int16_t> FieldWidth;
  std::vector<int16_t> FieldTypes;
  std::vector<int16_t> FieldLengthDecl;
  std::vector<int16_t> FieldOffset;  // 0-based; FieldOffset[n+1] = RecordLength + 1
  std::vector<int16_t> FieldById;    // field index for each field id 1..99, 0 = none
  std::vector<bool> FieldInKey;
  std::vector<int16_t> FieldKeyNo;

  int16_t KeyCount = 0;
  std::array<int16_t, kMaxKeys + 1> KeySegCount{};
  std::array<int16_t, kMaxKeys + 1> KeyLength{};  // sum of (length - start + 1)
  std::array<std::array<int16_t, kMaxSegments + 1>, kMaxKeys + 1> KeySegField{};
  std::array<std::array<int16_t, kMaxSegments + 1>, kMaxKeys + 1> KeySegStart{};
  std::array<std::array<int16_t, kMaxSegments + 1>, kMaxKeys + 1> KeySegLength{};

  // The length of key k's text: the plain sum of its segment lengths (0 for an undefined
  // key). REQUIRES: 1 <= k <= 10.
  int32_t KeyTextLength(int k) const;
  bool HasImageField() const;
};

// Parses the first 4000 bytes of a dictionary file (a shorter text reads as if padded
// with zero bytes; bytes beyond 4000 are ignored). Pure; never reads past its input.
//
// Raises Fault 9 (subscript) when the dictionary cannot describe a table: a field count
// above 99; a field id outside 1..99; a key record whose key number character is outside
// "1".."10" (":"); a sixth segment for one key; a segment whose field (by index or by id)
// is not one of the fields 1..n; a segment with start or length 0, or one that reads past
// the end of the record; a key whose text would be longer than 255 characters. Raises
// Fault 6 (overflow) when the record would be longer than 32766 bytes. The description
// names what is wrong.
Dictionary ParseDictionary(std::string_view Bytes);

// Copies a parsed dictionary into the table's member arrays and sizes the per-field
// buffers (FieldBuffer blank-filled to each width, FieldValues and FieldChanged empty).
void ApplyDictionary(TableState& State, const Dictionary& Dict);

// The dictionary half of the open routine. Ensures DictionaryDir (from the "Directory"
// setting when empty, with a trailing separator) and the three extensions, sets
// TableName, reads DictionaryDir + TableName + ".tqa" and fills the member arrays. Takes
// a data file number when the table has none yet (DataFileOpen false) and leaves that
// number closed.
//
// A missing or empty dictionary shows "La tabla para la base de datos no existe:" with
// the path (critical icon) and raises Fault 50999; opening a missing dictionary creates it
// empty, and the empty file is left behind. A damaged dictionary raises the Fault of
// ParseDictionary and leaves the member arrays unchanged.
void LoadDictionary(TableState& State, std::string_view TableName);

// KeyCount + "/" + the largest plain sum of segment lengths over keys 1..KeyCount, both in
// plain decimal ("0/0" for a table without keys). Used to build the C command.
std::string KeyShape(const TableState& State);
std::string KeyShape(const Dictionary& Dict);

}  // namespace tqdb

// Key texts: the fixed-length strings the index engine orders a table by.
//
// A key's text is the concatenation, over its segments in order, of KeySegLength bytes of
// the record taken from character KeySegStart of the segment's field. Over a binary field
// (an integer, single or double) those are the field's stored bytes. Texts are
// Windows-1252.
#pragma once

#include <cstdint>
#include <string>
#include <string_view>
#include <vector>

#include "table/TableState.h"
#include "table/Variant.h"
#include "table/dictionary.h"

namespace tqdb {

// The key text of a list of key values, for comparison with stored key text: each value's
// own text (converted to Windows-1252), except that a Date value is converted to its
// stored form (its dd/mm/yyyy text through DateToLongText). The texts are joined without
// separator.
std::string KeyTextFromValues(const std::vector<Variant>& Values);

// The text of key Key (1..KeyCount) of a record given as its RecordLength raw bytes,
// upper-cased when Upper is set. Segment bytes that lie beyond Record read as blanks. A
// key number up to KeyCount that the dictionary leaves unused (key numbers may have gaps)
// has one blank; a key beyond KeyCount has none. Raises Fault 9 for a key outside 1..10 or a
// segment on a field outside the table.
std::string KeyTextFromRecord(const TableState& State, int16_t Key, std::string_view Record,
                              bool Upper);
std::string KeyTextFromRecord(const Dictionary& Dict, int16_t Key, std::string_view Record,
                              bool Upper);
// The same, not upper-cased, into Text (whose room is reused: for passes over many records).
void KeyTextFromRecordInto(const TableState& State, int16_t Key, std::string_view Record,
                           std::string& Text);
void KeyTextFromRecordInto(const Dictionary& Dict, int16_t Key, std::string_view Record,
                           std::string& Text);

// The length of key Key in the key file: the plain sum of its segment lengths, or 1 for
// a key number the dictionary leaves unused, so that every key of the file is a sound key
// (its entries are all one blank, in record order).
int KeyFileKeyLength(const TableState& State, int16_t Key);
int KeyFileKeyLength(const Dictionary& Dict, int16_t Key);

}  // namespace tqdb

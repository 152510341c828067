// Turns a schema into the bytes of a table dictionary (".tqa", docs/formats.md).
//
// Layout written: record 0 holds the field count in characters 1-2 and the description in
// 9-31; one record per field (declared length in 5-6, type in 7-8, name in 9-31, id in
// 32-33); one record per key segment ("I", key character, field index, start, length; the
// field's name in 9-31 for the reader's benefit, its id in 32-33); then blank records for
// the unused key slots. Every record is 33 characters of Windows-1252 text.
#pragma once

#include <string>

#include "schema.h"

namespace tqdb::tool {

// The dictionary bytes for Table. Refuses (ToolError, saying what and why) what a
// dictionary cannot hold: more than 99 fields; a name or description over 23 characters;
// more than 10 keys, 5 segments in one key or 30 segment records; a key text over 255
// characters; a length beyond what two characters can encode; a record over 32766 bytes;
// more records than the 4000 bytes that are read. The result is parsed back as a table
// would be opened, so that whatever it accepts opens.
std::string DictionaryBytes(const Schema& Table);

}  // namespace tqdb::tool

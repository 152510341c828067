// Compaction of a table's image and long-text files during a rebuild: the values still
// referred to by the records kept are copied, in record order, into a fresh work file,
// and the records are pointed at their new places. Space given up by released images and
// replaced texts is left behind.
//
// Both passes work on a table state whose data file is the rebuild's new data file (its
// records numbered 1..Records) and whose suffix is the table's own, so that the old image
// and long-text files are read. The work file is created empty, written, synced and
// closed; renaming it is the caller's business.
#pragma once

#include <cstdint>
#include <string>
#include <vector>

#include "table/TableState.h"

namespace tqdb {

// The fields of type 62 (images), and those of types 74 and 75 (long text) that are wide
// enough to hold a place in the long-text file.
std::vector<int16_t> ImageFields(const TableState& State);
std::vector<int16_t> LongTextFields(const TableState& State);

// For every record and every image field: reads the image from the file open under
// Work.ImageFileNo and writes it into the work file as a new entry (owner the new record
// number, 100 blanks of room, as a new image gets), or stores 0 when there is none.
void CompactImages(TableState& Work, int32_t Records, const std::string& WorkPath);

// For every record and every long-text field: reads the text from the old long-text file
// (none when that file is missing) and appends it to the work file, storing the new
// position and length, or 0 / 0 for an empty text.
void CompactLongTexts(TableState& Work, int32_t Records, const std::string& WorkPath);

}  // namespace tqdb

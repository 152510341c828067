// Image fields (type 62): values kept outside the fixed-length record, in the table's
// image file (".tqw", open under ImageFileNo while the table is open).
//
// The record's field holds a signed 32-bit little-endian position: the 1-based byte
// position of the image's entry in the image file, or 0 for no image. An entry is
//   capacity (int32, data bytes after the header) | owner (int32, record number) |
//   status (1 byte: 255 live, 0 released) | data (capacity bytes: value + blank slack).
// Entries are appended at the end of the file and never moved; a released entry keeps its
// place with header and data zeroed, and its space is not reused until a rebuild
// compacts the file. docs/formats.md has the layout.
//
// Values are Windows-1252 byte strings (an image's bytes, one byte per character).
//
// Every routine REQUIRES an open table: the data file open, the dictionary loaded,
// ImageFileNo open (Fault 52 when it is not, once the image file has to be touched), and
// Field a field of the table (Fault 9 otherwise, from the field codecs). Positions and
// capacities read from the image file are checked against its length before use: a
// damaged entry reads as empty and is never rewritten in place.
#pragma once

#include <cstdint>
#include <string>
#include <string_view>

#include "table/TableState.h"

namespace tqdb {

// Largest capacity an entry may have; a larger one read from the file is damage.
inline constexpr int32_t kMaxImageBytes = 1 << 26;
// Blanks appended to a new image as room for later growth.
inline constexpr int32_t kImageSlack = 100;
// Bytes of an entry's header (capacity, owner, status).
inline constexpr int32_t kImageHeaderSize = 9;

// Appends a new entry for Value (trimmed of blanks at both ends) and stores its position
// in Field of Record. Unless Exact is set the entry gets kImageSlack blanks of room. An
// empty value stores 0 and touches no image file. The whole image file is locked while
// the entry is appended (Fault 70 at once when another table holds the lock); the lock
// is released on every path. Raises Fault 6 when the value (with its slack) would exceed
// kMaxImageBytes or the file would outgrow 32-bit positions.
void PutImage(TableState& State, int32_t Record, int16_t Field, std::string_view Value,
              bool Exact = false);

// Replaces the image of Field in Record: rewritten in place (blank-padded to the old
// capacity) when the trimmed value is not empty and fits the old entry; otherwise the old
// entry is released and, for a non-empty value, a new one appended with PutImage. A field
// with no usable old entry (position 0, beyond the file, or a damaged header) gets a
// fresh entry.
void UpdateImage(TableState& State, int32_t Record, int16_t Field, std::string_view Value);

// Releases the image of Field in Record and stores 0 in the field.
void DeleteImage(TableState& State, int32_t Record, int16_t Field);

// The image's bytes, slack blanks included; empty when the field holds no position, a
// position outside the image file, or an entry whose capacity is below 1, above
// kMaxImageBytes or beyond the end of the file. The status byte is not tested.
std::string GetImage(const TableState& State, int32_t Record, int16_t Field);

}  // namespace tqdb

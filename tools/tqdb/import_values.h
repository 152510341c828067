// Checks a CSV value against the field it goes into, before it is put into the edit
// buffer: the library stores what it is given without complaint (a long text is cut, a
// date it cannot read becomes blank), so the import refuses such values instead, naming
// the problem.
#pragma once

#include <optional>
#include <string>

#include "table/TQFile.h"
#include "table/Variant.h"

namespace tqdb::tool {

struct FieldShape {
  std::string Name;    // UTF-8
  int Type = 0;        // type code
  int Width = 0;       // storage width in the record
  bool First = false;  // the record's first field (its first bytes mark deleted records)
};

// The shape of field Field (1..FieldCount) of the open table Object.
FieldShape ShapeOf(TQFile& Object, int16_t Field);

// The value to put for Text (UTF-8, as read from the CSV), or, in Problem, why it cannot
// be stored. Empty text gives an Empty value (the field stays empty, or 0). Numbers take a
// "." as decimal point; integers must be whole and in range. Dates are dd/mm/yyyy (years
// 1900 to 2099) or dd/mm/yy, and go to the library as dd/mm/yyyy. Texts must fit the
// field and hold only characters the table's code page (Windows-1252) has, no control
// characters.
std::optional<Variant> ImportValue(const FieldShape& Field, const std::string& Text,
                                   std::string& Problem);

}  // namespace tqdb::tool

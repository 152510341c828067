// Conversions of edit-buffer values (Variants, as the caller put them) to what a field
// stores. Update converts every value of a record with these before it writes anything,
// so that a value that cannot be stored leaves the record as it was.
//
// Texts are Windows-1252.
#pragma once

#include <cstdint>
#include <string>
#include <string_view>

#include "table/TableState.h"
#include "table/Variant.h"

namespace tqdb {

// A date from the edit buffer in its stored form, by the length of its text: 6 the text
// as it stands (stored already); 8 (dd/mm/yy) DateToText; 10 (dd/mm/yyyy) DateToLongText;
// any other length six blanks.
std::string DateValueToStored(std::string_view Text);

// The numeric value of a buffer value for a numeric field of type Type. Empty (or an
// empty text) is 0; for a double type (3, 7, 80-85) a text holding "." is read with the
// point as decimal separator whatever the locale (leading-number rule); any other text,
// and every text for the whole-number and single types, by the user's locale (Fault 13
// when it is not a number: "1.500" is 1500 where "." groups thousands); a number as it
// is; a Boolean -1 or 0; a Date its serial day number. Fault 13 for an Array.
double NumberFromBuffer(const Variant& Value, int16_t Type);

// A buffer value's text, Windows-1252 (a Date as dd/mm/yyyy, a number in plain decimal).
std::string TextFromBuffer(const Variant& Value);

// Field types whose value lives outside the record.
bool IsImageType(int16_t Type);         // 62
bool IsExternalTextType(int16_t Type);  // 74, 75

// The bytes field Field stores for Value, exactly FieldWidth[Field] long:
// binary numeric types the little-endian number (rounded halves to even for integers;
// Fault 6 when it does not fit); dates DateValueToStored, blank-padded or cut; image and
// external-text fields zero bytes (their value is written separately); any other type
// the text, blank-padded or cut. Fault 9 for a field outside 1..NumFields.
std::string StoredFieldBytes(const TableState& State, int16_t Field, const Variant& Value);

}  // namespace tqdb

// Field access and the edit buffer: the current record's face towards the caller.
//
// Fields are read from the current record (EngineResult; 0 = none) by their type code,
// or, while an edit is open (EditState 1 Edit, 2 AddNew), from the edit buffer
// FieldValues whatever the disk holds. Puts go into the edit buffer only; Update writes
// it out. Values cross here as Variants: text handed out is converted from the files'
// Windows-1252 to UTF-8, and values put are kept exactly as given (UTF-8 Variants).
//
// Field numbers count from 1; element 0 of every per-field array is spare. Failures are
// platform::Faults: 50234 for a field that does not exist, 50200/50201/50202 for puts
// outside an edit or out of range, 9 for a number outside the arrays, and the field
// codecs' faults for a failed read. Nothing is changed when a routine raises.
#pragma once

#include <cstdint>
#include <string>

#include "table/TableState.h"
#include "table/Variant.h"

namespace tqdb {

// Field numbers FieldNumber gives for "*" and "*+".
inline constexpr int16_t kAllFields = 0;
inline constexpr int16_t kAllFieldsPlus = -1;

// Turns FieldN into a field number: "*" gives 0, "*+" gives -1; a number (or numeric
// text) in 1..NumFields gives itself as a 16-bit integer; any other text is upper-cased
// and matched against FieldNames. Raises Fault 50234 "Campo <FieldN> no existe" (the
// upper-cased name, or the number as given) when nothing matches.
int16_t FieldNumber(const TableState& State, const Variant& FieldN);

// The value of field Field in Record as stored, by the field's type code: 1 Integer,
// 2/6 Single, 4 Long, 3/7/80..85 Double, 5 a dd/mm/yy String ("" for a date never
// written or blank), 62 the image's bytes, 74/75 the external text, any other code the
// text with its blank padding. Strings are UTF-8. Record 0 (no record, or an entry of a
// filter result whose record was deleted) reads as Empty without touching the file.
// Field numbers 0 and -1 ("*" and "*+") read as Empty. REQUIRES: an open table.
Variant ReadFieldValue(const TableState& State, int32_t Record, int16_t Field);

// Reads field Field of the current record, or the edit buffer while an edit is open (a
// field never put since the edit began reads as Empty). Fault 9 for a field number
// outside the arrays.
Variant GetFieldValue(const TableState& State, int16_t Field);

// Puts Value into the edit buffer for field Field: after Edit it also marks the field as
// changed and raises Fault 50201 when there is no current record; after AddNew it only
// stores the value. Without an open edit raises Fault 50200. Fault 9 for a field number
// outside the buffer.
void PutFieldValue(TableState& State, int16_t Field, const Variant& Value);

// The field counted Offset fields on from the field that bears dictionary id FieldNo
// (FieldById[FieldNo] + Offset; id 0 bears no field, so KField(0, n) is field n). Fault 9
// for an id outside 0..99, Fault 6 when the sum leaves 16 bits.
int16_t KFieldNumber(const TableState& State, int16_t FieldNo, int16_t Offset);
// KField get: empty with no edit open and no current record, whatever the number; else
// GetFieldValue of that field (Fault 9 outside the arrays).
Variant GetKFieldValue(const TableState& State, int16_t FieldNo, int16_t Offset);
// KField put: Fault 50202 "El campo <f> de la clave <FieldNo> está fuera de rango" when
// the field is not one of 1..NumFields; else PutFieldValue.
void PutKFieldValue(TableState& State, int16_t FieldNo, int16_t Offset, const Variant& Value);

// The field's name (UTF-8); "" above NumFields. Fault 9 below 0.
std::string FieldName(const TableState& State, int16_t Number);
// The declared length, FieldLengthDecl[Number]. Fault 9 outside the array.
int32_t FieldLength(const TableState& State, int16_t Number);
// The type code, FieldTypes[Number]. Fault 9 outside the array.
int32_t FieldType(const TableState& State, int16_t Number);
// Replaces the type code for this open table only (the dictionary file is unchanged).
// Fault 9 outside the array, Fault 6 for a code outside 16 bits.
void SetFieldType(TableState& State, int16_t Number, int32_t Type);
// The field number bearing dictionary id Key, FieldById[Key]. Fault 9 outside 0..99.
int16_t GetKeyField(const TableState& State, int16_t Key);

// Opens an edit for a new record: EditState 2, FieldValues 0..NumFields all Empty.
// FieldChanged is left as it was.
void AddNew(TableState& State);
// Opens an edit of the current record: EditState 1, FieldValues all Empty and
// FieldChanged all false. Does not check that there is a current record (the first put
// does).
void Edit(TableState& State);

}  // namespace tqdb

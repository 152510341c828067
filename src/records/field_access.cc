// Field access and the edit buffer; see field_access.h.
#include "records/field_access.h"

#include <limits>
#include <string_view>

#include "platform/codepage.h"
#include "platform/fault.h"
#include "platform/numbers.h"
#include "records/dates.h"
#include "records/external_text.h"
#include "records/images.h"
#include "records/record_codecs.h"

namespace tqdb {
namespace {

using platform::Fault;

constexpr int32_t kFieldNotFound = 50234;
constexpr int32_t kPutWithoutEdit = 50200;
constexpr int32_t kNoRecordToEdit = 50201;
constexpr int32_t kKeyFieldOutOfRange = 50202;

constexpr int32_t kEditModeEdit = 1;
constexpr int32_t kEditModeAddNew = 2;

// Fault 9 unless Index is an element of an array of Size elements.
void CheckIndex(size_t Size, int32_t Index) {
  if (Index < 0 || static_cast<size_t>(Index) >= Size) throw Fault(platform::kSubscript);
}

// Element Index of a per-field array; Fault 9 outside it.
template <typename Vector>
auto& Element(Vector& Array, int32_t Index) {
  CheckIndex(Array.size(), Index);
  return Array[static_cast<size_t>(Index)];
}

[[noreturn]] void FieldNotFound(const std::string& ShownName) {
  throw Fault(kFieldNotFound, "Campo " + ShownName + " no existe");
}

// Whether a text can convert as a number under any locale: the conversion needs a digit,
// or an "&H" / "&O" prefix after the leading blanks. Lets a field name skip the locale.
bool MayBeNumber(std::string_view Text) {
  const size_t First = Text.find_first_not_of(" \t");
  if (First != std::string_view::npos && Text[First] == '&') return true;
  return Text.find_first_of("0123456789") != std::string_view::npos;
}

// The first field whose name equals Name upper-cased, for a Name of plain ASCII (the same
// bytes in UTF-8 and in Windows-1252), compared without building the converted name; 0
// when there is none or Name is not plain ASCII (the general lookup decides then).
int16_t AsciiNameMatch(const TableState& State, std::string_view Name) {
  for (const char C : Name) {
    if (static_cast<unsigned char>(C) >= 0x80) return 0;
  }
  const auto Upper = [](char C) { return C >= 'a' && C <= 'z' ? static_cast<char>(C - 32) : C; };
  for (int16_t Field = 1; Field <= State.NumFields; ++Field) {
    if (static_cast<size_t>(Field) >= State.FieldNames.size()) break;
    const std::string& Known = State.FieldNames[static_cast<size_t>(Field)];
    if (Known.size() != Name.size()) continue;
    size_t I = 0;
    while (I < Name.size() && Upper(Name[I]) == Known[I]) ++I;
    if (I == Name.size()) return Field;
  }
  return 0;
}

// Whether a Variant counts as a number for the field lookup, and its value.
bool NumericValue(const Variant& FieldN, double& Value) {
  switch (FieldN.Type()) {
    case VarType::Empty:
    case VarType::Boolean:
    case VarType::Integer:
    case VarType::Long:
    case VarType::Single:
    case VarType::Double:
      Value = FieldN.ToDouble();
      return true;
    case VarType::String:
      if (!MayBeNumber(FieldN.AsText())) return false;
      return platform::TryLocaleToDouble(platform::Utf8ToCp1252(FieldN.AsText()), Value);
    case VarType::Date:
      return false;
    case VarType::Array:
      break;
  }
  throw Fault(platform::kTypeMismatch);
}

// A stored date as dd/mm/yy; "" for a date never written (zero bytes) or blank.
std::string DateValue(const TableState& State, int32_t Record, int16_t Field) {
  const std::string Stored = GetField(State, Record, Field, false);
  if (platform::Trim(Stored).empty() || Stored[0] == '\0') return "";
  return platform::Cp1252ToUtf8(DateToText(Stored));
}

// Fault 9 unless Field is a field of the table or one of 0 and -1 ("*", "*+").
void CheckReadableField(const TableState& State, int16_t Field) {
  if (Field == kAllFields || Field == kAllFieldsPlus) return;
  if (Field < 1 || Field > State.NumFields) throw Fault(platform::kSubscript);
  CheckIndex(State.FieldTypes.size(), Field);
}

}  // namespace

int16_t FieldNumber(const TableState& State, const Variant& FieldN) {
  if (FieldN.Type() == VarType::String) {
    if (FieldN.AsText() == "*") return kAllFields;
    if (FieldN.AsText() == "*+") return kAllFieldsPlus;
  }
  double Number = 0;
  if (NumericValue(FieldN, Number)) {
    if (!(Number >= 1 && Number <= State.NumFields)) FieldNotFound(FieldN.ToString());
    return platform::ToInt16(Number);
  }
  if (FieldN.Type() == VarType::String) {
    const int16_t Field = AsciiNameMatch(State, FieldN.AsText());
    if (Field != 0) return Field;
  }
  std::string Name = FieldN.Type() == VarType::String ? platform::Utf8ToCp1252(FieldN.AsText())
                                                      : platform::Utf8ToCp1252(FieldN.ToString());
  platform::UpperCaseInPlace(Name);
  for (int16_t Field = 1; Field <= State.NumFields; ++Field) {
    if (static_cast<size_t>(Field) < State.FieldNames.size() && State.FieldNames[Field] == Name) {
      return Field;
    }
  }
  FieldNotFound(platform::Cp1252ToUtf8(Name));
}

Variant ReadFieldValue(const TableState& State, int32_t Record, int16_t Field) {
  if (Record == 0 || Field < 1) return Variant();
  const int16_t Type = Element(State.FieldTypes, Field);
  if (Type == 1) return Variant(GetInteger(State, Record, Field));
  if (Type == 2 || Type == 6) return Variant(GetSingle(State, Record, Field));
  if (Type == 4) return Variant(GetLong(State, Record, Field));
  if (IsDoubleType(Type)) return Variant(GetDouble(State, Record, Field));
  if (Type == 5) return Variant(DateValue(State, Record, Field));
  if (Type == 62) return Variant(platform::Cp1252ToUtf8(GetImage(State, Record, Field)));
  if (Type == 74 || Type == 75) {
    return Variant(platform::Cp1252ToUtf8(GetExternalText(State, Record, Field)));
  }
  return Variant(platform::Cp1252ToUtf8(GetField(State, Record, Field, false)));
}

Variant GetFieldValue(const TableState& State, int16_t Field) {
  CheckReadableField(State, Field);
  if (State.EditState != 0) {
    if (Field < 1) return Variant();
    return Element(State.FieldValues, Field);
  }
  return ReadFieldValue(State, State.EngineResult, Field);
}

void PutFieldValue(TableState& State, int16_t Field, const Variant& Value) {
  if (State.EditState == kEditModeEdit) {
    if (State.EngineResult == 0) {
      throw Fault(kNoRecordToEdit, "No hay un registro activo para editar");
    }
    CheckIndex(State.FieldValues.size(), Field);
    CheckIndex(State.FieldChanged.size(), Field);
    State.FieldValues[static_cast<size_t>(Field)] = Value;
    State.FieldChanged[static_cast<size_t>(Field)] = true;
  } else if (State.EditState == kEditModeAddNew) {
    Element(State.FieldValues, Field) = Value;
  } else {
    throw Fault(kPutWithoutEdit,
                "No se puede poner un valor en un Field sin antes dar un comando de Edit o AddNew");
  }
}

int16_t KFieldNumber(const TableState& State, int16_t FieldNo, int16_t Offset) {
  const int32_t Field = int32_t{Element(State.FieldById, FieldNo)} + Offset;
  if (Field < std::numeric_limits<int16_t>::min() || Field > std::numeric_limits<int16_t>::max()) {
    throw Fault(platform::kOverflow);
  }
  return static_cast<int16_t>(Field);
}

Variant GetKFieldValue(const TableState& State, int16_t FieldNo, int16_t Offset) {
  const int16_t Field = KFieldNumber(State, FieldNo, Offset);
  // With no edit open and no current record nothing is read: any field number is empty.
  if (State.EditState == 0 && State.EngineResult == 0) return Variant();
  if (Field < 0) throw Fault(platform::kSubscript);
  return GetFieldValue(State, Field);
}

void PutKFieldValue(TableState& State, int16_t FieldNo, int16_t Offset, const Variant& Value) {
  const int16_t Field = KFieldNumber(State, FieldNo, Offset);
  if (Field < 1 || Field > State.NumFields) {
    throw Fault(kKeyFieldOutOfRange, "El campo " + std::to_string(Field) + " de la clave " +
                                         std::to_string(FieldNo) + " está fuera de rango");
  }
  PutFieldValue(State, Field, Value);
}

std::string FieldName(const TableState& State, int16_t Number) {
  if (Number > State.NumFields) return "";
  return platform::Cp1252ToUtf8(Element(State.FieldNames, Number));
}

int32_t FieldLength(const TableState& State, int16_t Number) {
  return Element(State.FieldLengthDecl, Number);
}

int32_t FieldType(const TableState& State, int16_t Number) {
  return Element(State.FieldTypes, Number);
}

void SetFieldType(TableState& State, int16_t Number, int32_t Type) {
  int16_t& Slot = Element(State.FieldTypes, Number);
  if (Type < std::numeric_limits<int16_t>::min() || Type > std::numeric_limits<int16_t>::max()) {
    throw Fault(platform::kOverflow);
  }
  Slot = static_cast<int16_t>(Type);
}

int16_t GetKeyField(const TableState& State, int16_t Key) { return Element(State.FieldById, Key); }

void AddNew(TableState& State) {
  State.FieldValues.assign(static_cast<size_t>(State.NumFields) + 1, Variant());
  State.EditState = kEditModeAddNew;
}

void Edit(TableState& State) {
  State.FieldValues.assign(static_cast<size_t>(State.NumFields) + 1, Variant());
  State.FieldChanged.assign(static_cast<size_t>(State.NumFields) + 1, false);
  State.EditState = kEditModeEdit;
}

}  // namespace tqdb

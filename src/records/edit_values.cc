// Conversions of edit-buffer values to stored field bytes.
#include "records/edit_values.h"

#include "platform/codepage.h"
#include "platform/fault.h"
#include "platform/numbers.h"
#include "records/dates.h"
#include "records/record_codecs.h"

namespace tqdb {
namespace {

constexpr int16_t kDateType = 5;

// Left-aligns Text in Width blanks, cut to Width.
std::string Fit(std::string Text, size_t Width) {
  Text.resize(Width, ' ');
  return Text;
}

void CheckField(const TableState& State, int16_t Field) {
  const size_t F = static_cast<size_t>(Field);
  if (Field < 1 || Field > State.NumFields || F >= State.FieldTypes.size() ||
      F >= State.FieldWidth.size()) {
    throw platform::Fault(platform::kSubscript);
  }
}

}  // namespace

std::string DateValueToStored(std::string_view Text) {
  switch (Text.size()) {
    case 6:
      return std::string(Text);
    case 8:
      return DateToText(Text);
    case 10:
      return DateToLongText(Text);
    default:
      return std::string(6, ' ');
  }
}

double NumberFromBuffer(const Variant& Value, int16_t Type) {
  switch (Value.Type()) {
    case VarType::Empty:
      return 0;
    case VarType::String: {
      const std::string Text = platform::Utf8ToCp1252(Value.AsText());
      if (Text.empty()) return 0;
      if (IsDoubleType(Type) && Text.find('.') != std::string::npos) return platform::Val(Text);
      return platform::LocaleToDouble(Text);
    }
    case VarType::Array:
      throw platform::Fault(platform::kTypeMismatch);
    default:
      return Value.ToDouble();
  }
}

std::string TextFromBuffer(const Variant& Value) {
  if (Value.Type() == VarType::Array) throw platform::Fault(platform::kTypeMismatch);
  return platform::Utf8ToCp1252(Value.ToString());
}

bool IsImageType(int16_t Type) { return Type == 62; }
bool IsExternalTextType(int16_t Type) { return Type == 74 || Type == 75; }

std::string StoredFieldBytes(const TableState& State, int16_t Field, const Variant& Value) {
  CheckField(State, Field);
  const int16_t Type = State.FieldTypes[static_cast<size_t>(Field)];
  const size_t Width = static_cast<size_t>(State.FieldWidth[static_cast<size_t>(Field)]);
  if (IsBinaryType(Type)) return Fit(EncodeBinaryField(Type, NumberFromBuffer(Value, Type)), Width);
  if (Type == kDateType) return Fit(DateValueToStored(TextFromBuffer(Value)), Width);
  if (IsImageType(Type) || IsExternalTextType(Type)) return std::string(Width, '\0');
  return Fit(TextFromBuffer(Value), Width);
}

}  // namespace tqdb

#include "import_values.h"

#include <algorithm>
#include <charconv>
#include <cmath>
#include <cstdio>
#include <limits>

#include "field_types.h"
#include "platform/codepage.h"
#include "table/dictionary.h"

namespace tqdb::tool {
namespace {

std::optional<Variant> Refuse(std::string& Problem, std::string What) {
  Problem = std::move(What);
  return std::nullopt;
}

bool ParseNumber(const std::string& Text, double& Out) {
  const char* Begin = Text.data();
  if (!Text.empty() && Text[0] == '+') ++Begin;
  const auto [End, Error] = std::from_chars(Begin, Text.data() + Text.size(), Out);
  return Error == std::errc() && End == Text.data() + Text.size() && std::isfinite(Out);
}

std::optional<Variant> NumberValue(const FieldShape& Field, const std::string& Text,
                                   std::string& Problem) {
  double Value = 0;
  if (!ParseNumber(Text, Value)) {
    return Refuse(Problem, Field.Name + ": '" + Text + "' is not a number");
  }
  const bool Integer = Field.Type == 1 || Field.Type == 4;
  if (Integer && Value != std::floor(Value)) {
    return Refuse(Problem, Field.Name + ": '" + Text + "' is not a whole number");
  }
  const double Limit = Field.Type == 1   ? 32767.0
                       : Field.Type == 4 ? 2147483647.0
                       : (Field.Type == 2 || Field.Type == 6)
                           ? double{std::numeric_limits<float>::max()}
                           : std::numeric_limits<double>::max();
  if (Value > Limit || Value < -Limit - (Integer ? 1 : 0)) {
    return Refuse(Problem,
                  Field.Name + ": " + Text + " does not fit a " + TypeName(Field.Type) + " field");
  }
  return Variant(Value);
}

bool IsLeapYear(int Year) { return (Year % 4 == 0 && Year % 100 != 0) || Year % 400 == 0; }

bool IsDigit(char C) { return C >= '0' && C <= '9'; }

// The usual shapes dd/mm/yy and dd/mm/yyyy, read without sscanf (an import reads one per
// row); false for any other text, which sscanf then reads.
bool ReadPlainDate(const std::string& Text, int& Day, int& Month, int& Year) {
  if ((Text.size() != 8 && Text.size() != 10) || Text[2] != '/' || Text[5] != '/') return false;
  int Value[3] = {0, 0, 0};
  for (size_t I = 0, Part = 0; I < Text.size(); ++I) {
    if (I == 2 || I == 5) {
      ++Part;
    } else if (IsDigit(Text[I])) {
      Value[Part] = Value[Part] * 10 + (Text[I] - '0');
    } else {
      return false;
    }
  }
  Day = Value[0], Month = Value[1], Year = Value[2];
  return true;
}

std::optional<Variant> DateValue(const FieldShape& Field, const std::string& Text,
                                 std::string& Problem) {
  int Day = 0, Month = 0, Year = 0;
  char Tail = 0;
  const bool Read = ReadPlainDate(Text, Day, Month, Year) ||
                    std::sscanf(Text.c_str(), "%2d/%2d/%4d%c", &Day, &Month, &Year, &Tail) == 3;
  const size_t YearDigits = Text.size() - Text.rfind('/') - 1;
  if (!Read || (YearDigits != 2 && YearDigits != 4)) {
    return Refuse(Problem, Field.Name + ": '" + Text + "' is not a date dd/mm/yyyy");
  }
  if (YearDigits == 2) Year += Year < 60 ? 2000 : 1900;  // as the library reads dd/mm/yy
  static const int kDays[] = {31, 28, 31, 30, 31, 30, 31, 31, 30, 31, 30, 31};
  const bool Valid = Month >= 1 && Month <= 12 && Day >= 1 &&
                     Day <= kDays[Month - 1] + (Month == 2 && IsLeapYear(Year) ? 1 : 0);
  if (!Valid || Year < 1900 || Year > 2099) {
    return Refuse(Problem,
                  Field.Name + ": '" + Text + "' is not a date between 01/01/1900 and 31/12/2099");
  }
  std::string Stored = "00/00/0000";
  auto Put = [&Stored](size_t At, int Value, size_t Digits) {
    for (size_t I = Digits; I-- > 0; Value /= 10)
      Stored[At + I] = static_cast<char>('0' + Value % 10);
  };
  Put(0, Day, 2);
  Put(3, Month, 2);
  Put(6, Year, 4);
  return Variant(std::move(Stored));
}

// Printable ASCII is the same text in UTF-8 and in Windows-1252.
bool IsPrintableAscii(const std::string& Text) {
  return std::all_of(Text.begin(), Text.end(), [](char C) { return C >= 0x20 && C < 0x7F; });
}

std::optional<Variant> TextValue(const FieldShape& Field, const std::string& Text,
                                 std::string& Problem) {
  const bool Plain = IsPrintableAscii(Text);
  const std::string Converted = Plain ? std::string() : platform::Utf8ToCp1252(Text);
  const std::string& Stored = Plain ? Text : Converted;
  if (!Plain && platform::Cp1252ToUtf8(Stored) != Text) {
    return Refuse(Problem, Field.Name + ": '" + Text +
                               "' holds characters the table's code page (Windows-1252) lacks");
  }
  for (char C : Stored) {
    const auto Byte = static_cast<unsigned char>(C);
    if (Byte < 0x20 || Byte == 0x7F) {
      return Refuse(Problem, Field.Name + ": control characters cannot be stored");
    }
  }
  const bool External = Field.Type == 62 || Field.Type == 74 || Field.Type == 75;
  if (!External && static_cast<int>(Stored.size()) > Field.Width) {
    return Refuse(Problem, Field.Name + ": '" + Text + "' is longer than the field's " +
                               std::to_string(Field.Width) + " characters");
  }
  if (Field.First && Stored.rfind("ANULADO", 0) == 0) {
    return Refuse(Problem, Field.Name +
                               ": a first field beginning with ANULADO would mark the "
                               "record as deleted");
  }
  return Variant(Text);
}

}  // namespace

FieldShape ShapeOf(TQFile& Object, int16_t Field) {
  const int Type = Object.FieldType(Field);
  const int Width =
      StorageWidth(static_cast<int16_t>(Type), static_cast<int16_t>(Object.FieldLength(Field)));
  return {Object.FieldName(Field), Type, Width, Field == 1};
}

std::optional<Variant> ImportValue(const FieldShape& Field, const std::string& Text,
                                   std::string& Problem) {
  if (Text.empty()) return Variant();
  if (IsNumericType(Field.Type)) return NumberValue(Field, Text, Problem);
  if (IsDateType(Field.Type)) return DateValue(Field, Text, Problem);
  return TextValue(Field, Text, Problem);
}

}  // namespace tqdb::tool

// Fuzz target: the date and number conversions, and the code-page conversions they rest
// on. The first byte of an input chooses the conversion, the rest is its text.
//
// Properties beyond "no crash": a number written by DoubleToText reads back by Val within
// the 15 significant digits it was written with; a valid dd/mm/yy date survives the trip
// to its stored form and back; every Windows-1252 text survives the trip to UTF-8 and
// back; upper-casing is idempotent; text comparison is antisymmetric; integer conversions
// either fit or raise Fault 6 (overflow).
#include <cmath>
#include <cstddef>
#include <cstdint>
#include <string>
#include <string_view>

#include "fuzz_support.h"
#include "platform/codepage.h"
#include "platform/fault.h"
#include "platform/numbers.h"
#include "query/filter_parser.h"
#include "records/dates.h"
#include "table/Variant.h"

namespace {

using namespace tqdb;

bool IsDigit(char C) { return C >= '0' && C <= '9'; }

void Dates(std::string_view Text) {
  const std::string Short = DateToText(Text);
  const std::string Long = DateToLongText(Text);
  DateToText(Short);
  DateToLongText(Long);
  // dd/mm/yy in digits: to the stored form and back.
  if (Text.size() == 8 && Text[2] == '/' && Text[5] == '/' && IsDigit(Text[0]) &&
      IsDigit(Text[1]) && IsDigit(Text[3]) && IsDigit(Text[4]) && IsDigit(Text[6]) &&
      IsDigit(Text[7])) {
    if (Short.size() != 6) fuzz::Finding("dd/mm/yy does not give a stored date");
    if (DateToText(Short) != Text) fuzz::Finding("a date does not come back from its stored form");
  }
}

void Numbers(std::string_view Text) {
  const double Value = platform::Val(Text);
  double Ignored = 0;
  platform::TryLocaleToDouble(Text, platform::LocaleSeparators{',', '.'}, Ignored);
  platform::TryLocaleToDouble(Text, platform::LocaleSeparators{'.', ','}, Ignored);
  query::ParseNumberText(Text);
  for (const auto Convert : {+[](double V) { return double(platform::ToInt16(V)); },
                             +[](double V) { return double(platform::ToInt32(V)); },
                             +[](double V) { return double(platform::ToSingle(V)); }}) {
    try {
      Convert(Value);
    } catch (const platform::Fault& Fault) {
      if (Fault.Number() != platform::kOverflow) fuzz::Finding("a conversion raises other than 6");
    }
  }
  if (!std::isfinite(Value)) return;
  const std::string Written = platform::DoubleToText(Value);
  const double Back = platform::Val(Written);
  if (std::fabs(Back - Value) > 1e-14 * std::fabs(Value) + 1e-300) {
    fuzz::Finding("DoubleToText(" + std::string(Text) + ") = " + Written + " reads back otherwise");
  }
  platform::SingleToText(static_cast<float>(Value));
  platform::StrOf(static_cast<int64_t>(std::fmod(Value, 1e15)));
}

void Texts(std::string_view Text) {
  const std::string Utf8 = platform::Cp1252ToUtf8(Text);
  if (platform::Utf8ToCp1252(Utf8) != Text)
    fuzz::Finding("Windows-1252 text lost on the way to UTF-8");
  platform::Utf8ToCp1252(Text);  // any bytes as UTF-8
  const std::string Upper = platform::UpperCase(Text);
  if (platform::UpperCase(Upper) != Upper) fuzz::Finding("upper-casing is not idempotent");
  const std::string_view A = Text.substr(0, Text.size() / 2), B = Text.substr(Text.size() / 2);
  if (platform::CompareText(A, B) != -platform::CompareText(B, A)) {
    fuzz::Finding("text comparison is not antisymmetric");
  }
  platform::Trim(Text);
}

void Variants(std::string_view Text) {
  const Variant V{std::string(Text)};
  V.ToString();
  try {
    V.ToDouble();
  } catch (const std::exception&) {
  }
}

}  // namespace

extern "C" int LLVMFuzzerTestOneInput(const uint8_t* Data, size_t Size) {
  if (Size == 0) return 0;
  const std::string_view Text(reinterpret_cast<const char*>(Data) + 1, Size - 1);
  switch (Data[0] % 4) {
    case 0:
      Dates(Text);
      break;
    case 1:
      Numbers(Text);
      break;
    case 2:
      Texts(Text);
      break;
    default:
      Variants(Text);
      break;
  }
  return 0;
}

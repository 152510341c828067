// Rounding, range checks and the two text-to-number rules.
//
// Nothing here depends on the process's global locale: text is produced with
// std::to_chars and read by hand, and the user's separators come from a locale object
// made for the purpose.
#include "platform/numbers.h"

#include <langinfo.h>
#include <locale.h>

#include <charconv>
#include <cmath>
#include <cstdlib>
#include <limits>
#include <mutex>

#include "platform/codepage.h"
#include "platform/fault.h"

namespace tqdb::platform {
namespace {

// The largest magnitude that still rounds to a finite single: halfway between FLT_MAX
// and 2^128 (ties go to the even neighbour, 2^128, that is infinity).
constexpr double kSingleLimit = 0x1.ffffffp127;

}  // namespace

double RoundHalfEven(double Value) {
  if (!std::isfinite(Value)) return Value;
  const double Floor = std::floor(Value);
  const double Diff = Value - Floor;  // exact for every finite double
  if (Diff < 0.5) return Floor;
  if (Diff > 0.5) return Floor + 1;
  return std::fmod(Floor, 2.0) == 0 ? Floor : Floor + 1;
}

int16_t ToInt16(double Value) {
  const double R = RoundHalfEven(Value);
  if (std::isnan(R) || R < -32768.0 || R > 32767.0) throw Fault(kOverflow);
  return static_cast<int16_t>(R);
}

int32_t ToInt32(double Value) {
  const double R = RoundHalfEven(Value);
  if (std::isnan(R) || R < -2147483648.0 || R > 2147483647.0) throw Fault(kOverflow);
  return static_cast<int32_t>(R);
}

float ToSingle(double Value) {
  if (std::isnan(Value)) throw Fault(kOverflow);
  if (std::isfinite(Value) && std::fabs(Value) >= kSingleLimit) throw Fault(kOverflow);
  return static_cast<float>(Value);
}

LocaleSeparators UserLocale() {
  const char* Name = nullptr;
  for (const char* Variable : {"LC_ALL", "LC_NUMERIC", "LANG"}) {
    const char* Value = std::getenv(Variable);
    if (Value != nullptr && *Value != '\0') {
      Name = Value;
      break;
    }
  }
  LocaleSeparators Result;
  if (Name == nullptr) return Result;

  // newlocale is not free: remember the last answer for the last name.
  static std::mutex Mutex;
  static std::string LastName;
  static LocaleSeparators LastResult;
  std::lock_guard Lock(Mutex);
  if (!LastName.empty() && LastName == Name) return LastResult;

  if (locale_t Locale = ::newlocale(LC_NUMERIC_MASK, Name, static_cast<locale_t>(0))) {
    const std::string Decimal = Utf8ToCp1252(::nl_langinfo_l(RADIXCHAR, Locale));
    const std::string Thousands = Utf8ToCp1252(::nl_langinfo_l(THOUSEP, Locale));
    ::freelocale(Locale);
    if (Decimal.size() == 1) Result.Decimal = Decimal[0];
    if (Thousands.size() == 1 && Thousands[0] != '?') {
      Result.Thousands = Thousands[0];
    } else if (!Thousands.empty()) {
      Result.Thousands = ' ';  // a wide space of some kind
    } else {
      Result.Thousands = Result.Decimal == ',' ? '.' : ',';
    }
    if (Result.Thousands == Result.Decimal) Result.Thousands = Result.Decimal == ',' ? '.' : ',';
  }
  LastName = Name;
  LastResult = Result;
  return Result;
}

double LocaleToDouble(std::string_view Text) { return LocaleToDouble(Text, UserLocale()); }

double LocaleToDouble(std::string_view Text, const LocaleSeparators& Separators) {
  double Out = 0;
  if (!TryLocaleToDouble(Text, Separators, Out)) {
    throw Fault(std::isinf(Out) ? kOverflow : kTypeMismatch);
  }
  return Out;
}

bool TryLocaleToDouble(std::string_view Text, double& Out) {
  return TryLocaleToDouble(Text, UserLocale(), Out);
}

namespace {

bool IsDigit(char C) { return C >= '0' && C <= '9'; }
bool IsBlank(char C) { return C == ' ' || C == '\t'; }

// A number taken apart: sign, mantissa text (digits with at most one '.') and exponent.
struct Scanned {
  bool Negative = false;
  std::string Mantissa;
  int64_t Exponent = 0;
};

// Value of a digit in Radix, or -1.
int DigitValue(char C, int Radix) {
  int D = -1;
  if (IsDigit(C)) D = C - '0';
  if (C >= 'A' && C <= 'F') D = C - 'A' + 10;
  if (C >= 'a' && C <= 'f') D = C - 'a' + 10;
  return D < Radix ? D : -1;
}

// Reads "&H" or "&O" digits at Text[Pos] (Pos after the prefix letter); advances Pos.
// Up to four hex digits (or octal up to 0xFFFF) make a 16-bit integer, up to eight a
// 32-bit one, as the system's hexadecimal literals do: "&HFFFF" is -1.
double RadixNumber(std::string_view Text, size_t& Pos, int Radix) {
  uint64_t Value = 0;
  while (Pos < Text.size() && DigitValue(Text[Pos], Radix) >= 0) {
    if (Value < (uint64_t{1} << 56)) Value = Value * Radix + DigitValue(Text[Pos], Radix);
    ++Pos;
  }
  if (Value <= 0xFFFF) return static_cast<int16_t>(static_cast<uint16_t>(Value));
  if (Value <= 0xFFFFFFFF) return static_cast<int32_t>(static_cast<uint32_t>(Value));
  return static_cast<double>(Value);
}

// Recognises "&H" / "&O" at Pos; sets Radix and skips the prefix.
bool RadixPrefix(std::string_view Text, size_t& Pos, int& Radix) {
  if (Pos + 1 >= Text.size() || Text[Pos] != '&') return false;
  const char Letter = Text[Pos + 1];
  if (Letter == 'H' || Letter == 'h') {
    Radix = 16;
  } else if (Letter == 'O' || Letter == 'o') {
    Radix = 8;
  } else {
    return false;
  }
  Pos += 2;
  return true;
}

// Reads an exponent ("E" or "D", optional sign, at least one digit) at Pos. Leaves Pos
// unchanged and returns false when there is none.
bool ScanExponent(std::string_view Text, size_t& Pos, int64_t& Exponent) {
  size_t P = Pos;
  if (P >= Text.size() || !(Text[P] == 'E' || Text[P] == 'e' || Text[P] == 'D' || Text[P] == 'd')) {
    return false;
  }
  ++P;
  bool Negative = false;
  if (P < Text.size() && (Text[P] == '+' || Text[P] == '-')) Negative = Text[P++] == '-';
  if (P >= Text.size() || !IsDigit(Text[P])) return false;
  int64_t Value = 0;
  for (; P < Text.size() && IsDigit(Text[P]); ++P) {
    if (Value < 1000000) Value = Value * 10 + (Text[P] - '0');
  }
  Exponent = Negative ? -Value : Value;
  Pos = P;
  return true;
}

// The decimal exponent of the leading digit of a mantissa (for telling overflow from
// underflow when the value does not fit a double).
int64_t Magnitude(const Scanned& S) {
  int64_t Leading = 0;
  bool SeenPoint = false, SeenNonZero = false;
  for (char C : S.Mantissa) {
    if (C == '.') {
      SeenPoint = true;
    } else if (!SeenNonZero && C == '0') {
      if (SeenPoint) --Leading;
    } else {
      SeenNonZero = true;
      if (!SeenPoint) ++Leading;
    }
  }
  return Leading + S.Exponent;
}

// The value of a scanned number; infinity when it is too large for a double.
double ValueOf(const Scanned& S) {
  if (S.Mantissa.empty() || S.Mantissa == ".") return 0;
  const std::string Text = S.Mantissa + "e" + std::to_string(S.Exponent);
  double Value = 0;
  const auto [End, Error] = std::from_chars(Text.data(), Text.data() + Text.size(), Value);
  if (Error == std::errc::result_out_of_range) {
    Value = Magnitude(S) > 0 ? std::numeric_limits<double>::infinity() : 0.0;
  }
  return S.Negative ? -Value : Value;
}

// The common case of Val: an optional sign and 1 to 15 digits, then the end of the text
// or a character that cannot continue a number (such as the separator after a number in
// an engine command). Such an integer is exact in a double, so the value is the one the
// full scan below gives. Returns false for any other text.
bool PlainInteger(std::string_view Text, double& Out) {
  size_t Pos = 0;
  bool Negative = false;
  if (Pos < Text.size() && (Text[Pos] == '+' || Text[Pos] == '-')) Negative = Text[Pos++] == '-';
  const size_t First = Pos;
  int64_t Value = 0;
  while (Pos < Text.size() && Pos - First < 15 && IsDigit(Text[Pos])) {
    Value = Value * 10 + (Text[Pos++] - '0');
  }
  if (Pos == First) return false;
  if (Pos < Text.size()) {
    switch (Text[Pos]) {
      case '0':
      case '1':
      case '2':
      case '3':
      case '4':
      case '5':
      case '6':
      case '7':
      case '8':
      case '9':
      case '.':
      case 'E':
      case 'e':
      case 'D':
      case 'd':
      case ' ':
      case '\t':
      case '\n':
        return false;  // the number may go on: leave it to the full scan
      default:
        break;
    }
  }
  Out = Negative ? -static_cast<double>(Value) : static_cast<double>(Value);
  return true;
}

}  // namespace

double Val(std::string_view Text) {
  double Plain = 0;
  if (PlainInteger(Text, Plain)) return Plain;
  // Blanks, tabs and line feeds are ignored wherever they stand.
  std::string Clean;
  Clean.reserve(Text.size());
  for (char C : Text) {
    if (C != ' ' && C != '\t' && C != '\n') Clean += C;
  }
  size_t Pos = 0;
  int Radix = 10;
  if (RadixPrefix(Clean, Pos, Radix)) return RadixNumber(Clean, Pos, Radix);
  Scanned S;
  if (Pos < Clean.size() && (Clean[Pos] == '+' || Clean[Pos] == '-')) {
    S.Negative = Clean[Pos++] == '-';
  }
  bool SeenPoint = false;
  for (; Pos < Clean.size(); ++Pos) {
    const char C = Clean[Pos];
    if (C == '.' && !SeenPoint) {
      SeenPoint = true;
    } else if (!IsDigit(C)) {
      break;
    }
    S.Mantissa += C;
  }
  if (S.Mantissa.empty() || S.Mantissa == ".") return 0;
  ScanExponent(Clean, Pos, S.Exponent);
  return ValueOf(S);
}

bool TryLocaleToDouble(std::string_view Text, const LocaleSeparators& Separators, double& Out) {
  Out = 0;
  size_t First = 0, End = Text.size();
  while (First < End && IsBlank(Text[First])) ++First;
  while (End > First && IsBlank(Text[End - 1])) --End;
  const std::string_view Body = Text.substr(First, End - First);
  size_t Pos = 0;
  int Radix = 10;
  if (RadixPrefix(Body, Pos, Radix)) {
    const size_t DigitsAt = Pos;
    const double Value = RadixNumber(Body, Pos, Radix);
    if (Pos == DigitsAt || Pos != Body.size()) return false;
    Out = Value;
    return true;
  }
  Scanned S;
  if (Pos < Body.size() && (Body[Pos] == '+' || Body[Pos] == '-')) {
    S.Negative = Body[Pos++] == '-';
  }
  bool AnyDigit = false;
  for (; Pos < Body.size(); ++Pos) {
    const char C = Body[Pos];
    if (IsDigit(C)) {
      S.Mantissa += C;
      AnyDigit = true;
    } else if (!(C == Separators.Thousands && AnyDigit)) {
      break;
    }
  }
  if (Pos < Body.size() && Body[Pos] == Separators.Decimal) {
    S.Mantissa += '.';
    for (++Pos; Pos < Body.size() && IsDigit(Body[Pos]); ++Pos) {
      S.Mantissa += Body[Pos];
      AnyDigit = true;
    }
  }
  if (!AnyDigit) return false;
  ScanExponent(Body, Pos, S.Exponent);
  if (Pos != Body.size()) return false;
  Out = ValueOf(S);
  return std::isfinite(Out);
}

namespace {

// Plain decimal text with Significant digits; exponent form ("1.5E+20", "1E-06") for
// magnitudes of 10^PlainLimit and above and below 10^-5, as the system's CStr writes them.
template <typename Number>
std::string FormatNumber(Number Value, int Significant, int PlainLimit) {
  if (Value == 0) return "0";  // also -0
  if (std::isnan(Value)) return "NaN";
  if (std::isinf(Value)) return Value < 0 ? "-Infinity" : "Infinity";
  char Buffer[64];
  const auto Result = std::to_chars(Buffer, Buffer + sizeof Buffer, Value,
                                    std::chars_format::scientific, Significant - 1);
  const std::string_view Sci(Buffer, static_cast<size_t>(Result.ptr - Buffer));
  const bool Negative = Sci.front() == '-';
  const size_t ExpAt = Sci.find('e');
  std::string Digits;
  for (char C : Sci.substr(Negative ? 1 : 0, ExpAt - (Negative ? 1 : 0))) {
    if (C != '.') Digits += C;
  }
  while (Digits.size() > 1 && Digits.back() == '0') Digits.pop_back();
  int Exponent = 0;
  std::string_view ExpText = Sci.substr(ExpAt + 1);
  if (ExpText.front() == '+') ExpText.remove_prefix(1);
  std::from_chars(ExpText.data(), ExpText.data() + ExpText.size(), Exponent);

  std::string Out = Negative ? "-" : "";
  if (Exponent >= -5 && Exponent < PlainLimit) {
    if (Exponent < 0) {
      Out += "0." + std::string(static_cast<size_t>(-Exponent - 1), '0') + Digits;
    } else {
      const auto IntDigits = static_cast<size_t>(Exponent) + 1;
      if (Digits.size() <= IntDigits) {
        Out += Digits + std::string(IntDigits - Digits.size(), '0');
      } else {
        Out += Digits.substr(0, IntDigits) + "." + Digits.substr(IntDigits);
      }
    }
    return Out;
  }
  Out += Digits.substr(0, 1);
  if (Digits.size() > 1) {
    Out += '.';
    Out.append(Digits, 1);
  }
  const std::string ExpDigits = std::to_string(Exponent < 0 ? -Exponent : Exponent);
  Out += Exponent < 0 ? "E-" : "E+";
  if (ExpDigits.size() < 2) Out += '0';
  return Out + ExpDigits;
}

}  // namespace

std::string DoubleToText(double Value) { return FormatNumber(Value, 15, 15); }

std::string SingleToText(float Value) { return FormatNumber(Value, 7, 7); }

std::string StrOf(int64_t Value) {
  std::string Out = Value < 0 ? std::string() : std::string(" ");
  Out += std::to_string(Value);
  return Out;
}

}  // namespace tqdb::platform

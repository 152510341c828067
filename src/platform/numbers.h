// The system's number rules.
//
// Rounding to an integer rounds halves to the even integer; a value outside the target
// type raises Fault 6 (overflow). Text is read by two rules: the leading-number rule
// (Val: leading blanks skipped, conversion stops at the first character that cannot
// continue a number, '.' is the decimal point, "" gives 0) and the locale rule (CDbl:
// the whole text must be a number in the user's locale, else Fault 13).
#pragma once

#include <cstdint>
#include <string>
#include <string_view>

namespace tqdb::platform {

double RoundHalfEven(double Value);
int16_t ToInt16(double Value);  // rounds halves to even; Fault 6 outside -32768..32767
int32_t ToInt32(double Value);  // rounds halves to even; Fault 6 outside the 32-bit range
float ToSingle(double Value);   // Fault 6 for NaN and when finite but beyond the single range

// The leading-number rule. Accepts sign, digits, one '.', an exponent (E or D), and the
// &H / &O prefixes as Val does; blanks, tabs and line feeds are ignored wherever they
// stand ("1 2" is 12). Never raises; a number too large for a double gives infinity.
double Val(std::string_view Text);

// The decimal and thousands separators of the environment's LC_NUMERIC locale, read
// without changing the process's global locale.
struct LocaleSeparators {
  char Decimal = '.';
  char Thousands = ',';
};
LocaleSeparators UserLocale();

// The locale rule: optional blanks, sign, digits with thousands separators, one decimal
// separator, optional exponent. Raises Fault 13 for anything else (and for "").
// Fault 6 when the number is too large for a double.
double LocaleToDouble(std::string_view Text);
// As LocaleToDouble, but returns false instead of raising.
bool TryLocaleToDouble(std::string_view Text, double& Out);
// The same with given separators instead of the user's locale.
double LocaleToDouble(std::string_view Text, const LocaleSeparators& Separators);
bool TryLocaleToDouble(std::string_view Text, const LocaleSeparators& Separators, double& Out);

// Plain decimal text of a number with '.' (15 significant digits for a double, 7 for a
// single, no exponent for ordinary magnitudes, no trailing zeros: 1.5, -2, 0.25). Below
// 1E-05, and from 1E+15 (1E+07 for a single) up, the exponent form "1E+20", "2.5E-07".
// Text written is locale-independent ('.' always).
std::string DoubleToText(double Value);
std::string SingleToText(float Value);
// Str(): a leading blank for non-negative numbers ("Str(5)" is " 5").
std::string StrOf(int64_t Value);

}  // namespace tqdb::platform

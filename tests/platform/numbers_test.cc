#include "platform/numbers.h"

#include <gtest/gtest.h>

#include <cmath>
#include <limits>

#include "platform/fault.h"
#include "support/scoped_env.h"

namespace tqdb::platform {
namespace {

int FaultOf(auto&& Action) {
  try {
    Action();
  } catch (const Fault& F) {
    return F.Number();
  }
  return 0;
}

TEST(Rounding, HalvesGoToTheEvenInteger) {
  EXPECT_EQ(RoundHalfEven(2.5), 2);
  EXPECT_EQ(RoundHalfEven(3.5), 4);
  EXPECT_EQ(RoundHalfEven(-2.5), -2);
  EXPECT_EQ(RoundHalfEven(2.5000001), 3);
  EXPECT_EQ(RoundHalfEven(-0.7), -1);
  EXPECT_EQ(RoundHalfEven(4503599627370497.0), 4503599627370497.0);
}

TEST(Rounding, ConversionsOverflowWithFault6) {
  EXPECT_EQ(ToInt16(32767.4), 32767);
  EXPECT_EQ(ToInt32(-2147483648.5), -2147483648);
  EXPECT_EQ(ToSingle(3.4028235e38), std::numeric_limits<float>::max());
  const double Nan = std::nan("");
  EXPECT_EQ(FaultOf([] { ToInt16(32767.5); }), 6);
  EXPECT_EQ(FaultOf([&] { ToInt16(Nan); }), 6);
  EXPECT_EQ(FaultOf([] { ToInt32(2147483647.5); }), 6);
  EXPECT_EQ(FaultOf([] { ToInt32(-std::numeric_limits<double>::infinity()); }), 6);
  EXPECT_EQ(FaultOf([] { ToSingle(3.5e38); }), 6);
  EXPECT_EQ(FaultOf([&] { ToSingle(Nan); }), 6);
}

TEST(Val, ReadsTheLeadingNumber) {
  EXPECT_EQ(Val("  12.5abc"), 12.5);
  EXPECT_EQ(Val("+.25"), 0.25);
  EXPECT_EQ(Val("\t1 2\n3"), 123);  // blanks inside are ignored
  EXPECT_EQ(Val("1,5"), 1);         // the decimal point is always '.'
  EXPECT_EQ(Val("1.5E3"), 1500);
  EXPECT_EQ(Val("2d-2"), 0.02);
  EXPECT_EQ(Val("&h1fzz"), 31);
  EXPECT_EQ(Val("&HFFFF"), -1);
  EXPECT_EQ(Val("&HFFFFFFFF"), -1);
  EXPECT_EQ(Val("1E999"), std::numeric_limits<double>::infinity());
}

// Engine commands carry their numbers as plain integers ended by a separator.
TEST(Val, IntegersEndedByAnyOtherCharacterReadExactly) {
  EXPECT_EQ(Val("123\\4\\X"), 123);
  EXPECT_TRUE(std::signbit(Val("-0\\")));
  EXPECT_EQ(Val("999999999999999\\"), 999999999999999.0);
  EXPECT_EQ(Val("12345678901234567"), 12345678901234567.0);  // more digits than 15
  // A character that may continue the number leaves it to the whole rule.
  EXPECT_EQ(Val("12E3\\"), 12000);
  EXPECT_EQ(Val("12.5\\1"), 12.5);
}

const LocaleSeparators kSpanish{',', '.'};
const LocaleSeparators kEnglish{'.', ','};

TEST(LocaleRule, ReadsTheWholeTextWithTheLocaleSeparators) {
  EXPECT_EQ(LocaleToDouble("1.234,5", kSpanish), 1234.5);
  EXPECT_EQ(LocaleToDouble("1,234.5", kEnglish), 1234.5);
  EXPECT_EQ(LocaleToDouble("1.5", kSpanish), 15);  // '.' groups thousands there
  EXPECT_EQ(LocaleToDouble("2,5E2", kSpanish), 250);
  EXPECT_EQ(LocaleToDouble(".5", kEnglish), 0.5);
  EXPECT_EQ(LocaleToDouble("&H10", kEnglish), 16);
  for (const char* Bad :
       {"", "   ", "12abc", "1.2.3", ",5", ".", "-", "1E", "1 2", "&H", "&HZZ", "5-"}) {
    EXPECT_EQ(FaultOf([&] { LocaleToDouble(Bad, kEnglish); }), 13) << '"' << Bad << '"';
    double Out = 1;
    EXPECT_FALSE(TryLocaleToDouble(Bad, kEnglish, Out)) << '"' << Bad << '"';
  }
  EXPECT_EQ(FaultOf([] { LocaleToDouble("1E999", kEnglish); }), 6);
}

TEST(LocaleRule, SeparatorsComeFromTheEnvironment) {
  testing::ScopedEnv All("LC_ALL", nullptr);
  testing::ScopedEnv Numeric("LC_NUMERIC", "C");
  EXPECT_EQ(UserLocale().Decimal, '.');
  EXPECT_EQ(LocaleToDouble("3.75"), 3.75);
  double Out = 0;
  EXPECT_TRUE(TryLocaleToDouble("1,000", Out));
  EXPECT_EQ(Out, 1000);
  testing::ScopedEnv Unknown("LC_ALL", "xx_NOWHERE.UTF-8");
  EXPECT_EQ(UserLocale().Decimal, '.');  // a locale that does not exist: defaults
}

TEST(NumberText, NumbersAsTheSystemWritesThem) {
  EXPECT_EQ(DoubleToText(-0.0), "0");
  EXPECT_EQ(DoubleToText(0.1 + 0.2), "0.3");  // 15 significant digits
  EXPECT_EQ(DoubleToText(1.0 / 3), "0.333333333333333");
  EXPECT_EQ(DoubleToText(123456789012345), "123456789012345");
  EXPECT_EQ(DoubleToText(1e15), "1E+15");
  EXPECT_EQ(DoubleToText(0.000001), "1E-06");
  EXPECT_EQ(DoubleToText(2.5e-7), "2.5E-07");
  EXPECT_EQ(SingleToText(1.1f), "1.1");
  EXPECT_EQ(SingleToText(1.0f / 3), "0.3333333");
  EXPECT_EQ(SingleToText(12345678.0f), "1.234568E+07");
  EXPECT_EQ(StrOf(5), " 5");
}

}  // namespace
}  // namespace tqdb::platform

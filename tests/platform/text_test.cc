// Text and numbers as the system converts them: the code page, the number rules and the
// locale's separators, and the Variant's conversions.
#include <gtest/gtest.h>

#include <algorithm>
#include <array>
#include <cmath>
#include <cstdlib>
#include <limits>
#include <vector>

#include "platform/clock.h"
#include "platform/codepage.h"
#include "platform/fault.h"
#include "platform/messages.h"
#include "platform/numbers.h"
#include "support/error_of.h"
#include "support/scoped_env.h"
#include "support/temp_dir.h"
#include "table/TQError.h"
#include "table/Variant.h"

namespace tqdb::platform {
namespace {

using testing::FaultOf;

TEST(Codepage, RoundTripsMapsUpperCasesAndOrdersByCodePoint) {
  for (int B = 0; B < 256; ++B) {
    const std::string One(1, static_cast<char>(B));
    EXPECT_EQ(Utf8ToCp1252(Cp1252ToUtf8(One)), One) << "byte " << B;
    EXPECT_EQ(UpperByte(UpperByte(static_cast<uint8_t>(B))), UpperByte(static_cast<uint8_t>(B)));
  }
  EXPECT_EQ(Cp1252ToCodePoint(0x81), char32_t{0x81});  // undefined: C1 control
  EXPECT_EQ(Cp1252ToUtf8("\x80 \xF1\xD1\x9F"), "€ ñÑŸ");
  EXPECT_EQ(Utf8ToCp1252("€ “MUÑOZ” – Š"), "\x80 \x93MU\xD1OZ\x94 \x96 \x8A");
  // Unmappable and malformed UTF-8: one mark per sequence.
  const std::pair<const char*, const char*> Marked[] = {{"a\u4E2Db", "a?b"},
                                                        {"\xC3", "?"},
                                                        {"\xC0\xAF", "??"},
                                                        {"\xED\xA0\x80", "?"},
                                                        {"\u0085", "?"}};
  for (const auto& [Utf8, Cp1252] : Marked) EXPECT_EQ(Utf8ToCp1252(Utf8), Cp1252) << Utf8;
  EXPECT_EQ(UpperCase(Utf8ToCp1252("muñoz é àþ")), Utf8ToCp1252("MUÑOZ É ÀÞ"));
  EXPECT_EQ(UpperByte(0xFF), 0x9F);                                                // ÿ → Ÿ
  EXPECT_EQ(UpperByte(0x9A), 0x8A);                                                // š → Š
  for (uint8_t Same : {0xDF, 0xB5, 0xF7, 0x83}) EXPECT_EQ(UpperByte(Same), Same);  // ß µ ÷ ƒ
  std::string Text = "abc\xE9";
  UpperCaseInPlace(Text);
  EXPECT_EQ(Text, "ABC\xC9");
  EXPECT_GT(CompareText("\x80", "\xF1"), 0);  // € after ñ
  EXPECT_LT(CompareText("\xFF", "\x8A"), 0);  // ÿ (U+00FF) before Š (U+0160)
  EXPECT_LT(CompareText("ABC", "ABCD"), 0);   // a proper prefix is lower
  EXPECT_GT(CompareText("ABD", "ABC "), 0);
  std::vector<int> Bytes(256);
  for (int B = 0; B < 256; ++B) Bytes[B] = B;
  std::sort(Bytes.begin(), Bytes.end(), [](int A, int B) {
    return Cp1252ToCodePoint(static_cast<uint8_t>(A)) < Cp1252ToCodePoint(static_cast<uint8_t>(B));
  });
  for (int I = 0; I < 256; ++I) EXPECT_EQ(CodePointRank(static_cast<uint8_t>(Bytes[I])), I);
  EXPECT_EQ(Trim("\ta b\t "), "\ta b\t");  // blanks only
}

TEST(Numbers, RoundHalvesToEvenAndOverflowWithFault6) {
  const std::pair<double, double> Rounded[] = {
      {2.5, 2},       {3.5, 4},   {-2.5, -2},
      {2.5000001, 3}, {-0.7, -1}, {4503599627370497.0, 4503599627370497.0}};
  for (const auto& [In, Out] : Rounded) EXPECT_EQ(RoundHalfEven(In), Out) << In;
  EXPECT_EQ(ToInt16(32767.4), 32767);
  EXPECT_EQ(ToInt32(-2147483648.5), -2147483648);
  EXPECT_EQ(ToSingle(3.4028235e38), std::numeric_limits<float>::max());
  const double Nan = std::nan(""), Inf = std::numeric_limits<double>::infinity();
  for (const double Bad : {32767.5, Nan}) EXPECT_EQ(FaultOf([&] { ToInt16(Bad); }), 6) << Bad;
  for (const double Bad : {2147483647.5, -Inf}) EXPECT_EQ(FaultOf([&] { ToInt32(Bad); }), 6);
  for (const double Bad : {3.5e38, Nan}) EXPECT_EQ(FaultOf([&] { ToSingle(Bad); }), 6) << Bad;
}

// Val reads the leading number; engine commands carry plain integers ended by a separator.
TEST(Numbers, ValReadsTheLeadingNumber) {
  const double Inf = std::numeric_limits<double>::infinity();
  const std::pair<const char*, double> Values[] = {{"  12.5abc", 12.5},
                                                   {"+.25", 0.25},
                                                   {"\t1 2\n3", 123},
                                                   {"1,5", 1},
                                                   {"1.5E3", 1500},
                                                   {"2d-2", 0.02},
                                                   {"&h1fzz", 31},
                                                   {"&ha", 10},
                                                   {"&HFFFF", -1},
                                                   {"&HFFFFFFFF", -1},
                                                   {"1E999", Inf},
                                                   {"123\\4\\X", 123},
                                                   {"999999999999999\\", 999999999999999.0},
                                                   {"12345678901234567", 12345678901234567.0},
                                                   {"12E3\\", 12000},
                                                   {"12.5\\1", 12.5}};
  for (const auto& [Text, Value] : Values) EXPECT_EQ(Val(Text), Value) << Text;
  EXPECT_TRUE(std::signbit(Val("-0\\")));
}

TEST(Numbers, TheLocaleRuleReadsTheWholeTextWithTheLocaleSeparators) {
  const LocaleSeparators Spanish{',', '.'}, English{'.', ','};
  EXPECT_EQ(LocaleToDouble("1.234,5", Spanish), 1234.5);
  EXPECT_EQ(LocaleToDouble("1,234.5", English), 1234.5);
  EXPECT_EQ(LocaleToDouble("1.5", Spanish), 15);  // '.' groups thousands there
  EXPECT_EQ(LocaleToDouble("2,5E2", Spanish), 250);
  EXPECT_EQ(LocaleToDouble(".5", English), 0.5);
  EXPECT_EQ(LocaleToDouble("&H10", English), 16);
  for (const char* Bad :
       {"", "   ", "12abc", "1.2.3", ",5", ".", "-", "1E", "1 2", "&H", "&HZZ", "5-"}) {
    EXPECT_EQ(FaultOf([&] { LocaleToDouble(Bad, English); }), 13) << '"' << Bad << '"';
    double Out = 1;
    EXPECT_FALSE(TryLocaleToDouble(Bad, English, Out)) << '"' << Bad << '"';
  }
  EXPECT_EQ(FaultOf([&] { LocaleToDouble("1E999", English); }), 6);
  // The separators come from the environment; a locale that does not exist gives defaults.
  testing::ScopedEnv All("LC_ALL", nullptr);
  testing::ScopedEnv Numeric("LC_NUMERIC", "C");
  EXPECT_EQ(UserLocale().Decimal, '.');
  EXPECT_EQ(LocaleToDouble("3.75"), 3.75);
  double Out = 0;
  EXPECT_TRUE(TryLocaleToDouble("1,000", Out));
  EXPECT_EQ(Out, 1000);
  testing::ScopedEnv Unknown("LC_ALL", "xx_NOWHERE.UTF-8");
  EXPECT_EQ(UserLocale().Decimal, '.');
}

// Locales made for the test (LOCPATH) with the separators given: a thousands separator
// that is missing or equal to the decimal one is the other of "." and ",".
TEST(Numbers, TheUserLocaleGivesTheSeparators) {
  testing::TempDir Dir;
  testing::ScopedEnv Path("LOCPATH", Dir.Path().c_str());
  for (const auto& [Name, Decimal, Thousands, Text] :
       std::vector<std::array<std::string, 4>>{{"comma", ",", "", "1.234,5"},
                                               {"semi", ";", "", "1,234;5"},
                                               {"same", ",", ",", "1.234,5"},
                                               {"quote", ",", "'", "1'234,5"}}) {
    Dir.Write(Name + ".src", "LC_NUMERIC\ndecimal_point \"" + Decimal + "\"\nthousands_sep \"" +
                                 Thousands + "\"\ngrouping 3\nEND LC_NUMERIC\n");
    const std::string Make = "localedef -c -f ANSI_X3.4-1968 -i " + Dir.File(Name + ".src") + " " +
                             Dir.File(Name) + " >/dev/null 2>&1";
    EXPECT_NE(std::system(Make.c_str()), -1);
    testing::ScopedEnv All("LC_ALL", Name.c_str());
    EXPECT_EQ(UserLocale().Decimal, Decimal[0]) << Name;
    EXPECT_EQ(LocaleToDouble(Text), 1234.5) << Name;
  }
}

TEST(Numbers, WrittenAsTheSystemWritesThem) {
  const std::pair<double, const char*> Texts[] = {{-0.0, "0"},
                                                  {0.1 + 0.2, "0.3"},
                                                  {1.0 / 3, "0.333333333333333"},
                                                  {123456789012345, "123456789012345"},
                                                  {1e15, "1E+15"},
                                                  {0.000001, "1E-06"},
                                                  {2.5e-7, "2.5E-07"}};
  for (const auto& [Value, Text] : Texts) EXPECT_EQ(DoubleToText(Value), Text);
  EXPECT_EQ(SingleToText(1.1f), "1.1");
  EXPECT_EQ(SingleToText(1.0f / 3), "0.3333333");
  EXPECT_EQ(SingleToText(12345678.0f), "1.234568E+07");
  EXPECT_EQ(StrOf(5), " 5");
  EXPECT_DOUBLE_EQ(MinutesDotSeconds(3601.5), 60.02);
  ::testing::internal::CaptureStderr();  // messages go to stderr when no sink is set
  ShowMessage("\xCDndice", MessageIcon::Exclamation);
  EXPECT_EQ(::testing::internal::GetCapturedStderr(), "tqdb: aviso: Índice\n");
}

TEST(Variant, ConvertsToTextAndNumberAndComparesTypeAndValue) {
  testing::ScopedEnv All("LC_ALL", "C");
  EXPECT_EQ(Variant(true).ToString(), "True");
  EXPECT_EQ(Variant(1.1f).ToString(), "1.1");
  EXPECT_EQ(Variant(1e20).ToString(), "1E+20");
  EXPECT_EQ(Variant(Date{2024, 3, 5}).ToString(), "05/03/2024");
  EXPECT_EQ(Variant(static_cast<const char*>(nullptr)).ToString(), "");
  EXPECT_EQ(Variant(true).ToDouble(), -1);
  EXPECT_EQ(Variant(" 1,234.5 ").ToDouble(), 1234.5);
  EXPECT_EQ(Variant(Date{1900, 1, 1}).ToDouble(), 2);
  EXPECT_EQ(Variant(Date{2000, 1, 1}).ToDouble(), 36526);
  EXPECT_EQ(Variant(Date{1899, 12, 29}).ToDouble(), -1);
  EXPECT_EQ(FaultOf([] { Variant(std::vector<Variant>{}).ToString(); }), 13);
  EXPECT_EQ(FaultOf([] { Variant("12abc").ToDouble(); }), 13);
  EXPECT_EQ(FaultOf([] { Variant("1E999").ToDouble(); }), 6);
  EXPECT_EQ(FaultOf([] { Variant(std::vector<Variant>{1}).ToDouble(); }), 13);
  EXPECT_EQ(FaultOf([] { Variant("x").Elements(); }), 13);
  EXPECT_FALSE(Variant(5) == Variant(int16_t{5}));
  EXPECT_FALSE(Variant("5") == Variant(5));
  EXPECT_FALSE(Variant(Date{2024, 1, 2}) == Variant(Date{2024, 2, 1}));
  const std::vector<Variant> Mixed{1, "a", 2.5, Date{2024, 1, 2}};  // equal element by element
  EXPECT_EQ(Variant(Mixed), Variant(Mixed));
  EXPECT_FALSE(Variant(std::vector<Variant>{1}) == Variant(std::vector<Variant>{1, 2}));
  EXPECT_STREQ(TQError(50234, "Campo X no existe", "Fields").what(), "50234: Campo X no existe");
}

}  // namespace
}  // namespace tqdb::platform

#include "platform/codepage.h"

#include <gtest/gtest.h>

#include <algorithm>
#include <vector>

namespace tqdb::platform {
namespace {

TEST(Codepage, EveryByteRoundTripsThroughUtf8AndUpperCaseIsIdempotent) {
  for (int B = 0; B < 256; ++B) {
    const std::string One(1, static_cast<char>(B));
    EXPECT_EQ(Utf8ToCp1252(Cp1252ToUtf8(One)), One) << "byte " << B;
    const auto U = UpperByte(static_cast<uint8_t>(B));
    EXPECT_EQ(UpperByte(U), U) << "byte " << B;
  }
}

TEST(Codepage, SpecialBytesMapToTheirCharacters) {
  EXPECT_EQ(Cp1252ToCodePoint(0x81), char32_t{0x81});  // undefined: C1 control
  EXPECT_EQ(Cp1252ToUtf8("\x80 \xF1\xD1\x9F"), "€ ñÑŸ");
  EXPECT_EQ(Utf8ToCp1252("€ “MUÑOZ” – Š"), "\x80 \x93MU\xD1OZ\x94 \x96 \x8A");
}

TEST(Codepage, UnmappableAndMalformedUtf8BecomeQuestionMarks) {
  EXPECT_EQ(Utf8ToCp1252("a\u4E2Db"), "a?b");    // CJK: no single-byte form
  EXPECT_EQ(Utf8ToCp1252("\xC3"), "?");          // truncated sequence
  EXPECT_EQ(Utf8ToCp1252("\xC0\xAF"), "??");     // overlong "/"
  EXPECT_EQ(Utf8ToCp1252("\xED\xA0\x80"), "?");  // surrogate: one mark per sequence
  EXPECT_EQ(Utf8ToCp1252("\u0085"), "?");        // C1 control that 1252 uses for "…"
}

TEST(Codepage, UpperCasesLettersOfTheCodePage) {
  EXPECT_EQ(UpperCase(Utf8ToCp1252("muñoz é àþ")), Utf8ToCp1252("MUÑOZ É ÀÞ"));
  EXPECT_EQ(UpperByte(0xFF), 0x9F);                                                // ÿ → Ÿ
  EXPECT_EQ(UpperByte(0x9A), 0x8A);                                                // š → Š
  for (uint8_t Same : {0xDF, 0xB5, 0xF7, 0x83}) EXPECT_EQ(UpperByte(Same), Same);  // ß µ ÷ ƒ
  std::string Text = "abc\xE9";
  UpperCaseInPlace(Text);
  EXPECT_EQ(Text, "ABC\xC9");
}

TEST(Codepage, OrdersByCodePointNotByByte) {
  EXPECT_GT(CompareText("\x80", "\xF1"), 0);  // € after ñ
  EXPECT_LT(CompareText("Z", "\xD1"), 0);     // Z before Ñ
  EXPECT_LT(CompareText("\xFF", "\x8A"), 0);  // ÿ (U+00FF) before Š (U+0160)
  EXPECT_LT(CompareText("ABC", "ABCD"), 0);   // a proper prefix is lower
  EXPECT_GT(CompareText("ABD", "ABC "), 0);
  std::vector<int> Bytes(256);
  for (int B = 0; B < 256; ++B) Bytes[B] = B;
  std::sort(Bytes.begin(), Bytes.end(), [](int A, int B) {
    return Cp1252ToCodePoint(static_cast<uint8_t>(A)) < Cp1252ToCodePoint(static_cast<uint8_t>(B));
  });
  for (int I = 0; I < 256; ++I) EXPECT_EQ(CodePointRank(static_cast<uint8_t>(Bytes[I])), I);
}

TEST(Codepage, TrimsBlanksOnly) {
  EXPECT_EQ(Trim("  a b  "), "a b");
  EXPECT_EQ(TrimLeft("  a "), "a ");
  EXPECT_EQ(TrimRight(" a  "), " a");
  EXPECT_EQ(Trim("\ta\t"), "\ta\t");
}

}  // namespace
}  // namespace tqdb::platform

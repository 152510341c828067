#include "query/filter_parser.h"

#include <string>

#include <gtest/gtest.h>

#include "platform/fault.h"
#include "platform/numbers.h"

namespace tqdb::query {
namespace {

TEST(SplitConditionTest, FindsEachOperatorAndItsSynonym) {
  struct Case {
    const char* Text;
    FilterOp Op;
  };
  const Case Cases[] = {
      {"X >= 5", kOpGreaterEq}, {"X => 5", kOpGreaterEq}, {"X <= 5", kOpLessEq},
      {"X =< 5", kOpLessEq},    {"X = 5", kOpEqual},      {"X > 5", kOpGreater},
      {"X < 5", kOpLess},       {"X <> 5", kOpNotEqual},  {"X >< 5", kOpNotEqual},
      {"X LIKE 5", kOpLike},
  };
  for (const Case& Each : Cases) {
    const ConditionText Parts = SplitCondition(Each.Text);
    EXPECT_EQ(Parts.Op, Each.Op) << Each.Text;
    EXPECT_EQ(Parts.Name, "X") << Each.Text;
    EXPECT_EQ(Parts.Value, "5") << Each.Text;
  }
}

TEST(SplitConditionTest, EqualsWithAStarBecomesLike) {
  const ConditionText Parts = SplitCondition("NOMBRE = GAR*");
  EXPECT_EQ(Parts.Op, kOpLike);
  EXPECT_EQ(Parts.Name, "NOMBRE");
  EXPECT_EQ(Parts.Value, "GAR*");
}

TEST(SplitConditionTest, TestsRunInTheirOwnOrderOverTheWholeText) {
  // LIKE is looked for first, even inside a value.
  EXPECT_EQ(SplitCondition("A = LIKE").Op, kOpLike);
  EXPECT_EQ(SplitCondition("A = LIKE").Name, "A =");
  // ">=" is looked for before "=", so it wins wherever it stands.
  const ConditionText Parts = SplitCondition("A = B>=C");
  EXPECT_EQ(Parts.Op, kOpGreaterEq);
  EXPECT_EQ(Parts.Name, "A = B");
}

TEST(SplitConditionTest, NoOperatorIsReportedAsNone) {
  EXPECT_EQ(SplitCondition("").Op, kOpNone);
  EXPECT_EQ(SplitCondition("NOMBRE GARCIA").Op, kOpNone);
}

TEST(SplitConditionTest, QuotesAreOptionalAndInnerQuotesStay) {
  EXPECT_EQ(SplitCondition("N = 'GARCIA'").Value, "GARCIA");
  EXPECT_EQ(SplitCondition("N = ' GARCIA '").Value, "GARCIA");
  EXPECT_EQ(SplitCondition("N = O'BRIEN").Value, "O'BRIEN");
  EXPECT_EQ(SplitCondition("N = '").Value, "");
}

TEST(FilterValueTest, StripQuotesRemovesOneQuoteEachSide) {
  EXPECT_EQ(StripQuotes("''A''"), "'A'");
  EXPECT_EQ(StripQuotes("'A"), "A");
  EXPECT_EQ(StripQuotes("A'"), "A");
  EXPECT_EQ(StripQuotes(""), "");
}

TEST(FilterValueTest, PatternKeyPrefixKeepsTheLiteralPart) {
  EXPECT_EQ(PatternKeyPrefix("GAR*"), "GAR");
  EXPECT_EQ(PatternKeyPrefix(" GAR** "), "GAR");
  EXPECT_EQ(PatternKeyPrefix("GAR??"), "GAR");
  EXPECT_EQ(PatternKeyPrefix("GAR?*"), "GAR");
  EXPECT_EQ(PatternKeyPrefix("GAR*?"), "GAR*");  // stars first, then question marks
  EXPECT_EQ(PatternKeyPrefix("*GAR*"), "GAR");
  EXPECT_EQ(PatternKeyPrefix("***"), "");
  EXPECT_EQ(PatternLiteralHead("GA?R*"), "GA");
  EXPECT_EQ(PatternLiteralHead("*GAR"), "");
  EXPECT_EQ(PatternLiteralHead("GARCIA"), "GARCIA");
}

TEST(FilterValueTest, PointIsAlwaysTheDecimalPointWhenNoCommaIsPresent) {
  EXPECT_DOUBLE_EQ(ParseNumberText("1.5"), 1.5);
  EXPECT_DOUBLE_EQ(ParseNumberText(" -2.25 "), -2.25);
  EXPECT_DOUBLE_EQ(ParseNumberText("+.5"), 0.5);
  EXPECT_DOUBLE_EQ(ParseNumberText("1.5E2"), 150);
  EXPECT_DOUBLE_EQ(ParseNumberText("1.5.3"), 0);
  EXPECT_DOUBLE_EQ(ParseNumberText("1.5X"), 0);
}

TEST(FilterValueTest, CommaOrNoPointFollowsTheLocale) {
  for (const char* Text : {"1,5", "12", "-7", "1,000,5"}) {
    double Expected = 0;
    if (!platform::TryLocaleToDouble(Text, Expected)) Expected = 0;
    EXPECT_DOUBLE_EQ(ParseNumberText(Text), Expected) << Text;
  }
  EXPECT_DOUBLE_EQ(ParseNumberText("12"), 12);
}

TEST(FilterValueTest, NonNumbersReadAsZero) {
  EXPECT_DOUBLE_EQ(ParseNumberText(""), 0);
  EXPECT_DOUBLE_EQ(ParseNumberText("   "), 0);
  EXPECT_DOUBLE_EQ(ParseNumberText("ABC"), 0);
  EXPECT_DOUBLE_EQ(ParseNumberText("$5"), 0);
  EXPECT_DOUBLE_EQ(ParseNumberText("/5"), 0);
  EXPECT_DOUBLE_EQ(ParseNumberText("+INF"), 0);
  EXPECT_DOUBLE_EQ(ParseNumberText("1E999"), 0);
}

TEST(ConnectorTest, LooksOnlyAtTheLastLetters) {
  EXPECT_EQ(ConnectorCode("AND"), 1);
  EXPECT_EQ(ConnectorCode(" OR"), 0);
  EXPECT_EQ(ConnectorCode("OR "), 0);
  EXPECT_EQ(ConnectorCode("XOR"), 0);
}

TEST(ConnectorTest, AnythingElseIsError50230WithTheText) {
  try {
    ConnectorCode("NOT");
    FAIL() << "NOT accepted";
  } catch (const platform::Fault& Error) {
    EXPECT_EQ(Error.Number(), 50230);
    EXPECT_EQ(Error.Description(), "Error en filtro: NOT");
  }
}

TEST(GroupedFilterTest, NeedsAConnectorBeforeALaterParenthesis) {
  EXPECT_TRUE(IsGroupedFilter("(A = 1) AND (B = 2)"));
  EXPECT_TRUE(IsGroupedFilter("A = 1 OR (B = 2)"));
  EXPECT_TRUE(IsGroupedFilter("(A = 1) XOR (B = 2)"));
  EXPECT_FALSE(IsGroupedFilter("(A = 1 AND B = 2)"));  // one "(" at the start: flat
  EXPECT_FALSE(IsGroupedFilter("A = 1 AND (B = 2"));   // no ")"
  EXPECT_FALSE(IsGroupedFilter("A = (1)"));            // "A =" ends in neither
  EXPECT_FALSE(IsGroupedFilter(""));
}

TEST(GroupedFilterTest, NumericTypesAreTheBinaryOnes) {
  for (int16_t Type : {1, 2, 3, 4, 6, 7, 80, 85}) EXPECT_TRUE(IsNumericFilterType(Type));
  for (int16_t Type : {0, 5, 8, 62, 74, 79, 86}) EXPECT_FALSE(IsNumericFilterType(Type));
}

}  // namespace
}  // namespace tqdb::query

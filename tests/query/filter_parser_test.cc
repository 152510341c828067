// The parser's rules that the public filter tests do not reach one by one: the operator
// search order, the literal part of a pattern, the number rule and the grouped-filter test.
#include "query/filter_parser.h"

#include <string>

#include <gtest/gtest.h>

#include "platform/fault.h"
#include "platform/numbers.h"

namespace tqdb::query {
namespace {

TEST(SplitConditionTest, OperatorsAreLookedForInTheirOwnOrderOverTheWholeText) {
  EXPECT_EQ(SplitCondition("A = LIKE").Op, kOpLike);  // LIKE first, even inside a value
  EXPECT_EQ(SplitCondition("A = LIKE").Name, "A =");
  const ConditionText Parts = SplitCondition("A = B>=C");  // ">=" before "="
  EXPECT_EQ(Parts.Op, kOpGreaterEq);
  EXPECT_EQ(Parts.Name, "A = B");
  EXPECT_EQ(SplitCondition("X >< 5").Op, kOpNotEqual);
  EXPECT_EQ(SplitCondition("N = ' GARCIA '").Value, "GARCIA");
  EXPECT_EQ(SplitCondition("N = O'BRIEN").Value, "O'BRIEN");
  EXPECT_EQ(SplitCondition("N = '").Value, "");
  EXPECT_EQ(StripQuotes("''A''"), "'A'");
}

TEST(FilterValueTest, PatternKeyPrefixKeepsTheLiteralPart) {
  EXPECT_EQ(PatternKeyPrefix(" GAR** "), "GAR");
  EXPECT_EQ(PatternKeyPrefix("GAR?*"), "GAR");
  EXPECT_EQ(PatternKeyPrefix("GAR*?"), "GAR*");  // stars first, then question marks
  EXPECT_EQ(PatternKeyPrefix("*GAR*"), "GAR");
  EXPECT_EQ(PatternKeyPrefix("***"), "");
  EXPECT_EQ(PatternLiteralHead("GA?R*"), "GA");
  EXPECT_EQ(PatternLiteralHead("*GAR"), "");
}

TEST(FilterValueTest, APointIsDecimalACommaFollowsTheLocaleAndTheRestIsZero) {
  EXPECT_DOUBLE_EQ(ParseNumberText(" -2.25 "), -2.25);
  EXPECT_DOUBLE_EQ(ParseNumberText("+.5"), 0.5);
  EXPECT_DOUBLE_EQ(ParseNumberText("1.5E2"), 150);
  for (const char* Text : {"1,5", "12", "-7", "1,000,5"}) {
    double Expected = 0;
    if (!platform::TryLocaleToDouble(Text, Expected)) Expected = 0;
    EXPECT_DOUBLE_EQ(ParseNumberText(Text), Expected) << Text;
  }
  for (const char* Text : {"1.5.3", "1.5X", "", "ABC", "$5", "/5", "+INF", "1E999"}) {
    EXPECT_DOUBLE_EQ(ParseNumberText(Text), 0) << Text;
  }
}

TEST(GroupedFilterTest, NeedsAConnectorBeforeALaterParenthesis) {
  EXPECT_TRUE(IsGroupedFilter("(A = 1) AND (B = 2)"));
  EXPECT_TRUE(IsGroupedFilter("A = 1 OR (B = 2)"));
  EXPECT_TRUE(IsGroupedFilter("(A = 1) XOR (B = 2)"));
  EXPECT_FALSE(IsGroupedFilter("(A = 1 AND B = 2)"));  // one "(" at the start: flat
  EXPECT_FALSE(IsGroupedFilter("A = 1 AND (B = 2"));   // no ")"
  EXPECT_FALSE(IsGroupedFilter("A = (1)"));            // "A =" ends in neither
  EXPECT_EQ(ConnectorCode(" OR"), 0);                  // only the last letters count
  EXPECT_EQ(ConnectorCode("XOR"), 0);
  EXPECT_EQ(ConnectorCode("AND"), 1);
}

}  // namespace
}  // namespace tqdb::query

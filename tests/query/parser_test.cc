// The filter parser's rules that the comparison with SQLite does not reach one by one, the
// pattern matcher's worst case, and the quicksort's pivot and stack depth.
#include <algorithm>
#include <numeric>
#include <string>
#include <vector>

#include <gtest/gtest.h>

#include "platform/numbers.h"
#include "query/filter_parser.h"
#include "query/like_pattern.h"
#include "query/quicksort.h"

namespace tqdb::query {
namespace {

TEST(FilterParserTest, OperatorsPatternsNumbersAndGroups) {
  EXPECT_EQ(SplitCondition("A = LIKE").Op, kOpLike);  // LIKE first, even inside a value
  EXPECT_EQ(SplitCondition("A = LIKE").Name, "A =");
  EXPECT_EQ(SplitCondition("A = B>=C").Op, kOpGreaterEq);  // ">=" before "="
  EXPECT_EQ(SplitCondition("A = B>=C").Name, "A = B");
  EXPECT_EQ(SplitCondition("X >< 5").Op, kOpNotEqual);
  for (const auto& [Condition, Value] :
       {std::pair{"N = ' GARCIA '", "GARCIA"}, {"N = O'BRIEN", "O'BRIEN"}, {"N = '", ""}})
    EXPECT_EQ(SplitCondition(Condition).Value, Value);
  EXPECT_EQ(StripQuotes("''A''"), "'A'");
  for (const auto& [Pattern, Prefix] : {std::pair{" GAR** ", "GAR"},
                                        {"GAR?*", "GAR"},
                                        {"GAR*?", "GAR*"},
                                        {"*GAR*", "GAR"},
                                        {"***", ""}})
    EXPECT_EQ(PatternKeyPrefix(Pattern), Prefix) << Pattern;  // stars first, then question marks
  EXPECT_EQ(PatternLiteralHead("GA?R*"), "GA");
  EXPECT_EQ(PatternLiteralHead("*GAR"), "");
  for (const auto& [Text, Number] : {std::pair{" -2.25 ", -2.25},
                                     {"+.5", 0.5},
                                     {"1.5E2", 150.0},
                                     {"1.5.3", 0.0},
                                     {"1.5X", 0.0},
                                     {"", 0.0},
                                     {"ABC", 0.0},
                                     {"$5", 0.0},
                                     {"/5", 0.0},
                                     {"+INF", 0.0},
                                     {"1E999", 0.0}})
    EXPECT_DOUBLE_EQ(ParseNumberText(Text), Number) << Text;
  for (const char* Text : {"1,5", "12", "-7", "1,000,5"}) {  // a comma follows the locale
    double Expected = 0;
    if (!platform::TryLocaleToDouble(Text, Expected)) Expected = 0;
    EXPECT_DOUBLE_EQ(ParseNumberText(Text), Expected) << Text;
  }
  for (const auto& [Text, Grouped] : {std::pair{"(A = 1) AND (B = 2)", true},
                                      {"A = 1 OR (B = 2)", true},
                                      {"(A = 1) XOR (B = 2)", true},
                                      {"(A = 1 AND B = 2)", false},
                                      {"A = 1 AND (B = 2", false},
                                      {"A = (1)", false}})
    EXPECT_EQ(IsGroupedFilter(Text), Grouped) << Text;  // a connector before a later "(" and a ")"
  EXPECT_EQ(ConnectorCode(" OR"), 0);                   // only the last letters count
  EXPECT_EQ(ConnectorCode("XOR"), 0);
  EXPECT_EQ(ConnectorCode("AND"), 1);
}

TEST(LikePatternTest, StarIsAnyRunAndQuestionMarkOneCharacterInPolynomialTime) {
  for (const auto& [Text, Pattern, Matches] :
       std::vector<std::tuple<std::string, std::string, bool>>{{"GARCIA", "G*C*A", true},
                                                               {"", "***", true},
                                                               {"GARCIA", "GAR", false},
                                                               {"GARCI", "GARCI?", false},
                                                               {"", "?", false},
                                                               {"ABC", "?*?", true},
                                                               {"garcia", "GAR*", false},
                                                               {"MU\xD1OZ", "MU?OZ", true},
                                                               {"ABABABC", "*ABC", true},
                                                               {"AXBXC", "*X*X*X*", false}})
    EXPECT_EQ(MatchesPattern(Text, Pattern), Matches) << Text << " " << Pattern;
  std::string Pattern;
  for (int I = 0; I < 200; ++I) Pattern += "*A";
  EXPECT_FALSE(MatchesPattern(std::string(20000, 'A'), Pattern + "B"));
  EXPECT_TRUE(MatchesPattern(std::string(20000, 'A'), Pattern));
}

TEST(QuickSortTest, PivotRoundsHalvesToEvenAndOrderedInputsKeepTheStackShallow) {
  EXPECT_EQ(PivotIndex(0, 5), 2);
  EXPECT_EQ(PivotIndex(3, 4), 4);
  EXPECT_EQ(PivotIndex(1, 2), 2);
  EXPECT_EQ(PivotIndex(2147483646, 2147483647), 2147483646);
  std::vector<int> Ascending(1'000'000), Descending(1'000'000), Constant(1'000'000, 5),
      Small = {3, 1, 2};
  std::iota(Ascending.begin(), Ascending.end(), 0);
  std::iota(Descending.rbegin(), Descending.rend(), 0);
  for (const auto* Keys : {&Small, &Ascending, &Descending, &Constant}) {
    std::vector<int32_t> Order(Keys->size());
    std::iota(Order.begin(), Order.end(), 0);
    QuickSortOrder(Order, 0, static_cast<int32_t>(Keys->size()) - 1, [&](int32_t A, int32_t B) {
      return ((*Keys)[A] > (*Keys)[B]) - ((*Keys)[A] < (*Keys)[B]);
    });
    if (Keys == &Small) {
      EXPECT_EQ(Order, (std::vector<int32_t>{1, 2, 0}));  // only the order moves
    }
    ASSERT_TRUE(std::is_sorted(Order.begin(), Order.end(),
                               [&](int32_t A, int32_t B) { return (*Keys)[A] < (*Keys)[B]; }));
  }
}

}  // namespace
}  // namespace tqdb::query

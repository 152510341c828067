#include "query/like_pattern.h"

#include <string>

#include <gtest/gtest.h>

namespace tqdb::query {
namespace {

TEST(LikePatternTest, StarIsAnyRunAndQuestionMarkOneCharacter) {
  EXPECT_TRUE(MatchesPattern("GAR", "GAR*"));
  EXPECT_TRUE(MatchesPattern("GARCIA", "G*C*A"));
  EXPECT_TRUE(MatchesPattern("", "***"));
  EXPECT_FALSE(MatchesPattern("GARCIA", "GAR"));
  EXPECT_FALSE(MatchesPattern("GARCI", "GARCI?"));
  EXPECT_FALSE(MatchesPattern("GARCIAS", "GARCI?"));
  EXPECT_FALSE(MatchesPattern("", "?"));
  EXPECT_TRUE(MatchesPattern("ABC", "?*?"));
  EXPECT_FALSE(MatchesPattern("garcia", "GAR*"));    // bytes, no case folding
  EXPECT_TRUE(MatchesPattern("MU\xD1OZ", "MU?OZ"));  // Ñ in Windows-1252
  EXPECT_TRUE(MatchesPattern("ABABABC", "*ABC"));
  EXPECT_FALSE(MatchesPattern("AXBXC", "*X*X*X*"));
}

// A pattern that makes naive recursive matchers take exponential time must finish fast.
TEST(LikePatternTest, LongPatternsOfStarsStayPolynomial) {
  const std::string Text(20000, 'A');
  std::string Pattern;
  for (int I = 0; I < 200; ++I) Pattern += "*A";
  EXPECT_FALSE(MatchesPattern(Text, Pattern + "B"));
  EXPECT_TRUE(MatchesPattern(Text, Pattern));
}

}  // namespace
}  // namespace tqdb::query

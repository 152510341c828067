#include "table/Variant.h"

#include <gtest/gtest.h>

#include "support/scoped_env.h"
#include "table/TQError.h"

namespace tqdb {
namespace {

int ErrorOf(auto&& Action) {
  try {
    Action();
  } catch (const TQError& E) {
    return E.Number();
  }
  return 0;
}

TEST(Variant, ToStringWritesTheSystemsText) {
  EXPECT_EQ(Variant().ToString(), "");
  EXPECT_EQ(Variant(true).ToString(), "True");
  EXPECT_EQ(Variant(1.1f).ToString(), "1.1");
  EXPECT_EQ(Variant(1e20).ToString(), "1E+20");
  EXPECT_EQ(Variant(Date{2024, 3, 5}).ToString(), "05/03/2024");
  EXPECT_EQ(Variant(static_cast<const char*>(nullptr)).ToString(), "");
  EXPECT_EQ(ErrorOf([] { Variant(std::vector<Variant>{}).ToString(); }), 13);
}

TEST(Variant, ToDoubleFollowsTheLocaleRule) {
  testing::ScopedEnv All("LC_ALL", "C");
  EXPECT_EQ(Variant(true).ToDouble(), -1);
  EXPECT_EQ(Variant(" 1,234.5 ").ToDouble(), 1234.5);
  EXPECT_EQ(Variant(Date{1900, 1, 1}).ToDouble(), 2);
  EXPECT_EQ(Variant(Date{2000, 1, 1}).ToDouble(), 36526);
  EXPECT_EQ(Variant(Date{1899, 12, 29}).ToDouble(), -1);
  EXPECT_EQ(ErrorOf([] { Variant("12abc").ToDouble(); }), 13);
  EXPECT_EQ(ErrorOf([] { Variant("1E999").ToDouble(); }), 6);
  EXPECT_EQ(ErrorOf([] { Variant(std::vector<Variant>{1}).ToDouble(); }), 13);
  EXPECT_EQ(ErrorOf([] { Variant("x").Elements(); }), 13);
}

TEST(Variant, EqualityComparesTypeAndValue) {
  EXPECT_FALSE(Variant(5) == Variant(int16_t{5}));
  EXPECT_FALSE(Variant("5") == Variant(5));
  EXPECT_FALSE(Variant(Date{2024, 1, 2}) == Variant(Date{2024, 2, 1}));
  EXPECT_EQ(Variant(std::vector<Variant>{1, "a"}), Variant(std::vector<Variant>{1, "a"}));
  EXPECT_FALSE(Variant(std::vector<Variant>{1}) == Variant(std::vector<Variant>{1, 2}));
}

TEST(TQError, WhatJoinsNumberAndDescription) {
  EXPECT_STREQ(TQError(50234, "Campo X no existe", "Fields").what(), "50234: Campo X no existe");
}

}  // namespace
}  // namespace tqdb

#include "records/dates.h"

#include <gtest/gtest.h>

#include <ctime>
#include <string>

namespace tqdb {
namespace {

TEST(DateToTextTest, StoredFormsGiveTwoDigitYears) {
  EXPECT_EQ(DateToText("991231"), "31/12/99");
  EXPECT_EQ(DateToText("A00101"), "01/01/00");
  EXPECT_EQ(DateToText("J91231"), "31/12/99");  // 2099 unfolds to its digit
  EXPECT_EQ(DateToText(std::string(6, '\0')), "00/00/00");
}

TEST(DateToTextTest, DisplayedFormsGiveStoredForms) {
  EXPECT_EQ(DateToText("05/03/59"), "F90305");  // below 60: the century folds
  EXPECT_EQ(DateToText("05/03/60"), "600305");
  EXPECT_EQ(DateToText("01/01/00"), "A00101");
  EXPECT_EQ(DateToText("1/02/03"), "030201");  // one-digit day: never folded
  EXPECT_EQ(DateToText("31/12/2024"), "12/31/24");
}

TEST(DateToLongTextTest, StoredFormsGiveFourDigitYears) {
  EXPECT_EQ(DateToLongText("991231"), "31/12/1999");
  EXPECT_EQ(DateToLongText("A00101"), "01/01/2000");
  EXPECT_EQ(DateToLongText("451231"), "31/12/2045");
  EXPECT_EQ(DateToLongText("600101"), "01/01/1960");
  EXPECT_EQ(DateToLongText("B41015"), "15/10/2014");
}

TEST(DateToLongTextTest, DisplayedFormsGiveStoredForms) {
  EXPECT_EQ(DateToLongText("05/03/59"), "590305");  // unfolded, unlike DateToText
  EXPECT_EQ(DateToLongText("01/02/2003"), "A30201");
  EXPECT_EQ(DateToLongText("31/12/1999"), "991231");
  EXPECT_EQ(DateToLongText("01/02/1803"), "");
  EXPECT_EQ(DateToLongText("1/02/03"), "030201");
}

TEST(DatesTest, StoredFormsSortInDateOrder) {
  const std::string Dates[] = {"01/01/1960", "31/12/1999", "01/01/2000", "15/06/2059"};
  for (int i = 0; i + 1 < 4; ++i) {
    EXPECT_LT(DateToLongText(Dates[i]), DateToLongText(Dates[i + 1])) << Dates[i];
  }
}

TEST(DatesTest, NineCharactersSwapDayAndMonthWithTheCurrentCentury) {
  const std::time_t Now = std::time(nullptr);
  std::tm Local{};
  localtime_r(&Now, &Local);
  const std::string Century = std::to_string((Local.tm_year + 1900) / 100);
  EXPECT_EQ(CurrentCentury(), Century);
  EXPECT_EQ(DateToText("05/03/24x"), "03/05/" + Century + "24");
  EXPECT_EQ(DateToLongText("05-03-24 "), "03/05/" + Century + "24");
}

TEST(DatesTest, UnsupportedLengthsGiveError) {
  for (const char* Text : {"", "12345", "01/02/20034", "01/02/2003 x"}) {
    EXPECT_EQ(DateToText(Text), "ERROR") << Text;
    EXPECT_EQ(DateToLongText(Text), "ERROR") << Text;
  }
}

TEST(DatesTest, OddBytesNeverFail) {
  EXPECT_EQ(DateToLongText("01/02/20\xFF\xFF").size(), 6u);
  EXPECT_EQ(DateToText("\xFF\xFF\xFF\xFF\xFF\xFF").size(), 8u);
  EXPECT_EQ(DateToLongText(std::string(6, '\0')).size(), 10u);
}

}  // namespace
}  // namespace tqdb

#include "records/dates.h"

#include <gtest/gtest.h>

#include <ctime>
#include <string>

namespace tqdb {
namespace {

// Stored forms ("YYMMDD", the first digit of years 2000-2099 written as "A".."J") give
// displayed forms, displayed forms give stored forms; the two routines differ in the
// year's width and in folding years below 60 into the next century.
TEST(DatesTest, ConvertsBetweenStoredAndDisplayedForms) {
  struct Case {
    std::string Input, Text, LongText;  // "-": not asked of this routine
  };
  const Case Cases[] = {
      {"991231", "31/12/99", "31/12/1999"},
      {"B41015", "-", "15/10/2014"},
      {"A00101", "01/01/00", "01/01/2000"},
      {"J91231", "31/12/99", "-"},  // 2099 unfolds to its digit
      {"451231", "-", "31/12/2045"},
      {"600101", "-", "01/01/1960"},
      {std::string(6, '\0'), "00/00/00", "-"},
      {"05/03/59", "F90305", "590305"},  // below 60 only DateToText folds the century
      {"05/03/60", "600305", "-"},
      {"01/01/00", "A00101", "-"},
      {"1/02/03", "030201", "030201"},  // one-digit day: never folded
      {"31/12/2024", "12/31/24", "-"},
      {"01/02/2003", "-", "A30201"},
      {"31/12/1999", "-", "991231"},
      {"01/02/1803", "-", ""},
  };
  for (const Case& C : Cases) {
    if (C.Text != "-") {
      EXPECT_EQ(DateToText(C.Input), C.Text) << C.Input;
    }
    if (C.LongText != "-") {
      EXPECT_EQ(DateToLongText(C.Input), C.LongText) << C.Input;
    }
  }
  // Stored forms sort in date order.
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

TEST(DatesTest, UnsupportedLengthsGiveErrorAndOddBytesNeverFail) {
  for (const char* Text : {"", "12345", "01/02/20034", "01/02/2003 x"}) {
    EXPECT_EQ(DateToText(Text), "ERROR") << Text;
    EXPECT_EQ(DateToLongText(Text), "ERROR") << Text;
  }
  EXPECT_EQ(DateToLongText("01/02/20\xFF\xFF").size(), 6u);
  EXPECT_EQ(DateToText("\xFF\xFF\xFF\xFF\xFF\xFF").size(), 8u);
  EXPECT_EQ(DateToLongText(std::string(6, '\0')).size(), 10u);
}

}  // namespace
}  // namespace tqdb

// The rebuild's key text table: digit counts, zero-padded numbers, and the order of a
// key's rows (by character, then by record number).
#include "maintenance/key_text_table.h"

#include <gtest/gtest.h>

#include <string>
#include <vector>

namespace tqdb {
namespace {

TEST(DigitCountTest, CountsDecimalDigitsAndPadsNumbersToTheWidth) {
  const std::pair<int64_t, int> Counts[] = {
      {9, 1}, {10, 2}, {999, 3}, {2147483647, 10}, {10000000000, 0}};  // more than ten: 0
  for (const auto& [Number, Digits] : Counts) EXPECT_EQ(DigitCount(Number), Digits) << Number;
  EXPECT_EQ(ZeroPadded(7, 4), "0007");
  EXPECT_EQ(ZeroPadded(1000, 4), "1000");
}

// Rows of one key, added in the given order, read back sorted.
std::vector<std::string> SortedRows(const std::vector<std::string>& Texts, int Width) {
  KeyTextTable Table({static_cast<int>(Texts.front().size())}, Width, 0);
  int32_t Record = 0;
  for (const std::string& Text : Texts) Table.AddRow({Text}, ++Record);
  Table.Sort(0);
  std::vector<std::string> Rows;
  for (int64_t Row = 0; Row < Table.Rows(); ++Row) Rows.push_back(Table.RowText(0, Row));
  return Rows;
}

TEST(KeyTextTableTest, RowsAreTheKeyTextPaddedAndTheZeroPaddedNumber) {
  EXPECT_EQ(SortedRows({"B", "A"}, DigitCount(999)), (std::vector<std::string>{"A002", "B001"}));
  EXPECT_EQ(SortedRows({"B", "A"}, DigitCount(1000)), (std::vector<std::string>{"A0002", "B0001"}));
  KeyTextTable Table({3}, 1, 0);  // texts are padded or cut to the key length
  Table.AddRow({"A"}, 1);
  Table.AddRow({"ABCD"}, 2);
  Table.Sort(0);
  EXPECT_EQ(Table.RowText(0, 0), "A  1");
  EXPECT_EQ(Table.RowText(0, 1), "ABC2");
}

TEST(KeyTextTableTest, OrdersByCharacterNotByByte) {
  // "€" is byte 0x80 but U+20AC, after "ñ" (0xF1); "Z" before "Á" (0xC1).
  EXPECT_EQ(SortedRows({"\x80", "\xF1", "\xC1", "Z"}, 1), (std::vector<std::string>{"Z4",
                                                                                    "\xC1"
                                                                                    "3",
                                                                                    "\xF1"
                                                                                    "2",
                                                                                    "\x80"
                                                                                    "1"}));
}

TEST(KeyTextTableTest, EqualTextsFollowTheRecordNumber) {
  KeyTextTable Table({2, 1}, 2, 0);
  for (int32_t R = 1; R <= 12; ++R) Table.AddRow({R % 2 ? "AA" : "AB", "X"}, R);
  Table.Sort(0);
  Table.Sort(1);
  std::vector<int32_t> First, Second;
  for (int64_t Row = 0; Row < Table.Rows(); ++Row) {
    First.push_back(Table.Record(0, Row));
    Second.push_back(Table.Record(1, Row));
  }
  EXPECT_EQ(First, (std::vector<int32_t>{1, 3, 5, 7, 9, 11, 2, 4, 6, 8, 10, 12}));
  EXPECT_EQ(Second, (std::vector<int32_t>{1, 2, 3, 4, 5, 6, 7, 8, 9, 10, 11, 12}));
  EXPECT_EQ(Table.Text(0, 0), "AA");
  EXPECT_EQ(Table.Text(0, 11), "AB");
}

}  // namespace
}  // namespace tqdb

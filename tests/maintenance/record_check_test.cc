// Which records a rebuild keeps, by the type of their first field.
#include "maintenance/record_check.h"

#include <gtest/gtest.h>

#include <string>

#include "support/direct_table.h"
#include "support/table_writer.h"
#include "support/temp_dir.h"

namespace tqdb {
namespace {

using testing::DirectTable;
using testing::FieldSpec;
using testing::TableSpec;
using testing::TempDir;

TEST(StoredDateTest, AcceptsCalendarDaysOfBothCenturies) {
  EXPECT_TRUE(IsValidStoredDate("991231"));
  EXPECT_TRUE(IsValidStoredDate("A00229"));  // 2000 is a leap year
  EXPECT_TRUE(IsValidStoredDate("000229"));  // 00 reads as 2000
  EXPECT_FALSE(IsValidStoredDate("990229"));
  EXPECT_FALSE(IsValidStoredDate("A10229"));
  EXPECT_FALSE(IsValidStoredDate("991301"));
  EXPECT_FALSE(IsValidStoredDate("K00101"));
  EXPECT_FALSE(IsValidStoredDate("99123"));
  EXPECT_FALSE(IsValidStoredDate("99 231"));
}

// Whether a record whose field 1 (of the given type and length) holds First is kept.
bool Kept(int Type, int Length, const std::string& First) {
  TempDir Dir;
  TableSpec Spec;
  Spec.Fields = {FieldSpec{"PRIMERO", Type, Length}, FieldSpec{"RESTO", 10, 3}};
  DirectTable Table(Dir, "TABLA", Spec, {});
  std::string Record = First;
  Record.resize(static_cast<size_t>(testing::FieldWidthOf(Spec.Fields[0])), ' ');
  Record += "abc";
  return !IsDeletedRecord(Table.State, Record) && FirstFieldIsSound(Table.State, Record);
}

// Text is damaged only by control characters, numeric text holds digits and blanks,
// dates are valid, blank or never written; binary, image and long-text fields are always
// kept; the deletion mark drops the record.
TEST(FirstFieldTest, KeepsRecordsByTheTypeOfTheirFirstField) {
  struct Case {
    int Type, Length;
    std::string First;
    bool Kept;
  };
  const Case Cases[] = {
      {10, 6, "MU\xD1OZ", true},
      {10, 6, "AB\nCD", false},
      {10, 6, std::string("AB\0CD", 5), false},
      {8, 4, "    ", true},
      {8, 4, "12.5", false},
      {20, 4, "-1  ", false},
      {5, 6, "A50102", true},
      {5, 6, std::string(6, '\0'), true},
      {5, 6, "  0102", false},
      {74, 12, std::string(12, '\0'), true},
      {75, 12, std::string("\x01\x02\x03\x04", 4), true},
      {10, 10, std::string("ANULADO\0\0\0", 10), false},
      {10, 10, "ANULAD", true},
  };
  for (const Case& C : Cases) {
    EXPECT_EQ(Kept(C.Type, C.Length, C.First), C.Kept) << C.Type << " '" << C.First << "'";
  }
  for (int Type : {1, 2, 3, 4, 6, 7, 80, 85, 62}) {
    EXPECT_TRUE(Kept(Type, 4, std::string("\x01\n\0\x7F", 4))) << Type;
  }
}

}  // namespace
}  // namespace tqdb

#include "records/key_text.h"

#include <gtest/gtest.h>

#include <string>
#include <vector>

#include "platform/fault.h"
#include "support/table_writer.h"
#include "table/dictionary.h"

namespace tqdb {
namespace {

using testing::FieldSpec;
using testing::KeySpec;
using testing::SegmentSpec;
using testing::TableSpec;

TEST(KeyTextFromValuesTest, JoinsTextsAndStoresDates) {
  EXPECT_EQ(KeyTextFromValues({Variant("GARCIA"), Variant("0001")}), "GARCIA0001");
  EXPECT_EQ(KeyTextFromValues({Variant(int32_t{42}), Variant(1.5)}), "421.5");
  EXPECT_EQ(KeyTextFromValues({Variant(Date{2003, 2, 1})}), "A30201");
  EXPECT_EQ(KeyTextFromValues({Variant(Date{1999, 12, 31}), Variant("X")}), "991231X");
  EXPECT_EQ(KeyTextFromValues({Variant(Date{1803, 2, 1})}), "");
  // A text that looks like a date is not a date value.
  EXPECT_EQ(KeyTextFromValues({Variant("05/03/59")}), "05/03/59");
  // Text leaves as Windows-1252.
  EXPECT_EQ(KeyTextFromValues({Variant("MUÑOZ")}), "MU\xD1OZ");
  EXPECT_EQ(KeyTextFromValues({}), "");
}

TableSpec People() {
  TableSpec T;
  T.Fields = {FieldSpec{"CODIGO", 10, 6}, FieldSpec{"NOMBRE", 10, 10}, FieldSpec{"EDAD", 1, 0},
              FieldSpec{"ALTA", 5, 6}};
  T.Keys = {KeySpec{{SegmentSpec{1, 1, 6}}}, KeySpec{{SegmentSpec{2, 1, 4}, SegmentSpec{1, 3, 4}}},
            KeySpec{{SegmentSpec{3, 1, 2}, SegmentSpec{4, 1, 6}}}};
  return T;
}

TEST(KeyTextFromRecordTest, ConcatenatesSegmentsFromTheRawRecord) {
  const TableSpec T = People();
  const Dictionary D = ParseDictionary(testing::DictionaryBytes(T));
  const std::string Record = testing::RecordBytes(T, {"c00042", "mu\xF1oz", 258, "A30201"});
  EXPECT_EQ(KeyTextFromRecord(D, 1, Record, false), "c00042");
  EXPECT_EQ(KeyTextFromRecord(D, 1, Record, true), "C00042");
  EXPECT_EQ(KeyTextFromRecord(D, 2, Record, true), "MU\xD1O0042");
  // Over a binary field the key holds the field's stored bytes.
  EXPECT_EQ(KeyTextFromRecord(D, 3, Record, true), std::string("\x02\x01", 2) + "A30201");
  EXPECT_EQ(KeyTextFromRecord(D, 4, Record, true), "");  // an undefined key
  EXPECT_THROW(KeyTextFromRecord(D, 11, Record, true), platform::Fault);
  EXPECT_THROW(KeyTextFromRecord(D, 0, Record, true), platform::Fault);
}

TEST(KeyTextFromRecordTest, ShortRecordReadsAsBlanksAndTableStateAgrees) {
  const TableSpec T = People();
  const Dictionary D = ParseDictionary(testing::DictionaryBytes(T));
  EXPECT_EQ(KeyTextFromRecord(D, 2, "c0004", false), "    004 ");
  TableState State;
  ApplyDictionary(State, D);
  const std::string Record = testing::RecordBytes(T, {"c00042", "Ana", 1, "991231"});
  for (int16_t K = 1; K <= 3; ++K) {
    EXPECT_EQ(KeyTextFromRecord(State, K, Record, true), KeyTextFromRecord(D, K, Record, true));
  }
}

}  // namespace
}  // namespace tqdb

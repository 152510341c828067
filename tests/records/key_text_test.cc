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

// Key texts are checked against independently built ones in create_key_file_test, and
// through seeks on dates and binary fields in seek_test; here are the edges.
TEST(KeyTextFromValuesTest, JoinsTextsAndStoresDates) {
  EXPECT_EQ(KeyTextFromValues({Variant(int32_t{42}), Variant(1.5)}), "421.5");
  EXPECT_EQ(KeyTextFromValues({Variant(Date{1999, 12, 31}), Variant("MUÑOZ")}), "991231MU\xD1OZ");
  EXPECT_EQ(KeyTextFromValues({Variant(Date{1803, 2, 1})}), "");  // outside the stored range
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

TEST(KeyTextFromRecordTest, ShortRecordsReadAsBlanksAndBadKeysAreFaults) {
  const TableSpec T = People();
  const Dictionary D = ParseDictionary(testing::DictionaryBytes(T));
  EXPECT_EQ(KeyTextFromRecord(D, 2, "c0004", false), "    004 ");
  const std::string Record = testing::RecordBytes(T, {"c00042", "mu\xF1oz", 258, "A30201"});
  EXPECT_EQ(KeyTextFromRecord(D, 2, Record, true), "MU\xD1O0042");
  EXPECT_EQ(KeyTextFromRecord(D, 4, Record, true), "");  // an undefined key
  EXPECT_THROW(KeyTextFromRecord(D, 11, Record, true), platform::Fault);
  EXPECT_THROW(KeyTextFromRecord(D, 0, Record, true), platform::Fault);
}

}  // namespace
}  // namespace tqdb

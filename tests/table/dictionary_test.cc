#include "table/dictionary.h"

#include <gtest/gtest.h>

#include <string>
#include <vector>

#include "platform/fault.h"
#include "support/table_writer.h"
#include "table/TQFile.h"

namespace tqdb {
namespace {

using platform::Fault;
using testing::DictionaryBytes;
using testing::TableSpec;

// A customer table: code, name, date, balance, counter, photo; explicit field ids.
TableSpec Customers() {
  return {"Clientes",
          {{"CODIGO", 10, 6, 7},
           {"nombre ", 10, 30, 2},
           {"FECHA", 5, 6, 3},
           {"SALDO", 3, 0, 4},
           {"VISITAS", 1, 0, 5},
           {"FOTO", 62, 0, 6}},
          {{{{1, 1, 6}}}, {{{2, 1, 10}, {1, 3, 4}}}}};
}

int FaultNumberOf(std::string_view Bytes) {
  try {
    ParseDictionary(Bytes);
  } catch (const Fault& F) {
    return F.Number();
  }
  return 0;
}

// Replaces the 33-character record Slot of a dictionary text.
std::string WithRecord(std::string Bytes, int Slot, const std::string& Record) {
  return Bytes.replace(static_cast<size_t>(33 * Slot), 33, Record);
}

TEST(DictionaryTest, ReadsFieldsWidthsOffsetsKeysAndLengths) {
  const Dictionary D = ParseDictionary(DictionaryBytes(Customers()));
  ASSERT_EQ(D.NumFields, 6);
  EXPECT_EQ(D.FieldNames[2], "NOMBRE");
  EXPECT_EQ(D.FieldWidth, (std::vector<int16_t>{0, 6, 30, 6, 8, 2, 4}));
  EXPECT_EQ(D.FieldOffset, (std::vector<int16_t>{0, 0, 6, 36, 42, 50, 52, 57}));
  EXPECT_EQ(D.RecordLength, 56);
  EXPECT_EQ(D.FieldById[7], 1);
  EXPECT_TRUE(D.HasImageField());
  // Start 3, length 4 adds only 2 to KeyLength; the key text has 10 + 4 characters.
  EXPECT_EQ(D.KeyLength[2], 12);
  EXPECT_EQ(KeyShape(D), "2/14");
  EXPECT_EQ(D.FieldKeyNo[2], 2);
  EXPECT_EQ(KeyShape(ParseDictionary(DictionaryBytes(TableSpec{}))), "0/0");  // no fields
  EXPECT_EQ(ParseDictionary("").NumFields, 0);
  // A key segment by field id, a lower-case mark, key ":" (10); slot 31 is not read.
  TableSpec T = Customers();
  T.Keys = {{{{2, 1, 5, /*ById=*/true}}}};
  const std::string Key10 = "i:000103" + std::string(23, ' ') + "07";
  const Dictionary E = ParseDictionary(WithRecord(DictionaryBytes(T), 8, Key10) + Key10);
  EXPECT_EQ(E.KeySegField[1][1], 2);
  EXPECT_EQ(E.KeyCount, 10);
  EXPECT_EQ(E.KeySegField[10][1], 1);
  EXPECT_EQ(E.KeySegLength[10][1], 3);
  EXPECT_EQ(KeyShape(E), "10/5");
  T.Keys.clear();
  EXPECT_EQ(ParseDictionary(DictionaryBytes(T) + Key10).KeyCount, 0);
}

TEST(DictionaryTest, RejectsWhatCannotDescribeATable) {
  const std::string Good = DictionaryBytes(Customers());
  const std::string Pad(23, ' ');
  // Key 0, key 11, field 7 of 6, start 0, length 0, past the record, no field id 9, id 0.
  for (const std::string Head : {"I0010106  07", "I;010106  07", "I1070106  07", "I1010007  07",
                                 "I1010100  07", "I1060204  07", "I1000106  09", "I1000106    "}) {
    const std::string Record = Head.substr(0, 8) + Pad + Head.substr(10);
    EXPECT_EQ(FaultNumberOf(WithRecord(Good, 7, Record)), 9) << Head;
  }
  try {
    ParseDictionary(WithRecord(Good, 7, "I0010106" + Pad + "07"));
  } catch (const Fault& F) {
    EXPECT_NE(F.Description().find("clave 0"), std::string::npos) << F.Description();
  }
  TableSpec T = Customers();
  T.Keys = {{std::vector<testing::SegmentSpec>(5, {2, 1, 2})}};
  EXPECT_EQ(FaultNumberOf(DictionaryBytes(T)), 0);
  T.Keys[0].Segments.push_back({1, 1, 1});  // a sixth segment
  EXPECT_EQ(FaultNumberOf(DictionaryBytes(T)), 9);
  TableSpec Wide{"", {{"A", 10, 200, 1}, {"B", 10, 200, 2}}, {{{{1, 1, 200}, {2, 1, 55}}}}};
  EXPECT_EQ(FaultNumberOf(DictionaryBytes(Wide)), 0);
  Wide.Keys[0].Segments[1].Length = 56;  // a key of 256 characters
  EXPECT_EQ(FaultNumberOf(DictionaryBytes(Wide)), 9);
  EXPECT_EQ(FaultNumberOf("A0"), 9);  // 170 fields
  std::string NoId = Good;
  NoId.replace(33 + 31, 2, "  ");  // field 1 without an id
  EXPECT_EQ(FaultNumberOf(NoId), 9);
  TableSpec Long;
  for (int i = 1; i <= 15; ++i) Long.Fields.push_back({"F", 10, 2277, i});
  EXPECT_EQ(FaultNumberOf(DictionaryBytes(Long)), 6);
  Long.Fields.resize(14);  // 14 * 2277 = 31878 bytes still fit
  EXPECT_EQ(FaultNumberOf(DictionaryBytes(Long)), 0);
  Long.Fields.assign(99, {"F", 10, 1});  // 99 fields, the most there may be
  EXPECT_EQ(FaultNumberOf(DictionaryBytes(Long)), 0);
}

}  // namespace
}  // namespace tqdb

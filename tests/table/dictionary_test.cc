#include "table/dictionary.h"

#include <gtest/gtest.h>

#include <random>
#include <string>
#include <vector>

#include "platform/fault.h"
#include "platform/file_pool.h"
#include "support/table_writer.h"
#include "support/temp_dir.h"
#include "table/TQFile.h"

namespace tqdb {
namespace {

using platform::Fault;
using testing::DictionaryBytes;
using testing::FieldSpec;
using testing::KeySpec;
using testing::SegmentSpec;
using testing::TableSpec;

// A customer table: code, name, date, balance, counter, notes.
TableSpec Customers() {
  TableSpec T;
  T.Description = "Clientes";
  T.Fields = {FieldSpec{"CODIGO", 10, 6, 7}, FieldSpec{"nombre ", 10, 30, 2},
              FieldSpec{"FECHA", 5, 6, 3},   FieldSpec{"SALDO", 3, 0, 4},
              FieldSpec{"VISITAS", 1, 0, 5}, FieldSpec{"FOTO", 62, 0, 6}};
  T.Keys = {KeySpec{{SegmentSpec{1, 1, 6}}},
            KeySpec{{SegmentSpec{2, 1, 10}, SegmentSpec{1, 3, 4}}}};
  return T;
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
  Bytes.replace(static_cast<size_t>(33 * Slot), 33, Record);
  return Bytes;
}

TEST(TwoDigitsTest, ReadsDigitsBlanksAndCharactersAboveNine) {
  const std::pair<std::string, int> Cases[] = {
      {" 7", 7}, {"7 ", 7}, {"  ", 0}, {"45", 45}, {"A0", 170}, {"", 0}, {"\xff\xff", 2277}};
  for (const auto& [Text, Value] : Cases) EXPECT_EQ(TwoDigits(Text), Value) << Text;
  EXPECT_EQ(StorageWidth(1, 30), 2);
  for (int16_t T : {2, 4, 6, 62}) EXPECT_EQ(StorageWidth(T, 30), 4) << T;
  for (int16_t T : {3, 7, 80, 85}) EXPECT_EQ(StorageWidth(T, 30), 8) << T;
  EXPECT_EQ(StorageWidth(5, 30), 6);
  EXPECT_EQ(StorageWidth(86, 30), 30);
}

TEST(ParseDictionaryTest, ReadsFieldsWidthsOffsetsKeysAndLengths) {
  const Dictionary D = ParseDictionary(DictionaryBytes(Customers()));
  ASSERT_EQ(D.NumFields, 6);
  EXPECT_EQ(D.TableDescripcion, "Clientes");
  EXPECT_EQ(D.FieldNames[2], "NOMBRE");
  EXPECT_EQ(D.FieldWidth, (std::vector<int16_t>{0, 6, 30, 6, 8, 2, 4}));
  EXPECT_EQ(D.FieldOffset, (std::vector<int16_t>{0, 0, 6, 36, 42, 50, 52, 57}));
  EXPECT_EQ(D.RecordLength, 56);
  EXPECT_EQ(D.FieldById[7], 1);
  EXPECT_TRUE(D.HasImageField());
  EXPECT_EQ(D.KeyCount, 2);
  EXPECT_EQ(D.KeySegCount[2], 2);
  // Start 3, length 4 adds only 2 to KeyLength; the key text has 10 + 4 characters.
  EXPECT_EQ(D.KeyLength[2], 12);
  EXPECT_EQ(D.KeyTextLength(2), 14);
  EXPECT_EQ(KeyShape(D), "2/14");
  EXPECT_FALSE(D.FieldInKey[3]);
  EXPECT_EQ(D.FieldKeyNo[1], 1);  // first segment of key 1
  EXPECT_EQ(D.FieldKeyNo[2], 2);

  TableSpec Empty;  // a field count of 0: an empty table
  const Dictionary E = ParseDictionary(DictionaryBytes(Empty));
  EXPECT_EQ(E.NumFields, 0);
  EXPECT_EQ(KeyShape(E), "0/0");
  EXPECT_EQ(ParseDictionary("").NumFields, 0);
}

TEST(ParseDictionaryTest, KeyRecordByFieldIdLowerCaseMarkAndKeyTen) {
  TableSpec T = Customers();
  T.Keys = {KeySpec{{SegmentSpec{2, 1, 5, /*ById=*/true}}}};
  std::string Bytes = DictionaryBytes(T);
  // Record 8 is the second key slot: key ":" (10), lower-case mark, field by id 7.
  Bytes = WithRecord(Bytes, 8, "i:000103" + std::string(23, ' ') + "07");
  const Dictionary D = ParseDictionary(Bytes);
  EXPECT_EQ(D.KeySegField[1][1], 2);
  EXPECT_EQ(D.KeyCount, 10);
  EXPECT_EQ(D.KeySegField[10][1], 1);
  EXPECT_EQ(D.KeySegLength[10][1], 3);
  EXPECT_EQ(KeyShape(D), "10/5");
}

TEST(ParseDictionaryTest, OnlyTheThirtySlotsAfterTheFieldsAreKeyRecords) {
  TableSpec T = Customers();
  T.Keys.clear();
  std::string Bytes = DictionaryBytes(T);
  Bytes += "I1010106" + std::string(23, ' ') + "07";  // slot 31: not read
  EXPECT_EQ(ParseDictionary(Bytes).KeyCount, 0);
}

TEST(ParseDictionaryTest, RejectsBrokenKeyRecords) {
  const std::string Good = DictionaryBytes(Customers());
  const std::string Pad(23, ' ');
  // Key 0, key 11, field 7 of 6, start 0, length 0, past the record.
  for (const char* Head :
       {"I0010106", "I;010106", "I1070106", "I1010007", "I1010100", "I1060204"}) {
    EXPECT_EQ(FaultNumberOf(WithRecord(Good, 7, Head + Pad + "07")), 9) << Head;
  }
  EXPECT_EQ(FaultNumberOf(WithRecord(Good, 7, "I1000106" + Pad + "09")), 9);  // no field id 9
  EXPECT_EQ(FaultNumberOf(WithRecord(Good, 7, "I1000106" + Pad + "  ")), 9);  // id 0
  try {
    ParseDictionary(WithRecord(Good, 7, "I0010106" + Pad + "07"));
  } catch (const Fault& F) {
    EXPECT_NE(F.Description().find("clave 0"), std::string::npos) << F.Description();
  }
}

TEST(ParseDictionaryTest, RejectsASixthSegmentAndOverlongKeys) {
  TableSpec T = Customers();
  T.Keys = {KeySpec{std::vector<SegmentSpec>(5, SegmentSpec{2, 1, 2})}};
  EXPECT_EQ(FaultNumberOf(DictionaryBytes(T)), 0);
  T.Keys[0].Segments.push_back(SegmentSpec{1, 1, 1});
  EXPECT_EQ(FaultNumberOf(DictionaryBytes(T)), 9);

  TableSpec Wide;
  Wide.Fields = {FieldSpec{"A", 10, 200, 1}, FieldSpec{"B", 10, 200, 2}};
  Wide.Keys = {KeySpec{{SegmentSpec{1, 1, 200}, SegmentSpec{2, 1, 55}}}};
  EXPECT_EQ(FaultNumberOf(DictionaryBytes(Wide)), 0);
  Wide.Keys[0].Segments[1].Length = 56;
  EXPECT_EQ(FaultNumberOf(DictionaryBytes(Wide)), 9);
}

TEST(ParseDictionaryTest, RejectsBadCountsIdsAndOverlongRecords) {
  EXPECT_EQ(FaultNumberOf("A0"), 9);  // 170 fields
  TableSpec T = Customers();
  T.Fields[0].Id = 0;
  std::string Bytes = DictionaryBytes(T);
  Bytes.replace(33 + 31, 2, "  ");  // field 1 without an id
  EXPECT_EQ(FaultNumberOf(Bytes), 9);

  TableSpec Long;
  for (int i = 1; i <= 15; ++i) Long.Fields.push_back(FieldSpec{"F", 10, 2277, i});
  EXPECT_EQ(FaultNumberOf(DictionaryBytes(Long)), 6);
  Long.Fields.resize(14);  // 14 * 2277 = 31878 bytes still fit
  EXPECT_EQ(FaultNumberOf(DictionaryBytes(Long)), 0);
}

TEST(ParseDictionaryTest, RandomBytesNeverBreakTheParser) {
  std::mt19937 Random(12345);
  const std::string Base = DictionaryBytes(Customers());
  for (int Round = 0; Round < 3000; ++Round) {
    std::string Bytes;
    if (Round % 2 == 0) {
      Bytes.resize(Random() % 4500);
      for (char& C : Bytes) C = static_cast<char>(Random() % 256);
      if (Bytes.size() >= 2 && Round % 4 == 0)
        Bytes.replace(0, 2, "0" + std::to_string(Round % 10));
    } else {
      Bytes = Base;  // a valid dictionary with a few bytes changed
      for (int i = 0; i < 4; ++i)
        Bytes[Random() % Bytes.size()] = static_cast<char>(Random() % 256);
    }
    try {
      const Dictionary D = ParseDictionary(Bytes);
      for (int K = 1; K <= D.KeyCount; ++K) {
        for (int S = 1; S <= D.KeySegCount[K]; ++S) {
          const int F = D.KeySegField[K][S];
          ASSERT_GE(F, 1);
          ASSERT_LE(F, D.NumFields);
          ASSERT_LE(D.FieldOffset[F] + D.KeySegStart[K][S] - 1 + D.KeySegLength[K][S],
                    D.RecordLength);
        }
        ASSERT_LE(D.KeyTextLength(K), 255);
      }
    } catch (const Fault& F) {
      ASSERT_TRUE(F.Number() == 9 || F.Number() == 6) << F.Number();
    }
  }
}

TEST(LoadDictionaryTest, FillsTheTableStateOrLeavesItAlone) {
  testing::TempDir Dir;
  testing::WriteDictionary(Dir.Dir(), "CLIEN", Customers());
  std::string Bytes = DictionaryBytes(Customers());
  Bytes.replace(33 * 7, 2, "I0");
  Dir.Write("MALAS.tqa", Bytes);
  TableState State;
  State.DictionaryDir = Dir.Path();  // no trailing separator
  LoadDictionary(State, "CLIEN");
  EXPECT_EQ(State.DictionaryDir, Dir.Path() + "/");  // as Linux writes it
  EXPECT_EQ(State.TableName, "CLIEN");
  EXPECT_EQ(State.TableDescripcion, "Clientes");
  EXPECT_EQ(State.RecordLength, 56);
  ASSERT_EQ(State.FieldBuffer.size(), 7u);
  EXPECT_EQ(State.FieldBuffer[2], std::string(30, ' '));
  EXPECT_EQ(State.FieldChanged.size(), 7u);
  EXPECT_EQ(KeyShape(State), "2/14");
  EXPECT_TRUE(State.DataFileOpen);
  EXPECT_GT(State.DataFileNo, 0);
  EXPECT_FALSE(platform::IsOpen(State.DataFileNo));
  try {
    LoadDictionary(State, "MALAS");
    FAIL() << "no fault";
  } catch (const Fault& F) {
    EXPECT_EQ(F.Number(), 9);
  }
  EXPECT_EQ(State.NumFields, 6);
  EXPECT_EQ(State.KeyCount, 2);
}

}  // namespace
}  // namespace tqdb

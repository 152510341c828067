#include "records/record_codecs.h"

#include <gtest/gtest.h>

#include <cstring>
#include <functional>
#include <limits>
#include <string>
#include <vector>

#include "platform/fault.h"
#include "platform/file_pool.h"
#include "support/direct_table.h"
#include "support/temp_dir.h"
#include "table/dictionary.h"

namespace tqdb {
namespace {

using platform::Fault;
using testing::FieldSpec;
using testing::RecordBytes;
using testing::TableSpec;

// Offsets: CODIGO 0, NOMBRE 6, FECHA 16, SALDO 22, VISITAS 30, PUNTOS 32, PESO 36;
// record length 40.
TableSpec Accounts() {
  TableSpec T;
  T.Description = "Cuentas";
  T.Fields = {FieldSpec{"CODIGO", 10, 6}, FieldSpec{"NOMBRE", 10, 10}, FieldSpec{"FECHA", 5, 6},
              FieldSpec{"SALDO", 3, 0},   FieldSpec{"VISITAS", 1, 0},  FieldSpec{"PUNTOS", 4, 0},
              FieldSpec{"PESO", 2, 0}};
  T.Keys = {testing::KeySpec{{testing::SegmentSpec{1, 1, 6}}}};
  return T;
}

std::vector<std::string> ThreeRecords(const TableSpec& T) {
  // Texts are Windows-1252 bytes, as the file holds them.
  return {RecordBytes(T, {"C00001",
                          "Garc\xED"
                          "a",
                          "991231", -12.5, -3, 70000, 1.5}),
          RecordBytes(T, {"C00002", "mu\xF1oz", "A50102", 0.25, 32767, -1, -2.25}),
          RecordBytes(T, {"C00003", "P\xE9rez Gald\xF3s", "000000", 1e300, 0, 0, 0})};
}

class RecordCodecsTest : public ::testing::Test {
 protected:
  testing::TempDir Dir;
  TableSpec Spec = Accounts();
  testing::DirectTable Table{Dir, "CUENT", Spec, ThreeRecords(Spec)};
  TableState& State = Table.State;

  std::string FileBytes() const { return Dir.Read("CUENT01.tqd"); }
};

// The fault a call raises, as (number, source); (0, "") when it raises none.
template <typename F>
std::pair<int32_t, std::string> FaultOf(F&& Work) {
  try {
    Work();
  } catch (const Fault& Failure) {
    return {Failure.Number(), Failure.Source()};
  }
  return {0, ""};
}

// Each type's reading and writing is exercised through Fields, Update and AddToField on
// records written byte by byte; here are positions, PutIt, errors and locks.
TEST_F(RecordCodecsTest, PositionsFollowRecordNumberAndOffset) {
  EXPECT_EQ(RecordPosition(State, 2), 41);
  EXPECT_EQ(FieldPosition(State, 3, 2), 2 * 40 + 6 + 1);
  EXPECT_EQ(GetFullReg(State, 2, State.DataFileNo), ThreeRecords(Spec)[1]);
  EXPECT_EQ(GetField(State, 3, 2, false), "P\xE9rez Gald");  // cut to the width when written
  EXPECT_EQ(GetField(State, 2, 2, true), "MU\xD1OZ     ");   // upper-cased as Windows-1252
}

TEST_F(RecordCodecsTest, PutItWritesTheWholeRecordFromTheFieldBuffers) {
  // Each buffer is as wide as its field: 2 characters for an integer, 4 for a long.
  const std::vector<std::string> Texts = {"Z9", "Nombre", "A30201", "1.5", "-7", "12.5", "2.25"};
  for (int i = 1; i <= 7; ++i) {
    State.FieldBuffer[i].assign(State.FieldBuffer[i].size(), ' ');
    State.FieldBuffer[i].replace(0, Texts[i - 1].size(), Texts[i - 1]);
  }
  PutIt(State, 2);
  // Integers round halves to even: 12.5 gives 12.
  EXPECT_EQ(FileBytes().substr(40, 40),
            RecordBytes(Spec, {"Z9", "Nombre", "A30201", 1.5, -7, 12, 2.25}));
}

TEST_F(RecordCodecsTest, PutItOverflowKeepsTheFieldsBeforeIt) {
  State.FieldBuffer[1] = "NUEVO ";
  State.FieldBuffer[5] = "99999";  // does not fit 16 bits
  const auto [Number, Source] = FaultOf([&] { PutIt(State, 1); });
  EXPECT_EQ(Number, 6);
  EXPECT_EQ(Source, "Put It");
  EXPECT_EQ(GetField(State, 1, 1, false), "NUEVO ");
  EXPECT_EQ(GetInteger(State, 1, 5), -3);  // not reached
}

TEST_F(RecordCodecsTest, ErrorsCarryTheRoutinesNameAndPositionsNeverWrap) {
  const std::vector<std::pair<std::string, std::function<void()>>> BadField = {
      {"GetInteger", [&] { GetInteger(State, 1, 0); }},
      {"GetLong", [&] { GetLong(State, 1, 8); }},
      {"GetField", [&] { GetField(State, 1, 8, false); }},
      {"PutField", [&] { PutField(State, 1, 9, "x"); }},
      {"PutDouble", [&] { PutDouble(State, 1, 9, 1); }},
      {"LockField", [&] { LockField(State, 1, 9, 0); }},
      {"unLockField", [&] { unLockField(State, 1, 9, 0); }}};
  for (const auto& [Routine, Call] : BadField) {
    EXPECT_EQ(FaultOf(Call), std::make_pair(9, Routine));
  }
  const int32_t Huge = std::numeric_limits<int32_t>::max();
  EXPECT_EQ(FaultOf([&] { GetDouble(State, Huge, 4); }),
            std::make_pair(6, std::string("GetDouble")));
  EXPECT_EQ(FaultOf([&] { GetFullReg(State, Huge, State.DataFileNo); }).first, 6);
  EXPECT_EQ(FaultOf([&] { MarkDeleted(State, std::numeric_limits<int32_t>::min()); }).first, 6);
  EXPECT_EQ(FaultOf([&] { PutIt(State, Huge); }), std::make_pair(6, std::string("Put It")));
  // A record before the first is a bad record number from the file layer.
  EXPECT_EQ(FaultOf([&] { GetInteger(State, 0, 5); }).first, 63);
  platform::Close(State.DataFileNo);  // record 0 is deleted without reading
  EXPECT_TRUE(IsAnulado(State, 0));
  EXPECT_EQ(FaultOf([&] { IsAnulado(State, 1); }).second, "IsAnulado");
}

std::pair<int64_t, int64_t> Range(int64_t First, int64_t Last) { return {First, Last}; }

TEST_F(RecordCodecsTest, LockRangesCoverExactlyTheFields) {
  EXPECT_EQ(FieldLockRange(State, 2, 0, 0), Range(41, 80));
  EXPECT_EQ(FieldLockRange(State, 2, 3, 0), Range(57, 62));
  EXPECT_EQ(FieldLockRange(State, 1, 2, 4), Range(7, 30));
  EXPECT_EQ(FieldLockRange(State, 3, 7, 7), Range(117, 120));
}

TEST_F(RecordCodecsTest, LocksExcludeOtherTablesButNotNeighbouringRecords) {
  TableState Other;
  Other.DictionaryDir = Dir.Dir();
  LoadDictionary(Other, "CUENT");
  platform::Open(Other.DataFileNo, Dir.File("CUENT01.tqd"));

  LockField(State, 2, 0, 0);
  EXPECT_EQ(FaultOf([&] { LockField(Other, 2, 3, 0); }),
            std::make_pair(70, std::string("LockField")));
  LockField(Other, 1, 0, 0);  // the last byte of record 1 is not record 2's
  LockField(Other, 3, 0, 0);
  unLockField(State, 2, 0, 0);
  LockField(Other, 2, 3, 0);
  unLockField(Other, 2, 3, 0);
  unLockField(Other, 1, 0, 0);
  unLockField(Other, 3, 0, 0);
}

TEST(EncodeBinaryFieldTest, EncodesByTypeAndChecksTheRange) {
  for (int16_t Type : {1, 85}) EXPECT_TRUE(IsBinaryType(Type));
  for (int16_t Type : {5, 62}) EXPECT_FALSE(IsBinaryType(Type));
  EXPECT_EQ(EncodeBinaryField(1, 258.5), std::string("\x02\x01", 2));  // 258 (half to even)
  EXPECT_EQ(EncodeBinaryField(4, -2), std::string("\xFE\xFF\xFF\xFF", 4));
  const std::string Single = EncodeBinaryField(6, 1.5);
  float F = 0;
  ASSERT_EQ(Single.size(), 4u);
  std::memcpy(&F, Single.data(), 4);
  EXPECT_EQ(F, 1.5f);
  EXPECT_EQ(EncodeBinaryField(80, 1.0).size(), 8u);
  EXPECT_EQ(EncodeBinaryField(10, 1.0), "");
  EXPECT_THROW(EncodeBinaryField(1, 40000), Fault);
  EXPECT_THROW(EncodeBinaryField(4, 3e9), Fault);
}

}  // namespace
}  // namespace tqdb

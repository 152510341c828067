#include "records/record_codecs.h"

#include <gtest/gtest.h>

#include <cstring>
#include <limits>
#include <string>
#include <vector>

#include "platform/fault.h"
#include "platform/file_pool.h"
#include "support/table_writer.h"
#include "support/temp_dir.h"
#include "table/dictionary.h"

namespace tqdb {
namespace {

using platform::Fault;
using testing::FieldSpec;
using testing::RecordBytes;
using testing::TableSpec;
using testing::Value;

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

// An open table over a data file written by the test.
class TableFile {
 public:
  TableFile(const testing::TempDir& Dir, const TableSpec& Spec,
            const std::vector<std::string>& Records) {
    testing::WriteDictionary(Dir.Dir(), "CUENT", Spec);
    Path = testing::WriteDataFile(Dir.File("CUENT01.tqd"), Records);
    State.DictionaryDir = Dir.Dir();
    LoadDictionary(State, "CUENT");
    platform::Open(State.DataFileNo, Path);
  }
  TableState State;
  std::string Path;
};

class RecordCodecsTest : public ::testing::Test {
 protected:
  testing::TempDir Dir;
  TableSpec Spec = Accounts();
  TableFile Table{Dir, Spec, ThreeRecords(Spec)};
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

TEST_F(RecordCodecsTest, PositionsFollowRecordNumberAndOffset) {
  EXPECT_EQ(State.RecordLength, 40);
  EXPECT_EQ(RecordPosition(State, 1), 1);
  EXPECT_EQ(RecordPosition(State, 2), 41);
  EXPECT_EQ(FieldPosition(State, 3, 2), 2 * 40 + 6 + 1);
  EXPECT_EQ(GetFullReg(State, 2, State.DataFileNo), ThreeRecords(Spec)[1]);
}

TEST_F(RecordCodecsTest, ReadsEveryBinaryType) {
  EXPECT_EQ(GetDouble(State, 1, 4), -12.5);
  EXPECT_EQ(GetInteger(State, 1, 5), -3);
  EXPECT_EQ(GetLong(State, 1, 6), 70000);
  EXPECT_EQ(GetSingle(State, 1, 7), 1.5f);
  EXPECT_EQ(GetInteger(State, 2, 5), 32767);
  EXPECT_EQ(GetLong(State, 2, 6), -1);
  EXPECT_EQ(GetDouble(State, 3, 4), 1e300);
  State.AbsMode = true;
  EXPECT_EQ(GetDouble(State, 1, 4), 12.5);
}

TEST_F(RecordCodecsTest, ReadsTextWithPaddingAndUpperCase) {
  EXPECT_EQ(GetField(State, 1, 2, false),
            "Garc\xED"
            "a    ");
  EXPECT_EQ(GetField(State, 1, 3, false), "991231");
  EXPECT_EQ(GetField(State, 3, 2, false), "P\xE9rez Gald");  // cut to the width when written
  // Upper-casing works on Windows-1252 characters.
  EXPECT_EQ(GetField(State, 2, 2, true), "MU\xD1OZ     ");
  EXPECT_EQ(GetField(State, 2, 2, false), "mu\xF1oz     ");
}

TEST_F(RecordCodecsTest, PutFieldCutsAndPadsThroughTheFieldBuffer) {
  PutField(State, 3, 2, "ABCDEFGHIJKLMNOP");
  EXPECT_EQ(GetField(State, 3, 2, false), "ABCDEFGHIJ");
  PutField(State, 3, 2, "XY");
  EXPECT_EQ(GetField(State, 3, 2, false), "XY        ");
  EXPECT_EQ(State.FieldBuffer[2], "XY        ");
  // Neighbouring fields are untouched.
  EXPECT_EQ(GetField(State, 3, 1, false), "C00003");
  EXPECT_EQ(GetField(State, 3, 3, false), "000000");
}

TEST_F(RecordCodecsTest, PutsEveryBinaryTypeAtItsPlace) {
  PutInteger(State, 2, 5, -32768);
  PutLong(State, 2, 6, std::numeric_limits<int32_t>::min());
  PutSingle(State, 2, 7, 0.1f);
  PutDouble(State, 2, 4, -0.0625);
  EXPECT_EQ(GetInteger(State, 2, 5), -32768);
  EXPECT_EQ(GetLong(State, 2, 6), std::numeric_limits<int32_t>::min());
  EXPECT_EQ(GetSingle(State, 2, 7), 0.1f);
  EXPECT_EQ(GetDouble(State, 2, 4), -0.0625);
  const std::string Bytes = FileBytes();
  EXPECT_EQ(Bytes.substr(40 + 30, 2), std::string("\x00\x80", 2));  // little-endian
  EXPECT_EQ(Bytes.substr(0, 40), ThreeRecords(Spec)[0]);
  EXPECT_EQ(Bytes.substr(80, 40), ThreeRecords(Spec)[2]);
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

TEST_F(RecordCodecsTest, DeletionMarkAndIsAnulado) {
  EXPECT_FALSE(IsAnulado(State, 2));
  MarkDeleted(State, 2);
  const std::string Bytes = FileBytes();
  EXPECT_EQ(Bytes.substr(40, 40), "ANULADO" + std::string(33, '\0'));
  EXPECT_EQ(Bytes.substr(0, 40), ThreeRecords(Spec)[0]);
  EXPECT_EQ(Bytes.substr(80, 40), ThreeRecords(Spec)[2]);
  EXPECT_TRUE(IsAnulado(State, 2));
  EXPECT_FALSE(IsAnulado(State, 3));
}

TEST_F(RecordCodecsTest, RecordZeroIsDeletedWithoutReading) {
  platform::Close(State.DataFileNo);
  EXPECT_TRUE(IsAnulado(State, 0));
  EXPECT_EQ(FaultOf([&] { IsAnulado(State, 1); }).second, "IsAnulado");
}

TEST_F(RecordCodecsTest, ErrorsCarryTheRoutinesName) {
  EXPECT_EQ(FaultOf([&] { GetInteger(State, 1, 0); }),
            std::make_pair(9, std::string("GetInteger")));
  EXPECT_EQ(FaultOf([&] { GetLong(State, 1, 8); }), std::make_pair(9, std::string("GetLong")));
  EXPECT_EQ(FaultOf([&] { GetSingle(State, 1, -1); }), std::make_pair(9, std::string("GetSingle")));
  EXPECT_EQ(FaultOf([&] { GetField(State, 1, 8, false); }).second, "GetField");
  EXPECT_EQ(FaultOf([&] { PutField(State, 1, 9, "x"); }).second, "PutField");
  EXPECT_EQ(FaultOf([&] { PutInteger(State, 1, 9, 1); }).second, "PutInteger");
  EXPECT_EQ(FaultOf([&] { PutLong(State, 1, 9, 1); }).second, "PutLong");
  EXPECT_EQ(FaultOf([&] { PutSingle(State, 1, 9, 1); }).second, "PutSingle");
  EXPECT_EQ(FaultOf([&] { PutDouble(State, 1, 9, 1); }).second, "PutDouble");
  EXPECT_EQ(FaultOf([&] { LockField(State, 1, 9, 0); }).second, "LockField");
  EXPECT_EQ(FaultOf([&] { unLockField(State, 1, 9, 0); }).second, "unLockField");
  // A position beyond the 32-bit range is an overflow, never a wrap-around.
  const int32_t Huge = std::numeric_limits<int32_t>::max();
  EXPECT_EQ(FaultOf([&] { GetDouble(State, Huge, 4); }),
            std::make_pair(6, std::string("GetDouble")));
  EXPECT_EQ(FaultOf([&] { GetFullReg(State, Huge, State.DataFileNo); }).first, 6);
  EXPECT_EQ(FaultOf([&] { MarkDeleted(State, std::numeric_limits<int32_t>::min()); }).first, 6);
  EXPECT_EQ(FaultOf([&] { PutIt(State, Huge); }), std::make_pair(6, std::string("Put It")));
  // A record before the first is a bad record number from the file layer.
  EXPECT_EQ(FaultOf([&] { GetInteger(State, 0, 5); }).first, 63);
}

std::pair<int64_t, int64_t> Range(int64_t First, int64_t Last) { return {First, Last}; }

TEST_F(RecordCodecsTest, LockRangesCoverExactlyTheFields) {
  EXPECT_EQ(FieldLockRange(State, 2, 0, 0), Range(41, 80));
  EXPECT_EQ(FieldLockRange(State, 2, 0, 5), Range(41, 80));
  EXPECT_EQ(FieldLockRange(State, 2, 3, 0), Range(57, 62));
  EXPECT_EQ(FieldLockRange(State, 1, 2, 4), Range(7, 30));
  EXPECT_EQ(FieldLockRange(State, 3, 7, 7), Range(117, 120));
}

TEST_F(RecordCodecsTest, LocksExcludeOtherTablesButNotNeighbouringRecords) {
  TableState Other;
  Other.DictionaryDir = Dir.Dir();
  LoadDictionary(Other, "CUENT");
  platform::Open(Other.DataFileNo, Table.Path);

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
  EXPECT_TRUE(IsBinaryType(1));
  EXPECT_TRUE(IsBinaryType(85));
  EXPECT_FALSE(IsBinaryType(5));
  EXPECT_FALSE(IsBinaryType(62));
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

// Building a key file from a dictionary and a data file written byte by byte, driven
// through the command channel as the open routine drives it.
#include "engine/create_key_file.h"

#include <gtest/gtest.h>

#include <algorithm>
#include <string>
#include <tuple>
#include <vector>

#include "engine/dispatcher.h"
#include "engine_fixture.h"
#include "platform/codepage.h"
#include "support/table_writer.h"
#include "support/temp_dir.h"
#include "table/dictionary.h"

namespace tqdb {
namespace {

using testing::CommandPath;
using testing::FieldSpec;
using testing::KeySpec;
using testing::SegmentSpec;
using testing::TableSpec;
using testing::Value;

// CODIGO 0..5, NOMBRE 6..17, CIUDAD 18..25, EDAD 26..27 (16-bit), SALDO 28..35.
TableSpec People() {
  TableSpec T;
  T.Description = "Personas";
  T.Fields = {FieldSpec{"CODIGO", 10, 6}, FieldSpec{"NOMBRE", 10, 12}, FieldSpec{"CIUDAD", 10, 8},
              FieldSpec{"EDAD", 1, 0}, FieldSpec{"SALDO", 3, 0}};
  T.Keys = {KeySpec{{SegmentSpec{1, 1, 6}}}, KeySpec{{SegmentSpec{2, 1, 12}, SegmentSpec{1, 3, 4}}},
            KeySpec{{SegmentSpec{3, 1, 8}}}, KeySpec{{SegmentSpec{4, 1, 2}, SegmentSpec{3, 1, 3}}}};
  return T;
}

struct Row {
  std::string Codigo, Nombre, Ciudad;
  int Edad = 0;
  bool Deleted = false;
};

std::string Fit(const std::string& Text, size_t Width) {
  std::string Out = Text.substr(0, std::min(Text.size(), Width));
  Out.resize(Width, ' ');
  return Out;
}

// The key texts of a row, built here from the row's values, not from its bytes.
std::vector<std::string> ExpectedKeys(const Row& R) {
  const std::string Edad{static_cast<char>(R.Edad & 0xFF), static_cast<char>(R.Edad >> 8)};
  const std::vector<std::string> Keys = {Fit(R.Codigo, 6),
                                         Fit(R.Nombre, 12) + Fit(R.Codigo, 6).substr(2, 4),
                                         Fit(R.Ciudad, 8), Edad + Fit(R.Ciudad, 8).substr(0, 3)};
  std::vector<std::string> Upper;
  for (const std::string& K : Keys) Upper.push_back(platform::UpperCase(K));
  return Upper;
}

std::vector<Row> MakeRows(int Count) {
  const char* Names[] = {"garcia", "Mu\xF1oz", "PEREZ", "lopez", "Martin", "\xE1lvarez"};
  const char* Cities[] = {"Madrid", "sevilla", "LEON", "\xC1vila"};
  std::vector<Row> Rows;
  for (int i = 1; i <= Count; ++i) {
    Row R;
    R.Codigo = "c" + std::to_string(100000 + (i * 7919) % 100000).substr(1);
    R.Nombre = Names[i % 6];
    R.Ciudad = Cities[(i / 3) % 4];
    R.Edad = (i * 37) % 300;
    R.Deleted = i % 7 == 3 || i == Count;
    Rows.push_back(R);
  }
  return Rows;
}

class CreateKeyFileTest : public ::testing::Test {
 protected:
  void WriteTable(const std::vector<Row>& Rows) {
    testing::WriteDictionary(Dir.Dir(), "PERSO", Spec);
    std::vector<std::string> Records;
    for (const Row& R : Rows) {
      Records.push_back(
          R.Deleted ? testing::DeletedRecordBytes(Spec)
                    : testing::RecordBytes(Spec, {R.Codigo, R.Nombre, R.Ciudad, R.Edad, 1.5}));
    }
    testing::WriteDataFile(Dir.File("PERSO01.tqd"), Records);
  }

  int16_t Send(std::string Command) {
    Status = 0;
    fabs_emulate(Engine, Command, Result, Status, ErrorText);
    return Status;
  }
  int16_t Create() {
    Send("T\\" + CommandPath(Dir.Dir()));
    return Send("/C/" + CommandPath(Dir.File("PERSO01.tqc")) + "/" + KeyShape(ParsedSpec()) +
                "/A/ 1");
  }
  Dictionary ParsedSpec() const { return ParseDictionary(testing::DictionaryBytes(Spec)); }

  // Record numbers of key K in key order, walked with F and N.
  std::vector<int32_t> Walk(int K) {
    std::vector<int32_t> Order;
    for (int16_t S = Send("F\\" + std::to_string(K) + "\\1"); S == 0; S = Send("N\\1")) {
      Order.push_back(Result);
    }
    EXPECT_TRUE(Status == 15 || Status == 16) << Status;
    return Order;
  }

  void TearDown() override { Send("K"); }

  testing::TempDir Dir;
  TableSpec Spec = People();
  EngineState Engine;
  int32_t Result = 0;
  int16_t Status = 0;
  std::string ErrorText;
};

// Record numbers of the live rows in the order of key K: key text by character, then
// record number.
std::vector<int32_t> ExpectedOrder(const std::vector<Row>& Rows, int K) {
  std::vector<std::pair<std::string, int32_t>> Expected;
  for (size_t i = 0; i < Rows.size(); ++i) {
    if (!Rows[i].Deleted) {
      Expected.emplace_back(ExpectedKeys(Rows[i])[K - 1], static_cast<int32_t>(i + 1));
    }
  }
  std::sort(Expected.begin(), Expected.end(), [](const auto& A, const auto& B) {
    const int Order = platform::CompareText(A.first, B.first);
    return Order != 0 ? Order < 0 : A.second < B.second;
  });
  std::vector<int32_t> Numbers;
  for (const auto& E : Expected) Numbers.push_back(E.second);
  return Numbers;
}

// Progress every 100 records. 36-byte records: 910 fit in one 32768-byte chunk, so 3000
// records take four chunks, and key 2 (16 characters, 51 entries a node) grows three levels.
TEST_F(CreateKeyFileTest, EveryKeyWalksInKeyOrderThenRecordOrder) {
  for (const auto& [Count, Calls, Last] :
       std::vector<std::tuple<int, int, int32_t>>{{250, 2, 80}, {3000, 30, 100}}) {
    const std::vector<Row> Rows = MakeRows(Count);
    WriteTable(Rows);
    std::vector<int32_t> Progress;
    Engine.Progress = [&](int32_t P) { Progress.push_back(P); };
    ASSERT_EQ(Create(), 0) << ErrorText;
    EXPECT_EQ(Progress.size(), size_t(Calls)) << Count;
    EXPECT_EQ(Progress.back(), Last) << Count;
    EXPECT_EQ(Engine.Header.KeyCount, 4);
    EXPECT_EQ(Engine.Header.LastRecord, Count);
    for (int K = 1; K <= 4; ++K) EXPECT_EQ(Walk(K), ExpectedOrder(Rows, K)) << "key " << K;
  }
}

TEST_F(CreateKeyFileTest, DeletedRecordsComeBackLastInFirstOut) {
  const std::vector<Row> Rows = MakeRows(30);
  WriteTable(Rows);
  ASSERT_EQ(Create(), 0) << ErrorText;
  std::vector<int32_t> Deleted;
  for (int i = 1; i <= 30; ++i) {
    if (Rows[i - 1].Deleted) Deleted.push_back(i);
  }
  ASSERT_EQ(Send("U"), 0);
  EXPECT_EQ(Result, static_cast<int32_t>(Deleted.size()));
  const Row Fresh{"NUEVO1", "NUEVO", "MADRID", 5, false};
  const std::vector<std::string> Keys = ExpectedKeys(Fresh);
  const std::string Insert = "I\\1\\" + Keys[0] + "\\" + Keys[1] + "\\" + Keys[2] + "\\" + Keys[3];
  for (auto It = Deleted.rbegin(); It != Deleted.rend(); ++It) {
    ASSERT_EQ(Send(Insert), 0) << ErrorText;
    EXPECT_EQ(Engine.LastAllocated, *It);
  }
  ASSERT_EQ(Send(Insert), 0) << ErrorText;
  EXPECT_EQ(Engine.LastAllocated, 31);
}

TEST_F(CreateKeyFileTest, ATableWithoutKeysStillNumbersItsRecords) {
  Spec.Keys.clear();
  WriteTable(MakeRows(20));
  ASSERT_EQ(Create(), 0) << ErrorText;
  EXPECT_EQ(Engine.Header.KeyCount, 0);
  EXPECT_EQ(Engine.Header.LastRecord, 20);
  ASSERT_EQ(Send("U"), 0);
  EXPECT_EQ(Result, 4);  // records 3, 10, 17 and 20 are deleted
}

TEST_F(CreateKeyFileTest, MissingOrInvalidDictionariesAreReported) {
  WriteTable(MakeRows(5));
  std::filesystem::remove(Dir.File("PERSO.tqa"));
  EXPECT_EQ(Create(), 105);
  EXPECT_EQ(ErrorText, "Table not found: " + Dir.File("PERSO.TQA"));
  std::string Bytes = testing::DictionaryBytes(Spec);
  Bytes.replace(0, 2, "A0");
  Dir.Write("PERSO.tqa", Bytes);
  EXPECT_EQ(Create(), 105);
  EXPECT_EQ(ErrorText, "Invalid table: " + Dir.File("PERSO.tqa"));
  EXPECT_EQ(Engine.KeyFileNo, 0);
}

}  // namespace
}  // namespace tqdb

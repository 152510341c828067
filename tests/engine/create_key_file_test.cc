// Building a key file from a dictionary and a data file written byte by byte, driven
// through the command channel as the open routine drives it, and read back from the file.
#include "engine/create_key_file.h"

#include <gtest/gtest.h>

#include <algorithm>
#include <filesystem>
#include <string>
#include <tuple>
#include <vector>

#include "engine/record_allocator.h"
#include "engine_fixture.h"
#include "support/table_writer.h"
#include "table/dictionary.h"

namespace tqdb {
namespace {

using testing::CommandPath;
using testing::FieldSpec;
using testing::KeySpec;
using testing::SegmentSpec;
using testing::TableSpec;

// CODIGO 0..5, NOMBRE 6..17, CIUDAD 18..25, EDAD 26..27 (16-bit), SALDO 28..35.
TableSpec People() {
  TableSpec T{
      "Personas",
      {{"CODIGO", 10, 6}, {"NOMBRE", 10, 12}, {"CIUDAD", 10, 8}, {"EDAD", 1, 0}, {"SALDO", 3, 0}},
      {{{{1, 1, 6}}}, {{{2, 1, 12}, {1, 3, 4}}}, {{{3, 1, 8}}}, {{{4, 1, 2}, {3, 1, 3}}}}};
  return T;
}

std::string Fit(const std::string& Text, size_t Width) {
  std::string Out = Text.substr(0, std::min(Text.size(), Width));
  Out.resize(Width, ' ');
  return Out;
}

struct Row {
  std::string Codigo, Nombre, Ciudad;
  int Edad = 0;
  bool Deleted = false;
  // The key texts, built here from the values, not from the record's bytes.
  std::vector<std::string> Keys() const {
    const std::string Binary{static_cast<char>(Edad & 0xFF), static_cast<char>(Edad >> 8)};
    std::vector<std::string> Texts = {Fit(Codigo, 6), Fit(Nombre, 12) + Fit(Codigo, 6).substr(2, 4),
                                      Fit(Ciudad, 8), Binary + Fit(Ciudad, 8).substr(0, 3)};
    for (std::string& Text : Texts) Text = platform::UpperCase(Text);
    return Texts;
  }
};

std::vector<Row> MakeRows(int Count) {
  const char* Names[] = {"garcia", "Mu\xF1oz", "PEREZ", "lopez", "Martin", "\xE1lvarez"};
  const char* Cities[] = {"Madrid", "sevilla", "LEON", "\xC1vila"};
  std::vector<Row> Rows;
  for (int i = 1; i <= Count; ++i) {
    Rows.push_back({"c" + std::to_string(100000 + (i * 7919) % 100000).substr(1), Names[i % 6],
                    Cities[(i / 3) % 4], (i * 37) % 300, i % 7 == 3 || i == Count});
  }
  return Rows;
}

class CreateKeyFileTest : public ::testing::Test {
 protected:
  void Write(const TableSpec& Table, const std::vector<std::string>& Records) {
    Spec = Table;
    testing::WriteDictionary(Dir.Dir(), "PERSO", Spec);
    testing::WriteDataFile(Dir.File("PERSO01.tqd"), Records);
  }
  void WriteRows(const std::vector<Row>& Rows) {
    std::vector<std::string> Records;
    for (const Row& R : Rows) {
      Records.push_back(
          R.Deleted ? testing::DeletedRecordBytes(People())
                    : testing::RecordBytes(People(), {R.Codigo, R.Nombre, R.Ciudad, R.Edad, 1.5}));
    }
    Write(People(), Records);
  }

  int16_t Send(std::string Command) {
    Status = 0;
    fabs_emulate(Engine, Command, Result, Status, ErrorText);
    return Status;
  }
  // Builds the key file, then opens it again: what follows is read from the file.
  int16_t Create() {
    Send("T\\" + CommandPath(Dir.Dir()));
    const Dictionary Parsed = ParseDictionary(testing::DictionaryBytes(Spec));
    const std::string Path = CommandPath(Dir.File("PERSO01.tqc"));
    if (Send("/C/" + Path + "/" + KeyShape(Parsed) + "/A/ 1") != 0) return Status;
    return Send("/O/" + Path + "/1");
  }

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
  TableSpec Spec;
  EngineState Engine;
  int32_t Result = 0;
  int16_t Status = 0;
  std::string ErrorText;
};

// Record numbers of the live rows in the order of key K: key text by character, then
// record number.
std::vector<int32_t> ExpectedOrder(const std::vector<Row>& Rows, int K) {
  std::vector<engine::KeyEntry> Entries;
  for (size_t i = 0; i < Rows.size(); ++i) {
    if (!Rows[i].Deleted) Entries.push_back({Rows[i].Keys()[K - 1], static_cast<int32_t>(i + 1)});
  }
  std::sort(Entries.begin(), Entries.end(), testing::KeyLess);
  std::vector<int32_t> Numbers;
  for (const auto& E : Entries) Numbers.push_back(E.Record);
  return Numbers;
}

// Progress every 100 records. 36-byte records: 910 fit in one 32768-byte chunk, so 3000
// records take four chunks, and key 2 (16 characters, 51 entries a node) grows three levels.
// Deleted records come back last in, first out.
TEST_F(CreateKeyFileTest, EveryKeyWalksInKeyOrderThenRecordOrder) {
  for (const auto& [Count, Calls, Last] :
       std::vector<std::tuple<int, int, int32_t>>{{250, 2, 80}, {3000, 30, 100}}) {
    const std::vector<Row> Rows = MakeRows(Count);
    WriteRows(Rows);
    std::vector<int32_t> Progress;
    Engine.Progress = [&](int32_t P) { Progress.push_back(P); };
    ASSERT_EQ(Create(), 0) << ErrorText;
    EXPECT_EQ(Progress.size(), size_t(Calls)) << Count;
    EXPECT_EQ(Progress.back(), Last) << Count;
    EXPECT_EQ(Engine.Header.KeyCount, 4);
    EXPECT_EQ(Engine.Header.LastRecord, Count);
    for (int K = 1; K <= 4; ++K) EXPECT_EQ(Walk(K), ExpectedOrder(Rows, K)) << "key " << K;
    std::vector<int32_t> Deleted;
    for (int i = 1; i <= Count; ++i) {
      if (Rows[i - 1].Deleted) Deleted.push_back(i);
    }
    EXPECT_EQ(engine::ListDeletedRecords(Engine), Deleted);
  }
  const std::vector<std::string> Keys = Row{"NUEVO1", "NUEVO", "MADRID", 5}.Keys();
  ASSERT_EQ(Send("I\\1\\" + Keys[0] + "\\" + Keys[1] + "\\" + Keys[2] + "\\" + Keys[3]), 0);
  EXPECT_EQ(Engine.LastAllocated, 3000);
}

// Ten keys of 100 characters on ascending values leave half-full nodes: the image of the
// key file passes its limit of 60 MB, is written out, and the build goes on in the file.
TEST_F(CreateKeyFileTest, ATablePastTheMemoryImageLimitIsFinishedOnDisk) {
  TableSpec Wide{"Ancha", {{"CODIGO", 10, 100}}, std::vector<KeySpec>(10, KeySpec{{{1, 1, 100}}})};
  std::vector<std::string> Records;
  const int Count = 24000;
  for (int i = 1; i <= Count; ++i) {
    Records.push_back(i % 5 == 0 ? testing::DeletedRecordBytes(Wide)
                                 : testing::RecordBytes(Wide, {std::to_string(10000000 + i)}));
  }
  Write(Wide, Records);
  ASSERT_EQ(Create(), 0) << ErrorText;
  EXPECT_GT(std::filesystem::file_size(Dir.File("PERSO01.TQC")), 60'000'000u);
  EXPECT_EQ(Engine.Header.LastRecord, Count);
  EXPECT_EQ(Send("U"), 0);
  EXPECT_EQ(Result, Count / 5);
  const std::vector<int32_t> Tenth = Walk(10);
  ASSERT_EQ(Tenth.size(), size_t(Count - Count / 5));
  EXPECT_TRUE(std::is_sorted(Tenth.begin(), Tenth.end()));
  EXPECT_EQ(Tenth.back(), Count - 1);
}

TEST_F(CreateKeyFileTest, KeylessTablesMissingAndInvalidDictionaries) {
  WriteRows(MakeRows(20));
  Spec.Keys.clear();
  testing::WriteDictionary(Dir.Dir(), "PERSO", Spec);
  ASSERT_EQ(Create(), 0) << ErrorText;
  EXPECT_EQ(Engine.Header.KeyCount, 0);
  EXPECT_EQ(Engine.Header.LastRecord, 20);
  ASSERT_EQ(Send("U"), 0);
  EXPECT_EQ(Result, 4);  // records 3, 10, 17 and 20 are deleted
  Send("K");
  std::filesystem::remove(Dir.File("PERSO.tqa"));
  EXPECT_EQ(Create(), 105);
  EXPECT_EQ(ErrorText.rfind("Table not found: ", 0), 0u) << ErrorText;
  EXPECT_NE(ErrorText.find("PERSO.TQA"), std::string::npos) << ErrorText;
  Dir.Write("PERSO.tqa", "A0" + testing::DictionaryBytes(Spec).substr(2));
  EXPECT_EQ(Create(), 105);
  EXPECT_EQ(ErrorText.rfind("Invalid table: ", 0), 0u) << ErrorText;
  EXPECT_EQ(Engine.KeyFileNo, 0);
}

}  // namespace
}  // namespace tqdb

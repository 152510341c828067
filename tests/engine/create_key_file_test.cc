// Building a key file from a dictionary and a data file written byte by byte, driven
// through the command channel as the open routine drives it, and read back from the file.
#include "engine/create_key_file.h"

#include <gtest/gtest.h>

#include <filesystem>
#include <string>
#include <tuple>
#include <vector>

#include "engine/record_allocator.h"
#include "engine_fixture.h"
#include "support/key_file_bytes.h"
#include "support/table_writer.h"
#include "table/dictionary.h"

namespace tqdb::testing {
namespace {

// CODIGO 0..5, NOMBRE 6..17, CIUDAD 18..25, EDAD 26..27 (16-bit), SALDO 28..35; key 2 takes
// characters 3-6 of the code, key 4 the binary age and a part of the city.
const TableSpec kPeople{
    "Personas",
    {{"CODIGO", 10, 6}, {"NOMBRE", 10, 12}, {"CIUDAD", 10, 8}, {"EDAD", 1, 0}, {"SALDO", 3, 0}},
    {{{{1, 1, 6}}}, {{{2, 1, 12}, {1, 3, 4}}}, {{{3, 1, 8}}}, {{{4, 1, 2}, {3, 1, 3}}}}};

// Records 3, 10, 17 ... and the last are deleted.
std::vector<std::string> People(int Count) {
  const char* Names[] = {"garcia", "Munoz", "PEREZ", "lopez", "Martin", "alvarez"};
  const char* Cities[] = {"Madrid", "sevilla", "LEON", "Avila"};
  std::vector<std::string> Records;
  for (int i = 1; i <= Count; ++i) {
    Records.push_back(
        i % 7 == 3 || i == Count
            ? DeletedRecordBytes(kPeople)
            : RecordBytes(kPeople, {"c" + std::to_string(100000 + (i * 7919) % 100000).substr(1),
                                    Names[i % 6], Cities[(i / 3) % 4], (i * 37) % 128, 1.5}));
  }
  return Records;
}

class CreateKeyFileTest : public ::testing::Test {
 protected:
  void Write(const TableSpec& Table, const std::vector<std::string>& Records) {
    Spec = Table;
    WriteDictionary(Dir.Dir(), "PERSO", Spec);
    WriteDataFile(Dir.File("PERSO01.tqd"), Records);
  }
  int16_t Send(std::string Command) {
    Status = 0;
    fabs_emulate(Engine, Command, Result, Status, ErrorText);
    return Status;
  }
  // Builds the key file, then opens it again: what follows is read from the file.
  int16_t Create() {
    Send("T\\" + CommandPath(Dir.Dir()));
    const std::string Path = CommandPath(Dir.File("PERSO01.tqc"));
    const std::string Shape = KeyShape(ParseDictionary(DictionaryBytes(Spec)));
    if (Send("/C/" + Path + "/" + Shape + "/A/ 1") != 0) return Status;
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

  TempDir Dir;
  TableSpec Spec;
  EngineState Engine;
  int32_t Result = 0;
  int16_t Status = 0;
  std::string ErrorText;
};

// Progress every 100 records. 36-byte records: 910 fit in one 32768-byte chunk, so 3000
// records take four chunks, and key 2 (16 characters, 51 entries a node) grows three
// levels. Deleted records come back last in, first out.
TEST_F(CreateKeyFileTest, EveryKeyWalksInKeyOrderThenRecordOrder) {
  for (const auto& [Count, Calls, Last] :
       std::vector<std::tuple<int, int, int32_t>>{{250, 2, 80}, {3000, 30, 100}}) {
    const std::vector<std::string> Records = People(Count);
    Write(kPeople, Records);
    std::vector<int32_t> Progress;
    Engine.Progress = [&](int32_t P) { Progress.push_back(P); };
    ASSERT_EQ(Create(), 0) << ErrorText;
    EXPECT_EQ(Progress.size(), size_t(Calls)) << Count;
    EXPECT_EQ(Progress.back(), Last) << Count;
    EXPECT_EQ(Engine.Header.KeyCount, 4);
    EXPECT_EQ(Engine.Header.LastRecord, Count);
    for (int K = 1; K <= 4; ++K) EXPECT_EQ(Walk(K), KeyOrder(kPeople, K, Records)) << "key " << K;
    std::vector<int32_t> Deleted;
    for (int i = 1; i <= Count; ++i) {
      if (Records[i - 1].starts_with("ANULADO")) Deleted.push_back(i);
    }
    EXPECT_EQ(engine::ListDeletedRecords(Engine), Deleted);
  }
  ASSERT_EQ(Send("I\\1\\NUEVO1\\NUEVO       EVO1\\MADRID  \\  MAD"), 0) << ErrorText;
  EXPECT_EQ(Engine.LastAllocated, 3000);
}

// Too large to sort in memory (a budget of 0 here), ten keys of 100 characters on
// ascending values are built record by record and leave half-full nodes: the image of the
// key file passes its limit of 60 MB, is written out, and the build goes on in the file.
TEST_F(CreateKeyFileTest, ATablePastTheMemoryImageLimitIsFinishedOnDisk) {
  Engine.SortedBuildBudget = 0;
  const TableSpec Wide{
      "Ancha", {{"CODIGO", 10, 100}}, std::vector<KeySpec>(10, KeySpec{{{1, 1, 100}}})};
  std::vector<std::string> Records;
  const int Count = 24000;
  for (int i = 1; i <= Count; ++i) {
    Records.push_back(i % 5 == 0 ? DeletedRecordBytes(Wide)
                                 : RecordBytes(Wide, {std::to_string(10000000 + i)}));
  }
  Write(Wide, Records);
  ASSERT_EQ(Create(), 0) << ErrorText;
  EXPECT_GT(std::filesystem::file_size(Dir.File("PERSO01.TQC")), 60'000'000u);
  EXPECT_EQ(Engine.Header.LastRecord, Count);
  EXPECT_EQ(Send("U"), 0);
  EXPECT_EQ(Result, Count / 5);
  EXPECT_EQ(Walk(10), KeyOrder(Wide, 10, Records));
}

}  // namespace
}  // namespace tqdb::testing

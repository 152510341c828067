#include "engine/key_file.h"

#include <gtest/gtest.h>

#include <string>
#include <vector>

#include "engine/key_codec.h"
#include "engine/key_update.h"
#include "engine_fixture.h"
#include "platform/file_pool.h"

namespace tqdb::testing {
namespace {

using engine::LoadInt16;
using engine::LoadInt32;

TEST(KeyFileLayout, EmptyFileHasHeaderDescriptorsAndOneEmptyRootPerKey) {
  TempDir Dir;
  const std::vector<int> Lengths = {10, 255, 1};
  engine::CreateEmptyKeyFile(Dir.File("t.tqc"), Lengths);
  const std::string Bytes = Dir.Read("t.tqc");
  const auto* Raw = reinterpret_cast<const uint8_t*>(Bytes.data());
  ASSERT_EQ(Bytes.size(), 15u + 3 * 5 + 3 * 1024);
  EXPECT_EQ(Raw[0], 3);
  EXPECT_EQ(LoadInt16(Raw + 1), 1024);
  EXPECT_EQ(Bytes.substr(3, 12), std::string(12, '\0'));
  for (int Key = 0; Key < 3; ++Key) {
    EXPECT_EQ(Raw[15 + 5 * Key], Lengths[Key]);
    EXPECT_EQ(LoadInt32(Raw + 16 + 5 * Key), 31 + 1024 * Key);  // 1-based positions
  }
  EXPECT_EQ(Bytes.substr(30), std::string(3 * 1024, '\0'));
  for (const std::vector<int>& Bad : {std::vector<int>{0}, {256}, std::vector<int>(11, 4)}) {
    EXPECT_THROW(engine::CreateEmptyKeyFile(Dir.File("a.tqc"), Bad), platform::Fault);
  }
}

TEST(KeyFileOpen, ReadsDescriptorsFromTheKeyFileOrTheDataFileName) {
  EngineFile File({4, 60});
  EXPECT_EQ(File.Engine.Header.KeyCount, 2);
  EXPECT_EQ(File.Engine.KeyLen[2], 60);
  EXPECT_EQ(File.Engine.Capacity[1], 127);
  EXPECT_EQ(File.Engine.RootPos[2], 26 + 1024);
  const platform::FileNo First = File.Engine.KeyFileNo;
  const std::string DataName = File.Path().substr(0, File.Path().size() - 3) + "tqd";
  File.Run("/O/" + CommandPath(DataName) + "/3");  // the extension is replaced
  EXPECT_EQ(File.Status, 0);
  EXPECT_EQ(File.Engine.KeyLen[1], 4);
  EXPECT_FALSE(platform::IsOpen(First) && First != File.Engine.KeyFileNo);
  EXPECT_EQ(File.Dir().Read("clien01.tqd"), "");  // the data file was not touched
}

TEST(KeyFileOpen, FailedOpensLeaveItClosedAndCloseIsHarmlessTwice) {
  EngineFile File({8});
  const platform::FileNo Number = File.Engine.KeyFileNo;
  File.Result = 5;
  File.Run("K");
  EXPECT_EQ(File.Engine.KeyFileNo, 0);
  EXPECT_FALSE(platform::IsOpen(Number));
  EXPECT_EQ(File.Result, 0);
  File.Run("K");
  EXPECT_EQ(File.Status, 0);
  File.Dir().Write("empty.tqc", "");
  for (const auto& [Name, Status] : std::vector<std::pair<std::string, int>>{
           {"empty.tqc", 22}, {"missing.tqc", 22}, {"no-such-dir/x.tqc", 26}}) {
    File.Run("/O/" + CommandPath(File.Dir().File(Name)) + "/1");
    EXPECT_EQ(File.Status, Status) << Name;
    EXPECT_EQ(File.Engine.KeyFileNo, 0) << Name;
  }
}

// Builds a key file in memory image mode as the creation of a key file does, with enough
// pages to grow the image past its first megabyte.
TEST(KeyFileImage, BuildsInMemoryAndFlushesASoundFile) {
  EngineFile File({60, 4});
  EngineState& Engine = File.Engine;
  engine::BeginKeyFileImage(Engine);
  Engine.Creating = true;
  const int Records = 12000;
  for (int Record = 1; Record <= Records; ++Record) {
    const std::string Text = std::to_string((Record * 7919) % Records);
    engine::InsertKeys(Engine, std::vector<std::string>{Text, Text.substr(0, 1)});
  }
  EXPECT_GT(Engine.Image.size(), size_t{1} << 20);
  EXPECT_EQ(File.Dir().Read(File.FileName()).size(), 15u + 10 + 2048);  // nothing written yet
  engine::FlushKeyFileImage(Engine);
  Engine.Creating = false;
  EXPECT_FALSE(Engine.ImageMode);
  File.Open();
  EXPECT_EQ(Engine.Header.LastRecord, Records);
  EXPECT_TRUE(File.Problems().empty());
  EXPECT_EQ(File.Entries(1).size(), size_t(Records));
  EXPECT_EQ(File.Entries(2).size(), size_t(Records));
  EXPECT_EQ((File.Dir().Read(File.FileName()).size() - 25) % 1024, 0u);
}

}  // namespace
}  // namespace tqdb::testing

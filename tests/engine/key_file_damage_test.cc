// Damaged key files: every command that meets the damage ends with status 105 and the
// "estropeado" description (status 22 for an empty file), without a crash or a hang, and
// the checker names the problem.
#include "engine/key_file_damage.h"

#include <gtest/gtest.h>

#include <string>
#include <vector>

#include "engine/key_codec.h"
#include "engine_fixture.h"
#include "platform/codepage.h"
#include "platform/file_pool.h"

namespace tqdb::testing {
namespace {

using engine::Int16ToBytes;
using engine::Int32ToBytes;

class DamagedKeyFile : public ::testing::Test {
 protected:
  // A two-level tree of key length 10 (72 entries per node).
  DamagedKeyFile() : File({10}) {
    for (int I = 0; I < 500; ++I) File.Insert({"K" + std::to_string(1000 + I)});
    Root = File.Engine.RootPos[1];
  }

  std::string Expected() const {
    const std::string Name = CommandPath(File.Path());
    return "Archivo \r\n" + platform::Cp1252ToUtf8(platform::UpperCase(Name)) +
           "\r\nestropeado... debe recrear índices";
  }

  // Reopens after the damage was written and runs Command: it must fail as damaged.
  void ExpectDamaged(const std::string& Command) {
    File.Open();
    File.Run(Command);
    EXPECT_EQ(File.Status, 105) << Command;
    EXPECT_EQ(File.ErrorText, Expected()) << Command;
  }

  // The position of the root's first child.
  int32_t FirstChild() {
    NodeBuffer Page = File.Page(Root);
    return engine::NodeView(Page, 10).Value(0);
  }

  EngineFile File;
  int32_t Root = 0;
};

TEST_F(DamagedKeyFile, NodeSizeOtherThan1024IsRefusedOnOpen) {
  File.PokeBytes(2, Int16ToBytes(512));
  File.Run("/O/" + CommandPath(File.Path()) + "/1");
  EXPECT_EQ(File.Status, 105);
  EXPECT_EQ(File.ErrorText, Expected());
  EXPECT_EQ(File.Engine.KeyFileNo, 0);
}

TEST_F(DamagedKeyFile, BadDescriptorsAreRefusedOnOpen) {
  File.PokeBytes(16, std::string(1, '\0'));  // key length 0
  File.Run("/O/" + CommandPath(File.Path()) + "/1");
  EXPECT_EQ(File.Status, 105);
  EXPECT_EQ(File.ErrorText, Expected());

  File.PokeBytes(16, std::string(1, '\x0A'));
  File.PokeBytes(17, Int32ToBytes(1 << 30));  // root outside the file
  File.Run("/O/" + CommandPath(File.Path()) + "/1");
  EXPECT_EQ(File.Status, 105);

  File.PokeBytes(17, Int32ToBytes(Root));
  File.PokeBytes(1, std::string(1, '\x0B'));  // eleven keys
  File.Run("/O/" + CommandPath(File.Path()) + "/1");
  EXPECT_EQ(File.Status, 105);
  EXPECT_EQ(File.Engine.KeyFileNo, 0);
}

TEST_F(DamagedKeyFile, ATruncatedFileIsFoundOnTheWay) {
  const std::string Bytes = File.Dir().Read(File.FileName());
  File.Dir().Write(File.FileName(), Bytes.substr(0, 20 + 3 * 1024 + 100));
  File.Open();
  File.Run("F\\1\\1");
  int Steps = 0;
  while (File.Status == 0 && Steps++ < 1000) File.Run("N\\1");
  EXPECT_EQ(File.Status, 105);
  EXPECT_EQ(File.ErrorText, Expected());
  ExpectDamaged("L\\1\\1");
  ExpectDamaged("S\\1\\1\\K1499     ");
  ExpectDamaged("I\\1\\K9999");
  EXPECT_FALSE(File.Problems().empty());
}

TEST_F(DamagedKeyFile, ACountBeyondTheCapacityIsDamage) {
  File.PokeBytes(Root + 1, Int16ToBytes(500));
  ExpectDamaged("F\\1\\1");
  ExpectDamaged("I\\1\\K0001");
  File.PokeBytes(Root + 1, Int16ToBytes(-3));
  ExpectDamaged("G\\1\\1\\K");
  EXPECT_FALSE(File.Problems().empty());
}

TEST_F(DamagedKeyFile, AnUnknownNodeKindIsDamage) {
  File.PokeBytes(FirstChild(), std::string(1, '\x07'));
  ExpectDamaged("F\\1\\1");
  EXPECT_FALSE(File.Problems().empty());
}

TEST_F(DamagedKeyFile, ChildPointersPastTheEndOrOffAPageAreDamage) {
  File.PokeBytes(Root + 3 + 10, Int32ToBytes(99999999));
  ExpectDamaged("F\\1\\1");
  EXPECT_FALSE(File.Problems().empty());
  File.PokeBytes(Root + 3 + 10, Int32ToBytes(Root + 100));
  ExpectDamaged("F\\1\\1");
  File.PokeBytes(Root + 3 + 10, Int32ToBytes(-5));
  ExpectDamaged("F\\1\\1");
  EXPECT_FALSE(File.Problems().empty());
}

TEST_F(DamagedKeyFile, ACycleIsCaughtByTheDepthOfTheLevelBuffers) {
  File.PokeBytes(Root + 3 + 10, Int32ToBytes(Root));  // the first child is the root itself
  ExpectDamaged("F\\1\\1");
  ExpectDamaged("G\\1\\1\\K");
  ExpectDamaged("I\\1\\A");
  const std::vector<std::string> Problems = File.Problems();
  ASSERT_FALSE(Problems.empty());
  EXPECT_NE(Problems.front().find("reached twice"), std::string::npos);
}

TEST_F(DamagedKeyFile, DamageIsNotRetriedAndTheLockIsReleased) {
  File.PokeBytes(Root + 1, Int16ToBytes(500));
  ExpectDamaged("D\\1\\Y\\1\\K1000");
  const platform::FileNo Other = platform::TakeFreeNumber();
  platform::Open(Other, File.Path());
  EXPECT_NO_THROW(platform::LockRange(Other, 1, 1));
  platform::ReleaseNumber(Other);
}

TEST_F(DamagedKeyFile, AnEmptyFileGivesStatus22) {
  File.Dir().Write(File.FileName(), "");
  File.Run("/O/" + CommandPath(File.Path()) + "/1");
  EXPECT_EQ(File.Status, 22);
}

}  // namespace
}  // namespace tqdb::testing

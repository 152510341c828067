// Damaged key files: every command that meets the damage ends with status 105 and the
// "estropeado" description, without a crash or a hang, and the checker names the problem.
#include "engine/key_file_damage.h"

#include <gtest/gtest.h>

#include <string>
#include <vector>

#include "engine/key_codec.h"
#include "engine_fixture.h"
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
    Sound = File.Dir().Read(File.FileName());
  }

  std::string Expected() const {
    return "Archivo \r\n" + File.Path() + "\r\nestropeado... debe recrear índices";
  }

  // Reopens after the damage was written and runs each command: each must fail as damaged.
  void ExpectDamaged(const std::vector<std::string>& Commands) {
    for (const std::string& Command : Commands) {
      File.Open();
      File.Run(Command);
      EXPECT_EQ(File.Status, 105) << Command;
      EXPECT_EQ(File.ErrorText, Expected()) << Command;
    }
    EXPECT_FALSE(File.Problems().empty());
  }
  void ExpectRefusedOnOpen() {
    File.Run("/O/" + CommandPath(File.Path()) + "/1");
    EXPECT_EQ(File.Status, 105);
    EXPECT_EQ(File.ErrorText, Expected());
    EXPECT_EQ(File.Engine.KeyFileNo, 0);
  }

  void Restore() { File.Dir().Write(File.FileName(), Sound); }

  EngineFile File;
  int32_t Root = 0;
  std::string Sound;
};

TEST_F(DamagedKeyFile, BadHeadersAreRefusedOnOpen) {
  File.PokeBytes(2, Int16ToBytes(512));  // node size
  ExpectRefusedOnOpen();
  File.PokeBytes(2, Int16ToBytes(1024));
  File.PokeBytes(16, std::string(1, '\0'));  // key length 0
  ExpectRefusedOnOpen();
  File.PokeBytes(16, std::string(1, '\x0A'));
  File.PokeBytes(17, Int32ToBytes(1 << 30));  // root outside the file
  ExpectRefusedOnOpen();
  File.PokeBytes(17, Int32ToBytes(Root));
  File.PokeBytes(1, std::string(1, '\x0B'));  // eleven keys
  ExpectRefusedOnOpen();
  File.Dir().Write(File.FileName(), "");
  File.Run("/O/" + CommandPath(File.Path()) + "/1");
  EXPECT_EQ(File.Status, 22);  // an empty file is no key file at all
}

TEST_F(DamagedKeyFile, ATruncatedFileIsFoundOnTheWay) {
  const std::string Bytes = File.Dir().Read(File.FileName());
  File.Dir().Write(File.FileName(), Bytes.substr(0, 20 + 3 * 1024 + 100));
  File.Open();
  File.Run("F\\1\\1");
  for (int Steps = 0; File.Status == 0 && Steps < 1000; ++Steps) File.Run("N\\1");
  EXPECT_EQ(File.Status, 105);
  EXPECT_EQ(File.ErrorText, Expected());
  ExpectDamaged({"L\\1\\1", "S\\1\\1\\K1499     ", "I\\1\\K9999"});
}

TEST_F(DamagedKeyFile, BadCountsKindsAndChildPointersAreDamage) {
  File.PokeBytes(Root + 1, Int16ToBytes(500));  // beyond the capacity
  ExpectDamaged({"F\\1\\1", "I\\1\\K0001", "D\\1\\Y\\1\\K1000"});
  File.PokeBytes(Root + 1, Int16ToBytes(-3));
  ExpectDamaged({"G\\1\\1\\K"});
  Restore();
  NodeBuffer Page = File.Page(Root);
  File.PokeBytes(engine::NodeView(Page, 10).Value(0), std::string(1, '\x07'));  // node kind
  ExpectDamaged({"F\\1\\1"});
  Restore();
  for (int32_t Child : {99999999, Root + 100, -5}) {  // past the end, off a page, negative
    File.PokeBytes(Root + 3 + 10, Int32ToBytes(Child));
    ExpectDamaged({"F\\1\\1"});
  }
}

// A child pointing at the root makes a cycle: caught by the depth of the level buffers.
// Damage is not retried, and the key file lock is released.
TEST_F(DamagedKeyFile, ACycleIsCaughtAndTheLockIsReleased) {
  File.PokeBytes(Root + 3 + 10, Int32ToBytes(Root));
  ExpectDamaged({"F\\1\\1", "G\\1\\1\\K", "I\\1\\A", "D\\1\\Y\\1\\K1000"});
  EXPECT_NE(File.Problems().front().find("reached twice"), std::string::npos);
  const platform::FileNo Other = platform::TakeFreeNumber();
  platform::Open(Other, File.Path());
  EXPECT_NO_THROW(platform::LockRange(Other, 1, 1));
  platform::ReleaseNumber(Other);
}

}  // namespace
}  // namespace tqdb::testing

// Damaged key files: every command that meets the damage ends with status 105 and the
// "estropeado" description, without a crash or a hang, and leaves the key file unlocked.
#include "engine/key_file_damage.h"

#include <gtest/gtest.h>

#include <string>
#include <vector>

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
    Sound = File.FileBytes();
  }

  // Each command, on the file reopened after the damage was written, must fail as damaged
  // (or, with Open false, the open itself must).
  void ExpectDamaged(const std::vector<std::string>& Commands, bool Open = true) {
    const std::string Expected =
        "Archivo \r\n" + platform::Cp1252ToUtf8(platform::UpperCase(CommandPath(File.Path()))) +
        "\r\nestropeado... debe recrear índices";
    for (const std::string& Command : Commands) {
      if (Open) File.Open();
      File.Run(Command);
      EXPECT_EQ(File.Status, 105) << Command;
      EXPECT_EQ(File.ErrorText, Expected) << Command;
    }
    EXPECT_TRUE(Open || File.Engine.KeyFileNo == 0);
    const platform::FileNo Other = platform::TakeFreeNumber();
    platform::Open(Other, File.Path());
    EXPECT_NO_THROW(platform::LockRange(Other, 1, 1));
    platform::ReleaseNumber(Other);
    File.SetFileBytes(Sound);
  }

  EngineFile File;
  int32_t Root = 0;
  std::string Sound;
};

TEST_F(DamagedKeyFile, BadHeadersAreRefusedOnOpen) {
  const std::string Open = "/O/" + CommandPath(File.Path()) + "/1";
  for (const auto& [Position, Bytes] : std::vector<std::pair<int64_t, std::string>>{
           {2, Int16ToBytes(512)},          // node size
           {16, std::string(1, '\0')},      // key length 0
           {17, Int32ToBytes(1 << 30)},     // root outside the file
           {1, std::string(1, '\x0B')}}) {  // eleven keys
    File.PokeBytes(Position, Bytes);
    ExpectDamaged({Open}, false);
  }
  File.SetFileBytes("");
  File.Run(Open);
  EXPECT_EQ(File.Status, 22);  // an empty file is no key file at all
}

TEST_F(DamagedKeyFile, TruncationBadCountsKindsAndChildPointersAreFoundOnTheWay) {
  File.SetFileBytes(Sound.substr(0, 20 + 3 * 1024 + 100));
  File.Open();
  File.Run("F\\1\\1");
  for (int Steps = 0; File.Status == 0 && Steps < 1000; ++Steps) File.Run("N\\1");
  EXPECT_EQ(File.Status, 105);
  ExpectDamaged({"L\\1\\1", "S\\1\\1\\K1499     ", "I\\1\\K9999"});
  File.PokeBytes(Root + 1, Int16ToBytes(500));  // beyond the capacity
  ExpectDamaged({"F\\1\\1", "I\\1\\K0001", "D\\1\\Y\\1\\K1000"});
  File.PokeBytes(Root + 1, Int16ToBytes(-3));
  ExpectDamaged({"G\\1\\1\\K"});
  File.PokeBytes(File.ValueAt(Root, 10, 0), std::string(1, '\x07'));
  ExpectDamaged({"F\\1\\1"});  // a node of no known kind
  // Past the end, off a page, negative, and the root itself (a cycle, caught by the depth
  // of the level buffers; damage is not retried).
  for (int32_t Child : {99999999, Root + 100, -5, Root}) {
    File.PokeBytes(Root + 3 + 10, Int32ToBytes(Child));
    ExpectDamaged({"F\\1\\1", "G\\1\\1\\K", "I\\1\\A", "D\\1\\Y\\1\\K1000"});
  }
}

}  // namespace
}  // namespace tqdb::testing

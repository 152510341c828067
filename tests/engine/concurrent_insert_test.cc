// Two processes changing one key file at once. Each opens the file on its own and sends
// I and D commands; byte 1 of the key file serialises them, and the dispatcher retries a
// command that finds it held. At the end every key holds exactly the live records, the
// record numbers are unique, and the tree checker finds nothing.
#include <gtest/gtest.h>
#include <unistd.h>

#include <chrono>
#include <memory>
#include <set>
#include <string>
#include <vector>

#include "engine/record_allocator.h"
#include "engine_fixture.h"
#include "support/child_process.h"

namespace tqdb::testing {
namespace {

constexpr int kRecordsPerWriter = 1000;

std::string KeyText(int Writer, int Index) {
  return "W" + std::to_string(Writer) + "-" + std::to_string(100000 + Index);
}

// The child's work; 0 when every command went through.
int Writer(const std::string& Path, int Writer, int StartSignal) {
  char Byte;
  if (::read(StartSignal, &Byte, 1) < 0) return 9;  // returns when the parent closes it
  EngineState Engine;
  std::string Command = "/O/" + CommandPath(Path) + "/1", ErrorText;
  int32_t Result = 0;
  int16_t Status = 0;
  fabs_emulate(Engine, Command, Result, Status, ErrorText);
  if (Status != 0) return 10;
  for (int Index = 0; Index < kRecordsPerWriter; ++Index) {
    const std::string Keys = "\\" + Padded(KeyText(Writer, Index), 12) + "\\" +
                             Padded(KeyText(Writer, Index).substr(0, 3), 4);
    Command = "I\\1" + Keys;
    fabs_emulate(Engine, Command, Result, Status, ErrorText);
    if (Status != 0) return 11;
    if (Index % 4 == 3) {  // every fourth record is deleted again
      Command = "D\\" + std::to_string(Engine.LastAllocated) + "\\Y\\1" + Keys;
      fabs_emulate(Engine, Command, Result, Status, ErrorText);
      if (Status != 0) return 12;
    }
  }
  engine::CloseKeyFile(Engine);
  return 0;
}

TEST(ConcurrentWriters, TwoProcessesInsertingIntoOneKeyFileKeepItSound) {
  EngineFile File({12, 4});
  int Start[2];
  ASSERT_EQ(::pipe(Start), 0);
  std::vector<std::unique_ptr<ChildProcess>> Children;
  for (int Id = 1; Id <= 2; ++Id) {
    Children.push_back(std::make_unique<ChildProcess>([&, Id] {
      ::close(Start[1]);
      return Writer(File.Path(), Id, Start[0]);
    }));
  }
  ::close(Start[0]);
  ::close(Start[1]);  // both writers start together
  for (auto& Child : Children) {
    Child->Wait(std::chrono::seconds(120));
    EXPECT_TRUE(Child->Succeeded()) << Child->Outcome();
  }

  File.Open();
  EXPECT_EQ(File.Problems(), std::vector<std::string>{});
  std::multiset<std::string> Expected, Found;
  for (int Id = 1; Id <= 2; ++Id) {
    for (int Index = 0; Index < kRecordsPerWriter; ++Index) {
      if (Index % 4 != 3) Expected.insert(Padded(KeyText(Id, Index), 12));
    }
  }
  const std::vector<engine::KeyEntry> Entries = File.Entries(1);
  std::set<int32_t> Records;
  for (const engine::KeyEntry& E : Entries) {
    Found.insert(E.Text);
    Records.insert(E.Record);
  }
  EXPECT_EQ(Found, Expected);
  EXPECT_EQ(Records.size(), Entries.size());  // every live record has its own number
  EXPECT_EQ(File.Entries(2).size(), Entries.size());
  // Live numbers and the deleted stack together are exactly 1..last.
  const std::vector<int32_t> Stack = engine::ListDeletedRecords(File.Engine);
  std::set<int32_t> All(Records);
  All.insert(Stack.begin(), Stack.end());
  EXPECT_EQ(All.size(), Records.size() + Stack.size());
  EXPECT_EQ(static_cast<int32_t>(All.size()), File.Engine.Header.LastRecord);
  EXPECT_EQ(*All.begin(), 1);
}

}  // namespace
}  // namespace tqdb::testing

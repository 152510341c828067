// Two processes changing one key file at once. Each opens the file on its own and sends
// I and D commands; byte 1 of the key file serialises them, and the dispatcher retries a
// command that finds it held. At the end every key holds exactly the live records, the
// record numbers are unique, and the tree checker finds nothing.
#include <gtest/gtest.h>
#include <signal.h>
#include <sys/wait.h>
#include <unistd.h>

#include <chrono>
#include <fstream>
#include <iostream>
#include <set>
#include <string>
#include <thread>
#include <vector>

#include "engine/dispatcher_retry.h"
#include "engine/record_allocator.h"
#include "engine_fixture.h"
#include "platform/clock.h"

namespace tqdb::testing {
namespace {

constexpr int kRecordsPerWriter = 1000;

// Retries of the child's commands (counted by the sleep hook) and its start signal.
int Retries = 0;
void CountRetry(int32_t Milliseconds) {
  ++Retries;
  platform::SleepMilliseconds(Milliseconds);
}

std::string KeyText(int Writer, int Index) {
  return "W" + std::to_string(Writer) + "-" + std::to_string(100000 + Index);
}

// The child's work; returns the exit code (0 when every command went through). The
// retries it met go to the file Report.
int Writer(const std::string& Path, int Writer, int StartSignal, const std::string& Report) {
  char Byte;
  if (::read(StartSignal, &Byte, 1) < 0) return 9;  // returns when the parent closes it
  engine::SetRetrySleep(&CountRetry);
  EngineState Engine;
  std::string Command = "/O/" + CommandPath(Path) + "/1", ErrorText;
  int32_t Result = 0;
  int16_t Status = 0;
  fabs_emulate(Engine, Command, Result, Status, ErrorText);
  if (Status != 0) return 10;
  for (int Index = 0; Index < kRecordsPerWriter; ++Index) {
    const std::string Text = KeyText(Writer, Index);
    Command = "I\\1\\" + Padded(Text, 12) + "\\" + Padded(Text.substr(0, 3), 4);
    fabs_emulate(Engine, Command, Result, Status, ErrorText);
    if (Status != 0) return 11;
    if (Index % 4 == 3) {  // every fourth record is deleted again
      Command = "D\\" + std::to_string(Engine.LastAllocated) + "\\Y\\1\\" + Padded(Text, 12) +
                "\\" + Padded(Text.substr(0, 3), 4);
      fabs_emulate(Engine, Command, Result, Status, ErrorText);
      if (Status != 0) return 12;
    }
  }
  engine::CloseKeyFile(Engine);
  std::ofstream(Report) << Retries;
  return 0;
}

TEST(ConcurrentWriters, TwoProcessesInsertingIntoOneKeyFileKeepItSound) {
  EngineFile File({12, 4});
  int Start[2];
  ASSERT_EQ(::pipe(Start), 0);
  std::vector<pid_t> Children;
  for (int Id = 1; Id <= 2; ++Id) {
    const pid_t Child = ::fork();
    ASSERT_GE(Child, 0);
    if (Child == 0) {
      ::alarm(120);  // never outlive a hung test
      ::close(Start[1]);
      ::_exit(Writer(File.Path(), Id, Start[0], File.Dir().File("retries" + std::to_string(Id))));
    }
    Children.push_back(Child);
  }
  ::close(Start[0]);
  ::close(Start[1]);  // both writers start together
  const auto Deadline = std::chrono::steady_clock::now() + std::chrono::seconds(120);
  for (pid_t Child : Children) {
    int Wait = 0;
    pid_t Done = 0;
    while ((Done = ::waitpid(Child, &Wait, WNOHANG)) == 0 &&
           std::chrono::steady_clock::now() < Deadline) {
      std::this_thread::sleep_for(std::chrono::milliseconds(20));
    }
    if (Done == 0) {
      ::kill(Child, SIGKILL);
      ::waitpid(Child, &Wait, 0);
      FAIL() << "a writer did not finish in time";
    }
    ASSERT_TRUE(WIFEXITED(Wait));
    EXPECT_EQ(WEXITSTATUS(Wait), 0);
  }

  std::cout << "retries of the writers: " << File.Dir().Read("retries1") << " and "
            << File.Dir().Read("retries2") << "\n";
  File.Open();
  EXPECT_EQ(File.Problems(), std::vector<std::string>{});
  std::multiset<std::string> Expected;
  for (int Id = 1; Id <= 2; ++Id) {
    for (int Index = 0; Index < kRecordsPerWriter; ++Index) {
      if (Index % 4 != 3) Expected.insert(Padded(KeyText(Id, Index), 12));
    }
  }
  const std::vector<engine::KeyEntry> Entries = File.Entries(1);
  std::multiset<std::string> Found;
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

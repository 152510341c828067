#include "engine/dispatcher.h"

#include <gtest/gtest.h>

#include <string>
#include <utility>
#include <vector>

#include "engine/dispatcher_retry.h"
#include "engine/record_allocator.h"
#include "engine_fixture.h"
#include "platform/codepage.h"
#include "platform/fault.h"
#include "platform/file_pool.h"
#include "table/TQFile.h"

namespace tqdb::testing {
namespace {

TEST(Dispatcher, UpperCasesTheCommandInPlaceAndALeadingSlashSetsTheSeparator) {
  EngineFile File({6});
  File.Run(platform::Utf8ToCp1252("i\\1\\garcía"));
  EXPECT_EQ(File.Status, 0);
  EXPECT_EQ(File.Command, platform::Utf8ToCp1252("I\\1\\GARCÍA"));
  EXPECT_EQ(File.Entries(1).front().Text, platform::Utf8ToCp1252("GARCÍA"));
  const std::string Path = CommandPath(File.Path());
  File.Run("/o/" + Path + "/3");
  EXPECT_EQ(File.Status, 0);
  EXPECT_EQ(File.Command, "O/" + platform::UpperCase(Path) + "/3");
  EXPECT_EQ(File.Run("f\\1\\3"), 1);
}

TEST(Dispatcher, FileNumberFieldsAreParsedAndIgnored) {
  EngineFile File({6});
  const int32_t First = File.Insert({"A"});
  const int32_t Second = File.Insert({"B"});
  EXPECT_EQ(File.Run("F\\1\\99"), First);
  EXPECT_EQ(File.Run("N\\7"), Second);
  EXPECT_EQ(File.Run("P"), First);  // no field at all
  File.Run("N\\99999");             // parsed all the same: too big for 16 bits
  EXPECT_EQ(File.Status, 105);
  EXPECT_EQ(File.ErrorText, "Desbordamiento");
}

// Letters that return nothing, or have no operation at all, leave Result 0 and a create
// that fails restores the command and clears the building flag.
TEST(Dispatcher, ResultIsZeroAfterTheLettersThatReturnNothing) {
  EngineFile File({6});
  const int32_t Record = File.Insert({"A"});
  const std::string Create = "/C/" + CommandPath(File.Dir().File("nodict01.tqc")) + "/1/6/A/ 1";
  const std::vector<std::string> Commands = {"I\\1\\B",
                                             "D\\" + std::to_string(Record) + "\\Y\\1\\A",
                                             "T\\" + CommandPath(File.Dir().Path()),
                                             "/O/" + CommandPath(File.Path()) + "/1",
                                             Create,
                                             "K",
                                             "B\\1\\1",
                                             "H",
                                             "Q",
                                             "",
                                             "9\\1",
                                             "\\"};
  for (const std::string& Command : Commands) {
    File.Open();
    File.Run("F\\1\\1");
    ASSERT_NE(File.Result, 0);
    File.Run(Command);
    EXPECT_EQ(File.Result, 0) << Command;
  }
  File.Run("T\\" + CommandPath(File.Dir().Dir()));
  File.Run(Create);
  EXPECT_EQ(File.Status, 105);  // no dictionary for the table
  EXPECT_EQ(File.Command, platform::UpperCase(Create.substr(1)));
  EXPECT_FALSE(File.Engine.Creating);
}

// 52 (bad file number) becomes status 100, 63 (bad record number) 101, any other fault 105.
TEST(Dispatcher, FaultsBecomeStatuses) {
  EngineFile File({4});
  File.Insert({"A"});
  File.Run("F\\11\\1");
  EXPECT_EQ(File.Status, 105);
  for (const char* Command : {"F\\2\\1", "F\\0\\1"}) {  // keys the file does not define
    File.Run(Command);
    EXPECT_EQ(File.Status, 101) << Command;
  }
  File.Run("K");
  for (const char* Command : {"F\\1\\1", "I\\1\\A", "U"}) {
    File.Run(Command);
    EXPECT_EQ(File.Status, 100) << Command;
  }
}

// Key texts over binary fields may hold the separator byte: a command that carries every
// key at full length is cut by the key lengths.
TEST(Dispatcher, FullLengthKeyTextsMayHoldTheSeparator) {
  EngineFile File({4, 3});
  EXPECT_EQ(File.Run("I\\1\\A\\BC\\X\\Y"), 0);
  const int32_t Allocated = File.Engine.LastAllocated;
  ASSERT_EQ(File.Status, 0);
  EXPECT_EQ(File.Entries(1).front().Text, "A\\BC");
  EXPECT_EQ(File.Entries(2).front().Text, "X\\Y");
  File.Run("R\\2\\" + std::to_string(Allocated) + "\\1\\X\\Y\\\\\\\\");
  ASSERT_EQ(File.Status, 0);
  EXPECT_EQ(File.Result, Allocated);
  EXPECT_EQ(File.Entries(2).front().Text, "\\\\\\");
  File.Run("D\\" + std::to_string(Allocated) + "\\Y\\1\\A\\BC\\\\\\\\");
  EXPECT_EQ(File.Status, 0);
  EXPECT_TRUE(File.Entries(1).empty());

  File.Run("I\\1\\AB\\LONGER");  // shorter texts split at the separators, longer ones cut
  ASSERT_EQ(File.Status, 0);
  EXPECT_EQ(File.Entries(1).front().Text, "AB  ");
  EXPECT_EQ(File.Entries(2).front().Text, "LON");
}

TEST(Dispatcher, TheKeyFileLockIsReleasedOnEveryWayOut) {
  EngineFile File({6});
  const platform::FileNo Other = platform::TakeFreeNumber();
  platform::Open(Other, File.Path());
  const auto Free = [&] {
    try {
      platform::LockRange(Other, 1, 1);
      platform::UnlockRange(Other, 1, 1);
      return true;
    } catch (const platform::Fault&) {
      return false;
    }
  };
  const int32_t Record = File.Insert({"A"});
  EXPECT_TRUE(Free());
  for (const std::string& Command : {"D\\" + std::to_string(Record) + "\\Y\\1\\B",
                                     std::string("I\\1\\A\\B"),  // a fault inside the lock
                                     "R\\1\\" + std::to_string(Record) + "\\1\\Z\\Y"}) {
    File.Run(Command);
    EXPECT_NE(File.Status, 0) << Command;
    EXPECT_TRUE(Free()) << Command;
  }
  platform::ReleaseNumber(Other);
}

// The retry path: byte 1 held by another descriptor; the sleep hook counts the retries and
// lets go of the byte after a given number.
struct BusyHolder {
  static inline platform::FileNo Number = 0;
  static inline int ReleaseAfter = 0;
  static inline std::vector<int32_t> Pauses;
  static void Sleep(int32_t Milliseconds) {
    Pauses.push_back(Milliseconds);
    if (static_cast<int>(Pauses.size()) == ReleaseAfter) platform::UnlockRange(Number, 1, 1);
  }
};

class DispatcherRetry : public ::testing::Test {
 protected:
  void Hold(const std::string& Path, int ReleaseAfter) {
    BusyHolder::Number = platform::TakeFreeNumber();
    platform::Open(BusyHolder::Number, Path);
    platform::LockRange(BusyHolder::Number, 1, 1);
    BusyHolder::ReleaseAfter = ReleaseAfter;
    BusyHolder::Pauses.clear();
    previous_ = engine::SetRetrySleep(&BusyHolder::Sleep);
  }
  void TearDown() override {
    engine::SetRetrySleep(previous_);
    SetMessageSink(nullptr);
    if (BusyHolder::Number != 0) platform::ReleaseNumber(BusyHolder::Number);
    BusyHolder::Number = 0;
  }

 private:
  engine::RetrySleepFunction previous_ = nullptr;
};

// Short sleeps counting down, then 10 ms; the message once, at the 2000th retry.
TEST_F(DispatcherRetry, ABusyKeyFileIsRetriedUntilItIsFree) {
  EngineFile File({6});
  std::vector<std::pair<std::string, MessageIcon>> Shown;
  SetMessageSink(
      [&](const std::string& Text, MessageIcon Icon) { Shown.emplace_back(Text, Icon); });
  Hold(File.Path(), 2010);
  File.Run("I\\1\\A");
  EXPECT_EQ(File.Status, 0);
  EXPECT_EQ(File.Entries(1).size(), 1u);
  ASSERT_EQ(BusyHolder::Pauses.size(), 2010u);
  EXPECT_EQ(std::vector<int32_t>(BusyHolder::Pauses.begin(), BusyHolder::Pauses.begin() + 12),
            (std::vector<int32_t>{9, 8, 7, 6, 5, 4, 3, 2, 1, 10, 10, 10}));
  EXPECT_EQ(BusyHolder::Pauses.back(), 10);
  ASSERT_EQ(Shown.size(), 1u);
  EXPECT_EQ(Shown[0].first,
            platform::FaultDescription(platform::kPermissionDenied) + "\r\nfabs_emulate");
  EXPECT_EQ(Shown[0].second, MessageIcon::Exclamation);
}

}  // namespace
}  // namespace tqdb::testing

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

TEST(Dispatcher, UpperCasesTheWholeCommandInPlace) {
  EngineFile File({6});
  File.Run(platform::Utf8ToCp1252("i\\1\\garcía"));
  EXPECT_EQ(File.Status, 0);
  EXPECT_EQ(File.Command, platform::Utf8ToCp1252("I\\1\\GARCÍA"));
  File.Run("f\\1\\3");
  EXPECT_EQ(File.Command, "F\\1\\3");
  EXPECT_EQ(File.Status, 0);
  EXPECT_EQ(File.Result, 1);
  EXPECT_EQ(File.Entries(1).front().Text, platform::Utf8ToCp1252("GARCÍA"));
}

TEST(Dispatcher, ALeadingSlashMakesSlashTheSeparatorAndIsRemoved) {
  EngineFile File({6});
  const std::string Path = CommandPath(File.Path());
  File.Run("/o/" + Path + "/3");
  EXPECT_EQ(File.Status, 0);
  EXPECT_EQ(File.Command, "O/" + platform::UpperCase(Path) + "/3");
  EXPECT_NE(File.Engine.KeyFileNo, 0);
}

TEST(Dispatcher, LettersWithoutAnOperationDoNothing) {
  EngineFile File({6});
  File.Insert({"A"});
  for (const char* Command : {"B\\1\\1", "H", "J\\2", "M\\1", "Q", "Z\\1", "", "9\\1", "\\"}) {
    File.Result = 77;
    File.Status = 5;
    File.Run(Command);
    EXPECT_EQ(File.Result, 0) << Command;
    EXPECT_EQ(File.Status, 0) << Command;
  }
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

TEST(Dispatcher, ResultIsZeroAfterTheLettersThatReturnNothing) {
  EngineFile File({6});
  const int32_t Record = File.Insert({"A"});
  const std::vector<std::string> Commands = {
      "I\\1\\B",
      "D\\" + std::to_string(Record) + "\\Y\\1\\A",
      "T\\" + CommandPath(File.Dir().Path()),
      "/O/" + CommandPath(File.Path()) + "/1",
      "/C/" + CommandPath(File.Dir().File("nodict01.tqc")) + "/1/6/A/ 1",
      "K",
  };
  for (const std::string& Command : Commands) {
    File.Open();
    File.Run("F\\1\\1");
    ASSERT_NE(File.Result, 0);
    File.Run(Command);
    EXPECT_EQ(File.Result, 0) << Command;
  }
}

TEST(Dispatcher, CreateRestoresTheCommandAndClearsTheBuildingFlag) {
  EngineFile File({6});
  File.Run("T\\" + CommandPath(File.Dir().Dir()));
  const std::string Command = "/C/" + CommandPath(File.Dir().File("nodic01.tqc")) + "/1/6/A/ 1";
  File.Run(Command);
  EXPECT_EQ(File.Status, 105);  // no dictionary for the table
  EXPECT_FALSE(File.ErrorText.empty());
  EXPECT_EQ(File.Command, platform::UpperCase(Command.substr(1)));
  EXPECT_FALSE(File.Engine.Creating);
}

TEST(Dispatcher, TKeepsTheDirectoryAndUCountsDeletedRecords) {
  EngineFile File({6});
  File.Run("T\\/srv/conta/dic/");
  EXPECT_EQ(File.Engine.EngineDir, "/SRV/CONTA/DIC/");
  const int32_t A = File.Insert({"A"});
  const int32_t B = File.Insert({"B"});
  File.Delete(A, {"A"});
  File.Delete(B, {"B"});
  EXPECT_EQ(File.Run("U"), 2);
  EXPECT_EQ(File.Status, 0);
}

TEST(Dispatcher, ReplaceReturnsTheRecordNumberOfTheCommand) {
  EngineFile File({6});
  const int32_t Record = File.Insert({"A"});
  EXPECT_EQ(File.Run("R\\1\\" + std::to_string(Record) + "\\1\\A     \\B"), Record);
  EXPECT_EQ(File.Status, 0);
  EXPECT_EQ(File.Entries(1).front().Text, "B     ");
}

TEST(Dispatcher, BadFileNumberAndBadRecordNumberBecomeStatuses) {
  EngineFile File({6});
  File.Insert({"A"});
  File.Run("K");
  File.Run("F\\1\\1");
  EXPECT_EQ(File.Status, 100);
  File.Run("I\\1\\A");
  EXPECT_EQ(File.Status, 100);
  File.Run("U");
  EXPECT_EQ(File.Status, 100);
}

// Key texts over binary fields may hold the separator byte: a command that carries every
// key at full length is cut by the key lengths.
TEST(Dispatcher, FullLengthKeyTextsMayHoldTheSeparator) {
  EngineFile File({4, 3});
  const int32_t Record = File.Run("I\\1\\A\\BC\\X\\Y"), Allocated = File.Engine.LastAllocated;
  EXPECT_EQ(Record, 0);
  ASSERT_EQ(File.Status, 0);
  EXPECT_EQ(File.Entries(1).front().Text, "A\\BC");
  EXPECT_EQ(File.Entries(2).front().Text, "X\\Y");
  File.Run("R\\2\\" + std::to_string(Allocated) + "\\1\\X\\Y\\\\\\\\");
  ASSERT_EQ(File.Status, 0);
  EXPECT_EQ(File.Entries(2).front().Text, "\\\\\\");
  File.Run("D\\" + std::to_string(Allocated) + "\\Y\\1\\A\\BC\\\\\\\\");
  EXPECT_EQ(File.Status, 0);
  EXPECT_TRUE(File.Entries(1).empty());

  File.Run("I\\1\\AB\\XY");  // shorter texts: split at the separators
  ASSERT_EQ(File.Status, 0);
  EXPECT_EQ(File.Entries(1).front().Text, "AB  ");
  EXPECT_EQ(File.Entries(2).front().Text, "XY ");
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
  File.Run("D\\" + std::to_string(Record) + "\\Y\\1\\B");
  EXPECT_EQ(File.Status, 6);
  EXPECT_TRUE(Free());
  File.Run("I\\1\\A\\B");  // more key texts than keys: a fault inside the lock
  EXPECT_EQ(File.Status, 105);
  EXPECT_TRUE(Free());
  File.Run("R\\1\\" + std::to_string(Record) + "\\1\\Z\\Y");
  EXPECT_EQ(File.Status, 6);
  EXPECT_TRUE(Free());
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

TEST_F(DispatcherRetry, ABusyKeyFileIsRetriedWithShortSleeps) {
  EngineFile File({6});
  Hold(File.Path(), 12);
  File.Run("I\\1\\A");
  EXPECT_EQ(File.Status, 0);
  EXPECT_EQ(BusyHolder::Pauses, (std::vector<int32_t>{9, 8, 7, 6, 5, 4, 3, 2, 1, 10, 10, 10}));
  EXPECT_EQ(File.Entries(1).size(), 1u);
}

TEST_F(DispatcherRetry, TheMessageIsShownOnceAtTheTwoThousandthRetry) {
  EngineFile File({6});
  std::vector<std::pair<std::string, MessageIcon>> Shown;
  SetMessageSink(
      [&](const std::string& Text, MessageIcon Icon) { Shown.emplace_back(Text, Icon); });
  Hold(File.Path(), 2010);
  File.Run("I\\1\\A");
  EXPECT_EQ(File.Status, 0);
  EXPECT_EQ(BusyHolder::Pauses.size(), 2010u);
  ASSERT_EQ(Shown.size(), 1u);
  EXPECT_EQ(Shown[0].first,
            platform::FaultDescription(platform::kPermissionDenied) + "\r\nfabs_emulate");
  EXPECT_EQ(Shown[0].second, MessageIcon::Exclamation);
}

}  // namespace
}  // namespace tqdb::testing

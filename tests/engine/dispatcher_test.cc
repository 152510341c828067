#include "engine/dispatcher.h"

#include <gtest/gtest.h>

#include <string>
#include <utility>
#include <vector>

#include "engine/dispatcher_retry.h"
#include "engine_fixture.h"
#include "platform/fault.h"
#include "platform/file_pool.h"
#include "table/TQFile.h"

namespace tqdb::testing {
namespace {

// The command is upper-cased in place, a leading "/" sets the separator, and the file
// number fields are parsed and ignored. A create that fails restores the command and
// clears the building flag.
TEST(Dispatcher, UpperCasesTheCommandAndParsesTheFileNumberFields) {
  EngineFile File({6});
  File.Run(platform::Utf8ToCp1252("i\\1\\garcía"));
  EXPECT_EQ(File.Status, 0);
  EXPECT_EQ(File.Command, platform::Utf8ToCp1252("I\\1\\GARCÍA"));
  EXPECT_EQ(File.Entries(1).front().Text, platform::Utf8ToCp1252("GARCÍA"));
  const std::string Path = CommandPath(File.Path());
  File.Run("/o/" + Path + "/3");
  EXPECT_EQ(File.Status, 0);
  EXPECT_EQ(File.Command, "O/" + platform::UpperCase(Path) + "/3");
  const int32_t Second = File.Insert({"Z"});
  EXPECT_EQ(File.Run("f\\1\\99"), 1);
  EXPECT_EQ(File.Run("N\\7"), Second);
  EXPECT_EQ(File.Run("P"), 1);  // no field at all
  const std::string Create = "/C/" + CommandPath(File.Dir().File("nodict01.tqc")) + "/1/6/A/ 1";
  File.Run("T\\" + CommandPath(File.Dir().Dir()));
  File.Result = 5;
  File.Run(Create);
  EXPECT_EQ(File.Status, 105);  // no dictionary for the table
  EXPECT_EQ(File.Result, 0);
  EXPECT_EQ(File.Command, platform::UpperCase(Create.substr(1)));
  EXPECT_FALSE(File.Engine.Creating);
}

// The retry path: byte 1 held by another descriptor; the sleep hook counts the retries and
// lets go of the byte after a given number.
struct BusyHolder {
  static inline platform::FileNo Number = 0;
  static inline size_t ReleaseAfter = 2010;
  static inline std::vector<int32_t> Pauses;
  static void Sleep(int32_t Milliseconds) {
    Pauses.push_back(Milliseconds);
    if (Pauses.size() == ReleaseAfter) platform::UnlockRange(Number, 1, 1);
  }
};

// The lock of byte 1 is released on every way out of D, I and R; while another holds it,
// short sleeps count down, then 10 ms, and the message shows once, at the 2000th retry.
TEST(Dispatcher, TheKeyFileLockIsReleasedOnEveryWayOutAndABusyOneIsRetried) {
  EngineFile File({6});
  BusyHolder::Number = platform::TakeFreeNumber();
  platform::Open(BusyHolder::Number, File.Path());
  const int32_t Record = File.Insert({"A"});
  for (const std::string& Command : {"D\\" + std::to_string(Record) + "\\Y\\1\\B",
                                     std::string("I\\1\\A\\B"),  // a fault inside the lock
                                     "R\\1\\" + std::to_string(Record) + "\\1\\Z\\Y"}) {
    File.Run(Command);
    EXPECT_NE(File.Status, 0) << Command;
    EXPECT_NO_THROW(platform::LockRange(BusyHolder::Number, 1, 1)) << Command;
    platform::UnlockRange(BusyHolder::Number, 1, 1);
  }
  std::vector<std::pair<std::string, MessageIcon>> Shown;
  SetMessageSink(
      [&](const std::string& Text, MessageIcon Icon) { Shown.emplace_back(Text, Icon); });
  platform::LockRange(BusyHolder::Number, 1, 1);
  const engine::RetrySleepFunction Previous = engine::SetRetrySleep(&BusyHolder::Sleep);
  File.Run("I\\1\\B");
  engine::SetRetrySleep(Previous);
  SetMessageSink(nullptr);
  platform::ReleaseNumber(BusyHolder::Number);
  EXPECT_EQ(File.Status, 0);
  EXPECT_EQ(File.Entries(1).size(), 2u);
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

#include "platform/clock.h"

#include <gtest/gtest.h>

#include <regex>

#include "support/scoped_env.h"

namespace tqdb::platform {
namespace {

TEST(Clock, MinutesDotSecondsWritesSecondsAfterThePoint) {
  EXPECT_DOUBLE_EQ(MinutesDotSeconds(150), 2.3);
  EXPECT_DOUBLE_EQ(MinutesDotSeconds(59), 0.59);
  EXPECT_DOUBLE_EQ(MinutesDotSeconds(3601.5), 60.02);
}

TEST(Clock, TimerCountsSecondsSinceMidnight) {
  const double T = Timer();
  EXPECT_GE(T, 0);
  EXPECT_LT(T, 86400);
  SleepMilliseconds(20);
  const double Later = Timer();
  if (Later > T) {  // unless midnight passed
    EXPECT_GE(Later - T, 0.015);
  }
}

TEST(Clock, ArchiveTimestampAndTempDirectory) {
  EXPECT_TRUE(std::regex_match(ArchiveTimestamp(),
                               std::regex(" \\d{4}-\\d{2}-\\d{2} \\d{2} \\d{2} \\d{2} ")));
  {
    testing::ScopedEnv Tmp("TMPDIR", "/var/tmp");
    EXPECT_EQ(TempDirectory(), "/var/tmp/");
  }
  testing::ScopedEnv Tmp("TMPDIR", nullptr);
  EXPECT_EQ(TempDirectory(), "/tmp/");
}

}  // namespace
}  // namespace tqdb::platform

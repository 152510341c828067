#include "platform/clock.h"

#include <gtest/gtest.h>

#include <regex>

#include "support/scoped_env.h"

namespace tqdb::platform {
namespace {

TEST(Clock, TimerCountsSecondsSinceMidnightAndMinutesDotSecondsShowsThem) {
  EXPECT_DOUBLE_EQ(MinutesDotSeconds(150), 2.3);
  EXPECT_DOUBLE_EQ(MinutesDotSeconds(3601.5), 60.02);
  const double T = Timer();
  EXPECT_GE(T, 0);
  EXPECT_LT(T, 86400);
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

// Local time, sleeping and the temporary directory.
#include "platform/clock.h"

#include <time.h>

#include <chrono>
#include <cmath>
#include <cstdlib>
#include <thread>

#include "platform/codepage.h"
#include "platform/numbers.h"

namespace tqdb::platform {
namespace {

struct LocalNow {
  struct tm Fields;
  long Nanoseconds;
};

LocalNow Now() {
  struct timespec Spec;
  ::clock_gettime(CLOCK_REALTIME, &Spec);
  LocalNow Result{};
  ::localtime_r(&Spec.tv_sec, &Result.Fields);
  Result.Nanoseconds = Spec.tv_nsec;
  return Result;
}

}  // namespace

double Timer() {
  const LocalNow N = Now();
  return N.Fields.tm_hour * 3600.0 + N.Fields.tm_min * 60.0 + N.Fields.tm_sec +
         static_cast<double>(N.Nanoseconds) / 1e9;
}

void SleepMilliseconds(int32_t Milliseconds) {
  if (Milliseconds <= 0) {
    std::this_thread::yield();
    return;
  }
  std::this_thread::sleep_for(std::chrono::milliseconds(Milliseconds));
}

std::string TempDirectory() {
  const char* Value = std::getenv("TMPDIR");
  std::string Directory = (Value != nullptr && *Value != '\0') ? Utf8ToCp1252(Value) : "/tmp/";
  if (Directory.back() != '/') Directory += '/';
  return Directory;
}

std::string ArchiveTimestamp() {
  const LocalNow N = Now();
  char Buffer[32];
  const size_t Length = std::strftime(Buffer, sizeof Buffer, " %Y-%m-%d %H %M %S ", &N.Fields);
  return std::string(Buffer, Length);
}

double MinutesDotSeconds(double ElapsedSeconds) {
  const double Minutes = ElapsedSeconds / 60.0;
  const double Whole = std::floor(Minutes);
  return RoundHalfEven((Whole + (Minutes - Whole) * 0.6) * 100.0) / 100.0;
}

}  // namespace tqdb::platform

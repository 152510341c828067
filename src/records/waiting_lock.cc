#include "records/waiting_lock.h"

#include "platform/clock.h"
#include "platform/fault.h"

namespace tqdb {
namespace {

constexpr int32_t kMaxTries = 2000;

}  // namespace

WaitingRangeLock::WaitingRangeLock(platform::FileNo Number, int64_t First, int64_t Last) {
  for (int32_t Tries = 1;; ++Tries) {
    try {
      lock_.emplace(Number, First, Last);
      return;
    } catch (const platform::Fault& Failure) {
      if (Failure.Number() != platform::kPermissionDenied || Tries >= kMaxTries) throw;
    }
    platform::SleepMilliseconds(Tries < 10 ? 10 - Tries : 10);
  }
}

}  // namespace tqdb

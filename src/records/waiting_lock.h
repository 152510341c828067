// A byte-range lock that another user may hold for a moment: the whole image or long-text
// file while a value is appended, a whole record while it is deleted.
//
// Taking it waits with the engine channel's short sleeps (9 ms, 8 ms, ... then 10 ms)
// while the range is held elsewhere, so that two users saving at once both succeed
// instead of one of them failing half-way through its save. After about 20 s it gives up
// with the lock's own Fault 70. The range is unlocked when the object goes, on every way
// out; other faults of the lock call pass through at once.
#pragma once

#include <cstdint>
#include <optional>

#include "platform/file_pool.h"

namespace tqdb {

class WaitingRangeLock {
 public:
  // First and Last as for platform::LockRange (1-based, inclusive; Last kToEnd).
  WaitingRangeLock(platform::FileNo Number, int64_t First, int64_t Last);
  WaitingRangeLock(const WaitingRangeLock&) = delete;
  WaitingRangeLock& operator=(const WaitingRangeLock&) = delete;

 private:
  std::optional<platform::ScopedRangeLock> lock_;
};

}  // namespace tqdb

// Holding a table alone: the presence lock of its data file made exclusive.
#pragma once

#include "platform/fault.h"
#include "platform/file_pool.h"

namespace tqdb {

// Holds the table alone for the life of the object: the presence lock of the data file is
// made exclusive (Fault 70 when another table object has the table open, and nothing is
// changed) and is shared again at the end, when the data file is still open. While it is
// held no other table object can open the table: taking its shared presence lock fails.
class ExclusiveUse {
 public:
  explicit ExclusiveUse(platform::FileNo DataFile) : data_file_(DataFile) {
    if (!platform::TryExclusivePresence(data_file_)) {
      throw platform::Fault(platform::kPermissionDenied);
    }
  }
  ~ExclusiveUse() {
    try {
      if (platform::IsOpen(data_file_)) platform::HoldPresence(data_file_);
    } catch (...) {
    }
  }
  ExclusiveUse(const ExclusiveUse&) = delete;
  ExclusiveUse& operator=(const ExclusiveUse&) = delete;

 private:
  platform::FileNo data_file_;
};

}  // namespace tqdb

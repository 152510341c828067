// A file number of the pool owned by one scope.
#pragma once

#include <string_view>

#include "platform/file_pool.h"

namespace tqdb::platform {

// Takes the lowest free number (Fault 67 when none) and gives it back, closing whatever
// is open on it, on every way out. A failure while giving it back is swallowed: a
// destructor has nobody to tell, and the number is freed either way.
class ScopedFileNumber {
 public:
  ScopedFileNumber() : number_(TakeFreeNumber()) {}
  // Takes a number and opens Path on it; when the open fails (raising as Open does) the
  // number is given back.
  ScopedFileNumber(std::string_view Path, OpenMode Mode) : ScopedFileNumber() {
    Open(number_, Path, Mode);
  }
  ~ScopedFileNumber() {
    try {
      ReleaseNumber(number_);
    } catch (...) {
    }
  }
  ScopedFileNumber(const ScopedFileNumber&) = delete;
  ScopedFileNumber& operator=(const ScopedFileNumber&) = delete;

  FileNo get() const { return number_; }

 private:
  FileNo number_;
};

}  // namespace tqdb::platform

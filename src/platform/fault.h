// Faults: the library's internal error, carrying a classic run-time error number.
//
// Inside the library a failing operation raises a Fault. The dispatcher of the engine
// channel sorts faults by number; at the public face every Fault becomes a TQError with
// the same number, description and source.
#pragma once

#include <cstdint>
#include <exception>
#include <string>
#include <utility>

namespace tqdb::platform {

// Classic run-time error numbers used by the library.
enum FaultNumber : int32_t {
  kInvalidCall = 5,        // invalid procedure call or argument
  kOverflow = 6,           // overflow
  kSubscript = 9,          // subscript out of range
  kDivisionByZero = 11,    // division by zero
  kTypeMismatch = 13,      // type mismatch
  kBadFileNumber = 52,     // bad file name or number
  kFileNotFound = 53,      // file not found
  kFileAlreadyOpen = 55,   // file already open
  kDiskFull = 61,          // disk full
  kInputPastEnd = 62,      // input past end of file
  kBadRecordNumber = 63,   // bad record number
  kTooManyFiles = 67,      // too many files (no free file number)
  kPermissionDenied = 70,  // permission denied (also: a byte range locked elsewhere)
  kPathFileAccess = 75,    // path/file access error
  kPathNotFound = 76,      // path not found
  kEngineFault = 55000,    // a failed engine command, or a damaged key file
};

// Spanish description of a classic run-time error number, in UTF-8 (descriptions only
// ever go to the user, never into files or keys); for an unknown number, "Error definido
// por la aplicación o el objeto".
std::string FaultDescription(int32_t Number);

class Fault : public std::exception {
 public:
  // Description defaults to FaultDescription(Number).
  explicit Fault(int32_t Number, std::string Description = "", std::string Source = "");
  int32_t Number() const { return number_; }
  const std::string& Description() const { return description_; }
  const std::string& Source() const { return source_; }
  void SetSource(std::string Source) { source_ = std::move(Source); }
  const char* what() const noexcept override { return description_.c_str(); }

 private:
  int32_t number_;
  std::string description_;
  std::string source_;
};

// Maps an errno value from a failed system call to the closest fault number
// (ENOENT 53, ENOSPC 61, EACCES/EAGAIN/EPERM 70, EBADF 52, EMFILE 67, ENOTDIR 76,
// others 75).
int32_t FaultNumberFromErrno(int Errno);

}  // namespace tqdb::platform

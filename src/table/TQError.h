// The one error type that reaches a client of the library.
#pragma once

#include <cstdint>
#include <exception>
#include <string>

#include "table/tqdb_export.h"

namespace tqdb {

// Every error raised to a client: the system's number (a classic run-time error number
// such as 6 or 13, or one of the system's own in the 50200..55000 range), its Spanish
// description (UTF-8) and the name of the routine that raised it (may be empty).
class TQDB_API TQError : public std::exception {
 public:
  TQError(int32_t Number, std::string Description, std::string Source = "");
  int32_t Number() const;
  const std::string& Description() const;
  const std::string& Source() const;
  const char* what() const noexcept override;

 private:
  int32_t number_;
  std::string description_;
  std::string source_;
  std::string what_;
};

}  // namespace tqdb

// Sets (or unsets) an environment variable for one scope and restores it afterwards.
#pragma once

#include <stdlib.h>

#include <optional>
#include <string>
#include <utility>

namespace tqdb::testing {

class ScopedEnv {
 public:
  // Value nullptr unsets the variable for the scope.
  ScopedEnv(std::string Name, const char* Value) : name_(std::move(Name)) {
    if (const char* Old = ::getenv(name_.c_str())) old_ = Old;
    if (Value != nullptr) {
      ::setenv(name_.c_str(), Value, 1);
    } else {
      ::unsetenv(name_.c_str());
    }
  }
  ~ScopedEnv() {
    if (old_) {
      ::setenv(name_.c_str(), old_->c_str(), 1);
    } else {
      ::unsetenv(name_.c_str());
    }
  }
  ScopedEnv(const ScopedEnv&) = delete;
  ScopedEnv& operator=(const ScopedEnv&) = delete;

 private:
  std::string name_;
  std::optional<std::string> old_;
};

}  // namespace tqdb::testing

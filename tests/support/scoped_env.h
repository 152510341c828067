// Sets (or, with Value nullptr, unsets) an environment variable for one scope and
// restores it afterwards.
#pragma once

#include <stdlib.h>

#include <optional>
#include <string>
#include <utility>

namespace tqdb::testing {

class ScopedEnv {
 public:
  ScopedEnv(std::string Name, const char* Value) : name_(std::move(Name)) {
    if (const char* Old = ::getenv(name_.c_str())) old_ = Old;
    Set(Value);
  }
  ~ScopedEnv() { Set(old_ ? old_->c_str() : nullptr); }
  ScopedEnv(const ScopedEnv&) = delete;
  ScopedEnv& operator=(const ScopedEnv&) = delete;

 private:
  void Set(const char* Value) {
    if (Value != nullptr) {
      ::setenv(name_.c_str(), Value, 1);
    } else {
      ::unsetenv(name_.c_str());
    }
  }

  std::string name_;
  std::optional<std::string> old_;
};

}  // namespace tqdb::testing

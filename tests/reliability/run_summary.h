// Figures gathered across the tests of one program, printed once at its end.
#pragma once

#include <gtest/gtest.h>

#include <cstdio>
#include <functional>
#include <string>
#include <utility>

namespace tqdb::testing {

// Prints Line() as a line of its own when the test program ends (GoogleTest's global
// tear-down), unless it is empty. Returns true, so that a test file can register its
// line while its globals are initialised.
inline bool PrintAtEnd(std::function<std::string()> Line) {
  class Summary : public ::testing::Environment {
   public:
    explicit Summary(std::function<std::string()> Line) : line_(std::move(Line)) {}
    void TearDown() override {
      const std::string Text = line_();
      if (!Text.empty()) std::printf("%s\n", Text.c_str());
    }

   private:
    std::function<std::string()> line_;
  };
  ::testing::AddGlobalTestEnvironment(new Summary(std::move(Line)));  // GoogleTest owns it
  return true;
}

}  // namespace tqdb::testing

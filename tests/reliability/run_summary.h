// Prints a figure gathered across the tests of one program once, when the program ends.
#pragma once

#include <gtest/gtest.h>

#include <cstdio>
#include <functional>
#include <string>
#include <utility>

namespace tqdb::testing {

// Registers Line() to be printed at GoogleTest's global tear-down unless it is empty;
// returns true, so that a test file can register it while its globals are initialised.
inline bool PrintAtEnd(std::function<std::string()> Line) {
  struct Summary : ::testing::Environment {
    std::function<std::string()> Line;
    void TearDown() override {
      if (const std::string Text = Line(); !Text.empty()) std::printf("%s\n", Text.c_str());
    }
  };
  auto* Printer = new Summary;  // GoogleTest owns it
  Printer->Line = std::move(Line);
  ::testing::AddGlobalTestEnvironment(Printer);
  return true;
}

}  // namespace tqdb::testing

#include "fuzz_support.h"

#include <stdlib.h>

#include <cstdio>
#include <cstdlib>

#include "table/TQFile.h"

namespace tqdb::fuzz {

const testing::TempDir& Scratch() {
  static const testing::TempDir Dir;
  static const bool Once = [] {
    ::setenv("TMPDIR", Dir.Path().c_str(), 1);
    SetMessageSink([](const std::string&, MessageIcon) {});
    return true;
  }();
  (void)Once;
  return Dir;
}

void Finding(const std::string& What) {
  std::fprintf(stderr, "FINDING: %s\n", What.c_str());
  std::fflush(stderr);
  std::abort();
}

}  // namespace tqdb::fuzz

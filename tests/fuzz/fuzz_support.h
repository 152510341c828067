// Shared pieces of the fuzz targets: a scratch directory for the whole run, and the way a
// target reports a finding.
#pragma once

#include <string>

#include "support/temp_dir.h"

namespace tqdb::fuzz {

// A directory of this run's own, removed when the process ends. Also points TMPDIR there
// and silences the messages the library would show a person.
const testing::TempDir& Scratch();

// Reports a broken property and aborts (libFuzzer keeps the input as a crash artifact).
[[noreturn]] void Finding(const std::string& What);

}  // namespace tqdb::fuzz

// Kill points for crash tests: an armed switch kills the process (SIGKILL) just before its
// n-th change to a file (pwrite, ftruncate, rename or unlink). Trying n = 1, 2, ... until the
// change completes stops a process between every two of its writes: every state a crash can
// leave on disk (a killed process loses no write it made: the page cache keeps it). The
// switch defines those calls in the one test program that links kill_switch.cc; they count
// and pass each call on to the C library.
#pragma once

#include <cstdint>

namespace tqdb::testing {

void ArmKillSwitch(int64_t N);  // kills before the Nth file change from now on; 0 disarms
void DisarmKillSwitch();

}  // namespace tqdb::testing

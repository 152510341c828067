// Kill points for crash tests: a process can arm a switch that kills it (SIGKILL) just
// before its n-th change to a file (a pwrite, ftruncate, rename or unlink). Trying n =
// 1, 2, ... until the operation completes stops a process between every two of its
// writes, which is every state a crash can leave on disk (a killed process loses no write
// it made: the page cache keeps it).
//
// The switch works by defining those four calls in the test program: the library's calls
// reach these definitions first, which count and then pass the call on to the C library.
// Only the one test program that links kill_switch.cc gets them; disarmed they only pass
// the call on.
#pragma once

#include <cstdint>

namespace tqdb::testing {

// Kills the calling process just before its Nth file change from now on; 0 disarms.
void ArmKillSwitch(int64_t N);
void DisarmKillSwitch();
// File changes counted since the switch was armed (also while disarmed: since the last
// arming).
int64_t FileChangesSeen();

}  // namespace tqdb::testing

// The kill switch of kill_switch.h: pwrite, ftruncate, rename and unlink count file changes
// and pass each call on to the next definition (the C library's, or a sanitizer's).
#include "reliability/kill_switch.h"

#include <dlfcn.h>
#include <signal.h>
#include <stdio.h>
#include <unistd.h>

#include <atomic>

namespace tqdb::testing {
namespace {

std::atomic<int64_t> KillAt{0};
std::atomic<int64_t> Seen{0};

// Counts one file change; dies before it when it is the armed one.
void CountChange() {
  const int64_t Now = Seen.fetch_add(1) + 1;
  const int64_t At = KillAt.load();
  if (At > 0 && Now >= At) ::kill(::getpid(), SIGKILL);
}

template <typename Function>
Function Next(const char* Name) {
  return reinterpret_cast<Function>(::dlsym(RTLD_NEXT, Name));
}

}  // namespace

void ArmKillSwitch(int64_t N) {
  Seen.store(0);
  KillAt.store(N);
}
void DisarmKillSwitch() { KillAt.store(0); }

}  // namespace tqdb::testing

extern "C" {

ssize_t pwrite(int Fd, const void* Bytes, size_t Count, off_t Offset) {
  static const auto Real =
      tqdb::testing::Next<ssize_t (*)(int, const void*, size_t, off_t)>("pwrite");
  tqdb::testing::CountChange();
  return Real(Fd, Bytes, Count, Offset);
}

int ftruncate(int Fd, off_t Length) noexcept {
  static const auto Real = tqdb::testing::Next<int (*)(int, off_t)>("ftruncate");
  tqdb::testing::CountChange();
  return Real(Fd, Length);
}

int rename(const char* From, const char* To) noexcept {
  static const auto Real = tqdb::testing::Next<int (*)(const char*, const char*)>("rename");
  tqdb::testing::CountChange();
  return Real(From, To);
}

int unlink(const char* Path) noexcept {
  static const auto Real = tqdb::testing::Next<int (*)(const char*)>("unlink");
  tqdb::testing::CountChange();
  return Real(Path);
}

}  // extern "C"

// The tests here stop processes, never the machine: a killed process loses nothing the
// page cache holds, so syncing to the disk proves nothing and only costs time.
extern "C" int fsync(int) { return 0; }
extern "C" int fdatasync(int) { return 0; }

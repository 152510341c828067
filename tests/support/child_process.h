// A forked child process for tests that need several processes on one table, or a process
// that dies at a chosen moment. The child leaves with _exit: its exit code is what the body
// returns (97 when it threw). Wait kills a child that outlives its limit, so that a hang
// fails the test instead of stalling the suite.
#pragma once

#include <signal.h>
#include <sys/wait.h>
#include <unistd.h>

#include <chrono>
#include <cstdio>
#include <string>
#include <thread>

namespace tqdb::testing {

class ChildProcess {
 public:
  template <typename F>
  explicit ChildProcess(F&& Body) {
    std::fflush(nullptr);
    pid_ = ::fork();
    if (pid_ != 0) return;
    int Code = 97;
    try {
      Code = Body();
    } catch (...) {
    }
    std::fflush(nullptr);
    ::_exit(Code);
  }
  ~ChildProcess() {
    if (pid_ > 0 && !reaped_) {
      ::kill(pid_, SIGKILL);
      ::waitpid(pid_, nullptr, 0);
    }
  }
  ChildProcess(const ChildProcess&) = delete;
  ChildProcess& operator=(const ChildProcess&) = delete;

  void Wait(std::chrono::milliseconds Limit) {
    const auto Deadline = std::chrono::steady_clock::now() + Limit;
    while (::waitpid(pid_, &status_, WNOHANG) == 0) {
      if (std::chrono::steady_clock::now() >= Deadline) {
        timed_out_ = true;
        ::kill(pid_, SIGKILL);
        ::waitpid(pid_, &status_, 0);
        break;
      }
      std::this_thread::sleep_for(std::chrono::milliseconds(2));
    }
    reaped_ = true;
  }
  bool Succeeded() const { return reaped_ && WIFEXITED(status_) && WEXITSTATUS(status_) == 0; }
  bool Killed() const {
    return !timed_out_ && WIFSIGNALED(status_) && WTERMSIG(status_) == SIGKILL;
  }
  // "exit 3", "signal 9", "timed out".
  std::string Outcome() const {
    if (timed_out_) return "timed out";
    if (WIFEXITED(status_)) return "exit " + std::to_string(WEXITSTATUS(status_));
    return "signal " + std::to_string(WTERMSIG(status_));
  }

 private:
  pid_t pid_ = -1;
  int status_ = 0;
  bool reaped_ = false, timed_out_ = false;
};

}  // namespace tqdb::testing

// A forked child process for tests that need several processes on one table, or a
// process that dies at a chosen moment.
//
// The child runs the given function and leaves with _exit (no static destructors, no
// test-framework teardown): its exit code is what the function returns, 97 when it
// threw. The parent waits with a time limit and kills the child (SIGKILL) when the limit
// passes, so that a hang shows as a failure instead of stalling the suite.
#pragma once

#include <signal.h>
#include <sys/types.h>
#include <sys/wait.h>
#include <unistd.h>

#include <chrono>
#include <cstdio>
#include <stdexcept>
#include <string>
#include <thread>
#include <utility>

namespace tqdb::testing {

class ChildProcess {
 public:
  // Forks and runs Body in the child. REQUIRES: the calling process has one thread.
  template <typename F>
  explicit ChildProcess(F&& Body) {
    std::fflush(nullptr);
    pid_ = ::fork();
    if (pid_ < 0) throw std::runtime_error("fork failed");
    if (pid_ == 0) {
      int Code = 97;
      try {
        Code = std::forward<F>(Body)();
      } catch (const std::exception& Failure) {
        std::fprintf(stderr, "child %d: %s\n", static_cast<int>(::getpid()), Failure.what());
      } catch (...) {
        std::fprintf(stderr, "child %d: unknown exception\n", static_cast<int>(::getpid()));
      }
      std::fflush(nullptr);
      ::_exit(Code);
    }
  }
  ~ChildProcess() {
    if (pid_ > 0 && !reaped_) {
      ::kill(pid_, SIGKILL);
      ::waitpid(pid_, nullptr, 0);
    }
  }
  ChildProcess(const ChildProcess&) = delete;
  ChildProcess& operator=(const ChildProcess&) = delete;

  pid_t Pid() const { return pid_; }

  // Waits up to Limit for the child to end; kills it when the limit passes. Returns the
  // wait status; TimedOut tells whether the child had to be killed.
  int Wait(std::chrono::milliseconds Limit) {
    const auto Deadline = std::chrono::steady_clock::now() + Limit;
    int Status = 0;
    for (;;) {
      const pid_t Done = ::waitpid(pid_, &Status, WNOHANG);
      if (Done == pid_) break;
      if (Done < 0) throw std::runtime_error("waitpid failed");
      if (std::chrono::steady_clock::now() >= Deadline) {
        timed_out_ = true;
        ::kill(pid_, SIGKILL);
        ::waitpid(pid_, &Status, 0);
        break;
      }
      std::this_thread::sleep_for(std::chrono::milliseconds(2));
    }
    reaped_ = true;
    status_ = Status;
    return Status;
  }

  bool TimedOut() const { return timed_out_; }
  // True when the child returned 0 from its function.
  bool Succeeded() const { return reaped_ && WIFEXITED(status_) && WEXITSTATUS(status_) == 0; }
  // "exit 3", "signal 9", "timed out".
  std::string Outcome() const {
    if (timed_out_) return "timed out";
    if (WIFEXITED(status_)) return "exit " + std::to_string(WEXITSTATUS(status_));
    if (WIFSIGNALED(status_)) return "signal " + std::to_string(WTERMSIG(status_));
    return "status " + std::to_string(status_);
  }

 private:
  pid_t pid_ = -1;
  bool reaped_ = false;
  bool timed_out_ = false;
  int status_ = 0;
};

}  // namespace tqdb::testing

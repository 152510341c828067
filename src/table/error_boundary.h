// The error boundary of the public interface.
//
// Every public member of TQFile runs its work inside Guard. Whatever the work raises
// leaves as a TQError, never as another exception type:
//   - a TQError passes through unchanged;
//   - a platform::Fault becomes a TQError with the fault's number and description, and
//     the fault's source, or the member's name when the fault names none; the system's
//     own errors (50000 and up) get no source;
//   - std::bad_alloc becomes TQError 7 "Memoria insuficiente";
//   - any other exception becomes TQError 5 with its classic description.
#pragma once

#include <utility>

namespace tqdb {

// REQUIRES: called from inside a catch handler. Rethrows the exception being handled as
// a TQError (see above), Source naming the public member.
[[noreturn]] void RethrowAsTQError(const char* Source);

// Runs Work and returns its result; see the conversions above.
template <typename F>
decltype(auto) Guard(const char* Source, F&& Work) {
  try {
    return std::forward<F>(Work)();
  } catch (...) {
    RethrowAsTQError(Source);
  }
}

}  // namespace tqdb

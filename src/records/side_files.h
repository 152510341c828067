// Helpers shared by the routines that keep values in a table's side files: the image
// file (".tqw") and the long-text file (".tqy").
#pragma once

#include <cstdint>
#include <utility>

#include "platform/fault.h"
#include "platform/file_pool.h"

namespace tqdb {

// Runs Work and returns what it returns; a Fault leaving it names Source as the routine
// that failed, unless an inner routine named itself already.
template <typename F>
decltype(auto) Traced(const char* Source, F&& Work) {
  try {
    return std::forward<F>(Work)();
  } catch (platform::Fault& Failure) {
    if (Failure.Source().empty()) Failure.SetSource(Source);
    throw;
  }
}

// Writes Count zero bytes at 1-based Position of File, a bounded chunk at a time.
// Raises as WriteAt does; a Count of 0 or less writes nothing.
void WriteZeros(platform::FileNo File, int64_t Position, int64_t Count);

}  // namespace tqdb

// The pause between retries of an engine command that met a busy key file (or a nested
// fault 55000). By default a millisecond sleep; tests put in their own to count the
// retries or to release a lock after a given number of them.
#pragma once

#include <cstdint>

namespace tqdb::engine {

using RetrySleepFunction = void (*)(int32_t Milliseconds);

// Installs Sleep (nullptr restores the default) and returns the one it replaces.
// Process-wide; not meant to be changed while commands run on other threads.
RetrySleepFunction SetRetrySleep(RetrySleepFunction Sleep);

}  // namespace tqdb::engine

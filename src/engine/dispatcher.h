// The engine command channel's dispatcher.
//
// Every key operation travels as one text command: a letter and fields separated by "\"
// (or by "/" when the command starts with "/", for commands that carry paths).
#pragma once

#include <cstdint>
#include <string>

#include "engine/EngineState.h"

namespace tqdb {

// Parses Command (upper-cased in place, its leading "/" removed), runs one engine
// operation on Engine and writes Result (0 unless the letter returns a value) and Status.
// Faults inside are sorted: 52 gives status 100, 63 gives 101, 55000 is retried with
// short sleeps (the message shown once at 2000 tries), any other gives status 105 with
// its description in ErrorText. A damaged key-file header is not retried: it gives
// status 105 with the "estropeado" description.
void fabs_emulate(EngineState& Engine, std::string& Command, int32_t& Result, int16_t& Status,
                  std::string& ErrorText);

}  // namespace tqdb

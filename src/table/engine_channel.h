// The table's side of the engine command channel.
//
// A command is Windows-1252 text in TableState::EngineCommand; the dispatcher rewrites
// it in place (upper-cased, leading "/" removed) and leaves the engine's answer in
// EngineResult and the status in LastError. Subsystems of the library send their key
// operations through Execute or Send, never by calling the engine directly.
#pragma once

#include <cstdint>
#include <string>

#include "table/TableState.h"

namespace tqdb::channel {

// Status the dispatcher leaves for a fault it could not classify; ErrorText holds the
// fault's description (UTF-8, as every fault description).
inline constexpr int16_t kStatusEngineFault = 105;

// Runs State.EngineCommand through the dispatcher. Never raises for a failed command:
// the status is in State.LastError (105 with State.ErrorText for an unclassified fault).
void Dispatch(TableState& State);

// Dispatch, then raises Fault 55000 with State.ErrorText as its description when the
// status is 105. Every other status is left in State.LastError for the caller to test.
void Execute(TableState& State);

// Puts Command (Windows-1252) into State.EngineCommand, runs Execute and returns
// State.EngineResult.
int32_t Send(TableState& State, std::string Command);

}  // namespace tqdb::channel

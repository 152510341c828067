// The table's side of the engine command channel: every key operation the table asks of
// its index engine goes through here as one command text.
//
// A command is Windows-1252 text in TableState::EngineCommand; the dispatcher rewrites
// it in place (upper-cased, leading "/" removed) and leaves the engine's answer in
// EngineResult and the status in LastError. Subsystems of the library send their key
// operations through ExecuteCommand or SendCommand, never by calling the engine directly.
#pragma once

#include <cstdint>
#include <string>

#include "table/TableState.h"

namespace tqdb {

// Status the dispatcher leaves for a fault it could not classify; ErrorText holds the
// fault's description (UTF-8, as every fault description).
inline constexpr int16_t kStatusEngineFault = 105;

// Runs State.EngineCommand through the dispatcher. Never raises for a failed command:
// the status is in State.LastError (105 with State.ErrorText for an unclassified fault).
void DispatchCommand(TableState& State);

// DispatchCommand, then raises Fault 55000 with State.ErrorText as its description when
// the status is 105. Every other status is left in State.LastError for the caller to test.
void ExecuteCommand(TableState& State);

// Puts Command (Windows-1252) into EngineCommand and runs it as ExecuteCommand does.
void SendCommand(TableState& State, std::string Command);

}  // namespace tqdb

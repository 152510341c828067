// The table side of the engine command channel: every key operation the table asks of
// its index engine goes through here as one command text.
#pragma once

#include <string>

#include "table/TableState.h"

namespace tqdb {

// Runs State.EngineCommand through the dispatcher, which leaves the result in
// EngineResult and the status in LastError. A status of 105 (an unexpected fault inside
// the engine) raises Fault 55000 with the fault's description (ErrorText).
void ExecuteCommand(TableState& State);

// Puts Command (Windows-1252) into EngineCommand and runs it as ExecuteCommand does.
void SendCommand(TableState& State, std::string Command);

}  // namespace tqdb

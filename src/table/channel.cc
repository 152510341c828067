// The table's side of the engine command channel (see channel.h).
#include "table/channel.h"

#include <utility>

#include "engine/dispatcher.h"
#include "platform/fault.h"

namespace tqdb {

void DispatchCommand(TableState& State) {
  fabs_emulate(State.Engine, State.EngineCommand, State.EngineResult, State.LastError,
               State.ErrorText);
}

void ExecuteCommand(TableState& State) {
  DispatchCommand(State);
  if (State.LastError == kStatusEngineFault) {
    throw platform::Fault(platform::kEngineFault, State.ErrorText);
  }
}

void SendCommand(TableState& State, std::string Command) {
  State.EngineCommand = std::move(Command);
  ExecuteCommand(State);
}

}  // namespace tqdb

// The table's side of the engine command channel.
#include "table/engine_channel.h"

#include <utility>

#include "engine/dispatcher.h"
#include "platform/fault.h"

namespace tqdb::channel {

void Dispatch(TableState& State) {
  fabs_emulate(State.Engine, State.EngineCommand, State.EngineResult, State.LastError,
               State.ErrorText);
}

void Execute(TableState& State) {
  Dispatch(State);
  if (State.LastError == kStatusEngineFault) {
    throw platform::Fault(platform::kEngineFault, State.ErrorText);
  }
}

int32_t Send(TableState& State, std::string Command) {
  State.EngineCommand = std::move(Command);
  Execute(State);
  return State.EngineResult;
}

}  // namespace tqdb::channel

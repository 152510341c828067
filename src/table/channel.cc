#include "table/channel.h"

#include <utility>

#include "table/engine_channel.h"

namespace tqdb {

void ExecuteCommand(TableState& State) { channel::Execute(State); }

void SendCommand(TableState& State, std::string Command) {
  channel::Send(State, std::move(Command));
}

}  // namespace tqdb

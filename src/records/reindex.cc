// Rebuilding the key file of an open table.
#include "records/reindex.h"

#include <string>

#include "platform/clock.h"
#include "platform/fault.h"
#include "platform/file_pool.h"
#include "platform/paths.h"
#include "table/bulk_load.h"
#include "table/channel.h"
#include "table/exclusive_use.h"
#include "table/key_file_build.h"

namespace tqdb {

double ReIndex(TableState& State) {
  const double Started = platform::Timer();
  const std::string Base = State.DataPath + State.BaseName + State.TableSuffix;
  {
    ExclusiveUse Alone(State.DataFileNo);
    SendCommand(State, "K");
    const std::string KeyPath = Base + ".tqc";
    if (platform::FileExists(KeyPath)) platform::DeleteFile(KeyPath);
    if (BuildKeyFile(State, KeyPath) == 0) ClearBulkLoadMark(State);
  }
  if (State.LastError == 0) {
    platform::Close(State.DataFileNo);
    platform::Open(State.DataFileNo, Base + ".tqd");
    platform::HoldPresence(State.DataFileNo);
  }
  return platform::MinutesDotSeconds(platform::Timer() - Started);
}

}  // namespace tqdb

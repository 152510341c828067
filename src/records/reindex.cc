// Rebuilding the key file of an open table.
#include "records/reindex.h"

#include <string>

#include "platform/clock.h"
#include "platform/fault.h"
#include "platform/file_pool.h"
#include "platform/paths.h"
#include "table/channel.h"
#include "table/key_file_build.h"

namespace tqdb {
namespace {

// Holds the table alone for a scope: the presence lock of the data file is made exclusive
// (Fault 70 when another table object has the table open) and is shared again at the end.
class ExclusiveUse {
 public:
  explicit ExclusiveUse(platform::FileNo DataFile) : data_file_(DataFile) {
    if (!platform::TryExclusivePresence(data_file_)) {
      throw platform::Fault(platform::kPermissionDenied);
    }
  }
  ~ExclusiveUse() {
    try {
      if (platform::IsOpen(data_file_)) platform::HoldPresence(data_file_);
    } catch (...) {
    }
  }
  ExclusiveUse(const ExclusiveUse&) = delete;
  ExclusiveUse& operator=(const ExclusiveUse&) = delete;

 private:
  platform::FileNo data_file_;
};

}  // namespace

double ReIndex(TableState& State) {
  const double Started = platform::Timer();
  const std::string Base = State.DataPath + State.BaseName + State.TableSuffix;
  {
    ExclusiveUse Alone(State.DataFileNo);
    SendCommand(State, "K");
    const std::string KeyPath = Base + ".tqc";
    if (platform::FileExists(KeyPath)) platform::DeleteFile(KeyPath);
    BuildKeyFile(State, KeyPath);
  }
  if (State.LastError == 0) {
    platform::Close(State.DataFileNo);
    platform::Open(State.DataFileNo, Base + ".tqd");
    platform::HoldPresence(State.DataFileNo);
  }
  return platform::MinutesDotSeconds(platform::Timer() - Started);
}

}  // namespace tqdb

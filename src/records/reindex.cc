// Rebuilding the key file of an open table.
#include "records/reindex.h"

#include <algorithm>
#include <string>

#include "platform/clock.h"
#include "platform/codepage.h"
#include "platform/fault.h"
#include "platform/file_pool.h"
#include "platform/messages.h"
#include "platform/numbers.h"
#include "platform/paths.h"
#include "table/channel.h"
#include "table/dictionary.h"

namespace tqdb {
namespace {

constexpr int16_t kKeyFileNotCreated = 23;
constexpr int32_t kKeyCreationFailed = 50228;

// A path as it travels in an engine command that uses "/" as its separator.
std::string CommandPath(std::string_view Path) {
  std::string Text(Path);
  std::replace(Text.begin(), Text.end(), '/', '\\');
  return Text;
}

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

bool HasCodeAtLeast93(std::string_view Text) {
  return std::any_of(Text.begin(), Text.end(),
                     [](char C) { return static_cast<uint8_t>(C) >= 93; });
}

// Sends the create command and deals with its outcome as the open routine does.
void CreateKeyFileAnew(TableState& State, const std::string& KeyPath) {
  SendCommand(State, "/C/" + CommandPath(KeyPath) + "/" + KeyShape(State) + "/A/" +
                         platform::StrOf(State.DataFileNo));
  const int16_t Status = State.LastError;
  if (Status == kKeyFileNotCreated) {
    const bool ShowPath = HasCodeAtLeast93(State.EngineCommand) || State.ErrorText.empty();
    platform::ShowMessage(ShowPath ? KeyPath : platform::Utf8ToCp1252(State.ErrorText),
                          MessageIcon::Critical);
    return;
  }
  if (Status != 0) {
    throw platform::Fault(kKeyCreationFailed, "Error indexados: " + platform::StrOf(Status) +
                                                  platform::Cp1252ToUtf8(State.EngineCommand));
  }
}

}  // namespace

double ReIndex(TableState& State) {
  const double Started = platform::Timer();
  const std::string Base = State.DataPath + State.BaseName + State.TableSuffix;
  {
    ExclusiveUse Alone(State.DataFileNo);
    SendCommand(State, "K");
    const std::string KeyPath = Base + ".tqc";
    if (platform::FileExists(KeyPath)) platform::DeleteFile(KeyPath);
    CreateKeyFileAnew(State, KeyPath);
  }
  if (State.LastError == 0) {
    platform::Close(State.DataFileNo);
    platform::Open(State.DataFileNo, Base + ".tqd");
    platform::HoldPresence(State.DataFileNo);
  }
  return platform::MinutesDotSeconds(platform::Timer() - Started);
}

}  // namespace tqdb

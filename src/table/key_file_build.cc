// Building a key file anew through the engine channel (see key_file_build.h).
#include "table/key_file_build.h"

#include <algorithm>

#include "platform/codepage.h"
#include "platform/fault.h"
#include "platform/messages.h"
#include "platform/numbers.h"
#include "table/channel.h"
#include "table/dictionary.h"

namespace tqdb {
namespace {

constexpr int16_t kKeyFileNotCreated = 23;
constexpr int32_t kKeyCreationFailed = 50228;

// A command text holding a character of code 93 or more (after upper-casing: "_", "]", an
// accented letter...) names its key file in the message instead of the fault's description.
bool HasCodeAtLeast93(std::string_view Text) {
  return std::any_of(Text.begin(), Text.end(),
                     [](char C) { return static_cast<uint8_t>(C) >= 93; });
}

}  // namespace

std::string CommandPath(std::string_view Path) {
  std::string Text(Path);
  std::replace(Text.begin(), Text.end(), '/', '\\');
  return Text;
}

int16_t BuildKeyFile(TableState& State, const std::string& KeyPath) {
  // The command as sent, but for the path: messages name files as the user wrote them.
  std::string Tail = "/";
  Tail += KeyShape(State);
  Tail += "/A/";
  Tail += platform::StrOf(State.DataFileNo);
  SendCommand(State, "/C/" + CommandPath(KeyPath) + Tail);
  const int16_t Status = State.LastError;
  if (Status == kKeyFileNotCreated) {
    const std::string Cause = platform::Utf8ToCp1252(State.ErrorText);
    const bool ShowPath = HasCodeAtLeast93(State.EngineCommand) || Cause.empty();
    platform::ShowMessage(ShowPath ? KeyPath : Cause, MessageIcon::Critical);
  } else if (Status != 0) {
    throw platform::Fault(kKeyCreationFailed, "Error indexados: " + platform::StrOf(Status) +
                                                  platform::Cp1252ToUtf8("C/" + KeyPath + Tail));
  }
  return Status;
}

}  // namespace tqdb

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

}  // namespace

std::string CommandPath(std::string_view Path) {
  std::string Text(Path);
  std::replace(Text.begin(), Text.end(), '/', '\\');
  return Text;
}

int16_t BuildKeyFile(TableState& State, const std::string& KeyPath) {
  // The command as sent, but for the path: messages name files as the user wrote them.
  const std::string Tail = "/" + KeyShape(State) + "/A/" + platform::StrOf(State.DataFileNo);
  SendCommand(State, "/C/" + CommandPath(KeyPath) + Tail);
  const int16_t Status = State.LastError;
  if (Status == kKeyFileNotCreated) {
    const std::string Cause = platform::Utf8ToCp1252(State.ErrorText);
    platform::ShowMessage(Cause.empty() ? KeyPath : KeyPath + "\r\n" + Cause,
                          MessageIcon::Critical);
  } else if (Status != 0) {
    throw platform::Fault(kKeyCreationFailed, "Error indexados: " + platform::StrOf(Status) +
                                                  platform::Cp1252ToUtf8("C/" + KeyPath + Tail));
  }
  return Status;
}

}  // namespace tqdb

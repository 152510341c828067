// Messages the system shows to a person. They go to the process-wide sink set with
// tqdb::SetMessageSink (stderr by default); nothing blocks waiting for a person.
#pragma once

#include <string_view>

#include "table/TQFile.h"

namespace tqdb::platform {

// Text is Windows-1252 (the library's internal encoding); it reaches the sink as UTF-8.
void ShowMessage(std::string_view Text, MessageIcon Icon = MessageIcon::None);

}  // namespace tqdb::platform

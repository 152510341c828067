// Building a table's key file anew from its dictionary and data file, through the engine
// channel. Used by the open (a key file that cannot be opened) and by a full reindex.
#pragma once

#include <cstdint>
#include <string>
#include <string_view>

#include "table/TableState.h"

namespace tqdb {

// A path as it travels in an engine command: "/" is the command's own separator, so
// every "/" is written as "\" (the file layer reads either as a directory separator).
std::string CommandPath(std::string_view Path);

// Sends the create command ("/C/") for the key file KeyPath over the table's data file
// and returns its status (State.LastError). The data file is left as it is; a caller
// that succeeded opens it again so that it is read afresh.
//
// REQUIRES: the dictionary loaded and the data file open on State.DataFileNo.
// Status 23 (the key file cannot be created) is shown as a message (critical icon) and
// returned: the key file path as the caller wrote it, then CR LF and the platform's
// description of the failure when there is one. Any other failing status raises Fault
// 50228 "Error indexados: " + Str(status) + the command, with the path as written.
int16_t BuildKeyFile(TableState& State, const std::string& KeyPath);

}  // namespace tqdb

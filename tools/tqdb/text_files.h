// Whole-file reads and writes for the tool's own files (schemas, CSV, dictionaries).
// Names are UTF-8 paths as given on the command line; they are found as the library finds
// table files (case-insensitively, platform/paths.h). Failures are ToolErrors naming the
// file.
#pragma once

#include <string>

namespace tqdb::tool {

std::string ReadWholeFile(const std::string& Path);
// Creates or replaces Path with Bytes.
void WriteWholeFile(const std::string& Path, const std::string& Bytes);
bool PathExists(const std::string& Path);
void RemoveIfExists(const std::string& Path);

}  // namespace tqdb::tool

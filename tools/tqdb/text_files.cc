#include "text_files.h"

#include <cerrno>
#include <cstdio>
#include <cstring>
#include <fstream>
#include <sstream>

#include "platform/codepage.h"
#include "platform/paths.h"
#include "tool_error.h"

namespace tqdb::tool {
namespace {

std::string LinuxPath(const std::string& Path) {
  return platform::ResolvePath(platform::Utf8ToCp1252(Path));
}

}  // namespace

std::string ReadWholeFile(const std::string& Path) {
  std::ifstream In(LinuxPath(Path), std::ios::binary);
  if (!In) throw ToolError("cannot read " + Path + ": " + std::strerror(errno));
  std::ostringstream Bytes;
  Bytes << In.rdbuf();
  return Bytes.str();
}

void WriteWholeFile(const std::string& Path, const std::string& Bytes) {
  std::ofstream Out(LinuxPath(Path), std::ios::binary | std::ios::trunc);
  if (!Out) throw ToolError("cannot write " + Path + ": " + std::strerror(errno));
  Out.write(Bytes.data(), static_cast<std::streamsize>(Bytes.size()));
  Out.close();
  if (!Out) throw ToolError("cannot write " + Path + ": " + std::strerror(errno));
}

bool PathExists(const std::string& Path) {
  return platform::FileExists(platform::Utf8ToCp1252(Path));
}

void RemoveIfExists(const std::string& Path) {
  if (PathExists(Path)) platform::DeleteFile(platform::Utf8ToCp1252(Path));
}

}  // namespace tqdb::tool

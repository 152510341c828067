#include "text_files.h"

#include <cerrno>
#include <cstdio>
#include <cstring>
#include <filesystem>
#include <fstream>
#include <sstream>
#include <vector>

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
  // In large pieces: copying the stream buffer into a string stream goes a byte run at a
  // time and costs more than the reading.
  std::string Bytes;
  std::error_code Unknown;  // a pipe has no size: the string grows as it is read
  const auto Size = std::filesystem::file_size(LinuxPath(Path), Unknown);
  if (!Unknown) Bytes.reserve(static_cast<size_t>(Size));
  std::vector<char> Piece(size_t{1} << 20);
  while (In.read(Piece.data(), static_cast<std::streamsize>(Piece.size())) || In.gcount() > 0) {
    Bytes.append(Piece.data(), static_cast<size_t>(In.gcount()));
  }
  if (In.bad()) throw ToolError("cannot read " + Path + ": " + std::strerror(errno));
  return Bytes;
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

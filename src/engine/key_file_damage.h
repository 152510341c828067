// The fault raised for a damaged key file.
//
// A key file whose header, counts or pointers cannot be trusted (node size other than
// 1024, an entry count beyond the node's capacity, a key length of 0, a pointer outside
// the file or off a page boundary, a tree deeper than the level buffers) is reported as
// fault 55000 with the description "Archivo " CR LF <name> CR LF "estropeado... debe
// recrear índices". The dispatcher does not retry it, unlike other faults numbered 55000:
// the keys must be rebuilt, waiting cannot help.
#pragma once

#include <string>
#include <string_view>

#include "platform/fault.h"

namespace tqdb::engine {

class KeyFileDamaged : public platform::Fault {
 public:
  // Path is the key file's Linux path (UTF-8, as platform::ResolvePath gives it), the way
  // the user sees the file, not the upper-cased name of the engine command.
  explicit KeyFileDamaged(std::string_view Path);
};

// The description of a damaged key file, UTF-8.
std::string DamagedKeyFileText(std::string_view Path);

}  // namespace tqdb::engine

// A table's files read directly, below the public interface, for "info" and "check".
// Nothing here writes, and nothing repairs: opening a table through TQFile rebuilds a
// damaged key file silently, which would hide exactly what these commands look for.
#pragma once

#include <cstdint>
#include <string>
#include <string_view>

#include "engine/EngineState.h"
#include "table/dictionary.h"
#include "table_ref.h"

namespace tqdb::tool {

// The dictionary and the whole data file, in memory.
struct TableFiles {
  Dictionary Dict;
  std::string Data;  // the data file's bytes (empty when the file is missing)

  // Whole records in the data file.
  int32_t Places() const;
  // Bytes of record N. REQUIRES: 1 <= N <= Places().
  std::string_view Record(int32_t N) const;
  // The record's first seven bytes are "ANULADO".
  bool IsDeleted(int32_t N) const;
};

// Reads and parses the dictionary of Table. A missing dictionary is the system's error
// 50999; a damaged one raises the dictionary's Fault.
Dictionary ReadDictionary(const TableRef& Table);

// Reads the dictionary and the data file of Table. A missing dictionary is the system's
// error 50999; a damaged one raises the dictionary's Fault.
TableFiles ReadTableFiles(const TableRef& Table);

// The table's key file opened through the engine's own reader (header, descriptors and
// pages are checked as the engine checks them). Closes it on destruction.
class KeyFileReader {
 public:
  explicit KeyFileReader(const TableRef& Table);
  ~KeyFileReader();
  KeyFileReader(const KeyFileReader&) = delete;
  KeyFileReader& operator=(const KeyFileReader&) = delete;

  // True when the file is open; otherwise Problem() says why (missing, empty, damaged).
  bool IsOpen() const { return Engine.KeyFileNo != 0; }
  const std::string& Problem() const { return problem_; }
  // Levels from the root to the leaves of key Key (1 for a tree that is one leaf); 0 when
  // the tree cannot be read.
  int Depth(int Key);

  EngineState Engine;

 private:
  std::string problem_;
};

// Text of a file (Windows-1252, possibly binary) for a person: UTF-8, with control
// characters and zero bytes written as \xNN.
std::string Printable(std::string_view Text);

}  // namespace tqdb::tool

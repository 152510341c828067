// The TABLE argument of the tool's commands and the files it names.
//
// A table is named as OpenFile takes it: directory + 5-character table name + 2-character
// suffix, e.g. "datos/CLIEN01" (an extension such as ".tqd" is ignored). The dictionary
// lives in the --dict directory, by default the table's own directory. Names are UTF-8 on
// the command line; the file names handed to the platform are Windows-1252.
#pragma once

#include <string>

#include "table/TQFile.h"

namespace CLI {
class App;
}

namespace tqdb::tool {

struct TableRef {
  std::string FileName;    // as given, UTF-8
  std::string Dictionary;  // --dict, UTF-8; empty = the table's directory

  // The table's directory with its trailing separator ("./" when the name has none).
  std::string Directory() const;
  // The 5-character table name and the 2-character suffix.
  std::string Name() const;
  std::string Suffix() const;
  // Directory + name + suffix: the base of the data, key and image file names.
  std::string Base() const;
  std::string DictionaryDirectory() const;  // with its trailing separator
  std::string DictionaryPath() const;       // DictionaryDirectory() + Name() + ".tqa"
  std::string DataPath() const { return Base() + ".tqd"; }
  std::string KeyPath() const { return Base() + ".tqc"; }
};

// Adds the positional TABLE argument and the --dict option to Command.
void AddTableArguments(CLI::App& Command, TableRef& Table);

// Refuses a name too short to hold a table name and suffix (ToolError, exit status 2).
void RequireWellFormed(const TableRef& Table);

// Opens Table on Object. A missing dictionary is refused before the library would create
// an empty one, with the system's error 50999 and its text. A status other than 0
// from OpenFile is a ToolError.
void OpenTable(TQFile& Object, const TableRef& Table);

// Platform file names (Windows-1252) for a UTF-8 path.
std::string SystemName(const std::string& Utf8Path);

}  // namespace tqdb::tool

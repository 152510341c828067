#include "table_ref.h"

#include <CLI/CLI.hpp>

#include "platform/codepage.h"
#include "platform/paths.h"
#include "tool_error.h"

namespace tqdb::tool {
namespace {

std::string WithSeparator(std::string Directory) {
  if (Directory.empty()) return "./";
  if (Directory.back() != '/' && Directory.back() != '\\') Directory += '/';
  return Directory;
}

// The file part of the name (table name, suffix and whatever follows) in Windows-1252.
std::string FilePart(const std::string& FileName) {
  return platform::Utf8ToCp1252(platform::FilePart(FileName));
}

std::string SystemPart(const std::string& FileName, size_t Start, size_t Length) {
  const std::string Part = FilePart(FileName);
  return Start < Part.size() ? Part.substr(Start, Length) : "";
}

}  // namespace

std::string TableRef::Directory() const { return WithSeparator(platform::DirectoryPart(FileName)); }

// Table name and suffix are counted in characters of the files' code page, as OpenFile does.
std::string TableRef::Name() const { return platform::Cp1252ToUtf8(SystemPart(FileName, 0, 5)); }

std::string TableRef::Suffix() const { return platform::Cp1252ToUtf8(SystemPart(FileName, 5, 2)); }

std::string TableRef::Base() const { return Directory() + Name() + Suffix(); }

std::string TableRef::DictionaryDirectory() const {
  return Dictionary.empty() ? Directory() : WithSeparator(Dictionary);
}

std::string TableRef::DictionaryPath() const { return DictionaryDirectory() + Name() + ".tqa"; }

void AddTableArguments(CLI::App& Command, TableRef& Table) {
  Command
      .add_option("TABLE", Table.FileName,
                  "table file name: directory + 5-character name + 2-character suffix, "
                  "e.g. datos/CLIEN01")
      ->required();
  Command.add_option("--dict", Table.Dictionary,
                     "directory of the table's dictionary (.tqa); default: the table's own "
                     "directory");
}

void RequireWellFormed(const TableRef& Table) {
  const std::string Part = FilePart(Table.FileName);
  if (Part.size() < 7) {
    throw ToolError("'" + Table.FileName +
                        "' is not a table file name: it must end in a 5-character table name "
                        "and a 2-character suffix, e.g. datos/CLIEN01",
                    kExitUsage);
  }
}

std::string SystemName(const std::string& Utf8Path) { return platform::Utf8ToCp1252(Utf8Path); }

void OpenTable(TQFile& Object, const TableRef& Table) {
  RequireWellFormed(Table);
  if (!platform::FileExists(SystemName(Table.DictionaryPath())) ||
      platform::FileLengthByName(SystemName(Table.DictionaryPath())) == 0) {
    throw TQError(
        50999, "La tabla " + Table.Name() + " no existe en la ruta: " + Table.DictionaryDirectory(),
        "OpenFile");
  }
  const int32_t Status = Object.OpenFile(Table.FileName, Table.DictionaryDirectory());
  if (Status != 0) {
    throw ToolError("cannot open " + Table.FileName + ": status " + std::to_string(Status));
  }
}

}  // namespace tqdb::tool

// tqdb create SCHEMA TABLE: writes a new table's dictionary from a schema file
// (docs/schema.md) and an empty data file. The key file is built when the table is first
// opened.
#include <CLI/CLI.hpp>
#include <iostream>
#include <memory>

#include "commands.h"
#include "dictionary_writer.h"
#include "platform/codepage.h"
#include "schema.h"
#include "table_ref.h"
#include "text_files.h"
#include "tool_error.h"

namespace tqdb::tool {
namespace {

struct CreateOptions {
  std::string SchemaPath;
  TableRef Table;
  bool Force = false;
};

int RecordLength(const Schema& Table) {
  int Length = 0;
  for (const SchemaField& Field : Table.Fields) Length += SchemaFieldWidth(Field);
  return Length;
}

// A dictionary already there is kept when it says the same; tables with several suffixes
// share one dictionary.
void WriteDictionary(const CreateOptions& Options, const std::string& Bytes) {
  const std::string Path = Options.Table.DictionaryPath();
  if (PathExists(Path) && ReadWholeFile(Path) == Bytes) return;
  if (PathExists(Path) && !Options.Force) {
    throw ToolError(Path + " exists and describes another table; use --force to replace it");
  }
  WriteWholeFile(Path, Bytes);
}

void WriteEmptyDataFile(const CreateOptions& Options) {
  const TableRef& Table = Options.Table;
  if (PathExists(Table.DataPath()) && !ReadWholeFile(Table.DataPath()).empty() && !Options.Force) {
    throw ToolError(Table.DataPath() + " holds records; use --force to empty it");
  }
  WriteWholeFile(Table.DataPath(), "");
  // A key file left from an earlier table would not match the new dictionary.
  RemoveIfExists(Table.KeyPath());
}

int RunCreate(const CreateOptions& Options) {
  RequireWellFormed(Options.Table);
  const Schema Table = ParseSchema(ReadWholeFile(Options.SchemaPath));
  if (platform::UpperCase(platform::Utf8ToCp1252(Table.Table)) !=
      platform::UpperCase(platform::Utf8ToCp1252(Options.Table.Name()))) {
    throw ToolError("the schema describes table " + Table.Table + ", but " +
                        Options.Table.FileName + " names table " + Options.Table.Name(),
                    kExitUsage);
  }
  const std::string Bytes = DictionaryBytes(Table);
  WriteDictionary(Options, Bytes);
  WriteEmptyDataFile(Options);
  std::cout << "created " << Options.Table.Name() << Options.Table.Suffix() << " ("
            << Table.Description << "): " << Table.Fields.size() << " fields, " << Table.Keys.size()
            << " keys, records of " << RecordLength(Table) << " bytes\n"
            << "  dictionary " << Options.Table.DictionaryPath() << "\n"
            << "  data file  " << Options.Table.DataPath() << " (empty)\n";
  return kExitOk;
}

}  // namespace

void AddCreateCommand(CLI::App& App, CommandRun& Run) {
  auto Options = std::make_shared<CreateOptions>();
  CLI::App* Command = App.add_subcommand(
      "create", "Create a table: its dictionary from a schema file, and an empty data file");
  Command->add_option("SCHEMA", Options->SchemaPath, "schema file (format: docs/schema.md)")
      ->required();
  AddTableArguments(*Command, Options->Table);
  Command->add_flag("--force", Options->Force,
                    "replace a different dictionary and empty a data file that holds records");
  Command->callback([Options, &Run] { Run = [Options] { return RunCreate(*Options); }; });
}

}  // namespace tqdb::tool

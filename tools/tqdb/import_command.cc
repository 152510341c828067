// tqdb import TABLE FILE.csv [--skip-bad]: adds one record per CSV row through AddNew and
// Update. The header row names the fields (any order, any case; fields not named stay
// empty). A bad row (wrong number of values, a value the field cannot hold, an error of
// the library) is reported with its line number; by default the import stops there, with
// the rows before it imported and nothing after it; --skip-bad skips it and goes on.
// The rows go in as one bulk load (TQFile::BeginBulkLoad) unless another user has the
// table open: other opens of the table wait for the import to end (they fail with 70).
#include <CLI/CLI.hpp>
#include <algorithm>
#include <iostream>
#include <memory>
#include <optional>

#include "commands.h"
#include "csv.h"
#include "import_values.h"
#include "platform/codepage.h"
#include "progress_bar.h"
#include "table_ref.h"
#include "text_files.h"
#include "tool_error.h"

namespace tqdb::tool {
namespace {

constexpr int32_t kTableInUse = 70;

struct ImportOptions {
  TableRef Table;
  std::string CsvPath;
  bool SkipBad = false;
};

struct Target {
  int16_t Field = 0;
  FieldShape Shape;
};

std::string Upper(const std::string& Utf8) {
  return platform::UpperCase(platform::Utf8ToCp1252(Utf8));
}

// The field each column goes into, from the header row.
std::vector<Target> MapColumns(TQFile& Object, const CsvRow& Header) {
  std::vector<Target> Targets;
  for (const std::string& Name : Header.Fields) {
    Target Column;
    for (int32_t F = 1; F <= Object.FieldCount() && Column.Field == 0; ++F) {
      const auto Number = static_cast<int16_t>(F);
      if (platform::Utf8ToCp1252(Object.FieldName(Number)) == Upper(Name)) Column.Field = Number;
    }
    if (Column.Field == 0) {
      throw ToolError("CSV line " + std::to_string(Header.Line) + ": column '" + Name +
                      "' is not a field of " + Object.TableName() + "; nothing imported");
    }
    for (const Target& Earlier : Targets) {
      if (Earlier.Field == Column.Field) {
        throw ToolError("CSV line " + std::to_string(Header.Line) + ": field " + Name +
                        " appears twice in the header; nothing imported");
      }
    }
    Column.Shape = ShapeOf(Object, Column.Field);
    Targets.push_back(std::move(Column));
  }
  return Targets;
}

// Adds Row as a new record. Returns an empty text, or what is wrong with the row (then
// nothing was written).
std::string ImportRow(TQFile& Object, const std::vector<Target>& Targets, const CsvRow& Row) {
  if (Row.Fields.size() != Targets.size()) {
    return std::to_string(Row.Fields.size()) + " values, the header has " +
           std::to_string(Targets.size());
  }
  std::vector<Variant> Values;
  for (size_t I = 0; I < Targets.size(); ++I) {
    std::string Problem;
    std::optional<Variant> Value = ImportValue(Targets[I].Shape, Row.Fields[I], Problem);
    if (!Value) return Problem;
    Values.push_back(std::move(*Value));
  }
  try {
    Object.AddNew();
    for (size_t I = 0; I < Targets.size(); ++I) {
      if (!Values[I].IsEmpty()) Object.SetFields(Variant(Targets[I].Field), Values[I]);
    }
    Object.Update();
  } catch (const TQError& Error) {
    return "error " + std::to_string(Error.Number()) + ": " + OneLine(Error.Description());
  }
  return "";
}

// Takes the table for a bulk load; when another user has it open (70) the rows go in one
// by one beside that user instead.
void BeginBulkLoadUnlessShared(TQFile& Object, std::optional<BulkLoad>& Bulk) {
  try {
    Bulk.emplace(Object);
  } catch (const TQError& Error) {
    if (Error.Number() != kTableInUse) throw;
  }
}

int RunImport(const ImportOptions& Options) {
  TQFile Object;
  OpenTable(Object, Options.Table);
  const std::string Text = ReadWholeFile(Options.CsvPath);
  CsvReader Reader(Text);
  CsvRow Row;
  if (!Reader.Next(Row)) throw ToolError(Options.CsvPath + " is empty; nothing imported");
  const std::vector<Target> Targets = MapColumns(Object, Row);
  int Imported = 0, Skipped = 0;
  ProgressBar Progress("import", /*TerminalOnly=*/true);
  std::optional<BulkLoad> Bulk;
  BeginBulkLoadUnlessShared(Object, Bulk);
  while (Reader.Next(Row)) {
    const std::string Problem = ImportRow(Object, Targets, Row);
    Progress.Update(
        static_cast<int32_t>(Reader.Position() * 100 / std::max<size_t>(Text.size(), 1)));
    if (Problem.empty()) {
      ++Imported;
      continue;
    }
    Progress.Finish();
    std::cerr << Options.CsvPath << ":" << Row.Line << ": " << Problem << '\n';
    if (!Options.SkipBad) {
      if (Bulk) Bulk->End();
      std::cout << "stopped at line " << Row.Line << ": " << Imported
                << " rows before it were imported, nothing from it on (--skip-bad skips bad "
                   "rows instead)\n";
      return kExitFailure;
    }
    ++Skipped;
  }
  Progress.Finish();
  if (Bulk) Bulk->End();
  std::cout << "imported " << Imported << " rows into " << Options.Table.Name()
            << Options.Table.Suffix();
  if (Skipped > 0) std::cout << "; skipped " << Skipped << " bad rows";
  std::cout << '\n';
  return kExitOk;
}

}  // namespace

void AddImportCommand(CLI::App& App, CommandRun& Run) {
  auto Options = std::make_shared<ImportOptions>();
  CLI::App* Command = App.add_subcommand(
      "import",
      "Add records from a CSV file (UTF-8, header row of field names) through AddNew/Update");
  AddTableArguments(*Command, Options->Table);
  Command->add_option("CSV", Options->CsvPath, "CSV file")->required();
  Command->add_flag("--skip-bad", Options->SkipBad,
                    "skip bad rows (each reported with its line number) instead of stopping at "
                    "the first");
  Command->callback([Options, &Run] { Run = [Options] { return RunImport(*Options); }; });
}

}  // namespace tqdb::tool

// tqdb export TABLE [--key N] [--filter EXPR] [--sort FIELDS] [--format csv|json|text|sql]
// [--to sqlite:FILE.db]: writes records through the public interface: in the order of a
// key, or the records a filter selects (in the order it found them), optionally sorted;
// as CSV, JSON or a text table, as a script for psql, or into an SQLite database.
#include <CLI/CLI.hpp>
#include <fstream>
#include <iostream>
#include <memory>

#include "commands.h"
#include "record_output.h"
#include "record_selection.h"
#include "sql_writer.h"
#include "table_ref.h"
#include "tool_error.h"

namespace tqdb::tool {
namespace {

constexpr std::string_view kSqlitePrefix = "sqlite:";

struct ExportOptions {
  TableRef Table;
  RecordSelection Selection;
  std::string OutputPath;
  OutputOptions Output;
  std::string Dialect;   // for --format sql; empty = postgresql
  std::string To;        // sqlite:FILE.db
  std::string SqlTable;  // the SQL table's name; default the table's name and suffix
  bool Replace = false;
};

// Refuses a dialect or destination the export cannot write, before anything is opened.
void CheckSqlOptions(const ExportOptions& Options) {
  if (!Options.To.empty() &&
      (!Options.To.starts_with(kSqlitePrefix) || Options.To.size() == kSqlitePrefix.size())) {
    throw ToolError("--to " + Options.To + ": expected sqlite:FILE.db", kExitUsage);
  }
  const bool Sql = Options.Output.Format == "sql" || !Options.To.empty();
  if (!Sql && (!Options.Dialect.empty() || !Options.SqlTable.empty() || Options.Replace)) {
    throw ToolError("--dialect, --sql-table and --replace go with --format sql or --to",
                    kExitUsage);
  }
  if (Options.Output.Format == "sql" && !Options.Dialect.empty() &&
      Options.Dialect != "postgresql") {
    throw ToolError("unknown SQL dialect '" + Options.Dialect +
                        "': --format sql --dialect postgresql writes a script for psql, "
                        "--to sqlite:FILE.db an SQLite database",
                    kExitUsage);
  }
}

SqlTable DescribeExport(TQFile& Object, const ExportOptions& Options) {
  const std::string Name =
      Options.SqlTable.empty() ? Options.Table.Name() + Options.Table.Suffix() : Options.SqlTable;
  return DescribeSqlTable(Object, Options.Table, SelectColumns(Object, Options.Output), Name);
}

int64_t WriteSql(TQFile& Object, const SqlTable& Table, SqlTableWriter& Writer,
                 const RecordSelection& Selection) {
  const int64_t Count =
      ForEachSelected(Object, Selection, [&] { Writer.Add(ReadSqlRow(Object, Table)); });
  Writer.Finish();
  return Count;
}

int ExportToSqlite(TQFile& Object, const ExportOptions& Options) {
  const std::string Path = Options.To.substr(kSqlitePrefix.size());
  const SqlTable Table = DescribeExport(Object, Options);
  const auto Writer = MakeSqliteWriter(Path, Table, Options.Replace);
  const int64_t Count = WriteSql(Object, Table, *Writer, Options.Selection);
  std::cout << "exported " << Count << " records to " << Options.To << ", table " << Table.Name
            << " with " << Table.Indexes.size() << " indexes\n";
  return kExitOk;
}

int64_t WriteRecords(TQFile& Object, const ExportOptions& Options, std::ostream& Out) {
  if (Options.Output.Format == "sql") {
    const SqlTable Table = DescribeExport(Object, Options);
    return WriteSql(Object, Table, *MakePostgresWriter(Out, Table, Options.Replace),
                    Options.Selection);
  }
  RecordWriter Writer(Object, SelectColumns(Object, Options.Output),
                      ParseFormat(Options.Output.Format), Out);
  ForEachSelected(Object, Options.Selection, [&] { Writer.Add(); });
  Writer.Finish();
  return Writer.Count();
}

int RunExport(const ExportOptions& Options) {
  CheckSqlOptions(Options);
  TQFile Object;
  OpenTable(Object, Options.Table);
  ApplySelection(Object, Options.Selection);
  if (!Options.To.empty()) return ExportToSqlite(Object, Options);
  std::ofstream File;
  if (!Options.OutputPath.empty()) {
    File.open(Options.OutputPath, std::ios::binary | std::ios::trunc);
    if (!File) throw ToolError("cannot write " + Options.OutputPath);
  }
  std::ostream& Out = Options.OutputPath.empty() ? std::cout : File;
  const int64_t Count = WriteRecords(Object, Options, Out);
  if (!Out.flush())
    throw ToolError("cannot write " +
                    (Options.OutputPath.empty() ? "the output" : Options.OutputPath));
  if (!Options.OutputPath.empty()) {
    std::cout << "exported " << Count << " records to " << Options.OutputPath << '\n';
  }
  return kExitOk;
}

}  // namespace

void AddExportCommand(CLI::App& App, CommandRun& Run) {
  auto Options = std::make_shared<ExportOptions>();
  CLI::App* Command = App.add_subcommand(
      "export",
      "Write a table's records as CSV, JSON, a text table or SQL for PostgreSQL, or into an "
      "SQLite database; optionally filtered and sorted");
  AddTableArguments(*Command, Options->Table);
  AddSelectionOptions(*Command, Options->Selection);
  CLI::Option* Output = Command->add_option("-o,--output", Options->OutputPath,
                                            "write to this file instead of stdout");
  AddOutputOptions(*Command, Options->Output, "csv", {"text", "csv", "json", "sql"});
  CLI::Option* Dialect = Command->add_option(
      "--dialect", Options->Dialect,
      "with --format sql: the database the script is for; postgresql (the default) writes "
      "CREATE TABLE, COPY and CREATE INDEX, ready for psql");
  Command
      ->add_option("--to", Options->To,
                   "write into an SQLite database instead (sqlite:FILE.db, created when "
                   "missing): a typed table with an index per key")
      ->excludes(Output)
      ->excludes(Dialect)
      ->excludes(Command->get_option("--format"));
  Command->add_option("--sql-table", Options->SqlTable,
                      "name of the SQL table (default: the table's name and suffix, e.g. "
                      "FACTU01)");
  Command->add_flag("--replace", Options->Replace,
                    "drop a table of that name in the database first (without it an "
                    "existing table is an error and nothing is written)");
  Command->callback([Options, &Run] { Run = [Options] { return RunExport(*Options); }; });
}

}  // namespace tqdb::tool

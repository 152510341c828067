// tqdb export TABLE [--key N] [--filter EXPR] [--sort FIELDS] [--format csv|json|text]:
// writes records through the public interface: in the order of a key, or the records a
// filter selects (in the order it found them), optionally sorted.
#include <CLI/CLI.hpp>
#include <fstream>
#include <iostream>
#include <memory>

#include "commands.h"
#include "record_output.h"
#include "table_ref.h"
#include "tool_error.h"

namespace tqdb::tool {
namespace {

struct ExportOptions {
  TableRef Table;
  int Key = 1;
  std::string Filter;
  std::string Sort;
  std::string OutputPath;
  OutputOptions Output;
  int64_t Limit = 0;
};

// Walks the records in the table's current order (the key, or the filtered view) and adds
// each to Writer. Entries of a view whose record was deleted meanwhile (0) are skipped.
void WriteAll(TQFile& Object, RecordWriter& Writer, int64_t Limit) {
  Object.MoveFirst();
  while (!Object.Eof() && (Limit == 0 || Writer.Count() < Limit)) {
    if (Object.BookMark() != 0) Writer.Add();
    Object.MoveNext();
  }
}

int RunExport(const ExportOptions& Options) {
  TQFile Object;
  OpenTable(Object, Options.Table);
  Object.SetIndex(static_cast<int16_t>(Options.Key));
  if (!Options.Filter.empty()) Object.Filter(Options.Filter);
  if (!Options.Sort.empty()) Object.Sort(Options.Sort);
  std::ofstream File;
  if (!Options.OutputPath.empty()) {
    File.open(Options.OutputPath, std::ios::binary | std::ios::trunc);
    if (!File) throw ToolError("cannot write " + Options.OutputPath);
  }
  std::ostream& Out = Options.OutputPath.empty() ? std::cout : File;
  RecordWriter Writer(Object, SelectColumns(Object, Options.Output),
                      ParseFormat(Options.Output.Format), Out);
  WriteAll(Object, Writer, Options.Limit);
  Writer.Finish();
  if (!Options.OutputPath.empty()) {
    std::cout << "exported " << Writer.Count() << " records to " << Options.OutputPath << '\n';
  }
  return kExitOk;
}

}  // namespace

void AddExportCommand(CLI::App& App, CommandRun& Run) {
  auto Options = std::make_shared<ExportOptions>();
  CLI::App* Command = App.add_subcommand(
      "export",
      "Write a table's records as CSV, JSON or a text table, optionally filtered "
      "and sorted");
  AddTableArguments(*Command, Options->Table);
  Command->add_option("--key", Options->Key, "walk in the order of this key (1..10)")
      ->check(CLI::Range(1, 10))
      ->capture_default_str();
  Command->add_option("--filter", Options->Filter,
                      "filter expression, e.g. \"IMPORTE > 1000 AND FECHA >= A40101\"; the "
                      "records come in the order the filter finds them");
  Command->add_option("--sort", Options->Sort,
                      "sort the records: FIELD, F1+F2, ABS(FIELD), each optionally followed "
                      "by DESC");
  Command->add_option("--limit", Options->Limit, "write at most this many records");
  Command->add_option("-o,--output", Options->OutputPath, "write to this file instead of stdout");
  AddOutputOptions(*Command, Options->Output, "csv");
  Command->callback([Options, &Run] { Run = [Options] { return RunExport(*Options); }; });
}

}  // namespace tqdb::tool

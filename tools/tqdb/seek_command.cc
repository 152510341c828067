// tqdb seek TABLE --key N VALUE... [--option ...] [--count N]: finds a record by key value
// and prints it, and with --count the records that follow it in the key's order.
#include <CLI/CLI.hpp>
#include <iostream>
#include <memory>

#include "commands.h"
#include "key_seek.h"
#include "record_output.h"
#include "table_ref.h"
#include "tool_error.h"

namespace tqdb::tool {
namespace {

struct SeekOptions {
  TableRef Table;
  KeyTarget Target;
  OutputOptions Output;
  int Count = 1;
};

int RunSeek(const SeekOptions& Options) {
  TQFile Object;
  OpenTable(Object, Options.Table);
  const int32_t Record = SeekTarget(Object, Options.Target);
  if (Record == 0) {
    std::cout << "no record: " << StatusText(Object.LastError()) << " (status "
              << Object.LastError() << ")\n";
    return kExitFailure;
  }
  RecordWriter Writer(Object, SelectColumns(Object, Options.Output),
                      ParseFormat(Options.Output.Format), std::cout);
  Writer.Add();
  while (Writer.Count() < Options.Count && NextInKey(Object) != 0) Writer.Add();
  Writer.Finish();
  return kExitOk;
}

}  // namespace

void AddSeekCommand(CLI::App& App, CommandRun& Run) {
  auto Options = std::make_shared<SeekOptions>();
  CLI::App* Command = App.add_subcommand(
      "seek", "Find a record by key value and print it (exit status 1 when there is none)");
  AddTableArguments(*Command, Options->Table);
  AddKeyArguments(*Command, Options->Target, true);
  Command
      ->add_option("--count", Options->Count,
                   "print this many records, following the key's order from the one found")
      ->check(CLI::PositiveNumber)
      ->capture_default_str();
  AddOutputOptions(*Command, Options->Output, "text");
  Command->callback([Options, &Run] { Run = [Options] { return RunSeek(*Options); }; });
}

}  // namespace tqdb::tool

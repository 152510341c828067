// tqdb exec TABLE COMMAND...: sends raw engine commands over the table's channel, in
// order, and prints each command's result and status, for diagnosis. The engine's
// commands (F\key\file first, N\file next, S\key\file\value search, ...) are those the
// library itself sends; see docs/tool.md.
#include <CLI/CLI.hpp>
#include <iostream>
#include <memory>

#include "commands.h"
#include "key_seek.h"
#include "table_ref.h"
#include "tool_error.h"

namespace tqdb::tool {
namespace {

struct ExecOptions {
  TableRef Table;
  std::vector<std::string> Commands;
};

int RunExec(const ExecOptions& Options) {
  TQFile Object;
  OpenTable(Object, Options.Table);
  std::cout << "data file number " << Object.DataFileNo() << '\n';
  for (const std::string& Command : Options.Commands) {
    Object.SetEngineCommand(Command);
    Object.ExecuteCommand();
    std::cout << Command << "  ->  result " << Object.EngineResult() << ", status "
              << Object.LastError() << " (" << StatusText(Object.LastError()) << ")\n";
  }
  return kExitOk;
}

}  // namespace

void AddExecCommand(CLI::App& App, CommandRun& Run) {
  auto Options = std::make_shared<ExecOptions>();
  CLI::App* Command = App.add_subcommand(
      "exec", "Send raw engine commands (e.g. 'F\\1\\1' 'N\\1') and print result and status");
  AddTableArguments(*Command, Options->Table);
  Command->add_option("COMMAND", Options->Commands, "engine command text, quoted")->required();
  Command->callback([Options, &Run] { Run = [Options] { return RunExec(*Options); }; });
}

}  // namespace tqdb::tool

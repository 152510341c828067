// tqdb: the command-line tool for TQDB tables. One subcommand per task (create, info,
// import, export, seek, sum, update, delete, check, rebuild, reindex, exec); "tqdb
// COMMAND --help" describes each.
#include <CLI/CLI.hpp>
#include <iostream>
#include <string>

#include "commands.h"
#include "table/TQFile.h"
#include "tool_error.h"

namespace {

// The messages the library shows to a person go to stderr, marked by their icon.
void ShowMessage(const std::string& Text, tqdb::MessageIcon Icon) {
  const char* Kind = Icon == tqdb::MessageIcon::Critical      ? "mensaje crítico"
                     : Icon == tqdb::MessageIcon::Exclamation ? "aviso"
                                                              : "mensaje";
  std::cerr << "tqdb: " << Kind << ": " << Text << '\n';
}

}  // namespace

int main(int argc, char** argv) {
  using namespace tqdb::tool;
  CLI::App App(
      "Create, inspect, query, repair and diagnose TQDB tables.\n"
      "TABLE is a table's file name as the library opens it: directory + 5-character "
      "table name + 2-character suffix (datos/CLIEN01).",
      "tqdb");
  App.require_subcommand(1);
  App.set_help_all_flag("--help-all", "Print the help of every command");
  App.set_version_flag("--version", std::string("tqdb ") + TQDB_VERSION);
  CommandRun Run;
  AddCreateCommand(App, Run);
  AddInfoCommand(App, Run);
  AddImportCommand(App, Run);
  AddExportCommand(App, Run);
  AddSeekCommand(App, Run);
  AddSumCommand(App, Run);
  AddUpdateCommand(App, Run);
  AddDeleteCommand(App, Run);
  AddCheckCommand(App, Run);
  AddRebuildCommands(App, Run);
  AddExecCommand(App, Run);
  try {
    App.parse(argc, argv);
  } catch (const CLI::ParseError& Error) {
    const int Status = App.exit(Error);
    return Status == 0 ? kExitOk : kExitUsage;
  }
  tqdb::SetMessageSink(ShowMessage);
  return RunReportingErrors(Run);
}

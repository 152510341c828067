// tqdb check TABLE: the consistency check of table_check.h. Prints a one-line summary and
// then the problems, one per line; exits 0 only when there are none.
#include <CLI/CLI.hpp>
#include <iostream>
#include <memory>

#include "commands.h"
#include "table_check.h"
#include "table_ref.h"
#include "tool_error.h"

namespace tqdb::tool {
namespace {

struct CheckOptions {
  TableRef Table;
  size_t Limit = 100;
};

int RunCheck(const CheckOptions& Options) {
  const CheckReport Report = CheckTable(Options.Table);
  const std::string Name = Options.Table.Name() + Options.Table.Suffix();
  const std::string Counts = std::to_string(Report.Keys) + " keys, " + std::to_string(Report.Live) +
                             " live records, " + std::to_string(Report.Deleted) + " deleted";
  if (Report.Problems.empty()) {
    std::cout << Name << ": ok (" << Counts << ")\n";
    return kExitOk;
  }
  std::cout << Name << ": " << Report.Problems.size()
            << (Report.Problems.size() == 1 ? " problem" : " problems") << " (" << Counts << ")\n";
  for (size_t I = 0; I < Report.Problems.size() && I < Options.Limit; ++I) {
    std::cout << "  " << OneLine(Report.Problems[I]) << '\n';
  }
  if (Report.Problems.size() > Options.Limit) {
    std::cout << "  ... and " << Report.Problems.size() - Options.Limit << " more\n";
  }
  std::cout << "  (tqdb rebuild " << Options.Table.FileName << " rewrites the key file)\n";
  return kExitFailure;
}

}  // namespace

void AddCheckCommand(CLI::App& App, CommandRun& Run) {
  auto Options = std::make_shared<CheckOptions>();
  CLI::App* Command = App.add_subcommand(
      "check",
      "Check a table's key file and its agreement with the data file; exit status 0 only "
      "when clean");
  AddTableArguments(*Command, Options->Table);
  Command->add_option("--limit", Options->Limit, "list at most this many problems")
      ->capture_default_str();
  Command->callback([Options, &Run] { Run = [Options] { return RunCheck(*Options); }; });
}

}  // namespace tqdb::tool

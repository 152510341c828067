// tqdb sum TABLE FIELD [--filter EXPR]: the total of a field over the records a filter
// selects (over every live record without a filter), through Filter and Sum.
#include <CLI/CLI.hpp>
#include <iostream>
#include <memory>

#include "commands.h"
#include "platform/numbers.h"
#include "table_ref.h"
#include "tool_error.h"

namespace tqdb::tool {
namespace {

struct SumOptions {
  TableRef Table;
  std::string Field;
  std::string Filter;
};

int RunSum(const SumOptions& Options) {
  TQFile Object;
  OpenTable(Object, Options.Table);
  if (Options.Filter.empty()) {
    // Sum totals the current view; sorting makes a view of every live record.
    Object.Sort(Options.Field);
  } else {
    Object.Filter(Options.Filter);
  }
  const double Total = Object.Sum(Variant(Options.Field));
  std::cout << "sum of " << Options.Field << " over " << Object.RecordCount() << " records";
  if (!Options.Filter.empty()) std::cout << " where " << Options.Filter;
  std::cout << ": " << platform::DoubleToText(Total) << '\n';
  return kExitOk;
}

}  // namespace

void AddSumCommand(CLI::App& App, CommandRun& Run) {
  auto Options = std::make_shared<SumOptions>();
  CLI::App* Command = App.add_subcommand(
      "sum", "Total a field over the records a filter selects (every live record without one)");
  AddTableArguments(*Command, Options->Table);
  Command->add_option("FIELD", Options->Field, "field name")->required();
  Command->add_option("--filter", Options->Filter, "filter expression, e.g. \"CLIENTE = 000042\"");
  Command->callback([Options, &Run] { Run = [Options] { return RunSum(*Options); }; });
}

}  // namespace tqdb::tool

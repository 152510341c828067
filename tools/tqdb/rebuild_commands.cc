// tqdb rebuild TABLE and tqdb reindex TABLE: the two repairs, with their Progress shown
// as a bar on a terminal and as plain percentages otherwise.
//   rebuild: Rebuild — copies the live records into a fresh data file (dropping deleted
//            and unreadable ones), loads every key anew, compacts image and long-text files.
//   reindex: ReIndex — builds the key file anew from the data file, record by record.
// Both need the table to themselves (error 70 while someone else has it open).
#include <CLI/CLI.hpp>
#include <iostream>
#include <memory>

#include "commands.h"
#include "platform/numbers.h"
#include "progress_bar.h"
#include "table_ref.h"
#include "tool_error.h"

namespace tqdb::tool {
namespace {

struct RepairOptions {
  TableRef Table;
};

// Live records and deleted places, counted through the public interface.
std::string Counts(TQFile& Object) {
  const int32_t Places = Object.RecordCount();
  const int32_t Deleted = Object.DeletedRecordCount();
  return std::to_string(Places) + " record places, " + std::to_string(Deleted) + " deleted";
}

// The elapsed time as the library gives it: minutes before the point, seconds after.
std::string Elapsed(double MinutesSeconds) {
  return platform::DoubleToText(MinutesSeconds) + " (min.sec)";
}

int RunRepair(const RepairOptions& Options, bool Full) {
  const char* Verb = Full ? "rebuild" : "reindex";
  // The bar is declared first so that it outlives the table object whose handler uses it.
  ProgressBar Progress(Verb);
  TQFile Object;
  // Opening may already build a missing or damaged key file; its progress shows too.
  Object.OnProgress([&Progress](int32_t Percentage) { Progress.Update(Percentage); });
  OpenTable(Object, Options.Table);
  std::cout << "before: " << Counts(Object) << '\n' << std::flush;
  Progress.Finish();
  const double Time = Full ? Object.Rebuild() : Object.ReIndex();
  Progress.Finish();
  if (Full) OpenTable(Object, Options.Table);  // a rebuild leaves every file closed
  std::cout << Verb << " of " << Options.Table.Name() << Options.Table.Suffix() << " done in "
            << Elapsed(Time) << "; after: " << Counts(Object) << '\n';
  return kExitOk;
}

}  // namespace

void AddRebuildCommands(CLI::App& App, CommandRun& Run) {
  auto Rebuild = std::make_shared<RepairOptions>();
  CLI::App* Command = App.add_subcommand(
      "rebuild",
      "Rewrite a table's files: live records only, every key loaded anew (needs the table to "
      "itself)");
  AddTableArguments(*Command, Rebuild->Table);
  Command->callback([Rebuild, &Run] { Run = [Rebuild] { return RunRepair(*Rebuild, true); }; });

  auto Reindex = std::make_shared<RepairOptions>();
  Command = App.add_subcommand(
      "reindex", "Build a table's key file anew from its data file (needs the table to itself)");
  AddTableArguments(*Command, Reindex->Table);
  Command->callback([Reindex, &Run] { Run = [Reindex] { return RunRepair(*Reindex, false); }; });
}

}  // namespace tqdb::tool

// The tool's subcommands. Each Add...Command registers one subcommand with its options
// and help on the application; when that subcommand is chosen on the command line, its
// work is stored in Run, which main calls after parsing (inside RunReportingErrors) and
// whose result is the exit status.
#pragma once

#include <functional>

namespace CLI {
class App;
}

namespace tqdb::tool {

using CommandRun = std::function<int()>;

void AddCreateCommand(CLI::App& App, CommandRun& Run);
void AddInfoCommand(CLI::App& App, CommandRun& Run);
void AddImportCommand(CLI::App& App, CommandRun& Run);
void AddExportCommand(CLI::App& App, CommandRun& Run);
void AddSeekCommand(CLI::App& App, CommandRun& Run);
void AddSumCommand(CLI::App& App, CommandRun& Run);
void AddUpdateCommand(CLI::App& App, CommandRun& Run);
void AddDeleteCommand(CLI::App& App, CommandRun& Run);
void AddCheckCommand(CLI::App& App, CommandRun& Run);
void AddRebuildCommands(CLI::App& App, CommandRun& Run);
void AddExecCommand(CLI::App& App, CommandRun& Run);

}  // namespace tqdb::tool

// Runs the built tqdb tool as a subprocess, for the tool's tests: its exit status and
// what it wrote on stdout and stderr. Also sets up the sample tables of examples/data.
#pragma once

#include <gtest/gtest.h>

#include <sys/wait.h>

#include <cstdlib>
#include <string>
#include <vector>

#include "support/temp_dir.h"

namespace tqdb::testing {

struct ToolResult {
  int Status = -1;  // exit status; -1 when the tool did not exit normally
  std::string Out;
  std::string Err;
};

// The directory of the sample data set (set by the build: __FILE__ may be relative).
inline std::string ExamplesDir() { return TQDB_EXAMPLES_DIR; }

// Runs "tqdb Args..." through the shell with stdout and stderr captured in files of Scratch,
// and with TMPDIR pointing into Scratch (so that a rebuild's audit archive stays there too).
// Under the sanitizers a finding ends the tool with status 86, which no test expects.
inline ToolResult RunTool(const TempDir& Scratch, const std::vector<std::string>& Args) {
  const auto Quoted = [](const std::string& Word) {
    std::string Out = "'";
    for (const char C : Word) Out += C == '\'' ? std::string("'\\''") : std::string(1, C);
    return Out + "'";
  };
  std::string Command = "TMPDIR=" + Quoted(Scratch.Dir()) +
                        " ASAN_OPTIONS=exitcode=86 UBSAN_OPTIONS=exitcode=86:print_stacktrace=1 " +
                        Quoted(TQDB_TOOL_PATH);
  for (const std::string& Arg : Args) Command += " " + Quoted(Arg);
  Command += " >" + Quoted(Scratch.File(".out")) + " 2>" + Quoted(Scratch.File(".err"));
  const int WaitStatus = std::system(Command.c_str());
  return {WIFEXITED(WaitStatus) ? WEXITSTATUS(WaitStatus) : -1, Scratch.Read(".out"),
          Scratch.Read(".err")};
}

// Number of lines of Text that contain Part.
inline int CountLines(const std::string& Text, const std::string& Part) {
  int Count = 0;
  for (size_t Start = 0; Start < Text.size();) {
    const size_t End = std::min(Text.find('\n', Start), Text.size());
    Count += Text.substr(Start, End - Start).find(Part) != std::string::npos;
    Start = End + 1;
  }
  return Count;
}

// A scratch directory holding the sample tables CLIEN01 and FACTU01, created from the
// sample schemas and CSV files, and the tool run in it.
class SampleTablesTest : public ::testing::Test {
 protected:
  void SetUp() override {
    for (const std::string Table : {"CLIEN", "FACTU"}) {
      const std::string Sample = ExamplesDir() + "/" + Table;
      ASSERT_EQ(Run({"create", Sample + ".schema", Dir.File(Table + "01")}).Status, 0);
      ASSERT_EQ(Run({"import", Dir.File(Table + "01"), Sample + ".csv"}).Status, 0);
    }
  }
  ToolResult Run(const std::vector<std::string>& Args) { return RunTool(Dir, Args); }
  std::string Clients() const { return Dir.File("CLIEN01"); }
  std::string Invoices() const { return Dir.File("FACTU01"); }

  TempDir Dir;
};

}  // namespace tqdb::testing

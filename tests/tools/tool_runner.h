// Runs the built tqdb tool as a subprocess, for the tool's tests: its exit status and
// what it wrote on stdout and stderr. Also sets up the sample tables of examples/data.
#pragma once

#include <gtest/gtest.h>

#include <fcntl.h>
#include <spawn.h>
#include <sys/wait.h>
#include <unistd.h>

#include <cctype>
#include <filesystem>
#include <fstream>
#include <iterator>
#include <stdexcept>
#include <string>
#include <vector>

#include "support/temp_dir.h"

extern char** environ;

namespace tqdb::testing {

struct ToolResult {
  int Status = -1;  // exit status; -1 when the tool did not exit normally
  std::string Out;
  std::string Err;
};

// The directory of the sample data set, found from this file's place in the tree.
inline std::string ExamplesDir() {
  return (std::filesystem::path(__FILE__).parent_path() / ".." / ".." / "examples" / "data")
      .lexically_normal()
      .string();
}

inline std::string ReadFile(const std::string& Path) {
  std::ifstream In(Path, std::ios::binary);
  return std::string(std::istreambuf_iterator<char>(In), std::istreambuf_iterator<char>());
}

// Runs "tqdb Args..." with stdout and stderr captured in files of Scratch, and with TMPDIR
// pointing into Scratch (so that a rebuild's audit archive stays there too).
inline ToolResult RunTool(const TempDir& Scratch, const std::vector<std::string>& Args) {
  const std::string Out = Scratch.File(".tool-stdout"), Err = Scratch.File(".tool-stderr");
  posix_spawn_file_actions_t Actions;
  posix_spawn_file_actions_init(&Actions);
  posix_spawn_file_actions_addopen(&Actions, 1, Out.c_str(), O_WRONLY | O_CREAT | O_TRUNC, 0644);
  posix_spawn_file_actions_addopen(&Actions, 2, Err.c_str(), O_WRONLY | O_CREAT | O_TRUNC, 0644);
  std::vector<std::string> Words{TQDB_TOOL_PATH};
  Words.insert(Words.end(), Args.begin(), Args.end());
  std::vector<char*> Argv;
  for (std::string& Word : Words) Argv.push_back(Word.data());
  Argv.push_back(nullptr);
  // Under the sanitizers a finding ends the tool with status 86, which no test expects
  // (their default, 1, is a status the tool gives on purpose).
  std::vector<std::string> Env{"TMPDIR=" + Scratch.Dir(), "ASAN_OPTIONS=exitcode=86",
                               "UBSAN_OPTIONS=exitcode=86:print_stacktrace=1"};
  for (char** Entry = environ; *Entry != nullptr; ++Entry) {
    const std::string_view Name(*Entry);
    const bool Replaced = Name.starts_with("TMPDIR=") || Name.starts_with("ASAN_OPTIONS=") ||
                          Name.starts_with("UBSAN_OPTIONS=");
    if (!Replaced) Env.emplace_back(*Entry);
  }
  std::vector<char*> Envp;
  for (std::string& Entry : Env) Envp.push_back(Entry.data());
  Envp.push_back(nullptr);
  pid_t Child = 0;
  const int Spawned =
      posix_spawn(&Child, Words[0].c_str(), &Actions, nullptr, Argv.data(), Envp.data());
  posix_spawn_file_actions_destroy(&Actions);
  if (Spawned != 0) throw std::runtime_error("cannot run " + Words[0]);
  int WaitStatus = 0;
  waitpid(Child, &WaitStatus, 0);
  ToolResult Result;
  Result.Status = WIFEXITED(WaitStatus) ? WEXITSTATUS(WaitStatus) : -1;
  Result.Out = ReadFile(Out);
  Result.Err = ReadFile(Err);
  return Result;
}

// Creates CLIEN01 and FACTU01 in Scratch from the sample schemas and imports the sample
// CSV files; throws when any step fails.
inline void MakeSampleTables(const TempDir& Scratch) {
  for (const std::string Table : {"CLIEN", "FACTU"}) {
    const std::string Name = Scratch.File(Table + "01");
    for (const std::vector<std::string>& Args :
         {std::vector<std::string>{"create", ExamplesDir() + "/" + Table + ".schema", Name},
          std::vector<std::string>{"import", Name, ExamplesDir() + "/" + Table + ".csv"}}) {
      const ToolResult Result = RunTool(Scratch, Args);
      if (Result.Status != 0) {
        throw std::runtime_error("tqdb " + Args[0] + " " + Table + " failed: " + Result.Err);
      }
    }
  }
}

// The name of the file of Scratch that Name matches without regard to case (the library
// creates key files with upper-case extensions); Name itself when none does.
inline std::string FileNamed(const TempDir& Scratch, const std::string& Name) {
  auto Upper = [](std::string Text) {
    for (char& C : Text) C = static_cast<char>(std::toupper(static_cast<unsigned char>(C)));
    return Text;
  };
  for (const auto& Entry : std::filesystem::directory_iterator(Scratch.Path())) {
    const std::string Found = Entry.path().filename().string();
    if (Upper(Found) == Upper(Name)) return Found;
  }
  return Name;
}

// Number of lines of Text that contain Part.
inline int CountLines(const std::string& Text, const std::string& Part) {
  int Count = 0;
  size_t Start = 0;
  while (Start < Text.size()) {
    const size_t End = std::min(Text.find('\n', Start), Text.size());
    if (Text.substr(Start, End - Start).find(Part) != std::string::npos) ++Count;
    Start = End + 1;
  }
  return Count;
}

// A scratch directory holding the sample tables (CLIEN01, FACTU01), and the tool run in it.
class SampleTablesTest : public ::testing::Test {
 protected:
  void SetUp() override { MakeSampleTables(Dir); }
  ToolResult Run(const std::vector<std::string>& Args) { return RunTool(Dir, Args); }
  std::string Clients() const { return Dir.File("CLIEN01"); }
  std::string Invoices() const { return Dir.File("FACTU01"); }

  TempDir Dir;
};

}  // namespace tqdb::testing

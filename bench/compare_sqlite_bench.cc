// TQDB against SQLite 3 on the same work, in the same run, on the same machine.
//
// For each table size N the tasks of bench_tasks.h run first on TQDB, then on SQLite,
// each engine in a child process of its own so that the peak memory reported belongs to
// that engine alone. The program prints one Markdown table per N: time, operations per
// second, the ratio TQDB/SQLite, and for TQDB the system calls per operation (counted by
// the platform layer) and the peak resident memory.
//
// After the tasks of one process come those of several (process_tasks.h): 4 processes
// adding records at once, 4 reading while 1 adds, then the peak memory of ReIndex and
// Rebuild each in a process of its own, and the import of a CSV file by the two
// command-line programs.
//
// Usage: compare_sqlite_bench [--large] [--sizes=N,N...] [--dir=PATH] [--only=tqdb|sqlite]
//                             [--tasks=K] [--repeat=R] [--tqdb-tool=PATH]
//                             [--sqlite-tool=PATH]
//   --large    also run N = 1 000 000 (the default is N = 100 000 only)
//   --sizes    the table sizes to run, instead of the above
//   --dir      where the files go (default: a fresh directory under $TMPDIR or /tmp)
//   --only     run one engine, in this process (for profiling); prints its column only
//   --tasks    run only the first K tasks (the load is task 1; for profiling)
//   --repeat   runs of each read-only task, the fastest kept (default 3)
//   --tqdb-tool, --sqlite-tool   the tqdb and sqlite3 programs for the import task (it
//              is not run for a program not given)
#include <stdlib.h>
#include <sys/wait.h>
#include <unistd.h>

#include <cmath>
#include <cstdio>
#include <cstring>
#include <filesystem>
#include <memory>
#include <string>
#include <type_traits>
#include <vector>

#include "bench_tasks.h"
#include "process_tasks.h"
#include "sqlite_tasks.h"
#include "tqdb_tasks.h"

namespace bench {
namespace {

using Results = std::array<Measure, kTaskCount>;

int TaskLimit = kTaskCount;
int Repeats = 3;
static_assert(std::is_trivially_copyable_v<Measure>);

uint64_t SystemCalls() { return tqdb::platform::GetIoCounters().SystemCalls(); }

void SetNote(Measure& M, const std::string& Text) {
  M.Failed = true;
  std::snprintf(M.Note, sizeof M.Note, "%s", Text.c_str());
}

// Measures task T on engine E; a read-only task runs Repeats times and keeps the fastest.
template <typename Engine>
Measure MeasureTask(Engine& E, Task T, bool CountIo, int Repeats) {
  Measure Best;
  const int Runs = kTasks[static_cast<size_t>(T)].ReadOnly ? std::max(Repeats, 1) : 1;
  for (int Run = 0; Run < Runs; ++Run) {
    Measure M;
    const uint64_t CallsBefore = SystemCalls();
    try {
      double User0 = 0, System0 = 0, User1 = 0, System1 = 0;
      ProcessorTime(User0, System0);
      const Stopwatch Clock;
      M = E.Run(T);
      M.Seconds = Clock.Seconds();
      ProcessorTime(User1, System1);
      M.UserSeconds = User1 - User0;
      M.SystemSeconds = System1 - System0;
      if (CountIo && M.Ops > 0) {
        M.IoPerOp = static_cast<double>(SystemCalls() - CallsBefore) / static_cast<double>(M.Ops);
      }
      E.After(T, M);
    } catch (const tqdb::TQError& Error) {
      SetNote(M, "error " + std::to_string(Error.Number()) + ": " + Error.Description());
    } catch (const std::exception& Error) {
      SetNote(M, Error.what());
    }
    M.PeakKb = PeakKilobytes();
    if (Run == 0 || M.Failed || (!Best.Failed && M.Seconds < Best.Seconds)) Best = M;
    if (M.Failed) break;
  }
  return Best;
}

bool WriteAll(int Fd, const void* Data, size_t Size) {
  const char* Bytes = static_cast<const char*>(Data);
  for (size_t Done = 0; Done < Size;) {
    const ssize_t Written = write(Fd, Bytes + Done, Size - Done);
    if (Written <= 0) return false;
    Done += static_cast<size_t>(Written);
  }
  return true;
}

bool ReadAll(int Fd, void* Data, size_t Size) {
  char* Bytes = static_cast<char*>(Data);
  for (size_t Done = 0; Done < Size;) {
    const ssize_t Got = read(Fd, Bytes + Done, Size - Done);
    if (Got <= 0) return false;
    Done += static_cast<size_t>(Got);
  }
  return true;
}

// One engine in a child process of its own, running one task at a time when asked. The
// two engines take turns task by task, so that both meet each task under the same
// background load, and each process's peak memory belongs to its engine alone.
template <typename Engine>
class EngineProcess {
 public:
  EngineProcess(const std::string& Directory, int64_t N, bool CountIo, int Repeats) {
    int ToChild[2], FromChild[2];
    if (pipe(ToChild) != 0 || pipe(FromChild) != 0) throw std::runtime_error("pipe");
    std::fflush(stdout);
    child_ = fork();
    if (child_ < 0) throw std::runtime_error("fork");
    if (child_ == 0) {
      close(ToChild[1]);
      close(FromChild[0]);
      Serve(ToChild[0], FromChild[1], Directory, N, CountIo, Repeats);
      _exit(0);
    }
    close(ToChild[0]);
    close(FromChild[1]);
    to_child_ = ToChild[1];
    from_child_ = FromChild[0];
  }
  ~EngineProcess() {
    const uint8_t Stop = kStop;
    WriteAll(to_child_, &Stop, 1);
    close(to_child_);
    close(from_child_);
    int Status = 0;
    waitpid(child_, &Status, 0);
  }
  EngineProcess(const EngineProcess&) = delete;
  EngineProcess& operator=(const EngineProcess&) = delete;

  Measure Run(Task T) {
    const auto Request = static_cast<uint8_t>(T);
    Measure M;
    if (!WriteAll(to_child_, &Request, 1) || !ReadAll(from_child_, &M, sizeof M)) {
      SetNote(M, "the benchmark process died");
    }
    return M;
  }

 private:
  static constexpr uint8_t kStop = 0xFF;

  static void Serve(int In, int Out, const std::string& Directory, int64_t N, bool CountIo,
                    int Repeats) {
    std::unique_ptr<Engine> E;
    std::string Failure;
    try {
      E = std::make_unique<Engine>(Directory, N);
    } catch (const std::exception& Error) {
      Failure = Error.what();
    }
    uint8_t Request = 0;
    while (ReadAll(In, &Request, 1) && Request != kStop) {
      Measure M;
      if (E) {
        M = MeasureTask(*E, static_cast<Task>(Request), CountIo, Repeats);
      } else {
        SetNote(M, Failure);
      }
      if (!WriteAll(Out, &M, sizeof M)) break;
    }
    if (E && E->Sink() == 1) std::puts("");  // keeps the reads from being optimised away
  }

  pid_t child_ = -1;
  int to_child_ = -1, from_child_ = -1;
};

std::string Rate(const Measure& M) {
  if (M.Failed || M.Seconds <= 0) return "–";
  char Text[32];
  const double PerSecond = static_cast<double>(M.Ops) / M.Seconds;
  if (PerSecond >= 1e6) {
    std::snprintf(Text, sizeof Text, "%.2f M", PerSecond / 1e6);
  } else if (PerSecond >= 1e3) {
    std::snprintf(Text, sizeof Text, "%.1f k", PerSecond / 1e3);
  } else {
    std::snprintf(Text, sizeof Text, "%.0f", PerSecond);
  }
  return Text;
}

std::string Seconds(const Measure& M) {
  if (M.Failed) return "n/a";
  char Text[32];
  std::snprintf(Text, sizeof Text, "%.3f", M.Seconds);
  return Text;
}

bool ChecksAgree(const Measure& A, const Measure& B) {
  if (A.Failed || B.Failed) return true;
  const double Scale = std::max({1.0, std::fabs(A.Check), std::fabs(B.Check)});
  return std::fabs(A.Check - B.Check) <= 1e-9 * Scale;
}

void PrintTable(int64_t N, const Results& T, const Results& S) {
  std::printf("\n### N = %lld records\n\n", static_cast<long long>(N));
  std::printf(
      "| Task | Ops | TQDB s | TQDB ops/s | SQLite s | SQLite ops/s | TQDB/SQLite | Target "
      "| TQDB syscalls/op | TQDB peak MB |\n");
  std::printf("|---|--:|--:|--:|--:|--:|--:|:-:|--:|--:|\n");
  std::vector<std::string> Notes;
  for (int I = 0; I < kTaskCount; ++I) {
    const Measure& A = T[static_cast<size_t>(I)];
    const Measure& B = S[static_cast<size_t>(I)];
    const TaskInfo& Info = kTasks[static_cast<size_t>(I)];
    char Ratio[32] = "–";
    char Target[32] = "";
    if (!A.Failed && !B.Failed && B.Seconds > 0) {
      const double R = A.Seconds / B.Seconds;
      std::snprintf(Ratio, sizeof Ratio, "%.2f", R);
      if (Info.Target > 0) {
        std::snprintf(Target, sizeof Target, "≤ %.1f %s", Info.Target,
                      R <= Info.Target ? "✓" : "✗");
      }
    } else if (Info.Target > 0) {
      std::snprintf(Target, sizeof Target, "≤ %.1f", Info.Target);
    }
    char Io[32] = "–";
    if (A.IoPerOp >= 0) std::snprintf(Io, sizeof Io, "%.2f", A.IoPerOp);
    std::printf("| %s <br><sub>%s</sub> | %lld | %s | %s | %s | %s | %s | %s | %s | %.0f |\n",
                Info.Tqdb, Info.Sqlite, static_cast<long long>(A.Failed ? B.Ops : A.Ops),
                Seconds(A).c_str(), Rate(A).c_str(), Seconds(B).c_str(), Rate(B).c_str(), Ratio,
                Target, Io, static_cast<double>(A.PeakKb) / 1024.0);
    const std::string NotRun = "not run";
    if (A.Failed && A.Note != NotRun) {
      Notes.push_back(std::string(Info.Tqdb) + " (TQDB): " + A.Note);
    }
    if (B.Failed && B.Note != NotRun) {
      Notes.push_back(std::string(Info.Tqdb) + " (SQLite): " + B.Note);
    }
    if (!ChecksAgree(A, B)) {
      char Text[160];
      std::snprintf(Text, sizeof Text, "%s: the engines disagree (TQDB %.6g, SQLite %.6g)",
                    Info.Tqdb, A.Check, B.Check);
      Notes.emplace_back(Text);
    }
  }
  std::printf("\nWhere the time goes (processor seconds, user / kernel):\n\n");
  std::printf("| Task | TQDB user | TQDB kernel | SQLite user | SQLite kernel |\n");
  std::printf("|---|--:|--:|--:|--:|\n");
  for (int I = 0; I < kTaskCount; ++I) {
    const Measure& A = T[static_cast<size_t>(I)];
    const Measure& B = S[static_cast<size_t>(I)];
    std::printf("| %s | %.3f | %.3f | %.3f | %.3f |\n", kTasks[static_cast<size_t>(I)].Tqdb,
                A.UserSeconds, A.SystemSeconds, B.UserSeconds, B.SystemSeconds);
  }
  std::printf(
      "Peak memory: TQDB %.0f MB, SQLite %.0f MB (whole process, getrusage; TQDB's figure "
      "counts the pages of the table files it maps for reading, which are the system's "
      "page cache, shared).\n",
      static_cast<double>(T[kRebuild].PeakKb) / 1024.0,
      static_cast<double>(S[kRebuild].PeakKb) / 1024.0);
  for (const std::string& Note : Notes) std::printf("- %s\n", Note.c_str());
  std::fflush(stdout);
}

std::string Megabytes(int64_t Kb) {
  if (Kb < 0) return "n/a";
  char Text[32];
  std::snprintf(Text, sizeof Text, "%.0f", static_cast<double>(Kb) / 1024.0);
  return Text;
}

void PrintMemory(int64_t Records, const std::vector<MemoryRow>& Rows) {
  std::printf(
      "\nPeak memory of one task in a process of its own (maximum resident set, wait4), on "
      "the table the run left (%lld records):\n\n",
      static_cast<long long>(Records));
  std::printf("| Task | TQDB peak MB | SQLite peak MB |\n|---|--:|--:|\n");
  for (const MemoryRow& Row : Rows) {
    std::printf("| %s | %s | %s |\n", Row.Name, Megabytes(Row.TqdbKb).c_str(),
                Megabytes(Row.SqliteKb).c_str());
  }
  std::fflush(stdout);
}

// The tasks of several processes, run from this process once the engines' processes have
// closed their tables.
void RunProcessTasks(const std::string& Directory, int64_t N, const std::string& TqdbTool,
                     const std::string& SqliteTool, Results& T, Results& S) {
  if (TaskLimit > kConcurrentAdd) {
    RunConcurrentTasks<TqdbWorker>(Directory, N, T);
    {
      SqliteWorker Setup(Directory);
      Setup.Exec("PRAGMA journal_mode=WAL");
    }
    RunConcurrentTasks<SqliteWorker>(Directory, N, S);
    std::fprintf(stderr, "  N = %lld: concurrent tasks done\n", static_cast<long long>(N));
  }
  if (TaskLimit > kImport) {
    RunImportTasks(Directory, N, TqdbTool, SqliteTool, T, S);
    std::fprintf(stderr, "  N = %lld: import done\n", static_cast<long long>(N));
  }
}

std::string FreshDirectory() {
  const char* Base = std::getenv("TMPDIR");
  std::string Pattern = (Base != nullptr && *Base != '\0') ? Base : "/tmp";
  if (Pattern.back() != '/') Pattern += '/';
  Pattern += "tqdb-bench-XXXXXX";
  if (mkdtemp(Pattern.data()) == nullptr) throw std::runtime_error("mkdtemp");
  return Pattern + "/";
}

int Main(int argc, char** argv) {
  std::vector<int64_t> Sizes = {100000};
  std::string Directory, Only, TqdbTool, SqliteTool;
  for (int I = 1; I < argc; ++I) {
    const std::string Arg = argv[I];
    if (Arg == "--large") {
      Sizes = {100000, 1000000};
    } else if (Arg.rfind("--sizes=", 0) == 0) {
      Sizes.clear();
      for (size_t At = 8; At < Arg.size();) {
        size_t End = Arg.find(',', At);
        if (End == std::string::npos) End = Arg.size();
        Sizes.push_back(std::stoll(Arg.substr(At, End - At)));
        At = End + 1;
      }
    } else if (Arg.rfind("--dir=", 0) == 0) {
      Directory = Arg.substr(6);
      if (Directory.back() != '/') Directory += '/';
    } else if (Arg.rfind("--only=", 0) == 0) {
      Only = Arg.substr(7);
    } else if (Arg.rfind("--tasks=", 0) == 0) {
      TaskLimit = std::min(std::stoi(Arg.substr(8)), static_cast<int>(kTaskCount));
    } else if (Arg.rfind("--repeat=", 0) == 0) {
      Repeats = std::max(std::stoi(Arg.substr(9)), 1);
    } else if (Arg.rfind("--tqdb-tool=", 0) == 0) {
      TqdbTool = Arg.substr(12);
    } else if (Arg.rfind("--sqlite-tool=", 0) == 0) {
      SqliteTool = Arg.substr(14);
    } else {
      std::fprintf(stderr,
                   "usage: %s [--large] [--sizes=N,...] [--dir=PATH] [--only=tqdb|sqlite] "
                   "[--tasks=K] [--repeat=R] [--tqdb-tool=PATH] [--sqlite-tool=PATH]\n",
                   argv[0]);
      return 2;
    }
  }
  const bool Fresh = Directory.empty();
  if (Fresh) Directory = FreshDirectory();
  // Rebuild archives the files it replaces under $TMPDIR: keep those archives with the
  // benchmark's files.
  setenv("TMPDIR", Directory.c_str(), 1);
  tqdb::SetMessageSink([](const std::string& Text, tqdb::MessageIcon) {
    std::fprintf(stderr, "[tqdb] %s\n", Text.c_str());
  });
  std::printf("TQDB vs SQLite %s; files in %s\n", sqlite3_libversion(), Directory.c_str());
  for (int64_t N : Sizes) {
    Results T{}, S{};
    for (Measure& M : T) SetNote(M, "not run");
    for (Measure& M : S) SetNote(M, "not run");
    const int OwnTasks = std::min(TaskLimit, static_cast<int>(kConcurrentAdd));
    if (Only == "tqdb") {
      TqdbTasks E(Directory, N);
      for (int I = 0; I < OwnTasks; ++I) T[I] = MeasureTask(E, static_cast<Task>(I), true, Repeats);
    } else if (Only == "sqlite") {
      SqliteTasks E(Directory, N);
      for (int I = 0; I < OwnTasks; ++I)
        S[I] = MeasureTask(E, static_cast<Task>(I), false, Repeats);
    } else {
      {
        EngineProcess<TqdbTasks> Tqdb(Directory, N, true, Repeats);
        EngineProcess<SqliteTasks> Sqlite(Directory, N, false, Repeats);
        for (int I = 0; I < OwnTasks; ++I) {
          T[I] = Tqdb.Run(static_cast<Task>(I));
          S[I] = Sqlite.Run(static_cast<Task>(I));
          std::fprintf(stderr, "  N = %lld: %s done\n", static_cast<long long>(N),
                       kTasks[static_cast<size_t>(I)].Tqdb);
        }
      }
      RunProcessTasks(Directory, N, TqdbTool, SqliteTool, T, S);
    }
    PrintTable(N, T, S);
    if (Only.empty() && TaskLimit > kImport) {
      const std::vector<MemoryRow> Memory = MeasureMaintenanceMemory(Directory);
      TqdbWorker Table(Directory);
      PrintMemory(Table.Records(), Memory);
    }
  }
  if (Fresh) std::filesystem::remove_all(Directory);
  return 0;
}

}  // namespace
}  // namespace bench

int main(int argc, char** argv) { return bench::Main(argc, argv); }

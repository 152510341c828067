// The benchmark tasks that need processes of their own: several processes working on one
// table at once, the peak memory of one maintenance task alone, and the command-line
// import of a CSV file. They run from the coordinating process, after the engines' own
// processes have closed the tables, and each worker is a fork of it that opens the table
// afresh (the coordinator holds no table open, so no descriptor or lock is shared).
//
// SQLite runs these in WAL mode with a busy timeout of 10 s, so that readers do not
// block the writer and writers wait for one another instead of failing; every change is
// its own transaction, as TQDB's AddNew/Update is visible to the others at once.
#pragma once

#include <sqlite3.h>
#include <sys/resource.h>
#include <sys/wait.h>
#include <unistd.h>

#include <cstdio>
#include <cstdlib>
#include <filesystem>
#include <fstream>
#include <functional>
#include <memory>
#include <random>
#include <stdexcept>
#include <string>
#include <vector>

#include "bench_tasks.h"
#include "sqlite_tasks.h"
#include "tqdb_tasks.h"

namespace bench {

// Records each of the 4 concurrent writers adds, and the writer beside the readers.
inline int64_t ConcurrentAdds(int64_t N) { return std::max<int64_t>(N / 40, 1); }
inline constexpr int kWorkers = 4;
inline constexpr int64_t kReaderSeeks = 25000;
inline constexpr int64_t kReaderScan = 10000;

// The row the q-th added record of worker W holds: a code above every loaded one.
inline Row AddedRow(int64_t N, int W, int64_t Q) {
  const int64_t Index = N + static_cast<int64_t>(W) * ConcurrentAdds(N) + Q;
  Row R = MakeRow(Index, N);
  R.Codigo = CodeText(Index + 1);
  return R;
}

// What a set of worker processes did: wall time from the moment all were released, their
// processor times and the largest peak memory among them; Failed when any failed.
struct WorkerRun {
  double Seconds = 0, User = 0, System = 0;
  int64_t PeakKb = 0;
  bool Failed = false;
};

// Forks one process per job. Each runs Prepare (opening its table, untimed), waits for
// the common start, runs its job and exits with 0 on success. The time runs from the
// start to the last exit.
inline WorkerRun RunWorkers(const std::vector<std::function<std::function<bool()>()>>& Jobs) {
  int Gate[2];
  if (pipe(Gate) != 0) throw std::runtime_error("pipe");
  int Ready[2];
  if (pipe(Ready) != 0) throw std::runtime_error("pipe");
  std::fflush(stdout);
  std::fflush(stderr);
  std::vector<pid_t> Children;
  for (const auto& Prepare : Jobs) {
    const pid_t Child = fork();
    if (Child < 0) throw std::runtime_error("fork");
    if (Child == 0) {
      close(Gate[1]);
      close(Ready[0]);
      bool Ok = false;
      try {
        const std::function<bool()> Job = Prepare();
        const char Byte = 1;
        if (write(Ready[1], &Byte, 1) != 1) _exit(3);
        char Go = 0;
        (void)!read(Gate[0], &Go, 1);  // returns 0 when the coordinator closes the gate
        Ok = Job();
      } catch (const std::exception& Error) {
        std::fprintf(stderr, "worker: %s\n", Error.what());
      }
      _exit(Ok ? 0 : 1);
    }
    Children.push_back(Child);
  }
  close(Gate[0]);
  close(Ready[1]);
  for (size_t I = 0; I < Children.size(); ++I) {
    char Byte = 0;
    if (read(Ready[0], &Byte, 1) != 1) break;  // a worker died while preparing
  }
  close(Ready[0]);
  const Stopwatch Clock;
  close(Gate[1]);  // release them all at once
  WorkerRun Run;
  for (size_t I = 0; I < Children.size(); ++I) {
    int Status = 0;
    rusage Usage{};
    const pid_t Done = wait4(-1, &Status, 0, &Usage);
    if (Done < 0) break;
    Run.Failed = Run.Failed || !WIFEXITED(Status) || WEXITSTATUS(Status) != 0;
    Run.User += static_cast<double>(Usage.ru_utime.tv_sec) + 1e-6 * Usage.ru_utime.tv_usec;
    Run.System += static_cast<double>(Usage.ru_stime.tv_sec) + 1e-6 * Usage.ru_stime.tv_usec;
    Run.PeakKb = std::max<int64_t>(Run.PeakKb, Usage.ru_maxrss);
  }
  Run.Seconds = Clock.Seconds();
  return Run;
}

inline Measure FromRun(const WorkerRun& Run, int64_t Ops, double Check) {
  Measure M;
  M.Seconds = Run.Seconds;
  M.Ops = Ops;
  M.Check = Check;
  M.UserSeconds = Run.User;
  M.SystemSeconds = Run.System;
  M.PeakKb = Run.PeakKb;
  if (Run.Failed) {
    M.Failed = true;
    std::snprintf(M.Note, sizeof M.Note, "a worker process failed");
  }
  return M;
}

// ---- TQDB ------------------------------------------------------------------------------

class TqdbWorker {
 public:
  explicit TqdbWorker(const std::string& Directory) {
    if (table_.OpenFile(Directory + std::string(kTableName) + std::string(kSuffix), Directory) !=
        0) {
      throw std::runtime_error("OpenFile failed: " + std::to_string(table_.LastError()));
    }
  }

  bool Add(int64_t N, int W) {
    for (int64_t Q = 0; Q < ConcurrentAdds(N); ++Q) {
      const Row R = AddedRow(N, W, Q);
      AddRecord(table_, R);
    }
    return true;
  }

  // Point seeks reading two fields, then an ordered walk of key 2 reading three.
  bool Read(int64_t N, int W) {
    std::mt19937_64 Random(1000 + static_cast<uint64_t>(W));
    table_.SetIndex(1);
    size_t Sink = 0;
    for (int64_t I = 0; I < kReaderSeeks; ++I) {
      const int64_t Code = static_cast<int64_t>(Random() % static_cast<uint64_t>(N)) + 1;
      if (table_.SeekKey(CodeText(Code)) > 0) {
        Sink += table_.Fields("NOMBRE").ToString().size();
        Sink += static_cast<size_t>(table_.Fields("IMPORTE").ToDouble() != 0);
      }
    }
    table_.SetIndex(2);
    int64_t Walked = 0;
    for (table_.MoveFirst(); !table_.Eof() && Walked < kReaderScan; table_.MoveNext()) {
      Sink += table_.Fields("NOMBRE").ToString().size();
      Sink += static_cast<size_t>(table_.Fields("CANTIDAD").ToDouble() != 0);
      Sink += table_.Fields("CIUDAD").ToString().size();
      ++Walked;
    }
    return Sink > 0;
  }

  int64_t Records() { return table_.RecordCount(); }

 private:
  tqdb::TQFile table_;
};

// ---- SQLite ----------------------------------------------------------------------------

class SqliteWorker {
 public:
  explicit SqliteWorker(const std::string& Directory) {
    if (sqlite3_open((Directory + "bench.db").c_str(), &db_) != SQLITE_OK) {
      throw std::runtime_error("sqlite3_open");
    }
    sqlite3_busy_timeout(db_, 10000);
    Exec("PRAGMA synchronous=OFF");
  }
  ~SqliteWorker() { sqlite3_close(db_); }
  SqliteWorker(const SqliteWorker&) = delete;
  SqliteWorker& operator=(const SqliteWorker&) = delete;

  void Exec(const std::string& Sql) {
    if (sqlite3_exec(db_, Sql.c_str(), nullptr, nullptr, nullptr) != SQLITE_OK) {
      throw std::runtime_error(std::string("exec: ") + sqlite3_errmsg(db_) + ": " + Sql);
    }
  }

  bool Add(int64_t N, int W) {
    Statement Insert(db_, "INSERT INTO t VALUES (?, ?, ?, ?, ?, ?, ?, ?, ?, ?)");
    for (int64_t Q = 0; Q < ConcurrentAdds(N); ++Q) {
      const Row R = AddedRow(N, W, Q);
      InsertRow(Insert, R);
    }
    return true;
  }

  bool Read(int64_t N, int W) {
    std::mt19937_64 Random(1000 + static_cast<uint64_t>(W));
    Statement Seek(db_, "SELECT nombre, importe FROM t WHERE codigo = ?");
    size_t Sink = 0;
    for (int64_t I = 0; I < kReaderSeeks; ++I) {
      Seek.Text(1, CodeText(static_cast<int64_t>(Random() % static_cast<uint64_t>(N)) + 1));
      if (Seek.Step()) {
        Sink += static_cast<size_t>(sqlite3_column_bytes(*Seek, 0));
        Sink += static_cast<size_t>(sqlite3_column_double(*Seek, 1) != 0);
      }
      Seek.Reset();
    }
    Statement Scan(db_, "SELECT nombre, cantidad, ciudad FROM t ORDER BY nombre LIMIT " +
                            std::to_string(kReaderScan));
    while (Scan.Step()) {
      Sink += static_cast<size_t>(sqlite3_column_bytes(*Scan, 0));
      Sink += static_cast<size_t>(sqlite3_column_double(*Scan, 1) != 0);
      Sink += static_cast<size_t>(sqlite3_column_bytes(*Scan, 2));
    }
    return Sink > 0;
  }

  int64_t Records() {
    Statement Count(db_, "SELECT count(*) FROM t");
    Count.Step();
    return sqlite3_column_int64(*Count, 0);
  }

 private:
  sqlite3* db_ = nullptr;
};

// 4 processes add ConcurrentAdds(N) records each to the table; then 4 processes read
// (seeks and an ordered walk) while 1 adds. Fills Out[kConcurrentAdd] and
// Out[kReadWhileWrite].
template <typename Worker>
void RunConcurrentTasks(const std::string& Directory, int64_t N,
                        std::array<Measure, kTaskCount>& Out) {
  using Job = std::function<std::function<bool()>()>;
  const auto Records = [&] {
    Worker W(Directory);
    return W.Records();
  };
  const int64_t Before = Records();
  std::vector<Job> Adders;
  for (int W = 0; W < kWorkers; ++W) {
    Adders.push_back([&Directory, N, W]() -> std::function<bool()> {
      auto Own = std::make_shared<Worker>(Directory);
      return [Own, N, W] { return Own->Add(N, W); };
    });
  }
  const WorkerRun Add = RunWorkers(Adders);
  Out[kConcurrentAdd] = FromRun(Add, kWorkers * ConcurrentAdds(N), double(Records() - Before));

  std::vector<Job> Mixed;
  for (int W = 0; W < kWorkers; ++W) {
    Mixed.push_back([&Directory, N, W]() -> std::function<bool()> {
      auto Own = std::make_shared<Worker>(Directory);
      return [Own, N, W] { return Own->Read(N, W); };
    });
  }
  Mixed.push_back([&Directory, N]() -> std::function<bool()> {
    auto Own = std::make_shared<Worker>(Directory);
    return [Own, N] { return Own->Add(N, kWorkers); };
  });
  const int64_t BeforeMixed = Records();
  const WorkerRun Run = RunWorkers(Mixed);
  Out[kReadWhileWrite] = FromRun(Run, kWorkers * (kReaderSeeks + kReaderScan) + ConcurrentAdds(N),
                                 double(Records() - BeforeMixed));
}

// ---- Peak memory of one task ------------------------------------------------------------

// Runs Task in a child process of its own and returns that process's peak resident set
// in kilobytes (wait4), or -1 when it failed.
inline int64_t PeakOfChild(const std::function<void()>& Task) {
  std::fflush(stdout);
  std::fflush(stderr);
  const pid_t Child = fork();
  if (Child < 0) return -1;
  if (Child == 0) {
    bool Ok = false;
    try {
      Task();
      Ok = true;
    } catch (const std::exception& Error) {
      std::fprintf(stderr, "memory child: %s\n", Error.what());
    }
    _exit(Ok ? 0 : 1);
  }
  int Status = 0;
  rusage Usage{};
  if (wait4(Child, &Status, 0, &Usage) != Child || !WIFEXITED(Status) || WEXITSTATUS(Status) != 0) {
    return -1;
  }
  return Usage.ru_maxrss;
}

struct MemoryRow {
  const char* Name;
  int64_t TqdbKb = -1, SqliteKb = -1;
};

// Peak memory of: opening the table and reading its record count (the floor), ReIndex /
// REINDEX, Rebuild / VACUUM, each in a fresh process.
inline std::vector<MemoryRow> MeasureMaintenanceMemory(const std::string& Directory) {
  const std::string Table = Directory + std::string(kTableName) + std::string(kSuffix);
  const auto Tqdb = [&](int What) {
    return PeakOfChild([&] {
      tqdb::TQFile T;
      if (T.OpenFile(Table, Directory) != 0) throw std::runtime_error("OpenFile");
      if (What == 1) T.ReIndex();
      if (What == 2) T.Rebuild();
      if (What == 0 && T.RecordCount() < 0) throw std::runtime_error("count");
    });
  };
  const auto Sqlite = [&](const char* Sql) {
    return PeakOfChild([&] {
      SqliteWorker W(Directory);
      if (*Sql != '\0') W.Exec(Sql);
      if (W.Records() < 0) throw std::runtime_error("count");
    });
  };
  std::vector<MemoryRow> Rows = {{"Open and count (the floor)"},
                                 {"ReIndex <br><sub>REINDEX</sub>"},
                                 {"Rebuild <br><sub>VACUUM</sub>"}};
  Rows[0].TqdbKb = Tqdb(0);
  Rows[0].SqliteKb = Sqlite("");
  Rows[1].TqdbKb = Tqdb(1);
  Rows[1].SqliteKb = Sqlite("REINDEX");
  Rows[2].TqdbKb = Tqdb(2);
  Rows[2].SqliteKb = Sqlite("VACUUM");
  return Rows;
}

// ---- Import of a CSV file ----------------------------------------------------------------

// The N rows as a CSV file with a header of the field names; dates as dd/mm/yyyy.
inline void WriteCsv(const std::string& Path, int64_t N) {
  std::ofstream Out(Path, std::ios::binary | std::ios::trunc);
  Out << "CODIGO,NOMBRE,CIUDAD,FECHA,CANTIDAD,NUMERO,PRECIO,IMPORTE,SALDO,NOTAS\n";
  char Line[512];
  for (int64_t I = 0; I < N; ++I) {
    const Row R = MakeRow(I, N);
    const std::string Date =
        R.FechaIso.substr(8, 2) + "/" + R.FechaIso.substr(5, 2) + "/" + R.FechaIso.substr(0, 4);
    std::snprintf(Line, sizeof Line, "%s,%s,%s,%s,%d,%d,%.2f,%.2f,%.2f,%s\n", R.Codigo.c_str(),
                  R.Nombre.c_str(), R.Ciudad.c_str(), Date.c_str(), R.Cantidad, R.Numero,
                  static_cast<double>(R.Precio), R.Importe, R.Saldo, R.Notas.c_str());
    Out << Line;
  }
  if (!Out) throw std::runtime_error("cannot write " + Path);
}

// Runs a command line through the shell, timed, its output thrown away.
inline Measure RunCommand(const std::string& Command, int64_t Ops) {
  Measure M;
  std::fflush(stdout);
  const pid_t Child = fork();
  if (Child < 0) throw std::runtime_error("fork");
  if (Child == 0) {
    execl("/bin/sh", "sh", "-c", (Command + " >/dev/null").c_str(), static_cast<char*>(nullptr));
    _exit(127);
  }
  const Stopwatch Clock;
  int Status = 0;
  rusage Usage{};
  wait4(Child, &Status, 0, &Usage);
  M.Seconds = Clock.Seconds();
  M.Ops = Ops;
  M.UserSeconds = static_cast<double>(Usage.ru_utime.tv_sec) + 1e-6 * Usage.ru_utime.tv_usec;
  M.SystemSeconds = static_cast<double>(Usage.ru_stime.tv_sec) + 1e-6 * Usage.ru_stime.tv_usec;
  M.PeakKb = Usage.ru_maxrss;
  if (!WIFEXITED(Status) || WEXITSTATUS(Status) != 0) {
    M.Failed = true;
    std::snprintf(M.Note, sizeof M.Note, "exit status %d: %.60s", WEXITSTATUS(Status),
                  Command.c_str());
  }
  return M;
}

inline std::string Quoted(const std::string& Text) { return "'" + Text + "'"; }

// `tqdb import` of the N rows into an empty table, and `sqlite3 .import` of the same file
// into an empty table with the same indexes (journal off, no syncs, as the other tasks).
// Either is marked failed when its program is not given.
inline void RunImportTasks(const std::string& Directory, int64_t N, const std::string& TqdbTool,
                           const std::string& SqliteTool, std::array<Measure, kTaskCount>& T,
                           std::array<Measure, kTaskCount>& S) {
  const std::string Work = Directory + "import/";
  std::filesystem::remove_all(Work);
  std::filesystem::create_directories(Work);
  const std::string Csv = Work + "rows.csv";
  WriteCsv(Csv, N);
  if (!TqdbTool.empty()) {
    WriteDictionary(Work);
    T[kImport] = RunCommand(Quoted(TqdbTool) + " import " +
                                Quoted(Work + std::string(kTableName) + std::string(kSuffix)) +
                                " " + Quoted(Csv),
                            N);
    tqdb::TQFile Table;
    if (Table.OpenFile(Work + std::string(kTableName) + std::string(kSuffix), Work) == 0) {
      T[kImport].Check = Table.RecordCount();
    }
  }
  if (!SqliteTool.empty()) {
    const std::string Db = Work + "import.db";
    const std::string Schema =
        "PRAGMA journal_mode=OFF; PRAGMA synchronous=OFF; CREATE TABLE t(codigo TEXT, nombre "
        "TEXT, ciudad TEXT, fecha TEXT, cantidad INTEGER, numero INTEGER, precio REAL, importe "
        "REAL, saldo REAL, notas TEXT); CREATE UNIQUE INDEX t_codigo ON t(codigo); CREATE "
        "INDEX t_nombre ON t(nombre);";
    S[kImport] = RunCommand(Quoted(SqliteTool) + " " + Quoted(Db) + " " + Quoted(Schema) +
                                " '.import --csv --skip 1 " + Csv + " t'",
                            N);
    sqlite3* Check = nullptr;
    if (sqlite3_open(Db.c_str(), &Check) == SQLITE_OK) {
      sqlite3_stmt* Count = nullptr;
      if (sqlite3_prepare_v2(Check, "SELECT count(*) FROM t", -1, &Count, nullptr) == SQLITE_OK &&
          sqlite3_step(Count) == SQLITE_ROW) {
        S[kImport].Check = static_cast<double>(sqlite3_column_int64(Count, 0));
      }
      sqlite3_finalize(Count);
    }
    sqlite3_close(Check);
  }
  std::filesystem::remove_all(Work);
}

}  // namespace bench

// The list of benchmark tasks, what one measurement holds, and the clock.
//
// Every task runs on both engines over the same rows; a task reports how many operations
// it did and a check value (a count or a sum) that must agree between the engines.
#pragma once

#include <sys/resource.h>

#include <algorithm>
#include <array>
#include <chrono>
#include <cstdint>
#include <random>
#include <string>
#include <vector>

#include "bench_rows.h"

namespace bench {

enum Task : int {
  kLoad,
  kScanKey1,
  kScanKey2,
  kSeek,
  kRangeFilter,
  kPlainFilter,
  kSort,
  kSum,
  kUpdate,
  kDelete,
  kReIndex,
  kRebuild,
  kConcurrentAdd,  // from here on: tasks of several processes (process_tasks.h)
  kReadWhileWrite,
  kImport,
  kTaskCount
};

struct TaskInfo {
  const char* Tqdb;    // what TQDB does
  const char* Sqlite;  // what SQLite does
  double Target;       // the ratio TQDB/SQLite to reach; 0 = none
  bool ReadOnly;       // changes nothing, so it may be run again
};

inline constexpr std::array<TaskInfo, kTaskCount> kTasks = {{
    {"Bulk load (AddNew/Update)", "INSERT, one transaction", 1.0, false},
    {"Ordered scan, key 1, 3 fields", "SELECT ... ORDER BY codigo", 1.0, true},
    {"Ordered scan, key 2, 3 fields", "SELECT ... ORDER BY nombre", 1.0, true},
    {"Point seek (SeekKey), 2 fields", "SELECT ... WHERE codigo = ?", 1.0, true},
    {"Keyed range filter 1 % + walk", "WHERE codigo >= ? ORDER BY codigo", 1.0, true},
    {"Non-keyed filter + walk", "WHERE ciudad = 'MADRID'", 0, true},
    {"Filter 10 % + Sort by CIUDAD", "WHERE codigo >= ? ORDER BY ciudad", 0, true},
    {"Sum of IMPORTE over the 10 % view", "SELECT SUM(importe) WHERE ...", 0, false},
    {"Edit/Update non-key + key field", "UPDATE ... WHERE codigo = ?", 1.5, false},
    {"Delete 10 % (SeekKey + Delete)", "DELETE ... WHERE codigo = ?", 0, false},
    {"ReIndex", "REINDEX", 1.0, false},
    {"Rebuild", "VACUUM", 1.5, false},
    {"4 processes adding N/40 records each", "4 processes, INSERT each, WAL", 0, false},
    {"4 processes reading, 1 adding N/40", "4 readers, 1 writer, WAL", 0, false},
    {"tqdb import of a CSV file", "sqlite3 .import", 1.0, false},
}};

struct Measure {
  double Seconds = 0;
  int64_t Ops = 0;
  double Check = 0;          // a count or a sum both engines must agree on
  double IoPerOp = -1;       // system calls per operation (TQDB only; -1 = not counted)
  int64_t PeakKb = 0;        // peak resident set of the process after the task
  double UserSeconds = 0;    // processor time in the process itself
  double SystemSeconds = 0;  // processor time in the kernel on its behalf
  bool Failed = false;
  char Note[96] = {};
};

// Processor time used so far, in the process and in the kernel.
inline void ProcessorTime(double& User, double& System) {
  rusage Usage{};
  getrusage(RUSAGE_SELF, &Usage);
  User = static_cast<double>(Usage.ru_utime.tv_sec) +
         1e-6 * static_cast<double>(Usage.ru_utime.tv_usec);
  System = static_cast<double>(Usage.ru_stime.tv_sec) +
           1e-6 * static_cast<double>(Usage.ru_stime.tv_usec);
}

inline int64_t PeakKilobytes() {
  rusage Usage{};
  getrusage(RUSAGE_SELF, &Usage);
  return Usage.ru_maxrss;
}

class Stopwatch {
 public:
  Stopwatch() : start_(std::chrono::steady_clock::now()) {}
  double Seconds() const {
    return std::chrono::duration<double>(std::chrono::steady_clock::now() - start_).count();
  }

 private:
  std::chrono::steady_clock::time_point start_;
};

inline constexpr int64_t kSeeks = 100000;
inline int64_t UpdateCount(int64_t N) { return N < 100000 ? N : 100000; }

// The random code numbers (1..N) looked up by the seek task; the same for both engines.
inline std::vector<int64_t> SeekCodes(int64_t N) {
  std::mt19937_64 Random(20240601);
  std::vector<int64_t> Codes(static_cast<size_t>(kSeeks));
  for (int64_t& C : Codes) C = static_cast<int64_t>(Random() % static_cast<uint64_t>(N)) + 1;
  return Codes;
}

// The random code numbers changed by the update task.
inline std::vector<int64_t> UpdateCodes(int64_t N) {
  std::mt19937_64 Random(77);
  std::vector<int64_t> Codes(static_cast<size_t>(UpdateCount(N)));
  for (int64_t& C : Codes) C = static_cast<int64_t>(Random() % static_cast<uint64_t>(N)) + 1;
  return Codes;
}

// The value the update task gives IMPORTE and NOMBRE for the q-th change.
inline double UpdatedAmount(int64_t Q) { return static_cast<double>(Q % 100000) / 4.0; }
inline std::string UpdatedName(int64_t Q, int64_t N) {
  return NameText(Mix(static_cast<uint64_t>(Q) + 0x5151), N);
}

// The code numbers of the 10 % of records deleted: every tenth code, in random order.
inline std::vector<int64_t> DeleteCodes(int64_t N) {
  std::vector<int64_t> Codes;
  for (int64_t C = 3; C <= N; C += 10) Codes.push_back(C);
  std::shuffle(Codes.begin(), Codes.end(), std::mt19937_64(99));
  return Codes;
}

// The lowest code of the top Percent % of codes.
inline int64_t TopCodeStart(int64_t N, int Percent) { return N - N * Percent / 100 + 1; }

}  // namespace bench

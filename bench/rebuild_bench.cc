// Rebuild against ReIndex: the time to build a table's key file by sorting and bulk
// loading (Rebuild, which also copies the data file and compacts it) and by entering the
// records one by one (ReIndex).
//
// Usage: rebuild_bench [--large]   (or TQDB_BENCH_LARGE=1)
// Runs 100 000 records; --large adds 1 000 000 (several minutes, most of them ReIndex).
// The data files are written directly, byte by byte, in a temporary directory.
#include <stdlib.h>

#include <chrono>
#include <cstdio>
#include <cstring>
#include <filesystem>
#include <fstream>
#include <stdexcept>
#include <string>
#include <utility>
#include <vector>

#include "engine/key_file.h"
#include "engine/tree_checker.h"
#include "platform/archive.h"
#include "support/table_writer.h"
#include "table/TQError.h"
#include "table/TQFile.h"
#include "table/TableState.h"

namespace {

using tqdb::testing::FieldSpec;
using tqdb::testing::KeySpec;
using tqdb::testing::TableSpec;

// Three keys of the usual shapes: a name, a town and a name, a binary code.
TableSpec BenchSpec() {
  TableSpec Spec;
  Spec.Description = "Bench";
  Spec.Fields = {FieldSpec{"NOMBRE", 10, 30}, FieldSpec{"CODIGO", 4, 4},
                 FieldSpec{"CIUDAD", 10, 20}, FieldSpec{"FECHA", 5, 6}, FieldSpec{"SALDO", 3, 8}};
  Spec.Keys = {KeySpec{{{1, 1, 30}}}, KeySpec{{{3, 1, 20}, {1, 1, 10}}}, KeySpec{{{2, 1, 4}}}};
  return Spec;
}

// A deterministic pseudo-random stream (xorshift), so runs compare.
struct Stream {
  uint64_t State = 88172645463325252ull;
  uint64_t Next() {
    State ^= State << 13;
    State ^= State >> 7;
    State ^= State << 17;
    return State;
  }
};

std::string MakeName(Stream& S) {
  static const char* const kFirst[] = {"GARCIA", "LOPEZ", "MUÑOZ", "PEREZ", "SANCHEZ",
                                       "martin", "Gomez", "RUIZ",  "DIAZ",  "ALVAREZ"};
  std::string Name = kFirst[S.Next() % 10];
  Name += ' ';
  for (int I = 0; I < 8; ++I) Name.push_back(static_cast<char>('A' + S.Next() % 26));
  return Name;
}

// Writes the dictionary and Count records (one in twenty deleted) to Directory.
void WriteTable(const std::string& Directory, int Count) {
  const TableSpec Spec = BenchSpec();
  tqdb::testing::WriteDictionary(Directory, "BENCH", Spec);
  Stream S;
  static const char* const kTowns[] = {"MADRID", "SEVILLA", "VALENCIA", "BILBAO", "ZARAGOZA"};
  std::ofstream Out(Directory + "BENCH01.tqd", std::ios::binary | std::ios::trunc);
  const std::string Deleted = tqdb::testing::DeletedRecordBytes(Spec);
  for (int I = 1; I <= Count; ++I) {
    if (I % 20 == 0) {
      Out << Deleted;
      continue;
    }
    const std::string Date = std::to_string(70 + S.Next() % 29) + "0" +
                             std::to_string(1 + S.Next() % 9) + "1" + std::to_string(S.Next() % 9);
    Out << tqdb::testing::RecordBytes(
        Spec, {MakeName(S), static_cast<int>(S.Next() % 100000), kTowns[S.Next() % 5], Date,
               static_cast<double>(S.Next() % 1000000) / 100});
  }
  if (!Out) throw std::runtime_error("cannot write the data file");
  // An empty key file of the right shape, so that opening does not build one.
  const std::vector<int> Lengths{30, 30, 4};
  tqdb::engine::CreateEmptyKeyFile(Directory + "BENCH01.tqc", Lengths);
}

double Seconds(std::chrono::steady_clock::duration D) {
  return std::chrono::duration<double>(D).count();
}

template <typename F>
double Timed(F&& Work) {
  const auto Start = std::chrono::steady_clock::now();
  Work();
  return Seconds(std::chrono::steady_clock::now() - Start);
}

void RunCase(const std::string& Root, int Count) {
  const std::string Directory = Root + "/n" + std::to_string(Count) + "/";
  std::filesystem::create_directories(Directory);
  WriteTable(Directory, Count);
  tqdb::TQFile Table;
  if (Table.OpenFile(Directory + "BENCH01", Directory) != 0) throw std::runtime_error("open");

  const double ReIndexSeconds = Timed([&] { Table.ReIndex(); });

  // Rebuild's key phase runs from the last Progress of the copy phase (50 at most) to the
  // first 100; the key phase of ReIndex is all of it.
  std::vector<std::pair<int32_t, std::chrono::steady_clock::time_point>> Events;
  Table.OnProgress([&](int32_t P) { Events.emplace_back(P, std::chrono::steady_clock::now()); });
  const double RebuildSeconds = Timed([&] { Table.Rebuild(); });
  Table.OnProgress(nullptr);
  auto KeysStart = Events.front().second, KeysEnd = Events.back().second;
  for (const auto& [P, At] : Events) {
    if (P <= 50) KeysStart = At;
  }
  for (auto It = Events.rbegin(); It != Events.rend() && It->first == 100; ++It)
    KeysEnd = It->second;
  const double KeySeconds = Seconds(KeysEnd - KeysStart);

  // The old data file goes to the audit archive (a zip) within Rebuild: time that step
  // alone on a copy, to tell it apart from the rebuilding.
  std::filesystem::copy_file(Directory + "BENCH01.tqd", Directory + "COPIA.tqd");
  const double ArchiveSeconds =
      Timed([&] { tqdb::platform::ZipOneFile(Directory + "COPIA.tqd", Directory + "COPIA.zip"); });
  std::filesystem::remove(Directory + "COPIA.tqd");
  std::filesystem::remove(Directory + "COPIA.zip");

  // The rebuilt table must be sound: every key checked.
  if (Table.OpenFile(Directory + "BENCH01", Directory) != 0) throw std::runtime_error("reopen");
  const auto Problems = tqdb::engine::CheckKeyFile(Table.State().Engine);
  const int32_t Kept = Table.RecordCount();
  std::printf("%9d records, %d kept%s\n", Count, Kept,
              Problems.empty() ? "" : ", KEY FILE DAMAGED");
  std::printf("  ReIndex (record by record)      %8.2f s\n", ReIndexSeconds);
  std::printf("  Rebuild                         %8.2f s\n", RebuildSeconds);
  std::printf("    of which keys (sort and load) %8.2f s   ReIndex / Rebuild keys %6.1fx\n",
              KeySeconds, ReIndexSeconds / KeySeconds);
  std::printf("    of which archive (about)      %8.2f s\n", ArchiveSeconds);
  std::printf("  ReIndex / whole Rebuild         %8.1fx\n", ReIndexSeconds / RebuildSeconds);
  std::fflush(stdout);
  Table.CloseDB();
  std::filesystem::remove_all(Directory);
}

}  // namespace

int main(int argc, char** argv) {
  bool Large = std::getenv("TQDB_BENCH_LARGE") != nullptr;
  for (int I = 1; I < argc; ++I) Large = Large || std::strcmp(argv[I], "--large") == 0;
  std::string Root = std::filesystem::temp_directory_path().string() + "/tqdb-rebuild-XXXXXX";
  if (::mkdtemp(Root.data()) == nullptr) return 1;
  // The audit archive of the old files goes to the temporary directory: keep it in ours.
  ::setenv("TMPDIR", Root.c_str(), 1);
  try {
    RunCase(Root, 100000);
    if (Large) {
      RunCase(Root, 1000000);
    } else {
      std::printf("(1 000 000 records: run with --large or TQDB_BENCH_LARGE=1)\n");
    }
  } catch (const std::exception& Failure) {
    std::fprintf(stderr, "rebuild_bench: %s\n", Failure.what());
    std::filesystem::remove_all(Root);
    return 1;
  }
  std::filesystem::remove_all(Root);
  return 0;
}

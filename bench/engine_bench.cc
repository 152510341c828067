// The index engine alone, driven through its command channel: inserting N records' keys
// with I commands, walking a key with F and N, searching with S, and deleting with D.
// Prints operations per second and system calls per operation.
//
// Usage: engine_bench [N] (default 100000).
#include <unistd.h>

#include <chrono>
#include <cstdio>
#include <cstdlib>
#include <filesystem>
#include <random>
#include <string>
#include <vector>

#include "engine/EngineState.h"
#include "engine/dispatcher.h"
#include "engine/key_file.h"
#include "platform/file_pool.h"

namespace {

using Clock = std::chrono::steady_clock;

class Channel {
 public:
  int32_t Run(std::string Text) {
    command_ = std::move(Text);
    tqdb::fabs_emulate(Engine, command_, result_, status_, error_);
    if (status_ != 0 && status_ != 15 && status_ != 12) {
      std::fprintf(stderr, "command %s: status %d %s\n", command_.c_str(), status_, error_.c_str());
      std::exit(1);
    }
    return result_;
  }
  int16_t Status() const { return status_; }
  tqdb::EngineState Engine;

 private:
  std::string command_, error_;
  int32_t result_ = 0;
  int16_t status_ = 0;
};

std::string KeyOf(uint64_t Number) {
  char Text[17];
  std::snprintf(Text, sizeof(Text), "%016llu", static_cast<unsigned long long>(Number));
  return Text;
}

// Prints one line of the table: operation, count, seconds, operations per second and
// reads and writes per operation.
void Report(const char* Name, int64_t Count, Clock::time_point Start) {
  const double Seconds = std::chrono::duration<double>(Clock::now() - Start).count();
  const tqdb::platform::IoCounters Io = tqdb::platform::GetIoCounters();
  std::printf("%-28s %9lld %9.3f s %12.0f ops/s %7.2f reads/op %6.2f writes/op\n", Name,
              static_cast<long long>(Count), Seconds, double(Count) / Seconds,
              double(Io.Reads) / double(Count), double(Io.Writes) / double(Count));
}

}  // namespace

int main(int argc, char** argv) {
  const int64_t N = argc > 1 ? std::atoll(argv[1]) : 100000;
  const std::filesystem::path Dir =
      std::filesystem::temp_directory_path() / ("tqdb-engine-bench-" + std::to_string(::getpid()));
  std::filesystem::create_directories(Dir);
  const std::string Path = (Dir / "bench01.tqc").string();
  // Key 1: 16 characters, nearly unique; key 2: 4 characters, 50 values (long runs).
  tqdb::engine::CreateEmptyKeyFile(Path, std::vector<int>{16, 4});
  Channel Engine;
  std::string Opened = Path;
  for (char& C : Opened) C = C == '/' ? '\\' : C;
  Engine.Run("/O/" + Opened + "/1");

  std::mt19937_64 Random(42);
  std::vector<uint64_t> Keys(static_cast<size_t>(N));
  for (uint64_t& Key : Keys) Key = Random() % 10000000000000000ull;
  std::printf("engine alone, N = %lld\n", static_cast<long long>(N));

  tqdb::platform::ResetIoCounters();
  auto Start = Clock::now();
  for (int64_t I = 0; I < N; ++I) {
    const std::string Text = KeyOf(Keys[size_t(I)]);
    Engine.Run("I\\1\\" + Text + "\\" + Text.substr(14, 2) + "  ");
  }
  Report("insert (I, two keys)", N, Start);

  tqdb::platform::ResetIoCounters();
  Start = Clock::now();
  int64_t Walked = 1;
  for (Engine.Run("F\\1\\1"); Engine.Run("N\\1"), Engine.Status() == 0;) ++Walked;
  Report("full walk (F, N)", Walked, Start);

  tqdb::platform::ResetIoCounters();
  Start = Clock::now();
  for (int64_t I = 0; I < N; ++I) {
    Engine.Run("S\\1\\1\\" + KeyOf(Keys[size_t(Random() % uint64_t(N))]));
  }
  Report("random search (S)", N, Start);

  tqdb::platform::ResetIoCounters();
  Start = Clock::now();
  for (int64_t I = 0; I < N; ++I) {
    Engine.Run("G\\2\\1\\" + KeyOf(Random()).substr(14, 2));
  }
  Report("prefix search, runs (G)", N, Start);

  tqdb::platform::ResetIoCounters();
  Start = Clock::now();
  const int64_t Deletes = N / 2;
  for (int64_t I = 0; I < Deletes; ++I) {
    const std::string Text = KeyOf(Keys[size_t(I)]);
    Engine.Run("D\\" + std::to_string(I + 1) + "\\Y\\1\\" + Text + "\\" + Text.substr(14, 2) +
               "  ");
  }
  Report("delete (D, two keys)", Deletes, Start);

  Engine.Run("K");
  std::filesystem::remove_all(Dir);
  return 0;
}

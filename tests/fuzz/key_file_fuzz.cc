// Fuzz target: opening and walking a key file. Each input is a key file's bytes, opened with
// the engine's O command. Beyond "no crash, no hang": no walk returns more entries than the
// file can hold, and when the tree checker finds the file sound, the walks forwards (F, N)
// and backwards (L, P) return exactly the checker's entries, and S finds every listed value.
#include <cstdint>
#include <cstdio>
#include <cstdlib>
#include <string>
#include <vector>

#include "engine/dispatcher.h"
#include "engine/dispatcher_retry.h"
#include "engine/tree_checker.h"
#include "platform/codepage.h"
#include "support/temp_dir.h"
#include "table/TQFile.h"

namespace {

using namespace tqdb;

[[noreturn]] void Finding(const char* What) {
  std::fprintf(stderr, "FINDING: %s\n", What);
  std::abort();
}

struct Channel {
  EngineState Engine;
  int32_t Result = 0;
  int16_t Status = 0;
  std::string ErrorText;

  int16_t Send(std::string Command) {
    fabs_emulate(Engine, Command, Result, Status, ErrorText);
    return Status;
  }
  // The records of a walk of Key: F then N, or L then P (reversed, so in key order).
  std::vector<int32_t> Walk(const std::string& Key, bool Forward, size_t Limit) {
    std::vector<int32_t> Records;
    for (Send((Forward ? "F\\" : "L\\") + Key + "\\1"); Status == 0;
         Send(Forward ? "N\\1" : "P\\1")) {
      Records.insert(Forward ? Records.end() : Records.begin(), Result);
      if (Records.size() > Limit) Finding("a walk returns more entries than the file holds");
    }
    return Records;
  }
};

}  // namespace

extern "C" int LLVMFuzzerTestOneInput(const uint8_t* Data, size_t Size) {
  static const testing::TempDir Dir;
  static const bool Once = [] {
    SetMessageSink([](const std::string&, MessageIcon) {});
    engine::SetRetrySleep([](int32_t) { Finding("a command is retried in a lone process"); });
    return true;
  }();
  (void)Once;
  Dir.Write("KEYS01.TQC", std::string_view(reinterpret_cast<const char*>(Data), Size));
  std::string Path = Dir.File("KEYS01.TQC");
  for (char& Ch : Path) Ch = Ch == '/' ? '\\' : Ch;
  Channel C;
  if (C.Send("/O/" + Path + "/1") != 0) return 0;
  const bool Sound = engine::CheckKeyFile(C.Engine).empty();
  for (int Key = 1; Key <= C.Engine.Header.KeyCount; ++Key) {
    const std::string K = std::to_string(Key);
    const std::vector<int32_t> Forward = C.Walk(K, true, Size / 5 + 16);
    const std::vector<int32_t> Backward = C.Walk(K, false, Size / 5 + 16);
    if (!Sound) continue;
    std::vector<int32_t> Listed;
    for (const engine::KeyEntry& E : engine::ListKeyEntries(C.Engine, Key)) {
      Listed.push_back(E.Record);
      // Commands are upper-cased: a value in lower case is not one a command can name.
      if (platform::UpperCase(E.Text) == E.Text && C.Send("S\\" + K + "\\1\\" + E.Text) != 0) {
        Finding("S does not find a key value the checker lists");
      }
    }
    if (Forward != Listed || Backward != Listed) Finding("walks and the checker disagree");
  }
  C.Send("K");
  return 0;
}

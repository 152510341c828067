// Fuzz target: opening and walking a key file. Each input is a key file's bytes, opened
// with the engine's O command; every key is walked forwards (F, N) and backwards (L, P),
// searched (S, G, A) and checked by the tree checker; then a record's keys are inserted (I)
// and deleted again (D).
//
// Properties beyond "no crash, no hang": no walk returns more entries than the file can
// hold; and when the tree checker finds the file sound, the walks return exactly the
// checker's entries in order (and reversed), S finds every key value, and inserting and
// deleting a record leaves the entries as they were and the file sound.
#include <cstddef>
#include <cstdint>
#include <string>
#include <string_view>
#include <vector>

#include "engine/EngineState.h"
#include "engine/dispatcher.h"
#include "engine/dispatcher_retry.h"
#include "engine/key_file.h"
#include "engine/tree_checker.h"
#include "fuzz_support.h"
#include "platform/codepage.h"

namespace {

using namespace tqdb;

struct Channel {
  EngineState Engine;
  int32_t Result = 0;
  int16_t Status = 0;
  std::string ErrorText;

  int16_t Send(std::string Command) {
    Result = 0;
    fabs_emulate(Engine, Command, Result, Status, ErrorText);
    return Status;
  }
  // The records of a walk of Key, F then N (Forward) or L then P; checks the end status.
  std::vector<int32_t> Walk(int Key, bool Forward, size_t Limit, bool Sound, bool Empty) {
    std::vector<int32_t> Records;
    for (Send((Forward ? "F\\" : "L\\") + std::to_string(Key) + "\\1"); Status == 0;
         Send(Forward ? "N\\1" : "P\\1")) {
      Records.push_back(Result);
      if (Records.size() > Limit) fuzz::Finding("a walk returns more entries than the file holds");
    }
    if (Sound && Status != (Empty ? 16 : Forward ? 15 : 13)) {
      fuzz::Finding("a walk ends with status " + std::to_string(Status));
    }
    return Records;
  }
};

}  // namespace

extern "C" int LLVMFuzzerTestOneInput(const uint8_t* Data, size_t Size) {
  static const std::string Path = fuzz::Scratch().File("KEYS01.TQC");
  static const bool Once = [] {
    engine::SetRetrySleep([](int32_t) { fuzz::Finding("a command is retried in a lone process"); });
    return true;
  }();
  (void)Once;
  fuzz::Scratch().Write("KEYS01.TQC", std::string_view(reinterpret_cast<const char*>(Data), Size));
  Channel C;
  std::string InCommand = Path;  // every "/" written as "\"
  for (char& Ch : InCommand) Ch = Ch == '/' ? '\\' : Ch;
  C.Send("/O/" + InCommand + "/1");
  if (C.Engine.KeyFileNo == 0) return 0;
  const size_t Limit = Size / 5 + 16;
  const int Keys = C.Engine.Header.KeyCount;
  const bool Sound = engine::CheckKeyFile(C.Engine).empty();
  std::vector<std::vector<engine::KeyEntry>> Before;
  std::string Texts;
  for (int Key = 1; Key <= Keys; ++Key) {
    const std::string K = std::to_string(Key);
    const std::vector<engine::KeyEntry>& Entries =
        Before.emplace_back(engine::ListKeyEntries(C.Engine, Key));
    const std::vector<int32_t> Forward = C.Walk(Key, true, Limit, Sound, Entries.empty());
    const std::vector<int32_t> Backward = C.Walk(Key, false, Limit, Sound, Entries.empty());
    Texts += "\\NUEVA" + K;
    if (!Sound) {
      for (const std::string& Command : {"S\\" + K + "\\1\\M", "G\\" + K + "\\1\\A",
                                         std::string("N\\1"), "A\\" + K + "\\3\\1\\B"}) {
        C.Send(Command);
      }
      continue;
    }
    if (Forward.size() != Entries.size() || Backward.size() != Entries.size()) {
      fuzz::Finding("walks and the checker disagree on the number of entries");
    }
    for (size_t I = 0; I < Entries.size(); ++I) {
      if (Forward[I] != Entries[I].Record ||
          Backward[Entries.size() - 1 - I] != Entries[I].Record) {
        fuzz::Finding("walks and the checker disagree on the order");
      }
      // Commands are upper-cased: a value in lower case is not one a command can name.
      if (I % (1 + Entries.size() / 16) != 0 ||
          platform::UpperCase(Entries[I].Text) != Entries[I].Text) {
        continue;
      }
      if (C.Send("S\\" + K + "\\1\\" + Entries[I].Text) != 0) {
        fuzz::Finding("S does not find a key value the checker lists");
      }
    }
  }
  C.Send("U");
  C.Send("I\\1" + Texts);  // a record's keys in and out again
  if (C.Status == 0) {
    C.Send("D\\" + std::to_string(C.Engine.LastAllocated) + "\\Y\\1" + Texts);
    if (Sound && C.Status != 0) fuzz::Finding("D of a record just inserted fails on a sound file");
  } else if (Sound && C.ErrorText.find("estropeado") != std::string::npos) {
    fuzz::Finding("I calls a sound file damaged: " + C.ErrorText);
  }
  if (Sound) {
    const std::vector<std::string> Problems = engine::CheckKeyFile(C.Engine);
    if (!Problems.empty()) fuzz::Finding("I and D leave a sound file damaged: " + Problems[0]);
    for (int Key = 1; Key <= Keys; ++Key) {
      if (engine::ListKeyEntries(C.Engine, Key) != Before[size_t(Key - 1)]) {
        fuzz::Finding("I and D change the entries of a key");
      }
    }
  }
  C.Send("K");
  return 0;
}

// Fuzz target: opening and walking a key file. Each input is a key file's bytes. The file
// is opened with the engine's O command, every key is walked forwards (F, then N) and
// backwards (L, then P), searched (S, G) and checked by the tree checker; then a record's
// keys are inserted (I) and deleted again (D).
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
};

std::string PathInCommand(std::string Path) {
  for (char& C : Path) C = C == '/' ? '\\' : C;
  return Path;
}

// The records of a walk of Key: F then N (Forward), or L then P.
std::vector<int32_t> Walk(Channel& C, int Key, bool Forward, size_t Limit, int16_t& EndStatus) {
  std::vector<int32_t> Records;
  C.Send(std::string(Forward ? "F\\" : "L\\") + std::to_string(Key) + "\\1");
  while (C.Status == 0) {
    Records.push_back(C.Result);
    if (Records.size() > Limit) fuzz::Finding("a walk returns more entries than the file holds");
    C.Send(Forward ? "N\\1" : "P\\1");
  }
  EndStatus = C.Status;
  return Records;
}

void CheckSoundKey(Channel& C, int Key, size_t Limit) {
  const std::vector<engine::KeyEntry> Entries = engine::ListKeyEntries(C.Engine, Key);
  int16_t End = 0;
  const std::vector<int32_t> Forward = Walk(C, Key, true, Limit, End);
  if (End != (Entries.empty() ? 16 : 15))
    fuzz::Finding("forward walk ends with status " + std::to_string(End));
  const std::vector<int32_t> Backward = Walk(C, Key, false, Limit, End);
  if (End != (Entries.empty() ? 16 : 13))
    fuzz::Finding("backward walk ends with status " + std::to_string(End));
  if (Forward.size() != Entries.size() || Backward.size() != Entries.size()) {
    fuzz::Finding("walks and the checker disagree on the number of entries");
  }
  for (size_t I = 0; I < Entries.size(); ++I) {
    if (Forward[I] != Entries[I].Record || Backward[Entries.size() - 1 - I] != Entries[I].Record) {
      fuzz::Finding("walks and the checker disagree on the order");
    }
  }
  for (size_t I = 0; I < Entries.size(); I += 1 + Entries.size() / 16) {
    // Commands are upper-cased: a value in lower case is not one a command can name.
    if (platform::UpperCase(Entries[I].Text) != Entries[I].Text) continue;
    C.Send("S\\" + std::to_string(Key) + "\\1\\" + Entries[I].Text);
    if (C.Status != 0) fuzz::Finding("S does not find a key value the checker lists");
  }
}

}  // namespace

extern "C" int LLVMFuzzerTestOneInput(const uint8_t* Data, size_t Size) {
  static const std::string Path = fuzz::ScratchDir() + "KEYS01.TQC";
  static const bool Once = [] {
    engine::SetRetrySleep([](int32_t) { fuzz::Finding("a command is retried in a lone process"); });
    return true;
  }();
  (void)Once;
  fuzz::WriteFile(Path, std::string_view(reinterpret_cast<const char*>(Data), Size));
  Channel C;
  C.Send("/O/" + PathInCommand(Path) + "/1");
  if (C.Engine.KeyFileNo == 0) return 0;
  const size_t Limit = Size / 5 + 16;
  const int Keys = C.Engine.Header.KeyCount;
  const bool Sound = engine::CheckKeyFile(C.Engine).empty();
  std::vector<std::vector<engine::KeyEntry>> Before;
  for (int Key = 1; Key <= Keys; ++Key) {
    Before.push_back(engine::ListKeyEntries(C.Engine, Key));
    if (Sound) {
      CheckSoundKey(C, Key, Limit);
    } else {
      int16_t End = 0;
      Walk(C, Key, true, Limit, End);
      Walk(C, Key, false, Limit, End);
      C.Send("S\\" + std::to_string(Key) + "\\1\\M");
      C.Send("G\\" + std::to_string(Key) + "\\1\\A");
      C.Send("N\\1");
      C.Send("A\\" + std::to_string(Key) + "\\3\\1\\B");
    }
  }
  C.Send("U");
  // A record's keys in and out again.
  std::string Keys_;
  for (int Key = 1; Key <= Keys; ++Key) Keys_ += "\\NUEVA" + std::to_string(Key);
  C.Send("I\\1" + Keys_);
  const int32_t Record = C.Engine.LastAllocated;
  if (C.Status == 0) {
    C.Send("D\\" + std::to_string(Record) + "\\Y\\1" + Keys_);
    if (Sound && C.Status != 0) fuzz::Finding("D of a record just inserted fails on a sound file");
  } else if (Sound && C.ErrorText.find("estropeado") != std::string::npos) {
    fuzz::Finding("I calls a sound file damaged: " + C.ErrorText);
  }
  if (Sound) {
    const std::vector<std::string> Problems = engine::CheckKeyFile(C.Engine);
    if (!Problems.empty()) fuzz::Finding("I and D leave a sound file damaged: " + Problems[0]);
    for (int Key = 1; Key <= Keys; ++Key) {
      if (engine::ListKeyEntries(C.Engine, Key) != Before[Key - 1]) {
        fuzz::Finding("I and D change the entries of a key");
      }
    }
  }
  C.Send("K");
  return 0;
}

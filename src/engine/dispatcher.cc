// The engine command channel's dispatcher: parses one command text, runs one engine
// operation, and sorts the faults raised inside it.
#include "engine/dispatcher.h"

#include <algorithm>
#include <atomic>
#include <optional>
#include <string_view>
#include <vector>

#include "engine/command_fields.h"
#include "engine/create_key_file.h"
#include "engine/dispatcher_retry.h"
#include "engine/key_file.h"
#include "engine/key_file_damage.h"
#include "engine/key_navigation.h"
#include "engine/key_update.h"
#include "platform/clock.h"
#include "platform/codepage.h"
#include "platform/fault.h"
#include "platform/file_pool.h"
#include "platform/messages.h"
#include "platform/numbers.h"

namespace tqdb {
namespace {

using engine::CommandFields;
using platform::Fault;

constexpr int32_t kRetryMessageAt = 2000;

std::atomic<engine::RetrySleepFunction> RetrySleep{nullptr};

// Another user holds byte 1 of the key file: retried like a nested fault 55000.
class KeyFileBusy : public Fault {
 public:
  explicit KeyFileBusy(const Fault& Cause) : Fault(Cause.Number(), Cause.Description()) {}
};

// Byte 1 of the key file, locked for the life of the object and unlocked on every way
// out: exclusively around D, I and R, which change the trees; shared around the letters
// that read nodes from the file, so that a reader never reads a node while another
// process is writing it (a read racing a write of the same page can see part of each).
// A table held alone (EngineState::Alone) needs neither, and takes none.
class KeyFileLock {
 public:
  explicit KeyFileLock(const EngineState& Engine, bool Exclusive = true) {
    if (Engine.Alone) return;
    try {
      lock_.emplace(Engine.KeyFileNo, 1, 1, Exclusive);
    } catch (const Fault& Failure) {
      if (Failure.Number() == platform::kPermissionDenied) throw KeyFileBusy(Failure);
      throw;
    }
  }

 private:
  std::optional<platform::ScopedRangeLock> lock_;
};

// Puts the command member back and clears the building flag after letter C.
class CreationScope {
 public:
  CreationScope(EngineState& Engine, std::string& Command)
      : engine_(Engine), command_(Command), saved_(Command) {}
  ~CreationScope() {
    engine_.Creating = false;
    command_ = saved_;
  }
  CreationScope(const CreationScope&) = delete;
  CreationScope& operator=(const CreationScope&) = delete;

 private:
  EngineState& engine_;
  std::string& command_;
  std::string saved_;
};

void RunCreate(EngineState& Engine, std::string& Command, const CommandFields& Fields) {
  const std::string Path(Fields.Text(1));
  const int16_t Parsed = Fields.Int16(5);
  if (Path.size() < 4) throw Fault(platform::kInvalidCall);
  const std::string Base = Path.substr(0, Path.size() - 4);
  const std::string Extension = Path.substr(Path.size() - 4);
  CreationScope Scope(Engine, Command);
  Command = Base;
  Engine.Creating = true;
  engine::CreateKeyFile(Engine, Engine.KeyFileNo != 0 ? Engine.KeyFileNo : Parsed, Base);
  Engine.Creating = false;
  engine::OpenKeyFile(Engine, Base + Extension);
}

void RunOpen(EngineState& Engine, const CommandFields& Fields) {
  std::string Path(Fields.Text(1));
  Fields.Int16(2);
  if (Path.size() < 3) throw Fault(platform::kInvalidCall);
  Path.replace(Path.size() - 3, 3, "TQC");
  engine::OpenKeyFile(Engine, Path);
}

// True when N (Forward) or P reads the key file: the step leaves the leaf in the buffer.
// A step within it, the usual case, reads nothing and takes no lock.
bool StepReadsFile(const EngineState& Engine, bool Forward) {
  if (Engine.CurKey < 1 || Engine.CurKey > kMaxKeys || Engine.CurKeyLength < 1 ||
      Engine.LeafLevel < 0 || Engine.LeafLevel >= kLevelBuffers) {
    return false;
  }
  const NodeBuffer& Leaf = Engine.Level[static_cast<size_t>(Engine.LeafLevel)];
  const int Count = Leaf[1] | (Leaf[2] << 8);
  const int Entry = Engine.Path[static_cast<size_t>(Engine.LeafLevel)].Entry;
  return Forward ? Entry + 1 >= Count : std::min(Entry, Count) - 1 < 0;
}

// The shared lock of the reading letters, taken only when a key file is open (without
// one the operation itself reports it). While it is held nobody changes the key file, so
// a page the letter reads twice is read from the file once.
struct ReadLock {
  std::optional<KeyFileLock> Lock;
  std::optional<engine::LockedPageScope> Pages;
};

void TakeReadLock(EngineState& Engine, ReadLock& Held) {
  if (Engine.KeyFileNo == 0) return;
  Held.Lock.emplace(Engine, false);
  Held.Pages.emplace(Engine);
}

// Runs the operation of the command's letter; letters without one do nothing.
void RunLetter(EngineState& Engine, std::string& Command, char Separator, int32_t& Result) {
  if (Command.empty()) return;
  const CommandFields Fields(Command, Separator);
  switch (Command[0]) {
    case 'A':
    case 'E': {
      const int16_t Key = Fields.Int16(1);
      const int32_t Record = Fields.Int32(2);
      Fields.Int16(3);
      const std::string_view Value = Fields.TextToEnd(4);
      ReadLock Lock;
      TakeReadLock(Engine, Lock);
      Result = Command[0] == 'A' ? engine::KeyAfter(Engine, Key, Record, Value)
                                 : engine::KeyBefore(Engine, Key, Record, Value);
      return;
    }
    case 'C':
      return RunCreate(Engine, Command, Fields);
    case 'D': {
      const int32_t Record = Fields.Int32(1);
      Fields.Int16(3);
      const std::vector<std::string> Values = Fields.KeyTexts(Engine, 4);
      const KeyFileLock Lock(Engine);
      const engine::LockedPageScope Pages(Engine);
      engine::DeleteKeys(Engine, Record, Values);
      return;
    }
    case 'F':
    case 'L': {
      const int16_t Key = Fields.Int16(1);
      Fields.Int16(2);
      ReadLock Lock;
      TakeReadLock(Engine, Lock);
      Result = Command[0] == 'F' ? engine::KeyFirst(Engine, Key) : engine::KeyLast(Engine, Key);
      return;
    }
    case 'G':
    case 'S': {
      const int16_t Key = Fields.Int16(1);
      Fields.Int16(2);
      const std::string_view Value = Fields.TextToEnd(3);
      ReadLock Lock;
      TakeReadLock(Engine, Lock);
      Result = Command[0] == 'G' ? engine::KeyGet(Engine, Key, Value)
                                 : engine::KeySearch(Engine, Key, Value);
      return;
    }
    case 'I': {
      Fields.Int16(1);
      const std::vector<std::string> Values = Fields.KeyTexts(Engine, 2);
      const KeyFileLock Lock(Engine);
      const engine::LockedPageScope Pages(Engine);
      engine::InsertKeys(Engine, Values);
      return;
    }
    case 'K':
      return engine::CloseKeyFile(Engine);
    case 'N':
    case 'P': {
      platform::ToInt16(
          platform::Val(std::string_view(Command).substr(std::min<size_t>(2, Command.size()))));
      ReadLock Lock;
      if (StepReadsFile(Engine, Command[0] == 'N')) TakeReadLock(Engine, Lock);
      Result = Command[0] == 'N' ? engine::KeyNext(Engine) : engine::KeyPrevious(Engine);
      return;
    }
    case 'O':
      return RunOpen(Engine, Fields);
    case 'R': {
      const int16_t Key = Fields.Int16(1);
      const int32_t Record = Fields.Int32(2);
      Fields.Int16(3);
      std::string_view Old, New;
      Fields.OldAndNew(Engine, Key, Old, New);
      const KeyFileLock Lock(Engine);
      const engine::LockedPageScope Pages(Engine);
      engine::ReplaceKeys(Engine, Key, Record, Old, New);
      Result = Record;
      return;
    }
    case 'T':
      Engine.EngineDir = std::string(Fields.TextToEnd(1));
      return;
    case 'U': {
      ReadLock Lock;
      TakeReadLock(Engine, Lock);
      Result = engine::CountDeleted(Engine);
      return;
    }
    default:
      return;
  }
}

// One more retry of a command: the message once at the 2000th, then a short sleep.
void WaitBeforeRetry(int32_t& RetryCount, const Fault& Cause) {
  ++RetryCount;
  if (RetryCount == kRetryMessageAt) {
    platform::ShowMessage(platform::Utf8ToCp1252(Cause.Description()) + "\r\nfabs_emulate",
                          MessageIcon::Exclamation);
  }
  const int32_t Pause = RetryCount < 10 ? 10 - RetryCount : 10;
  const engine::RetrySleepFunction Sleep = RetrySleep.load();
  if (Sleep != nullptr) {
    Sleep(Pause);
  } else {
    platform::SleepMilliseconds(Pause);
  }
}

}  // namespace

namespace engine {

RetrySleepFunction SetRetrySleep(RetrySleepFunction Sleep) { return RetrySleep.exchange(Sleep); }

}  // namespace engine

void fabs_emulate(EngineState& Engine, std::string& Command, int32_t& Result, int16_t& Status,
                  std::string& ErrorText) {
  Result = 0;
  platform::UpperCaseInPlace(Command);
  Engine.EngineStatus = 0;
  char Separator = '\\';
  if (!Command.empty() && Command[0] == '/') {
    Separator = '/';
    Command.erase(0, 1);
  }
  int32_t RetryCount = 0;
  for (;;) {
    try {
      Engine.EngineStatus = 0;
      RunLetter(Engine, Command, Separator, Result);
      Status = Engine.EngineStatus;
      return;
    } catch (const engine::KeyFileDamaged& Damage) {
      ErrorText = Damage.Description();
      Status = 105;
      return;
    } catch (const engine::KeyFileNotCreated& Failure) {
      ErrorText = Failure.Description();
      Status = 23;
      return;
    } catch (const KeyFileBusy& Busy) {
      WaitBeforeRetry(RetryCount, Busy);
    } catch (const Fault& Failure) {
      switch (Failure.Number()) {
        case platform::kBadFileNumber:
          Status = 100;
          return;
        case platform::kBadRecordNumber:
          Status = 101;
          return;
        case platform::kEngineFault:
          WaitBeforeRetry(RetryCount, Failure);
          break;
        default:
          ErrorText = Failure.Description();
          Status = 105;
          return;
      }
    } catch (const std::exception& Failure) {
      ErrorText = Failure.what();
      Status = 105;
      return;
    }
  }
}

}  // namespace tqdb

// Fuzz target: the engine's command parser and dispatcher. Each input is up to 16 command
// texts, one a line, sent with fabs_emulate to a key file of a small table, restored
// before each input. Commands that name files (O, C, T) are kept to the table's own key
// file, so that the target never writes outside its scratch directory.
//
// Properties beyond "no crash": the dispatcher returns for every command (a fault it
// cannot classify is status 105 with a description), and a command is never retried for
// a lock in a process that is alone with its key file.
#include <cstddef>
#include <cstdint>
#include <string>
#include <string_view>

#include "engine/EngineState.h"
#include "engine/dispatcher.h"
#include "engine/dispatcher_retry.h"
#include "engine/key_file.h"
#include "fuzz_support.h"
#include "table/TQFile.h"

namespace {

using namespace tqdb;

struct Fixture {
  Fixture() {
    const std::string Name = fuzz::WriteFuzzTable();
    {
      TQFile Table;
      Table.OpenFile(Name, fuzz::ScratchDir());  // builds the key file
    }
    KeyPath = fuzz::KeyFilePath(fuzz::ScratchDir(), "FUZZT01.TQC");
    if (KeyPath.empty()) fuzz::Finding("the table's key file was not built");
    Pristine = fuzz::ReadFile(KeyPath);
    std::string Command = KeyPath;
    for (char& C : Command) C = C == '/' ? '\\' : C;
    Create = "/C/" + Command + "/2/18/A/ 1";
    engine::SetRetrySleep([](int32_t) {
      if (++Retries > 100) fuzz::Finding("a command is retried endlessly");
    });
  }
  std::string KeyPath;
  std::string Pristine;
  std::string Create;
  static inline int Retries = 0;
};

// The command as sent: file-naming letters are pointed at the table's own key file.
std::string Confined(const Fixture& F, std::string_view Line) {
  const size_t Letter = !Line.empty() && Line[0] == '/' ? 1 : 0;
  const char C = Letter < Line.size() ? Line[Letter] : '\0';
  switch (C) {
    case 'C':
    case 'c':
      return F.Create;
    case 'O':
    case 'o':
      return "/O/" + F.Create.substr(3, F.Create.find("/2/18") - 3) + "/1";
    case 'T':
    case 't':
      return "T\\" + fuzz::ScratchDir();
    default:
      return std::string(Line);
  }
}

}  // namespace

extern "C" int LLVMFuzzerTestOneInput(const uint8_t* Data, size_t Size) {
  static const Fixture F;
  fuzz::WriteFile(F.KeyPath, F.Pristine);
  EngineState Engine;
  Engine.EngineDir = fuzz::ScratchDir();
  engine::OpenKeyFile(Engine, F.KeyPath);
  if (Engine.KeyFileNo == 0) fuzz::Finding("the pristine key file does not open");

  const std::string_view Input(reinterpret_cast<const char*>(Data), Size);
  size_t Start = 0;
  for (int Count = 0; Count < 16 && Start <= Input.size(); ++Count) {
    const size_t End = std::min(Input.find('\n', Start), Input.size());
    std::string Command = Confined(F, Input.substr(Start, End - Start));
    Start = End + 1;
    int32_t Result = 0;
    int16_t Status = 0;
    std::string ErrorText;
    Fixture::Retries = 0;
    fabs_emulate(Engine, Command, Result, Status, ErrorText);
    if (Status == 105 && ErrorText.empty()) fuzz::Finding("status 105 without a description");
  }
  engine::CloseKeyFile(Engine);
  return 0;
}

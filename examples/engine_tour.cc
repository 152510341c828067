// A tour of the index engine through its command channel.
//
// Creates an empty key file with one key of 12 characters in a scratch directory, opens
// it through a TQFile object's channel, inserts a few keys, walks them forward and
// backward, seeks by prefix and by whole value, deletes one entry and walks again. Each
// command is printed with the record number it returned and its status (0 success, 12 not
// found, 13 before the first entry, 15 after the last, 16 no entries).
#include <stdlib.h>

#include <array>
#include <cstdio>
#include <filesystem>
#include <map>
#include <string>
#include <system_error>
#include <vector>

#include "engine/key_file.h"
#include "table/TQFile.h"
#include "table/TableState.h"

namespace {

constexpr int kKeyLength = 12;

// A scratch directory under $TMPDIR (or /tmp), removed at the end.
class ScratchDir {
 public:
  ScratchDir() {
    const char* Base = std::getenv("TMPDIR");
    std::string Pattern = (Base != nullptr && *Base != '\0') ? Base : "/tmp";
    if (Pattern.back() != '/') Pattern += '/';
    Pattern += "tqdb-tour-XXXXXX";
    if (mkdtemp(Pattern.data()) != nullptr) path_ = Pattern;
  }
  ~ScratchDir() {
    std::error_code Ignored;
    if (!path_.empty()) std::filesystem::remove_all(path_, Ignored);
  }
  const std::string& Path() const { return path_; }

 private:
  std::string path_;
};

// Engine commands carry paths with "\" between directories: "/" is their separator.
std::string CommandPath(std::string Path) {
  for (char& C : Path) {
    if (C == '/') C = '\\';
  }
  return Path;
}

// A whole key value: the text padded with blanks to the key's length.
std::string Padded(std::string Text) {
  Text.resize(kKeyLength, ' ');
  return Text;
}

class Tour {
 public:
  // Sends Command through the channel and prints it with its answer.
  int32_t Send(const std::string& Command, const char* Comment = "") {
    Table_.SetEngineCommand(Command);
    Table_.ExecuteCommand();
    std::printf("  %s -> record %2d  status %2d  %s\n", Shown(Table_.EngineCommand()).c_str(),
                Table_.EngineResult(), Table_.LastError(), Comment);
    return Table_.EngineResult();
  }

  // Inserts Name as the key of a new record and remembers which record it got.
  void Insert(const std::string& Name) {
    Send("I\\1\\" + Name);
    // "I" writes no result; the engine keeps the number it allocated. The key is what
    // follows "I\1\" in the command as the dispatcher left it.
    const int32_t Record = Table_.State().Engine.LastAllocated;
    Names_[Record] = Table_.EngineCommand().substr(4);
    std::printf("  %-28s    allocated record %d\n", "", Record);
  }

  // Walks the key from one end to the other with First/Next or Last/Previous.
  void Walk(bool Forward) {
    int32_t Record = Send(Forward ? "F\\1\\1" : "L\\1\\1");
    while (Table_.LastError() == 0) {
      std::printf("  %-28s    %s\n", "", Names_[Record].c_str());
      Record = Send(Forward ? "N\\1" : "P\\1");
    }
  }

  std::string NameOf(int32_t Record) { return Names_[Record]; }
  tqdb::TQFile& Table() { return Table_; }

 private:
  // The command as the dispatcher left it, cut or padded to 28 characters for the listing.
  static std::string Shown(std::string Command) {
    constexpr size_t kWidth = 28;
    if (Command.size() > kWidth) Command = "..." + Command.substr(Command.size() - kWidth + 3);
    size_t Characters = 0;  // UTF-8: count every byte that does not continue a character
    for (unsigned char C : Command) Characters += (C & 0xC0) != 0x80;
    if (Characters < kWidth) Command.append(kWidth - Characters, ' ');
    return Command;
  }

  tqdb::TQFile Table_;
  std::map<int32_t, std::string> Names_;
};

int RunTour(const std::string& Directory) {
  const std::string KeyFile = Directory + "/TOUR01.TQC";
  const std::array<int, 1> KeyLengths{kKeyLength};
  tqdb::engine::CreateEmptyKeyFile(KeyFile, KeyLengths);
  std::printf("Created %s: one key of %d characters.\n\n", KeyFile.c_str(), kKeyLength);

  Tour T;
  std::puts("Open the key file (paths travel with \"/\" as separator):");
  T.Send("/O/" + CommandPath(KeyFile) + "/1");
  if (T.Table().LastError() != 0) return 1;
  T.Send("F\\1\\1", "an empty key: no entries");

  std::puts("\nInsert five keys (the dispatcher upper-cases them):");
  for (const char* Name : {"garcia", "Lopez", "MUÑOZ", "PEREZ", "ALVAREZ"}) T.Insert(Name);

  std::puts("\nWalk forward, then backward:");
  T.Walk(true);
  T.Walk(false);

  std::puts("\nSeek by prefix (G) and by whole value (S):");
  T.Send("G\\1\\1\\MU", "first key beginning with MU");
  T.Send("G\\1\\1\\LUNA", "no key begins with LUNA");
  T.Send("S\\1\\1\\" + Padded("PEREZ"), "a whole key value: PEREZ");
  T.Send("S\\1\\1\\" + Padded("ZAPATA"), "beyond every key");

  std::puts("\nDelete LOPEZ's entry and release its record number:");
  const int32_t Lopez = T.Send("G\\1\\1\\LOPEZ");
  T.Send("D\\" + std::to_string(Lopez) + "\\Y\\1\\LOPEZ");
  T.Send("U", "deleted record numbers waiting for reuse");
  T.Walk(true);

  std::puts("\nA new key takes the released number:");
  T.Insert("BLANCO");
  T.Walk(true);

  std::puts("\nClose the key file:");
  T.Send("K");
  return 0;
}

}  // namespace

int main() {
  ScratchDir Directory;
  if (Directory.Path().empty()) {
    std::fputs("engine_tour: cannot create a scratch directory\n", stderr);
    return 1;
  }
  try {
    return RunTour(Directory.Path());
  } catch (const tqdb::TQError& Error) {
    std::fprintf(stderr, "engine_tour: error %d: %s\n", Error.Number(),
                 Error.Description().c_str());
  } catch (const std::exception& Error) {
    std::fprintf(stderr, "engine_tour: %s\n", Error.what());
  }
  return 1;
}

// Files as the platform layer gives them: the pool of file numbers, positioned I/O,
// byte-range locks, case-insensitive paths, and the settings file.
#include <gtest/gtest.h>

#include <filesystem>

#include "platform/codepage.h"
#include "platform/fault.h"
#include "platform/file_pool.h"
#include "platform/paths.h"
#include "platform/settings.h"
#include "support/scoped_env.h"
#include "support/temp_dir.h"

namespace tqdb::platform {
namespace {

using namespace std::string_literals;

int FaultOf(auto&& Action) {
  try {
    Action();
  } catch (const Fault& F) {
    return F.Number();
  }
  return 0;
}

// A file number taken for a test and released at its end.
class Number {
 public:
  Number() : no_(TakeFreeNumber()) {}
  ~Number() { ReleaseNumber(no_); }
  Number(const Number&) = delete;
  operator FileNo() const { return no_; }

 private:
  FileNo no_;
};

class FilePoolTest : public ::testing::Test {
 protected:
  testing::TempDir Dir;
};

TEST_F(FilePoolTest, NumbersAreReservedUntilReleasedAndRunOutWithFault67) {
  const FileNo A = TakeFreeNumber();
  Open(A, Dir.File("a.bin"));
  Close(A);
  Close(A);  // harmless twice
  const FileNo B = TakeFreeNumber();
  EXPECT_NE(B, A) << "a closed number stays reserved";
  ReleaseNumber(A);
  EXPECT_EQ(TakeFreeNumber(), A) << "the lowest free number is handed out";
  std::vector<FileNo> Taken{A, B};
  int Error = 0;
  while (Error == 0 && Taken.size() < 600) {
    Error = FaultOf([&] { Taken.push_back(TakeFreeNumber()); });
  }
  EXPECT_EQ(Error, 67);
  EXPECT_LE(Taken.size(), 511u);
  for (FileNo N : Taken) ReleaseNumber(N);
}

TEST_F(FilePoolTest, PositionedIoIsOneBasedAndZeroFills) {
  Number N;
  Open(N, Dir.File("data.tqd"));
  WriteAt(N, 1, std::string_view("HELLO"));
  WriteAt(N, 11, std::string_view("XY"));
  EXPECT_EQ(Length(N), 12);
  EXPECT_EQ(ReadAt(N, 2, 3), "ELL");
  EXPECT_EQ(ReadAt(N, 5, 8), std::string("O\0\0\0\0\0XY", 8));
  EXPECT_EQ(ReadAt(N, 11, 5), std::string("XY\0\0\0", 5));
  EXPECT_EQ(ReadAt(N, 100, 2), std::string(2, '\0'));
  EXPECT_EQ(OpenName(N), Dir.File("data.tqd"));
  Truncate(N, 3);
  EXPECT_EQ(ReadAt(N, 1, 5), std::string("HEL\0\0", 5));
}

// Two numbers on one file stand for two processes: each sees what the other wrote, inside
// the length it knew and beyond it, and a file shortened by its own holder reads as zeros
// past the new end rather than faulting.
TEST_F(FilePoolTest, ReadsSeeEveryWriterWhetherMappedOrNot) {
  Number Reader, Writer;
  Open(Writer, Dir.File("shared.tqd"));
  WriteAt(Writer, 1, std::string(4096, 'a'));
  Open(Reader, Dir.File("shared.tqd"));
  EXPECT_EQ(ReadAt(Reader, 4000, 3), "aaa");
  WriteAt(Writer, 4000, std::string_view("XYZ"));
  WriteAt(Writer, 9000, std::string_view("END"));
  EXPECT_EQ(ReadAt(Reader, 3999, 5), "aXYZa");     // inside the known length: mapped
  EXPECT_EQ(ReadAt(Reader, 8999, 5), "\0END\0"s);  // beyond it: read, and now known
  EXPECT_EQ(ReadAt(Reader, 9000, 3), "END");
  Truncate(Reader, 100);
  EXPECT_EQ(ReadAt(Reader, 98, 4), "aaa\0"s);
  EXPECT_EQ(ReadAt(Reader, 4000, 3), std::string(3, '\0'));
}

TEST_F(FilePoolTest, ReportsFaultsByNumber) {
  Number N;
  EXPECT_EQ(FaultOf([&] { ReadAt(N, 1, 1); }), 52);  // not open
  EXPECT_EQ(FaultOf([&] { ReadAt(0, 1, 1); }), 52);  // out of range
  EXPECT_EQ(FaultOf([&] { ReadAt(512, 1, 1); }), 52);
  EXPECT_EQ(FaultOf([&] { Open(N, Dir.File("missing"), OpenMode::ReadOnly); }), 53);
  EXPECT_EQ(FaultOf([&] { Open(N, Dir.File("no/such/dir/f")); }), 76);
  EXPECT_EQ(FaultOf([&] { Open(N, Dir.Path()); }), 75);  // a directory
  Dir.Write("t.bin", "old content");
  Open(N, Dir.File("t.bin"), OpenMode::ReadOnly);
  EXPECT_EQ(ReadAt(N, 1, 3), "old");
  EXPECT_EQ(FaultOf([&] { WriteAt(N, 1, std::string_view("x")); }), 75);
  EXPECT_EQ(FaultOf([&] { LockRange(N, 1, 1); }), 75) << "not a lock held elsewhere";
  EXPECT_EQ(FaultOf([&] { LockRange(N, 1, 1, false); }), 0);  // readers lock too
  EXPECT_EQ(FaultOf([&] { ReadAt(N, 0, 1); }), 63);
  EXPECT_EQ(FaultOf([&] { ReadAt(N, INT64_MAX, 2); }), 63);
  Open(N, Dir.File("t.bin"), OpenMode::Truncate);  // reopening closes the first
  EXPECT_EQ(Length(N), 0);
  EXPECT_EQ(FaultOf([&] { WriteAt(N, -5, std::string_view("x")); }), 63);
}

TEST_F(FilePoolTest, RangeLocksExcludeOtherDescriptorsOfTheSameProcess) {
  Number A, B, C;
  for (FileNo N : {FileNo(A), FileNo(B), FileNo(C)}) Open(N, Dir.File("locks.tqd"));
  LockRange(A, 10, 19);
  EXPECT_EQ(FaultOf([&] { LockRange(B, 19, 25); }), 70);
  EXPECT_EQ(FaultOf([&] { LockRange(B, 1, 10, false); }), 70);
  LockRange(B, 20, 29);      // the neighbouring range is free
  LockRange(A, 10, 19);      // taking one's own range again is fine
  UnlockRange(B, 500, 600);  // unlocking what is not locked is harmless
  Close(B);                  // closing another descriptor keeps A's lock
  EXPECT_EQ(FaultOf([&] { LockRange(C, 10, 10); }), 70);
  Close(A);  // closing the holder drops its lock
  LockRange(C, 10, 10);
  UnlockRange(C, 10, 10);
}

TEST_F(FilePoolTest, FindsFilesWhateverTheirCaseAndPrefersAnExactMatch) {
  Dir.Write("CLIEN01.TQD", "upper");
  Dir.Write("clien02.tqd", "lower");
  EXPECT_EQ(ResolvePath(Dir.File("clien01.tqd")), Dir.File("CLIEN01.TQD"));
  EXPECT_EQ(ResolvePath(Dir.File("CLIEN02.TQD")), Dir.File("clien02.tqd"));
  EXPECT_TRUE(FileExists(Dir.File("Clien01.Tqd")));
  EXPECT_EQ(FileLengthByName(Dir.File("CLIEN02.tqd")), 5);
  Dir.Write("Data.tqd", "mixed");
  Dir.Write("DATA.TQD", "upper");
  EXPECT_EQ(ResolvePath(Dir.File("DATA.TQD")), Dir.File("DATA.TQD"));
  EXPECT_EQ(ResolvePath(Dir.File("Data.tqd")), Dir.File("Data.tqd"));
  EXPECT_EQ(ResolvePath(Dir.File("data.tqd")), ResolvePath(Dir.File("data.TQD")));  // stable
}

TEST_F(FilePoolTest, ResolvesDirectoryByDirectoryWithEitherSeparator) {
  std::filesystem::create_directories(Dir.File("Conta/Dic"));
  Dir.Write("Conta/Dic/Tabla.tqa", "x");
  EXPECT_EQ(ResolvePath(Dir.Dir() + "CONTA\\DIC\\TABLA.TQA"), Dir.File("Conta/Dic/Tabla.tqa"));
  EXPECT_TRUE(DirectoryExists(Dir.Dir() + "conta\\dic\\"));
  EXPECT_FALSE(FileExists(Dir.Dir() + "conta\\dic"));
  // Missing components keep the name as given; relative names stay relative.
  EXPECT_EQ(ResolvePath(Dir.Dir() + "CONTA\\NewFile.TQD"), Dir.File("Conta/NewFile.TQD"));
  EXPECT_EQ(ResolvePath("some\\relative/NAME.tqd"), "some/relative/NAME.tqd");
  const FileNo N = TakeFreeNumber();
  Open(N, Dir.Dir() + "conta\\Nuevo.TQD");
  Open(N, Dir.Dir() + Utf8ToCp1252("conta\\Señal.tqd"));  // Windows-1252 in, UTF-8 on disk
  ReleaseNumber(N);
  EXPECT_TRUE(std::filesystem::exists(Dir.File("Conta/Nuevo.TQD")));
  EXPECT_TRUE(std::filesystem::exists(Dir.File("Conta/Señal.tqd")));
  EXPECT_EQ(ResolvePath(Dir.Dir() + Utf8ToCp1252("CONTA/SEÑAL.TQD")), Dir.File("Conta/Señal.tqd"));
}

TEST_F(FilePoolTest, DeleteRenameAndMakeDirectory) {
  Dir.Write("Old.TQD", "abc");
  RenameFile(Dir.File("OLD.tqd"), Dir.File("New.tqd"));
  EXPECT_EQ(Dir.Read("New.tqd"), "abc");
  DeleteFile(Dir.File("NEW.TQD"));
  EXPECT_FALSE(FileExists(Dir.File("New.tqd")));
  EXPECT_EQ(FaultOf([&] { DeleteFile(Dir.File("New.tqd")); }), 53);
  EXPECT_EQ(FaultOf([&] { RenameFile(Dir.File("gone"), Dir.File("x")); }), 53);

  MakeDirectory(Dir.Dir() + "Brinvale");
  MakeDirectory(Dir.Dir() + "BRINVALE\\Auditoria");
  EXPECT_TRUE(DirectoryExists(Dir.File("Brinvale/Auditoria")));
  EXPECT_EQ(FaultOf([&] { MakeDirectory(Dir.File("brinvale")); }), 75);
  Dir.Write("plain", "");
  EXPECT_EQ(FaultOf([&] { MakeDirectory(Dir.File("PLAIN")); }), 75);
  EXPECT_EQ(FaultOf([&] { MakeDirectory(Dir.File("a/b/c")); }), 76);
}

TEST(Settings, ReadsTheValueFromTheNamedFileAsWindows1252) {
  testing::TempDir Dir;
  const std::string Ini = Dir.Write("brinvale.ini",
                                    "\xEF\xBB\xBF[Other]\n"
                                    "; comment\n"
                                    "Directory=/wrong/\n"
                                    "  [ settings ]  \r\n"
                                    "# another comment\n"
                                    "  directory =  /srv/año/dic/  \r\n"
                                    "Empty=\n"
                                    "Quoted=\"with blanks \"\n");
  testing::ScopedEnv Env("TQDB_SETTINGS", Ini.c_str());
  EXPECT_EQ(GetRegSetting("Directory", "", "none"), "/srv/a\xF1o/dic/");
  EXPECT_EQ(GetRegSetting("DIRECTORY", "Settings\\", "none"), "/srv/a\xF1o/dic/");
  EXPECT_EQ(GetRegSetting("Directory", "Other", "none"), "/wrong/");
  EXPECT_EQ(GetRegSetting("Empty", "", "none"), "");
  EXPECT_EQ(GetRegSetting("Quoted", "", "none"), "with blanks ");
  EXPECT_EQ(GetRegSetting("Missing", "", "none"), "none");
  EXPECT_EQ(GetRegSetting("Directory", "Nowhere", "dflt"), "dflt");
}

TEST(Settings, FallsBackToTheConfigDirectory) {
  testing::TempDir Dir;
  testing::ScopedEnv Explicit("TQDB_SETTINGS", nullptr);
  testing::ScopedEnv Xdg("XDG_CONFIG_HOME", Dir.Path().c_str());
  EXPECT_EQ(GetRegSetting("Directory", "", "default"), "default");  // no file
  std::filesystem::create_directories(Dir.File("orvek"));
  Dir.Write("orvek/brinvale.ini", "[Settings]\nDirectory=/from/xdg/\n");
  EXPECT_EQ(GetRegSetting("Directory", "", "default"), "/from/xdg/");
  testing::ScopedEnv NoXdg("XDG_CONFIG_HOME", nullptr);
  testing::ScopedEnv Home("HOME", Dir.Path().c_str());
  EXPECT_EQ(GetRegSetting("Directory", "", "default"), "default");  // ~/.config has none
}

}  // namespace
}  // namespace tqdb::platform

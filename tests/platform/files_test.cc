// Files as the platform layer gives them: the pool of file numbers, positioned I/O,
// byte-range locks, case-insensitive paths, and the settings file.
#include <gtest/gtest.h>

#include <filesystem>

#include "platform/codepage.h"
#include "platform/fault.h"
#include "platform/file_pool.h"
#include "platform/paths.h"
#include "platform/scoped_file_number.h"
#include "platform/settings.h"
#include "support/error_of.h"
#include "support/scoped_env.h"
#include "support/temp_dir.h"

namespace tqdb::platform {
namespace {

using testing::FaultOf;
using namespace std::string_literals;

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

TEST_F(FilePoolTest, ReportsFaultsByNumber) {
  const ScopedFileNumber Held;
  const FileNo N = Held.get();
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

TEST_F(FilePoolTest, FindsFilesWhateverTheirCaseDirectoryByDirectory) {
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

}  // namespace
}  // namespace tqdb::platform

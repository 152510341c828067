#include "platform/paths.h"

#include <gtest/gtest.h>

#include <filesystem>

#include "platform/codepage.h"
#include "platform/fault.h"
#include "platform/file_pool.h"
#include "support/temp_dir.h"

namespace tqdb::platform {
namespace {

int FaultOf(auto&& Action) {
  try {
    Action();
  } catch (const Fault& F) {
    return F.Number();
  }
  return 0;
}

TEST(PathParts, SplitAtTheLastSeparatorOfEitherKind) {
  EXPECT_EQ(DirectoryPart("C:\\CONTA\\dic/CLIEN01.TQD"), "C:\\CONTA\\dic/");
  EXPECT_EQ(FilePart("C:\\CONTA\\dic/CLIEN01.TQD"), "CLIEN01.TQD");
  EXPECT_EQ(FilePart("dir/"), "");
}

class PathsTest : public ::testing::Test {
 protected:
  testing::TempDir Dir;
};

TEST_F(PathsTest, FindsFilesWhateverTheirCaseAndPrefersAnExactMatch) {
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

TEST_F(PathsTest, ResolvesDirectoryByDirectoryWithEitherSeparator) {
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
  ReleaseNumber(N);
  EXPECT_TRUE(std::filesystem::exists(Dir.File("Conta/Nuevo.TQD")));
}

TEST_F(PathsTest, NamesAreWindows1252OnTheWayInAndUtf8OnDisk) {
  Dir.Write("Año.tqd", "utf8 name");
  EXPECT_EQ(ResolvePath(Dir.Dir() + Utf8ToCp1252("AÑO.TQD")), Dir.File("Año.tqd"));
  const FileNo N = TakeFreeNumber();
  Open(N, Dir.Dir() + Utf8ToCp1252("Señal.tqd"));
  ReleaseNumber(N);
  EXPECT_TRUE(std::filesystem::exists(Dir.File("Señal.tqd")));
}

TEST_F(PathsTest, DeleteRenameAndMakeDirectory) {
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

}  // namespace
}  // namespace tqdb::platform

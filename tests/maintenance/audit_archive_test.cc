#include "maintenance/audit_archive.h"

#include <gtest/gtest.h>
#include <zip.h>

#include <filesystem>
#include <memory>
#include <regex>
#include <string>
#include <utility>
#include <vector>

#include "support/file_checks.h"
#include "support/scoped_env.h"
#include "support/temp_dir.h"
#include "table/TQFile.h"

namespace tqdb {
namespace {

namespace fs = std::filesystem;
using testing::FilesIn;
using testing::MessageCapture;
using testing::ScopedEnv;
using testing::TempDir;
using testing::ZipMember;

class AuditArchiveTest : public ::testing::Test {
 protected:
  TempDir Temp;
  TempDir Data;
  ScopedEnv Tmp{"TMPDIR", Temp.Dir().c_str()};
  std::string AuditFolder() const { return Temp.Dir() + "Brinvale/Auditoria"; }
};

TEST_F(AuditArchiveTest, KeepsACompressedTimeStampedCopyAndDeletesTheFile) {
  const std::string Original = std::string("datos\0\x01\xf1 originales", 20);
  const std::string Path = Data.Write("CLIEN01.TQd", Original);
  MessageCapture Shown;

  EXPECT_EQ(ZipAndKill(Path), 0);

  EXPECT_FALSE(fs::exists(Path));
  const std::vector<std::string> Archives = FilesIn(AuditFolder());
  ASSERT_EQ(Archives.size(), 1u);
  EXPECT_TRUE(std::regex_match(Archives[0],
                               std::regex(R"(CLIEN01\.TQd \d{4}-\d\d-\d\d \d\d \d\d \d\d \.zip)")))
      << Archives[0];
  const auto [Member, Bytes] = ZipMember(AuditFolder() + "/" + Archives[0]);
  EXPECT_EQ(Member, "CLIEN01.TQd");
  EXPECT_EQ(Bytes, Original);
  EXPECT_TRUE(Shown.Messages.empty());
}

TEST_F(AuditArchiveTest, ALargeFileIsDeflatedAndComesBackWhole) {
  std::string Original;
  for (int Record = 0; Record < 20000; ++Record) {
    Original += "C" + std::to_string(1000000 + Record * 7) + " GARCIA LOPEZ ANTONIO    ";
  }
  const std::string Path = Data.Write("FACTU01.TQd", Original);
  ASSERT_EQ(ZipAndKill(Path), 0);
  const std::vector<std::string> Archives = FilesIn(AuditFolder());
  ASSERT_EQ(Archives.size(), 1u);
  const std::string Archive = AuditFolder() + "/" + Archives[0];
  EXPECT_EQ(ZipMember(Archive).second, Original);
  int Error = 0;
  std::unique_ptr<zip_t, int (*)(zip_t*)> Zip(zip_open(Archive.c_str(), ZIP_RDONLY, &Error),
                                              zip_close);
  ASSERT_TRUE(Zip);
  zip_stat_t Stat;
  ASSERT_EQ(zip_stat_index(Zip.get(), 0, 0, &Stat), 0);
  EXPECT_EQ(Stat.comp_method, ZIP_CM_DEFLATE);
  EXPECT_LT(Stat.comp_size * 4, Stat.size);
}

TEST_F(AuditArchiveTest, AMissingFileIsNoErrorAndNamesAreFoundWhateverTheirCase) {
  MessageCapture Shown;
  EXPECT_EQ(ZipAndKill(Data.File("NADA01.TQd")), 0);
  ArchiveAndDelete(Data.File("NADA01.TQd"));
  EXPECT_TRUE(Shown.Messages.empty());
  EXPECT_TRUE(FilesIn(AuditFolder()).empty());
  Data.Write("clien01.tqc", "claves");  // found whatever the case of its name
  EXPECT_EQ(ZipAndKill(Data.File("CLIEN01.TQc")), 0);
  EXPECT_FALSE(fs::exists(Data.File("clien01.tqc")));
  EXPECT_EQ(FilesIn(AuditFolder()).size(), 1u);
}

TEST_F(AuditArchiveTest, AnArchiveThatCannotBeWrittenIsReportedAndTheFileStillGoes) {
  ScopedEnv Broken("TMPDIR", (Temp.Write("plain", "x") + "/").c_str());  // not a directory
  const std::string Path = Data.Write("CLIEN01.TQd", "datos");
  MessageCapture Shown;

  ArchiveAndDelete(Path);

  EXPECT_FALSE(fs::exists(Path));
  ASSERT_EQ(Shown.Messages.size(), 1u);
  EXPECT_TRUE(
      std::regex_match(Shown.Messages[0].first, std::regex(R"(Error -?[1-9]\d* en auditoria)")))
      << Shown.Messages[0].first;
  EXPECT_EQ(Shown.Messages[0].second, MessageIcon::None);
}

TEST_F(AuditArchiveTest, AuditPathMakesTheFolderAndAddsOneSeparator) {
  EXPECT_EQ(AuditPath("\\x.zip"), AuditFolder() + "\\x.zip");
  EXPECT_EQ(AuditPath("x.zip"), AuditFolder() + "/x.zip");
  ScopedEnv Deep("TMPDIR", (Temp.Dir() + "a/b/c").c_str());
  EXPECT_EQ(AuditPath("/x.zip"), Temp.Dir() + "a/b/c/Brinvale/Auditoria/x.zip");
  EXPECT_TRUE(fs::is_directory(Temp.Dir() + "a/b/c/Brinvale/Auditoria"));
  const std::string File = Temp.Write("f", "x");
  MakeDirTree(File + "/under");  // cannot be made; raises nothing
  EXPECT_FALSE(fs::exists(File + "/under"));
}

}  // namespace
}  // namespace tqdb

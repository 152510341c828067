// The rebuild's parts: which records it keeps, and the audit archive of files before they
// are deleted (the rebuild tests check the order of the keys it builds).
#include <gtest/gtest.h>
#include <zip.h>

#include <filesystem>
#include <memory>
#include <regex>
#include <string>
#include <vector>

#include "maintenance/audit_archive.h"
#include "maintenance/record_check.h"
#include "support/direct_table.h"
#include "support/file_checks.h"
#include "support/scoped_env.h"

namespace tqdb {
namespace {

using testing::FilesIn;
using testing::TempDir;

// Text is damaged only by control characters, numeric text holds digits and blanks, dates
// are valid days of either century, blank or never written; binary, image and long-text
// fields are always kept; the deletion mark drops the record.
TEST(RecordCheckTest, KeepsRecordsByTheTypeOfTheirFirstField) {
  struct Case {
    int Type, Length;
    std::string First;
    bool Kept;
  };
  std::vector<Case> Cases = {{10, 6, "MU\xD1OZ", true},
                             {10, 6, "AB\nCD", false},
                             {10, 6, std::string("AB\0CD", 5), false},
                             {8, 4, "    ", true},
                             {8, 4, "12.5", false},
                             {20, 4, "-1  ", false},
                             {5, 6, "A50102", true},
                             {5, 6, std::string(6, '\0'), true},
                             {5, 6, "  0102", false},
                             {5, 6, "A00229", true},
                             {5, 6, "000229", true},
                             {5, 6, "990229", false},  // leap years
                             {5, 6, "A10229", false},
                             {5, 6, "991301", false},
                             {5, 6, "K00101", false},
                             {5, 6, "99 231", false},
                             {74, 12, std::string(12, '\0'), true},
                             {75, 12, "\x01\x02\x03\x04", true},
                             {10, 10, std::string("ANULADO\0\0\0", 10), false},
                             {10, 10, "ANULAD", true}};
  for (int Type : {1, 2, 3, 4, 6, 7, 80, 85, 62})
    Cases.push_back({Type, 4, std::string("\x01\n\0\x7F", 4), true});
  for (const Case& C : Cases) {
    TempDir Dir;
    const testing::TableSpec Spec{"", {{"PRIMERO", C.Type, C.Length}, {"RESTO", 10, 3}}, {}};
    testing::DirectTable Table(Dir, "TABLA", Spec, {});
    std::string Record = C.First;
    Record.resize(static_cast<size_t>(testing::FieldWidthOf(Spec.Fields[0])), ' ');
    Record += "abc";
    EXPECT_EQ(!IsDeletedRecord(Table.State, Record) && FirstFieldIsSound(Table.State, Record),
              C.Kept)
        << C.Type << " '" << C.First << "'";
  }
  EXPECT_FALSE(IsValidStoredDate("99123"));
}

class AuditArchiveTest : public ::testing::Test {
 protected:
  TempDir Temp, Data;
  testing::ScopedEnv Tmp{"TMPDIR", Temp.Dir().c_str()};
  std::string Folder() const { return Temp.Dir() + "Brinvale/Auditoria"; }
};

TEST_F(AuditArchiveTest, KeepsADeflatedTimeStampedCopyAndDeletesTheFile) {
  std::string Original = std::string("datos\0\x01\xf1 originales", 20);
  for (int Record = 0; Record < 20000; ++Record)
    Original += "C" + std::to_string(1000000 + Record * 7) + " GARCIA LOPEZ";
  const std::string Path = Data.Write("CLIEN01.TQd", Original);
  testing::MessageCapture Shown;
  EXPECT_EQ(ZipAndKill(Path), 0);
  EXPECT_FALSE(std::filesystem::exists(Path));
  const std::vector<std::string> Archives = FilesIn(Folder());
  ASSERT_EQ(Archives.size(), 1u);
  EXPECT_TRUE(std::regex_match(Archives[0],
                               std::regex(R"(CLIEN01\.TQd \d{4}-\d\d-\d\d \d\d \d\d \d\d \.zip)")))
      << Archives[0];
  const std::string Archive = Folder() + "/" + Archives[0];
  EXPECT_EQ(testing::ZipMember(Archive), std::make_pair(std::string("CLIEN01.TQd"), Original));
  int Error = 0;
  std::unique_ptr<zip_t, int (*)(zip_t*)> Zip(zip_open(Archive.c_str(), ZIP_RDONLY, &Error),
                                              zip_close);
  zip_stat_t Stat;
  ASSERT_EQ(zip_stat_index(Zip.get(), 0, 0, &Stat), 0);
  EXPECT_EQ(Stat.comp_method, ZIP_CM_DEFLATE);
  EXPECT_LT(Stat.comp_size * 4, Stat.size);
  EXPECT_TRUE(Shown.Messages.empty());
}

TEST_F(AuditArchiveTest, MissingFilesAreNoErrorNamesAreFoundInAnyCaseAndTheFolderIsMade) {
  testing::MessageCapture Shown;
  EXPECT_EQ(ZipAndKill(Data.File("NADA01.TQd")), 0);
  ArchiveAndDelete(Data.File("NADA01.TQd"));
  EXPECT_TRUE(Shown.Messages.empty());
  EXPECT_TRUE(FilesIn(Folder()).empty());
  Data.Write("clien01.tqc", "claves");
  EXPECT_EQ(ZipAndKill(Data.File("CLIEN01.TQc")), 0);
  EXPECT_FALSE(std::filesystem::exists(Data.File("clien01.tqc")));
  EXPECT_EQ(FilesIn(Folder()).size(), 1u);
  // The folder is made, with one separator added before a name.
  EXPECT_EQ(AuditPath("\\x.zip"), Folder() + "\\x.zip");
  EXPECT_EQ(AuditPath("x.zip"), Folder() + "/x.zip");
  testing::ScopedEnv Deep("TMPDIR", (Temp.Dir() + "a/b/c").c_str());
  EXPECT_EQ(AuditPath("/x.zip"), Temp.Dir() + "a/b/c/Brinvale/Auditoria/x.zip");
  EXPECT_TRUE(std::filesystem::is_directory(Temp.Dir() + "a/b/c/Brinvale/Auditoria"));
}

TEST_F(AuditArchiveTest, AnArchiveThatCannotBeWrittenIsReportedAndTheFileStillGoes) {
  testing::ScopedEnv Broken("TMPDIR", (Temp.Write("plain", "x") + "/").c_str());  // not a directory
  const std::string Path = Data.Write("CLIEN01.TQd", "datos");
  testing::MessageCapture Shown;
  ArchiveAndDelete(Path);
  EXPECT_FALSE(std::filesystem::exists(Path));
  ASSERT_EQ(Shown.Messages.size(), 1u);
  EXPECT_TRUE(
      std::regex_match(Shown.Messages[0].first, std::regex(R"(Error -?[1-9]\d* en auditoria)")));
  EXPECT_EQ(Shown.Messages[0].second, MessageIcon::None);
  const std::string File = Temp.Write("f", "x");
  MakeDirTree(File + "/under");  // cannot be made; raises nothing
  EXPECT_FALSE(std::filesystem::exists(File + "/under"));
}

}  // namespace
}  // namespace tqdb

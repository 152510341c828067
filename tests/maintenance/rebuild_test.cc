// Rebuild through the public interface: what it keeps and drops, how it renumbers and
// re-keys, what it archives, when it refuses, and that a crash at any point loses no
// live record.
#include "maintenance/rebuild.h"

#include <gtest/gtest.h>
#include <signal.h>
#include <unistd.h>

#include <algorithm>
#include <filesystem>
#include <memory>
#include <string>
#include <vector>

#include "maintenance/rebuild_files.h"
#include "support/file_checks.h"
#include "support/key_agreement.h"
#include "support/media_table.h"
#include "support/open_table.h"
#include "support/scoped_env.h"
#include "support/table_writer.h"
#include "support/temp_dir.h"
#include "table/TQError.h"
#include "table/TQFile.h"

namespace tqdb {
namespace {

namespace fs = std::filesystem;
using testing::AllRecords;
using testing::FieldSpec;
using testing::FilesIn;
using testing::KeyDataAgreement;
using testing::KeySpec;
using testing::LiveRecords;
using testing::OpenTable;
using testing::RecordBytes;
using testing::RecordValues;
using testing::RunInChild;
using testing::ScopedEnv;
using testing::TableSpec;
using testing::TempDir;

const char* const kInUse = "No se puede Rebuild si el archivo está en uso por otro usuario";

bool AnyNamed(const std::vector<std::string>& Names, const std::string& Prefix,
              const std::string& Suffix = "") {
  return std::any_of(Names.begin(), Names.end(), [&](const std::string& N) {
    return N.rfind(Prefix, 0) == 0 && N.size() >= Suffix.size() &&
           N.compare(N.size() - Suffix.size(), Suffix.size(), Suffix) == 0;
  });
}

// A fresh audit folder (the temporary directory) for each test.
class RebuildTest : public ::testing::Test {
 protected:
  std::string AuditFolder() const { return audit_root_.Dir() + "Brinvale/Auditoria"; }
  std::vector<std::string> Audited() const { return FilesIn(AuditFolder()); }

  TempDir audit_root_;
  ScopedEnv tmpdir_{"TMPDIR", audit_root_.Path().c_str()};
};

// The end state of a rebuild: the expected records numbered 1.. in order, every key
// walking them in order, nothing deleted, no work files left.
void ExpectRebuilt(OpenTable& Table, const std::vector<RecordValues>& Expected) {
  TQFile& T = Table.File();
  ASSERT_EQ(T.OpenFile(Table.FileName(), Table.Dir().Dir()), 0);
  EXPECT_EQ(T.RecordCount(), static_cast<int32_t>(Expected.size()));
  EXPECT_EQ(AllRecords(T), Expected);
  EXPECT_EQ(KeyDataAgreement(T), "");
  EXPECT_EQ(T.DeletedRecordCount(), 0);
  const std::vector<std::string> Names = FilesIn(Table.Dir().Path());
  EXPECT_FALSE(AnyNamed(Names, "", ".zzz")) << ::testing::PrintToString(Names);
  EXPECT_FALSE(AnyNamed(Names, "TABLAZZ")) << ::testing::PrintToString(Names);
}

TEST_F(RebuildTest, RenumbersKeysAndCompactsImagesAndLongTexts) {
  OpenTable Table(testing::MediaSpec(), {});
  TQFile& T = Table.File();
  testing::FillMediaTable(T, 150);
  ASSERT_GT(T.DeletedRecordCount(), 0);
  const std::vector<RecordValues> Live = LiveRecords(T);
  ASSERT_EQ(Live.size(), 86u);  // 150 less the multiples of 3 or 7
  const std::string OldData = Table.DataBytes();
  const int64_t OldImageSize = static_cast<int64_t>(Table.Dir().Read("TABLA01.tqw").size());

  std::vector<int32_t> Progress;
  T.OnProgress([&](int32_t P) { Progress.push_back(P); });
  const double Minutes = T.Rebuild();
  EXPECT_GE(Minutes, 0.0);
  EXPECT_LT(Minutes, 1.0);
  ASSERT_FALSE(Progress.empty());
  EXPECT_EQ(Progress.front(), 1);
  EXPECT_EQ(Progress.back(), 100);
  EXPECT_TRUE(std::is_sorted(Progress.begin(), Progress.end()));

  ExpectRebuilt(Table, Live);
  // Released images are gone from the compacted file.
  EXPECT_LT(static_cast<int64_t>(Table.Dir().Read("TABLA01.tqw").size()), OldImageSize);

  // The old data, image and long-text files are in the audit folder; the data file's
  // archive holds it as it was.
  const std::vector<std::string> Archived = Audited();
  EXPECT_TRUE(AnyNamed(Archived, "TABLA01.TQd ", ".zip")) << ::testing::PrintToString(Archived);
  EXPECT_TRUE(AnyNamed(Archived, "TABLA01.TQw ", ".zip"));
  EXPECT_TRUE(AnyNamed(Archived, "TABLA01.TQY ", ".zip"));
  for (const std::string& Name : Archived) {
    if (Name.rfind("TABLA01.TQd ", 0) == 0) {
      EXPECT_EQ(testing::ZipMember(AuditFolder() + "/" + Name).second, OldData);
    }
  }

  // The numbering goes on after the records kept.
  T.AddNew();
  T.SetFields("NOMBRE", Variant("nuevo"));
  T.Update();
  EXPECT_EQ(T.BookMark(), static_cast<int32_t>(Live.size()) + 1);
  EXPECT_EQ(KeyDataAgreement(T), "");
}

TEST_F(RebuildTest, ARebuiltTableTakesChangesAndRebuildsAgain) {
  OpenTable Table(testing::MediaSpec(), {});
  TQFile& T = Table.File();
  testing::FillMediaTable(T, 60);
  T.Rebuild();
  ASSERT_EQ(T.OpenFile(Table.FileName(), Table.Dir().Dir()), 0);
  // Edits, deletions and additions on the bulk-loaded keys.
  for (int32_t R = 1; R <= 10; ++R) {
    T.SetBookMark(R);
    T.Edit();
    T.SetFields("NOMBRE", Variant("cambiado " + std::to_string(R % 3)));
    T.Update();
  }
  T.Delete(4);
  T.Delete(11);
  testing::FillMediaTable(T, 12);
  EXPECT_EQ(KeyDataAgreement(T), "");
  const std::vector<RecordValues> Live = LiveRecords(T);
  T.Rebuild();
  T.Rebuild();  // again, without opening in between
  ExpectRebuilt(Table, Live);
}

// Another object of the same process counts as another user, as another process would.
TEST_F(RebuildTest, RefusesWhileAnotherObjectHasTheTableOpenAndChangesNothing) {
  OpenTable Table(testing::MediaSpec(), {});
  testing::FillMediaTable(Table.File(), 20);
  const std::vector<std::string> Before = FilesIn(Table.Dir().Path());
  const std::string Data = Table.DataBytes(), Key = Table.Dir().Read("TABLA01.tqc");
  {
    std::unique_ptr<TQFile> Other = Table.Open();
    try {
      Table.File().Rebuild();
      FAIL() << "no error";
    } catch (const TQError& Error) {
      EXPECT_EQ(Error.Number(), 70);
      EXPECT_EQ(Error.Description(), kInUse);
    }
    EXPECT_EQ(Table.DataBytes(), Data);
    EXPECT_EQ(Table.Dir().Read("TABLA01.tqc"), Key);
    EXPECT_EQ(FilesIn(Table.Dir().Path()), Before);
  }
  EXPECT_NO_THROW(Table.File().Rebuild());
}

TEST_F(RebuildTest, ATableThatWasNeverOpenedIsRefused) {
  TQFile T;
  try {
    T.Rebuild();
    FAIL() << "no error";
  } catch (const TQError& Error) {
    EXPECT_EQ(Error.Number(), 50230);
    EXPECT_EQ(Error.Description(), "Base de datos no abierto");
  }
}

// A table of one text field and a key on it, written byte by byte.
TableSpec OneFieldSpec(int Type, int Length) {
  TableSpec Spec;
  Spec.Fields = {FieldSpec{"CAMPO", Type, Length}, FieldSpec{"OTRO", 10, 4}};
  Spec.Keys = {KeySpec{{{1, 1, Length}}}};
  return Spec;
}

TEST_F(RebuildTest, AZeroLengthDataFileEndsEmptyWithProgress100) {
  OpenTable Table(testing::MediaSpec(), {});
  std::vector<int32_t> Progress;
  Table.File().OnProgress([&](int32_t P) { Progress.push_back(P); });
  Table.File().Rebuild();
  ASSERT_FALSE(Progress.empty());
  EXPECT_EQ(Progress.back(), 100);
  EXPECT_EQ(Table.DataBytes(), "");
  EXPECT_FALSE(AnyNamed(Audited(), "TABLA01.TQd "));  // nothing to keep
  ExpectRebuilt(Table, {});
  // 119 records kept: the copy phase counts one more every 2 records, 1 to 59.
  const TableSpec Spec = OneFieldSpec(10, 4);
  OpenTable Full(Spec, std::vector<std::string>(119, RecordBytes(Spec, {"AAAA", "1"})));
  Progress.clear();
  Full.File().OnProgress([&](int32_t P) { Progress.push_back(P); });
  Full.File().Rebuild();
  ASSERT_GT(Progress.size(), 60u);
  for (int32_t Step = 1; Step <= 59; ++Step) EXPECT_EQ(Progress[Step], Step);
}

// Rebuilds a table whose records are Firsts (field 1) and returns field 1 of the records
// kept, in order.
std::vector<std::string> KeptAfterRebuild(int Type, int Length,
                                          const std::vector<std::string>& Firsts) {
  const TableSpec Spec = OneFieldSpec(Type, Length);
  std::vector<std::string> Records;
  for (const std::string& First : Firsts) Records.push_back(RecordBytes(Spec, {First, "x"}));
  OpenTable Table(Spec, Records);
  Table.File().Rebuild();
  std::vector<std::string> Kept;
  const std::string Data = Table.DataBytes();
  const size_t Width = static_cast<size_t>(testing::RecordLengthOf(Spec));
  for (size_t At = 0; At + Width <= Data.size(); At += Width)
    Kept.push_back(Data.substr(At, static_cast<size_t>(Length)));
  EXPECT_EQ(Table.File().OpenFile(Table.FileName(), Table.Dir().Dir()), 0);
  EXPECT_EQ(KeyDataAgreement(Table.File()), "");
  return Kept;
}

TEST_F(RebuildTest, KeepsOnlyRecordsWhoseFirstFieldIsSound) {
  EXPECT_EQ(KeptAfterRebuild(10, 6, {"ANA   ", "AB\nCD ", "MU\xD1OZ ", "X\x7FY   "}),
            (std::vector<std::string>{"ANA   ", "MU\xD1OZ "}));
  EXPECT_EQ(KeptAfterRebuild(5, 6, {"991231", "990229", "      ", std::string(6, '\0'), "A51301"}),
            (std::vector<std::string>{"991231", "      ", std::string(6, '\0')}));
}

TEST_F(RebuildTest, DropsDeletedRecordsWithOrWithoutKeys) {
  for (const bool Keyed : {true, false}) {
    TableSpec Spec = OneFieldSpec(10, 4);
    if (!Keyed) Spec.Keys.clear();
    OpenTable Table(Spec, {RecordBytes(Spec, {"AAAA", "1"}), testing::DeletedRecordBytes(Spec),
                           RecordBytes(Spec, {"BBBB", "2"}), testing::DeletedRecordBytes(Spec)});
    Table.File().Rebuild();
    EXPECT_EQ(Table.DataBytes(),
              RecordBytes(Spec, {"AAAA", "1"}) + RecordBytes(Spec, {"BBBB", "2"}));
    ASSERT_EQ(Table.File().OpenFile(Table.FileName(), Table.Dir().Dir()), 0);
    EXPECT_EQ(Table.File().RecordCount(), 2);
    EXPECT_EQ(Table.File().DeletedRecordCount(), 0);
  }
}

// A failure while the new files are written (here a directory stands where one of them
// must go) leaves the table's own files as they were and discards the new ones.
class RebuildFailureTest : public RebuildTest, public ::testing::WithParamInterface<const char*> {};

TEST_P(RebuildFailureTest, LeavesTheTableAsItWas) {
  OpenTable Table(testing::MediaSpec(), {});
  testing::FillMediaTable(Table.File(), 30);
  const std::vector<RecordValues> Before = AllRecords(Table.File());
  const std::string Data = Table.DataBytes(), Image = Table.Dir().Read("TABLA01.tqw");
  fs::create_directory(Table.Dir().File(GetParam()));
  EXPECT_THROW(Table.File().Rebuild(), TQError);
  EXPECT_EQ(Table.DataBytes(), Data);
  EXPECT_EQ(Table.Dir().Read("TABLA01.tqw"), Image);
  std::vector<std::string> Names = FilesIn(Table.Dir().Path());
  Names.erase(std::remove(Names.begin(), Names.end(), GetParam()), Names.end());
  EXPECT_FALSE(AnyNamed(Names, "TABLAZZ")) << ::testing::PrintToString(Names);
  EXPECT_FALSE(AnyNamed(Names, "", ".zzz")) << ::testing::PrintToString(Names);
  ASSERT_EQ(Table.File().OpenFile(Table.FileName(), Table.Dir().Dir()), 0);
  EXPECT_EQ(AllRecords(Table.File()), Before);
  EXPECT_EQ(KeyDataAgreement(Table.File()), "");
}

INSTANTIATE_TEST_SUITE_P(WhereANewFileGoes, RebuildFailureTest,
                         ::testing::Values("TABLAZZ.tqd", "TABLAZZ.tqc", "TABLA01.zzz",
                                           "TABLAZZ.tqy"));

// A crash (SIGKILL) at each point of a rebuild run by another process: the table's live
// records are still there after an open, and a second rebuild gives the full result.
class RebuildCrashTest : public RebuildTest, public ::testing::WithParamInterface<int> {};

TEST_P(RebuildCrashTest, EveryLiveRecordSurvives) {
  const int Step = GetParam();
  OpenTable Table(testing::MediaSpec(), {});
  testing::FillMediaTable(Table.File(), 70);
  const std::vector<RecordValues> Live = LiveRecords(Table.File());
  const std::vector<RecordValues> Before = AllRecords(Table.File());
  Table.File().CloseDB();

  const int Status = RunInChild([&] {
    ::setenv("TQDB_REBUILD_CRASH_AT", std::to_string(Step).c_str(), 1);
    TQFile T;
    T.OpenFile(Table.FileName(), Table.Dir().Dir());
    T.Rebuild();
    return 3;  // the crash point was not reached
  });
  ASSERT_TRUE(WIFSIGNALED(Status) && WTERMSIG(Status) == SIGKILL) << "status " << Status;

  TQFile& T = Table.File();
  ASSERT_EQ(T.OpenFile(Table.FileName(), Table.Dir().Dir()), 0);
  if (Step < kCrashAfterMark) {
    // Before the commit mark the table is as it was.
    EXPECT_EQ(AllRecords(T), Before);
  } else {
    // From the mark on the new files win: the open itself completes the commit, so that
    // nothing is written into files that a pending rename would replace.
    EXPECT_EQ(AllRecords(T), Live);
    EXPECT_FALSE(AnyNamed(FilesIn(Table.Dir().Path()), "TABLAZZ"));
  }
  EXPECT_EQ(KeyDataAgreement(T), "");
  T.Rebuild();
  ExpectRebuilt(Table, Live);
  EXPECT_FALSE(AnyNamed(FilesIn(Table.Dir().Path()), "TABLAZZ"));
}

INSTANTIATE_TEST_SUITE_P(AtEachPoint, RebuildCrashTest,
                         ::testing::Values(kCrashMidCopy, kCrashAfterCopy, kCrashMidKeys,
                                           kCrashMidImages, kCrashAfterStaging, kCrashAfterMark,
                                           kCrashMidRenames, kCrashAfterRenames,
                                           kCrashBeforeClose));

}  // namespace
}  // namespace tqdb

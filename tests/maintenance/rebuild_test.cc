// Rebuild through the public interface: what it keeps and drops, how it renumbers and
// re-keys, what it archives, when it refuses, and that a failure loses no live record.
#include "maintenance/rebuild.h"

#include <gtest/gtest.h>

#include <algorithm>
#include <filesystem>
#include <string>
#include <vector>

#include "maintenance/audit_archive.h"
#include "maintenance/rebuild_files.h"
#include "records/record_codecs.h"
#include "support/error_of.h"
#include "support/file_checks.h"
#include "support/key_agreement.h"
#include "support/open_table.h"
#include "support/scoped_env.h"

namespace tqdb {
namespace {

using testing::FilesIn;
using testing::KeyDataAgreement;
using testing::OpenTable;
using testing::RecordBytes;
using testing::TableSpec;
using Values = std::vector<std::vector<std::string>>;  // records, each field as text

// NOMBRE text 20, CODIGO long, FECHA date, FOTO image, NOTAS and MEMO long texts (74 and
// 75). Key 1 NOMBRE; key 2 FECHA + the first 5 characters of NOMBRE; key 3 CODIGO.
const TableSpec kMedia{"Clientes",
                       {{"NOMBRE", 10, 20},
                        {"CODIGO", 4, 4},
                        {"FECHA", 5, 6},
                        {"FOTO", 62, 4},
                        {"NOTAS", 74, 12},
                        {"MEMO", 75, 16}},
                       {{{{1, 1, 20}}}, {{{3, 1, 6}, {1, 1, 5}}}, {{{2, 1, 4}}}}};

// Adds Count records (names in mixed case beyond ASCII, with repeats; every third without
// image, every fourth without long texts), then deletes those numbered by 3 or 7.
void Fill(TQFile& T, int Count) {
  static const char* const kNames[] = {"muñoz", "Álvarez", "ZAPATA", "garcía", "García",
                                       "ño",    "abad",    "Abad",   "€uro",   "zz"};
  for (int I = 1; I <= Count; ++I) {
    T.AddNew();
    T.SetFields("NOMBRE",
                std::string(kNames[I % 10]) + (I % 3 == 0 ? "" : " " + std::to_string(I % 7)));
    T.SetFields("CODIGO", int32_t{1000 - (I * 37) % 500});
    T.SetFields("FECHA", Date{1990 + I % 30, 1 + I % 12, 1 + I % 28});
    if (I % 3 != 0)
      T.SetFields("FOTO", "IMG" + std::string(size_t(I % 50 + 1), 'x') + std::to_string(I));
    if (I % 4 != 0) {
      T.SetFields("NOTAS", "nota " + std::to_string(I) + std::string(size_t(I % 90), 'n'));
      T.SetFields("MEMO", "memo " + std::to_string(I * 11));
    }
    T.Update();
  }
  for (int I = 1; I <= Count; ++I) {
    if (I % 3 == 0 || I % 7 == 0) T.Delete(I);
  }
}

// Every record place in record-number order (only the live ones when Live is set).
Values Records(TQFile& T, bool Live) {
  Values Out;
  for (int32_t R = 1, Count = T.RecordCount(); R <= Count; ++R) {
    if (Live && IsAnulado(T.State(), R)) continue;
    T.SetBookMark(R);
    Out.emplace_back();
    for (int16_t F = 1; F <= T.FieldCount(); ++F)
      Out.back().push_back(T.Fields(Variant(F)).ToString());
  }
  return Out;
}

// Names in Dir that are rebuild work files ("TABLAZZ...", "*.zzz").
std::string WorkFiles(const testing::TempDir& Dir) {
  std::string Found;
  for (const std::string& Name : FilesIn(Dir.Path())) {
    if (Name.starts_with("TABLAZZ") || Name.ends_with(".zzz")) Found += " " + Name;
  }
  return Found;
}

class RebuildTest : public ::testing::Test {
 protected:
  // The end state of a rebuild: Expected numbered 1.. in order, every key walking them,
  // nothing deleted, no work files left.
  void ExpectRebuilt(const Values& Expected) {
    ASSERT_EQ(T.OpenFile(Table.FileName(), Table.Dir().Dir()), 0);
    EXPECT_EQ(Records(T, false), Expected);
    EXPECT_EQ(KeyDataAgreement(T), "");
    EXPECT_EQ(T.DeletedRecordCount(), 0);
    EXPECT_EQ(WorkFiles(Table.Dir()), "");
  }
  std::string Archived(const std::string& Prefix) const {
    for (const std::string& Name : FilesIn(Audit.Dir() + "Brinvale/Auditoria")) {
      if (Name.starts_with(Prefix) && Name.ends_with(".zip"))
        return Audit.Dir() + "Brinvale/Auditoria/" + Name;
    }
    return "";
  }

  testing::TempDir Audit;
  testing::ScopedEnv Tmp{"TMPDIR", Audit.Path().c_str()};
  OpenTable Table{kMedia, {}};
  TQFile& T = Table.File();
};

TEST_F(RebuildTest, RenumbersKeysCompactsImagesAndTextsAndArchivesTheOldFiles) {
  std::vector<int32_t> Progress;
  T.OnProgress([&](int32_t P) { Progress.push_back(P); });
  T.Rebuild();  // a zero-length data file ends empty, with progress 100 and no archive
  EXPECT_EQ(Progress.back(), 100);
  EXPECT_EQ(Table.DataBytes(), "");
  EXPECT_EQ(Archived("TABLA01.TQd "), "");
  ExpectRebuilt({});
  Fill(T, 150);
  const Values Live = Records(T, true);
  ASSERT_EQ(Live.size(), 86u);  // 150 less the multiples of 3 or 7
  const std::string OldData = Table.DataBytes();
  const size_t OldImages = Table.Dir().Read("TABLA01.tqw").size();
  Progress.clear();
  EXPECT_LT(T.Rebuild(), 1.0);  // minutes.seconds
  EXPECT_EQ(Progress.front(), 1);
  EXPECT_EQ(Progress.back(), 100);
  EXPECT_TRUE(std::is_sorted(Progress.begin(), Progress.end()));
  ExpectRebuilt(Live);
  EXPECT_LT(Table.Dir().Read("TABLA01.tqw").size(), OldImages);  // released images are gone
  EXPECT_EQ(testing::ZipMember(Archived("TABLA01.TQd ")).second, OldData);
  EXPECT_NE(Archived("TABLA01.TQw "), "");
  EXPECT_NE(Archived("TABLA01.TQY "), "");
  EXPECT_EQ(AuditPath("x.zip"), Audit.Dir() + "Brinvale/Auditoria/x.zip");
  // The rebuilt table takes changes on its bulk-loaded keys, numbering after the records kept.
  T.AddNew();
  T.SetFields("NOMBRE", "nuevo");
  T.Update();
  EXPECT_EQ(T.BookMark(), 87);
  Fill(T, 12);
  EXPECT_EQ(KeyDataAgreement(T), "");
  const Values Again = Records(T, true);
  T.Rebuild();
  T.State().Engine.SortedBuildBudget = 0;  // as if too large to sort: keys entered one by one
  T.Rebuild();                             // again, without opening in between
  ExpectRebuilt(Again);
}

// Another object of the same process counts as another user, as another process would.
TEST_F(RebuildTest, IsRefusedWhileAnotherUserHasTheTableOrNoneIsOpen) {
  Fill(T, 20);
  const std::vector<std::string> Before = FilesIn(Table.Dir().Path());
  const std::string Data = Table.DataBytes(), Key = Table.Dir().Read("TABLA01.tqc");
  const auto RebuildError = [](TQFile& File) {
    const auto [Number, Description] = testing::ErrorOf([&] { File.Rebuild(); });
    return Number == 0 ? Description : std::to_string(Number) + " " + Description;
  };
  {
    auto Other = Table.Open();
    EXPECT_EQ(RebuildError(T), "70 No se puede Rebuild si el archivo está en uso por otro usuario");
    EXPECT_EQ(Table.DataBytes(), Data);
    EXPECT_EQ(Table.Dir().Read("TABLA01.tqc"), Key);
    EXPECT_EQ(FilesIn(Table.Dir().Path()), Before);
  }
  EXPECT_EQ(RebuildError(T), "");
  TQFile Never;
  EXPECT_EQ(RebuildError(Never), "50230 Base de datos no abierto");
}

// Only records whose first field is sound are kept; deleted ones go, with or without keys.
TEST_F(RebuildTest, KeepsOnlySoundRecords) {
  struct Case {
    int Type, Length;
    std::vector<std::string> Firsts, Kept;
    bool Keyed = true;
  };
  const std::string Zeros(6, '\0'), Deleted = "ANULADO";
  const Case Cases[] = {
      {10, 6, {"ANA   ", "AB\nCD ", "MU\xD1OZ ", "X\x7FY   "}, {"ANA   ", "MU\xD1OZ "}},
      {5,
       6,
       {"991231", "990229", "      ", Zeros, "A51301", "99 231"},
       {"991231", "      ", Zeros}},
      {8, 4, {"    ", "12.5", "0012"}, {"    ", "0012"}},
      {10, 4, {"AAAA", Deleted, "BBBB", Deleted}, {"AAAA", "BBBB"}},
      {10, 4, {"AAAA", Deleted, "BBBB", Deleted}, {"AAAA", "BBBB"}, false},
      {10, 4, std::vector<std::string>(119, "AAAA"), std::vector<std::string>(119, "AAAA")}};
  for (const Case& C : Cases) {
    TableSpec Spec{"", {{"CAMPO", C.Type, C.Length}, {"OTRO", 10, 4}}, {}};
    if (C.Keyed) Spec.Keys = {{{{1, 1, C.Length}}}};
    std::vector<std::string> Bytes;
    for (const std::string& First : C.Firsts) {
      Bytes.push_back(First == Deleted ? testing::DeletedRecordBytes(Spec)
                                       : RecordBytes(Spec, {First, "x"}));
    }
    OpenTable Small(Spec, Bytes);
    std::vector<int32_t> Progress;
    Small.File().OnProgress([&](int32_t P) { Progress.push_back(P); });
    Small.File().Rebuild();
    // The copy phase counts one more every 119 / 50 = 2 records kept, on past 50: 1 to 59.
    for (int32_t Step = 1; C.Kept.size() == 119 && Step <= 59; ++Step)
      EXPECT_EQ(Progress.at(size_t(Step)), Step);
    EXPECT_TRUE(C.Kept.size() != 119 || Progress.at(60) < 100);  // and on through the key
    std::string Expected;
    for (const std::string& First : C.Kept) Expected += RecordBytes(Spec, {First, "x"});
    EXPECT_EQ(Small.DataBytes(), Expected) << C.Type;
    ASSERT_EQ(Small.File().OpenFile(Small.FileName(), Small.Dir().Dir()), 0);
    EXPECT_EQ(Small.File().DeletedRecordCount(), 0);
    EXPECT_EQ(KeyDataAgreement(Small.File()), "");
  }
}

// A failure while the new files are written (a directory stands where one of them must go)
// leaves the table's own files as they were and discards the new ones.
class RebuildFailureTest : public RebuildTest, public ::testing::WithParamInterface<const char*> {};

TEST_P(RebuildFailureTest, LeavesTheTableAsItWas) {
  Fill(T, 30);
  const Values Before = Records(T, false);
  const std::string Data = Table.DataBytes(), Image = Table.Dir().Read("TABLA01.tqw");
  std::filesystem::create_directory(Table.Dir().File(GetParam()));
  EXPECT_THROW(T.Rebuild(), TQError);
  EXPECT_EQ(Table.DataBytes(), Data);
  EXPECT_EQ(Table.Dir().Read("TABLA01.tqw"), Image);
  EXPECT_EQ(WorkFiles(Table.Dir()), " " + std::string(GetParam()));
  ASSERT_EQ(T.OpenFile(Table.FileName(), Table.Dir().Dir()), 0);
  EXPECT_EQ(Records(T, false), Before);
  EXPECT_EQ(KeyDataAgreement(T), "");
}

INSTANTIATE_TEST_SUITE_P(WhereANewFileGoes, RebuildFailureTest,
                         ::testing::Values("TABLAZZ.tqd", "TABLAZZ.tqc", "TABLA01.zzz",
                                           "TABLAZZ.tqy"));

}  // namespace
}  // namespace tqdb

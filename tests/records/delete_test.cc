// Deleting records: the mark, the keys, the filter regime and refusals. Moves after a delete
// are checked by the model test, deletes racing other processes by the reliability tests.
#include "records/delete.h"

#include <gtest/gtest.h>

#include <memory>
#include <string>
#include <vector>

#include "engine/tree_checker.h"
#include "platform/file_pool.h"
#include "records/record_codecs.h"
#include "support/key_agreement.h"
#include "support/open_table.h"
#include "table/TQFile.h"

namespace tqdb {
namespace {

using testing::KeyDataAgreement;
using testing::OpenTable;
using testing::RecordBytes;
using testing::TableSpec;

// Keys: 1 NAME (duplicates), 2 CODE. PIC is an image, MEMO a long text.
TableSpec DeleteSpec() {
  TableSpec Spec;
  Spec.Description = "Bajas";
  Spec.Fields = {{"CODE", 10, 4, 1}, {"NAME", 10, 8, 2}, {"PIC", 62, 4, 3}, {"MEMO", 74, 20, 4}};
  Spec.Keys = {{{{2, 1, 8}}}, {{{1, 1, 4}}}};
  return Spec;
}

// Key 1 order: ALPHA 1, BRAVO 2, BRAVO 4, CHARLIE 3, DELTA 5.
std::vector<std::string> DeleteRecords() {
  const TableSpec S = DeleteSpec();
  return {RecordBytes(S, {"0001", "ALPHA", 0, ""}), RecordBytes(S, {"0002", "BRAVO", 0, ""}),
          RecordBytes(S, {"0003", "CHARLIE", 0, ""}), RecordBytes(S, {"0004", "BRAVO", 0, ""}),
          RecordBytes(S, {"0005", "DELTA", 0, ""})};
}

class DeleteTest : public ::testing::Test {
 protected:
  DeleteTest() : Table(DeleteSpec(), DeleteRecords()), T(Table.File()) {}

  std::string RecordOnDisk(int32_t Record) {
    const size_t Length = static_cast<size_t>(testing::RecordLengthOf(DeleteSpec()));
    return Table.DataBytes().substr(static_cast<size_t>(Record - 1) * Length, Length);
  }
  void ExpectSound() {
    EXPECT_EQ(KeyDataAgreement(T), "");
    EXPECT_TRUE(engine::CheckKeyFile(T.State().Engine).empty());
  }

  OpenTable Table;
  TQFile& T;
};

TEST_F(DeleteTest, MarksTheRecordRemovesItsKeysAndKeepsTheCurrentRecord) {
  T.SetIndex(1);
  T.SeekKey("CHARLIE");
  ASSERT_EQ(T.BookMark(), 3);
  T.Delete(3);
  EXPECT_EQ(T.BookMark(), 3);  // the current record number is kept
  std::string Mark(static_cast<size_t>(testing::RecordLengthOf(DeleteSpec())), '\0');
  Mark.replace(0, 7, "ANULADO");
  EXPECT_EQ(RecordOnDisk(3), Mark);
  EXPECT_EQ(T.SeekKey("CHARLIE"), 0);
  T.SetIndex(2);
  EXPECT_EQ(T.SeekKey("0003"), 0);
  EXPECT_EQ(T.DeletedRecordCount(), 1);
  ExpectSound();
}

TEST_F(DeleteTest, NothingHappensForZeroMinusOneWithoutFilterOrADeletedRecord) {
  T.Delete(2);
  const std::string Before = Table.DataBytes();
  T.SetBookMark(3);
  T.SetEngineCommand("X\\MARK");
  for (int32_t Record : {2, 0, -1, -7}) T.Delete(Record);  // 2 is deleted already
  EXPECT_EQ(T.EngineCommand(), "X\\MARK");
  EXPECT_EQ(Table.DataBytes(), Before);
  EXPECT_EQ(T.DeletedRecordCount(), 1);
  EXPECT_EQ(T.BookMark(), 3);  // counting does not move the current record
}

TEST_F(DeleteTest, WithAFilterResultOneRecordOrAllOfThem) {
  TableState& S = T.State();
  S.FilterActive = true;
  S.FilterList = {0, 2, 4, 5};
  S.FilterPos = 1;
  S.EngineResult = 2;
  T.Delete(4);
  EXPECT_EQ(S.FilterList, (std::vector<int32_t>{0, 2, 0, 5}));
  EXPECT_EQ(S.EngineResult, 0);
  EXPECT_TRUE(IsAnulado(S, 4));

  T.Delete(-1);
  EXPECT_FALSE(S.FilterActive);
  EXPECT_EQ(S.FilterList, std::vector<int32_t>{0});
  EXPECT_EQ(S.EngineResult, 0);
  for (int32_t R : {2, 4, 5}) EXPECT_TRUE(IsAnulado(S, R)) << R;
  for (int32_t R : {1, 3}) EXPECT_FALSE(IsAnulado(S, R)) << R;
  EXPECT_EQ(T.DeletedRecordCount(), 3);
  ExpectSound();
}

TEST_F(DeleteTest, ImagesAndLongTextsAreReleasedWithTheRecord) {
  T.AddNew();
  T.SetFields("CODE", "0006");
  T.SetFields("NAME", "ECHO");
  T.SetFields("PIC", "PICTURE");
  T.SetFields("MEMO", "año largo");
  T.Update();
  const int32_t Record = T.BookMark();
  EXPECT_EQ(T.Fields("PIC").ToString().substr(0, 8), "PICTURE ");
  EXPECT_EQ(T.Fields("MEMO").ToString(), "año largo");
  EXPECT_EQ(Table.Dir().Read("TABLA01.tqy"), "a\xF1o largo");  // stored as Windows-1252
  T.Delete(Record);
  const std::string Images = Table.Dir().Read("TABLA01.tqw");
  EXPECT_EQ(Images.find("PICTURE"), std::string::npos);  // the entry's bytes are zeroed
  EXPECT_EQ(Table.Dir().Read("TABLA01.tqy").find("largo"), std::string::npos);
}

TEST_F(DeleteTest, ARefusedDeleteLeavesTheRecordWholeAndUnlocked) {
  T.SetBookMark(2);
  T.Edit();
  T.SetFields("PIC", "KEEP");
  T.Update();
  // The data file changes behind the keys' back: its key texts no longer match.
  const int64_t NameAt =
      1 * testing::RecordLengthOf(DeleteSpec()) + testing::FieldOffsetOf(DeleteSpec(), 2) + 1;
  platform::WriteAt(T.State().DataFileNo, NameAt, std::string_view("XRAY    "));
  const std::string Before = RecordOnDisk(2);
  try {
    T.Delete(2);
    FAIL() << "the delete was not refused";
  } catch (const TQError& Error) {
    EXPECT_EQ(Error.Number(), 50220);
    EXPECT_EQ(Error.Description(), "Error indexados anulando registro: TABLA");
  }
  EXPECT_EQ(RecordOnDisk(2), Before);
  EXPECT_EQ(T.Fields("PIC").ToString().substr(0, 5), "KEEP ");  // the image is kept
  auto Other = Table.Open();
  EXPECT_NO_THROW(LockField(Other->State(), 2, 0, 0));  // the record lock was released
  unLockField(Other->State(), 2, 0, 0);
}

}  // namespace
}  // namespace tqdb

// Deleting records: the mark, the keys, the reuse of numbers, the saved position, the
// filter regime, refusals and locks, and a second process reading while records go.
#include "records/delete.h"

#include <gtest/gtest.h>
#include <sys/wait.h>
#include <unistd.h>

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

TEST_F(DeleteTest, MovesAfterDeletingTheCurrentRecordGoOnFromWhereItStood) {
  T.SetIndex(1);
  T.SeekKey("BRAVO", adSeekLastEQ);  // BRAVO 4, the middle of the key
  ASSERT_EQ(T.BookMark(), 4);
  T.Delete(4);
  T.MoveNext();
  EXPECT_EQ(T.EngineCommand().substr(0, 2), "A\\");
  EXPECT_EQ(T.BookMark(), 3);  // CHARLIE
  T.MoveNext();
  EXPECT_EQ(T.EngineCommand().substr(0, 2), "N\\");  // the saved position is used once
  EXPECT_EQ(T.BookMark(), 5);

  T.SeekKey("BRAVO");  // BRAVO 2
  T.Delete(2);
  T.MovePrevious();
  EXPECT_EQ(T.EngineCommand().substr(0, 2), "E\\");
  EXPECT_EQ(T.BookMark(), 1);  // ALPHA
  T.MovePrevious();
  EXPECT_EQ(T.EngineCommand().substr(0, 2), "P\\");
  EXPECT_TRUE(T.Bof());
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
  T.SetFields("MEMO", "a long text");
  T.Update();
  const int32_t Record = T.BookMark();
  EXPECT_EQ(T.Fields("PIC").ToString().substr(0, 8), "PICTURE ");
  EXPECT_EQ(T.Fields("MEMO").ToString(), "a long text");
  T.Delete(Record);
  const std::string Images = Table.Dir().Read("TABLA01.tqw");
  EXPECT_EQ(Images.find("PICTURE"), std::string::npos);  // the entry's bytes are zeroed
  EXPECT_EQ(Table.Dir().Read("TABLA01.tqy").find("a long text"), std::string::npos);
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

TEST_F(DeleteTest, ADeleteRefusedForAHeldLockSucceedsWhenRetried) {
  auto Other = Table.Open();
  LockField(Other->State(), 3, 0, 0);  // another user works on record 3
  try {
    T.Delete(3);
    FAIL() << "the lock was not noticed";
  } catch (const TQError& Error) {
    EXPECT_EQ(Error.Number(), 70);
  }
  EXPECT_FALSE(IsAnulado(T.State(), 3));
  T.SetIndex(1);
  EXPECT_EQ(T.SeekKey("CHARLIE"), 3);  // the keys are untouched
  unLockField(Other->State(), 3, 0, 0);
  T.Delete(3);
  EXPECT_TRUE(IsAnulado(T.State(), 3));
  ExpectSound();
}

// A child process deletes records while this one walks and reads the table; afterwards no
// key points at a deleted record and every live record is reached by every key.
TEST(DeleteConcurrencyTest, OneProcessDeletesWhileAnotherReads) {
  const TableSpec Spec = DeleteSpec();
  std::vector<std::string> Records;
  for (int I = 1; I <= 600; ++I) {
    const std::string Code = std::to_string(1000 + I);
    Records.push_back(RecordBytes(Spec, {Code, "N" + std::to_string(I % 37), 0, ""}));
  }
  OpenTable Table(Spec, Records);
  TQFile& Reader = Table.File();

  const pid_t Child = fork();
  ASSERT_GE(Child, 0);
  if (Child == 0) {
    int Failures = 0;
    {
      auto Deleter = Table.Open();
      for (int32_t R = 1; R <= 600; R += 2) {
        for (int Try = 0;; ++Try) {
          try {
            Deleter->Delete(R);
            break;
          } catch (const TQError& Error) {
            if (Error.Number() != 70 || Try > 1000) {
              ++Failures;
              break;
            }
            usleep(200);  // the reader's lock is held only for a moment: try again
          }
        }
      }
    }
    _exit(Failures == 0 ? 0 : 1);
  }

  int Walks = 0;
  int Status = 0;
  while (waitpid(Child, &Status, WNOHANG) == 0) {
    Reader.SetIndex(static_cast<int16_t>(1 + Walks % 2));
    Reader.MoveFirst();
    for (int Steps = 0; Reader.LastError() == 0 && Steps < 2000; ++Steps) {
      Reader.Fields("CODE");
      Reader.Fields("NAME");
      Reader.MoveNext();
    }
    ++Walks;
  }
  ASSERT_TRUE(WIFEXITED(Status));
  EXPECT_EQ(WEXITSTATUS(Status), 0);
  EXPECT_GT(Walks, 0);

  auto Fresh = Table.Open();
  EXPECT_EQ(KeyDataAgreement(*Fresh), "");
  EXPECT_TRUE(engine::CheckKeyFile(Fresh->State().Engine).empty());
  EXPECT_EQ(Fresh->DeletedRecordCount(), 300);
  for (int32_t R = 1; R <= 600; ++R) EXPECT_EQ(IsAnulado(Fresh->State(), R), R % 2 == 1) << R;
}

}  // namespace
}  // namespace tqdb

// Moves in both regimes (a filter result set up by the test, and the key walk), bookmarks,
// positions and record counts. Resuming after a delete or a re-key is tested where those
// happen (delete_test, update_test, recordset_model_test).
#include "records/navigation.h"

#include <gtest/gtest.h>

#include <string>
#include <vector>

#include "platform/fault.h"
#include "platform/file_pool.h"
#include "support/open_table.h"
#include "support/table_writer.h"
#include "table/TableState.h"

namespace tqdb {
namespace {

bool Bof(const TableState& S) { return S.LastError == 13 || S.LastError == 16; }
bool Eof(const TableState& S) { return S.LastError == 15 || S.LastError == 16; }

// Puts a filter result of the given records in force.
void Filter(TableState& S, const std::vector<int32_t>& Records) {
  S.FilterActive = true;
  S.FilterList = {0};
  S.FilterList.insert(S.FilterList.end(), Records.begin(), Records.end());
}

TEST(FilterNavigation, WalksTheListAndStopsAtItsEnds) {
  TableState S;
  Filter(S, {7, 0, 9});  // 0: an entry whose record was deleted
  S.ResumeFromSaved = true;
  std::vector<std::pair<int32_t, int16_t>> Seen;  // record, status
  for (auto Move : {&MoveFirst, &MoveNext, &MoveNext, &MoveNext}) {
    Move(S);
    Seen.emplace_back(S.EngineResult, S.LastError);
  }
  EXPECT_EQ(Seen, (std::vector<std::pair<int32_t, int16_t>>{{7, 0}, {0, 0}, {9, 0}, {9, 15}}));
  MovePrevious(S);
  EXPECT_EQ(S.EngineResult, 0);
  EXPECT_FALSE(S.ResumeFromSaved);  // MoveFirst restarts: a saved position is dropped
  MoveLast(S);
  EXPECT_EQ(S.EngineResult, 9);
  EXPECT_EQ(S.FilterPos, 3);
  MoveFirst(S);
  MovePrevious(S);  // before the first: no record, not yet Bof
  EXPECT_EQ(S.EngineResult, 0);
  EXPECT_EQ(S.FilterPos, 0);
  EXPECT_FALSE(Bof(S));
  MovePrevious(S);
  EXPECT_TRUE(Bof(S));
  S.FilterPos = 40;  // a damaged place is never read
  EXPECT_EQ(BookMark(S), 0);
  MovePrevious(S);
  EXPECT_EQ(S.EngineResult, 9);
  S.FilterPos = -5;
  MoveNext(S);
  EXPECT_EQ(S.FilterPos, 0);
  EXPECT_EQ(S.EngineResult, 0);
}

TEST(FilterNavigation, AnEmptyResultIsBothBofAndEof) {
  TableState S;
  Filter(S, {});
  for (auto Move : {&MoveFirst, &MoveLast}) {
    S.EngineResult = 12;
    Move(S);
    EXPECT_TRUE(Bof(S) && Eof(S));
    EXPECT_EQ(S.EngineResult, 0);
  }
  EXPECT_EQ(RecordCount(S), 0);
}

TEST(BookMarkAndPosition, FollowTheResultOrTheRecordNumber) {
  TableState S;
  SetBookMark(S, 123456);  // without a filter: the record, unchecked
  EXPECT_EQ(BookMark(S), 123456);
  SetPosition(S, 2);  // without a filter: nothing changes
  EXPECT_EQ(Position(S), 123456);

  Filter(S, {7, 3, 9, 3});
  SetBookMark(S, 3);
  EXPECT_EQ(S.FilterPos, 2);  // the first element equal to it
  EXPECT_EQ(BookMark(S), 3);
  SetBookMark(S, 42);  // not in the result: the place stays
  EXPECT_EQ(S.FilterPos, 2);
  SetPosition(S, 3);
  EXPECT_EQ(S.EngineResult, 9);
  SetPosition(S, 5);  // beyond the list: no record, the place stays
  EXPECT_EQ(S.EngineResult, 0);
  EXPECT_EQ(S.FilterPos, 3);
  SetPosition(S, 0);
  EXPECT_EQ(Position(S), 0);
  try {
    SetPosition(S, -1);
    ADD_FAILURE() << "a negative place was taken";
  } catch (const platform::Fault& F) {
    EXPECT_EQ(F.Number(), platform::kSubscript);
  }
  EXPECT_EQ(RecordCount(S), 4);  // a filter counts its result
}

testing::TableSpec CodeSpec() {
  testing::TableSpec T;
  T.Fields = {{"Codigo", 10, 4, 1}};
  T.Keys = {{{{1, 1, 4}}}};
  return T;
}

// Five records whose codes sort in record order on key 1.
class KeyNavigation : public ::testing::Test {
 protected:
  static std::vector<std::string> Records() {
    std::vector<std::string> R;
    for (const char* Code : {"A001", "A002", "A003", "A004", "A005"}) {
      R.push_back(testing::RecordBytes(CodeSpec(), {Code}));
    }
    return R;
  }
  TableState& S() { return Table.File().State(); }
  // The saved position of record Record (code A00<Record>) on key 1.
  void SaveAt(int32_t Record) {
    S().PositionText = "1\\" + std::to_string(Record) + "\\" + std::to_string(S().DataFileNo) +
                       "\\A00" + std::to_string(Record);
    S().ResumeFromSaved = true;
  }
  testing::OpenTable Table{CodeSpec(), Records()};
};

TEST_F(KeyNavigation, WalksTheKeyAndResumesFromASavedPositionUntilARestart) {
  const std::string No = std::to_string(S().DataFileNo);
  MoveFirst(S());
  EXPECT_EQ(S().EngineCommand, "F\\1\\" + No);
  SaveAt(4);
  MovePrevious(S());
  EXPECT_EQ(S().EngineCommand.substr(0, 2), "E\\");
  EXPECT_EQ(S().EngineResult, 3);
  MoveNext(S());
  EXPECT_EQ(S().EngineCommand, "N\\" + No);
  EXPECT_EQ(S().EngineResult, 4);
  SaveAt(4);  // MoveFirst and MoveLast drop the saved position
  MoveFirst(S());
  MoveNext(S());
  EXPECT_EQ(S().EngineResult, 2);
  SaveAt(2);
  MoveLast(S());
  MovePrevious(S());
  EXPECT_EQ(S().EngineCommand, "P\\" + No);
  EXPECT_EQ(S().EngineResult, 4);
  MoveLast(S());
  MoveNext(S());
  EXPECT_TRUE(Eof(S()));
}

TEST(KeyNavigationFailures, OnlyMoveFirstRaisesForAFailedMove) {
  TableState S;  // no key file open: the engine cannot move
  try {
    MoveFirst(S);
    ADD_FAILURE() << "MoveFirst raised nothing, status " << S.LastError;
  } catch (const platform::Fault& F) {
    EXPECT_NE(S.LastError, 0);
    EXPECT_NE(S.LastError, 16);
    EXPECT_EQ(F.Number(), S.LastError);
    EXPECT_EQ(F.Description(), "Error Indexados " + std::to_string(S.LastError));
  }
  for (auto Move : {&MoveLast, &MoveNext, &MovePrevious}) EXPECT_NO_THROW(Move(S));
  EXPECT_NE(S.LastError, 0);
  S.RecordLength = 10;
  EXPECT_EQ(RecordCount(S), 0);  // a table that is not open has no records

  testing::OpenTable Empty(CodeSpec(), {});  // an empty key is no failure
  TableState& E = Empty.File().State();
  E.EngineResult = 9;
  EXPECT_NO_THROW(MoveFirst(E));
  EXPECT_EQ(E.EngineResult, 0);
  EXPECT_TRUE(Bof(E) && Eof(E));
}

}  // namespace
}  // namespace tqdb

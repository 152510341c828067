#include "records/navigation.h"

#include <gtest/gtest.h>

#include <string>
#include <vector>

#include "platform/fault.h"
#include "platform/file_pool.h"
#include "support/open_table.h"
#include "support/table_writer.h"
#include "support/temp_dir.h"
#include "table/TableState.h"

namespace tqdb {
namespace {

using testing::TempDir;

bool Bof(const TableState& S) { return S.LastError == 13 || S.LastError == 16; }
bool Eof(const TableState& S) { return S.LastError == 15 || S.LastError == 16; }

// Puts a filter result of the given records in force.
void Filter(TableState& S, const std::vector<int32_t>& Records) {
  S.FilterActive = true;
  S.FilterList = {0};
  S.FilterList.insert(S.FilterList.end(), Records.begin(), Records.end());
}

TEST(FilterNavigation, WalksTheListForwardAndStaysOnTheLastAtTheEnd) {
  TableState S;
  Filter(S, {7, 3, 9});
  MoveFirst(S);
  EXPECT_EQ(S.EngineResult, 7);
  EXPECT_EQ(S.LastError, 0);
  MoveNext(S);
  EXPECT_EQ(S.EngineResult, 3);
  MoveNext(S);
  EXPECT_EQ(S.EngineResult, 9);
  EXPECT_FALSE(Eof(S));
  MoveNext(S);
  EXPECT_TRUE(Eof(S));
  EXPECT_FALSE(Bof(S));
  EXPECT_EQ(S.EngineResult, 9);
  EXPECT_EQ(S.FilterPos, 3);
}

TEST(FilterNavigation, StepsBackToNoRecordBeforeBof) {
  TableState S;
  Filter(S, {7, 3, 9});
  MoveFirst(S);
  MovePrevious(S);
  EXPECT_EQ(S.EngineResult, 0);
  EXPECT_EQ(S.FilterPos, 0);
  EXPECT_FALSE(Bof(S));
  MovePrevious(S);
  EXPECT_TRUE(Bof(S));
  EXPECT_EQ(S.EngineResult, 0);
}

TEST(FilterNavigation, MoveLastAndBackwardWalk) {
  TableState S;
  Filter(S, {7, 3, 9});
  MoveLast(S);
  EXPECT_EQ(S.EngineResult, 9);
  EXPECT_EQ(S.FilterPos, 3);
  EXPECT_EQ(S.LastError, 0);
  MovePrevious(S);
  EXPECT_EQ(S.EngineResult, 3);
  MovePrevious(S);
  EXPECT_EQ(S.EngineResult, 7);
}

TEST(FilterNavigation, AnEmptyResultIsBothBofAndEof) {
  TableState S;
  Filter(S, {});
  S.EngineResult = 12;
  MoveFirst(S);
  EXPECT_TRUE(Bof(S) && Eof(S));
  EXPECT_EQ(S.EngineResult, 0);
  S.EngineResult = 12;
  MoveLast(S);
  EXPECT_TRUE(Bof(S) && Eof(S));
  EXPECT_EQ(S.EngineResult, 0);
  EXPECT_EQ(S.FilterPos, 0);
  MoveNext(S);
  EXPECT_EQ(S.LastError, 15);
  EXPECT_EQ(RecordCount(S), 0);
}

TEST(FilterNavigation, ADeletedElementIsVisitedAsNoRecord) {
  TableState S;
  Filter(S, {7, 0, 9});
  MoveFirst(S);
  MoveNext(S);
  EXPECT_EQ(S.EngineResult, 0);
  EXPECT_EQ(S.LastError, 0);
  MoveNext(S);
  EXPECT_EQ(S.EngineResult, 9);
}

TEST(FilterNavigation, NeverReadsOutsideADamagedPlace) {
  TableState S;
  Filter(S, {7, 3});
  S.FilterPos = 40;
  EXPECT_EQ(BookMark(S), 0);
  MovePrevious(S);
  EXPECT_EQ(S.EngineResult, 3);
  S.FilterPos = -5;
  MoveNext(S);
  EXPECT_EQ(S.FilterPos, 0);
  EXPECT_EQ(S.EngineResult, 0);
}

TEST(FilterNavigation, MovesDropASavedPositionOnlyWhenTheyRestart) {
  TableState S;
  Filter(S, {7, 3});
  S.ResumeFromSaved = true;
  MoveNext(S);
  EXPECT_TRUE(S.ResumeFromSaved);
  MoveFirst(S);
  EXPECT_FALSE(S.ResumeFromSaved);
  S.ResumeFromSaved = true;
  MoveLast(S);
  EXPECT_FALSE(S.ResumeFromSaved);
}

TEST(BookMarkAndPosition, BookMarkFindsTheRecordInTheResult) {
  TableState S;
  Filter(S, {7, 3, 9, 3});
  MoveFirst(S);
  EXPECT_EQ(BookMark(S), 7);
  SetBookMark(S, 3);
  EXPECT_EQ(S.FilterPos, 2);  // the first element equal to it
  EXPECT_EQ(S.EngineResult, 3);
  EXPECT_EQ(BookMark(S), 3);
  SetBookMark(S, 42);  // not in the result: the place stays
  EXPECT_EQ(S.FilterPos, 2);
  EXPECT_EQ(S.EngineResult, 3);
}

TEST(BookMarkAndPosition, WithoutAFilterTheBookMarkIsTheRecordUnchecked) {
  TableState S;
  SetBookMark(S, 123456);
  EXPECT_EQ(S.EngineResult, 123456);
  EXPECT_EQ(BookMark(S), 123456);
  EXPECT_EQ(Position(S), 123456);
}

TEST(BookMarkAndPosition, PositionPutWithoutAFilterChangesNothing) {
  TableState S;
  S.EngineResult = 5;
  SetPosition(S, 2);
  EXPECT_EQ(S.EngineResult, 5);
  EXPECT_EQ(Position(S), 5);
}

TEST(BookMarkAndPosition, PositionPutWithAFilter) {
  TableState S;
  Filter(S, {7, 3, 9});
  SetPosition(S, 2);
  EXPECT_EQ(Position(S), 2);
  EXPECT_EQ(S.EngineResult, 3);
  SetPosition(S, 4);  // beyond the list: no record, the place stays
  EXPECT_EQ(S.EngineResult, 0);
  EXPECT_EQ(S.FilterPos, 2);
  SetPosition(S, 0);
  EXPECT_EQ(S.EngineResult, 0);
  EXPECT_EQ(Position(S), 0);
  try {
    SetPosition(S, -1);
    ADD_FAILURE() << "a negative place was taken";
  } catch (const platform::Fault& F) {
    EXPECT_EQ(F.Number(), platform::kSubscript);
  }
  EXPECT_EQ(S.FilterPos, 0);
}

// A table state whose data file holds Bytes.
class DataFileCount : public ::testing::Test {
 protected:
  void Open(const std::string& Bytes) {
    State.DataFileNo = platform::TakeFreeNumber();
    State.DataFileOpen = true;
    platform::Open(State.DataFileNo, Temp.Write("CUENT01.tqd", Bytes));
  }
  TempDir Temp;
  TableState State;
};

TEST_F(DataFileCount, CountsRecordPlacesRoundingHalvesToEven) {
  Open(std::string(1000, 'x'));
  State.RecordLength = 300;
  EXPECT_EQ(RecordCount(State), 3);  // 3.33
  State.RecordLength = 400;
  EXPECT_EQ(RecordCount(State), 2);  // 2.5
  State.RecordLength = 600;
  EXPECT_EQ(RecordCount(State), 2);  // 1.67
  State.RecordLength = 0;
  EXPECT_EQ(RecordCount(State), 0);
}

TEST_F(DataFileCount, AFilterCountsItsResult) {
  Open(std::string(1000, 'x'));
  State.RecordLength = 10;
  State.FilterActive = true;
  State.FilterList = {0, 4, 5};
  EXPECT_EQ(RecordCount(State), 2);
}

TEST(RecordCountClosed, ATableThatIsNotOpenHasNoRecords) {
  TableState S;
  S.RecordLength = 10;
  EXPECT_EQ(RecordCount(S), 0);
}

// Five records whose codes sort in record order on key 1.
class KeyNavigation : public ::testing::Test {
 protected:
  static testing::TableSpec Spec() {
    testing::TableSpec T;
    T.Fields = {{"Codigo", 10, 4, 1}};
    T.Keys = {{{{1, 1, 4}}}};
    return T;
  }
  static std::vector<std::string> Records() {
    std::vector<std::string> R;
    for (const char* Code : {"A001", "A002", "A003", "A004", "A005"}) {
      R.push_back(testing::RecordBytes(Spec(), {Code}));
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
  testing::OpenTable Table{Spec(), Records()};
};

TEST_F(KeyNavigation, WalksTheKeyWithTheEngineCommands) {
  MoveFirst(S());
  EXPECT_EQ(S().EngineCommand, "F\\1\\" + std::to_string(S().DataFileNo));
  EXPECT_EQ(S().EngineResult, 1);
  MoveNext(S());
  EXPECT_EQ(S().EngineCommand, "N\\" + std::to_string(S().DataFileNo));
  EXPECT_EQ(S().EngineResult, 2);
  MoveLast(S());
  EXPECT_EQ(S().EngineResult, 5);
  MoveNext(S());
  EXPECT_TRUE(Eof(S()));
  MoveFirst(S());
  MovePrevious(S());
  EXPECT_EQ(S().EngineCommand, "P\\" + std::to_string(S().DataFileNo));
  EXPECT_TRUE(Bof(S()));
}

TEST_F(KeyNavigation, MoveNextResumesFromTheSavedPositionOnce) {
  MoveLast(S());
  SaveAt(2);
  MoveNext(S());
  EXPECT_EQ(S().EngineCommand.substr(0, 2), "A\\");
  EXPECT_EQ(S().EngineResult, 3);
  EXPECT_FALSE(S().ResumeFromSaved);
  MoveNext(S());
  EXPECT_EQ(S().EngineCommand.substr(0, 2), "N\\");
  EXPECT_EQ(S().EngineResult, 4);
}

TEST_F(KeyNavigation, MovePreviousResumesFromTheSavedPositionOnce) {
  MoveFirst(S());
  SaveAt(4);
  MovePrevious(S());
  EXPECT_EQ(S().EngineCommand.substr(0, 2), "E\\");
  EXPECT_EQ(S().EngineResult, 3);
  MovePrevious(S());
  EXPECT_EQ(S().EngineCommand.substr(0, 2), "P\\");
  EXPECT_EQ(S().EngineResult, 2);
}

TEST_F(KeyNavigation, MoveFirstAndMoveLastDropTheSavedPosition) {
  SaveAt(4);
  MoveFirst(S());
  MoveNext(S());
  EXPECT_EQ(S().EngineResult, 2);
  SaveAt(2);
  MoveLast(S());
  MovePrevious(S());
  EXPECT_EQ(S().EngineResult, 4);
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
  EXPECT_NO_THROW(MoveLast(S));
  EXPECT_NE(S.LastError, 0);
  EXPECT_NO_THROW(MoveNext(S));
  EXPECT_NO_THROW(MovePrevious(S));
}

TEST(KeyNavigationFailures, MoveFirstOnAnEmptyTableLeavesNoRecord) {
  testing::TableSpec T;
  T.Fields = {{"Codigo", 10, 4, 1}};
  T.Keys = {{{{1, 1, 4}}}};
  testing::OpenTable Empty(T, {});
  TableState& S = Empty.File().State();
  S.EngineResult = 9;
  EXPECT_NO_THROW(MoveFirst(S));
  EXPECT_EQ(S.EngineResult, 0);
  EXPECT_TRUE(Bof(S) && Eof(S));
}

}  // namespace
}  // namespace tqdb

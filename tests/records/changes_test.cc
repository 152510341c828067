// Update, Delete, seeks, moves and ReIndex on a table written byte by byte: the edges that the
// model test's random run does not reach (refusals, overflows, odd dates, locale numbers,
// read-only files, filter results, the special seek key, array and binary seek values,
// saved positions).
#include <gtest/gtest.h>

#include <cstdlib>
#include <functional>
#include <stdexcept>
#include <string>
#include <tuple>
#include <vector>

#include "engine/dispatcher_retry.h"
#include "platform/fault.h"
#include "platform/file_pool.h"
#include "platform/numbers.h"
#include "records/edit_values.h"
#include "records/navigation.h"
#include "records/record_codecs.h"
#include "records/seek.h"
#include "support/error_of.h"
#include "support/file_checks.h"
#include "support/open_table.h"
#include "table/TQFile.h"

namespace tqdb {
namespace {

using testing::ErrorOf;
using testing::RecordBytes;
using testing::TableSpec;

// Keys: 1 NAME, 2 CODE, 3 QTY (a 16-bit field: the key holds its bytes), 4 NAME + CODE,
// 5 FECHA. Key 1 order: BRAVO 1, DELTA 2, DELTA 4, DELTA 5, FOXTROT 3.
const TableSpec kSpec{
    "Cambios",
    {{"CODE", 10, 4, 1},
     {"NAME", 10, 8, 2},
     {"QTY", 1, 2, 3},
     {"PRICE", 2, 4, 4},
     {"AMOUNT", 3, 8, 5},
     {"FECHA", 5, 6, 6},
     {"RATE", 81, 8, 7},
     {"NOTE", 10, 6, 8},
     {"PIC", 62, 4, 9},
     {"MEMO", 74, 20, 10},
     {"TOTAL", 4, 4, 11}},
    {{{{2, 1, 8}}}, {{{1, 1, 4}}}, {{{3, 1, 2}}}, {{{2, 1, 8}, {1, 1, 4}}}, {{{6, 1, 6}}}}};

std::vector<std::string> Records() {
  std::vector<std::string> Out;
  for (const auto& [Code, Name, Qty, Fecha] :
       std::vector<std::tuple<const char*, const char*, int, const char*>>{
           {"0001", "BRAVO", 7, "A50102"},
           {"0002", "DELTA", 5, "991231"},
           {"0003", "FOXTROT", -3, "A00101"},
           {"0004", "DELTA", 5, "A50102"},
           {"0005", "DELTA", 300, "800615"}}) {
    Out.push_back(RecordBytes(kSpec, {Code, Name, Qty, 2.5, 4.5, Fecha, 1.5, "uno", 0, "", 0}));
  }
  return Out;
}

class ChangesTest : public ::testing::Test {
 protected:
  Variant Field(int32_t Record, const char* Name) {
    T.SetBookMark(Record);
    return T.Fields(Name);
  }
  int32_t SeekOn(int16_t Key, const Variant& Value, int32_t Option = adseekfirsteq) {
    T.SetIndex(Key);
    const int32_t Found = T.SeekKey(Value, Option);
    EXPECT_EQ(Found, T.BookMark());
    return Found;
  }
  std::string RecordOnDisk(int32_t Record) {
    const size_t Length = static_cast<size_t>(testing::RecordLengthOf(kSpec));
    return Table.DataBytes().substr(static_cast<size_t>(Record - 1) * Length, Length);
  }
  void Edit(int32_t Record, std::vector<std::pair<const char*, Variant>> Values) {
    T.SetBookMark(Record);
    T.Edit();
    for (const auto& [Name, Value] : Values) T.SetFields(Name, Value);
  }

  testing::OpenTable Table{kSpec, Records()};
  TQFile& T = Table.File();
};

TEST_F(ChangesTest, EditWritesWhatWasPutByTypeAndNothingElse) {
  Edit(2, {{"RATE", 3}, {"NOTE", "cambiado"}, {"QTY", ""}, {"FECHA", "05/03/59"}, {"TOTAL", 2.5}});
  T.Update();
  EXPECT_EQ(Field(2, "TOTAL").AsInteger(), 2);       // whole numbers round halves to even
  EXPECT_EQ(Field(2, "NOTE").ToString(), "cambia");  // cut to the field's width
  EXPECT_EQ(SeekOn(3, std::vector<Variant>{0}), 2);  // empty is zero, and its key follows
  EXPECT_EQ(RecordOnDisk(2).substr(size_t(testing::FieldOffsetOf(kSpec, 6)), 6), "F90305");
  EXPECT_EQ(RecordOnDisk(1) + RecordOnDisk(3), Records()[0] + Records()[2]);  // untouched
  // Six characters are the stored form itself; other lengths store no date.
  for (const auto& [Put, Shown] : {std::pair{"991231", "31/12/99"}, {"5/03/59", ""}}) {
    Edit(1, {{"FECHA", Put}});
    T.Update();
    EXPECT_EQ(Field(1, "FECHA").ToString(), Shown) << Put;
  }
  const std::string Before = Table.DataBytes();
  Edit(2, {});
  T.SetEngineCommand("X\\MARK");
  T.Update();  // nothing put: nothing written or sent
  T.Update();  // with no edit open it only closes
  EXPECT_EQ(T.EngineCommand(), "X\\MARK");
  EXPECT_EQ(Table.DataBytes(), Before);
  EXPECT_EQ(NumberFromBuffer(Variant(), 1) + NumberFromBuffer(true, 4), -1.0);
  EXPECT_EQ(NumberFromBuffer("12abc.5", 3), 12.0);  // the point rule reads the leading number
  for (const auto& [Value, Type] : std::vector<std::pair<Variant, int16_t>>{
           {"12abc.5", 1}, {"abc", 3}, {std::vector<Variant>{1}, 3}})  // whole numbers: the locale
    EXPECT_THROW(NumberFromBuffer(Value, Type), platform::Fault);
}

// A failed Update closes the edit, but for a refused insert, which a second Update retries.
TEST_F(ChangesTest, AFailedUpdateLeavesTheRecordAndItsKeysAndASecondUpdateRetries) {
  const std::string Before = Table.DataBytes();
  for (const auto& [Name, Value, Number] : std::vector<std::tuple<const char*, Variant, int>>{
           {"QTY", 40000, 6}, {"AMOUNT", "abc", 13}}) {
    Edit(2, {{"NAME", "ZULU"}, {Name, Value}, {"RATE", 9}});  // a key field before the fault
    EXPECT_EQ(ErrorOf([&] { T.Update(); }).first, Number);
    EXPECT_EQ(Table.DataBytes(), Before);
    EXPECT_EQ(T.EditMode(), 0);
  }
  EXPECT_EQ(SeekOn(1, "DELTA"), 2);
  EXPECT_EQ(SeekOn(1, "ZULU"), 0);
  T.AddNew();
  T.SetFields("CODE", "0009");
  T.SetFields("NAME", "HOTEL");
  T.SetEngineCommand("K");  // the key file closed under the table: the insert is refused
  T.ExecuteCommand();
  const auto [Number, Text] = ErrorOf([&] { T.Update(); });
  EXPECT_EQ(Number, 50221);
  EXPECT_TRUE(Text.starts_with("Error indexados: ") &&
              Text.find(" insertando registro I\\") != std::string::npos)
      << Text;
  EXPECT_EQ(T.EditMode(), 2);
  EXPECT_EQ(Table.DataBytes(), Before);
  std::string Path = Table.KeyPath();
  for (char& C : Path) C = C == '/' ? '\\' : C;
  T.SetEngineCommand("/O/" + Path + "/" + std::to_string(T.DataFileNo()));
  T.ExecuteCommand();
  T.Update();
  EXPECT_EQ(T.BookMark(), 6);
  EXPECT_EQ(T.Fields("QTY").AsInteger(), 0);  // AddNew writes zero for what was not put
  EXPECT_EQ(T.Fields("FECHA").ToString(), "");
  EXPECT_EQ(SeekOn(1, "HOTEL"), 6);
  EXPECT_EQ(SeekOn(2, "0009"), 6);
  T.SetFieldType(8, 74);  // NOTE, 6 bytes: too narrow for a long text's place (fault 5)
  for (const bool New : {false, true}) {
    New ? T.AddNew() : Edit(2, {});
    T.SetFields("NOTE", "texto");
    EXPECT_NE(ErrorOf([&] { T.Update(); }).first, 0);
    EXPECT_EQ(T.EditMode(), 0);
  }
  T.Update();  // the new record's keys went in: no retry inserts them a second time
  EXPECT_EQ(T.RecordCount(), 7);
}

// A new record in a deleted record's place waits for that record's lock (its deleter may
// still be writing the mark); a record after the last one was never anybody's.
TEST_F(ChangesTest, OnlyANewRecordInADeletedRecordsPlaceTakesTheRecordLock) {
  const auto LocksOfOneAddNew = [this](const char* Code) {
    const uint64_t Before = platform::GetIoCounters().Locks;
    T.AddNew();
    T.SetFields("CODE", Code);
    T.Update();
    return platform::GetIoCounters().Locks - Before;
  };
  const uint64_t Fresh = LocksOfOneAddNew("0010");
  EXPECT_EQ(T.BookMark(), 6);
  T.Delete(2);
  EXPECT_EQ(LocksOfOneAddNew("0011"), Fresh + 2);  // lock and unlock of record 2
  EXPECT_EQ(T.BookMark(), 2);
  EXPECT_EQ(SeekOn(2, "0011"), 2);
}

// A comma-decimal locale built for the test, in a child process of its own so that its
// environment stays there.
TEST_F(ChangesTest, APointIsADecimalPointInAnyLocale) {
  testing::TempDir Locales;
  const std::string Build =
      "localedef -i es_ES -f UTF-8 " + Locales.File("es_ES.UTF-8") + " >/dev/null 2>&1";
  if (std::system(Build.c_str()) != 0) GTEST_SKIP() << "localedef could not build es_ES.UTF-8";
  EXPECT_EXIT(
      {
        ::setenv("LOCPATH", Locales.Path().c_str(), 1);
        ::setenv("LC_ALL", "es_ES.UTF-8", 1);
        if (platform::UserLocale().Decimal != ',' || NumberFromBuffer("1.5", 3) != 1.5 ||
            NumberFromBuffer("2,5", 3) != 2.5 || platform::UserLocale().Thousands != '.' ||
            platform::LocaleToDouble("1.234,5") != 1234.5) {
          std::_Exit(2);
        }
        for (const bool New : {false, true}) {  // record 3 edited, then record 6 added
          New ? T.AddNew() : Edit(3, {});
          T.SetFields("AMOUNT", "1.5");
          T.SetFields("RATE", "1.234,5");
          T.SetFields("PRICE", "2,5");
          T.SetFields("QTY", "1.500");  // whole numbers: "." groups thousands
          T.SetFields("TOTAL", "2.500");
          T.Update();
        }
        std::_Exit(0);
      },
      ::testing::ExitedWithCode(0), "");
  for (const int32_t Record : {3, 6}) {
    EXPECT_DOUBLE_EQ(Field(Record, "AMOUNT").AsNumber(), 1.5);
    EXPECT_DOUBLE_EQ(Field(Record, "RATE").AsNumber(), 1.234);  // the leading number, point
    EXPECT_FLOAT_EQ(static_cast<float>(Field(Record, "PRICE").AsNumber()), 2.5f);
    EXPECT_EQ(Field(Record, "QTY").AsInteger(), 1500);
    EXPECT_EQ(Field(Record, "TOTAL").AsInteger(), 2500);
  }
}

// Files that may only be read (a read-only share, mode 444): the table is read as ever, and
// every change fails at once, never waiting as for a lock held elsewhere.
TEST_F(ChangesTest, AReadOnlyTableIsReadAndRefusesEveryChangeAtOnce) {
  const std::string Before = Table.DataBytes();
  const testing::ReadOnlyFiles ReadOnly(Table.Dir().Path());
  const auto Sleep = engine::SetRetrySleep([](int32_t) { throw std::runtime_error("retried"); });
  auto R = Table.Open();
  EXPECT_EQ((R->SetIndex(1), R->SeekKey("DELTA")), 2);
  EXPECT_EQ((R->Filter("NAME LIKE *O*"), R->RecordCount()), 2);
  for (const auto& Change : std::vector<std::function<void(TQFile&)>>{
           [](TQFile& W) { W.AddNew(), W.SetFields("NAME", "GOLF"), W.Update(); },
           [](TQFile& W) { W.SetBookMark(1), W.Edit(), W.SetFields("NAME", "ZULU"), W.Update(); },
           [](TQFile& W) { W.Delete(3); },
           [](TQFile& W) { W.SetBookMark(2), W.AddToField("QTY", 1); }}) {
    const std::string Text = ErrorOf([&] { Change(*Table.Open()); }).second;
    EXPECT_TRUE(Text.starts_with("Solo se puede leer el archivo " + Table.Dir().Dir())) << Text;
  }
  engine::SetRetrySleep(Sleep);
  EXPECT_EQ(Table.DataBytes(), Before);
}

TEST_F(ChangesTest, DeleteMarksTheRecordAndFollowsAFilterResult) {
  T.SetBookMark(3);
  T.Delete(5);
  EXPECT_EQ(T.BookMark(), 3);  // the current record is kept
  EXPECT_EQ(RecordOnDisk(5),
            "ANULADO" + std::string(size_t(testing::RecordLengthOf(kSpec)) - 7, '\0'));
  const std::string Before = Table.DataBytes();
  T.SetEngineCommand("X\\MARK");
  for (int32_t Record : {5, 0, -1, -7}) T.Delete(Record);  // 5 is deleted already
  EXPECT_EQ(T.EngineCommand(), "X\\MARK");
  EXPECT_EQ(Table.DataBytes(), Before);
  TableState& S = T.State();  // a filter result: one record, or all of them
  S.FilterActive = true;
  S.FilterList = {0, 2, 4, 5};
  S.FilterPos = 1;
  T.Delete(4);
  EXPECT_EQ(S.FilterList, (std::vector<int32_t>{0, 2, 0, 5}));
  EXPECT_EQ(S.EngineResult, 0);
  T.Delete(-1);
  EXPECT_FALSE(S.FilterActive);
  EXPECT_EQ(S.FilterList, std::vector<int32_t>{0});
  for (int32_t R : {2, 4, 5}) EXPECT_TRUE(IsAnulado(S, R)) << R;
  for (int32_t R : {1, 3}) EXPECT_FALSE(IsAnulado(S, R)) << R;
  EXPECT_EQ(T.DeletedRecordCount(), 3);
}

TEST_F(ChangesTest, SeeksTakeSpecialKeysArraysDatesAndBinaryValues) {
  const std::string FileNo = std::to_string(T.DataFileNo());
  const auto Special = [&](int16_t Key, int32_t Record) {
    T.SetIndex(Key);
    T.SetBookMark(Record);
    return Variant(T.GetSpecialSeekKeys());
  };
  EXPECT_EQ(Special(1, 4).ToString(), "1\\4\\" + FileNo + "\\DELTA   ");
  EXPECT_EQ(Special(4, 4).ToString(), "4\\4\\" + FileNo + "\\DELTA   0004");
  EXPECT_EQ(Special(1, 0).ToString(), "");
  using V = std::vector<Variant>;
  for (const auto& [Key, Value, Option, Record] :
       std::vector<std::tuple<int16_t, Variant, int32_t, int32_t>>{
           {1, Special(1, 4), adSeekAfter, 5},
           {1, Special(1, 4), adSeekBefore, 2},
           {4, V{"delta", "0005", "extra"}, adseekfirsteq, 5},
           {4, V{"DELTAXXXXX", "0002"}, adseekfirsteq, 0},  // cut to the segment
           {4, V{"DELTA"}, adseekfirsteq, 0},               // a missing segment is blank
           {4, "DELTA   0005", adseekfirsteq, 5},           // a plain text is the whole key
           {5, V{Date{2005, 1, 2}}, adSeekLastEQ, 4},
           {5, V{"15/06/80"}, adseekfirsteq, 0},  // text is not a date
           {3, V{int16_t{5}}, adseekfirsteq, 2},
           {3, V{5}, adSeekLastEQ, 4},
           {3, V{"300"}, adseekfirsteq, 5},
           {3, V{-3.0}, adseekfirsteq, 3},
           {3, Special(3, 2), adSeekAfter, 4}})  // binary bytes survive UTF-8
    EXPECT_EQ(SeekOn(Key, Value, Option), Record) << Key << " " << Value.ToString();
  T.SetBookMark(4);
  T.SetEngineCommand("X\\MARK");
  for (int32_t Option : {0, 3, 5, 64, -1}) EXPECT_EQ(T.SeekKey("DELTA", Option), 0) << Option;
  EXPECT_EQ(T.EngineCommand(), "X\\MARK");  // unknown options send nothing
  T.SetIndex(1);  // a seek drops a saved position; MoveFirst restarts the key walk
  T.SetBookMark(2);
  T.State().PositionText = tqdb::GetSpecialSeekKeys(T.State());
  T.State().ResumeFromSaved = true;
  SeekOn(1, "FOXTROT");
  EXPECT_FALSE(T.State().ResumeFromSaved);
  T.State().ResumeFromSaved = true;
  T.MoveFirst();
  EXPECT_EQ(T.EngineCommand(), "F\\1\\" + FileNo);
  EXPECT_FALSE(T.State().ResumeFromSaved);
}

TEST_F(ChangesTest, ReIndexWaitsForOtherUsersAndKeepsAMoveAfterReKeying) {
  {
    auto Other = Table.Open();
    EXPECT_EQ(ErrorOf([&] { T.ReIndex(); }).first, 70);
    T.MoveFirst();  // the key file is still open and usable
    EXPECT_EQ(T.LastError(), 0);
  }
  EXPECT_LT(T.ReIndex(), 1.0);  // minutes.seconds
  EXPECT_EQ(Table.Open()->SeekKey("BRAVO"), 1);
  T.SetIndex(1), T.MoveLast(), T.Edit();  // two key fields: the place is saved once, before both
  T.SetFields("NAME", "aaa"), T.SetFields("CODE", "0000"), T.Update(), T.MovePrevious();
  EXPECT_EQ(T.BookMark(), 5);  // before FOXTROT's old place
  EXPECT_EQ(SeekOn(4, "AAA     0000"), 3);
}

// Moves over a filter result set up by the test: entries of deleted records (0), its ends,
// bookmarks and positions.
TEST(FilterNavigationTest, WalksTheListAndStopsAtItsEnds) {
  TableState S;
  S.FilterActive = true;
  S.FilterList = {0, 7, 0, 9};
  S.ResumeFromSaved = true;
  std::vector<std::pair<int32_t, int16_t>> Seen;  // record, status
  for (auto Move : {&MoveFirst, &MoveNext, &MoveNext, &MoveNext, &MovePrevious}) {
    Move(S);
    Seen.emplace_back(S.EngineResult, S.LastError);
  }
  EXPECT_EQ(Seen,
            (std::vector<std::pair<int32_t, int16_t>>{{7, 0}, {0, 0}, {9, 0}, {9, 15}, {0, 15}}));
  EXPECT_FALSE(S.ResumeFromSaved);  // MoveFirst restarts: a saved position is dropped
  MoveLast(S);
  EXPECT_EQ(S.FilterPos, 3);
  MoveFirst(S);
  MovePrevious(S);  // before the first: no record, not yet Bof
  EXPECT_EQ(std::make_pair(S.EngineResult, S.FilterPos), std::make_pair(0, 0));
  EXPECT_EQ(S.LastError, 0);
  MovePrevious(S);
  EXPECT_EQ(S.LastError, 13);
  S.FilterPos = 40;  // a damaged place is never read
  EXPECT_EQ(BookMark(S), 0);
  MovePrevious(S);
  EXPECT_EQ(S.EngineResult, 9);
  S.FilterPos = -5;
  MoveNext(S);
  EXPECT_EQ(std::make_pair(S.EngineResult, S.FilterPos), std::make_pair(0, 0));
  S.FilterList = {0, 7, 3, 9, 3};
  SetBookMark(S, 3);
  EXPECT_EQ(S.FilterPos, 2);  // the first element equal to it
  SetBookMark(S, 42);         // not in the result: the place stays
  EXPECT_EQ(S.FilterPos, 2);
  SetPosition(S, 3);
  EXPECT_EQ(S.EngineResult, 9);
  SetPosition(S, 5);  // beyond the list: no record, the place stays
  EXPECT_EQ(std::make_pair(S.EngineResult, S.FilterPos), std::make_pair(0, 3));
  SetPosition(S, 0);
  EXPECT_EQ(Position(S), 0);
  EXPECT_THROW(SetPosition(S, -1), platform::Fault);
  EXPECT_EQ(RecordCount(S), 4);  // a filter counts its result
  S.FilterList = {0};
  for (auto Move : {&MoveFirst, &MoveLast}) {
    S.EngineResult = 12;
    Move(S);
    EXPECT_EQ(std::make_pair(S.EngineResult, S.LastError), std::make_pair(0, int16_t{16}));
  }
  S.FilterActive = false;
  SetBookMark(S, 123456);  // without a filter: the record, unchecked; a place changes nothing
  SetPosition(S, 2);
  EXPECT_EQ(Position(S), 123456);
}

TEST(KeyNavigationTest, OnlyMoveFirstRaisesForAFailedMove) {
  TableState S;  // no key file open: the engine cannot move
  try {
    MoveFirst(S);
    ADD_FAILURE() << "MoveFirst raised nothing, status " << S.LastError;
  } catch (const platform::Fault& F) {
    EXPECT_TRUE(S.LastError != 0 && S.LastError != 16) << S.LastError;
    EXPECT_EQ(F.Description(), "Error Indexados " + std::to_string(F.Number()));
    EXPECT_EQ(F.Number(), S.LastError);
  }
  for (auto Move : {&MoveLast, &MoveNext, &MovePrevious}) EXPECT_NO_THROW(Move(S));
  EXPECT_NE(S.LastError, 0);
  testing::OpenTable Empty(kSpec, {});  // an empty key is no failure
  Empty.File().State().EngineResult = 9;
  EXPECT_NO_THROW(MoveFirst(Empty.File().State()));
  EXPECT_TRUE(Empty.File().Bof() && Empty.File().Eof());
}

}  // namespace
}  // namespace tqdb

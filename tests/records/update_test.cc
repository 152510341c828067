// Update after Edit and after AddNew: values converted by type, keys kept in step, the
// record left whole when a value cannot be stored or the engine refuses the keys.
#include "records/update.h"

#include <gtest/gtest.h>

#include <cstdlib>
#include <functional>
#include <memory>
#include <stdexcept>
#include <string>
#include <tuple>
#include <vector>

#include "engine/dispatcher_retry.h"
#include "platform/fault.h"
#include "platform/file_pool.h"
#include "platform/numbers.h"
#include "records/edit_values.h"
#include "support/file_checks.h"
#include "support/open_table.h"
#include "support/temp_dir.h"
#include "table/TQFile.h"

namespace tqdb {
namespace {

using testing::OpenTable;
using testing::RecordBytes;
using testing::TableSpec;

// Keys: 1 NAME, 2 CODE, 3 QTY (a 16-bit field: its key holds the stored bytes).
TableSpec UpdateSpec() {
  TableSpec Spec;
  Spec.Description = "Cambios";
  Spec.Fields = {{"CODE", 10, 4, 1}, {"NAME", 10, 8, 2}, {"QTY", 1, 2, 3},
                 {"PRICE", 2, 4, 4}, {"TOTAL", 4, 4, 5}, {"AMOUNT", 3, 8, 6},
                 {"FECHA", 5, 6, 7}, {"RATE", 81, 8, 8}, {"NOTE", 10, 6, 9}};
  Spec.Keys = {{{{2, 1, 8}}}, {{{1, 1, 4}}}, {{{3, 1, 2}}}};
  return Spec;
}

std::vector<std::string> UpdateRecords() {
  const TableSpec S = UpdateSpec();
  return {RecordBytes(S, {"0001", "BRAVO", 10, 1.5, 100, 2.25, "991231", 0.5, "uno"}),
          RecordBytes(S, {"0002", "DELTA", 20, 2.5, 200, 4.5, "A50102", 1.5, "dos"}),
          RecordBytes(S, {"0003", "FOXTROT", 30, 3.5, 300, 6.75, "A00101", 2.5, "tres"})};
}

class UpdateTest : public ::testing::Test {
 protected:
  UpdateTest() : Table(UpdateSpec(), UpdateRecords()), T(Table.File()) {}

  void EditRecord(int32_t Record) {
    T.SetBookMark(Record);
    T.Edit();
  }
  Variant Field(int32_t Record, const char* Name) {
    T.SetBookMark(Record);
    return T.Fields(Name);
  }
  int32_t SeekOn(int16_t Key, const Variant& Value) {
    T.SetIndex(Key);
    return T.SeekKey(Value, adseekfirsteq);
  }

  OpenTable Table;
  TQFile& T;
};

TEST_F(UpdateTest, EditWritesEachChangedFieldByItsType) {
  EditRecord(2);
  T.SetFields("QTY", "-7");
  T.SetFields("PRICE", 0.75);
  T.SetFields("TOTAL", "123456");
  T.SetFields("AMOUNT", "1.5");
  T.SetFields("FECHA", Date{2003, 2, 1});
  T.SetFields("RATE", 3);
  T.SetFields("NOTE", "cambiado");
  T.Update();
  EXPECT_EQ(T.EditMode(), 0);
  EXPECT_EQ(Field(2, "QTY").AsInteger(), -7);
  EXPECT_FLOAT_EQ(static_cast<float>(Field(2, "PRICE").AsNumber()), 0.75f);
  EXPECT_EQ(Field(2, "TOTAL").AsInteger(), 123456);
  EXPECT_DOUBLE_EQ(Field(2, "AMOUNT").AsNumber(), 1.5);
  EXPECT_EQ(Field(2, "FECHA").ToString(), "01/02/03");
  EXPECT_DOUBLE_EQ(Field(2, "RATE").AsNumber(), 3.0);
  EXPECT_EQ(Field(2, "NOTE").ToString(), "cambia");  // cut to the field's width
  EXPECT_EQ(Field(2, "CODE").ToString(), "0002");    // not put: unchanged
  EXPECT_EQ(Field(1, "QTY").AsInteger(), 10);        // the neighbours are untouched
  EXPECT_EQ(Field(3, "CODE").ToString(), "0003");
  EditRecord(1);  // an empty value in a numeric field is zero, and its key follows
  T.SetFields("QTY", "");
  T.Update();
  EXPECT_EQ(Field(1, "QTY").AsInteger(), 0);
  EXPECT_EQ(SeekOn(3, std::vector<Variant>{0}), 1);
}

// Dates are stored by the length of their text: eight characters with a year below 60
// fold the century; other lengths store no date. Nothing put, nothing written or sent.
TEST_F(UpdateTest, DatesAreStoredByTheLengthOfTheirTextAndAnEmptyEditWritesNothing) {
  EditRecord(1);
  T.SetFields("FECHA", "05/03/59");
  T.Update();
  const size_t FechaAt = static_cast<size_t>(testing::FieldOffsetOf(UpdateSpec(), 7));
  EXPECT_EQ(Table.DataBytes().substr(FechaAt, 6), "F90305");
  EXPECT_EQ(DateValueToStored("02/01/2005"), "A50102");
  for (const char* Odd : {"5/03/59", "05/03/2059X", "ABC"}) {
    EditRecord(1);
    T.SetFields("FECHA", Odd);
    T.Update();
    EXPECT_EQ(Field(1, "FECHA").ToString(), "") << Odd;  // six blanks read as no date
  }
  const std::string Before = Table.DataBytes();
  EditRecord(2);
  T.SetEngineCommand("X\\MARK");
  T.Update();
  EXPECT_EQ(T.EditMode(), 0);
  EXPECT_EQ(T.EngineCommand(), "X\\MARK");
  T.Update();  // with no edit open it only closes
  EXPECT_EQ(Table.DataBytes(), Before);
}

// A failed Update closes the edit: an Edit leaves the record and its keys as they were,
// and a second Update after an AddNew whose keys went in does not insert them again.
TEST_F(UpdateTest, AFailedUpdateClosesTheEditAndLeavesNothingToInsertTwice) {
  const std::string Before = Table.DataBytes();
  for (const auto& [Name, Value, Number] : std::vector<std::tuple<const char*, Variant, int>>{
           {"QTY", 40000, 6}, {"AMOUNT", "abc", 13}}) {
    EditRecord(2);
    T.SetFields("NAME", "ZULU");  // a key field, before the failing field
    T.SetFields(Name, Value);
    try {
      T.Update();
      ADD_FAILURE() << "no error for " << Name;
    } catch (const TQError& Error) {
      EXPECT_EQ(Error.Number(), Number);
    }
    EXPECT_EQ(T.EditMode(), 0) << Name;
    EXPECT_EQ(Table.DataBytes(), Before) << Name;
  }
  EXPECT_EQ(SeekOn(1, "DELTA"), 2);
  EXPECT_EQ(SeekOn(1, "ZULU"), 0);
  T.SetFieldType(9, 74);  // NOTE, 6 bytes: too narrow for a long text's place (fault 5)
  EditRecord(2);
  T.SetFields("NOTE", "x");
  EXPECT_THROW(T.Update(), TQError);
  EXPECT_EQ(T.EditMode(), 0);
  T.AddNew();
  T.SetFields("NAME", "HOTEL");
  T.SetFields("NOTE", "texto");
  EXPECT_THROW(T.Update(), TQError);
  EXPECT_EQ(T.EditMode(), 0);
  T.Update();
  EXPECT_EQ(T.RecordCount(), 4);
}

TEST_F(UpdateTest, AMoveAfterReKeyingTwoKeyFieldsGoesOnFromTheOldPlace) {
  T.SetIndex(1);  // BRAVO 1, DELTA 2, FOXTROT 3
  T.MoveLast();
  T.Edit();
  T.SetFields("NAME", "aaa");
  T.SetFields("CODE", "0000");  // two key fields: the position is saved once, before both
  T.Update();
  T.MovePrevious();
  EXPECT_EQ(T.EngineCommand().substr(0, 5), "E\\1\\3");
  EXPECT_EQ(T.BookMark(), 2);                          // before FOXTROT's old place: DELTA
  EXPECT_EQ(Field(3, "NAME").ToString(), "aaa     ");  // the record keeps the case put
  EXPECT_EQ(SeekOn(1, "AAA"), 3);
  EXPECT_EQ(SeekOn(1, "FOXTROT"), 0);
  EXPECT_EQ(SeekOn(2, "0000"), 3);
}

TEST_F(UpdateTest, AddNewWritesTheWholeRecordWithZeroForWhatWasNotPut) {
  T.AddNew();
  T.SetFields("NAME", "Echo");
  T.SetFields("QTY", "12");
  T.SetFields("FECHA", "31/12/1999");
  T.Update();
  EXPECT_EQ(T.EditMode(), 0);
  EXPECT_EQ(T.BookMark(), 4);
  EXPECT_EQ(T.Fields("QTY").AsInteger(), 12);
  EXPECT_EQ(T.Fields("PRICE").ToDouble(), 0.0);
  EXPECT_EQ(T.Fields("CODE").ToString(), "    ");
  EXPECT_EQ(T.Fields("FECHA").ToString(), "31/12/99");
  EXPECT_EQ(SeekOn(1, "ECHO"), 4);
  EXPECT_EQ(SeekOn(3, std::vector<Variant>{12}), 4);
}

// A new record in a deleted record's place waits for that record's lock (its deleter may
// still be writing the mark); a record after the last one was never anybody's, and is
// written without taking its lock. Counted in the platform layer's lock calls.
TEST_F(UpdateTest, OnlyANewRecordInADeletedRecordsPlaceTakesTheRecordLock) {
  const auto LocksOfOneAddNew = [this](const char* Code) {
    const uint64_t Before = platform::GetIoCounters().Locks;
    T.AddNew();
    T.SetFields("CODE", Code);
    T.SetFields("NAME", "NUEVO");
    T.Update();
    return platform::GetIoCounters().Locks - Before;
  };
  const uint64_t Fresh = LocksOfOneAddNew("0010");
  EXPECT_EQ(T.BookMark(), 4);
  T.Delete(2);
  const uint64_t Reused = LocksOfOneAddNew("0011");
  EXPECT_EQ(T.BookMark(), 2);
  EXPECT_EQ(Reused, Fresh + 2);  // lock and unlock of record 2
  EXPECT_EQ(Field(2, "CODE").ToString(), "0011");
  EXPECT_EQ(SeekOn(2, "0011"), 2);
}

// Closes the key file under the table, so that the engine refuses the next insert.
void CloseKeyFile(TQFile& T) {
  T.SetEngineCommand("K");
  T.ExecuteCommand();
}
void ReopenKeyFile(TQFile& T, const std::string& KeyPath) {
  std::string Path = KeyPath;
  for (char& C : Path) C = C == '/' ? '\\' : C;
  T.SetEngineCommand("/O/" + Path + "/" + std::to_string(T.DataFileNo()));
  T.ExecuteCommand();
  ASSERT_EQ(T.LastError(), 0);
}

TEST_F(UpdateTest, ARefusedInsertWritesNothingAndASecondUpdateRetries) {
  const std::string Before = Table.DataBytes();
  T.AddNew();
  T.SetFields("CODE", "0009");
  T.SetFields("NAME", "HOTEL");
  CloseKeyFile(T);
  try {
    T.Update();
    FAIL() << "the insert was not refused";
  } catch (const TQError& Error) {
    EXPECT_EQ(Error.Number(), 50221);
    EXPECT_EQ(Error.Description().rfind("Error indexados: ", 0), 0u) << Error.Description();
    EXPECT_NE(Error.Description().find(" insertando registro I\\"), std::string::npos);
  }
  EXPECT_EQ(T.EditMode(), 2);
  EXPECT_EQ(Table.DataBytes(), Before);

  ReopenKeyFile(T, Table.KeyPath());
  T.Update();
  EXPECT_EQ(T.EditMode(), 0);
  EXPECT_EQ(T.BookMark(), 4);
  EXPECT_EQ(SeekOn(1, "HOTEL"), 4);
  EXPECT_EQ(T.Fields("CODE").ToString(), "0009");
}

// Files that may only be read (a read-only share, mode 444): the table is read as ever,
// and every change fails at once, never waiting as for a lock held elsewhere.
TEST_F(UpdateTest, AReadOnlyTableIsReadAndRefusesEveryChangeAtOnce) {
  const std::string Before = Table.DataBytes();
  const testing::ReadOnlyFiles ReadOnly(Table.Dir().Path());
  const auto Sleep = engine::SetRetrySleep([](int32_t) { throw std::runtime_error("retried"); });
  const std::vector<std::function<void(TQFile&)>> Changes = {
      [](TQFile& R) { R.AddNew(), R.SetFields("NAME", "GOLF"), R.Update(); },
      [](TQFile& R) { R.SetBookMark(1), R.Edit(), R.SetFields("NAME", "ZULU"), R.Update(); },
      [](TQFile& R) { R.Delete(3); }, [](TQFile& R) { R.SetBookMark(2), R.AddToField("QTY", 1); }};
  for (const auto& Change : Changes) {
    auto R = Table.Open();
    R->SetIndex(1);
    EXPECT_EQ(R->SeekKey("DELTA"), 2);
    R->MoveNext();
    EXPECT_EQ(R->BookMark(), 3);
    R->Filter("NAME LIKE *O*");
    EXPECT_EQ(R->RecordCount(), 2);
    R->Filter("");
    try {
      Change(*R);
      ADD_FAILURE() << "a read-only table was changed";
    } catch (const TQError& Error) {
      EXPECT_EQ(Error.Description().rfind("Solo se puede leer el archivo " + Table.Dir().Dir(), 0),
                0u)
          << Error.Description();
    }
  }
  engine::SetRetrySleep(Sleep);
  EXPECT_EQ(Table.DataBytes(), Before);
}

// A comma-decimal locale built for the test (the machine may have none installed).
class CommaLocaleTest : public UpdateTest {
 protected:
  static void SetUpTestSuite() {
    Dir = std::make_unique<testing::TempDir>();
    const std::string Command =
        "localedef -i es_ES -f UTF-8 " + Dir->File("es_ES.UTF-8") + " >/dev/null 2>&1";
    Built = std::system(Command.c_str()) == 0;
  }
  static void TearDownTestSuite() { Dir.reset(); }
  void SetUp() override {
    if (!Built) GTEST_SKIP() << "localedef could not build es_ES.UTF-8";
  }
  static inline std::unique_ptr<testing::TempDir> Dir;
  static inline bool Built = false;
};

// The locale's work runs in a child process of its own, so that its environment stays
// there (and with it what the C library keeps of a locale loaded from LOCPATH).
int ChangeUnderCommaLocale(TQFile& T, const std::string& LocaleDir) {
  ::setenv("LOCPATH", LocaleDir.c_str(), 1);
  ::setenv("LC_ALL", "es_ES.UTF-8", 1);
  if (platform::UserLocale().Decimal != ',') return 2;
  if (NumberFromBuffer("1.5", 3) != 1.5) return 3;
  if (NumberFromBuffer("2,5", 3) != 2.5) return 4;  // the locale's own decimal comma
  try {
    T.SetBookMark(3);
    for (const bool New : {false, true}) {  // record 3 edited, then record 4 added
      New ? T.AddNew() : T.Edit();
      T.SetFields("AMOUNT", "1.5");
      T.SetFields("RATE", "1.234,5");  // holds a point: the leading number with the point
      T.SetFields("PRICE", "2,5");
      T.SetFields("QTY", "1.500");  // whole numbers: the point groups thousands
      T.SetFields("TOTAL", "2.500");
      T.Update();
    }
  } catch (...) {
    return 5;
  }
  return 0;
}

TEST_F(CommaLocaleTest, APointIsADecimalPointInAnyLocale) {
  EXPECT_EXIT(std::_Exit(ChangeUnderCommaLocale(T, Dir->Path())), ::testing::ExitedWithCode(0), "");
  for (const int32_t Record : {3, 4}) {
    EXPECT_DOUBLE_EQ(Field(Record, "AMOUNT").AsNumber(), 1.5);
    EXPECT_DOUBLE_EQ(Field(Record, "RATE").AsNumber(), 1.234);
    EXPECT_FLOAT_EQ(static_cast<float>(Field(Record, "PRICE").AsNumber()), 2.5f);
    EXPECT_EQ(Field(Record, "QTY").AsInteger(), 1500);
    EXPECT_EQ(Field(Record, "TOTAL").AsInteger(), 2500);
  }
}

TEST(EditValuesTest, NumbersFromTheBuffer) {
  EXPECT_EQ(NumberFromBuffer(Variant(), 1), 0.0);
  EXPECT_EQ(NumberFromBuffer(true, 4), -1.0);
  EXPECT_EQ(NumberFromBuffer("12abc.5", 3), 12.0);  // the point rule reads the leading number
  EXPECT_THROW(NumberFromBuffer("12abc.5", 1), platform::Fault);  // the locale rule
  EXPECT_THROW(NumberFromBuffer("abc", 3), platform::Fault);
  EXPECT_THROW(NumberFromBuffer(std::vector<Variant>{1}, 3), platform::Fault);
}

}  // namespace
}  // namespace tqdb

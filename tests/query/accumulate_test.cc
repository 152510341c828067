// Sum, AddToField and AddToKField: totals over a view and additions in place under a
// field lock (several processes adding at once: tests/reliability).
#include <cstring>
#include <functional>
#include <memory>
#include <string>
#include <utility>
#include <vector>

#include <gtest/gtest.h>

#include "records/record_codecs.h"
#include "support/query_tables.h"
#include "table/TableState.h"

namespace tqdb::query {
namespace {

using testing::TableSpec;

TableSpec CounterSpec() {
  TableSpec Table;
  Table.Description = "CONTADORES";
  Table.Fields = {{"NOMBRE", 11, 6, 1}, {"SALDO", 3, 8, 2},    {"UNIDADES", 1, 2, 3},
                  {"PRECIO", 2, 4, 4},  {"CANTIDAD", 4, 4, 5}, {"TEXTO", 11, 6, 6}};
  Table.Keys = {testing::KeySpec{{{1, 1, 6}}}};
  return Table;
}

// A 32-bit integer whose four stored bytes read as the text "12  ".
constexpr int32_t kLongThatReadsTwelve = 0x20203231;

class AccumulateTest : public ::testing::Test {
 protected:
  void SetUp() override {
    const TableSpec Table = CounterSpec();
    std::vector<std::string> Records = {
        testing::RecordBytes(Table, {"UNO", -5.0, 32767, 1.5, kLongThatReadsTwelve, "12"}),
        testing::RecordBytes(Table, {"DOS", 3.0, 7, 2.25, 3, "4X"}),
        testing::DeletedRecordBytes(Table),
        testing::RecordBytes(Table, {"TRES", 0.5, -2, 0.0, 0, "ABC"}),
    };
    Path = testing::WriteTable(Dir, "CONTA", "01", Table, Records);
    File = testing::OpenTable(Dir, Path);
  }

  double Saldo(int32_t Record) { return GetDouble(File->State(), Record, 2); }

  testing::TempDir Dir;
  std::string Path;
  std::unique_ptr<TQFile> File;
};

TEST_F(AccumulateTest, SumAddsTheViewsRecordsByType) {
  EXPECT_EQ(File->Sum("NO_EXISTE"), 0);  // no view: nothing is looked up or read
  File->Filter("NOMBRE = UNO OR NOMBRE = DOS");
  EXPECT_EQ(File->Sum("UNIDADES"), 32774);
  EXPECT_EQ(File->Sum(Variant(int16_t{4})), 3.75);
  EXPECT_EQ(File->Sum("TEXTO"), 16);  // the leading number of "12" and "4X"
  File->State().AbsMode = true;       // as while an ABS filter is evaluated
  EXPECT_EQ(File->Sum("SALDO"), 8);
  File->State().AbsMode = false;
  File->Filter("NOMBRE = UNO");
  EXPECT_EQ(File->Sum("CANTIDAD"), 12);   // a 32-bit integer is summed through its text
  File->State().FilterList.push_back(0);  // an entry of a deleted record counts as zero
  EXPECT_EQ(File->Sum("SALDO"), -5);
  EXPECT_THROW(File->Sum("NO_EXISTE"), TQError);
}

TEST_F(AccumulateTest, AddToFieldWritesEachTypeInPlace) {
  File->SetBookMark(2);
  EXPECT_EQ(File->AddToField("SALDO", 1.25), 4.25);
  EXPECT_EQ(Saldo(2), 4.25);
  EXPECT_EQ(File->AddToField("UNIDADES", 3), 10);
  EXPECT_EQ(GetInteger(File->State(), 2, 3), 10);
  EXPECT_EQ(File->AddToField("PRECIO", 0.5), 2.75);
  EXPECT_EQ(GetSingle(File->State(), 2, 4), 2.75f);
  EXPECT_EQ(File->AddToField("TEXTO", 1), 5);  // "4X" reads 4
  EXPECT_EQ(GetField(File->State(), 2, 6, false), "5     ");
  File->SetBookMark(1);
  EXPECT_EQ(File->AddToField("CANTIDAD", 1), 13);  // through the text of its four bytes
  EXPECT_EQ(GetField(File->State(), 1, 5, false), "13  ");
  File->SetBookMark(4);
  EXPECT_EQ(File->AddToKField(1, 2.5, 1), 3);  // id 1 is NOMBRE, one on is SALDO
  EXPECT_EQ(File->KField(1, 1).ToDouble(), 3);
  EXPECT_EQ(File->AddToKField(3, -1), -3);
}

// The number and source of the error Work raises; (0, "") when none.
std::pair<int32_t, std::string> ErrorOf(const std::function<void()>& Work) {
  try {
    Work();
  } catch (const TQError& Error) {
    return {Error.Number(), Error.Source()};
  }
  return {0, ""};
}

TEST_F(AccumulateTest, AnOverflowLeavesTheFieldAndItsLockAsTheyWere) {
  File->SetBookMark(1);
  EXPECT_EQ(ErrorOf([&] { File->AddToField("UNIDADES", 1); }),
            std::make_pair(6, std::string("AddToField")));
  EXPECT_EQ(GetInteger(File->State(), 1, 3), 32767);
  // The range is free again, for this object and for another one.
  auto Other = testing::OpenTable(Dir, Path);
  Other->SetBookMark(1);
  EXPECT_EQ(Other->AddToField("UNIDADES", -7), 32760);
  EXPECT_EQ(File->AddToField("UNIDADES", -1), 32759);
}

TEST_F(AccumulateTest, ALockedFieldFailsAtOnceWithTheRoutineAsSource) {
  auto Other = testing::OpenTable(Dir, Path);
  LockField(Other->State(), 2, 2, 0);
  File->SetBookMark(2);
  EXPECT_EQ(ErrorOf([&] { File->AddToField("SALDO", 1); }),
            std::make_pair(70, std::string("AddToField")));
  EXPECT_EQ(ErrorOf([&] { File->AddToKField(2, 1, 0); }),
            std::make_pair(70, std::string("AddToKfield")));
  EXPECT_EQ(Saldo(2), 3);
  EXPECT_EQ(File->AddToField("UNIDADES", 1), 8);  // another field is not covered
  unLockField(Other->State(), 2, 2, 0);
  EXPECT_EQ(File->AddToField("SALDO", 1), 4);
}

TEST_F(AccumulateTest, AddToFieldWithoutACurrentRecordWritesNothing) {
  File->Filter("NOMBRE = NADIE");
  EXPECT_EQ(ErrorOf([&] { File->AddToField("SALDO", 1); }),
            std::make_pair(63, std::string("AddToField")));
  for (int32_t Record : {1, 2, 4}) EXPECT_NE(Saldo(Record), 1);
  EXPECT_THROW(File->AddToField("NO_EXISTE", 1), TQError);
}

}  // namespace
}  // namespace tqdb::query

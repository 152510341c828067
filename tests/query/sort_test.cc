// Sorting a view: the edge cases of the sort step.
#include <string>
#include <thread>
#include <vector>

#include <gtest/gtest.h>

#include "support/query_tables.h"
#include "table/TableState.h"

namespace tqdb::query {
namespace {

using testing::TableSpec;

TableSpec SortSpec() {
  TableSpec Table;
  Table.Description = "ORDEN";
  Table.Fields = {{"NOMBRE", 11, 6, 1},
                  {"NUMERO", 1, 2, 2},
                  {"TEXTO", 11, 3, 3},
                  {"SALDO", 3, 8, 4},
                  {"FECHA", 5, 6, 5}};
  return Table;
}

class SortTest : public ::testing::Test {
 protected:
  void SetUp() override {
    const TableSpec Table = SortSpec();
    std::vector<std::string> Records = {
        testing::RecordBytes(Table, {"BETA", 9, "9", 4.0, "991231"}),     // 1
        testing::RecordBytes(Table, {"ALFA", 10, "10", -3.0, "A50102"}),  // 2
        testing::DeletedRecordBytes(Table),                               // 3
        testing::RecordBytes(Table, {"DELTA", 2, "2", 2.0, "A00101"}),    // 4
        testing::RecordBytes(Table, {"GAMMA", -1, "-1", 0.5, "850607"}),  // 5
    };
    File = testing::OpenTable(Dir, testing::WriteTable(Dir, "ORDEN", "01", Table, Records));
  }

  std::vector<int32_t> View() const {
    const std::vector<int32_t>& List = File->State().FilterList;
    return {List.begin() + 1, List.end()};
  }
  using List = std::vector<int32_t>;

  testing::TempDir Dir;
  std::unique_ptr<TQFile> File;
};

TEST_F(SortTest, StoredDatesSortAcrossTheCentury) {
  File->Sort("FECHA");
  EXPECT_EQ(View(), (List{5, 1, 4, 2}));  // 1985, 1999, 2000, 2005
  EXPECT_EQ(File->State().EngineResult, 5);
  EXPECT_EQ(File->State().FilterPos, 1);
}

TEST_F(SortTest, DeletedEntriesSortAsEmptyOrZeroAndTinyViewsStay) {
  File->State().FilterActive = true;
  File->State().FilterList = {0, 2, 1, 0, 4};
  File->Sort("NOMBRE");
  EXPECT_EQ(View(), (List{0, 2, 1, 4}));
  File->State().FilterList = {0, 5, 0, 1};
  File->Sort("NUMERO");
  EXPECT_EQ(View(), (List{5, 0, 1}));  // -1, (0), 9
  File->Filter("NOMBRE = ALFA");
  File->Sort("NUMERO");
  EXPECT_EQ(View(), (List{2}));
  File->Filter("NOMBRE = NADIE");
  File->Sort("NUMERO");
  EXPECT_EQ(View(), List{});
  EXPECT_EQ(File->State().FilterPos, 0);
}

// The view of all live records is made before the fields are looked up.
TEST_F(SortTest, AnUnknownFieldLeavesTheViewOfAllRecords) {
  try {
    File->Sort("SUELDO DESC");
    FAIL() << "accepted";
  } catch (const TQError& Error) {
    EXPECT_EQ(Error.Number(), 50234);
    EXPECT_EQ(Error.Description(), "Campo SUELDO no existe");
    EXPECT_EQ(Error.Source(), "");
  }
  EXPECT_TRUE(File->State().FilterActive);
  EXPECT_EQ(View(), (List{1, 2, 4, 5}));
  for (const char* Bad : {"NOMBRE+", "ABS()", ""}) EXPECT_THROW(File->Sort(Bad), TQError) << Bad;
}

// The work arrays are shared by the process: sorts from two threads take turns.
TEST_F(SortTest, SortsInTwoThreadsWaitForEachOther) {
  testing::TempDir Other;
  const TableSpec Table = SortSpec();
  std::vector<std::string> Records;
  for (int I = 0; I < 3000; ++I) {
    Records.push_back(testing::RecordBytes(
        Table, {std::to_string((I * 7919) % 3001), I % 100, "X", static_cast<double>(-I), ""}));
  }
  const std::string Path = testing::WriteTable(Other, "ORDEN", "01", Table, Records);
  auto First = testing::OpenTable(Other, Path);
  auto Second = testing::OpenTable(Other, Path);
  const auto Check = [](TQFile& File, const char* Field, bool Descending) {
    for (int Round = 0; Round < 20; ++Round) {
      File.Filter("");
      File.Sort(std::string(Field) + (Descending ? " DESC" : ""));
      const std::vector<int32_t>& List = File.State().FilterList;
      if (List.size() != 3001) return false;
      for (size_t I = 2; I < List.size(); ++I) {
        // SALDO is -(record - 1): ascending saldo is descending record number.
        if (Descending ? List[I - 1] > List[I] : List[I - 1] < List[I]) return false;
      }
    }
    return true;
  };
  bool FirstOk = false, SecondOk = false;
  std::thread A([&] { FirstOk = Check(*First, "SALDO", false); });
  std::thread B([&] { SecondOk = Check(*Second, "SALDO", true); });
  A.join();
  B.join();
  EXPECT_TRUE(FirstOk);
  EXPECT_TRUE(SecondOk);
}

}  // namespace
}  // namespace tqdb::query

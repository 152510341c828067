// The filter language through the public interface: its edge cases, its errors and what
// a filter reads.
#include <algorithm>
#include <cstdio>
#include <random>
#include <string>
#include <vector>

#include <gtest/gtest.h>

#include "platform/file_pool.h"
#include "support/query_tables.h"
#include "table/TableState.h"

namespace tqdb::query {
namespace {

using testing::KeySpec;
using testing::TableSpec;

TableSpec SmallSpec() {
  TableSpec Table;
  Table.Description = "FILTROS";
  Table.Fields = {{"NOMBRE", 0, 10, 1},
                  {"CIUDAD", 0, 8, 2},
                  {"SALDO", 3, 8, 3},
                  {"EDAD", 1, 2, 4},
                  {"NOTA", 11, 12, 5}};
  Table.Keys = {KeySpec{{{1, 1, 10}}}};
  return Table;
}

class FilterTest : public ::testing::Test {
 protected:
  void SetUp() override {
    const TableSpec Table = SmallSpec();
    std::vector<std::string> Records = {
        testing::RecordBytes(Table, {"GARCIA", "MADRID", 1.5, 1, "garcia"}),   // 1
        testing::RecordBytes(Table, {"LOPEZ", "SEVILLA", -5.0, 2, "LOPEZ"}),   // 2
        testing::RecordBytes(Table, {"GARCIAS", "MADRID", 15.0, 3, "X"}),      // 3
        testing::DeletedRecordBytes(Table),                                    // 4
        testing::RecordBytes(Table, {"PEREZ", "BILBAO", 9.5, 1, "Y"}),         // 5
        testing::RecordBytes(Table, {"lopez", "MADRID", -12.0, 2, "Z"}),       // 6
        testing::RecordBytes(Table, {"ALONSO", "SEVILLA", 3.0, 3, "GARCIA"}),  // 7
        testing::RecordBytes(Table, {"GARCIA", "BILBAO", 3.0, 2, "GARCIA"}),   // 8
    };
    File = testing::OpenTable(Dir, testing::WriteTable(Dir, "CLIEN", "01", Table, Records));
  }

  std::vector<int32_t> View() const {
    const std::vector<int32_t>& List = File->State().FilterList;
    return {List.begin() + 1, List.end()};
  }
  std::vector<int32_t> Sorted(const std::string& Filter) {
    File->Filter(Filter);
    std::vector<int32_t> Records = View();
    std::sort(Records.begin(), Records.end());
    return Records;
  }
  using List = std::vector<int32_t>;

  testing::TempDir Dir;
  std::unique_ptr<TQFile> File;
};

TEST_F(FilterTest, AFilterSelectsTheFirstRecordAndEmptyTextRemovesTheView) {
  File->Filter("CIUDAD = MADRID");  // a pass over the file, in record order
  EXPECT_EQ(View(), (List{1, 3, 6}));
  EXPECT_EQ(File->State().EngineResult, 1);
  EXPECT_EQ(File->State().FilterPos, 1);
  EXPECT_EQ(File->LastError(), 0);
  File->Filter("");
  EXPECT_FALSE(File->State().FilterActive);
  EXPECT_EQ(File->LastError(), 0);
  EXPECT_EQ(View(), (List{1, 3, 6}));  // the list is kept
  File->Filter("EDAD = 99");
  EXPECT_TRUE(File->State().FilterActive);
  EXPECT_EQ(File->State().EngineResult, 0);
  EXPECT_TRUE(File->Bof() && File->Eof());
}

TEST_F(FilterTest, LowerCaseDataMatchesLikeOnlyInAKeyWalk) {
  EXPECT_EQ(Sorted("NOMBRE LIKE LOP*"), (List{2, 6}));
  EXPECT_EQ(Sorted("NOMBRE = LOPEZ"), (List{2}));
  EXPECT_EQ(Sorted("NOTA LIKE GAR*"), (List{7, 8}));  // not keyed: record 1 holds "garcia"
  // Without a literal head the whole key is walked: key order, upper-cased, ANDs folded in.
  for (const char* Filter : {"NOMBRE LIKE *OPEZ", "NOMBRE LIKE ?OPEZ", "NOMBRE = *OPEZ"}) {
    File->Filter(Filter);
    EXPECT_EQ(View(), (List{2, 6})) << Filter;
  }
  File->Filter("NOMBRE LIKE *EZ");
  EXPECT_EQ(View(), (List{2, 6, 5}));
  File->Filter("NOMBRE LIKE *A AND NOTA LIKE GAR*");
  EXPECT_EQ(View(), (List{1, 8}));
}

TEST_F(FilterTest, XorAbsAndTheNumberRules) {
  EXPECT_EQ(Sorted("(EDAD = 1) XOR (EDAD = 3)"), (List{1, 3, 5, 7}));
  EXPECT_EQ(Sorted("ABS(SALDO < 10)"), (List{1, 2, 5, 7, 8}));
  EXPECT_FALSE(File->State().AbsMode);
  EXPECT_EQ(Sorted("SALDO = 1.5"), (List{1}));  // a point is always decimal
}

TEST_F(FilterTest, TheDirectFormWalksOneKeyByPrefix) {
  EXPECT_EQ(Sorted("\\01GARCIA"), (List{1, 3, 8}));
  EXPECT_EQ(Sorted("\\01LOPEZ"), (List{2, 6}));  // keys hold upper-cased text
  EXPECT_EQ(Sorted("\\01"), (List{1, 2, 3, 5, 6, 7, 8}));
  EXPECT_EQ(Sorted("\\01ZZ"), List{});
  for (const char* Bad : {"\\99GARCIA", "\\1", "\\AB"}) {
    try {
      File->Filter(Bad);
      ADD_FAILURE() << Bad;
    } catch (const TQError& Error) {
      EXPECT_EQ(Error.Number(), 50230) << Bad;
    }
  }
}

TEST_F(FilterTest, CleanDropsDeletedEntriesAndKeepsThePlaceInside) {
  File->Filter("EDAD >= 1");
  TableState& State = File->State();
  State.FilterList = {0, 1, 0, 3, -2, 5};
  State.FilterPos = 5;
  File->Filter("clean");
  EXPECT_EQ(View(), (List{1, 3, 5}));
  EXPECT_EQ(State.FilterPos, 3);
  EXPECT_TRUE(State.FilterActive);
  State.FilterList = {0, 0, 0};
  File->Filter("CLEAN");
  EXPECT_EQ(State.FilterList, (List{0}));
  EXPECT_EQ(State.FilterPos, 0);
}

// The number and description of the error Filter raises; (0, "") when none.
std::pair<int32_t, std::string> ErrorOf(TQFile& File, const std::string& Text) {
  try {
    File.Filter(Text);
  } catch (const TQError& Error) {
    return {Error.Number(), Error.Description()};
  }
  return {0, ""};
}

TEST_F(FilterTest, ErrorsNameTheirTextAndAnUnknownConnectorKeepsTheView) {
  File->Filter("EDAD = 2");
  const List Before = View();
  EXPECT_EQ(ErrorOf(*File, "(EDAD = 1) AND (EDAD = 2) NOT (EDAD = 3)"),
            std::make_pair(50230, std::string("Error en filtro: NOT")));
  EXPECT_TRUE(File->State().FilterActive);
  EXPECT_EQ(View(), Before);
  EXPECT_EQ(ErrorOf(*File, "(EDAD = 1) AND (EDAD = 2"),
            std::make_pair(50232, std::string("Error en filtro: EDAD = 2")));
  File->Filter("");
  EXPECT_EQ(ErrorOf(*File, "edad = 1 AND sueldo > 3"),
            std::make_pair(50234, std::string("Campo SUELDO no existe")));
  EXPECT_FALSE(File->State().FilterActive);
}

TEST_F(FilterTest, EmptyConditionsSelectNothingButATrailingConnectorIsHarmless) {
  EXPECT_EQ(Sorted("EDAD = 1 And "), (List{1, 5}));
  EXPECT_EQ(Sorted(" AND EDAD = 1"), List{});  // "" selects nothing, then narrows
  EXPECT_EQ(Sorted(" OR EDAD = 1"), (List{1, 5}));
  EXPECT_EQ(Sorted(" "), List{});
  EXPECT_EQ(File->LastError(), 16);
  EXPECT_EQ(Sorted("NOMBRE GARCIA"), List{});
}

TEST_F(FilterTest, HostileExpressionsGiveADefinedErrorOrResult) {
  std::vector<std::string> Texts = {
      std::string(5000, '(') + std::string(5000, ')'),
      "(" + std::string(9998, 'A') + ")",
      "EDAD = 1 AND (" + std::string(9000, '(') + "EDAD = 1",
      "NOMBRE LIKE " + std::string(10000, '*') + "X",
      "(EDAD = 1) AND ()",
      "A = 1 OR (",
  };
  std::string Long;
  while (Long.size() < 10000) Long += "EDAD = 1 OR EDAD = 2 AND CIUDAD <> X AND ";
  Texts.push_back(Long);
  std::string Grouped = "EDAD = 1";
  while (Grouped.size() < 10000) Grouped += " OR (EDAD = 2 AND SALDO < 100)";
  Texts.push_back(Grouped);
  std::mt19937 Random(5);
  const std::string Pieces[] = {"(", ")", " AND ", " OR ", "EDAD", "NOMBRE", " = ", "<",    ">",
                                "*", "'", "\\",    "1",    "GAR",  " ",      "XOR", "LIKE", "ABS("};
  for (int I = 0; I < 1500; ++I) {
    std::string Text;
    const int Count = static_cast<int>(Random() % 12);
    for (int K = 0; K < Count; ++K) Text += Pieces[Random() % std::size(Pieces)];
    Texts.push_back(Text);
  }
  for (const std::string& Text : Texts) {
    try {
      File->Filter(Text);
      const TableState& State = File->State();
      EXPECT_TRUE(Text.empty() || State.FilterActive);
      EXPECT_LE(State.FilterPos, static_cast<int32_t>(State.FilterList.size()) - 1);
    } catch (const TQError& Error) {
      EXPECT_TRUE(Error.Number() == 50230 || Error.Number() == 50232 || Error.Number() == 50234)
          << Text.substr(0, 80) << " gave " << Error.Number() << " " << Error.Description();
    }
    EXPECT_FALSE(File->State().AbsMode);
  }
  EXPECT_EQ(Sorted(Long.substr(0, Long.size() - 5)), (List{1, 2, 5, 6, 8}));
}

// A table of 2600 records of 2016 bytes, where a pass over the data file costs many reads.
class KeyedFilterReadsTest : public ::testing::Test {
 protected:
  void SetUp() override {
    TableSpec Table;
    Table.Description = "ANCHA";
    Table.Fields = {
        {"CODIGO", 0, 8, 1}, {"RELLENO", 11, 2000, 2}, {"GRUPO", 11, 4, 3}, {"NUMERO", 4, 4, 4}};
    Table.Keys = {KeySpec{{{1, 1, 8}}}, KeySpec{{{4, 1, 4}}}};
    for (int I = 1; I <= 2600; ++I) {
      char Code[16];
      std::snprintf(Code, sizeof Code, "C%05d", I);
      Records.push_back(testing::RecordBytes(
          Table, {Code, std::string(2000, 'R'), I % 7 == 0 ? "G7" : "GX", I % 130}));
    }
    File = testing::OpenTable(Dir, testing::WriteTable(Dir, "ANCHA", "01", Table, Records));
  }

  uint64_t ReadsOf(const std::string& Filter) {
    platform::ResetIoCounters();
    File->Filter(Filter);
    return platform::GetIoCounters().Reads;
  }

  testing::TempDir Dir;
  std::vector<std::string> Records;
  std::unique_ptr<TQFile> File;
};

TEST_F(KeyedFilterReadsTest, KeyedConditionsReadOnlyTheRecordsTheirKeyRangeHolds) {
  const uint64_t Pass = ReadsOf("GRUPO = G7");
  EXPECT_EQ(File->State().FilterList.size() - 1, 371u);
  EXPECT_GT(Pass, 30u);  // the pass reads the whole file

  // "=": the key's nodes plus the three records whose key matches.
  const uint64_t Equal = ReadsOf("CODIGO = C00100");
  EXPECT_EQ(File->State().FilterList.size() - 1, 1u);
  EXPECT_LE(Equal, 1u + 6u);
  EXPECT_LE(ReadsOf("CODIGO LIKE C0010*"), 10u + 8u);
  EXPECT_EQ(File->State().FilterList.size() - 1, 10u);
  // Ranges decide on the key alone.
  EXPECT_LE(ReadsOf("CODIGO >= C02590"), 6u);
  EXPECT_EQ(File->State().FilterList.size() - 1, 11u);
  EXPECT_LE(ReadsOf("CODIGO < C00005"), 6u);
  EXPECT_EQ(File->State().FilterList.size() - 1, 4u);
  // Conditions folded into an "=" walk read only the walked records.
  EXPECT_LE(ReadsOf("CODIGO = C0002* AND GRUPO = G7"), 10u + 10u + 6u);
  EXPECT_EQ(File->State().FilterList.size() - 1, 2u);  // C00021 and C00028
  // "=" on a binary number walks its stored bytes (upper-cased in the key, so 97 meets 65
  // there) and lists the records in file order, as the pass would.
  EXPECT_LE(ReadsOf("NUMERO = 97"), 40u + 6u);
  std::vector<int32_t> Expected{0};
  for (int32_t I = 97; I <= 2600; I += 130) Expected.push_back(I);
  EXPECT_EQ(File->State().FilterList, Expected);
}

TEST_F(KeyedFilterReadsTest, LongStepsRaiseProgressAboveTwoThousandRecords) {
  std::vector<int32_t> Seen;
  File->OnProgress([&](int32_t Percentage) { Seen.push_back(Percentage); });
  File->Filter("GRUPO = G7");
  ASSERT_FALSE(Seen.empty());
  EXPECT_EQ(Seen.front(), 1);
  EXPECT_EQ(Seen.back(), 100);
  EXPECT_TRUE(std::is_sorted(Seen.begin(), Seen.end()));
}

}  // namespace
}  // namespace tqdb::query

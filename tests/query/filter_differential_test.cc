// Filters, sorts and sums compared with SQLite on the same generated records.
//
// The filter language applies AND and OR strictly from left to right and lists a record
// once for every OR side it satisfies, so a filter's result is a multiset. Its SQL twin is
// the multiplicity of each record: m := [c1], then m := m + [c] after OR and m := m * [c]
// after AND; a parenthesised group g joins with m + g (OR) or m * (g > 0) (AND).
#include <sqlite3.h>

#include <algorithm>
#include <cmath>
#include <cstdio>
#include <cstring>
#include <functional>
#include <map>
#include <random>
#include <string>
#include <vector>

#include <gtest/gtest.h>

#include "support/open_table.h"
#include "table/TableState.h"

namespace tqdb::query {
namespace {

using testing::FieldSpec;
using testing::KeySpec;
using testing::TableSpec;
using testing::Value;

struct Row {
  std::string Nombre, Ciudad, Codigo;
  int Edad = 0;
  double Saldo = 0;
  int Cantidad = 0;
  double Precio = 0;
  bool Deleted = false;
};

TableSpec Spec() {
  TableSpec Table;
  Table.Description = "DIFERENCIAL";
  Table.Fields = {{"NOMBRE", 0, 10, 1}, {"CIUDAD", 0, 8, 2},   {"EDAD", 1, 2, 3},
                  {"SALDO", 3, 8, 4},   {"CANTIDAD", 4, 4, 5}, {"PRECIO", 2, 4, 6},
                  {"CODIGO", 11, 6, 7}};
  // Key 1 spans two fields, so a walk must look at the first segment only.
  // Keys 3 and 4 lie over binary numbers: an "=" walks their stored bytes.
  Table.Keys = {KeySpec{{{1, 1, 10}, {7, 1, 6}}}, KeySpec{{{7, 1, 6}}},
                KeySpec{{{3, 1, 2}, {1, 1, 10}}}, KeySpec{{{6, 1, 4}}}};
  return Table;
}

// An in-memory SQLite database; Query returns each row's columns as text.
class Sql {
 public:
  Sql() { sqlite3_open(":memory:", &db_); }
  ~Sql() { sqlite3_close(db_); }
  std::vector<std::vector<std::string>> Query(const std::string& Text) {
    std::vector<std::vector<std::string>> Rows;
    char* Error = nullptr;
    const auto Collect = [](void* Out, int Count, char** Cells, char**) {
      static_cast<decltype(Rows)*>(Out)->emplace_back(Cells, Cells + Count);
      return 0;
    };
    EXPECT_EQ(sqlite3_exec(db_, Text.c_str(), Collect, &Rows, &Error), SQLITE_OK)
        << (Error ? Error : "") << "\n"
        << Text;
    sqlite3_free(Error);
    return Rows;
  }

 private:
  sqlite3* db_ = nullptr;
};

std::string Number(double Value) {
  char Buffer[32];
  std::snprintf(Buffer, sizeof Buffer, "%g", Value);
  return Buffer;
}

// The operators (with their synonyms) and their SQL forms.
constexpr const char* kOps[] = {"=", "<>", "<", "<=", ">", ">=", "=>", "=<", "><"};
constexpr const char* kSqlOps[] = {"=", "<>", "<", "<=", ">", ">=", ">=", "<=", "<>"};

// A filter condition and the SQL expression (0 or 1) that says whether a row satisfies it.
struct Condition {
  std::string Filter, Sql;
};

class Generator {
 public:
  explicit Generator(uint32_t Seed) : random_(Seed) {}

  int Int(int Low, int High) { return std::uniform_int_distribution<int>(Low, High)(random_); }
  bool Chance(int Percent) { return Int(1, 100) <= Percent; }
  std::string Word(const char* Alphabet, int MaxLength) {
    std::string Text;
    const int Length = Int(0, MaxLength);
    for (int I = 0; I < Length; ++I)
      Text += Alphabet[Int(0, static_cast<int>(strlen(Alphabet)) - 1)];
    return Text;
  }
  double Quarter(int Low, int High) { return Int(Low * 4, High * 4) / 4.0; }

  Row MakeRow() {  // braces evaluate left to right: the draws keep their order
    return {Word("ABCD", 4),    Word("XYZ", 3),   Word("0123", 3), Int(-40, 90),
            Quarter(-100, 100), Int(-1000, 1000), Quarter(0, 50),  Chance(5)};
  }

  Condition MakeCondition() {
    const int Kind = Int(0, 6);
    const char* const Texts[][2] = {{"NOMBRE", "ABCD"}, {"CIUDAD", "XYZ"}, {"CODIGO", "0123"}};
    if (Kind < 3) return TextCondition(Texts[Kind][0], Texts[Kind][1], Kind == 0 ? 3 : 2);
    if (Kind == 3) return NumberCondition("EDAD", Int(-45, 95) + (Chance(20) ? 0.5 : 0));
    if (Kind == 4) return NumberCondition("SALDO", Quarter(-110, 110));
    if (Kind == 5) return NumberCondition("CANTIDAD", Int(-1100, 1100));
    return NumberCondition("PRECIO", Quarter(-5, 55));
  }

  // Conditions joined by random connectors, applied left to right.
  void Chain(int Count, std::string& Filter, std::string& Multiplicity) {
    Filter.clear();
    Multiplicity = "0";
    ChainOnto(Count, false, Filter, Multiplicity);
  }

  // Count more conditions applied to a collection whose multiplicity is Multiplicity, the
  // first one joined as an intersection when And is set.
  void ChainOnto(int Count, bool And, std::string& Filter, std::string& Multiplicity) {
    for (int I = 0; I < Count; ++I) {
      const Condition C = MakeCondition();
      const std::string Term = "(CASE WHEN " + C.Sql + " THEN 1 ELSE 0 END)";
      if (I > 0) {
        And = Chance(50);
        Filter += And ? " AND " : " OR ";
      }
      Filter += C.Filter;
      Multiplicity = "(" + Multiplicity + (And ? " * " : " + ") + Term + ")";
    }
  }

 private:
  Condition TextCondition(const std::string& Field, const char* Alphabet, int MaxLength) {
    std::string Value = Word(Alphabet, MaxLength);
    const int Kind = Int(0, 10);
    if (Kind <= 8) {
      const std::string Shown = Chance(30) ? "'" + Value + "'" : Value;
      return {Field + " " + kOps[Kind] + " " + Shown,
              Field + " " + kSqlOps[Kind] + " '" + Value + "'"};
    }
    // A pattern: a literal head with "*" or "?" after it, or a leading "*".
    std::string Pattern = Chance(20) ? "*" + Value : Value + (Chance(70) ? "*" : "?");
    if (Chance(20)) Pattern += "?";
    // "=" takes a pattern only when it holds a "*".
    const bool Like = Kind == 9 || Pattern.find('*') == std::string::npos;
    return {Field + (Like ? " LIKE " : " = ") + Pattern, Field + " GLOB '" + Pattern + "'"};
  }

  Condition NumberCondition(const std::string& Field, double Value) {
    const int Kind = Int(0, 8);
    return {Field + " " + kOps[Kind] + " " + Number(Value),
            Field + " " + kSqlOps[Kind] + " " + Number(Value)};
  }

  std::mt19937 random_;
};

class FilterDifferentialTest : public ::testing::Test {
 protected:
  void SetUp() override {
    Generator Make(20240611);
    std::vector<std::string> Records;
    Rows.push_back({});  // records count from 1
    const TableSpec Table = Spec();
    for (int I = 0; I < 3000; ++I) {
      Row R = Make.MakeRow();
      Records.push_back(R.Deleted
                            ? testing::DeletedRecordBytes(Table)
                            : testing::RecordBytes(Table, {R.Nombre, R.Ciudad, R.Edad, R.Saldo,
                                                           R.Cantidad, R.Precio, R.Codigo}));
      Rows.push_back(R);
    }
    const std::string Path = testing::WriteTable(Dir, "CLIEN", "01", Table, Records);
    File = testing::OpenAt(Dir, Path);
    Db.Query(
        "CREATE TABLE t(rec INTEGER PRIMARY KEY, NOMBRE TEXT, CIUDAD TEXT, EDAD INTEGER, "
        "SALDO REAL, CANTIDAD INTEGER, PRECIO REAL, CODIGO TEXT)");
    Db.Query("BEGIN");
    for (size_t N = 1; N < Rows.size(); ++N) {
      const Row& R = Rows[N];
      if (R.Deleted) continue;
      Db.Query("INSERT INTO t VALUES(" + std::to_string(N) + ",'" + R.Nombre + "','" + R.Ciudad +
               "'," + std::to_string(R.Edad) + "," + Number(R.Saldo) + "," +
               std::to_string(R.Cantidad) + "," + Number(R.Precio) + ",'" + R.Codigo + "')");
    }
    Db.Query("COMMIT");
  }

  // The records of the view, each with the number of times it is listed.
  std::map<int32_t, int> ViewCounts() {
    std::map<int32_t, int> Counts;
    const std::vector<int32_t>& List = File->State().FilterList;
    for (size_t I = 1; I < List.size(); ++I) ++Counts[List[I]];
    return Counts;
  }

  std::map<int32_t, int> SqlCounts(const std::string& Multiplicity) {
    std::map<int32_t, int> Counts;
    for (const auto& Columns : Db.Query("SELECT rec, m FROM (SELECT rec, " + Multiplicity +
                                        " AS m FROM t) WHERE m > 0")) {
      Counts[std::stoi(Columns[0])] = std::stoi(Columns[1]);
    }
    return Counts;
  }

  void ExpectSameResult(const std::string& Filter, const std::string& Multiplicity) {
    File->Filter(Filter);
    const std::map<int32_t, int> Expected = SqlCounts(Multiplicity);
    ++Filters;
    if (!Expected.empty()) ++NonEmpty;
    EXPECT_EQ(ViewCounts(), Expected) << Filter;
    EXPECT_EQ(File->LastError(), Expected.empty() ? 16 : 0) << Filter;
  }

  // The generated filters must select something often enough to be worth comparing.
  void TearDown() override {
    EXPECT_TRUE(Filters == 0 || NonEmpty * 3 > Filters) << NonEmpty << " of " << Filters;
  }

  int Filters = 0, NonEmpty = 0;
  testing::TempDir Dir;
  std::vector<Row> Rows;
  std::unique_ptr<TQFile> File;
  Sql Db;
};

TEST_F(FilterDifferentialTest, FlatChainsAgreeWithLeftToRightSql) {
  Generator Make(1);
  for (int I = 0; I < 400; ++I) {
    std::string Filter, Multiplicity;
    Make.Chain(Make.Int(1, 5), Filter, Multiplicity);
    if (Make.Chance(20)) {
      std::transform(Filter.begin(), Filter.end(), Filter.begin(),
                     [](unsigned char C) { return static_cast<char>(std::tolower(C)); });
    }
    ExpectSameResult(Filter, Multiplicity);
  }
}

TEST_F(FilterDifferentialTest, GroupedFiltersAgreeWithGroupwiseSql) {
  Generator Make(2);
  for (int I = 0; I < 200; ++I) {
    std::string Filter, Multiplicity;
    int Mode = 0;  // how the first group joins: 0 OR (onto nothing), 1 AND
    const bool Head = Make.Chance(50);
    if (Head) {
      Make.Chain(Make.Int(1, 2), Filter, Multiplicity);
      Mode = Make.Chance(50) ? 1 : 0;
      Filter += Mode == 1 ? " AND " : " OR ";
    } else {
      Multiplicity = "0";
    }
    // A text that begins with "(" and has no second "(" is a flat filter: two groups then.
    const int Groups = Make.Int(Head ? 1 : 2, 3);
    for (int G = 0; G < Groups; ++G) {
      if (G > 0) {
        Mode = Make.Chance(50) ? 1 : 0;
        Filter += Mode == 1 ? " AND " : " OR ";
      }
      std::string Inner, InnerM;
      Make.Chain(Make.Int(1, 3), Inner, InnerM);
      Filter += "(" + Inner + ")";
      Multiplicity = Mode == 1 ? "(" + Multiplicity + " * ((" + InnerM + ") > 0))"
                               : "(" + Multiplicity + " + " + InnerM + ")";
    }
    if (Make.Chance(30)) {  // conditions after the last group, still left to right
      const bool And = Make.Chance(50);
      Filter += And ? " AND " : " OR ";
      Make.ChainOnto(Make.Int(1, 2), And, Filter, Multiplicity);
    }
    ExpectSameResult(Filter, Multiplicity);
  }
}

// Sorted views list the same key sequence as ORDER BY; ties may be listed in any order.
TEST_F(FilterDifferentialTest, SortsAgreeWithOrderBy) {
  struct Case {
    const char *Filter, *Where, *Sort, *OrderBy;
    std::function<std::string(const Row&)> Key;
  };
  const std::vector<Case> Cases = {
      {"", "1", "nombre desc", "NOMBRE DESC", [](const Row& R) { return R.Nombre; }},
      {"", "1", "EDAD", "EDAD", [](const Row& R) { return std::to_string(R.Edad); }},
      {"", "1", "ABS(SALDO)", "abs(SALDO)", [](const Row& R) { return Number(std::abs(R.Saldo)); }},
      {"", "1", "PRECIO", "PRECIO", [](const Row& R) { return Number(R.Precio); }},
      {"", "1", "CANTIDAD DESC", "CANTIDAD DESC",
       [](const Row& R) { return std::to_string(R.Cantidad); }},
      {"", "1", "NOMBRE + CIUDAD", "printf('%-10s%-8s', NOMBRE, CIUDAD)",
       [](const Row& R) { return R.Nombre + "|" + R.Ciudad; }},
      {"EDAD > 10 AND CIUDAD <> X", "EDAD > 10 AND CIUDAD <> 'X'", "CODIGO+NOMBRE DESC",
       "printf('%-6s%-10s', CODIGO, NOMBRE) DESC",
       [](const Row& R) { return R.Codigo + "|" + R.Nombre; }},
      {"NOMBRE >= B AND SALDO < 0", "NOMBRE >= 'B' AND SALDO < 0", "SALDO", "SALDO",
       [](const Row& R) { return Number(R.Saldo); }},
  };
  for (const Case& Each : Cases) {
    File->Filter(Each.Filter);
    File->Sort(Each.Sort);
    std::vector<std::string> Got;
    const std::vector<int32_t>& List = File->State().FilterList;
    for (size_t I = 1; I < List.size(); ++I) Got.push_back(Each.Key(Rows[List[I]]));
    std::vector<std::string> Expected;
    for (const auto& Columns : Db.Query(std::string("SELECT rec FROM t WHERE ") + Each.Where +
                                        " ORDER BY " + Each.OrderBy)) {
      Expected.push_back(Each.Key(Rows[std::stoi(Columns[0])]));
    }
    EXPECT_EQ(Got, Expected) << Each.Sort;
    EXPECT_EQ(File->State().EngineResult, List.size() > 1 ? List[1] : File->State().EngineResult);
  }
}

TEST_F(FilterDifferentialTest, SumsAgreeWithSqlSums) {
  Generator Make(3);
  for (int I = 0; I < 60; ++I) {
    std::string Filter, Multiplicity;
    Make.Chain(Make.Int(1, 3), Filter, Multiplicity);
    File->Filter(Filter);
    for (const char* Field : {"SALDO", "EDAD", "PRECIO"}) {
      const auto Total = Db.Query("SELECT total(" + std::string(Field) + " * m) FROM (SELECT " +
                                  Field + ", " + Multiplicity + " AS m FROM t)");
      EXPECT_DOUBLE_EQ(File->Sum(Field), std::stod(Total.at(0).at(0))) << Filter << " " << Field;
    }
  }
}

}  // namespace
}  // namespace tqdb::query

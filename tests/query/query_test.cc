// Filters, sorts, sums and links through the public interface: what the comparison with
// SQLite does not reach (the view's state, XOR and ABS, the direct key form, CLEAN, errors,
// hostile texts, reads of keyed conditions, dates, deleted entries, additions in place and
// the cache of linked tables); then the filter parser's rules one by one, the pattern
// matcher's worst case, and the quicksort's pivot.
#include <algorithm>
#include <cstdio>
#include <functional>
#include <random>
#include <string>
#include <tuple>
#include <vector>

#include <gtest/gtest.h>

#include "platform/file_pool.h"
#include "platform/numbers.h"
#include "query/filter_parser.h"
#include "query/like_pattern.h"
#include "query/quicksort.h"
#include "records/record_codecs.h"
#include "support/error_of.h"
#include "support/open_table.h"
#include "table/TableState.h"

namespace tqdb::query {
namespace {

using testing::ErrorOf;
using testing::KeySpec;
using testing::RecordBytes;
using testing::TableSpec;
using List = std::vector<int32_t>;

// Key 1 NOMBRE; EDAD 16-bit, PRECIO single, CANTIDAD 32-bit (its bytes in record 9 read as
// the text "12  ").
const TableSpec kSpec{"FILTROS",
                      {{"NOMBRE", 0, 10, 1},
                       {"CIUDAD", 0, 8, 2},
                       {"SALDO", 3, 8, 3},
                       {"EDAD", 1, 2, 4},
                       {"NOTA", 11, 12, 5},
                       {"FECHA", 5, 6, 6},
                       {"PRECIO", 2, 4, 7},
                       {"CANTIDAD", 4, 4, 8}},
                      {KeySpec{{{1, 1, 10}}}}};

class QueryTest : public ::testing::Test {
 protected:
  QueryTest() {
    const std::vector<std::string> Records = {
        RecordBytes(kSpec, {"GARCIA", "MADRID", 1.5, 1, "garcia", "991231", 0, 0}),
        RecordBytes(kSpec, {"LOPEZ", "SEVILLA", -5.0, 2, "LOPEZ", "A50102", 2.25, 3}),
        RecordBytes(kSpec, {"GARCIAS", "MADRID", 15.0, 3, "X", "A00101", 0, 0}),
        testing::DeletedRecordBytes(kSpec),
        RecordBytes(kSpec, {"PEREZ", "BILBAO", 9.5, 1, "Y", "850607", 0, 0}),
        RecordBytes(kSpec, {"lopez", "MADRID", -12.0, 2, "Z", "600101", 0, 0}),
        RecordBytes(kSpec, {"ALONSO", "SEVILLA", 3.0, 3, "GARCIA", "J91231", 0, 0}),
        RecordBytes(kSpec, {"GARCIA", "BILBAO", 3.0, 2, "GARCIA", "700101", 0, 0}),
        RecordBytes(kSpec, {"ZETA", "VALENCIA", 0.5, 32767, "12", "A10101", 1.5, 0x20203231})};
    Path = testing::WriteTable(Dir, "CLIEN", "01", kSpec, Records);
    File = testing::OpenAt(Dir, Path);
  }
  List View() const {
    return {File->State().FilterList.begin() + 1, File->State().FilterList.end()};
  }
  List Sorted(const std::string& Filter) {
    File->Filter(Filter);
    List Records = View();
    std::sort(Records.begin(), Records.end());
    return Records;
  }

  testing::TempDir Dir;
  std::string Path;
  std::unique_ptr<TQFile> File;
};

TEST_F(QueryTest, AFilterSelectsTheFirstRecordAndEmptyTextRemovesTheView) {
  File->Filter("CIUDAD = MADRID");  // a pass over the file, in record order
  EXPECT_EQ(View(), (List{1, 3, 6}));
  EXPECT_EQ(File->State().EngineResult, 1);
  EXPECT_EQ(File->State().FilterPos, 1);
  File->Filter("");
  EXPECT_FALSE(File->State().FilterActive);
  EXPECT_EQ(File->LastError(), 0);
  EXPECT_EQ(View(), (List{1, 3, 6}));  // the list is kept
  File->Filter("EDAD >= 1");
  TableState& State = File->State();
  State.FilterList = {0, 1, 0, 3, -2, 5};
  State.FilterPos = 5;
  File->Filter("clean");  // drops deleted entries and keeps the place inside
  EXPECT_EQ(View(), (List{1, 3, 5}));
  EXPECT_EQ(State.FilterPos, 3);
  EXPECT_TRUE(State.FilterActive);
  State.FilterList = {0, 0, 0};
  File->Filter("CLEAN");
  EXPECT_EQ(State.FilterList, (List{0}));
  EXPECT_EQ(State.FilterPos, 0);
}

TEST_F(QueryTest, FiltersSelectByTheirRules) {
  const std::pair<const char*, List> Cases[] = {
      {"NOMBRE LIKE LOP*", {2, 6}},  // keyed: lower-case data matches LIKE in a key walk
      {"NOTA LIKE GAR*", {7, 8}},    // not keyed: record 1 holds "garcia"
      {"(EDAD = 1) XOR (EDAD = 3)", {1, 3, 5, 7}},
      {"ABS(SALDO < 10)", {1, 2, 5, 7, 8, 9}},
      {"SALDO = 1.5", {1}},       // a point is always decimal
      {"\\01GARCIA", {1, 3, 8}},  // the direct form walks key 1 by prefix
      {"\\01LOPEZ", {2, 6}},      // keys hold upper-cased text
      {"\\01", {1, 2, 3, 5, 6, 7, 8, 9}},
      {"EDAD = 1 And ", {1, 5}},  // a trailing connector is harmless
      {" AND EDAD = 1", {}},      // "" selects nothing, then narrows
      {" OR EDAD = 1", {1, 5}},
      {"NOMBRE GARCIA", {}}};
  for (const auto& [Filter, Expected] : Cases) {
    EXPECT_EQ(Sorted(Filter), Expected) << Filter;
    EXPECT_FALSE(File->State().AbsMode);
  }
  EXPECT_EQ(File->LastError(), 16);
  // Without a literal head a keyed pattern walks the whole key: key order, upper-cased, the
  // later ANDs folded in.
  for (const auto& [Filter, Expected] :
       std::vector<std::pair<const char*, List>>{{"NOMBRE LIKE *OPEZ", {2, 6}},
                                                 {"NOMBRE LIKE ?OPEZ", {2, 6}},
                                                 {"NOMBRE = *OPEZ", {2, 6}},
                                                 {"NOMBRE LIKE *EZ", {2, 6, 5}},
                                                 {"NOMBRE LIKE *A AND NOTA LIKE GAR*", {1, 8}}}) {
    File->Filter(Filter);
    EXPECT_EQ(View(), Expected) << Filter;
  }
}

TEST_F(QueryTest, ErrorsNameTheirTextAndAnUnknownConnectorKeepsTheView) {
  File->Filter("EDAD = 2");
  const List Before = View();
  EXPECT_EQ(ErrorOf([&] { File->Filter("(EDAD = 1) AND (EDAD = 2) NOT (EDAD = 3)"); }),
            std::make_pair(50230, std::string("Error en filtro: NOT")));
  EXPECT_TRUE(File->State().FilterActive);
  EXPECT_EQ(View(), Before);
  EXPECT_EQ(ErrorOf([&] { File->Filter("(EDAD = 1) AND (EDAD = 2"); }),
            std::make_pair(50232, std::string("Error en filtro: EDAD = 2")));
  for (const char* Bad : {"\\99GARCIA", "\\1", "\\AB"})
    EXPECT_EQ(ErrorOf([&] { File->Filter(Bad); }).first, 50230);
  File->Filter("");
  EXPECT_EQ(ErrorOf([&] { File->Filter("edad = 1 AND sueldo > 3"); }),
            std::make_pair(50234, std::string("Campo SUELDO no existe")));
  EXPECT_FALSE(File->State().FilterActive);
  // Hostile texts end in a defined error or result.
  std::vector<std::string> Texts = {std::string(5000, '(') + std::string(5000, ')'),
                                    "NOMBRE LIKE " + std::string(10000, '*') + "X"};
  std::string Grouped = "EDAD = 1";
  while (Grouped.size() < 10000) Grouped += " OR (EDAD = 2 AND SALDO < 100)";
  Texts.push_back(Grouped);
  std::mt19937 Random(5);
  const std::string Pieces[] = {"(", ")",  " AND ", " OR ", "EDAD", "NOMBRE", " = ",  "<",   "*",
                                "'", "\\", "1",     "GAR",  " ",    "XOR",    "LIKE", "ABS("};
  for (int I = 0; I < 1500; ++I) {
    std::string Text;
    for (int K = static_cast<int>(Random() % 12); K > 0; --K)
      Text += Pieces[Random() % std::size(Pieces)];
    Texts.push_back(Text);
  }
  for (const std::string& Text : Texts) {
    const int32_t Number = ErrorOf([&] { File->Filter(Text); }).first;
    EXPECT_TRUE(Number == 0 || Number == 50230 || Number == 50232 || Number == 50234)
        << Text.substr(0, 80);
    const TableState& State = File->State();
    EXPECT_TRUE(Number != 0 || Text.empty() || State.FilterActive);
    EXPECT_LE(State.FilterPos, static_cast<int32_t>(State.FilterList.size()) - 1);
    EXPECT_FALSE(State.AbsMode);
  }
}

// A failed Sort leaves the view of all live records on; an empty view looks no name up.
TEST_F(QueryTest, AFailedSortKeepsTheViewOfAllRecordsAndSumsReadByType) {
  EXPECT_EQ(File->Sum("NO_EXISTE"), 0);  // no view: nothing is looked up or read
  EXPECT_EQ(ErrorOf([&] { File->Sort("SUELDO DESC"); }).first, 50234);
  EXPECT_EQ(View(), (List{1, 2, 3, 5, 6, 7, 8, 9}));  // made before the names are looked up
  EXPECT_TRUE(File->State().FilterActive);
  File->Filter("NOMBRE = ZETA OR NOMBRE = LOPEZ");
  EXPECT_EQ(File->Sum("NOTA"), 12);  // the leading number of "12" and "LOPEZ"
  File->Filter("NOMBRE = NADIE");
  File->Sort("NO_EXISTE");
  EXPECT_EQ(File->State().FilterPos, 0);
}

TEST_F(QueryTest, AFailedAdditionLeavesTheFieldAndItsLockAsTheyWere) {
  File->SetBookMark(9);
  const auto SourceOf = [](const std::function<void()>& Work) {
    try {
      Work();
    } catch (const TQError& Error) {
      return std::to_string(Error.Number()) + " " + Error.Source();
    }
    return std::string();
  };
  EXPECT_EQ(SourceOf([&] { File->AddToField("EDAD", 1); }), "6 AddToField");
  EXPECT_EQ(GetInteger(File->State(), 9, 4), 32767);
  auto Other = testing::OpenAt(Dir, Path);  // the range is free again, here and for another
  Other->SetBookMark(9);
  EXPECT_EQ(Other->AddToField("EDAD", -7), 32760);
  EXPECT_EQ(File->AddToField("EDAD", -1), 32759);
  LockField(Other->State(), 2, 3, 0);
  File->SetBookMark(2);
  EXPECT_EQ(SourceOf([&] { File->AddToField("SALDO", 1); }), "70 AddToField");
  EXPECT_EQ(SourceOf([&] { File->AddToKField(3, 1, 0); }), "70 AddToKfield");
  EXPECT_EQ(File->AddToField("EDAD", 1), 3);  // another field is not covered
  unLockField(Other->State(), 2, 3, 0);
  EXPECT_EQ(File->AddToField("SALDO", 1), -4);
  File->AddToField("PRECIO", 0.5);
  EXPECT_EQ(File->AddToField("PRECIO", 0), 2.75);  // stored as a single
  EXPECT_EQ(File->AddToField("CIUDAD", 1), 1);     // "SEVILLA" reads 0
  EXPECT_EQ(GetField(File->State(), 2, 2, false), "1       ");
  File->Filter("NOMBRE = NADIE");
  EXPECT_EQ(SourceOf([&] { File->AddToField("SALDO", 1); }), "63 AddToField");
  EXPECT_THROW(File->AddToField("NO_EXISTE", 1), TQError);
}

// A table of 2600 records of 2016 bytes, where a pass over the data file costs many reads.
TEST(KeyedFilterReadsTest, KeyedConditionsReadOnlyTheRecordsTheirKeyRangeHolds) {
  const TableSpec Spec{
      "ANCHA",
      {{"CODIGO", 0, 8, 1}, {"RELLENO", 11, 2000, 2}, {"GRUPO", 11, 4, 3}, {"NUMERO", 4, 4, 4}},
      {KeySpec{{{1, 1, 8}}}, KeySpec{{{4, 1, 4}}}}};
  std::vector<std::string> Records;
  for (int I = 1; I <= 2600; ++I) {
    char Code[16];
    std::snprintf(Code, sizeof Code, "C%05d", I);
    Records.push_back(
        RecordBytes(Spec, {Code, std::string(2000, 'R'), I % 7 == 0 ? "G7" : "GX", I % 130}));
  }
  testing::TempDir Dir;
  auto File = testing::OpenAt(Dir, testing::WriteTable(Dir, "ANCHA", "01", Spec, Records));
  const auto ReadsOf = [&](const std::string& Filter, size_t Count) {
    platform::ResetIoCounters();
    File->Filter(Filter);
    EXPECT_EQ(File->State().FilterList.size() - 1, Count) << Filter;
    return platform::GetIoCounters().Reads;
  };
  EXPECT_GT(ReadsOf("GRUPO = G7", 371), 30u);  // the pass reads the whole file
  // Keyed conditions read the key's nodes and the matches; ranges decide on the key alone.
  // "=" on a binary number walks its stored bytes (upper-cased in the key, so 97 meets 65
  // there) and lists the records in file order, as the pass would: 97, 227, ... 2567.
  for (const auto& [Filter, Count, Reads] : std::vector<std::tuple<const char*, size_t, uint64_t>>{
           {"CODIGO = C00100", 1, 7},
           {"CODIGO LIKE C0010*", 10, 18},
           {"CODIGO >= C02590", 11, 6},
           {"CODIGO = C0002* AND GRUPO = G7", 2, 26},
           {"NUMERO = 97", 20, 46}})
    EXPECT_LE(ReadsOf(Filter, Count), Reads) << Filter;
  for (size_t I = 1; I <= 20; ++I) EXPECT_EQ(File->State().FilterList[I], int32_t(I) * 130 - 33);
}

// Invoices (FACTU) name their customer (CLIEN) by CLIENTE, the customers' key 1.
TEST(LinksTest, LinksReadTheRelatedTableThroughACacheOfElevenNames) {
  testing::TempDir Dir;
  const TableSpec Customers{"CLIENTES",
                            {{"CLIENTE", 11, 6, 1}, {"NOMBRE", 11, 12, 2}, {"ZONA", 11, 4, 3}},
                            {KeySpec{{{1, 1, 6}}}, KeySpec{{{2, 1, 12}}}}};
  testing::WriteTable(Dir, "CLIEN", "07", Customers,
                      {RecordBytes(Customers, {"C1", "GARCIA", "NORTE"}),
                       RecordBytes(Customers, {"C2", "LOPEZ", "SUR"}),
                       RecordBytes(Customers, {"C1", "GARCIA BIS", "SUR"}),
                       RecordBytes(Customers, {"A OR B", "RARO", "SUR"}),
                       RecordBytes(Customers, {"A", "SOLO A", "OESTE"})});
  const TableSpec Invoices{
      "FACTURAS", {{"NUMERO", 11, 4, 1}, {"CLIENTE", 11, 6, 2}}, {KeySpec{{{1, 1, 4}}}}};
  auto File = testing::OpenAt(
      Dir, testing::WriteTable(
               Dir, "FACTU", "07", Invoices,
               {RecordBytes(Invoices, {"F1", "C2"}), RecordBytes(Invoices, {"F2", "C1"}),
                RecordBytes(Invoices, {"F3", "C9"}), RecordBytes(Invoices, {"F4", "A OR B"})}));
  const auto Parent = [&](const char* Invoice, const std::string& Table, const Variant& Field) {
    File->Filter(std::string("NUMERO = ") + Invoice);
    return File->LinkParent(Table, Field).ToString();
  };
  EXPECT_EQ(Parent("F1", "CLIEN", "NOMBRE"), "LOPEZ       ");
  EXPECT_EQ(Parent("F2", "CLIEN", "NOMBRE"), "GARCIA      ");
  EXPECT_EQ(Parent("F2", "CLIEN", Variant(int16_t{3})), "NORT");
  EXPECT_EQ(Parent("F3", "CLIEN", "NOMBRE"), "");  // no customer: Empty, the link at its ends
  TQFile& Linked = *File->State().LinkedTables[0].Table;
  EXPECT_TRUE(Linked.Bof() && Linked.Eof());
  EXPECT_EQ(Parent("F4", "CLIEN", "NOMBRE"), "SOLO A      ");  // CLIENTE = A OR B, unquoted
  File->Filter("NUMERO = F2");
  EXPECT_EQ(File->LinkChild("CLIEN", "ZONA = SUR", "NOMBRE").ToString(), "GARCIA BIS  ");
  EXPECT_EQ(Linked.State().FilterList, (List{0, 3}));  // the last link filter stays in force
  platform::ResetIoCounters();
  EXPECT_EQ(File->LinkChild("CLIEN", "", "NOMBRE").ToString(), "GARCIA      ");
  EXPECT_EQ(platform::GetIoCounters().Opens, 0u);  // opened once
  EXPECT_EQ(Linked.State().FilterList, (List{0, 1, 3}));
  // Names differing in case are different links: eleven fit, a twelfth fails with error 91.
  for (int Mask = 1; Mask < 12; ++Mask) {
    std::string Name = "CLIEN";
    for (int I = 0; I < 5; ++I) Name[I] = (Mask & (1 << I)) ? char(Name[I] - 'A' + 'a') : Name[I];
    const int32_t Error =
        ErrorOf([&] { EXPECT_EQ(Parent("F1", Name, "NOMBRE"), "LOPEZ       "); }).first;
    EXPECT_EQ(Error, Mask < 11 ? 0 : 91) << Name;
  }
  EXPECT_EQ(File->State().LinkedTables[1].Name, "cLIEN");
  File->State().LinkedTables[10] = {};
  EXPECT_THROW(File->LinkParent("NADIE", "NOMBRE"), TQError);  // a table that cannot open
  EXPECT_TRUE(File->State().LinkedTables[10].Name.empty());    // leaves its entry free
}

TEST(FilterParserTest, OperatorsPatternsNumbersAndGroups) {
  EXPECT_EQ(SplitCondition("A = LIKE").Op, kOpLike);    // LIKE first, even inside a value
  EXPECT_EQ(SplitCondition("A = B>=C").Name, "A = B");  // ">=" before "="
  EXPECT_EQ(SplitCondition("N = ' GARCIA '").Value, "GARCIA");
  EXPECT_EQ(StripQuotes("''A''"), "'A'");
  EXPECT_EQ(PatternKeyPrefix(" GAR*?"), "GAR*");  // stars first, then question marks
  EXPECT_EQ(PatternLiteralHead("GA?R*"), "GA");
  for (const auto& [Text, Number] :
       {std::pair{" -2.25 ", -2.25}, {"1.5E2", 150.0}, {"1.5X", 0.0}, {"$5", 0.0}, {"1E999", 0.0}})
    EXPECT_DOUBLE_EQ(ParseNumberText(Text), Number) << Text;
  for (const char* Text : {"1,5", "12", "-7", "1,000,5"}) {  // a comma follows the locale
    double Expected = 0;
    if (!platform::TryLocaleToDouble(Text, Expected)) Expected = 0;
    EXPECT_DOUBLE_EQ(ParseNumberText(Text), Expected) << Text;
  }
  EXPECT_TRUE(IsGroupedFilter("A = 1 OR (B = 2)"));  // a connector before a later "(" and a ")"
  EXPECT_FALSE(IsGroupedFilter("A = (1)"));
  EXPECT_EQ(ConnectorCode("XOR"), 0);  // only the last letters count
  EXPECT_EQ(ConnectorCode("AND"), 1);
}

TEST(LikePatternTest, StarIsAnyRunAndQuestionMarkOneCharacterInPolynomialTime) {
  EXPECT_TRUE(MatchesPattern("MU\xD1OZ", "MU?OZ"));
  EXPECT_FALSE(MatchesPattern("GARCI", "GARCI?"));
  std::string Pattern;
  for (int I = 0; I < 200; ++I) Pattern += "*A";
  EXPECT_FALSE(MatchesPattern(std::string(20000, 'A'), Pattern + "B"));
  EXPECT_TRUE(MatchesPattern(std::string(20000, 'A'), Pattern));
}

TEST(QuickSortTest, PivotRoundsHalvesToEvenAndOnlyTheOrderMoves) {
  for (const auto& [Low, High, Pivot] : std::vector<std::tuple<int32_t, int32_t, int32_t>>{
           {0, 5, 2}, {3, 4, 4}, {1, 2, 2}, {2147483646, 2147483647, 2147483646}})
    EXPECT_EQ(PivotIndex(Low, High), Pivot);
  const std::vector<int> Keys = {3, 1, 2, 3, 0};
  std::vector<int32_t> Order = {0, 1, 2, 3, 4};
  QuickSortOrder(Order, 0, 4,
                 [&](int32_t A, int32_t B) { return (Keys[A] > Keys[B]) - (Keys[A] < Keys[B]); });
  EXPECT_TRUE(std::is_sorted(Order.begin(), Order.end(),
                             [&](int32_t A, int32_t B) { return Keys[A] < Keys[B]; }));
}

}  // namespace
}  // namespace tqdb::query

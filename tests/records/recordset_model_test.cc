// A long random run of AddNew, Edit, Delete, AddToField, seeks and a ReIndex through the
// public interface, checked against a model of the table kept in memory: every key's walk,
// every seek option, every record's values of every type (images and long texts that grow,
// shrink and go), the reuse of deleted numbers, the moves after changing the current record,
// and the key file's own invariants.
#include <gtest/gtest.h>

#include <algorithm>
#include <climits>
#include <map>
#include <optional>
#include <random>
#include <string>
#include <vector>

#include "engine/tree_checker.h"
#include "platform/codepage.h"
#include "support/key_agreement.h"
#include "support/open_table.h"
#include "table/TQFile.h"

namespace tqdb {
namespace {

using testing::OpenTable;
using testing::TableSpec;

// Key 1 NAME + CODE (two segments), key 2 the date, key 3 GRP (four values: long runs of
// duplicates, longer than a node).
TableSpec ModelSpec() {
  TableSpec Spec;
  Spec.Description = "Modelo";
  Spec.Fields = {{"CODE", 10, 6, 1},  {"NAME", 10, 10, 2}, {"FECHA", 5, 6, 3}, {"GRP", 10, 2, 4},
                 {"AMOUNT", 3, 8, 5}, {"QTY", 1, 2, 6},    {"PRICE", 2, 4, 7}, {"TOTAL", 4, 4, 8},
                 {"FOTO", 62, 4, 9},  {"MEMO", 74, 12, 10}};
  Spec.Keys = {{{{2, 1, 10}, {1, 1, 6}}}, {{{3, 1, 6}}}, {{{4, 1, 2}}}};
  return Spec;
}

struct Row {
  std::string Code, Name;  // Windows-1252
  Date Day{};
  std::string Group;
  double Amount = 0;
  int Qty = 0;
  float Price = 0;
  int32_t Total = 0;
  std::string Foto, Memo;  // Windows-1252
};

std::string Padded(std::string Text, size_t Width) {
  Text.resize(Width, ' ');
  return Text;
}

std::string TwoDigits(int N) {
  return {static_cast<char>('0' + N / 10), static_cast<char>('0' + N % 10)};
}

std::string StoredDate(const Date& D) {
  std::string Year = TwoDigits(D.Year % 100);
  if (D.Year >= 2000) Year[0] = static_cast<char>(Year[0] + 17);
  return Year + TwoDigits(D.Month) + TwoDigits(D.Day);
}

// The key text the engine keeps for Row on key Key (upper-cased).
std::string KeyOf(const Row& R, int Key) {
  switch (Key) {
    case 1:
      return platform::UpperCase(Padded(R.Name, 10) + Padded(R.Code, 6));
    case 2:
      return StoredDate(R.Day);
    default:
      return platform::UpperCase(Padded(R.Group, 2));
  }
}

using Entry = std::pair<std::string, int32_t>;  // key text, record

bool Less(const Entry& A, const Entry& B) {
  const int C = platform::CompareText(A.first, B.first);
  return C != 0 ? C < 0 : A.second < B.second;
}

class Model {
 public:
  std::map<int32_t, Row> Rows;
  std::vector<int32_t> Freed;  // deleted numbers, the last one on top
  int32_t Last = 0;

  // The live records' entries of key Key, in key order.
  std::vector<Entry> Entries(int Key) const {
    std::vector<Entry> Out;
    for (const auto& [Record, R] : Rows) Out.emplace_back(KeyOf(R, Key), Record);
    std::sort(Out.begin(), Out.end(), Less);
    return Out;
  }
  std::vector<int32_t> Order(int Key) const {
    std::vector<int32_t> Records;
    for (const Entry& E : Entries(Key)) Records.push_back(E.second);
    return Records;
  }
  // The entry of key Key that follows (or precedes) the pair At, which may be gone.
  std::optional<int32_t> Neighbour(int Key, const Entry& At, bool After) const {
    const std::vector<Entry> All = Entries(Key);
    if (After) {
      const auto It = std::upper_bound(All.begin(), All.end(), At, Less);
      return It == All.end() ? std::nullopt : std::optional<int32_t>(It->second);
    }
    const auto It = std::lower_bound(All.begin(), All.end(), At, Less);
    return It == All.begin() ? std::nullopt : std::optional<int32_t>(std::prev(It)->second);
  }
};

constexpr const char* kFields[] = {"NAME", "CODE",  "FECHA", "GRP",  "AMOUNT",
                                   "QTY",  "PRICE", "TOTAL", "FOTO", "MEMO"};

class RecordsetModelTest : public ::testing::Test {
 protected:
  RecordsetModelTest() : Table(ModelSpec(), {}), T(Table.File()), Random(20240611) {}

  int Pick(int Low, int High) { return std::uniform_int_distribution<int>(Low, High)(Random); }

  Row RandomRow() {
    static const char* const kNames[] = {"garcia", "GARCIA", "Mu\xF1oz",   "MU\xD1OZ", "lopez",
                                         "Perez",  "ALONSO", "\xC1lvarez", "zapata",   "Ibarra",
                                         "o'neil", "Z",      "alberto",    "Ruiz",     "ruiz"};
    static const char* const kGroups[] = {"A", "B", "c", "D"};
    // Braces draw left to right.
    Row R{std::to_string(Pick(0, 999)),
          kNames[Pick(0, 14)],
          Date{Pick(1960, 2059), Pick(1, 12), Pick(1, 28)},
          kGroups[Pick(0, 3)],
          Pick(-4000, 4000) / 4.0,
          Pick(-30000, 30000),
          static_cast<float>(Pick(-400, 400)) / 8,
          Pick(INT_MIN, INT_MAX),
          "",
          ""};
    R.Foto = Pick(0, 3) ? std::string(static_cast<size_t>(Pick(1, 300)), "ab\xF1"[Pick(0, 2)]) : "";
    R.Memo = Pick(0, 3) ? std::to_string(Pick(0, 9)) + std::string(size_t(Pick(0, 150)), 'm') : "";
    return R;
  }

  // Puts field F of R; with From, takes the field's value from From first.
  void Put(const std::string& F, Row& R, const Row* From = nullptr) {
    using platform::Cp1252ToUtf8;
    const auto Take = [&](auto Member) {
      if (From != nullptr) R.*Member = From->*Member;
      return R.*Member;
    };
    if (F == "CODE") T.SetFields(F, Cp1252ToUtf8(Take(&Row::Code)));
    if (F == "NAME") T.SetFields(F, Cp1252ToUtf8(Take(&Row::Name)));
    if (F == "FECHA") T.SetFields(F, Take(&Row::Day));
    if (F == "GRP") T.SetFields(F, Cp1252ToUtf8(Take(&Row::Group)));
    if (F == "AMOUNT") T.SetFields(F, std::to_string(Take(&Row::Amount)));  // a text with a point
    if (F == "QTY") T.SetFields(F, static_cast<int32_t>(Take(&Row::Qty)));
    if (F == "PRICE") T.SetFields(F, static_cast<double>(Take(&Row::Price)));
    if (F == "TOTAL") T.SetFields(F, std::to_string(Take(&Row::Total)));
    if (F == "FOTO") T.SetFields(F, Cp1252ToUtf8(Take(&Row::Foto)));
    if (F == "MEMO") T.SetFields(F, Cp1252ToUtf8(Take(&Row::Memo)));
  }

  int32_t RandomLive() {
    auto It = M.Rows.begin();
    std::advance(It, Pick(0, static_cast<int>(M.Rows.size()) - 1));
    return It->first;
  }

  void AddOne() {
    Row R = RandomRow();
    T.AddNew();
    for (const char* F : kFields) Put(F, R);
    T.Update();
    const bool Reuse = !M.Freed.empty();
    const int32_t Expected = Reuse ? M.Freed.back() : ++M.Last;
    if (Reuse) M.Freed.pop_back();
    ASSERT_EQ(T.BookMark(), Expected);
    M.Rows[Expected] = R;
  }

  // Changes some fields of Record (the current record).
  void EditOne(int32_t Record) {
    Row& R = M.Rows.at(Record);
    const Row New = RandomRow();
    T.SetBookMark(Record);
    T.Edit();
    for (const char* F : kFields)
      if (Pick(0, 2) == 0) Put(F, R, &New);
    T.Update();
  }

  void DeleteOne(int32_t Record) {
    T.Delete(Record);
    M.Rows.erase(Record);
    M.Freed.push_back(Record);
  }

  // Adds to a number of a random record in place.
  void AddToOne() {
    const int32_t Record = RandomLive();
    Row& R = M.Rows.at(Record);
    T.SetBookMark(Record);
    const int Add = Pick(-100, 100);
    if (Pick(0, 1)) {
      R.Amount += Add / 4.0;
      EXPECT_DOUBLE_EQ(T.AddToField("AMOUNT", Add / 4.0), R.Amount);
    } else {
      R.Qty += Add;
      EXPECT_EQ(T.AddToKField(6, Add), R.Qty);
    }
  }

  // Seeks, with every option that takes a value, a key text that some record holds or one
  // next to it; the answer is the model's.
  void SeekOne() {
    const int Key = Pick(1, 3);
    std::string Text = KeyOf(M.Rows.at(RandomLive()), Key);
    if (Pick(0, 1)) Text.back() = static_cast<char>(Text.back() + (Pick(0, 1) ? 1 : -1));
    const std::vector<Entry> All = M.Entries(Key);
    const auto Low = std::lower_bound(All.begin(), All.end(), Entry{Text, 0}, Less);
    const auto High = std::upper_bound(All.begin(), All.end(), Entry{Text, INT32_MAX}, Less);
    const std::pair<int32_t, int32_t> Cases[] = {
        {adseekfirsteq, Low != High ? Low->second : 0},
        {adSeekLastEQ, Low != High ? std::prev(High)->second : 0},
        {adSeekAfterEQ, Low != All.end() ? Low->second : 0},
        {adSeekBeforeEQ,  // the first equal entry, else the last below
         Low != High          ? Low->second
         : Low != All.begin() ? std::prev(Low)->second
                              : 0}};
    T.SetIndex(static_cast<int16_t>(Key));
    for (const auto& [Option, Expected] : Cases) {
      EXPECT_EQ(T.SeekKey(platform::Cp1252ToUtf8(Text), Option), Expected)
          << "key " << Key << " option " << Option << " " << Text;
      EXPECT_EQ(T.BookMark(), Expected);
    }
  }

  // Stands on a record through key 1, deletes or re-keys it, then moves once and checks
  // that the move went on from where it stood; the next move is a plain step.
  void ChangeCurrentAndMove() {
    const int32_t Record = RandomLive();
    const Row Old = M.Rows.at(Record);
    T.SetIndex(1);
    T.SetBookMark(Record);
    // The entry before the record, then one step: the key's cursor stands on the record.
    T.SeekKey(T.GetSpecialSeekKeys(), adSeekBefore) == 0 ? T.MoveFirst() : T.MoveNext();
    ASSERT_EQ(T.BookMark(), Record);
    if (Pick(0, 1)) {
      DeleteOne(Record);
    } else {
      T.Edit();
      const Row New = RandomRow();
      Put("NAME", M.Rows.at(Record), &New);
      T.Update();
    }
    const bool Forward = Pick(0, 1);
    const auto Expected = M.Neighbour(1, {KeyOf(Old, 1), Record}, Forward);
    if (!Expected) return;  // at an end of the key: nothing to compare
    Forward ? T.MoveNext() : T.MovePrevious();
    EXPECT_EQ(T.EngineCommand().substr(0, 1), Forward ? "A" : "E");
    ASSERT_EQ(T.LastError(), 0);
    ASSERT_EQ(T.BookMark(), *Expected);
    const auto Then = M.Neighbour(1, {KeyOf(M.Rows.at(*Expected), 1), *Expected}, Forward);
    Forward ? T.MoveNext() : T.MovePrevious();
    EXPECT_EQ(T.EngineCommand().substr(0, 1), Forward ? "N" : "P");
    EXPECT_EQ(T.BookMark(), Then ? *Then : T.BookMark());
  }

  void CheckAgainstModel() {
    for (int Key = 1; Key <= 3; ++Key) {
      T.SetIndex(static_cast<int16_t>(Key));
      std::vector<int32_t> Walk;
      for (T.MoveFirst(); T.LastError() == 0; T.MoveNext()) Walk.push_back(T.BookMark());
      ASSERT_EQ(Walk, M.Order(Key)) << "key " << Key;
    }
    for (const auto& [Record, R] : M.Rows) {
      T.SetBookMark(Record);
      ASSERT_EQ(T.Fields("CODE").ToString(), platform::Cp1252ToUtf8(Padded(R.Code, 6)));
      ASSERT_EQ(T.Fields("NAME").ToString(), platform::Cp1252ToUtf8(Padded(R.Name, 10)));
      ASSERT_EQ(T.Fields("FECHA").ToString(), TwoDigits(R.Day.Day) + "/" + TwoDigits(R.Day.Month) +
                                                  "/" + TwoDigits(R.Day.Year % 100));
      ASSERT_EQ(T.Fields("GRP").ToString(), Padded(R.Group, 2));
      ASSERT_DOUBLE_EQ(T.Fields("AMOUNT").AsNumber(), R.Amount);
      ASSERT_EQ(T.Fields("QTY").AsInteger(), R.Qty);
      ASSERT_EQ(T.Fields("PRICE").AsNumber(), R.Price);
      ASSERT_EQ(T.Fields("TOTAL").AsInteger(), R.Total);
      std::string Foto = T.Fields("FOTO").ToString();  // the image and its slack of blanks
      ASSERT_EQ(Foto.erase(Foto.find_last_not_of(' ') + 1), platform::Cp1252ToUtf8(R.Foto));
      ASSERT_EQ(T.Fields("MEMO").ToString(), platform::Cp1252ToUtf8(R.Memo));
    }
    ASSERT_EQ(T.DeletedRecordCount(), static_cast<int32_t>(M.Freed.size()));
  }

  OpenTable Table;
  TQFile& T;
  std::mt19937 Random;
  Model M;
};

TEST_F(RecordsetModelTest, ThousandsOfRandomChangesKeepKeysRecordsAndNumbersInStep) {
  constexpr int kOperations = 3000;
  for (int I = 0; I < 400; ++I) ASSERT_NO_FATAL_FAILURE(AddOne());
  for (int Op = 1; Op <= kOperations; ++Op) {
    const int Dice = Pick(0, 99);
    if (Dice < 40 || M.Rows.size() < 10) {
      ASSERT_NO_FATAL_FAILURE(AddOne());
    } else if (Dice < 72) {
      EditOne(RandomLive());
    } else if (Dice < 85) {
      DeleteOne(RandomLive());
    } else if (Dice < 89) {
      AddToOne();
    } else if (Dice < 92) {
      SeekOne();
    } else {
      ASSERT_NO_FATAL_FAILURE(ChangeCurrentAndMove());
    }
    if (Op == 1500) {  // built anew from the data file: the freed numbers wait in order
      T.ReIndex();
      std::sort(M.Freed.begin(), M.Freed.end());
    }
    if (Op % 750 == 0) {
      ASSERT_NO_FATAL_FAILURE(CheckAgainstModel()) << "after " << Op;
    }
  }
  ASSERT_NO_FATAL_FAILURE(CheckAgainstModel());
  EXPECT_EQ(testing::KeyDataAgreement(T), "");
  const std::vector<std::string> Problems = engine::CheckKeyFile(T.State().Engine);
  EXPECT_TRUE(Problems.empty()) << Problems.front();

  // The same holds for a fresh object that opens the table from its files.
  auto Fresh = Table.Open();
  EXPECT_EQ(testing::KeyDataAgreement(*Fresh), "");
}

}  // namespace
}  // namespace tqdb

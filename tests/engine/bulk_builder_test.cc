// Bulk-loaded key trees: they must pass the tree checker, hold exactly the entries given,
// and then take inserts, removals and replacements like any grown tree.
#include "engine/bulk_builder.h"

#include <gtest/gtest.h>

#include <algorithm>
#include <random>
#include <string>
#include <vector>

#include "engine/key_codec.h"
#include "engine/key_file.h"
#include "engine/key_navigation.h"
#include "engine/key_update.h"
#include "engine/tree_checker.h"
#include "platform/codepage.h"
#include "platform/fault.h"
#include "support/temp_dir.h"

namespace tqdb::engine {
namespace {

using testing::TempDir;

using Entry = KeyEntry;

bool Less(const Entry& A, const Entry& B) {
  const int Order = platform::CompareText(A.Text, B.Text);
  return Order < 0 || (Order == 0 && A.Record < B.Record);
}

// Characters chosen so that byte order and character order differ ("€" is 0x80 but sorts
// after "ñ" 0xF1) and lower and upper case mix.
constexpr char kAlphabet[] = {' ', '0', '9', 'A', 'M', 'Z', 'a', 'z', '\xF1', '\xD1', '\x80'};

std::string RandomText(std::mt19937& Random, int Length, int Distinct) {
  // Distinct values: the value is chosen among Distinct seeds, so runs of equal keys form.
  std::mt19937 Seeded(static_cast<uint32_t>(Random() % static_cast<uint32_t>(Distinct)));
  std::string Text;
  for (int I = 0; I < Length; ++I) Text.push_back(kAlphabet[Seeded() % sizeof(kAlphabet)]);
  return Text;
}

// N entries over Distinct values, record numbers 1..N in random order, sorted.
std::vector<Entry> MakeEntries(int KeyLength, int N, int Distinct, uint32_t Seed) {
  std::mt19937 Random(Seed);
  std::vector<int32_t> Records(static_cast<size_t>(N));
  for (int I = 0; I < N; ++I) Records[static_cast<size_t>(I)] = I + 1;
  std::shuffle(Records.begin(), Records.end(), Random);
  std::vector<Entry> Entries;
  for (int32_t Record : Records)
    Entries.push_back({RandomText(Random, KeyLength, Distinct), Record});
  std::sort(Entries.begin(), Entries.end(), Less);
  return Entries;
}

// A one-key file created empty, opened on an engine state of its own.
class BulkFile {
 public:
  explicit BulkFile(int KeyLength) : path_(dir_.File("TABLA01.tqc")) {
    const std::vector<int> Lengths{KeyLength};
    CreateEmptyKeyFile(path_, Lengths);
    OpenKeyFile(Engine, path_);
  }
  ~BulkFile() { CloseKeyFile(Engine); }

  void Load(const std::vector<Entry>& Sorted, int64_t Expected) {
    KeyBulkBuilder Builder(Engine);
    Builder.BeginKey(1, Expected);
    for (const Entry& E : Sorted) Builder.Add(E.Text, E.Record);
    Builder.FinishKey();
    int32_t Last = 0;
    for (const Entry& E : Sorted) Last = std::max(Last, E.Record);
    Builder.Finish(Last);
  }

  // Entry counts of the nodes of each level, root first.
  std::vector<std::vector<int>> Shape() {
    std::vector<std::vector<int>> Levels;
    std::vector<int64_t> Positions{Engine.RootPos[1]};
    while (!Positions.empty()) {
      std::vector<int> Counts;
      std::vector<int64_t> Next;
      for (int64_t Position : Positions) {
        NodeBuffer Buffer;
        ReadPage(Engine, Position, Buffer);
        const NodeView Node(Buffer, Engine.KeyLen[1]);
        Counts.push_back(Node.Count());
        if (!Node.IsLeaf()) {
          for (int I = 0; I < Node.Count(); ++I) Next.push_back(Node.Value(I));
        }
      }
      Levels.push_back(Counts);
      Positions = Next;
    }
    return Levels;
  }

  EngineState Engine;

 private:
  TempDir dir_;
  std::string path_;
};

struct Case {
  int KeyLength;
  int Count;
  int Distinct;
};

class BulkLoadTest : public ::testing::TestWithParam<Case> {};

TEST_P(BulkLoadTest, TreeIsSoundHoldsTheInputAndTakesLaterChanges) {
  const Case C = GetParam();
  std::vector<Entry> Model = MakeEntries(C.KeyLength, C.Count, C.Distinct, 7u + C.Count);
  BulkFile File(C.KeyLength);
  File.Load(Model, C.Count);

  EXPECT_EQ(CheckKeyFile(File.Engine), std::vector<std::string>{});
  EXPECT_EQ(ListKeyEntries(File.Engine, 1), Model);
  EXPECT_EQ(File.Engine.Header.LastRecord, C.Count);

  // The first entry of a run of equal keys is what a search finds, even where the run
  // spans several leaves.
  if (!Model.empty()) {
    const Entry& Middle = Model[Model.size() / 2];
    const auto First = std::find_if(Model.begin(), Model.end(),
                                    [&](const Entry& E) { return E.Text == Middle.Text; });
    EXPECT_EQ(KeySearch(File.Engine, 1, Middle.Text), First->Record);
    EXPECT_EQ(File.Engine.EngineStatus, 0);
  }

  // The tree takes changes like a grown one: entries at both ends, a removal in the middle.
  for (const char Fill : {' ', '\x80'}) {
    const Entry Added{std::string(size_t(C.KeyLength), Fill), File.Engine.Header.LastRecord + 1};
    InsertKeys(File.Engine, std::vector<std::string>{Added.Text});
    Model.insert(std::upper_bound(Model.begin(), Model.end(), Added, Less), Added);
  }
  const Entry Middle = Model[Model.size() / 2];
  DeleteKeys(File.Engine, Middle.Record, std::vector<std::string>{Middle.Text});
  ASSERT_EQ(File.Engine.EngineStatus, 0);
  Model.erase(Model.begin() + static_cast<std::ptrdiff_t>(Model.size() / 2));
  EXPECT_EQ(CheckKeyFile(File.Engine), std::vector<std::string>{});
  EXPECT_EQ(ListKeyEntries(File.Engine, 1), Model);
}

// Capacities 204, 72, 15 and 3 (key lengths 1, 10, 60, 255): an empty key, one exactly
// full node, and trees several levels deep with long runs of equal keys.
INSTANTIATE_TEST_SUITE_P(KeyLengthsAndCounts, BulkLoadTest,
                         ::testing::Values(Case{10, 0, 1}, Case{10, 72, 5}, Case{1, 20000, 11},
                                           Case{60, 12000, 25}, Case{255, 20, 4}),
                         [](const ::testing::TestParamInfo<Case>& Info) {
                           return "Length" + std::to_string(Info.param.KeyLength) + "Count" +
                                  std::to_string(Info.param.Count);
                         });

// Capacity 9 (key length 100): 7 per node reaches 8 levels at 7^8 entries, 8 per node
// goes on to 8^8; 256 entries of two per node need exactly the eight levels there are.
TEST(BulkFillTest, LeavesRoomInEveryNodeAndPacksOnlyWhenTooDeep) {
  EXPECT_EQ(BulkFill(3), 2);
  EXPECT_EQ(BulkDepth(256, 2), 8);
  EXPECT_EQ(BulkDepth(257, 2), 9);
  EXPECT_EQ(BulkFillFor(9, 1000), 7);
  EXPECT_EQ(BulkFillFor(9, 7000000), 8);
}

// Full nodes keep the fill and the root stays in place; a small last node shares with its
// neighbour (64 entries of key length 10: not 61 + 3 but 32 + 32).
TEST(BulkShapeTest, NodesAreFilledEvenlyUnderTheRootInPlace) {
  BulkFile Sixty(60);
  const int32_t Root = Sixty.Engine.RootPos[1];
  Sixty.Load(MakeEntries(60, 3 * BulkFill(NodeCapacity(60)), 1000, 6), -1);
  EXPECT_EQ(Sixty.Engine.RootPos[1], Root);
  EXPECT_EQ(Sixty.Shape(), (std::vector<std::vector<int>>{{3}, {12, 12, 12}}));
  BulkFile Ten(10);
  Ten.Load(MakeEntries(10, BulkFill(NodeCapacity(10)) + 3, 1000, 5), -1);
  EXPECT_EQ(Ten.Shape(), (std::vector<std::vector<int>>{{2}, {32, 32}}));
  EXPECT_EQ(CheckKeyFile(Ten.Engine), std::vector<std::string>{});
}

TEST(BulkMisuseTest, RefusesDisorderUsedKeysTooDeepTreesAndShortRecordCounts) {
  BulkFile File(10);
  KeyBulkBuilder Builder(File.Engine);
  Builder.BeginKey(1);
  Builder.Add("B", 5);
  EXPECT_THROW(Builder.Add("A", 6), platform::Fault);
  EXPECT_THROW(Builder.Add("B", 5), platform::Fault);  // the same pair twice
  Builder.Add("B", 6);
  Builder.FinishKey();
  EXPECT_THROW(Builder.Finish(5), platform::Fault);  // below the highest record loaded
  Builder.Finish(6);
  InsertKeys(File.Engine, std::vector<std::string>{"X"});
  EXPECT_EQ(File.Engine.LastAllocated, 7);  // numbering continues after the loaded ones
  KeyBulkBuilder Again(File.Engine);
  EXPECT_THROW(Again.BeginKey(1), platform::Fault);  // the key holds entries
  EXPECT_THROW(Again.BeginKey(2), platform::Fault);  // not in the file

  BulkFile Long(255);
  KeyBulkBuilder Counted(Long.Engine);
  try {
    Counted.BeginKey(1, 257);
    FAIL() << "no fault";
  } catch (const platform::Fault& Failure) {
    EXPECT_EQ(Failure.Number(), platform::kSubscript);
  }
  // Without a count the builder finds out while it loads.
  KeyBulkBuilder Blind(Long.Engine);
  Blind.BeginKey(1);
  std::vector<Entry> Entries = MakeEntries(255, 300, 300, 9);
  EXPECT_THROW(
      {
        for (const Entry& E : Entries) Blind.Add(E.Text, E.Record);
        Blind.FinishKey();
      },
      platform::Fault);
}

}  // namespace
}  // namespace tqdb::engine

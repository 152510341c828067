// Bulk-loaded key trees where the model test does not look: the fill and shape of the
// nodes, and the misuses the builder refuses.
#include "engine/bulk_builder.h"

#include <gtest/gtest.h>

#include <algorithm>
#include <random>
#include <string>
#include <vector>

#include "engine/key_file_damage.h"
#include "engine_fixture.h"
#include "platform/fault.h"

namespace tqdb::testing {
namespace {

using engine::KeyEntry;

// N entries over Distinct values (runs of equal keys), record numbers 1..N in random
// order, sorted.
std::vector<KeyEntry> MakeEntries(int KeyLength, int N, int Distinct, uint32_t Seed) {
  std::mt19937 Random(Seed);
  std::vector<std::string> Values;
  for (int I = 0; I < Distinct; ++I) Values.push_back(RandomText(Random, size_t(KeyLength)));
  std::vector<int32_t> Records(static_cast<size_t>(N));
  for (int I = 0; I < N; ++I) Records[static_cast<size_t>(I)] = I + 1;
  std::shuffle(Records.begin(), Records.end(), Random);
  std::vector<KeyEntry> Entries;
  for (int32_t Record : Records) Entries.push_back({Values[Random() % Values.size()], Record});
  std::sort(Entries.begin(), Entries.end(), KeyLess);
  return Entries;
}

void Load(EngineState& Engine, const std::vector<KeyEntry>& Sorted, int64_t Expected) {
  engine::KeyBulkBuilder Builder(Engine);
  Builder.BeginKey(1, Expected);
  int32_t Last = 0;
  for (const KeyEntry& E : Sorted) {
    Builder.Add(E.Text, E.Record);
    Last = std::max(Last, E.Record);
  }
  Builder.FinishKey();
  Builder.Finish(Last);
}

// Entry counts of the nodes of each level of key 1, root first.
std::vector<std::vector<int>> Shape(EngineState& Engine) {
  std::vector<std::vector<int>> Levels;
  for (std::vector<int64_t> Positions{Engine.RootPos[1]}; !Positions.empty();) {
    std::vector<int> Counts;
    std::vector<int64_t> Next;
    for (int64_t Position : Positions) {
      NodeBuffer Buffer;
      engine::ReadPage(Engine, Position, Buffer);
      const engine::NodeView Node(Buffer, Engine.KeyLen[1]);
      Counts.push_back(Node.Count());
      for (int I = 0; !Node.IsLeaf() && I < Node.Count(); ++I) Next.push_back(Node.Value(I));
    }
    Levels.push_back(Counts);
    Positions = Next;
  }
  return Levels;
}

// Capacity 9 (key length 100): 7 per node reaches 8 levels at 7^8 entries, 8 per node
// goes on to 8^8; 256 entries of two per node need exactly the eight levels there are.
// Full nodes keep the fill and the root stays in place; a small last node shares with its
// neighbour (64 entries of key length 10: not 61 + 3 but 32 + 32).
TEST(BulkShapeTest, NodesAreFilledEvenlyUnderTheRootInPlaceAndPackedOnlyWhenTooDeep) {
  EXPECT_EQ(engine::BulkFill(3), 2);
  EXPECT_EQ(engine::BulkDepth(256, 2), 8);
  EXPECT_EQ(engine::BulkDepth(257, 2), 9);
  EXPECT_EQ(engine::BulkFillFor(9, 1000000), 7);  // exactly eight levels
  EXPECT_EQ(engine::BulkFillFor(9, 7000000), 8);
  EngineFile Sixty({60});
  const int32_t Root = Sixty.Engine.RootPos[1];
  Load(Sixty.Engine, MakeEntries(60, 3 * engine::BulkFill(engine::NodeCapacity(60)), 1000, 6), -1);
  EXPECT_EQ(Sixty.Engine.RootPos[1], Root);
  EXPECT_EQ(Shape(Sixty.Engine), (std::vector<std::vector<int>>{{3}, {12, 12, 12}}));
  EngineFile Ten({10});
  Load(Ten.Engine, MakeEntries(10, engine::BulkFill(engine::NodeCapacity(10)) + 3, 1000, 5), -1);
  EXPECT_EQ(Shape(Ten.Engine), (std::vector<std::vector<int>>{{2}, {32, 32}}));
  EXPECT_EQ(Ten.Problems(), std::vector<std::string>{});
}

TEST(BulkMisuseTest, RefusesDisorderUsedKeysTooDeepTreesAndShortRecordCounts) {
  EngineFile File({10});
  engine::KeyBulkBuilder Builder(File.Engine);
  Builder.BeginKey(1);
  Builder.Add("B", 5);
  EXPECT_THROW(Builder.Add("A", 6), platform::Fault);
  EXPECT_THROW(Builder.Add("B", 5), platform::Fault);  // the same pair twice
  Builder.Add("B", 6);
  Builder.FinishKey();
  EXPECT_THROW(Builder.Finish(5), platform::Fault);  // below the highest record loaded
  Builder.Finish(6);
  EXPECT_EQ(File.Insert({"X"}), 7);  // numbering continues after the loaded ones
  engine::KeyBulkBuilder Again(File.Engine);
  EXPECT_THROW(Again.BeginKey(1), platform::Fault);  // the key holds entries
  EXPECT_THROW(Again.BeginKey(2), platform::Fault);  // not in the file
  File.SetFileBytes(File.FileBytes() + "x");         // a fragment after the last page
  EXPECT_THROW(engine::KeyBulkBuilder Damaged(File.Engine), engine::KeyFileDamaged);

  EngineFile Long({255});
  engine::KeyBulkBuilder Counted(Long.Engine);
  try {
    Counted.BeginKey(1, 257);
    FAIL() << "no fault";
  } catch (const platform::Fault& Failure) {
    EXPECT_EQ(Failure.Number(), platform::kSubscript);
  }
  // Without a count the builder finds out while it loads.
  engine::KeyBulkBuilder Blind(Long.Engine);
  Blind.BeginKey(1);
  EXPECT_THROW(
      {
        for (const KeyEntry& E : MakeEntries(255, 300, 300, 9)) Blind.Add(E.Text, E.Record);
        Blind.FinishKey();
      },
      platform::Fault);
}

}  // namespace
}  // namespace tqdb::testing

// Where nodes split and the depth limit: shapes the randomized model test cannot see (it
// checks that the tree is sound, not where it splits).
#include "engine/key_update.h"

#include <gtest/gtest.h>

#include <string>
#include <vector>

#include "engine/key_codec.h"
#include "engine/record_allocator.h"
#include "engine_fixture.h"

namespace tqdb::testing {
namespace {

using engine::NodeView;

int CountAt(EngineFile& File, int64_t Position, int Length) {
  NodeBuffer Page = File.Page(Position);
  return NodeView(Page, Length).Count();
}

std::string Numbered(const std::string& Prefix, int Number, int Width = 3) {
  std::string Digits = std::to_string(Number);
  return Prefix + std::string(size_t(Width) - Digits.size(), '0') + Digits;
}

// Filling a root leaf splits it under a new root at the same place. Capacities 72, 35, 29
// and 32 (key lengths 10, 25, 31, 27): halves 36, 17.5, 14.5 and 16 round to even.
TEST(KeySplit, AFullRootLeafSplitsInPlaceAtTheHalfRoundedToEven) {
  for (const auto& [Length, Split] :
       std::vector<std::pair<int, int>>{{10, 36}, {25, 18}, {31, 14}, {27, 16}}) {
    EngineFile File({Length});
    const int32_t Root = File.Engine.RootPos[1];
    const int Capacity = engine::NodeCapacity(Length);
    for (int I = 0; I < Capacity - 1; ++I) File.Insert({Numbered("K", I)});
    EXPECT_EQ(CountAt(File, Root, Length), Capacity - 1);  // never left full
    File.Insert({Numbered("K", Capacity - 1)});
    NodeBuffer Page = File.Page(Root);
    const NodeView Node(Page, Length);
    ASSERT_FALSE(Node.IsLeaf()) << Length;
    ASSERT_EQ(Node.Count(), 2) << Length;
    EXPECT_EQ(File.Engine.RootPos[1], Root);
    EXPECT_EQ(Node.KeyText(0), Padded("K000", Length));
    EXPECT_EQ(Node.KeyText(1), Padded(Numbered("K", Split), Length)) << Length;
    EXPECT_EQ(CountAt(File, Node.Value(0), Length), Split) << Length;
    EXPECT_TRUE(File.Problems().empty());
  }
}

TEST(KeySplit, ARunOfEqualKeysAcrossTheMiddleMovesTheSplitToItsStart) {
  EngineFile File({10});
  for (int I = 0; I < 30; ++I) File.Insert({Numbered("A", I)});
  for (int I = 0; I < 42; ++I) File.Insert({"DUP"});
  NodeBuffer Root = File.Page(File.Engine.RootPos[1]);
  const NodeView Node(Root, 10);
  ASSERT_EQ(Node.Count(), 2);
  EXPECT_EQ(Node.KeyText(1), Padded("DUP", 10));
  EXPECT_EQ(CountAt(File, Node.Value(0), 10), 30);
}

// Nodes of three entries split 1 + 2 when the new entry is not their last, so that
// insertions arriving at the front of the key do not add a level each.
TEST(KeySplit, ThreeEntryNodesTakeDescendingInsertionsWithoutDeepening) {
  EngineFile File({255});
  for (int I = 200; I > 0; --I) File.Insert({Numbered("K", I)});
  EXPECT_EQ(File.Entries(1).size(), 200u);
  EXPECT_TRUE(File.Problems().empty());
  EXPECT_LE(File.Engine.LeafLevel, 7);
}

TEST(KeyDelete, RemovingEveryEntryLeavesAnEmptyRootLeaf) {
  EngineFile File({10});
  std::vector<int32_t> Records;
  for (int I = 0; I < 400; ++I) Records.push_back(File.Insert({Numbered("K", I % 97)}));
  for (size_t I = 0; I < Records.size(); ++I) {
    File.Delete(Records[I], {Numbered("K", int(I) % 97)});
    ASSERT_EQ(File.Status, 0);
  }
  NodeBuffer Root = File.Page(File.Engine.RootPos[1]);
  EXPECT_TRUE(NodeView(Root, 10).IsLeaf());
  EXPECT_EQ(NodeView(Root, 10).Count(), 0);
  EXPECT_EQ(File.Insert({"NEW"}), Records.back());
  EXPECT_TRUE(File.Problems().empty());
}

// A key of 255 bytes outgrows the eight level buffers after a few hundred records. The
// record that would need a ninth level is refused before anything of it stays.
TEST(KeyInsert, ATreeOutgrowingTheLevelBuffersIsRefusedAndTakenBack) {
  EngineFile File({10, 255});
  int Inserted = 0;
  for (int I = 0; I < 2000; ++I) {
    File.Run("I\\1\\" + Padded(Numbered("K", I, 4), 10) + "\\" + Padded(Numbered("V", I, 4), 255));
    if (File.Status != 0) break;
    ++Inserted;
  }
  ASSERT_EQ(File.Status, 105);
  EXPECT_EQ(File.ErrorText, "El subíndice está fuera del intervalo");
  EXPECT_GT(Inserted, 100);
  EXPECT_EQ(File.Entries(1).size(), size_t(Inserted));
  EXPECT_EQ(File.Entries(2).size(), size_t(Inserted));
  EXPECT_EQ(engine::ListDeletedRecords(File.Engine), std::vector<int32_t>{Inserted + 1});
  File.Delete(1, {Numbered("K", 0, 4), Numbered("V", 0, 4)});  // removals make room again
  EXPECT_EQ(File.Status, 0);
  EXPECT_TRUE(File.Problems().empty());
}

}  // namespace
}  // namespace tqdb::testing

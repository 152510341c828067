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

std::string Numbered(const std::string& Prefix, int Number, int Width = 3) {
  std::string Digits = std::to_string(Number);
  return Prefix + std::string(size_t(Width) - Digits.size(), '0') + Digits;
}

TEST(KeySplit, FillingTheRootLeafSplitsItUnderANewRootInPlace) {
  EngineFile File({10});  // 72 entries per node
  const int32_t Root = File.Engine.RootPos[1];
  for (int I = 0; I < 71; ++I) File.Insert({Numbered("K", I)});
  NodeBuffer Page = File.Page(Root);
  EXPECT_EQ(NodeView(Page, 10).Count(), 71);  // never left full: 71 is the most at rest
  EXPECT_TRUE(NodeView(Page, 10).IsLeaf());

  File.Insert({Numbered("K", 71)});
  Page = File.Page(Root);
  const NodeView Node(Page, 10);
  ASSERT_FALSE(Node.IsLeaf());
  ASSERT_EQ(Node.Count(), 2);
  EXPECT_EQ(File.Engine.RootPos[1], Root);
  EXPECT_EQ(Node.KeyText(0), Padded("K000", 10));
  EXPECT_EQ(Node.KeyText(1), Padded("K036", 10));  // 72 / 2
  NodeBuffer Left = File.Page(Node.Value(0)), Right = File.Page(Node.Value(1));
  EXPECT_EQ(NodeView(Left, 10).Count(), 36);
  EXPECT_EQ(NodeView(Right, 10).Count(), 36);
  EXPECT_TRUE(File.Problems().empty());
}

TEST(KeySplit, HalvesRoundToEven) {
  // Key lengths 25, 31 and 27 give capacities 35, 29 and 32: halves 17.5, 14.5 and 16
  // split at 18, 14 and 16.
  for (const auto& [Length, Split] :
       std::vector<std::pair<int, int>>{{25, 18}, {31, 14}, {27, 16}}) {
    EngineFile File({Length});
    const int Capacity = engine::NodeCapacity(Length);
    for (int I = 0; I < Capacity; ++I) File.Insert({Numbered("K", I)});
    NodeBuffer Root = File.Page(File.Engine.RootPos[1]);
    EXPECT_EQ(NodeView(Root, Length).KeyText(1), Padded(Numbered("K", Split), Length)) << Length;
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
  NodeBuffer Left = File.Page(Node.Value(0));
  EXPECT_EQ(NodeView(Left, 10).Count(), 30);
  EXPECT_TRUE(File.Problems().empty());
}

// A node full of one value splits in the middle, leaving a branch with two equal keys;
// every entry must still be found, in order, and removable.
TEST(KeySplit, ARunFromTheFirstEntryKeepsTheMiddleAndStaysReachable) {
  EngineFile File({10});
  std::vector<int32_t> Records;
  for (int I = 0; I < 200; ++I) Records.push_back(File.Insert({"SAME"}));
  NodeBuffer Root = File.Page(File.Engine.RootPos[1]);
  EXPECT_EQ(NodeView(Root, 10).KeyText(0), NodeView(Root, 10).KeyText(1));
  File.Run("S\\1\\1\\" + Padded("SAME", 10));
  EXPECT_EQ(File.Status, 0);
  EXPECT_EQ(File.Result, Records.front());
  for (int32_t Record : Records) {
    File.Delete(Record, {"SAME"});
    ASSERT_EQ(File.Status, 0) << Record;
  }
  EXPECT_TRUE(File.Entries(1).empty());
  EXPECT_TRUE(File.Problems().empty());
}

TEST(KeyInsert, ALowerKeyIsCarriedUpTheLeftmostPath) {
  EngineFile File({60});  // 15 entries per node: three levels soon
  for (int I = 100; I < 400; ++I) File.Insert({Numbered("M", I)});
  File.Insert({"A"});
  int64_t Position = File.Engine.RootPos[1];
  int Levels = 0;
  for (;;) {
    NodeBuffer Page = File.Page(Position);
    const NodeView Node(Page, 60);
    EXPECT_EQ(Node.KeyText(0), Padded("A", 60));
    if (Node.IsLeaf()) break;
    Position = Node.Value(0);
    ++Levels;
  }
  EXPECT_GE(Levels, 2);
  EXPECT_TRUE(File.Problems().empty());
}

TEST(KeyInsert, ValuesArePaddedOrCutToTheKeyLength) {
  EngineFile File({4, 2});
  File.Run("I\\1\\AB\\LONGER");
  ASSERT_EQ(File.Status, 0);
  EXPECT_EQ(File.Entries(1).front().Text, "AB  ");
  EXPECT_EQ(File.Entries(2).front().Text, "LO");
}

TEST(KeyDelete, MismatchedValuesGiveStatus6AndChangeNothing) {
  EngineFile File({6, 4});
  const int32_t Record = File.Insert({"GARCIA", "0001"});
  File.Insert({"PEREZ", "0002"});
  File.Delete(Record, {"GARCIA", "0002"});
  EXPECT_EQ(File.Status, 6);
  File.Delete(Record + 5, {"GARCIA", "0001"});
  EXPECT_EQ(File.Status, 6);
  EXPECT_EQ(File.Entries(1).size(), 2u);
  EXPECT_EQ(File.Entries(2).size(), 2u);
  EXPECT_TRUE(engine::ListDeletedRecords(File.Engine).empty());
  File.Delete(Record, {"GARCIA", "0001"});
  EXPECT_EQ(File.Status, 0);
  EXPECT_EQ(File.Entries(1).size(), 1u);
  EXPECT_EQ(engine::ListDeletedRecords(File.Engine), std::vector<int32_t>{Record});
}

TEST(KeyDelete, RemovingEveryEntryLeavesAnEmptyRootLeaf) {
  EngineFile File({10, 60});
  std::vector<int32_t> Records;
  for (int I = 0; I < 500; ++I) {
    Records.push_back(File.Insert({Numbered("K", I % 97), Numbered("V", I)}));
  }
  for (size_t I = 0; I < Records.size(); ++I) {
    const int Number = static_cast<int>(I);
    File.Delete(Records[I], {Numbered("K", Number % 97), Numbered("V", Number)});
    ASSERT_EQ(File.Status, 0);
    if (I % 50 == 0) {
      ASSERT_TRUE(File.Problems().empty());
    }
  }
  for (int Key = 1; Key <= 2; ++Key) {
    NodeBuffer Root = File.Page(File.Engine.RootPos[Key]);
    EXPECT_TRUE(NodeView(Root, File.Length(Key)).IsLeaf());
    EXPECT_EQ(NodeView(Root, File.Length(Key)).Count(), 0);
    File.Run("F\\" + std::to_string(Key) + "\\1");
    EXPECT_EQ(File.Status, 16);
    EXPECT_EQ(File.Result, 0);
  }
  EXPECT_TRUE(File.Problems().empty());
  // The emptied tree takes entries again; the last released number comes back first.
  EXPECT_EQ(File.Insert({"NEW", "NEW"}), Records.back());
  EXPECT_EQ(File.Entries(2).size(), 1u);
  EXPECT_TRUE(File.Problems().empty());
}

TEST(KeyReplace, MovesOneEntryAndReportsAMissingOne) {
  EngineFile File({6, 6});
  const int32_t Record = File.Insert({"ALFA", "BETA"});
  File.Run("R\\2\\" + std::to_string(Record) + "\\1\\" + Padded("BETA", 6) + "\\" +
           Padded("ZETA", 6));
  EXPECT_EQ(File.Status, 0);
  EXPECT_EQ(File.Result, Record);
  EXPECT_EQ(File.Entries(2), (std::vector<engine::KeyEntry>{{"ZETA  ", Record}}));
  File.Run("R\\2\\" + std::to_string(Record) + "\\1\\" + Padded("BETA", 6) + "\\" + Padded("X", 6));
  EXPECT_EQ(File.Status, 6);
  EXPECT_EQ(File.Entries(2), (std::vector<engine::KeyEntry>{{"ZETA  ", Record}}));
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

// A key of 255 bytes holds 3 entries per node, so its tree outgrows the eight level
// buffers after a few hundred records. The record that would need a ninth level is
// refused before anything of it stays: its other keys are taken back and its number
// released.
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
  EXPECT_TRUE(File.Problems().empty());
  // Removing records makes room again.
  File.Delete(1, {Numbered("K", 0, 4), Numbered("V", 0, 4)});
  EXPECT_EQ(File.Status, 0);
  EXPECT_TRUE(File.Problems().empty());
}

}  // namespace
}  // namespace tqdb::testing

#include "engine/tree_checker.h"

#include <gtest/gtest.h>

#include <string>
#include <vector>

#include "engine/key_codec.h"
#include "engine_fixture.h"

namespace tqdb::testing {
namespace {

using engine::Int16ToBytes;
using engine::Int32ToBytes;
using engine::NodeView;

bool Mentions(const std::vector<std::string>& Problems, const std::string& Text) {
  for (const std::string& Problem : Problems) {
    if (Problem.find(Text) != std::string::npos) return true;
  }
  return false;
}

class TreeChecker : public ::testing::Test {
 protected:
  TreeChecker() : File({6}) {
    for (int I = 0; I < 300; ++I) File.Insert({"K" + std::to_string(1000 + (I * 7) % 300)});
    Root = File.Engine.RootPos[1];
    NodeBuffer Page = File.Page(Root);
    Leaf = NodeView(Page, 6).Value(1);
  }
  std::vector<std::string> Problems() {
    File.Open();
    return engine::CheckKeyTree(File.Engine, 1);
  }

  EngineFile File;
  int32_t Root = 0;
  int32_t Leaf = 0;  // the root's second child
};

TEST_F(TreeChecker, ASoundTreeHasNoProblemsAndListsItsEntriesInOrder) {
  EXPECT_TRUE(File.Problems().empty());
  const std::vector<engine::KeyEntry> Entries = File.Entries(1);
  ASSERT_EQ(Entries.size(), 300u);
  for (size_t I = 0; I < Entries.size(); ++I) {
    EXPECT_EQ(Entries[I].Text, Padded("K" + std::to_string(1000 + I), 6));
  }
}

TEST_F(TreeChecker, FindsEntriesOutOfOrder) {
  File.PokeBytes(Leaf + 3 + 10 + 10, "K0000 ");  // the third entry of the leaf
  EXPECT_TRUE(Mentions(Problems(), "out of order"));
}

TEST_F(TreeChecker, FindsABranchKeyThatIsNotItsChildsLowest) {
  File.PokeBytes(Root + 3 + 10, "K9999 ");
  const std::vector<std::string> Found = Problems();
  EXPECT_TRUE(Mentions(Found, "lowest key"));
}

TEST_F(TreeChecker, FindsAFullNodeAndAnEmptyOne) {
  File.PokeBytes(Leaf + 1, Int16ToBytes(static_cast<int16_t>(engine::NodeCapacity(6))));
  EXPECT_TRUE(Mentions(Problems(), "left full"));
  File.PokeBytes(Leaf + 1, Int16ToBytes(0));
  EXPECT_TRUE(Mentions(Problems(), "empty node"));
}

TEST_F(TreeChecker, FindsRecordNumbersBeyondTheLastOne) {
  File.PokeBytes(Leaf + 3 + 6, Int32ToBytes(100000));
  EXPECT_TRUE(Mentions(Problems(), "outside 1..last"));
}

TEST_F(TreeChecker, FindsAStackPageThatIsAlsoATreeNode) {
  File.Delete(File.Entries(1).front().Record, {"K1000"});
  ASSERT_EQ(File.Status, 0);
  EXPECT_TRUE(File.Problems().empty());
  File.PokeBytes(12, Int32ToBytes(Leaf));
  EXPECT_TRUE(Mentions(File.Problems(), "also used elsewhere"));
}

TEST_F(TreeChecker, AKeyOutsideTheFileIsAProblemNotAFault) {
  EXPECT_FALSE(engine::CheckKeyTree(File.Engine, 2).empty());
  EXPECT_TRUE(engine::ListKeyEntries(File.Engine, 0).empty());
}

}  // namespace
}  // namespace tqdb::testing

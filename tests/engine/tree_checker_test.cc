// The tree checker must name each kind of fault it is there to find.
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

bool Mentions(const std::vector<std::string>& Problems, const std::string& Text) {
  for (const std::string& Problem : Problems) {
    if (Problem.find(Text) != std::string::npos) return true;
  }
  return false;
}

TEST(TreeChecker, NamesEachKindOfDamage) {
  EngineFile File({6});
  for (int I = 0; I < 300; ++I) File.Insert({"K" + std::to_string(1000 + (I * 7) % 300)});
  File.Delete(File.Entries(1).front().Record, {"K1000"});  // a page on the deleted stack
  ASSERT_EQ(File.Problems(), std::vector<std::string>{});
  const int32_t Root = File.Engine.RootPos[1];
  NodeBuffer Page = File.Page(Root);
  const int32_t Leaf = engine::NodeView(Page, 6).Value(1);  // the root's second child
  const std::string Sound = File.Dir().Read(File.FileName());
  struct Damage {
    int64_t Position;
    std::string Bytes, Found;
  };
  for (const Damage& Case : std::vector<Damage>{
           {Leaf + 3 + 20, "K0000 ", "out of order"},
           {Root + 3 + 10, "K9999 ", "lowest key"},
           {Leaf + 1, Int16ToBytes(int16_t(engine::NodeCapacity(6))), "left full"},
           {Leaf + 1, Int16ToBytes(0), "empty node"},
           {Leaf + 3 + 6, Int32ToBytes(100000), "outside 1..last"},
           {12, Int32ToBytes(Leaf), "also used elsewhere"},  // the stack's head is a leaf
       }) {
    File.Dir().Write(File.FileName(), Sound);
    File.PokeBytes(Case.Position, Case.Bytes);
    File.Open();
    EXPECT_TRUE(Mentions(File.Problems(), Case.Found)) << Case.Found;
  }
}

TEST(TreeChecker, AKeyOutsideTheFileIsAProblemNotAFault) {
  EngineFile File({6});
  EXPECT_FALSE(engine::CheckKeyTree(File.Engine, 2).empty());
  EXPECT_TRUE(engine::ListKeyEntries(File.Engine, 0).empty());
}

}  // namespace
}  // namespace tqdb::testing

// Navigation cases the randomized model test is unlikely to meet: searches that land at
// leaf boundaries, key bytes hidden in record numbers, runs longer than a node, and the
// ends of a walk.
#include "engine/key_navigation.h"

#include <gtest/gtest.h>

#include <string>
#include <vector>

#include "engine/key_file.h"
#include "engine_fixture.h"

namespace tqdb::testing {
namespace {

std::string Numbered(const std::string& Prefix, int Number) {
  std::string Digits = std::to_string(Number);
  return Prefix + std::string(4 - Digits.size(), '0') + Digits;
}

TEST(KeyNavigation, EmptyKeysAndUnpositionedCursorsGiveStatus16) {
  EngineFile File({10});
  for (const char* Command : {"F\\1\\1", "L\\1\\1", "G\\1\\1\\A", "S\\1\\1\\ABCDEFGHIJ",
                              "A\\1\\5\\1\\ABCDEFGHIJ", "E\\1\\5\\1\\ABCDEFGHIJ"}) {
    File.Result = 99;
    File.Run(Command);
    EXPECT_EQ(File.Status, 16) << Command;
    EXPECT_EQ(File.Result, 0) << Command;
  }
  File.Insert({"A"});
  File.Open();  // opening leaves the cursor nowhere
  for (const char* Command : {"N\\1", "P\\1"}) {
    File.Run(Command);
    EXPECT_EQ(File.Status, 16) << Command;
  }
}

TEST(KeyNavigation, AWalkStopsOnTheLastEntryAndStepsBackFromIt) {
  EngineFile File({10});
  std::vector<int32_t> R;
  for (int I = 0; I < 200; ++I) R.push_back(File.Insert({Numbered("K", I)}));
  File.Run("L\\1\\1");
  File.Run("N\\1");
  EXPECT_EQ(File.Status, 15);
  EXPECT_EQ(File.Result, R[199]);  // N on the last entry returns it again
  File.Run("P\\1");
  EXPECT_EQ(File.Result, R[198]);
  File.Run("F\\1\\1");
  File.Run("P\\1");
  EXPECT_EQ(File.Status, 13);
  EXPECT_EQ(File.Result, R[0]);
  File.Run("N\\1");
  EXPECT_EQ(File.Result, R[1]);
}

// G with a value whose first match opens a leaf: the descent lands in the leaf before,
// where every entry is lower, and the search goes on into the next leaf.
TEST(KeyNavigation, PrefixSearchContinuesIntoTheNextLeaf) {
  EngineFile File({10});
  for (int I = 0; I < 300; ++I) File.Insert({Numbered("K", I)});
  File.Run("F\\1\\1");
  const int32_t Leaf = File.Engine.Path[File.Engine.LeafLevel].Position;
  int Index = 0;
  while (File.Run("N\\1"), File.Status == 0) {
    ++Index;
    if (File.Engine.Path[File.Engine.LeafLevel].Position != Leaf) break;
  }
  ASSERT_EQ(File.Status, 0);
  const int32_t Opening = File.Result;
  const int32_t LastOfLeaf = File.Entries(1)[static_cast<size_t>(Index - 1)].Record;
  File.Run("G\\1\\1\\" + Numbered("K", Index));
  EXPECT_EQ(File.Status, 0);
  EXPECT_EQ(File.Result, Opening);
  EXPECT_EQ(File.Engine.Path[File.Engine.LeafLevel].Entry, 0);
  File.Run("P\\1");
  EXPECT_EQ(File.Result, LastOfLeaf);
  // Between the last entry of a leaf and the first of the next: 12, on the leaf's last.
  File.Run("G\\1\\1\\" + Numbered("K", Index - 1) + "5");
  EXPECT_EQ(File.Status, 12);
  EXPECT_EQ(File.Result, LastOfLeaf);
  File.Run("N\\1");
  EXPECT_EQ(File.Result, Opening);
}

// Record numbers 17219 and 17220 are stored as "CC\0\0" and "DC\0\0": the bytes of the
// value "CC" occur inside a record number before the entry that holds it.
TEST(KeyNavigation, FullSearchIgnoresValuesInsideRecordNumbersAndStaleEntries) {
  EngineFile File({2});
  engine::ReadHeader(File.Engine);
  File.Engine.Header.LastRecord = 17218;
  engine::WriteHeader(File.Engine);
  EXPECT_EQ(File.Insert({"AB"}), 17219);
  EXPECT_EQ(File.Insert({"CC"}), 17220);
  File.Run("S\\1\\1\\CC");
  EXPECT_EQ(File.Status, 0);
  EXPECT_EQ(File.Result, 17220);
  File.Run("S\\1\\1\\BC");  // "B" and the first byte of 17219
  EXPECT_EQ(File.Status, 12);
  EXPECT_EQ(File.Result, 17219);
  const int32_t Gone = File.Insert({"XY"});
  File.Delete(Gone, {"XY"});
  ASSERT_EQ(File.Status, 0);  // "XY" stays in the page beyond the count
  File.Run("S\\1\\1\\XY");
  EXPECT_EQ(File.Status, 15);
  EXPECT_EQ(File.Result, 17220);
}

TEST(KeyNavigation, FullSearchFindsTheFirstOfARunLongerThanANode) {
  for (int Length : {1, 10, 60, 255}) {
    EngineFile File({Length});
    const int Before = Length == 255 ? 3 : 20;
    for (int I = 0; I < Before; ++I) File.Insert({"A"});
    std::vector<int32_t> Records;
    for (int I = 0; I < engine::NodeCapacity(Length) * 2 + 5; ++I) {
      Records.push_back(File.Insert({"B"}));
    }
    for (int I = 0; I < Before; ++I) File.Insert({"C"});
    File.Run("S\\1\\1\\" + Padded("B", Length));
    EXPECT_EQ(File.Status, 0) << Length;
    EXPECT_EQ(File.Result, Records.front()) << Length;
    File.Run("G\\1\\1\\B");
    EXPECT_EQ(File.Result, Records.front()) << Length;
    for (size_t I = 1; I < Records.size(); ++I) {
      File.Run("N\\1");
      ASSERT_EQ(File.Result, Records[I]) << Length;
    }
    EXPECT_TRUE(File.Problems().empty()) << Length;
  }
}

}  // namespace
}  // namespace tqdb::testing

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

TEST(KeyNavigation, AnEmptyKeyGivesStatus16Everywhere) {
  EngineFile File({10});
  for (const char* Command : {"F\\1\\1", "L\\1\\1", "G\\1\\1\\A", "S\\1\\1\\ABCDEFGHIJ",
                              "A\\1\\5\\1\\ABCDEFGHIJ", "E\\1\\5\\1\\ABCDEFGHIJ"}) {
    File.Result = 99;
    File.Run(Command);
    EXPECT_EQ(File.Status, 16) << Command;
    EXPECT_EQ(File.Result, 0) << Command;
  }
}

TEST(KeyNavigation, NextAndPreviousOnAnUnpositionedCursorGive16) {
  EngineFile File({10});
  File.Insert({"A"});
  File.Open();  // opening leaves the cursor nowhere
  File.Run("N\\1");
  EXPECT_EQ(File.Status, 16);
  File.Run("P\\1");
  EXPECT_EQ(File.Status, 16);
}

TEST(KeyNavigation, WalksBothWaysAcrossLeavesAndStopsAtTheEnds) {
  EngineFile File({10});
  std::vector<int32_t> Records;
  for (int I = 0; I < 500; ++I) Records.push_back(File.Insert({Numbered("K", (I * 37) % 500)}));
  std::vector<int32_t> Expected(500);
  for (int I = 0; I < 500; ++I) Expected[static_cast<size_t>((I * 37) % 500)] = Records[I];

  std::vector<int32_t> Forward = {File.Run("F\\1\\1")};
  while (File.Run("N\\1"), File.Status == 0) Forward.push_back(File.Result);
  EXPECT_EQ(File.Status, 15);
  EXPECT_EQ(File.Result, Expected.back());  // N on the last entry returns it again
  EXPECT_EQ(Forward, Expected);
  File.Run("P\\1");
  EXPECT_EQ(File.Result, Expected[498]);

  std::vector<int32_t> Backward = {File.Run("L\\1\\1")};
  while (File.Run("P\\1"), File.Status == 0) Backward.push_back(File.Result);
  EXPECT_EQ(File.Status, 13);
  EXPECT_EQ(File.Result, Expected.front());
  EXPECT_EQ(Backward, std::vector<int32_t>(Expected.rbegin(), Expected.rend()));
  File.Run("N\\1");
  EXPECT_EQ(File.Result, Expected[1]);
}

// G with a value whose first match opens a leaf: the descent lands in the leaf before,
// where every entry is lower, and the search goes on into the next leaf.
TEST(KeyNavigation, PrefixSearchContinuesIntoTheNextLeaf) {
  EngineFile File({10});
  for (int I = 0; I < 300; ++I) File.Insert({Numbered("K", I)});
  // Find an entry that opens a leaf (other than the first).
  File.Run("F\\1\\1");
  int32_t Leaf = File.Engine.Path[File.Engine.LeafLevel].Position;
  int Index = 0;
  while (File.Run("N\\1"), File.Status == 0) {
    ++Index;
    if (File.Engine.Path[File.Engine.LeafLevel].Position != Leaf) break;
  }
  ASSERT_EQ(File.Status, 0);
  const int32_t Opening = File.Result;
  File.Run("G\\1\\1\\" + Numbered("K", Index));
  EXPECT_EQ(File.Status, 0);
  EXPECT_EQ(File.Result, Opening);
  EXPECT_EQ(File.Engine.Path[File.Engine.LeafLevel].Entry, 0);
  File.Run("P\\1");
  EXPECT_EQ(File.Entries(1)[static_cast<size_t>(Index - 1)].Record, File.Result);

  // A value between the last entry of a leaf and the first of the next: 12, on the
  // leaf's last entry.
  File.Run("G\\1\\1\\" + Numbered("K", Index - 1) + "5");
  EXPECT_EQ(File.Status, 12);
  EXPECT_EQ(File.Result, File.Entries(1)[static_cast<size_t>(Index - 1)].Record);
  File.Run("N\\1");
  EXPECT_EQ(File.Result, Opening);
}

TEST(KeyNavigation, PrefixSearchBeyondEitherEnd) {
  EngineFile File({10});
  for (int I = 0; I < 200; ++I) File.Insert({Numbered("M", I)});
  const std::vector<engine::KeyEntry> Entries = File.Entries(1);
  File.Run("G\\1\\1\\Z");
  EXPECT_EQ(File.Status, 15);
  EXPECT_EQ(File.Result, Entries.back().Record);
  File.Run("P\\1");
  EXPECT_EQ(File.Result, Entries[198].Record);
  File.Run("G\\1\\1\\A");
  EXPECT_EQ(File.Status, 13);
  EXPECT_EQ(File.Result, Entries.front().Record);
  File.Run("N\\1");
  EXPECT_EQ(File.Result, Entries[1].Record);
  File.Run("G\\1\\1\\M001");  // the first of ten keys that begin with it
  EXPECT_EQ(File.Status, 0);
  EXPECT_EQ(File.Entries(1)[10].Record, File.Result);
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
    const int Run = engine::NodeCapacity(Length) * 2 + 5;
    const int Before = Length == 255 ? 3 : 20;
    for (int I = 0; I < Before; ++I) File.Insert({"A"});
    std::vector<int32_t> Records;
    for (int I = 0; I < Run; ++I) Records.push_back(File.Insert({"B"}));
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

TEST(KeyNavigation, AfterAndBeforeStepAroundAPairEvenWhenItIsGone) {
  EngineFile File({4});
  const std::string K = Padded("K", 4);
  std::vector<int32_t> R;
  for (int I = 0; I < 4; ++I) R.push_back(File.Insert({"K"}));
  File.Delete(R[1], {"K"});
  const auto After = [&](int32_t Record, const std::string& Value) {
    return File.Run("A\\1\\" + std::to_string(Record) + "\\1\\" + Value);
  };
  const auto Before = [&](int32_t Record, const std::string& Value) {
    return File.Run("E\\1\\" + std::to_string(Record) + "\\1\\" + Value);
  };
  EXPECT_EQ(After(R[1], K), R[2]);  // the deleted pair's next duplicate is not skipped
  EXPECT_EQ(File.Status, 0);
  EXPECT_EQ(Before(R[1], K), R[0]);
  EXPECT_EQ(File.Status, 0);
  EXPECT_EQ(After(R[0], K), R[2]);
  EXPECT_EQ(Before(R[2], K), R[0]);
  EXPECT_EQ(After(R[3], K), R[3]);
  EXPECT_EQ(File.Status, 15);
  EXPECT_EQ(Before(R[0], K), R[0]);
  EXPECT_EQ(File.Status, 13);
  EXPECT_EQ(After(0, Padded("A", 4)), R[0]);  // a pair below every entry
  EXPECT_EQ(File.Status, 0);
  EXPECT_EQ(Before(0, Padded("A", 4)), R[0]);
  EXPECT_EQ(File.Status, 13);
  EXPECT_EQ(Before(1, Padded("Z", 4)), R[3]);  // a pair above every entry
  EXPECT_EQ(File.Status, 0);
  EXPECT_EQ(After(1, Padded("Z", 4)), R[3]);
  EXPECT_EQ(File.Status, 15);
}

TEST(KeyNavigation, KeyNumbersOutsideTheFileAreFaults) {
  EngineFile File({4});
  File.Run("F\\11\\1");
  EXPECT_EQ(File.Status, 105);
  File.Run("F\\2\\1");  // a key the file does not define: root position 0
  EXPECT_EQ(File.Status, 101);
  File.Run("F\\0\\1");
  EXPECT_EQ(File.Status, 101);
}

}  // namespace
}  // namespace tqdb::testing

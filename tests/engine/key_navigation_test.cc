// Navigation cases the randomized model test is unlikely to meet: empty keys, unpositioned
// cursors, and key bytes hidden in record numbers.
#include "engine/key_navigation.h"

#include <gtest/gtest.h>

#include <string>
#include <vector>

#include "engine/key_file.h"
#include "engine_fixture.h"

namespace tqdb::testing {
namespace {

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

}  // namespace
}  // namespace tqdb::testing

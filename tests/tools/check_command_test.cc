// tqdb check on sound and damaged tables, and the repairs (rebuild, reindex) that make a
// damaged table pass again.
#include <gtest/gtest.h>

#include <cstdint>
#include <string>

#include "tool_runner.h"

namespace tqdb::testing {
namespace {

int32_t LoadInt32(const std::string& Bytes, size_t At) {
  uint32_t Value = 0;
  for (int I = 3; I >= 0; --I) Value = (Value << 8) | static_cast<uint8_t>(Bytes[At + size_t(I)]);
  return static_cast<int32_t>(Value);
}

void StoreInt32(std::string& Bytes, size_t At, int32_t Value) {
  for (int I = 0; I < 4; ++I) Bytes[At + size_t(I)] = static_cast<char>(uint32_t(Value) >> (8 * I));
}

class CheckCommand : public SampleTablesTest {
 protected:
  std::string Table() const { return Invoices(); }
  std::string KeyFileName() const { return FileNamed(Dir, "FACTU01.tqc"); }
  std::string KeyFile() const { return Dir.Read(KeyFileName()); }
  void WriteKeyFile(const std::string& Bytes) { Dir.Write(KeyFileName(), Bytes); }

  // 0-based offset of the leftmost leaf of key 1: header 15 bytes, then 5-byte descriptors
  // (key length, 1-based root position), then 1024-byte nodes (kind, count, entries of
  // key text and a 4-byte number).
  static size_t FirstLeaf(const std::string& Bytes, int& KeyLength) {
    KeyLength = static_cast<uint8_t>(Bytes[15]);
    size_t Node = size_t(LoadInt32(Bytes, 16) - 1);
    while (Bytes[Node] == 1) Node = size_t(LoadInt32(Bytes, Node + 3 + size_t(KeyLength)) - 1);
    return Node;
  }

  void ExpectRepairedBy(const std::string& Command) {
    const ToolResult Repair = Run({Command, Table()});
    ASSERT_EQ(Repair.Status, 0) << Repair.Out << Repair.Err;
    EXPECT_NE(Repair.Out.find(Command + ": 100%\n"), std::string::npos) << Repair.Out;
    const ToolResult After = Run({"check", Table()});
    EXPECT_EQ(After.Status, 0) << After.Out;
  }
};

TEST_F(CheckCommand, ASoundTablePasses) {
  const ToolResult Result = Run({"check", Table()});
  EXPECT_EQ(Result.Status, 0);
  EXPECT_EQ(Result.Out, "FACTU01: ok (3 keys, 2000 live records, 0 deleted)\n");
}

TEST_F(CheckCommand, FindsEntriesThatPointAtTheWrongRecords) {
  std::string Bytes = KeyFile();
  int Length = 0;
  const size_t Leaf = FirstLeaf(Bytes, Length);
  // Swap the record numbers of the first two entries of key 1.
  const size_t First = Leaf + 3 + size_t(Length), Second = First + size_t(Length) + 4;
  const int32_t A = LoadInt32(Bytes, First), B = LoadInt32(Bytes, Second);
  StoreInt32(Bytes, First, B);
  StoreInt32(Bytes, Second, A);
  WriteKeyFile(Bytes);

  const ToolResult Result = Run({"check", Table()});
  EXPECT_EQ(Result.Status, 1);
  EXPECT_EQ(Result.Out.substr(0, Result.Out.find('\n')),
            "FACTU01: 2 problems (3 keys, 2000 live records, 0 deleted)");
  EXPECT_NE(Result.Out.find("key 1: the entry for record 2 holds \"2023-0001\", the record's key "
                            "text is \"2023-0002\""),
            std::string::npos)
      << Result.Out;
  ExpectRepairedBy("rebuild");
}

TEST_F(CheckCommand, FindsARecordDeletedBehindTheKeysBack) {
  std::string Data = Dir.Read("FACTU01.tqd");
  Data.replace(4 * 80, 80, "ANULADO" + std::string(73, '\0'));
  Dir.Write("FACTU01.tqd", Data);
  const ToolResult Result = Run({"check", Table()});
  EXPECT_EQ(Result.Status, 1);
  EXPECT_EQ(CountLines(Result.Out, "entry for deleted record 5"), 3) << Result.Out;
  EXPECT_EQ(CountLines(Result.Out, "deleted record 5 is not on the deleted-record stack"), 1);
  ExpectRepairedBy("reindex");
  EXPECT_EQ(Run({"check", Table()}).Out, "FACTU01: ok (3 keys, 1999 live records, 1 deleted)\n");
}

TEST_F(CheckCommand, FindsALiveRecordOnTheDeletedStack) {
  ASSERT_EQ(Run({"delete", Table(), "2023-0007"}).Status, 0);
  std::string Data = Dir.Read("FACTU01.tqd");  // record 7 comes back to life in the data only
  Data.replace(6 * 80, 80, Data.substr(7 * 80, 80));
  Dir.Write("FACTU01.tqd", Data);
  const ToolResult Result = Run({"check", Table()});
  EXPECT_EQ(Result.Status, 1);
  EXPECT_NE(Result.Out.find("deleted-record stack: record 7 is a live record"), std::string::npos)
      << Result.Out;
  ExpectRepairedBy("reindex");
}

TEST_F(CheckCommand, AMissingKeyFileIsAProblemUntilTheTableIsOpened) {
  ASSERT_TRUE(std::filesystem::remove(Dir.File(KeyFileName())));
  ToolResult Result = Run({"check", Table()});
  EXPECT_EQ(Result.Status, 1);
  EXPECT_NE(Result.Out.find("FACTU01.tqc does not exist"), std::string::npos) << Result.Out;
  EXPECT_FALSE(std::filesystem::exists(Dir.File(KeyFileName())));  // check writes nothing
  ASSERT_EQ(Run({"seek", Table(), "2023-0001"}).Status, 0);        // opening builds it
  EXPECT_EQ(Run({"check", Table()}).Status, 0);
}

TEST_F(CheckCommand, RebuildDropsDeletedRecordsAndShowsItsProgress) {
  ASSERT_EQ(Run({"delete", Table(), "--filter", "COBRADA = N"}).Status, 0);
  const ToolResult Rebuild = Run({"rebuild", Table()});
  ASSERT_EQ(Rebuild.Status, 0) << Rebuild.Err;
  EXPECT_NE(Rebuild.Out.find("before: 2000 record places, 259 deleted\n"), std::string::npos)
      << Rebuild.Out;
  EXPECT_NE(Rebuild.Out.find("after: 1741 record places, 0 deleted\n"), std::string::npos);
  EXPECT_EQ(Run({"check", Table()}).Out, "FACTU01: ok (3 keys, 1741 live records, 0 deleted)\n");
}

}  // namespace
}  // namespace tqdb::testing

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

class CheckCommand : public SampleTablesTest {
 protected:
  // Runs check, expects Status and returns the output.
  std::string Check(int Status) {
    const ToolResult Result = Run({"check", Invoices()});
    EXPECT_EQ(Result.Status, Status) << Result.Out;
    return Result.Out;
  }
  void ExpectRepairedBy(const std::string& Command) {
    const ToolResult Repair = Run({Command, Invoices()});
    ASSERT_EQ(Repair.Status, 0) << Repair.Out << Repair.Err;
    EXPECT_NE(Repair.Out.find(Command + ": 100%\n"), std::string::npos) << Repair.Out;
    Check(0);
  }
  // Replaces record Record (1-based, 80 bytes) of the data file.
  void SetRecord(int Record, const std::string& Bytes) {
    std::string Data = Dir.Read("FACTU01.tqd");
    Dir.Write("FACTU01.tqd", Data.replace(size_t(Record - 1) * 80, 80, Bytes));
  }
};

// The record numbers of the first two entries of key 1 swapped: the leftmost leaf is found
// from the header (15 bytes), the descriptors (key length, 1-based root) and the nodes
// (kind, count, entries of key text and a 4-byte number).
TEST_F(CheckCommand, FindsEntriesThatPointAtTheWrongRecords) {
  EXPECT_EQ(Check(0), "FACTU01: ok (3 keys, 2000 live records, 0 deleted)\n");
  std::string Bytes = Dir.Read("FACTU01.TQC");
  const size_t Length = static_cast<uint8_t>(Bytes[15]);
  size_t Node = size_t(LoadInt32(Bytes, 16) - 1);
  while (Bytes[Node] == 1) Node = size_t(LoadInt32(Bytes, Node + 3 + Length) - 1);
  const size_t First = Node + 3 + Length, Second = First + Length + 4;
  const std::string A = Bytes.substr(First, 4);
  Bytes.replace(First, 4, Bytes.substr(Second, 4)).replace(Second, 4, A);
  Dir.Write("FACTU01.TQC", Bytes);
  const std::string Out = Check(1);
  EXPECT_EQ(Out.substr(0, Out.find('\n')),
            "FACTU01: 2 problems (3 keys, 2000 live records, 0 deleted)");
  EXPECT_NE(Out.find("key 1: the entry for record 2 holds \"2023-0001\", the record's key "
                     "text is \"2023-0002\""),
            std::string::npos)
      << Out;
  ExpectRepairedBy("rebuild");
}

TEST_F(CheckCommand, FindsRecordsDeletedOrRevivedBehindTheKeysBack) {
  SetRecord(5, "ANULADO" + std::string(73, '\0'));
  std::string Out = Check(1);
  EXPECT_EQ(CountLines(Out, "entry for deleted record 5"), 3) << Out;
  EXPECT_EQ(CountLines(Out, "deleted record 5 is not on the deleted-record stack"), 1);
  ExpectRepairedBy("reindex");
  EXPECT_EQ(Check(0), "FACTU01: ok (3 keys, 1999 live records, 1 deleted)\n");
  ASSERT_EQ(Run({"delete", Invoices(), "2023-0007"}).Status, 0);
  SetRecord(7, Dir.Read("FACTU01.tqd").substr(7 * 80, 80));  // alive in the data only
  Out = Check(1);
  EXPECT_NE(Out.find("deleted-record stack: record 7 is a live record"), std::string::npos) << Out;
  ExpectRepairedBy("reindex");
}

TEST_F(CheckCommand, AMissingKeyFileIsAProblemUntilTheTableIsOpened) {
  ASSERT_TRUE(std::filesystem::remove(Dir.File("FACTU01.TQC")));
  EXPECT_NE(Check(1).find("FACTU01.tqc does not exist"), std::string::npos);
  EXPECT_FALSE(std::filesystem::exists(Dir.File("FACTU01.TQC")));  // check writes nothing
  ASSERT_EQ(Run({"seek", Invoices(), "2023-0001"}).Status, 0);     // opening builds it
  Check(0);
}

TEST_F(CheckCommand, RebuildDropsDeletedRecordsAndShowsItsProgress) {
  ASSERT_EQ(Run({"delete", Invoices(), "--filter", "COBRADA = N"}).Status, 0);
  const ToolResult Rebuild = Run({"rebuild", Invoices()});
  ASSERT_EQ(Rebuild.Status, 0) << Rebuild.Err;
  EXPECT_NE(Rebuild.Out.find("before: 2000 record places, 259 deleted\n"), std::string::npos)
      << Rebuild.Out;
  EXPECT_NE(Rebuild.Out.find("after: 1741 record places, 0 deleted\n"), std::string::npos);
  EXPECT_EQ(Check(0), "FACTU01: ok (3 keys, 1741 live records, 0 deleted)\n");
}

}  // namespace
}  // namespace tqdb::testing

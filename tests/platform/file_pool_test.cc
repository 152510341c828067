#include "platform/file_pool.h"

#include <gtest/gtest.h>

#include "platform/fault.h"
#include "support/temp_dir.h"

namespace tqdb::platform {
namespace {

using namespace std::string_literals;

int FaultOf(auto&& Action) {
  try {
    Action();
  } catch (const Fault& F) {
    return F.Number();
  }
  return 0;
}

// A file number taken for a test and released at its end.
class Number {
 public:
  Number() : no_(TakeFreeNumber()) {}
  ~Number() { ReleaseNumber(no_); }
  Number(const Number&) = delete;
  operator FileNo() const { return no_; }

 private:
  FileNo no_;
};

class FilePoolTest : public ::testing::Test {
 protected:
  testing::TempDir Dir;
};

TEST_F(FilePoolTest, NumbersAreReservedUntilReleasedAndRunOutWithFault67) {
  const FileNo A = TakeFreeNumber();
  Open(A, Dir.File("a.bin"));
  Close(A);
  Close(A);  // harmless twice
  const FileNo B = TakeFreeNumber();
  EXPECT_NE(B, A) << "a closed number stays reserved";
  ReleaseNumber(A);
  EXPECT_EQ(TakeFreeNumber(), A) << "the lowest free number is handed out";
  std::vector<FileNo> Taken{A, B};
  int Error = 0;
  while (Error == 0 && Taken.size() < 600) {
    Error = FaultOf([&] { Taken.push_back(TakeFreeNumber()); });
  }
  EXPECT_EQ(Error, 67);
  EXPECT_LE(Taken.size(), 511u);
  for (FileNo N : Taken) ReleaseNumber(N);
}

TEST_F(FilePoolTest, PositionedIoIsOneBasedZeroFillsAndIsCounted) {
  Number N;
  ResetIoCounters();
  Open(N, Dir.File("data.tqd"));
  WriteAt(N, 1, std::string_view("HELLO"));
  WriteAt(N, 11, std::string_view("XY"));
  EXPECT_EQ(Length(N), 12);
  EXPECT_EQ(ReadAt(N, 2, 3), "ELL");
  LockRange(N, 1, 1);
  const IoCounters C = GetIoCounters();
  EXPECT_EQ(C.Opens, 1u);
  EXPECT_EQ(C.Writes, 2u);
  EXPECT_EQ(C.Reads, 1u);
  EXPECT_EQ(C.MappedReads, 1u);  // the bytes were known to be there
  EXPECT_EQ(C.Locks, 1u);
  EXPECT_EQ(C.Other, 2u);  // the length asked and the mapping made
  EXPECT_EQ(ReadAt(N, 5, 8), std::string("O\0\0\0\0\0XY", 8));
  EXPECT_EQ(ReadAt(N, 11, 5), std::string("XY\0\0\0", 5));
  EXPECT_EQ(ReadAt(N, 100, 2), std::string(2, '\0'));
  EXPECT_EQ(OpenName(N), Dir.File("data.tqd"));
  Truncate(N, 3);
  EXPECT_EQ(ReadAt(N, 1, 5), std::string("HEL\0\0", 5));
  Sync(N);
  Close(N);
  // and the truncation, the sync, the unmapping and the close
  EXPECT_EQ(GetIoCounters().Other, 6u);
}

// Two numbers on one file stand for two processes: each sees what the other wrote, inside
// the length it knew and beyond it, and a file shortened by its own holder reads as zeros
// past the new end rather than faulting.
TEST_F(FilePoolTest, ReadsSeeEveryWriterWhetherMappedOrNot) {
  Number Reader, Writer;
  Open(Writer, Dir.File("shared.tqd"));
  WriteAt(Writer, 1, std::string(4096, 'a'));
  Open(Reader, Dir.File("shared.tqd"));
  EXPECT_EQ(ReadAt(Reader, 4000, 3), "aaa");
  WriteAt(Writer, 4000, std::string_view("XYZ"));
  WriteAt(Writer, 9000, std::string_view("END"));
  ResetIoCounters();
  EXPECT_EQ(ReadAt(Reader, 3999, 5), "aXYZa");     // inside the known length: mapped
  EXPECT_EQ(ReadAt(Reader, 8999, 5), "\0END\0"s);  // beyond it: read, and now known
  EXPECT_EQ(ReadAt(Reader, 9000, 3), "END");
  IoCounters C = GetIoCounters();
  EXPECT_EQ(C.Reads, 3u);
  EXPECT_EQ(C.MappedReads, 2u);
  Truncate(Reader, 100);
  EXPECT_EQ(ReadAt(Reader, 98, 4), "aaa\0"s);
  EXPECT_EQ(ReadAt(Reader, 4000, 3), std::string(3, '\0'));
}

TEST_F(FilePoolTest, ReportsFaultsByNumber) {
  Number N;
  EXPECT_EQ(FaultOf([&] { ReadAt(N, 1, 1); }), 52);  // not open
  EXPECT_EQ(FaultOf([&] { ReadAt(0, 1, 1); }), 52);  // out of range
  EXPECT_EQ(FaultOf([&] { ReadAt(512, 1, 1); }), 52);
  EXPECT_EQ(FaultOf([&] { Open(N, Dir.File("missing"), OpenMode::ReadOnly); }), 53);
  EXPECT_EQ(FaultOf([&] { Open(N, Dir.File("no/such/dir/f")); }), 76);
  EXPECT_EQ(FaultOf([&] { Open(N, Dir.Path()); }), 75);  // a directory
  Dir.Write("t.bin", "old content");
  Open(N, Dir.File("t.bin"), OpenMode::ReadOnly);
  EXPECT_EQ(ReadAt(N, 1, 3), "old");
  EXPECT_EQ(FaultOf([&] { WriteAt(N, 1, std::string_view("x")); }), 75);
  EXPECT_EQ(FaultOf([&] { LockRange(N, 1, 1); }), 75) << "not a lock held elsewhere";
  EXPECT_EQ(FaultOf([&] { LockRange(N, 1, 1, false); }), 0);  // readers lock too
  EXPECT_EQ(FaultOf([&] { ReadAt(N, 0, 1); }), 63);
  EXPECT_EQ(FaultOf([&] { ReadAt(N, INT64_MAX, 2); }), 63);
  Open(N, Dir.File("t.bin"), OpenMode::Truncate);  // reopening closes the first
  EXPECT_EQ(Length(N), 0);
  EXPECT_EQ(FaultOf([&] { WriteAt(N, -5, std::string_view("x")); }), 63);
}

TEST_F(FilePoolTest, RangeLocksExcludeOtherDescriptorsOfTheSameProcess) {
  Number A, B, C;
  for (FileNo N : {FileNo(A), FileNo(B), FileNo(C)}) Open(N, Dir.File("locks.tqd"));
  LockRange(A, 10, 19);
  EXPECT_EQ(FaultOf([&] { LockRange(B, 19, 25); }), 70);
  EXPECT_EQ(FaultOf([&] { LockRange(B, 1, 10, false); }), 70);
  LockRange(B, 20, 29);      // the neighbouring range is free
  LockRange(A, 10, 19);      // taking one's own range again is fine
  UnlockRange(B, 500, 600);  // unlocking what is not locked is harmless
  Close(B);                  // closing another descriptor keeps A's lock
  EXPECT_EQ(FaultOf([&] { LockRange(C, 10, 10); }), 70);
  Close(A);  // closing the holder drops its lock
  LockRange(C, 10, 10);
  UnlockRange(C, 10, 10);
  {
    Open(A, Dir.File("locks.tqd"));
    ScopedRangeLock Held(A, 1, 8);
    EXPECT_EQ(FaultOf([&] { LockRange(C, 8, 8); }), 70);
  }
  LockRange(C, 8, 8);
  // Shared locks coexist; a whole-file lock reaches any position.
  Open(B, Dir.File("locks.tqd"));
  LockRange(A, 100, 100, false);
  LockRange(B, 100, 100, false);
  EXPECT_EQ(FaultOf([&] { LockRange(A, 100, 100); }), 70);
  UnlockRange(B, 100, 100);
  UnlockRange(C, 8, 8);
  LockRange(A, 1, kToEnd);
  EXPECT_EQ(FaultOf([&] { LockRange(B, int64_t{1} << 40, int64_t{1} << 40); }), 70);
}

TEST_F(FilePoolTest, PresenceLockTellsExclusiveUse) {
  Number A, B;
  Open(A, Dir.File("table.tqd"));
  Open(B, Dir.File("table.tqd"));
  HoldPresence(A);
  EXPECT_TRUE(TryExclusivePresence(A)) << "alone, its own shared lock converts";
  HoldPresence(A);
  HoldPresence(B);
  EXPECT_FALSE(TryExclusivePresence(A));
  DropPresence(B);
  EXPECT_TRUE(TryExclusivePresence(A));
  EXPECT_EQ(FaultOf([&] { HoldPresence(B); }), 70);
  LockRange(B, 1, 100);  // the presence byte lies beyond any record
  DropPresence(A);
  EXPECT_EQ(Length(A), 0) << "locks never grow the file";
}

}  // namespace
}  // namespace tqdb::platform

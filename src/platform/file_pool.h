// The process-wide pool of small file numbers (1 to 511) mapped to open descriptors.
//
// A number is taken with TakeFreeNumber and stays reserved for its taker until
// ReleaseNumber, across any number of Open/Close cycles. The pool is guarded by a mutex
// and may be used from several threads. Closing a number that is not open is harmless.
// Reads and writes are positioned at 1-based byte positions; a read past the end returns
// what is there, zero-filled to the length asked. Writes are pwrite calls. On a local file
// system a read of bytes the file is known to hold is copied out of a read-only shared
// mapping of the file instead of a pread: the page cache is the same, so it sees every
// write of every process just as pread does, without a system call. Bytes beyond the
// length last seen (another process may have added them) are read with pread, which also
// tells the new length. On network file systems every read is a pread.
//
// A file must not be shortened by another process while a number holds it open (within
// the library only Rebuild, ReIndex and KillDB replace files, and only with the table to
// themselves).
//
// Every failure raises a Fault: 52 for a number that is not open or out of range,
// 53 for a missing file opened read-only, 61 for a full disk, 70 for a lock held
// elsewhere, 75 for other access errors, 63 for a position below 1. A file that may only
// be read is opened for reading even in Binary mode; a write or a write lock on it is
// then Fault 75 "Solo se puede leer el archivo " + its path, never 70: it is no lock held
// elsewhere, and waiting for it would wait for ever.
#pragma once

#include <cstdint>
#include <span>
#include <string>
#include <string_view>
#include <vector>

namespace tqdb::platform {

using FileNo = int16_t;

enum class OpenMode {
  Binary,    // read and write; the file is created when missing
  ReadOnly,  // read only; Fault 53 when the file is missing
  Truncate,  // read and write; created or emptied
};

FileNo TakeFreeNumber();            // reserves the lowest free number; Fault 67 when none
void ReleaseNumber(FileNo Number);  // closes (if open) and frees the number

// Opens Name on Number (closing whatever Number held). Name is resolved by ResolvePath.
void Open(FileNo Number, std::string_view Name, OpenMode Mode = OpenMode::Binary);
void Close(FileNo Number);  // harmless when not open; the number stays reserved
bool IsOpen(FileNo Number);
// The name the file was opened with (as given to Open).
std::string OpenName(FileNo Number);

int64_t Length(FileNo Number);
// Reads Out.size() bytes at 1-based Position; bytes past the end are zero.
void ReadAt(FileNo Number, int64_t Position, std::span<uint8_t> Out);
std::string ReadAt(FileNo Number, int64_t Position, int64_t Count);
void WriteAt(FileNo Number, int64_t Position, std::span<const uint8_t> Bytes);
void WriteAt(FileNo Number, int64_t Position, std::string_view Bytes);
void Truncate(FileNo Number, int64_t Length);
void Sync(FileNo Number);
// Starts writing the file's changed pages to disk without waiting, so that a later Sync
// finds little left to do. Only a hint: failures are ignored.
void StartWriteBack(FileNo Number);

// Write-behind on Number (a bulk load's data file, which nobody else has open): writes
// that follow on from each other are gathered and written in one pwrite when a write
// does not follow on, when 16 KiB are gathered, or before anything else is done with the
// number (read, length, lock, sync, close...), so that this process sees them at once. A
// killed process loses what was gathered. A failed write of gathered bytes raises where
// it happens and, gathered bytes of earlier calls being lost, again in EndWriteBehind.
void BeginWriteBehind(FileNo Number);
// Writes what is gathered and ends write-behind; raises the fault of any failed write of
// gathered bytes since BeginWriteBehind. Close ends it too, writing what it can.
void EndWriteBehind(FileNo Number);

// Byte-range locks on open file descriptions (F_OFD_SETLK): two descriptors exclude each
// other whether they belong to one process or two, and closing one descriptor never drops
// another's locks. First and Last are 1-based inclusive positions; Last = kToEnd locks to
// infinity. A range held elsewhere fails at once with Fault 70; nothing waits. A write
// lock on a file opened for reading only fails with Fault 75.
inline constexpr int64_t kToEnd = -1;
void LockRange(FileNo Number, int64_t First, int64_t Last, bool Exclusive = true);
// Unlocking a range that is not locked is harmless.
void UnlockRange(FileNo Number, int64_t First, int64_t Last);

// Holds a range lock for a scope: locks in the constructor (raising as LockRange does),
// unlocks in the destructor (ignoring a number closed meanwhile, which dropped the lock).
class ScopedRangeLock {
 public:
  ScopedRangeLock(FileNo Number, int64_t First, int64_t Last, bool Exclusive = true);
  ~ScopedRangeLock();
  ScopedRangeLock(const ScopedRangeLock&) = delete;
  ScopedRangeLock& operator=(const ScopedRangeLock&) = delete;

 private:
  FileNo number_;
  int64_t first_, last_;
};

// Reads an open file front to back through a moving read-only mapping of a few MB: a pass
// over a whole file (building keys, rebuilding, archiving) neither copies the file into
// the process nor keeps its pages in the process's resident memory. Where the file cannot
// be mapped it reads with pread into a buffer of its own. The file number must stay open
// for the reader's life.
class SequentialReader {
 public:
  explicit SequentialReader(FileNo Number);
  ~SequentialReader();
  SequentialReader(const SequentialReader&) = delete;
  SequentialReader& operator=(const SequentialReader&) = delete;

  // Count bytes at 1-based Position; bytes past the end of the file read as zeros. The
  // view holds until the next call.
  std::span<const uint8_t> Read(int64_t Position, size_t Count);

 private:
  void Unmap();

  FileNo number_;
  int fd_;
  const uint8_t* map_ = nullptr;
  int64_t map_start_ = 0;  // offset of the mapping in the file
  size_t map_size_ = 0;
  std::vector<uint8_t> buffer_;
};

// Presence lock: every open table holds a shared lock on one byte far beyond any record
// (offset 2^62) of its data file; exclusive use is checked by asking for a write lock on it.
void HoldPresence(FileNo Number);  // shared lock on the presence byte
// Write lock on the presence byte; false when another descriptor holds it. A descriptor
// that holds the shared lock itself converts it; HoldPresence converts it back.
bool TryExclusivePresence(FileNo Number);
void DropPresence(FileNo Number);

// A read-write shared mapping of the start of an open file, for building a new file in
// place. Cover extends the file with its blocks allocated first (posix_fallocate), so a
// full disk is Fault 61 there, never a signal at a later store into the mapping. Stores
// reach the file through the page cache, as a pwrite would. The caller holds the file
// alone while the mapping lives and closes nothing under it; the destructor unmaps.
class WritableMapping {
 public:
  WritableMapping() = default;
  ~WritableMapping() { Unmap(); }
  WritableMapping(const WritableMapping&) = delete;
  WritableMapping& operator=(const WritableMapping&) = delete;

  // Maps (or maps further) the first Length bytes of Number, extending the file to Length
  // when it is shorter. False when the file cannot be mapped so (a network file system, a
  // file system without block allocation, a refused mapping): nothing is mapped then.
  bool Cover(FileNo Number, int64_t Length);
  std::span<uint8_t> Bytes() const { return {data_, size_}; }
  bool Active() const { return data_ != nullptr; }
  void Unmap() noexcept;

 private:
  uint8_t* data_ = nullptr;
  size_t size_ = 0;
};

// Counters of the pool's work, for benchmarks and tests. Reads counts every positioned
// read asked for; MappedReads those of them served from the mapping, without a system
// call. Writes, Locks and Opens count system calls; Other counts the rest of them:
// lengths asked (fstat), mappings, truncations, syncs and closes.
struct IoCounters {
  uint64_t Reads = 0, MappedReads = 0, Writes = 0, Locks = 0, Opens = 0, Other = 0;
  uint64_t SystemCalls() const { return Reads - MappedReads + Writes + Locks + Opens + Other; }
};
IoCounters GetIoCounters();
void ResetIoCounters();

}  // namespace tqdb::platform

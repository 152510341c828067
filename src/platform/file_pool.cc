// The process-wide file-number pool, positioned I/O and byte-range locks.
//
// The table of numbers is guarded by one mutex; the mutex is held to look up or change a
// slot and to copy bytes out of a slot's mapping, never during a system call's I/O, so
// threads working on different files hardly wait for each other. A number must not be
// closed by one thread while another uses it.
#include "platform/file_pool.h"

#include <fcntl.h>
#include <linux/magic.h>
#include <sys/mman.h>
#include <sys/stat.h>
#include <sys/vfs.h>
#include <unistd.h>

#include <algorithm>
#include <array>
#include <atomic>
#include <cerrno>
#include <cstring>
#include <limits>
#include <mutex>
#include <utility>

#include "platform/fault.h"
#include "platform/paths.h"

namespace tqdb::platform {
namespace {

constexpr FileNo kFirstNumber = 1;
constexpr FileNo kLastNumber = 511;
constexpr off_t kPresenceOffset = off_t{1} << 62;

// The smallest mapping made; a mapping reaches beyond the end of its file (those pages
// are never touched) so that a growing file seldom needs a new one.
constexpr int64_t kMinimumMapping = int64_t{64} << 20;

struct Slot {
  bool Reserved = false;
  int Fd = -1;
  std::string Name;
  std::string Path;  // the Linux path Name was found at, for messages
  // Reads may be served from a mapping (a file on a local file system).
  bool Mappable = false;
  const uint8_t* Map = nullptr;
  size_t MapSize = 0;
  // The length the file is known to have at least: as seen when opened or asked, as
  // extended by this process's writes, as found by reads that went beyond it.
  int64_t KnownLength = 0;
  // Write-behind (BeginWriteBehind): the bytes of consecutive writes not written yet, the
  // offset they go to, and the fault of a write of gathered bytes that failed (0: none).
  bool Gathering = false;
  std::string Gathered;
  off_t GatheredAt = 0;
  int32_t GatherFault = 0;
};

struct Pool {
  std::mutex Mutex;
  std::array<Slot, kLastNumber + 1> Slots;  // element 0 is spare
};

Pool& ThePool() {
  static Pool Instance;
  return Instance;
}

std::atomic<uint64_t> ReadCount{0}, MappedReadCount{0}, WriteCount{0}, LockCount{0}, OpenCount{0},
    OtherCount{0};

bool InRange(FileNo Number) { return Number >= kFirstNumber && Number <= kLastNumber; }

// The most a write-behind gathers before it writes.
constexpr size_t kGatherLimit = size_t{16} << 10;

// Writes the bytes gathered in S, under the pool's mutex. On failure they are dropped and
// the fault kept for EndWriteBehind.
void WriteGathered(Slot& S) {
  if (S.Gathered.empty()) return;
  const std::string Bytes = std::move(S.Gathered);
  S.Gathered.clear();
  for (size_t Done = 0; Done < Bytes.size();) {
    ++WriteCount;
    const auto Offset = static_cast<off_t>(S.GatheredAt + static_cast<off_t>(Done));
    const ssize_t Put = ::pwrite(S.Fd, Bytes.data() + Done, Bytes.size() - Done, Offset);
    if (Put < 0 && errno == EINTR) continue;
    if (Put <= 0) {
      S.GatherFault = Put == 0 ? kDiskFull : FaultNumberFromErrno(errno);
      throw Fault(S.GatherFault);
    }
    Done += static_cast<size_t>(Put);
  }
  S.KnownLength = std::max<int64_t>(S.KnownLength, S.GatheredAt + std::ssize(Bytes));
}

// The slot of an open Number, to be used under the pool's mutex; Fault 52 when none.
// Whatever the slot gathered is written first: every other use of the file sees it.
Slot& OpenSlot(Pool& P, FileNo Number) {
  if (!InRange(Number)) throw Fault(kBadFileNumber);
  Slot& S = P.Slots[Number];
  if (S.Fd < 0) throw Fault(kBadFileNumber);
  WriteGathered(S);
  return S;
}

// Keeps Bytes for Offset when Number gathers its writes; false when it does not. Gathered
// bytes that Bytes do not follow on from, or that would grow past the limit, are written
// first.
bool Gather(FileNo Number, off_t Offset, std::span<const uint8_t> Bytes) {
  if (!InRange(Number)) return false;
  Pool& P = ThePool();
  std::lock_guard Lock(P.Mutex);
  Slot& S = P.Slots[Number];
  if (!S.Gathering || S.Fd < 0) return false;
  const bool FollowsOn = Offset == S.GatheredAt + std::ssize(S.Gathered);
  if (!FollowsOn || S.Gathered.size() + Bytes.size() > kGatherLimit) WriteGathered(S);
  if (S.Gathered.empty()) S.GatheredAt = Offset;
  S.Gathered.append(reinterpret_cast<const char*>(Bytes.data()), Bytes.size());
  return true;
}

// The descriptor open on Number; Fault 52 when none.
int FdOf(FileNo Number) {
  Pool& P = ThePool();
  std::lock_guard Lock(P.Mutex);
  return OpenSlot(P, Number).Fd;
}

// Whether the file system of Fd keeps one page cache for every process, so that a shared
// mapping sees each write as soon as it is made. Network file systems do not promise it.
bool IsLocalFileSystem(int Fd) {
  struct statfs Info;
  if (::fstatfs(Fd, &Info) != 0) return false;
  switch (static_cast<uint64_t>(Info.f_type)) {
    case EXT4_SUPER_MAGIC:  // also ext2 and ext3
    case XFS_SUPER_MAGIC:
    case BTRFS_SUPER_MAGIC:
    case TMPFS_MAGIC:
    case F2FS_SUPER_MAGIC:
    case OVERLAYFS_SUPER_MAGIC:
      return true;
    default:
      return false;
  }
}

void Unmap(Slot& S) {
  if (S.Map != nullptr) {
    ++OtherCount;
    ::munmap(const_cast<uint8_t*>(S.Map), S.MapSize);
  }
  S.Map = nullptr;
  S.MapSize = 0;
}

// Maps the file of S far enough to cover its known length. A failed mapping turns the
// slot over to pread for good.
bool CoverKnownLength(Slot& S) {
  if (S.Map != nullptr && static_cast<int64_t>(S.MapSize) >= S.KnownLength) return true;
  Unmap(S);
  const int64_t Size = std::max(kMinimumMapping, S.KnownLength * 2);
  ++OtherCount;
  void* Map = ::mmap(nullptr, static_cast<size_t>(Size), PROT_READ, MAP_SHARED, S.Fd, 0);
  if (Map == MAP_FAILED) {
    S.Mappable = false;
    return false;
  }
  S.Map = static_cast<const uint8_t*>(Map);
  S.MapSize = static_cast<size_t>(Size);
  return true;
}

// Copies Out.size() bytes at Offset out of the mapping of S when the file is known to
// hold all of them; false when they must be read with pread.
bool CopyFromMapping(Slot& S, off_t Offset, std::span<uint8_t> Out) {
  if (!S.Mappable || Offset > S.KnownLength - static_cast<int64_t>(Out.size())) return false;
  if (Out.empty()) return true;
  if (!CoverKnownLength(S)) return false;
  std::memcpy(Out.data(), S.Map + Offset, Out.size());
  return true;
}

// Notes what a pread of Asked bytes at Offset that got Got of them says of the length of
// the file, if Number still holds the same descriptor.
void NoteReadLength(FileNo Number, int Fd, off_t Offset, size_t Asked, size_t Got) {
  Pool& P = ThePool();
  std::lock_guard Lock(P.Mutex);
  Slot& S = P.Slots[Number];
  if (S.Fd != Fd) return;
  const int64_t End = Offset + static_cast<int64_t>(Got);
  if (Got == Asked) {
    S.KnownLength = std::max(S.KnownLength, End);
  } else {
    S.KnownLength = Got > 0 ? End : std::min(S.KnownLength, End);  // the file ends there
  }
}

void NoteLength(FileNo Number, int Fd, int64_t Length, bool AtLeast) {
  Pool& P = ThePool();
  std::lock_guard Lock(P.Mutex);
  Slot& S = P.Slots[Number];
  if (S.Fd != Fd) return;
  S.KnownLength = AtLeast ? std::max(S.KnownLength, Length) : Length;
}

// The 0-based offset of a 1-based Position for an access of Count bytes; Fault 63 when
// the position is below 1 or the access would run beyond the largest offset.
off_t OffsetOf(int64_t Position, size_t Count) {
  if (Position < 1) throw Fault(kBadRecordNumber);
  const auto Max = std::numeric_limits<int64_t>::max();
  if (Count > static_cast<uint64_t>(Max) || Position - 1 > Max - static_cast<int64_t>(Count)) {
    throw Fault(kBadRecordNumber);
  }
  return static_cast<off_t>(Position - 1);
}

int OpenFlags(OpenMode Mode) {
  switch (Mode) {
    case OpenMode::ReadOnly:
      return O_RDONLY;
    case OpenMode::Truncate:
      return O_RDWR | O_CREAT | O_TRUNC;
    case OpenMode::Binary:
      break;
  }
  return O_RDWR | O_CREAT;
}

// Opens Path; Length receives the file's length.
int OpenDescriptor(const std::string& Path, OpenMode Mode, int64_t& Length) {
  int Fd;
  do {
    Fd = ::open(Path.c_str(), OpenFlags(Mode) | O_CLOEXEC, 0666);
  } while (Fd < 0 && errno == EINTR);
  // A file that may only be read is still opened in binary mode, for reading.
  if (Fd < 0 && Mode == OpenMode::Binary && (errno == EACCES || errno == EROFS)) {
    Fd = ::open(Path.c_str(), O_RDONLY | O_CLOEXEC);
  }
  if (Fd < 0) {
    const int Error = errno;
    // ENOENT while creating means a missing directory.
    if (Error == ENOENT && Mode != OpenMode::ReadOnly) throw Fault(kPathNotFound);
    throw Fault(FaultNumberFromErrno(Error));
  }
  struct stat Info;
  const bool Known = ::fstat(Fd, &Info) == 0;
  if (Known && S_ISDIR(Info.st_mode)) {
    ::close(Fd);
    throw Fault(kPathFileAccess);
  }
  Length = Known ? Info.st_size : 0;
  return Fd;
}

int FcntlLock(int Fd, short Type, off_t Start, off_t Length) {
  struct flock Lock;
  std::memset(&Lock, 0, sizeof Lock);  // l_pid must be 0 for open-file-description locks
  Lock.l_type = Type;
  Lock.l_whence = SEEK_SET;
  Lock.l_start = Start;
  Lock.l_len = Length;
  ++LockCount;
  int Result;
  do {
    Result = ::fcntl(Fd, F_OFD_SETLK, &Lock);
  } while (Result != 0 && errno == EINTR);
  return Result == 0 ? 0 : errno;
}

bool IsConflict(int Error) { return Error == EAGAIN || Error == EACCES; }

// A write, or a write lock, on a descriptor opened for reading only (a file that may only
// be read, see OpenDescriptor) fails with EBADF. That is no collision with another user:
// waiting cannot help, so it is Fault 75 with a description that names the file.
Fault ReadOnlyFault(FileNo Number) {
  Pool& P = ThePool();
  std::lock_guard Lock(P.Mutex);
  return Fault(kPathFileAccess, "Solo se puede leer el archivo " + P.Slots[Number].Path);
}

// Start and length (0 = to infinity) of the 1-based inclusive range First..Last.
void RangeOf(int64_t First, int64_t Last, off_t& Start, off_t& Length) {
  if (First < 1) throw Fault(kBadRecordNumber);
  if (Last != kToEnd && Last < First) throw Fault(kInvalidCall);
  Start = static_cast<off_t>(First - 1);
  Length = Last == kToEnd ? 0 : static_cast<off_t>(Last - First + 1);
}

}  // namespace

FileNo TakeFreeNumber() {
  Pool& P = ThePool();
  std::lock_guard Lock(P.Mutex);
  for (FileNo Number = kFirstNumber; Number <= kLastNumber; ++Number) {
    if (!P.Slots[Number].Reserved) {
      P.Slots[Number].Reserved = true;
      return Number;
    }
  }
  throw Fault(kTooManyFiles);
}

void ReleaseNumber(FileNo Number) {
  if (!InRange(Number)) return;
  Close(Number);
  Pool& P = ThePool();
  std::lock_guard Lock(P.Mutex);
  P.Slots[Number].Reserved = false;
}

void Open(FileNo Number, std::string_view Name, OpenMode Mode) {
  if (!InRange(Number)) throw Fault(kBadFileNumber);
  Close(Number);
  int64_t Length = 0;
  std::string Path = ResolvePath(Name);
  const int Fd = OpenDescriptor(Path, Mode, Length);
  const bool Mappable = IsLocalFileSystem(Fd);
  ++OpenCount;
  Pool& P = ThePool();
  std::lock_guard Lock(P.Mutex);
  Slot& S = P.Slots[Number];
  Unmap(S);
  if (S.Fd >= 0) ::close(S.Fd);  // opened meanwhile by another thread: last one wins
  S.Reserved = true;
  S.Fd = Fd;
  S.Name = std::string(Name);
  S.Path = std::move(Path);
  S.Mappable = Mappable;
  S.KnownLength = Length;
}

void Close(FileNo Number) {
  if (!InRange(Number)) return;
  int Fd;
  {
    Pool& P = ThePool();
    std::lock_guard Lock(P.Mutex);
    Slot& S = P.Slots[Number];
    try {
      if (S.Fd >= 0) WriteGathered(S);  // best effort: EndWriteBehind reports failures
    } catch (const Fault&) {
    }
    S.Gathering = false;
    S.Gathered.clear();
    S.GatherFault = 0;
    Unmap(S);
    Fd = S.Fd;
    S.Fd = -1;
    S.Name.clear();
    S.Path.clear();
  }
  if (Fd >= 0) {
    ++OtherCount;
    ::close(Fd);
  }
}

bool IsOpen(FileNo Number) {
  if (!InRange(Number)) return false;
  Pool& P = ThePool();
  std::lock_guard Lock(P.Mutex);
  return P.Slots[Number].Fd >= 0;
}

std::string OpenName(FileNo Number) {
  if (!InRange(Number)) throw Fault(kBadFileNumber);
  Pool& P = ThePool();
  std::lock_guard Lock(P.Mutex);
  const Slot& S = P.Slots[Number];
  if (S.Fd < 0) throw Fault(kBadFileNumber);
  return S.Name;
}

int64_t Length(FileNo Number) {
  struct stat Info;
  const int Fd = FdOf(Number);
  ++OtherCount;
  if (::fstat(Fd, &Info) != 0) throw Fault(FaultNumberFromErrno(errno));
  NoteLength(Number, Fd, Info.st_size, false);
  return Info.st_size;
}

// Reads Out.size() bytes at Start with pread; bytes past the end are zero.
void ReadWithPread(FileNo Number, int Fd, off_t Start, std::span<uint8_t> Out) {
  off_t Offset = Start;
  size_t Done = 0;
  while (Done < Out.size()) {
    const ssize_t Got = ::pread(Fd, Out.data() + Done, Out.size() - Done, Offset);
    if (Got < 0) {
      if (errno == EINTR) continue;
      throw Fault(FaultNumberFromErrno(errno));
    }
    if (Got == 0) break;  // end of file
    Done += static_cast<size_t>(Got);
    Offset += Got;
  }
  std::fill(Out.begin() + static_cast<std::ptrdiff_t>(Done), Out.end(), uint8_t{0});
  NoteReadLength(Number, Fd, Start, Out.size(), Done);
}

void ReadAt(FileNo Number, int64_t Position, std::span<uint8_t> Out) {
  const off_t Start = OffsetOf(Position, Out.size());
  int Fd;
  {
    Pool& P = ThePool();
    std::lock_guard Lock(P.Mutex);
    Slot& S = OpenSlot(P, Number);
    ++ReadCount;
    if (CopyFromMapping(S, Start, Out)) {
      ++MappedReadCount;
      return;
    }
    Fd = S.Fd;
  }
  ReadWithPread(Number, Fd, Start, Out);
}

namespace {
// ReadAt, but always with pread, never out of the file's long-lived mapping.
void ReadAtDirect(FileNo Number, int64_t Position, std::span<uint8_t> Out) {
  const off_t Start = OffsetOf(Position, Out.size());
  int Fd;
  {
    Pool& P = ThePool();
    std::lock_guard Lock(P.Mutex);
    Fd = OpenSlot(P, Number).Fd;
    ++ReadCount;
  }
  ReadWithPread(Number, Fd, Start, Out);
}
}  // namespace

std::string ReadAt(FileNo Number, int64_t Position, int64_t Count) {
  if (Count < 0) throw Fault(kInvalidCall);
  std::string Out(static_cast<size_t>(Count), '\0');
  ReadAt(Number, Position, std::span<uint8_t>(reinterpret_cast<uint8_t*>(Out.data()), Out.size()));
  return Out;
}

void WriteAt(FileNo Number, int64_t Position, std::span<const uint8_t> Bytes) {
  off_t Offset = OffsetOf(Position, Bytes.size());
  if (Gather(Number, Offset, Bytes)) return;
  const int Fd = FdOf(Number);
  size_t Done = 0;
  while (Done < Bytes.size()) {
    ++WriteCount;
    const ssize_t Put = ::pwrite(Fd, Bytes.data() + Done, Bytes.size() - Done, Offset);
    if (Put < 0) {
      if (errno == EINTR) continue;
      // EBADF on an open number: the file was opened for reading only.
      if (errno == EBADF) throw ReadOnlyFault(Number);
      throw Fault(FaultNumberFromErrno(errno));
    }
    if (Put == 0) throw Fault(kDiskFull);
    Done += static_cast<size_t>(Put);
    Offset += Put;
  }
  NoteLength(Number, Fd, Offset, true);
}

void WriteAt(FileNo Number, int64_t Position, std::string_view Bytes) {
  WriteAt(Number, Position,
          std::span<const uint8_t>(reinterpret_cast<const uint8_t*>(Bytes.data()), Bytes.size()));
}

void Truncate(FileNo Number, int64_t NewLength) {
  const int Fd = FdOf(Number);
  if (NewLength < 0) throw Fault(kInvalidCall);
  int Result;
  ++OtherCount;
  do {
    Result = ::ftruncate(Fd, static_cast<off_t>(NewLength));
  } while (Result != 0 && errno == EINTR);
  if (Result != 0) throw Fault(errno == EINVAL ? kPathFileAccess : FaultNumberFromErrno(errno));
  NoteLength(Number, Fd, NewLength, false);
}

bool WritableMapping::Cover(FileNo Number, int64_t Length) {
  if (Length <= 0) return false;
  if (static_cast<uint64_t>(Length) <= size_) return true;
  const int Fd = FdOf(Number);
  if (!IsLocalFileSystem(Fd)) return false;
  ++OtherCount;
  const int Error = ::posix_fallocate(Fd, static_cast<off_t>(size_),
                                      static_cast<off_t>(static_cast<size_t>(Length) - size_));
  if (Error == ENOSPC) throw Fault(kDiskFull);
  if (Error != 0) return false;
  NoteLength(Number, Fd, Length, true);
  ++OtherCount;
  void* Map =
      data_ == nullptr
          ? ::mmap(nullptr, static_cast<size_t>(Length), PROT_READ | PROT_WRITE, MAP_SHARED, Fd, 0)
          : ::mremap(data_, size_, static_cast<size_t>(Length), MREMAP_MAYMOVE);
  if (Map == MAP_FAILED) {
    Unmap();
    return false;
  }
  data_ = static_cast<uint8_t*>(Map);
  size_ = static_cast<size_t>(Length);
  return true;
}

void WritableMapping::Unmap() noexcept {
  if (data_ != nullptr) {
    ++OtherCount;
    ::munmap(data_, size_);
  }
  data_ = nullptr;
  size_ = 0;
}

void BeginWriteBehind(FileNo Number) {
  Pool& P = ThePool();
  std::lock_guard Lock(P.Mutex);
  Slot& S = OpenSlot(P, Number);
  S.Gathering = true;
  S.GatherFault = 0;
}

void EndWriteBehind(FileNo Number) {
  Pool& P = ThePool();
  std::lock_guard Lock(P.Mutex);
  if (!InRange(Number) || P.Slots[Number].Fd < 0) throw Fault(kBadFileNumber);
  Slot& S = P.Slots[Number];
  S.Gathering = false;
  try {
    WriteGathered(S);
  } catch (const Fault&) {
  }
  const int32_t Failed = std::exchange(S.GatherFault, 0);
  if (Failed != 0) throw Fault(Failed);
}

void Sync(FileNo Number) {
  const int Fd = FdOf(Number);
  ++OtherCount;
  if (::fdatasync(Fd) != 0) throw Fault(FaultNumberFromErrno(errno));
}

void StartWriteBack(FileNo Number) {
  const int Fd = FdOf(Number);
  ++OtherCount;
  (void)::sync_file_range(Fd, 0, 0, SYNC_FILE_RANGE_WRITE);
}

void LockRange(FileNo Number, int64_t First, int64_t Last, bool Exclusive) {
  const int Fd = FdOf(Number);
  off_t Start, Len;
  RangeOf(First, Last, Start, Len);
  const int Error = FcntlLock(Fd, Exclusive ? F_WRLCK : F_RDLCK, Start, Len);
  if (IsConflict(Error)) throw Fault(kPermissionDenied);
  if (Error == EBADF) throw ReadOnlyFault(Number);
  if (Error != 0) throw Fault(FaultNumberFromErrno(Error));
}

void UnlockRange(FileNo Number, int64_t First, int64_t Last) {
  const int Fd = FdOf(Number);
  off_t Start, Len;
  RangeOf(First, Last, Start, Len);
  const int Error = FcntlLock(Fd, F_UNLCK, Start, Len);
  if (Error != 0) throw Fault(FaultNumberFromErrno(Error));
}

namespace {
constexpr size_t kReaderWindow = size_t{8} << 20;
}  // namespace

SequentialReader::SequentialReader(FileNo Number) : number_(Number), fd_(FdOf(Number)) {}

SequentialReader::~SequentialReader() { Unmap(); }

void SequentialReader::Unmap() {
  if (map_ != nullptr) ::munmap(const_cast<uint8_t*>(map_), map_size_);
  map_ = nullptr;
  map_size_ = 0;
}

std::span<const uint8_t> SequentialReader::Read(int64_t Position, size_t Count) {
  const off_t Offset = OffsetOf(Position, Count);
  const int64_t End = Offset + static_cast<int64_t>(Count);
  if (map_ == nullptr || Offset < map_start_ ||
      End > map_start_ + static_cast<int64_t>(map_size_)) {
    Unmap();
    struct stat Info {};
    const int64_t Page = ::sysconf(_SC_PAGESIZE);
    const int64_t Start = Offset / Page * Page;
    if (::fstat(fd_, &Info) == 0 && End <= Info.st_size) {
      const auto Size = static_cast<size_t>(
          std::min<int64_t>(std::max<int64_t>(End - Start, kReaderWindow), Info.st_size - Start));
      ++OtherCount;
      void* Map = ::mmap(nullptr, Size, PROT_READ, MAP_SHARED | MAP_POPULATE, fd_, Start);
      if (Map != MAP_FAILED) {
        map_ = static_cast<const uint8_t*>(Map);
        map_start_ = Start;
        map_size_ = Size;
      }
    }
  }
  if (map_ != nullptr) {
    ++ReadCount;
    return {map_ + (Offset - map_start_), Count};
  }
  buffer_.resize(Count);
  ReadAtDirect(number_, Position, buffer_);
  return buffer_;
}

void HoldPresence(FileNo Number) {
  const int Error = FcntlLock(FdOf(Number), F_RDLCK, kPresenceOffset, 1);
  if (IsConflict(Error)) throw Fault(kPermissionDenied);
  if (Error != 0) throw Fault(FaultNumberFromErrno(Error));
}

bool TryExclusivePresence(FileNo Number) {
  const int Error = FcntlLock(FdOf(Number), F_WRLCK, kPresenceOffset, 1);
  if (IsConflict(Error)) return false;
  if (Error == EBADF) throw ReadOnlyFault(Number);
  if (Error != 0) throw Fault(FaultNumberFromErrno(Error));
  return true;
}

void DropPresence(FileNo Number) {
  const int Error = FcntlLock(FdOf(Number), F_UNLCK, kPresenceOffset, 1);
  if (Error != 0) throw Fault(FaultNumberFromErrno(Error));
}

IoCounters GetIoCounters() {
  IoCounters C;
  C.Reads = ReadCount.load();
  C.MappedReads = MappedReadCount.load();
  C.Writes = WriteCount.load();
  C.Locks = LockCount.load();
  C.Opens = OpenCount.load();
  C.Other = OtherCount.load();
  return C;
}

void ResetIoCounters() {
  ReadCount = 0;
  MappedReadCount = 0;
  WriteCount = 0;
  LockCount = 0;
  OpenCount = 0;
  OtherCount = 0;
}

ScopedRangeLock::ScopedRangeLock(FileNo Number, int64_t First, int64_t Last, bool Exclusive)
    : number_(Number), first_(First), last_(Last) {
  LockRange(Number, First, Last, Exclusive);
}

ScopedRangeLock::~ScopedRangeLock() {
  try {
    UnlockRange(number_, first_, last_);
  } catch (const Fault&) {
    // The file was closed meanwhile: closing dropped the lock with it.
  }
}

}  // namespace tqdb::platform

// The index engine's own part of the table object's state: its key file, header, node
// buffers, cursor and memory image. The engine reaches the rest of the table only through
// the arguments of the command channel (command text, result, status).
#pragma once

#include <array>
#include <cstdint>
#include <functional>
#include <string>
#include <utility>
#include <vector>

#include "platform/file_pool.h"

namespace tqdb {

inline constexpr int kNodeSize = 1024;
inline constexpr int kMaxKeys = 10;
inline constexpr int kLevelBuffers = 8;  // tree levels 0..7 (level 0 is the root)
inline constexpr int kPathLevels = 11;   // cursor path entries 0..10

// The 15-byte header at the start of a key file.
struct KeyFileHeader {
  uint8_t KeyCount = 0;
  int16_t NodeSize = 0;
  int32_t LastRecord = 0;    // highest record number ever allocated
  int32_t DeletedCount = 0;  // numbers on the deleted-record stack
  int32_t DeletedHead = 0;   // 1-based position of the stack's first page; 0 = none
};

// One level of the cursor: the node read there, its entry count and the current entry.
struct KeyPathLevel {
  int32_t Position = 0;
  int16_t Count = 0;
  int16_t Entry = 0;
};

using NodeBuffer = std::array<uint8_t, kNodeSize>;

struct EngineState {
  int16_t EngineStatus = 0;  // status of the engine operation in progress
  int16_t KeyFileNo = 0;     // open key file's number, 0 when closed
  std::string KeyFilePath;   // name of the open key file
  std::string EngineDir;     // dictionary directory set by the T command

  KeyFileHeader Header;
  std::array<int16_t, kMaxKeys + 1> KeyLen{};    // per key 1..10
  std::array<int32_t, kMaxKeys + 1> RootPos{};   // per key 1..10
  std::array<int16_t, kMaxKeys + 1> Capacity{};  // per key 1..10

  std::array<NodeBuffer, kLevelBuffers> Level{};  // buffer 0 doubles as the stack page
  std::array<KeyPathLevel, kPathLevels> Path{};
  int16_t LeafLevel = 0;
  int16_t CurKeyLength = 0;
  int16_t CurKey = 0;

  // Memory image mode, used only while a key file is being created. Past its limit the
  // image goes on in a writable mapping of the file itself (key_file.cc).
  bool ImageMode = false;
  std::string Image;
  platform::WritableMapping ImageMap;
  int32_t ImageLastPage = 0;
  bool Creating = false;  // a key file is being built (the allocator counts up only)
  // Bytes of key texts up to which a key file is built by sorting them in memory; a
  // larger table is built record by record in the image (create_key_file.cc).
  int64_t SortedBuildBudget = int64_t{256} << 20;
  // The table is held alone (a bulk load): nobody else reads or changes the key file, so
  // the commands take no key-file lock.
  bool Alone = false;

  // The record number InsertKeys allocated last; the record layer reads it after "I".
  int32_t LastAllocated = 0;
  // Whether the last number allocated came off the deleted-record stack (a deleted
  // record's place) rather than after the last record number.
  bool LastAllocatedReused = false;

  // Length of the key file as last seen (the used part of the image in image mode); a
  // position beyond it makes the engine ask the file again before calling it damaged.
  int64_t KeyFileLength = 0;

  // Positions of the deleted-record stack's pages from the head, as last walked, and the
  // file length up to which that walk is known to hold (-1: walk again). The chain only
  // changes when pages are added, so a file that did not grow meanwhile keeps it.
  std::vector<int32_t> StackChain;
  int64_t StackChainLength = -1;

  // Pages read or written during one command that holds the key-file lock (D, I, R). No
  // other user changes the key file while the lock is held, so such a command reads each
  // page from the file once; the copies are dropped before the lock is released. Off and
  // empty outside those commands (see engine::LockedPageScope).
  bool PageCacheOn = false;
  std::vector<std::pair<int64_t, NodeBuffer>> PageCache;
  // Within such a command the header and the file's length are asked of the file once;
  // after that Header and KeyFileLength, kept up to date by the command's own writes, are
  // what the file holds.
  bool HeaderKnown = false;
  bool LengthKnown = false;

  // Raised with a percentage while a key file is built from a data file.
  std::function<void(int32_t)> Progress;
};

}  // namespace tqdb

// The key file: header, key descriptors, page I/O and the memory image used while a key
// file is built.
//
// Positions are 1-based byte positions, as stored in the file. Pages (tree nodes and
// deleted-record pages) are 1024 bytes each and follow the 15-byte header and the 5-byte
// descriptors, so a valid page position is FirstPagePosition + j x 1024 and lies wholly
// inside the file. docs/formats.md describes the layout.
//
// Every primitive honours memory image mode (EngineState::ImageMode): reads and writes go
// to EngineState::Image instead of the file, and header reads and writes are skipped (the
// in-memory header is the truth until the image is flushed).
//
// Failures: file faults (52, 61, 75, ...) pass through; anything read that cannot be
// trusted raises KeyFileDamaged (fault 55000, "estropeado").
#pragma once

#include <cstdint>
#include <span>
#include <string>
#include <string_view>
#include <vector>

#include "engine/EngineState.h"

namespace tqdb::engine {

inline constexpr int kHeaderSize = 15;
inline constexpr int kDescriptorSize = 5;

// Position of the first page: just after the header and the descriptors.
inline int64_t FirstPagePosition(const EngineState& Engine) {
  return 1 + kHeaderSize + kDescriptorSize * int64_t{Engine.Header.KeyCount};
}

[[noreturn]] void ThrowDamaged(const EngineState& Engine);

// Reads the 15-byte header at position 1 into Engine.Header (skipped in image mode).
// Raises KeyFileDamaged when the node size is not 1024, the key count changed since the
// file was opened, or a counter is negative.
void ReadHeader(EngineState& Engine);
// Writes Engine.Header at position 1 in one write (skipped in image mode).
void WriteHeader(EngineState& Engine);

// Asks the file's length again (the used part of the image in image mode); a length that
// changed means another user added pages.
int64_t RefreshKeyFileLength(EngineState& Engine);

// Checks that Position is a page inside the key file: Fault 63 below 1, KeyFileDamaged
// off a page boundary or past the end (the length is asked again before deciding).
void CheckPagePosition(EngineState& Engine, int64_t Position);

// Reads the page at Position into Out, without looking at its contents.
void ReadPage(EngineState& Engine, int64_t Position, NodeBuffer& Out);
// Reads the tree node at Position into Out and checks it for the current key
// (Engine.CurKey): kind 0 or 1 and a count within the key's capacity.
void ReadNodeInto(EngineState& Engine, int64_t Position, NodeBuffer& Out);
// ReadNodeInto the level buffer of Level (0..7); a deeper level means the tree is deeper
// than the buffers, which a sound key file never is: KeyFileDamaged. Below the root a
// position below 1 is damage too (at the root it is Fault 63: a key the file lacks).
void ReadKeyNode(EngineState& Engine, int64_t Position, int Level);

// Writes a whole page at Position.
void WriteKeyNode(EngineState& Engine, int64_t Position, const NodeBuffer& Bytes);
// Writes Bytes at Position (odd-sized writes: one byte of an emptied node).
void WriteKeyBytes(EngineState& Engine, int64_t Position, std::span<const uint8_t> Bytes);
// Reads Count bytes at Position (odd-sized reads).
std::string ReadKeyBytes(EngineState& Engine, int64_t Position, int64_t Count);

// Where the next new page goes: the end of the file (length + 1), or the next page of the
// image in image mode (growing it by 1 MiB). When the image passes 60,000,000 bytes it
// moves into a writable mapping of the file, which then grows by 32 MiB at a time; where
// the file cannot be mapped so, the image is flushed and image mode left instead. Writes
// nothing: the caller writes the page at once.
int64_t NewPagePosition(EngineState& Engine);

// Opens the key file Path (a name the platform resolves case-insensitively) on a free file
// number, closing the one held before. Statuses in Engine.EngineStatus: 26 when the file
// cannot be opened, 22 when it is empty (it is closed again). A damaged header or
// descriptor raises KeyFileDamaged after closing the file.
void OpenKeyFile(EngineState& Engine, std::string_view Path);
// Closes the key file and frees its number; harmless when none is open.
void CloseKeyFile(EngineState& Engine);
// The deleted-record count from the header as it is now on disk.
int32_t CountDeleted(EngineState& Engine);

// Writes a new key file at Path for keys of the given lengths (1..255, at most 10): header
// (key count, 1024, last record 0, deleted count 0, head 0), the descriptors and an empty
// root leaf per key. Replaces an existing file. Fault 5 for invalid lengths.
void CreateEmptyKeyFile(std::string_view Path, std::span<const int> KeyLengths);

// Holds EngineState's page cache on for one command under the key-file lock: pages read
// or written meanwhile are kept, and a page read again comes from the copy. REQUIRES: the
// key-file lock (byte 1) is held for the whole life of the object, which must end before
// the lock is released. Writes still go to the file at once; nothing is deferred.
class LockedPageScope {
 public:
  explicit LockedPageScope(EngineState& Engine);
  ~LockedPageScope();
  LockedPageScope(const LockedPageScope&) = delete;
  LockedPageScope& operator=(const LockedPageScope&) = delete;

 private:
  EngineState& engine_;
};

// Memory image mode, for building a key file in one go. Begin loads the open key file
// into Engine.Image and turns the mode on; Flush puts the header into the image, reopens
// the file on the same number, writes the used part in pieces of at most 32,767 bytes and
// turns the mode off. An image that has moved into the file mapping only takes the header
// and has the file cut to its used part.
void BeginKeyFileImage(EngineState& Engine);
void FlushKeyFileImage(EngineState& Engine);

}  // namespace tqdb::engine

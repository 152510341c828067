// The record-number allocator kept in the key file: the highest number ever handed out
// and a stack of the numbers of deleted records waiting to be reused.
//
// The stack lives in pages of 255 four-byte slots with a link to the next page at offset
// 1020; element k (0-based) is in slot k mod 255 of page k \ 255, counting pages from the
// head. Numbers are reused last-in first-out. The head page is kept when the stack empties.
//
// Both operations re-read the header first, so that several users of one key file see
// each other's numbers, and write it back at the end; the caller holds the key-file lock.
// Level buffer 0 is the page buffer: any allocation or release overwrites the cached
// root. Damaged links or counts raise KeyFileDamaged.
#pragma once

#include <cstdint>
#include <span>
#include <vector>

#include "engine/EngineState.h"

namespace tqdb::engine {

inline constexpr int kSlotsPerPage = kNodeSize / 4 - 1;  // 255
inline constexpr int kLinkOffset = kNodeSize - 4;        // 1020

// The most recently released number, or the last record number + 1 when the stack is
// empty or a key file is being built (Engine.Creating). Fault 6 past the 32-bit range.
int32_t AllocateRecordNumber(EngineState& Engine);
// Pushes Record onto the stack, linking a fresh zero-filled page when a page fills up.
void ReleaseRecordNumber(EngineState& Engine, int32_t Record);
// Writes the whole stack of a key file being built, whose stack is empty: Records (oldest
// first) in pages appended at the end of the file in one write, laid out as that many
// releases would leave them, and the header's head and count. Writes nothing for none.
void WriteDeletedStack(EngineState& Engine, std::span<const int32_t> Records);
// Raises what ReleaseRecordNumber would raise for a damaged header, head or chain of stack
// pages, but writes nothing: a caller checks with it before it changes anything else.
void CheckReleasable(EngineState& Engine);
// The stack from the oldest to the most recent element (for checks and tests; reads pages
// into a buffer of its own).
std::vector<int32_t> ListDeletedRecords(EngineState& Engine);

}  // namespace tqdb::engine

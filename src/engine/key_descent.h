// Moving the engine's cursor through one key's tree: descending from the root to the leaf
// that holds a (value, record number) pair, and stepping from leaf to leaf.
//
// The cursor is EngineState::Path (per level the node's position, its entry count and the
// current entry) with the nodes themselves in the level buffers; EngineState::LeafLevel is
// the depth of the current leaf and EngineState::CurKey the key being walked.
//
// Descent rule: at a branch, go into the LAST child whose lowest pair is strictly below
// the pair sought, the first child when there is none. Branch entries carry no record
// numbers, so where branch keys equal the value the children's lowest record numbers are
// read (into a buffer of their own) and searched by bisection. The leaf reached then holds
// the first entry not below the pair, or every entry of it is below and that entry is the
// first of the next leaf.
//
// Damaged nodes raise KeyFileDamaged; nothing here reads outside a page or loops.
#pragma once

#include <cstdint>
#include <limits>
#include <string_view>

#include "engine/EngineState.h"
#include "engine/key_codec.h"

namespace tqdb::engine {

// A record number below every real one: (value, kBelowAll) sorts before every entry with
// that value.
inline constexpr int32_t kBelowAll = std::numeric_limits<int32_t>::min();

// Makes Key current and puts the path's level 0 on its root. Fault 9 for a key number
// outside 0..10 (key 0 and undefined keys have root position 0: reading it gives Fault 63).
void StartAtRoot(EngineState& Engine, int Key);

// Reads the node at Position into the buffer of Level and records position and count in
// the path. Returns the count.
int LoadLevel(EngineState& Engine, int Level, int64_t Position);

// View of the node in the buffer of Level for the current key.
inline NodeView LevelView(EngineState& Engine, int Level) {
  return NodeView(Engine.Level[Level], Engine.CurKeyLength);
}

// Descends from the root (StartAtRoot first) to the leaf for (Value, Record); the leaf's
// entry index is not set. Returns false when the key holds no entries.
bool DescendToPair(EngineState& Engine, std::string_view Value, int32_t Record);

// In the leaf at the leaf level: the first entry whose pair is not below (Value, Record),
// or with UpperBound the first entry above it; the count when there is none.
int LeafLowerBound(EngineState& Engine, std::string_view Value, int32_t Record);
int LeafUpperBound(EngineState& Engine, std::string_view Value, int32_t Record);

// True when every branch level above the leaf is on its last entry (the leaf is the last
// leaf as far as the path read on the way down knows).
bool OnLastLeaf(const EngineState& Engine);

// Moves the cursor to the first entry of the next leaf (AdvanceLeaf) or the last entry of
// the previous one (RetreatLeaf), re-reading the branch nodes on the way so that other
// users' changes are seen. Emptied pages are stepped over; a tree whose shape changed
// meanwhile is entered again from the root. Returns false at the end of the key, with the
// cursor left on the entry it was on.
bool AdvanceLeaf(EngineState& Engine);
bool RetreatLeaf(EngineState& Engine);

// The record number under the cursor; 0 when the leaf holds no entries or the index lies
// outside it.
int32_t CursorRecord(EngineState& Engine);

// A copy of the cursor (path and buffers), to look one leaf ahead and come back.
struct CursorSnapshot {
  std::array<KeyPathLevel, kPathLevels> Path;
  std::array<NodeBuffer, kLevelBuffers> Level;
  int16_t LeafLevel;
};
void SaveCursor(const EngineState& Engine, CursorSnapshot& Out);
void RestoreCursor(EngineState& Engine, const CursorSnapshot& Snapshot);

}  // namespace tqdb::engine

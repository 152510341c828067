// Positioning on a key: first, last, next, previous, prefix and full-value searches,
// locating one (value, record number) entry, and stepping around a given entry.
//
// What the searches rely on, kept by key_update.cc:
//  - entries ascend by key (by character) and then record number, across the leaves from
//    left to right, so the pair (value, record number) names one entry and a run of equal
//    values may span several leaves;
//  - a branch entry's key is the lowest key under its child;
//  - all leaves lie at one depth, below at most kLevelBuffers levels; only the root may be
//    empty.
// Every search is a lower bound: descend into the last child whose lowest pair is below
// the pair sought, take the first entry of the leaf not below it, and continue into the
// next leaf when the whole leaf is below. Within a leaf N and P use the buffered node;
// crossing to another leaf re-reads the branch nodes.
#include "engine/key_navigation.h"

#include <string.h>

#include <algorithm>
#include <cstring>

#include "engine/key_codec.h"
#include "engine/key_descent.h"
#include "engine/key_file.h"

namespace tqdb::engine {
namespace {

enum class Match { Exact, Prefix };

bool Matches(const NodeView& Leaf, int Index, std::string_view Value, Match Rule) {
  const auto KeyLength = static_cast<size_t>(Leaf.KeyLength());
  if (Rule == Match::Exact ? Value.size() != KeyLength : Value.size() > KeyLength) return false;
  return std::memcmp(Leaf.Key(Index), Value.data(), Value.size()) == 0;
}

// A full-length value found as a plain substring of the leaf's entries in use: its entry
// when the first occurrence starts an entry, else -1 (absent, or inside a record number:
// the bisection decides).
int FindInLeaf(const NodeView& Leaf, int Count, std::string_view Value) {
  const std::string_view Used = Leaf.UsedEntries(Count);
  const void* Hit = ::memmem(Used.data(), Used.size(), Value.data(), Value.size());
  if (Hit == nullptr) return -1;
  const auto Offset = static_cast<const char*>(Hit) - Used.data();
  return Offset % Leaf.EntryLength() == 0 ? static_cast<int>(Offset / Leaf.EntryLength()) : -1;
}

int32_t Finish(EngineState& Engine, int16_t Status) {
  Engine.EngineStatus = Status;
  return CursorRecord(Engine);
}

// Puts the cursor on the first entry whose pair is not below (Value, Record) and sets the
// status: 0 when that entry matches Value, 13 when it is the first of the key, 12 with the
// cursor moved back to the entry before it, 15 (cursor on the last entry) when every entry
// is below, 16 when the key is empty.
int32_t PositionAtOrAfter(EngineState& Engine, int Key, std::string_view Value, int32_t Record,
                          Match Rule) {
  StartAtRoot(Engine, Key);
  if (!DescendToPair(Engine, Value, Record)) {
    Engine.EngineStatus = 16;
    return 0;
  }
  const int Leaf = Engine.LeafLevel;
  KeyPathLevel& Cursor = Engine.Path[Leaf];
  const NodeView Node = LevelView(Engine, Leaf);
  const int Count = Node.Count();
  if (Rule == Match::Exact && Record == kBelowAll &&
      Value.size() == static_cast<size_t>(Node.KeyLength())) {
    const int Found = FindInLeaf(Node, Count, Value);
    if (Found >= 0) {
      Cursor.Entry = static_cast<int16_t>(Found);
      return Finish(Engine, 0);
    }
  }
  const int Index = LeafLowerBound(Engine, Value, Record);
  if (Index < Count) {
    if (Matches(Node, Index, Value, Rule)) {
      Cursor.Entry = static_cast<int16_t>(Index);
      return Finish(Engine, 0);
    }
    Cursor.Entry = static_cast<int16_t>(Index == 0 ? 0 : Index - 1);
    return Finish(Engine, Index == 0 ? 13 : 12);
  }
  // Every entry of the leaf is below the pair: the wanted entry, if any, opens the next
  // leaf.
  Cursor.Entry = static_cast<int16_t>(Count - 1);
  if (OnLastLeaf(Engine)) return Finish(Engine, 15);
  CursorSnapshot Saved;
  SaveCursor(Engine, Saved);
  if (!AdvanceLeaf(Engine)) {
    Engine.Path[Engine.LeafLevel].Entry =
        static_cast<int16_t>(Engine.Path[Engine.LeafLevel].Count - 1);
    return Finish(Engine, 15);
  }
  if (Matches(LevelView(Engine, Engine.LeafLevel), Engine.Path[Engine.LeafLevel].Entry, Value,
              Rule)) {
    return Finish(Engine, 0);
  }
  RestoreCursor(Engine, Saved);
  return Finish(Engine, 12);
}

// Descends along the first (Last false) or last entries to a leaf.
int32_t KeyEdge(EngineState& Engine, int Key, bool Last) {
  StartAtRoot(Engine, Key);
  int64_t Position = Engine.Path[0].Position;
  for (int Level = 0;; ++Level) {
    const int Count = LoadLevel(Engine, Level, Position);
    Engine.LeafLevel = static_cast<int16_t>(Level);
    Engine.Path[Level].Entry = static_cast<int16_t>(Last ? Count - 1 : 0);
    if (Count == 0) {
      Engine.EngineStatus = 16;
      return 0;
    }
    const NodeView Node = LevelView(Engine, Level);
    if (Node.IsLeaf()) return Finish(Engine, 0);
    Position = Node.Value(Engine.Path[Level].Entry);
  }
}

// Raises KeyFileDamaged unless entry Later of the leaf lies above entry Earlier. N and P
// within a leaf check this, so that a walk only ever moves on: a leaf whose entries are
// out of order (a damaged file) would otherwise send it back and round for ever.
void RequireAscending(EngineState& Engine, const NodeView& Leaf, int Earlier, int Later) {
  if (CompareEntryToPair(Leaf, Later, Leaf.KeyText(Earlier), Leaf.Value(Earlier)) <= 0) {
    ThrowDamaged(Engine);
  }
}

// The buffered leaf's count, or -1 when the cursor is not on a key.
int CursorLeafCount(EngineState& Engine) {
  if (Engine.CurKey < 1 || Engine.CurKey > kMaxKeys || Engine.CurKeyLength < 1) return -1;
  const int Count = LevelView(Engine, Engine.LeafLevel).Count();
  return std::clamp(Count, 0, NodeCapacity(Engine.CurKeyLength));
}

}  // namespace

int32_t KeyFirst(EngineState& Engine, int Key) { return KeyEdge(Engine, Key, false); }
int32_t KeyLast(EngineState& Engine, int Key) { return KeyEdge(Engine, Key, true); }

int32_t KeyNext(EngineState& Engine) {
  const int Count = CursorLeafCount(Engine);
  if (Count <= 0) {
    Engine.EngineStatus = 16;
    return 0;
  }
  KeyPathLevel& Cursor = Engine.Path[Engine.LeafLevel];
  if (Cursor.Entry + 1 < Count) {
    if (Cursor.Entry >= 0) {
      RequireAscending(Engine, LevelView(Engine, Engine.LeafLevel), Cursor.Entry, Cursor.Entry + 1);
    }
    Cursor.Entry = static_cast<int16_t>(std::max(Cursor.Entry + 1, 0));
    return Finish(Engine, 0);
  }
  if (AdvanceLeaf(Engine)) return Finish(Engine, 0);
  KeyPathLevel& Last = Engine.Path[Engine.LeafLevel];
  Last.Entry = static_cast<int16_t>(LevelView(Engine, Engine.LeafLevel).Count() - 1);
  return Finish(Engine, 15);
}

int32_t KeyPrevious(EngineState& Engine) {
  const int Count = CursorLeafCount(Engine);
  if (Count <= 0) {
    Engine.EngineStatus = 16;
    return 0;
  }
  KeyPathLevel& Cursor = Engine.Path[Engine.LeafLevel];
  const int Before = std::min<int>(Cursor.Entry, Count) - 1;
  if (Before >= 0) {
    if (Cursor.Entry < Count) {
      RequireAscending(Engine, LevelView(Engine, Engine.LeafLevel), Before, Cursor.Entry);
    }
    Cursor.Entry = static_cast<int16_t>(Before);
    return Finish(Engine, 0);
  }
  if (RetreatLeaf(Engine)) return Finish(Engine, 0);
  Engine.Path[Engine.LeafLevel].Entry = 0;
  return Finish(Engine, 13);
}

int32_t KeyGet(EngineState& Engine, int Key, std::string_view Value) {
  return PositionAtOrAfter(Engine, Key, Value, kBelowAll, Match::Prefix);
}

int32_t KeySearch(EngineState& Engine, int Key, std::string_view Value) {
  return PositionAtOrAfter(Engine, Key, Value, kBelowAll, Match::Exact);
}

int32_t LocateEntry(EngineState& Engine, int Key, std::string_view Value, int32_t Record) {
  return PositionAtOrAfter(Engine, Key, Value, Record, Match::Exact);
}

int32_t KeyAfter(EngineState& Engine, int Key, int32_t Record, std::string_view Value) {
  const int32_t Found = LocateEntry(Engine, Key, Value, Record);
  switch (Engine.EngineStatus) {
    case 0:
      if (Found > Record) return Found;  // the pair is gone; this entry follows it
      break;
    case 13:  // the first entry follows the pair
      Engine.EngineStatus = 0;
      return Found;
    case 15:
    case 16:
      return Found;
    default:  // 12: the cursor is on the greatest entry below the pair
      break;
  }
  Engine.EngineStatus = 0;
  return KeyNext(Engine);
}

int32_t KeyBefore(EngineState& Engine, int Key, int32_t Record, std::string_view Value) {
  const int32_t Found = LocateEntry(Engine, Key, Value, Record);
  switch (Engine.EngineStatus) {
    case 0:  // the cursor is on the pair or on the entry that took its place
      return KeyPrevious(Engine);
    case 13:  // every entry follows the pair: none precedes it
    case 16:
      return Found;
    default:  // 12, 15: the cursor is on the greatest entry below the pair
      Engine.EngineStatus = 0;
      return Found;
  }
}

}  // namespace tqdb::engine

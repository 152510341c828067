// Insertion and removal of key entries, node splits and the upkeep of branch keys.
//
// Invariants of a key's B+-tree, kept by every operation here:
//  1. Order: entries ascend by key value compared by character, equal values by record
//     number, within each node and across the leaves from left to right. A (value,
//     record number) pair identifies one entry.
//  2. Branch keys: the key of a branch entry is the lowest key stored under its child;
//     when a node's first entry changes the new key is carried up the path.
//  3. Room: a node holds at most capacity - 1 entries at rest. A node reaching its
//     capacity is split at once, so every node on a path has room for one more entry.
//  4. Shape: all leaves lie at one depth; the root never moves (its position is in the
//     key descriptor); a root split rewrites the root page in place as a branch over two
//     new pages. Nodes are never merged: a node is given up only when its last entry goes,
//     and an emptied root stays as an empty leaf.
#include "engine/key_update.h"

#include <array>
#include <cstring>

#include "engine/key_codec.h"
#include "engine/key_descent.h"
#include "engine/key_file.h"
#include "engine/key_navigation.h"
#include "engine/record_allocator.h"
#include "platform/fault.h"

namespace tqdb::engine {
namespace {

// A tree would need more levels than there are level buffers.
class TreeTooDeep : public platform::Fault {
 public:
  TreeTooDeep() : Fault(platform::kSubscript) {}
};

// A value brought to a key's length in a buffer of its own.
class KeyValue {
 public:
  KeyValue(std::string_view Value, int KeyLength) : length_(static_cast<size_t>(KeyLength)) {
    bytes_.fill(' ');
    std::memcpy(bytes_.data(), Value.data(), std::min(Value.size(), length_));
  }
  std::string_view View() const { return {bytes_.data(), length_}; }
  const uint8_t* Bytes() const { return reinterpret_cast<const uint8_t*>(bytes_.data()); }

 private:
  std::array<char, 255> bytes_;
  size_t length_;
};

void CheckKeyNumber(const EngineState& Engine, size_t Keys) {
  if (Keys > static_cast<size_t>(Engine.Header.KeyCount)) {
    throw platform::Fault(platform::kSubscript);
  }
}

int CurrentCapacity(const EngineState& Engine) { return Engine.Capacity[Engine.CurKey]; }

void WriteLevel(EngineState& Engine, int Level) {
  WriteKeyNode(Engine, Engine.Path[Level].Position, Engine.Level[Level]);
}

// Carries the new first key of the node at Level up the path: each ancestor's entry for
// it takes the key, up to and including the first ancestor where that entry is not the
// first.
void CarryLowestKey(EngineState& Engine, int Level) {
  const uint8_t* Key = LevelView(Engine, Level).Key(0);
  for (int Upper = Level - 1; Upper >= 0; --Upper) {
    LevelView(Engine, Upper).SetKey(Engine.Path[Upper].Entry, Key);
    WriteLevel(Engine, Upper);
    if (Engine.Path[Upper].Entry != 0) break;
    Key = LevelView(Engine, Upper).Key(0);
  }
}

// Puts (Key, Value) at Index of the node at Level and writes it. Returns true when the
// node is now full.
bool InsertIntoNode(EngineState& Engine, int Level, int Index, const uint8_t* Key, int32_t Value) {
  NodeView Node = LevelView(Engine, Level);
  const int Count = Node.Count();
  const int Capacity = CurrentCapacity(Engine);
  // A full node at rest was left by an interrupted split.
  if (Count >= Capacity || Index < 0 || Index > Count) ThrowDamaged(Engine);
  Node.MoveEntries(Index + 1, Index, Count - Index);
  Node.SetEntry(Index, Key, Value);
  Node.SetCount(Count + 1);
  Engine.Path[Level].Count = static_cast<int16_t>(Count + 1);
  WriteLevel(Engine, Level);
  if (Index == 0) CarryLowestKey(Engine, Level);
  return Count + 1 == Capacity;
}

// Where a full node is cut: half the count rounded halves-to-even, moved down to the
// start of a run of equal keys that straddles it unless the run begins the node.
//
// Nodes of three entries (keys of 252 to 255 bytes) are the exception: cut 2 + 1, a node
// that keeps taking entries at its front stays at two entries, full at rest but one, and
// splits again on the next insertion, so a run of insertions at the left would add a
// level each time. Such a node is cut 1 + 2 instead unless the new entry (at InsertedAt)
// is its last, which leaves room for two where the insertions arrive.
int SplitPoint(const NodeView& Node, int Count, int InsertedAt) {
  int Split = Count / 2;
  if (Count % 2 == 1 && Split % 2 == 1) ++Split;  // 17.5 gives 18, 16.5 gives 16
  if (Count == 3 && InsertedAt < 2) Split = 1;
  const auto Length = static_cast<size_t>(Node.KeyLength());
  const uint8_t* Key = Node.Key(Split);
  const auto Same = [&](int Index) { return std::memcmp(Node.Key(Index), Key, Length) == 0; };
  if (Same(Split - 1) && !Same(0)) {
    int Before = Split - 2;
    while (Before >= 0 && Same(Before)) --Before;
    Split = Before + 1;
  }
  return Split;
}

// A fresh page of Node's kind holding its entries [From, From + Count).
void CopyHalf(const NodeView& Node, int From, int Count, NodeBuffer& Out) {
  Out.fill(0);
  NodeView Half(Out, Node.KeyLength());
  Half.SetKind(Node.Kind());
  Half.SetCount(Count);
  if (Count > 0) std::memcpy(Half.Entry(0), Node.Entry(From), size_t(Count) * Node.EntryLength());
}

// Splits the full node at Level, whose entry InsertedAt has just been inserted.
void SplitNode(EngineState& Engine, int Level, int InsertedAt) {
  NodeView Node = LevelView(Engine, Level);
  const int Count = Node.Count();
  const int Split = SplitPoint(Node, Count, InsertedAt);
  NodeBuffer Right;
  CopyHalf(Node, Split, Count - Split, Right);
  const NodeView RightView(Right, Node.KeyLength());
  if (Level > 0) {
    // The new right page is linked into the parent before the node gives up its upper
    // half: a reader in another process (or a crash) in between finds those entries in
    // both pages, never in neither. Descents take the right page's copy; walks step over
    // entries they have passed already (key_descent.cc).
    const int64_t RightPosition = NewPagePosition(Engine);
    WriteKeyNode(Engine, RightPosition, Right);
    const int Index = Engine.Path[Level - 1].Entry + 1;
    if (InsertIntoNode(Engine, Level - 1, Index, RightView.Key(0),
                       static_cast<int32_t>(RightPosition))) {
      SplitNode(Engine, Level - 1, Index);
    }
    Node.SetCount(Split);
    Engine.Path[Level].Count = static_cast<int16_t>(Split);
    WriteLevel(Engine, Level);
    return;
  }
  // The root: both halves move to new pages and the root becomes a branch over them.
  NodeBuffer Left;
  CopyHalf(Node, 0, Split, Left);
  const int64_t LeftPosition = NewPagePosition(Engine);
  WriteKeyNode(Engine, LeftPosition, Left);
  const int64_t RightPosition = NewPagePosition(Engine);
  WriteKeyNode(Engine, RightPosition, Right);
  NodeBuffer& Root = Engine.Level[0];
  Root.fill(0);
  NodeView RootView(Root, Node.KeyLength());
  RootView.SetKind(kKindBranch);
  RootView.SetCount(2);
  RootView.SetEntry(0, NodeView(Left, Node.KeyLength()).Key(0), static_cast<int32_t>(LeftPosition));
  RootView.SetEntry(1, RightView.Key(0), static_cast<int32_t>(RightPosition));
  Engine.Path[0].Count = 2;
  WriteLevel(Engine, 0);
}

// True when inserting under the current path would split every node up to the root of a
// tree that already uses every level buffer.
bool WouldOutgrowBuffers(const EngineState& Engine) {
  if (Engine.LeafLevel < kLevelBuffers - 1) return false;
  const int Capacity = CurrentCapacity(Engine);
  for (int Level = Engine.LeafLevel; Level >= 0; --Level) {
    if (Engine.Path[Level].Count + 1 < Capacity) return false;
  }
  return true;
}

// Takes back the entries already inserted for Record into keys 1..Keys.
void TakeBack(EngineState& Engine, std::span<const std::string> Values, size_t Keys,
              int32_t Record) {
  for (size_t Index = 0; Index < Keys; ++Index) {
    const int Key = static_cast<int>(Index) + 1;
    const KeyValue Value(Values[Index], Engine.KeyLen[Key]);
    if (LocateEntry(Engine, Key, Value.View(), Record) == Record && Engine.EngineStatus == 0) {
      RemoveEntry(Engine, Engine.LeafLevel);
    }
  }
}

}  // namespace

void InsertEntry(EngineState& Engine, int Key, std::string_view Value, int32_t Record) {
  StartAtRoot(Engine, Key);
  int Index = 0;
  if (DescendToPair(Engine, Value, Record)) {
    Index = LeafUpperBound(Engine, Value, Record);
  } else {
    LevelView(Engine, 0).SetKind(kKindLeaf);  // an emptied root is a leaf
  }
  if (WouldOutgrowBuffers(Engine)) throw TreeTooDeep();
  const int Leaf = Engine.LeafLevel;
  const auto* Bytes = reinterpret_cast<const uint8_t*>(Value.data());
  Engine.Path[Leaf].Entry = static_cast<int16_t>(Index);
  if (!InsertIntoNode(Engine, Leaf, Index, Bytes, Record)) return;
  SplitNode(Engine, Leaf, Index);
  // Leave the cursor on the new entry.
  StartAtRoot(Engine, Key);
  DescendToPair(Engine, Value, Record);
  Engine.Path[Engine.LeafLevel].Entry = static_cast<int16_t>(LeafLowerBound(Engine, Value, Record));
}

void RemoveEntry(EngineState& Engine, int Level) {
  for (; Level >= 0; --Level) {
    NodeView Node = LevelView(Engine, Level);
    const int Count = Node.Count();
    const int Index = Engine.Path[Level].Entry;
    if (Index < 0 || Index >= Count) ThrowDamaged(Engine);
    Node.MoveEntries(Index, Index + 1, Count - Index - 1);
    Node.SetCount(Count - 1);
    Engine.Path[Level].Count = static_cast<int16_t>(Count - 1);
    if (Count - 1 > 0) {
      WriteLevel(Engine, Level);
      if (Index == 0) CarryLowestKey(Engine, Level);
      return;
    }
    // Emptied: the page becomes an empty leaf that nothing points to any more (or, for the
    // root, the empty tree); its parent loses the entry for it.
    Node.SetKind(kKindLeaf);
    WriteLevel(Engine, Level);
  }
  Engine.LeafLevel = 0;
}

void InsertKeys(EngineState& Engine, std::span<const std::string> Values) {
  CheckKeyNumber(Engine, Values.size());
  const int32_t Record = AllocateRecordNumber(Engine);
  Engine.LastAllocated = Record;
  for (size_t Index = 0; Index < Values.size(); ++Index) {
    const int Key = static_cast<int>(Index) + 1;
    const KeyValue Value(Values[Index], Engine.KeyLen[Key]);
    try {
      InsertEntry(Engine, Key, Value.View(), Record);
    } catch (const TreeTooDeep&) {
      TakeBack(Engine, Values, Index, Record);
      ReleaseRecordNumber(Engine, Record);
      throw;
    }
  }
}

void DeleteKeys(EngineState& Engine, int32_t Record, std::span<const std::string> Values) {
  CheckKeyNumber(Engine, Values.size());
  const auto Locate = [&](size_t Index) {
    const int Key = static_cast<int>(Index) + 1;
    const KeyValue Value(Values[Index], Engine.KeyLen[Key]);
    return LocateEntry(Engine, Key, Value.View(), Record) == Record && Engine.EngineStatus == 0;
  };
  // Check every key first: nothing is removed unless every entry is there.
  for (size_t Index = 0; Index < Values.size(); ++Index) {
    if (!Locate(Index)) {
      Engine.EngineStatus = 6;
      return;
    }
  }
  // The number goes back to the deleted-record stack once the keys are gone: a stack that
  // cannot take it stops the command before anything is removed.
  CheckReleasable(Engine);
  // Remove from the last key back: the cursor is still on the last key's entry.
  for (size_t Index = Values.size(); Index-- > 0;) {
    if (Index + 1 < Values.size() && !Locate(Index)) ThrowDamaged(Engine);
    RemoveEntry(Engine, Engine.LeafLevel);
  }
  // Buffer 0 is the stack's page buffer; keep the cursor's copy of the root.
  const NodeBuffer Root = Engine.Level[0];
  ReleaseRecordNumber(Engine, Record);
  Engine.Level[0] = Root;
  Engine.EngineStatus = 0;
}

void ReplaceKeys(EngineState& Engine, int Key, int32_t Record, std::string_view Old,
                 std::string_view New) {
  Engine.EngineStatus = 0;
  if (Key < 1 || Key > Engine.Header.KeyCount) throw platform::Fault(platform::kSubscript);
  const KeyValue OldValue(Old, Engine.KeyLen[Key]);
  const KeyValue NewValue(New, Engine.KeyLen[Key]);
  const int32_t Found = LocateEntry(Engine, Key, OldValue.View(), Record);
  if (Engine.EngineStatus != 0 || Found != Record) {
    Engine.EngineStatus = 6;
    return;
  }
  if (Engine.LeafLevel < kLevelBuffers - 1) {
    RemoveEntry(Engine, Engine.LeafLevel);
    InsertEntry(Engine, Key, NewValue.View(), Record);  // the tree has a level to spare
  } else {
    // The tree uses every level buffer: insert first, so that a refusal changes nothing.
    InsertEntry(Engine, Key, NewValue.View(), Record);
    LocateEntry(Engine, Key, OldValue.View(), Record);
    RemoveEntry(Engine, Engine.LeafLevel);
  }
  Engine.EngineStatus = 0;
}

}  // namespace tqdb::engine

// Descent by (value, record number) and stepping between leaves.
//
// Invariants of every key's tree, kept by key_update.cc and relied upon here:
//  - within a node, entries ascend by key (compared by character) and, among equal keys,
//    by record number; across the leaves, read left to right, the same holds;
//  - the key of a branch entry is the lowest key stored under its child;
//  - all leaves lie at one depth, at most kLevelBuffers - 1 below the root;
//  - only the root may hold no entries (an empty root is an empty leaf).
#include "engine/key_descent.h"

#include <algorithm>
#include <array>
#include <cstring>

#include "engine/key_file.h"
#include "platform/fault.h"

namespace tqdb::engine {
namespace {

// First index in [From, To) of Node whose key is not below Value (Strict: above Value).
int KeyBound(const NodeView& Node, int From, int To, std::string_view Value, bool Strict) {
  const auto KeyLength = static_cast<size_t>(Node.KeyLength());
  while (From < To) {
    const int Mid = From + (To - From) / 2;
    const int Order = CompareKeyToValue(Node.Key(Mid), KeyLength, Value);
    if (Order < 0 || (Strict && Order == 0)) {
      From = Mid + 1;
    } else {
      To = Mid;
    }
  }
  return From;
}

// The record number of the first entry under the child Index of the branch at Level,
// read into a buffer of its own; the largest record number for an empty leaf (it never
// qualifies as lower).
int32_t LowestRecordUnder(EngineState& Engine, int Level, int Index) {
  NodeBuffer Buffer;
  int64_t Position = LevelView(Engine, Level).Value(Index);
  for (int Depth = Level + 1;; ++Depth) {
    if (Depth >= kLevelBuffers || Position < 1) ThrowDamaged(Engine);
    ReadNodeInto(Engine, Position, Buffer);
    const NodeView Node(Buffer, Engine.CurKeyLength);
    if (Node.Count() == 0) {
      if (!Node.IsLeaf()) ThrowDamaged(Engine);
      return std::numeric_limits<int32_t>::max();
    }
    if (Node.IsLeaf()) return Node.Value(0);
    Position = Node.Value(0);
  }
}

// The child of the branch at Level to descend into for (Value, Record).
int ChildForPair(EngineState& Engine, int Level, int Count, std::string_view Value,
                 int32_t Record) {
  const NodeView Node = LevelView(Engine, Level);
  const int First = KeyBound(Node, 0, Count, Value, false);
  int Child = First > 0 ? First - 1 : 0;
  if (Record == kBelowAll || First == Count ||
      CompareKeyToValue(Node.Key(First), static_cast<size_t>(Node.KeyLength()), Value) != 0) {
    return Child;
  }
  // Children First..End-1 begin with Value: find the last whose lowest record is below
  // Record. Their lowest records ascend, so bisect; try the last one first, the usual
  // case when a new record joins a run of equal keys.
  const int End = KeyBound(Node, First, Count, Value, true);
  if (LowestRecordUnder(Engine, Level, End - 1) < Record) return End - 1;
  int Low = First, High = End - 1;
  while (Low < High) {
    const int Mid = Low + (High - Low) / 2;
    if (LowestRecordUnder(Engine, Level, Mid) < Record) {
      Child = Mid;
      Low = Mid + 1;
    } else {
      High = Mid;
    }
  }
  return Child;
}

int LeafBound(EngineState& Engine, std::string_view Value, int32_t Record, bool Strict) {
  const NodeView Leaf = LevelView(Engine, Engine.LeafLevel);
  int From = 0, To = Leaf.Count();
  while (From < To) {
    const int Mid = From + (To - From) / 2;
    const int Order = CompareEntryToPair(Leaf, Mid, Value, Record);
    if (Order < 0 || (Strict && Order == 0)) {
      From = Mid + 1;
    } else {
      To = Mid;
    }
  }
  return From;
}

enum class Step { Moved, End, ShapeChanged };

// One step to the neighbouring leaf by climbing to the nearest branch level that has a
// neighbouring entry and going down its outer edge. Clobbered tells whether the leaf
// buffer was overwritten (emptied pages met on the way).
Step StepLeaf(EngineState& Engine, bool Forward, bool& Clobbered) {
  const int Leaf = Engine.LeafLevel;
  // Emptied pages stepped over; more than the file can hold means a loop.
  int64_t Skipped = 0;
  int Level = Leaf - 1;
  for (;;) {
    for (; Level >= 0; --Level) {
      const int Count = LoadLevel(Engine, Level, Engine.Path[Level].Position);
      if (LevelView(Engine, Level).IsLeaf()) return Step::ShapeChanged;
      const int Entry = Engine.Path[Level].Entry;
      const int Next = Forward ? Entry + 1 : std::min(Entry, Count) - 1;
      if (Next >= 0 && Next < Count) {
        Engine.Path[Level].Entry = static_cast<int16_t>(Next);
        break;
      }
    }
    if (Level < 0) return Step::End;
    bool SteppedOver = false;
    for (int Upper = Level; Upper < Leaf; ++Upper) {
      const int64_t Child = LevelView(Engine, Upper).Value(Engine.Path[Upper].Entry);
      const int Count = LoadLevel(Engine, Upper + 1, Child);
      if (Upper + 1 == Leaf) Clobbered = true;
      if (Count == 0) {
        if (++Skipped > Engine.KeyFileLength / kNodeSize + 1) ThrowDamaged(Engine);
        Level = Upper;
        SteppedOver = true;
        break;
      }
      if (LevelView(Engine, Upper + 1).IsLeaf() != (Upper + 1 == Leaf)) {
        return Step::ShapeChanged;
      }
      Engine.Path[Upper + 1].Entry = static_cast<int16_t>(Forward ? 0 : Count - 1);
    }
    if (!SteppedOver) return Step::Moved;
  }
}

// The pair of an entry, kept aside while the leaf buffer is reused.
struct SavedPair {
  std::array<char, 255> Key;
  size_t Length = 0;
  int32_t Record = 0;
  std::string_view Value() const { return {Key.data(), Length}; }
};

// Enters the tree again from the root and puts the cursor on the first entry not below
// the saved pair (possibly one past the leaf's last entry). False when the key is empty.
bool ReturnTo(EngineState& Engine, const SavedPair& Pair) {
  if (!DescendToPair(Engine, Pair.Value(), Pair.Record)) return false;
  const int Index = LeafLowerBound(Engine, Pair.Value(), Pair.Record);
  Engine.Path[Engine.LeafLevel].Entry = static_cast<int16_t>(Index);
  return true;
}

// After ReturnTo: moves to the neighbour of the saved pair when it lies in the same leaf.
bool StepWithinLeaf(EngineState& Engine, const SavedPair& Pair, bool Forward) {
  KeyPathLevel& Leaf = Engine.Path[Engine.LeafLevel];
  const NodeView Node = LevelView(Engine, Engine.LeafLevel);
  const int Count = Node.Count();
  int Index = Leaf.Entry;
  if (Forward) {
    if (Index < Count && CompareEntryToPair(Node, Index, Pair.Value(), Pair.Record) == 0) {
      ++Index;  // the saved entry is still there: step past it
    }
    if (Index >= Count) return false;
  } else {
    if (--Index < 0) return false;
  }
  // Only a leaf out of order (a damaged file) puts the entry on the wrong side of the pair.
  const int Order = CompareEntryToPair(Node, Index, Pair.Value(), Pair.Record);
  if (Forward ? Order <= 0 : Order >= 0) ThrowDamaged(Engine);
  Leaf.Entry = static_cast<int16_t>(Index);
  return true;
}

// After a step to a neighbouring leaf: puts the cursor on its first entry beyond the pair
// the walk came from (before it, walking back). Another process splitting a node links
// the new right page in before it cuts the left one, so for a moment some entries stand
// in both; a walk returns them once. False when the leaf holds nothing beyond the pair.
bool SkipPassed(EngineState& Engine, const SavedPair& Pair, bool Forward) {
  const NodeView Node = LevelView(Engine, Engine.LeafLevel);
  const int Count = Node.Count();
  int Index = Forward ? 0 : Count - 1;
  if (Forward) {
    while (Index < Count && CompareEntryToPair(Node, Index, Pair.Value(), Pair.Record) <= 0) {
      ++Index;
    }
    if (Index >= Count) return false;
  } else {
    while (Index >= 0 && CompareEntryToPair(Node, Index, Pair.Value(), Pair.Record) >= 0) --Index;
    if (Index < 0) return false;
  }
  Engine.Path[Engine.LeafLevel].Entry = static_cast<int16_t>(Index);
  return true;
}

bool StepToNeighbour(EngineState& Engine, bool Forward) {
  const NodeView Node = LevelView(Engine, Engine.LeafLevel);
  const int Count = Node.Count();
  if (Count == 0) return false;
  SavedPair Pair;
  const int Edge = Forward ? Count - 1 : 0;
  Pair.Length = static_cast<size_t>(Node.KeyLength());
  std::memcpy(Pair.Key.data(), Node.Key(Edge), Pair.Length);
  Pair.Record = Node.Value(Edge);

  // Leaves whose every entry had been passed already; more than the file holds is a loop.
  int64_t Passed = 0;
  bool Clobbered = false;
  for (int Attempt = 0; Attempt < 2;) {
    const Step Outcome = StepLeaf(Engine, Forward, Clobbered);
    if (Outcome == Step::Moved) {
      if (SkipPassed(Engine, Pair, Forward)) return true;
      if (++Passed > Engine.KeyFileLength / kNodeSize + 1) ThrowDamaged(Engine);
      continue;
    }
    ++Attempt;
    if (Outcome == Step::End) {
      // Emptied pages were met on the way: put the cursor back where it was.
      if (Clobbered && ReturnTo(Engine, Pair)) {
        KeyPathLevel& Leaf = Engine.Path[Engine.LeafLevel];
        Leaf.Entry = static_cast<int16_t>(std::min<int>(Leaf.Entry, Leaf.Count - 1));
      }
      return false;
    }
    // The tree changed shape under the path (another user split or emptied the root):
    // enter it again at the saved edge entry and step from there.
    if (!ReturnTo(Engine, Pair)) return false;
    if (StepWithinLeaf(Engine, Pair, Forward)) return true;
  }
  ThrowDamaged(Engine);
}

}  // namespace

void StartAtRoot(EngineState& Engine, int Key) {
  if (Key < 0 || Key > kMaxKeys) throw platform::Fault(platform::kSubscript);
  Engine.CurKey = static_cast<int16_t>(Key);
  Engine.CurKeyLength = Engine.KeyLen[Key];
  Engine.Path[0].Position = Engine.RootPos[Key];
  Engine.LeafLevel = 0;
}

int LoadLevel(EngineState& Engine, int Level, int64_t Position) {
  ReadKeyNode(Engine, Position, Level);
  const int Count = LevelView(Engine, Level).Count();
  Engine.Path[Level].Position = static_cast<int32_t>(Position);
  Engine.Path[Level].Count = static_cast<int16_t>(Count);
  return Count;
}

bool DescendToPair(EngineState& Engine, std::string_view Value, int32_t Record) {
  int64_t Position = Engine.Path[0].Position;
  for (int Level = 0;; ++Level) {
    const int Count = LoadLevel(Engine, Level, Position);
    Engine.Path[Level].Entry = 0;
    Engine.LeafLevel = static_cast<int16_t>(Level);
    if (Count == 0) {
      if (Level == 0) return false;
      if (!LevelView(Engine, Level).IsLeaf()) ThrowDamaged(Engine);
      return true;
    }
    if (LevelView(Engine, Level).IsLeaf()) return true;
    const int Child = ChildForPair(Engine, Level, Count, Value, Record);
    Engine.Path[Level].Entry = static_cast<int16_t>(Child);
    Position = LevelView(Engine, Level).Value(Child);
  }
}

int LeafLowerBound(EngineState& Engine, std::string_view Value, int32_t Record) {
  return LeafBound(Engine, Value, Record, false);
}

int LeafUpperBound(EngineState& Engine, std::string_view Value, int32_t Record) {
  return LeafBound(Engine, Value, Record, true);
}

bool OnLastLeaf(const EngineState& Engine) {
  for (int Level = 0; Level < Engine.LeafLevel; ++Level) {
    if (Engine.Path[Level].Entry != Engine.Path[Level].Count - 1) return false;
  }
  return true;
}

bool AdvanceLeaf(EngineState& Engine) { return StepToNeighbour(Engine, true); }
bool RetreatLeaf(EngineState& Engine) { return StepToNeighbour(Engine, false); }

int32_t CursorRecord(EngineState& Engine) {
  const KeyPathLevel& Leaf = Engine.Path[Engine.LeafLevel];
  const NodeView Node = LevelView(Engine, Engine.LeafLevel);
  const int Count = std::min<int>(Node.Count(), NodeCapacity(Engine.CurKeyLength));
  if (Leaf.Entry < 0 || Leaf.Entry >= Count) return 0;
  return Node.Value(Leaf.Entry);
}

void SaveCursor(const EngineState& Engine, CursorSnapshot& Out) {
  Out.Path = Engine.Path;
  Out.LeafLevel = Engine.LeafLevel;
  for (int Level = 0; Level <= Engine.LeafLevel; ++Level) Out.Level[Level] = Engine.Level[Level];
}

void RestoreCursor(EngineState& Engine, const CursorSnapshot& Snapshot) {
  Engine.Path = Snapshot.Path;
  Engine.LeafLevel = Snapshot.LeafLevel;
  for (int Level = 0; Level <= Snapshot.LeafLevel; ++Level) {
    Engine.Level[Level] = Snapshot.Level[Level];
  }
}

}  // namespace tqdb::engine

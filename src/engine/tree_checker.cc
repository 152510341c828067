// Walks a key's tree depth first with buffers of its own and reports what breaks the
// engine's invariants.
#include "engine/tree_checker.h"

#include <cstring>
#include <set>
#include <string_view>

#include "engine/key_codec.h"
#include "engine/key_file.h"
#include "engine/record_allocator.h"
#include "platform/fault.h"

namespace tqdb::engine {
namespace {

class TreeWalk {
 public:
  TreeWalk(EngineState& Engine, int Key, std::set<int64_t>& Seen,
           std::vector<std::string>& Problems, std::vector<KeyEntry>* Entries)
      : engine_(Engine),
        key_(Key),
        key_length_(Engine.KeyLen[Key]),
        capacity_(Engine.Capacity[Key]),
        seen_(Seen),
        problems_(Problems),
        entries_(Entries) {}

  void Run() { Visit(engine_.RootPos[key_], 0, nullptr); }

 private:
  void Report(int64_t Position, const std::string& What) {
    problems_.push_back("key " + std::to_string(key_) + ", page " + std::to_string(Position) +
                        ": " + What);
  }

  bool Read(int64_t Position, NodeBuffer& Buffer) {
    if (!seen_.insert(Position).second) {
      Report(Position, "reached twice");
      return false;
    }
    try {
      ReadPage(engine_, Position, Buffer);
      return true;
    } catch (const platform::Fault&) {
      Report(Position, "outside the file or off a page boundary");
      return false;
    }
  }

  // Checks the node at Position; ExpectedKey is the parent's key for it (null at the root).
  void Visit(int64_t Position, int Depth, const uint8_t* ExpectedKey) {
    if (Depth >= kLevelBuffers) {
      Report(Position, "tree deeper than " + std::to_string(kLevelBuffers) + " levels");
      return;
    }
    NodeBuffer Buffer;
    if (!Read(Position, Buffer)) return;
    const NodeView Node(Buffer, key_length_);
    const int Count = Node.Count();
    if (Node.Kind() > kKindBranch) return Report(Position, "unknown node kind");
    if (Count < 0 || Count > capacity_) return Report(Position, "count beyond capacity");
    if (Count == capacity_) Report(Position, "node left full");
    if (Count == 0) {
      if (Depth > 0) Report(Position, "empty node below the root");
      if (!Node.IsLeaf()) Report(Position, "empty branch");
      return;
    }
    if (ExpectedKey != nullptr && std::memcmp(ExpectedKey, Node.Key(0), size_t(key_length_)) != 0) {
      Report(Position, "branch key differs from the child's lowest key");
    }
    if (Node.IsLeaf()) return VisitLeaf(Position, Depth, Node, Count);
    for (int Index = 0; Index < Count; ++Index) {
      if (Index > 0 &&
          CompareKeyBytes(Node.Key(Index - 1), Node.Key(Index), size_t(key_length_)) > 0) {
        Report(Position, "branch keys out of order at entry " + std::to_string(Index));
      }
      Visit(Node.Value(Index), Depth + 1, Node.Key(Index));
    }
  }

  void VisitLeaf(int64_t Position, int Depth, const NodeView& Node, int Count) {
    if (leaf_depth_ < 0) leaf_depth_ = Depth;
    if (Depth != leaf_depth_) Report(Position, "leaf at another depth");
    for (int Index = 0; Index < Count; ++Index) {
      const std::string_view Text = Node.KeyText(Index);
      const int32_t Record = Node.Value(Index);
      if (Record < 1 || Record > engine_.Header.LastRecord) {
        Report(Position, "record number " + std::to_string(Record) + " outside 1..last");
      }
      if (has_previous_) {
        const int Order = CompareKeyToValue(Node.Key(Index), size_t(key_length_), previous_);
        if (Order < 0 || (Order == 0 && Record <= previous_record_)) {
          Report(Position, "entries out of order at entry " + std::to_string(Index));
        }
      }
      previous_.assign(Text);
      previous_record_ = Record;
      has_previous_ = true;
      if (entries_ != nullptr) entries_->push_back({std::string(Text), Record});
    }
  }

  EngineState& engine_;
  int key_;
  int key_length_;
  int capacity_;
  std::set<int64_t>& seen_;
  std::vector<std::string>& problems_;
  std::vector<KeyEntry>* entries_;
  int leaf_depth_ = -1;
  bool has_previous_ = false;
  std::string previous_;
  int32_t previous_record_ = 0;
};

bool ValidKey(const EngineState& Engine, int Key) {
  return Key >= 1 && Key <= Engine.Header.KeyCount && Key <= kMaxKeys;
}

void CheckStack(EngineState& Engine, std::set<int64_t>& Seen, std::vector<std::string>& Problems) {
  // The head page is kept when the stack empties: even then it must be a page of the file.
  const int32_t Head = Engine.Header.DeletedHead;
  if (Head != 0) {
    try {
      CheckPagePosition(Engine, Head);
    } catch (const platform::Fault&) {
      Problems.push_back("deleted-record stack: head " + std::to_string(Head) +
                         " outside the file or off a page boundary");
      return;
    }
  }
  std::vector<int32_t> Stack;
  try {
    Stack = ListDeletedRecords(Engine);
  } catch (const platform::Fault& Failure) {
    Problems.push_back("deleted-record stack: " + Failure.Description());
    return;
  }
  if (Stack.empty() && Head != 0 && !Seen.insert(Head).second) {
    Problems.push_back("deleted-record stack: head page " + std::to_string(Head) +
                       " is also used elsewhere");
  }
  for (int32_t Record : Stack) {
    if (Record < 1 || Record > Engine.Header.LastRecord) {
      Problems.push_back("deleted-record stack: record " + std::to_string(Record) +
                         " outside 1..last");
    }
  }
  // The pages in use, from the head along the links.
  int64_t Page = Engine.Header.DeletedHead;
  const int64_t Pages = Stack.empty() ? 0 : (int64_t(Stack.size()) - 1) / kSlotsPerPage + 1;
  NodeBuffer Buffer;
  for (int64_t Step = 0; Step < Pages && Page != 0; ++Step) {
    if (!Seen.insert(Page).second) {
      Problems.push_back("deleted-record stack: page " + std::to_string(Page) +
                         " is also used elsewhere");
      return;
    }
    try {
      ReadPage(Engine, Page, Buffer);
    } catch (const platform::Fault&) {
      Problems.push_back("deleted-record stack: page " + std::to_string(Page) +
                         " outside the file or off a page boundary");
      return;
    }
    Page = LoadInt32(Buffer.data() + kLinkOffset);
  }
}

}  // namespace

std::vector<std::string> CheckKeyTree(EngineState& Engine, int Key) {
  std::vector<std::string> Problems;
  if (!ValidKey(Engine, Key)) return {"key " + std::to_string(Key) + " is not in the file"};
  try {
    ReadHeader(Engine);
  } catch (const platform::Fault& Failure) {
    return {"header: " + Failure.Description()};
  }
  std::set<int64_t> Seen;
  TreeWalk(Engine, Key, Seen, Problems, nullptr).Run();
  return Problems;
}

std::vector<std::string> CheckKeyFile(EngineState& Engine) {
  std::vector<std::string> Problems;
  try {
    ReadHeader(Engine);
  } catch (const platform::Fault& Failure) {
    return {"header: " + Failure.Description()};
  }
  std::set<int64_t> Seen;
  for (int Key = 1; Key <= Engine.Header.KeyCount; ++Key) {
    TreeWalk(Engine, Key, Seen, Problems, nullptr).Run();
  }
  CheckStack(Engine, Seen, Problems);
  return Problems;
}

std::vector<KeyEntry> ListKeyEntries(EngineState& Engine, int Key) {
  std::vector<KeyEntry> Entries;
  if (!ValidKey(Engine, Key)) return Entries;
  std::set<int64_t> Seen;
  std::vector<std::string> Ignored;
  TreeWalk(Engine, Key, Seen, Ignored, &Entries).Run();
  return Entries;
}

}  // namespace tqdb::engine

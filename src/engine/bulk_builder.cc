// Bottom-up loading of sorted entries into a key's tree.
//
// Each level keeps the node being filled ("current") and the completed node to its left
// ("pending"). A full current node does not go to disk at once: it becomes the pending
// one, and the node it replaces is written and entered in the level above. So when a key
// ends, the last two nodes of every level are still in hand, and a last node that came
// out small can take entries from its neighbour before both are written.
#include "engine/bulk_builder.h"

#include <algorithm>
#include <cstring>
#include <limits>
#include <utility>

#include "engine/key_codec.h"
#include "engine/key_file.h"
#include "platform/fault.h"
#include "platform/file_pool.h"

namespace tqdb::engine {
namespace {

using platform::Fault;

// Pages written per write call (64 KiB).
constexpr size_t kBatchPages = 64;

// 85 % leaves a node room for about a sixth more entries before its first split: inserts
// spread over the key then cost no splits for a while, and the tree stays nearly as
// shallow as a packed one. capacity - 1 is the most any node may hold at rest (a node
// that reaches its capacity is split at once).
constexpr int kFillPercent = 85;

[[noreturn]] void Misuse(const char* What) {
  throw Fault(platform::kInvalidCall, std::string("Carga de índices: ") + What);
}

[[noreturn]] void TooDeep() {
  throw Fault(platform::kSubscript,
              "Carga de índices: el árbol excede " + std::to_string(kLevelBuffers) + " niveles");
}

}  // namespace

int BulkFill(int Capacity) {
  const int Fill = Capacity * kFillPercent / 100;
  return std::max(1, std::min(Fill, Capacity - 1));
}

int BulkDepth(int64_t Entries, int Fill) {
  int Depth = 1;
  for (int64_t Nodes = (Entries + Fill - 1) / Fill; Nodes > 1; Nodes = (Nodes + Fill - 1) / Fill) {
    ++Depth;
  }
  return Depth;
}

int BulkFillFor(int Capacity, int64_t Entries) {
  const int Preferred = BulkFill(Capacity);
  const int Packed = std::max(1, Capacity - 1);
  if (BulkDepth(Entries, Preferred) > kLevelBuffers &&
      BulkDepth(Entries, Packed) <= kLevelBuffers) {
    return Packed;
  }
  return Preferred;
}

KeyBulkBuilder::KeyBulkBuilder(EngineState& Engine) : engine_(Engine) {
  if (Engine.KeyFileNo == 0 || Engine.ImageMode) Misuse("el archivo de índices no está abierto");
  const int64_t Length = platform::Length(Engine.KeyFileNo);
  next_page_ = Length + 1;
  if (next_page_ < FirstPagePosition(Engine) ||
      (next_page_ - FirstPagePosition(Engine)) % kNodeSize != 0) {
    ThrowDamaged(Engine);
  }
  batch_.reserve(kBatchPages * kNodeSize);
}

void KeyBulkBuilder::BeginKey(int Key, int64_t ExpectedEntries) {
  if (key_ != 0) Misuse("clave sin terminar");
  if (Key < 1 || Key > engine_.Header.KeyCount || Key > kMaxKeys) Misuse("clave inexistente");
  NodeBuffer Root;
  ReadPage(engine_, engine_.RootPos[Key], Root);
  if (Root[0] != kKindLeaf || LoadInt16(Root.data() + 1) != 0) Misuse("la clave no está vacía");

  key_ = Key;
  key_length_ = engine_.KeyLen[Key];
  capacity_ = engine_.Capacity[Key];
  fill_ = ExpectedEntries >= 0 ? BulkFillFor(capacity_, ExpectedEntries) : BulkFill(capacity_);
  if (ExpectedEntries >= 0 && BulkDepth(ExpectedEntries, fill_) > kLevelBuffers) TooDeep();
  entry_key_.assign(static_cast<size_t>(key_length_), ' ');
  has_previous_ = false;
  ResetLevels();
}

void KeyBulkBuilder::Add(std::string_view KeyText, int32_t Record) {
  if (key_ == 0) Misuse("entrada fuera de una clave");
  if (Record < 1) Misuse("número de registro inválido");
  const size_t Copied = std::min(KeyText.size(), entry_key_.size());
  std::memcpy(entry_key_.data(), KeyText.data(), Copied);
  std::fill(entry_key_.begin() + static_cast<std::ptrdiff_t>(Copied), entry_key_.end(), ' ');
  const auto* Key = reinterpret_cast<const uint8_t*>(entry_key_.data());
  CheckOrder(Key, Record);
  AddToLevel(0, Key, Record);
  highest_record_ = std::max(highest_record_, Record);
}

// Entries must ascend strictly by (key, record number): a pair out of place would make a
// tree that navigation cannot search.
void KeyBulkBuilder::CheckOrder(const uint8_t* Key, int32_t Record) {
  if (has_previous_) {
    const int Order = CompareKeyBytes(reinterpret_cast<const uint8_t*>(previous_key_.data()), Key,
                                      static_cast<size_t>(key_length_));
    if (Order > 0 || (Order == 0 && previous_record_ >= Record)) Misuse("entradas fuera de orden");
  }
  previous_key_.assign(reinterpret_cast<const char*>(Key), static_cast<size_t>(key_length_));
  previous_record_ = Record;
  has_previous_ = true;
}

void KeyBulkBuilder::AddToLevel(int Level, const uint8_t* Key, int32_t Value) {
  if (Level >= kLevelBuffers) TooDeep();
  LevelNodes& Nodes = levels_[static_cast<size_t>(Level)];
  if (Nodes.Count == fill_) {
    if (Nodes.HasPending) EmitNode(Level, Nodes.Pending, fill_);
    std::swap(Nodes.Pending, Nodes.Current);
    Nodes.HasPending = true;
    Nodes.Current.fill(0);
    Nodes.Count = 0;
  }
  NodeView(Nodes.Current, key_length_).SetEntry(Nodes.Count, Key, Value);
  ++Nodes.Count;
}

// Gives Node its own page at the end of the file and enters it in the level above.
void KeyBulkBuilder::EmitNode(int Level, NodeBuffer& Node, int Count) {
  NodeView View(Node, key_length_);
  View.SetKind(Level == 0 ? kKindLeaf : kKindBranch);
  View.SetCount(Count);
  const int64_t Position = next_page_;
  if (Position + kNodeSize - 1 > std::numeric_limits<int32_t>::max()) {
    throw Fault(platform::kOverflow);
  }
  if (batch_.empty()) batch_start_ = Position;
  batch_.insert(batch_.end(), Node.begin(), Node.end());
  next_page_ += kNodeSize;
  if (batch_.size() >= kBatchPages * kNodeSize) FlushPages();
  // The level above may emit in turn; Node is not touched after this.
  AddToLevel(Level + 1, View.Key(0), static_cast<int32_t>(Position));
}

// When the last node holds less than half a node, it and the pending node share their
// entries evenly (the left one takes the odd entry). Both stay within 1..fill. Returns
// the pending node's count.
int KeyBulkBuilder::Rebalance(LevelNodes& Nodes) {
  if (!Nodes.HasPending || Nodes.Count * 2 >= fill_) return fill_;
  const int Total = fill_ + Nodes.Count;
  const int Left = Total - Total / 2;
  const int Moved = fill_ - Left;
  NodeView Pending(Nodes.Pending, key_length_);
  NodeView Current(Nodes.Current, key_length_);
  Current.MoveEntries(Moved, 0, Nodes.Count);
  std::memcpy(Current.Entry(0), Pending.Entry(Left),
              static_cast<size_t>(Moved) * static_cast<size_t>(Pending.EntryLength()));
  std::memset(Pending.Entry(Left), 0,
              static_cast<size_t>(Moved) * static_cast<size_t>(Pending.EntryLength()));
  Nodes.Count += Moved;
  return Left;
}

void KeyBulkBuilder::WriteRoot(int Level, NodeBuffer& Node, int Count) {
  NodeView View(Node, key_length_);
  View.SetKind(Level == 0 ? kKindLeaf : kKindBranch);
  View.SetCount(Count);
  WriteKeyNode(engine_, engine_.RootPos[key_], Node);
}

void KeyBulkBuilder::FinishKey() {
  if (key_ == 0) Misuse("clave sin empezar");
  for (int Level = 0; Level < kLevelBuffers; ++Level) {
    LevelNodes& Nodes = levels_[static_cast<size_t>(Level)];
    if (!Nodes.HasPending) {
      // The only node of the highest level: it becomes the root (an empty leaf when the
      // key received no entries).
      FlushPages();
      WriteRoot(Level, Nodes.Current, Nodes.Count);
      break;
    }
    const int PendingCount = Rebalance(Nodes);
    EmitNode(Level, Nodes.Pending, PendingCount);
    EmitNode(Level, Nodes.Current, Nodes.Count);
  }
  FlushPages();
  ResetLevels();
  // The engine's cached nodes and cursor describe the empty tree: start afresh.
  for (NodeBuffer& Buffer : engine_.Level) Buffer.fill(0);
  engine_.Path = {};
  engine_.LeafLevel = 0;
  engine_.CurKey = 0;
  key_ = 0;
}

void KeyBulkBuilder::Finish(int32_t LastRecord) {
  if (key_ != 0) Misuse("clave sin terminar");
  if (LastRecord < highest_record_) Misuse("último registro menor que los cargados");
  ReadHeader(engine_);
  engine_.Header.LastRecord = LastRecord;
  WriteHeader(engine_);
}

void KeyBulkBuilder::FlushPages() {
  if (batch_.empty()) return;
  platform::WriteAt(engine_.KeyFileNo, batch_start_, batch_);
  const int64_t End = batch_start_ + static_cast<int64_t>(batch_.size()) - 1;
  engine_.KeyFileLength = std::max(engine_.KeyFileLength, End);
  batch_.clear();
}

void KeyBulkBuilder::ResetLevels() {
  for (LevelNodes& Nodes : levels_) {
    Nodes.Current.fill(0);
    Nodes.Pending.fill(0);
    Nodes.Count = 0;
    Nodes.HasPending = false;
  }
}

}  // namespace tqdb::engine

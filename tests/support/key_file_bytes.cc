#include "support/key_file_bytes.h"

#include <algorithm>
#include <stdexcept>
#include <utility>

namespace tqdb::testing {
namespace {

constexpr int kNode = 1024;
constexpr int kHeader = 15;
constexpr int kDescriptor = 5;

void PutLittle(std::string& Out, size_t At, uint32_t Value, int Width) {
  for (int I = 0; I < Width; ++I) Out[At + I] = static_cast<char>((Value >> (8 * I)) & 0xFF);
}

char AsciiUpper(char C) { return (C >= 'a' && C <= 'z') ? static_cast<char>(C - 32) : C; }

int KeyLengthOf(const KeySpec& Key) {
  int Sum = 0;
  for (const SegmentSpec& S : Key.Segments) Sum += S.Length;
  return Sum;
}

bool IsDeleted(const std::string& Record) { return Record.rfind("ANULADO", 0) == 0; }

using Entry = std::pair<std::string, uint32_t>;  // key value, record number or child

// One page: kind, count, entries packed from offset 3, zeros after.
std::string Page(bool Branch, const std::vector<Entry>& Entries, int KeyLength) {
  std::string Out(kNode, '\0');
  Out[0] = Branch ? 1 : 0;
  PutLittle(Out, 1, static_cast<uint32_t>(Entries.size()), 2);
  size_t At = 3;
  for (const auto& [Value, Pointer] : Entries) {
    Out.replace(At, static_cast<size_t>(KeyLength), Value);
    PutLittle(Out, At + KeyLength, Pointer, 4);
    At += static_cast<size_t>(KeyLength) + 4;
  }
  return Out;
}

}  // namespace

std::string KeyTextOf(const TableSpec& Table, int Key, const std::string& Record) {
  std::string Text;
  for (const SegmentSpec& S : Table.Keys.at(Key - 1).Segments) {
    const size_t From = static_cast<size_t>(FieldOffsetOf(Table, S.Field) + S.Start - 1);
    std::string Part = Record.substr(std::min(From, Record.size()), S.Length);
    Part.resize(S.Length, ' ');
    Text += Part;
  }
  std::transform(Text.begin(), Text.end(), Text.begin(), AsciiUpper);
  return Text;
}

std::vector<int32_t> KeyOrder(const TableSpec& Table, int Key,
                              const std::vector<std::string>& Records) {
  std::vector<std::pair<std::string, int32_t>> Pairs;
  for (size_t I = 0; I < Records.size(); ++I) {
    if (IsDeleted(Records[I])) continue;
    Pairs.emplace_back(KeyTextOf(Table, Key, Records[I]), static_cast<int32_t>(I + 1));
  }
  std::sort(Pairs.begin(), Pairs.end());
  std::vector<int32_t> Order;
  for (const auto& P : Pairs) Order.push_back(P.second);
  return Order;
}

std::string KeyFileBytes(const TableSpec& Table, const std::vector<std::string>& Records) {
  const int Keys = static_cast<int>(Table.Keys.size());
  std::string Out(kHeader + kDescriptor * Keys, '\0');
  Out[0] = static_cast<char>(Keys);
  PutLittle(Out, 1, kNode, 2);
  PutLittle(Out, 3, static_cast<uint32_t>(Records.size()), 4);

  for (int K = 1; K <= Keys; ++K) {
    const int Length = KeyLengthOf(Table.Keys[K - 1]);
    const size_t Capacity = static_cast<size_t>((kNode - 3) / (Length + 4));
    std::vector<Entry> Entries;
    for (int32_t Record : KeyOrder(Table, K, Records)) {
      Entries.emplace_back(KeyTextOf(Table, K, Records[Record - 1]), Record);
    }
    // Leaves hold at most capacity - 1 entries: a node is never left full.
    const size_t PerLeaf = Capacity - 1;
    std::vector<Entry> Children;
    for (size_t First = 0; First < Entries.size() || First == 0; First += PerLeaf) {
      const size_t Last = std::min(Entries.size(), First + PerLeaf);
      std::vector<Entry> Leaf(Entries.begin() + First, Entries.begin() + Last);
      const uint32_t Position = static_cast<uint32_t>(Out.size() + 1);
      Children.emplace_back(Leaf.empty() ? std::string(Length, ' ') : Leaf.front().first, Position);
      Out += Page(false, Leaf, Length);
      if (Entries.empty()) break;
    }
    uint32_t Root = Children.front().second;
    if (Children.size() > 1) {
      if (Children.size() > PerLeaf) throw std::invalid_argument("key tree too deep for tests");
      Root = static_cast<uint32_t>(Out.size() + 1);
      Out += Page(true, Children, Length);
    }
    const size_t Descriptor = kHeader + kDescriptor * static_cast<size_t>(K - 1);
    Out[Descriptor] = static_cast<char>(Length);
    PutLittle(Out, Descriptor + 1, Root, 4);
  }
  return Out;
}

}  // namespace tqdb::testing

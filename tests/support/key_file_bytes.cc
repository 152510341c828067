#include "support/key_file_bytes.h"

#include <algorithm>
#include <stdexcept>
#include <utility>

namespace tqdb::testing {
namespace {

constexpr int kNode = 1024;

void PutLittle(std::string& Out, size_t At, uint32_t Value, int Width) {
  for (int I = 0; I < Width; ++I) Out[At + I] = static_cast<char>((Value >> (8 * I)) & 0xFF);
}

using Entry = std::pair<std::string, uint32_t>;  // key value, record number or child

// The entries of key Key (1-based) in key order: (key text, record number).
std::vector<Entry> KeyEntries(const TableSpec& Table, int Key,
                              const std::vector<std::string>& Records) {
  std::vector<Entry> Entries;
  for (size_t I = 0; I < Records.size(); ++I) {
    if (Records[I].starts_with("ANULADO")) continue;
    std::string Text;
    for (const SegmentSpec& S : Table.Keys.at(Key - 1).Segments) {
      const size_t From = static_cast<size_t>(FieldOffsetOf(Table, S.Field) + S.Start - 1);
      std::string Part = Records[I].substr(std::min(From, Records[I].size()), S.Length);
      Part.resize(size_t(S.Length), ' ');
      Text += Part;
    }
    for (char& C : Text) C = (C >= 'a' && C <= 'z') ? static_cast<char>(C - 32) : C;
    Entries.emplace_back(Text, static_cast<uint32_t>(I + 1));
  }
  std::sort(Entries.begin(), Entries.end());
  return Entries;
}

// One page: kind, count, entries packed from offset 3, zeros after.
std::string Page(bool Branch, const std::vector<Entry>& Entries, size_t KeyLength) {
  std::string Out(kNode, '\0');
  Out[0] = Branch ? 1 : 0;
  PutLittle(Out, 1, static_cast<uint32_t>(Entries.size()), 2);
  for (size_t I = 0; I < Entries.size(); ++I) {
    Out.replace(3 + I * (KeyLength + 4), KeyLength, Entries[I].first);
    PutLittle(Out, 3 + I * (KeyLength + 4) + KeyLength, Entries[I].second, 4);
  }
  return Out;
}

}  // namespace

std::vector<int32_t> KeyOrder(const TableSpec& Table, int Key,
                              const std::vector<std::string>& Records) {
  std::vector<int32_t> Order;
  for (const Entry& E : KeyEntries(Table, Key, Records)) Order.push_back(int32_t(E.second));
  return Order;
}

std::string KeyFileBytes(const TableSpec& Table, const std::vector<std::string>& Records) {
  const size_t Keys = Table.Keys.size();
  std::string Out(15 + 5 * Keys, '\0');
  Out[0] = static_cast<char>(Keys);
  PutLittle(Out, 1, kNode, 2);
  PutLittle(Out, 3, static_cast<uint32_t>(Records.size()), 4);
  for (size_t K = 0; K < Keys; ++K) {
    const std::vector<Entry> Entries = KeyEntries(Table, int(K + 1), Records);
    size_t Length = 0;
    for (const SegmentSpec& S : Table.Keys[K].Segments) Length += size_t(S.Length);
    // Leaves hold at most capacity - 1 entries: a node is never left full.
    const size_t PerLeaf = (kNode - 3) / (Length + 4) - 1;
    std::vector<Entry> Children;
    for (size_t First = 0; First == 0 || First < Entries.size(); First += PerLeaf) {
      const std::vector<Entry> Leaf(Entries.begin() + First,
                                    Entries.begin() + std::min(Entries.size(), First + PerLeaf));
      Children.emplace_back(Leaf.empty() ? std::string(Length, ' ') : Leaf.front().first,
                            static_cast<uint32_t>(Out.size() + 1));
      Out += Page(false, Leaf, Length);
    }
    uint32_t Root = Children.front().second;
    if (Children.size() > 1) {
      if (Children.size() > PerLeaf) throw std::invalid_argument("key tree too deep for tests");
      Root = static_cast<uint32_t>(Out.size() + 1);
      Out += Page(true, Children, Length);
    }
    Out[15 + 5 * K] = static_cast<char>(Length);
    PutLittle(Out, 15 + 5 * K + 1, Root, 4);
  }
  return Out;
}

}  // namespace tqdb::testing

// Byte-level codecs of the key file: little-endian integers and doubles, node fields and
// the ordering of key values.
//
// Every multi-byte integer in the key file is little-endian two's complement. A node is
// one 1024-byte page: kind at offset 0 (0 leaf, 1 branch), entry count (int16) at offset
// 1, entries packed from offset 3, each a key value of the key's length followed by a
// 4-byte record number (leaf) or child position (branch). docs/formats.md has the layout.
//
// Key values are ordered by the code points of their Windows-1252 characters, not by raw
// bytes; the comparisons here use a rank table so that they never decode or allocate.
#pragma once

#include <array>
#include <cstdint>
#include <cstring>
#include <string>
#include <string_view>

#include "engine/EngineState.h"
#include "platform/fault.h"

namespace tqdb::engine {

inline constexpr int kNodeHeaderSize = 3;  // kind byte and entry count
inline constexpr int kKindLeaf = 0;
inline constexpr int kKindBranch = 1;

// ---- Little-endian integers ------------------------------------------------------------

inline int16_t LoadInt16(const uint8_t* Bytes) {
  return static_cast<int16_t>(static_cast<uint16_t>(Bytes[0] | (Bytes[1] << 8)));
}
inline int32_t LoadInt32(const uint8_t* Bytes) {
  const uint32_t Value = uint32_t(Bytes[0]) | (uint32_t(Bytes[1]) << 8) |
                         (uint32_t(Bytes[2]) << 16) | (uint32_t(Bytes[3]) << 24);
  return static_cast<int32_t>(Value);
}
inline void StoreInt16(uint8_t* Bytes, int16_t Value) {
  const auto Raw = static_cast<uint16_t>(Value);
  Bytes[0] = static_cast<uint8_t>(Raw);
  Bytes[1] = static_cast<uint8_t>(Raw >> 8);
}
inline void StoreInt32(uint8_t* Bytes, int32_t Value) {
  const auto Raw = static_cast<uint32_t>(Value);
  for (int I = 0; I < 4; ++I) Bytes[I] = static_cast<uint8_t>(Raw >> (8 * I));
}

// The same codecs on strings: the value's little-endian memory image, 2, 4 or 8 bytes.
// The decoders raise Fault 5 when the text is not exactly that long.
std::string Int16ToBytes(int16_t Value);
std::string Int32ToBytes(int32_t Value);
std::string DoubleToBytes(double Value);
int16_t BytesToInt16(std::string_view Bytes);
int32_t BytesToInt32(std::string_view Bytes);
double BytesToDouble(std::string_view Bytes);

// ---- Ordering of key values ------------------------------------------------------------

// Rank of each byte in code-point order (platform::CodePointRank, copied into a table so
// that the comparison loop inlines).
extern const std::array<uint8_t, 256> kKeyRank;

// Compares Count bytes of A and B by character. Returns <0, 0 or >0.
inline int CompareKeyBytes(const uint8_t* A, const uint8_t* B, size_t Count) {
  for (size_t I = 0; I < Count; ++I) {
    if (A[I] != B[I]) return int(kKeyRank[A[I]]) - int(kKeyRank[B[I]]);
  }
  return 0;
}

// Compares a stored key of KeyLength bytes with a value of any length, character by
// character; when one is a proper prefix of the other the shorter is lower.
inline int CompareKeyToValue(const uint8_t* Key, size_t KeyLength, std::string_view Value) {
  const size_t Common = KeyLength < Value.size() ? KeyLength : Value.size();
  const int Order = CompareKeyBytes(Key, reinterpret_cast<const uint8_t*>(Value.data()), Common);
  if (Order != 0) return Order;
  if (KeyLength == Value.size()) return 0;
  return KeyLength < Value.size() ? -1 : 1;
}

// ---- Node fields -----------------------------------------------------------------------

// Node capacity for a key length: (1024 - 3) \ (key length + 4).
inline int NodeCapacity(int KeyLength) { return (kNodeSize - kNodeHeaderSize) / (KeyLength + 4); }

// A view of one node buffer for one key length. Entry accessors check that the entry lies
// inside the page (Fault 9 otherwise); callers keep indexes below the validated count.
class NodeView {
 public:
  NodeView(NodeBuffer& Buffer, int KeyLength)
      : bytes_(Buffer.data()), key_length_(KeyLength), entry_length_(KeyLength + 4) {}

  uint8_t Kind() const { return bytes_[0]; }
  bool IsLeaf() const { return bytes_[0] == kKindLeaf; }
  void SetKind(uint8_t Kind) { bytes_[0] = Kind; }
  int16_t Count() const { return LoadInt16(bytes_ + 1); }
  void SetCount(int Count) { StoreInt16(bytes_ + 1, static_cast<int16_t>(Count)); }

  int KeyLength() const { return key_length_; }
  int EntryLength() const { return entry_length_; }
  uint8_t* Entry(int Index) const {
    if (Index < 0 || kNodeHeaderSize + (Index + 1) * entry_length_ > kNodeSize) {
      throw platform::Fault(platform::kSubscript);
    }
    return bytes_ + kNodeHeaderSize + Index * entry_length_;
  }
  const uint8_t* Key(int Index) const { return Entry(Index); }
  std::string_view KeyText(int Index) const {
    return {reinterpret_cast<const char*>(Entry(Index)), static_cast<size_t>(key_length_)};
  }
  // Record number (leaf) or child position (branch) of an entry.
  int32_t Value(int Index) const { return LoadInt32(Entry(Index) + key_length_); }
  void SetValue(int Index, int32_t Value) { StoreInt32(Entry(Index) + key_length_, Value); }
  void SetKey(int Index, const uint8_t* Key) {
    std::memcpy(Entry(Index), Key, static_cast<size_t>(key_length_));
  }
  void SetEntry(int Index, const uint8_t* Key, int32_t Value) {
    SetKey(Index, Key);
    SetValue(Index, Value);
  }
  // The bytes of the entries in use (for the substring search of a leaf).
  std::string_view UsedEntries(int Count) const {
    return {reinterpret_cast<const char*>(bytes_ + kNodeHeaderSize),
            static_cast<size_t>(Count) * static_cast<size_t>(entry_length_)};
  }
  // Moves entries [From, From + Count) to start at To (ranges may overlap).
  void MoveEntries(int To, int From, int Count) {
    if (Count <= 0) return;
    std::memmove(Entry(To), Entry(From), static_cast<size_t>(Count) * entry_length_);
    (void)Entry(To + Count - 1);  // the moved block ends inside the page
  }
  uint8_t* Bytes() const { return bytes_; }

 private:
  uint8_t* bytes_;
  int key_length_;
  int entry_length_;
};

// Compares entry Index of a node with the pair (Value, Record): key first, then record
// number.
inline int CompareEntryToPair(const NodeView& Node, int Index, std::string_view Value,
                              int32_t Record) {
  const int Order =
      CompareKeyToValue(Node.Key(Index), static_cast<size_t>(Node.KeyLength()), Value);
  if (Order != 0) return Order;
  const int32_t Own = Node.Value(Index);
  return Own < Record ? -1 : (Own > Record ? 1 : 0);
}

}  // namespace tqdb::engine

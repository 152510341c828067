// Rows are stored with every byte replaced by its rank in character order
// (platform::CodePointRank), so that a plain byte comparison of two rows orders them as
// the key files do; the digits of the record number keep their order under the ranks.
#include "engine/key_text_table.h"

#include <algorithm>
#include <array>
#include <cstring>
#include <future>
#include <limits>
#include <span>
#include <utility>

#include "platform/codepage.h"
#include "platform/fault.h"

namespace tqdb {
namespace {

using platform::Fault;

constexpr int kMaxWidth = 10;  // the digits of the largest record number

struct RankTables {
  std::array<uint8_t, 256> Rank{};
  std::array<uint8_t, 256> UpperRank{};  // the rank of each byte's upper case
  std::array<uint8_t, 256> Byte{};       // the inverse of Rank: the byte of each rank
};

// One row while a column is sorted: 8 bytes of its text, from the offset being compared,
// as a big-endian number, and its index.
struct SortItem {
  uint64_t Digit = 0;
  uint32_t Index = 0;
};

const RankTables& Ranks() {
  static const RankTables Tables = [] {
    RankTables T;
    std::array<bool, 256> Seen{};
    for (int B = 0; B < 256; ++B) {
      const uint8_t R = platform::CodePointRank(static_cast<uint8_t>(B));
      if (Seen[R]) throw Fault(platform::kInvalidCall, "orden de caracteres ambiguo");
      Seen[R] = true;
      T.Rank[static_cast<size_t>(B)] = R;
      T.Byte[R] = static_cast<uint8_t>(B);
    }
    for (int B = 0; B < 256; ++B) {
      T.UpperRank[static_cast<size_t>(B)] = T.Rank[platform::UpperByte(static_cast<uint8_t>(B))];
    }
    return T;
  }();
  return Tables;
}

}  // namespace

int DigitCount(int64_t N) {
  int64_t Power = 10;
  for (int Digits = 1; Digits <= 10; ++Digits, Power *= 10) {
    if (N < Power) return Digits;
  }
  return 0;
}

int64_t KeyTextTable::BytesFor(const std::vector<int>& KeyLengths, int64_t Rows) {
  // Every key's rows and sorted order, and while one key is sorted its items (twice).
  const int Width = std::max(DigitCount(Rows), 1);
  int64_t PerRow = 2 * sizeof(SortItem);
  for (int Length : KeyLengths) PerRow += Length + Width + sizeof(uint32_t);
  return PerRow * Rows;
}

KeyTextTable::KeyTextTable(std::vector<int> KeyLengths, int Width, int64_t ExpectedRows)
    : lengths_(std::move(KeyLengths)), width_(std::max(Width, 1)) {
  if (width_ > kMaxWidth) throw Fault(platform::kInvalidCall);
  Ranks();
  for (int Length : lengths_) {
    Column C;
    C.Length = Length;
    C.Rows.reserve(static_cast<size_t>(ExpectedRows) * static_cast<size_t>(Length + width_));
    columns_.push_back(std::move(C));
  }
}

void KeyTextTable::AddRow(const std::vector<std::string>& Texts, int32_t Record, bool Upper) {
  if (Texts.size() != columns_.size() || Record <= last_record_) {
    throw Fault(platform::kInvalidCall);
  }
  for (const Column& C : columns_) {
    if (C.Sorted) throw Fault(platform::kInvalidCall);  // rows come before sorting
  }
  if (rows_ >= std::numeric_limits<uint32_t>::max()) throw Fault(platform::kOverflow);
  std::array<uint8_t, kMaxWidth> Number{};
  int64_t Rest = Record;
  for (int I = width_ - 1; I >= 0; --I, Rest /= 10) {
    Number[static_cast<size_t>(I)] = static_cast<uint8_t>('0' + Rest % 10);
  }
  if (Rest != 0) throw Fault(platform::kOverflow);  // more digits than the width
  const RankTables& R = Ranks();
  const std::array<uint8_t, 256>& TextRank = Upper ? R.UpperRank : R.Rank;
  for (size_t K = 0; K < columns_.size(); ++K) {
    Column& C = columns_[K];
    const std::string& Text = Texts[K];
    const size_t Start = C.Rows.size();
    C.Rows.resize(Start + static_cast<size_t>(C.Length + width_));
    uint8_t* Row = C.Rows.data() + Start;
    const size_t Copied = std::min(Text.size(), static_cast<size_t>(C.Length));
    for (size_t I = 0; I < Copied; ++I) Row[I] = TextRank[static_cast<uint8_t>(Text[I])];
    for (size_t I = Copied; I < static_cast<size_t>(C.Length); ++I) Row[I] = R.Rank[' '];
    for (int I = 0; I < width_; ++I) Row[C.Length + I] = R.Rank[Number[static_cast<size_t>(I)]];
  }
  last_record_ = Record;
  ++rows_;
}

namespace {

constexpr size_t kDigitBytes = sizeof(uint64_t);
// Ranges up to this size are sorted by comparison; larger ones by radix passes.
constexpr size_t kComparisonSortMost = 256;

uint64_t LoadDigit(const uint8_t* Row, size_t TextLength, size_t Offset) {
  if (Offset + kDigitBytes <= TextLength) {
    uint64_t Value = 0;
    std::memcpy(&Value, Row + Offset, sizeof Value);
    return __builtin_bswap64(Value);
  }
  uint64_t Value = 0;
  for (size_t B = 0; B < kDigitBytes; ++B) {
    Value = Value << 8 | (Offset + B < TextLength ? Row[Offset + B] : 0);
  }
  return Value;
}

// Stable least-significant-byte-first radix sort of Items by Digit, one pass per byte
// that differs between them (Spare is as large as Items and is scratch).
void RadixSortByDigit(std::span<SortItem> Items, std::span<SortItem> Spare) {
  std::array<std::array<uint32_t, 256>, kDigitBytes> Counts{};
  for (const SortItem& Item : Items) {
    for (size_t B = 0; B < kDigitBytes; ++B) ++Counts[B][(Item.Digit >> (8 * B)) & 0xFF];
  }
  SortItem* From = Items.data();
  SortItem* To = Spare.data();
  for (size_t B = 0; B < kDigitBytes; ++B) {
    std::array<uint32_t, 256>& Count = Counts[B];
    if (Count[(From->Digit >> (8 * B)) & 0xFF] == Items.size()) continue;  // all alike
    uint32_t Sum = 0;
    for (uint32_t& C : Count) Sum += std::exchange(C, Sum);
    for (size_t I = 0; I < Items.size(); ++I)
      To[Count[(From[I].Digit >> (8 * B)) & 0xFF]++] = From[I];
    std::swap(From, To);
  }
  if (From != Items.data()) std::copy_n(From, Items.size(), Items.data());
}

}  // namespace

// Most significant digit first, 8 bytes of key text a digit: all rows are sorted by their
// first 8 bytes; each run of rows that agree there is sorted by the next 8, and so on to
// the end of the key text. Large ranges are sorted by stable radix passes over the bytes
// that differ, small ones by comparison. Rows whose texts are equal stay in the order they
// were added, which is the order of their record numbers, so the numbers are never
// compared (nor read: a run of equal texts costs no further pass).
void KeyTextTable::Sort(int Key) {
  Column& C = columns_.at(static_cast<size_t>(Key));
  const size_t RowLength = static_cast<size_t>(C.Length + width_);
  const auto TextLength = static_cast<size_t>(C.Length);
  const uint8_t* Base = C.Rows.data();
  std::vector<SortItem> Items(static_cast<size_t>(rows_));
  std::vector<SortItem> Spare(Items.size());
  for (size_t I = 0; I < Items.size(); ++I) Items[I].Index = static_cast<uint32_t>(I);

  struct Range {
    size_t Begin, End, Offset;
  };
  std::vector<Range> Work{{0, Items.size(), 0}};
  while (!Work.empty()) {
    const Range R = Work.back();
    Work.pop_back();
    const std::span<SortItem> Part(Items.data() + R.Begin, R.End - R.Begin);
    for (SortItem& Item : Part) {
      Item.Digit = LoadDigit(Base + size_t{Item.Index} * RowLength, TextLength, R.Offset);
    }
    if (Part.size() <= kComparisonSortMost) {
      std::sort(Part.begin(), Part.end(), [](const SortItem& A, const SortItem& B) {
        return A.Digit != B.Digit ? A.Digit < B.Digit : A.Index < B.Index;
      });
    } else {
      RadixSortByDigit(Part, std::span(Spare.data(), Part.size()));
    }
    if (R.Offset + kDigitBytes >= TextLength) continue;  // the whole text has been compared
    for (size_t First = R.Begin; First < R.End;) {
      size_t Last = First + 1;
      while (Last < R.End && Items[First].Digit == Items[Last].Digit) ++Last;
      if (Last - First > 1) Work.push_back({First, Last, R.Offset + kDigitBytes});
      First = Last;
    }
  }
  C.Order.resize(Items.size());
  for (size_t I = 0; I < Items.size(); ++I) C.Order[I] = Items[I].Index;
  C.Sorted = true;
}

const uint8_t* KeyTextTable::SortedRow(int Key, int64_t Row) const {
  const Column& C = columns_.at(static_cast<size_t>(Key));
  if (!C.Sorted || Row < 0 || Row >= rows_) throw Fault(platform::kSubscript);
  return C.Rows.data() +
         size_t{C.Order[static_cast<size_t>(Row)]} * static_cast<size_t>(C.Length + width_);
}

std::string KeyTextTable::RowText(int Key, int64_t Row) const {
  const uint8_t* Bytes = SortedRow(Key, Row);
  const RankTables& R = Ranks();
  const int Length = columns_[static_cast<size_t>(Key)].Length + width_;
  std::string Text(static_cast<size_t>(Length), ' ');
  for (int I = 0; I < Length; ++I)
    Text[static_cast<size_t>(I)] = static_cast<char>(R.Byte[Bytes[I]]);
  return Text;
}

void KeyTextTable::Entry(int Key, int64_t Row, std::string& Text, int32_t& Record) const {
  const uint8_t* Bytes = SortedRow(Key, Row);
  const Column& C = columns_[static_cast<size_t>(Key)];
  // The rows lie in the order they were added: fetch the ones a walk in sorted order
  // reads next while this one is decoded.
  constexpr int64_t kAhead = 16;
  if (Row + kAhead < rows_) {
    __builtin_prefetch(C.Rows.data() + size_t{C.Order[static_cast<size_t>(Row + kAhead)]} *
                                           static_cast<size_t>(C.Length + width_));
  }
  const RankTables& R = Ranks();
  const int Length = C.Length;
  Text.resize(static_cast<size_t>(Length));
  for (int I = 0; I < Length; ++I)
    Text[static_cast<size_t>(I)] = static_cast<char>(R.Byte[Bytes[I]]);
  int64_t Number = 0;
  for (int I = 0; I < width_; ++I) Number = Number * 10 + (R.Byte[Bytes[Length + I]] - '0');
  Record = static_cast<int32_t>(Number);
}

std::string KeyTextTable::Text(int Key, int64_t Row) const {
  std::string Text;
  int32_t Record = 0;
  Entry(Key, Row, Text, Record);
  return Text;
}

int32_t KeyTextTable::Record(int Key, int64_t Row) const {
  std::string Text;
  int32_t Record = 0;
  Entry(Key, Row, Text, Record);
  return Record;
}

void KeyTextTable::SortAndLoadEach(const std::function<void(int Key)>& Load) {
  if (Keys() == 0) return;
  Sort(0);
  for (int Key = 0; Key < Keys(); ++Key) {
    // A future of std::async waits for its task when destroyed, so a Load that throws
    // leaves no sort running on this table.
    std::future<void> Next;
    if (Key + 1 < Keys()) Next = std::async(std::launch::async, [this, Key] { Sort(Key + 1); });
    Load(Key);
    Release(Key);
    if (Next.valid()) Next.get();
  }
}

void KeyTextTable::Release(int Key) {
  Column& C = columns_.at(static_cast<size_t>(Key));
  std::vector<uint8_t>().swap(C.Rows);
  std::vector<uint32_t>().swap(C.Order);
  C.Sorted = false;
}

}  // namespace tqdb

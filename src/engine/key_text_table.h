// The table of key texts a key file is built from in one go (ReIndex and Rebuild): for
// every record and every key, the record's key text followed by its record number written
// in decimal, zero-padded to a fixed number of digits. Sorting one key's rows orders them
// by key text (character by character, as the key files do) and then by record number,
// which is the order in which the key's tree is loaded.
#pragma once

#include <cstdint>
#include <functional>
#include <string>
#include <string_view>
#include <vector>

namespace tqdb {

// The number of decimal digits of N: the smallest d from 1 to 10 with N / 10^d < 1; 0
// when N has more than 10 digits. DigitCount(999) is 3, DigitCount(1000) is 4.
int DigitCount(int64_t N);

class KeyTextTable {
 public:
  // KeyLengths: the text length of each key (key 0 is the table's key 1). Width: digits
  // of the record numbers. ExpectedRows only reserves room.
  KeyTextTable(std::vector<int> KeyLengths, int Width, int64_t ExpectedRows);

  // The memory a table of Rows rows takes at most, sorting included.
  static int64_t BytesFor(const std::vector<int>& KeyLengths, int64_t Rows);

  int Keys() const { return static_cast<int>(lengths_.size()); }
  int64_t Rows() const { return rows_; }

  // Adds the row of one record: Texts[k] is its text for key k (cut or padded with blanks
  // to the key's length; upper-cased on the way in when Upper is set). Records are
  // numbered by the caller, 1 and up, below 10^Width, each row's number above the one
  // before (Fault 5 otherwise).
  void AddRow(const std::vector<std::string>& Texts, int32_t Record, bool Upper = false);

  // Sorts key Key's rows. REQUIRES: 0 <= Key < Keys(). No row may be added afterwards.
  void Sort(int Key);
  // The Row-th row of key Key in sorted order: its key text and its record number.
  // REQUIRES: Sort(Key) was called (Fault 9 otherwise, and for a row beyond the rows).
  std::string Text(int Key, int64_t Row) const;
  int32_t Record(int Key, int64_t Row) const;
  // Both at once, into Text (reused between calls, so that a walk allocates nothing).
  void Entry(int Key, int64_t Row, std::string& Text, int32_t& Record) const;
  // The raw row ("key text" + zero-padded number) in sorted order, in the file's bytes.
  std::string RowText(int Key, int64_t Row) const;
  // Frees key Key's rows once its tree is loaded.
  void Release(int Key);
  // Sorts every key and hands it to Load in key order (0, 1, ...), releasing each after
  // its Load. While Load works on one key, the next is sorted on a second thread; Load
  // runs on the calling thread and must not touch other keys' rows.
  void SortAndLoadEach(const std::function<void(int Key)>& Load);

 private:
  struct Column {
    int Length = 0;               // key text length
    std::vector<uint8_t> Rows;    // rows of Length + width_ bytes, each byte as its rank
    std::vector<uint32_t> Order;  // after sorting: the rows' indexes in sorted order
    bool Sorted = false;
  };
  const uint8_t* SortedRow(int Key, int64_t Row) const;

  std::vector<int> lengths_;
  int width_;
  int64_t rows_ = 0;
  int32_t last_record_ = 0;
  std::vector<Column> columns_;
};

}  // namespace tqdb

// Bulk loading of key trees: building a key's B+-tree bottom-up from entries that arrive
// already sorted, instead of inserting them one by one.
//
// The trees it writes keep every invariant of key_update.cc, so navigation, insertion and
// removal treat them exactly like grown ones:
//  - entries ascend by key (by character) and, among equal keys, by record number, within
//    nodes and across leaves; a run of equal keys may span several leaves;
//  - the key of a branch entry is the lowest key under its child;
//  - all leaves lie at one depth, at most kLevelBuffers - 1 below the root;
//  - no node is left full (at most capacity - 1 entries) and none below the root is empty;
//  - the root stays at the position its descriptor names: the top node is written there.
//
// Fill rule: nodes are filled to about 85 % of their capacity (never more than capacity
// - 1, never fewer than 1; see BulkFill), so that the inserts that follow a rebuild find
// room in every node before the first split. The last node of a level that would come out
// small shares its entries with its left neighbour.
//
// New pages are appended to the key file in the order they are completed and written in
// batches of several pages per write.
#pragma once

#include <array>
#include <cstdint>
#include <string>
#include <string_view>
#include <vector>

#include "engine/EngineState.h"

namespace tqdb::engine {

// Entries per node of a bulk-loaded tree for a node capacity (>= 2): 85 % of it rounded
// down, kept within 1..capacity - 1.
int BulkFill(int Capacity);
// Levels (root and leaves included) of a tree of Entries entries loaded with Fill
// entries per node; 1 for an empty or one-leaf tree.
int BulkDepth(int64_t Entries, int Fill);
// The fill used for Entries entries: BulkFill, or capacity - 1 when BulkFill would need
// more levels than the level buffers hold and capacity - 1 would not.
int BulkFillFor(int Capacity, int64_t Entries);

// Loads sorted entries into the keys of an open key file whose trees are empty (a file
// just made by CreateEmptyKeyFile and opened with OpenKeyFile).
//
// REQUIRES: Engine holds the key file open, not in image mode, and nothing else writes to
// it while the builder works. Use: for each key, BeginKey, Add every entry in ascending
// (key, record number) order, FinishKey; at the end Finish.
//
// Failures: Fault 5 for a misuse (a key outside the file, a key that is not empty, an
// entry out of order or with a record number below 1, Add outside BeginKey/FinishKey, a
// last record number below one already loaded); Fault 9 when the tree would grow deeper
// than the level buffers; Fault 6 when the file would outgrow 32-bit positions; file
// faults as they come. After a failure the key file is not to be used.
class KeyBulkBuilder {
 public:
  explicit KeyBulkBuilder(EngineState& Engine);
  KeyBulkBuilder(const KeyBulkBuilder&) = delete;
  KeyBulkBuilder& operator=(const KeyBulkBuilder&) = delete;

  // Starts key Key (1..key count). ExpectedEntries, when known (>= 0), lets the builder
  // choose the fill (BulkFillFor) and refuse at once a tree too deep for the buffers.
  void BeginKey(int Key, int64_t ExpectedEntries = -1);
  // Adds one entry; KeyText is brought to the key's length (padded with blanks or cut).
  void Add(std::string_view KeyText, int32_t Record);
  // Writes what is still held for the current key and puts its top node into the root.
  void FinishKey();
  // Sets the header's last record number (so that the next record gets LastRecord + 1)
  // and writes the header.
  void Finish(int32_t LastRecord);

  // Entries per node of the current key.
  int Fill() const { return fill_; }

 private:
  struct LevelNodes {
    NodeBuffer Current{};  // the node being filled
    int Count = 0;
    NodeBuffer Pending{};  // the completed node before it, held back (always full to fill)
    bool HasPending = false;
  };

  void CheckOrder(const uint8_t* Key, int32_t Record);
  void AddToLevel(int Level, const uint8_t* Key, int32_t Value);
  void EmitNode(int Level, NodeBuffer& Node, int Count);
  int Rebalance(LevelNodes& Nodes);
  void WriteRoot(int Level, NodeBuffer& Node, int Count);
  void FlushPages();
  void ResetLevels();

  EngineState& engine_;
  int key_ = 0;
  int key_length_ = 0;
  int capacity_ = 0;
  int fill_ = 0;
  std::array<LevelNodes, kLevelBuffers> levels_;

  std::string entry_key_;  // the current entry's key, brought to the key's length
  std::string previous_key_;
  int32_t previous_record_ = 0;
  bool has_previous_ = false;
  int32_t highest_record_ = 0;

  int64_t next_page_ = 0;    // where the next new page goes
  int64_t batch_start_ = 0;  // position of the first page in batch_
  std::vector<uint8_t> batch_;
};

}  // namespace tqdb::engine

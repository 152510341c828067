// Checks that a table's keys and its data file agree, through a walk of every key: each
// entry points at a live record, holds that record's key text (upper-cased, as the engine
// keeps it), entries come in order (key text by character, then record number), and
// every live record is reached exactly once per key.
#pragma once

#include <cstdint>
#include <set>
#include <string>
#include <utility>

#include "platform/codepage.h"
#include "records/record_codecs.h"
#include "records/seek.h"
#include "table/TQFile.h"
#include "table/TableState.h"

namespace tqdb::testing {

// The key text under the engine's cursor (the leaf entry the last move landed on).
inline std::string KeyTextAtCursor(const TableState& State) {
  const EngineState& E = State.Engine;
  const auto& Leaf = E.Level[static_cast<size_t>(E.LeafLevel)];
  const size_t At = 3 + static_cast<size_t>(E.Path[static_cast<size_t>(E.LeafLevel)].Entry) *
                            (static_cast<size_t>(E.CurKeyLength) + 4);
  return std::string(reinterpret_cast<const char*>(Leaf.data()) + At,
                     static_cast<size_t>(E.CurKeyLength));
}

// "" when keys and data agree, else a description of the first disagreement. Leaves the
// table on key 1 with no particular current record.
inline std::string KeyDataAgreement(TQFile& T) {
  TableState& State = T.State();
  std::set<int32_t> Live;
  for (int32_t R = 1; R <= T.RecordCount(); ++R) {
    if (!IsAnulado(State, R)) Live.insert(R);
  }
  for (int16_t K = 1; K <= State.KeyCount; ++K) {
    T.SetIndex(K);
    T.MoveFirst();
    std::set<int32_t> Seen;
    std::pair<std::string, int32_t> Previous;
    while (T.LastError() == 0) {
      const int32_t R = T.BookMark();
      const std::string Where = "key " + std::to_string(K) + " record " + std::to_string(R);
      if (!Live.count(R)) return Where + ": not a live record";
      if (!Seen.insert(R).second) return Where + ": reached twice";
      const std::string Text = platform::UpperCase(RecordKeyText(State, K, R));
      if (KeyTextAtCursor(State) != Text) return Where + ": entry does not hold its key text";
      if (Seen.size() > 1) {
        const int Order = platform::CompareText(Previous.first, Text);
        if (Order > 0 || (Order == 0 && Previous.second >= R)) return Where + ": out of order";
      }
      Previous = {Text, R};
      T.MoveNext();
    }
    if (T.LastError() != 15 && T.LastError() != 16) {
      return "key " + std::to_string(K) + ": walk ended with status " +
             std::to_string(T.LastError());
    }
    if (Seen != Live) return "key " + std::to_string(K) + ": does not reach every live record";
  }
  T.SetIndex(1);
  return "";
}

}  // namespace tqdb::testing

// Consistency checks of a key file, for tests and the maintenance tool.
//
// The checks are the invariants the engine keeps (key_update.cc): entries ordered by key
// (by character) then record number, within nodes and across leaves; every branch key
// equal to the lowest key of its child; counts within capacity and never left full;
// only the root may be empty; all leaves at one depth; no page reached twice (across all
// keys and the deleted-record stack); every pointer inside the file on a page boundary;
// record numbers between 1 and the header's last record number.
//
// The checker reads pages into buffers of its own and leaves the engine's cursor alone.
// It never raises for damage: each problem becomes one line of text.
#pragma once

#include <cstdint>
#include <string>
#include <vector>

#include "engine/EngineState.h"

namespace tqdb::engine {

// Problems of key Key (1..key count); empty when it is sound.
std::vector<std::string> CheckKeyTree(EngineState& Engine, int Key);
// Problems of every key and of the deleted-record stack; empty when the file is sound.
std::vector<std::string> CheckKeyFile(EngineState& Engine);

struct KeyEntry {
  std::string Text;  // the key value, key-length bytes
  int32_t Record = 0;
  bool operator==(const KeyEntry&) const = default;
};
// Every entry of key Key in order (left to right through the leaves). Stops silently
// where the tree is damaged; CheckKeyTree says where.
std::vector<KeyEntry> ListKeyEntries(EngineState& Engine, int Key);

}  // namespace tqdb::engine

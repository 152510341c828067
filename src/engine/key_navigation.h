// Positioning the engine's cursor on one key's entries: the operations behind the letters
// F, L, N, P, G, S, A and E.
//
// Each sets Engine.EngineStatus and returns the record number of the entry under the
// cursor (0 when the key is empty):
//   0  success (G, S: a matching entry was found)
//   12 G, S: nothing matches; the cursor is on the greatest entry below the value
//   13 P: no previous entry; G, S: the value is below every key (cursor on the first)
//   15 N: no next entry; G, S: the value is above every key (cursor on the last)
//   16 the key holds no entries
// Entries are identified by (key value, record number); among equal values the record
// numbers ascend. The cursor stays valid through N and P until the next positioning; N
// and P on an unpositioned cursor give 16.
//
// Faults: 9 for a key number outside 0..10, 63 for a key the file does not define,
// KeyFileDamaged for damaged nodes. No lock is taken.
#pragma once

#include <cstdint>
#include <string_view>

#include "engine/EngineState.h"

namespace tqdb::engine {

int32_t KeyFirst(EngineState& Engine, int Key);
int32_t KeyLast(EngineState& Engine, int Key);
int32_t KeyNext(EngineState& Engine);
int32_t KeyPrevious(EngineState& Engine);

// The first entry whose key begins with Value (which may be shorter than the key).
int32_t KeyGet(EngineState& Engine, int Key, std::string_view Value);
// The first entry whose key equals Value (a full-length key value).
int32_t KeySearch(EngineState& Engine, int Key, std::string_view Value);

// The first entry whose key is Value and whose record number is not below Record (status
// 0; the caller compares the record number when it needs that very entry). Otherwise the
// statuses of KeySearch, the cursor on the greatest entry below the pair for 12 and 15.
int32_t LocateEntry(EngineState& Engine, int Key, std::string_view Value, int32_t Record);

// The entry that follows the pair (Value, Record), also when that entry has meanwhile
// been changed or removed; 15 when none follows.
int32_t KeyAfter(EngineState& Engine, int Key, int32_t Record, std::string_view Value);
// The entry that precedes the pair; 13 when none precedes.
int32_t KeyBefore(EngineState& Engine, int Key, int32_t Record, std::string_view Value);

}  // namespace tqdb::engine

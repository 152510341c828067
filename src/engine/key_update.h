// Inserting, removing and replacing key entries: the operations behind the letters I, D
// and R, and the record-number allocation they drive.
//
// The caller (the dispatcher) holds the key-file lock (byte 1) around each operation, so
// the whole change of one record is one unit for other users. Every node on the way is
// read from the file by the operation itself.
//
// Values are brought to the key's length before use: shorter ones are padded with blanks
// on the right, longer ones cut.
//
// Failures: statuses in Engine.EngineStatus (6: D or R found no entry with that value
// and record number; nothing was changed). Faults: 9 when a key number lies outside the
// file's keys or a tree would grow deeper than the level buffers (the record's other keys
// are taken back and its number released first), KeyFileDamaged for damaged nodes, file
// faults as they come (a partly finished split is not rolled back).
#pragma once

#include <cstdint>
#include <span>
#include <string>
#include <string_view>

#include "engine/EngineState.h"

namespace tqdb::engine {

// Allocates a record number (left in Engine.LastAllocated) and inserts one entry per
// value, the i-th value into key i.
void InsertKeys(EngineState& Engine, std::span<const std::string> Values);
// Removes the entry (Values[i], Record) from every key i, then releases Record. Checks
// every key before removing anything: status 6 when one is missing.
void DeleteKeys(EngineState& Engine, int32_t Record, std::span<const std::string> Values);
// Replaces the entry (Old, Record) of Key by (New, Record); status 6 when it is missing.
void ReplaceKeys(EngineState& Engine, int Key, int32_t Record, std::string_view Old,
                 std::string_view New);

// Inserts (Value, Record) into Key's tree; Value must be exactly the key's length.
void InsertEntry(EngineState& Engine, int Key, std::string_view Value, int32_t Record);
// Removes the entry under the cursor (as LocateEntry leaves it) from the leaf at Level,
// and an emptied node's entry from its parent, up to the root.
void RemoveEntry(EngineState& Engine, int Level);

}  // namespace tqdb::engine

// Positioning an open table on a record by key value, for seek, update and delete.
//
// VALUE arguments are the key's values: one text for the whole key, or one per segment
// (each padded or cut to its segment, so "GARCIA" "0001" finds "GARCIA    0001"). Options
// map to SeekKey's: first (adseekfirsteq), last (adSeekLastEQ), after-eq, before-eq, and
// after / before, which take the entry after or before the first entry equal to the value.
#pragma once

#include <cstdint>
#include <string>
#include <vector>

#include "table/TQFile.h"

namespace CLI {
class App;
}

namespace tqdb::tool {

struct KeyTarget {
  int Key = 1;
  std::vector<std::string> Values;
  std::string Option = "first";
};

// Adds --key N and the positional VALUE... arguments (required unless ValuesOptional), and
// --option when WithOption.
void AddKeyArguments(CLI::App& Command, KeyTarget& Target, bool WithOption,
                     bool ValuesOptional = false);

// Seeks Target on Object's key Target.Key. Returns the record number found, 0 when there
// is none (LastError then tells why).
int32_t SeekTarget(TQFile& Object, const KeyTarget& Target);

// "not found", "before the first entry", ... for the engine's statuses.
std::string StatusText(int16_t Status);

// The record after Record in the current key's order (through its special seek key); 0 at
// the end. REQUIRES: Record is the table's current record.
int32_t NextInKey(TQFile& Object);

}  // namespace tqdb::tool

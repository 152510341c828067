// The records an export writes: every live record in the order of a key, or the records a
// filter selects (in the order it found them), optionally sorted, at most a given number.
// Every form of export (CSV, JSON, text, SQL) selects its records here.
#pragma once

#include <cstdint>
#include <functional>
#include <string>

#include "table/TQFile.h"

namespace CLI {
class App;
}

namespace tqdb::tool {

struct RecordSelection {
  int Key = 1;
  std::string Filter;
  std::string Sort;
  int64_t Limit = 0;  // 0 = no limit
};

// Adds --key, --filter, --sort and --limit to Command.
void AddSelectionOptions(CLI::App& Command, RecordSelection& Selection);

// Sets the key, the filter and the sort of Selection on the open table Object.
void ApplySelection(TQFile& Object, const RecordSelection& Selection);

// Moves Object to each selected record in turn and calls Visit there; returns how many
// records were visited. Entries of a view whose record was deleted meanwhile (0) are
// skipped.
int64_t ForEachSelected(TQFile& Object, const RecordSelection& Selection,
                        const std::function<void()>& Visit);

}  // namespace tqdb::tool

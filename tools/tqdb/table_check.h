// The consistency check behind "tqdb check": the key file's own invariants (the engine's
// tree checker on every key and on the deleted-record stack) and its agreement with the
// data file:
//   - every live record's key text is present exactly once in every key;
//   - no key holds an entry for a deleted record, or for a place beyond the data file,
//     and every entry holds its record's key text;
//   - every number on the deleted-record stack is a deleted ("ANULADO") record, none is
//     there twice, their count is the header's, and every deleted record is on it;
//   - the data file is whole records, and none lies beyond the last record number the key
//     file has handed out.
// Reads only; a table that cannot be read at all (no dictionary) raises as the library.
#pragma once

#include <cstdint>
#include <string>
#include <vector>

#include "table_ref.h"

namespace tqdb::tool {

struct CheckReport {
  int Keys = 0;
  int32_t Places = 0;
  int32_t Live = 0;
  int32_t Deleted = 0;
  std::vector<std::string> Problems;  // one line each; empty when the table is sound
};

CheckReport CheckTable(const TableRef& Table);

}  // namespace tqdb::tool

// Writes a table's key file (".tqc") byte by byte from its description and data records,
// for tests: the 15-byte header, one 5-byte descriptor per key and, per key, a B+-tree of
// 1024-byte pages (leaves, then one branch page above them when one leaf is not enough).
// Independent of the library's engine, so that tests check the engine against the format.
//
// Key values are built from the records as the format says (segments in order, each
// taken from its field, upper-cased) and ordered by value, then by record number. Deleted
// records ("ANULADO") carry no keys. Texts are raw Windows-1252 bytes; upper-casing and
// ordering here cover ASCII only.
#pragma once

#include <cstdint>
#include <string>
#include <vector>

#include "support/table_writer.h"

namespace tqdb::testing {

// Record numbers (1-based) of the live records in the order of key Key (1-based).
std::vector<int32_t> KeyOrder(const TableSpec& Table, int Key,
                              const std::vector<std::string>& Records);

// The key file's bytes. Throws std::invalid_argument for a tree that would need more
// than two levels.
std::string KeyFileBytes(const TableSpec& Table, const std::vector<std::string>& Records);

}  // namespace tqdb::testing

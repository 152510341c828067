// Tables for the query tests: written with the table writer into a temporary directory,
// opened through the public interface (the open builds the key file), and a generated
// data set that the tests can load into a second database for comparison.
#pragma once

#include <cstdint>
#include <memory>
#include <string>
#include <vector>

#include "support/table_writer.h"
#include "support/temp_dir.h"
#include "table/TQFile.h"

namespace tqdb::testing {

// Writes Name's dictionary into Dir and Name + Suffix + ".tqd" with Records; returns the
// data file's path.
inline std::string WriteTable(const TempDir& Dir, const std::string& Name,
                              const std::string& Suffix, const TableSpec& Spec,
                              const std::vector<std::string>& Records) {
  WriteDictionary(Dir.Dir(), Name, Spec);
  return WriteDataFile(Dir.File(Name + Suffix + ".tqd"), Records);
}

// Opens the table at DataPath with its dictionary in Dir; the key file is built by the
// open when it is missing.
inline std::unique_ptr<TQFile> OpenTable(const TempDir& Dir, const std::string& DataPath) {
  auto Table = std::make_unique<TQFile>();
  Table->OpenFile(DataPath, Dir.Dir());
  return Table;
}

}  // namespace tqdb::testing

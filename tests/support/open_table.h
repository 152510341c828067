// Tables written byte by byte into a temporary directory and opened through the public
// interface (the open builds the key file from the data file).
#pragma once

#include <memory>
#include <string>
#include <vector>

#include "support/table_writer.h"
#include "support/temp_dir.h"
#include "table/TQFile.h"

namespace tqdb::testing {

// Writes Name's dictionary into Dir and Records as Name + Suffix + ".tqd"; returns the data
// file's path.
inline std::string WriteTable(const TempDir& Dir, const std::string& Name,
                              const std::string& Suffix, const TableSpec& Spec,
                              const std::vector<std::string>& Records) {
  WriteDictionary(Dir.Dir(), Name, Spec);
  return WriteDataFile(Dir.File(Name + Suffix + ".tqd"), Records);
}

// A table object on the table whose data file is DataPath, dictionary in Dir.
inline std::unique_ptr<TQFile> OpenAt(const TempDir& Dir, const std::string& DataPath) {
  auto File = std::make_unique<TQFile>();
  File->OpenFile(DataPath, Dir.Dir());
  return File;
}

// The table TABLA01 of Spec and Records (whole record images), open.
class OpenTable {
 public:
  OpenTable(const TableSpec& Spec, const std::vector<std::string>& Records)
      : file_(OpenAt(dir_, WriteTable(dir_, "TABLA", "01", Spec, Records))) {}

  TQFile& File() { return *file_; }
  const TempDir& Dir() const { return dir_; }
  std::string FileName() const { return dir_.File("TABLA01"); }
  std::string KeyPath() const { return dir_.File("TABLA01.tqc"); }
  // Another table object on the same table (as a second user would hold it).
  std::unique_ptr<TQFile> Open() const { return OpenAt(dir_, FileName()); }
  std::string DataBytes() const { return dir_.Read("TABLA01.tqd"); }

 private:
  TempDir dir_;
  std::unique_ptr<TQFile> file_;
};

}  // namespace tqdb::testing

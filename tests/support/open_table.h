// A table written byte by byte into a temporary directory and opened through the public
// interface (the open builds its key file from the data file).
#pragma once

#include <memory>
#include <string>
#include <vector>

#include "support/table_writer.h"
#include "support/temp_dir.h"
#include "table/TQFile.h"

namespace tqdb::testing {

class OpenTable {
 public:
  // Writes the dictionary of Spec as "TABLA.tqa" and Records as "TABLA01.tqd", then opens
  // the table. Records are whole record images (RecordBytes / DeletedRecordBytes).
  OpenTable(const TableSpec& Spec, const std::vector<std::string>& Records) : spec_(Spec) {
    WriteDictionary(dir_.Dir(), "TABLA", spec_);
    WriteDataFile(DataPath(), Records);
    file_ = Open();
  }

  TQFile& File() { return *file_; }
  const TableSpec& Spec() const { return spec_; }
  const TempDir& Dir() const { return dir_; }

  // The name OpenFile takes, and the paths of the table's files.
  std::string FileName() const { return dir_.File("TABLA01"); }
  std::string DataPath() const { return dir_.File("TABLA01.tqd"); }
  std::string KeyPath() const { return dir_.File("TABLA01.tqc"); }

  // Another table object on the same table (as a second user would hold it).
  std::unique_ptr<TQFile> Open() const {
    auto File = std::make_unique<TQFile>();
    File->OpenFile(FileName(), dir_.Dir());
    return File;
  }

  // The data file's bytes as they stand.
  std::string DataBytes() const { return dir_.Read("TABLA01.tqd"); }

 private:
  TempDir dir_;
  TableSpec spec_;
  std::unique_ptr<TQFile> file_;
};

}  // namespace tqdb::testing

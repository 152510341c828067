// A table's member state filled directly, for tests of the record layer that must not
// depend on the open routine: the dictionary and data file are written with
// table_writer, the dictionary loaded with LoadDictionary, the data file (and the image
// file when the table has an image field) opened on numbers of the state's own.
#pragma once

#include <string>
#include <vector>

#include "platform/file_pool.h"
#include "support/table_writer.h"
#include "support/temp_dir.h"
#include "table/TableState.h"
#include "table/dictionary.h"

namespace tqdb::testing {

class DirectTable {
 public:
  // Name is the 5-character table name; the data file is Name + Suffix + ".tqd".
  DirectTable(const TempDir& Dir, const std::string& Name, const TableSpec& Spec,
              const std::vector<std::string>& Records, const std::string& Suffix = "01") {
    WriteDictionary(Dir.Dir(), Name, Spec);
    WriteDataFile(Dir.File(Name + Suffix + ".tqd"), Records);
    State.DictionaryDir = Dir.Dir();
    State.DataPath = Dir.Dir();
    State.BaseName = Name;
    State.TableSuffix = Suffix;
    LoadDictionary(State, Name);
    platform::Open(State.DataFileNo, Dir.File(Name + Suffix + ".tqd"));
    for (const FieldSpec& Field : Spec.Fields) {
      if (Field.Type == 62 && State.ImageFileNo == 0) {
        State.ImageFileNo = platform::TakeFreeNumber();
        platform::Open(static_cast<platform::FileNo>(State.ImageFileNo),
                       Dir.File(Name + Suffix + ".tqw"));
      }
    }
  }

  TableState State;
};

}  // namespace tqdb::testing

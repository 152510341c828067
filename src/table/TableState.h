// The member state of one TQFile object. Every subsystem works on this struct; TQFile
// itself only routes. Field names follow the system's member names.
//
// Text members hold Windows-1252 bytes (the files' encoding); conversion to UTF-8 happens
// at the public interface. Arrays sized by a count n have elements 0..n; element 0 is
// spare and elements 1..n are used.
#pragma once

#include <array>
#include <cstdint>
#include <functional>
#include <memory>
#include <string>
#include <vector>

#include "engine/EngineState.h"
#include "table/Variant.h"

namespace tqdb {

class TQFile;
class ExclusiveUse;

inline constexpr int kMaxSegments = 5;
inline constexpr int kLinkedTableSlots = 11;

// One entry of the linked-table cache (entries 0..10).
struct LinkedTable {
  std::string Name;               // the Table argument exactly as given; "" = free
  std::unique_ptr<TQFile> Table;  // opened when the entry is made
  int16_t LinkedFieldNo = 0;      // link field in the linked table
  int16_t OwnFieldNo = 0;         // link field in this table
};

struct TableState {
  TableState();
  ~TableState();  // releases the file numbers taken by this table

  // Engine channel.
  std::string ErrorText;  // UTF-8 description of the last fault inside the engine
  std::string EngineCommand;
  int32_t EngineResult = 0;  // current record number; 0 = none
  int16_t LastError = 0;
  EngineState Engine;

  // File set.
  bool DataFileOpen = false;
  int16_t DataFileNo = 0;
  int32_t ImageFileNo = 0;
  std::string BaseName;          // 5-character table name as opened
  std::string TableSuffix;       // 2 characters after the name in the file name
  std::string DataPath;          // directory of the data file, with trailing "\" or "/"
  std::string DictionaryDir;     // directory of the dictionary
  bool TableDirectoryGiven = false;  // OpenFile got a TableDirectory argument
  std::string DataExt, KeyExt, DictExt;
  std::string TableName;
  std::string TableDescripcion;

  // Dictionary: fields 1..NumFields.
  int16_t NumFields = 0;
  int32_t RecordLength = 0;
  std::vector<std::string> FieldNames;    // trimmed, upper-cased
  std::vector<std::string> FieldBuffer;   // blank-filled, one per field, storage width
  std::vector<int16_t> FieldWidth;
  std::vector<int16_t> FieldTypes;
  std::vector<int16_t> FieldLengthDecl;
  std::vector<int16_t> FieldOffset;       // 1..NumFields+1; the last is RecordLength + 1
  std::vector<int16_t> FieldById;         // 1..99
  std::vector<bool> FieldInKey;
  std::vector<int16_t> FieldKeyNo;        // first key a field belongs to

  // Keys 1..10, segments 1..5.
  int16_t KeyCount = 0;
  std::array<int16_t, kMaxKeys + 1> KeySegCount{};
  std::array<int16_t, kMaxKeys + 1> KeyLength{};
  std::array<std::array<int16_t, kMaxSegments + 1>, kMaxKeys + 1> KeySegField{};
  std::array<std::array<int16_t, kMaxSegments + 1>, kMaxKeys + 1> KeySegStart{};
  std::array<std::array<int16_t, kMaxSegments + 1>, kMaxKeys + 1> KeySegLength{};

  // Navigation and editing.
  int16_t Index = 1;
  int32_t EditState = 0;
  std::vector<Variant> FieldValues;  // the edit buffer, 0..NumFields
  std::vector<bool> FieldChanged;    // 0..NumFields
  std::string PositionText;          // saved cursor: key\record\file\key text
  bool ResumeFromSaved = false;

  // Filtered view.
  bool FilterActive = false;
  std::vector<int32_t> FilterList{0};  // elements 1..n are record numbers
  int32_t FilterPos = 0;
  bool AbsMode = false;

  std::array<LinkedTable, kLinkedTableSlots> LinkedTables;

  // Held while a bulk load runs (table/bulk_load.h): the table's exclusive use.
  std::unique_ptr<ExclusiveUse> BulkLoadHold;

  // The Progress event's handler (may be empty).
  std::function<void(int32_t)> Progress;
  void RaiseProgress(int32_t Percentage) const {
    if (Progress) Progress(Percentage);
  }
};

}  // namespace tqdb

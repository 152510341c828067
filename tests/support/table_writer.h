// Writes a table's files byte by byte from a small description, for tests: the
// dictionary (".tqa") in its 33-character record format, and data records (".tqd") in
// their fixed layout. Independent of the library's own parser and codecs, so that tests
// compare the library against the format rather than against itself.
//
// Texts are raw bytes (Windows-1252, as the files hold them).
#pragma once

#include <string>
#include <string_view>
#include <vector>

namespace tqdb::testing {

struct FieldSpec {
  std::string Name;
  int Type = 0;    // field type code (1 integer, 5 date, 62 image, other text ...)
  int Length = 0;  // declared length (the width of a text field)
  int Id = 0;      // field id 1..99; 0 = the field's index
};

struct SegmentSpec {
  int Field = 0;      // field index (1-based)
  int Start = 1;      // first character within the field
  int Length = 0;     // characters
  bool ById = false;  // write "00" as index and name the field by its id
};

struct KeySpec {
  std::vector<SegmentSpec> Segments;
};

struct TableSpec {
  std::string Description;
  std::vector<FieldSpec> Fields;
  std::vector<KeySpec> Keys;  // key 1 first
};

// Storage width of a field (2, 4, 8, 6, 4 for types 1; 2/4/6; 3/7/80-85; 5; 62, else the
// declared length), the record length of a table, and the 0-based offset of field Index
// (1-based) in the record.
int FieldWidthOf(const FieldSpec& Field);
int RecordLengthOf(const TableSpec& Table);
int FieldOffsetOf(const TableSpec& Table, int Index);

// The dictionary file's bytes: the header, one record per field, one record per key
// segment (in key order, segments in order) and blank records up to the 30 key slots.
// Numbers are two characters, read as 10 x (first - '0') + (second - '0').
std::string DictionaryBytes(const TableSpec& Table);

// A field value in the form a test writes it: a number for the binary types (1, 2, 3, 4,
// 6, 7, 80-85, and 62 as a 32-bit position), raw text otherwise (a date's stored yymmdd).
struct Value {
  Value(double Number) : IsNumber(true), Number(Number) {}  // NOLINT: implicit on purpose
  Value(int Number) : IsNumber(true), Number(Number) {}     // NOLINT
  Value(const char* Text) : Text(Text) {}                   // NOLINT
  Value(std::string Text) : Text(std::move(Text)) {}        // NOLINT
  bool IsNumber = false;
  double Number = 0;
  std::string Text;
};

// One record's bytes: each field encoded by its type (little-endian binary numbers, text
// left-justified, blank-padded and cut to the width). One value per field.
std::string RecordBytes(const TableSpec& Table, const std::vector<Value>& Values);
// A deleted record: "ANULADO" followed by zero bytes, RecordLength bytes.
std::string DeletedRecordBytes(const TableSpec& Table);

// Writes the dictionary to Directory + name + ".tqa" and the records (concatenated) to
// Path; both return the path written. Directory ends with "/".
std::string WriteDictionary(const std::string& Directory, std::string_view Name,
                            const TableSpec& Table);
std::string WriteDataFile(const std::string& Path, const std::vector<std::string>& Records);

}  // namespace tqdb::testing

// Writing records of an open table: the columns to show (fields, and values of linked
// tables through LinkParent) and the three output forms (an aligned text table, CSV with
// a header row, a JSON array of objects).
//
// Values are the library's own text of each field (Fields): text without its blank
// padding, numbers in plain decimal, dates as dd/mm/yy.
#pragma once

#include <cstdint>
#include <iosfwd>
#include <string>
#include <vector>

#include "table/TQFile.h"

namespace CLI {
class App;
}

namespace tqdb::tool {

enum class OutputFormat { Text, Csv, Json };

struct Column {
  std::string Header;     // field name, or TABLE.FIELD for a linked value
  int16_t Field = 0;      // field number in this table; 0 for a linked value
  std::string LinkTable;  // linked table name (5 characters)
  std::string LinkField;  // field of the linked table
};

// Options shared by the commands that print records.
struct OutputOptions {
  std::string Format = "text";
  std::vector<std::string> Fields;  // empty = every field
  std::vector<std::string> Links;   // TABLE.FIELD
};
// Formats lists the forms --format accepts (the export adds "sql").
void AddOutputOptions(CLI::App& Command, OutputOptions& Options, const std::string& Default,
                      const std::vector<std::string>& Formats = {"text", "csv", "json"});
OutputFormat ParseFormat(const std::string& Name);

// The columns for Options on the open table Object. An unknown field is the library's
// error 50234; a link not of the form TABLE.FIELD is a ToolError.
std::vector<Column> SelectColumns(TQFile& Object, const OutputOptions& Options);

// The value of Col in the current record of Object: the field, or the linked table's field
// through LinkParent.
Variant ColumnValue(TQFile& Object, const Column& Col);

class RecordWriter {
 public:
  RecordWriter(TQFile& Object, std::vector<Column> Columns, OutputFormat Format, std::ostream& Out);
  // Adds the table's current record (CSV and JSON are written at once, text is kept for
  // the aligned table).
  void Add();
  // Ends the output: the text table, the end of the JSON array.
  void Finish();
  int32_t Count() const { return count_; }

 private:
  std::string Value(const Column& Col, bool Json);

  TQFile& object_;
  std::vector<Column> columns_;
  OutputFormat format_;
  std::ostream& out_;
  int32_t count_ = 0;
  std::vector<std::vector<std::string>> rows_;  // text form: record number, then values
};

}  // namespace tqdb::tool

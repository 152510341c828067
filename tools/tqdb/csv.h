// CSV as the tool reads and writes it (RFC 4180): fields separated by commas, a field
// that holds a comma, a quote, a line break or leading or trailing blanks is written in
// double quotes with its quotes doubled. Text is UTF-8; a leading byte-order mark is
// skipped; lines may end in LF or CR LF.
#pragma once

#include <string>
#include <string_view>
#include <vector>

namespace tqdb::tool {

struct CsvRow {
  std::vector<std::string> Fields;
  int Line = 0;  // line on which the row starts, 1-based
};

class CsvReader {
 public:
  explicit CsvReader(std::string Text);
  // The next row, skipping blank lines; false at the end. A quoted field that is never
  // closed raises ToolError naming the line where it opened.
  bool Next(CsvRow& Row);
  // Bytes read so far (for progress).
  size_t Position() const { return at_; }

 private:
  std::string text_;
  size_t at_ = 0;
  int line_ = 1;
};

// One CSV line for Fields, ending in "\n".
std::string CsvLine(const std::vector<std::string>& Fields);

}  // namespace tqdb::tool

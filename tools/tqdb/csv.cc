#include "csv.h"

#include "tool_error.h"

namespace tqdb::tool {

CsvReader::CsvReader(std::string Text) : text_(std::move(Text)) {
  if (text_.rfind("\xEF\xBB\xBF", 0) == 0) at_ = 3;
}

bool CsvReader::Next(CsvRow& Row) {
  // Blank lines between rows are skipped.
  while (at_ < text_.size() && (text_[at_] == '\n' || text_[at_] == '\r')) {
    if (text_[at_] == '\n') ++line_;
    ++at_;
  }
  if (at_ >= text_.size()) return false;
  Row.Fields.assign(1, "");
  Row.Line = line_;
  bool Quoted = false;
  while (at_ < text_.size()) {
    const char C = text_[at_++];
    if (Quoted) {
      if (C == '"' && at_ < text_.size() && text_[at_] == '"') {
        Row.Fields.back() += '"';
        ++at_;
      } else if (C == '"') {
        Quoted = false;
      } else {
        if (C == '\n') ++line_;
        Row.Fields.back() += C;
      }
    } else if (C == '"') {
      Quoted = true;
    } else if (C == ',') {
      Row.Fields.emplace_back();
    } else if (C == '\n') {
      ++line_;
      break;
    } else if (C != '\r') {
      Row.Fields.back() += C;
    }
  }
  if (Quoted) {
    throw ToolError("CSV line " + std::to_string(Row.Line) + ": a quoted field is never closed");
  }
  return true;
}

std::string CsvLine(const std::vector<std::string>& Fields) {
  std::string Line;
  for (size_t I = 0; I < Fields.size(); ++I) {
    if (I > 0) Line += ',';
    const std::string& Field = Fields[I];
    const bool NeedsQuotes = Field.find_first_of(",\"\r\n") != std::string::npos ||
                             (!Field.empty() && (Field.front() == ' ' || Field.back() == ' '));
    if (!NeedsQuotes) {
      Line += Field;
      continue;
    }
    Line += '"';
    for (char C : Field) {
      if (C == '"') Line += '"';
      Line += C;
    }
    Line += '"';
  }
  return Line + '\n';
}

}  // namespace tqdb::tool

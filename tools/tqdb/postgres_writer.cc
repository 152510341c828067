// The PostgreSQL form of an export (sql_writer.h): a script for psql.
#include <charconv>
#include <cmath>
#include <ostream>

#include "sql_writer.h"

namespace tqdb::tool {
namespace {

std::string PostgresType(const SqlColumn& Column) {
  switch (Column.Type) {
    case SqlType::SmallInt:
      return "smallint";
    case SqlType::Integer:
      return "integer";
    case SqlType::Double:
      return "double precision";
    case SqlType::Date:
      return "date";
    case SqlType::Blob:
      return "bytea";
    case SqlType::LongText:
      return "text";
    case SqlType::Text:
      break;
  }
  return Column.Width > 0 ? "varchar(" + std::to_string(Column.Width) + ")" : "text";
}

// Text in COPY's text format: the backslash, the column separator (tab) and the line
// breaks are written as backslash escapes.
std::string CopyText(const std::string& Text) {
  std::string Escaped;
  Escaped.reserve(Text.size());
  for (const char C : Text) {
    switch (C) {
      case '\\':
        Escaped += "\\\\";
        break;
      case '\t':
        Escaped += "\\t";
        break;
      case '\n':
        Escaped += "\\n";
        break;
      case '\r':
        Escaped += "\\r";
        break;
      default:
        Escaped += C;
    }
  }
  return Escaped;
}

// The shortest text that reads back as the same double.
std::string CopyReal(double Value) {
  if (std::isnan(Value)) return "NaN";
  if (std::isinf(Value)) return Value > 0 ? "Infinity" : "-Infinity";
  char Text[32];
  const auto Result = std::to_chars(Text, Text + sizeof Text, Value);
  return std::string(Text, Result.ptr);
}

// bytea in hex form, its backslash escaped for COPY.
std::string CopyBlob(const std::string& Bytes) {
  static constexpr char kHex[] = "0123456789abcdef";
  std::string Text = "\\\\x";
  for (const char C : Bytes) {
    const auto Byte = static_cast<unsigned char>(C);
    Text += kHex[Byte >> 4];
    Text += kHex[Byte & 15];
  }
  return Text;
}

std::string CopyValue(const SqlValue& Value) {
  switch (Value.Type) {
    case SqlValue::Kind::Null:
      return "\\N";
    case SqlValue::Kind::Integer:
      return std::to_string(Value.Integer);
    case SqlValue::Kind::Real:
      return CopyReal(Value.Real);
    case SqlValue::Kind::Blob:
      return CopyBlob(Value.Bytes);
    case SqlValue::Kind::Text:
      break;
  }
  return CopyText(Value.Bytes);
}

class PostgresWriter : public SqlTableWriter {
 public:
  PostgresWriter(std::ostream& Out, const SqlTable& Table, bool Replace);
  void Add(const std::vector<SqlValue>& Row) override;
  void Finish() override;

 private:
  std::ostream& out_;
  const SqlTable& table_;
};

PostgresWriter::PostgresWriter(std::ostream& Out, const SqlTable& Table, bool Replace)
    : out_(Out), table_(Table) {
  const std::string Name = QuoteIdentifier(table_.Name);
  out_ << "-- " << table_.Name << ", written by tqdb export; load it with psql\n"
       << "SET client_encoding = 'UTF8';\nBEGIN;\n";
  if (Replace) out_ << "DROP TABLE IF EXISTS " << Name << ";\n";
  out_ << "CREATE TABLE " << Name << " (";
  std::vector<std::string> Names;
  for (const SqlColumn& Column : table_.Columns) {
    out_ << (Names.empty() ? "\n  " : ",\n  ") << QuoteIdentifier(Column.Source.Header) << ' '
         << PostgresType(Column);
    Names.push_back(Column.Source.Header);
  }
  out_ << "\n);\nCOPY " << Name << " (" << ColumnList(Names) << ") FROM stdin;\n";
}

void PostgresWriter::Add(const std::vector<SqlValue>& Row) {
  std::string Line;
  for (size_t I = 0; I < Row.size(); ++I) {
    if (I > 0) Line += '\t';
    Line += CopyValue(Row[I]);
  }
  out_ << Line << '\n';
}

void PostgresWriter::Finish() {
  out_ << "\\.\n";
  for (const SqlIndex& Index : table_.Indexes) out_ << CreateIndexSql(table_, Index) << ";\n";
  out_ << "COMMIT;\n";
}

}  // namespace

std::unique_ptr<SqlTableWriter> MakePostgresWriter(std::ostream& Out, const SqlTable& Table,
                                                   bool Replace) {
  return std::make_unique<PostgresWriter>(Out, Table, Replace);
}

}  // namespace tqdb::tool

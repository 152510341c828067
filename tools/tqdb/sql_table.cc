#include "sql_table.h"

#include <algorithm>
#include <charconv>
#include <chrono>
#include <optional>

#include "platform/codepage.h"
#include "table/dictionary.h"
#include "table_files.h"

namespace tqdb::tool {
namespace {

SqlType SqlTypeOf(int32_t FieldType) {
  switch (FieldType) {
    case 1:
      return SqlType::SmallInt;
    case 4:
      return SqlType::Integer;
    case 2:
    case 3:
    case 6:
    case 7:
      return SqlType::Double;
    case 5:
      return SqlType::Date;
    case 62:
      return SqlType::Blob;
    case 74:
    case 75:
      return SqlType::LongText;
    default:
      return FieldType >= 80 && FieldType <= 85 ? SqlType::Double : SqlType::Text;
  }
}

// Field Number of Object as a column named Header.
SqlColumn FieldColumn(TQFile& Object, int16_t Number, Column Source) {
  const SqlType Type = SqlTypeOf(Object.FieldType(Number));
  return {std::move(Source), Type, Type == SqlType::Text ? Object.FieldLength(Number) : 0};
}

// The column for a value read through LinkParent: typed as the linked table's field, which
// lives beside this table with the same suffix (as LinkParent finds it).
SqlColumn LinkedColumn(const TableRef& Table, const Column& Source) {
  TQFile Linked;
  OpenTable(Linked,
            TableRef{Table.Directory() + Source.LinkTable + Table.Suffix(), Table.Dictionary});
  const std::string Wanted = platform::UpperCase(platform::Utf8ToCp1252(Source.LinkField));
  for (int32_t F = 1; F <= Linked.FieldCount(); ++F) {
    const auto Number = static_cast<int16_t>(F);
    if (platform::Utf8ToCp1252(Linked.FieldName(Number)) == Wanted) {
      return FieldColumn(Linked, Number, Source);
    }
  }
  throw TQError(50234, "Campo " + platform::Cp1252ToUtf8(Wanted) + " no existe");
}

// The name of the column that holds field Field of the table; nullptr when none does.
const std::string* ColumnOf(const SqlTable& Sql, int16_t Field) {
  for (const SqlColumn& Col : Sql.Columns) {
    if (Col.Source.Field == Field) return &Col.Source.Header;
  }
  return nullptr;
}

// The index over key Key: its segments' columns, each once; none when a segment's field is
// not exported.
std::optional<SqlIndex> KeyIndex(const Dictionary& Dict, int Key, const SqlTable& Sql) {
  SqlIndex Index{Sql.Name + "_key" + std::to_string(Key), {}};
  for (int Segment = 1; Segment <= Dict.KeySegCount[Key] && Segment <= kMaxSegments; ++Segment) {
    const std::string* Name = ColumnOf(Sql, Dict.KeySegField[Key][Segment]);
    if (Name == nullptr) return std::nullopt;
    if (std::ranges::find(Index.Columns, *Name) == Index.Columns.end()) {
      Index.Columns.push_back(*Name);
    }
  }
  if (Index.Columns.empty()) return std::nullopt;
  return Index;
}

// Without the blanks after the value: a text's padding, an image's room to grow.
std::string TrimRight(std::string Bytes) {
  const size_t End = Bytes.find_last_not_of(' ');
  Bytes.resize(End == std::string::npos ? 0 : End + 1);
  return Bytes;
}

std::string TrimText(std::string Text) {
  std::erase(Text, '\0');  // PostgreSQL text cannot hold a zero byte
  return TrimRight(std::move(Text));
}

SqlValue Real(double Value) { return {SqlValue::Kind::Real, 0, Value, ""}; }

SqlValue ToSqlValue(const Variant& Value, SqlType Type) {
  if (Value.IsEmpty()) return {};
  switch (Type) {
    case SqlType::SmallInt:
    case SqlType::Integer:
      return {SqlValue::Kind::Integer, static_cast<int64_t>(Value.ToDouble()), 0, ""};
    case SqlType::Double:
      if (Value.Type() == VarType::Single) {
        // The shortest text of the single (0.1, not 0.100000001490116) read as a double.
        const std::string Text = Value.ToString();
        double Parsed = 0;
        const auto Read = std::from_chars(Text.data(), Text.data() + Text.size(), Parsed);
        return Real(Read.ec == std::errc() ? Parsed : Value.ToDouble());
      }
      return Real(Value.ToDouble());
    case SqlType::Date: {
      std::string Iso = IsoDate(Value.ToString());
      if (Iso.empty()) return {};
      return {SqlValue::Kind::Text, 0, 0, std::move(Iso)};
    }
    case SqlType::Blob: {
      std::string Bytes = TrimRight(platform::Utf8ToCp1252(Value.ToString()));
      if (Bytes.empty()) return {};
      return {SqlValue::Kind::Blob, 0, 0, std::move(Bytes)};
    }
    case SqlType::Text:
    case SqlType::LongText:
      break;
  }
  return {SqlValue::Kind::Text, 0, 0, TrimText(Value.ToString())};
}

}  // namespace

SqlTable DescribeSqlTable(TQFile& Object, const TableRef& Table, const std::vector<Column>& Columns,
                          std::string Name) {
  SqlTable Sql{std::move(Name), {}, {}};
  for (const Column& Col : Columns) {
    Sql.Columns.push_back(Col.Field != 0 ? FieldColumn(Object, Col.Field, Col)
                                         : LinkedColumn(Table, Col));
  }
  const Dictionary Dict = ReadDictionary(Table);
  for (int Key = 1; Key <= Dict.KeyCount && Key <= kMaxKeys; ++Key) {
    if (auto Index = KeyIndex(Dict, Key, Sql)) Sql.Indexes.push_back(std::move(*Index));
  }
  return Sql;
}

std::vector<SqlValue> ReadSqlRow(TQFile& Object, const SqlTable& Table) {
  std::vector<SqlValue> Row;
  Row.reserve(Table.Columns.size());
  for (const SqlColumn& Col : Table.Columns) {
    Row.push_back(ToSqlValue(ColumnValue(Object, Col.Source), Col.Type));
  }
  return Row;
}

std::string QuoteIdentifier(std::string_view Name) {
  std::string Quoted = "\"";
  for (const char C : Name) Quoted += C == '"' ? std::string("\"\"") : std::string(1, C);
  return Quoted + "\"";
}

std::string ColumnList(const std::vector<std::string>& Names) {
  std::string List;
  for (const std::string& Name : Names) List += (List.empty() ? "" : ", ") + QuoteIdentifier(Name);
  return List;
}

std::string CreateIndexSql(const SqlTable& Table, const SqlIndex& Index) {
  return "CREATE INDEX " + QuoteIdentifier(Index.Name) + " ON " + QuoteIdentifier(Table.Name) +
         " (" + ColumnList(Index.Columns) + ")";
}

std::string IsoDate(std::string_view Text) {
  int Day = 0, Month = 0, Year = 0;
  auto Number = [&](size_t At, int& Out) {
    const auto [End, Error] = std::from_chars(Text.data() + At, Text.data() + At + 2, Out);
    return Error == std::errc() && End == Text.data() + At + 2;
  };
  if (Text.size() != 8 || Text[2] != '/' || Text[5] != '/' || !Number(0, Day) ||
      !Number(3, Month) || !Number(6, Year)) {
    return "";
  }
  Year += Year < 60 ? 2000 : 1900;
  const std::chrono::year_month_day Date{std::chrono::year(Year),
                                         std::chrono::month(static_cast<unsigned>(Month)),
                                         std::chrono::day(static_cast<unsigned>(Day))};
  if (!Date.ok()) return "";
  return std::to_string(Year) + "-" + std::string(Text.substr(3, 2)) + "-" +
         std::string(Text.substr(0, 2));
}

}  // namespace tqdb::tool

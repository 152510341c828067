// A table as an SQL database receives it: typed columns, one index per key, and each
// record's values in SQL terms. The SQLite and PostgreSQL exports write what this
// describes.
//
// Types: 16-bit integers become SMALLINT, 32-bit integers INTEGER, every floating type
// (single and double codes alike) a double, dates a DATE, image fields a BLOB, long texts
// unbounded text and every other type text of the field's width. Values: texts lose their
// blank padding and stay UTF-8; a date becomes its ISO form yyyy-mm-dd (two-digit years
// below 60 are 20yy, as import reads them); an empty date, a stored date that is no
// calendar day, an empty image and a linked value whose record is missing are NULL.
#pragma once

#include <cstdint>
#include <string>
#include <string_view>
#include <vector>

#include "record_output.h"
#include "table/TQFile.h"
#include "table_ref.h"

namespace tqdb::tool {

enum class SqlType { SmallInt, Integer, Double, Date, Text, LongText, Blob };

struct SqlColumn {
  Column Source;  // where the value comes from; Source.Header is the column's name
  SqlType Type = SqlType::Text;
  int32_t Width = 0;  // characters, for Text (0 = unbounded)
};

// An index over a key of the table: the columns of its segments, in order.
struct SqlIndex {
  std::string Name;
  std::vector<std::string> Columns;
};

struct SqlTable {
  std::string Name;
  std::vector<SqlColumn> Columns;
  std::vector<SqlIndex> Indexes;
};

struct SqlValue {
  enum class Kind { Null, Integer, Real, Text, Blob };
  Kind Type = Kind::Null;
  int64_t Integer = 0;
  double Real = 0;
  std::string Bytes;  // Text: UTF-8; Blob: the stored bytes
};

// The SQL table named Name for Columns of the open table Object (opened from Table).
// A column read through a link takes the type of the linked table's field. Each key
// gives an index named Name_keyN over the columns of its segments; a segment that covers
// part of a field indexes the whole field, and a key with a segment whose field is not
// exported gets no index. The dictionary does not say whether a key's values are
// unique, so the indexes allow duplicates.
SqlTable DescribeSqlTable(TQFile& Object, const TableRef& Table, const std::vector<Column>& Columns,
                          std::string Name);

// The values of the current record of Object for each column of Table.
std::vector<SqlValue> ReadSqlRow(TQFile& Object, const SqlTable& Table);

// Name as an SQL identifier in double quotes (quotes inside it doubled); both SQLite and
// PostgreSQL read it back exactly, case and accents included.
std::string QuoteIdentifier(std::string_view Name);

// Names quoted and separated by ", ".
std::string ColumnList(const std::vector<std::string>& Names);

// The CREATE INDEX statement for Index of Table (without a ";"), the same in both dialects.
std::string CreateIndexSql(const SqlTable& Table, const SqlIndex& Index);

// "yyyy-mm-dd" for a date of the library's text form dd/mm/yy; "" for an empty text or
// one that is not a calendar day.
std::string IsoDate(std::string_view Text);

}  // namespace tqdb::tool

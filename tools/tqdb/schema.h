// The table schema file read by "tqdb create": a small line-oriented text format
// (docs/schema.md), e.g.
//
//   table CLIEN "Clientes"
//   field CLIENTE  text 6
//   field NOMBRE   text 40
//   field ALTA     date
//   field SALDO    double
//   key 1 CLIENTE
//   key 2 NOMBRE[1,20] CLIENTE
//
// Parsing checks the grammar and the references (unknown field, duplicate names or ids,
// segments outside their field); what the dictionary can hold is checked when the
// dictionary is written (dictionary_writer.h). Texts are kept in UTF-8.
#pragma once

#include <string>
#include <string_view>
#include <vector>

namespace tqdb::tool {

struct SchemaField {
  std::string Name;  // as written
  int Type = 0;      // type code 0..99
  int Length = 0;    // declared length
  int Id = 0;        // dictionary id 1..99
  int Line = 0;
};

struct SchemaSegment {
  int Field = 0;  // 1-based index into Schema::Fields
  int Start = 1;
  int Length = 0;
};

struct SchemaKey {
  int Number = 0;  // 1..10
  std::vector<SchemaSegment> Segments;
  int Line = 0;
};

struct Schema {
  std::string Table;        // 5-character table name
  std::string Description;  // up to 23 characters
  std::vector<SchemaField> Fields;
  std::vector<SchemaKey> Keys;  // in key-number order after parsing
};

// Parses a schema text. Raises ToolError naming the line and what is wrong.
Schema ParseSchema(std::string_view Text);

// Storage width of a field in the record, by type code (as the dictionary assigns it).
int SchemaFieldWidth(const SchemaField& Field);

}  // namespace tqdb::tool

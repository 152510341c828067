#include "record_output.h"

#include <CLI/CLI.hpp>
#include <algorithm>
#include <cmath>
#include <ostream>

#include "csv.h"
#include "json_text.h"
#include "platform/codepage.h"
#include "tool_error.h"

namespace tqdb::tool {
namespace {

std::string TrimRight(const std::string& Text) {
  const size_t End = Text.find_last_not_of(' ');
  return End == std::string::npos ? "" : Text.substr(0, End + 1);
}

bool IsNumber(VarType Type) {
  return Type == VarType::Integer || Type == VarType::Long || Type == VarType::Single ||
         Type == VarType::Double;
}

// Display width of UTF-8 text: its characters, not its bytes.
size_t Width(const std::string& Text) {
  return static_cast<size_t>(std::count_if(Text.begin(), Text.end(), [](char C) {
    return (static_cast<unsigned char>(C) & 0xC0) != 0x80;
  }));
}

std::string Pad(const std::string& Text, size_t To) {
  const size_t Have = Width(Text);
  return Have >= To ? Text : Text + std::string(To - Have, ' ');
}

}  // namespace

void AddOutputOptions(CLI::App& Command, OutputOptions& Options, const std::string& Default,
                      const std::vector<std::string>& Formats) {
  Options.Format = Default;
  std::string Names = Formats.front();  // "text, csv or json"
  for (size_t I = 1; I < Formats.size(); ++I) {
    Names += (I + 1 == Formats.size() ? " or " : ", ") + Formats[I];
  }
  Command.add_option("--format", Options.Format, "output form: " + Names)
      ->check(CLI::IsMember(Formats))
      ->capture_default_str();
  Command.add_option("--fields", Options.Fields, "fields to show, in order (default: all)")
      ->delimiter(',');
  Command.add_option("--link", Options.Links,
                     "also show a field of a linked table, as TABLE.FIELD (e.g. CLIEN.NOMBRE): "
                     "the linked table's record whose key-1 field equals this record's field "
                     "of the same name");
}

OutputFormat ParseFormat(const std::string& Name) {
  if (Name == "csv") return OutputFormat::Csv;
  if (Name == "json") return OutputFormat::Json;
  return OutputFormat::Text;
}

std::vector<Column> SelectColumns(TQFile& Object, const OutputOptions& Options) {
  std::vector<Column> Columns;
  if (Options.Fields.empty()) {
    for (int32_t F = 1; F <= Object.FieldCount(); ++F) {
      const auto Number = static_cast<int16_t>(F);
      Columns.push_back({Object.FieldName(Number), Number, "", ""});
    }
  }
  for (const std::string& Name : Options.Fields) {
    // Fields(name) raises 50234 for an unknown name; find the number by name.
    int16_t Number = 0;
    const std::string Wanted = platform::UpperCase(platform::Utf8ToCp1252(Name));
    for (int32_t F = 1; F <= Object.FieldCount() && Number == 0; ++F) {
      const auto Candidate = static_cast<int16_t>(F);
      if (platform::Utf8ToCp1252(Object.FieldName(Candidate)) == Wanted) Number = Candidate;
    }
    if (Number == 0) throw TQError(50234, "Campo " + platform::Cp1252ToUtf8(Wanted) + " no existe");
    Columns.push_back({Object.FieldName(Number), Number, "", ""});
  }
  for (const std::string& Link : Options.Links) {
    const size_t Dot = Link.find('.');
    if (Dot == std::string::npos || Dot == 0 || Dot + 1 == Link.size()) {
      throw ToolError("--link " + Link + ": expected TABLE.FIELD, e.g. CLIEN.NOMBRE", kExitUsage);
    }
    Columns.push_back({Link, 0, Link.substr(0, Dot), Link.substr(Dot + 1)});
  }
  return Columns;
}

RecordWriter::RecordWriter(TQFile& Object, std::vector<Column> Columns, OutputFormat Format,
                           std::ostream& Out)
    : object_(Object), columns_(std::move(Columns)), format_(Format), out_(Out) {
  if (format_ == OutputFormat::Csv) {
    std::vector<std::string> Header;
    for (const Column& Col : columns_) Header.push_back(Col.Header);
    out_ << CsvLine(Header);
  }
  if (format_ == OutputFormat::Json) out_ << "[";
}

Variant ColumnValue(TQFile& Object, const Column& Col) {
  return Col.Field != 0 ? Object.Fields(Variant(Col.Field))
                        : Object.LinkParent(Col.LinkTable, Variant(Col.LinkField));
}

std::string RecordWriter::Value(const Column& Col, bool Json) {
  const Variant Value = ColumnValue(object_, Col);
  if (!Json) return IsNumber(Value.Type()) ? Value.ToString() : TrimRight(Value.ToString());
  if (Value.IsEmpty()) return "null";
  if (IsNumber(Value.Type())) {
    const std::string Text = Value.ToString();
    return std::isfinite(Value.ToDouble()) ? Text : "null";
  }
  return JsonString(TrimRight(Value.ToString()));
}

void RecordWriter::Add() {
  const bool Json = format_ == OutputFormat::Json;
  std::vector<std::string> Values;
  for (const Column& Col : columns_) Values.push_back(Value(Col, Json));
  if (format_ == OutputFormat::Csv) out_ << CsvLine(Values);
  if (Json) {
    out_ << (count_ == 0 ? "\n  {" : ",\n  {");
    for (size_t I = 0; I < columns_.size(); ++I) {
      out_ << (I == 0 ? "" : ", ") << JsonString(columns_[I].Header) << ": " << Values[I];
    }
    out_ << "}";
  }
  if (format_ == OutputFormat::Text) {
    Values.insert(Values.begin(), std::to_string(object_.BookMark()));
    rows_.push_back(std::move(Values));
  }
  ++count_;
}

void RecordWriter::Finish() {
  if (format_ == OutputFormat::Json) out_ << (count_ == 0 ? "]\n" : "\n]\n");
  if (format_ != OutputFormat::Text) return;
  std::vector<std::string> Header{"record"};
  for (const Column& Col : columns_) Header.push_back(Col.Header);
  std::vector<size_t> Widths(Header.size(), 0);
  for (size_t I = 0; I < Header.size(); ++I) Widths[I] = Width(Header[I]);
  for (const auto& Row : rows_) {
    for (size_t I = 0; I < Row.size(); ++I) Widths[I] = std::max(Widths[I], Width(Row[I]));
  }
  auto Print = [&](const std::vector<std::string>& Row) {
    std::string Line;
    for (size_t I = 0; I < Row.size(); ++I) {
      Line += (I == 0 ? "" : "  ") + (I + 1 == Row.size() ? Row[I] : Pad(Row[I], Widths[I]));
    }
    out_ << Line << '\n';
  };
  Print(Header);
  for (const auto& Row : rows_) Print(Row);
  rows_.clear();
}

}  // namespace tqdb::tool

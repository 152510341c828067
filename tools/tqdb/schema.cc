#include "schema.h"

#include <algorithm>
#include <cctype>
#include <charconv>
#include <map>
#include <set>

#include "platform/codepage.h"
#include "table/dictionary.h"
#include "tool_error.h"

namespace tqdb::tool {
namespace {

struct Token {
  std::string Text;
  bool Quoted = false;
};

[[noreturn]] void Refuse(int Line, const std::string& What) {
  throw ToolError("schema line " + std::to_string(Line) + ": " + What);
}

bool IsBlank(char C) { return C == ' ' || C == '\t' || C == '\r'; }

// Splits a line into words: blanks separate them, "..." is one word (without its quotes),
// "[...]" stays with the word it follows, and "#" outside quotes starts a comment.
std::vector<Token> Tokenize(std::string_view Line, int LineNo) {
  std::vector<Token> Tokens;
  size_t I = 0;
  while (I < Line.size()) {
    if (IsBlank(Line[I])) {
      ++I;
      continue;
    }
    if (Line[I] == '#') break;
    Token Word;
    if (Line[I] == '"') {
      const size_t End = Line.find('"', I + 1);
      if (End == std::string_view::npos) Refuse(LineNo, "a quoted text has no closing quote");
      Word.Text = std::string(Line.substr(I + 1, End - I - 1));
      Word.Quoted = true;
      I = End + 1;
    } else {
      bool InBrackets = false;
      while (I < Line.size() && (InBrackets || (!IsBlank(Line[I]) && Line[I] != '#'))) {
        if (Line[I] == '[') InBrackets = true;
        if (Line[I] == ']') InBrackets = false;
        if (!IsBlank(Line[I])) Word.Text += Line[I];
        ++I;
      }
    }
    Tokens.push_back(std::move(Word));
  }
  return Tokens;
}

bool ParseInt(std::string_view Text, int& Out) {
  if (Text.empty()) return false;
  const auto [End, Error] = std::from_chars(Text.data(), Text.data() + Text.size(), Out);
  return Error == std::errc() && End == Text.data() + Text.size();
}

int RequireInt(std::string_view Text, int Line, const std::string& What, int Low, int High) {
  int Value = 0;
  if (!ParseInt(Text, Value) || Value < Low || Value > High) {
    Refuse(Line, What + " must be a number from " + std::to_string(Low) + " to " +
                     std::to_string(High) + ", not '" + std::string(Text) + "'");
  }
  return Value;
}

// Type names for the common codes; any code 0..99 may also be given as a number.
const std::map<std::string, int>& TypeNames() {
  static const std::map<std::string, int> Names = {
      {"integer", 1}, {"single", 2}, {"double", 3}, {"long", 4},
      {"date", 5},    {"text", 10},  {"image", 62}, {"longtext", 74},
  };
  return Names;
}

bool HasFixedWidth(int Type) { return FixedStorageWidth(static_cast<int16_t>(Type)) != 0; }

std::string Upper(const std::string& Name) {
  return platform::UpperCase(platform::Utf8ToCp1252(Name));
}

bool ValidName(const std::string& Name) {
  if (Name.empty()) return false;
  const unsigned char First = static_cast<unsigned char>(Name[0]);
  if (!(std::isalpha(First) || First >= 0x80)) return false;
  return std::all_of(Name.begin(), Name.end(), [](char C) {
    const auto U = static_cast<unsigned char>(C);
    return std::isalnum(U) || U >= 0x80 || U == '_';
  });
}

class SchemaParser {
 public:
  Schema Parse(std::string_view Text) {
    int LineNo = 0;
    size_t Start = 0;
    while (Start <= Text.size()) {
      const size_t End = std::min(Text.find('\n', Start), Text.size());
      ++LineNo;
      const std::vector<Token> Tokens = Tokenize(Text.substr(Start, End - Start), LineNo);
      if (!Tokens.empty()) Directive(Tokens, LineNo);
      Start = End + 1;
    }
    if (!saw_table_) throw ToolError("schema: no 'table NAME \"description\"' line");
    CheckIds();
    ResolveKeys();
    return std::move(schema_);
  }

 private:
  void Directive(const std::vector<Token>& Tokens, int Line) {
    const std::string& Word = Tokens[0].Text;
    if (Word == "table") return TableLine(Tokens, Line);
    if (Word == "field") return FieldLine(Tokens, Line);
    if (Word == "key") return KeyLine(Tokens, Line);
    Refuse(Line, "unknown directive '" + Word + "' (expected table, field or key)");
  }

  void TableLine(const std::vector<Token>& Tokens, int Line) {
    if (saw_table_) Refuse(Line, "a second 'table' line");
    if (Tokens.size() < 2 || Tokens.size() > 3) {
      Refuse(Line, "expected: table NAME \"description\"");
    }
    schema_.Table = Tokens[1].Text;
    if (platform::Utf8ToCp1252(schema_.Table).size() != 5) {
      Refuse(Line, "the table name '" + schema_.Table + "' must have exactly 5 characters");
    }
    if (Tokens.size() == 3) schema_.Description = Tokens[2].Text;
    saw_table_ = true;
  }

  // field NAME TYPE [LENGTH] [id N]
  void FieldLine(const std::vector<Token>& Tokens, int Line) {
    if (Tokens.size() < 3) Refuse(Line, "expected: field NAME TYPE [LENGTH] [id N]");
    SchemaField Field;
    Field.Line = Line;
    Field.Name = Tokens[1].Text;
    if (!ValidName(Field.Name)) {
      Refuse(Line, "'" + Field.Name +
                       "' is not a field name (letters, digits and '_', starting with a letter)");
    }
    if (!names_.insert(Upper(Field.Name)).second) {
      Refuse(Line, "field " + Field.Name + " is defined twice");
    }
    const auto Named = TypeNames().find(Tokens[2].Text);
    Field.Type = Named != TypeNames().end()
                     ? Named->second
                     : RequireInt(Tokens[2].Text, Line, "the type code of " + Field.Name, 0, 99);
    size_t Next = 3;
    if (Next < Tokens.size() && Tokens[Next].Text != "id") {
      Field.Length = RequireInt(Tokens[Next].Text, Line, "the length of " + Field.Name, 1, 99999);
      ++Next;
    } else if (HasFixedWidth(Field.Type)) {
      Field.Length = SchemaFieldWidth(Field);
    } else {
      Refuse(Line, "field " + Field.Name + " needs a length (its type stores text)");
    }
    if ((Field.Type == 74 || Field.Type == 75) && Field.Length < 12) {
      Refuse(Line, "long-text field " + Field.Name +
                       " needs a length of at least 12 (it holds the text's place)");
    }
    Field.Id = static_cast<int>(schema_.Fields.size()) + 1;
    if (Next < Tokens.size()) {
      if (Tokens[Next].Text != "id" || Next + 2 != Tokens.size()) {
        Refuse(Line, "expected: field NAME TYPE [LENGTH] [id N]");
      }
      Field.Id = RequireInt(Tokens[Next + 1].Text, Line, "the id of " + Field.Name, 1, 99);
    }
    schema_.Fields.push_back(std::move(Field));
  }

  // key N SEGMENT... ; a segment is NAME or NAME[start,length].
  void KeyLine(const std::vector<Token>& Tokens, int Line) {
    if (Tokens.size() < 3) Refuse(Line, "expected: key N FIELD[start,length] ...");
    SchemaKey Key;
    Key.Line = Line;
    Key.Number = RequireInt(Tokens[1].Text, Line, "the key number", 1, 99);
    for (size_t I = 2; I < Tokens.size(); ++I) pending_.push_back({Key.Number, Tokens[I].Text});
    keys_.push_back(std::move(Key));
  }

  void CheckIds() const {
    std::map<int, std::string> Owners;
    for (const SchemaField& Field : schema_.Fields) {
      const auto [At, Inserted] = Owners.emplace(Field.Id, Field.Name);
      if (!Inserted) {
        Refuse(Field.Line, "field " + Field.Name + " has id " + std::to_string(Field.Id) +
                               ", which " + At->second + " has already");
      }
    }
  }

  // Segments are resolved after all fields are known, so keys may come before fields.
  void ResolveKeys() {
    std::sort(keys_.begin(), keys_.end(),
              [](const SchemaKey& A, const SchemaKey& B) { return A.Number < B.Number; });
    for (size_t I = 0; I < keys_.size(); ++I) {
      if (I > 0 && keys_[I].Number == keys_[I - 1].Number) {
        Refuse(keys_[I].Line, "key " + std::to_string(keys_[I].Number) + " is defined twice");
      }
      if (keys_[I].Number != static_cast<int>(I) + 1) {
        Refuse(keys_[I].Line, "keys must be numbered 1, 2, 3 ... without gaps; key " +
                                  std::to_string(I + 1) + " is missing");
      }
    }
    for (const auto& [Number, Text] : pending_) {
      SchemaKey& Key = keys_[static_cast<size_t>(Number) - 1];
      Key.Segments.push_back(Segment(Text, Key.Line));
    }
    schema_.Keys = std::move(keys_);
  }

  SchemaSegment Segment(const std::string& Text, int Line) {
    const size_t Open = Text.find('[');
    const std::string Name = Text.substr(0, Open);
    SchemaSegment Result;
    Result.Field = FieldIndex(Name, Line);
    const SchemaField& Field = schema_.Fields[static_cast<size_t>(Result.Field) - 1];
    const int Width = SchemaFieldWidth(Field);
    Result.Length = Width;
    if (Open != std::string::npos) {
      const size_t Comma = Text.find(',', Open);
      if (Text.back() != ']' || Comma == std::string::npos) {
        Refuse(Line, "'" + Text + "': a segment is FIELD or FIELD[start,length]");
      }
      Result.Start = RequireInt(Text.substr(Open + 1, Comma - Open - 1), Line,
                                "the start of segment " + Text, 1, Width);
      Result.Length = RequireInt(Text.substr(Comma + 1, Text.size() - Comma - 2), Line,
                                 "the length of segment " + Text, 1, Width - Result.Start + 1);
    }
    return Result;
  }

  int FieldIndex(const std::string& Name, int Line) const {
    const std::string Wanted = Upper(Name);
    for (size_t I = 0; I < schema_.Fields.size(); ++I) {
      if (Upper(schema_.Fields[I].Name) == Wanted) return static_cast<int>(I) + 1;
    }
    Refuse(Line, "key segment on unknown field '" + Name + "'");
  }

  Schema schema_;
  bool saw_table_ = false;
  std::set<std::string> names_;
  std::vector<SchemaKey> keys_;
  std::vector<std::pair<int, std::string>> pending_;
};

}  // namespace

int SchemaFieldWidth(const SchemaField& Field) {
  const int Fixed = FixedStorageWidth(static_cast<int16_t>(Field.Type));
  return Fixed != 0 ? Fixed : Field.Length;
}

Schema ParseSchema(std::string_view Text) { return SchemaParser().Parse(Text); }

}  // namespace tqdb::tool

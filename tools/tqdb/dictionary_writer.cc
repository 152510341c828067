#include "dictionary_writer.h"

#include "platform/codepage.h"
#include "platform/fault.h"
#include "table/dictionary.h"
#include "tool_error.h"

namespace tqdb::tool {
namespace {

constexpr int kTextWidth = 23;       // names and the description: characters 9-31
constexpr int kMaxTwoDigits = 2079;  // "9" + 207 in the first character, a digit second
constexpr int kMaxKeyLength = 255;
constexpr int kMaxRecordLength = 32766;
constexpr int kRecordsRead = kDictionaryReadSize / kDictionaryRecordSize;  // 121

[[noreturn]] void Refuse(const std::string& What) {
  throw ToolError("the dictionary cannot hold this table: " + What);
}

// Two characters that the dictionary reads back as Value: "07", "45"; beyond 99 the
// first character runs on past "9" (":" for 10, "A" for 17 tens), as the reader allows.
std::string TwoDigitText(int Value) {
  return {static_cast<char>('0' + Value / 10), static_cast<char>('0' + Value % 10)};
}

std::string Padded(const std::string& Text, size_t Width) {
  std::string Result = Text.substr(0, Width);
  Result.resize(Width, ' ');
  return Result;
}

std::string SystemText(const std::string& Utf8, const std::string& What) {
  const std::string Text = platform::Utf8ToCp1252(Utf8);
  if (Text.size() > kTextWidth) {
    Refuse(What + " '" + Utf8 + "' is longer than " + std::to_string(kTextWidth) + " characters");
  }
  return Text;
}

void CheckLimits(const Schema& Table) {
  if (Table.Fields.size() > kMaxFields) {
    Refuse(std::to_string(Table.Fields.size()) + " fields; at most " + std::to_string(kMaxFields));
  }
  if (Table.Keys.size() > kMaxKeys) {
    Refuse(std::to_string(Table.Keys.size()) + " keys; at most " + std::to_string(kMaxKeys));
  }
  size_t Segments = 0;
  for (const SchemaKey& Key : Table.Keys) {
    const std::string Name = "key " + std::to_string(Key.Number);
    if (Key.Segments.size() > kMaxSegments) {
      Refuse(Name + " has " + std::to_string(Key.Segments.size()) + " segments; at most " +
             std::to_string(kMaxSegments));
    }
    int Length = 0;
    for (const SchemaSegment& Segment : Key.Segments) Length += Segment.Length;
    if (Length > kMaxKeyLength) {
      Refuse(Name + " is " + std::to_string(Length) + " characters long; at most " +
             std::to_string(kMaxKeyLength));
    }
    Segments += Key.Segments.size();
  }
  if (Segments > kKeyRecordSlots) {
    Refuse(std::to_string(Segments) + " key segments in all; at most " +
           std::to_string(kKeyRecordSlots));
  }
  if (1 + Table.Fields.size() + Segments > kRecordsRead) {
    Refuse("a header, " + std::to_string(Table.Fields.size()) + " field records and " +
           std::to_string(Segments) + " segment records do not fit the " +
           std::to_string(kDictionaryReadSize) + " bytes that are read");
  }
  int64_t RecordLength = 0;
  for (const SchemaField& Field : Table.Fields) {
    if (Field.Length > kMaxTwoDigits) {
      Refuse("field " + Field.Name + " is declared " + std::to_string(Field.Length) +
             " long; at most " + std::to_string(kMaxTwoDigits));
    }
    RecordLength += SchemaFieldWidth(Field);
  }
  if (RecordLength > kMaxRecordLength) {
    Refuse("records would be " + std::to_string(RecordLength) + " bytes long; at most " +
           std::to_string(kMaxRecordLength));
  }
}

std::string FieldRecord(const SchemaField& Field) {
  return std::string(4, ' ') + TwoDigitText(Field.Length) + TwoDigitText(Field.Type) +
         Padded(SystemText(Field.Name, "the field name"), kTextWidth) + TwoDigitText(Field.Id);
}

std::string SegmentRecord(const Schema& Table, int Key, const SchemaSegment& Segment) {
  const SchemaField& Field = Table.Fields[static_cast<size_t>(Segment.Field) - 1];
  return std::string("I") + static_cast<char>('0' + Key) + TwoDigitText(Segment.Field) +
         TwoDigitText(Segment.Start) + TwoDigitText(Segment.Length) +
         Padded(platform::Utf8ToCp1252(Field.Name), kTextWidth) + TwoDigitText(Field.Id);
}

}  // namespace

std::string DictionaryBytes(const Schema& Table) {
  CheckLimits(Table);
  const std::string Description = SystemText(Table.Description, "the description");
  std::string Bytes = TwoDigitText(static_cast<int>(Table.Fields.size())) + std::string(6, ' ') +
                      Padded(Description, kTextWidth) + "  ";
  for (const SchemaField& Field : Table.Fields) Bytes += FieldRecord(Field);
  size_t Records = 0;
  for (const SchemaKey& Key : Table.Keys) {
    for (const SchemaSegment& Segment : Key.Segments) {
      Bytes += SegmentRecord(Table, Key.Number, Segment);
      ++Records;
    }
  }
  // Blank records for the unused key slots, as far as the part that is read reaches, so
  // that even a small table's dictionary has the size a reader expects.
  const size_t Total = std::min<size_t>(1 + Table.Fields.size() + kKeyRecordSlots, kRecordsRead);
  for (size_t Record = 1 + Table.Fields.size() + Records; Record < Total; ++Record) {
    Bytes += std::string(kDictionaryRecordSize, ' ');
  }
  try {
    (void)ParseDictionary(Bytes);
  } catch (const platform::Fault& Failure) {
    Refuse(Failure.Description());
  }
  return Bytes;
}

}  // namespace tqdb::tool

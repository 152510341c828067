#include "query/links.h"

#include <memory>
#include <string>

#include "platform/codepage.h"
#include "platform/fault.h"
#include "records/field_access.h"
#include "table/TQFile.h"

namespace tqdb::query {
namespace {

constexpr int32_t kObjectNotSet = 91;

// The link-field lookup of a new entry, from the linked table's dictionary as loaded: its
// key 1's first segment field, and this table's field of the same name.
void FindLinkFields(const TableState& Own, const TableState& Linked, LinkedTable& Entry) {
  if (Linked.KeyCount < 1 || Linked.KeySegCount[1] < 1) throw platform::Fault(platform::kSubscript);
  const int16_t LinkedField = Linked.KeySegField[1][1];
  if (LinkedField < 1 || LinkedField > Linked.NumFields)
    throw platform::Fault(platform::kSubscript);
  const std::string& Name = Linked.FieldNames[LinkedField];
  for (int16_t Field = 1; Field <= Own.NumFields; ++Field) {
    if (Own.FieldNames[Field] == Name) {
      Entry.LinkedFieldNo = LinkedField;
      Entry.OwnFieldNo = Field;
      return;
    }
  }
  throw platform::Fault(50234, "Campo " + platform::Cp1252ToUtf8(Name) + " no existe");
}

void OpenEntry(TableState& State, std::string_view Table, LinkedTable& Entry) {
  auto Linked = std::make_unique<TQFile>();
  const std::string FileName = platform::Cp1252ToUtf8(State.DataPath) + std::string(Table) +
                               platform::Cp1252ToUtf8(State.TableSuffix) + ".tqd";
  const std::string Directory =
      State.TableDirectoryGiven ? platform::Cp1252ToUtf8(State.DictionaryDir) : std::string();
  Linked->OpenFile(FileName, Directory);
  LinkedTable Made;
  FindLinkFields(State, Linked->State(), Made);
  Entry.Name = std::string(Table);
  Entry.Table = std::move(Linked);
  Entry.LinkedFieldNo = Made.LinkedFieldNo;
  Entry.OwnFieldNo = Made.OwnFieldNo;
}

// Runs the link filter on the linked table and reads FieldN of its first record.
Variant FollowLink(TableState& State, std::string_view Table, const std::string* Extra,
                   const Variant& FieldN) {
  LinkedTable* Entry = GetLinkedTable(State, Table);
  if (Entry == nullptr || Entry->Table == nullptr) {
    throw platform::Fault(kObjectNotSet);
  }
  TQFile& Linked = *Entry->Table;
  const Variant Value = ReadFieldValue(State, State.EngineResult, Entry->OwnFieldNo);
  std::string Text = Linked.FieldName(Entry->LinkedFieldNo) + " = " +
                     std::string(platform::TrimRight(Value.ToString()));
  if (Extra != nullptr) Text += " And " + *Extra;
  Linked.Filter(Text);
  Linked.MoveFirst();
  return Linked.Fields(FieldN);
}

}  // namespace

LinkedTable* GetLinkedTable(TableState& State, std::string_view Table) {
  for (LinkedTable& Entry : State.LinkedTables) {
    if (Entry.Name.empty()) {
      OpenEntry(State, Table, Entry);
      return &Entry;
    }
    if (Entry.Name == Table) return &Entry;
  }
  return nullptr;
}

Variant LinkChild(TableState& State, std::string_view Table, std::string_view Filter,
                  const Variant& FieldN) {
  const std::string Extra(Filter);
  return FollowLink(State, Table, &Extra, FieldN);
}

Variant LinkParent(TableState& State, std::string_view Table, const Variant& FieldN) {
  return FollowLink(State, Table, nullptr, FieldN);
}

}  // namespace tqdb::query

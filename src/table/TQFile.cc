// The public table object. TQFile holds the member state and only routes: each member
// runs its subsystem's function on the state inside the error boundary (Guard), so that
// every failure leaves as a TQError. Text crosses here between UTF-8 (the interface) and
// Windows-1252 (the state).
#include "table/TQFile.h"

#include <string>
#include <utility>

#include "maintenance/rebuild.h"
#include "platform/codepage.h"
#include "platform/fault.h"
#include "platform/numbers.h"
#include "query/accumulate.h"
#include "query/filter.h"
#include "query/links.h"
#include "query/sort.h"
#include "records/delete.h"
#include "records/field_access.h"
#include "records/navigation.h"
#include "records/reindex.h"
#include "records/seek.h"
#include "records/update.h"
#include "table/TableState.h"
#include "table/bulk_load.h"
#include "table/channel.h"
#include "table/error_boundary.h"
#include "table/open_table.h"

namespace tqdb {

// --- Lifecycle ------------------------------------------------------------------------

TQFile::TQFile() : state_(Guard("TQFile", [] { return std::make_unique<TableState>(); })) {}

// Destroying the state closes the table's files and its linked tables; nothing is
// written but a running bulk load's key file, and nothing is raised.
TQFile::~TQFile() { EndBulkLoadQuietly(*state_); }

BulkLoad::~BulkLoad() { EndBulkLoadQuietly(table_.State()); }

void TQFile::OnProgress(std::function<void(int32_t Percentage)> Handler) {
  Guard("OnProgress", [&] {
    state_->Progress = Handler;
    state_->Engine.Progress = std::move(Handler);
  });
}

// --- Opening, closing and deleting ----------------------------------------------------

// An empty TableDirectory means the argument was not given (the "Directory" setting
// names the dictionary directory then).
int32_t TQFile::OpenFile(const std::string& FileName, const std::string& TableDirectory) {
  return Guard("OpenFile", [&] {
    tqdb::EndBulkLoad(*state_);
    return tqdb::OpenFile(*state_, platform::Utf8ToCp1252(FileName),
                          platform::Utf8ToCp1252(TableDirectory), !TableDirectory.empty());
  });
}
void TQFile::CloseDB() {
  Guard("CloseDB", [&] {
    tqdb::EndBulkLoad(*state_);
    tqdb::CloseDB(*state_);
  });
}
void TQFile::KillDB(bool Confirm) {
  Guard("KillDB", [&] {
    if (Confirm) tqdb::EndBulkLoad(*state_);
    tqdb::KillDB(*state_, Confirm);
  });
}

// --- Status and description -----------------------------------------------------------

int16_t TQFile::LastError() const { return state_->LastError; }

int16_t TQFile::EditMode() const {
  return Guard("EditMode", [&] { return platform::ToInt16(state_->EditState); });
}

int32_t TQFile::FieldCount() const { return state_->NumFields; }

std::string TQFile::TableName() const {
  return Guard("TableName", [&] { return platform::Cp1252ToUtf8(state_->TableName); });
}

std::string TQFile::TableDescripcion() const {
  return Guard("TableDescripcion",
               [&] { return platform::Cp1252ToUtf8(state_->TableDescripcion); });
}

// --- Navigation -----------------------------------------------------------------------

int16_t TQFile::Index() const { return state_->Index; }
void TQFile::SetIndex(int16_t Key) { state_->Index = Key; }

bool TQFile::Bof() const { return state_->LastError == 13 || state_->LastError == 16; }
bool TQFile::Eof() const { return state_->LastError == 15 || state_->LastError == 16; }

void TQFile::MoveFirst() {
  Guard("MoveFirst", [&] { tqdb::MoveFirst(*state_); });
}
void TQFile::MoveLast() {
  Guard("MoveLast", [&] { tqdb::MoveLast(*state_); });
}
void TQFile::MoveNext() {
  Guard("MoveNext", [&] { tqdb::MoveNext(*state_); });
}
void TQFile::MovePrevious() {
  Guard("MovePrevious", [&] { tqdb::MovePrevious(*state_); });
}
int32_t TQFile::BookMark() const {
  return Guard("BookMark", [&] { return tqdb::BookMark(*state_); });
}
void TQFile::SetBookMark(int32_t Record) {
  Guard("BookMark", [&] { tqdb::SetBookMark(*state_, Record); });
}
int32_t TQFile::Position() const {
  return Guard("Position", [&] { return tqdb::Position(*state_); });
}
void TQFile::SetPosition(int32_t Place) {
  Guard("Position", [&] { tqdb::SetPosition(*state_, Place); });
}
int32_t TQFile::RecordCount() {
  return Guard("RecordCount", [&] { return tqdb::RecordCount(*state_); });
}

// --- Fields and the edit buffer -------------------------------------------------------

// The subsystem's functions share the members' names, hence the qualified calls.
Variant TQFile::Fields(const Variant& FieldN) {
  return Guard("Fields",
               [&] { return tqdb::GetFieldValue(*state_, tqdb::FieldNumber(*state_, FieldN)); });
}

void TQFile::SetFields(const Variant& FieldN, const Variant& Value) {
  Guard("Fields", [&] { tqdb::PutFieldValue(*state_, tqdb::FieldNumber(*state_, FieldN), Value); });
}

Variant TQFile::KField(int16_t FieldNo, int16_t Offset) {
  return Guard("KField", [&] { return tqdb::GetKFieldValue(*state_, FieldNo, Offset); });
}

void TQFile::SetKField(int16_t FieldNo, int16_t Offset, const Variant& Value) {
  Guard("KField", [&] { tqdb::PutKFieldValue(*state_, FieldNo, Offset, Value); });
}

std::string TQFile::FieldName(int16_t Number) const {
  return Guard("FieldName", [&] { return tqdb::FieldName(*state_, Number); });
}

int32_t TQFile::FieldLength(int16_t Number) const {
  return Guard("FieldLength", [&] { return tqdb::FieldLength(*state_, Number); });
}

int32_t TQFile::FieldType(int16_t Number) const {
  return Guard("FieldType", [&] { return tqdb::FieldType(*state_, Number); });
}

void TQFile::SetFieldType(int16_t Number, int32_t Type) {
  Guard("FieldType", [&] { tqdb::SetFieldType(*state_, Number, Type); });
}

int16_t TQFile::GetKeyField(int16_t Key) const {
  return Guard("GetKeyField", [&] { return tqdb::GetKeyField(*state_, Key); });
}

// --- Changing records -----------------------------------------------------------------

void TQFile::AddNew() {
  Guard("AddNew", [&] { tqdb::AddNew(*state_); });
}

void TQFile::Edit() {
  Guard("Edit", [&] { tqdb::Edit(*state_); });
}
void TQFile::Update() {
  Guard("Update", [&] { tqdb::Update(*state_); });
}
void TQFile::Delete(int32_t BookMark) {
  Guard("Delete", [&] { tqdb::Delete(*state_, BookMark); });
}
int32_t TQFile::DeletedRecordCount() {
  return Guard("DeletedRecordCount", [&] { return tqdb::DeletedRecordCount(*state_); });
}

// --- Seeking and maintenance ----------------------------------------------------------

int32_t TQFile::SeekKey(const Variant& KeyValues, int32_t SeekOption) {
  return Guard("SeekKey", [&] { return tqdb::SeekKey(*state_, KeyValues, SeekOption); });
}
std::string TQFile::GetSpecialSeekKeys() {
  return Guard("GetSpecialSeekKeys",
               [&] { return platform::Cp1252ToUtf8(tqdb::GetSpecialSeekKeys(*state_)); });
}
double TQFile::ReIndex() {
  return Guard("ReIndex", [&] {
    tqdb::EndBulkLoad(*state_);
    return tqdb::ReIndex(*state_);
  });
}
// A rebuilt table's key file is built from its data file: a bulk-load mark no longer
// applies.
double TQFile::Rebuild() {
  return Guard("Rebuild", [&] {
    tqdb::EndBulkLoad(*state_);
    const double Minutes = tqdb::Rebuild(*state_);
    ClearBulkLoadMark(*state_);
    return Minutes;
  });
}

void TQFile::BeginBulkLoad() {
  Guard("BeginBulkLoad", [&] { tqdb::BeginBulkLoad(*state_); });
}
void TQFile::EndBulkLoad() {
  Guard("EndBulkLoad", [&] { tqdb::EndBulkLoad(*state_); });
}
bool TQFile::InBulkLoad() const { return state_->BulkLoadHold != nullptr; }

// --- Query ----------------------------------------------------------------------------

void TQFile::Filter(const std::string& Parameters) {
  Guard("Filter", [&] { query::Filter(*state_, platform::Utf8ToCp1252(Parameters)); });
}

void TQFile::Sort(const std::string& SortFields) {
  Guard("Sort", [&] { query::Sort(*state_, platform::Utf8ToCp1252(SortFields)); });
}

// Table names and the extra filter stay UTF-8: they go to the linked table's own members.
Variant TQFile::LinkChild(const std::string& Table, const std::string& Filter,
                          const Variant& FieldN) {
  return Guard("LinkChild", [&] { return query::LinkChild(*state_, Table, Filter, FieldN); });
}

Variant TQFile::LinkParent(const std::string& Table, const Variant& FieldN) {
  return Guard("LinkParent", [&] { return query::LinkParent(*state_, Table, FieldN); });
}

double TQFile::Sum(const Variant& NField) {
  return Guard("Sum", [&] { return query::Sum(*state_, NField); });
}

double TQFile::AddToField(const Variant& FieldN, double AddValue) {
  return Guard("AddToField", [&] { return query::AddToField(*state_, FieldN, AddValue); });
}

double TQFile::AddToKField(int16_t Field, double AddValue, int16_t Offset) {
  return Guard("AddToKField", [&] { return query::AddToKField(*state_, Field, AddValue, Offset); });
}

// --- The engine channel ---------------------------------------------------------------

std::string TQFile::EngineCommand() const {
  return Guard("EngineCommand", [&] { return platform::Cp1252ToUtf8(state_->EngineCommand); });
}

void TQFile::SetEngineCommand(const std::string& Command) {
  Guard("EngineCommand", [&] { state_->EngineCommand = platform::Utf8ToCp1252(Command); });
}

// A failed command that the dispatcher could not classify (status 105) reaches the caller
// as error 55000 with the fault's description (ErrorText, UTF-8) and no source.
void TQFile::ExecuteCommand() {
  Guard("ExecuteCommand", [&] { DispatchCommand(*state_); });
  if (state_->LastError == kStatusEngineFault) {
    throw TQError(platform::kEngineFault, state_->ErrorText, "");
  }
}

int32_t TQFile::EngineResult() const { return state_->EngineResult; }
int16_t TQFile::DataFileNo() const { return state_->DataFileNo; }

}  // namespace tqdb

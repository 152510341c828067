// TQDB: an embedded table engine. One TQFile object stands for one open table and is
// used like a recordset: open a table by file name, move through its records in the
// order of a key, seek, read and write fields, add, edit, update and delete, filter,
// sort, sum, follow links to related tables and rebuild damaged files.
//
// Strings at this interface are UTF-8. Failures are reported two ways: a status in
// LastError() set by every operation, and TQError exceptions (number, Spanish
// description, source). No other exception type escapes the interface.
//
// Thread safety: one TQFile object is used from one thread at a time. Several objects,
// in one or several processes, may open the same table; they coordinate through locks
// on the table's files. A bulk load (BeginBulkLoad) holds the table alone instead.
#pragma once

#include <cstdint>
#include <functional>
#include <memory>
#include <string>
#include <vector>

#include "table/TQError.h"
#include "table/Variant.h"
#include "table/tqdb_export.h"

namespace tqdb {

enum SeekEnum {
  adseekfirsteq = 1,
  adSeekLastEQ = 2,
  adSeekAfterEQ = 4,
  adSeekAfter = 8,
  adSeekBeforeEQ = 16,
  adSeekBefore = 32
};

enum class MessageIcon { None, Critical, Exclamation };

// Process-wide receiver of the messages the system shows to a person; by default they go
// to stderr. Text is UTF-8.
TQDB_API void SetMessageSink(std::function<void(const std::string& Text, MessageIcon Icon)> Sink);

struct TableState;

class TQDB_API TQFile {
 public:
  TQFile();
  ~TQFile();
  TQFile(const TQFile&) = delete;
  TQFile& operator=(const TQFile&) = delete;

  // Receives the Progress event (a percentage) during long operations.
  void OnProgress(std::function<void(int32_t Percentage)> Handler);

  // Opening, closing and deleting. OpenFile returns LastError().
  int32_t OpenFile(const std::string& FileName, const std::string& TableDirectory = "");
  void CloseDB();
  void KillDB(bool Confirm);

  // Status and description.
  int16_t LastError() const;
  int16_t EditMode() const;
  int32_t FieldCount() const;
  std::string TableName() const;
  std::string TableDescripcion() const;

  // Navigation.
  int16_t Index() const;
  void SetIndex(int16_t Key);
  bool Bof() const;
  bool Eof() const;
  void MoveFirst();
  void MoveLast();
  void MoveNext();
  void MovePrevious();
  int32_t BookMark() const;
  void SetBookMark(int32_t Record);
  int32_t Position() const;
  void SetPosition(int32_t Place);
  int32_t RecordCount();

  // Fields and the edit buffer.
  Variant Fields(const Variant& FieldN);
  void SetFields(const Variant& FieldN, const Variant& Value);
  Variant KField(int16_t FieldNo, int16_t Offset = 0);
  void SetKField(int16_t FieldNo, int16_t Offset, const Variant& Value);
  std::string FieldName(int16_t Number) const;
  int32_t FieldLength(int16_t Number) const;
  int32_t FieldType(int16_t Number) const;
  void SetFieldType(int16_t Number, int32_t Type);
  int16_t GetKeyField(int16_t Key) const;

  // Changing records.
  void AddNew();
  void Edit();
  void Update();
  void Delete(int32_t BookMark);
  int32_t DeletedRecordCount();

  // Seeking and maintenance.
  int32_t SeekKey(const Variant& KeyValues, int32_t SeekOption = adseekfirsteq);
  std::string GetSpecialSeekKeys();
  double ReIndex();
  double Rebuild();

  // Bulk load, for adding many records at once. BeginBulkLoad takes the table alone and
  // keeps the key file's changes in memory; EndBulkLoad writes them in one go. Meanwhile
  // records are added, edited, read and sought as usual, with far fewer system calls.
  //
  // REQUIRES (Begin): an open table and no edit in progress (error 5 otherwise, 52 with no
  // table open). Error 70 when another TQFile has the table open; while the bulk load runs
  // every other open of the table fails with 70, in this process or another. OpenFile,
  // CloseDB, KillDB, ReIndex and Rebuild end a running bulk load first, and so does the
  // destructor (quietly).
  //
  // A crash (or a failed EndBulkLoad) leaves the mark file name + suffix + ".tqb" beside
  // the data file. The next OpenFile then builds the key file again from the data file,
  // as it does for a missing key file, and deletes the mark: every record whose bytes
  // reached the data file is in the table and indexed. Rebuild and ReIndex clear it too.
  void BeginBulkLoad();
  void EndBulkLoad();
  bool InBulkLoad() const;

  // Query.
  void Filter(const std::string& Parameters);
  void Sort(const std::string& SortFields);
  Variant LinkChild(const std::string& Table, const std::string& Filter, const Variant& FieldN);
  Variant LinkParent(const std::string& Table, const Variant& FieldN);
  double Sum(const Variant& NField);
  double AddToField(const Variant& FieldN, double AddValue);
  double AddToKField(int16_t Field, double AddValue, int16_t Offset = 0);

  // The engine channel, public for diagnostics and expert tools.
  std::string EngineCommand() const;
  void SetEngineCommand(const std::string& Command);
  void ExecuteCommand();
  int32_t EngineResult() const;
  int16_t DataFileNo() const;

  // The member state; for the library's own subsystems and white-box tests.
  TableState& State() { return *state_; }
  const TableState& State() const { return *state_; }

 private:
  std::unique_ptr<TableState> state_;
};

// A bulk load for one scope: begun by the constructor, ended by End() (which raises what
// fails) or else by the destructor, which raises nothing: when the final write fails there,
// the mark stays and the next open repairs the key file.
class TQDB_API BulkLoad {
 public:
  explicit BulkLoad(TQFile& Table) : table_(Table) { table_.BeginBulkLoad(); }
  ~BulkLoad();
  BulkLoad(const BulkLoad&) = delete;
  BulkLoad& operator=(const BulkLoad&) = delete;

  void End() { table_.EndBulkLoad(); }

 private:
  TQFile& table_;
};

}  // namespace tqdb

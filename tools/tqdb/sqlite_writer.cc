// The SQLite form of an export (sql_writer.h).
#include <sqlite3.h>

#include <limits>

#include "sql_writer.h"
#include "tool_error.h"

namespace tqdb::tool {
namespace {

struct CloseDatabase {
  void operator()(sqlite3* Db) const { sqlite3_close(Db); }
};
struct FinalizeStatement {
  void operator()(sqlite3_stmt* Statement) const { sqlite3_finalize(Statement); }
};
using Database = std::unique_ptr<sqlite3, CloseDatabase>;
using Statement = std::unique_ptr<sqlite3_stmt, FinalizeStatement>;

const char* SqliteType(SqlType Type) {
  switch (Type) {
    case SqlType::SmallInt:
    case SqlType::Integer:
      return "INTEGER";
    case SqlType::Double:
      return "REAL";
    case SqlType::Date:
      return "DATE";  // ISO text yyyy-mm-dd, as SQLite's date functions read it
    case SqlType::Blob:
      return "BLOB";
    case SqlType::Text:
    case SqlType::LongText:
      break;
  }
  return "TEXT";
}

class SqliteWriter : public SqlTableWriter {
 public:
  SqliteWriter(const std::string& Path, const SqlTable& Table, bool Replace);
  void Add(const std::vector<SqlValue>& Row) override;
  void Finish() override;

 private:
  [[noreturn]] void Fail(const std::string& What) const;
  void Execute(const std::string& Sql);
  Statement Prepare(const std::string& Sql);
  bool TableExists();
  void Bind(int Place, const SqlValue& Value);

  std::string path_;
  const SqlTable& table_;
  Database db_;  // declared before insert_, which must be finalized first
  Statement insert_;
};

SqliteWriter::SqliteWriter(const std::string& Path, const SqlTable& Table, bool Replace)
    : path_(Path), table_(Table) {
  sqlite3* Raw = nullptr;
  const int Opened =
      sqlite3_open_v2(Path.c_str(), &Raw, SQLITE_OPEN_READWRITE | SQLITE_OPEN_CREATE, nullptr);
  db_.reset(Raw);
  if (Opened != SQLITE_OK) Fail("cannot open it");
  Execute("BEGIN IMMEDIATE");
  const std::string Name = QuoteIdentifier(table_.Name);
  if (TableExists()) {
    if (!Replace) {
      throw ToolError("sqlite:" + path_ + " already has a table " + table_.Name +
                      "; --replace drops it and writes it anew");
    }
    Execute("DROP TABLE " + Name);
  }
  std::string Create = "CREATE TABLE " + Name + " (";
  std::string Insert = "INSERT INTO " + Name + " VALUES (";
  for (size_t I = 0; I < table_.Columns.size(); ++I) {
    Create += (I == 0 ? "" : ", ") + QuoteIdentifier(table_.Columns[I].Source.Header) + " " +
              SqliteType(table_.Columns[I].Type);
    Insert += I == 0 ? "?" : ", ?";
  }
  Execute(Create + ")");
  insert_ = Prepare(Insert + ")");
}

void SqliteWriter::Fail(const std::string& What) const {
  throw ToolError("sqlite:" + path_ + ": " + What + ": " + sqlite3_errmsg(db_.get()));
}

void SqliteWriter::Execute(const std::string& Sql) {
  if (sqlite3_exec(db_.get(), Sql.c_str(), nullptr, nullptr, nullptr) != SQLITE_OK) {
    Fail(Sql.substr(0, Sql.find(' ', Sql.find(' ') + 1)));  // "CREATE TABLE", "COMMIT", ...
  }
}

Statement SqliteWriter::Prepare(const std::string& Sql) {
  sqlite3_stmt* Raw = nullptr;
  const int Prepared = sqlite3_prepare_v2(db_.get(), Sql.c_str(), -1, &Raw, nullptr);
  Statement Made(Raw);
  if (Prepared != SQLITE_OK) Fail(Sql);
  return Made;
}

// A table of that name, without regard to ASCII case (as SQLite compares names).
bool SqliteWriter::TableExists() {
  Statement Query =
      Prepare("SELECT 1 FROM sqlite_master WHERE type = 'table' AND lower(name) = lower(?)");
  sqlite3_bind_text(Query.get(), 1, table_.Name.data(), static_cast<int>(table_.Name.size()),
                    SQLITE_STATIC);
  const int Stepped = sqlite3_step(Query.get());
  if (Stepped != SQLITE_ROW && Stepped != SQLITE_DONE) Fail("reading its schema");
  return Stepped == SQLITE_ROW;
}

void SqliteWriter::Bind(int Place, const SqlValue& Value) {
  if (Value.Bytes.size() > static_cast<size_t>(std::numeric_limits<int>::max())) {
    throw ToolError("sqlite:" + path_ + ": a value too long for SQLite");
  }
  const int Size = static_cast<int>(Value.Bytes.size());
  switch (Value.Type) {
    case SqlValue::Kind::Null:
      sqlite3_bind_null(insert_.get(), Place);
      break;
    case SqlValue::Kind::Integer:
      sqlite3_bind_int64(insert_.get(), Place, Value.Integer);
      break;
    case SqlValue::Kind::Real:
      sqlite3_bind_double(insert_.get(), Place, Value.Real);
      break;
    case SqlValue::Kind::Text:
      sqlite3_bind_text(insert_.get(), Place, Value.Bytes.data(), Size, SQLITE_STATIC);
      break;
    case SqlValue::Kind::Blob:
      sqlite3_bind_blob(insert_.get(), Place, Value.Bytes.data(), Size, SQLITE_STATIC);
      break;
  }
}

void SqliteWriter::Add(const std::vector<SqlValue>& Row) {
  for (size_t I = 0; I < Row.size(); ++I) Bind(static_cast<int>(I) + 1, Row[I]);
  if (sqlite3_step(insert_.get()) != SQLITE_DONE) Fail("inserting a row");
  sqlite3_reset(insert_.get());
}

void SqliteWriter::Finish() {
  for (const SqlIndex& Index : table_.Indexes) Execute(CreateIndexSql(table_, Index));
  Execute("COMMIT");
}

}  // namespace

std::unique_ptr<SqlTableWriter> MakeSqliteWriter(const std::string& Path, const SqlTable& Table,
                                                 bool Replace) {
  return std::make_unique<SqliteWriter>(Path, Table, Replace);
}

}  // namespace tqdb::tool

// The benchmark tasks on SQLite 3: the same rows, the same two indexes (unique on codigo,
// plain on nombre), journal_mode=OFF and synchronous=OFF (TQDB does not sync either),
// prepared statements. The load runs in one transaction. Updates and deletes run one
// statement per change (autocommit): like TQDB's Update and Delete, each change reaches
// the file before the next one starts.
#pragma once

#include <sqlite3.h>

#include <filesystem>
#include <stdexcept>
#include <string>
#include <vector>

#include "bench_tasks.h"

namespace bench {

class Statement {
 public:
  Statement(sqlite3* Db, const std::string& Sql) {
    if (sqlite3_prepare_v2(Db, Sql.c_str(), -1, &stmt_, nullptr) != SQLITE_OK) {
      throw std::runtime_error(std::string("prepare: ") + sqlite3_errmsg(Db) + ": " + Sql);
    }
  }
  ~Statement() { sqlite3_finalize(stmt_); }
  Statement(const Statement&) = delete;
  Statement& operator=(const Statement&) = delete;

  sqlite3_stmt* operator*() const { return stmt_; }
  void Text(int Column, const std::string& Value) {
    sqlite3_bind_text(stmt_, Column, Value.data(), static_cast<int>(Value.size()),
                      SQLITE_TRANSIENT);
  }
  bool Step() {
    const int Result = sqlite3_step(stmt_);
    if (Result == SQLITE_ROW) return true;
    if (Result != SQLITE_DONE) {
      throw std::runtime_error(std::string("step: ") + sqlite3_errstr(Result));
    }
    return false;
  }
  void Reset() {
    sqlite3_reset(stmt_);
    sqlite3_clear_bindings(stmt_);
  }

 private:
  sqlite3_stmt* stmt_ = nullptr;
};

// Inserts one benchmark row through a prepared "INSERT INTO t VALUES (?, ... ?)".
inline void InsertRow(Statement& Insert, const Row& R) {
  Insert.Text(1, R.Codigo);
  Insert.Text(2, R.Nombre);
  Insert.Text(3, R.Ciudad);
  Insert.Text(4, R.FechaIso);
  sqlite3_bind_int(*Insert, 5, R.Cantidad);
  sqlite3_bind_int(*Insert, 6, R.Numero);
  sqlite3_bind_double(*Insert, 7, R.Precio);
  sqlite3_bind_double(*Insert, 8, R.Importe);
  sqlite3_bind_double(*Insert, 9, R.Saldo);
  Insert.Text(10, R.Notas);
  Insert.Step();
  Insert.Reset();
}

class SqliteTasks {
 public:
  SqliteTasks(const std::string& Directory, int64_t N) : n_(N) {
    const std::string Path = Directory + "bench.db";
    std::filesystem::remove(Path);
    if (sqlite3_open(Path.c_str(), &db_) != SQLITE_OK) throw std::runtime_error("sqlite3_open");
    Exec("PRAGMA journal_mode=OFF");
    Exec("PRAGMA synchronous=OFF");
    Exec(
        "CREATE TABLE t(codigo TEXT, nombre TEXT, ciudad TEXT, fecha TEXT, cantidad INTEGER, "
        "numero INTEGER, precio REAL, importe REAL, saldo REAL, notas TEXT)");
    Exec("CREATE UNIQUE INDEX t_codigo ON t(codigo)");
    Exec("CREATE INDEX t_nombre ON t(nombre)");
  }
  ~SqliteTasks() { sqlite3_close(db_); }

  Measure Run(Task T) {
    Measure M;
    switch (T) {
      case kLoad:
        Load(M);
        break;
      case kScanKey1:
        Scan(M, "SELECT codigo, importe, fecha FROM t ORDER BY codigo");
        break;
      case kScanKey2:
        Scan(M, "SELECT nombre, cantidad, ciudad FROM t ORDER BY nombre");
        break;
      case kSeek:
        Seek(M);
        break;
      case kRangeFilter:
        Scan(M, "SELECT codigo, nombre, importe FROM t WHERE codigo >= '" +
                    CodeText(TopCodeStart(n_, 1)) + "' ORDER BY codigo");
        break;
      case kPlainFilter:
        Scan(M, "SELECT codigo, nombre, importe FROM t WHERE ciudad = 'MADRID'");
        break;
      case kSort:
        SortView(M);
        break;
      case kSum:
        SumView(M);
        break;
      case kUpdate:
        UpdateRandom(M);
        break;
      case kDelete:
        DeleteTenth(M);
        break;
      case kReIndex:
        Exec("REINDEX");
        M.Ops = n_;
        break;
      case kRebuild:
        Exec("VACUUM");
        M.Ops = n_;
        break;
      default:
        break;
    }
    return M;
  }

  void After(Task T, Measure& M) {
    if (T == kReIndex || T == kRebuild) M.Check = static_cast<double>(Count());
  }
  size_t Sink() const { return sink_; }

 private:
  void Exec(const std::string& Sql) {
    char* Error = nullptr;
    if (sqlite3_exec(db_, Sql.c_str(), nullptr, nullptr, &Error) != SQLITE_OK) {
      const std::string Text = Error != nullptr ? Error : "?";
      sqlite3_free(Error);
      throw std::runtime_error("exec: " + Text + ": " + Sql);
    }
  }

  int64_t Count() {
    Statement S(db_, "SELECT count(*) FROM t");
    S.Step();
    return sqlite3_column_int64(*S, 0);
  }

  void Load(Measure& M) {
    Exec("BEGIN");
    Statement Insert(db_, "INSERT INTO t VALUES (?, ?, ?, ?, ?, ?, ?, ?, ?, ?)");
    for (int64_t I = 0; I < n_; ++I) {
      const Row R = MakeRow(I, n_);
      InsertRow(Insert, R);
    }
    Exec("COMMIT");
    M.Ops = n_;
    M.Check = static_cast<double>(Count());
  }

  // Steps a query of three columns (text, number, text or number) to its end.
  void Scan(Measure& M, const std::string& Sql) {
    Statement Query(db_, Sql);
    int64_t Rows = 0;
    while (Query.Step()) {
      sink_ += static_cast<size_t>(sqlite3_column_bytes(*Query, 0));
      sink_ += static_cast<size_t>(sqlite3_column_double(*Query, 1) != 0);
      sink_ += static_cast<size_t>(sqlite3_column_bytes(*Query, 2));
      ++Rows;
    }
    M.Ops = Rows;
    M.Check = static_cast<double>(Rows);
  }

  void Seek(Measure& M) {
    Statement Query(db_, "SELECT nombre, importe FROM t WHERE codigo = ?");
    int64_t Found = 0;
    double Total = 0;
    for (int64_t Code : SeekCodes(n_)) {
      Query.Text(1, CodeText(Code));
      if (Query.Step()) {
        sink_ += static_cast<size_t>(sqlite3_column_bytes(*Query, 0));
        Total += sqlite3_column_double(*Query, 1);
        ++Found;
      }
      Query.Reset();
    }
    M.Ops = kSeeks;
    M.Check = static_cast<double>(Found);
    sink_ += static_cast<size_t>(Total != 0);
  }

  std::string TopTenth() const { return "'" + CodeText(TopCodeStart(n_, 10)) + "'"; }

  void SortView(Measure& M) {
    Statement Query(db_, "SELECT rowid FROM t WHERE codigo >= " + TopTenth() + " ORDER BY ciudad");
    std::vector<int64_t> Order;
    while (Query.Step()) Order.push_back(sqlite3_column_int64(*Query, 0));
    M.Ops = static_cast<int64_t>(Order.size());
    M.Check = static_cast<double>(M.Ops);
  }

  void SumView(Measure& M) {
    Statement Query(db_, "SELECT SUM(importe), count(*) FROM t WHERE codigo >= " + TopTenth());
    Query.Step();
    M.Check = sqlite3_column_double(*Query, 0);
    M.Ops = sqlite3_column_int64(*Query, 1);
  }

  void UpdateRandom(Measure& M) {
    Statement Update(db_, "UPDATE t SET importe = ?, nombre = ? WHERE codigo = ?");
    const std::vector<int64_t> Codes = UpdateCodes(n_);
    int64_t Changed = 0;
    for (size_t Q = 0; Q < Codes.size(); ++Q) {
      sqlite3_bind_double(*Update, 1, UpdatedAmount(static_cast<int64_t>(Q)));
      Update.Text(2, UpdatedName(static_cast<int64_t>(Q), n_));
      Update.Text(3, CodeText(Codes[Q]));
      Update.Step();
      Changed += sqlite3_changes(db_);
      Update.Reset();
    }
    M.Ops = static_cast<int64_t>(Codes.size());
    M.Check = static_cast<double>(Changed);
  }

  void DeleteTenth(Measure& M) {
    Statement Delete(db_, "DELETE FROM t WHERE codigo = ?");
    const std::vector<int64_t> Codes = DeleteCodes(n_);
    int64_t Deleted = 0;
    for (int64_t Code : Codes) {
      Delete.Text(1, CodeText(Code));
      Delete.Step();
      Deleted += sqlite3_changes(db_);
      Delete.Reset();
    }
    M.Ops = static_cast<int64_t>(Codes.size());
    M.Check = static_cast<double>(Deleted);
  }

  int64_t n_;
  sqlite3* db_ = nullptr;
  size_t sink_ = 0;
};

}  // namespace bench

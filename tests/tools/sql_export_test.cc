// tqdb export into SQL databases: an SQLite file read back through the sqlite3 library, and
// a psql script loaded into a private PostgreSQL server.
#include <glob.h>
#include <gtest/gtest.h>
#include <sqlite3.h>
#include <unistd.h>

#include <cstdio>
#include <filesystem>
#include <string>

#include "table/TQFile.h"
#include "tool_runner.h"

namespace tqdb::testing {
namespace {

// A client with an empty date and text that needs escaping; invoice 2023-0001 deleted.
class SqlExport : public SampleTablesTest {
 protected:
  static constexpr const char* kOddName = "Tab\there \\ y\r\nfin ñ";
  void SetUp() override {
    SampleTablesTest::SetUp();
    TQFile Table;
    Table.OpenFile(Clients() + ".tqd", Dir.Dir());
    Table.AddNew();
    Table.SetFields("CLIENTE", "900001");
    Table.SetFields("NOMBRE", kOddName);
    Table.Update();
    ASSERT_EQ(Run({"delete", Invoices(), "2023-0001"}).Status, 0);
  }
  // "sum of TOTAL over N records...: S" from the tool, as "N|S".
  std::string ToolSum(const std::vector<std::string>& Extra = {}) {
    std::vector<std::string> Args{"sum", Invoices(), "TOTAL"};
    Args.insert(Args.end(), Extra.begin(), Extra.end());
    const std::string Out = Run(Args).Out;
    const size_t Over = Out.find(" over ") + 6;
    return Out.substr(Over, Out.find(' ', Over) - Over) + "|" +
           Out.substr(Out.rfind(' ') + 1, Out.size() - Out.rfind(' ') - 2);
  }
};

// The rows of Sql on the SQLite file Path, columns joined by "|", one row per line.
std::string Sqlite(const std::string& Path, const std::string& Sql) {
  sqlite3* Db = nullptr;
  sqlite3_open_v2(Path.c_str(), &Db, SQLITE_OPEN_READONLY, nullptr);
  std::string Rows;
  auto AddRow = [](void* Out, int Count, char** Values, char**) {
    auto& Text = *static_cast<std::string*>(Out);
    for (int I = 0; I < Count; ++I)
      Text += (I == 0 ? "" : "|") + std::string(Values[I] ? Values[I] : "NULL");
    Text += '\n';
    return 0;
  };
  char* Error = nullptr;
  if (sqlite3_exec(Db, Sql.c_str(), AddRow, &Rows, &Error) != SQLITE_OK) Rows = Error;
  sqlite3_free(Error);
  sqlite3_close(Db);
  return Rows;
}

TEST_F(SqlExport, WritesATypedSqliteTableWithAnIndexPerKey) {
  const std::string Db = Dir.File("conta.db");
  ASSERT_EQ(Run({"export", Invoices(), "--to", "sqlite:" + Db}).Status, 0);
  ASSERT_EQ(Run({"export", Clients(), "--to", "sqlite:" + Db}).Status, 0);
  EXPECT_EQ(Sqlite(Db, "SELECT count(*), round(sum(TOTAL), 2) FROM FACTU01"), ToolSum() + "\n");
  EXPECT_EQ(Sqlite(Db, "SELECT group_concat(type) FROM pragma_table_info('FACTU01')"),
            "TEXT,DATE,TEXT,TEXT,REAL,INTEGER,REAL,TEXT\n");
  EXPECT_EQ(Sqlite(Db,
                   "SELECT FECHA, typeof(IVA), typeof(BASE) FROM FACTU01 WHERE NUMERO = "
                   "'2023-0002' OR NUMERO = '2023-0001'"),
            "2023-01-01|integer|real\n");
  EXPECT_EQ(Sqlite(Db, "SELECT ALTA, NOMBRE = '" + std::string(kOddName) +
                           "' FROM CLIEN01 WHERE CLIENTE = '900001'"),
            "NULL|1\n");
  EXPECT_EQ(Sqlite(Db,
                   "SELECT name, (SELECT group_concat(name) FROM pragma_index_info(i.name)) "
                   "FROM pragma_index_list('CLIEN01') i ORDER BY name"),
            "CLIEN01_key1|CLIENTE\nCLIEN01_key2|NOMBRE\nCLIEN01_key3|PROVINCIA,NOMBRE\n");
  const ToolResult Filtered =
      Run({"export", Invoices(), "--filter", "COBRADA = N", "--link", "CLIEN.NOMBRE", "--to",
           "sqlite:" + Db, "--sql-table", "Pendientes"});
  ASSERT_EQ(Filtered.Status, 0) << Filtered.Err;
  EXPECT_EQ(Sqlite(Db,
                   "SELECT count(*), round(sum(TOTAL), 2) FROM Pendientes WHERE "
                   "\"CLIEN.NOMBRE\" IS NOT NULL"),
            ToolSum({"--filter", "COBRADA = N"}) + "\n");
}

TEST_F(SqlExport, RefusesWhatItCannotWrite) {
  const std::string Db = "sqlite:" + Dir.File("conta.db");
  ASSERT_EQ(Run({"export", Invoices(), "--to", Db}).Status, 0);
  const struct {
    std::vector<std::string> Args;
    int Status;
    std::string Message;
  } Cases[] = {
      {{"--to", Db}, 1, "already has a table FACTU01; --replace drops it"},
      {{"--to", "sqlite:" + Dir.File("no/such/dir.db")}, 1, "cannot open it"},
      {{"--to", "postgresql:x"}, 2, "expected sqlite:FILE.db"},
      {{"--format", "sql", "--dialect", "oracle"}, 2, "unknown SQL dialect 'oracle'"},
      {{"--to", Db, "--replace", "--filter", "IVA = 4"}, 0, ""},
  };
  for (const auto& Case : Cases) {
    std::vector<std::string> Args{"export", Invoices()};
    Args.insert(Args.end(), Case.Args.begin(), Case.Args.end());
    const ToolResult Result = Run(Args);
    EXPECT_EQ(Result.Status, Case.Status) << Case.Message;
    EXPECT_NE(Result.Err.find(Case.Message), std::string::npos) << Result.Err;
  }
  EXPECT_EQ(Sqlite(Dir.File("conta.db"), "SELECT count(*) > 0, max(IVA) = min(IVA) FROM FACTU01"),
            "1|1\n");  // replaced by the filtered records alone
}

// A private PostgreSQL cluster in a scratch directory, reached only through a Unix socket
// there, stopped on destruction. When the test runs as root its commands run as the
// postgres user (initdb refuses root), which then owns the directory.
class PostgresServer {
 public:
  explicit PostgresServer(const std::string& Bin) : bin_(Bin + "/") {
    if (::geteuid() == 0) {
      Shell("chown postgres " + Dir.Path());
      as_ = "runuser -u postgres -- ";
    }
    Started = Shell(as_ + bin_ + "initdb -A trust -U tqdb -E UTF8 --locale=C --no-sync -D " +
                    Dir.File("data")) == 0 &&
              Shell(as_ + bin_ + "pg_ctl -w -D " + Dir.File("data") + " -l " + Dir.File("log") +
                    " -o \"-c listen_addresses='' -k " + Dir.Path() + "\" start") == 0;
  }
  ~PostgresServer() {
    Shell(as_ + bin_ + "pg_ctl -w -m immediate -D " + Dir.File("data") + " stop");
  }
  // What psql prints for the script in File (read by this process's shell, so root's files do).
  std::string Psql(const std::string& File, const std::string& Options = "-At") {
    std::string Out;
    Shell(as_ + bin_ + "psql -X -q -v ON_ERROR_STOP=1 " + Options + " -h " + Dir.Path() +
              " -U tqdb -d postgres < " + File,
          &Out);
    return Out;
  }
  std::string Query(const std::string& Sql, const std::string& Options = "-At") {
    return Psql(Dir.Write("query.sql", Sql), Options);
  }

  TempDir Dir;
  bool Started = false;

 private:
  static int Shell(const std::string& Command, std::string* Out = nullptr) {
    FILE* Pipe = ::popen((Command + " 2>&1").c_str(), "r");
    char Buffer[4096];
    for (size_t Read; (Read = std::fread(Buffer, 1, sizeof Buffer, Pipe)) > 0;) {
      if (Out != nullptr) Out->append(Buffer, Read);
    }
    return ::pclose(Pipe);
  }
  std::string bin_, as_;
};

TEST_F(SqlExport, LoadsIntoARealPostgresqlServer) {
  glob_t Found{};
  const bool Have = ::glob("/usr/lib/postgresql/*/bin/initdb", 0, nullptr, &Found) == 0;
  const std::string Bin = Have ? std::filesystem::path(Found.gl_pathv[0]).parent_path() : "";
  ::globfree(&Found);
  if (Bin.empty()) GTEST_SKIP() << "no PostgreSQL server (Debian package postgresql) installed";
  PostgresServer Server(Bin);
  ASSERT_TRUE(Server.Started) << ReadFile(Server.Dir.File("log"));
  const std::string Script = Dir.File("export.sql");
  for (const std::string& Table : {Invoices(), Clients()}) {
    ASSERT_EQ(
        Run({"export", Table, "--format", "sql", "--dialect", "postgresql", "-o", Script}).Status,
        0);
    ASSERT_EQ(Server.Psql(Script), "");
  }
  EXPECT_EQ(
      Server.Query("SELECT count(*), round(sum(\"TOTAL\")::numeric, 2)::float8 FROM \"FACTU01\""),
      ToolSum() + "\n");
  EXPECT_EQ(Server.Query("SELECT \"ALTA\" IS NULL, \"NOMBRE\" = E'Tab\\there \\\\ y\\r\\nfin ñ' "
                         "FROM \"CLIEN01\" WHERE \"CLIENTE\" = '900001'"),
            "t|t\n");
  EXPECT_EQ(Server.Query("SELECT \"NUMERO\", to_char(\"FECHA\", 'DD/MM/YY') AS \"FECHA\" FROM "
                         "\"FACTU01\" ORDER BY \"NUMERO\"",
                         "--csv"),
            Run({"export", Invoices(), "--fields", "NUMERO,FECHA"}).Out);
}

}  // namespace
}  // namespace tqdb::testing

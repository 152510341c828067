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
  void SetUp() override {
    SampleTablesTest::SetUp();
    TQFile Table;
    Table.OpenFile(Clients() + ".tqd", Dir.Dir());
    Table.AddNew();
    Table.SetFields("CLIENTE", "900001");
    Table.SetFields("NOMBRE", "Tab\there \\ y\r\nfin ñ");
    Table.Update();
    ASSERT_EQ(Run({"delete", Invoices(), "2023-0001"}).Status, 0);
  }
  // "N,S" from "tqdb sum FACTU01 TOTAL [Args]", which says "sum of TOTAL over N records...: S".
  std::string ToolSum(std::vector<std::string> Args = {}) {
    Args.insert(Args.begin(), {"sum", Invoices(), "TOTAL"});
    const std::string Out = Run(Args).Out;
    const size_t Count = Out.find(" over ") + 6, Total = Out.rfind(' ') + 1;
    return Out.substr(Count, Out.find(' ', Count) - Count) + "," +
           Out.substr(Total, Out.size() - Total - 1);
  }
};

// The rows of Sql on the SQLite file Path, columns joined by ",", one row per line.
std::string Sqlite(const std::string& Path, const std::string& Sql) {
  sqlite3* Db = nullptr;
  sqlite3_open_v2(Path.c_str(), &Db, SQLITE_OPEN_READONLY, nullptr);
  std::string Rows;
  auto AddRow = [](void* Out, int Count, char** Values, char**) {
    for (int I = 0; I < Count; ++I) {
      *static_cast<std::string*>(Out) +=
          (I == 0 ? "" : ",") + std::string(Values[I] != nullptr ? Values[I] : "NULL");
    }
    *static_cast<std::string*>(Out) += '\n';
    return 0;
  };
  char* Error = nullptr;
  if (sqlite3_exec(Db, Sql.c_str(), AddRow, &Rows, &Error) != SQLITE_OK) Rows = Error;
  sqlite3_free(Error);
  sqlite3_close(Db);
  return Rows;
}

TEST_F(SqlExport, WritesATypedSqliteTableWithAnIndexPerKeyOrSaysWhyNot) {
  const std::string Db = Dir.File("conta.db");
  for (const std::vector<std::string>& Args :
       {std::vector<std::string>{Invoices()},
        {Clients()},
        {Invoices(), "--filter", "COBRADA = N", "--link", "CLIEN.NOMBRE", "--sql-table", "Pend"}}) {
    std::vector<std::string> Command{"export", "--to", "sqlite:" + Db};
    Command.insert(Command.end(), Args.begin(), Args.end());
    ASSERT_EQ(Run(Command).Status, 0) << Args[0];
  }
  const std::pair<std::string, std::string> Checks[] = {
      {"SELECT count(*), round(sum(TOTAL), 2) FROM FACTU01", ToolSum()},
      {"SELECT group_concat(type, '/') FROM pragma_table_info('FACTU01')",
       "TEXT/DATE/TEXT/TEXT/REAL/INTEGER/REAL/TEXT"},
      {"SELECT FECHA, typeof(IVA), typeof(BASE) FROM FACTU01 WHERE NUMERO IN ('2023-0001', "
       "'2023-0002')",  // the first is deleted
       "2023-01-01,integer,real"},
      {"SELECT ALTA, NOMBRE = 'Tab\there \\ y\r\nfin ñ' FROM CLIEN01 WHERE CLIENTE = '900001'",
       "NULL,1"},
      {"SELECT name, (SELECT group_concat(name) FROM pragma_index_info(i.name)) FROM "
       "pragma_index_list('CLIEN01') i ORDER BY name",
       "CLIEN01_key1,CLIENTE\nCLIEN01_key2,NOMBRE\nCLIEN01_key3,PROVINCIA,NOMBRE"},
      {"SELECT count(*), round(sum(TOTAL), 2) FROM Pend WHERE \"CLIEN.NOMBRE\" IS NOT NULL",
       ToolSum({"--filter", "COBRADA = N"})},
  };
  for (const auto& [Sql, Expected] : Checks) EXPECT_EQ(Sqlite(Db, Sql), Expected + "\n") << Sql;
  const struct {
    std::vector<std::string> Args;
    int Status;
    std::string Message;
  } Refusals[] = {
      {{"--to", "sqlite:" + Db}, 1, "already has a table FACTU01; --replace drops it"},
      {{"--format", "sql", "--dialect", "oracle"}, 2, "unknown SQL dialect 'oracle'"},
      {{"--to", "sqlite:" + Db, "--replace", "--filter", "IVA = 4"}, 0, ""},
  };
  for (const auto& Case : Refusals) {
    std::vector<std::string> Args{"export", Invoices()};
    Args.insert(Args.end(), Case.Args.begin(), Case.Args.end());
    const ToolResult Result = Run(Args);
    EXPECT_EQ(Result.Status, Case.Status) << Case.Message;
    EXPECT_NE(Result.Err.find(Case.Message), std::string::npos) << Result.Err;
  }
  EXPECT_EQ(Sqlite(Db, "SELECT count(*) > 0, max(IVA) = min(IVA) FROM FACTU01"),
            "1,1\n");  // replaced by the filtered records alone
}

// Runs Command in a shell; its exit status, and its output in Out when given.
int Shell(const std::string& Command, std::string* Out = nullptr) {
  FILE* Pipe = ::popen((Command + " 2>&1").c_str(), "r");
  char Buffer[4096];
  for (size_t Read; (Read = std::fread(Buffer, 1, sizeof Buffer, Pipe)) > 0;) {
    if (Out != nullptr) Out->append(Buffer, Read);
  }
  return ::pclose(Pipe);
}

// A private PostgreSQL cluster in a scratch directory, reached only through a Unix socket
// there, stopped on destruction. When the test runs as root its commands run as the
// postgres user (initdb refuses root), which then owns the directory.
class PostgresServer {
 public:
  explicit PostgresServer(const std::string& Bin)
      : run_((::geteuid() == 0 ? "runuser -u postgres -- " : "") + Bin + "/") {
    if (::geteuid() == 0) Shell("chown postgres " + Dir.Path());
    Started = Shell(run_ + "initdb -A trust -U tqdb -E UTF8 --locale=C --no-sync -D " +
                    Dir.File("data")) == 0 &&
              Shell(run_ + "pg_ctl -w -D " + Dir.File("data") + " -l " + Dir.File("log") +
                    " -o \"-c listen_addresses='' -k " + Dir.Path() + "\" start") == 0;
  }
  ~PostgresServer() { Shell(run_ + "pg_ctl -w -m immediate -D " + Dir.File("data") + " stop"); }
  // What psql prints for the script in File (read by this process's shell, so root's files do).
  std::string Psql(const std::string& File) {
    std::string Out;
    Shell(run_ + "psql -X -q -At -F , -v ON_ERROR_STOP=1 -h " + Dir.Path() +
              " -U tqdb -d postgres < " + File,
          &Out);
    return Out;
  }

  TempDir Dir;
  bool Started = false;

 private:
  std::string run_;  // the prefix of a server command
};

TEST_F(SqlExport, LoadsIntoARealPostgresqlServer) {
  glob_t Found{};
  const bool Have = ::glob("/usr/lib/postgresql/*/bin/initdb", 0, nullptr, &Found) == 0;
  const std::string Bin = Have ? std::filesystem::path(Found.gl_pathv[0]).parent_path() : "";
  ::globfree(&Found);
  if (Bin.empty()) GTEST_SKIP() << "no PostgreSQL server (Debian package postgresql) installed";
  PostgresServer Server(Bin);
  ASSERT_TRUE(Server.Started) << Server.Dir.Read("log");
  const std::string Script = Dir.File("export.sql");
  for (const std::string& Table : {Invoices(), Clients()}) {
    ASSERT_EQ(
        Run({"export", Table, "--format", "sql", "--dialect", "postgresql", "-o", Script}).Status,
        0);
    ASSERT_EQ(Server.Psql(Script), "");
  }
  // The count and total, the odd client, and the invoices in key order as the CSV export
  // lists them (after its header).
  const std::string Listing = Run({"export", Invoices(), "--fields", "NUMERO,FECHA"}).Out;
  EXPECT_EQ(
      Server.Psql(Dir.Write(
          "q.sql",
          "SELECT count(*), round(sum(\"TOTAL\")::numeric, 2)::float8 FROM \"FACTU01\";\n"
          "SELECT \"ALTA\" IS NULL, \"NOMBRE\" = E'Tab\\there \\\\ y\\r\\nfin ñ' FROM "
          "\"CLIEN01\" WHERE \"CLIENTE\" = '900001';\n"
          "SELECT \"NUMERO\", to_char(\"FECHA\", 'DD/MM/YY') FROM \"FACTU01\" ORDER BY 1;\n")),
      ToolSum() + "\nt,t\n" + Listing.substr(Listing.find('\n') + 1));
}

}  // namespace
}  // namespace tqdb::testing

// tqdb export into SQL databases: an SQLite file read back through the sqlite3 library, and
// a psql script.
#include <gtest/gtest.h>
#include <sqlite3.h>

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
      {{"--to", "sqlite:" + Dir.File("no/such/dir.db")}, 1, "cannot open it"},
      {{"--to", "postgresql:x"}, 2, "expected sqlite:FILE.db"},
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

// The psql script of the clients: typed columns, rows escaped as COPY reads them (an empty
// date is \N), an index per key.
TEST_F(SqlExport, WritesAPsqlScript) {
  ASSERT_EQ(Run({"export", Clients(), "--format", "sql", "--dialect", "postgresql", "-o",
                 Dir.File("export.sql")})
                .Status,
            0);
  const std::string Script = Dir.Read("export.sql");
  for (const char* Part :
       {"CREATE TABLE \"CLIEN01\" (\n  \"CLIENTE\" varchar(6),\n  \"NOMBRE\" varchar(40),",
        "\"ALTA\" date,\n  \"SALDO\" double precision,\n  \"LIMITE\" integer\n);\nCOPY \"CLIEN01\" "
        "(",
        "\n900001\tTab\\there \\\\ y\\r\\nfin ñ\t\t\t\t\\N\t0\t0\n\\.\n",
        "\"CLIEN01_key3\" ON \"CLIEN01\" (\"PROVINCIA\", \"NOMBRE\");\nCOMMIT;\n"}) {
    EXPECT_NE(Script.find(Part), std::string::npos) << Part << "\n" << Script.substr(0, 600);
  }
  EXPECT_EQ(CountLines(Script, "\t"), 201);
}

}  // namespace
}  // namespace tqdb::testing

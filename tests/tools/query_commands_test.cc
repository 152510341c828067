// tqdb info, seek, sum, update, delete and exec on the sample tables and a small table
// with repeated keys.
#include <gtest/gtest.h>

#include <string>

#include "tool_runner.h"

namespace tqdb::testing {
namespace {

class QueryCommands : public SampleTablesTest {
 protected:
  // The record numbers in the first column of a text table.
  static std::vector<int> Records(const std::string& Out) {
    std::vector<int> Numbers;
    size_t Line = Out.find('\n') + 1;
    while (Line < Out.size()) {
      Numbers.push_back(std::stoi(Out.substr(Line)));
      Line = Out.find('\n', Line) + 1;
    }
    return Numbers;
  }
};

TEST_F(QueryCommands, InfoDescribesFieldsKeysAndTheKeyFile) {
  const ToolResult Result = Run({"info", Clients()});
  ASSERT_EQ(Result.Status, 0) << Result.Err;
  EXPECT_NE(Result.Out.find("table CLIEN01: Clientes"), std::string::npos);
  EXPECT_NE(Result.Out.find("200 record places of 118 bytes, 200 live, 0 deleted"),
            std::string::npos);
  EXPECT_EQ(
      CountLines(Result.Out, "SALDO                    3 double               8      8     106"), 1)
      << Result.Out;
  EXPECT_EQ(CountLines(Result.Out, ", 200 entries"), 3);
}

TEST_F(QueryCommands, SeekThatFindsNothingSaysWhyAndFails) {
  ToolResult Result = Run({"seek", Clients(), "00004A"});
  EXPECT_EQ(Result.Status, 1);
  EXPECT_EQ(Result.Out, "no record: not found (status 12)\n");
  Result = Run({"seek", Clients(), "000200", "--option", "after"});
  EXPECT_EQ(Result.Status, 1);
  EXPECT_EQ(Result.Out, "no record: after the last entry (status 15)\n");
}

TEST_F(QueryCommands, SeeksByOneValuePerKeySegment) {
  // Key 3 is PROVINCIA[1,15] + NOMBRE[1,20].
  const ToolResult Result = Run(
      {"seek", Clients(), "--key", "3", "Málaga", "Cañete Romero, Joaquín", "--fields", "CLIENTE"});
  ASSERT_EQ(Result.Status, 0) << Result.Out << Result.Err;
  EXPECT_EQ(Records(Result.Out), std::vector<int>{1});
}

TEST_F(QueryCommands, SumOverAFilterMatchesTheClientsBalance) {
  const ToolResult Sum =
      Run({"sum", Invoices(), "TOTAL", "--filter", "CLIENTE = 000001 AND COBRADA = N"});
  ASSERT_EQ(Sum.Status, 0) << Sum.Err;
  EXPECT_EQ(Sum.Out,
            "sum of TOTAL over 6 records where CLIENTE = 000001 AND COBRADA = N: 15823.47\n");
}

TEST_F(QueryCommands, UpdateChangesFieldsAndKeepsTheKeysInStep) {
  ToolResult Result =
      Run({"update", Clients(), "000042", "--set", "PROVINCIA=Asturias", "--set", "POBLACION=Gijón",
           "--set", "LIMITE=6000", "--fields", "POBLACION,LIMITE", "--format", "csv"});
  ASSERT_EQ(Result.Status, 0) << Result.Err;
  EXPECT_EQ(Result.Out, "updated record 42\nPOBLACION,LIMITE\nGijón,6000\n");
  EXPECT_EQ(Run({"check", Clients()}).Status, 0);
  Result = Run({"update", Clients(), "000042", "--set", "LIMITE=mucho"});
  EXPECT_EQ(Result.Status, 1);
  EXPECT_NE(Result.Err.find("LIMITE: 'mucho' is not a number"), std::string::npos);
  Result = Run({"update", Clients(), "999999", "--set", "LIMITE=1"});
  EXPECT_EQ(Result.Status, 1);
  EXPECT_NE(Result.Out.find("nothing changed"), std::string::npos);
}

TEST_F(QueryCommands, DeletesByKeyAndByFilter) {
  ToolResult Result = Run({"delete", Invoices(), "2023-0040"});
  ASSERT_EQ(Result.Status, 0) << Result.Err;
  EXPECT_EQ(Result.Out, "deleted record 40\n");
  EXPECT_EQ(Run({"delete", Invoices(), "2023-0040"}).Status, 1);
  Result = Run({"delete", Invoices(), "--filter", "CLIENTE = 000042"});
  ASSERT_EQ(Result.Status, 0) << Result.Err;
  EXPECT_EQ(Result.Out, "deleted 6 records where CLIENTE = 000042\n");
  const ToolResult Check = Run({"check", Invoices()});
  EXPECT_EQ(Check.Status, 0) << Check.Out;
  EXPECT_EQ(Check.Out, "FACTU01: ok (3 keys, 1993 live records, 7 deleted)\n");
  EXPECT_EQ(Run({"delete", Invoices()}).Status, 2);  // neither values nor a filter
}

TEST_F(QueryCommands, ExecPrintsResultAndStatusOfEachCommand) {
  const ToolResult Result = Run({"exec", Invoices(), "F\\1\\1", "N\\1", "S\\1\\1\\9999"});
  ASSERT_EQ(Result.Status, 0) << Result.Err;
  EXPECT_NE(Result.Out.find("F\\1\\1  ->  result 1, status 0 (ok)\n"), std::string::npos);
  EXPECT_NE(Result.Out.find("N\\1  ->  result 2, status 0 (ok)\n"), std::string::npos);
  EXPECT_NE(Result.Out.find("status 15 (after the last entry)"), std::string::npos) << Result.Out;
}

TEST_F(QueryCommands, ErrorsCarryTheSystemsNumberAndDescription) {
  ToolResult Result = Run({"seek", Dir.File("NOHAY01"), "1"});
  EXPECT_EQ(Result.Status, 1);
  EXPECT_NE(Result.Err.find("error 50999: La tabla NOHAY no existe en la ruta: "),
            std::string::npos)
      << Result.Err;
  EXPECT_FALSE(std::filesystem::exists(Dir.File("NOHAY.tqa")));
  Result = Run({"sum", Invoices(), "PRECIO", "--filter", "IVA = 4"});
  EXPECT_EQ(Result.Status, 1);
  EXPECT_NE(Result.Err.find("error 50234: Campo PRECIO no existe"), std::string::npos)
      << Result.Err;
  Result = Run({"seek", Dir.File("X"), "1"});
  EXPECT_EQ(Result.Status, 2);
}

TEST_F(QueryCommands, EveryCommandHasHelp) {
  for (const char* Command : {"create", "info", "import", "export", "seek", "sum", "update",
                              "delete", "check", "rebuild", "reindex", "exec"}) {
    const ToolResult Result = Run({Command, "--help"});
    EXPECT_EQ(Result.Status, 0) << Command;
    EXPECT_NE(Result.Out.find("TABLE"), std::string::npos) << Command << ": " << Result.Out;
  }
  EXPECT_EQ(Run({"nosuch"}).Status, 2);
}

}  // namespace
}  // namespace tqdb::testing

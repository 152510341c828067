// tqdb import and export: CSV in and out through the public interface, bad rows, JSON,
// filters, sorts and linked values.
#include <gtest/gtest.h>

#include <string>

#include "tool_runner.h"

namespace tqdb::testing {
namespace {

using SampleTables = SampleTablesTest;

TEST_F(SampleTables, ExportedCsvImportsIntoAnIdenticalTable) {
  const ToolResult First = Run({"export", Clients(), "--key", "2"});
  ASSERT_EQ(First.Status, 0) << First.Err;
  EXPECT_EQ(CountLines(First.Out, ","), 201);  // the header and 200 rows
  EXPECT_NE(First.Out.find("\"Cañete Romero, Joaquín\""), std::string::npos);
  Dir.Write("clients.csv", First.Out);
  ASSERT_EQ(Run({"create", ExamplesDir() + "/CLIEN.schema", Dir.File("CLIEN02")}).Status, 0);
  const ToolResult Import = Run({"import", Dir.File("CLIEN02"), Dir.File("clients.csv")});
  ASSERT_EQ(Import.Status, 0) << Import.Err;
  EXPECT_EQ(Import.Out, "imported 200 rows into CLIEN02\n");
  EXPECT_EQ(Run({"export", Dir.File("CLIEN02"), "--key", "2"}).Out, First.Out);
}

TEST_F(SampleTables, StopsAtTheFirstBadRowAndSaysSo) {
  Dir.Write("bad.csv",
            "CLIENTE,NOMBRE,SALDO,ALTA\n"
            "900001,Primero,10.5,01/02/2024\n"
            "900002,Segundo,diez,01/02/2024\n"
            "900003,Tercero,3,31/02/2024\n"
            "900004,Cuarto,4,01/03/2024\n");
  const ToolResult Result = Run({"import", Clients(), Dir.File("bad.csv")});
  EXPECT_EQ(Result.Status, 1);
  EXPECT_NE(Result.Err.find("bad.csv:3: SALDO: 'diez' is not a number"), std::string::npos)
      << Result.Err;
  EXPECT_NE(Result.Out.find("stopped at line 3: 1 rows before it were imported"), std::string::npos)
      << Result.Out;
  EXPECT_EQ(Run({"seek", Clients(), "900001"}).Status, 0);
  EXPECT_EQ(Run({"seek", Clients(), "900004"}).Status, 1);
}

TEST_F(SampleTables, SkipsBadRowsWhenAsked) {
  Dir.Write("bad.csv",
            "cliente,nombre,limite,alta\n"  // any case
            "900001,Primero,5,01/02/2024\n"
            "900002,Segundo,1.5,01/02/2024\n"              // not whole
            "900003,\"Tercero, con coma\",3,31/02/2024\n"  // no such day
            "900004,Un nombre mucho más largo de lo que cabe en el campo,4,\n"
            "900005,Quinto\n"  // too few values
            "900006,\"Sexto\",6,29/02/2024\n");
  const ToolResult Result = Run({"import", Clients(), Dir.File("bad.csv"), "--skip-bad"});
  EXPECT_EQ(Result.Status, 0) << Result.Err;
  EXPECT_EQ(Result.Out, "imported 2 rows into CLIEN01; skipped 4 bad rows\n");
  EXPECT_NE(Result.Err.find(":3: LIMITE: '1.5' is not a whole number"), std::string::npos);
  EXPECT_NE(Result.Err.find(":4: ALTA: '31/02/2024' is not a date"), std::string::npos);
  EXPECT_NE(Result.Err.find(":5: NOMBRE: "), std::string::npos);
  EXPECT_NE(Result.Err.find(":6: 2 values, the header has 4"), std::string::npos);
  const ToolResult Sixth = Run({"seek", Clients(), "900006", "--fields", "NOMBRE,ALTA,LIMITE"});
  EXPECT_NE(Sixth.Out.find("Sexto   29/02/24  6"), std::string::npos) << Sixth.Out;
}

TEST_F(SampleTables, RefusesAnUnknownColumnBeforeImportingAnything) {
  Dir.Write("bad.csv", "CLIENTE,TELEFONO\n900001,555\n");
  const ToolResult Result = Run({"import", Clients(), Dir.File("bad.csv")});
  EXPECT_EQ(Result.Status, 1);
  EXPECT_NE(Result.Err.find("column 'TELEFONO' is not a field"), std::string::npos) << Result.Err;
  EXPECT_EQ(Run({"seek", Clients(), "900001"}).Status, 1);
}

TEST_F(SampleTables, ExportsAFilteredSortedViewWithALinkedField) {
  const ToolResult Result =
      Run({"export", Invoices(), "--filter", "CLIENTE = 000001 AND COBRADA = N", "--sort",
           "TOTAL DESC", "--fields", "NUMERO,TOTAL", "--link", "CLIEN.NOMBRE"});
  ASSERT_EQ(Result.Status, 0) << Result.Err;
  EXPECT_EQ(Result.Out.substr(0, Result.Out.find('\n')), "NUMERO,TOTAL,CLIEN.NOMBRE");
  EXPECT_EQ(Result.Out.substr(Result.Out.find('\n') + 1, 18),
            "2024-0889,5724.85,");  // highest total first
  EXPECT_EQ(CountLines(Result.Out, "\"Cañete Romero, Joaquín\""), 6);
}

TEST_F(SampleTables, ExportsJson) {
  const ToolResult Result = Run({"export", Clients(), "--format", "json", "--limit", "2",
                                 "--fields", "CLIENTE,NOMBRE,SALDO,LIMITE,ALTA"});
  ASSERT_EQ(Result.Status, 0) << Result.Err;
  EXPECT_EQ(Result.Out,
            "[\n"
            "  {\"CLIENTE\": \"000001\", \"NOMBRE\": \"Cañete Romero, Joaquín\", \"SALDO\": "
            "15823.47, \"LIMITE\": 7000, \"ALTA\": \"11/10/20\"},\n"
            "  {\"CLIENTE\": \"000002\", \"NOMBRE\": \"Peña Hernández, Rocío\", \"SALDO\": "
            "13578.73, \"LIMITE\": 13000, \"ALTA\": \"27/02/16\"}\n"
            "]\n");
}

TEST_F(SampleTables, ReportsTheSystemsErrorForABadFilter) {
  const ToolResult Result =
      Run({"export", Invoices(), "--filter", "(IVA = 4) AND (TOTAL > 5) NOT (COBRADA = S)"});
  EXPECT_EQ(Result.Status, 1);
  EXPECT_NE(Result.Err.find("error 50230: Error en filtro: "), std::string::npos) << Result.Err;
}

}  // namespace
}  // namespace tqdb::testing

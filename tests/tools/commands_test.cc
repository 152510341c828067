// The tqdb tool's commands on the sample tables: each step runs the tool and compares its
// exit status and parts of what it wrote. Steps run in order on the same tables.
#include <gtest/gtest.h>

#include <string>
#include <vector>

#include "tool_runner.h"

namespace tqdb::testing {
namespace {

struct Step {
  std::vector<std::string> Args;  // "@C" and "@F" stand for the tables, "@D" for the folder
  int Status = 0;
  std::vector<std::string> Out = {}, Err = {};  // parts the output must contain
};

class Commands : public SampleTablesTest {
 protected:
  void RunSteps(const std::vector<Step>& Steps) {
    for (const Step& S : Steps) {
      std::vector<std::string> Args;
      for (std::string Arg : S.Args) {
        for (const auto& [Mark, Path] : {std::pair<std::string, std::string>{"@C", Clients()},
                                         {"@F", Invoices()},
                                         {"@D", Dir.Dir()}}) {
          if (Arg.starts_with(Mark)) Arg = Path + Arg.substr(2);
        }
        Args.push_back(Arg);
      }
      const ToolResult Result = Run(Args);
      const std::string Command = S.Args.empty() ? "" : S.Args[0] + " " + S.Args.back();
      EXPECT_EQ(Result.Status, S.Status) << Command << "\n" << Result.Out << Result.Err;
      for (const std::string& Part : S.Out) {
        EXPECT_NE(Result.Out.find(Part), std::string::npos) << Command << ":\n" << Result.Out;
      }
      for (const std::string& Part : S.Err) {
        EXPECT_NE(Result.Err.find(Part), std::string::npos) << Command << ":\n" << Result.Err;
      }
    }
  }
};

TEST_F(Commands, InfoSeekSumExportExecAndErrors) {
  RunSteps({
      {{"info", "@C"},
       0,
       {"table CLIEN01: Clientes", "200 record places of 118 bytes, 200 live, 0 deleted",
        "SALDO                    3 double               8      8     106",
        "PROVINCIA[1,15] + NOMBRE[1,20]               length  35  depth 2, 200 entries",
        ", 200 entries"}},
      {{"seek", "@C", "00004A"}, 1, {"no record: not found (status 12)\n"}},
      {{"seek", "@C", "000200", "--option", "after"},
       1,
       {"no record: after the last entry (status 15)\n"}},
      // Key 3 is PROVINCIA[1,15] + NOMBRE[1,20]: one value per segment.
      {{"seek", "@C", "--key", "3", "Málaga", "Cañete Romero, Joaquín", "--fields", "CLIENTE",
        "--format", "csv"},
       0,
       {"CLIENTE\n000001\n"}},
      {{"sum", "@F", "TOTAL", "--filter", "CLIENTE = 000001 AND COBRADA = N"},
       0,
       {"sum of TOTAL over 6 records where CLIENTE = 000001 AND COBRADA = N: 15823.47\n"}},
      {{"export", "@F", "--filter", "CLIENTE = 000001 AND COBRADA = N", "--sort", "TOTAL DESC",
        "--fields", "NUMERO,TOTAL", "--link", "CLIEN.NOMBRE"},
       0,
       {"NUMERO,TOTAL,CLIEN.NOMBRE\n2024-0889,5724.85,\"Cañete Romero, Joaquín\"\n"}},
      {{"export", "@C", "--format", "json", "--limit", "2", "--fields",
        "CLIENTE,NOMBRE,SALDO,LIMITE,ALTA"},
       0,
       {"[\n  {\"CLIENTE\": \"000001\", \"NOMBRE\": \"Cañete Romero, Joaquín\", \"SALDO\": "
        "15823.47, \"LIMITE\": 7000, \"ALTA\": \"11/10/20\"},\n  {\"CLIENTE\": \"000002\", "
        "\"NOMBRE\": \"Peña Hernández, Rocío\", \"SALDO\": 13578.73, \"LIMITE\": 13000, "
        "\"ALTA\": \"27/02/16\"}\n]\n"}},
      {{"export", "@F", "--filter", "(IVA = 4) AND (TOTAL > 5) NOT (COBRADA = S)"},
       1,
       {},
       {"error 50230: Error en filtro: "}},
      {{"exec", "@F", "F\\1\\1", "N\\1", "S\\1\\1\\9999"},
       0,
       {"F\\1\\1  ->  result 1, status 0 (ok)\n", "N\\1  ->  result 2, status 0 (ok)\n",
        "status 15 (after the last entry)"}},
      {{"seek", "@DNOHAY01", "1"}, 1, {}, {"error 50999: La tabla NOHAY no existe en la ruta: "}},
      {{"sum", "@F", "PRECIO", "--filter", "IVA = 4"},
       1,
       {},
       {"error 50234: Campo PRECIO no existe"}},
      {{"seek", "@DX", "1"}, 2},
      {{"nosuch"}, 2},
  });
  EXPECT_FALSE(std::filesystem::exists(Dir.File("NOHAY.tqa")));
  for (const char* Command : {"create", "info", "import", "export", "seek", "sum", "update",
                              "delete", "check", "rebuild", "reindex", "exec"}) {
    RunSteps({{{Command, "--help"}, 0, {"TABLE"}}});
  }
}

TEST_F(Commands, UpdateDeleteAndImportKeepTheTableSound) {
  Dir.Write("stop.csv",
            "CLIENTE,NOMBRE,SALDO,ALTA\n900001,Primero,10.5,01/02/2024\n"
            "900002,Segundo,diez,01/02/2024\n900004,Cuarto,4,01/03/2024\n");
  Dir.Write("skip.csv",
            "cliente,nombre,limite,alta\n"  // any case
            "910001,Primero,5,01/02/2024\n"
            "910002,Segundo,1.5,01/02/2024\n"              // not whole
            "910003,\"Tercero, con coma\",3,31/02/2024\n"  // no such day
            "910004,Un nombre mucho más largo de lo que cabe en el campo,4,\n"
            "910005,Quinto\n"  // too few values
            "910006,\"Sexto\",6,29/02/2024\n");
  Dir.Write("column.csv", "CLIENTE,TELEFONO\n920001,555\n");
  RunSteps({
      {{"update", "@C", "000042", "--set", "PROVINCIA=Asturias", "--set", "POBLACION=Gijón",
        "--set", "LIMITE=6000", "--fields", "POBLACION,LIMITE", "--format", "csv"},
       0,
       {"updated record 42\nPOBLACION,LIMITE\nGijón,6000\n"}},
      {{"update", "@C", "000042", "--set", "LIMITE=mucho"},
       1,
       {},
       {"LIMITE: 'mucho' is not a number"}},
      {{"update", "@C", "999999", "--set", "LIMITE=1"}, 1, {"nothing changed"}},
      {{"import", "@C", "@Dstop.csv"},
       1,
       {"stopped at line 3: 1 rows before it were imported"},
       {"stop.csv:3: SALDO: 'diez' is not a number"}},
      {{"seek", "@C", "900001"}, 0},
      {{"seek", "@C", "900004"}, 1},
      {{"import", "@C", "@Dskip.csv", "--skip-bad"},
       0,
       {"imported 2 rows into CLIEN01; skipped 4 bad rows\n"},
       {":3: LIMITE: '1.5' is not a whole number", ":4: ALTA: '31/02/2024' is not a date",
        ":5: NOMBRE: ", ":6: 2 values, the header has 4"}},
      {{"seek", "@C", "910006", "--fields", "NOMBRE,ALTA,LIMITE"}, 0, {"Sexto   29/02/24  6"}},
      {{"import", "@C", "@Dcolumn.csv"}, 1, {}, {"column 'TELEFONO' is not a field"}},
      {{"seek", "@C", "920001"}, 1},
      {{"check", "@C"}, 0, {"CLIEN01: ok (3 keys, 203 live records, 0 deleted)\n"}},
      {{"delete", "@F", "2023-0040"}, 0, {"deleted record 40\n"}},
      {{"delete", "@F", "2023-0040"}, 1},
      {{"delete", "@F", "--filter", "CLIENTE = 000042"},
       0,
       {"deleted 6 records where CLIENTE = 000042\n"}},
      {{"delete", "@F"}, 2},  // neither values nor a filter
      {{"check", "@F"}, 0, {"FACTU01: ok (3 keys, 1993 live records, 7 deleted)\n"}},
  });
}

TEST_F(Commands, ExportedCsvImportsIntoAnIdenticalTable) {
  const ToolResult First = Run({"export", Clients(), "--key", "2"});
  ASSERT_EQ(First.Status, 0) << First.Err;
  EXPECT_EQ(CountLines(First.Out, ","), 201);  // the header and 200 rows
  Dir.Write("clients.csv", First.Out);
  RunSteps({{{"create", ExamplesDir() + "/CLIEN.schema", "@DCLIEN02"}, 0},
            {{"import", "@DCLIEN02", "@Dclients.csv"}, 0, {"imported 200 rows into CLIEN02\n"}}});
  EXPECT_EQ(Run({"export", Dir.File("CLIEN02"), "--key", "2"}).Out, First.Out);
}

}  // namespace
}  // namespace tqdb::testing

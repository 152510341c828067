// The tqdb tool's commands on the sample tables: each step runs the tool and compares its
// exit status and parts of what it wrote. Also check on damaged tables and the repairs
// that make them pass again, and create: the dictionary it writes and what it refuses.
#include <gtest/gtest.h>

#include <cstdint>
#include <string>
#include <vector>

#include "engine/key_codec.h"
#include "support/table_writer.h"
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
      {{"seek", "@C", "000001", "--count", "3", "--fields", "CLIENTE", "--format", "csv"},
       0,
       {"CLIENTE\n000001\n000002\n000003\n"}},
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

class CheckCommand : public SampleTablesTest {
 protected:
  // Runs check, expects Status and returns the output.
  std::string Check(int Status) {
    const ToolResult Result = Run({"check", Invoices()});
    EXPECT_EQ(Result.Status, Status) << Result.Out;
    return Result.Out;
  }
  void ExpectRepairedBy(const std::string& Command) {
    const ToolResult Repair = Run({Command, Invoices()});
    ASSERT_EQ(Repair.Status, 0) << Repair.Out << Repair.Err;
    EXPECT_NE(Repair.Out.find(Command + ": 100%\n"), std::string::npos) << Repair.Out;
    Check(0);
  }
  // Replaces record Record (1-based, 80 bytes) of the data file.
  void SetRecord(int Record, const std::string& Bytes) {
    std::string Data = Dir.Read("FACTU01.tqd");
    Dir.Write("FACTU01.tqd", Data.replace(size_t(Record - 1) * 80, 80, Bytes));
  }
};

// The record numbers of the first two entries of key 1 swapped: the leftmost leaf is found
// from the header (15 bytes), the descriptors (key length, 1-based root) and the nodes
// (kind, count, entries of key text and a 4-byte number).
TEST_F(CheckCommand, FindsEntriesThatPointAtTheWrongRecords) {
  EXPECT_EQ(Check(0), "FACTU01: ok (3 keys, 2000 live records, 0 deleted)\n");
  std::string Bytes = Dir.Read("FACTU01.TQC");
  const size_t Length = static_cast<uint8_t>(Bytes[15]);
  const auto At = [&](size_t Place) {  // the 1-based position stored at Place, as an index
    return size_t(engine::LoadInt32(reinterpret_cast<const uint8_t*>(Bytes.data()) + Place) - 1);
  };
  size_t Node = At(16);
  while (Bytes[Node] == 1) Node = At(Node + 3 + Length);
  const size_t First = Node + 3 + Length, Second = First + Length + 4;
  const std::string A = Bytes.substr(First, 4);
  Bytes.replace(First, 4, Bytes.substr(Second, 4)).replace(Second, 4, A);
  Dir.Write("FACTU01.TQC", Bytes);
  const std::string Out = Check(1);
  EXPECT_EQ(Out.substr(0, Out.find('\n')),
            "FACTU01: 2 problems (3 keys, 2000 live records, 0 deleted)");
  EXPECT_NE(Out.find("key 1: the entry for record 2 holds \"2023-0001\", the record's key "
                     "text is \"2023-0002\""),
            std::string::npos)
      << Out;
  ExpectRepairedBy("rebuild");
}

TEST_F(CheckCommand, FindsRecordsDeletedOrRevivedBehindTheKeysBack) {
  SetRecord(5, "ANULADO" + std::string(73, '\0'));
  std::string Out = Check(1);
  EXPECT_EQ(CountLines(Out, "entry for deleted record 5"), 3) << Out;
  EXPECT_EQ(CountLines(Out, "deleted record 5 is not on the deleted-record stack"), 1);
  ExpectRepairedBy("reindex");
  EXPECT_EQ(Check(0), "FACTU01: ok (3 keys, 1999 live records, 1 deleted)\n");
  ASSERT_EQ(Run({"delete", Invoices(), "2023-0007"}).Status, 0);
  SetRecord(7, Dir.Read("FACTU01.tqd").substr(7 * 80, 80));  // alive in the data only
  Out = Check(1);
  EXPECT_NE(Out.find("deleted-record stack: record 7 is a live record"), std::string::npos) << Out;
  ExpectRepairedBy("reindex");
}

// Check writes nothing: a missing key file stays missing until an open builds it.
TEST_F(CheckCommand, AMissingKeyFileIsAProblemAndRebuildDropsDeletedRecords) {
  ASSERT_TRUE(std::filesystem::remove(Dir.File("FACTU01.TQC")));
  EXPECT_NE(Check(1).find("FACTU01.tqc does not exist"), std::string::npos);
  EXPECT_FALSE(std::filesystem::exists(Dir.File("FACTU01.TQC")));
  ASSERT_EQ(Run({"delete", Invoices(), "--filter", "COBRADA = N"}).Status, 0);
  const ToolResult Rebuild = Run({"rebuild", Invoices()});
  ASSERT_EQ(Rebuild.Status, 0) << Rebuild.Err;
  EXPECT_NE(Rebuild.Out.find("before: 2000 record places, 259 deleted\n"), std::string::npos)
      << Rebuild.Out;
  EXPECT_NE(Rebuild.Out.find("after: 1741 record places, 0 deleted\n"), std::string::npos);
  EXPECT_EQ(Check(0), "FACTU01: ok (3 keys, 1741 live records, 0 deleted)\n");
}

TEST(CreateCommand, WritesTheDictionaryRecordByRecordAndSharesOnlyAnIdenticalOne) {
  TempDir Dir;
  Dir.Write("artic.schema",
            "# articles\ntable ARTIC \"Artículos\"\nfield CODIGO text 8\n"
            "field NOMBRE text 30 id 7   # explicit id\nfield PRECIO double\nfield ALTA   date\n"
            "key 1 CODIGO\nkey 2 NOMBRE[1,20] CODIGO[3,4]\n");
  Dir.Write("other.schema", "table ARTIC \"Otra\"\nfield CODIGO text 4\n");
  const auto Create = [&](const std::string& Schema, const std::string& Table,
                          const char* Force = nullptr) {
    std::vector<std::string> Args{"create", Dir.File(Schema), Dir.File(Table)};
    if (Force != nullptr) Args.push_back(Force);
    return RunTool(Dir, Args);
  };
  ToolResult Result = Create("artic.schema", "ARTIC01");
  ASSERT_EQ(Result.Status, 0) << Result.Err;
  EXPECT_NE(Result.Out.find("4 fields, 2 keys, records of 52 bytes"), std::string::npos);
  const std::string Expected = DictionaryBytes(
      {"Art\xED"
       "culos",
       {{"CODIGO", 10, 8, 1}, {"NOMBRE", 10, 30, 7}, {"PRECIO", 3, 8, 3}, {"ALTA", 5, 6, 4}},
       {{{{1, 1, 8}}}, {{{2, 1, 20}, {1, 3, 4}}}}});
  EXPECT_EQ(Dir.Read("ARTIC.tqa"), Expected);
  EXPECT_TRUE(std::filesystem::exists(Dir.File("ARTIC01.tqd")));
  EXPECT_EQ(Dir.Read("ARTIC01.tqd"), "");
  EXPECT_FALSE(std::filesystem::exists(Dir.File("ARTIC01.tqc")));
  EXPECT_EQ(Create("artic.schema", "ARTIC02").Status, 0);  // a second data set shares it
  EXPECT_TRUE(std::filesystem::exists(Dir.File("ARTIC02.tqd")));
  Result = Create("other.schema", "ARTIC03");
  EXPECT_EQ(Result.Status, 1);
  EXPECT_NE(Result.Err.find("--force"), std::string::npos) << Result.Err;
  EXPECT_EQ(Dir.Read("ARTIC.tqa"), Expected);
  EXPECT_EQ(Create("other.schema", "ARTIC03", "--force").Status, 0);
  EXPECT_EQ(Dir.Read("ARTIC.tqa").substr(0, 2), "01");
  Result = Create("artic.schema", "CLIEN01");  // a table name that differs from the schema
  EXPECT_EQ(Result.Status, 2);
  EXPECT_NE(Result.Err.find("describes table ARTIC"), std::string::npos) << Result.Err;
  EXPECT_FALSE(std::filesystem::exists(Dir.File("CLIEN.tqa")));
}

std::string Fields(int Count, int Length = 2) {
  std::string Text;
  for (int I = 1; I <= Count; ++I) {
    Text += "field F" + std::to_string(I) + " text " + std::to_string(Length) + "\n";
  }
  return Text;
}

// Schemas a dictionary cannot hold, or that do not make sense: the words of the refusal,
// and nothing written.
TEST(CreateCommand, SaysWhatIsWrongAndWritesNothing) {
  for (const auto& [Schema, Message] : std::vector<std::pair<std::string, std::string>>{
           {Fields(100), "100 fields; at most 99"},
           {Fields(3, 99) + "key 1 F1 F2 F3[1,58]\n", "256 characters long; at most 255"},
           {"field A text 1\nfield a text 2\n", "defined twice"},
           {"index 1 F1\n", "schema line 2: unknown directive"}}) {
    TempDir Dir;
    Dir.Write("t.schema", "table TABLA \"Prueba\"\n" + Schema);
    const ToolResult Result = RunTool(Dir, {"create", Dir.File("t.schema"), Dir.File("TABLA01")});
    EXPECT_EQ(Result.Status, 1) << Message;
    EXPECT_NE(Result.Err.find(Message), std::string::npos) << Result.Err;
    EXPECT_FALSE(std::filesystem::exists(Dir.File("TABLA.tqa"))) << Message;
    EXPECT_FALSE(std::filesystem::exists(Dir.File("TABLA01.tqd"))) << Message;
  }
}

}  // namespace
}  // namespace tqdb::testing

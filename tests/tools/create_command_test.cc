// tqdb create: the dictionary written from a schema, byte by byte, and the refusals of
// what a dictionary cannot hold.
#include <gtest/gtest.h>

#include <string>

#include "tool_runner.h"

namespace tqdb::testing {
namespace {

std::string Padded(std::string Text, size_t Width) {
  Text.resize(Width, ' ');
  return Text;
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
  const std::string Description = Padded(std::string("Art\xED") + "culos", 23);
  const std::string Expected =
      "04" + std::string(6, ' ') + Description + "  " + "    0810" + Padded("CODIGO", 23) + "01" +
      "    3010" + Padded("NOMBRE", 23) + "07" + "    0803" + Padded("PRECIO", 23) + "03" +
      "    0605" + Padded("ALTA", 23) + "04" + "I1010108" + Padded("CODIGO", 23) + "01" +
      "I2020120" + Padded("NOMBRE", 23) + "07" + "I2010304" + Padded("CODIGO", 23) + "01" +
      std::string(27 * 33, ' ');  // blank records fill the 30 key slots
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
  std::string FiveKeys;
  for (int I = 1; I <= 5; ++I) FiveKeys += "key " + std::to_string(I) + " F1 F2 F3 F4 F5\n";
  for (const auto& [Schema, Message] : std::vector<std::pair<std::string, std::string>>{
           {Fields(100), "100 fields; at most 99"},
           {"field ABCDEFGHIJKLMNOPQRSTUVWXY text 2\n", "longer than 23 characters"},
           {Fields(3, 99) + "key 1 F1 F2 F3[1,58]\n", "256 characters long; at most 255"},
           {Fields(99, 1) + FiveKeys + "key 6 F1 F2\n", "do not fit the 4000 bytes"},
           {Fields(20, 2000), "at most 32766"},
           {Fields(1, 4) + "key 1 F1[3,3]\n", "the length of segment F1[3,3]"},
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

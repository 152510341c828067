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

constexpr const char* kArticles =
    "# articles\n"
    "table ARTIC \"Artículos\"\n"
    "field CODIGO text 8\n"
    "field NOMBRE text 30 id 7   # explicit id\n"
    "field PRECIO double\n"
    "field ALTA   date\n"
    "key 1 CODIGO\n"
    "key 2 NOMBRE[1,20] CODIGO[3,4]\n";

class CreateCommand : public ::testing::Test {
 protected:
  void SetUp() override { Dir.Write("artic.schema", kArticles); }
  ToolResult Create(const std::string& Schema, const std::string& Table,
                    std::vector<std::string> Extra = {}) {
    std::vector<std::string> Args = {"create", Dir.File(Schema), Dir.File(Table)};
    Args.insert(Args.end(), Extra.begin(), Extra.end());
    return RunTool(Dir, Args);
  }

  TempDir Dir;
};

TEST_F(CreateCommand, WritesTheDictionaryRecordByRecord) {
  const ToolResult Result = Create("artic.schema", "ARTIC01");
  ASSERT_EQ(Result.Status, 0) << Result.Err;
  EXPECT_NE(Result.Out.find("4 fields, 2 keys, records of 52 bytes"), std::string::npos);

  const std::string Description = Padded(std::string("Art\xED") + "culos", 23);
  std::string Expected = "04" + std::string(6, ' ') + Description + "  ";
  Expected += "    0810" + Padded("CODIGO", 23) + "01";
  Expected += "    3010" + Padded("NOMBRE", 23) + "07";
  Expected += "    0803" + Padded("PRECIO", 23) + "03";
  Expected += "    0605" + Padded("ALTA", 23) + "04";
  Expected += "I1010108" + Padded("CODIGO", 23) + "01";
  Expected += "I2020120" + Padded("NOMBRE", 23) + "07";
  Expected += "I2010304" + Padded("CODIGO", 23) + "01";
  // Blank records fill the 30 key slots.
  Expected += std::string(27 * 33, ' ');
  EXPECT_EQ(Dir.Read("ARTIC.tqa"), Expected);
  EXPECT_TRUE(std::filesystem::exists(Dir.File("ARTIC01.tqd")));
  EXPECT_EQ(Dir.Read("ARTIC01.tqd"), "");
  EXPECT_FALSE(std::filesystem::exists(Dir.File("ARTIC01.tqc")));
}

TEST_F(CreateCommand, SharesAnIdenticalDictionaryAndRefusesADifferentOne) {
  ASSERT_EQ(Create("artic.schema", "ARTIC01").Status, 0);
  // A second data set of the same table keeps the dictionary.
  EXPECT_EQ(Create("artic.schema", "ARTIC02").Status, 0);
  EXPECT_TRUE(std::filesystem::exists(Dir.File("ARTIC02.tqd")));

  const std::string Description = Padded(std::string("Art\xED") + "culos", 23);
  Dir.Write("other.schema", "table ARTIC \"Otra\"\nfield CODIGO text 4\n");
  ToolResult Result = Create("other.schema", "ARTIC03");
  EXPECT_EQ(Result.Status, 1);
  EXPECT_NE(Result.Err.find("--force"), std::string::npos) << Result.Err;
  EXPECT_EQ(Dir.Read("ARTIC.tqa").substr(8, 23), Description);

  Result = Create("other.schema", "ARTIC03", {"--force"});
  EXPECT_EQ(Result.Status, 0) << Result.Err;
  EXPECT_EQ(Dir.Read("ARTIC.tqa").substr(0, 2), "01");
}

TEST_F(CreateCommand, RefusesATableNameThatDiffersFromTheSchema) {
  const ToolResult Result = Create("artic.schema", "CLIEN01");
  EXPECT_EQ(Result.Status, 2);
  EXPECT_NE(Result.Err.find("describes table ARTIC"), std::string::npos) << Result.Err;
  EXPECT_FALSE(std::filesystem::exists(Dir.File("CLIEN.tqa")));
}

// Schemas a dictionary cannot hold, or that do not make sense, and the words of the refusal.
struct Refusal {
  const char* Name;
  std::string Schema;
  std::string Message;
};

std::string Fields(int Count, int Length = 2) {
  std::string Text;
  for (int I = 1; I <= Count; ++I) {
    Text += "field F" + std::to_string(I) + " text " + std::to_string(Length) + "\n";
  }
  return Text;
}

std::string Keys(int Count, const std::string& Segments) {
  std::string Text;
  for (int I = 1; I <= Count; ++I) Text += "key " + std::to_string(I) + " " + Segments + "\n";
  return Text;
}

void PrintTo(const Refusal& Case, std::ostream* Out) { *Out << Case.Name; }

const std::string kHead = "table TABLA \"Prueba\"\n";

class CreateRefusal : public ::testing::TestWithParam<Refusal> {};

TEST_P(CreateRefusal, SaysWhatIsWrongAndWritesNothing) {
  TempDir Dir;
  Dir.Write("t.schema", GetParam().Schema);
  const ToolResult Result = RunTool(Dir, {"create", Dir.File("t.schema"), Dir.File("TABLA01")});
  EXPECT_EQ(Result.Status, 1);
  EXPECT_NE(Result.Err.find(GetParam().Message), std::string::npos) << Result.Err;
  EXPECT_FALSE(std::filesystem::exists(Dir.File("TABLA.tqa")));
  EXPECT_FALSE(std::filesystem::exists(Dir.File("TABLA01.tqd")));
}

INSTANTIATE_TEST_SUITE_P(
    Limits, CreateRefusal,
    ::testing::Values(
        Refusal{"TooManyFields", kHead + Fields(100), "100 fields; at most 99"},
        Refusal{"LongFieldName", kHead + "field ABCDEFGHIJKLMNOPQRSTUVWXY text 2\n",
                "longer than 23 characters"},
        Refusal{"KeyTooLong", kHead + Fields(3, 99) + "key 1 F1 F2 F3[1,58]\n",
                "256 characters long; at most 255"},
        Refusal{"RecordsBeyondTheReadPart",
                kHead + Fields(99, 1) + Keys(5, "F1 F2 F3 F4 F5") + "key 6 F1 F2\n",
                "do not fit the 4000 bytes"},
        Refusal{"RecordTooLong", kHead + Fields(20, 2000), "at most 32766"},
        Refusal{"SegmentBeyondItsField", kHead + Fields(1, 4) + "key 1 F1[3,3]\n",
                "the length of segment F1[3,3]"},
        Refusal{"DuplicateField", kHead + "field A text 1\nfield a text 2\n", "defined twice"},
        Refusal{"UnknownDirective", kHead + "index 1 F1\n", "schema line 2: unknown directive"}),
    [](const auto& Info) { return std::string(Info.param.Name); });

}  // namespace
}  // namespace tqdb::testing

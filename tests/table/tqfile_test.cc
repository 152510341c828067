// The public table object: initial state, read-only properties, the engine channel as a
// client sees it, and the error boundary at the public face.
#include "table/TQFile.h"

#include <gtest/gtest.h>

#include <algorithm>
#include <functional>
#include <string>
#include <tuple>
#include <utility>
#include <vector>

#include <array>

#include "engine/key_file.h"
#include "support/temp_dir.h"
#include "table/TableState.h"

namespace tqdb {
namespace {

TEST(TQFileTest, BofAndEofFollowTheStatus) {
  for (const auto& [Status, Bof, Eof] :
       std::vector<std::tuple<int16_t, bool, bool>>{{0, false, false},
                                                    {12, false, false},
                                                    {13, true, false},
                                                    {15, false, true},
                                                    {16, true, true},
                                                    {22, false, false}}) {
    TQFile Table;
    Table.State().LastError = Status;
    EXPECT_EQ(Table.Bof(), Bof) << "status " << Status;
    EXPECT_EQ(Table.Eof(), Eof) << "status " << Status;
  }
  TQFile Fresh;
  EXPECT_EQ(Fresh.Index(), 1);
  EXPECT_FALSE(Fresh.Bof() || Fresh.Eof());
}

TEST(TQFileTest, TextsCrossTheInterfaceAsUtf8AndEditModeIsSixteenBits) {
  TQFile Table;
  Table.State().TableName =
      "COMPA\xD1\xCD"
      "A";                                                       // Windows-1252
  Table.State().TableDescripcion = "Pagos en \x80 \x96 a\xF1o";  // "€", "–", "ñ"
  EXPECT_EQ(Table.TableName(), "COMPAÑÍA");
  EXPECT_EQ(Table.TableDescripcion(), "Pagos en € – año");
  Table.SetEngineCommand("G\\1\\3\\MUÑOZ €");
  EXPECT_EQ(Table.State().EngineCommand, "G\\1\\3\\MU\xD1OZ \x80");
  EXPECT_EQ(Table.EngineCommand(), "G\\1\\3\\MUÑOZ €");
  Table.SetEngineCommand("S\\1\\3\\東京");  // no Windows-1252 form
  EXPECT_EQ(Table.State().EngineCommand, "S\\1\\3\\??");
  Table.State().EditState = 70000;
  try {
    Table.EditMode();
    FAIL() << "no error raised";
  } catch (const TQError& Error) {
    EXPECT_EQ(Error.Number(), 6);
    EXPECT_EQ(Error.Source(), "EditMode");
  }
}

// Sends Command through the public channel; returns the status.
int16_t Send(TQFile& Table, const std::string& Command) {
  Table.SetEngineCommand(Command);
  Table.ExecuteCommand();
  return Table.LastError();
}

TEST(TQFileChannelTest, KeysTravelAsWindows1252AndAreFoundInUpperCase) {
  testing::TempDir Dir;
  const std::string Path = Dir.File("CLIEN01.tqc");
  engine::CreateEmptyKeyFile(Path, std::array<int, 1>{10});
  std::string CommandPath = Path;
  std::replace(CommandPath.begin(), CommandPath.end(), '/', '\\');
  TQFile Table;
  ASSERT_EQ(Send(Table, "/O/" + CommandPath + "/1"), 0);
  EXPECT_EQ(Send(Table, "i\\1\\garcía"), 0);
  const int32_t Garcia = Table.State().Engine.LastAllocated;
  EXPECT_EQ(Send(Table, "i\\1\\muñoz"), 0);
  EXPECT_EQ(Table.EngineCommand(), "I\\1\\MUÑOZ");
  const int32_t Munoz = Table.State().Engine.LastAllocated;
  EXPECT_EQ(Send(Table, "G\\1\\1\\MUÑ"), 0);
  EXPECT_EQ(Table.EngineResult(), Munoz);
  EXPECT_EQ(Send(Table, "S\\1\\1\\GARCÍA    "), 0);
  EXPECT_EQ(Table.EngineResult(), Garcia);
}

// Faults 52 and 63 inside a command are statuses 100 and 101; any other fault reaches the
// caller as error 55000 with the fault's description and no source, status 105.
TEST(TQFileTest, FaultsInsideACommandBecomeStatusesOrError55000) {
  TQFile Table;
  EXPECT_EQ(Send(Table, "I\\1\\GARCIA"), 100);     // no key file number open
  EXPECT_EQ(Send(Table, "G\\1\\1\\GARCIA"), 101);  // key 1 is not defined
  EXPECT_EQ(Table.EngineResult(), 0);
  for (const auto& [Command, Description] : std::vector<std::pair<std::string, std::string>>{
           {"F\\99999\\1", "Desbordamiento"},
           {"L\\11\\1", "El subíndice está fuera del intervalo"}}) {
    try {
      Send(Table, Command);
      ADD_FAILURE() << Command << " raised nothing";
    } catch (const TQError& Error) {
      EXPECT_EQ(Error.Number(), 55000) << Command;
      EXPECT_EQ(Error.Description(), Description);
      EXPECT_EQ(Error.Source(), "");
    }
    EXPECT_EQ(Table.LastError(), 105) << Command;
  }
}

// Every public member called on a table that was never opened either works or raises a
// TQError with a number and a description; nothing else escapes.
TEST(TQFileTest, MembersOnANeverOpenedTableRaiseOnlyTQError) {
  const std::string Missing = ::testing::TempDir() + "tqdb_no_such_dir/";
  using Call = std::function<void(TQFile&)>;
  const std::vector<std::pair<std::string, Call>> Members = {
      {"OpenFile", [&](TQFile& T) { T.OpenFile(Missing + "CLIEN01", Missing); }},
      {"CloseDB", [](TQFile& T) { T.CloseDB(); }},
      {"KillDB", [](TQFile& T) { T.KillDB(false); }},
      {"MoveFirst", [](TQFile& T) { T.MoveFirst(); }},
      {"MoveLast", [](TQFile& T) { T.MoveLast(); }},
      {"MoveNext", [](TQFile& T) { T.MoveNext(); }},
      {"MovePrevious", [](TQFile& T) { T.MovePrevious(); }},
      {"BookMark", [](TQFile& T) { T.BookMark(); }},
      {"BookMark", [](TQFile& T) { T.SetBookMark(1); }},
      {"Position", [](TQFile& T) { T.Position(); }},
      {"Position", [](TQFile& T) { T.SetPosition(1); }},
      {"RecordCount", [](TQFile& T) { T.RecordCount(); }},
      {"Fields", [](TQFile& T) { T.Fields(Variant("NOMBRE")); }},
      {"Fields", [](TQFile& T) { T.SetFields(Variant(int32_t{1}), Variant("X")); }},
      {"KField", [](TQFile& T) { T.KField(1); }},
      {"KField", [](TQFile& T) { T.SetKField(1, 0, Variant(1.5)); }},
      {"FieldName", [](TQFile& T) { T.FieldName(1); }},
      {"FieldLength", [](TQFile& T) { T.FieldLength(1); }},
      {"FieldType", [](TQFile& T) { T.FieldType(1); }},
      {"FieldType", [](TQFile& T) { T.SetFieldType(1, 4); }},
      {"GetKeyField", [](TQFile& T) { T.GetKeyField(1); }},
      {"AddNew", [](TQFile& T) { T.AddNew(); }},
      {"Edit", [](TQFile& T) { T.Edit(); }},
      {"Update", [](TQFile& T) { T.Update(); }},
      {"Delete", [](TQFile& T) { T.Delete(1); }},
      {"DeletedRecordCount", [](TQFile& T) { T.DeletedRecordCount(); }},
      {"SeekKey", [](TQFile& T) { T.SeekKey(Variant("GARCIA")); }},
      {"GetSpecialSeekKeys", [](TQFile& T) { T.GetSpecialSeekKeys(); }},
      {"ReIndex", [](TQFile& T) { T.ReIndex(); }},
      {"Rebuild", [](TQFile& T) { T.Rebuild(); }},
      {"Filter", [](TQFile& T) { T.Filter("NOMBRE = GARCIA"); }},
      {"Sort", [](TQFile& T) { T.Sort("NOMBRE"); }},
      {"LinkChild", [](TQFile& T) { T.LinkChild("FACTU", "", Variant("CLIENTE")); }},
      {"LinkParent", [](TQFile& T) { T.LinkParent("CLIEN", Variant("CLIENTE")); }},
      {"Sum", [](TQFile& T) { T.Sum(Variant("SALDO")); }},
      {"AddToField", [](TQFile& T) { T.AddToField(Variant("SALDO"), 1); }},
      {"AddToKField", [](TQFile& T) { T.AddToKField(1, 1); }},
  };
  for (const auto& [Name, Member] : Members) {
    TQFile Table;
    try {
      Member(Table);
    } catch (const TQError& Error) {
      EXPECT_NE(Error.Number(), 0) << Name;
      EXPECT_FALSE(Error.Description().empty()) << Name;
    } catch (...) {
      ADD_FAILURE() << Name << " raised something other than TQError";
    }
  }
}

}  // namespace
}  // namespace tqdb

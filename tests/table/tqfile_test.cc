// The public table object: initial state, read-only properties, the engine channel as a
// client sees it, the error boundary, and what destroying a table's state releases.
#include "table/TQFile.h"

#include <gtest/gtest.h>

#include <algorithm>
#include <array>
#include <functional>
#include <memory>
#include <new>
#include <stdexcept>
#include <string>
#include <tuple>
#include <utility>
#include <vector>

#include "engine/key_file.h"
#include "platform/fault.h"
#include "platform/file_pool.h"
#include "support/temp_dir.h"
#include "table/TableState.h"
#include "table/error_boundary.h"

namespace tqdb {
namespace {

// The error Work raises as a TQError (number, description, source); number 0 for none,
// -1 for anything else.
std::tuple<int32_t, std::string, std::string> ErrorOf(const std::function<void()>& Work) {
  try {
    Work();
  } catch (const TQError& Error) {
    return {Error.Number(), Error.Description(), Error.Source()};
  } catch (...) {
    return {-1, "", ""};
  }
  return {0, "", ""};
}

// Texts cross the interface as UTF-8 and travel as Windows-1252; keys are found in upper
// case. Faults 52 and 63 inside a command are statuses 100 and 101; any other fault reaches
// the caller as error 55000 with the fault's description and no source, status 105.
TEST(TQFileTest, TheEngineChannelAsAClientSeesIt) {
  const auto Send = [](TQFile& Table, const std::string& Command) {
    Table.SetEngineCommand(Command);
    Table.ExecuteCommand();
    return Table.LastError();
  };
  TQFile Table;
  Table.State().TableDescripcion = "Pagos en \x80 \x96 a\xF1o";  // "€", "–", "ñ"
  EXPECT_EQ(Table.TableDescripcion(), "Pagos en € – año");
  Table.SetEngineCommand("S\\1\\3\\東京");  // no Windows-1252 form
  EXPECT_EQ(Table.State().EngineCommand, "S\\1\\3\\??");
  EXPECT_EQ(Send(Table, "I\\1\\GARCIA"), 100);  // no key file number open
  testing::TempDir Dir;
  engine::CreateEmptyKeyFile(Dir.File("CLIEN01.tqc"), std::array<int, 1>{10});
  std::string Path = Dir.File("CLIEN01.tqc");
  std::replace(Path.begin(), Path.end(), '/', '\\');
  ASSERT_EQ(Send(Table, "/O/" + Path + "/1"), 0);
  EXPECT_EQ(Send(Table, "G\\2\\1\\GARCIA"), 101);  // key 2 is not defined
  EXPECT_EQ(Send(Table, "i\\1\\garcía"), 0);
  const int32_t Garcia = Table.State().Engine.LastAllocated;
  EXPECT_EQ(Send(Table, "i\\1\\muñoz"), 0);
  EXPECT_EQ(Table.State().EngineCommand, "I\\1\\MU\xD1OZ");
  EXPECT_EQ(Table.EngineCommand(), "I\\1\\MUÑOZ");
  EXPECT_EQ(Send(Table, "S\\1\\1\\GARCÍA    "), 0);
  EXPECT_EQ(Table.EngineResult(), Garcia);
  for (const auto& [Command, Description] : std::vector<std::pair<std::string, std::string>>{
           {"F\\99999\\1", "Desbordamiento"}, {"L\\11\\1", platform::FaultDescription(9)}}) {
    EXPECT_EQ(ErrorOf([&, &Command = Command] { Send(Table, Command); }),
              std::make_tuple(55000, Description, std::string()));
    EXPECT_EQ(Table.LastError(), 105) << Command;
  }
  Table.State().EditState = 70000;
  EXPECT_EQ(ErrorOf([&] { Table.EditMode(); }),
            std::make_tuple(6, platform::FaultDescription(6), std::string("EditMode")));
}

TEST(GuardTest, TurnsEveryExceptionIntoATQError) {
  EXPECT_EQ(Guard("Member", [] { return std::string("texto"); }), "texto");
  for (const auto& [Work, Number, Description, Source] :
       std::vector<std::tuple<std::function<void()>, int32_t, std::string, std::string>>{
           {[] { throw TQError(50999, "La tabla X no existe", "OpenFile"); }, 50999,
            "La tabla X no existe", "OpenFile"},
           // The system's own errors (50000 and up) carry no source.
           {[] { throw platform::Fault(50234, "Campo X no existe"); }, 50234, "Campo X no existe",
            ""},
           {[] { throw platform::Fault(50000, "Propio"); }, 50000, "Propio", ""},
           {[] { throw platform::Fault(platform::kBadFileNumber); }, 52,
            platform::FaultDescription(52), "Member"},
           {[] { throw platform::Fault(70, "Permiso denegado", "LockRange"); }, 70,
            "Permiso denegado", "LockRange"},
           {[] { throw std::bad_alloc(); }, 7, "Memoria insuficiente", "Member"},
           {[] { throw std::out_of_range("vector"); }, 5, platform::FaultDescription(5), "Member"},
           {[] { throw 3; }, 5, platform::FaultDescription(5), "Member"}}) {
    EXPECT_EQ(ErrorOf([&, &Work = Work] { Guard("Member", Work); }),
              std::make_tuple(Number, Description, Source));
  }
}

// Destroying a table's state closes and frees its file numbers, its linked tables' too,
// and writes nothing (an edit left pending is dropped).
TEST(TableStateTest, DestructionClosesAndFreesEveryNumberAndWritesNothing) {
  testing::TempDir Dir;
  const auto OpenOnNewNumber = [&](const std::string& Name) {
    const platform::FileNo Number = platform::TakeFreeNumber();
    platform::Open(Number, Dir.File(Name));
    return Number;
  };
  std::vector<platform::FileNo> Freed;
  {
    TableState State;
    State.DataFileNo = OpenOnNewNumber("CLIEN01.tqd");
    platform::WriteAt(State.DataFileNo, 1, std::string_view("REGISTRO"));
    State.DataFileOpen = true;
    State.ImageFileNo = OpenOnNewNumber("CLIEN01.tqw");
    State.Engine.KeyFileNo = platform::TakeFreeNumber();  // taken, never opened
    State.EditState = 2;                                  // an AddNew left pending
    State.EngineResult = 1;
    State.LinkedTables[3].Name = "FACTU";
    State.LinkedTables[3].Table = std::make_unique<TQFile>();
    State.LinkedTables[3].Table->State().DataFileNo = OpenOnNewNumber("FACTU01.tqd");
    for (const int32_t N :
         {int32_t(State.DataFileNo), State.ImageFileNo, int32_t(State.Engine.KeyFileNo),
          int32_t(State.LinkedTables[3].Table->State().DataFileNo)}) {
      Freed.push_back(static_cast<platform::FileNo>(N));
    }
  }
  std::vector<platform::FileNo> Again;
  for (platform::FileNo N : Freed) {
    EXPECT_FALSE(platform::IsOpen(N)) << N;
    Again.push_back(platform::TakeFreeNumber());
  }
  for (platform::FileNo N : Again) platform::ReleaseNumber(N);
  std::sort(Freed.begin(), Freed.end());
  std::sort(Again.begin(), Again.end());
  EXPECT_EQ(Again, Freed);  // the numbers are free again
  EXPECT_EQ(Dir.Read("CLIEN01.tqd"), "REGISTRO");
}

}  // namespace
}  // namespace tqdb

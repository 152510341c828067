// A failed operation leaves nothing locked: afterwards another open of the table's files, in
// this process and in a forked one, can lock every byte range a record, field, key-file or
// image lock could have covered. Each failure reaches the caller as the system's own error.
#include <gtest/gtest.h>

#include <chrono>
#include <filesystem>
#include <fstream>
#include <functional>
#include <memory>
#include <string>
#include <thread>

#include "platform/fault.h"
#include "platform/file_pool.h"
#include "support/child_process.h"
#include "support/reliability_tables.h"
#include "support/scoped_env.h"

namespace tqdb::testing {
namespace {

// The files of Dir that another open file description cannot lock whole at once (everything
// below the presence byte that every open table holds shared), separated by blanks.
std::string LockedFiles(const TempDir& Dir) {
  std::string Locked;
  for (const auto& Entry : std::filesystem::directory_iterator(Dir.Path())) {
    const platform::FileNo Number = platform::TakeFreeNumber();
    try {
      platform::Open(Number, Entry.path().string(), platform::OpenMode::Binary);
      platform::LockRange(Number, 1, int64_t{1} << 62, true);
      platform::UnlockRange(Number, 1, int64_t{1} << 62);
    } catch (const platform::Fault&) {
      Locked += " " + Entry.path().filename().string();
    }
    platform::ReleaseNumber(Number);
  }
  return Locked;
}

// LockedFiles, here and as a forked process sees them.
std::string LockedHereOrElsewhere(const TempDir& Dir) {
  const std::string Report = Dir.Path() + ".locked";
  ChildProcess Child([&] {
    std::ofstream(Report) << LockedFiles(Dir);
    return 0;
  });
  Child.Wait(std::chrono::seconds(30));
  std::ifstream In(Report);
  const std::string Elsewhere((std::istreambuf_iterator<char>(In)),
                              std::istreambuf_iterator<char>());
  std::filesystem::remove(Report);
  return LockedFiles(Dir) + (Child.Succeeded() ? Elsewhere : " child " + Child.Outcome());
}

void WriteBytes(const std::string& Path, int64_t Offset, const std::string& Bytes) {
  std::fstream File(Path, std::ios::in | std::ios::out | std::ios::binary);
  File.seekp(Offset);
  File.write(Bytes.data(), static_cast<std::streamsize>(Bytes.size()));
}

class LockReleaseTest : public ::testing::Test {
 protected:
  LockReleaseTest() {
    WriteReliabilityTables(Dir, 40, 3);
    Movim.OpenFile(Dir.File("MOVIM01"), Dir.Dir());
    Cuent.OpenFile(Dir.File("CUENT01"), Dir.Dir());
    Movim.SetIndex(1);
    Cuent.SetIndex(1);
  }
  // Seeks movement I and returns the offset of its record in the data file.
  int64_t MovementAt(int I) {
    const int32_t Record = Movim.SeekKey(Variant(BaseClave(I)));
    EXPECT_GT(Record, 0);
    return int64_t{Record - 1} * RecordLengthOf(MovementSpec());
  }
  void ExpectFails(int32_t Number, const std::string& Description,
                   const std::function<void()>& Work) {
    try {
      Work();
      ADD_FAILURE() << "no error raised";
    } catch (const TQError& Error) {
      EXPECT_EQ(Error.Number(), Number) << Error.Description();
      EXPECT_NE(Error.Description(), "");
      if (!Description.empty()) {
        EXPECT_EQ(Error.Description(), Description);
      }
    }
  }

  TempDir Dir, Audit;
  ScopedEnv Archive{"TMPDIR", Audit.Path().c_str()};
  TQFile Movim, Cuent;
};

TEST_F(LockReleaseTest, FailedOperationsReleaseEveryLock) {
  struct Case {
    const char* Name;
    int32_t Number;
    std::function<void()> Prepare, Work;
  };
  const std::string Data = Dir.File("MOVIM01.tqd");
  std::unique_ptr<TQFile> Other;
  const Case Cases[] = {
      // The record's key field changes behind the table's back: its keys are not found.
      {"Delete refused by the keys", 50220, [&] { WriteBytes(Data, MovementAt(7), "OTRA CLAVE"); },
       [&] { Movim.Delete(Movim.BookMark()); }},
      {"AddToField overflow", 6,
       [&] {
         Cuent.SeekKey(Variant(BaseAccountCode(2)));
         Cuent.AddToField("UNIDADES", 32767);
       },
       [&] { Cuent.AddToField("UNIDADES", 1); }},
      {"AddToField without a current record", 63, [&] { Cuent.SeekKey(Variant("NO EXISTE")); },
       [&] { Cuent.AddToField("SALDO", 1); }},
      // The ESTADO on disk is not the one the key file holds: the R command finds no entry.
      {"Edit whose key is not found", 55000,
       [&] {
         const int64_t At = MovementAt(10);
         Movim.Edit();
         Movim.SetFields("ESTADO", "NUEVO");
         WriteBytes(Data, At + 10, "XXXXXX");
       },
       [&] { Movim.Update(); }},
      {"Rebuild while in use", 70,
       [&] {
         Other = std::make_unique<TQFile>();
         Other->OpenFile(Dir.File("MOVIM01"), Dir.Dir());
       },
       [&] { Movim.Rebuild(); }},
      // Every page's count set beyond its capacity: the insertion meets a damaged node.
      {"AddNew on a damaged key file", 55000,
       [&] {
         Movim.CloseDB();
         const std::string Key = FindFile(Dir, "MOVIM01.TQC");
         for (int64_t Page = 25; Page + 3 <= int64_t(std::filesystem::file_size(Key)); Page += 1024)
           WriteBytes(Key, Page + 1, "\xFF\x7F");
         Movim.OpenFile(Dir.File("MOVIM01"), Dir.Dir());
       },
       [&] {
         Movim.AddNew();
         Movim.SetFields("CLAVE", "MNUEVO");
         Movim.Update();
       }},
  };
  for (const Case& C : Cases) {
    SCOPED_TRACE(C.Name);
    C.Prepare();
    ExpectFails(
        C.Number,
        C.Number == 70 ? "No se puede Rebuild si el archivo está en uso por otro usuario" : "",
        C.Work);
    Other.reset();
    EXPECT_EQ(LockedHereOrElsewhere(Dir), "");
  }
  Cuent.SeekKey(Variant(BaseAccountCode(2)));
  EXPECT_EQ(Cuent.Fields("UNIDADES").ToDouble(), 32767);
}

TEST_F(LockReleaseTest, DeleteOfARecordLockedElsewhereReleasesNothingItDidNotTake) {
  const int64_t At = MovementAt(8);
  const platform::FileNo Holder = platform::TakeFreeNumber();
  platform::Open(Holder, Dir.File("MOVIM01.tqd"));
  platform::LockRange(Holder, At + 1, At + RecordLengthOf(MovementSpec()));
  ExpectFails(70, "", [&] { Movim.Delete(Movim.BookMark()); });
  platform::ReleaseNumber(Holder);
  EXPECT_EQ(LockedFiles(Dir), "");
  Movim.Delete(Movim.BookMark());  // the record is whole and can be deleted now
  EXPECT_EQ(Movim.SeekKey(Variant(BaseClave(8))), 0);
}

// Two users saving images at once: the second waits for the first to finish appending to the
// image file instead of failing half-way through its Update.
TEST_F(LockReleaseTest, ImageWriteWaitsForAnotherWriterAndReleasesEverything) {
  const TableSpec Spec{"FOTOS", {{"CODIGO", 0, 8}, {"FOTO", 62, 4}}, {KeySpec{{{1, 1, 8}}}}};
  WriteDictionary(Dir.Dir(), "FOTOS", Spec);
  WriteDataFile(Dir.File("FOTOS01.tqd"), {});
  TQFile Fotos;
  Fotos.OpenFile(Dir.File("FOTOS01"), Dir.Dir());
  const auto Add = [&](const char* Code, const std::string& Image) {
    Fotos.AddNew();
    Fotos.SetFields("CODIGO", Code);
    Fotos.SetFields("FOTO", Image);
    Fotos.Update();
  };
  Add("F1", "PRIMERA");
  const std::string Image = FindFile(Dir, "FOTOS01.TQW"), Ready = Dir.Path() + ".ready";
  ChildProcess Holder([&] {
    const platform::FileNo Number = platform::TakeFreeNumber();
    platform::Open(Number, Image);
    platform::LockRange(Number, 1, platform::kToEnd);
    std::ofstream(Ready) << "locked";
    std::this_thread::sleep_for(std::chrono::milliseconds(300));
    return 0;
  });
  while (!std::filesystem::exists(Ready)) std::this_thread::sleep_for(std::chrono::milliseconds(1));
  const std::string Second = "SEGUNDA " + std::string(150, '+');
  Add("F2", Second);
  Holder.Wait(std::chrono::seconds(30));
  std::filesystem::remove(Ready);
  Fotos.SetIndex(1);
  ASSERT_GT(Fotos.SeekKey(Variant("F2")), 0);
  EXPECT_EQ(Trimmed(Fotos.Fields("FOTO")), Second);
  EXPECT_EQ(LockedHereOrElsewhere(Dir), "");
}

}  // namespace
}  // namespace tqdb::testing

// A failed operation leaves nothing locked: after each failure below, another open of the
// table's files, in this process and in a forked one, can lock every byte range a record,
// field, key-file or image lock could have covered. Each failure also reaches the caller
// as the system's own error, with its number and Spanish description.
#include <gtest/gtest.h>

#include <cctype>
#include <chrono>
#include <cstdint>
#include <filesystem>
#include <fstream>
#include <memory>
#include <string>
#include <thread>
#include <vector>

#include "platform/fault.h"
#include "platform/file_pool.h"
#include "support/child_process.h"
#include "support/reliability_tables.h"
#include "support/scoped_env.h"
#include "support/table_writer.h"
#include "support/temp_dir.h"
#include "table/TQError.h"
#include "table/TQFile.h"

namespace tqdb::testing {
namespace {

// Everything below the presence byte that every open table holds shared.
constexpr int64_t kAllRanges = int64_t{1} << 62;

// The files of Dir whose every range another open file description cannot lock at once,
// separated by blanks ("" when all can be locked). Files that do not exist are skipped.
std::string LockedFiles(const TempDir& Dir) {
  std::string Locked;
  for (const auto& Entry : std::filesystem::directory_iterator(Dir.Path())) {
    const std::string Path = Entry.path().string();
    const platform::FileNo Number = platform::TakeFreeNumber();
    try {
      platform::Open(Number, Path, platform::OpenMode::Binary);
      platform::LockRange(Number, 1, kAllRanges, true);
      platform::UnlockRange(Number, 1, kAllRanges);
    } catch (const platform::Fault&) {
      Locked += " " + Entry.path().filename().string();
    }
    platform::ReleaseNumber(Number);
  }
  return Locked;
}

// LockedFiles, asked by a forked process.
std::string LockedFilesSeenByAnotherProcess(const TempDir& Dir) {
  const std::string Report = Dir.Path() + ".locked";
  ChildProcess Child([&] {
    std::ofstream(Report) << LockedFiles(Dir);
    return 0;
  });
  Child.Wait(std::chrono::seconds(30));
  std::ifstream In(Report);
  std::string Locked((std::istreambuf_iterator<char>(In)), std::istreambuf_iterator<char>());
  std::filesystem::remove(Report);
  return Child.Succeeded() ? Locked : "child " + Child.Outcome();
}

void WriteBytes(const std::string& Path, int64_t Offset, const std::string& Bytes) {
  std::fstream File(Path, std::ios::in | std::ios::out | std::ios::binary);
  File.seekp(Offset);
  File.write(Bytes.data(), static_cast<std::streamsize>(Bytes.size()));
}

class LockReleaseTest : public ::testing::Test {
 protected:
  void SetUp() override {
    WriteReliabilityTables(dir_, 40, 3);
    movim_.OpenFile(dir_.File("MOVIM01"), dir_.Dir());
    cuent_.OpenFile(dir_.File("CUENT01"), dir_.Dir());
  }

  // Runs Work, which must fail with a TQError numbered Number; then nothing may be locked.
  template <typename F>
  void ExpectFailsAndReleases(int32_t Number, F&& Work) {
    try {
      Work();
      ADD_FAILURE() << "no error raised";
    } catch (const TQError& Error) {
      EXPECT_EQ(Error.Number(), Number) << Error.Description();
      EXPECT_FALSE(Error.Description().empty());
    }
    EXPECT_EQ(LockedFiles(dir_), "");
    EXPECT_EQ(LockedFilesSeenByAnotherProcess(dir_), "");
  }

  std::string DataFile(const std::string& Table) const { return dir_.File(Table + "01.tqd"); }
  int64_t RecordOffset(const TableSpec& Spec, int32_t Record) const {
    return int64_t{Record - 1} * RecordLengthOf(Spec);
  }

  TempDir dir_;
  TQFile movim_;
  TQFile cuent_;
};

TEST_F(LockReleaseTest, DeleteRefusedByTheKeysReleasesTheRecord) {
  movim_.SetIndex(1);
  const int32_t Record = movim_.SeekKey(Variant("MBASE0007"));
  ASSERT_GT(Record, 0);
  // Behind the table's back the record's key field changes: its keys are not found.
  WriteBytes(DataFile("MOVIM"), RecordOffset(MovementSpec(), Record), "OTRA CLAVE");
  ExpectFailsAndReleases(50220, [&] { movim_.Delete(Record); });
}

TEST_F(LockReleaseTest, DeleteOfARecordLockedElsewhereReleasesNothingItDidNotTake) {
  movim_.SetIndex(1);
  const int32_t Record = movim_.SeekKey(Variant("MBASE0008"));
  ASSERT_GT(Record, 0);
  auto Other = std::make_unique<TQFile>();
  Other->OpenFile(dir_.File("MOVIM01"), dir_.Dir());
  Other->SetIndex(1);
  ASSERT_EQ(Other->SeekKey(Variant("MBASE0008")), Record);
  Other->AddToField("IMPORTE", 0);  // takes and releases the field's lock
  {
    // Another table object holds the record's lock while this one tries to delete it.
    const platform::FileNo Holder = platform::TakeFreeNumber();
    platform::Open(Holder, DataFile("MOVIM"));
    platform::LockRange(Holder, RecordOffset(MovementSpec(), Record) + 1,
                        RecordOffset(MovementSpec(), Record + 1));
    try {
      movim_.Delete(Record);
      ADD_FAILURE() << "no error raised";
    } catch (const TQError& Error) {
      EXPECT_EQ(Error.Number(), 70);
    }
    platform::ReleaseNumber(Holder);
  }
  EXPECT_EQ(LockedFiles(dir_), "");
  movim_.Delete(Record);  // the record is whole and can be deleted now
  EXPECT_EQ(movim_.SeekKey(Variant("MBASE0008")), 0);
}

TEST_F(LockReleaseTest, AddToFieldOverflowReleasesTheField) {
  cuent_.SetIndex(1);
  ASSERT_GT(cuent_.SeekKey(Variant(BaseAccountCode(2))), 0);
  cuent_.AddToField("UNIDADES", 32767);
  ExpectFailsAndReleases(6, [&] { cuent_.AddToField("UNIDADES", 1); });
  EXPECT_EQ(cuent_.Fields("UNIDADES").ToDouble(), 32767);
}

TEST_F(LockReleaseTest, AddToFieldWithoutACurrentRecordLocksNothing) {
  cuent_.SetIndex(1);
  cuent_.SeekKey(Variant("NO EXISTE"));
  ExpectFailsAndReleases(63, [&] { cuent_.AddToField("SALDO", 1); });
}

TEST_F(LockReleaseTest, EditWhoseKeyIsNotFoundReleasesTheKeyFile) {
  movim_.SetIndex(1);
  const int32_t Record = movim_.SeekKey(Variant("MBASE0010"));
  ASSERT_GT(Record, 0);
  movim_.Edit();
  movim_.SetFields("ESTADO", "NUEVO");
  // The ESTADO on disk is not the one the key file holds: the R command finds no entry.
  WriteBytes(DataFile("MOVIM"), RecordOffset(MovementSpec(), Record) + 10, "XXXXXX");
  ExpectFailsAndReleases(55000, [&] { movim_.Update(); });
}

TEST_F(LockReleaseTest, AddNewOnADamagedKeyFileReleasesTheKeyFile) {
  movim_.CloseDB();
  // Every page's count set beyond its capacity: the insertion meets a damaged node.
  std::string Key;
  std::string KeyPath;
  for (const auto& Entry : std::filesystem::directory_iterator(dir_.Path())) {
    if (Entry.path().extension() == ".TQC" &&
        Entry.path().filename().string().starts_with("MOVIM")) {
      KeyPath = Entry.path().string();
    }
  }
  ASSERT_FALSE(KeyPath.empty());
  const int64_t First = 15 + 5 * 2;
  const auto Size = static_cast<int64_t>(std::filesystem::file_size(KeyPath));
  for (int64_t Page = First; Page + 3 <= Size; Page += 1024)
    WriteBytes(KeyPath, Page + 1, "\xFF\x7F");
  movim_.OpenFile(dir_.File("MOVIM01"), dir_.Dir());
  ExpectFailsAndReleases(55000, [&] {
    movim_.AddNew();
    movim_.SetFields("CLAVE", "MNUEVO");
    movim_.Update();
  });
}

TEST_F(LockReleaseTest, RebuildRefusedWhileInUseLeavesNothingLocked) {
  auto Other = std::make_unique<TQFile>();
  Other->OpenFile(dir_.File("MOVIM01"), dir_.Dir());
  TempDir Archive;
  const ScopedEnv Env("TMPDIR", Archive.Path().c_str());
  try {
    movim_.Rebuild();
    ADD_FAILURE() << "no error raised";
  } catch (const TQError& Error) {
    EXPECT_EQ(Error.Number(), 70) << Error.Description();
    EXPECT_EQ(Error.Description(),
              "No se puede Rebuild si el archivo está en uso por otro usuario");
  }
  Other.reset();
  EXPECT_EQ(LockedFiles(dir_), "");
  EXPECT_EQ(LockedFilesSeenByAnotherProcess(dir_), "");
}

// Two users saving images at once: the second waits for the first to finish appending to
// the image file instead of failing half-way through its Update (which would leave a new
// record without its image, and a retried Update would add the record twice).
TEST_F(LockReleaseTest, ImageWriteWaitsForAnotherWriterAndReleasesEverything) {
  TableSpec Spec;
  Spec.Description = "FOTOS";
  Spec.Fields = {{"CODIGO", 0, 8}, {"FOTO", 62, 4}};
  Spec.Keys = {KeySpec{{{1, 1, 8}}}};
  WriteDictionary(dir_.Dir(), "FOTOS", Spec);
  WriteDataFile(dir_.File("FOTOS01.tqd"), {});
  TQFile Fotos;
  Fotos.OpenFile(dir_.File("FOTOS01"), dir_.Dir());
  Fotos.AddNew();
  Fotos.SetFields("CODIGO", "F1");
  Fotos.SetFields("FOTO", "PRIMERA");
  Fotos.Update();
  std::string ImagePath;
  for (const auto& Entry : std::filesystem::directory_iterator(dir_.Path())) {
    std::string Name = Entry.path().filename().string();
    for (char& C : Name) C = static_cast<char>(std::toupper(static_cast<unsigned char>(C)));
    if (Name == "FOTOS01.TQW") ImagePath = Entry.path().string();
  }
  ASSERT_FALSE(ImagePath.empty());
  // Another process appends to the image file for a moment.
  const std::string Ready = dir_.Path() + ".ready";
  ChildProcess Holder([&] {
    const platform::FileNo Number = platform::TakeFreeNumber();
    platform::Open(Number, ImagePath);
    platform::LockRange(Number, 1, platform::kToEnd);
    std::ofstream(Ready) << "locked";
    std::this_thread::sleep_for(std::chrono::milliseconds(300));
    return 0;
  });
  while (!std::filesystem::exists(Ready)) std::this_thread::sleep_for(std::chrono::milliseconds(1));
  const std::string Longer(150, '+');
  Fotos.AddNew();
  Fotos.SetFields("CODIGO", "F2");
  Fotos.SetFields("FOTO", "SEGUNDA " + Longer);
  Fotos.Update();
  Holder.Wait(std::chrono::seconds(30));
  std::filesystem::remove(Ready);
  Fotos.SetIndex(1);
  ASSERT_GT(Fotos.SeekKey(Variant("F2")), 0);
  EXPECT_EQ(Fotos.Fields("FOTO").ToString().substr(0, 158), "SEGUNDA " + Longer);
  EXPECT_EQ(LockedFiles(dir_), "");
  EXPECT_EQ(LockedFilesSeenByAnotherProcess(dir_), "");
}

}  // namespace
}  // namespace tqdb::testing

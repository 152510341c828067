// Destroying a table's state closes and frees its file numbers, its linked tables' too,
// and writes nothing (an edit left pending is dropped).
#include "table/TableState.h"

#include <gtest/gtest.h>

#include <algorithm>
#include <memory>
#include <string>
#include <string_view>
#include <vector>

#include "platform/file_pool.h"
#include "support/temp_dir.h"
#include "table/TQFile.h"

namespace tqdb {
namespace {

using platform::FileNo;

FileNo OpenOnNewNumber(const std::string& Path) {
  const FileNo Number = platform::TakeFreeNumber();
  platform::Open(Number, Path);
  return Number;
}

TEST(TableStateTest, DestructionClosesAndFreesEveryNumberAndWritesNothing) {
  testing::TempDir Dir;
  FileNo DataNo, ImageNo, KeyNo, LinkedNo;
  {
    TableState State;
    DataNo = OpenOnNewNumber(Dir.File("CLIEN01.tqd"));
    platform::WriteAt(DataNo, 1, std::string_view("REGISTRO"));
    ImageNo = OpenOnNewNumber(Dir.File("CLIEN01.tqw"));
    KeyNo = platform::TakeFreeNumber();  // taken, never opened
    LinkedNo = OpenOnNewNumber(Dir.File("FACTU01.tqd"));
    State.DataFileNo = DataNo;
    State.DataFileOpen = true;
    State.ImageFileNo = ImageNo;
    State.Engine.KeyFileNo = KeyNo;
    State.EditState = 2;  // an AddNew left pending
    State.EngineResult = 1;
    State.LinkedTables[3].Name = "FACTU";
    State.LinkedTables[3].Table = std::make_unique<TQFile>();
    State.LinkedTables[3].Table->State().DataFileNo = LinkedNo;
  }
  for (FileNo N : {DataNo, ImageNo, LinkedNo}) EXPECT_FALSE(platform::IsOpen(N)) << N;
  std::vector<FileNo> Freed = {DataNo, ImageNo, KeyNo, LinkedNo}, Again;
  for (size_t I = 0; I < Freed.size(); ++I) Again.push_back(platform::TakeFreeNumber());
  for (FileNo N : Again) platform::ReleaseNumber(N);
  std::sort(Freed.begin(), Freed.end());
  std::sort(Again.begin(), Again.end());
  EXPECT_EQ(Again, Freed);  // the numbers are free again
  EXPECT_EQ(Dir.Read("CLIEN01.tqd"), "REGISTRO");
}

}  // namespace
}  // namespace tqdb

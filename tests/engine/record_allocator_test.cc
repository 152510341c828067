// The deleted-record stack beyond what the randomized model test reaches: page links,
// key-file building, a second user of the file and damage.
#include "engine/record_allocator.h"

#include <gtest/gtest.h>

#include <vector>

#include "engine/key_codec.h"
#include "engine/key_file.h"
#include "engine/key_file_damage.h"
#include "engine_fixture.h"

namespace tqdb::testing {
namespace {

using engine::AllocateRecordNumber;
using engine::LoadInt32;
using engine::ReleaseRecordNumber;

TEST(RecordAllocator, AFullPageLinksAZeroFilledSecondPage) {
  EngineFile File({4});
  for (int I = 0; I < 300; ++I) AllocateRecordNumber(File.Engine);
  for (int32_t Record = 1; Record <= 255; ++Record) ReleaseRecordNumber(File.Engine, Record);
  const int32_t Head = File.Engine.Header.DeletedHead;
  ASSERT_GT(Head, 0);
  NodeBuffer Page = File.Page(Head);
  for (int Slot = 0; Slot < 255; ++Slot) ASSERT_EQ(LoadInt32(Page.data() + 4 * Slot), Slot + 1);
  const int32_t Second = LoadInt32(Page.data() + 1020);
  ASSERT_EQ(Second, Head + 1024);
  EXPECT_EQ(File.Page(Second), NodeBuffer{});

  ReleaseRecordNumber(File.Engine, 256);  // the 256th goes to slot 0 of the second page
  EXPECT_EQ(LoadInt32(File.Page(Second).data()), 256);
  EXPECT_EQ(LoadInt32(File.Page(Second).data() + 1020), 0);
  EXPECT_EQ(engine::ListDeletedRecords(File.Engine).size(), 256u);
  EXPECT_TRUE(File.Problems().empty());

  for (int32_t Expected = 256; Expected >= 1; --Expected) {
    ASSERT_EQ(AllocateRecordNumber(File.Engine), Expected);
  }
  EXPECT_EQ(AllocateRecordNumber(File.Engine), 301);
  ReleaseRecordNumber(File.Engine, 7);  // the head page is kept for the next release
  EXPECT_EQ(File.Engine.Header.DeletedHead, Head);
  EXPECT_EQ(AllocateRecordNumber(File.Engine), 7);
}

TEST(RecordAllocator, CountsUpWhileBuildingAndSeesAnotherUsersChanges) {
  EngineFile File({4});
  EngineState Other;
  engine::OpenKeyFile(Other, File.Path());
  EXPECT_EQ(AllocateRecordNumber(File.Engine), 1);
  EXPECT_EQ(AllocateRecordNumber(Other), 2);
  ReleaseRecordNumber(Other, 2);
  File.Engine.Creating = true;  // a key file being built takes no numbers from the stack
  EXPECT_EQ(AllocateRecordNumber(File.Engine), 3);
  File.Engine.Creating = false;
  EXPECT_EQ(AllocateRecordNumber(File.Engine), 2);
  engine::CloseKeyFile(Other);
}

TEST(RecordAllocator, StackPointingOutsideTheFileIsDamage) {
  EngineFile File({4});
  AllocateRecordNumber(File.Engine);
  ReleaseRecordNumber(File.Engine, 1);
  File.PokeBytes(12, engine::Int32ToBytes(999999));  // the head
  EXPECT_THROW(AllocateRecordNumber(File.Engine), engine::KeyFileDamaged);
  File.PokeBytes(12, engine::Int32ToBytes(21 + 1024));
  File.PokeBytes(8, engine::Int32ToBytes(2000000000));  // a count no file can hold
  EXPECT_THROW(AllocateRecordNumber(File.Engine), engine::KeyFileDamaged);
  EXPECT_THROW(ReleaseRecordNumber(File.Engine, 1), engine::KeyFileDamaged);
}

}  // namespace
}  // namespace tqdb::testing

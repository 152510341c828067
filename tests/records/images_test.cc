#include "records/images.h"

#include <gtest/gtest.h>

#include <cstdint>
#include <string>

#include "engine/key_codec.h"
#include "platform/fault.h"
#include "platform/file_pool.h"
#include "records/record_codecs.h"
#include "support/direct_table.h"
#include "support/temp_dir.h"

namespace tqdb {
namespace {

using platform::Fault;
using testing::FieldSpec;
using testing::RecordBytes;
using testing::TableSpec;

constexpr int16_t kPhoto = 2;

// CODIGO text 6, FOTO image (4 bytes), NOTA text 4.
TableSpec Pictures() {
  TableSpec T;
  T.Description = "Fotos";
  T.Fields = {FieldSpec{"CODIGO", 10, 6}, FieldSpec{"FOTO", 62, 4}, FieldSpec{"NOTA", 10, 4}};
  return T;
}

int32_t Int32At(const std::string& Bytes, size_t Offset) {
  return engine::BytesToInt32(std::string_view(Bytes).substr(Offset, 4));
}

template <typename F>
int32_t FaultNumber(F&& Work) {
  try {
    Work();
  } catch (const Fault& Failure) {
    return Failure.Number();
  }
  return 0;
}

class ImagesTest : public ::testing::Test {
 protected:
  testing::TempDir Dir;
  TableSpec Spec = Pictures();
  testing::DirectTable Table{
      Dir, "FOTOS", Spec, {RecordBytes(Spec, {"A1", 0, "n1"}), RecordBytes(Spec, {"A2", 0, "n2"})}};
  TableState& State = Table.State;

  std::string ImageBytes() const { return Dir.Read("FOTOS01.tqw"); }
  platform::FileNo ImageNo() const { return static_cast<platform::FileNo>(State.ImageFileNo); }
  // Appends raw bytes to the image file and returns their 1-based position.
  int32_t AppendRaw(const std::string& Bytes) {
    const int64_t Position = platform::Length(ImageNo()) + 1;
    platform::WriteAt(ImageNo(), Position, Bytes);
    return static_cast<int32_t>(Position);
  }
};

// An entry: capacity, owner and a 255 status byte, then the image and 100 blanks of slack.
// A shorter image is rewritten in place; a longer one releases (zeroes) the old entry.
TEST_F(ImagesTest, ImagesGetSlackAreRewrittenInPlaceOrMovedWhenTheyGrow) {
  UpdateImage(State, 1, kPhoto, "0123456789");
  EXPECT_EQ(GetLong(State, 1, kPhoto), 1);
  std::string File = ImageBytes();
  ASSERT_EQ(File.size(), 9u + 110u);
  EXPECT_EQ(Int32At(File, 0), 110);
  EXPECT_EQ(Int32At(File, 4), 1);
  EXPECT_EQ(static_cast<uint8_t>(File[8]), 255);
  EXPECT_EQ(GetImage(State, 1, kPhoto), "0123456789" + std::string(100, ' '));

  UpdateImage(State, 1, kPhoto, std::string(50, 'x'));
  EXPECT_EQ(GetLong(State, 1, kPhoto), 1);
  EXPECT_EQ(ImageBytes().substr(9), std::string(50, 'x') + std::string(60, ' '));

  UpdateImage(State, 1, kPhoto, std::string(200, 'y'));
  File = ImageBytes();
  EXPECT_EQ(GetLong(State, 1, kPhoto), 120);
  EXPECT_EQ(File.substr(0, 119), std::string(119, '\0'));
  ASSERT_EQ(File.size(), 119u + 9u + 300u);
  EXPECT_EQ(Int32At(File, 119), 300);
  EXPECT_EQ(GetImage(State, 1, kPhoto), std::string(200, 'y') + std::string(100, ' '));
}

TEST_F(ImagesTest, EmptyOrBlankValueReleasesAndLeavesZero) {
  UpdateImage(State, 2, kPhoto, "abc");
  UpdateImage(State, 2, kPhoto, "   ");
  EXPECT_EQ(GetLong(State, 2, kPhoto), 0);
  EXPECT_EQ(GetImage(State, 2, kPhoto), "");
  EXPECT_EQ(ImageBytes(), std::string(9 + 103, '\0'));

  UpdateImage(State, 1, kPhoto, "abc");
  DeleteImage(State, 1, kPhoto);
  EXPECT_EQ(GetLong(State, 1, kPhoto), 0);
  EXPECT_EQ(ImageBytes().size(), 2u * (9 + 103));
}

TEST_F(ImagesTest, AnExactValueIsTrimmedAndTouchesNothingElse) {
  PutImage(State, 2, kPhoto, "  pic  ", /*Exact=*/true);
  const std::string File = ImageBytes();
  EXPECT_EQ(Int32At(File, 0), 3);
  EXPECT_EQ(Int32At(File, 4), 2);
  EXPECT_EQ(GetImage(State, 2, kPhoto), "pic");
  EXPECT_EQ(GetField(State, 2, 3, false), "n2  ");
  const std::string Big(kMaxImageBytes - kImageSlack + 1, 'z');  // reads are bounded to 2^26
  EXPECT_THROW(PutImage(State, 1, kPhoto, Big), Fault);
  EXPECT_EQ(ImageBytes(), File);
  State.ImageFileNo = 0;  // a table without an image file: an empty put needs none
  PutImage(State, 1, kPhoto, "");
  EXPECT_EQ(GetImage(State, 1, kPhoto), "");
}

TEST_F(ImagesTest, PlacesOrCapacitiesOutsideTheFileReadEmpty) {
  UpdateImage(State, 1, kPhoto, "abc");  // 112 bytes
  for (int32_t Position : {113, 5000, 110, -7}) {
    PutLong(State, 2, kPhoto, Position);
    EXPECT_EQ(GetImage(State, 2, kPhoto), "") << Position;
  }
  for (int32_t Capacity : {(1 << 26) + 1, 1000, -5}) {
    PutLong(State, 2, kPhoto,
            AppendRaw(engine::Int32ToBytes(Capacity) + engine::Int32ToBytes(2) + "\xFF" + "data"));
    EXPECT_EQ(GetImage(State, 2, kPhoto), "") << Capacity;
  }
}

TEST_F(ImagesTest, DamagedCapacityIsNeverRewrittenInPlace) {
  const int32_t Position =
      AppendRaw(engine::Int32ToBytes(1 << 25) + engine::Int32ToBytes(1) + "\xFF" + "old");
  PutLong(State, 1, kPhoto, Position);
  UpdateImage(State, 1, kPhoto, "new");
  const std::string File = ImageBytes();
  // Old header zeroed, its claimed data left alone, a fresh entry appended after it.
  EXPECT_EQ(File.substr(0, 9), std::string(9, '\0'));
  EXPECT_EQ(File.substr(9, 3), "old");
  EXPECT_EQ(File.size(), 12u + 9u + 103u);
  EXPECT_EQ(GetLong(State, 1, kPhoto), 13);
  EXPECT_EQ(GetImage(State, 1, kPhoto), "new" + std::string(100, ' '));
}

// A held file fails the append at once; a failed append releases its lock.
TEST_F(ImagesTest, AppendFailsAtOnceWhileHeldAndReleasesItsLockOnFailure) {
  const platform::FileNo Other = platform::TakeFreeNumber();
  platform::Open(Other, Dir.File("FOTOS01.tqw"));
  platform::LockRange(Other, 1, 1);
  EXPECT_EQ(FaultNumber([&] { PutImage(State, 1, kPhoto, "abc"); }), platform::kPermissionDenied);
  EXPECT_EQ(ImageBytes(), "");
  platform::UnlockRange(Other, 1, 1);
  PutImage(State, 1, kPhoto, "abc");
  EXPECT_NO_THROW(platform::LockRange(Other, 1, platform::kToEnd));  // the writer let go
  platform::UnlockRange(Other, 1, platform::kToEnd);
  platform::Truncate(ImageNo(), int64_t{1} << 31);  // the next position would leave 32 bits
  EXPECT_EQ(FaultNumber([&] { PutImage(State, 2, kPhoto, "abc"); }), platform::kOverflow);
  EXPECT_EQ(GetLong(State, 2, kPhoto), 0);
  EXPECT_NO_THROW(platform::LockRange(Other, 1, platform::kToEnd));
  platform::ReleaseNumber(Other);
}

}  // namespace
}  // namespace tqdb

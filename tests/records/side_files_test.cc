// Images (".tqw") and long texts (".tqy") in their files: the layout of an entry, rewriting
// in place or moving when a value grows, releasing, and damaged places that must neither be
// read nor written over. Values through the public interface: the model test.
#include <gtest/gtest.h>

#include <cmath>
#include <cstdint>
#include <limits>
#include <string>

#include "engine/key_codec.h"
#include "platform/fault.h"
#include "platform/file_pool.h"
#include "platform/paths.h"
#include "records/external_text.h"
#include "records/images.h"
#include "records/record_codecs.h"
#include "support/direct_table.h"

namespace tqdb {
namespace {

using engine::Int32ToBytes;
using platform::Fault;
using testing::RecordBytes;

constexpr int16_t kPhoto = 2, kMemo = 3, kNote = 4, kShort = 5;

// CODIGO text 6, FOTO image, MEMO long text 74 (12), NOTA long text 75 (20), CORTO long
// text 74 (8: too narrow for a place).
class SideFilesTest : public ::testing::Test {
 protected:
  testing::TempDir Dir;
  testing::TableSpec Spec{
      "Fotos",
      {{"CODIGO", 10, 6}, {"FOTO", 62, 4}, {"MEMO", 74, 12}, {"NOTA", 75, 20}, {"CORTO", 74, 8}},
      {}};
  testing::DirectTable Table{
      Dir,
      "FOTOS",
      Spec,
      {RecordBytes(Spec, {"A1", 0, std::string(12, '\0'), "resto del campo", ""}),
       RecordBytes(Spec, {"A2", 0, "", "", ""})}};
  TableState& State = Table.State;

  std::string Images() const { return Dir.Read("FOTOS01.tqw"); }
  std::string Texts() const { return Dir.Read("FOTOS01.tqy"); }
  platform::FileNo ImageNo() const { return static_cast<platform::FileNo>(State.ImageFileNo); }
  int32_t Int32At(const std::string& Bytes, size_t At) {
    return engine::BytesToInt32(std::string_view(Bytes).substr(At, 4));
  }
  // Appends raw bytes to the image file and returns their 1-based position.
  int32_t AppendImage(const std::string& Bytes) {
    const int64_t Position = platform::Length(ImageNo()) + 1;
    platform::WriteAt(ImageNo(), Position, Bytes);
    return static_cast<int32_t>(Position);
  }
  // A long text's place as a field holds it: 8 bytes of a double, 4 of an int32.
  void PutPlace(int32_t Record, double Position, int32_t Length) {
    PutField(State, Record, kMemo, engine::DoubleToBytes(Position) + Int32ToBytes(Length));
  }
  ExternalTextPlace Place(int32_t Record, int16_t Field) const {
    return GetExternalTextPlace(State, Record, Field);
  }
};

// An entry: capacity, owner and a 255 status byte, then the image and 100 blanks of slack.
// A shorter image is rewritten in place; a longer one releases (zeroes) the old entry.
TEST_F(SideFilesTest, ImagesGetSlackAreRewrittenInPlaceOrMovedWhenTheyGrow) {
  UpdateImage(State, 1, kPhoto, "0123456789");
  EXPECT_EQ(GetLong(State, 1, kPhoto), 1);
  EXPECT_EQ(Images().substr(0, 9), Int32ToBytes(110) + Int32ToBytes(1) + "\xFF");
  EXPECT_EQ(GetImage(State, 1, kPhoto), "0123456789" + std::string(100, ' '));
  UpdateImage(State, 1, kPhoto, std::string(50, 'x'));
  EXPECT_EQ(GetLong(State, 1, kPhoto), 1);
  EXPECT_EQ(Images().substr(9), std::string(50, 'x') + std::string(60, ' '));
  UpdateImage(State, 1, kPhoto, std::string(200, 'y'));
  EXPECT_EQ(GetLong(State, 1, kPhoto), 120);
  EXPECT_EQ(Images(), std::string(119, '\0') + Int32ToBytes(300) + Int32ToBytes(1) + "\xFF" +
                          std::string(200, 'y') + std::string(100, ' '));
  UpdateImage(State, 2, kPhoto, "   ");  // blank: released, the field left zero
  EXPECT_EQ(GetLong(State, 2, kPhoto), 0);
  DeleteImage(State, 1, kPhoto);
  EXPECT_EQ(GetLong(State, 1, kPhoto), 0);
  EXPECT_EQ(Images(), std::string(119 + 309, '\0'));
  PutImage(State, 2, kPhoto, "  pic  ", /*Exact=*/true);  // exact: trimmed, no slack
  EXPECT_EQ(Images().substr(428, 9), Int32ToBytes(3) + Int32ToBytes(2) + "\xFF");
  EXPECT_EQ(GetImage(State, 2, kPhoto), "pic");
  EXPECT_EQ(GetField(State, 2, 1, false), "A2    ");
  const std::string Big(kMaxImageBytes - kImageSlack + 1, 'z');  // reads are bounded to 2^26
  EXPECT_THROW(PutImage(State, 1, kPhoto, Big), Fault);
  EXPECT_EQ(Images().size(), 440u);
}

TEST_F(SideFilesTest, DamagedImagePlacesReadEmptyAndAreNeverRewrittenInPlace) {
  UpdateImage(State, 1, kPhoto, "abc");  // 112 bytes
  for (int32_t Position : {113, 5000, 110, -7}) {
    PutLong(State, 2, kPhoto, Position);
    EXPECT_EQ(GetImage(State, 2, kPhoto), "") << Position;
  }
  for (int32_t Capacity : {(1 << 26) + 1, 1000, -5}) {
    PutLong(State, 2, kPhoto,
            AppendImage(Int32ToBytes(Capacity) + Int32ToBytes(2) + "\xFF" + "data"));
    EXPECT_EQ(GetImage(State, 2, kPhoto), "") << Capacity;
  }
  const int32_t Position = AppendImage(Int32ToBytes(1 << 25) + Int32ToBytes(1) + "\xFF" + "old");
  PutLong(State, 2, kPhoto, Position);
  UpdateImage(State, 2, kPhoto, "new");
  // The old header zeroed, its claimed data left alone, a fresh entry after it.
  EXPECT_EQ(Images().substr(size_t(Position) - 1, 12), std::string(9, '\0') + "old");
  EXPECT_EQ(GetLong(State, 2, kPhoto), Position + 12);
  EXPECT_EQ(GetImage(State, 2, kPhoto), "new" + std::string(100, ' '));
  State.ImageFileNo = 0;  // a table without an image file: an empty put needs none
  PutImage(State, 2, kPhoto, "");
  EXPECT_EQ(GetImage(State, 2, kPhoto), "");
}

// An append that fails (the next position would leave 32 bits) releases its lock.
TEST_F(SideFilesTest, AFailedAppendReleasesTheFile) {
  PutImage(State, 1, kPhoto, "abc");
  platform::Truncate(ImageNo(), int64_t{1} << 31);
  try {
    PutImage(State, 2, kPhoto, "abc");
    ADD_FAILURE() << "no overflow";
  } catch (const Fault& Failure) {
    EXPECT_EQ(Failure.Number(), platform::kOverflow);
  }
  EXPECT_EQ(GetLong(State, 2, kPhoto), 0);
  const platform::FileNo Other = platform::TakeFreeNumber();
  platform::Open(Other, Dir.File("FOTOS01.tqw"));
  EXPECT_NO_THROW(platform::LockRange(Other, 1, platform::kToEnd));
  platform::ReleaseNumber(Other);
}

// Long text goes to the ".tqy" file at a double position with a 32-bit length. A shorter
// text is rewritten in place (the rest of its old bytes zeroed); a longer one is appended
// and its old bytes zeroed, so that a rebuild can compact the file.
TEST_F(SideFilesTest, TextsAreAppendedRewrittenInPlaceMovedOrReleased) {
  EXPECT_EQ(ExternalTextPath(State), Dir.Dir() + "FOTOS01.tqy");
  DeleteExternalText(State, 2, kMemo);  // names no text: opens nothing
  EXPECT_FALSE(platform::FileExists(Dir.File("FOTOS01.tqy")));
  EXPECT_EQ(GetExternalText(State, 1, kMemo), "");
  PutExternalText(State, 1, kMemo,
                  "Mu\xF1oz y compa\xF1\xED"
                  "a");
  PutExternalText(State, 2, kMemo, "otro");
  EXPECT_EQ(Place(2, kMemo).Position, 17.0);
  EXPECT_EQ(Place(1, kMemo).Length, 16);
  UpdateExternalText(State, 1, kMemo, "corta");
  EXPECT_EQ(Place(1, kMemo).Position, 1.0);
  EXPECT_EQ(Place(1, kMemo).Length, 5);
  EXPECT_EQ(Texts(), "corta" + std::string(11, '\0') + "otro");
  UpdateExternalText(State, 2, kMemo, "mucho mas largo");
  EXPECT_EQ(Texts(), "corta" + std::string(15, '\0') + "mucho mas largo");
  EXPECT_EQ(Place(2, kMemo).Position, 21.0);
  EXPECT_EQ(GetExternalText(State, 1, kMemo), "corta");
  EXPECT_EQ(GetExternalText(State, 2, kMemo), "mucho mas largo");
  PutExternalText(State, 1, kNote, "texto");
  DeleteExternalText(State, 1, kNote);
  EXPECT_EQ(Place(1, kNote).Position, 0.0);
  EXPECT_EQ(Place(1, kNote).Length, 0);
  EXPECT_EQ(Texts().substr(35), std::string(5, '\0'));
  EXPECT_EQ(GetField(State, 1, kNote, false).substr(12), "mpo     ");  // the field's own bytes stay
}

TEST_F(SideFilesTest, DamagedTextPlacesReadEmptyAndAreNeverWrittenOver) {
  PutExternalText(State, 1, kMemo, "0123456789");
  const double Nan = std::numeric_limits<double>::quiet_NaN();
  for (auto [Position, Length] :
       {std::pair{11.0, 1}, {5.0, 7}, {Nan, 3}, {1e300, 2}, {1.0, -4}, {1.0, 1 << 30}}) {
    PutPlace(2, Position, Length);
    EXPECT_EQ(GetExternalText(State, 2, kMemo), "") << Position << " " << Length;
  }
  PutPlace(2, 4.6, 2);  // rounded to 5
  EXPECT_EQ(GetExternalText(State, 2, kMemo), "45");
  PutPlace(2, 5, 100);  // runs past the end
  UpdateExternalText(State, 2, kMemo, "ab");
  EXPECT_EQ(Texts(), "0123456789ab");
  EXPECT_EQ(Place(2, kMemo).Position, 11.0);
  PutPlace(2, 1, 10);                         // bytes left over from a deleted record
  PutExternalText(State, 2, kMemo, "nuevo");  // a fresh put ignores them
  EXPECT_EQ(GetExternalText(State, 1, kMemo), "0123456789");
  EXPECT_EQ(GetExternalText(State, 2, kMemo), "nuevo");
  for (auto Work : {+[](TableState& S) { GetExternalText(S, 1, kShort); },
                    +[](TableState& S) { UpdateExternalText(S, 1, kShort, "x"); }}) {
    try {
      Work(State);
      ADD_FAILURE() << "a narrow field took a place";
    } catch (const Fault& Failure) {
      EXPECT_EQ(Failure.Number(), platform::kInvalidCall);
      EXPECT_NE(Failure.Description().find("demasiado corto"), std::string::npos);
    }
  }
  // The file number is given back on every path, a failing read's too.
  const platform::FileNo Before = platform::TakeFreeNumber();
  platform::ReleaseNumber(Before);
  platform::DeleteFile(Dir.File("FOTOS01.tqy"));
  EXPECT_THROW(GetExternalText(State, 1, kMemo), Fault);
  const platform::FileNo After = platform::TakeFreeNumber();
  platform::ReleaseNumber(After);
  EXPECT_EQ(After, Before);
}

}  // namespace
}  // namespace tqdb

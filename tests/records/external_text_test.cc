#include "records/external_text.h"

#include <gtest/gtest.h>

#include <cmath>
#include <cstdint>
#include <limits>
#include <string>

#include "engine/key_codec.h"
#include "platform/fault.h"
#include "platform/file_pool.h"
#include "platform/paths.h"
#include "records/record_codecs.h"
#include "support/direct_table.h"
#include "support/temp_dir.h"

namespace tqdb {
namespace {

using platform::Fault;
using testing::FieldSpec;
using testing::RecordBytes;
using testing::TableSpec;

constexpr int16_t kMemo = 2;   // type 74, 12 bytes
constexpr int16_t kNote = 3;   // type 75, 20 bytes
constexpr int16_t kShort = 4;  // type 74, 8 bytes: too narrow for a place

TableSpec Notes() {
  TableSpec T;
  T.Description = "Notas";
  T.Fields = {FieldSpec{"CODIGO", 10, 6}, FieldSpec{"MEMO", 74, 12}, FieldSpec{"NOTA", 75, 20},
              FieldSpec{"CORTO", 74, 8}};
  return T;
}

// A place as a test writes it into a field: 8 bytes of a double, 4 of an int32.
std::string PlaceBytes(double Position, int32_t Length) {
  return engine::DoubleToBytes(Position) + engine::Int32ToBytes(Length);
}

class ExternalTextTest : public ::testing::Test {
 protected:
  testing::TempDir Dir;
  TableSpec Spec = Notes();
  testing::DirectTable Table{
      Dir,
      "NOTAS",
      Spec,
      {RecordBytes(Spec, {"A1", std::string(12, '\0'), "resto del campo", ""}),
       RecordBytes(Spec, {"A2", "", "", ""})}};
  TableState& State = Table.State;

  std::string LongText() const { return Dir.Read("NOTAS01.tqy"); }
  ExternalTextPlace Place(int32_t Record, int16_t Field) const {
    return GetExternalTextPlace(State, Record, Field);
  }
};

// Long text goes to the ".tqy" file at a double position with a 32-bit length. A shorter
// text is rewritten in place (the rest of its old bytes zeroed); a longer one is appended
// and its old bytes zeroed, so that a rebuild can compact the file.
TEST_F(ExternalTextTest, TextsAreAppendedRewrittenInPlaceOrMoved) {
  EXPECT_EQ(ExternalTextPath(State), Dir.Dir() + "NOTAS01.tqy");
  PutExternalText(State, 1, kMemo,
                  "Mu\xF1oz y compa\xF1\xED"
                  "a");
  PutExternalText(State, 2, kMemo, "otro");
  EXPECT_EQ(Place(2, kMemo).Position, 17.0);
  EXPECT_EQ(Place(1, kMemo).Length, 16);
  EXPECT_EQ(GetExternalText(State, 1, kMemo),
            "Mu\xF1oz y compa\xF1\xED"
            "a");
  UpdateExternalText(State, 1, kMemo, "corta");
  EXPECT_EQ(Place(1, kMemo).Position, 1.0);
  EXPECT_EQ(Place(1, kMemo).Length, 5);
  EXPECT_EQ(LongText(), "corta" + std::string(11, '\0') + "otro");
  UpdateExternalText(State, 2, kMemo, "mucho mas largo");
  EXPECT_EQ(LongText(), "corta" + std::string(15, '\0') + "mucho mas largo");
  EXPECT_EQ(Place(2, kMemo).Position, 21.0);
  EXPECT_EQ(GetExternalText(State, 1, kMemo), "corta");
  EXPECT_EQ(GetExternalText(State, 2, kMemo), "mucho mas largo");
}

TEST_F(ExternalTextTest, EmptyTextReleases) {
  DeleteExternalText(State, 2, kMemo);  // names no text: opens nothing
  EXPECT_FALSE(platform::FileExists(Dir.File("NOTAS01.tqy")));
  EXPECT_EQ(GetExternalText(State, 1, kMemo), "");
  PutExternalText(State, 1, kNote, "texto");
  DeleteExternalText(State, 1, kNote);
  EXPECT_EQ(Place(1, kNote).Position, 0.0);
  EXPECT_EQ(Place(1, kNote).Length, 0);
  EXPECT_EQ(LongText(), std::string(5, '\0'));
  EXPECT_EQ(GetExternalText(State, 1, kNote), "");
  // The bytes after the place are the field's own and stay.
  EXPECT_EQ(GetField(State, 1, kNote, false).substr(12), "mpo     ");
}

TEST_F(ExternalTextTest, PlaceOutsideTheFileReadsEmpty) {
  PutExternalText(State, 1, kMemo, "0123456789");
  const double Nan = std::numeric_limits<double>::quiet_NaN();
  const std::pair<double, int32_t> Damaged[] = {{11, 1},    {5, 7},  {Nan, 3},
                                                {1e300, 2}, {1, -4}, {1, 1 << 30}};
  for (auto [Position, Length] : Damaged) {
    PutField(State, 2, kMemo, PlaceBytes(Position, Length));
    EXPECT_EQ(GetExternalText(State, 2, kMemo), "") << Position << " " << Length;
  }
  PutField(State, 2, kMemo, PlaceBytes(4.6, 2));  // rounded to 5
  EXPECT_EQ(GetExternalText(State, 2, kMemo), "45");
}

TEST_F(ExternalTextTest, DamagedPlaceIsNeverWrittenOver) {
  PutExternalText(State, 1, kMemo, "0123456789");
  PutField(State, 2, kMemo, PlaceBytes(5, 100));  // runs past the end
  UpdateExternalText(State, 2, kMemo, "ab");
  EXPECT_EQ(LongText(), "0123456789ab");
  EXPECT_EQ(Place(2, kMemo).Position, 11.0);
  PutField(State, 2, kMemo, PlaceBytes(1, 10));  // bytes left over from a deleted record
  PutExternalText(State, 2, kMemo, "nuevo");     // a fresh put ignores them
  EXPECT_EQ(GetExternalText(State, 1, kMemo), "0123456789");
  EXPECT_EQ(GetExternalText(State, 2, kMemo), "nuevo");
}

TEST_F(ExternalTextTest, NarrowFieldIsAClearFault) {
  for (auto Work : {+[](TableState& S) { GetExternalText(S, 1, kShort); },
                    +[](TableState& S) { UpdateExternalText(S, 1, kShort, "x"); }}) {
    try {
      Work(State);
      FAIL() << "expected Fault 5";
    } catch (const Fault& Failure) {
      EXPECT_EQ(Failure.Number(), platform::kInvalidCall);
      EXPECT_NE(Failure.Description().find("demasiado corto"), std::string::npos);
    }
  }
}

TEST_F(ExternalTextTest, FileNumberIsGivenBackOnEveryPath) {
  const platform::FileNo Before = platform::TakeFreeNumber();
  platform::ReleaseNumber(Before);
  PutExternalText(State, 1, kMemo, "texto");
  EXPECT_EQ(GetExternalText(State, 1, kMemo), "texto");
  platform::DeleteFile(Dir.File("NOTAS01.tqy"));
  try {
    GetExternalText(State, 1, kMemo);
    FAIL() << "expected Fault 53";
  } catch (const Fault& Failure) {
    EXPECT_EQ(Failure.Number(), platform::kFileNotFound);
  }
  const platform::FileNo After = platform::TakeFreeNumber();
  platform::ReleaseNumber(After);
  EXPECT_EQ(After, Before);
}

TEST_F(ExternalTextTest, WriterFailsAtOnceWhileAnotherHoldsTheFile) {
  PutExternalText(State, 1, kMemo, "abc");
  const platform::FileNo Other = platform::TakeFreeNumber();
  platform::Open(Other, Dir.File("NOTAS01.tqy"));
  platform::LockRange(Other, 2, 2);
  EXPECT_THROW(UpdateExternalText(State, 1, kMemo, "abcdef"), Fault);
  EXPECT_EQ(GetExternalText(State, 1, kMemo), "abc");
  platform::ReleaseNumber(Other);
  UpdateExternalText(State, 1, kMemo, "abcdef");
  EXPECT_EQ(GetExternalText(State, 1, kMemo), "abcdef");
}

}  // namespace
}  // namespace tqdb

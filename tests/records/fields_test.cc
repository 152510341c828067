// Field access, the record codecs and the image and long-text files on tables whose files are
// written byte by byte, and the date and key-text conversions. Reading and writing every type
// through the public interface is covered by the model test; here are names, modes, errors, locks
// and edges.
#include <gtest/gtest.h>

#include <array>
#include <ctime>
#include <functional>
#include <limits>
#include <string>
#include <vector>

#include "engine/key_codec.h"
#include "platform/fault.h"
#include "platform/file_pool.h"
#include "platform/paths.h"
#include "records/dates.h"
#include "records/external_text.h"
#include "records/field_access.h"
#include "records/images.h"
#include "records/key_text.h"
#include "records/record_codecs.h"
#include "support/direct_table.h"
#include "table/TQFile.h"
#include "table/dictionary.h"

namespace tqdb {
namespace {

using platform::Fault;
using testing::RecordBytes;
using testing::TableSpec;

// Field ids are 10 + the field's index, so that id and index never coincide. Offsets:
// CODIGO 0, NOMBRE 6, FECHA 16, SALDO 22, VISITAS 30, PUNTOS 32, PESO 36, FOTO 40, MEMO 44.
TableSpec Customers() {
  return {"Clientes",
          {{"CODIGO", 10, 6, 11},
           {"NOMBRE", 10, 10, 12},
           {"FECHA", 5, 6, 13},
           {"SALDO", 3, 0, 14},
           {"VISITAS", 1, 0, 15},
           {"PUNTOS", 4, 0, 16},
           {"TAMA\xD1O", 2, 0, 17},
           {"FOTO", 62, 0, 18},
           {"MEMO", 74, 12, 19}},
          {{{{1, 1, 6}}}}};
}

// The number and description of the Fault that Work raises; (0, "") when none.
std::pair<int32_t, std::string> FaultOf(const std::function<void()>& Work) {
  try {
    Work();
  } catch (const Fault& Failure) {
    return {Failure.Number(), Failure.Description()};
  }
  return {0, ""};
}
std::string SourceOf(const std::function<void()>& Work) {
  try {
    Work();
  } catch (const Fault& Failure) {
    return std::to_string(Failure.Number()) + " " + Failure.Source();
  }
  return "";
}

class FieldsTest : public ::testing::Test {
 protected:
  testing::TempDir Dir;
  TableSpec Spec = Customers();
  testing::DirectTable Table{
      Dir,
      "CLIEN",
      Spec,
      {RecordBytes(
           Spec, {"C00001", "MU\xD1OZ", "A50102", 1.5, -3, 70000, 2.25, 0, std::string(12, '\0')}),
       RecordBytes(Spec, {"C00002", "mu\xF1oz", std::string(6, '\0'), -0.5, 7, -1, 0, 0, ""}),
       RecordBytes(Spec, {"C00003", "P\xE9rez Gald\xF3s", "      ", 0, 0, 0, 0, 0, ""})}};
  TableState& State = Table.State;

  Variant Field(int16_t Number) { return GetFieldValue(State, Number); }
};

TEST_F(FieldsTest, AnOpenEditReadsTheBufferAndPutsFollowTheEditMode) {
  State.EngineResult = 0;
  EXPECT_EQ(FaultOf([&] { PutFieldValue(State, 2, "x"); }),
            std::make_pair(50200, std::string("No se puede poner un valor en un Field sin antes "
                                              "dar un comando de Edit o AddNew")));
  Edit(State);
  EXPECT_EQ(FaultOf([&] { PutFieldValue(State, 2, "x"); }),
            std::make_pair(50201, std::string("No hay un registro activo para editar")));
  EXPECT_FALSE(State.FieldChanged[2]);
  State.EngineResult = 1;
  Edit(State);
  PutFieldValue(State, 3, Variant("15/08/21"));
  EXPECT_EQ(Field(3), Variant("15/08/21"));
  EXPECT_TRUE(Field(4).IsEmpty());  // 1.5 on disk, never put
  EXPECT_TRUE(State.FieldChanged[3]);
  EXPECT_FALSE(State.FieldChanged[4]);
  State.EngineResult = 2;  // moving does not close the edit
  EXPECT_EQ(Field(3), Variant("15/08/21"));
  Edit(State);  // a second Edit discards the buffer
  EXPECT_TRUE(Field(3).IsEmpty());
  EXPECT_FALSE(State.FieldChanged[3]);
  AddNew(State);
  EXPECT_EQ(State.EditState, 2);
  PutFieldValue(State, 2, Variant(int32_t{42}));
  EXPECT_EQ(Field(2), Variant(int32_t{42}));  // kept as given
  EXPECT_FALSE(State.FieldChanged[2]);
  for (int16_t Bad : {10, -1}) EXPECT_EQ(FaultOf([&] { PutFieldValue(State, Bad, "x"); }).first, 9);
  EXPECT_EQ(FaultOf([&] { FieldNumber(State, std::vector<Variant>{1}); }).first, 13);
  EXPECT_EQ(FaultOf([&] { SetFieldType(State, 6, 70000); }).first, 6);
  State.EditState = State.EngineResult = 0;  // no current record: any field number is empty
  EXPECT_TRUE(GetKFieldValue(State, 18, 2).IsEmpty());
}

TEST_F(FieldsTest, CodecErrorsCarryTheRoutinesNameAndPositionsNeverWrap) {
  const int32_t Huge = std::numeric_limits<int32_t>::max();
  const std::pair<std::string, std::function<void()>> Calls[] = {
      {"9 GetInteger", [&] { GetInteger(State, 1, 0); }},
      {"9 GetLong", [&] { GetLong(State, 1, 10); }},
      {"9 GetField", [&] { GetField(State, 1, 10, false); }},
      {"9 PutField", [&] { PutField(State, 1, 11, "x"); }},
      {"9 PutDouble", [&] { PutDouble(State, 1, 11, 1); }},
      {"9 LockField", [&] { LockField(State, 1, 11, 0); }},
      {"9 unLockField", [&] { unLockField(State, 1, 11, 0); }},
      {"6 GetDouble", [&] { GetDouble(State, Huge, 4); }},
      {"6 Put It", [&] { PutIt(State, Huge); }},
      {"63 GetInteger", [&] { GetInteger(State, 0, 5); }}};  // before the first record
  for (const auto& [Expected, Call] : Calls) EXPECT_EQ(SourceOf(Call), Expected);
  EXPECT_EQ(FaultOf([&] { GetFullReg(State, Huge, State.DataFileNo); }).first, 6);
  EXPECT_EQ(FaultOf([&] { MarkDeleted(State, std::numeric_limits<int32_t>::min()); }).first, 6);
  platform::Close(State.DataFileNo);  // record 0 is deleted without reading
  EXPECT_TRUE(IsAnulado(State, 0));
  EXPECT_EQ(SourceOf([&] { IsAnulado(State, 1); }).substr(3), "IsAnulado");
}

TEST_F(FieldsTest, LocksCoverExactlyTheFieldsAndExcludeOtherTables) {
  const std::pair<std::array<int16_t, 3>, std::pair<int64_t, int64_t>> Ranges[] = {
      {{2, 0, 0}, {57, 112}}, {{2, 3, 0}, {73, 78}}, {{1, 2, 4}, {7, 30}}, {{3, 9, 9}, {157, 168}}};
  for (const auto& [Asked, Range] : Ranges)
    EXPECT_EQ(FieldLockRange(State, Asked[0], Asked[1], Asked[2]), Range);
  TableState Other;  // another user of the same data file
  Other.DictionaryDir = Dir.Dir();
  LoadDictionary(Other, "CLIEN");
  platform::Open(Other.DataFileNo, Dir.File("CLIEN01.tqd"));
  LockField(State, 2, 0, 0);
  EXPECT_EQ(SourceOf([&] { LockField(Other, 2, 3, 0); }), "70 LockField");
  LockField(Other, 1, 0, 0);  // the last byte of record 1 is not record 2's
  LockField(Other, 3, 0, 0);
  unLockField(State, 2, 0, 0);
  LockField(Other, 2, 3, 0);
}

// Stored forms ("YYMMDD", the first digit of years 2000-2099 written as "A".."J") give
// displayed forms and back; the two routines differ in the year's width and in folding years
// below 60 into the next century.
TEST(DatesTest, ConvertsBetweenStoredAndDisplayedForms) {
  struct Case {
    std::string Input, Text, LongText;  // "-": not asked of this routine
  };
  const Case Cases[] = {
      {"991231", "31/12/99", "31/12/1999"},
      {"B41015", "-", "15/10/2014"},
      {"A00101", "01/01/00", "01/01/2000"},
      {"451231", "-", "31/12/2045"},
      {"600101", "-", "01/01/1960"},
      {std::string(6, '\0'), "00/00/00", "-"},
      {"05/03/59", "F90305", "590305"},  // below 60 only DateToText folds the century
      {"1/02/03", "030201", "030201"},   // one-digit day: never folded
      {"31/12/2024", "12/31/24", "-"},
      {"01/02/2003", "-", "A30201"},
      {"01/02/1803", "-", ""},
      {"", "ERROR", "ERROR"},
      {"12345", "ERROR", "ERROR"},
      {"01/02/20034", "ERROR", "ERROR"}};
  for (const Case& C : Cases) {
    EXPECT_EQ(C.Text == "-" ? "-" : DateToText(C.Input), C.Text) << C.Input;
    EXPECT_EQ(C.LongText == "-" ? "-" : DateToLongText(C.Input), C.LongText) << C.Input;
  }
  const std::string Dates[] = {"01/01/1960", "31/12/1999", "01/01/2000", "15/06/2059"};
  for (int I = 0; I + 1 < 4; ++I) EXPECT_LT(DateToLongText(Dates[I]), DateToLongText(Dates[I + 1]));
  // Nine characters swap day and month and take the current century.
  const std::time_t Now = std::time(nullptr);
  std::tm Local{};
  localtime_r(&Now, &Local);
  const std::string Century = std::to_string((Local.tm_year + 1900) / 100);
  EXPECT_EQ(CurrentCentury(), Century);
  EXPECT_EQ(DateToText("05/03/24x"), "03/05/" + Century + "24");
  EXPECT_EQ(DateToLongText("05-03-24 "), "03/05/" + Century + "24");
  EXPECT_EQ(DateToLongText("01/02/20\xFF\xFF").size(), 6u);  // odd bytes never fail
  EXPECT_EQ(DateToText("\xFF\xFF\xFF\xFF\xFF\xFF").size(), 8u);
  EXPECT_EQ(DateToLongText(std::string(6, '\0')).size(), 10u);
}

TEST(KeyTextTest, JoinsValuesAndReadsShortRecordsAsBlanks) {
  EXPECT_EQ(KeyTextFromValues({Variant(int32_t{42}), Variant(1.5)}), "421.5");
  EXPECT_EQ(KeyTextFromValues({Variant(Date{1999, 12, 31}), Variant("MUÑOZ")}), "991231MU\xD1OZ");
  EXPECT_EQ(KeyTextFromValues({Variant(Date{1803, 2, 1})}), "");  // outside the stored range
  EXPECT_EQ(KeyTextFromValues({}), "");
  const TableSpec T{"",
                    {{"CODIGO", 10, 6}, {"NOMBRE", 10, 10}, {"EDAD", 1, 0}, {"ALTA", 5, 6}},
                    {{{{1, 1, 6}}}, {{{2, 1, 4}, {1, 3, 4}}}, {{{3, 1, 2}, {4, 1, 6}}}}};
  const Dictionary D = ParseDictionary(testing::DictionaryBytes(T));
  EXPECT_EQ(KeyTextFromRecord(D, 2, "c0004", false), "    004 ");
  const std::string Record = RecordBytes(T, {"c00042", "mu\xF1oz", 258, "A30201"});
  EXPECT_EQ(KeyTextFromRecord(D, 2, Record, true), "MU\xD1O0042");
  EXPECT_EQ(KeyTextFromRecord(D, 4, Record, true), "");  // an undefined key
  EXPECT_THROW(KeyTextFromRecord(D, 11, Record, true), Fault);
  EXPECT_THROW(KeyTextFromRecord(D, 0, Record, true), Fault);
}

// Images (".tqw") and long texts (".tqy") in their files: the layout of an entry, rewriting
// in place or moving when a value grows, releasing, and damaged places that must neither be
// read nor written over.
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
  // Appends raw bytes to the image file and returns their 1-based position.
  int32_t AppendImage(const std::string& Bytes) {
    const int64_t Position = platform::Length(ImageNo()) + 1;
    platform::WriteAt(ImageNo(), Position, Bytes);
    return static_cast<int32_t>(Position);
  }
  // A long text's place as a field holds it: 8 bytes of a double, 4 of an int32.
  void PutPlace(int32_t Record, double Position, int32_t Length) {
    PutField(State, Record, kMemo, engine::DoubleToBytes(Position) + engine::Int32ToBytes(Length));
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
  EXPECT_EQ(Images().substr(0, 9), engine::Int32ToBytes(110) + engine::Int32ToBytes(1) + "\xFF");
  EXPECT_EQ(GetImage(State, 1, kPhoto), "0123456789" + std::string(100, ' '));
  UpdateImage(State, 1, kPhoto, std::string(50, 'x'));
  EXPECT_EQ(GetLong(State, 1, kPhoto), 1);
  EXPECT_EQ(Images().substr(9), std::string(50, 'x') + std::string(60, ' '));
  UpdateImage(State, 1, kPhoto, std::string(200, 'y'));
  EXPECT_EQ(GetLong(State, 1, kPhoto), 120);
  EXPECT_EQ(Images(), std::string(119, '\0') + engine::Int32ToBytes(300) + engine::Int32ToBytes(1) +
                          "\xFF" + std::string(200, 'y') + std::string(100, ' '));
  UpdateImage(State, 2, kPhoto, "   ");  // blank: released, the field left zero
  EXPECT_EQ(GetLong(State, 2, kPhoto), 0);
  DeleteImage(State, 1, kPhoto);
  EXPECT_EQ(GetLong(State, 1, kPhoto), 0);
  EXPECT_EQ(Images(), std::string(119 + 309, '\0'));
  PutImage(State, 2, kPhoto, "  pic  ", /*Exact=*/true);  // exact: trimmed, no slack
  EXPECT_EQ(Images().substr(428, 9), engine::Int32ToBytes(3) + engine::Int32ToBytes(2) + "\xFF");
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
  const int32_t Position =
      AppendImage(engine::Int32ToBytes(1 << 25) + engine::Int32ToBytes(1) + "\xFF" + "old");
  PutLong(State, 2, kPhoto, Position);
  UpdateImage(State, 2, kPhoto, "new");
  // The old header zeroed, its claimed data left alone, a fresh entry after it.
  EXPECT_EQ(Images().substr(size_t(Position) - 1, 12), std::string(9, '\0') + "old");
  EXPECT_EQ(GetLong(State, 2, kPhoto), Position + 12);
  EXPECT_EQ(GetImage(State, 2, kPhoto), "new" + std::string(100, ' '));
  PutLong(State, 2, kPhoto, 5000);  // a place outside the file: the new image goes to the end
  UpdateImage(State, 2, kPhoto, "z");
  EXPECT_EQ(GetImage(State, 2, kPhoto), "z" + std::string(100, ' '));
  State.ImageFileNo = 0;  // a table without an image file: only an empty put needs none
  EXPECT_THROW(PutImage(State, 1, kPhoto, "x"), Fault);
  PutImage(State, 2, kPhoto, "");
  EXPECT_EQ(GetImage(State, 2, kPhoto), "");
}

// An append whose entry would end beyond 32 bits fails, and releases its lock.
TEST_F(SideFilesTest, AnAppendEndsWithinThirtyTwoBitsOrFailsAndReleasesTheFile) {
  platform::Truncate(ImageNo(), 2147483635);  // the last entry that fits ends at 2^31 - 1
  PutImage(State, 1, kPhoto, "abc", /*Exact=*/true);
  EXPECT_EQ(GetLong(State, 1, kPhoto), 2147483636);
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
  DeleteExternalText(State, 2, kMemo);  // names no text: opens nothing
  EXPECT_FALSE(platform::FileExists(Dir.File("FOTOS01.tqy")));
  PutExternalText(State, 1, kMemo, std::string(16, 'a'));
  PutExternalText(State, 2, kMemo, "otro");
  UpdateExternalText(State, 1, kMemo, "corta");
  EXPECT_EQ(Texts(), "corta" + std::string(11, '\0') + "otro");
  UpdateExternalText(State, 2, kMemo, "mucho mas largo");
  EXPECT_EQ(Texts(), "corta" + std::string(15, '\0') + "mucho mas largo");
  EXPECT_EQ(Place(2, kMemo).Position, 21.0);
  PutExternalText(State, 1, kNote, "texto");
  DeleteExternalText(State, 1, kNote);
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

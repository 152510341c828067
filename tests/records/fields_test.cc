// Field access and the record codecs on tables whose files are written byte by byte, and the
// date and key-text conversions. Reading and writing every type through the public interface
// is covered by the model test; here are names, modes, errors, locks and edges.
#include <gtest/gtest.h>

#include <array>
#include <cmath>
#include <cstring>
#include <ctime>
#include <functional>
#include <limits>
#include <string>
#include <vector>

#include "platform/fault.h"
#include "platform/file_pool.h"
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

TEST_F(FieldsTest, FieldsAreNamedInAnyCaseOrNumbered) {
  const std::pair<Variant, int16_t> Found[] = {
      {"nombre", 2},   {"tamaño", 7}, {"*", kAllFields}, {"*+", kAllFieldsPlus},
      {int16_t{3}, 3}, {2.0, 2},      {"4", 4},          {" 3 ", 3},
      {"\t&H5", 5}};
  for (const auto& [Asked, Number] : Found) EXPECT_EQ(FieldNumber(State, Asked), Number);
  for (const auto& [Asked, Text] :
       std::vector<std::pair<Variant, std::string>>{{0, "Campo 0 no existe"},
                                                    {"apellido", "Campo APELLIDO no existe"},
                                                    {"&HZ", "Campo &HZ no existe"},
                                                    {"señas", "Campo SEÑAS no existe"}}) {
    EXPECT_EQ(FaultOf([&] { FieldNumber(State, Asked); }), std::make_pair(50234, Text));
  }
  EXPECT_EQ(FaultOf([&] { FieldNumber(State, Variant(std::nan(""))); }).first, 50234);
}

TEST_F(FieldsTest, FieldsReadByTypeCodeAsUtf8) {
  UpdateImage(State, 2, 8, "foto \xF1");
  PutExternalText(State, 2, 9, "a\xF1o largo");
  State.EngineResult = 1;
  const Variant Expected[] = {"C00001",       "MUÑOZ     ", "02/01/05", 1.5, int16_t{-3},
                              int32_t{70000}, 2.25f,        "",         ""};
  for (int16_t F = 1; F <= 9; ++F) EXPECT_EQ(Field(F), Expected[F - 1]) << F;
  EXPECT_TRUE(Field(kAllFields).IsEmpty());
  EXPECT_TRUE(Field(kAllFieldsPlus).IsEmpty());
  EXPECT_EQ(GetField(State, 2, 2, true), "MU\xD1OZ     ");   // upper-cased as Windows-1252
  EXPECT_EQ(GetField(State, 3, 2, false), "P\xE9rez Gald");  // cut to the width when written
  State.EngineResult = 2;
  EXPECT_EQ(Field(3), Variant(""));  // six zero bytes: a date never written
  EXPECT_EQ(Field(8), Variant("foto ñ" + std::string(100, ' ')));
  EXPECT_EQ(Field(9), Variant("año largo"));
  State.EngineResult = 3;
  EXPECT_EQ(Field(3), Variant(""));  // six blanks
  State.EngineResult = 0;            // no current record: empty, without touching the file
  platform::Close(State.DataFileNo);
  EXPECT_TRUE(Field(2).IsEmpty());
  EXPECT_TRUE(Field(4).IsEmpty());
}

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
}

TEST_F(FieldsTest, KFieldCountsFromTheFieldOfAnIdAndTypesCanChange) {
  State.EngineResult = 1;
  EXPECT_EQ(KFieldNumber(State, 12, 2), 4);
  EXPECT_EQ(GetKFieldValue(State, 12, 2), Variant(1.5));
  EXPECT_EQ(GetKFieldValue(State, 11, 0), Variant("C00001"));
  AddNew(State);
  PutKFieldValue(State, 13, 1, Variant("9"));
  EXPECT_EQ(GetFieldValue(State, 4), Variant("9"));
  EXPECT_EQ(FaultOf([&] { PutKFieldValue(State, 18, 2, Variant("x")); }),
            std::make_pair(50202, std::string("El campo 10 de la clave 18 está fuera de rango")));
  EXPECT_EQ(FaultOf([&] { PutKFieldValue(State, 50, 0, Variant("x")); }).first,
            50202);  // no such id: 0
  for (const auto& [Id, Offset] : {std::pair{18, 2}, {100, 0}, {11, -3}}) {
    EXPECT_EQ(FaultOf([&] { GetKFieldValue(State, int16_t(Id), int16_t(Offset)); }).first, 9);
  }
  EXPECT_EQ(FieldName(State, 7), "TAMAÑO");
  EXPECT_EQ(GetKeyField(State, 12), 2);
  EXPECT_EQ(GetKeyField(State, 1), 0);
  for (auto Work :
       {+[](TableState& S) { FieldLength(S, 10); }, +[](TableState& S) { FieldType(S, -1); },
        +[](TableState& S) { GetKeyField(S, 100); }, +[](TableState& S) { FieldName(S, -1); }}) {
    EXPECT_EQ(FaultOf([&] { Work(State); }).first, 9);
  }
  State.EditState = 0;
  State.EngineResult = 1;
  SetFieldType(State, 6, 1);  // the low 16 bits of 70000
  EXPECT_EQ(Field(6), Variant(int16_t{4464}));
  SetFieldType(State, 5, 10);  // read as text: -3 is stored as FD FF
  EXPECT_EQ(Field(5), Variant("ýÿ"));
  EXPECT_EQ(FaultOf([&] { SetFieldType(State, 6, 70000); }).first, 6);
  EXPECT_EQ(FieldType(State, 6), 1);
}

TEST_F(FieldsTest, PutItWritesTheBuffersByTypeUpToAnOverflow) {
  const char* const Texts[] = {"Z9", "Nombre", "A30201", "1.5", "-7", "12.5", "2.25"};
  for (int I = 1; I <= 7; ++I) {  // each buffer is as wide as its field
    State.FieldBuffer[I].assign(State.FieldBuffer[I].size(), ' ');
    State.FieldBuffer[I].replace(0, std::strlen(Texts[I - 1]), Texts[I - 1]);
  }
  PutIt(State, 2);  // integers round halves to even: 12.5 gives 12
  EXPECT_EQ(GetFullReg(State, 2, State.DataFileNo).substr(0, 40),
            RecordBytes(Spec, {"Z9", "Nombre", "A30201", 1.5, -7, 12, 2.25, 0, ""}).substr(0, 40));
  State.FieldBuffer[1] = "NUEVO ";
  State.FieldBuffer[5] = "99999";  // does not fit 16 bits
  EXPECT_EQ(SourceOf([&] { PutIt(State, 1); }), "6 Put It");
  EXPECT_EQ(GetField(State, 1, 1, false), "NUEVO ");
  EXPECT_EQ(GetInteger(State, 1, 5), -3);  // not reached
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

TEST(EncodeBinaryFieldTest, EncodesByTypeAndChecksTheRange) {
  for (int16_t Type : {1, 85}) EXPECT_TRUE(IsBinaryType(Type));
  for (int16_t Type : {5, 62}) EXPECT_FALSE(IsBinaryType(Type));
  EXPECT_EQ(EncodeBinaryField(1, 258.5), std::string("\x02\x01", 2));  // 258 (half to even)
  EXPECT_EQ(EncodeBinaryField(4, -2), std::string("\xFE\xFF\xFF\xFF", 4));
  const float Single = 1.5f;
  EXPECT_EQ(EncodeBinaryField(6, 1.5), std::string(reinterpret_cast<const char*>(&Single), 4));
  EXPECT_EQ(EncodeBinaryField(80, 1.0).size(), 8u);
  EXPECT_EQ(EncodeBinaryField(10, 1.0), "");
  EXPECT_THROW(EncodeBinaryField(1, 40000), Fault);
  EXPECT_THROW(EncodeBinaryField(4, 3e9), Fault);
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
      {"J91231", "31/12/99", "-"},
      {"451231", "-", "31/12/2045"},
      {"600101", "-", "01/01/1960"},
      {std::string(6, '\0'), "00/00/00", "-"},
      {"05/03/59", "F90305", "590305"},  // below 60 only DateToText folds the century
      {"05/03/60", "600305", "-"},
      {"01/01/00", "A00101", "-"},
      {"1/02/03", "030201", "030201"},  // one-digit day: never folded
      {"31/12/2024", "12/31/24", "-"},
      {"01/02/2003", "-", "A30201"},
      {"31/12/1999", "-", "991231"},
      {"01/02/1803", "-", ""},
      {"", "ERROR", "ERROR"},
      {"12345", "ERROR", "ERROR"},
      {"01/02/20034", "ERROR", "ERROR"},
      {"01/02/2003 x", "ERROR", "ERROR"}};
  for (const Case& C : Cases) {
    if (C.Text != "-") {
      EXPECT_EQ(DateToText(C.Input), C.Text) << C.Input;
    }
    if (C.LongText != "-") {
      EXPECT_EQ(DateToLongText(C.Input), C.LongText) << C.Input;
    }
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

}  // namespace
}  // namespace tqdb

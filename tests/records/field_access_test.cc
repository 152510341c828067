#include "records/field_access.h"

#include <gtest/gtest.h>

#include <cmath>
#include <cstdint>
#include <string>

#include "platform/fault.h"
#include "platform/file_pool.h"
#include "records/external_text.h"
#include "records/images.h"
#include "support/direct_table.h"
#include "support/temp_dir.h"
#include "table/TQFile.h"

namespace tqdb {
namespace {

using platform::Fault;
using testing::FieldSpec;
using testing::RecordBytes;
using testing::TableSpec;

// Field ids are 10 + the field's index, so that id and index never coincide.
TableSpec Customers() {
  TableSpec T;
  T.Description = "Clientes";
  T.Fields = {FieldSpec{"CODIGO", 10, 6, 11},   FieldSpec{"NOMBRE", 10, 10, 12},
              FieldSpec{"FECHA", 5, 6, 13},     FieldSpec{"SALDO", 3, 0, 14},
              FieldSpec{"VISITAS", 1, 0, 15},   FieldSpec{"PUNTOS", 4, 0, 16},
              FieldSpec{"TAMA\xD1O", 2, 0, 17}, FieldSpec{"FOTO", 62, 0, 18},
              FieldSpec{"MEMO", 74, 12, 19}};
  T.Keys = {testing::KeySpec{{testing::SegmentSpec{1, 1, 6}}}};
  return T;
}

std::vector<std::string> CustomerRecords(const TableSpec& Spec) {
  return {RecordBytes(Spec, {"C00001", "MU\xD1OZ", "A50102", 1.5, -3, 70000, 2.25, 0,
                             std::string(12, '\0')}),
          RecordBytes(Spec, {"C00002", "Garcia", std::string(6, '\0'), -0.5, 7, -1, 0, 0, ""}),
          RecordBytes(Spec, {"C00003", "Perez", "      ", 0, 0, 0, 0, 0, ""})};
}

class FieldAccessTest : public ::testing::Test {
 protected:
  testing::TempDir Dir;
  TableSpec Spec = Customers();
  testing::DirectTable Table{Dir, "CLIEN", Spec, CustomerRecords(Spec)};
  TableState& State = Table.State;

  Variant Field(int16_t Number) { return GetFieldValue(State, Number); }
};

// The number and description of the Fault that Work raises; (0, "") when none.
template <typename F>
std::pair<int32_t, std::string> FaultOf(F&& Work) {
  try {
    Work();
  } catch (const Fault& Failure) {
    return {Failure.Number(), Failure.Description()};
  }
  return {0, ""};
}

TEST_F(FieldAccessTest, FieldsAreNamedInAnyCaseOrNumbered) {
  EXPECT_EQ(FieldNumber(State, Variant("nombre")), 2);
  EXPECT_EQ(FieldNumber(State, Variant("tamaño")), 7);  // UTF-8, upper-cased as Windows-1252
  EXPECT_EQ(FieldNumber(State, Variant("*")), kAllFields);
  EXPECT_EQ(FieldNumber(State, Variant("*+")), kAllFieldsPlus);
  EXPECT_EQ(FieldNumber(State, Variant(int16_t{3})), 3);
  EXPECT_EQ(FieldNumber(State, Variant(2.0)), 2);
  EXPECT_EQ(FieldNumber(State, Variant("4")), 4);
  EXPECT_EQ(FieldNumber(State, Variant(" 3 ")), 3);    // numeric text, blanks around it
  EXPECT_EQ(FieldNumber(State, Variant("\t&H5")), 5);  // a hexadecimal number holds no digit
  for (const auto& [Asked, Text] : std::vector<std::pair<Variant, std::string>>{
           {Variant(0), "Campo 0 no existe"},
           {Variant("apellido"), "Campo APELLIDO no existe"},
           {Variant("&HZ"), "Campo &HZ no existe"},
           {Variant("señas"), "Campo SEÑAS no existe"}}) {
    EXPECT_EQ(FaultOf([&] { FieldNumber(State, Asked); }), std::make_pair(50234, Text));
  }
  EXPECT_EQ(FaultOf([&] { FieldNumber(State, Variant(std::nan(""))); }).first, 50234);
}

TEST_F(FieldAccessTest, FieldsReadByTypeCodeAsUtf8) {
  UpdateImage(State, 2, 8, "foto \xF1");
  PutExternalText(State, 2, 9, "a\xF1o largo");
  State.EngineResult = 1;
  EXPECT_EQ(Field(1), Variant("C00001"));
  EXPECT_EQ(Field(2), Variant("MUÑOZ     "));  // padding kept
  EXPECT_EQ(Field(3), Variant("02/01/05"));
  EXPECT_EQ(Field(4), Variant(1.5));
  EXPECT_EQ(Field(5), Variant(int16_t{-3}));
  EXPECT_EQ(Field(6), Variant(int32_t{70000}));
  EXPECT_EQ(Field(7), Variant(2.25f));
  EXPECT_EQ(Field(8), Variant(""));
  EXPECT_EQ(Field(9), Variant(""));
  EXPECT_TRUE(Field(kAllFields).IsEmpty());
  EXPECT_TRUE(Field(kAllFieldsPlus).IsEmpty());
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

TEST_F(FieldAccessTest, AnOpenEditReadsTheBufferUntilTheNextEdit) {
  State.EngineResult = 1;
  Edit(State);
  PutFieldValue(State, 3, Variant("15/08/21"));
  EXPECT_EQ(Field(3), Variant("15/08/21"));
  EXPECT_TRUE(Field(4).IsEmpty());  // 1.5 on disk, never put
  EXPECT_TRUE(Field(kAllFields).IsEmpty());
  EXPECT_TRUE(State.FieldChanged[3]);
  EXPECT_FALSE(State.FieldChanged[4]);
  State.EngineResult = 2;  // moving does not close the edit
  EXPECT_EQ(Field(3), Variant("15/08/21"));
  Edit(State);  // a second Edit discards the buffer
  EXPECT_TRUE(Field(3).IsEmpty());
  EXPECT_FALSE(State.FieldChanged[3]);
}

TEST_F(FieldAccessTest, PutsFollowTheEditMode) {
  State.EngineResult = 0;
  EXPECT_EQ(FaultOf([&] { PutFieldValue(State, 2, Variant("x")); }),
            std::make_pair(50200, std::string("No se puede poner un valor en un Field sin antes "
                                              "dar un comando de Edit o AddNew")));
  Edit(State);
  EXPECT_EQ(FaultOf([&] { PutFieldValue(State, 2, Variant("x")); }),
            std::make_pair(50201, std::string("No hay un registro activo para editar")));
  EXPECT_TRUE(Field(2).IsEmpty());
  EXPECT_FALSE(State.FieldChanged[2]);

  AddNew(State);
  EXPECT_EQ(State.EditState, 2);
  PutFieldValue(State, 2, Variant(int32_t{42}));
  EXPECT_EQ(Field(2), Variant(int32_t{42}));  // kept as given
  EXPECT_FALSE(State.FieldChanged[2]);
  EXPECT_EQ(FaultOf([&] { PutFieldValue(State, 10, Variant("x")); }).first, 9);
  EXPECT_EQ(FaultOf([&] { PutFieldValue(State, -1, Variant("x")); }).first, 9);
}

TEST_F(FieldAccessTest, KFieldCountsFromTheFieldOfAnId) {
  State.EngineResult = 1;
  EXPECT_EQ(KFieldNumber(State, 12, 2), 4);
  EXPECT_EQ(GetKFieldValue(State, 12, 2), Variant(1.5));
  EXPECT_EQ(GetKFieldValue(State, 11, 0), Variant("C00001"));
  EXPECT_EQ(GetKFieldValue(State, 0, 2), Variant("MUÑOZ     "));  // id 0 bears field 0
  State.EngineResult = 0;  // no current record: any field number reads as empty
  EXPECT_TRUE(GetKFieldValue(State, 18, 2).IsEmpty());
  AddNew(State);
  PutKFieldValue(State, 0, 4, Variant("9"));
  EXPECT_EQ(GetFieldValue(State, 4), Variant("9"));
  EXPECT_EQ(FaultOf([&] { PutKFieldValue(State, 18, 2, Variant("x")); }),
            std::make_pair(50202, std::string("El campo 10 de la clave 18 está fuera de rango")));
  // An id that no field bears counts from 0.
  EXPECT_EQ(FaultOf([&] { PutKFieldValue(State, 50, 0, Variant("x")); }).first, 50202);
  EXPECT_EQ(FaultOf([&] { GetKFieldValue(State, 18, 2); }).first, 9);
  EXPECT_EQ(FaultOf([&] { GetKFieldValue(State, 100, 0); }).first, 9);
  EXPECT_EQ(FaultOf([&] { GetKFieldValue(State, 11, -3); }).first, 9);
}

TEST_F(FieldAccessTest, FieldDescriptionsAndAChangedTypeCode) {
  EXPECT_EQ(FieldName(State, 7), "TAMAÑO");
  EXPECT_EQ(GetKeyField(State, 12), 2);
  EXPECT_EQ(GetKeyField(State, 1), 0);
  for (auto Work :
       {+[](TableState& S) { FieldLength(S, 10); }, +[](TableState& S) { FieldType(S, -1); },
        +[](TableState& S) { GetKeyField(S, 100); }, +[](TableState& S) { FieldName(S, -1); }}) {
    EXPECT_EQ(FaultOf([&] { Work(State); }).first, 9);
  }
  State.EngineResult = 1;
  SetFieldType(State, 6, 1);  // the low 16 bits of 70000
  EXPECT_EQ(Field(6), Variant(int16_t{4464}));
  SetFieldType(State, 5, 10);  // read as text: -3 is stored as FD FF
  EXPECT_EQ(Field(5), Variant("ýÿ"));
  EXPECT_EQ(FaultOf([&] { SetFieldType(State, 6, 70000); }).first, 6);
  EXPECT_EQ(FieldType(State, 6), 1);
}

}  // namespace
}  // namespace tqdb

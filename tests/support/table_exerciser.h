// Runs every public operation of a table, for the damaged-file tests: whatever the
// table's files hold, each operation must end in a TQError carrying the system's own
// number and description, or in a defined status.
// Walks are bounded, so that a damaged key file cannot keep a walk going for ever. With
// TQDB_DAMAGE_TRACE set in the environment every error met is printed to stderr.
#pragma once

#include <cstdint>
#include <cstdio>
#include <cstdlib>
#include <exception>
#include <map>
#include <string>
#include <utility>
#include <vector>

#include "support/temp_dir.h"
#include "table/TQError.h"
#include "table/TQFile.h"

namespace tqdb::testing {

// What the operations met, as the child process reports it.
struct Outcome {
  std::map<int32_t, int> Errors;      // TQError number -> count
  std::vector<std::string> Problems;  // anything that is not a TQError of the system's own
};

// Runs every public operation on the table Name in Dir (the table DANOS of the
// damaged-file tests: fields CODIGO, NOMBRE, IMPORTE, FECHA, CANT, FOTO and MEMO, three
// keys, about Records records), catching TQErrors. Problems are other exceptions and
// errors without a proper number or description (or an out-of-memory error, which a
// length read from a damaged file must never cause).
class Exerciser {
 public:
  Exerciser(const TempDir& Dir, std::string Name, int32_t Records, Outcome& Out)
      : dir_(Dir), name_(std::move(Name)), records_(Records), out_(Out) {}

  void Run() {
    TQFile T;
    Try("OpenFile", [&] { T.OpenFile(dir_.File(name_), dir_.Dir()); });
    Everything(T);
    Try("ReIndex", [&] { T.ReIndex(); });
    Try("OpenFile", [&] { T.OpenFile(dir_.File(name_), dir_.Dir()); });
    Walk(T);
    Try("Rebuild", [&] { T.Rebuild(); });
    Try("OpenFile", [&] { T.OpenFile(dir_.File(name_), dir_.Dir()); });
    Everything(T);
    Try("CloseDB", [&] { T.CloseDB(); });
    Try("KillDB", [&] { T.KillDB(false); });
  }

 private:
  template <typename F>
  void Try(const char* What, F&& Work) {
    try {
      Work();
    } catch (const TQError& Error) {
      ++out_.Errors[Error.Number()];
      if (std::getenv("TQDB_DAMAGE_TRACE") != nullptr) {
        std::fprintf(stderr, "%s: %d %s [%s]\n", What, Error.Number(), Error.Description().c_str(),
                     Error.Source().c_str());
      }
      const std::string& Text = Error.Description();
      if (Error.Number() == 0 || Text.empty() || Error.Number() == 7 ||
          Text.find("basic_string") != std::string::npos ||
          Text.find("std::") != std::string::npos || Text.find("vector") != std::string::npos) {
        out_.Problems.push_back(std::string(What) + ": TQError " + std::to_string(Error.Number()) +
                                " \"" + Text + "\"");
      }
    } catch (const std::exception& Error) {
      out_.Problems.push_back(std::string(What) + ": foreign exception " + Error.what());
    } catch (...) {
      out_.Problems.push_back(std::string(What) + ": unknown exception");
    }
  }

  void ReadAllFields(TQFile& T) {
    for (int32_t F = 0; F <= T.FieldCount() + 1; ++F) {
      Try("Fields", [&] { T.Fields(Variant(F)).ToString(); });
    }
    Try("Fields", [&] { T.Fields("NOEXISTE"); });
    Try("KField", [&] { T.KField(1, 0); });
    Try("KField", [&] { T.KField(6, 1); });
  }

  void Walk(TQFile& T) {
    for (int16_t Key = 0; Key <= 4; ++Key) {
      T.SetIndex(Key);
      Try("MoveFirst", [&] { T.MoveFirst(); });
      for (int Step = 0; Step < 3 * records_ && T.LastError() == 0; ++Step) {
        if (Step % 17 == 0) ReadAllFields(T);
        Try("MoveNext", [&] { T.MoveNext(); });
      }
      Try("MoveLast", [&] { T.MoveLast(); });
      for (int Step = 0; Step < 3 * records_ && T.LastError() == 0; ++Step) {
        Try("MovePrevious", [&] { T.MovePrevious(); });
      }
    }
    T.SetIndex(1);
  }

  void Seek(TQFile& T) {
    const char* Values[] = {"", "C0000100", "C", "ZZZZZZZZ", "\x01"};
    for (int16_t Key = 1; Key <= 3; ++Key) {
      T.SetIndex(Key);
      for (const char* Value : Values) {
        for (int32_t Option : {1, 2, 4, 16, 3}) {
          Try("SeekKey", [&] { T.SeekKey(Variant(Value), Option); });
        }
      }
      Try("SeekKey", [&] { T.SeekKey(Variant(std::vector<Variant>{"A", 5}), adseekfirsteq); });
      std::string Special;
      Try("GetSpecialSeekKeys", [&] { Special = T.GetSpecialSeekKeys(); });
      Try("SeekKey", [&] { T.SeekKey(Variant(Special), adSeekAfter); });
      Try("SeekKey", [&] { T.SeekKey(Variant(Special), adSeekBefore); });
      Try("MoveNext", [&] { T.MoveNext(); });
    }
    T.SetIndex(1);
  }

  void Change(TQFile& T) {
    Try("AddNew", [&] {
      T.AddNew();
      T.SetFields("CODIGO", "CNUEVO01");
      T.SetFields("NOMBRE", "NUEVO");
      T.SetFields("IMPORTE", 3.5);
      T.SetFields("FECHA", "01/02/24");
      T.SetFields("FOTO", "IMAGEN NUEVA");
      T.SetFields("MEMO", "TEXTO NUEVO");
      T.Update();
    });
    Try("MoveFirst", [&] { T.MoveFirst(); });
    Try("Edit", [&] {
      T.Edit();
      T.SetFields("NOMBRE", "EDITADO");
      T.SetFields("CODIGO", "CEDITADO");
      T.SetFields("FOTO", "OTRA IMAGEN MUCHO MAS LARGA QUE LA PRIMERA DE TODAS");
      T.SetFields("MEMO", "OTRO TEXTO");
      T.Update();
    });
    Try("AddToField", [&] { T.AddToField("IMPORTE", 2); });
    Try("AddToField", [&] { T.AddToField("CANT", 1); });
    Try("AddToKField", [&] { T.AddToKField(5, 1); });
    Try("AddToField", [&] { T.AddToField("NOMBRE", 1); });
    Try("Delete", [&] { T.Delete(T.BookMark()); });
    Try("MoveNext", [&] { T.MoveNext(); });
    for (int32_t Record : {1, records_ / 2, records_ + 10, -1}) {
      Try("Delete", [&] { T.Delete(Record); });
    }
    Try("DeletedRecordCount", [&] { T.DeletedRecordCount(); });
  }

  void Query(TQFile& T) {
    const char* Filters[] = {"IMPORTE > 10",      "NOMBRE LIKE N*",
                             "CODIGO = C0000010", "CANT >= 3 AND (NOMBRE = X OR IMPORTE < 5)",
                             "\\01C00001",        "ABS(IMPORTE < 100)",
                             "FECHA = 010224",    "(CODIGO > C AND"};
    for (const char* Text : Filters) {
      Try("Filter", [&] { T.Filter(Text); });
      Try("Sum", [&] { T.Sum("IMPORTE"); });
      Try("Sum", [&] { T.Sum("CANT"); });
      Try("RecordCount", [&] { T.RecordCount(); });
      Try("MoveLast", [&] { T.MoveLast(); });
      ReadAllFields(T);
    }
    Try("Sort", [&] { T.Sort("NOMBRE"); });
    Try("Sort", [&] { T.Sort("IMPORTE,FECHA"); });
    Try("MoveFirst", [&] { T.MoveFirst(); });
    ReadAllFields(T);
    Try("Filter", [&] { T.Filter("CLEAN"); });
    Try("Filter", [&] { T.Filter(""); });
  }

  void Everything(TQFile& T) {
    Try("RecordCount", [&] { T.RecordCount(); });
    Try("DeletedRecordCount", [&] { T.DeletedRecordCount(); });
    for (int16_t F = -1; F <= 9; ++F) {
      Try("FieldName", [&] { T.FieldName(F); });
      Try("FieldType", [&] { T.FieldType(F); });
      Try("FieldLength", [&] { T.FieldLength(F); });
    }
    Try("TableName", [&] { T.TableName(); });
    Try("TableDescripcion", [&] { T.TableDescripcion(); });
    Walk(T);
    for (int32_t Record : {1, 2, records_ / 2, records_, records_ + 3, 0, -7}) {
      Try("BookMark", [&] { T.SetBookMark(Record); });
      ReadAllFields(T);
    }
    Seek(T);
    Query(T);
    Change(T);
    Walk(T);
  }

  const TempDir& dir_;
  std::string name_;
  int32_t records_;
  Outcome& out_;
};

}  // namespace tqdb::testing

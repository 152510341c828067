// A table with every kind of value a rebuild has to carry over (text, a binary number, a
// date, an image, two long texts), filled through the public interface with some records
// deleted, and a snapshot of its live records to compare against afterwards.
#pragma once

#include <sys/types.h>
#include <sys/wait.h>
#include <unistd.h>

#include <cstdint>
#include <string>
#include <vector>

#include "records/record_codecs.h"
#include "support/open_table.h"
#include "support/table_writer.h"
#include "table/TQFile.h"
#include "table/TableState.h"

namespace tqdb::testing {

// NOMBRE text 20, CODIGO long, FECHA date, FOTO image, NOTAS long text (74), MEMO long
// text (75). Key 1 NOMBRE; key 2 FECHA + the first 5 characters of NOMBRE; key 3 CODIGO.
inline TableSpec MediaSpec() {
  TableSpec Spec;
  Spec.Description = "Clientes";
  Spec.Fields = {{"NOMBRE", 10, 20}, {"CODIGO", 4, 4},  {"FECHA", 5, 6},
                 {"FOTO", 62, 4},    {"NOTAS", 74, 12}, {"MEMO", 75, 16}};
  Spec.Keys = {KeySpec{{{1, 1, 20}}}, KeySpec{{{3, 1, 6}, {1, 1, 5}}}, KeySpec{{{2, 1, 4}}}};
  return Spec;
}

// Names in mixed case with letters beyond ASCII and repeats, so that the keys hold runs
// of equal values and upper-casing matters to their order. UTF-8, as the interface takes.
inline std::string MediaName(int I) {
  static const char* const kNames[] = {"muñoz", "Álvarez", "ZAPATA", "garcía", "García",
                                       "ño",    "abad",    "Abad",   "€uro",   "zz"};
  return std::string(kNames[I % 10]) + (I % 3 == 0 ? "" : " " + std::to_string(I % 7));
}

// Adds Count records through AddNew/Update: every third without image, every fourth
// without long texts, then deletes every record whose number is divisible by 3 or 7.
inline void FillMediaTable(TQFile& T, int Count) {
  for (int I = 1; I <= Count; ++I) {
    T.AddNew();
    T.SetFields("NOMBRE", Variant(MediaName(I)));
    T.SetFields("CODIGO", Variant(int32_t{1000 - (I * 37) % 500}));
    T.SetFields("FECHA", Variant(Date{1990 + I % 30, 1 + I % 12, 1 + I % 28}));
    if (I % 3 != 0)
      T.SetFields("FOTO", Variant("IMG" + std::string(static_cast<size_t>(I % 50 + 1), 'x') +
                                  std::to_string(I)));
    if (I % 4 != 0) {
      T.SetFields("NOTAS", Variant("nota " + std::to_string(I) +
                                   std::string(static_cast<size_t>(I % 90), 'n')));
      T.SetFields("MEMO", Variant("memo " + std::to_string(I * 11)));
    }
    T.Update();
  }
  for (int I = 1; I <= Count; ++I) {
    if (I % 3 == 0 || I % 7 == 0) T.Delete(I);
  }
}

// Every field of one record as text.
using RecordValues = std::vector<std::string>;

inline RecordValues ReadRecord(TQFile& T, int32_t Record) {
  T.SetBookMark(Record);
  RecordValues Values;
  for (int16_t F = 1; F <= T.FieldCount(); ++F) Values.push_back(T.Fields(Variant(F)).ToString());
  return Values;
}

// The live records in record-number order.
inline std::vector<RecordValues> LiveRecords(TQFile& T) {
  std::vector<RecordValues> Records;
  const int32_t Count = T.RecordCount();
  for (int32_t R = 1; R <= Count; ++R) {
    if (!IsAnulado(T.State(), R)) Records.push_back(ReadRecord(T, R));
  }
  return Records;
}

// Every record place in record-number order (deleted ones read as what they hold).
inline std::vector<RecordValues> AllRecords(TQFile& T) {
  std::vector<RecordValues> Records;
  const int32_t Count = T.RecordCount();
  for (int32_t R = 1; R <= Count; ++R) Records.push_back(ReadRecord(T, R));
  return Records;
}

// Runs Work in a child process and returns its wait status.
template <typename F>
int RunInChild(F&& Work) {
  const pid_t Child = ::fork();
  if (Child == 0) {
    int Code = 0;
    try {
      Code = Work();
    } catch (...) {
      Code = 101;
    }
    ::_exit(Code);
  }
  int Status = 0;
  ::waitpid(Child, &Status, 0);
  return Status;
}

}  // namespace tqdb::testing

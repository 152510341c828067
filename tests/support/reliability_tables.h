// Tables and checks shared by the reliability tests (several processes, killed
// processes, damaged files).
//
// Two tables, written with table_writer into a temporary directory:
//   MOVIM (movements): CLAVE text 10 (key 1), ESTADO text 6 (key 2, many duplicates),
//                      IMPORTE double, NOTA text 30.
//   CUENT (accounts):  CODIGO text 8 (key 1), NOMBRE text 20, SALDO double,
//                      UNIDADES 16-bit integer; key 2 is NOMBRE + CODIGO.
// The checks read a table back through the public interface and the engine's tree
// checker, and say in words what is wrong ("" when nothing is).
#pragma once

#include <cstdint>
#include <map>
#include <set>
#include <string>
#include <vector>

#include "engine/record_allocator.h"
#include "engine/tree_checker.h"
#include "records/record_codecs.h"
#include "support/key_agreement.h"
#include "support/table_writer.h"
#include "support/temp_dir.h"
#include "table/TQError.h"
#include "table/TQFile.h"
#include "table/TableState.h"

namespace tqdb::testing {

inline TableSpec MovementSpec() {
  TableSpec Spec;
  Spec.Description = "MOVIMIENTOS";
  Spec.Fields = {{"CLAVE", 0, 10}, {"ESTADO", 0, 6}, {"IMPORTE", 3, 8}, {"NOTA", 0, 30}};
  Spec.Keys = {KeySpec{{{1, 1, 10}}}, KeySpec{{{2, 1, 6}}}};
  return Spec;
}

inline TableSpec AccountSpec() {
  TableSpec Spec;
  Spec.Description = "CUENTAS";
  Spec.Fields = {{"CODIGO", 0, 8}, {"NOMBRE", 0, 20}, {"SALDO", 3, 8}, {"UNIDADES", 1, 2}};
  Spec.Keys = {KeySpec{{{1, 1, 8}}}, KeySpec{{{2, 1, 20}, {1, 1, 8}}}};
  return Spec;
}

// The code of base account I (1-based): "CTA00001".
inline std::string BaseAccountCode(int I) {
  std::string Digits = std::to_string(I);
  return "CTA" + std::string(5 - Digits.size(), '0') + Digits;
}

// Writes MOVIM (with Movements records "MBASE0001".., ESTADO cycling through four
// values) and CUENT (with Accounts base accounts at zero) into Dir. Returns nothing; the
// tables open as Dir + "MOVIM01" and Dir + "CUENT01".
inline void WriteReliabilityTables(const TempDir& Dir, int Movements, int Accounts) {
  static const char* const kStates[] = {"ALTA", "BAJA", "PEND", "OK"};
  const TableSpec Movement = MovementSpec();
  std::vector<std::string> Records;
  for (int I = 1; I <= Movements; ++I) {
    std::string Digits = std::to_string(I);
    Records.push_back(RecordBytes(Movement, {"MBASE" + std::string(4 - Digits.size(), '0') + Digits,
                                             kStates[I % 4], I * 1.5, "NOTA " + Digits}));
  }
  WriteDictionary(Dir.Dir(), "MOVIM", Movement);
  WriteDataFile(Dir.File("MOVIM01.tqd"), Records);

  const TableSpec Account = AccountSpec();
  Records.clear();
  for (int I = 1; I <= Accounts; ++I) {
    Records.push_back(
        RecordBytes(Account, {BaseAccountCode(I), "CUENTA " + std::to_string(I), 0, 0}));
  }
  WriteDictionary(Dir.Dir(), "CUENT", Account);
  WriteDataFile(Dir.File("CUENT01.tqd"), Records);
}

// A field's text without its blank padding.
inline std::string Trimmed(const Variant& Value) {
  std::string Text = Value.ToString();
  while (!Text.empty() && Text.back() == ' ') Text.pop_back();
  return Text;
}

// Record numbers of the live (not deleted) records of an open table, by the text of
// field KeyField; a text found on two live records appears twice.
inline std::multimap<std::string, int32_t> LiveRecordsBy(TQFile& T, const std::string& KeyField) {
  std::multimap<std::string, int32_t> Live;
  const int32_t Count = T.RecordCount();
  for (int32_t R = 1; R <= Count; ++R) {
    if (IsAnulado(T.State(), R)) continue;
    T.SetBookMark(R);
    Live.emplace(Trimmed(T.Fields(KeyField)), R);
  }
  return Live;
}

// The key file's problems (tree checker), keys that disagree with the data file, and
// record numbers that are neither live nor on the deleted-record stack (or both, or
// twice on it). "" when the table is sound.
inline std::string TableSoundness(TQFile& T) {
  TableState& State = T.State();
  std::string Problems;
  for (const std::string& Problem : engine::CheckKeyFile(State.Engine)) Problems += Problem + "\n";
  if (!Problems.empty()) return Problems;
  const std::string Agreement = KeyDataAgreement(T);
  if (!Agreement.empty()) return Agreement;
  std::set<int32_t> Numbers;
  for (int32_t R = 1; R <= T.RecordCount(); ++R) {
    if (!IsAnulado(State, R)) Numbers.insert(R);
  }
  for (int32_t R : engine::ListDeletedRecords(State.Engine)) {
    if (!Numbers.insert(R).second) return "record " + std::to_string(R) + " is live or free twice";
  }
  const int32_t Last = State.Engine.Header.LastRecord;
  if (Numbers.size() != static_cast<size_t>(Last) ||
      (!Numbers.empty() && (*Numbers.begin() != 1 || *Numbers.rbegin() != Last))) {
    return "live and free records do not cover 1.." + std::to_string(Last) + " (" +
           std::to_string(Numbers.size()) + " numbers, " +
           std::to_string(engine::ListDeletedRecords(State.Engine).size()) + " free, " +
           std::to_string(T.RecordCount()) + " in the data file)";
  }
  return "";
}

// True for a failure that only says another user held a lock: error 70, or 55000 whose
// description shows a lock ("Permiso denegado", "bloque...").
inline bool IsLockFailure(const TQError& Error) {
  const std::string& Text = Error.Description();
  const bool ShowsLock = Text.find("Permiso denegado") != std::string::npos ||
                         Text.find("bloque") != std::string::npos;
  return Error.Number() == 70 || (Error.Number() == 55000 && ShowsLock);
}

}  // namespace tqdb::testing

// Tables and checks shared by the reliability tests, written with table_writer:
//   MOVIM: CLAVE text 10 (key 1), ESTADO text 6 (key 2, many duplicates), IMPORTE double,
//          NOTA text 30.
//   CUENT: CODIGO text 8 (key 1), NOMBRE text 20, SALDO double, UNIDADES 16-bit integer;
//          key 2 is NOMBRE + CODIGO.
// The checks say in words what is wrong ("" when nothing is).
#pragma once

#include <cctype>
#include <cstdint>
#include <filesystem>
#include <map>
#include <set>
#include <string>
#include <vector>

#include "engine/record_allocator.h"
#include "engine/tree_checker.h"
#include "platform/fault.h"
#include "platform/file_pool.h"
#include "records/record_codecs.h"
#include "support/key_agreement.h"
#include "support/table_writer.h"
#include "support/temp_dir.h"
#include "table/TQError.h"
#include "table/TQFile.h"

namespace tqdb::testing {

inline TableSpec MovementSpec() {
  return {"MOVIMIENTOS",
          {{"CLAVE", 0, 10}, {"ESTADO", 0, 6}, {"IMPORTE", 3, 8}, {"NOTA", 0, 30}},
          {KeySpec{{{1, 1, 10}}}, KeySpec{{{2, 1, 6}}}}};
}

// Prefix followed by I in Width digits: Numbered("CTA", 1, 5) is "CTA00001".
inline std::string Numbered(const std::string& Prefix, int I, size_t Width) {
  const std::string Digits = std::to_string(I);
  return Prefix + std::string(Width > Digits.size() ? Width - Digits.size() : 0, '0') + Digits;
}
inline std::string BaseAccountCode(int I) { return Numbered("CTA", I, 5); }
inline std::string BaseClave(int I) { return Numbered("MBASE", I, 4); }

// MOVIM with Movements records BaseClave(1).. (ESTADO cycling through four values) and
// CUENT with Accounts base accounts at zero; they open as Dir + "MOVIM01" and "CUENT01".
inline void WriteReliabilityTables(const TempDir& Dir, int Movements, int Accounts) {
  static const char* const kStates[] = {"ALTA", "BAJA", "PEND", "OK"};
  const TableSpec Movement = MovementSpec();
  std::vector<std::string> Records;
  for (int I = 1; I <= Movements; ++I) {
    Records.push_back(RecordBytes(
        Movement, {BaseClave(I), kStates[I % 4], I * 1.5, "NOTA " + std::to_string(I)}));
  }
  WriteDictionary(Dir.Dir(), "MOVIM", Movement);
  WriteDataFile(Dir.File("MOVIM01.tqd"), Records);
  const TableSpec Account{
      "CUENTAS",
      {{"CODIGO", 0, 8}, {"NOMBRE", 0, 20}, {"SALDO", 3, 8}, {"UNIDADES", 1, 2}},
      {KeySpec{{{1, 1, 8}}}, KeySpec{{{2, 1, 20}, {1, 1, 8}}}}};
  Records.clear();
  for (int I = 1; I <= Accounts; ++I) {
    Records.push_back(
        RecordBytes(Account, {BaseAccountCode(I), "CUENTA " + std::to_string(I), 0, 0}));
  }
  WriteDictionary(Dir.Dir(), "CUENT", Account);
  WriteDataFile(Dir.File("CUENT01.tqd"), Records);
}

// The file of Dir whose name, upper-cased, is Upper ("" when there is none): the engine
// creates files under the upper-cased names of its commands.
inline std::string FindFile(const TempDir& Dir, const std::string& Upper) {
  for (const auto& Entry : std::filesystem::directory_iterator(Dir.Path())) {
    std::string Name = Entry.path().filename().string();
    for (char& C : Name) C = static_cast<char>(std::toupper(static_cast<unsigned char>(C)));
    if (Name == Upper) return Entry.path().string();
  }
  return "";
}

inline void CopyDir(const TempDir& From, const TempDir& To) {
  std::filesystem::copy(
      From.Path(), To.Path(),
      std::filesystem::copy_options::recursive | std::filesystem::copy_options::overwrite_existing);
}

// The files of Dir that another open file description cannot lock whole at once (all below
// the presence byte that every open table holds shared), each after a blank.
inline std::string LockedFiles(const TempDir& Dir) {
  std::string Locked;
  for (const auto& Entry : std::filesystem::directory_iterator(Dir.Path())) {
    const platform::FileNo Number = platform::TakeFreeNumber();
    try {
      platform::Open(Number, Entry.path().string(), platform::OpenMode::Binary);
      platform::LockRange(Number, 1, int64_t{1} << 62, true);
      platform::UnlockRange(Number, 1, int64_t{1} << 62);
    } catch (const platform::Fault&) {
      Locked += " " + Entry.path().filename().string();
    }
    platform::ReleaseNumber(Number);
  }
  return Locked;
}

// A field's text without its blank padding.
inline std::string Trimmed(const Variant& Value) {
  std::string Text = Value.ToString();
  while (!Text.empty() && Text.back() == ' ') Text.pop_back();
  return Text;
}

// The live records of an open table by the text of field KeyField (twice when twice).
inline std::multimap<std::string, int32_t> LiveRecordsBy(TQFile& T, const std::string& KeyField) {
  std::multimap<std::string, int32_t> Live;
  for (int32_t R = 1, Count = T.RecordCount(); R <= Count; ++R) {
    if (IsAnulado(T.State(), R)) continue;
    T.SetBookMark(R);
    Live.emplace(Trimmed(T.Fields(KeyField)), R);
  }
  return Live;
}

// The tree checker's problems, keys that disagree with the data file, and record numbers
// that are not either live or on the deleted-record stack exactly once.
inline std::string TableSoundness(TQFile& T) {
  TableState& State = T.State();
  for (const std::string& Problem : engine::CheckKeyFile(State.Engine)) return Problem;
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
    return "live and free records do not cover 1.." + std::to_string(Last);
  }
  return "";
}

}  // namespace tqdb::testing

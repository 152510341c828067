// Eight processes share two tables and do mixed work on them at once: adding, editing
// (key fields included) and deleting records, seeking and walking both keys, and adding
// to counters in place. A process retries an operation that failed only because another
// held a lock, as a client would. Afterwards the key files must be sound and agree with
// the data files, every record a process reported written must read back as it left it,
// nothing may be lost or duplicated, and every counter must equal the sum of all
// additions made to it.
#include <gtest/gtest.h>

#include <chrono>
#include <cmath>
#include <cstdio>
#include <cstdlib>
#include <fstream>
#include <map>
#include <memory>
#include <random>
#include <sstream>
#include <string>
#include <thread>
#include <vector>

#include "support/child_process.h"
#include "support/reliability_tables.h"
#include "support/temp_dir.h"
#include "table/TQError.h"
#include "table/TQFile.h"

namespace tqdb::testing {
namespace {

constexpr int kProcesses = 8;
// The bounds CI runs with; TQDB_STRESS_OPERATIONS and TQDB_STRESS_SECONDS raise them for
// a longer run.
constexpr int kOperationsPerProcess = 250;
constexpr int kSecondsPerProcess = 12;
constexpr int kBaseAccounts = 12;
constexpr int kBaseMovements = 150;
constexpr int kMaxLockRetries = 200000;

const char* const kStates[] = {"ALTA", "BAJA", "PEND", "OK", "ANUL", "CERR"};

int FromEnvironment(const char* Name, int Default) {
  const char* Text = std::getenv(Name);
  return Text != nullptr && std::atoi(Text) > 0 ? std::atoi(Text) : Default;
}

const int kOperations = FromEnvironment("TQDB_STRESS_OPERATIONS", kOperationsPerProcess);
const auto kTimeBudget =
    std::chrono::seconds(FromEnvironment("TQDB_STRESS_SECONDS", kSecondsPerProcess));
const auto kHardLimit = kTimeBudget * 4 + std::chrono::seconds(60);

struct Movement {
  std::string Estado;
  double Importe = 0;
  std::string Nota;
};

// What one process did, as it reports it.
struct Report {
  int Operations = 0;
  int Retries = 0;
  std::map<std::string, Movement> Movements;    // CLAVE -> live record it wrote
  std::map<std::string, std::string> Accounts;  // CODIGO -> NOMBRE of accounts it added
  std::map<std::string, double> SaldoAdded;     // base account -> sum added to SALDO
  std::map<std::string, int> UnidadesAdded;     // base account -> additions to UNIDADES
  std::vector<std::string> Errors;
};

std::string Fixed(int Value, int Width) {
  std::string Digits = std::to_string(Value);
  return std::string(static_cast<size_t>(std::max(0, Width - int(Digits.size()))), '0') + Digits;
}

void WriteReport(const std::string& Path, const Report& R) {
  std::ofstream Out(Path, std::ios::trunc);
  Out << "OPS|" << R.Operations << "\nRETRIES|" << R.Retries << "\n";
  for (const auto& [Clave, M] : R.Movements) {
    Out << "M|" << Clave << "|" << M.Estado << "|" << M.Importe << "|" << M.Nota << "\n";
  }
  for (const auto& [Code, Name] : R.Accounts) Out << "A|" << Code << "|" << Name << "\n";
  for (const auto& [Code, Sum] : R.SaldoAdded) {
    Out << "S|" << Code << "|" << Sum << "|" << R.UnidadesAdded.at(Code) << "\n";
  }
  for (const std::string& E : R.Errors) Out << "ERR|" << E << "\n";
}

std::vector<std::string> SplitBars(const std::string& Line) {
  std::vector<std::string> Parts;
  std::stringstream In(Line);
  for (std::string Part; std::getline(In, Part, '|');) Parts.push_back(Part);
  return Parts;
}

Report ReadReport(const std::string& Path) {
  Report R;
  std::ifstream In(Path);
  for (std::string Line; std::getline(In, Line);) {
    const std::vector<std::string> P = SplitBars(Line);
    if (P.empty()) continue;
    if (P[0] == "OPS") R.Operations = std::stoi(P.at(1));
    if (P[0] == "RETRIES") R.Retries = std::stoi(P.at(1));
    if (P[0] == "M") R.Movements[P.at(1)] = {P.at(2), std::stod(P.at(3)), P.size() > 4 ? P[4] : ""};
    if (P[0] == "A") R.Accounts[P.at(1)] = P.size() > 2 ? P[2] : "";
    if (P[0] == "S") {
      R.SaldoAdded[P.at(1)] = std::stod(P.at(2));
      R.UnidadesAdded[P.at(1)] = std::stoi(P.at(3));
    }
    if (P[0] == "ERR") R.Errors.push_back(Line.substr(4));
  }
  return R;
}

// One process's share of the work.
class Worker {
 public:
  Worker(int Id, const TempDir& Dir) : id_(Id), dir_(Dir), random_(0x5EED + Id * 7919) {}

  int Run() {
    movim_.OpenFile(dir_.File("MOVIM01"), dir_.Dir());
    cuent_.OpenFile(dir_.File("CUENT01"), dir_.Dir());
    for (int I = 1; I <= kBaseAccounts; ++I) {
      report_.SaldoAdded[BaseAccountCode(I)] = 0;
      report_.UnidadesAdded[BaseAccountCode(I)] = 0;
    }
    const auto Deadline = std::chrono::steady_clock::now() + kTimeBudget;
    while (report_.Operations < kOperations && std::chrono::steady_clock::now() < Deadline &&
           report_.Errors.size() < 5) {
      OneOperation();
      ++report_.Operations;
    }
    movim_.CloseDB();
    cuent_.CloseDB();
    WriteReport(dir_.File("report-" + std::to_string(id_) + ".txt"), report_);
    return report_.Errors.empty() ? 0 : 1;
  }

 private:
  int Pick(int Below) { return std::uniform_int_distribution<int>(0, Below - 1)(random_); }

  // Runs Work, retrying while it fails only because of a lock held elsewhere. Any other
  // failure is reported; returns whether Work succeeded.
  template <typename F>
  bool Retrying(const std::string& What, F&& Work) {
    for (int Try = 0;; ++Try) {
      try {
        Work();
        return true;
      } catch (const TQError& Error) {
        if (IsLockFailure(Error) && Try < kMaxLockRetries) {
          ++report_.Retries;
          std::this_thread::sleep_for(std::chrono::microseconds(Pick(300)));
          continue;
        }
        report_.Errors.push_back(What + ": " + std::to_string(Error.Number()) + " " +
                                 Error.Description() + " [" + Error.Source() + "]");
        return false;
      }
    }
  }

  void Fail(const std::string& What) { report_.Errors.push_back(What); }

  // Seeks Text on key 1 of T; the record found, 0 when none.
  static int32_t SeekExact(TQFile& T, const std::string& Text) {
    T.SetIndex(1);
    return T.SeekKey(Variant(Text), adseekfirsteq);
  }

  std::string RandomOwned(const std::map<std::string, Movement>& Owned) {
    auto It = Owned.begin();
    std::advance(It, Pick(static_cast<int>(Owned.size())));
    return It->first;
  }

  void OneOperation() {
    const int Dice = Pick(100);
    if (Dice < 24) return AddMovement();
    if (Dice < 38) return EditMovement();
    if (Dice < 46) return DeleteMovement();
    if (Dice < 62) return Walk();
    if (Dice < 86) return AddToCounter();
    if (Dice < 92) return AddAccount();
    return RenameAccount();
  }

  void AddMovement() {
    const std::string Clave = "M" + std::to_string(id_) + "-" + Fixed(++sequence_, 6);
    const Movement M{kStates[Pick(6)], double(Pick(20000) - 10000) / 4,
                     "P" + std::to_string(id_) + " " + std::to_string(Pick(1000000))};
    const bool Done = Retrying("AddNew " + Clave, [&] {
      movim_.AddNew();
      movim_.SetFields("CLAVE", Clave);
      movim_.SetFields("ESTADO", M.Estado);
      movim_.SetFields("IMPORTE", M.Importe);
      movim_.SetFields("NOTA", M.Nota);
      movim_.Update();
    });
    if (!Done) return;
    report_.Movements[Clave] = M;
    ExpectReadsBack(Clave, M);
  }

  void ExpectReadsBack(const std::string& Clave, const Movement& M) {
    Retrying("read back " + Clave, [&] {
      if (SeekExact(movim_, Clave) == 0) return Fail("written record not found: " + Clave);
      if (Trimmed(movim_.Fields("ESTADO")) != M.Estado ||
          movim_.Fields("IMPORTE").ToDouble() != M.Importe ||
          Trimmed(movim_.Fields("NOTA")) != M.Nota) {
        Fail("written record reads back otherwise: " + Clave);
      }
    });
  }

  void EditMovement() {
    if (report_.Movements.empty()) return AddMovement();
    const std::string Clave = RandomOwned(report_.Movements);
    Movement M = report_.Movements[Clave];
    M.Estado = kStates[Pick(6)];
    M.Importe = double(Pick(20000) - 10000) / 4;
    const bool Done = Retrying("Edit " + Clave, [&] {
      if (SeekExact(movim_, Clave) == 0) return Fail("record to edit not found: " + Clave);
      movim_.Edit();
      movim_.SetFields("ESTADO", M.Estado);
      movim_.SetFields("IMPORTE", M.Importe);
      movim_.Update();
    });
    if (!Done) return;
    report_.Movements[Clave] = M;
    ExpectReadsBack(Clave, M);
  }

  void DeleteMovement() {
    if (report_.Movements.empty()) return AddMovement();
    const std::string Clave = RandomOwned(report_.Movements);
    const bool Done = Retrying("Delete " + Clave, [&] {
      const int32_t Record = SeekExact(movim_, Clave);
      if (Record == 0) return Fail("record to delete not found: " + Clave);
      movim_.Delete(Record);
    });
    if (!Done) return;
    report_.Movements.erase(Clave);
    Retrying("after Delete " + Clave, [&] {
      if (SeekExact(movim_, Clave) != 0) Fail("deleted record still found: " + Clave);
    });
  }

  // Seeks somewhere on a key of either table and reads a few records forward or back.
  void Walk() {
    TQFile& T = Pick(2) == 0 ? movim_ : cuent_;
    const int16_t Key = static_cast<int16_t>(1 + Pick(2));
    const bool Forward = Pick(3) != 0;
    Retrying("walk", [&] {
      T.SetIndex(Key);
      if (Pick(4) == 0) {
        Forward ? T.MoveFirst() : T.MoveLast();
      } else {
        const std::string Start = &T == &movim_ ? (Key == 1 ? "M" + std::to_string(Pick(8))
                                                            : std::string(kStates[Pick(6)]))
                                                : (Key == 1 ? "CTA" : "CUENTA");
        T.SeekKey(Variant(Start), adSeekAfterEQ);
      }
      for (int Step = 0; Step < 15 && T.LastError() == 0 && T.BookMark() > 0; ++Step) {
        for (int32_t F = 1; F <= T.FieldCount(); ++F) T.Fields(Variant(F));
        Forward ? T.MoveNext() : T.MovePrevious();
      }
    });
  }

  void AddToCounter() {
    const std::string Code = BaseAccountCode(1 + Pick(kBaseAccounts));
    const double Amount = Pick(201) - 100;
    if (!Retrying("seek " + Code, [&] {
          if (SeekExact(cuent_, Code) == 0) Fail("base account not found: " + Code);
        })) {
      return;
    }
    if (cuent_.BookMark() == 0) return;
    if (Retrying("AddToField SALDO " + Code, [&] { cuent_.AddToField("SALDO", Amount); })) {
      report_.SaldoAdded[Code] += Amount;
    }
    if (Retrying("AddToField UNIDADES " + Code, [&] { cuent_.AddToField("UNIDADES", 1.0); })) {
      report_.UnidadesAdded[Code] += 1;
    }
  }

  void AddAccount() {
    const std::string Code = "A" + std::to_string(id_) + "-" + Fixed(++accounts_, 4);
    const std::string Name = "NOMBRE " + std::string(kStates[Pick(6)]);
    if (Retrying("AddNew " + Code, [&] {
          cuent_.AddNew();
          cuent_.SetFields("CODIGO", Code);
          cuent_.SetFields("NOMBRE", Name);
          cuent_.Update();
        })) {
      report_.Accounts[Code] = Name;
    }
  }

  // Changes the name of an account this process added: a key-2 field.
  void RenameAccount() {
    if (report_.Accounts.empty()) return AddAccount();
    auto It = report_.Accounts.begin();
    std::advance(It, Pick(static_cast<int>(report_.Accounts.size())));
    const std::string Code = It->first;
    const std::string Name = "RENOMBRADA " + std::to_string(Pick(100));
    if (Retrying("rename " + Code, [&] {
          if (SeekExact(cuent_, Code) == 0) return Fail("account to rename not found: " + Code);
          cuent_.Edit();
          cuent_.SetFields("NOMBRE", Name);
          cuent_.Update();
        })) {
      report_.Accounts[Code] = Name;
    }
  }

  int id_;
  const TempDir& dir_;
  std::mt19937 random_;
  TQFile movim_;
  TQFile cuent_;
  Report report_;
  int sequence_ = 0;
  int accounts_ = 0;
};

class MultiProcessStressTest : public ::testing::Test {
 protected:
  void SetUp() override { WriteReliabilityTables(dir_, kBaseMovements, kBaseAccounts); }

  std::unique_ptr<TQFile> Open(const std::string& Name) {
    auto T = std::make_unique<TQFile>();
    T->OpenFile(dir_.File(Name), dir_.Dir());
    return T;
  }

  TempDir dir_;
};

TEST_F(MultiProcessStressTest, EightProcessesLoseNothingAndCountEveryAddition) {
  // Build both key files before the processes start, so that none of them builds one.
  Open("MOVIM01");
  Open("CUENT01");

  std::vector<std::unique_ptr<ChildProcess>> Children;
  for (int Id = 0; Id < kProcesses; ++Id) {
    Children.push_back(std::make_unique<ChildProcess>([&, Id] { return Worker(Id, dir_).Run(); }));
  }
  std::vector<Report> Reports;
  for (int Id = 0; Id < kProcesses; ++Id) {
    Children[Id]->Wait(kHardLimit);
    Reports.push_back(ReadReport(dir_.File("report-" + std::to_string(Id) + ".txt")));
    EXPECT_TRUE(Children[Id]->Succeeded()) << "process " << Id << ": " << Children[Id]->Outcome();
    for (const std::string& E : Reports.back().Errors)
      ADD_FAILURE() << "process " << Id << ": " << E;
  }

  auto Movim = Open("MOVIM01");
  auto Cuent = Open("CUENT01");
  EXPECT_EQ(TableSoundness(*Movim), "");
  EXPECT_EQ(TableSoundness(*Cuent), "");

  // Movements: the base ones untouched, plus exactly the ones the processes kept.
  std::map<std::string, Movement> Expected;
  for (int I = 1; I <= kBaseMovements; ++I) {
    const std::string Digits = std::to_string(I);
    Expected["MBASE" + std::string(4 - Digits.size(), '0') + Digits] = {};
  }
  int Operations = 0, Retries = 0;
  for (const Report& R : Reports) {
    Operations += R.Operations;
    Retries += R.Retries;
    Expected.insert(R.Movements.begin(), R.Movements.end());
  }
  const std::multimap<std::string, int32_t> Live = LiveRecordsBy(*Movim, "CLAVE");
  EXPECT_EQ(Live.size(), Expected.size()) << "live movements";
  for (const auto& [Clave, M] : Expected) {
    const auto Count = Live.count(Clave);
    if (Count != 1) {
      ADD_FAILURE() << Clave << " is live " << Count << " times";
      continue;
    }
    if (Clave.starts_with("MBASE")) continue;
    Movim->SetBookMark(Live.find(Clave)->second);
    EXPECT_EQ(Trimmed(Movim->Fields("ESTADO")), M.Estado) << Clave;
    EXPECT_EQ(Movim->Fields("IMPORTE").ToDouble(), M.Importe) << Clave;
    EXPECT_EQ(Trimmed(Movim->Fields("NOTA")), M.Nota) << Clave;
  }

  // Accounts: every counter holds the sum of all additions; added accounts are there once.
  const std::multimap<std::string, int32_t> Accounts = LiveRecordsBy(*Cuent, "CODIGO");
  size_t ExpectedAccounts = kBaseAccounts;
  for (const Report& R : Reports) {
    ExpectedAccounts += R.Accounts.size();
    for (const auto& [Code, Name] : R.Accounts) {
      ASSERT_EQ(Accounts.count(Code), 1u) << Code;
      Cuent->SetBookMark(Accounts.find(Code)->second);
      EXPECT_EQ(Trimmed(Cuent->Fields("NOMBRE")), Name) << Code;
    }
  }
  EXPECT_EQ(Accounts.size(), ExpectedAccounts);
  int Additions = 0;
  for (int I = 1; I <= kBaseAccounts; ++I) {
    const std::string Code = BaseAccountCode(I);
    double Saldo = 0;
    int Unidades = 0;
    for (const Report& R : Reports) {
      Saldo += R.SaldoAdded.count(Code) ? R.SaldoAdded.at(Code) : 0;
      Unidades += R.UnidadesAdded.count(Code) ? R.UnidadesAdded.at(Code) : 0;
    }
    Additions += Unidades;
    ASSERT_EQ(Accounts.count(Code), 1u) << Code;
    Cuent->SetBookMark(Accounts.find(Code)->second);
    EXPECT_EQ(Cuent->Fields("SALDO").ToDouble(), Saldo) << Code;
    EXPECT_EQ(Cuent->Fields("UNIDADES").ToDouble(), Unidades) << Code;
  }
  std::printf(
      "[ stress   ] %d processes, %d operations (%d counter additions, %d lock retries), "
      "%zu movements and %zu accounts checked\n",
      kProcesses, Operations, Additions, Retries, Expected.size(), ExpectedAccounts);
}

// Images and long texts live in files of their own that every writer appends to under a
// lock of the whole file: several processes saving such records at once must all succeed,
// each record once, with its own image and text.
TEST(MultiProcessImageStressTest, ProcessesSavingImagesAtOnceAllSucceed) {
  constexpr int kWriters = 6;
  constexpr int kRecordsEach = 40;
  TempDir Dir;
  TableSpec Spec;
  Spec.Description = "FOTOS";
  Spec.Fields = {{"CODIGO", 0, 8}, {"FOTO", 62, 4}, {"MEMO", 74, 12}};
  Spec.Keys = {KeySpec{{{1, 1, 8}}}};
  WriteDictionary(Dir.Dir(), "FOTOS", Spec);
  WriteDataFile(Dir.File("FOTOS01.tqd"), {});
  {
    TQFile T;
    T.OpenFile(Dir.File("FOTOS01"), Dir.Dir());
  }
  std::vector<std::unique_ptr<ChildProcess>> Children;
  for (int Id = 0; Id < kWriters; ++Id) {
    Children.push_back(std::make_unique<ChildProcess>([&, Id] {
      TQFile T;
      T.OpenFile(Dir.File("FOTOS01"), Dir.Dir());
      for (int I = 0; I < kRecordsEach; ++I) {
        const std::string Code = "F" + std::to_string(Id) + "-" + Fixed(I, 4);
        try {
          T.AddNew();
          T.SetFields("CODIGO", Code);
          T.SetFields("FOTO", "IMAGEN " + Code + std::string(I * 7 % 300, '*'));
          T.SetFields("MEMO", "TEXTO " + Code + std::string(I * 11 % 200, '-'));
          T.Update();
          T.SetIndex(1);
          if (T.SeekKey(Variant(Code)) == 0) return 2;
          T.Edit();
          T.SetFields("FOTO", "OTRA IMAGEN " + Code + std::string(I * 13 % 400, '+'));
          T.Update();
        } catch (const TQError& Error) {
          std::fprintf(stderr, "%s: %d %s\n", Code.c_str(), Error.Number(),
                       Error.Description().c_str());
          return 1;
        }
      }
      return 0;
    }));
  }
  for (auto& Child : Children) {
    Child->Wait(std::chrono::seconds(120));
    EXPECT_TRUE(Child->Succeeded()) << Child->Outcome();
  }
  TQFile T;
  T.OpenFile(Dir.File("FOTOS01"), Dir.Dir());
  EXPECT_EQ(TableSoundness(T), "");
  const std::multimap<std::string, int32_t> Live = LiveRecordsBy(T, "CODIGO");
  EXPECT_EQ(Live.size(), size_t{kWriters * kRecordsEach});
  for (int Id = 0; Id < kWriters; ++Id) {
    for (int I = 0; I < kRecordsEach; ++I) {
      const std::string Code = "F" + std::to_string(Id) + "-" + Fixed(I, 4);
      ASSERT_EQ(Live.count(Code), 1u) << Code;
      T.SetBookMark(Live.find(Code)->second);
      EXPECT_EQ(Trimmed(T.Fields("FOTO")), "OTRA IMAGEN " + Code + std::string(I * 13 % 400, '+'));
      EXPECT_EQ(T.Fields("MEMO").ToString(), "TEXTO " + Code + std::string(I * 11 % 200, '-'));
    }
  }
}

}  // namespace
}  // namespace tqdb::testing

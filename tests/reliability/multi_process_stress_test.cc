// The multi-process stress: eight processes share two tables and at once add, edit (key
// fields too) and delete records, seek and walk both keys, and add to counters in place,
// retrying what failed only because another held a lock, as a client would. Afterwards the
// keys are sound and agree with the data, every record a process kept reads back as it
// left it, nothing is lost or doubled, and every counter holds the sum of all additions.
// TQDB_STRESS_OPERATIONS and TQDB_STRESS_SECONDS raise the bounds for a longer run.
#include <gtest/gtest.h>

#include <chrono>
#include <cstdio>
#include <cstdlib>
#include <filesystem>
#include <fstream>
#include <map>
#include <memory>
#include <random>
#include <string>
#include <thread>
#include <vector>

#include "support/child_process.h"
#include "support/reliability_tables.h"

namespace tqdb::testing {
namespace {

constexpr int kProcesses = 8, kBaseAccounts = 12, kBaseMovements = 150;
const char* const kStates[] = {"ALTA", "BAJA", "PEND", "OK", "ANUL", "CERR"};

int FromEnvironment(const char* Name, int Default) {
  const char* Text = std::getenv(Name);
  return Text != nullptr && std::atoi(Text) > 0 ? std::atoi(Text) : Default;
}
const int kOperations = FromEnvironment("TQDB_STRESS_OPERATIONS", 250);
const auto kTimeBudget = std::chrono::seconds(FromEnvironment("TQDB_STRESS_SECONDS", 12));

struct Movement {
  std::string Estado;
  double Importe = 0;
  std::string Nota;
  bool operator==(const Movement&) const = default;
};
Movement Current(TQFile& T) {  // the movement at T's current record
  return {Trimmed(T.Fields("ESTADO")), T.Fields("IMPORTE").ToDouble(), Trimmed(T.Fields("NOTA"))};
}

// What processes did: the movements they kept and what they added to each account (SALDO,
// UNIDADES). Write sends the errors met to standard error; Read adds a written report.
struct Report {
  int Operations = 0;
  std::map<std::string, Movement> Movements;
  std::map<std::string, std::pair<double, int>> Added;
  std::vector<std::string> Errors;

  void Write(const std::string& Path) const {
    std::ofstream Out(Path);
    for (const auto& [Clave, M] : Movements)
      Out << "M " << Clave << " " << M.Estado << " " << M.Importe << " " << M.Nota << "\n";
    for (const auto& [Code, Sum] : Added)
      Out << "S " << Code << " " << Sum.first << " " << Sum.second << "\n";
    for (const std::string& E : Errors) std::fprintf(stderr, "%s\n", E.c_str());
  }
  void Read(const std::string& Path) {
    std::ifstream In(Path);
    for (std::string Kind, Key; In >> Kind >> Key;) {
      if (Kind == "M") {
        Movement& M = Movements[Key];
        std::getline(In >> M.Estado >> M.Importe >> std::ws, M.Nota);
      } else {
        std::pair<double, int> Sum;
        In >> Sum.first >> Sum.second;
        Added[Key].first += Sum.first, Added[Key].second += Sum.second;
      }
    }
  }
};

// One process's share of the work.
class Worker {
 public:
  Worker(int Id, const TempDir& Dir) : id_(Id), random_(0x5EED + Id * 7919) {
    movim_.OpenFile(Dir.File("MOVIM01"), Dir.Dir());
    cuent_.OpenFile(Dir.File("CUENT01"), Dir.Dir());
  }

  Report Run() {
    const auto Deadline = std::chrono::steady_clock::now() + kTimeBudget;
    for (; r_.Operations < kOperations && std::chrono::steady_clock::now() < Deadline &&
           r_.Errors.size() < 5;
         ++r_.Operations) {
      const int Dice = Pick(100);
      if (Dice < 38) {
        SaveMovement(Dice < 24 || r_.Movements.empty());
      } else if (Dice < 46 && !r_.Movements.empty()) {
        DeleteMovement();
      } else if (Dice < 62) {
        Walk();
      } else {
        AddToCounter();
      }
    }
    return r_;
  }

 private:
  int Pick(int Below) { return std::uniform_int_distribution<int>(0, Below - 1)(random_); }

  // Runs Work, retrying while it fails only because another user held a lock (error 70, or
  // 55000 showing a lock); any other failure is reported. Returns whether Work succeeded.
  template <typename F>
  bool Retrying(const std::string& What, F&& Work) {
    for (int Try = 0;; ++Try) {
      try {
        const size_t Before = r_.Errors.size();
        Work();
        return r_.Errors.size() == Before;
      } catch (const TQError& Error) {
        const std::string& Text = Error.Description();
        const bool Lock =
            Error.Number() == 70 ||
            (Error.Number() == 55000 && (Text.find("Permiso denegado") != std::string::npos ||
                                         Text.find("bloque") != std::string::npos));
        if (Lock && Try < 200000) {
          std::this_thread::sleep_for(std::chrono::microseconds(Pick(300)));
          continue;
        }
        r_.Errors.push_back(What + ": " + std::to_string(Error.Number()) + " " + Text + " [" +
                            Error.Source() + "]");
        return false;
      }
    }
  }
  // Seeks Text on key 1 of T and reports when that does not find it.
  bool Find(TQFile& T, const std::string& Text) {
    T.SetIndex(1);
    if (T.SeekKey(Variant(Text)) != 0) return true;
    r_.Errors.push_back("not found: " + Text);
    return false;
  }
  template <typename Map>
  std::string AnyOf(const Map& Owned) {
    return std::next(Owned.begin(), Pick(static_cast<int>(Owned.size())))->first;
  }
  // Adds a movement, or changes the state and amount of one this process kept, and reads it
  // back.
  void SaveMovement(bool New) {
    const std::string Clave =
        New ? "M" + std::to_string(id_) + "-" + Numbered("", ++sequence_, 6) : AnyOf(r_.Movements);
    Movement M =
        New ? Movement{"", 0, "P" + std::to_string(id_) + " " + std::to_string(Pick(1000000))}
            : r_.Movements[Clave];
    M.Estado = kStates[Pick(6)];
    M.Importe = (Pick(20000) - 10000) / 4.0;
    if (!Retrying("Save " + Clave, [&] {
          if (!New && !Find(movim_, Clave)) return;
          New ? movim_.AddNew() : movim_.Edit();
          if (New) movim_.SetFields("CLAVE", Clave), movim_.SetFields("NOTA", M.Nota);
          movim_.SetFields("ESTADO", M.Estado);
          movim_.SetFields("IMPORTE", M.Importe);
          movim_.Update();
        }))
      return;
    r_.Movements[Clave] = M;
    Retrying("read back " + Clave, [&] {
      if (Find(movim_, Clave) && !(Current(movim_) == M))
        r_.Errors.push_back("reads back otherwise: " + Clave);
    });
  }
  void DeleteMovement() {
    const std::string Clave = AnyOf(r_.Movements);
    if (!Retrying("Delete " + Clave, [&] {
          if (Find(movim_, Clave)) movim_.Delete(movim_.BookMark());
        }))
      return;
    r_.Movements.erase(Clave);
    Retrying("after Delete " + Clave, [&] {
      movim_.SetIndex(1);
      if (movim_.SeekKey(Variant(Clave)) != 0)
        r_.Errors.push_back("deleted record still found: " + Clave);
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
        T.SeekKey(
            Variant(&T == &movim_ ? (Key == 1 ? "M" + std::to_string(Pick(8)) : kStates[Pick(6)])
                                  : (Key == 1 ? "CTA" : "CUENTA")),
            adSeekAfterEQ);
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
    if (!Retrying("seek " + Code, [&] { Find(cuent_, Code); })) return;
    if (Retrying("SALDO " + Code, [&] { cuent_.AddToField("SALDO", Amount); }))
      r_.Added[Code].first += Amount;
    if (Retrying("UNIDADES " + Code, [&] { cuent_.AddToField("UNIDADES", 1.0); }))
      r_.Added[Code].second += 1;
  }
  int id_, sequence_ = 0;
  std::mt19937 random_;
  TQFile movim_, cuent_;
  Report r_;
};

std::unique_ptr<TQFile> Open(const TempDir& Dir, const std::string& Name) {
  auto T = std::make_unique<TQFile>();
  T->OpenFile(Dir.File(Name), Dir.Dir());
  return T;
}

TEST(MultiProcessStressTest, EightProcessesLoseNothingAndCountEveryAddition) {
  TempDir Dir;
  WriteReliabilityTables(Dir, kBaseMovements, kBaseAccounts);
  Open(Dir, "MOVIM01");  // the key files exist before the processes start
  Open(Dir, "CUENT01");
  std::vector<std::unique_ptr<ChildProcess>> Children;
  for (int Id = 0; Id < kProcesses; ++Id) {
    Children.push_back(std::make_unique<ChildProcess>([&, Id] {
      const Report R = Worker(Id, Dir).Run();
      R.Write(Dir.File("report-" + std::to_string(Id)));
      return R.Errors.empty() ? 0 : 1;
    }));
  }
  Report All;
  for (int I = 1; I <= kBaseMovements; ++I) All.Movements[BaseClave(I)] = {};
  for (int Id = 0; Id < kProcesses; ++Id) {
    Children[Id]->Wait(kTimeBudget * 4 + std::chrono::seconds(60));
    EXPECT_TRUE(Children[Id]->Succeeded()) << "process " << Id << ": " << Children[Id]->Outcome();
    All.Read(Dir.File("report-" + std::to_string(Id)));
  }
  EXPECT_GT(All.Movements.size(), size_t{kBaseMovements});  // the processes did their work
  auto Movim = Open(Dir, "MOVIM01"), Cuent = Open(Dir, "CUENT01");
  EXPECT_EQ(TableSoundness(*Movim), "");
  EXPECT_EQ(TableSoundness(*Cuent), "");
  // Movements: the base ones untouched, plus exactly the ones the processes kept.
  const std::multimap<std::string, int32_t> Live = LiveRecordsBy(*Movim, "CLAVE");
  EXPECT_EQ(Live.size(), All.Movements.size()) << "live movements";
  for (const auto& [Clave, M] : All.Movements) {
    ASSERT_EQ(Live.count(Clave), 1u) << Clave;
    if (Clave.starts_with("MBASE")) continue;
    Movim->SetBookMark(Live.find(Clave)->second);
    EXPECT_TRUE(Current(*Movim) == M) << Clave;
  }
  // Counters hold the sum of every addition made to them.
  const std::multimap<std::string, int32_t> Accounts = LiveRecordsBy(*Cuent, "CODIGO");
  for (int I = 1; I <= kBaseAccounts; ++I) {
    const std::string Code = BaseAccountCode(I);
    ASSERT_EQ(Accounts.count(Code), 1u) << Code;
    Cuent->SetBookMark(Accounts.find(Code)->second);
    EXPECT_EQ(Cuent->Fields("SALDO").ToDouble(), All.Added[Code].first) << Code;
    EXPECT_EQ(Cuent->Fields("UNIDADES").ToDouble(), All.Added[Code].second) << Code;
  }
}

// Two users saving images at once: the second waits for the first to finish appending to the
// image file instead of failing half-way through its Update. (That a failed operation leaves
// no lock behind is checked by the damaged-file sweep.)
TEST(MultiProcessStressTest, AnImageWriteWaitsForAnotherWriterAndLeavesNothingLocked) {
  TempDir Dir;
  const TableSpec Spec{"FOTOS", {{"CODIGO", 0, 8}, {"FOTO", 62, 4}}, {KeySpec{{{1, 1, 8}}}}};
  WriteDictionary(Dir.Dir(), "FOTOS", Spec);
  WriteDataFile(Dir.File("FOTOS01.tqd"), {});
  TQFile Fotos;
  Fotos.OpenFile(Dir.File("FOTOS01"), Dir.Dir());
  const auto Add = [&](const char* Code, const std::string& Image) {
    Fotos.AddNew(), Fotos.SetFields("CODIGO", Code), Fotos.SetFields("FOTO", Image), Fotos.Update();
  };
  Add("F1", "PRIMERA");
  const std::string Image = FindFile(Dir, "FOTOS01.TQW"), Ready = Dir.Path() + ".ready";
  ChildProcess Holder([&] {
    const platform::FileNo Number = platform::TakeFreeNumber();
    platform::Open(Number, Image);
    platform::LockRange(Number, 1, platform::kToEnd);
    std::ofstream(Ready) << "locked";
    std::this_thread::sleep_for(std::chrono::milliseconds(300));
    return 0;
  });
  while (!std::filesystem::exists(Ready)) std::this_thread::sleep_for(std::chrono::milliseconds(1));
  const std::string Second = "SEGUNDA " + std::string(150, '+');
  Add("F2", Second);
  Holder.Wait(std::chrono::seconds(30));
  std::filesystem::remove(Ready);
  Fotos.SetIndex(1);
  ASSERT_GT(Fotos.SeekKey(Variant("F2")), 0);
  EXPECT_EQ(Trimmed(Fotos.Fields("FOTO")), Second);
  EXPECT_EQ(LockedFiles(Dir), "");
}

}  // namespace
}  // namespace tqdb::testing

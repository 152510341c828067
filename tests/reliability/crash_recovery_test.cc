// A process killed in the middle of a change: AddNew/Update, Delete, Edit of key fields
// and Rebuild are stopped before each of their file changes in turn (kill_switch.h), so
// every state a crash can leave on disk is tried. Afterwards:
//  - the table opens, and a reader still finds every record the killed process did not
//    touch, exactly once, by seeking and by walking both keys (what a second user sees in
//    the middle of someone else's change is one of these states too);
//  - a repair, either Rebuild or the silent rebuild of a deleted key file at open, leaves
//    sound keys that agree with the data file and brings back every record whose data
//    write had completed; the record being changed is there exactly when the data file
//    says so.
#include <gtest/gtest.h>

#include <signal.h>
#include <sys/wait.h>

#include <cctype>
#include <chrono>
#include <cstdio>
#include <filesystem>
#include <functional>
#include <map>
#include <memory>
#include <set>
#include <stdexcept>
#include <string>
#include <vector>

#include "reliability/kill_switch.h"
#include "reliability/run_summary.h"
#include "support/child_process.h"
#include "support/reliability_tables.h"
#include "support/scoped_env.h"
#include "support/temp_dir.h"
#include "table/TQError.h"
#include "table/TQFile.h"

namespace tqdb::testing {
namespace {

constexpr int kBaseRecords = 300;
constexpr auto kChildLimit = std::chrono::seconds(60);

std::string BaseClave(int I) {
  const std::string Digits = std::to_string(I);
  return "MBASE" + std::string(4 - Digits.size(), '0') + Digits;
}

// The texts of field CLAVE (the first 10 bytes) of the live records in the data file.
std::multiset<std::string> ClavesInDataFile(const std::string& Bytes) {
  const size_t Length = static_cast<size_t>(RecordLengthOf(MovementSpec()));
  std::multiset<std::string> Claves;
  for (size_t At = 0; At + Length <= Bytes.size(); At += Length) {
    if (Bytes.compare(At, 7, "ANULADO") == 0) continue;
    std::string Clave = Bytes.substr(At, 10);
    while (!Clave.empty() && (Clave.back() == ' ' || Clave.back() == '\0')) Clave.pop_back();
    Claves.insert(Clave);
  }
  return Claves;
}

// Deletes the table's key file, whatever the case of its name (the engine creates it
// under the name its command gave, upper-cased).
void RemoveKeyFile(const TempDir& Dir) {
  for (const auto& Entry : std::filesystem::directory_iterator(Dir.Path())) {
    std::string Name = Entry.path().filename().string();
    for (char& C : Name) C = static_cast<char>(std::toupper(static_cast<unsigned char>(C)));
    if (Name == "MOVIM01.TQC") std::filesystem::remove(Entry.path());
  }
}

// Kill points tried over the whole run, and those whose every check passed.
struct KillTally {
  int64_t Tried = 0;
  int64_t Recovered = 0;
};
KillTally Tally;
[[maybe_unused]] const bool kKillSummary = PrintAtEnd([] {
  if (Tally.Tried == 0) return std::string();
  return "[ kill     ] " + std::to_string(Tally.Tried) + " kill points tried, " +
         std::to_string(Tally.Recovered) + " recovered";
});

// One kind of change, applied by the killed process to an open MOVIM table.
struct Change {
  std::string Name;
  std::function<void(TQFile&)> Apply;
  // The CLAVE texts the change may add or remove; every other base record must survive.
  std::set<std::string> Touched;
  // The state the table starts from: its key file built by the open or by Rebuild (whose
  // bulk load fills the pages differently), and its number of records, every seventh
  // deleted.
  bool BuiltByRebuild = false;
  int Records = kBaseRecords;
};

class CrashRecoveryTest : public ::testing::Test {
 protected:
  void SetUp() override {
    // The rebuild's audit copies go to a folder of their own.
    archive_env_ = std::make_unique<ScopedEnv>("TMPDIR", archive_.Path().c_str());
  }

  // The starting table of C.
  void WriteStartingTable(const TempDir& Dir, const Change& C) {
    WriteReliabilityTables(Dir, C.Records, 1);
    std::string Bytes = Dir.Read("MOVIM01.tqd");
    const std::string Deleted = DeletedRecordBytes(MovementSpec());
    for (int I = 7; I <= C.Records; I += 7) {
      Bytes.replace(size_t(I - 1) * Deleted.size(), Deleted.size(), Deleted);
      deleted_.insert(BaseClave(I));
    }
    Dir.Write("MOVIM01.tqd", Bytes);
    TQFile T;
    T.OpenFile(Dir.File("MOVIM01"), Dir.Dir());
    if (C.BuiltByRebuild) T.Rebuild();
  }

  // The base records that must survive any crash of Change.
  std::set<std::string> Survivors(const Change& C) const {
    std::set<std::string> Out;
    for (int I = 1; I <= C.Records; ++I) {
      const std::string Clave = BaseClave(I);
      if (!deleted_.count(Clave) && !C.Touched.count(Clave)) Out.insert(Clave);
    }
    return Out;
  }

  // What a reader sees in the table as the crash left it: every survivor once through
  // both keys and by seeking, and nothing unexpected raised.
  void ExpectReaderSeesSurvivors(const TempDir& Dir, const Change& C, int64_t KillPoint) {
    SCOPED_TRACE(C.Name + ", unrepaired, killed before change " + std::to_string(KillPoint));
    const std::set<std::string> Expected = Survivors(C);
    try {
      TQFile T;
      T.OpenFile(Dir.File("MOVIM01"), Dir.Dir());
      for (int16_t Key = 1; Key <= 2; ++Key) {
        std::map<std::string, int> Seen;
        T.SetIndex(Key);
        T.MoveFirst();
        for (int Steps = 0; T.LastError() == 0 && Steps < 4 * C.Records; ++Steps) {
          if (T.BookMark() > 0 && T.BookMark() <= T.RecordCount())
            ++Seen[Trimmed(T.Fields("CLAVE"))];
          T.MoveNext();
        }
        for (const std::string& Clave : Expected) {
          EXPECT_EQ(Seen[Clave], 1) << Clave << " walking key " << Key;
        }
      }
      T.SetIndex(1);
      for (const std::string& Clave : Expected) {
        EXPECT_GT(T.SeekKey(Variant(Clave)), 0) << Clave;
      }
    } catch (const TQError& Error) {
      ADD_FAILURE() << Error.Number() << " " << Error.Description();
    }
  }

  // Repairs a copy of the crashed table by Rebuild (ByRebuild) or by deleting its key file
  // and opening it; then the keys must be sound and the live records those of the data
  // file as the crash left it, with every survivor among them exactly once.
  void ExpectRepairRestores(const TempDir& Crashed, const Change& C, int64_t KillPoint,
                            bool ByRebuild) {
    SCOPED_TRACE(C.Name + (ByRebuild ? ", Rebuild" : ", key file rebuilt at open") +
                 ", killed before change " + std::to_string(KillPoint));
    TempDir Dir;
    std::filesystem::copy(Crashed.Path(), Dir.Path(),
                          std::filesystem::copy_options::recursive |
                              std::filesystem::copy_options::overwrite_existing);
    const std::multiset<std::string> Written = ClavesInDataFile(Dir.Read("MOVIM01.tqd"));
    try {
      TQFile T;
      if (ByRebuild) {
        T.OpenFile(Dir.File("MOVIM01"), Dir.Dir());
        T.Rebuild();
      } else {
        RemoveKeyFile(Dir);
      }
      T.OpenFile(Dir.File("MOVIM01"), Dir.Dir());
      ASSERT_EQ(T.LastError(), 0);
      EXPECT_EQ(TableSoundness(T), "");
      std::multiset<std::string> Live;
      for (const auto& [Clave, Record] : LiveRecordsBy(T, "CLAVE")) Live.insert(Clave);
      EXPECT_EQ(Live, Written) << "records after the repair differ from the data file";
      for (const std::string& Clave : Survivors(C)) EXPECT_EQ(Live.count(Clave), 1u) << Clave;
      T.SetIndex(1);
      for (const std::string& Clave : Written) EXPECT_GT(T.SeekKey(Variant(Clave)), 0) << Clave;
    } catch (const TQError& Error) {
      ADD_FAILURE() << Error.Number() << " " << Error.Description();
    }
  }

  // Kills a process applying C before each of its file changes in turn, until one run
  // completes; checks every state left behind. Returns the number of kill points tried.
  int64_t TryEveryKillPoint(const Change& C) {
    TempDir Start;
    WriteStartingTable(Start, C);
    int64_t KillPoint = 1;
    for (;; ++KillPoint) {
      TempDir Dir;
      std::filesystem::copy(Start.Path(), Dir.Path(),
                            std::filesystem::copy_options::recursive |
                                std::filesystem::copy_options::overwrite_existing);
      ChildProcess Child([&] {
        TQFile T;
        T.OpenFile(Dir.File("MOVIM01"), Dir.Dir());
        ArmKillSwitch(KillPoint);
        C.Apply(T);
        DisarmKillSwitch();
        return 0;
      });
      Child.Wait(kChildLimit);
      const bool Completed = Child.Succeeded();
      if (!Completed && Child.Outcome() != "signal 9") {
        ADD_FAILURE() << C.Name << ": process " << Child.Outcome() << " at kill point "
                      << KillPoint;
        return KillPoint;
      }
      ExpectReaderSeesSurvivors(Dir, C, KillPoint);
      ExpectRepairRestores(Dir, C, KillPoint, true);
      ExpectRepairRestores(Dir, C, KillPoint, false);
      if (!Completed) {
        ++Tally.Tried;
        if (!::testing::Test::HasFailure()) ++Tally.Recovered;
      }
      if (Completed || ::testing::Test::HasFailure()) break;
    }
    if (!::testing::Test::HasFailure()) {
      std::printf("[ crash    ] %s: killed before each of its %lld file changes, all recovered\n",
                  C.Name.c_str(), static_cast<long long>(KillPoint - 1));
    }
    return KillPoint;
  }

  TempDir archive_;
  std::unique_ptr<ScopedEnv> archive_env_;
  std::set<std::string> deleted_;
};

void AddMovement(TQFile& T, const std::string& Clave, const std::string& Estado) {
  T.AddNew();
  T.SetFields("CLAVE", Clave);
  T.SetFields("ESTADO", Estado);
  T.SetFields("IMPORTE", 12.5);
  T.SetFields("NOTA", "NUEVO");
  T.Update();
}

TEST_F(CrashRecoveryTest, AddNewKilledAtEveryWrite) {
  for (const bool Rebuilt : {false, true}) {
    for (const std::string Clave : {"MBASE0000", "MBASE0150A", "MZZZ"}) {
      TryEveryKillPoint({"AddNew " + Clave + (Rebuilt ? " (full leaves)" : ""),
                         [Clave](TQFile& T) { AddMovement(T, Clave, "PEND"); },
                         {Clave},
                         Rebuilt});
      if (HasFailure()) return;
    }
  }
}

TEST_F(CrashRecoveryTest, AddNewThatSplitsTheRootKilledAtEveryWrite) {
  // 82 records, 11 of them deleted: key 1's root leaf holds 71 entries, one below its
  // capacity of 72, so the new record splits it.
  TryEveryKillPoint({"AddNew splitting the root",
                     [](TQFile& T) { AddMovement(T, "MBASE0040A", "PEND"); },
                     {"MBASE0040A"},
                     false,
                     82});
}

TEST_F(CrashRecoveryTest, SeveralAddNewsKilledAtEveryWrite) {
  // Enough new records in one run to split leaves of both keys more than once.
  std::set<std::string> Claves;
  for (int I = 0; I < 40; ++I)
    Claves.insert("MBASE0100" + std::string(1, char('A' + I % 26)) + std::to_string(I));
  TryEveryKillPoint(
      {"40 AddNews",
       [](TQFile& T) {
         for (int I = 0; I < 40; ++I) {
           AddMovement(T, "MBASE0100" + std::string(1, char('A' + I % 26)) + std::to_string(I),
                       "OK");
         }
       },
       Claves, true});
}

TEST_F(CrashRecoveryTest, DeleteKilledAtEveryWrite) {
  for (const int I : {1, 150, 300}) {
    const std::string Clave = BaseClave(I);
    TryEveryKillPoint({"Delete " + Clave,
                       [Clave](TQFile& T) {
                         T.SetIndex(1);
                         T.Delete(T.SeekKey(Variant(Clave)));
                       },
                       {Clave},
                       I == 150});
    if (HasFailure()) return;
  }
}

TEST_F(CrashRecoveryTest, EditOfKeyFieldsKilledAtEveryWrite) {
  for (const int I : {2, 151}) {
    const std::string Clave = BaseClave(I);
    const std::string NewClave = "MNUEVA" + std::to_string(I);
    TryEveryKillPoint({"Edit " + Clave,
                       [Clave, NewClave](TQFile& T) {
                         T.SetIndex(1);
                         if (T.SeekKey(Variant(Clave)) == 0) throw std::runtime_error("not found");
                         T.Edit();
                         T.SetFields("CLAVE", NewClave);
                         T.SetFields("ESTADO", "CAMBIO");
                         T.Update();
                       },
                       {Clave, NewClave},
                       I == 151});
    if (HasFailure()) return;
  }
}

TEST_F(CrashRecoveryTest, RebuildKilledAtEveryWrite) {
  TryEveryKillPoint({"Rebuild", [](TQFile& T) { T.Rebuild(); }, {}, false});
}

}  // namespace
}  // namespace tqdb::testing

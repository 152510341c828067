// The kill-point sweep: a process applying a change (AddNew, Delete, Edit of key fields,
// Rebuild, ReIndex, a bulk load) is killed before each of its file changes in turn
// (kill_switch.h), so every state a crash can leave on disk is tried. Afterwards a reader finds
// every record the change did not touch exactly once, by seeking and walking both keys; and a
// repair (Rebuild, or the rebuild at open of a deleted key file) leaves sound keys over exactly
// the records the data file holds.
#include <gtest/gtest.h>

#include <chrono>
#include <cstdio>
#include <filesystem>
#include <functional>
#include <map>
#include <ostream>
#include <set>
#include <stdexcept>
#include <string>
#include <vector>

#include "reliability/kill_switch.h"
#include "support/child_process.h"
#include "support/error_of.h"
#include "support/reliability_tables.h"
#include "support/scoped_env.h"

namespace tqdb::testing {
namespace {

// One change applied by the killed process to an open MOVIM table of Records records (every
// seventh deleted), its key file built by the open or by Rebuild (whose bulk load fills the
// pages differently). Touched: the CLAVEs it may add or remove.
struct Change {
  std::string Name;
  std::function<void(TQFile&)> Apply;
  std::set<std::string> Touched;
  bool BuiltByRebuild = false;
  int Records = 300;
  bool OpenRepairs = false;  // the next open alone leaves sound keys over the data file
};

void PrintTo(const Change& C, std::ostream* Out) { *Out << C.Name; }

void AddMovement(TQFile& T, const std::string& Clave) {
  T.AddNew();
  T.SetFields("CLAVE", Clave);
  T.SetFields("ESTADO", "PEND");
  T.SetFields("IMPORTE", 12.5);
  T.Update();
}

std::vector<Change> Changes() {
  std::vector<Change> All;
  for (const bool Rebuilt : {false, true}) {
    for (const std::string Clave : {"MBASE0000", "MBASE0150A", "MZZZ"}) {
      All.push_back({"AddNew" + Clave + (Rebuilt ? "FullLeaves" : ""),
                     [Clave](TQFile& T) { AddMovement(T, Clave); },
                     {Clave},
                     Rebuilt});
    }
  }
  // 82 records, 11 deleted: key 1's root leaf holds 71 entries of 72, the new one splits it.
  All.push_back({"AddNewSplittingTheRoot",
                 [](TQFile& T) { AddMovement(T, "MBASE0040A"); },
                 {"MBASE0040A"},
                 false,
                 82});
  std::set<std::string> Many;  // enough to split leaves of both keys more than once
  for (int I = 0; I < 40; ++I)
    Many.insert("MBASE0100" + std::string(1, char('A' + I % 26)) + std::to_string(I));
  All.push_back({"FortyAddNews",
                 [Many](TQFile& T) {
                   for (const std::string& Clave : Many) AddMovement(T, Clave);
                 },
                 Many, true});
  // A bulk load whose records are written a batch at a time (no deleted places to reuse
  // after the Rebuild), over a key file big enough to be written in several pieces.
  std::set<std::string> Batches;
  for (int I = 0; I < 600; ++I) Batches.insert("MBULK" + std::to_string(I));
  All.push_back({"AddNewsInABulkLoad",
                 [Batches](TQFile& T) {
                   BulkLoad Scope(T);
                   for (const std::string& Clave : Batches) AddMovement(T, Clave);
                   Scope.End();
                 },
                 Batches, true, 2000, true});
  for (const int I : {1, 150, 300}) {
    All.push_back({"Delete" + BaseClave(I),
                   [I](TQFile& T) {
                     T.SetIndex(1);
                     T.Delete(T.SeekKey(Variant(BaseClave(I))));
                   },
                   {BaseClave(I)},
                   I == 150});
  }
  for (const int I : {2, 151}) {
    const std::string New = "MNUEVA" + std::to_string(I);
    All.push_back({"Edit" + BaseClave(I),
                   [I, New](TQFile& T) {
                     T.SetIndex(1);
                     if (T.SeekKey(Variant(BaseClave(I))) == 0) throw std::runtime_error("lost");
                     T.Edit();
                     T.SetFields("CLAVE", New);
                     T.SetFields("ESTADO", "CAMBIO");
                     T.Update();
                   },
                   {BaseClave(I), New},
                   I == 151});
  }
  All.push_back({"Rebuild", [](TQFile& T) { T.Rebuild(); }, {}});
  All.push_back({"ReIndex", [](TQFile& T) { T.ReIndex(); }, {}});
  return All;
}

// The CLAVEs of the live records in the data file's bytes.
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

class KillPointSweep : public ::testing::TestWithParam<Change> {
 protected:
  // Every base record that is neither deleted nor touched by the change.
  std::set<std::string> Survivors() const {
    std::set<std::string> Out;
    for (int I = 1; I <= GetParam().Records; ++I) {
      if (I % 7 != 0 && !GetParam().Touched.count(BaseClave(I))) Out.insert(BaseClave(I));
    }
    return Out;
  }

  void ExpectReaderSeesSurvivors(const TempDir& Dir) {
    TQFile T;
    T.OpenFile(Dir.File("MOVIM01"), Dir.Dir());
    for (int16_t Key = 1; Key <= 2; ++Key) {
      std::map<std::string, int> Seen;
      T.SetIndex(Key);
      T.MoveFirst();
      for (int Steps = 0; T.LastError() == 0 && Steps < 4 * GetParam().Records; ++Steps) {
        if (T.BookMark() > 0 && T.BookMark() <= T.RecordCount()) ++Seen[Trimmed(T.Fields("CLAVE"))];
        T.MoveNext();
      }
      for (const std::string& Clave : Survivors())
        EXPECT_EQ(Seen[Clave], 1) << Clave << " key " << Key;
    }
    T.SetIndex(1);
    for (const std::string& Clave : Survivors()) EXPECT_GT(T.SeekKey(Variant(Clave)), 0) << Clave;
  }

  enum class Repair { ByRebuild, KeyFileDeleted, OpenAlone };
  void ExpectRepairRestores(const TempDir& Crashed, Repair How) {
    SCOPED_TRACE("repair " + std::to_string(static_cast<int>(How)));
    TempDir Dir;
    CopyDir(Crashed, Dir);
    const std::multiset<std::string> Written = ClavesInDataFile(Dir.Read("MOVIM01.tqd"));
    TQFile T;
    if (How == Repair::ByRebuild) {
      T.OpenFile(Dir.File("MOVIM01"), Dir.Dir());
      T.Rebuild();
    } else if (How == Repair::KeyFileDeleted) {
      std::filesystem::remove(FindFile(Dir, "MOVIM01.TQC"));
    }
    ASSERT_EQ(T.OpenFile(Dir.File("MOVIM01"), Dir.Dir()), 0);
    EXPECT_EQ(TableSoundness(T), "");
    std::multiset<std::string> Live;
    for (const auto& [Clave, Record] : LiveRecordsBy(T, "CLAVE")) Live.insert(Clave);
    EXPECT_EQ(Live, Written) << "records after the repair differ from the data file";
    for (const std::string& Clave : Survivors()) EXPECT_EQ(Live.count(Clave), 1u) << Clave;
    T.SetIndex(1);
    for (const std::string& Clave : Written) EXPECT_GT(T.SeekKey(Variant(Clave)), 0) << Clave;
  }

  TempDir archive_;
  ScopedEnv archive_env_{"TMPDIR", archive_.Path().c_str()};
};

TEST_P(KillPointSweep, EveryStateACrashLeavesIsReadableAndRepairable) {
  const Change& C = GetParam();
  TempDir Start;
  WriteReliabilityTables(Start, C.Records, 1);
  std::string Bytes = Start.Read("MOVIM01.tqd");
  const std::string Deleted = DeletedRecordBytes(MovementSpec());
  for (int I = 7; I <= C.Records; I += 7)
    Bytes.replace(size_t(I - 1) * Deleted.size(), Deleted.size(), Deleted);
  Start.Write("MOVIM01.tqd", Bytes);
  {
    TQFile T;
    T.OpenFile(Start.File("MOVIM01"), Start.Dir());
    if (C.BuiltByRebuild) T.Rebuild();
  }
  int64_t KillPoint = 1;
  for (;; ++KillPoint) {
    SCOPED_TRACE("killed before file change " + std::to_string(KillPoint));
    TempDir Dir;
    CopyDir(Start, Dir);
    ChildProcess Child([&] {
      TQFile T;
      T.OpenFile(Dir.File("MOVIM01"), Dir.Dir());
      ArmKillSwitch(KillPoint);
      C.Apply(T);
      DisarmKillSwitch();
      return 0;
    });
    Child.Wait(std::chrono::seconds(60));
    const bool Completed = Child.Succeeded();
    ASSERT_TRUE(Completed || Child.Killed()) << Child.Outcome();
    const auto Failure = ErrorOf([&] {
      if (C.OpenRepairs) ExpectRepairRestores(Dir, Repair::OpenAlone);  // before the reader's open
      ExpectReaderSeesSurvivors(Dir);
      ExpectRepairRestores(Dir, Repair::ByRebuild);
      ExpectRepairRestores(Dir, Repair::KeyFileDeleted);
    });
    EXPECT_EQ(Failure.first, 0) << Failure.second;
    if (Completed || HasFailure()) break;
  }
  if (!HasFailure()) {
    std::printf("[ crash    ] %s: killed before each of its %lld file changes, all recovered\n",
                C.Name.c_str(), static_cast<long long>(KillPoint - 1));
  }
}

INSTANTIATE_TEST_SUITE_P(Changes, KillPointSweep, ::testing::ValuesIn(Changes()),
                         [](const auto& Info) { return Info.param.Name; });

}  // namespace
}  // namespace tqdb::testing

// Damaged files: a table's key file, data file, dictionary, image file and long-text file
// are truncated, bit-flipped or given bad counts, pointers and positions, and then every
// public operation is run on the table. Each must end in a TQError carrying the system's
// own number and Spanish description, or in a defined status; never in a crash, a hang,
// an out-of-bounds access (the suite also runs under ASan and UBSan) or another exception.
//
// Each damaged table is used by a forked process with a time limit, so that a crash or a
// hang fails its case and the next case still runs.
#include <gtest/gtest.h>

#include <cctype>
#include <chrono>
#include <cstdio>
#include <cstdlib>
#include <filesystem>
#include <fstream>
#include <functional>
#include <map>
#include <memory>
#include <random>
#include <string>
#include <vector>

#include "reliability/run_summary.h"
#include "support/child_process.h"
#include "support/reliability_tables.h"
#include "support/scoped_env.h"
#include "support/table_exerciser.h"
#include "support/table_writer.h"
#include "support/temp_dir.h"
#include "table/TQError.h"
#include "table/TQFile.h"

namespace tqdb::testing {
namespace {

constexpr int kRecords = 120;
constexpr auto kCaseLimit = std::chrono::seconds(60);

// Random cases per file kind; TQDB_DAMAGE_CASES raises it for a longer run.
int RandomCasesPerFile() {
  const char* Text = std::getenv("TQDB_DAMAGE_CASES");
  return Text != nullptr && std::atoi(Text) > 0 ? std::atoi(Text) : 6;
}

TableSpec DamageSpec() {
  TableSpec Spec;
  Spec.Description = "TABLA DAÑADA";
  Spec.Fields = {{"CODIGO", 0, 8}, {"NOMBRE", 0, 20}, {"IMPORTE", 3, 8}, {"FECHA", 5, 6},
                 {"CANT", 1, 2},   {"FOTO", 62, 4},   {"MEMO", 74, 12}};
  Spec.Keys = {KeySpec{{{1, 1, 8}}}, KeySpec{{{2, 1, 20}, {1, 1, 8}}}, KeySpec{{{4, 1, 6}}}};
  return Spec;
}

// The table's file whose name, upper-cased, is Upper ("DANOS01.TQC").
std::string FindFile(const TempDir& Dir, const std::string& Upper) {
  for (const auto& Entry : std::filesystem::directory_iterator(Dir.Path())) {
    std::string Name = Entry.path().filename().string();
    for (char& C : Name) C = static_cast<char>(std::toupper(static_cast<unsigned char>(C)));
    if (Name == Upper) return Entry.path().string();
  }
  return "";
}

std::string ReadAll(const std::string& Path) {
  std::ifstream In(Path, std::ios::binary);
  return std::string(std::istreambuf_iterator<char>(In), std::istreambuf_iterator<char>());
}

void WriteAll(const std::string& Path, const std::string& Bytes) {
  std::ofstream Out(Path, std::ios::binary | std::ios::trunc);
  Out.write(Bytes.data(), static_cast<std::streamsize>(Bytes.size()));
}

void PutInt32(std::string& Bytes, size_t At, int32_t Value) {
  for (int I = 0; I < 4 && At + I < Bytes.size(); ++I) {
    Bytes[At + I] = static_cast<char>((static_cast<uint32_t>(Value) >> (8 * I)) & 0xFF);
  }
}

// Damaged-file cases tried over the whole run, and those that ended as they must.
struct DamageTally {
  int Tried = 0;
  int Passed = 0;
};
DamageTally Tally;
[[maybe_unused]] const bool kDamageSummary = PrintAtEnd([] {
  if (Tally.Tried == 0) return std::string();
  return "[ damage   ] " + std::to_string(Tally.Tried) + " damaged-file cases tried, " +
         std::to_string(Tally.Passed) + " ended in an error or a status";
});

// A table DANOS of Count records added through the interface, CODIGO "C<First + I>" and
// the other fields empty. Returns the path of its key file.
std::string WriteSmallTable(const TempDir& Dir, int Count, int First) {
  WriteDictionary(Dir.Dir(), "DANOS", DamageSpec());
  WriteDataFile(Dir.File("DANOS01.tqd"), {});
  TQFile T;
  T.OpenFile(Dir.File("DANOS01"), Dir.Dir());
  for (int I = 0; I < Count; ++I) {
    T.AddNew();
    T.SetFields("CODIGO", "C" + std::to_string(First + I));
    T.Update();
  }
  return FindFile(Dir, "DANOS01.TQC");
}

// One damaged variant: which file, and what is done to its bytes.
struct Damage {
  std::string Name;
  std::string File;  // upper-cased file name
  std::function<void(std::string&)> Apply;
};

class DamagedFilesTest : public ::testing::Test {
 protected:
  static void SetUpTestSuite() {
    work_ = std::make_unique<TempDir>();
    env_ = std::make_unique<ScopedEnv>("TMPDIR", work_->Path().c_str());
    healthy_ = std::make_unique<TempDir>();
    WriteHealthyTable(*healthy_);
  }
  static void TearDownTestSuite() {
    healthy_.reset();
    env_.reset();
    work_.reset();
  }

  // DANOS: kRecords records added through the interface, with images and long texts,
  // every eleventh deleted, so that every file of the table has real content.
  static void WriteHealthyTable(const TempDir& Dir) {
    WriteDictionary(Dir.Dir(), "DANOS", DamageSpec());
    WriteDataFile(Dir.File("DANOS01.tqd"), {});
    TQFile T;
    T.OpenFile(Dir.File("DANOS01"), Dir.Dir());
    for (int I = 1; I <= kRecords; ++I) {
      const std::string Digits = std::to_string(I);
      T.AddNew();
      T.SetFields("CODIGO", "C" + std::string(7 - Digits.size(), '0') + Digits);
      T.SetFields("NOMBRE", "NOMBRE " + std::to_string(I % 37));
      T.SetFields("IMPORTE", I * 1.25 - 40);
      T.SetFields("FECHA", (I % 28 < 9 ? "0" : "") + std::to_string(I % 28 + 1) + "/0" +
                               std::to_string(I % 9 + 1) + "/2" + std::to_string(I % 10));
      T.SetFields("CANT", static_cast<int32_t>(I % 300));
      T.SetFields("FOTO", "IMAGEN " + Digits);
      T.SetFields("MEMO", "TEXTO LARGO DEL REGISTRO " + Digits);
      T.Update();
    }
    for (int I = 11; I <= kRecords; I += 11) T.Delete(I);
    T.CloseDB();
  }

  // Copies the healthy table, damages one file, runs every operation in a child process.
  // Returns the problems found ("" when none).
  std::string RunCase(const Damage& D) {
    TempDir Dir;
    std::filesystem::copy(healthy_->Path(), Dir.Path(),
                          std::filesystem::copy_options::recursive |
                              std::filesystem::copy_options::overwrite_existing);
    const std::string Path = FindFile(Dir, D.File);
    if (Path.empty()) return "no file " + D.File;
    std::string Bytes = ReadAll(Path);
    D.Apply(Bytes);
    WriteAll(Path, Bytes);
    const std::string Report = Dir.File("outcome.txt");
    ChildProcess Child([&] {
      SetMessageSink([](const std::string&, MessageIcon) {});
      Outcome Out;
      Exerciser(Dir, "DANOS01", kRecords, Out).Run();
      std::ofstream File(Report);
      for (const auto& [Number, Count] : Out.Errors) File << "E " << Number << " " << Count << "\n";
      for (const std::string& P : Out.Problems) File << "P " << P << "\n";
      return Out.Problems.empty() ? 0 : 3;
    });
    Child.Wait(kCaseLimit);
    ++cases_;
    std::string Problems;
    std::ifstream In(Report);
    for (std::string Line; std::getline(In, Line);) {
      if (Line.starts_with("P ")) Problems += "\n  " + Line.substr(2);
      if (Line.starts_with("E ")) {
        int32_t Number = 0, Count = 0;
        std::sscanf(Line.c_str(), "E %d %d", &Number, &Count);
        errors_[Number] += Count;
      }
    }
    if (!Child.Succeeded() && Problems.empty()) Problems = "\n  process " + Child.Outcome();
    return Problems.empty() ? "" : D.Name + ":" + Problems;
  }

  // Runs every case (stopping after five failures) and prints the figures: cases tried
  // and the errors they raised, by number.
  void RunAll(const std::string& What, const std::vector<Damage>& Cases) {
    cases_ = 0;
    errors_.clear();
    int Failed = 0;
    for (const Damage& D : Cases) {
      const std::string Problems = RunCase(D);
      ++Tally.Tried;
      if (Problems.empty()) {
        ++Tally.Passed;
        continue;
      }
      ADD_FAILURE() << Problems;
      if (++Failed >= 5) return;
    }
    std::string Errors;
    for (const auto& [Number, Count] : errors_) {
      Errors += " " + std::to_string(Number) + "x" + std::to_string(Count);
    }
    std::printf("[ damage   ] %s: %d cases, errors raised:%s\n", What.c_str(), cases_,
                Errors.c_str());
  }

  static std::string HealthyBytes(const std::string& Upper) {
    return ReadAll(FindFile(*healthy_, Upper));
  }

  static std::unique_ptr<TempDir> work_;
  static std::unique_ptr<ScopedEnv> env_;
  static std::unique_ptr<TempDir> healthy_;
  int cases_ = 0;
  std::map<int32_t, int> errors_;
};

std::unique_ptr<TempDir> DamagedFilesTest::work_;
std::unique_ptr<ScopedEnv> DamagedFilesTest::env_;
std::unique_ptr<TempDir> DamagedFilesTest::healthy_;

// Truncations at the given lengths, and random runs of bit flips, for one file.
std::vector<Damage> CommonDamage(const std::string& File, size_t Size,
                                 const std::vector<size_t>& Lengths, uint32_t Seed) {
  std::vector<Damage> Cases;
  for (size_t Length : Lengths) {
    if (Length >= Size) continue;
    Cases.push_back({File + " truncated to " + std::to_string(Length), File,
                     [Length](std::string& B) { B.resize(Length); }});
  }
  std::mt19937 Random(Seed);
  for (int I = 0; I < RandomCasesPerFile(); ++I) {
    const uint32_t CaseSeed = Random();
    const int Flips = 1 + I % 6;
    Cases.push_back({File + " with " + std::to_string(Flips) + " flipped bits (seed " +
                         std::to_string(CaseSeed) + ")",
                     File, [CaseSeed, Flips](std::string& B) {
                       std::mt19937 R(CaseSeed);
                       for (int F = 0; F < Flips && !B.empty(); ++F) {
                         B[R() % B.size()] ^= static_cast<char>(1 << (R() % 8));
                       }
                     }});
  }
  return Cases;
}

TEST_F(DamagedFilesTest, DamagedKeyFile) {
  const std::string Key = "DANOS01.TQC";
  const std::string Bytes = HealthyBytes(Key);
  const size_t First = 15 + 5 * 3;  // header and three descriptors
  std::vector<Damage> Cases =
      CommonDamage(Key, Bytes.size(),
                   {0, 1, 2, 3, 14, 15, 16, First - 1, First, First + 1, First + 512, First + 1023,
                    First + 1024, Bytes.size() / 2, Bytes.size() - 1024, Bytes.size() - 1},
                   1);
  // The header's fields and the descriptors.
  const std::pair<const char*, std::function<void(std::string&)>> Header[] = {
      {"key count 0", [](std::string& B) { B[0] = 0; }},
      {"key count 11", [](std::string& B) { B[0] = 11; }},
      {"key count 255", [](std::string& B) { B[0] = char(255); }},
      {"key count 1", [](std::string& B) { B[0] = 1; }},
      {"node size 1023",
       [](std::string& B) {
         B[1] = char(0xFF);
         B[2] = 3;
       }},
      {"last record -5", [](std::string& B) { PutInt32(B, 3, -5); }},
      {"last record 0", [](std::string& B) { PutInt32(B, 3, 0); }},
      {"last record huge", [](std::string& B) { PutInt32(B, 3, 0x7FFFFFFF); }},
      {"deleted count huge", [](std::string& B) { PutInt32(B, 7, 0x7FFFFFFF); }},
      {"deleted count -1", [](std::string& B) { PutInt32(B, 7, -1); }},
      {"deleted head 17", [](std::string& B) { PutInt32(B, 11, 17); }},
      {"deleted head past the end", [](std::string& B) { PutInt32(B, 11, 1 << 30); }},
      {"deleted head at a tree page",
       [First](std::string& B) { PutInt32(B, 11, int32_t(First) + 1); }},
      {"key length 0", [](std::string& B) { B[15] = 0; }},
      {"key length 255", [](std::string& B) { B[15] = char(255); }},
      {"key length 1", [](std::string& B) { B[20] = 1; }},
      {"root 0", [](std::string& B) { PutInt32(B, 16, 0); }},
      {"root -1024", [](std::string& B) { PutInt32(B, 16, -1024); }},
      {"root off a page", [First](std::string& B) { PutInt32(B, 16, int32_t(First) + 5); }},
      {"root past the end", [](std::string& B) { PutInt32(B, 21, 1 << 29); }},
      {"root of key 2 is key 1's", [](std::string& B) { B.replace(22, 4, B.substr(17, 4)); }},
  };
  for (const auto& [Name, Apply] : Header) Cases.push_back({Key + " " + Name, Key, Apply});
  // Every page: its kind, its count, and its first pointer bent in turn.
  const size_t Pages = (Bytes.size() - First) / 1024;
  for (size_t Page = 0; Page < Pages; Page += std::max<size_t>(1, Pages / 4)) {
    const size_t At = First + Page * 1024;
    const std::string Where = Key + " page " + std::to_string(Page) + " ";
    Cases.push_back({Where + "kind 7", Key, [At](std::string& B) { B[At] = 7; }});
    Cases.push_back({Where + "kind flipped", Key, [At](std::string& B) { B[At] ^= 1; }});
    Cases.push_back(
        {Where + "count -1", Key, [At](std::string& B) { B[At + 1] = B[At + 2] = char(0xFF); }});
    Cases.push_back({Where + "count 1000", Key, [At](std::string& B) {
                       B[At + 1] = char(0xE8);
                       B[At + 2] = 3;
                     }});
    Cases.push_back({Where + "count 0", Key, [At](std::string& B) { B[At + 1] = B[At + 2] = 0; }});
    for (const size_t KeyLength : {8u, 28u, 6u}) {
      const size_t Pointer = At + 3 + KeyLength;
      for (const int32_t Value : {0, int32_t(First) + 1, int32_t(At) + 1, 0x7FFFFFFF}) {
        Cases.push_back({Where + "entry 0 value " + std::to_string(Value) + " (key length " +
                             std::to_string(KeyLength) + ")",
                         Key, [Pointer, Value](std::string& B) { PutInt32(B, Pointer, Value); }});
      }
    }
  }
  RunAll("key file", Cases);
}

TEST_F(DamagedFilesTest, DamagedDataFile) {
  const std::string Data = "DANOS01.TQD";
  const std::string Bytes = HealthyBytes(Data);
  const size_t Record = static_cast<size_t>(RecordLengthOf(DamageSpec()));
  std::vector<Damage> Cases = CommonDamage(
      Data, Bytes.size(),
      {0, 1, 7, Record - 1, Record, Record + 3, Bytes.size() / 2, Bytes.size() - 1}, 2);
  const size_t Foto = static_cast<size_t>(FieldOffsetOf(DamageSpec(), 6));
  const size_t Memo = static_cast<size_t>(FieldOffsetOf(DamageSpec(), 7));
  for (size_t R : {size_t(0), size_t(kRecords / 2)}) {
    const size_t At = R * Record;
    const std::string Where = Data + " record " + std::to_string(R + 1) + " ";
    for (const int32_t Value : {-1, 2, 0x7FFFFFFF, 1 << 20}) {
      Cases.push_back({Where + "image position " + std::to_string(Value), Data,
                       [At, Foto, Value](std::string& B) { PutInt32(B, At + Foto, Value); }});
    }
    const std::pair<const char*, uint64_t> Places[] = {{"NaN", 0x7FF8000000000000ull},
                                                       {"-1", 0xBFF0000000000000ull},
                                                       {"1e300", 0x7E37E43C8800759Cull},
                                                       {"0.5", 0x3FE0000000000000ull}};
    for (const auto& [Name, Bits] : Places) {
      Cases.push_back({Where + "text position " + Name, Data, [At, Memo, Bits](std::string& B) {
                         for (int I = 0; I < 8; ++I)
                           B[At + Memo + I] = char((Bits >> (8 * I)) & 0xFF);
                       }});
    }
    for (const int32_t Value : {-1, 0x7FFFFFFF, (1 << 26) + 1}) {
      Cases.push_back({Where + "text length " + std::to_string(Value), Data,
                       [At, Memo, Value](std::string& B) { PutInt32(B, At + Memo + 8, Value); }});
    }
    Cases.push_back({Where + "half a deletion mark", Data,
                     [At](std::string& B) { B.replace(At, 6, "ANULAD"); }});
    Cases.push_back({Where + "control characters", Data, [At, Record](std::string& B) {
                       for (size_t I = 0; I < Record; ++I) B[At + I] = char(I % 32);
                     }});
    Cases.push_back({Where + "all 0xFF", Data, [At, Record](std::string& B) {
                       for (size_t I = 0; I < Record; ++I) B[At + I] = char(0xFF);
                     }});
  }
  RunAll("data file", Cases);
}

TEST_F(DamagedFilesTest, DamagedDictionary) {
  const std::string Dict = "DANOS.TQA";
  const std::string Bytes = HealthyBytes(Dict);
  std::vector<Damage> Cases = CommonDamage(
      Dict, Bytes.size(),
      {0, 1, 2, 8, 32, 33, 34, 66, 33 * 8 - 1, 33 * 8, 33 * 9 + 5, Bytes.size() - 1}, 3);
  const std::pair<size_t, const char*> Edits[] = {
      {0, "99"},
      {0, "00"},
      {0, "0Z"},
      {0, "\xff\xff"},
      {33 + 4, "ZZ"},
      {33 + 4, "00"},
      {33 + 6, "62"},
      {33 + 6, "05"},
      {33 * 3 + 6, "74"},
      {33 * 3 + 4, "01"},
      {33 + 31, "00"},
      {33 + 31, "ZZ"},
      {33 * 8, "I:"},
      {33 * 8, "I0"},
      {33 * 8 + 2, "99"},
      {33 * 8 + 2, "00"},
      {33 * 8 + 4, "00"},
      {33 * 8 + 4, "Z9"},
      {33 * 8 + 6, "00"},
      {33 * 8 + 6, "ZZ"},
      {33 * 9 + 1, "1"},
      {33 * 11, "I3001011"},
      {33 * 11, "I1020109"},
  };
  for (const auto& [At, Text] : Edits) {
    Cases.push_back(
        {Dict + " \"" + Text + "\" at " + std::to_string(At), Dict, [At, Text](std::string& B) {
           const std::string T(Text);
           if (At + T.size() <= B.size()) B.replace(At, T.size(), T);
         }});
  }
  RunAll("dictionary", Cases);
}

TEST_F(DamagedFilesTest, DamagedImageAndLongTextFiles) {
  std::vector<Damage> Cases;
  for (const std::string File : {"DANOS01.TQW", "DANOS01.TQY"}) {
    const std::string Bytes = HealthyBytes(File);
    std::vector<Damage> More =
        CommonDamage(File, Bytes.size(), {0, 1, 5, 9, 50, Bytes.size() / 2, Bytes.size() - 1}, 4);
    Cases.insert(Cases.end(), More.begin(), More.end());
  }
  // Image entry headers: capacity and owner.
  for (const int32_t Value : {-1, 0, 1, 0x7FFFFFFF, (1 << 26) + 1}) {
    Cases.push_back({"DANOS01.TQW first capacity " + std::to_string(Value), "DANOS01.TQW",
                     [Value](std::string& B) { PutInt32(B, 0, Value); }});
    Cases.push_back({"DANOS01.TQW first owner " + std::to_string(Value), "DANOS01.TQW",
                     [Value](std::string& B) { PutInt32(B, 4, Value); }});
  }
  RunAll("image and long-text files", Cases);
}

// A write cut short (a full disk) can leave a fragment of a page at the end of the key
// file. New pages must cover it, not follow it: pages after it would all lie off the page
// boundaries, and the file would read as damaged from then on.
TEST(KeyFileFragmentTest, NewPagesCoverAFragmentAtTheEnd) {
  TempDir Dir;
  const TableSpec Spec = DamageSpec();
  WriteDictionary(Dir.Dir(), "DANOS", Spec);
  WriteDataFile(Dir.File("DANOS01.tqd"), {});
  {
    TQFile T;
    T.OpenFile(Dir.File("DANOS01"), Dir.Dir());
  }
  const std::string Key = FindFile(Dir, "DANOS01.TQC");
  WriteAll(Key, ReadAll(Key) + std::string(38, 'x'));
  TQFile T;
  T.OpenFile(Dir.File("DANOS01"), Dir.Dir());
  for (int I = 0; I < 300; ++I) {
    T.AddNew();
    T.SetFields("CODIGO", "C" + std::to_string(I));
    T.SetFields("NOMBRE", "NOMBRE " + std::to_string(I % 7));
    T.Update();
  }
  for (int I = 1; I <= 300; I += 2) T.Delete(I);
  EXPECT_EQ(TableSoundness(T), "");
  EXPECT_EQ(T.DeletedRecordCount(), 150);
}

// A Delete on a key file whose deleted-record stack is damaged fails before it removes a
// key: the record stays whole, with every key, and is not marked.
TEST(DeletedRecordStackTest, DeleteOnADamagedStackChangesNothing) {
  TempDir Dir;
  const std::string Key = WriteSmallTable(Dir, 20, 0);
  std::string Bytes = ReadAll(Key);
  PutInt32(Bytes, 11, 786688);  // the stack's head far beyond the end, the stack empty
  WriteAll(Key, Bytes);
  TQFile T;
  T.OpenFile(Dir.File("DANOS01"), Dir.Dir());
  T.SetIndex(1);
  const int32_t Record = T.SeekKey(Variant("C7"));
  ASSERT_GT(Record, 0);
  EXPECT_THROW(T.Delete(Record), TQError);
  for (int16_t K = 1; K <= 3; ++K) {
    T.SetIndex(K);
    int Seen = 0;
    for (T.MoveFirst(); T.LastError() == 0; T.MoveNext()) Seen += T.BookMark() == Record;
    EXPECT_EQ(Seen, 1) << "key " << K;
  }
  T.SetBookMark(Record);
  EXPECT_EQ(Trimmed(T.Fields("CODIGO")), "C7");
}

// A leaf whose entries are out of order, below a root whose next child is not a leaf: a
// walk must not go back into the leaf and round it for ever. It ends, by an error or at
// the last entry, having returned no more entries than the key holds.
TEST(DisorderedLeafTest, WalksEndOnALeafOutOfOrder) {
  TempDir Dir;
  const std::string Key = WriteSmallTable(Dir, 150, 1000);
  std::string Bytes = ReadAll(Key);
  const auto Int32At = [&Bytes](size_t At) {
    uint32_t Value = 0;
    for (int I = 3; I >= 0; --I) Value = Value << 8 | static_cast<uint8_t>(Bytes[At + I]);
    return static_cast<int32_t>(Value);
  };
  constexpr size_t kEntry = 8 + 4;  // key 1: 8 bytes of key and a number
  const size_t Root = static_cast<size_t>(Int32At(16)) - 1;
  ASSERT_EQ(Bytes[Root], 1) << "key 1's root is a branch";
  ASSERT_GE(Int32At(Root + 1) & 0xFFFF, 2);
  const size_t Leaf = static_cast<size_t>(Int32At(Root + 3 + 8)) - 1;
  const int Count = Int32At(Leaf + 1) & 0xFFFF;
  ASSERT_GE(Count, 2);
  // The leaf's first and last entries swap places; the root's second child is the root.
  const std::string First = Bytes.substr(Leaf + 3, kEntry);
  const size_t Last = Leaf + 3 + size_t(Count - 1) * kEntry;
  Bytes.replace(Leaf + 3, kEntry, Bytes.substr(Last, kEntry));
  Bytes.replace(Last, kEntry, First);
  PutInt32(Bytes, Root + 3 + kEntry + 8, static_cast<int32_t>(Root) + 1);
  WriteAll(Key, Bytes);

  SetMessageSink([](const std::string&, MessageIcon) {});
  TQFile T;
  T.OpenFile(Dir.File("DANOS01"), Dir.Dir());
  T.SetIndex(1);
  for (const bool Forward : {true, false}) {
    int Returned = 0;
    try {
      Forward ? T.MoveFirst() : T.MoveLast();
      while (T.LastError() == 0 && Returned <= 150) {
        ++Returned;
        Forward ? T.MoveNext() : T.MovePrevious();
      }
    } catch (const TQError& Error) {
      EXPECT_FALSE(Error.Description().empty());
    }
    EXPECT_LE(Returned, 150) << (Forward ? "forwards" : "backwards");
  }
  SetMessageSink(nullptr);
}

}  // namespace
}  // namespace tqdb::testing

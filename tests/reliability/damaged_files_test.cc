// The damaged-file sweep: a table's key file, data file, dictionary, image file and long-text
// file are truncated, bit-flipped or given bad counts, pointers and positions; then every
// public operation runs on the table in a forked process with a time limit. Each must end in
// a TQError with the system's own number and description, or in a defined status: never in
// a crash, a hang, an out-of-bounds access (the suite also runs under ASan) or another
// exception. TQDB_DAMAGE_CASES raises the random cases per file.
#include <gtest/gtest.h>

#include <chrono>
#include <cmath>
#include <cstdio>
#include <cstdlib>
#include <cstring>
#include <filesystem>
#include <functional>
#include <memory>
#include <random>
#include <string>
#include <vector>

#include "support/child_process.h"
#include "support/reliability_tables.h"
#include "support/scoped_env.h"

namespace tqdb::testing {
namespace {

using namespace std::string_literals;
constexpr int kRecords = 120;

// DANOS: CODIGO, NOMBRE, IMPORTE, FECHA, CANT, FOTO (image), MEMO (long text); three keys.
const TableSpec kSpec{
    "TABLA DAÑADA",
    {{"CODIGO", 0, 8},
     {"NOMBRE", 0, 20},
     {"IMPORTE", 3, 8},
     {"FECHA", 5, 6},
     {"CANT", 1, 2},
     {"FOTO", 62, 4},
     {"MEMO", 74, 12}},
    {KeySpec{{{1, 1, 8}}}, KeySpec{{{2, 1, 20}, {1, 1, 8}}}, KeySpec{{{4, 1, 6}}}}};

// Runs every public operation on DANOS01 in Dir; Problems are other exceptions, errors
// without a proper number or description, and locks left.
class Exerciser {
 public:
  explicit Exerciser(const TempDir& Dir) : dir_(Dir) {}
  std::vector<std::string> Problems;

  void Run() {
    TQFile T;
    for (int Round = 0; Round < 3; ++Round) {
      Try("OpenFile", [&] { T.OpenFile(dir_.File("DANOS01"), dir_.Dir()); });
      Try("RecordCount", [&] { T.RecordCount(); });
      Try("DeletedRecordCount", [&] { T.DeletedRecordCount(); });
      for (int16_t F = -1; F <= 9; ++F) Try("FieldName", [&] { T.FieldName(F), T.FieldType(F); });
      Walk(T);
      for (int32_t Record : {1, 2, kRecords / 2, kRecords, kRecords + 3, 0, -7}) {
        Try("BookMark", [&] { T.SetBookMark(Record); });
        ReadAllFields(T);
      }
      if (Round != 1) {
        Seek(T);
        Query(T);
        Change(T);
        Walk(T);
      }
      if (Round == 0) Try("ReIndex", [&] { T.ReIndex(); });
      if (Round == 1) Try("Rebuild", [&] { T.Rebuild(); });
    }
    // Whatever failed on the way, nothing is left locked.
    if (const std::string Locked = LockedFiles(dir_); !Locked.empty())
      Problems.push_back("locked:" + Locked);
    Try("CloseDB", [&] { T.CloseDB(); });
    Try("KillDB", [&] { T.KillDB(false); });
  }

 private:
  template <typename F>
  void Try(const char* What, F&& Work) {
    try {
      Work();
    } catch (const TQError& Error) {
      const std::string& Text = Error.Description();
      if (Error.Number() == 0 || Error.Number() == 7 || Text.empty() ||
          Text.find("std::") != std::string::npos ||
          Text.find("basic_string") != std::string::npos ||
          Text.find("vector") != std::string::npos) {
        Problems.push_back(What + ": TQError "s + std::to_string(Error.Number()) + " " + Text);
      }
    } catch (const std::exception& Error) {
      Problems.push_back(What + ": foreign exception "s + Error.what());
    } catch (...) {
      Problems.push_back(What + ": unknown exception"s);
    }
  }
  void ReadAllFields(TQFile& T) {
    for (int32_t F = 0; F <= T.FieldCount() + 1; ++F) Try("Fields", [&] { T.Fields(Variant(F)); });
    Try("Fields", [&] { T.Fields("NOEXISTE"); });
    Try("KField", [&] { T.KField(1, 0); });
    Try("KField", [&] { T.KField(6, 1); });
  }
  void Walk(TQFile& T) {  // bounded, so that a damaged key cannot keep it going for ever
    for (int16_t Key = 0; Key <= 4; ++Key) {
      T.SetIndex(Key);
      Try("MoveFirst", [&] { T.MoveFirst(); });
      for (int Step = 0; Step < 3 * kRecords && T.LastError() == 0; ++Step) {
        if (Step % 17 == 0) ReadAllFields(T);
        Try("MoveNext", [&] { T.MoveNext(); });
      }
      Try("MoveLast", [&] { T.MoveLast(); });
      for (int Step = 0; Step < 3 * kRecords && T.LastError() == 0; ++Step)
        Try("MovePrevious", [&] { T.MovePrevious(); });
    }
    T.SetIndex(1);
  }
  void Seek(TQFile& T) {
    for (int16_t Key = 1; Key <= 3; ++Key) {
      T.SetIndex(Key);
      for (const char* Value : {"", "C0000100", "C", "ZZZZZZZZ", "\x01"})
        for (int32_t Option : {1, 2, 4, 16, 3})
          Try("SeekKey", [&] { T.SeekKey(Variant(Value), Option); });
      Try("SeekKey", [&] { T.SeekKey(Variant(std::vector<Variant>{"A", 5})); });
      std::string Special;
      Try("GetSpecialSeekKeys", [&] { Special = T.GetSpecialSeekKeys(); });
      for (int32_t Option : {adSeekAfter, adSeekBefore})
        Try("SeekKey", [&] { T.SeekKey(Variant(Special), Option); });
      Try("MoveNext", [&] { T.MoveNext(); });
    }
    T.SetIndex(1);
  }
  void Change(TQFile& T) {
    const auto Put = [&T](const char* Name, const char* Text, const char* Image, const char* Memo) {
      T.SetFields("CODIGO", Name), T.SetFields("NOMBRE", Text), T.SetFields("IMPORTE", "3.5");
      T.SetFields("FECHA", "01/02/24"), T.SetFields("FOTO", Image), T.SetFields("MEMO", Memo);
      T.Update();
    };
    Try("AddNew", [&] { T.AddNew(), Put("CNUEVO01", "NUEVO", "IMAGEN NUEVA", "TEXTO NUEVO"); });
    Try("MoveFirst", [&] { T.MoveFirst(); });
    Try("Edit", [&] { T.Edit(), Put("CEDITADO", "EDITADO", std::string(60, 'I').c_str(), "X"); });
    for (const char* Field : {"IMPORTE", "CANT", "NOMBRE"})
      Try("AddToField", [&] { T.AddToField(Field, 2); });
    Try("AddToKField", [&] { T.AddToKField(5, 1); });
    Try("Delete", [&] { T.Delete(T.BookMark()); });
    Try("MoveNext", [&] { T.MoveNext(); });
    for (int32_t Record : {1, kRecords / 2, kRecords + 10, -1})
      Try("Delete", [&] { T.Delete(Record); });
    Try("DeletedRecordCount", [&] { T.DeletedRecordCount(); });
  }
  void Query(TQFile& T) {
    for (const char* Text : {"IMPORTE > 10", "NOMBRE LIKE N*", "CODIGO = C0000010",
                             "CANT >= 3 AND (NOMBRE = X OR IMPORTE < 5)", "\\01C00001",
                             "ABS(IMPORTE < 100)", "FECHA = 010224", "(CODIGO > C AND"}) {
      Try("Filter", [&] { T.Filter(Text); });
      for (const char* Field : {"IMPORTE", "CANT"}) Try("Sum", [&] { T.Sum(Field); });
      Try("RecordCount", [&] { T.RecordCount(); });
      Try("MoveLast", [&] { T.MoveLast(); });
      ReadAllFields(T);
    }
    for (const char* Order : {"NOMBRE", "IMPORTE,FECHA"}) Try("Sort", [&] { T.Sort(Order); });
    Try("MoveFirst", [&] { T.MoveFirst(); });
    ReadAllFields(T);
    for (const char* Text : {"CLEAN", ""}) Try("Filter", [&] { T.Filter(Text); });
  }

  const TempDir& dir_;
};

using Edit = std::function<void(std::string&)>;
struct Damage {
  std::string Name;
  Edit Apply;
};
std::string Int32(int64_t Value) {  // little-endian, as the files hold it
  std::string Bytes(4, '\0');
  for (int I = 0; I < 4; ++I) Bytes[I] = char(uint64_t(Value) >> (8 * I));
  return Bytes;
}
Edit Put(size_t At, const std::string& Text) {
  return [=](std::string& B) {
    if (At + Text.size() <= B.size()) B.replace(At, Text.size(), Text);
  };
}
std::string NameOf(const TempDir& Dir, const std::string& File) {  // as the engine cased it
  return std::filesystem::path(FindFile(Dir, File)).filename().string();
}

class DamagedFilesTest : public ::testing::Test {
 protected:
  // DANOS with kRecords records added through the interface, images and long texts, every
  // eleventh deleted, so that every file of the table has real content.
  static void SetUpTestSuite() {
    Work = std::make_unique<TempDir>();
    Env = std::make_unique<ScopedEnv>("TMPDIR", Work->Path().c_str());
    Healthy = std::make_unique<TempDir>();
    WriteDictionary(Healthy->Dir(), "DANOS", kSpec);
    WriteDataFile(Healthy->File("DANOS01.tqd"), {});
    TQFile T;
    T.OpenFile(Healthy->File("DANOS01"), Healthy->Dir());
    for (int I = 1; I <= kRecords; ++I) {
      T.AddNew();
      T.SetFields("CODIGO", Numbered("C", I, 7));
      T.SetFields("NOMBRE", "NOMBRE " + std::to_string(I % 37));
      T.SetFields("IMPORTE", I * 1.25 - 40);
      T.SetFields("FECHA", Numbered("", I % 28 + 1, 2) + "/0" + std::to_string(I % 9 + 1) + "/2" +
                               std::to_string(I % 10));
      T.SetFields("CANT", static_cast<int32_t>(I % 300));
      T.SetFields("FOTO", "IMAGEN " + std::to_string(I));
      T.SetFields("MEMO", "TEXTO LARGO DEL REGISTRO " + std::to_string(I));
      T.Update();
    }
    for (int I = 11; I <= kRecords; I += 11) T.Delete(I);
  }
  static std::string HealthyBytes(const std::string& File) {
    return Healthy->Read(NameOf(*Healthy, File));
  }

  // Truncations at Lengths and random runs of bit flips, then Cases, each on a fresh copy of
  // the healthy table; prints the cases tried and the errors raised, by number.
  void RunAll(const std::string& File, std::vector<size_t> Lengths, std::vector<Damage> Cases) {
    std::mt19937 Random(static_cast<uint32_t>(File.back()));
    const char* More = std::getenv("TQDB_DAMAGE_CASES");
    for (int I = 0, N = More && std::atoi(More) > 0 ? std::atoi(More) : 6; I < N; ++I) {
      const uint32_t Seed = Random();
      Cases.push_back({std::to_string(1 + I % 6) + " bits flipped, seed " + std::to_string(Seed),
                       [Seed, Flips = 1 + I % 6](std::string& B) {
                         std::mt19937 R(Seed);
                         for (int F = 0; F < Flips && !B.empty(); ++F)
                           B[R() % B.size()] ^= char(1 << (R() % 8));
                       }});
    }
    const size_t Size = HealthyBytes(File).size();
    for (size_t Length : Lengths) {
      if (Length < Size)
        Cases.push_back(
            {"cut to " + std::to_string(Length), [Length](std::string& B) { B.resize(Length); }});
    }
    int Failed = 0;
    for (const Damage& D : Cases) {
      TempDir Dir;
      CopyDir(*Healthy, Dir);
      std::string Bytes = Dir.Read(NameOf(Dir, File));
      D.Apply(Bytes);
      Dir.Write(NameOf(Dir, File), Bytes);
      ChildProcess Child([&] {  // the problems go to the child's standard error
        SetMessageSink([](const std::string&, MessageIcon) {});
        Exerciser Run(Dir);
        Run.Run();
        for (const std::string& P : Run.Problems) std::fprintf(stderr, "  %s\n", P.c_str());
        return Run.Problems.empty() ? 0 : 3;
      });
      Child.Wait(std::chrono::seconds(60));
      if (!Child.Succeeded())
        ADD_FAILURE() << File << " case " << &D - Cases.data() << " " << D.Name << ": "
                      << Child.Outcome();
      if (!Child.Succeeded() && ++Failed >= 5) return;
    }
  }

  static void TearDownTestSuite() {
    Healthy.reset();
    Env.reset();
    Work.reset();
  }
  static inline std::unique_ptr<TempDir> Work, Healthy;
  static inline std::unique_ptr<ScopedEnv> Env;
};

TEST_F(DamagedFilesTest, KeyFile) {
  const size_t Size = HealthyBytes("DANOS01.TQC").size(), First = 15 + 5 * 3;
  const std::string Page1 = Int32(First + 1), Huge = Int32(0x7FFFFFFF);
  std::vector<Damage> Cases = {
      {"root of key 2 is key 1's", [](std::string& B) { B.replace(22, 4, B.substr(17, 4)); }},
      {"a page fragment at the end", [](std::string& B) { B += std::string(38, 'x'); }}};
  // The header (key count, node size, last record, deleted count and head), the descriptors
  // (key length, root), then pages spread over the file: kind, count and pointers bent.
  std::vector<std::pair<size_t, std::string>> Bytes = {
      {0, "\0"s},          {0, "\x0B"},  {0, "\xFF"},    {0, "\x01"},        {1, "\xFF\x03"},
      {15, "\0"s},         {15, "\xFF"}, {20, "\x01"},   {3, Int32(-5)},     {3, Int32(0)},
      {3, Huge},           {7, Huge},    {7, Int32(-1)}, {11, Int32(17)},    {11, Int32(1 << 30)},
      {11, Int32(786688)}, {11, Page1},  {16, Int32(0)}, {16, Int32(-1024)}, {16, Int32(First + 5)},
      {21, Int32(1 << 29)}};
  for (size_t At = First; At + 1024 <= Size; At += 1024 * std::max<size_t>(1, Size / 4096)) {
    for (const auto& [Offset, Text] : std::vector<std::pair<size_t, std::string>>{
             {0, "\x07"}, {1, "\xFF\xFF"}, {1, "\xE8\x03"}, {1, "\0\0"s}})
      Bytes.emplace_back(At + Offset, Text);
    for (const size_t KeyLength : {8u, 28u, 6u}) {
      for (const std::string& Value : {Int32(0), Page1, Int32(At + 1), Huge})
        Bytes.emplace_back(At + 3 + KeyLength, Value);
    }
    Cases.push_back(
        {"kind flipped at " + std::to_string(At), [At](std::string& B) { B[At] ^= 1; }});
  }
  for (const auto& [At, Text] : Bytes)
    Cases.push_back(
        {std::to_string(Text.size()) + " bytes at " + std::to_string(At), Put(At, Text)});
  RunAll("DANOS01.TQC",
         {0, 1, 2, 3, 14, 15, 16, First - 1, First, First + 1, First + 512, First + 1023,
          First + 1024, Size / 2, Size - 1024, Size - 1},
         Cases);
}

TEST_F(DamagedFilesTest, DataFile) {
  const size_t Size = HealthyBytes("DANOS01.TQD").size(), Record = size_t(RecordLengthOf(kSpec));
  const size_t Foto = size_t(FieldOffsetOf(kSpec, 6)), Memo = size_t(FieldOffsetOf(kSpec, 7));
  std::vector<Damage> Cases;
  for (size_t At : {size_t(0), kRecords / 2 * Record}) {
    const std::string Where = "record at " + std::to_string(At) + " ";
    for (const int32_t Value : {-1, 2, 0x7FFFFFFF, 1 << 20})
      Cases.push_back(
          {Where + "image position " + std::to_string(Value), Put(At + Foto, Int32(Value))});
    for (const double Place : {std::nan(""), -1.0, 1e300, 0.5}) {
      std::string Bytes(8, '\0');
      std::memcpy(Bytes.data(), &Place, 8);
      Cases.push_back({Where + "text position " + std::to_string(Place), Put(At + Memo, Bytes)});
    }
    for (const int32_t Value : {-1, 0x7FFFFFFF, (1 << 26) + 1})
      Cases.push_back(
          {Where + "text length " + std::to_string(Value), Put(At + Memo + 8, Int32(Value))});
    Cases.push_back({Where + "half a deletion mark", Put(At, "ANULAD")});
    std::string Control(Record, '\0');
    for (size_t I = 0; I < Record; ++I) Control[I] = char(I % 32);
    Cases.push_back({Where + "control characters", Put(At, Control)});
    Cases.push_back({Where + "all 0xFF", Put(At, std::string(Record, '\xFF'))});
  }
  RunAll("DANOS01.TQD", {0, 1, 7, Record - 1, Record, Record + 3, Size / 2, Size - 1}, Cases);
}

TEST_F(DamagedFilesTest, Dictionary) {
  std::vector<Damage> Cases;
  for (const auto& [At, Text] : std::vector<std::pair<size_t, std::string>>{
           {0, "99"},   {0, "00"},   {0, "0Z"},   {0, "\xff\xff"},   {37, "ZZ"},       {37, "00"},
           {39, "62"},  {39, "05"},  {105, "74"}, {103, "01"},       {64, "00"},       {64, "ZZ"},
           {264, "I:"}, {264, "I0"}, {266, "99"}, {266, "00"},       {268, "00"},      {268, "Z9"},
           {270, "00"}, {270, "ZZ"}, {298, "1"},  {363, "I3001011"}, {363, "I1020109"}}) {
    Cases.push_back({"\"" + Text + "\" at " + std::to_string(At), Put(At, Text)});
  }
  RunAll("DANOS.TQA",
         {0, 1, 2, 8, 32, 33, 34, 66, 263, 264, 302, HealthyBytes("DANOS.TQA").size() - 1}, Cases);
}

TEST_F(DamagedFilesTest, ImageAndLongTextFiles) {
  std::vector<Damage> Cases;
  for (const int32_t Value : {-1, 0, 1, 0x7FFFFFFF, (1 << 26) + 1}) {
    Cases.push_back({"first capacity " + std::to_string(Value), Put(0, Int32(Value))});
    Cases.push_back({"first owner " + std::to_string(Value), Put(4, Int32(Value))});
  }
  for (const std::string File : {"DANOS01.TQW", "DANOS01.TQY"}) {
    const size_t Size = HealthyBytes(File).size();
    RunAll(File, {0, 1, 5, 9, 50, Size / 2, Size - 1},
           File.ends_with('W') ? Cases : std::vector<Damage>{});
  }
}

}  // namespace
}  // namespace tqdb::testing

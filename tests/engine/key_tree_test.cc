// The key file's layout and pages where the randomized model test cannot look: the bytes
// of a new file, entries hidden in record numbers, the deleted-record pages, the tree
// checker's findings and the misuses the bulk builder refuses.
#include <gtest/gtest.h>

#include <string>
#include <vector>

#include "engine/bulk_builder.h"
#include "engine/key_file_damage.h"
#include "engine/key_update.h"
#include "engine/record_allocator.h"
#include "engine_fixture.h"

namespace tqdb::testing {
namespace {

using engine::Int16ToBytes;
using engine::Int32ToBytes;
using engine::LoadInt32;

TEST(KeyFileLayout, EmptyFileHasHeaderDescriptorsAndOneEmptyRootPerKey) {
  TempDir Dir;
  const std::vector<int> Lengths = {10, 255, 1};
  engine::CreateEmptyKeyFile(Dir.File("t.tqc"), Lengths);
  const std::string Bytes = Dir.Read("t.tqc");
  ASSERT_EQ(Bytes.size(), 15u + 3 * 5 + 3 * 1024);
  EXPECT_EQ(Bytes.substr(0, 15), std::string("\x03\x00\x04", 3) + std::string(12, '\0'));
  for (int Key = 0; Key < 3; ++Key) {
    EXPECT_EQ(Bytes[15 + 5 * Key], char(Lengths[Key]));
    EXPECT_EQ(LoadInt32(reinterpret_cast<const uint8_t*>(Bytes.data()) + 16 + 5 * Key),
              31 + 1024 * Key);  // 1-based positions
  }
  EXPECT_EQ(Bytes.substr(30), std::string(3 * 1024, '\0'));
  for (const std::vector<int>& Bad : {std::vector<int>{0}, {256}, std::vector<int>(11, 4)}) {
    EXPECT_THROW(engine::CreateEmptyKeyFile(Dir.File("a.tqc"), Bad), platform::Fault);
  }
}

// Every search of an empty key ends with status 16. Record numbers 17219 and 17220 are
// stored as "CC\0\0" and "DC\0\0": the bytes of the value "CC" occur inside a record number
// before the entry that holds it.
TEST(KeySearch, IgnoresValuesInsideRecordNumbersAndStaleEntries) {
  EngineFile File({2});
  for (const char* Command :
       {"F\\1\\1", "L\\1\\1", "G\\1\\1\\A", "S\\1\\1\\AB", "A\\1\\5\\1\\AB", "E\\1\\5\\1\\AB"}) {
    File.Result = 99;
    EXPECT_EQ((File.Run(Command), File.Status), 16) << Command;  // an empty key
    EXPECT_EQ(File.Result, 0) << Command;
  }
  engine::ReadHeader(File.Engine);
  File.Engine.Header.LastRecord = 17218;
  engine::WriteHeader(File.Engine);
  EXPECT_EQ(File.Insert({"AB"}), 17219);
  EXPECT_EQ(File.Insert({"CC"}), 17220);
  EXPECT_EQ(File.Run("S\\1\\1\\CC"), 17220);
  EXPECT_EQ(File.Status, 0);
  EXPECT_EQ(File.Run("S\\1\\1\\BC"), 17219);  // "B" and the first byte of 17219
  EXPECT_EQ(File.Status, 12);
  File.Delete(File.Insert({"XY"}), {"XY"});
  ASSERT_EQ(File.Status, 0);  // "XY" stays in the page beyond the count
  EXPECT_EQ(File.Run("S\\1\\1\\XY"), 17220);
  EXPECT_EQ(File.Status, 15);
}

TEST(RecordAllocator, AFullPageLinksAZeroFilledSecondPage) {
  EngineFile File({4});
  for (int I = 0; I < 300; ++I) engine::AllocateRecordNumber(File.Engine);
  for (int32_t Record = 1; Record <= 255; ++Record) {
    engine::ReleaseRecordNumber(File.Engine, Record);
  }
  const int32_t Head = File.Engine.Header.DeletedHead;
  ASSERT_GT(Head, 0);
  NodeBuffer Page = File.Page(Head);
  for (int Slot = 0; Slot < 255; ++Slot) ASSERT_EQ(LoadInt32(Page.data() + 4 * Slot), Slot + 1);
  const int32_t Second = LoadInt32(Page.data() + 1020);
  ASSERT_EQ(Second, Head + 1024);
  EXPECT_EQ(File.Page(Second), NodeBuffer{});
  engine::ReleaseRecordNumber(File.Engine, 256);  // to slot 0 of the second page
  EXPECT_EQ(LoadInt32(File.Page(Second).data()), 256);
  EXPECT_TRUE(File.Problems().empty());
  for (int32_t Record = 256; Record >= 1; --Record) {
    ASSERT_EQ(engine::AllocateRecordNumber(File.Engine), Record);
  }
  EXPECT_EQ(engine::AllocateRecordNumber(File.Engine), 301);
  engine::ReleaseRecordNumber(File.Engine, 7);  // the head page is kept for the next release
  EXPECT_EQ(File.Engine.Header.DeletedHead, Head);
  EXPECT_EQ(File.Page(Head), [] {
    NodeBuffer Only{7};
    return Only;
  }());                         // and starts afresh
  File.Engine.Creating = true;  // a key file being built takes no numbers from the stack
  EXPECT_EQ(engine::AllocateRecordNumber(File.Engine), 302);
}

// The checker names each kind of fault it is there to find, for the whole file and for
// the one key.
TEST(TreeChecker, NamesEachKindOfDamage) {
  EngineFile File({6});
  for (int I = 0; I < 300; ++I) File.Insert({"K" + std::to_string(1000 + (I * 7) % 300)});
  File.Delete(File.Entries(1).front().Record, {"K1000"});  // a page on the deleted stack
  ASSERT_EQ(File.Problems(), std::vector<std::string>{});
  const int32_t Root = File.Engine.RootPos[1];
  NodeBuffer RootPage = File.Page(Root);
  const int32_t Leaf = engine::NodeView(RootPage, 6).Value(1);  // the root's second child
  const std::string Sound = File.FileBytes();
  struct Damage {
    int64_t Position;
    std::string Bytes, Found;
  };
  for (const Damage& Case : std::vector<Damage>{
           {Leaf + 3 + 20, "K0000 ", "out of order"},
           {Root + 3 + 10, "K9999 ", "lowest key"},
           {Leaf + 1, Int16ToBytes(int16_t(engine::NodeCapacity(6))), "left full"},
           {Leaf + 1, Int16ToBytes(0), "empty node"},
           {Leaf + 3 + 6, Int32ToBytes(100000), "outside 1..last"},
           {Root + 3 + 10 + 6, Int32ToBytes(Root), "reached twice"},
           {12, Int32ToBytes(Leaf), "also used elsewhere"},  // the stack's head is a leaf
       }) {
    File.SetFileBytes(Sound);
    File.PokeBytes(Case.Position, Case.Bytes);
    File.Open();
    const std::vector<std::string> Problems = File.Problems();
    const std::vector<std::string> OfKey = engine::CheckKeyTree(File.Engine, 1);
    for (const auto* List : {&Problems, &OfKey}) {
      if (List == &OfKey && Case.Position == 12) continue;  // the stack is not the key's
      EXPECT_TRUE(std::any_of(List->begin(), List->end(), [&](const std::string& P) {
        return P.find(Case.Found) != std::string::npos;
      })) << Case.Found;
    }
  }
  EXPECT_FALSE(engine::CheckKeyTree(File.Engine, 2).empty());  // not in the file
  EXPECT_TRUE(engine::ListKeyEntries(File.Engine, 0).empty());
}

TEST(BulkMisuseTest, RefusesDisorderUsedKeysTooDeepTreesAndShortRecordCounts) {
  EngineFile File({10});
  engine::KeyBulkBuilder Builder(File.Engine);
  Builder.BeginKey(1);
  Builder.Add("B", 5);
  EXPECT_THROW(Builder.Add("A", 6), platform::Fault);
  EXPECT_THROW(Builder.Add("B", 5), platform::Fault);  // the same pair twice
  Builder.Add("B", 6);
  Builder.FinishKey();
  EXPECT_THROW(Builder.Finish(5), platform::Fault);  // below the highest record loaded
  Builder.Finish(6);
  EXPECT_EQ(File.Insert({"X"}), 7);  // numbering continues after the loaded ones
  engine::KeyBulkBuilder Again(File.Engine);
  EXPECT_THROW(Again.BeginKey(1), platform::Fault);  // the key holds entries
  EXPECT_THROW(Again.BeginKey(2), platform::Fault);  // not in the file
  File.SetFileBytes(File.FileBytes() + "x");         // a fragment after the last page
  EXPECT_THROW(engine::KeyBulkBuilder Damaged(File.Engine), engine::KeyFileDamaged);

  EngineFile Long({255});
  engine::KeyBulkBuilder Counted(Long.Engine);
  try {
    Counted.BeginKey(1, 257);
    FAIL() << "no fault";
  } catch (const platform::Fault& Failure) {
    EXPECT_EQ(Failure.Number(), platform::kSubscript);
  }
  // Without a count the builder finds out while it loads.
  engine::KeyBulkBuilder Blind(Long.Engine);
  Blind.BeginKey(1);
  EXPECT_THROW(
      {
        for (int I = 1; I <= 300; ++I) Blind.Add(Padded(std::to_string(1000 + I), 255), I);
        Blind.FinishKey();
      },
      platform::Fault);
}

}  // namespace
}  // namespace tqdb::testing

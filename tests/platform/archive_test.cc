#include "platform/archive.h"

#include <gtest/gtest.h>
#include <zip.h>

#include "support/temp_dir.h"

namespace tqdb::platform {
namespace {

// The names and contents of the entries of a zip archive.
std::vector<std::pair<std::string, std::string>> Entries(const std::string& Path) {
  std::vector<std::pair<std::string, std::string>> Result;
  int Error = 0;
  zip_t* Archive = zip_open(Path.c_str(), ZIP_RDONLY, &Error);
  if (Archive == nullptr) return Result;
  for (zip_int64_t I = 0; I < zip_get_num_entries(Archive, 0); ++I) {
    zip_stat_t Stat;
    zip_stat_index(Archive, static_cast<zip_uint64_t>(I), 0, &Stat);
    std::string Content(Stat.size, '\0');
    zip_file_t* File = zip_fopen_index(Archive, static_cast<zip_uint64_t>(I), 0);
    zip_fread(File, Content.data(), Stat.size);
    zip_fclose(File);
    Result.emplace_back(Stat.name, Content);
  }
  zip_discard(Archive);
  return Result;
}

TEST(Archive, HoldsTheOriginalBytesUnderTheFileName) {
  testing::TempDir Dir;
  std::string Bytes(70000, '\0');
  for (size_t I = 0; I < Bytes.size(); ++I) Bytes[I] = static_cast<char>(I * 7 % 251);
  Dir.Write("CLIEN01.TQD", Bytes);
  const std::string Zip = Dir.File("CLIEN01.TQD 2024-01-02 03 04 05 .zip");
  ASSERT_EQ(ZipOneFile(Dir.Dir() + "clien01.tqd", Zip), 0);
  const auto Held = Entries(Zip);
  ASSERT_EQ(Held.size(), 1u);
  EXPECT_EQ(Held[0].first, "CLIEN01.TQD");
  EXPECT_EQ(Held[0].second, Bytes);
}

TEST(Archive, ReplacesAnExistingArchive) {
  testing::TempDir Dir;
  Dir.Write("a.tqd", "first");
  Dir.Write("b.tqd", "second");
  ASSERT_EQ(ZipOneFile(Dir.File("a.tqd"), Dir.File("out.zip")), 0);
  ASSERT_EQ(ZipOneFile(Dir.File("b.tqd"), Dir.File("out.zip")), 0);
  const auto Held = Entries(Dir.File("out.zip"));
  ASSERT_EQ(Held.size(), 1u);
  EXPECT_EQ(Held[0], std::make_pair(std::string("b.tqd"), std::string("second")));
}

TEST(Archive, FailuresAreCodesNotExceptions) {
  testing::TempDir Dir;
  EXPECT_EQ(ZipOneFile(Dir.File("missing.tqd"), Dir.File("out.zip")), 53);
  Dir.Write("a.tqd", "x");
  EXPECT_NE(ZipOneFile(Dir.File("a.tqd"), Dir.File("no/dir/out.zip")), 0);
}

}  // namespace
}  // namespace tqdb::platform

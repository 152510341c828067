#include "support/file_checks.h"

#include <sys/fsuid.h>
#include <unistd.h>
#include <zip.h>

#include <memory>

namespace tqdb::testing {

namespace fs = std::filesystem;

ReadOnlyFiles::ReadOnlyFiles(std::string Directory) : directory_(std::move(Directory)) {
  for (const auto& Entry : fs::directory_iterator(directory_)) {
    fs::permissions(Entry.path(), fs::perms(0444));
  }
  fs::permissions(directory_, fs::perms(0555));
  if (::geteuid() == 0) ::setfsuid(65534);
}

ReadOnlyFiles::~ReadOnlyFiles() {
  ::setfsuid(::geteuid());
  std::error_code Ignored;
  fs::permissions(directory_, fs::perms(0700), Ignored);
}

std::vector<std::string> FilesIn(const std::string& Directory) {
  std::vector<std::string> Names;
  std::error_code Ignored;
  for (const auto& Entry : std::filesystem::directory_iterator(Directory, Ignored)) {
    Names.push_back(Entry.path().filename().string());
  }
  std::sort(Names.begin(), Names.end());
  return Names;
}

std::pair<std::string, std::string> ZipMember(const std::string& Archive) {
  int Error = 0;
  std::unique_ptr<zip_t, int (*)(zip_t*)> Zip(zip_open(Archive.c_str(), ZIP_RDONLY, &Error),
                                              zip_close);
  if (!Zip) return {"<cannot open>", ""};
  if (zip_get_num_entries(Zip.get(), 0) != 1) return {"<not one member>", ""};
  zip_stat_t Stat;
  zip_stat_index(Zip.get(), 0, 0, &Stat);
  std::unique_ptr<zip_file_t, int (*)(zip_file_t*)> Member(zip_fopen_index(Zip.get(), 0, 0),
                                                           zip_fclose);
  std::string Bytes(Stat.size, '\0');
  const zip_int64_t Read = zip_fread(Member.get(), Bytes.data(), Stat.size);
  Bytes.resize(Read < 0 ? 0 : static_cast<size_t>(Read));
  return {Stat.name, Bytes};
}

}  // namespace tqdb::testing

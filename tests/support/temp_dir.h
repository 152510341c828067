// A temporary directory for one test, under $TMPDIR (or /tmp), removed with everything in
// it when the object goes out of scope.
#pragma once

#include <stdlib.h>

#include <filesystem>
#include <fstream>
#include <iterator>
#include <stdexcept>
#include <string>
#include <string_view>

namespace tqdb::testing {

class TempDir {
 public:
  TempDir() {
    const char* Base = ::getenv("TMPDIR");
    path_ = (Base != nullptr && *Base != '\0') ? Base : "/tmp";
    path_ += path_.back() == '/' ? "tqdb-test-XXXXXX" : "/tqdb-test-XXXXXX";
    if (::mkdtemp(path_.data()) == nullptr) throw std::runtime_error("cannot create " + path_);
  }
  ~TempDir() {
    std::error_code Ignored;
    std::filesystem::remove_all(path_, Ignored);
  }
  TempDir(const TempDir&) = delete;
  TempDir& operator=(const TempDir&) = delete;

  // The directory without a trailing "/"; with one; and the path of Name inside it.
  const std::string& Path() const { return path_; }
  std::string Dir() const { return path_ + "/"; }
  std::string File(std::string_view Name) const { return Dir() + std::string(Name); }

  // Writes Bytes to Name inside the directory (replacing it) and returns its path.
  std::string Write(std::string_view Name, std::string_view Bytes) const {
    std::ofstream Out(File(Name), std::ios::binary | std::ios::trunc);
    Out.write(Bytes.data(), static_cast<std::streamsize>(Bytes.size()));
    if (!Out) throw std::runtime_error("cannot write " + File(Name));
    return File(Name);
  }
  // The whole content of Name inside the directory ("" when missing).
  std::string Read(std::string_view Name) const {
    std::ifstream In(File(Name), std::ios::binary);
    return std::string(std::istreambuf_iterator<char>(In), std::istreambuf_iterator<char>());
  }

 private:
  std::string path_;
};

}  // namespace tqdb::testing

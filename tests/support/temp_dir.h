// A temporary directory for one test, under $TMPDIR (or /tmp), removed with everything in
// it when the object goes out of scope.
#pragma once

#include <stdlib.h>

#include <cstdlib>
#include <filesystem>
#include <fstream>
#include <iterator>
#include <stdexcept>
#include <string>
#include <string_view>
#include <system_error>

namespace tqdb::testing {

class TempDir {
 public:
  TempDir() {
    const char* Base = std::getenv("TMPDIR");
    std::string Pattern = (Base != nullptr && *Base != '\0') ? Base : "/tmp";
    if (Pattern.back() != '/') Pattern += '/';
    Pattern += "tqdb-test-XXXXXX";
    if (::mkdtemp(Pattern.data()) == nullptr) {
      throw std::runtime_error("cannot create a temporary directory under " + Pattern);
    }
    path_ = Pattern;
  }
  ~TempDir() {
    std::error_code Ignored;
    std::filesystem::remove_all(path_, Ignored);
  }
  TempDir(const TempDir&) = delete;
  TempDir& operator=(const TempDir&) = delete;

  // The directory, without a trailing "/".
  const std::string& Path() const { return path_; }
  // The directory with a trailing "/", ready to prefix a file name.
  std::string Dir() const { return path_ + "/"; }
  // The path of Name inside the directory.
  std::string File(std::string_view Name) const { return Dir() + std::string(Name); }

  // Writes Bytes to Name inside the directory (replacing it) and returns its path.
  std::string Write(std::string_view Name, std::string_view Bytes) const {
    const std::string Target = File(Name);
    std::ofstream Out(Target, std::ios::binary | std::ios::trunc);
    Out.write(Bytes.data(), static_cast<std::streamsize>(Bytes.size()));
    if (!Out) throw std::runtime_error("cannot write " + Target);
    return Target;
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

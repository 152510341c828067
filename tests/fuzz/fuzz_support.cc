#include "fuzz_support.h"

#include <stdlib.h>

#include <cctype>
#include <cstdio>
#include <cstdlib>
#include <filesystem>
#include <fstream>
#include <iterator>
#include <stdexcept>

#include "support/table_writer.h"
#include "table/TQFile.h"

namespace tqdb::fuzz {
namespace {

struct Scratch {
  Scratch() {
    const char* Base = std::getenv("TMPDIR");
    std::string Pattern = (Base != nullptr && *Base != '\0') ? Base : "/tmp";
    if (Pattern.back() != '/') Pattern += '/';
    Pattern += "tqdb-fuzz-XXXXXX";
    if (::mkdtemp(Pattern.data()) == nullptr) throw std::runtime_error("mkdtemp " + Pattern);
    Path = Pattern + "/";
    ::setenv("TMPDIR", Path.c_str(), 1);
    SetMessageSink([](const std::string&, MessageIcon) {});
  }
  ~Scratch() {
    std::error_code Ignored;
    std::filesystem::remove_all(Path, Ignored);
  }
  std::string Path;
};

}  // namespace

const std::string& ScratchDir() {
  static const Scratch Dir;
  return Dir.Path;
}

void WriteFile(const std::string& Path, std::string_view Bytes) {
  std::ofstream Out(Path, std::ios::binary | std::ios::trunc);
  Out.write(Bytes.data(), static_cast<std::streamsize>(Bytes.size()));
}

std::string ReadFile(const std::string& Path) {
  std::ifstream In(Path, std::ios::binary);
  return std::string(std::istreambuf_iterator<char>(In), std::istreambuf_iterator<char>());
}

std::string WriteFuzzTable() {
  using namespace tqdb::testing;
  TableSpec Spec;
  Spec.Description = "TABLA DE PRUEBA";
  Spec.Fields = {{"CODIGO", 0, 6}, {"NOMBRE", 0, 12}, {"IMPORTE", 3, 8}, {"CANT", 1, 2},
                 {"FECHA", 5, 6},  {"CLASE", 4, 4},   {"ESTADO", 0, 4}};
  Spec.Keys = {KeySpec{{{1, 1, 6}}}, KeySpec{{{2, 1, 12}, {1, 1, 6}}}};
  static const char* const kNames[] = {"GARCIA", "MUÑOZ", "PEREZ", "garcia", "LOPEZ", "ÁLVAREZ"};
  static const char* const kStates[] = {"ALTA", "BAJA", "PEND", ""};
  std::vector<std::string> Records;
  for (int I = 1; I <= 60; ++I) {
    const std::string Digits = std::to_string(I);
    std::string Name = kNames[I % 6];
    // The texts above are UTF-8; the file holds Windows-1252.
    std::string Cp1252;
    for (size_t C = 0; C < Name.size(); ++C) {
      const auto Byte = static_cast<unsigned char>(Name[C]);
      if (Byte == 0xC3 && C + 1 < Name.size()) {
        Cp1252 += static_cast<char>(static_cast<unsigned char>(Name[++C]) + 0x40);
      } else {
        Cp1252 += static_cast<char>(Byte);
      }
    }
    const std::string Date = std::string(I % 2 ? "A" : "9") + std::to_string(I % 10) + "0" +
                             std::to_string(I % 9 + 1) + (I % 28 < 9 ? "0" : "") +
                             std::to_string(I % 28 + 1);
    Records.push_back(RecordBytes(Spec, {"C" + std::string(5 - Digits.size(), '0') + Digits,
                                         Cp1252 + " " + std::to_string(I % 7), I * 2.5 - 60,
                                         I % 13 - 6, Date, I * 1000, kStates[I % 4]}));
  }
  Records[9] = DeletedRecordBytes(Spec);
  WriteDictionary(ScratchDir(), "FUZZT", Spec);
  WriteDataFile(ScratchDir() + "FUZZT01.tqd", Records);
  return ScratchDir() + "FUZZT01";
}

std::string KeyFilePath(const std::string& Directory, const std::string& UpperName) {
  for (const auto& Entry : std::filesystem::directory_iterator(Directory)) {
    std::string Name = Entry.path().filename().string();
    for (char& C : Name) C = static_cast<char>(std::toupper(static_cast<unsigned char>(C)));
    if (Name == UpperName) return Entry.path().string();
  }
  return "";
}

void Finding(const std::string& What) {
  std::fprintf(stderr, "FINDING: %s\n", What.c_str());
  std::fflush(stderr);
  std::abort();
}

}  // namespace tqdb::fuzz

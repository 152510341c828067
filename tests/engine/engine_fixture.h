// Shared helpers of the engine tests: a key file in a temporary directory, opened by the
// engine through the command channel, small readers of its pages, and the order of keys.
#pragma once

#include <gtest/gtest.h>

#include <algorithm>
#include <cstdint>
#include <random>
#include <string>
#include <vector>

#include "engine/EngineState.h"
#include "engine/dispatcher.h"
#include "engine/key_codec.h"
#include "engine/key_file.h"
#include "engine/tree_checker.h"
#include "platform/codepage.h"
#include "support/temp_dir.h"

namespace tqdb::testing {

// A path as it travels in a command: every "/" written as "\".
inline std::string CommandPath(std::string Path) {
  std::replace(Path.begin(), Path.end(), '/', '\\');
  return Path;
}

// The text of a key value padded to Length, as the record layer builds it.
inline std::string Padded(std::string Text, int Length) {
  Text.resize(static_cast<size_t>(Length), ' ');
  return Text;
}

// Key order: by character (not byte), then by record number.
inline bool KeyLess(const engine::KeyEntry& A, const engine::KeyEntry& B) {
  const int Order = platform::CompareText(A.Text, B.Text);
  return Order < 0 || (Order == 0 && A.Record < B.Record);
}

// Characters that upper-casing leaves alone, in an order that differs from byte order
// ("€" 0x80 sorts after "Ñ" 0xD1), and the separator itself.
inline std::string RandomText(std::mt19937& Random, size_t Length) {
  static constexpr char kAlphabet[] = {' ', '0', '7', 'A', 'B', 'Z', '\\', '\x80', '\xD1', '\x9F'};
  std::string Text;
  for (size_t I = 0; I < Length; ++I) Text += kAlphabet[Random() % sizeof(kAlphabet)];
  return Text;
}

class EngineFile {
 public:
  // Creates an empty key file with keys of the given lengths and opens it with "/O/".
  explicit EngineFile(std::vector<int> KeyLengths) : lengths_(std::move(KeyLengths)) {
    path_ = dir_.File("clien01.tqc");
    engine::CreateEmptyKeyFile(path_, lengths_);
    Open();
  }
  ~EngineFile() { engine::CloseKeyFile(Engine); }
  EngineFile(const EngineFile&) = delete;
  EngineFile& operator=(const EngineFile&) = delete;

  void Open() {
    Run("/O/" + CommandPath(path_) + "/1");
    EXPECT_EQ(Status, 0) << ErrorText;
  }

  // Runs one command; the status is left in Status, the command as rewritten in Command.
  int32_t Run(std::string Text) {
    Command = std::move(Text);
    fabs_emulate(Engine, Command, Result, Status, ErrorText);
    return Result;
  }

  // "I" with the given key texts, each padded to its key's length; returns the record
  // number the engine allocated.
  int32_t Insert(const std::vector<std::string>& Texts) {
    Run("I\\1" + Keys(Texts));
    EXPECT_EQ(Status, 0) << Command << " " << ErrorText;
    return Engine.LastAllocated;
  }
  void Delete(int32_t Record, const std::vector<std::string>& Texts) {
    Run("D\\" + std::to_string(Record) + "\\Y\\1" + Keys(Texts));
  }

  std::vector<engine::KeyEntry> Entries(int Key) { return engine::ListKeyEntries(Engine, Key); }
  std::vector<std::string> Problems() { return engine::CheckKeyFile(Engine); }

  // The page at Position as the file holds it now, and bytes written over the file.
  NodeBuffer Page(int64_t Position) {
    const std::string Bytes = FileBytes();
    NodeBuffer Out{};
    std::copy_n(Bytes.begin() + (Position - 1), kNodeSize, Out.begin());
    return Out;
  }
  void PokeBytes(int64_t Position, const std::string& Bytes) {
    std::string All = FileBytes();
    All.replace(static_cast<size_t>(Position - 1), Bytes.size(), Bytes);
    SetFileBytes(All);
  }
  std::string FileBytes() const { return dir_.Read("clien01.tqc"); }
  void SetFileBytes(const std::string& Bytes) const { dir_.Write("clien01.tqc", Bytes); }

  const std::string& Path() const { return path_; }
  const TempDir& Dir() const { return dir_; }

  EngineState Engine;
  std::string Command;
  int32_t Result = 0;
  int16_t Status = 0;
  std::string ErrorText;

 private:
  std::string Keys(const std::vector<std::string>& Texts) const {
    std::string Text;
    for (size_t Key = 0; Key < Texts.size(); ++Key)
      Text += "\\" + Padded(Texts[Key], lengths_[Key]);
    return Text;
  }

  TempDir dir_;
  std::vector<int> lengths_;
  std::string path_;
};

}  // namespace tqdb::testing

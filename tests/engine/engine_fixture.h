// Shared helpers of the engine tests: a key file in a temporary directory, opened by the
// engine through the command channel, and small readers of its pages.
#pragma once

#include <gtest/gtest.h>

#include <algorithm>
#include <cstdint>
#include <string>
#include <vector>

#include "engine/EngineState.h"
#include "engine/dispatcher.h"
#include "engine/key_codec.h"
#include "engine/key_file.h"
#include "engine/tree_checker.h"
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

class EngineFile {
 public:
  // Creates an empty key file with keys of the given lengths and opens it with "/O/".
  explicit EngineFile(std::vector<int> KeyLengths, std::string Name = "clien01.tqc")
      : lengths_(std::move(KeyLengths)) {
    path_ = dir_.File(Name);
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
    std::string Text = "I\\1";
    for (size_t Key = 0; Key < Texts.size(); ++Key)
      Text += "\\" + Padded(Texts[Key], lengths_[Key]);
    Run(Text);
    EXPECT_EQ(Status, 0) << Text << " " << ErrorText;
    return Engine.LastAllocated;
  }

  void Delete(int32_t Record, const std::vector<std::string>& Texts) {
    std::string Text = "D\\" + std::to_string(Record) + "\\Y\\1";
    for (size_t Key = 0; Key < Texts.size(); ++Key)
      Text += "\\" + Padded(Texts[Key], lengths_[Key]);
    Run(Text);
  }

  std::vector<engine::KeyEntry> Entries(int Key) { return engine::ListKeyEntries(Engine, Key); }
  std::vector<std::string> Problems() { return engine::CheckKeyFile(Engine); }

  // The page at Position as the file holds it now.
  NodeBuffer Page(int64_t Position) {
    const std::string Bytes = dir_.Read(FileName());
    NodeBuffer Out{};
    std::copy_n(Bytes.begin() + (Position - 1), kNodeSize, Out.begin());
    return Out;
  }
  void PokeBytes(int64_t Position, const std::string& Bytes) {
    std::string All = dir_.Read(FileName());
    All.replace(static_cast<size_t>(Position - 1), Bytes.size(), Bytes);
    dir_.Write(FileName(), All);
  }
  std::string FileName() const { return path_.substr(dir_.Dir().size()); }

  const std::string& Path() const { return path_; }
  const TempDir& Dir() const { return dir_; }
  int Length(int Key) const { return lengths_[static_cast<size_t>(Key - 1)]; }

  EngineState Engine;
  std::string Command;
  int32_t Result = 0;
  int16_t Status = 0;
  std::string ErrorText;

 private:
  TempDir dir_;
  std::vector<int> lengths_;
  std::string path_;
};

}  // namespace tqdb::testing

// Small observers shared by tests of operations that show messages, create or delete
// files and keep archive copies.
#pragma once

#include <algorithm>
#include <filesystem>
#include <string>
#include <utility>
#include <vector>

#include "table/TQFile.h"

namespace tqdb::testing {

// Collects the messages shown while it lives.
class MessageCapture {
 public:
  MessageCapture() {
    SetMessageSink(
        [this](const std::string& Text, MessageIcon Icon) { Messages.emplace_back(Text, Icon); });
  }
  ~MessageCapture() { SetMessageSink(nullptr); }
  MessageCapture(const MessageCapture&) = delete;
  MessageCapture& operator=(const MessageCapture&) = delete;

  std::vector<std::pair<std::string, MessageIcon>> Messages;
};

// While it lives the files of Directory may only be read, as on a read-only share: they
// get mode 444 and the directory 555, and since the tests may run as root, whom modes do
// not stop, the thread opens files as the user "nobody" meanwhile.
class ReadOnlyFiles {
 public:
  explicit ReadOnlyFiles(std::string Directory);
  ~ReadOnlyFiles();
  ReadOnlyFiles(const ReadOnlyFiles&) = delete;
  ReadOnlyFiles& operator=(const ReadOnlyFiles&) = delete;

 private:
  std::string directory_;
};

// The names of the entries of Directory, sorted; none when it does not exist.
std::vector<std::string> FilesIn(const std::string& Directory);

// The one member of a zip archive: its name and its bytes. "<cannot open>" or
// "<not one member>" stand for the name when the archive is not that.
std::pair<std::string, std::string> ZipMember(const std::string& Archive);

}  // namespace tqdb::testing

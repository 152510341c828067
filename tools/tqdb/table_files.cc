#include "table_files.h"

#include <cstdio>

#include "engine/key_codec.h"
#include "engine/key_file.h"
#include "platform/codepage.h"
#include "platform/fault.h"
#include "text_files.h"
#include "tool_error.h"

namespace tqdb::tool {

int32_t TableFiles::Places() const {
  if (Dict.RecordLength <= 0) return 0;
  return static_cast<int32_t>(Data.size() / static_cast<size_t>(Dict.RecordLength));
}

std::string_view TableFiles::Record(int32_t N) const {
  const size_t Length = static_cast<size_t>(Dict.RecordLength);
  return std::string_view(Data).substr(static_cast<size_t>(N - 1) * Length, Length);
}

bool TableFiles::IsDeleted(int32_t N) const { return Record(N).substr(0, 7) == "ANULADO"; }

Dictionary ReadDictionary(const TableRef& Table) {
  RequireWellFormed(Table);
  if (!PathExists(Table.DictionaryPath())) {
    throw TQError(50999, "La tabla " + Table.Name() +
                             " no existe en la ruta: " + Table.DictionaryDirectory());
  }
  const std::string Bytes = ReadWholeFile(Table.DictionaryPath());
  return ParseDictionary(std::string_view(Bytes).substr(0, kDictionaryReadSize));
}

TableFiles ReadTableFiles(const TableRef& Table) {
  TableFiles Files;
  Files.Dict = ReadDictionary(Table);
  if (PathExists(Table.DataPath())) Files.Data = ReadWholeFile(Table.DataPath());
  return Files;
}

KeyFileReader::KeyFileReader(const TableRef& Table) {
  if (!PathExists(Table.KeyPath())) {
    problem_ = "the key file " + Table.KeyPath() + " does not exist";
    return;
  }
  try {
    engine::OpenKeyFile(Engine, SystemName(Table.KeyPath()));
  } catch (const platform::Fault& Failure) {
    problem_ = "the key file cannot be read: " + OneLine(Failure.Description());
    return;
  }
  if (Engine.EngineStatus == 22) problem_ = "the key file is empty";
  if (Engine.EngineStatus == 26) problem_ = "the key file cannot be opened";
  if (!IsOpen() && problem_.empty()) {
    problem_ = "the key file cannot be opened (status " + std::to_string(Engine.EngineStatus) + ")";
  }
}

KeyFileReader::~KeyFileReader() { engine::CloseKeyFile(Engine); }

int KeyFileReader::Depth(int Key) {
  if (!IsOpen() || Key < 1 || Key > Engine.Header.KeyCount || Key > kMaxKeys) return 0;
  int64_t Position = Engine.RootPos[static_cast<size_t>(Key)];
  NodeBuffer Buffer;
  try {
    for (int Depth = 1; Depth <= kLevelBuffers; ++Depth) {
      engine::ReadPage(Engine, Position, Buffer);
      const engine::NodeView Node(Buffer, Engine.KeyLen[static_cast<size_t>(Key)]);
      if (Node.IsLeaf() || Node.Count() <= 0) return Depth;
      Position = Node.Value(0);
    }
  } catch (const platform::Fault&) {
  }
  return 0;
}

std::string Printable(std::string_view Text) {
  std::string Shown;
  for (char C : Text) {
    const auto Byte = static_cast<unsigned char>(C);
    if (Byte < 0x20 || Byte == 0x7F) {
      char Escape[8];
      std::snprintf(Escape, sizeof Escape, "\\x%02X", Byte);
      Shown += Escape;
    } else {
      Shown += platform::Cp1252ToUtf8(std::string_view(&C, 1));
    }
  }
  return Shown;
}

}  // namespace tqdb::tool

// Image entries in the image file (".tqw"); see images.h and docs/formats.md.
#include "records/images.h"

#include <algorithm>
#include <limits>

#include "platform/codepage.h"
#include "platform/fault.h"
#include "platform/file_pool.h"
#include "records/record_codecs.h"
#include "records/side_files.h"
#include "records/waiting_lock.h"

namespace tqdb {
namespace {

using platform::Fault;
using platform::FileNo;

constexpr uint8_t kLiveStatus = 255;

// The image file's number; Fault 52 when the table holds none.
FileNo ImageFile(const TableState& State) {
  if (State.ImageFileNo < 1 || State.ImageFileNo > std::numeric_limits<FileNo>::max()) {
    throw Fault(platform::kBadFileNumber);
  }
  return static_cast<FileNo>(State.ImageFileNo);
}

void AppendInt32(std::string& Out, int32_t Value) {
  const auto Bits = static_cast<uint32_t>(Value);
  for (int i = 0; i < 4; ++i) Out.push_back(static_cast<char>((Bits >> (8 * i)) & 0xFF));
}

int32_t LoadInt32(std::string_view Bytes) {
  uint32_t Bits = 0;
  for (int i = 3; i >= 0; --i) Bits = (Bits << 8) | static_cast<uint8_t>(Bytes[i]);
  return static_cast<int32_t>(Bits);
}

// Header of a live entry followed by its data.
std::string LiveEntry(int32_t Record, std::string_view Data) {
  std::string Entry;
  Entry.reserve(kImageHeaderSize + Data.size());
  AppendInt32(Entry, static_cast<int32_t>(Data.size()));
  AppendInt32(Entry, Record);
  Entry.push_back(static_cast<char>(kLiveStatus));
  Entry.append(Data);
  return Entry;
}

// An entry as found at a position read from a record, checked against the file.
struct EntryAt {
  bool HeaderInFile = false;  // the 9 header bytes lie inside the file
  int32_t Capacity = 0;
  bool DataInFile = false;  // 0 <= capacity <= kMaxImageBytes and the data ends in the file
};

EntryAt ReadEntry(FileNo File, int64_t Position, int64_t FileLength) {
  EntryAt Entry;
  if (Position < 1 || Position + kImageHeaderSize - 1 > FileLength) return Entry;
  Entry.HeaderInFile = true;
  Entry.Capacity = LoadInt32(platform::ReadAt(File, Position, 4));
  Entry.DataInFile = Entry.Capacity >= 0 && Entry.Capacity <= kMaxImageBytes &&
                     Position + kImageHeaderSize - 1 + Entry.Capacity <= FileLength;
  return Entry;
}

void PutImageUntraced(TableState& State, int32_t Record, int16_t Field, std::string_view Value,
                      bool Exact) {
  const std::string_view Trimmed = platform::Trim(Value);
  if (Trimmed.empty()) {
    PutLong(State, Record, Field, 0);
    return;
  }
  std::string Data(Trimmed);
  if (!Exact) Data.append(kImageSlack, ' ');
  if (Data.size() > static_cast<size_t>(kMaxImageBytes)) {
    throw Fault(platform::kOverflow, "La imagen excede el tamaño máximo de 67108864 bytes");
  }
  const FileNo File = ImageFile(State);
  int64_t Position = 0;
  {
    const WaitingRangeLock WholeFile(File, 1, platform::kToEnd);
    Position = platform::Length(File) + 1;
    if (Position + kImageHeaderSize - 1 + static_cast<int64_t>(Data.size()) >
        std::numeric_limits<int32_t>::max()) {
      throw Fault(platform::kOverflow);
    }
    platform::WriteAt(File, Position, LiveEntry(Record, Data));
  }
  PutLong(State, Record, Field, static_cast<int32_t>(Position));
}

}  // namespace

void PutImage(TableState& State, int32_t Record, int16_t Field, std::string_view Value,
              bool Exact) {
  Traced("PutImage", [&] { PutImageUntraced(State, Record, Field, Value, Exact); });
}

void UpdateImage(TableState& State, int32_t Record, int16_t Field, std::string_view Value) {
  Traced("UpdateImage", [&] {
    const std::string_view Trimmed = platform::Trim(Value);
    const int32_t Position = GetLong(State, Record, Field);
    if (Position < 1) {
      PutImageUntraced(State, Record, Field, Trimmed, false);
      return;
    }
    const FileNo File = ImageFile(State);
    const int64_t FileLength = platform::Length(File);
    const EntryAt Old = ReadEntry(File, Position, FileLength);
    if (!Old.HeaderInFile) {
      PutImageUntraced(State, Record, Field, Trimmed, false);
      return;
    }
    if (!Trimmed.empty() && Old.DataInFile && static_cast<size_t>(Old.Capacity) >= Trimmed.size()) {
      std::string Data(Trimmed);
      Data.resize(static_cast<size_t>(Old.Capacity), ' ');
      platform::WriteAt(File, Position, LiveEntry(Record, Data));
      return;
    }
    // Release the old entry: header zeroed, and its data too when the capacity can be
    // trusted (a capacity reaching past the file is damage and is left alone).
    WriteZeros(File, Position, kImageHeaderSize);
    if (Old.DataInFile) WriteZeros(File, Position + kImageHeaderSize, Old.Capacity);
    PutImageUntraced(State, Record, Field, Trimmed, false);
  });
}

void DeleteImage(TableState& State, int32_t Record, int16_t Field) {
  Traced("DeleteImage", [&] { UpdateImage(State, Record, Field, ""); });
}

std::string GetImage(const TableState& State, int32_t Record, int16_t Field) {
  return Traced("GetImage", [&] {
    const int32_t Position = GetLong(State, Record, Field);
    if (Position < 1) return std::string();
    const FileNo File = ImageFile(State);
    const int64_t FileLength = platform::Length(File);
    if (Position > FileLength) return std::string();
    const EntryAt Entry = ReadEntry(File, Position, FileLength);
    if (!Entry.DataInFile || Entry.Capacity < 1) return std::string();
    return platform::ReadAt(File, Position + kImageHeaderSize, Entry.Capacity);
  });
}

}  // namespace tqdb

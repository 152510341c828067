// External text in the long-text file (".tqy"); see external_text.h and docs/formats.md.
#include "records/external_text.h"

#include <algorithm>
#include <bit>
#include <cmath>
#include <limits>

#include "platform/fault.h"
#include "platform/file_pool.h"
#include "platform/numbers.h"
#include "platform/scoped_file_number.h"
#include "records/record_codecs.h"
#include "records/side_files.h"
#include "records/waiting_lock.h"

namespace tqdb {
namespace {

using platform::Fault;
using platform::FileNo;

// Fault 5 unless the field can hold a place.
void CheckWidth(const TableState& State, int16_t Field) {
  if (Field >= 1 && static_cast<size_t>(Field) < State.FieldBuffer.size() &&
      State.FieldBuffer[Field].size() < static_cast<size_t>(kExternalTextPlaceSize)) {
    throw Fault(platform::kInvalidCall,
                "El campo " + std::to_string(Field) + " es demasiado corto para un texto externo");
  }
}

// A place that lies wholly inside a file of FileLength bytes, as whole numbers.
struct CheckedPlace {
  bool Usable = false;
  int64_t Position = 0;
  int32_t Length = 0;
};

CheckedPlace Check(ExternalTextPlace Place, int64_t FileLength) {
  CheckedPlace Result;
  if (!std::isfinite(Place.Position) || Place.Position < 1 || Place.Length < 1 ||
      Place.Length > kMaxExternalText || Place.Position > static_cast<double>(FileLength)) {
    return Result;
  }
  Result.Position = static_cast<int64_t>(platform::RoundHalfEven(Place.Position));
  Result.Length = Place.Length;
  Result.Usable = Result.Position >= 1 && Result.Position + Result.Length - 1 <= FileLength;
  return Result;
}

bool NamesText(ExternalTextPlace Place) { return Place.Position >= 1 && Place.Length >= 1; }

void CheckValueLength(std::string_view Value) {
  if (Value.size() > static_cast<size_t>(kMaxExternalText)) {
    throw Fault(platform::kOverflow, "El texto excede el tamaño máximo de 67108864 bytes");
  }
}

// Appends Value at the end of the open file and returns its place.
ExternalTextPlace Append(FileNo File, std::string_view Value) {
  const int64_t Position = platform::Length(File) + 1;
  platform::WriteAt(File, Position, Value);
  return {static_cast<double>(Position), static_cast<int32_t>(Value.size())};
}

// The write rule of external_text.h, with the file open and locked.
ExternalTextPlace Replace(FileNo File, ExternalTextPlace Stored, std::string_view Value) {
  const CheckedPlace Old = Check(Stored, platform::Length(File));
  if (!Value.empty() && Old.Usable && Value.size() <= static_cast<size_t>(Old.Length)) {
    platform::WriteAt(File, Old.Position, Value);
    WriteZeros(File, Old.Position + static_cast<int64_t>(Value.size()),
               Old.Length - static_cast<int64_t>(Value.size()));
    return {static_cast<double>(Old.Position), static_cast<int32_t>(Value.size())};
  }
  if (Old.Usable) WriteZeros(File, Old.Position, Old.Length);
  if (Value.empty()) return {};
  return Append(File, Value);
}

}  // namespace

std::string ExternalTextPath(const TableState& State) {
  return State.DataPath + State.BaseName + State.TableSuffix + ".tqy";
}

ExternalTextPlace GetExternalTextPlace(const TableState& State, int32_t Record, int16_t Field) {
  CheckWidth(State, Field);
  const std::string Bytes = GetField(State, Record, Field, false);
  ExternalTextPlace Place;
  uint64_t PositionBits = 0;
  for (int i = 7; i >= 0; --i) PositionBits = (PositionBits << 8) | static_cast<uint8_t>(Bytes[i]);
  uint32_t LengthBits = 0;
  for (int i = 11; i >= 8; --i) LengthBits = (LengthBits << 8) | static_cast<uint8_t>(Bytes[i]);
  Place.Position = std::bit_cast<double>(PositionBits);
  Place.Length = static_cast<int32_t>(LengthBits);
  return Place;
}

void SetExternalTextPlace(TableState& State, int32_t Record, int16_t Field,
                          ExternalTextPlace Place) {
  CheckWidth(State, Field);
  std::string Bytes = GetField(State, Record, Field, false);
  const uint64_t PositionBits = std::bit_cast<uint64_t>(Place.Position);
  for (int i = 0; i < 8; ++i) Bytes[i] = static_cast<char>((PositionBits >> (8 * i)) & 0xFF);
  const auto LengthBits = static_cast<uint32_t>(Place.Length);
  for (int i = 0; i < 4; ++i) Bytes[8 + i] = static_cast<char>((LengthBits >> (8 * i)) & 0xFF);
  PutField(State, Record, Field, Bytes);
}

std::string GetExternalText(const TableState& State, int32_t Record, int16_t Field) {
  return Traced("GetExternalText", [&] {
    const ExternalTextPlace Stored = GetExternalTextPlace(State, Record, Field);
    if (!NamesText(Stored)) return std::string();
    const platform::ScopedFileNumber File(ExternalTextPath(State), platform::OpenMode::ReadOnly);
    const CheckedPlace Place = Check(Stored, platform::Length(File.get()));
    if (!Place.Usable) return std::string();
    return platform::ReadAt(File.get(), Place.Position, Place.Length);
  });
}

void PutExternalText(TableState& State, int32_t Record, int16_t Field, std::string_view Value) {
  Traced("PutExternalText", [&] {
    CheckWidth(State, Field);
    CheckValueLength(Value);
    ExternalTextPlace Place;
    if (!Value.empty()) {
      const platform::ScopedFileNumber File(ExternalTextPath(State), platform::OpenMode::Binary);
      const WaitingRangeLock WholeFile(File.get(), 1, platform::kToEnd);
      Place = Append(File.get(), Value);
    }
    SetExternalTextPlace(State, Record, Field, Place);
  });
}

void UpdateExternalText(TableState& State, int32_t Record, int16_t Field, std::string_view Value) {
  Traced("UpdateExternalText", [&] {
    CheckValueLength(Value);
    const ExternalTextPlace Stored = GetExternalTextPlace(State, Record, Field);
    ExternalTextPlace Place;
    if (!Value.empty() || NamesText(Stored)) {
      const platform::ScopedFileNumber File(ExternalTextPath(State), platform::OpenMode::Binary);
      const WaitingRangeLock WholeFile(File.get(), 1, platform::kToEnd);
      Place = Replace(File.get(), Stored, Value);
    }
    SetExternalTextPlace(State, Record, Field, Place);
  });
}

void DeleteExternalText(TableState& State, int32_t Record, int16_t Field) {
  Traced("DeleteExternalText", [&] { UpdateExternalText(State, Record, Field, ""); });
}

}  // namespace tqdb

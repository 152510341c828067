// Field codecs of the data file.
#include "records/record_codecs.h"

#include <algorithm>
#include <bit>
#include <cmath>
#include <limits>

#include "platform/codepage.h"
#include "platform/fault.h"
#include "platform/file_pool.h"
#include "platform/numbers.h"

namespace tqdb {
namespace {

using platform::Fault;

// Runs Work; a Fault leaving it carries Source as the routine that failed.
template <typename F>
decltype(auto) Traced(const char* Source, F&& Work) {
  try {
    return Work();
  } catch (Fault& Failure) {
    Failure.SetSource(Source);
    throw;
  }
}

int64_t Checked32(int64_t Value) {
  if (Value < std::numeric_limits<int32_t>::min() || Value > std::numeric_limits<int32_t>::max()) {
    throw Fault(platform::kOverflow);
  }
  return Value;
}

// Fault 9 unless Field is one of the table's fields 1..NumFields.
void CheckField(const TableState& State, int16_t Field) {
  const size_t F = static_cast<size_t>(Field);
  if (Field < 1 || Field > State.NumFields || F + 1 >= State.FieldOffset.size() ||
      F >= State.FieldWidth.size() || F >= State.FieldTypes.size() ||
      F >= State.FieldBuffer.size()) {
    throw Fault(platform::kSubscript);
  }
}

uint64_t LoadLittle(const std::string& Bytes) {
  uint64_t Value = 0;
  for (size_t i = Bytes.size(); i-- > 0;) Value = (Value << 8) | static_cast<uint8_t>(Bytes[i]);
  return Value;
}

std::string StoreLittle(uint64_t Value, int Width) {
  std::string Bytes(Width, '\0');
  for (int i = 0; i < Width; ++i) Bytes[i] = static_cast<char>((Value >> (8 * i)) & 0xFF);
  return Bytes;
}

uint64_t ReadField(const TableState& State, int32_t Record, int16_t Field, int Width) {
  return LoadLittle(platform::ReadAt(State.DataFileNo, FieldPosition(State, Record, Field), Width));
}

void WriteField(const TableState& State, int32_t Record, int16_t Field, std::string_view Bytes) {
  platform::WriteAt(State.DataFileNo, FieldPosition(State, Record, Field), Bytes);
}

std::string EncodeInt16(int16_t V) { return StoreLittle(static_cast<uint16_t>(V), 2); }
std::string EncodeInt32(int32_t V) { return StoreLittle(static_cast<uint32_t>(V), 4); }
std::string EncodeSingle(float V) { return StoreLittle(std::bit_cast<uint32_t>(V), 4); }
std::string EncodeDouble(double V) { return StoreLittle(std::bit_cast<uint64_t>(V), 8); }

// The stored bytes of field Field as "Put It" writes them from its FieldBuffer text.
std::string PutItBytes(const TableState& State, int16_t Field) {
  const std::string& Text = State.FieldBuffer[Field];
  const int16_t Type = State.FieldTypes[Field];
  if (IsBinaryType(Type)) return EncodeBinaryField(Type, platform::Val(Text));
  return Text;
}

}  // namespace

int64_t RecordPosition(const TableState& State, int32_t Record) {
  const int64_t Base = Checked32((int64_t{Record} - 1) * State.RecordLength);
  return Checked32(Base + 1);
}

int64_t FieldPosition(const TableState& State, int32_t Record, int16_t Field) {
  CheckField(State, Field);
  return Checked32(RecordPosition(State, Record) + State.FieldOffset[Field]);
}

int16_t GetInteger(const TableState& State, int32_t Record, int16_t Field) {
  return Traced("GetInteger", [&] {
    return static_cast<int16_t>(static_cast<uint16_t>(ReadField(State, Record, Field, 2)));
  });
}

int32_t GetLong(const TableState& State, int32_t Record, int16_t Field) {
  return Traced("GetLong", [&] {
    return static_cast<int32_t>(static_cast<uint32_t>(ReadField(State, Record, Field, 4)));
  });
}

float GetSingle(const TableState& State, int32_t Record, int16_t Field) {
  return Traced("GetSingle", [&] {
    return std::bit_cast<float>(static_cast<uint32_t>(ReadField(State, Record, Field, 4)));
  });
}

double GetDouble(const TableState& State, int32_t Record, int16_t Field) {
  return Traced("GetDouble", [&] {
    const double Value = std::bit_cast<double>(ReadField(State, Record, Field, 8));
    return State.AbsMode ? std::fabs(Value) : Value;
  });
}

std::string GetField(const TableState& State, int32_t Record, int16_t Field, bool Upper) {
  return Traced("GetField", [&] {
    CheckField(State, Field);
    const int64_t Width = static_cast<int64_t>(State.FieldBuffer.at(Field).size());
    std::string Text =
        platform::ReadAt(State.DataFileNo, FieldPosition(State, Record, Field), Width);
    if (Upper) platform::UpperCaseInPlace(Text);
    return Text;
  });
}

std::string GetFullReg(const TableState& State, int32_t Record, int16_t FileNo) {
  return Traced("GetFullReg", [&] {
    return platform::ReadAt(FileNo, RecordPosition(State, Record), State.RecordLength);
  });
}

bool IsAnulado(const TableState& State, int32_t Record) {
  return Traced("IsAnulado", [&] {
    if (Record == 0) return true;
    const int64_t Size = static_cast<int64_t>(kDeletedMark.size());
    return platform::ReadAt(State.DataFileNo, RecordPosition(State, Record), Size) == kDeletedMark;
  });
}

void PutInteger(const TableState& State, int32_t Record, int16_t Field, int16_t Value) {
  Traced("PutInteger", [&] { WriteField(State, Record, Field, EncodeInt16(Value)); });
}

void PutLong(const TableState& State, int32_t Record, int16_t Field, int32_t Value) {
  Traced("PutLong", [&] { WriteField(State, Record, Field, EncodeInt32(Value)); });
}

void PutSingle(const TableState& State, int32_t Record, int16_t Field, float Value) {
  Traced("PutSingle", [&] { WriteField(State, Record, Field, EncodeSingle(Value)); });
}

void PutDouble(const TableState& State, int32_t Record, int16_t Field, double Value) {
  Traced("PutDouble", [&] { WriteField(State, Record, Field, EncodeDouble(Value)); });
}

void PutField(TableState& State, int32_t Record, int16_t Field, std::string_view Value) {
  Traced("PutField", [&] {
    CheckField(State, Field);
    std::string& Buffer = State.FieldBuffer.at(Field);
    const size_t Kept = std::min(Value.size(), Buffer.size());
    Buffer.replace(0, Kept, Value.substr(0, Kept));
    std::fill(Buffer.begin() + static_cast<std::ptrdiff_t>(Kept), Buffer.end(), ' ');
    WriteField(State, Record, Field, Buffer);
  });
}

void PutIt(const TableState& State, int32_t Record) {
  Traced("Put It", [&] {
    const int64_t Start = RecordPosition(State, Record);
    std::string Bytes;
    try {
      for (int16_t Field = 1; Field <= State.NumFields; ++Field) {
        CheckField(State, Field);
        Bytes += PutItBytes(State, Field);
      }
    } catch (const Fault&) {
      // The fields before the failing one reach the file, as writing them in turn would.
      if (!Bytes.empty()) platform::WriteAt(State.DataFileNo, Start, Bytes);
      throw;
    }
    platform::WriteAt(State.DataFileNo, Start, Bytes);
  });
}

void MarkDeleted(const TableState& State, int32_t Record) {
  Traced("MarkDeleted", [&] {
    std::string Bytes(static_cast<size_t>(std::max(State.RecordLength, 0)), '\0');
    Bytes.replace(0, std::min(Bytes.size(), kDeletedMark.size()),
                  kDeletedMark.substr(0, std::min(Bytes.size(), kDeletedMark.size())));
    platform::WriteAt(State.DataFileNo, RecordPosition(State, Record), Bytes);
  });
}

std::pair<int64_t, int64_t> FieldLockRange(const TableState& State, int32_t Record, int16_t First,
                                           int16_t Last) {
  int16_t A = First;
  int16_t B = Last;
  if (A == 0) {
    A = 1;
    B = State.NumFields;
  } else if (B == 0) {
    B = A;
  }
  const int64_t From = FieldPosition(State, Record, A);
  const int64_t To = Checked32(FieldPosition(State, Record, B) + State.FieldWidth[B] - 1);
  return {From, To};
}

void LockField(const TableState& State, int32_t Record, int16_t First, int16_t Last) {
  Traced("LockField", [&] {
    const auto [From, To] = FieldLockRange(State, Record, First, Last);
    platform::LockRange(State.DataFileNo, From, To);
  });
}

void unLockField(const TableState& State, int32_t Record, int16_t First, int16_t Last) {
  Traced("unLockField", [&] {
    const auto [From, To] = FieldLockRange(State, Record, First, Last);
    platform::UnlockRange(State.DataFileNo, From, To);
  });
}

bool IsBinaryType(int16_t Type) {
  switch (Type) {
    case 1:
    case 2:
    case 3:
    case 4:
    case 6:
    case 7:
      return true;
    default:
      return Type >= 80 && Type <= 85;
  }
}

bool IsDoubleType(int16_t Type) { return Type == 3 || Type == 7 || (Type >= 80 && Type <= 85); }

std::string EncodeBinaryField(int16_t Type, double Value) {
  switch (Type) {
    case 1:
      return EncodeInt16(platform::ToInt16(Value));
    case 4:
      return EncodeInt32(platform::ToInt32(Value));
    case 2:
    case 6:
      return EncodeSingle(platform::ToSingle(Value));
    default:
      return IsBinaryType(Type) ? EncodeDouble(Value) : std::string();
  }
}

}  // namespace tqdb

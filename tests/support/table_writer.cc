#include "support/table_writer.h"

#include <algorithm>
#include <bit>
#include <cmath>
#include <fstream>
#include <stdexcept>

namespace tqdb::testing {
namespace {

constexpr int kRecord = 33;
constexpr int kKeySlots = 30;

std::string Padded(std::string_view Text, size_t Width) {
  std::string Out(Text.substr(0, Width));
  Out.resize(Width, ' ');
  return Out;
}

std::string Little(uint64_t Bits, int Width) {
  std::string Out(Width, '\0');
  for (int i = 0; i < Width; ++i) Out[i] = static_cast<char>((Bits >> (8 * i)) & 0xFF);
  return Out;
}

bool IsDoubleType(int Type) { return Type == 3 || Type == 7 || (Type >= 80 && Type <= 85); }

std::string Encode(const FieldSpec& Field, const Value& V) {
  const int Width = FieldWidthOf(Field);
  const double N = V.IsNumber ? V.Number : 0;
  switch (Field.Type) {
    case 1:
      return Little(static_cast<uint16_t>(static_cast<int16_t>(std::nearbyint(N))), 2);
    case 4:
    case 62:
      return Little(static_cast<uint32_t>(static_cast<int32_t>(std::nearbyint(N))), 4);
    case 2:
    case 6:
      return Little(std::bit_cast<uint32_t>(static_cast<float>(N)), 4);
    default:
      if (IsDoubleType(Field.Type)) return Little(std::bit_cast<uint64_t>(N), 8);
      return Padded(V.Text, static_cast<size_t>(Width));
  }
}

void WriteFile(const std::string& Path, std::string_view Bytes) {
  std::ofstream Out(Path, std::ios::binary | std::ios::trunc);
  Out.write(Bytes.data(), static_cast<std::streamsize>(Bytes.size()));
  if (!Out) throw std::runtime_error("cannot write " + Path);
}

}  // namespace

std::string TwoDigitField(int Value) {
  if (Value < 0 || Value > 2277) throw std::invalid_argument("TwoDigitField out of range");
  const int First = std::min(Value / 10, 207);  // the highest byte is 48 + 207
  const int Second = Value - 10 * First;
  return {static_cast<char>('0' + First), static_cast<char>('0' + Second)};
}

int FieldWidthOf(const FieldSpec& Field) {
  switch (Field.Type) {
    case 1:
      return 2;
    case 2:
    case 4:
    case 6:
    case 62:
      return 4;
    case 5:
      return 6;
    default:
      return IsDoubleType(Field.Type) ? 8 : Field.Length;
  }
}

int RecordLengthOf(const TableSpec& Table) {
  int Sum = 0;
  for (const FieldSpec& F : Table.Fields) Sum += FieldWidthOf(F);
  return Sum;
}

int FieldOffsetOf(const TableSpec& Table, int Index) {
  int Offset = 0;
  for (int i = 1; i < Index; ++i) Offset += FieldWidthOf(Table.Fields.at(i - 1));
  return Offset;
}

std::string KeySegmentRecord(int Key, const SegmentSpec& S, int FieldId) {
  std::string R = "I";
  R += static_cast<char>('0' + Key);
  R += S.ById ? "00" : TwoDigitField(S.Field);
  R += TwoDigitField(S.Start) + TwoDigitField(S.Length);
  R += std::string(23, ' ');
  R += TwoDigitField(FieldId);
  return R;
}

std::string DictionaryBytes(const TableSpec& Table) {
  const int N = static_cast<int>(Table.Fields.size());
  std::string Out = TwoDigitField(N) + std::string(6, ' ') + Padded(Table.Description, 23) + "  ";
  for (int i = 1; i <= N; ++i) {
    const FieldSpec& F = Table.Fields[i - 1];
    Out += std::string(4, ' ') + TwoDigitField(F.Length) + TwoDigitField(F.Type) +
           Padded(F.Name, 23) + TwoDigitField(F.Id != 0 ? F.Id : i);
  }
  int Slots = 0;
  for (size_t k = 0; k < Table.Keys.size(); ++k) {
    for (const SegmentSpec& S : Table.Keys[k].Segments) {
      const FieldSpec& F = Table.Fields.at(S.Field - 1);
      Out += KeySegmentRecord(static_cast<int>(k) + 1, S, F.Id != 0 ? F.Id : S.Field);
      ++Slots;
    }
  }
  for (; Slots < kKeySlots; ++Slots) Out += std::string(kRecord, ' ');
  return Out;
}

std::string RecordBytes(const TableSpec& Table, const std::vector<Value>& Values) {
  if (Values.size() != Table.Fields.size()) throw std::invalid_argument("one value per field");
  std::string Out;
  for (size_t i = 0; i < Values.size(); ++i) Out += Encode(Table.Fields[i], Values[i]);
  return Out;
}

std::string DeletedRecordBytes(const TableSpec& Table) {
  std::string Out(static_cast<size_t>(RecordLengthOf(Table)), '\0');
  Out.replace(0, std::min<size_t>(7, Out.size()),
              std::string_view("ANULADO").substr(0, Out.size()));
  return Out;
}

std::string WriteDictionary(const std::string& Directory, std::string_view Name,
                            const TableSpec& Table) {
  const std::string Path = Directory + std::string(Name) + ".tqa";
  WriteFile(Path, DictionaryBytes(Table));
  return Path;
}

std::string WriteDataFile(const std::string& Path, const std::vector<std::string>& Records) {
  std::string All;
  for (const std::string& R : Records) All += R;
  WriteFile(Path, All);
  return Path;
}

}  // namespace tqdb::testing

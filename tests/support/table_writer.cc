#include "support/table_writer.h"

#include <algorithm>
#include <bit>
#include <cmath>
#include <cstdint>
#include <fstream>
#include <stdexcept>

namespace tqdb::testing {
namespace {

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

// Two characters that read as Value (0..2277): "07", "45", beyond 99 characters above "9".
std::string TwoDigitField(int Value) {
  if (Value < 0 || Value > 2277) throw std::invalid_argument("TwoDigitField out of range");
  const int First = std::min(Value / 10, 207);  // the highest byte is 48 + 207
  return {static_cast<char>('0' + First), static_cast<char>('0' + Value - 10 * First)};
}

std::string Encode(const FieldSpec& Field, const Value& V) {
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
      return Padded(V.Text, static_cast<size_t>(FieldWidthOf(Field)));
  }
}

void WriteFile(const std::string& Path, std::string_view Bytes) {
  std::ofstream Out(Path, std::ios::binary | std::ios::trunc);
  Out.write(Bytes.data(), static_cast<std::streamsize>(Bytes.size()));
  if (!Out) throw std::runtime_error("cannot write " + Path);
}

}  // namespace

int FieldWidthOf(const FieldSpec& Field) {
  if (Field.Type == 1) return 2;
  if (Field.Type == 2 || Field.Type == 4 || Field.Type == 6 || Field.Type == 62) return 4;
  if (Field.Type == 5) return 6;
  return IsDoubleType(Field.Type) ? 8 : Field.Length;
}

int RecordLengthOf(const TableSpec& Table) {
  return FieldOffsetOf(Table, static_cast<int>(Table.Fields.size()) + 1);
}

int FieldOffsetOf(const TableSpec& Table, int Index) {
  int Offset = 0;
  for (int i = 1; i < Index; ++i) Offset += FieldWidthOf(Table.Fields.at(i - 1));
  return Offset;
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
      Out += "I" + std::string(1, static_cast<char>('1' + k)) +
             (S.ById ? "00" : TwoDigitField(S.Field)) + TwoDigitField(S.Start) +
             TwoDigitField(S.Length) + Padded(F.Name, 23) +
             TwoDigitField(F.Id != 0 ? F.Id : S.Field);
      ++Slots;
    }
  }
  return Out + std::string(33 * static_cast<size_t>(std::max(0, 30 - Slots)), ' ');
}

std::string RecordBytes(const TableSpec& Table, const std::vector<Value>& Values) {
  if (Values.size() != Table.Fields.size()) throw std::invalid_argument("one value per field");
  std::string Out;
  for (size_t i = 0; i < Values.size(); ++i) Out += Encode(Table.Fields[i], Values[i]);
  return Out;
}

std::string DeletedRecordBytes(const TableSpec& Table) {
  std::string Out = std::string("ANULADO").substr(0, size_t(RecordLengthOf(Table)));
  return Out + std::string(size_t(RecordLengthOf(Table)) - Out.size(), '\0');
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

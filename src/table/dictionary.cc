// Parsing and loading the table dictionary.
#include "table/dictionary.h"

#include <algorithm>
#include <limits>

#include "platform/codepage.h"
#include "platform/fault.h"
#include "platform/file_pool.h"
#include "platform/messages.h"
#include "platform/scoped_file_number.h"
#include "platform/settings.h"

namespace tqdb {
namespace {

using platform::Fault;

constexpr int kMaxKeyText = 255;

[[noreturn]] void DictionaryFault(int32_t Number, const std::string& Detail) {
  throw Fault(Number, platform::FaultDescription(Number) + " (diccionario: " + Detail + ")");
}

// The dictionary text as the reader sees it: the first 4000 bytes, and zero bytes for
// every character asked beyond them (records n+1..n+30 may reach past byte 4000).
class DictionaryText {
 public:
  explicit DictionaryText(std::string_view Bytes)
      : bytes_(Bytes.substr(0, std::min<size_t>(Bytes.size(), kDictionaryReadSize))) {}

  // Character at 1-based position P, 0 when absent.
  uint8_t At(int64_t P) const {
    if (P < 1 || P > static_cast<int64_t>(bytes_.size())) return 0;
    return static_cast<uint8_t>(bytes_[P - 1]);
  }
  int16_t Two(int64_t P) const {
    const char Pair[2] = {static_cast<char>(At(P)), static_cast<char>(At(P + 1))};
    return TwoDigits(std::string_view(Pair, 2));
  }
  // Up to Count characters from 1-based position P, cut at the end of the text.
  std::string Slice(int64_t P, int64_t Count) const {
    if (P < 1 || P > static_cast<int64_t>(bytes_.size())) return "";
    return std::string(bytes_.substr(P - 1, Count));
  }

 private:
  std::string_view bytes_;
};

int64_t RecordStart(int Record) { return int64_t{kDictionaryRecordSize} * Record + 1; }

void ReadFields(const DictionaryText& Text, Dictionary& D) {
  const int N = D.NumFields;
  int32_t Offset = 0;
  for (int i = 1; i <= N; ++i) {
    const int64_t P = RecordStart(i);
    D.FieldTypes[i] = Text.Two(P + 6);
    D.FieldLengthDecl[i] = Text.Two(P + 4);
    D.FieldWidth[i] = StorageWidth(D.FieldTypes[i], D.FieldLengthDecl[i]);
    if (Offset > std::numeric_limits<int16_t>::max()) {
      DictionaryFault(platform::kOverflow,
                      "registro demasiado largo en el campo " + std::to_string(i));
    }
    D.FieldOffset[i] = static_cast<int16_t>(Offset);
    Offset += D.FieldWidth[i];
    const int16_t Id = Text.Two(P + 31);
    if (Id < 1 || Id > kMaxFields) {
      DictionaryFault(platform::kSubscript,
                      "identificador " + std::to_string(Id) + " del campo " + std::to_string(i));
    }
    D.FieldById[Id] = static_cast<int16_t>(i);
    D.FieldNames[i] = platform::UpperCase(platform::Trim(Text.Slice(P + 8, 23)));
  }
  if (Offset + 1 > std::numeric_limits<int16_t>::max()) {
    DictionaryFault(platform::kOverflow, "registro de " + std::to_string(Offset) + " bytes");
  }
  D.FieldOffset[N + 1] = static_cast<int16_t>(Offset + 1);
  D.RecordLength = Offset;
}

// One key-segment record at P; Slot is its record number, for the messages.
void ReadSegment(const DictionaryText& Text, int64_t P, int Slot, Dictionary& D) {
  const std::string Where = " en el registro " + std::to_string(Slot);
  int Field = Text.Two(P + 2);
  if (Field == 0) {
    const int Id = Text.Two(P + 31);
    if (Id < 1 || Id > kMaxFields) {
      DictionaryFault(platform::kSubscript, "identificador de campo " + std::to_string(Id) + Where);
    }
    Field = D.FieldById[Id];
  }
  if (Field < 1 || Field > D.NumFields) {
    DictionaryFault(platform::kSubscript, "campo " + std::to_string(Field) + Where);
  }
  const int K = static_cast<int>(Text.At(P + 1)) - 48;
  if (K < 1 || K > kMaxKeys) {
    DictionaryFault(platform::kSubscript, "clave " + std::to_string(K) + Where);
  }
  if (D.KeySegCount[K] >= kMaxSegments) {
    DictionaryFault(platform::kSubscript,
                    "más de 5 segmentos en la clave " + std::to_string(K) + Where);
  }
  const int16_t Start = Text.Two(P + 4);
  const int16_t Length = Text.Two(P + 6);
  if (Start < 1 || Length < 1 ||
      int32_t{D.FieldOffset[Field]} + Start - 1 + Length > D.RecordLength) {
    DictionaryFault(platform::kSubscript, "segmento fuera del registro" + Where);
  }
  if (D.KeyTextLength(K) + Length > kMaxKeyText) {
    DictionaryFault(platform::kSubscript,
                    "clave " + std::to_string(K) + " de más de 255 caracteres" + Where);
  }
  D.FieldInKey[Field] = true;
  if (D.KeySegCount[K] == 0) D.FieldKeyNo[Field] = static_cast<int16_t>(K);
  const int S = ++D.KeySegCount[K];
  D.KeySegField[K][S] = static_cast<int16_t>(Field);
  D.KeySegStart[K][S] = Start;
  D.KeySegLength[K][S] = Length;
  D.KeyCount = std::max<int16_t>(D.KeyCount, static_cast<int16_t>(K));
  D.KeyLength[K] = static_cast<int16_t>(D.KeyLength[K] + Length - Start + 1);
}

std::string ShapeOf(int16_t KeyCount, const auto& SegCount, const auto& SegLength) {
  int32_t Longest = 0;
  for (int K = 1; K <= KeyCount && K <= kMaxKeys; ++K) {
    int32_t Sum = 0;
    for (int S = 1; S <= SegCount[K] && S <= kMaxSegments; ++S) Sum += SegLength[K][S];
    Longest = std::max(Longest, Sum);
  }
  return std::to_string(KeyCount) + "/" + std::to_string(Longest);
}

bool EndsWithSeparator(std::string_view Dir) {
  return !Dir.empty() && (Dir.back() == '\\' || Dir.back() == '/');
}

[[noreturn]] void MissingTable(const TableState& State, const std::string& Path) {
  platform::ShowMessage(
      platform::Utf8ToCp1252("La tabla para la base de datos no existe:") + "\r\n" + Path,
      MessageIcon::Critical);
  throw Fault(50999, "La tabla " + platform::Cp1252ToUtf8(State.TableName) +
                         " no existe en la ruta: " + platform::Cp1252ToUtf8(State.DictionaryDir));
}

// Opens the dictionary shared for reading and returns its first 4000 bytes. A missing
// file is created empty, as opening in binary mode does; an empty one is a missing table.
std::string ReadDictionaryFile(const TableState& State, const std::string& Path) {
  const platform::ScopedFileNumber Number;
  try {
    platform::Open(Number.get(), Path, platform::OpenMode::ReadOnly);
  } catch (const Fault& F) {
    if (F.Number() != platform::kFileNotFound) throw;
    try {
      platform::Open(Number.get(), Path, platform::OpenMode::Binary);
    } catch (const Fault&) {
      MissingTable(State, Path);  // not even creatable: the directory is missing
    }
  }
  if (platform::Length(Number.get()) == 0) {
    platform::Close(Number.get());
    MissingTable(State, Path);
  }
  return platform::ReadAt(Number.get(), 1, kDictionaryReadSize);
}

}  // namespace

int16_t TwoDigits(std::string_view Text) {
  const int D1 = (Text.size() > 0 ? static_cast<uint8_t>(Text[0]) : 0) - 48;
  const int D2 = (Text.size() > 1 ? static_cast<uint8_t>(Text[1]) : 0) - 48;
  if (D1 >= 0) return static_cast<int16_t>(D2 >= 0 ? 10 * D1 + D2 : D1);
  return static_cast<int16_t>(D2 >= 1 ? D2 : 0);
}

int16_t FixedStorageWidth(int16_t Type) {
  switch (Type) {
    case 1:
      return 2;
    case 2:
    case 4:
    case 6:
    case 62:
      return 4;
    case 3:
    case 7:
      return 8;
    case 5:
      return 6;
    default:
      return (Type >= 80 && Type <= 85) ? 8 : 0;
  }
}

int16_t StorageWidth(int16_t Type, int16_t DeclaredLength) {
  const int16_t Fixed = FixedStorageWidth(Type);
  return Fixed != 0 ? Fixed : DeclaredLength;
}

int32_t Dictionary::KeyTextLength(int k) const {
  int32_t Sum = 0;
  for (int S = 1; S <= KeySegCount[k] && S <= kMaxSegments; ++S) Sum += KeySegLength[k][S];
  return Sum;
}

bool Dictionary::HasImageField() const {
  for (int i = 1; i <= NumFields; ++i) {
    if (FieldTypes[i] == 62) return true;
  }
  return false;
}

Dictionary ParseDictionary(std::string_view Bytes) {
  const DictionaryText Text(Bytes);
  Dictionary D;
  const int16_t N = Text.Two(1);
  if (N > kMaxFields) {
    DictionaryFault(platform::kSubscript, "número de campos " + std::to_string(N));
  }
  D.NumFields = N;
  D.FieldNames.assign(N + 1, "");
  D.FieldWidth.assign(N + 1, 0);
  D.FieldTypes.assign(N + 1, 0);
  D.FieldLengthDecl.assign(N + 1, 0);
  D.FieldOffset.assign(N + 2, 0);
  D.FieldById.assign(kMaxFields + 1, 0);
  D.FieldInKey.assign(N + 1, false);
  D.FieldKeyNo.assign(N + 1, 0);
  D.TableDescripcion = std::string(platform::Trim(Text.Slice(9, 23)));
  ReadFields(Text, D);
  for (int Slot = N + 1; Slot <= N + kKeyRecordSlots; ++Slot) {
    const int64_t P = RecordStart(Slot);
    if (platform::UpperByte(Text.At(P)) == 'I') ReadSegment(Text, P, Slot, D);
  }
  return D;
}

void ApplyDictionary(TableState& State, const Dictionary& D) {
  const int N = D.NumFields;
  State.NumFields = D.NumFields;
  State.RecordLength = D.RecordLength;
  State.TableDescripcion = D.TableDescripcion;
  State.FieldNames = D.FieldNames;
  State.FieldWidth = D.FieldWidth;
  State.FieldTypes = D.FieldTypes;
  State.FieldLengthDecl = D.FieldLengthDecl;
  State.FieldOffset = D.FieldOffset;
  State.FieldById = D.FieldById;
  State.FieldInKey = D.FieldInKey;
  State.FieldKeyNo = D.FieldKeyNo;
  State.FieldBuffer.assign(N + 1, "");
  for (int i = 1; i <= N; ++i) State.FieldBuffer[i].assign(std::max<int>(D.FieldWidth[i], 0), ' ');
  State.FieldValues.assign(N + 1, Variant());
  State.FieldChanged.assign(N + 1, false);
  State.KeyCount = D.KeyCount;
  State.KeySegCount = D.KeySegCount;
  State.KeyLength = D.KeyLength;
  State.KeySegField = D.KeySegField;
  State.KeySegStart = D.KeySegStart;
  State.KeySegLength = D.KeySegLength;
}

void LoadDictionary(TableState& State, std::string_view TableName) {
  if (State.DictionaryDir.empty()) {
    State.DictionaryDir = platform::GetRegSetting("Directory", "", "");
  }
  // The separator the directory already uses ("/" unless it has only "\"), so that
  // messages show it as it was written.
  if (!EndsWithSeparator(State.DictionaryDir)) {
    const bool Backslashes = State.DictionaryDir.find('\\') != std::string::npos &&
                             State.DictionaryDir.find('/') == std::string::npos;
    State.DictionaryDir += Backslashes ? '\\' : '/';
  }
  if (State.DictExt.empty()) {
    State.DictExt = ".tqa";
    State.KeyExt = ".tqc";
    State.DataExt = ".tqd";
  }
  State.TableName = std::string(TableName);
  const std::string Path = State.DictionaryDir + State.TableName + State.DictExt;
  const std::string Bytes = ReadDictionaryFile(State, Path);
  if (!State.DataFileOpen) {
    State.DataFileNo = platform::TakeFreeNumber();
    State.DataFileOpen = true;
  }
  ApplyDictionary(State, ParseDictionary(Bytes));
  platform::Close(State.DataFileNo);
}

std::string KeyShape(const TableState& State) {
  return ShapeOf(State.KeyCount, State.KeySegCount, State.KeySegLength);
}

std::string KeyShape(const Dictionary& Dict) {
  return ShapeOf(Dict.KeyCount, Dict.KeySegCount, Dict.KeySegLength);
}

}  // namespace tqdb

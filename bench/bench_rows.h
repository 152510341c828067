// The benchmark table: its dictionary and its rows, the same for TQDB and for SQLite.
//
// Ten fields of mixed types and two keys: CODIGO (10 characters, unique, key 1) and
// NOMBRE (30 characters, about ten records per value, key 2). Row i (0-based) of a table
// of N rows is a pure function of (i, N), so both engines load identical data without
// holding the whole table in memory. CODIGO runs over a permutation of 1..N, so the codes
// at or above the one of rank r are exactly N - r + 1 records: that is how the range
// filters pick 1 % and 10 % of the table.
#pragma once

#include <array>
#include <cstdint>
#include <cstdio>
#include <fstream>
#include <stdexcept>
#include <string>
#include <string_view>

namespace bench {

inline constexpr std::string_view kTableName = "BENCH";  // 5 characters
inline constexpr std::string_view kSuffix = "01";

struct Row {
  std::string Codigo;    // key 1, "C" + 9 digits, unique
  std::string Nombre;    // key 2, with duplicates
  std::string Ciudad;    // one of 16 single words
  std::string Fecha;     // dd/mm/yy
  std::string FechaIso;  // yyyy-mm-dd, the same date for SQLite
  int16_t Cantidad = 0;
  int32_t Numero = 0;
  float Precio = 0;
  double Importe = 0;
  double Saldo = 0;
  std::string Notas;
};

inline uint64_t Mix(uint64_t X) {  // splitmix64 finaliser
  X += 0x9E3779B97F4A7C15ULL;
  X = (X ^ (X >> 30)) * 0xBF58476D1CE4E5B9ULL;
  X = (X ^ (X >> 27)) * 0x94D049BB133111EBULL;
  return X ^ (X >> 31);
}

// The code number (1..N) of row I: a permutation of the rows, so the load order is not
// the key order.
inline int64_t CodeNumber(int64_t I, int64_t N) { return (I * 48271 + 12345) % N + 1; }

inline std::string CodeText(int64_t Number) {
  char Text[32];
  std::snprintf(Text, sizeof Text, "C%09lld", static_cast<long long>(Number));
  return Text;
}

inline constexpr std::array<const char*, 32> kSurnames = {
    "GARCIA", "FERNANDEZ", "GONZALEZ", "RODRIGUEZ", "LOPEZ",  "MARTINEZ",  "SANCHEZ",
    "PEREZ",  "GOMEZ",     "MARTIN",   "JIMENEZ",   "RUIZ",   "HERNANDEZ", "DIAZ",
    "MORENO", "ALVAREZ",   "MUNOZ",    "ROMERO",    "ALONSO", "GUTIERREZ", "NAVARRO",
    "TORRES", "DOMINGUEZ", "VAZQUEZ",  "RAMOS",     "GIL",    "RAMIREZ",   "SERRANO",
    "BLANCO", "SUAREZ",    "MOLINA",   "MORALES"};
inline constexpr std::array<const char*, 32> kGivenNames = {
    "ANTONIO", "MANUEL", "JOSE",   "FRANCISCO", "DAVID",  "JUAN",     "JAVIER", "DANIEL",
    "CARLOS",  "JESUS",  "MIGUEL", "PEDRO",     "PABLO",  "ANGEL",    "SERGIO", "LUIS",
    "MARIA",   "CARMEN", "ANA",    "ISABEL",    "LAURA",  "CRISTINA", "MARTA",  "LUCIA",
    "ELENA",   "PILAR",  "SARA",   "PAULA",     "RAQUEL", "ROSA",     "JULIA",  "NURIA"};
inline constexpr std::array<const char*, 16> kCities = {
    "MADRID", "BARCELONA", "VALENCIA", "SEVILLA",    "ZARAGOZA", "MALAGA", "MURCIA",  "PALMA",
    "BILBAO", "ALICANTE",  "CORDOBA",  "VALLADOLID", "VIGO",     "GIJON",  "GRANADA", "OVIEDO"};

// A name value: about N / 10 distinct values, so each is shared by about ten records.
inline std::string NameText(uint64_t Hash, int64_t N) {
  const uint64_t Groups = static_cast<uint64_t>(N / 10240 + 1);
  char Text[64];
  std::snprintf(Text, sizeof Text, "%s %s %04llu", kSurnames[Hash % 32],
                kGivenNames[(Hash >> 5) % 32],
                static_cast<unsigned long long>((Hash >> 10) % Groups));
  return Text;
}

inline Row MakeRow(int64_t I, int64_t N) {
  const uint64_t H = Mix(static_cast<uint64_t>(I));
  const uint64_t G = Mix(H);
  Row R;
  R.Codigo = CodeText(CodeNumber(I, N));
  R.Nombre = NameText(H, N);
  R.Ciudad = kCities[G % 16];
  const int Day = static_cast<int>((G >> 4) % 28) + 1;
  const int Month = static_cast<int>((G >> 9) % 12) + 1;
  const int Year = 1990 + static_cast<int>((G >> 13) % 36);
  char Text[80];
  std::snprintf(Text, sizeof Text, "%02d/%02d/%02d", Day, Month, Year % 100);
  R.Fecha = Text;
  std::snprintf(Text, sizeof Text, "%04d-%02d-%02d", Year, Month, Day);
  R.FechaIso = Text;
  R.Cantidad = static_cast<int16_t>((H >> 20) % 1000);
  R.Numero = static_cast<int32_t>(I + 1);
  R.Precio = static_cast<float>((H >> 30) % 100000) / 100.0f;
  R.Importe = static_cast<double>(static_cast<int64_t>((G >> 20) % 2000000) - 1000000) / 100.0;
  R.Saldo = static_cast<double>((G >> 40) % 5000000) / 100.0;
  std::snprintf(Text, sizeof Text, "PEDIDO %08llX REF %06llu",
                static_cast<unsigned long long>(H & 0xFFFFFFFFULL),
                static_cast<unsigned long long>(G % 1000000));
  R.Notas = Text;
  return R;
}

// --- The dictionary -------------------------------------------------------------------

struct FieldDef {
  const char* Name;
  int Type;    // 1 integer, 2 single, 3/7 double, 4 long, 5 date, other text
  int Length;  // declared length
};

// Text fields use type code 10 (any code without a meaning of its own is text).
inline constexpr std::array<FieldDef, 10> kFields = {{{"CODIGO", 10, 10},
                                                      {"NOMBRE", 10, 30},
                                                      {"CIUDAD", 10, 20},
                                                      {"FECHA", 5, 6},
                                                      {"CANTIDAD", 1, 2},
                                                      {"NUMERO", 4, 4},
                                                      {"PRECIO", 2, 4},
                                                      {"IMPORTE", 3, 8},
                                                      {"SALDO", 7, 8},
                                                      {"NOTAS", 10, 40}}};

inline std::string TwoDigits(int Value) {
  char Text[16];
  std::snprintf(Text, sizeof Text, "%02d", Value);
  return Text;
}

inline std::string Padded(std::string_view Text, size_t Width) {
  std::string Out(Text.substr(0, Width));
  Out.resize(Width, ' ');
  return Out;
}

// The dictionary in its 33-character records: the header, one record per field, the two
// key-segment records and blank records up to the 30 key slots.
inline std::string DictionaryBytes() {
  std::string Out = TwoDigits(static_cast<int>(kFields.size())) + std::string(6, ' ') +
                    Padded("BENCHMARK TABLE", 23) + "  ";
  for (size_t i = 0; i < kFields.size(); ++i) {
    Out += std::string(4, ' ') + TwoDigits(kFields[i].Length) + TwoDigits(kFields[i].Type) +
           Padded(kFields[i].Name, 23) + TwoDigits(static_cast<int>(i) + 1);
  }
  // Key 1: CODIGO (field 1) whole; key 2: NOMBRE (field 2) whole.
  Out += "I1" + TwoDigits(1) + TwoDigits(1) + TwoDigits(10) + std::string(23, ' ') + TwoDigits(1);
  Out += "I2" + TwoDigits(2) + TwoDigits(1) + TwoDigits(30) + std::string(23, ' ') + TwoDigits(2);
  Out += std::string(28 * 33, ' ');
  return Out;
}

inline void WriteDictionary(const std::string& Directory) {
  const std::string Path = Directory + std::string(kTableName) + ".tqa";
  std::ofstream Out(Path, std::ios::binary | std::ios::trunc);
  const std::string Bytes = DictionaryBytes();
  Out.write(Bytes.data(), static_cast<std::streamsize>(Bytes.size()));
  if (!Out) throw std::runtime_error("cannot write " + Path);
}

}  // namespace bench

// Writes the sample accounting data set of examples/data: 200 clients (CLIEN.csv) and
// 2000 invoices (FACTU.csv), UTF-8 CSV with a header row of field names, as
// "tqdb import" reads them. The data is generated from a fixed seed, so every run writes
// the same bytes:
//
//   sample_data examples/data
//
// Each client's SALDO is the total of its unpaid invoices, so that the tour can check a
// sum over FACTU against a field of CLIEN.
#include <array>
#include <cmath>
#include <cstdint>
#include <cstdio>
#include <fstream>
#include <iostream>
#include <string>
#include <vector>

namespace {

// A small linear congruential generator (Knuth's MMIX constants): the same sequence on
// every platform, unlike the standard library's distributions.
class Random {
 public:
  explicit Random(uint64_t Seed) : state_(Seed) {}
  uint32_t Next() {
    state_ = state_ * 6364136223846793005ULL + 1442695040888963407ULL;
    return static_cast<uint32_t>(state_ >> 33);
  }
  int Below(int Limit) { return static_cast<int>(Next() % static_cast<uint32_t>(Limit)); }
  template <typename T, size_t N>
  const T& Pick(const std::array<T, N>& Items) {
    return Items[static_cast<size_t>(Below(static_cast<int>(N)))];
  }

 private:
  uint64_t state_;
};

constexpr std::array<const char*, 24> kFirstNames = {
    "María",  "José",   "Antonio", "Carmen", "Manuel",  "Lucía",  "Francisco", "Ana",
    "Javier", "Isabel", "Ángel",   "Rocío",  "Jesús",   "Begoña", "Íñigo",     "Nuria",
    "Raúl",   "Inés",   "Andrés",  "Sofía",  "Joaquín", "Mónica", "Óscar",     "Verónica"};
constexpr std::array<const char*, 24> kSurnames = {
    "García",  "Fernández", "González", "Rodríguez", "López",     "Martínez", "Sánchez", "Pérez",
    "Gómez",   "Martín",    "Jiménez",  "Ruiz",      "Hernández", "Díaz",     "Moreno",  "Muñoz",
    "Álvarez", "Romero",    "Núñez",    "Ibáñez",    "Peña",      "Castaño",  "Cañete",  "Ortiz"};
constexpr std::array<const char*, 12> kTrades = {
    "Talleres",     "Construcciones", "Transportes", "Distribuciones", "Panadería", "Ferretería",
    "Electricidad", "Carpintería",    "Asesoría",    "Librería",       "Imprenta",  "Óptica"};
constexpr std::array<const char*, 4> kCompanyForms = {"S.L.", "S.A.", "S.L.U.", "S. Coop."};

struct Place {
  const char* Town;
  const char* Province;
};
constexpr std::array<Place, 16> kPlaces = {{{"Logroño", "La Rioja"},
                                            {"Cádiz", "Cádiz"},
                                            {"Málaga", "Málaga"},
                                            {"A Coruña", "A Coruña"},
                                            {"León", "León"},
                                            {"Ávila", "Ávila"},
                                            {"Córdoba", "Córdoba"},
                                            {"Jaén", "Jaén"},
                                            {"Cáceres", "Cáceres"},
                                            {"Castellón de la Plana", "Castellón"},
                                            {"Alcalá de Henares", "Madrid"},
                                            {"Madrid", "Madrid"},
                                            {"Sevilla", "Sevilla"},
                                            {"Bilbao", "Bizkaia"},
                                            {"Zaragoza", "Zaragoza"},
                                            {"Oviedo", "Asturias"}}};

struct Concept {
  const char* Text;
  int Vat;       // percent
  int MinEuros;  // range of the taxable amount
  int MaxEuros;
};
constexpr std::array<Concept, 10> kConcepts = {{{"Consultoría fiscal trimestral", 21, 150, 900},
                                                {"Mantenimiento mensual", 21, 80, 400},
                                                {"Reparación de maquinaria", 21, 200, 3000},
                                                {"Material de oficina", 21, 30, 600},
                                                {"Instalación eléctrica", 21, 500, 6000},
                                                {"Transporte de mercancía", 10, 90, 1500},
                                                {"Suministro de libros técnicos", 4, 40, 800},
                                                {"Auditoría contable", 21, 900, 4500},
                                                {"Diseño gráfico y maquetación", 21, 250, 2200},
                                                {"Formación en prevención", 21, 300, 1800}}};

struct Client {
  std::string Code, Name, Nif, Town, Province, Since;
  long Limit = 0;
  long UnpaidCents = 0;
};

std::string Format(const char* Pattern, long A, long B = 0, long C = 0) {
  char Text[64];
  std::snprintf(Text, sizeof Text, Pattern, A, B, C);
  return Text;
}

std::string Money(long Cents) { return Format("%ld.%02ld", Cents / 100, Cents % 100); }

// A field for the CSV: quoted when it holds a comma or a quote.
std::string Csv(const std::string& Text) {
  if (Text.find_first_of(",\"") == std::string::npos) return Text;
  std::string Quoted = "\"";
  for (char C : Text) Quoted += C == '"' ? std::string("\"\"") : std::string(1, C);
  return Quoted + "\"";
}

std::string Nif(Random& R) {
  const long Number = 10000000 + R.Below(89999999);
  return Format("%08ld", Number) + "TRWAGMYFPDXBNJZSQVHLCKE"[Number % 23];
}

// Day of a year counted from 0, as dd/mm/yyyy (not a leap year unless Year says so).
std::string DateOf(int Year, int DayOfYear) {
  static const int kDays[] = {31, 28, 31, 30, 31, 30, 31, 31, 30, 31, 30, 31};
  const bool Leap = Year % 4 == 0;
  int Month = 0;
  while (DayOfYear >= kDays[Month] + (Month == 1 && Leap ? 1 : 0)) {
    DayOfYear -= kDays[Month] + (Month == 1 && Leap ? 1 : 0);
    ++Month;
  }
  return Format("%02ld/%02ld/%04ld", DayOfYear + 1, Month + 1, Year);
}

std::vector<Client> MakeClients(Random& R) {
  std::vector<Client> Clients;
  for (int I = 1; I <= 200; ++I) {
    Client C;
    C.Code = Format("%06ld", I);
    if (R.Below(3) == 0) {
      C.Name = std::string(R.Pick(kTrades)) + " " + R.Pick(kSurnames) + " " + R.Pick(kCompanyForms);
    } else {
      C.Name =
          std::string(R.Pick(kSurnames)) + " " + R.Pick(kSurnames) + ", " + R.Pick(kFirstNames);
    }
    C.Nif = Nif(R);
    const Place& P = R.Pick(kPlaces);
    C.Town = P.Town;
    C.Province = P.Province;
    C.Since = DateOf(2012 + R.Below(11), R.Below(365));
    C.Limit = 1000L * (1 + R.Below(30));
    Clients.push_back(C);
  }
  return Clients;
}

void WriteInvoices(Random& R, std::vector<Client>& Clients, std::ostream& Out) {
  Out << "NUMERO,FECHA,CLIENTE,CONCEPTO,BASE,IVA,TOTAL,COBRADA\n";
  int Number = 0;
  for (int I = 0; I < 2000; ++I) {
    const int Year = I < 1000 ? 2023 : 2024;
    Number = I == 1000 ? 1 : Number + 1;
    const int Day = (I % 1000) * 365 / 1000;
    // A few clients buy much more than the rest.
    const int Index = R.Below(4) == 0 ? R.Below(20) : R.Below(200);
    Client& C = Clients[static_cast<size_t>(Index)];
    const Concept& What = R.Pick(kConcepts);
    const long Base =
        100L * (What.MinEuros + R.Below(What.MaxEuros - What.MinEuros)) + R.Below(100);
    const long Total = std::lround(static_cast<double>(Base) * (100 + What.Vat) / 100.0);
    // Older invoices are mostly paid.
    const bool Paid = R.Below(100) < (Year == 2023 ? 97 : 96 - Day / 10);
    if (!Paid) C.UnpaidCents += Total;
    Out << Format("%04ld-%04ld", Year, Number) << ',' << DateOf(Year, Day) << ',' << C.Code << ','
        << Csv(What.Text) << ',' << Money(Base) << ',' << What.Vat << ',' << Money(Total) << ','
        << (Paid ? "S" : "N") << '\n';
  }
}

void WriteClients(const std::vector<Client>& Clients, std::ostream& Out) {
  Out << "CLIENTE,NOMBRE,NIF,POBLACION,PROVINCIA,ALTA,SALDO,LIMITE\n";
  for (const Client& C : Clients) {
    Out << C.Code << ',' << Csv(C.Name) << ',' << C.Nif << ',' << C.Town << ',' << C.Province << ','
        << C.Since << ',' << Money(C.UnpaidCents) << ',' << C.Limit << '\n';
  }
}

}  // namespace

int main(int argc, char** argv) {
  if (argc != 2) {
    std::cerr << "usage: sample_data OUTPUT_DIRECTORY\n";
    return 2;
  }
  const std::string Directory = std::string(argv[1]) + "/";
  Random R(20240229);
  std::vector<Client> Clients = MakeClients(R);
  std::ofstream Invoices(Directory + "FACTU.csv", std::ios::binary);
  WriteInvoices(R, Clients, Invoices);
  std::ofstream ClientFile(Directory + "CLIEN.csv", std::ios::binary);
  WriteClients(Clients, ClientFile);
  if (!Invoices || !ClientFile) {
    std::cerr << "sample_data: cannot write into " << Directory << '\n';
    return 1;
  }
  std::cout << "wrote " << Directory << "CLIEN.csv (200 clients) and " << Directory
            << "FACTU.csv (2000 invoices)\n";
  return 0;
}

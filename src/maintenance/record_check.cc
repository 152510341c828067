// The rebuild's test of a record's first field.
#include "maintenance/record_check.h"

#include <algorithm>
#include <cstdint>

#include "records/record_codecs.h"

namespace tqdb {
namespace {

constexpr int16_t kDateType = 5;
constexpr int16_t kImageType = 62;
constexpr int16_t kLongTextTypes[] = {74, 75};
constexpr int16_t kDigitTextTypes[] = {8, 20};

bool IsDigit(char C) { return C >= '0' && C <= '9'; }

int TwoDigitNumber(std::string_view Text) { return (Text[0] - '0') * 10 + (Text[1] - '0'); }

bool IsLeapYear(int Year) { return Year % 4 == 0 && (Year % 100 != 0 || Year % 400 == 0); }

int DaysInMonth(int Year, int Month) {
  static constexpr int kDays[] = {31, 28, 31, 30, 31, 30, 31, 31, 30, 31, 30, 31};
  return Month == 2 && IsLeapYear(Year) ? 29 : kDays[Month - 1];
}

// The year a stored date stands for: a letter A..J first gives 20xx; digits give 20yy
// below 60 and 19yy from 60 on, as the dates are shown.
int StoredYear(char First, char Second) {
  if (First >= 'A' && First <= 'J') return 2000 + (First - 'A') * 10 + (Second - '0');
  const int Short = (First - '0') * 10 + (Second - '0');
  return Short < 60 ? 2000 + Short : 1900 + Short;
}

bool IsAll(std::string_view Text, char C) {
  return std::all_of(Text.begin(), Text.end(), [C](char X) { return X == C; });
}

bool HasControlCharacter(std::string_view Text) {
  return std::any_of(Text.begin(), Text.end(), [](char X) {
    const auto Code = static_cast<uint8_t>(X);
    return Code < 32 || Code == 127;
  });
}

template <size_t N>
bool IsOneOf(int16_t Type, const int16_t (&Types)[N]) {
  return std::find(std::begin(Types), std::end(Types), Type) != std::end(Types);
}

// The bytes of field 1 within the record (what there is of them).
std::string_view FirstField(const TableState& State, std::string_view Record) {
  const auto Offset = static_cast<size_t>(std::max<int16_t>(State.FieldOffset[1], 0));
  const auto Width = static_cast<size_t>(std::max<int16_t>(State.FieldWidth[1], 0));
  if (Offset >= Record.size()) return {};
  return Record.substr(Offset, Width);
}

}  // namespace

bool IsDeletedRecord(const TableState& State, std::string_view Record) {
  const size_t Offset = State.FieldOffset.size() > 1
                            ? static_cast<size_t>(std::max<int16_t>(State.FieldOffset[1], 0))
                            : 0;
  if (Offset >= Record.size()) return false;
  return Record.substr(Offset, kDeletedMark.size()) == kDeletedMark;
}

bool IsValidStoredDate(std::string_view Stored) {
  if (Stored.size() != 6) return false;
  const char First = Stored[0];
  if (!IsDigit(First) && !(First >= 'A' && First <= 'J')) return false;
  if (!std::all_of(Stored.begin() + 1, Stored.end(), IsDigit)) return false;
  const int Year = StoredYear(First, Stored[1]);
  const int Month = TwoDigitNumber(Stored.substr(2, 2));
  const int Day = TwoDigitNumber(Stored.substr(4, 2));
  return Month >= 1 && Month <= 12 && Day >= 1 && Day <= DaysInMonth(Year, Month);
}

bool FirstFieldIsSound(const TableState& State, std::string_view Record) {
  if (State.NumFields < 1 || State.FieldTypes.size() < 2 || State.FieldOffset.size() < 2 ||
      State.FieldWidth.size() < 2) {
    return true;
  }
  const int16_t Type = State.FieldTypes[1];
  const std::string_view Field = FirstField(State, Record);
  if (Type == kDateType) {
    return IsAll(Field, ' ') || IsAll(Field, '\0') || IsValidStoredDate(Field);
  }
  if (IsBinaryType(Type) || Type == kImageType || IsOneOf(Type, kLongTextTypes)) return true;
  if (IsOneOf(Type, kDigitTextTypes)) {
    return std::all_of(Field.begin(), Field.end(), [](char C) { return C == ' ' || IsDigit(C); });
  }
  return !HasControlCharacter(Field);
}

}  // namespace tqdb

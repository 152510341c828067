// Date conversions between stored and displayed forms.
#include "records/dates.h"

#include <ctime>

#include "platform/codepage.h"
#include "platform/numbers.h"

namespace tqdb {
namespace {

constexpr int kCenturyShift = 17;

// Count characters from 1-based position Start (shorter at the end of the text).
std::string Mid(std::string_view Text, size_t Start, size_t Count) {
  if (Start < 1 || Start > Text.size()) return "";
  return std::string(Text.substr(Start - 1, Count));
}

uint8_t CodeAt(std::string_view Text, size_t Start) {
  return Start >= 1 && Start <= Text.size() ? static_cast<uint8_t>(Text[Start - 1]) : 0;
}

// The first year digit moved up into the letters ("0" -> "A" ... "9" -> "J").
std::string Fold(uint8_t Digit) {
  const int Code = Digit + kCenturyShift;
  return std::string(1, Code > 255 ? '?' : static_cast<char>(Code));
}

// d/mm/yy -> yymm0d, without folding.
std::string ShortDayToStored(std::string_view Text) {
  return Mid(Text, 6, 2) + Mid(Text, 3, 2) + "0" + Mid(Text, 1, 1);
}

// dd?mm?yy? -> mm/dd/CCyy with the current century.
std::string SwapWithCentury(std::string_view Text) {
  return Mid(Text, 4, 2) + "/" + Mid(Text, 1, 2) + "/" + CurrentCentury() + Mid(Text, 7, 2);
}

std::string StoredToShort(std::string_view Text) {
  const uint8_t First = CodeAt(Text, 1);
  if (First == 0) return "00/00/00";
  std::string Year = Mid(Text, 1, 2);
  if (First > 64) Year = std::string(1, static_cast<char>(First - kCenturyShift)) + Mid(Text, 2, 1);
  return Mid(Text, 5, 2) + "/" + Mid(Text, 3, 2) + "/" + Year;
}

std::string StoredToLong(std::string_view Text) {
  const uint8_t First = CodeAt(Text, 1);
  std::string Year;
  if (First > 64) {
    Year = "20" + std::string(1, static_cast<char>(First - kCenturyShift)) + Mid(Text, 2, 1);
  } else {
    Year = (platform::Val(Mid(Text, 1, 2)) < 60 ? "20" : "19") + Mid(Text, 1, 2);
  }
  return Mid(Text, 5, 2) + "/" + Mid(Text, 3, 2) + "/" + Year;
}

}  // namespace

std::string CurrentCentury() {
  const std::time_t Now = std::time(nullptr);
  std::tm Local{};
  localtime_r(&Now, &Local);
  const int Century = ((Local.tm_year + 1900) / 100) % 100;
  return std::string{static_cast<char>('0' + Century / 10), static_cast<char>('0' + Century % 10)};
}

std::string DateToText(std::string_view Text) {
  switch (Text.size()) {
    case 6:
      return StoredToShort(Text);
    case 7:
      return ShortDayToStored(Text);
    case 8: {
      const std::string Year = Mid(Text, 7, 2);
      const std::string Rest = Mid(Text, 4, 2) + Mid(Text, 1, 2);
      if (platform::CompareText(Year, "60") < 0) {
        return Fold(CodeAt(Text, 7)) + Mid(Text, 8, 1) + Rest;
      }
      return Year + Rest;
    }
    case 9:
      return SwapWithCentury(Text);
    case 10:
      return Mid(Text, 4, 2) + "/" + Mid(Text, 1, 2) + "/" + Mid(Text, 9, 2);
    default:
      return "ERROR";
  }
}

std::string DateToLongText(std::string_view Text) {
  switch (Text.size()) {
    case 6:
      return StoredToLong(Text);
    case 7:
      return ShortDayToStored(Text);
    case 8:
      return Mid(Text, 7, 2) + Mid(Text, 4, 2) + Mid(Text, 1, 2);
    case 9:
      return SwapWithCentury(Text);
    case 10: {
      const std::string Century = Mid(Text, 7, 2);
      const std::string Rest = Mid(Text, 4, 2) + Mid(Text, 1, 2);
      if (Century == "19") return Mid(Text, 9, 2) + Rest;
      if (Century == "20") return Fold(CodeAt(Text, 9)) + Mid(Text, 10, 1) + Rest;
      return "";
    }
    default:
      return "ERROR";
  }
}

}  // namespace tqdb

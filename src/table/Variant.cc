// The public value type and its conversions.
#include "table/Variant.h"

#include <cstdio>
#include <utility>

#include "platform/codepage.h"
#include "platform/fault.h"
#include "platform/numbers.h"
#include "table/TQError.h"

namespace tqdb {
namespace {

[[noreturn]] void TypeMismatch() {
  throw TQError(platform::kTypeMismatch, platform::FaultDescription(platform::kTypeMismatch));
}

// Days from 1 March of year 0 in the proleptic Gregorian calendar, for any month (months
// outside 1..12 carry into the year, days outside the month run on into the next).
int64_t DaysFromCivil(int64_t Year, int64_t Month, int64_t Day) {
  const int64_t MonthIndex = Month - 1;
  Year += (MonthIndex >= 0 ? MonthIndex : MonthIndex - 11) / 12;
  const int64_t M = ((MonthIndex % 12) + 12) % 12 + 1;  // 1..12
  if (M <= 2) --Year;
  const int64_t Era = (Year >= 0 ? Year : Year - 399) / 400;
  const int64_t YearOfEra = Year - Era * 400;
  const int64_t DayOfYear = (153 * (M > 2 ? M - 3 : M + 9) + 2) / 5 + Day - 1;
  const int64_t DayOfEra = YearOfEra * 365 + YearOfEra / 4 - YearOfEra / 100 + DayOfYear;
  return Era * 146097 + DayOfEra;
}

// The serial day number of a date: days since 30 December 1899.
double DateSerial(const Date& D) {
  return static_cast<double>(DaysFromCivil(D.Year, D.Month, D.Day) - DaysFromCivil(1899, 12, 30));
}

std::string FormatDate(const Date& D) {
  char Buffer[48];
  std::snprintf(Buffer, sizeof Buffer, "%02d/%02d/%04d", D.Day, D.Month, D.Year);
  return Buffer;
}

}  // namespace

Variant::Variant() = default;
Variant::Variant(bool Value) : type_(VarType::Boolean), bool_(Value) {}
Variant::Variant(int16_t Value) : type_(VarType::Integer), int_(Value) {}
Variant::Variant(int32_t Value) : type_(VarType::Long), int_(Value) {}
Variant::Variant(float Value) : type_(VarType::Single), number_(Value) {}
Variant::Variant(double Value) : type_(VarType::Double), number_(Value) {}
Variant::Variant(Date Value) : type_(VarType::Date), date_(Value) {}
Variant::Variant(const char* Value)
    : type_(VarType::String), text_(Value != nullptr ? Value : "") {}
Variant::Variant(std::string Value) : type_(VarType::String), text_(std::move(Value)) {}
Variant::Variant(std::vector<Variant> Elements)
    : type_(VarType::Array), elements_(std::move(Elements)) {}

VarType Variant::Type() const { return type_; }
bool Variant::IsEmpty() const { return type_ == VarType::Empty; }

std::string Variant::ToString() const {
  switch (type_) {
    case VarType::Empty:
      return "";
    case VarType::Boolean:
      return bool_ ? "True" : "False";
    case VarType::Integer:
    case VarType::Long:
      return std::to_string(int_);
    case VarType::Single:
      return platform::SingleToText(static_cast<float>(number_));
    case VarType::Double:
      return platform::DoubleToText(number_);
    case VarType::Date:
      return FormatDate(date_);
    case VarType::String:
      return text_;
    case VarType::Array:
      break;
  }
  TypeMismatch();
}

double Variant::ToDouble() const {
  switch (type_) {
    case VarType::Empty:
      return 0;
    case VarType::Boolean:
      return bool_ ? -1 : 0;
    case VarType::Integer:
    case VarType::Long:
      return int_;
    case VarType::Single:
    case VarType::Double:
      return number_;
    case VarType::Date:
      return DateSerial(date_);
    case VarType::String:
      try {
        return platform::LocaleToDouble(platform::Utf8ToCp1252(text_));
      } catch (const platform::Fault& F) {
        throw TQError(F.Number(), F.Description());
      }
    case VarType::Array:
      break;
  }
  TypeMismatch();
}

const std::vector<Variant>& Variant::Elements() const {
  if (type_ != VarType::Array) TypeMismatch();
  return elements_;
}

bool operator==(const Variant& A, const Variant& B) {
  if (A.type_ != B.type_) return false;
  switch (A.type_) {
    case VarType::Empty:
      return true;
    case VarType::Boolean:
      return A.bool_ == B.bool_;
    case VarType::Integer:
    case VarType::Long:
      return A.int_ == B.int_;
    case VarType::Single:
    case VarType::Double:
      return A.number_ == B.number_;
    case VarType::Date:
      return A.date_.Year == B.date_.Year && A.date_.Month == B.date_.Month &&
             A.date_.Day == B.date_.Day;
    case VarType::String:
      return A.text_ == B.text_;
    case VarType::Array:
      return A.elements_ == B.elements_;
  }
  return false;
}

}  // namespace tqdb

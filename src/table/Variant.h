// The value type of the public interface: what Fields hands out and takes.
//
// A Variant has value semantics. Text held in a Variant is UTF-8 (the interface's
// encoding); the library converts it to and from the files' single-byte code page.
#pragma once

#include <cstdint>
#include <string>
#include <vector>

#include "table/tqdb_export.h"

namespace tqdb {

enum class VarType { Empty, Boolean, Integer, Long, Single, Double, Date, String, Array };

struct Date {
  int Year, Month, Day;
};

class TQDB_API Variant {
 public:
  Variant();  // Empty
  Variant(bool Value);
  Variant(int16_t Value);
  Variant(int32_t Value);  // a plain int literal gives Long
  Variant(float Value);
  Variant(double Value);
  Variant(Date Value);
  Variant(const char* Value);
  Variant(std::string Value);
  Variant(std::vector<Variant> Elements);

  VarType Type() const;
  bool IsEmpty() const;

  // The system's text conversion: numbers in plain decimal with '.', a Date as dd/mm/yyyy,
  // Empty as "", True/False as "True"/"False".
  std::string ToString() const;
  // Numeric conversion. Empty gives 0; a text that is not a number raises TQError 13.
  double ToDouble() const;
  // The elements of an Array; REQUIRES: Type() == VarType::Array (otherwise TQError 13).
  const std::vector<Variant>& Elements() const;

  // Typed access for the library; each REQUIRES the matching Type().
  bool AsBoolean() const { return bool_; }
  int32_t AsInteger() const { return int_; }   // Integer and Long
  double AsNumber() const { return number_; }  // Single and Double
  const Date& AsDate() const { return date_; }
  const std::string& AsText() const { return text_; }  // String

  friend TQDB_API bool operator==(const Variant& A, const Variant& B);

 private:
  VarType type_ = VarType::Empty;
  bool bool_ = false;
  int32_t int_ = 0;
  double number_ = 0;
  Date date_{0, 0, 0};
  std::string text_;
  std::vector<Variant> elements_;
};

}  // namespace tqdb

#include "field_types.h"

namespace tqdb::tool {

std::string TypeName(int Type) {
  switch (Type) {
    case 1:
      return "integer";
    case 2:
    case 6:
      return "single";
    case 4:
      return "long";
    case 3:
    case 7:
      return "double";
    case 5:
      return "date";
    case 62:
      return "image";
    case 74:
    case 75:
      return "long text";
    default:
      return Type >= 80 && Type <= 85 ? "double" : "text";
  }
}

bool IsNumericType(int Type) {
  return Type == 1 || Type == 2 || Type == 3 || Type == 4 || Type == 6 || Type == 7 ||
         (Type >= 80 && Type <= 85);
}

bool IsDateType(int Type) { return Type == 5; }

}  // namespace tqdb::tool

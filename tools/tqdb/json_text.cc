#include "json_text.h"

#include <charconv>
#include <cmath>
#include <cstdio>

namespace tqdb::tool {

std::string JsonString(std::string_view Text) {
  std::string Out = "\"";
  for (char C : Text) {
    switch (C) {
      case '"':
        Out += "\\\"";
        break;
      case '\\':
        Out += "\\\\";
        break;
      case '\n':
        Out += "\\n";
        break;
      case '\r':
        Out += "\\r";
        break;
      case '\t':
        Out += "\\t";
        break;
      default:
        if (static_cast<unsigned char>(C) < 0x20) {
          char Escape[8];
          std::snprintf(Escape, sizeof Escape, "\\u%04x", static_cast<unsigned>(C));
          Out += Escape;
        } else {
          Out += C;
        }
    }
  }
  return Out + "\"";
}

std::string JsonNumber(double Value) {
  if (!std::isfinite(Value)) return "null";
  char Buffer[32];
  const auto Result = std::to_chars(Buffer, Buffer + sizeof Buffer, Value);
  return std::string(Buffer, Result.ptr);
}

}  // namespace tqdb::tool

// Names of the field type codes, for what the tool shows.
#pragma once

#include <string>

namespace tqdb::tool {

// "integer", "single", "long", "double", "date", "image", "long text" or "text".
std::string TypeName(int Type);
// True for the types stored as binary numbers (1, 2, 3, 4, 6, 7, 80..85).
bool IsNumericType(int Type);
bool IsDateType(int Type);  // 5

}  // namespace tqdb::tool

// The few pieces of JSON the tool writes: strings and numbers.
#pragma once

#include <string>
#include <string_view>

namespace tqdb::tool {

// A JSON string literal for UTF-8 Text, with quotes, backslashes and control characters
// escaped.
std::string JsonString(std::string_view Text);

// A JSON number for Value in its shortest round-trip form; null for NaN and infinities.
std::string JsonNumber(double Value);

}  // namespace tqdb::tool

// Pattern matching for the LIKE operator of filter expressions.
//
// A pattern holds literal characters and two wildcards: "*" matches any run of
// characters (also none) and "?" matches exactly one character. Characters are compared
// byte for byte (Windows-1252), with no case folding: callers upper-case where the filter
// language asks for it.
#pragma once

#include <string_view>

namespace tqdb::query {

// True when the whole of Text matches the whole of Pattern. Runs in O(|Text| x |Pattern|)
// at worst (no exponential backtracking, whatever the number of "*"), and never fails.
bool MatchesPattern(std::string_view Text, std::string_view Pattern);

}  // namespace tqdb::query

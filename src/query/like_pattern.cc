#include "query/like_pattern.h"

#include <cstddef>

namespace tqdb::query {

// Greedy matching with one resume point: on a mismatch the last "*" seen takes one more
// character and matching continues after it. Only the last "*" ever needs to be resumed,
// because a later "*" can absorb whatever an earlier one would have, so the loop visits
// each (text position, pattern position) pair at most once per "*".
bool MatchesPattern(std::string_view Text, std::string_view Pattern) {
  constexpr size_t kNone = std::string_view::npos;
  size_t T = 0, P = 0;
  size_t Star = kNone, Resume = 0;
  while (T < Text.size()) {
    if (P < Pattern.size() && Pattern[P] == '*') {
      Star = P++;
      Resume = T;
    } else if (P < Pattern.size() && (Pattern[P] == '?' || Pattern[P] == Text[T])) {
      ++T;
      ++P;
    } else if (Star != kNone) {
      P = Star + 1;
      T = ++Resume;
    } else {
      return false;
    }
  }
  while (P < Pattern.size() && Pattern[P] == '*') ++P;
  return P == Pattern.size();
}

}  // namespace tqdb::query

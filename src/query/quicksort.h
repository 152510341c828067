// The quicksort of the sort step: it permutes an order array of indices into a key array
// and never moves the keys themselves.
//
// Lo..Hi is sorted as follows: i := Lo, j := Hi; the pivot is the key at Order[m], m being
// (Lo + Hi) / 2 rounded to the nearest integer with halves to the even neighbour; repeat
// until i > j: while the key at Order[i] is below the pivot (and i <= Hi) i grows, while
// the key at Order[j] is above it (and j >= Lo) j shrinks, and when i <= j the two places
// are exchanged and both move on; then Lo..j and i..Hi are sorted the same way. The sort
// is not stable.
//
// The two sub-ranges are disjoint, so the result does not depend on which is sorted first:
// the smaller one is sorted by recursion and the larger one by the loop, which keeps the
// stack depth logarithmic whatever the keys.
#pragma once

#include <cstdint>
#include <utility>
#include <vector>

namespace tqdb::query {

// (Lo + Hi) / 2 rounded halves to even: 0 and 5 give 2, 0 and 7 give 4.
// REQUIRES: 0 <= Lo <= Hi.
inline int32_t PivotIndex(int32_t Lo, int32_t Hi) {
  const int64_t Sum = static_cast<int64_t>(Lo) + Hi;
  int64_t Half = Sum / 2;
  if (Sum % 2 != 0 && Half % 2 != 0) ++Half;
  return static_cast<int32_t>(Half);
}

// Sorts Order[Lo..Hi] so that Compare(Order[k], Order[k + 1]) <= 0. Compare(a, b) takes
// two key indices and returns <0, 0 or >0. REQUIRES: 0 <= Lo and Hi < Order.size().
template <typename CompareKeys>
void QuickSortOrder(std::vector<int32_t>& Order, int32_t Lo, int32_t Hi,
                    const CompareKeys& Compare) {
  while (Lo < Hi) {
    int32_t I = Lo, J = Hi;
    const int32_t Pivot = Order[PivotIndex(Lo, Hi)];  // the pivot key, by its index
    while (I <= J) {
      while (I <= Hi && Compare(Order[I], Pivot) < 0) ++I;
      while (J >= Lo && Compare(Order[J], Pivot) > 0) --J;
      if (I <= J) {
        std::swap(Order[I], Order[J]);
        ++I;
        --J;
      }
    }
    if (J - Lo < Hi - I) {
      if (Lo < J) QuickSortOrder(Order, Lo, J, Compare);
      Lo = I;
    } else {
      if (I < Hi) QuickSortOrder(Order, I, Hi, Compare);
      Hi = J;
    }
  }
}

}  // namespace tqdb::query

#include "query/quicksort.h"

#include <algorithm>
#include <numeric>
#include <random>
#include <vector>

#include <gtest/gtest.h>

namespace tqdb::query {
namespace {

std::vector<int32_t> Identity(size_t N) {
  std::vector<int32_t> Order(N);
  std::iota(Order.begin(), Order.end(), 0);
  return Order;
}

std::vector<int32_t> SortedOrder(const std::vector<int>& Keys) {
  std::vector<int32_t> Order = Identity(Keys.size());
  if (!Keys.empty()) {
    QuickSortOrder(Order, 0, static_cast<int32_t>(Keys.size()) - 1,
                   [&](int32_t A, int32_t B) { return (Keys[A] > Keys[B]) - (Keys[A] < Keys[B]); });
  }
  return Order;
}

TEST(QuickSortTest, PivotRoundsHalvesToEven) {
  EXPECT_EQ(PivotIndex(0, 5), 2);
  EXPECT_EQ(PivotIndex(3, 4), 4);
  EXPECT_EQ(PivotIndex(1, 2), 2);
  EXPECT_EQ(PivotIndex(2147483646, 2147483647), 2147483646);
}

// Keys 3 1 2, worked by hand: the first step swaps places 0 and 1, the rest sorts to 1 2 0.
TEST(QuickSortTest, PermutesOnlyTheOrderArray) {
  const std::vector<int> Keys = {3, 1, 2};
  EXPECT_EQ(SortedOrder(Keys), (std::vector<int32_t>{1, 2, 0}));
  EXPECT_EQ(Keys, (std::vector<int>{3, 1, 2}));
}

TEST(QuickSortTest, SortsRandomKeysWithManyDuplicates) {
  std::mt19937 Random(7);
  for (int Round = 0; Round < 50; ++Round) {
    std::vector<int> Keys(Random() % 300);
    for (int& Key : Keys) Key = static_cast<int>(Random() % 20);
    const std::vector<int32_t> Order = SortedOrder(Keys);
    std::vector<int> Seen;
    for (int32_t Index : Order) Seen.push_back(Keys[Index]);
    EXPECT_TRUE(std::is_sorted(Seen.begin(), Seen.end()));
    std::vector<int32_t> Sorted = Order;
    std::sort(Sorted.begin(), Sorted.end());
    EXPECT_EQ(Sorted, Identity(Keys.size()));  // a permutation
  }
}

TEST(QuickSortTest, LargeOrderedInputsKeepTheStackShallow) {
  const size_t N = 1'000'000;
  std::vector<int> Ascending(N), Descending(N), Constant(N, 5);
  std::iota(Ascending.begin(), Ascending.end(), 0);
  std::iota(Descending.rbegin(), Descending.rend(), 0);
  for (const auto* Keys : {&Ascending, &Descending, &Constant}) {
    const std::vector<int32_t> Order = SortedOrder(*Keys);
    for (size_t I = 1; I < N; ++I) ASSERT_LE((*Keys)[Order[I - 1]], (*Keys)[Order[I]]);
  }
}

}  // namespace
}  // namespace tqdb::query

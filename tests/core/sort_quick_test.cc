#include <gmock/gmock.h>
#include <gtest/gtest.h>

#include <algorithm>
#include <cerrno>
#include <cstdint>
#include <random>
#include <vector>

#include "sort.h"
#include "support/faults.h"
#include "support/landing.h"
#include "support/sorting.h"

using ks_test::Items;
using ks_test::items_of;
using ks_test::records_of;
using ks_test::Sorting;
using ks_test::SortModel;
using ks_test::Trace;

namespace {

TEST(QuickSort, EqualsTheModelOnGeneratedRecords) {
  constexpr unsigned kSeed = 20064;
  SCOPED_TRACE(kSeed);
  std::mt19937 random(kSeed);
  for (int round = 0; round < 1000; ++round) {
    const Items items = items_of(ks_test::any_keys(random, 120));
    if (items.empty()) continue;
    SortModel model = {items, {}};
    model.quick_sort();
    Sorting sorting(items, static_cast<size_t>(1 + round % 64));
    sorting.run(ks_quick_sort);
    ASSERT_EQ(sorting.trace(), model.trace) << round;
    ASSERT_EQ(sorting.records(), records_of(model.items, sorting.size())) << round;
  }
}

// ks_qsort would insert them.
TEST(QuickSort, PartsTwoAndThreeRecordsAsWell) {
  Sorting two(items_of({2, 1}), 4);
  two.run(ks_quick_sort);
  EXPECT_EQ(two.trace(), (Trace{{0, 1}}));
  EXPECT_EQ(two.records(), records_of({{1, 1}, {2, 0}}, 4));
  Sorting three(items_of({1, 2, 3}), 4);
  three.run(ks_quick_sort);
  EXPECT_EQ(three.trace(), (Trace{{0, 1}, {2, 1}, {1, 0}, {2, 1}}));
}

TEST(QuickSort, FewerThanTwoAreNotCompared) {
  for (const std::vector<int> &keys : {std::vector<int>{}, std::vector<int>{1}}) {
    Sorting sorting(items_of(keys), 3);
    sorting.run(ks_quick_sort);
    EXPECT_EQ(sorting.trace(), Trace{});
  }
}

// When the middle is the greatest or the least of three and the ends are equal, the median is the
// first of them or the last.
TEST(QuickSort, MedianOfEqualEnds) {
  Sorting greatest(items_of({5, 6, 7, 9, 8, 5}), 8);
  greatest.run(ks_quick_sort);
  EXPECT_EQ(greatest.trace(), (Trace{{0, 3},
                                     {3, 5},
                                     {0, 5},  // 9 6 7 5 8 5
                                     {0, 3},
                                     {5, 3},
                                     {4, 3},  // 5 6 7 9 8 5
                                     {2, 0},
                                     {1, 0},  // 6 7 9 8 5
                                     {1, 3},
                                     {2, 3},
                                     {5, 3},
                                     {4, 5},  // 6 7 5 8
                                     {1, 3},
                                     {4, 3},
                                     {2, 1},  // 7 6 8
                                     {3, 2},
                                     {4, 3}}));
  EXPECT_EQ(greatest.records(), records_of({{5, 0}, {5, 5}, {6, 1}, {7, 2}, {8, 4}, {9, 3}}, 8));
  Sorting least(items_of({5, 6, 7, 1, 8, 5}), 8);
  least.run(ks_quick_sort);
  EXPECT_EQ(least.trace(), (Trace{{0, 3},
                                  {3, 5},
                                  {0, 5},  // 5 6 7 5 8 1
                                  {0, 3},
                                  {1, 3},
                                  {5, 3},  // 5 1 7 5 8 6
                                  {2, 3},
                                  {4, 3},  // 5 1 5 7 8 6
                                  {1, 0},  // 1 5
                                  {4, 3},
                                  {5, 4},
                                  {5, 3}}));  // 6 7 8
  EXPECT_EQ(least.records(), records_of({{1, 3}, {5, 0}, {5, 5}, {6, 1}, {7, 2}, {8, 4}}, 8));
}

// Lopsided parts are handled in the frame of the whole.
TEST(QuickSort, DepthStaysLogarithmic) {
  ks_test::fail_call("malloc", 0, ENOMEM, 1 << 30);  // so that the plain passes go on
  std::vector<int> keys(5000);
  std::mt19937 random(3);
  for (int &key : keys) key = static_cast<int>(random() % 2);
  struct Stack {
    uintptr_t lowest = UINTPTR_MAX;
    uintptr_t highest = 0;
  } stack;
  ks_quick_sort(
      keys.data(), keys.size(), sizeof keys[0],
      [](const void *first, const void *second, void *context) {
        const uintptr_t here = reinterpret_cast<uintptr_t>(__builtin_frame_address(0));
        Stack &seen = *static_cast<Stack *>(context);
        seen.lowest = std::min(seen.lowest, here);
        seen.highest = std::max(seen.highest, here);
        return *static_cast<const int *>(first) - *static_cast<const int *>(second);
      },
      &stack);
  EXPECT_TRUE(std::is_sorted(keys.begin(), keys.end()));
  // A frame for each of the parts, of which there are some thousand, would take more.
  EXPECT_LT(stack.highest - stack.lowest, 32u * 1024);
}

TEST(QuickSort, AFaultInAComparisonLeavesEveryRecord) {
  const Items items = items_of({4, 1, 3, 9, 7, 2, 2, 8, 5, 6, 0, 3});
  SortModel model = {items, {}};
  model.quick_sort();
  for (size_t nth = 0; nth < model.trace.size(); ++nth) {
    Sorting sorting(items, 2);
    sorting.raise_in_comparison(nth);
    EXPECT_EQ(ks_test::land([&] { sorting.run(ks_quick_sort); }).status, 7);
    std::vector<std::vector<unsigned char>> left;
    std::vector<std::vector<unsigned char>> all;
    const std::vector<unsigned char> before = records_of(items, 2);
    for (size_t at = 0; at < before.size(); at += 2) {
      left.push_back({sorting.records()[at], sorting.records()[at + 1]});
      all.push_back({before[at], before[at + 1]});
    }
    EXPECT_THAT(left, testing::UnorderedElementsAreArray(all));
  }
}

}  // namespace

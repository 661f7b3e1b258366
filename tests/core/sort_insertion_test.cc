#include <gmock/gmock.h>
#include <gtest/gtest.h>

#include <algorithm>
#include <random>
#include <vector>

#include "sort.h"
#include "support/sorting.h"

using ks_test::Items;
using ks_test::items_of;
using ks_test::records_of;
using ks_test::Sorting;
using ks_test::SortItem;
using ks_test::SortModel;
using ks_test::Trace;

namespace {

Items in_stable_order(Items items) {
  std::stable_sort(items.begin(), items.end(),
                   [](const SortItem &one, const SortItem &other) { return one.key < other.key; });
  return items;
}

TEST(InsertionSort, ComparesWithEachEarlierRecordUntilOneIsNotGreater) {
  Sorting sorting(items_of({2, 4, 3, 1, 3}), 8);
  sorting.run(ks_insertion_sort);
  // 2 4 | 3 goes before 4 | 1 goes to the front: 1 2 3 4 | the other 3 stops behind its equal.
  EXPECT_EQ(sorting.trace(),
            (Trace{{1, 0}, {2, 1}, {2, 0}, {3, 2}, {3, 1}, {3, 0}, {4, 3}, {4, 2}}));
  EXPECT_EQ(sorting.records(), records_of({{1, 3}, {2, 0}, {3, 2}, {3, 4}, {4, 1}}, 8));
}

TEST(InsertionSort, FewerThanTwoAreNotCompared) {
  for (const std::vector<int> &keys : {std::vector<int>{}, std::vector<int>{1}}) {
    Sorting sorting(items_of(keys), 3);
    sorting.run(ks_insertion_sort);
    EXPECT_EQ(sorting.trace(), Trace{});
  }
}

TEST(InsertionSort, IsStableForRecordsOfAnySize) {
  constexpr unsigned kSeed = 20062;
  SCOPED_TRACE(kSeed);
  std::mt19937 random(kSeed);
  std::vector<size_t> sizes = {100, 255, 256, 257, 511, 1000};
  for (size_t size = 1; size <= 64; ++size) sizes.push_back(size);
  for (size_t size : sizes) {
    for (int round = 0; round < 5; ++round) {
      const Items items = items_of(ks_test::any_keys(random, 64));
      Sorting sorting(items, size);
      sorting.run(ks_insertion_sort);
      ASSERT_EQ(sorting.records(), records_of(in_stable_order(items), size)) << size;
    }
  }
}

TEST(InsertionSort, EqualsTheModelOnGeneratedRecords) {
  constexpr unsigned kSeed = 20063;
  SCOPED_TRACE(kSeed);
  std::mt19937 random(kSeed);
  for (int round = 0; round < 1000; ++round) {
    const Items items = items_of(ks_test::any_keys(random, 64));
    SortModel model = {items, {}};
    model.insertion_sort();
    Sorting sorting(items, static_cast<size_t>(1 + round % 64));
    sorting.run(ks_insertion_sort);
    ASSERT_EQ(sorting.trace(), model.trace) << round;
    ASSERT_EQ(sorting.records(), records_of(model.items, sorting.size())) << round;
  }
}

}  // namespace

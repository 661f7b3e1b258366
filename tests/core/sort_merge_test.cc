// Insertion passes that would move their records too far, and what they go on with.
#include <gmock/gmock.h>
#include <gtest/gtest.h>

#include <algorithm>
#include <cerrno>
#include <numeric>
#include <random>
#include <vector>

#include "core/sort_internal.h"
#include "sort.h"
#include "support/faults.h"
#include "support/landing.h"
#include "support/sorting.h"

using ks_test::fail_call;
using ks_test::Items;
using ks_test::items_of;
using ks_test::land;
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

// Pairs of equal keys in descending order: each pair has to go to the front.
Items descending_pairs(int count) {
  std::vector<int> keys;
  for (int i = 0; i < count; ++i) keys.push_back((count - i) / 2);
  return items_of(keys);
}

ks::SortRecords records(Sorting &sorting) {
  return {static_cast<unsigned char *>(sorting.base()), sorting.size(), Sorting::compare, &sorting};
}

std::vector<unsigned char> in_any_order(std::vector<unsigned char> bytes) {
  std::sort(bytes.begin(), bytes.end());
  return bytes;
}

TEST(FarInsertion, SavesComparisonsAndKeepsTheStableOrder) {
  const Items items = descending_pairs(400);
  for (size_t size : {2U, 8U, 13U, 64U, 300U}) {
    Sorting sorting(items, size);
    sorting.run(ks_insertion_sort);
    EXPECT_EQ(sorting.records(), records_of(in_stable_order(items), size));
    // The plain pass takes 400 * 399 / 2, but one for each pair.
    EXPECT_LT(sorting.trace().size(), 10000u);
  }
}

TEST(FarInsertion, StartsWithTheComparisonsOfThePlainPass) {
  const Items items = descending_pairs(400);
  SortModel model = {items, {}};
  model.insertion_sort();
  Sorting sorting(items, 4);
  sorting.run(ks_insertion_sort);
  // At least n log2 n, which is 3458.
  ASSERT_GT(sorting.trace().size(), 3458u);
  EXPECT_TRUE(std::equal(model.trace.begin(), model.trace.begin() + 3458, sorting.trace().begin()));
}

// A hundred that move far, before many that are in order: nothing is dear about the whole.
TEST(FarInsertion, NeverBeginsBeforeTheWholeIsDear) {
  std::vector<int> keys(1000);
  for (int i = 0; i < 1000; ++i) keys[static_cast<size_t>(i)] = i < 100 ? 100 - i : 100 + i / 10;
  SortModel model = {items_of(keys), {}};
  model.insertion_sort();
  Sorting sorting(items_of(keys), 4);
  sorting.run(ks_insertion_sort);
  EXPECT_EQ(sorting.trace(), model.trace);
}

TEST(FarInsertion, NeverBeginsWithFewRecords) {
  // 64 descending records move by 31.5 places on average.
  std::vector<int> keys(64);
  std::iota(keys.rbegin(), keys.rend(), 0);
  SortModel model = {items_of(keys), {}};
  model.insertion_sort();
  Sorting sorting(items_of(keys), 4);
  sorting.run(ks_insertion_sort);
  EXPECT_EQ(sorting.trace(), model.trace);
}

TEST(FarInsertion, WithoutStorageThePlainPassGoesOn) {
  const Items items = descending_pairs(400);
  SortModel model = {items, {}};
  model.insertion_sort();
  Sorting sorting(items, 4);
  fail_call("malloc", 0, ENOMEM, 1 << 30);
  sorting.run(ks_insertion_sort);
  EXPECT_EQ(sorting.trace(), model.trace);
  EXPECT_EQ(sorting.records(), records_of(model.items, 4));
}

// Two shuffled halves look as if they were in order to the one pass of quick sort.
TEST(FarInsertion, ServesQuickSortOnPartedRecords) {
  std::mt19937 random(5);
  std::vector<int> keys(2000);
  for (size_t i = 0; i < keys.size(); ++i)
    keys[i] = static_cast<int>(random() % 100 + (i < 1000 ? 0 : 100));
  keys[1000] = 100;
  const Items items = items_of(keys);
  Sorting sorting(items, 8);
  sorting.run(ks_qsort);
  EXPECT_EQ(sorting.records(), records_of(in_stable_order(items), 8));
  EXPECT_LT(sorting.trace().size(), 2000u * 40);
}

TEST(FarInsertion, AFaultInAComparisonLeavesEveryRecord) {
  const Items items = descending_pairs(400);
  Sorting whole(items, 3);
  whole.run(ks_insertion_sort);
  for (size_t nth = 0; nth < whole.trace().size(); nth += 97) {
    Sorting sorting(items, 3);
    sorting.raise_in_comparison(nth);
    EXPECT_EQ(land([&] { sorting.run(ks_insertion_sort); }), (ks_test::Landing{7, 1, 0}));
    EXPECT_EQ(ks_test::innermost_record(), nullptr);
    EXPECT_EQ(in_any_order(sorting.records()), in_any_order(records_of(items, 3)));
  }
}

TEST(SortMerge, GivesTheStableOrder) {
  constexpr unsigned kSeed = 20065;
  SCOPED_TRACE(kSeed);
  std::mt19937 random(kSeed);
  for (int round = 0; round < 500; ++round) {
    Items items = items_of(ks_test::any_keys(random, 100));
    if (items.empty()) continue;
    const Items wanted = in_stable_order(items);
    // A beginning that is in order already.
    const size_t sorted = 1 + random() % items.size();
    std::stable_sort(
        items.begin(), items.begin() + static_cast<ptrdiff_t>(sorted),
        [](const SortItem &one, const SortItem &other) { return one.key < other.key; });
    Sorting sorting(items, static_cast<size_t>(1 + round % 64));
    ASSERT_TRUE(ks::sort_merge(records(sorting), items.size(), sorted));
    ASSERT_EQ(sorting.records(), records_of(wanted, sorting.size())) << round;
  }
}

TEST(SortMerge, WithoutStorageDoesNothing) {
  const Items items = items_of({3, 2, 1});
  Sorting sorting(items, 4);
  fail_call("malloc", 0, ENOMEM);
  EXPECT_FALSE(ks::sort_merge(records(sorting), 3, 1));
  EXPECT_EQ(sorting.records(), records_of(items, 4));
  EXPECT_EQ(sorting.trace(), Trace{});
}

TEST(SortMerge, MoreRecordsThanHaveNumbersAreRefused) {
  Sorting sorting(items_of({2, 1}), 1);
  EXPECT_FALSE(ks::sort_merge(records(sorting), ks::kMostNumbered + 1, 1));
  EXPECT_EQ(sorting.trace(), Trace{});
}

}  // namespace

// Quick sorts whose parts stay lopsided, and what they go on with.
#include <gmock/gmock.h>
#include <gtest/gtest.h>
#include <unistd.h>

#include <algorithm>
#include <cerrno>
#include <cstdint>
#include <random>
#include <vector>

#include "core/sort_internal.h"
#include "sort.h"
#include "support/child.h"
#include "support/faults.h"
#include "support/landing.h"
#include "support/sorting.h"

using ks_test::fail_call;
using ks_test::Items;
using ks_test::items_of;
using ks_test::land;
using ks_test::records_of;
using ks_test::Sorting;
using ks_test::SortModel;
using ks_test::Trace;

namespace {

Items few_keys(unsigned seed, size_t count, unsigned different) {
  std::mt19937 random(seed);
  std::vector<int> keys(count);
  for (int &key : keys) key = static_cast<int>(random() % different);
  return items_of(keys);
}

ks::SortRecords records(Sorting &sorting) {
  return {static_cast<unsigned char *>(sorting.base()), sorting.size(), Sorting::compare, &sorting};
}

std::vector<unsigned char> in_any_order(std::vector<unsigned char> bytes) {
  std::sort(bytes.begin(), bytes.end());
  return bytes;
}

TEST(FewKeys, EndInTheOrderOfThePlainSortWithFewComparisons) {
  for (unsigned different : {2U, 3U, 5U, 16U}) {
    for (size_t count : {1000U, 3000U, 5000U}) {
      const Items items = few_keys(different, count, different);
      SortModel model = {items, {}};
      model.qsort();
      Sorting sorting(items, 8);
      sorting.run(ks_qsort);
      EXPECT_EQ(sorting.records(), records_of(model.items, 8)) << different << ", " << count;
      EXPECT_LT(sorting.trace().size(), 100 * count) << different << ", " << count;
    }
  }
}

TEST(FewKeys, StartWithTheComparisonsOfThePlainSort) {
  const Items items = few_keys(1, 3000, 2);
  SortModel model = {items, {}};
  model.qsort();
  Sorting sorting(items, 8);
  sorting.run(ks_qsort);
  // Some three times n log2 n: the plain sort took 300 for each record in the end.
  const size_t plain = 3000 * 35;
  ASSERT_GT(sorting.trace().size(), plain);
  ASSERT_GT(model.trace.size(), 3000u * 300);
  EXPECT_TRUE(
      std::equal(model.trace.begin(), model.trace.begin() + plain, sorting.trace().begin()));
}

TEST(FewKeys, AHundredThousandRecordsAreNoTrap) {
  for (unsigned different : {2U, 16U}) {
    Sorting sorting(few_keys(4, 100000, different), 8);
    const std::vector<unsigned char> before = sorting.records();
    sorting.run(ks_qsort);
    EXPECT_LT(sorting.trace().size(), 100u * 100000);
    const std::vector<unsigned char> &after = sorting.records();
    for (size_t at = 8; at < after.size(); at += 8) ASSERT_LE(after[at - 8], after[at]);
    EXPECT_EQ(in_any_order(before), in_any_order(after));
  }
}

TEST(FewKeys, WithoutStorageThePlainSortGoesOn) {
  const Items items = few_keys(6, 1500, 2);
  SortModel model = {items, {}};
  model.qsort();
  const ks_test::Outcome outcome = ks_test::in_child([&] {
    Sorting sorting(items, 8);
    fail_call("malloc", 0, ENOMEM, 1 << 30);
    sorting.run(ks_qsort);
    EXPECT_EQ(sorting.trace(), model.trace);
    EXPECT_EQ(sorting.records(), records_of(model.items, 8));
    if (testing::Test::HasFailure()) _exit(1);
  });
  EXPECT_EQ(outcome.end(), "exit 0");
  EXPECT_EQ(outcome.out + outcome.err, "");
}

TEST(FewKeys, AFaultInAComparisonLeavesEveryRecord) {
  const Items items = few_keys(7, 1000, 2);
  Sorting whole(items, 3);
  whole.run(ks_qsort);
  // The last tenth lies behind the plain passes.
  for (size_t nth = 0; nth < whole.trace().size(); nth += 1999) {
    Sorting sorting(items, 3);
    sorting.raise_in_comparison(whole.trace().size() - 1 - nth);
    EXPECT_EQ(land([&] { sorting.run(ks_qsort); }), (ks_test::Landing{7, 1, 0}));
    EXPECT_EQ(ks_test::innermost_record(), nullptr);
    EXPECT_EQ(in_any_order(sorting.records()), in_any_order(records_of(items, 3)));
  }
}

TEST(SortReplay, EqualsTheModelOnGeneratedRecords) {
  constexpr unsigned kSeed = 20066;
  SCOPED_TRACE(kSeed);
  std::mt19937 random(kSeed);
  for (int round = 0; round < 1000; ++round) {
    const Items items = items_of(ks_test::any_keys(random, 300));
    if (items.empty()) continue;
    SortModel model = {items, {}};
    model.quick_sort();
    Sorting sorting(items, static_cast<size_t>(1 + round % 64));
    ASSERT_TRUE(ks::sort_replay(records(sorting), items.size()));
    ASSERT_EQ(sorting.records(), records_of(model.items, sorting.size())) << round;
  }
}

TEST(SortReplay, WithoutStorageDoesNothing) {
  const Items items = items_of({3, 2, 1, 0});
  Sorting sorting(items, 4);
  fail_call("malloc", 0, ENOMEM);
  EXPECT_FALSE(ks::sort_replay(records(sorting), 4));
  EXPECT_EQ(sorting.records(), records_of(items, 4));
  EXPECT_EQ(sorting.trace(), Trace{});
}

TEST(SortReplay, MoreRecordsThanHaveNumbersAreRefused) {
  Sorting sorting(items_of({2, 1}), 1);
  EXPECT_FALSE(ks::sort_replay(records(sorting), ks::kMostNumbered + 1));
  EXPECT_EQ(sorting.trace(), Trace{});
}

// A comparison without any sense may give any order, but each record once.
TEST(SortReplay, SurvivesAComparisonThatContradictsItself) {
  std::vector<uint32_t> numbers(5000);
  for (uint32_t i = 0; i < numbers.size(); ++i) numbers[i] = i;
  std::mt19937 random(8);
  ks_qsort(
      numbers.data(), numbers.size(), sizeof numbers[0],
      [](const void *, const void *, void *context) {
        return static_cast<int>((*static_cast<std::mt19937 *>(context))() % 3) - 1;
      },
      &random);
  ks_insertion_sort(
      numbers.data(), numbers.size(), sizeof numbers[0],
      [](const void *, const void *, void *) { return -1; }, nullptr);
  ks_quick_sort(
      numbers.data(), numbers.size(), sizeof numbers[0],
      [](const void *, const void *, void *) { return 1; }, nullptr);
  std::sort(numbers.begin(), numbers.end());
  for (uint32_t i = 0; i < numbers.size(); ++i) ASSERT_EQ(numbers[i], i);
}

}  // namespace

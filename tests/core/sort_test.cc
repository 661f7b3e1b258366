#include "sort.h"

#include <gmock/gmock.h>
#include <gtest/gtest.h>

#include <algorithm>
#include <cstdint>
#include <random>
#include <vector>

#include "support/sorting.h"

using ks_test::Items;
using ks_test::items_of;
using ks_test::records_of;
using ks_test::Sorting;
using ks_test::SortModel;
using ks_test::Trace;

namespace {

struct Sorted {
  std::vector<int> keys;
  std::vector<unsigned> numbers;
  Trace trace;
};

// Records of eight bytes with these keys, numbered from 0.
Sorted sort(const std::vector<int> &keys) {
  Sorting sorting(items_of(keys), 8);
  sorting.run(ks_qsort);
  Sorted sorted = {{}, {}, sorting.trace()};
  for (size_t at = 0; at < sorting.records().size(); at += 8) {
    sorted.keys.push_back(sorting.records()[at]);
    sorted.numbers.push_back(sorting.records()[at + 1]);
  }
  return sorted;
}

// The comparisons of these cases were written out by hand.
TEST(Qsort, ComparesAsWrittenOut) {
  struct {
    const char *what;
    std::vector<int> keys;
    Trace trace;
  } const cases[] = {
      {"nothing", {}, {}},
      {"one", {4}, {}},
      {"two in order", {1, 2}, {{1, 0}}},
      {"two equal", {2, 2}, {{1, 0}}},
      {"two to swap", {2, 1}, {{1, 0}}},
      {"three are inserted", {3, 2, 1}, {{1, 0}, {2, 1}, {2, 0}}},
      {"three equal", {5, 5, 5}, {{1, 0}, {2, 1}}},
      {"four in order: a pass that finds nothing, and an insertion",
       {1, 2, 3, 4},
       {{0, 2}, {1, 2}, {3, 2}, {1, 0}, {2, 1}, {3, 2}}},
      {"four reversed: the pivot follows down", {4, 3, 2, 1}, {{0, 2}, {3, 2}, {1, 2}, {3, 2}}},
      {"the pivot follows up", {1, 2, 3, 0}, {{0, 2}, {1, 2}, {3, 2}, {1, 0}, {2, 1}, {2, 0}}},
      {"five have no median; of two parts of two the left one goes first",
       {4, 1, 3, 5, 2},
       {{0, 2}, {4, 2}, {1, 2}, {3, 2}, {1, 0}, {4, 3}}},
      {"six have a median of three, which two comparisons settle",
       {1, 2, 3, 4, 5, 6},
       {{0, 3},
        {3, 5},
        {0, 3},
        {1, 3},
        {2, 3},
        {5, 3},
        {4, 3},
        {1, 0},
        {2, 1},
        {3, 2},
        {4, 3},
        {5, 4}}},
      {"six with a middle that is greatest; the smaller part, on the right, goes first",
       {3, 1, 9, 8, 2, 5},
       {{0, 3},
        {3, 5},
        {0, 5},
        {0, 3},
        {1, 3},
        {2, 3},
        {5, 3},
        {4, 3},
        {5, 4},
        {1, 0},
        {2, 1},
        {2, 0}}},
  };
  for (const auto &each : cases) EXPECT_EQ(sort(each.keys).trace, each.trace) << each.what;
}

TEST(Qsort, KeepsTheOrderOfThreeEqualRecords) {
  EXPECT_EQ(sort({5, 5, 5}).numbers, (std::vector<unsigned>{0, 1, 2}));
}

TEST(Qsort, SortsEveryArrangementOfFewRecords) {
  for (int count = 1; count <= 7; ++count) {
    std::vector<int> ascending;
    for (int key = 0; key < count; ++key) ascending.push_back(key);
    std::vector<int> keys = ascending;
    do {
      ASSERT_EQ(sort(keys).keys, ascending);
    } while (std::next_permutation(keys.begin(), keys.end()));
  }
}

TEST(Qsort, AThousandInOrderCostOnePassOfEachKind) {
  std::vector<uint32_t> numbers;
  for (uint32_t i = 0; i < 1000; ++i) numbers.push_back(i);
  struct Calls {
    size_t count;
  } calls = {0};
  ks_qsort(
      numbers.data(), numbers.size(), sizeof numbers[0],
      [](const void *first, const void *second, void *context) {
        ++static_cast<Calls *>(context)->count;
        const uint32_t one = *static_cast<const uint32_t *>(first);
        const uint32_t other = *static_cast<const uint32_t *>(second);
        return one < other ? -1 : one > other;
      },
      &calls);
  // Two for the median, 999 with the pivot, 999 with the one before.
  EXPECT_EQ(calls.count, 2u + 999 + 999);
  EXPECT_TRUE(std::is_sorted(numbers.begin(), numbers.end()));
}

TEST(Qsort, EqualsTheModelOnGeneratedRecords) {
  constexpr unsigned kSeed = 20061;
  SCOPED_TRACE(kSeed);
  std::mt19937 random(kSeed);
  for (int round = 0; round < 1000; ++round) {
    const Items items = items_of(ks_test::any_keys(random, 120));
    SortModel model = {items, {}};
    model.qsort();
    Sorting sorting(items, static_cast<size_t>(1 + round % 64));
    sorting.run(ks_qsort);
    ASSERT_EQ(sorting.trace(), model.trace) << round;
    ASSERT_EQ(sorting.records(), records_of(model.items, sorting.size())) << round;
  }
}

}  // namespace

#include <gmock/gmock.h>
#include <gtest/gtest.h>

#include <cerrno>
#include <csignal>
#include <cstdint>
#include <cstring>
#include <string>
#include <vector>

#include "core/hash_internal.h"
#include "core/hash_support.h"
#include "core/stg_watch.h"
#include "hash.h"
#include "pfm.h"
#include "support/faults.h"
#include "support/landing.h"
#include "support/signals.h"

using hash_test::in_child;
using hash_test::kNoMemory;
using ks_test::fail_call;
using ks_test::Outcome;
using testing::ElementsAre;
using testing::HasSubstr;

namespace {

uint32_t &value(void *data) { return *static_cast<uint32_t *>(data); }

int enter(hash_ht_t ht, intptr_t key, uint32_t number = 0) {
  intptr_t *stored;
  void *data;
  const int found = hash_int_enter(ht, key, &stored, &data);
  if (data != nullptr) value(data) = number;
  return found;
}

int look_up(hash_ht_t ht, intptr_t key) {
  intptr_t *stored;
  void *data;
  return hash_int_lookup(ht, key, &stored, &data);
}

uint32_t buckets_for(uint32_t size_hint) {
  hash_ht_t ht = hash_int_create(size_hint, 4);
  const uint32_t count = ht->bucket_count;
  hash_delete_ht(&ht);
  return count;
}

// The cells of the only chain of a table with one bucket.
std::vector<hash_cell_t *> chain(hash_ht_t ht) {
  std::vector<hash_cell_t *> cells;
  hash_scan_t *scan = nullptr;
  hash_cell_t *cell;
  while (hash_next(ht, &scan, &cell) == 1) cells.push_back(cell);
  return cells;
}

TEST(HashCreate, TakesTheNextPrimeAsTheNumberOfBuckets) {
  const uint32_t cases[][2] = {{0, 1},           {1, 1},       {2, 2},           {3, 3},
                               {4, 7},           {7, 7},       {8, 17},          {18, 31},
                               {62, 127},        {1000, 1021}, {131071, 131071}, {131072, 262147},
                               {524288, 1048573}};
  for (const auto &[hint, buckets] : cases) EXPECT_EQ(buckets_for(hint), buckets) << hint;
}

TEST(HashCreate, HasAtMost1048573Buckets) {
  for (uint32_t hint : {1048573u, 1048574u, 1000000000u, UINT32_MAX}) {
    EXPECT_EQ(buckets_for(hint), 1048573u) << hint;
  }
}

// The size of the area is not capped with the buckets.
TEST(HashCreate, KeepsAnAreaOfFourBytesForEachOfThePrime) {
  const struct {
    uint32_t hint;
    const char *first;
  } cases[] = {{0, " 1st=4 base=4 "},
               {4, " 1st=28 base=28 "},
               {1048574, " 1st=8388572 base=8388572 "},
               {134217757, " 1st=536871028 base=536871028 "},
               {134217758, " 1st=1073741836 base=1073741836 "},
               {1000000000, " 1st=1073741836 base=1073741836 "},
               {UINT32_MAX, " 1st=1073741836 base=1073741836 "}};
  for (const auto &[hint, first] : cases) {
    const Outcome outcome = in_child([hint = hint] {
      hash_int_create(hint, 4);
      stg_dump();
    });
    EXPECT_THAT(outcome.out, HasSubstr(first)) << hint;
    EXPECT_THAT(outcome.out, HasSubstr(" gf=1.50\n")) << hint;
  }
}

TEST(HashCreate, AnyFlagForCopiedKeysWillDo) {
  hash_ht_t ht = hash_create_ht(1, 0, HASH_KEY_STR, 256, 0, nullptr, nullptr);
  const char key[] = "key";
  const char *stored;
  void *data;
  hash_str_enter(ht, key, &stored, &data);
  EXPECT_NE(stored, key);
  EXPECT_STREQ(stored, "key");
  hash_delete_ht(&ht);
}

TEST(HashDelete, SetsTheHandleToNullAndTakesNull) {
  hash_ht_t ht = hash_str_create(100, 8, 1);
  hash_delete_ht(&ht);
  EXPECT_EQ(ht, nullptr);
  hash_delete_ht(&ht);
  EXPECT_EQ(ht, nullptr);
}

TEST(HashGetKeyBytes, IsZeroUnlessTheLengthIsFixed) {
  hash_ht_t integers = hash_int_create(1, 4);
  hash_ht_t texts = hash_str_create(1, 4, 1);
  hash_ht_t blocks = hash_flen_create(1, 4, 1, 34);
  EXPECT_EQ(hash_get_key_bytes(integers), 0u);
  EXPECT_EQ(hash_get_key_bytes(texts), 0u);
  EXPECT_EQ(hash_get_key_bytes(blocks), 34u);
  hash_delete_ht(&integers);
  hash_delete_ht(&texts);
  hash_delete_ht(&blocks);
}

TEST(HashGrowth, NeverHappensUnasked) {
  hash_ht_t ht = hash_int_create(4, 4);
  for (intptr_t key = 0; key < 1000; ++key) enter(ht, key);
  EXPECT_EQ(ht->bucket_count, 7u);
  hash_delete_ht(&ht);
}

TEST(HashGrowth, ComesWithTheFirstCellAboveTheLimit) {
  hash_ht_t ht = hash_int_create(7, 4);
  EXPECT_EQ(hash_set_dynamic(ht, 2), 14u);
  for (intptr_t key = 0; key < 14; ++key) enter(ht, key);
  EXPECT_EQ(ht->bucket_count, 7u);
  enter(ht, 14);
  EXPECT_EQ(ht->bucket_count, 17u);
  EXPECT_EQ(ht->climit, 34u);
  for (intptr_t key = 0; key < 15; ++key) EXPECT_EQ(look_up(ht, key), 1) << key;
  hash_delete_ht(&ht);
}

TEST(HashGrowth, IsTurnedOffAgainByLimitZero) {
  hash_ht_t ht = hash_int_create(7, 4);
  hash_set_dynamic(ht, 1);
  EXPECT_EQ(hash_set_dynamic(ht, 0), 0u);
  for (intptr_t key = 0; key < 100; ++key) enter(ht, key);
  EXPECT_EQ(ht->bucket_count, 7u);
  hash_delete_ht(&ht);
}

TEST(HashGrowth, LimitIsCountedIn32Bits) {
  hash_ht_t ht = hash_int_create(7, 4);
  EXPECT_EQ(hash_set_dynamic(ht, 0x80000001), 0x80000007u);
  hash_delete_ht(&ht);
}

TEST(HashGrowth, TakesOneStepAlongThePrimesUpToTheLargest) {
  hash_ht_t ht = hash_int_create(0, 4);
  std::vector<uint32_t> counts;
  for (int i = 0; i < 22; ++i) {
    counts.push_back(ht->bucket_count);
    hash_resize(ht);
  }
  EXPECT_THAT(counts, ElementsAre(1, 2, 3, 7, 17, 31, 61, 127, 257, 509, 1021, 2053, 4093, 8191,
                                  16381, 32771, 65537, 131071, 262147, 524287, 1048573, 1048573));
  hash_delete_ht(&ht);
}

TEST(HashGrowth, EndsAtTheLargestPrime) {
  hash_ht_t ht = hash_int_create(1048573, 4);
  EXPECT_EQ(hash_set_dynamic(ht, 1), 1048573u);
  ht->climit = 1;
  hash_cell_t **bkts = ht->bkts;
  for (intptr_t key = 0; key < 4; ++key) enter(ht, key);
  EXPECT_EQ(ht->bkts, bkts);
  EXPECT_EQ(ht->climit, 1u);
  for (intptr_t key = 0; key < 4; ++key) EXPECT_EQ(look_up(ht, key), 1) << key;
  hash_delete_ht(&ht);
}

// Of 0 2 4 in bucket 0 of two and 1 3 5 in bucket 1, each newest first, to three buckets.
TEST(HashGrowth, PushesTheCellsOfEachChainFromItsHeadOn) {
  hash_ht_t ht = hash_int_create(2, 0);
  for (int i = 0; i < 6; ++i) hash_create_cell(ht, static_cast<uint32_t>(i))->key.word = 100 + i;
  hash_resize(ht);
  ASSERT_EQ(ht->bucket_count, 3u);
  std::vector<intptr_t> keys;
  for (const hash_cell_t *cell : chain(ht)) keys.push_back(cell->key.word);
  EXPECT_THAT(keys, ElementsAre(103, 100, 101, 104, 105, 102));
  hash_delete_ht(&ht);
}

TEST(HashGrowth, WithoutMemoryIsPutOff) {
  const Outcome outcome = in_child([] {
    hash_ht_t ht = hash_int_create(2, 1000);  // each cell gets a chunk of its own
    hash_set_dynamic(ht, 1);
    enter(ht, 4);
    enter(ht, 8);
    fail_call("malloc", 2, ENOMEM);
    printf("%d ", enter(ht, 12));
    for (intptr_t key : {4, 8, 12}) printf("%d", look_up(ht, key));
    printf(" %u", ht->bucket_count);
    printf(" %d", enter(ht, 16));
    printf(" %u\n", ht->bucket_count);
  });
  EXPECT_EQ(outcome.end(), "exit 0");
  EXPECT_EQ(outcome.out, "0 111 2 0 3\n");
  EXPECT_EQ(outcome.err, kNoMemory);
}

TEST(HashCell, NewOneIsZeroAtTheFrontOfItsBucket) {
  hash_ht_t ht = hash_int_create(1, 12);
  hash_cell_t *first = hash_create_cell(ht, 5);
  hash_cell_t *second = hash_create_cell(ht, UINT32_MAX);
  EXPECT_EQ(first->hval, 5u);
  EXPECT_EQ(second->hval, UINT32_MAX);
  EXPECT_EQ(second->key.word, 0);
  EXPECT_EQ(std::string(reinterpret_cast<char *>(second + 1), 12), std::string(12, '\0'));
  EXPECT_THAT(chain(ht), ElementsAre(second, first));
  hash_delete_ht(&ht);
}

// ... also where a program has written past an allocation of the table's area before.
TEST(HashCell, NewOneIsZeroOnDamagedFreeSpace) {
  hash_ht_t ht = hash_int_create(1000, 12);
  void *free_space = stg_alloc(ht->area, 0);
  ks::stg_watch_used(free_space, 64, true);
  memset(free_space, 0x5A, 64);
  hash_cell_t *cell = hash_create_cell(ht, 5);
  EXPECT_EQ(static_cast<void *>(cell), free_space);
  EXPECT_EQ(cell->key.word, 0);
  EXPECT_EQ(std::string(reinterpret_cast<char *>(cell + 1), 12), std::string(12, '\0'));
  hash_delete_ht(&ht);
}

TEST(HashCell, IsUnlinkedThroughTheOneBeforeIt) {
  hash_ht_t ht = hash_int_create(1, 4);
  hash_cell_t *cells[3];
  for (hash_cell_t *&cell : cells) cell = hash_create_cell(ht, 1);
  hash_free_cell(ht, cells[1], cells[2]);
  EXPECT_THAT(chain(ht), ElementsAre(cells[2], cells[0]));
  hash_free_cell(ht, cells[2], nullptr);
  EXPECT_THAT(chain(ht), ElementsAre(cells[0]));
  hash_free_cell(ht, cells[0], nullptr);
  EXPECT_THAT(chain(ht), ElementsAre());
  EXPECT_EQ(ht->cells, 0u);
  hash_delete_ht(&ht);
}

TEST(HashCell, KeepsKeyAndDataForItsNextUseLastFreedFirst) {
  hash_ht_t ht = hash_int_create(1, 4);
  hash_cell_t *first = hash_create_cell(ht, 1);
  hash_cell_t *second = hash_create_cell(ht, 2);
  first->key.word = 77;
  value(first + 1) = 777;
  hash_free_cell(ht, second, nullptr);
  hash_free_cell(ht, first, nullptr);
  EXPECT_EQ(hash_create_cell(ht, 3), first);
  EXPECT_EQ(first->key.word, 77);
  EXPECT_EQ(value(first + 1), 777u);
  EXPECT_EQ(first->hval, 3u);
  EXPECT_EQ(hash_create_cell(ht, 3), second);
  const hash_cell_t *third = hash_create_cell(ht, 3);
  EXPECT_NE(third, first);
  EXPECT_NE(third, second);
  hash_delete_ht(&ht);
}

TEST(HashCell, IsRefusedWhenItsSizeDoesNotFit) {
  const Outcome outcome = in_child([] {
    hash_ht_t ht = hash_int_create(1, UINT32_MAX);
    printf("%d", hash_create_cell(ht, 1) == nullptr);
    hash_set_order(ht);
    printf("%d%u\n", hash_create_cell(ht, 1) == nullptr, ht->cells);
  });
  EXPECT_EQ(outcome.out, "110\n");
  EXPECT_EQ(outcome.err, kNoMemory + kNoMemory);
}

TEST(HashCell, WithoutMemoryThereIsNone) {
  const Outcome outcome = in_child([] {
    hash_ht_t ht = hash_int_create(1, 4);  // whose area has room for the table alone
    fail_call("malloc", 0, ENOMEM);
    printf("%d", hash_create_cell(ht, 1) == nullptr);
    intptr_t *key = reinterpret_cast<intptr_t *>(ht);
    void *data = ht;
    fail_call("malloc", 0, ENOMEM);
    printf("%d", hash_int_enter(ht, 4, &key, &data));
    printf("%d%d%u", key == nullptr, data == nullptr, ht->cells);
    printf("%d", enter(ht, 4));
    printf("%d\n", look_up(ht, 4));
  });
  EXPECT_EQ(outcome.end(), "exit 0");
  EXPECT_EQ(outcome.out, "1011001\n");
  EXPECT_EQ(outcome.err, kNoMemory + kNoMemory);
}

TEST(HashSetOrder, ChangesNothingOnceThereWasAnEntry) {
  hash_ht_t ht = hash_int_create(1, 4);
  enter(ht, 4);
  hash_set_order(ht);
  EXPECT_EQ(ht->order, 0);
  intptr_t *key;
  void *data;
  hash_int_free(ht, 4, &key, &data);
  hash_set_order(ht);
  EXPECT_EQ(ht->order, 0);
  enter(ht, 8);
  EXPECT_EQ(look_up(ht, 8), 1);
  hash_delete_ht(&ht);
}

// The area's record, its chunk, the data of that, and the buckets.
TEST(HashOutOfMemory, GivesATableThatStaysEmpty) {
  for (int nth = 0; nth < 4; ++nth) {
    const Outcome outcome = in_child([nth] {
      fail_call("malloc", nth, ENOMEM);
      hash_ht_t ht = hash_str_create(4, 4, 0);
      if (ht == nullptr) return;
      hash_set_order(ht);
      hash_set_dynamic(ht, 1);
      hash_resize(ht);
      hash_scan_t *scan = nullptr;
      const char *key;
      void *data;
      for (int i = 0; i < 3; ++i) {
        printf("%d", hash_str_enter(ht, "a", &key, &data));
        printf("%d%d", key == nullptr, data == nullptr);
      }
      printf(" %d", hash_str_lookup(ht, "a", &key, &data));
      printf("%d", hash_str_free(ht, "a", &key, &data));
      printf("%d", hash_str_next(ht, &scan, &key, &data));
      printf("%d\n", hash_str_next_in_order(ht, &scan, &key, &data));
      hash_delete_ht(&ht);
      printf("%d\n", ht == nullptr);
      stg_dump();
    });
    EXPECT_EQ(outcome.end(), "exit 0") << nth;
    EXPECT_EQ(outcome.out, "011011011 0000\n1\n") << nth;
    EXPECT_EQ(outcome.err, kNoMemory + "noname: Error: Out of memory") << nth;
  }
}

TEST(HashOutOfMemory, AffectsNoOtherTable) {
  const Outcome outcome = in_child([] {
    fail_call("malloc", 0, ENOMEM, 1000);
    hash_ht_t without = hash_int_create(4, 4);
    fail_call("malloc", 0, ENOMEM, 0);
    hash_ht_t with = hash_int_create(4, 4);
    enter(with, 1, 11);
    enter(without, 2);
    printf("%d%d%d", look_up(with, 1), look_up(with, 2), look_up(without, 1));
    hash_delete_ht(&without);
    printf("%d", look_up(with, 1));
    hash_delete_ht(&with);
  });
  EXPECT_EQ(outcome.end(), "exit 0");
  EXPECT_EQ(outcome.out, "1001");
}

// A fault that comes in the middle of the growth of a table lands behind it.
TEST(HashResize, LosesNothingWhenAFaultLeavesIt) {
  pfm_signal(SIGUSR1, ks_test::raise_number);
  for (const char *call : {"malloc", "free"}) {
    hash_ht_t ht = hash_int_create(2, 4);
    hash_set_order(ht);
    hash_set_dynamic(ht, 1);
    enter(ht, 10);
    enter(ht, 20);
    ks_test::signal_in_call(call, 0, SIGUSR1);
    EXPECT_EQ(ks_test::land([&] { enter(ht, 30); }).status, SIGUSR1) << call;
    EXPECT_EQ(ht->bucket_count, 3u);
    for (intptr_t key : {10, 20, 30}) EXPECT_EQ(look_up(ht, key), 1) << call;
    EXPECT_EQ(enter(ht, 40), 0);
    EXPECT_EQ(chain(ht).size(), 4u);
    hash_delete_ht(&ht);
  }
}

}  // namespace

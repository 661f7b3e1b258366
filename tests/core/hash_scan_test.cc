#include <gmock/gmock.h>
#include <gtest/gtest.h>

#include <cerrno>
#include <cstdint>
#include <string>
#include <vector>

#include "core/hash_support.h"
#include "hash.h"
#include "stg.h"
#include "support/faults.h"

using hash_test::in_child;
using hash_test::kNoMemory;
using ks_test::fail_call;
using ks_test::Outcome;
using testing::ElementsAre;

namespace {

using Next = int (*)(hash_ht_t, hash_scan_t **, intptr_t **, void **);

void enter(hash_ht_t ht, std::initializer_list<intptr_t> keys) {
  for (const intptr_t key : keys) {
    intptr_t *stored;
    void *data;
    hash_int_enter(ht, key, &stored, &data);
  }
}

void take_out(hash_ht_t ht, intptr_t key) {
  intptr_t *stored;
  void *data;
  hash_int_free(ht, key, &stored, &data);
}

std::vector<intptr_t> keys(Next next, hash_ht_t ht) {
  std::vector<intptr_t> found;
  hash_scan_t *scan = nullptr;
  intptr_t *key;
  void *data;
  while (next(ht, &scan, &key, &data) == 1) found.push_back(*key);
  EXPECT_EQ(scan, nullptr);
  EXPECT_EQ(key, nullptr);
  EXPECT_EQ(data, nullptr);
  return found;
}

TEST(HashNext, GoesByBucketsAndChains) {
  hash_ht_t ht = hash_int_create(7, 4);
  enter(ht, {4, 24, 0, 32, 60, 28});  // hashes 1 6 0 8 15 7
  EXPECT_THAT(keys(hash_int_next, ht), ElementsAre(28, 0, 60, 32, 4, 24));
  hash_delete_ht(&ht);
}

TEST(HashNext, EndsAtOnceInAnEmptyTable) {
  for (uint32_t size : {1u, 7u, 1000u}) {
    hash_ht_t ht = hash_int_create(size, 4);
    EXPECT_THAT(keys(hash_int_next, ht), ElementsAre());
    EXPECT_THAT(keys(hash_int_next_in_order, ht), ElementsAre());
    enter(ht, {4});
    take_out(ht, 4);
    EXPECT_THAT(keys(hash_int_next, ht), ElementsAre());
    hash_delete_ht(&ht);
  }
}

// A chain in each bucket, one far from all others, and the last bucket.
TEST(HashNext, FindsCellsInBucketsFarApart) {
  hash_ht_t ht = hash_int_create(1021, 4);
  for (uint32_t hash : {0u, 1020u, 500u, 501u, 1021u + 500u}) hash_create_cell(ht, hash);
  std::vector<uint32_t> hashes;
  hash_scan_t *scan = nullptr;
  hash_cell_t *cell;
  while (hash_next(ht, &scan, &cell) == 1) hashes.push_back(cell->hval);
  EXPECT_EQ(cell, nullptr);
  EXPECT_EQ(scan, nullptr);
  EXPECT_THAT(hashes, ElementsAre(0, 1521, 500, 501, 1020));
  hash_delete_ht(&ht);
}

TEST(HashNext, GivesTextsAndBlocks) {
  hash_ht_t texts = hash_str_create(1, 4, 1);
  hash_set_order(texts);
  hash_ht_t blocks = hash_flen_create(1, 4, 1, 1);
  hash_set_order(blocks);
  const char *text;
  const void *block;
  void *entered;
  void *data;
  hash_str_enter(texts, "key", &text, &entered);
  for (auto next : {hash_str_next, hash_str_next_in_order}) {
    hash_scan_t *scan = nullptr;
    const char *found = "before";
    EXPECT_EQ(next(texts, &scan, &found, &data), 1);
    EXPECT_EQ(found, text);
    EXPECT_EQ(data, entered);
    EXPECT_EQ(next(texts, &scan, &found, &data), 0);
    EXPECT_EQ(found, nullptr);
    EXPECT_EQ(data, nullptr);
  }
  hash_flen_enter(blocks, "k", &block, &entered);
  for (auto next : {hash_flen_next, hash_flen_next_in_order}) {
    hash_scan_t *scan = nullptr;
    const void *found = "before";
    EXPECT_EQ(next(blocks, &scan, &found, &data), 1);
    EXPECT_EQ(found, block);
    EXPECT_EQ(data, entered);
    EXPECT_EQ(next(blocks, &scan, &found, &data), 0);
    EXPECT_EQ(found, nullptr);
    EXPECT_EQ(data, nullptr);
  }
  hash_delete_ht(&texts);
  hash_delete_ht(&blocks);
}

TEST(HashNext, ScansMayBeNested) {
  hash_ht_t ht = hash_int_create(7, 4);
  hash_set_order(ht);
  enter(ht, {4, 32, 8});
  std::vector<intptr_t> seen;
  hash_scan_t *outer = nullptr;
  intptr_t *key;
  void *data;
  while (hash_int_next(ht, &outer, &key, &data) == 1) {
    seen.push_back(*key * 100);
    for (const intptr_t inner : keys(hash_int_next, ht)) seen.push_back(inner);
    for (const intptr_t inner : keys(hash_int_next_in_order, ht)) seen.push_back(inner);
  }
  EXPECT_THAT(seen, ElementsAre(3200, 32, 4, 8, 4, 32, 8,  //
                                400, 32, 4, 8, 4, 32, 8,   //
                                800, 32, 4, 8, 4, 32, 8));
  hash_delete_ht(&ht);
}

TEST(HashNext, AnotherOneBeginsBehindTheEnd) {
  hash_ht_t ht = hash_int_create(7, 4);
  enter(ht, {4});
  hash_scan_t *scan = nullptr;
  intptr_t *key;
  void *data;
  for (int expected : {1, 0, 1, 0}) EXPECT_EQ(hash_int_next(ht, &scan, &key, &data), expected);
  hash_delete_ht(&ht);
}

TEST(HashNextInOrder, GoesInOrderOfEntryAlsoAfterGrowth) {
  hash_ht_t ht = hash_int_create(1, 4);
  hash_set_order(ht);
  hash_set_dynamic(ht, 1);
  enter(ht, {40, 8, 24, 12, 16, 4, 8});
  EXPECT_THAT(keys(hash_int_next_in_order, ht), ElementsAre(40, 8, 24, 12, 16, 4));
  hash_delete_ht(&ht);
}

TEST(HashNextInOrder, PassesOverFreedEntries) {
  hash_ht_t ht = hash_int_create(3, 4);
  hash_set_order(ht);
  enter(ht, {1, 2, 3, 4, 5});
  take_out(ht, 3);
  EXPECT_THAT(keys(hash_int_next_in_order, ht), ElementsAre(1, 2, 4, 5));
  take_out(ht, 1);
  EXPECT_THAT(keys(hash_int_next_in_order, ht), ElementsAre(2, 4, 5));
  take_out(ht, 5);
  EXPECT_THAT(keys(hash_int_next_in_order, ht), ElementsAre(2, 4));
  take_out(ht, 4);
  take_out(ht, 2);
  EXPECT_THAT(keys(hash_int_next_in_order, ht), ElementsAre());
  enter(ht, {6, 7});
  EXPECT_THAT(keys(hash_int_next_in_order, ht), ElementsAre(6, 7));
  hash_delete_ht(&ht);
}

TEST(HashNextInOrder, ReenteredKeyIsTheLast) {
  hash_ht_t ht = hash_int_create(3, 4);
  hash_set_order(ht);
  enter(ht, {1, 2, 3});
  take_out(ht, 1);
  enter(ht, {1});
  EXPECT_THAT(keys(hash_int_next_in_order, ht), ElementsAre(2, 3, 1));
  hash_delete_ht(&ht);
}

TEST(HashNextInOrder, FindsNothingInATableWithoutOrder) {
  hash_ht_t ht = hash_int_create(3, 4);
  enter(ht, {1, 2, 3});
  EXPECT_THAT(keys(hash_int_next_in_order, ht), ElementsAre());
  hash_cell_t *cell;
  hash_scan_t *scan = nullptr;
  EXPECT_EQ(hash_next_in_order(ht, &scan, &cell), 0);
  EXPECT_EQ(cell, nullptr);
  EXPECT_EQ(scan, nullptr);
  hash_delete_ht(&ht);
}

TEST(HashNextInOrder, GivesCells) {
  hash_ht_t ht = hash_int_create(3, 4);
  hash_set_order(ht);
  hash_cell_t *first = hash_create_cell(ht, 2);
  hash_cell_t *second = hash_create_cell(ht, 1);
  hash_cell_t *cell;
  hash_scan_t *scan = nullptr;
  std::vector<hash_cell_t *> cells;
  while (hash_next_in_order(ht, &scan, &cell) == 1) cells.push_back(cell);
  EXPECT_THAT(cells, ElementsAre(first, second));
  hash_delete_ht(&ht);
}

TEST(HashTermScan, GivesAScanUp) {
  hash_ht_t ht = hash_int_create(3, 4);
  enter(ht, {1, 2, 3});
  hash_scan_t *scan = nullptr;
  intptr_t *key;
  void *data;
  ASSERT_EQ(hash_int_next(ht, &scan, &key, &data), 1);
  ASSERT_NE(scan, nullptr);
  hash_term_scan(&scan);
  EXPECT_EQ(scan, nullptr);
  hash_term_scan(&scan);
  EXPECT_EQ(scan, nullptr);
  hash_delete_ht(&ht);
}

TEST(HashScan, WithoutMemoryIsAtItsEnd) {
  for (Next next : {hash_int_next, hash_int_next_in_order}) {
    const Outcome outcome = in_child([next] {
      hash_ht_t ht = hash_int_create(3, 4);
      hash_set_order(ht);
      enter(ht, {1});
      fail_call("malloc", 0, ENOMEM);
      for (size_t count : {keys(next, ht).size(), keys(next, ht).size()}) printf("%zu", count);
    });
    EXPECT_EQ(outcome.end(), "exit 0");
    EXPECT_EQ(outcome.out, "01");
    EXPECT_EQ(outcome.err, kNoMemory);
  }
}

}  // namespace

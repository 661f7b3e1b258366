#include <gmock/gmock.h>
#include <gtest/gtest.h>

#include <cstdint>
#include <vector>

#include "core/hash_internal.h"
#include "hash.h"

using testing::ElementsAre;
using testing::Pair;

namespace {

struct Answer {
  int found;
  intptr_t *key;
  uint32_t *data;
};

using Routine = int (*)(hash_ht_t, intptr_t, intptr_t **, void **);

// Both outputs are set to something else before.
Answer ask(Routine routine, hash_ht_t ht, intptr_t key) {
  intptr_t *stored = &key;
  void *data = &key;
  const int found = routine(ht, key, &stored, &data);
  return {found, stored, static_cast<uint32_t *>(data)};
}

uint32_t hash_of(intptr_t key) {
  hash_ht_t ht = hash_int_create(1, 0);
  ask(hash_int_enter, ht, key);
  const uint32_t hash = ht->bkts[0]->hval;
  hash_delete_ht(&ht);
  return hash;
}

TEST(HashInt, NewKeyGivesZeroAndDataToFill) {
  hash_ht_t ht = hash_int_create(4, 4);
  const Answer entered = ask(hash_int_enter, ht, 42);
  EXPECT_EQ(entered.found, 0);
  EXPECT_EQ(*entered.key, 42);
  EXPECT_EQ(*entered.data, 0u);
  *entered.data = 5;

  const Answer again = ask(hash_int_enter, ht, 42);
  EXPECT_EQ(again.found, 1);
  EXPECT_EQ(again.key, entered.key);
  EXPECT_EQ(*again.data, 5u);

  const Answer found = ask(hash_int_lookup, ht, 42);
  EXPECT_EQ(found.found, 1);
  EXPECT_EQ(found.key, entered.key);
  EXPECT_EQ(found.data, entered.data);
  hash_delete_ht(&ht);
}

TEST(HashInt, KeyOutIsTheWordInTheCell) {
  hash_ht_t ht = hash_int_create(1, 4);
  const Answer entered = ask(hash_int_enter, ht, 42);
  EXPECT_EQ(entered.key, &ht->bkts[0]->key.word);
  EXPECT_EQ(static_cast<void *>(entered.data), ht->bkts[0] + 1);
  hash_delete_ht(&ht);
}

TEST(HashInt, AbsentKeyGivesZeroAndNull) {
  hash_ht_t ht = hash_int_create(4, 4);
  ask(hash_int_enter, ht, 42);
  for (Routine routine : {hash_int_lookup, hash_int_free}) {
    const Answer absent = ask(routine, ht, 43);
    EXPECT_EQ(absent.found, 0);
    EXPECT_EQ(absent.key, nullptr);
    EXPECT_EQ(absent.data, nullptr);
  }
  hash_delete_ht(&ht);
}

TEST(HashInt, WhatAFreeGivesOutStaysReadable) {
  hash_ht_t ht = hash_int_create(4, 4);
  *ask(hash_int_enter, ht, 42).data = 5;
  const Answer freed = ask(hash_int_free, ht, 42);
  EXPECT_EQ(freed.found, 1);
  EXPECT_EQ(*freed.key, 42);
  EXPECT_EQ(*freed.data, 5u);
  EXPECT_EQ(ask(hash_int_lookup, ht, 42).found, 0);
  EXPECT_EQ(ask(hash_int_free, ht, 42).found, 0);
  hash_delete_ht(&ht);
}

TEST(HashInt, KeepsTheDataOfAFreedEntryInTheNextOne) {
  hash_ht_t ht = hash_int_create(4, 4);
  *ask(hash_int_enter, ht, 42).data = 5;
  ask(hash_int_free, ht, 42);
  const Answer entered = ask(hash_int_enter, ht, 43);
  EXPECT_EQ(entered.found, 0);
  EXPECT_EQ(*entered.key, 43);
  EXPECT_EQ(*entered.data, 5u);
  hash_delete_ht(&ht);
}

TEST(HashInt, HashIsTheKeyShiftedArithmetically) {
  for (intptr_t key : {8, 9, 10, 11}) EXPECT_EQ(hash_of(key), 2u) << key;
  EXPECT_EQ(hash_of(0), 0u);
  EXPECT_EQ(hash_of(7), 1u);
  EXPECT_EQ(hash_of(-1), UINT32_MAX);
  EXPECT_EQ(hash_of(-4), UINT32_MAX);
  EXPECT_EQ(hash_of(-5), UINT32_MAX - 1);
  EXPECT_EQ(hash_of(INT32_MIN), 0xE0000000u);
  EXPECT_EQ(hash_of(INT32_MAX), 0x1FFFFFFFu);
}

#if INTPTR_MAX > INT32_MAX
TEST(HashInt, HashOfALongKeyIsCut) {
  EXPECT_EQ(hash_of(0x400000008), 2u);
  EXPECT_EQ(hash_of(INTPTR_MIN), 0u);
  EXPECT_EQ(hash_of(INTPTR_MAX), UINT32_MAX);
  hash_ht_t ht = hash_int_create(1, 4);
  ask(hash_int_enter, ht, 8);
  EXPECT_EQ(ask(hash_int_enter, ht, 0x400000008).found, 0);
  hash_delete_ht(&ht);
}
#endif

TEST(HashInt, BucketIsTheRestOfTheUnsignedHash) {
  hash_ht_t ht = hash_int_create(7, 4);
  ask(hash_int_enter, ht, -1);
  ASSERT_NE(ht->bkts[3], nullptr);  // 4294967295 = 7 * 613566756 + 3
  EXPECT_EQ(ht->bkts[3]->key.word, -1);
  hash_delete_ht(&ht);
}

TEST(HashInt, KeysOfOneHashShareAChainNewestFirst) {
  hash_ht_t ht = hash_int_create(100, 4);
  for (intptr_t key : {8, 9, 10, 11}) EXPECT_EQ(ask(hash_int_enter, ht, key).found, 0);
  ask(hash_int_free, ht, 10);
  std::vector<intptr_t> keys;
  for (const hash_cell_t *cell = ht->bkts[2]; cell != nullptr; cell = cell->next) {
    keys.push_back(cell->key.word);
  }
  EXPECT_THAT(keys, ElementsAre(11, 9, 8));
  hash_delete_ht(&ht);
}

std::vector<std::pair<intptr_t, intptr_t>> compared;

int same_tens(const void *stored, const void *key) {
  const intptr_t one = reinterpret_cast<intptr_t>(stored);
  const intptr_t other = reinterpret_cast<intptr_t>(key);
  compared.emplace_back(one, other);
  return one / 10 == other / 10 ? -1 : 0;
}

TEST(HashInt, KeepsComparingEveryCellWithAFunctionOfTheUsers) {
  hash_ht_t ht = hash_create_ht(1, 4, HASH_KEY_INT, 1, 0, nullptr, same_tens);
  ask(hash_int_enter, ht, 10);
  ask(hash_int_enter, ht, 20);
  ask(hash_int_enter, ht, 30);
  compared.clear();
  EXPECT_EQ(ask(hash_int_lookup, ht, 15).found, 1);  // of another hash than 10
  EXPECT_THAT(compared, ElementsAre(Pair(30, 15), Pair(20, 15), Pair(10, 15)));
  hash_delete_ht(&ht);
}

uint32_t last_digit(const void *key) {
  return static_cast<uint32_t>(reinterpret_cast<intptr_t>(key) % 10);
}

TEST(HashInt, HashFunctionOfTheUsersGetsTheWord) {
  hash_ht_t ht = hash_create_ht(7, 4, HASH_KEY_INT, 1, 0, last_digit, nullptr);
  ask(hash_int_enter, ht, 45);
  ASSERT_NE(ht->bkts[5], nullptr);
  EXPECT_EQ(ht->bkts[5]->hval, 5u);
  EXPECT_EQ(ask(hash_int_lookup, ht, 45).found, 1);
  EXPECT_EQ(ask(hash_int_lookup, ht, 55).found, 0);
  hash_delete_ht(&ht);
}

}  // namespace

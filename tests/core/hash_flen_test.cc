#include <gmock/gmock.h>
#include <gtest/gtest.h>

#include <cerrno>
#include <cstdint>
#include <cstdlib>
#include <cstring>
#include <random>
#include <string>

#include "core/hash_internal.h"
#include "core/hash_support.h"
#include "hash.h"
#include "support/faults.h"

using hash_test::below;
using hash_test::in_child;
using hash_test::kHashError;
using hash_test::kNoMemory;
using hash_test::model_hash;
using ks_test::fail_call;
using ks_test::Outcome;

namespace {

struct Answer {
  int found;
  const void *key;
  uint32_t *data;
};

using Routine = int (*)(hash_ht_t, const void *, const void **, void **);

// Both outputs are set to something else before.
Answer ask(Routine routine, hash_ht_t ht, const void *key) {
  const void *stored = &key;
  void *data = &key;
  const int found = routine(ht, key, &stored, &data);
  return {found, stored, static_cast<uint32_t *>(data)};
}

int enter(hash_ht_t ht, const void *key) { return ask(hash_flen_enter, ht, key).found; }
int look_up(hash_ht_t ht, const void *key) { return ask(hash_flen_lookup, ht, key).found; }

// The hash that a table stores with a key, from a copy of exact size.
uint32_t hash_of(const std::string &key) {
  hash_ht_t ht = hash_flen_create(1, 0, 0, static_cast<uint32_t>(key.size()));
  void *block = malloc(key.size());
  memcpy(block, key.data(), key.size());
  enter(ht, block);
  const uint32_t hash = ht->bkts[0]->hval;
  hash_delete_ht(&ht);
  free(block);
  return hash;
}

TEST(HashFlen, EveryByteCounts) {
  hash_ht_t ht = hash_flen_create(4, 4, 1, 3);
  const Answer entered = ask(hash_flen_enter, ht, "a\0b");
  EXPECT_EQ(entered.found, 0);
  EXPECT_EQ(memcmp(entered.key, "a\0b", 3), 0);
  EXPECT_EQ(*entered.data, 0u);
  *entered.data = 5;
  for (Routine routine : {hash_flen_enter, hash_flen_lookup}) {
    const Answer found = ask(routine, ht, "a\0bc");
    EXPECT_EQ(found.found, 1);
    EXPECT_EQ(found.key, entered.key);
    EXPECT_EQ(found.data, entered.data);
  }
  for (Routine routine : {hash_flen_lookup, hash_flen_free}) {
    const Answer absent = ask(routine, ht, "a\0c");
    EXPECT_EQ(absent.found, 0);
    EXPECT_EQ(absent.key, nullptr);
    EXPECT_EQ(absent.data, nullptr);
  }
  hash_delete_ht(&ht);
}

TEST(HashFlen, CopyInAFreedEntryIsUsedAgain) {
  hash_ht_t ht = hash_flen_create(4, 4, 1, 4);
  char key[] = {'a', 'b', 'c', 'd'};
  const Answer entered = ask(hash_flen_enter, ht, key);
  EXPECT_NE(entered.key, static_cast<void *>(key));
  *entered.data = 5;
  key[0] = 'x';
  EXPECT_EQ(look_up(ht, "abcd"), 1);

  const Answer freed = ask(hash_flen_free, ht, "abcd");
  EXPECT_EQ(freed.found, 1);
  EXPECT_EQ(memcmp(freed.key, "abcd", 4), 0);
  EXPECT_EQ(*freed.data, 5u);
  EXPECT_EQ(look_up(ht, "abcd"), 0);

  const Answer again = ask(hash_flen_enter, ht, "wxyz");
  EXPECT_EQ(again.found, 0);
  EXPECT_EQ(again.key, entered.key);
  EXPECT_EQ(memcmp(again.key, "wxyz", 4), 0);
  EXPECT_EQ(*again.data, 5u);
  hash_delete_ht(&ht);
}

TEST(HashFlen, UncopiedKeyIsTheCallers) {
  hash_ht_t ht = hash_flen_create(4, 4, 0, 2);
  const char key[] = "ab";
  const char same[] = "ab";
  EXPECT_EQ(ask(hash_flen_enter, ht, key).key, key);
  EXPECT_EQ(ask(hash_flen_enter, ht, same).key, key);
  ask(hash_flen_free, ht, key);
  EXPECT_EQ(ask(hash_flen_enter, ht, same).key, same);
  hash_delete_ht(&ht);
}

TEST(HashFlen, KeysWithoutBytesAreAllEqual) {
  for (int copyk : {0, 1}) {
    hash_ht_t ht = hash_flen_create(4, 4, copyk, 0);
    EXPECT_EQ(enter(ht, "a"), 0);
    EXPECT_EQ(ht->bkts[0]->hval, 0u);
    EXPECT_EQ(enter(ht, "b"), 1);
    EXPECT_EQ(ask(hash_flen_free, ht, "c").found, 1);
    EXPECT_EQ(enter(ht, "d"), 0);
    hash_delete_ht(&ht);
  }
}

TEST(HashFlen, KeyWithoutBytesMayBeNull) {
  const Outcome outcome = in_child([] {
    hash_ht_t ht = hash_flen_create(4, 4, 1, 0);
    enter(ht, "a");
    printf("%d", enter(ht, nullptr));
  });
  EXPECT_EQ(outcome.out, "1");
  EXPECT_EQ(outcome.err, kHashError);
}

TEST(HashFlen, NullKeyIsReportedAndAKeyOfItsOwn) {
  for (int copyk : {0, 1}) {
    const Outcome outcome = in_child([copyk] {
      hash_ht_t ht = hash_flen_create(1, 4, copyk, 2);
      enter(ht, "\0\0");
      printf("%d", look_up(ht, nullptr));
      printf("%d", enter(ht, nullptr));
      const Answer again = ask(hash_flen_enter, ht, nullptr);
      printf("%d%d", again.found, again.key == nullptr);
      printf("%d", ask(hash_flen_free, ht, nullptr).found);
      printf("%d", look_up(ht, "\0\0"));
      printf("%d\n", enter(ht, "ab"));
    });
    EXPECT_EQ(outcome.end(), "exit 0");
    EXPECT_EQ(outcome.out, "0011110\n");
    EXPECT_EQ(outcome.err, kHashError + kHashError + kHashError + kHashError);
  }
}

TEST(HashFlen, KeyThatCannotBeCopiedIsNotEntered) {
  const Outcome outcome = in_child([] {
    hash_ht_t ht = hash_flen_create(1, 4, 1, 200000);
    hash_set_order(ht);
    const std::string one(200000, 'x');
    const std::string other(200000, 'y');
    enter(ht, one.data());
    fail_call("malloc", 0, ENOMEM);
    const Answer refused = ask(hash_flen_enter, ht, other.data());
    printf("%d%d%d", refused.found, refused.key == nullptr, refused.data == nullptr);
    printf("%d%d%u\n", look_up(ht, other.data()), look_up(ht, one.data()), ht->cells);
    printf("%d", enter(ht, other.data()));
    printf("%d\n", look_up(ht, other.data()));
  });
  EXPECT_EQ(outcome.end(), "exit 0");
  EXPECT_EQ(outcome.out, "011011\n01\n");
  EXPECT_EQ(outcome.err, kNoMemory);
}

TEST(HashFlenHash, IsWorkedOutFromUnsignedBytes) {
  EXPECT_EQ(hash_of(""), 0u);
  EXPECT_EQ(hash_of("a"), 97u);
  EXPECT_EQ(hash_of("ab"), 12611u);                       // 97 + (12416 ^ 98)
  EXPECT_EQ(hash_of("\xFF"), 255u);                       // 0 + (0 ^ 255)
  EXPECT_EQ(hash_of("a\x80"), 12385u);                    // 97 + (0x3080 ^ 0x80) = 97 + 12288
  EXPECT_EQ(hash_of(std::string("\0\0a\0", 4)), 12513u);  // 97 + 97 * 128
}

TEST(HashFlenHash, EqualsTheModelOverAnyBytes) {
  std::mt19937 random(22);
  for (uint32_t bytes : {128u, 130u, 256u}) {
    for (int i = 0; i < 3000; ++i) {
      std::string key(below(41, random), '\0');
      for (char &byte : key) byte = static_cast<char>(below(bytes, random));
      ASSERT_EQ(hash_of(key), model_hash(key, false)) << testing::PrintToString(key);
    }
  }
}

// Keys whose first byte alone says what they are.
uint32_t first_byte(const void *key) { return *static_cast<const unsigned char *>(key); }

int comparisons = 0;

int same_first_byte(const void *stored, const void *key) {
  ++comparisons;
  return first_byte(stored) == first_byte(key) ? 2 : 0;
}

TEST(HashFlenWithFns, FunctionsDecide) {
  hash_ht_t ht = hash_flen_create_with_fns(7, 4, 1, 2, first_byte, same_first_byte);
  enter(ht,
        "\x09"
        "a");
  ASSERT_NE(ht->bkts[2], nullptr);
  EXPECT_EQ(ht->bkts[2]->hval, 9u);
  const Answer found = ask(hash_flen_lookup, ht,
                           "\x09"
                           "b");
  EXPECT_EQ(found.found, 1);
  EXPECT_EQ(memcmp(found.key,
                   "\x09"
                   "a",
                   2),
            0);
  hash_delete_ht(&ht);
}

TEST(HashFlenWithFns, ComparisonIsOnlyMadeOnAFullMatchOfTheHash) {
  hash_ht_t ht = hash_flen_create_with_fns(1, 4, 1, 2, first_byte, same_first_byte);
  for (const char *key : {"ax", "bx", "cx"}) enter(ht, key);
  comparisons = 0;
  EXPECT_EQ(look_up(ht, "dx"), 0);
  EXPECT_EQ(comparisons, 0);
  EXPECT_EQ(look_up(ht, "ay"), 1);
  EXPECT_EQ(comparisons, 1);
  hash_delete_ht(&ht);
}

TEST(HashFlenWithFns, EitherOneMayBeBuiltIn) {
  hash_ht_t ht = hash_flen_create_with_fns(1, 4, 1, 2, first_byte, nullptr);
  enter(ht, "ax");
  EXPECT_EQ(look_up(ht, "ay"), 0);
  EXPECT_EQ(look_up(ht, "ax"), 1);
  hash_delete_ht(&ht);

  ht = hash_flen_create_with_fns(1, 4, 1, 2, nullptr, same_first_byte);
  enter(ht, "ax");
  EXPECT_EQ(ht->bkts[0]->hval, 12633u);  // 97 + (12416 ^ 120)
  EXPECT_EQ(look_up(ht, "ay"), 0);
  EXPECT_EQ(look_up(ht, "ax"), 1);
  hash_delete_ht(&ht);
}

}  // namespace

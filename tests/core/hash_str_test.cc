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
#include "list.h"
#include "support/faults.h"
#include "support/locale.h"

using hash_test::below;
using hash_test::in_child;
using hash_test::kHashError;
using hash_test::kNoMemory;
using hash_test::model_hash;
using ks_test::fail_call;
using ks_test::Outcome;

namespace {

const std::string kLeak =
    "noname: Warning: hash_str_free on a hash table with copied keys. Memory leak.\n";

struct Answer {
  int found;
  const char *key;
  uint32_t *data;
};

using Routine = int (*)(hash_ht_t, const char *, const char **, void **);

// Both outputs are set to something else before.
Answer ask(Routine routine, hash_ht_t ht, const char *key) {
  const char *stored = "before";
  void *data = &key;
  const int found = routine(ht, key, &stored, &data);
  return {found, stored, static_cast<uint32_t *>(data)};
}

int enter(hash_ht_t ht, const char *key) { return ask(hash_str_enter, ht, key).found; }
int look_up(hash_ht_t ht, const char *key) { return ask(hash_str_lookup, ht, key).found; }

// The hash that a table stores with a key; from a copy of exact size, so that the address sanitizer
// sees any byte too far.
uint32_t hash_of(const std::string &key, bool ignore_spaces = false) {
  hash_ht_t ht = hash_str_create(1, 0, 0);
  if (ignore_spaces) hash_str_ignore_spaces(ht);
  char *text = strdup(key.c_str());
  enter(ht, text);
  const uint32_t hash = ht->bkts[0]->hval;
  hash_delete_ht(&ht);
  free(text);
  return hash;
}

std::string random_text(std::mt19937 &random, uint32_t bytes) {
  const uint32_t length = below(41, random);
  std::string text;
  while (text.size() < length) text += static_cast<char>(1 + below(bytes, random));
  return text;
}

TEST(HashStr, NewKeyGivesZeroAndDataToFill) {
  hash_ht_t ht = hash_str_create(4, 4, 1);
  const Answer entered = ask(hash_str_enter, ht, "abc");
  EXPECT_EQ(entered.found, 0);
  EXPECT_STREQ(entered.key, "abc");
  EXPECT_EQ(*entered.data, 0u);
  *entered.data = 5;
  for (Routine routine : {hash_str_enter, hash_str_lookup}) {
    const Answer found = ask(routine, ht, "abc");
    EXPECT_EQ(found.found, 1);
    EXPECT_EQ(found.key, entered.key);
    EXPECT_EQ(found.data, entered.data);
  }
  EXPECT_EQ(*entered.data, 5u);
  hash_delete_ht(&ht);
}

TEST(HashStr, AbsentKeyGivesZeroAndNull) {
  hash_ht_t ht = hash_str_create(4, 4, 0);
  enter(ht, "abc");
  for (Routine routine : {hash_str_lookup, hash_str_free}) {
    for (const char *key : {"", "ab", "abcd", "ABC"}) {
      const Answer absent = ask(routine, ht, key);
      EXPECT_EQ(absent.found, 0);
      EXPECT_EQ(absent.key, nullptr);
      EXPECT_EQ(absent.data, nullptr);
    }
  }
  hash_delete_ht(&ht);
}

TEST(HashStr, CopiedKeyIsTheTables) {
  hash_ht_t ht = hash_str_create(4, 4, 1);
  char key[] = "abc";
  const Answer entered = ask(hash_str_enter, ht, key);
  EXPECT_NE(entered.key, key);
  key[0] = 'x';
  EXPECT_EQ(look_up(ht, "abc"), 1);
  EXPECT_EQ(look_up(ht, "xbc"), 0);
  hash_delete_ht(&ht);
}

TEST(HashStr, UncopiedKeyIsTheCallers) {
  hash_ht_t ht = hash_str_create(4, 4, 0);
  const char key[] = "abc";
  const char same[] = "abc";
  EXPECT_EQ(ask(hash_str_enter, ht, key).key, key);
  EXPECT_EQ(ask(hash_str_enter, ht, same).key, key);
  EXPECT_EQ(ask(hash_str_free, ht, same).key, key);
  EXPECT_EQ(ask(hash_str_enter, ht, same).key, same);
  hash_delete_ht(&ht);
}

TEST(HashStr, KeepsTheDataOfAFreedEntryInTheNextOne) {
  hash_ht_t ht = hash_str_create(4, 4, 0);
  *ask(hash_str_enter, ht, "abc").data = 5;
  const Answer freed = ask(hash_str_free, ht, "abc");
  EXPECT_EQ(freed.found, 1);
  EXPECT_STREQ(freed.key, "abc");
  EXPECT_EQ(*freed.data, 5u);
  EXPECT_EQ(look_up(ht, "abc"), 0);
  const Answer entered = ask(hash_str_enter, ht, "def");
  EXPECT_EQ(entered.found, 0);
  EXPECT_EQ(*entered.data, 5u);
  hash_delete_ht(&ht);
}

TEST(HashStr, KeepsWarningOfEachFreeOfACopiedKey) {
  const Outcome outcome = in_child([] {
    hash_ht_t ht = hash_str_create(4, 4, 1);
    const char *first = ask(hash_str_enter, ht, "abc").key;
    printf("%d", ask(hash_str_free, ht, "abc").found);
    printf("%d", ask(hash_str_free, ht, "abc").found);
    const char *second = ask(hash_str_enter, ht, "abc").key;
    printf("%d\n", first != second && strcmp(first, second) == 0);
  });
  EXPECT_EQ(outcome.out, "101\n");
  EXPECT_EQ(outcome.err, kLeak + kLeak);
}

TEST(HashStr, FreeOfAnUncopiedKeyWarnsOfNothing) {
  const Outcome outcome = in_child([] {
    hash_ht_t ht = hash_str_create(4, 4, 0);
    enter(ht, "abc");
    printf("%d\n", ask(hash_str_free, ht, "abc").found);
  });
  EXPECT_EQ(outcome.out, "1\n");
  EXPECT_EQ(outcome.err, "");
}

TEST(HashStr, NullKeyIsReportedAndAKeyOfItsOwn) {
  for (int copyk : {0, 1}) {
    const Outcome outcome = in_child([copyk] {
      hash_ht_t ht = hash_str_create(1, 4, copyk);
      enter(ht, "");
      printf("%d", ask(hash_str_lookup, ht, nullptr).found);
      const Answer entered = ask(hash_str_enter, ht, nullptr);
      printf("%d%d%d", entered.found, entered.key == nullptr, entered.data != nullptr);
      printf("%d", ask(hash_str_enter, ht, nullptr).found);
      printf("%d", ask(hash_str_free, ht, nullptr).found);
      printf("%d\n", look_up(ht, ""));
    });
    EXPECT_EQ(outcome.end(), "exit 0");
    EXPECT_EQ(outcome.out, "0011111\n");
    const std::string three = kHashError + kHashError + kHashError;
    EXPECT_EQ(outcome.err, three + (copyk != 0 ? kLeak : std::string()) + kHashError);
  }
}

TEST(HashStr, KeyThatCannotBeCopiedIsNotEntered) {
  const Outcome outcome = in_child([] {
    hash_ht_t ht = hash_str_create(1, 4, 1);
    hash_set_order(ht);
    enter(ht, "first");
    const std::string large(200000, 'x');
    fail_call("malloc", 0, ENOMEM);
    const Answer refused = ask(hash_str_enter, ht, large.c_str());
    printf("%d%d%d", refused.found, refused.key == nullptr, refused.data == nullptr);
    printf("%d%d%u\n", look_up(ht, large.c_str()), look_up(ht, "first"), ht->cells);
    printf("%d", enter(ht, large.c_str()));
    printf("%d\n", look_up(ht, large.c_str()));
  });
  EXPECT_EQ(outcome.end(), "exit 0");
  EXPECT_EQ(outcome.out, "011011\n01\n");
  EXPECT_EQ(outcome.err, kNoMemory);
}

// With two buckets instead of one, all odd hashes are again in one chain, in which the new cell now
// comes last.
TEST(HashStr, KeyThatCannotBeCopiedIsTakenOutOfAGrownTable) {
  const Outcome outcome = in_child([] {
    hash_ht_t ht = hash_str_create(1, 4, 0);
    enter(ht, "a");
    enter(ht, "c");
    enter(ht, "e");
    hash_set_dynamic(ht, 1);
    ht->copyk = 1;
    const std::string large(200001, '\1');
    EXPECT_EQ(model_hash(large, true) % 2, 1u);
    // The buckets come first, then the chunk for the key.
    fail_call("malloc", 1, ENOMEM);
    printf("%d", enter(ht, large.c_str()));
    for (const char *key : {"a", "c", "e", large.c_str()}) printf("%d", look_up(ht, key));
    printf(" %u %u\n", ht->bucket_count, ht->cells);
  });
  EXPECT_EQ(outcome.end(), "exit 0");
  EXPECT_EQ(outcome.out, "01110 2 3\n");
  EXPECT_EQ(outcome.err, kNoMemory);
}

TEST(HashStrHash, IsWorkedOutFromSignedBytes) {
  EXPECT_EQ(hash_of(""), 0u);
  EXPECT_EQ(hash_of("a"), 97u);
  EXPECT_EQ(hash_of("ab"), 12611u);          // 97 + (12416 ^ 98)
  EXPECT_EQ(hash_of("abc"), 1626918u);       // 12611 + (1614208 ^ 99)
  EXPECT_EQ(hash_of("\xFF"), 0xFFFFFFFFu);   // 0 + (0 ^ -1)
  EXPECT_EQ(hash_of("a\x80"), 0xFFFFCF61u);  // 0x61 + (0x3080 ^ 0xFFFFFF80)
}

TEST(HashStrHash, EqualsTheModelOverAnyBytes) {
  std::mt19937 random(20);
  for (uint32_t bytes : {127u, 130u, 255u}) {
    for (int i = 0; i < 3000; ++i) {
      const std::string key = random_text(random, bytes);
      ASSERT_EQ(hash_of(key), model_hash(key, true)) << testing::PrintToString(key);
    }
  }
}

TEST(HashStrIgnoreSpaces, HashIsThatOfTheOtherBytesUnsigned) {
  EXPECT_EQ(hash_of("", true), 0u);
  EXPECT_EQ(hash_of(" \t\n\v\f\r", true), 0u);
  EXPECT_EQ(hash_of(" a b\n", true), 12611u);
  EXPECT_EQ(hash_of("\xFF", true), 255u);
  EXPECT_EQ(hash_of("\xA0", true), 160u);
  std::mt19937 random(21);
  for (int i = 0; i < 3000; ++i) {
    const std::string key = random_text(random, 255);
    std::string rest;
    for (const char byte : key) {
      if (strchr(" \t\n\v\f\r", byte) == nullptr) rest += byte;
    }
    ASSERT_EQ(hash_of(key, true), model_hash(rest, false)) << testing::PrintToString(key);
  }
}

TEST(HashStrIgnoreSpaces, KeysThatDifferInWhiteSpaceAreOne) {
  hash_ht_t ht = hash_str_create(4, 4, 1);
  hash_str_ignore_spaces(ht);
  EXPECT_EQ(enter(ht, "a b"), 0);
  for (const char *key : {"a b", "ab", " ab", "ab\t", "a  \v\f b", "\r\na\tb "}) {
    const Answer found = ask(hash_str_enter, ht, key);
    EXPECT_EQ(found.found, 1) << key;
    EXPECT_STREQ(found.key, "a b");
  }
  for (const char *key : {"", " ", "a", "b", "abb", "a.b",
                          "a\xA0"
                          "b",
                          "AB"}) {
    EXPECT_EQ(look_up(ht, key), 0) << key;
  }
  EXPECT_EQ(enter(ht, " "), 0);
  EXPECT_EQ(look_up(ht, ""), 1);
  hash_delete_ht(&ht);
}

// All keys in one chain under one hash, so that the comparison alone decides.
TEST(HashStrIgnoreSpaces, ComparisonNeedsNoHash) {
  hash_ht_t ht = hash_str_create(1, 4, 0);
  hash_str_ignore_spaces(ht);
  ht->hash_fn = [](const void *) { return 1u; };
  EXPECT_EQ(enter(ht, "ab c"), 0);
  EXPECT_EQ(look_up(ht, "a bc"), 1);
  for (const char *key : {"", "a", "ab", "ab d", "ab cd", "b"}) EXPECT_EQ(look_up(ht, key), 0);
  hash_delete_ht(&ht);
}

TEST(HashStrIgnoreSpaces, WhiteSpaceIsThatOfTheCLocale) {
  ks_test::use_locale("ja_JP.SJIS");
  hash_ht_t ht = hash_str_create(1, 4, 0);
  hash_str_ignore_spaces(ht);
  enter(ht,
        "a\x81\x40"
        "b");  // a wide blank of the locale
  EXPECT_EQ(look_up(ht, "ab"), 0);
  EXPECT_EQ(look_up(ht, "a\x81\x40 b"), 1);
  hash_delete_ht(&ht);
}

TEST(HashStrIgnoreSpaces, TakesANullKey) {
  const Outcome outcome = in_child([] {
    hash_ht_t ht = hash_str_create(1, 4, 0);
    hash_str_ignore_spaces(ht);
    enter(ht, " ");
    printf("%d", enter(ht, nullptr));
    printf("%d", enter(ht, nullptr));
    printf("%d\n", look_up(ht, ""));
  });
  EXPECT_EQ(outcome.out, "011\n");
  EXPECT_EQ(outcome.err, kHashError + kHashError);
}

int asked = 0;

TEST(HashStr, ComparisonIsOnlyMadeOnAFullMatchOfTheHash) {
  hash_ht_t ht = hash_create_ht(
      1, 4, HASH_KEY_STR, 0, 0,
      [](const void *key) { return static_cast<uint32_t>(strlen(static_cast<const char *>(key))); },
      [](const void *, const void *) { return ++asked < 0 ? 1 : 0; });
  enter(ht, "a");
  enter(ht, "bb");
  enter(ht, "cc");
  asked = 0;
  EXPECT_EQ(look_up(ht, "dd"), 0);
  EXPECT_EQ(asked, 2);
  EXPECT_EQ(look_up(ht, "ddd"), 0);
  EXPECT_EQ(asked, 2);
  hash_delete_ht(&ht);
}

int enter_texts(hash_ht_t ht, const std::vector<const char *> &texts) {
  stg_area_t area = stg_create_area(1000);
  list_t *list = list_create(area, 0);
  for (const char *text : texts) list_append(list, const_cast<char *>(text));
  const int result = hash_str_enter_list(ht, list);
  stg_delete_area(&area);
  return result;
}

TEST(HashStrEnterList, KeepsTellingThatAllWereThereBefore) {
  hash_ht_t ht = hash_str_create(4, 4, 1);
  EXPECT_EQ(enter_texts(ht, {}), 1);
  EXPECT_EQ(enter_texts(ht, {"a", "b"}), 0);
  EXPECT_EQ(enter_texts(ht, {"b", "a", "b"}), 1);
  EXPECT_EQ(enter_texts(ht, {"c", "a"}), 0);
  EXPECT_EQ(enter_texts(ht, {"a", "d"}), 0);
  for (const char *key : {"a", "b", "c", "d"}) EXPECT_EQ(look_up(ht, key), 1) << key;
  EXPECT_EQ(ht->cells, 4u);
  hash_delete_ht(&ht);
}

TEST(HashStrEnterList, LeavesTheDataOfWhatWasThereAlone) {
  hash_ht_t ht = hash_str_create(4, 4, 1);
  *ask(hash_str_enter, ht, "a").data = 5;
  enter_texts(ht, {"a", "b"});
  EXPECT_EQ(*ask(hash_str_lookup, ht, "a").data, 5u);
  EXPECT_EQ(*ask(hash_str_lookup, ht, "b").data, 0u);
  hash_delete_ht(&ht);
}

}  // namespace

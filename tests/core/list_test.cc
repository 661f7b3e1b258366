#include "list.h"

#include <gmock/gmock.h>
#include <gtest/gtest.h>

#include <cerrno>
#include <csignal>
#include <cstring>
#include <functional>
#include <string>
#include <vector>

#include "pfm.h"
#include "support/child.h"
#include "support/faults.h"
#include "support/landing.h"
#include "support/signals.h"

using ks_test::fail_call;
using ks_test::in_child;
using ks_test::land;
using ks_test::Landing;
using ks_test::Outcome;
using testing::ElementsAre;
using testing::MatchesRegex;

namespace {

using Words = std::vector<intptr_t>;

void *word(intptr_t value) { return reinterpret_cast<void *>(value); }
intptr_t value(void *word) { return reinterpret_cast<intptr_t>(word); }

Words words(const list_t *list) {
  Words found;
  void *data;
  for (list_element_t *at = nullptr; (at = list_next(list, at, &data)) != nullptr;) {
    found.push_back(value(data));
  }
  EXPECT_EQ(data, nullptr);
  return found;
}

intptr_t last_word(const list_t *list) {
  void *data = word(-1);
  list_final(list, &data);
  return value(data);
}

// A list on the heap that goes away with the test, and the elements that were made with it.
class Lists : public testing::Test {
 protected:
  list_t *list = list_create(STG_AREA_HEAP, 0);

  std::vector<list_element_t *> append(const Words &data) {
    std::vector<list_element_t *> elements;
    for (intptr_t each : data) elements.push_back(list_append(list, word(each)));
    return elements;
  }

  void TearDown() override { list_destroy(list); }
};

TEST_F(Lists, StartEmpty) {
  void *data = word(7);
  EXPECT_EQ(list_is_empty(list), 1);
  EXPECT_EQ(list_length(list), 0u);
  EXPECT_EQ(list_next(list, nullptr, &data), nullptr);
  EXPECT_EQ(data, nullptr);
  data = word(7);
  EXPECT_EQ(list_final(list, &data), nullptr);
  EXPECT_EQ(data, nullptr);
}

TEST_F(Lists, NullIsEmpty) {
  EXPECT_EQ(list_is_empty(nullptr), 1);
  EXPECT_EQ(list_length(nullptr), 0u);
}

TEST_F(Lists, AppendAddsAtTheEnd) {
  const auto elements = append({1, 2, 3});
  EXPECT_THAT(words(list), ElementsAre(1, 2, 3));
  EXPECT_EQ(list_is_empty(list), 0);
  EXPECT_EQ(list_length(list), 3u);
  void *data;
  EXPECT_EQ(list_final(list, &data), elements[2]);
  EXPECT_EQ(value(data), 3);
  EXPECT_EQ(list_next(list, elements[0], &data), elements[1]);
  EXPECT_EQ(value(data), 2);
}

TEST_F(Lists, NullIsADataWordLikeAnyOther) {
  append({0, 5});
  EXPECT_THAT(words(list), ElementsAre(0, 5));
}

TEST_F(Lists, InsertAddsBehindTheElement) {
  const auto elements = append({1, 2, 3});
  list_element_t *added = list_insert(list, elements[1], word(9));
  EXPECT_EQ(value(list_get_data(list, added)), 9);
  EXPECT_THAT(words(list), ElementsAre(1, 2, 9, 3));
  EXPECT_EQ(last_word(list), 3);
}

TEST_F(Lists, InsertBehindNullAddsAtTheFront) {
  append({1, 2});
  list_insert(list, nullptr, word(9));
  EXPECT_THAT(words(list), ElementsAre(9, 1, 2));
  EXPECT_EQ(last_word(list), 2);
}

TEST_F(Lists, InsertBehindTheLastElementUpdatesTheLast) {
  const auto elements = append({1, 2});
  list_insert(list, elements[1], word(9));
  EXPECT_EQ(last_word(list), 9);
  append({4});
  EXPECT_THAT(words(list), ElementsAre(1, 2, 9, 4));
}

TEST_F(Lists, InsertOnAnEmptyListUpdatesTheLast) {
  list_insert(list, nullptr, word(9));
  EXPECT_EQ(last_word(list), 9);
  append({4});
  EXPECT_THAT(words(list), ElementsAre(9, 4));
}

TEST_F(Lists, RemoveTakesOffAnyElement) {
  struct {
    size_t index;
    Words left;
  } const cases[] = {{0, {2, 3, 7}}, {1, {1, 3, 7}}, {2, {1, 2, 7}}};
  for (const auto &each : cases) {
    const auto elements = append({1, 2, 3});
    list_remove(list, elements[each.index]);
    append({7});  // lands behind the last
    EXPECT_EQ(words(list), each.left);
    EXPECT_EQ(last_word(list), 7);
    void *data;
    while (list_element_t *first = list_next(list, nullptr, &data)) list_remove(list, first);
  }
}

TEST_F(Lists, RemoveOfTheOnlyElementLeavesAnEmptyList) {
  const auto elements = append({1});
  list_remove(list, elements[0]);
  EXPECT_EQ(list_is_empty(list), 1);
  void *data;
  EXPECT_EQ(list_next(list, nullptr, &data), nullptr);
  EXPECT_EQ(list_final(list, &data), nullptr);
  append({2});
  EXPECT_THAT(words(list), ElementsAre(2));
}

TEST_F(Lists, AnElementMayGoOnceTheOneBehindItIsKnown) {
  append({1, 2, 3, 4});
  void *data;
  list_element_t *at = list_next(list, nullptr, &data);
  while (at != nullptr) {
    list_element_t *element = at;
    const bool even = value(data) % 2 == 0;
    at = list_next(list, element, &data);
    if (even) list_remove(list, element);
  }
  EXPECT_THAT(words(list), ElementsAre(1, 3));
}

TEST_F(Lists, SetDataReplacesTheWord) {
  const auto elements = append({1, 2});
  list_set_data(list, elements[0], word(8));
  EXPECT_EQ(value(list_get_data(list, elements[0])), 8);
  EXPECT_THAT(words(list), ElementsAre(8, 2));
}

TEST_F(Lists, ConcatAppendsCopiesAndLeavesTheSource) {
  append({1, 2});
  list_t *source = list_create(STG_AREA_HEAP, 0);
  list_append(source, word(3));
  list_append(source, word(4));
  list_concat(list, source);
  EXPECT_THAT(words(list), ElementsAre(1, 2, 3, 4));
  EXPECT_THAT(words(source), ElementsAre(3, 4));
  list_destroy(source);
  EXPECT_THAT(words(list), ElementsAre(1, 2, 3, 4));
  EXPECT_EQ(last_word(list), 4);
}

TEST_F(Lists, ConcatOfAnEmptyListChangesNothing) {
  append({1});
  list_t *source = list_create(STG_AREA_HEAP, 0);
  list_concat(list, source);
  EXPECT_THAT(words(list), ElementsAre(1));
  list_concat(source, list);
  EXPECT_THAT(words(source), ElementsAre(1));
  list_destroy(source);
}

TEST_F(Lists, ConcatOfAListToItselfDoublesIt) {
  append({1, 2});
  list_concat(list, list);
  EXPECT_THAT(words(list), ElementsAre(1, 2, 1, 2));
}

TEST(ListAttributes, AreKeptForEachElement) {
  list_t *list = list_create(STG_AREA_HEAP, 5);
  list_element_t *one = list_append(list, nullptr);
  list_element_t *other = list_append(list, nullptr);
  list_set_attrs(list, one, 5, "abcde");
  list_set_attrs(list, other, 5, "vwxyz");
  list_set_attrs(list, other, 2, "VW");
  uint32_t size = 0;
  EXPECT_EQ(std::string(static_cast<char *>(list_get_attrs(list, one, &size)), 5), "abcde");
  EXPECT_EQ(size, 5u);
  EXPECT_EQ(std::string(static_cast<char *>(list_get_attrs(list, other, &size)), 5), "VWxyz");
  list_destroy(list);
}

TEST(ListAttributes, NoneAreAllRight) {
  list_t *list = list_create(STG_AREA_HEAP, 0);
  list_element_t *element = list_append(list, nullptr);
  list_set_attrs(list, element, 0, nullptr);
  uint32_t size = 7;
  EXPECT_NE(list_get_attrs(list, element, &size), nullptr);
  EXPECT_EQ(size, 0u);
  list_destroy(list);
}

TEST(ListAttributes, AreZeroInAZeroedArea) {
  stg_area_t area = stg_create_area(1000);
  stg_set_zero(area);
  list_t *list = list_create(area, 4);
  uint32_t size;
  EXPECT_EQ(memcmp(list_get_attrs(list, list_append(list, nullptr), &size), "\0\0\0\0", 4), 0);
  stg_delete_area(&area);
}

// Three words that the area fills: next, data word, attributes.
TEST(ListAttributes, StandBehindNextAndData) {
  stg_area_t area = stg_create_area(1000);
  list_t *list = list_create(area, sizeof(void *));
  list_element_t *first = list_append(list, word(0x1234));
  list_element_t *second = list_append(list, nullptr);
  void *fields[2];
  memcpy(fields, first, sizeof fields);
  EXPECT_EQ(fields[0], second);
  EXPECT_EQ(value(fields[1]), 0x1234);
  uint32_t size;
  EXPECT_EQ(list_get_attrs(list, first, &size), reinterpret_cast<char *>(first) + sizeof fields);
  stg_delete_area(&area);
}

TEST(ListAttributes, ConcatCopiesWhatBothListsHave) {
  list_t *longer = list_create(STG_AREA_HEAP, 6);
  list_t *shorter = list_create(STG_AREA_HEAP, 3);
  list_set_attrs(longer, list_append(longer, nullptr), 6, "abcdef");
  list_concat(shorter, longer);
  void *data;
  uint32_t size;
  list_element_t *copy = list_final(shorter, &data);
  EXPECT_EQ(std::string(static_cast<char *>(list_get_attrs(shorter, copy, &size)), 3), "abc");
  EXPECT_EQ(size, 3u);
  list_set_attrs(shorter, copy, 3, "xyz");
  list_concat(longer, shorter);
  copy = list_final(longer, &data);
  EXPECT_EQ(std::string(static_cast<char *>(list_get_attrs(longer, copy, &size)), 3), "xyz");
  EXPECT_EQ(size, 6u);
  list_destroy(longer);
  list_destroy(shorter);
}

TEST(ListAttributes, ConcatLeavesTheRestAsTheAreaGaveIt) {
  stg_area_t area = stg_create_area(1000);
  list_t *target = list_create(area, 8);
  list_t *source = list_create(STG_AREA_HEAP, 0);
  list_append(source, word(1));
  list_concat(target, source);
  void *data;
  uint32_t size;
  list_element_t *copy = list_final(target, &data);
  EXPECT_EQ(value(data), 1);
  // The fill of an area that does not clear.
  EXPECT_EQ(memcmp(list_get_attrs(target, copy, &size), "\xff\xff\xff\xff\xff\xff\xff\xff", 8), 0);
  list_destroy(source);
  stg_delete_area(&area);
}

TEST(ListAttributes, MoreThanTheListHasIsFatal) {
  const Outcome outcome = in_child([] {
    list_t *list = list_create(STG_AREA_HEAP, 4);
    list_set_attrs(list, list_append(list, nullptr), 5, "abcde");
  });
  EXPECT_THAT(
      outcome.err,
      MatchesRegex("noname: Error: Attempt to store 5 attribute bytes in list providing 4 "
                   "bytes\\.\n"
                   "noname: Error: \\*\\*\\*ABORT\\*\\*\\*  'src/core/list\\.cc':[0-9]+\n"));
  EXPECT_EQ(outcome.end(), "signal 6");
}

TEST(ListInAnArea, IsNotFreedByDestroyAndRemove) {
  stg_area_t area = stg_create_area(1000);
  list_t *list = list_create(area, 0);
  list_element_t *element = list_append(list, word(1));
  list_append(list, word(2));
  list_remove(list, element);
  EXPECT_EQ(value(list_get_data(list, element)), 1);
  list_destroy(list);
  EXPECT_THAT(words(list), ElementsAre(2));
  stg_delete_area(&area);
}

// What a child prints and how it ends when there is no storage for a list operation.
void expect_no_storage(const std::function<void()> &operation) {
  const Outcome outcome = in_child(operation);
  EXPECT_THAT(
      outcome.err,
      MatchesRegex("noname: Error: No more memory available\\.\n"
                   "noname: Error: Unable to allocate storage\n"
                   "noname: Error: \\*\\*\\*ABORT\\*\\*\\*  'src/core/list\\.cc':[0-9]+\n"));
  EXPECT_EQ(outcome.out, "");
  EXPECT_EQ(outcome.end(), "signal 6");
}

TEST_F(Lists, LackOfStorageIsFatal) {
  append({1});
  expect_no_storage([] {
    fail_call("malloc", 0, ENOMEM);
    list_create(STG_AREA_HEAP, 0);
  });
  expect_no_storage([this] {
    fail_call("malloc", 0, ENOMEM);
    list_append(list, nullptr);
  });
  expect_no_storage([this] {
    fail_call("malloc", 0, ENOMEM);
    list_insert(list, nullptr, nullptr);
  });
  expect_no_storage([this] {
    fail_call("malloc", 0, ENOMEM);
    list_concat(list, list);
  });
}

TEST_F(Lists, AnElementThatNoSizeCanHoldIsLackOfStorage) {
  expect_no_storage([] {
    stg_area_t area = stg_create_area(1000);
    list_append(list_create(area, UINT32_MAX), nullptr);
  });
}

// A signal that arrives in the midst of a change is delivered when the list is whole, and a fault
// that it raises loses nothing.

list_t *shared;
Words seen;

void look_at_shared(int) { seen = words(shared); }

TEST_F(Lists, ASignalRoutineFindsTheListWhole) {
  append({1, 2});
  shared = list;
  pfm_signal(SIGUSR1, look_at_shared);
  ks_test::signal_in_call("malloc", 0, SIGUSR1);
  append({3});
  EXPECT_THAT(seen, ElementsAre(1, 2, 3));
  ks_test::signal_in_call("malloc", 0, SIGUSR1);
  list_insert(list, nullptr, word(0));
  EXPECT_THAT(seen, ElementsAre(0, 1, 2, 3));
  ks_test::signal_in_call("malloc", 1, SIGUSR1);
  list_concat(list, list);
  EXPECT_THAT(seen, ElementsAre(0, 1, 2, 3, 0, 1, 2, 3));
}

TEST_F(Lists, AFaultLeavesWhenTheWorkIsDone) {
  pfm_signal(SIGUSR1, ks_test::raise_number);
  const Landing at_sigusr1 = {SIGUSR1, 1, 0};
  ks_test::signal_in_call("malloc", 0, SIGUSR1);
  EXPECT_EQ(land([&] { list_append(list, word(1)); }), at_sigusr1);
  EXPECT_THAT(words(list), ElementsAre(1));
  ks_test::signal_in_call("malloc", 0, SIGUSR1);
  EXPECT_EQ(land([&] { list_concat(list, list); }), at_sigusr1);
  EXPECT_THAT(words(list), ElementsAre(1, 1));
}

TEST_F(Lists, RemoveHoldsSignalsBack) {
  append({1, 2});
  shared = list;
  seen = {};
  pfm_signal(SIGUSR1, look_at_shared);
  pfm_inhibit();
  ks_test::send_signal(SIGUSR1);
  void *data;
  list_remove(list, list_final(list, &data));
  EXPECT_EQ(seen, Words{});
  pfm_enable();
  EXPECT_THAT(seen, ElementsAre(1));
}

}  // namespace

#include "llist.h"

#include <gmock/gmock.h>
#include <gtest/gtest.h>

#include <cstdint>
#include <utility>
#include <vector>

#include "support/assertion.h"
#include "support/child.h"

using ks_test::assertion_line;
using ks_test::in_child;
using ks_test::Outcome;
using testing::ElementsAre;
using testing::MatchesRegex;

namespace {

using Words = std::vector<intptr_t>;

void *word(intptr_t value) { return reinterpret_cast<void *>(value); }
intptr_t value(void *word) { return reinterpret_cast<intptr_t>(word); }

// The words on a list from the front, which must be those from the back as well.
Words words(const llist_d &head) {
  Words forward;
  Words backward;
  for (llist_d *at = head.next; at != nullptr && at != &head; at = at->next) {
    forward.push_back(value(at->data));
  }
  for (llist_d *at = head.prev; at != nullptr && at != &head; at = at->prev) {
    backward.push_back(value(at->data));
  }
  EXPECT_EQ(forward, Words(backward.rbegin(), backward.rend()));
  return forward;
}

bool is_off(const llist_d &element) {
  return element.next == nullptr && element.prev == nullptr && element.data == nullptr;
}

bool is_ring_of_one(const llist_d &head) { return head.next == &head && head.prev == &head; }

std::vector<std::pair<intptr_t, intptr_t>> compared;

int by_value(void *data, void *other_data) {
  compared.emplace_back(value(data), value(other_data));
  return static_cast<int>(value(data) / 10 - value(other_data) / 10);
}

TEST(LlistInsert, AllZeroHeadGetsLinkedByTheFirstElement) {
  llist_d head = {};
  llist_d element = {};
  llist_d_insert(&head, word(5), &element, LLIST_D_LAST);
  EXPECT_THAT(words(head), ElementsAre(5));
  EXPECT_EQ(llist_d_remove(&element), word(5));
  EXPECT_TRUE(is_ring_of_one(head));
  EXPECT_TRUE(is_off(element));
}

TEST(LlistInsert, LastAddsAtTheEndAndFirstAtTheFront) {
  llist_d head = {};
  llist_d elements[4] = {};
  llist_d_insert(&head, word(1), &elements[0], LLIST_D_LAST);
  llist_d_insert(&head, word(2), &elements[1], LLIST_D_LAST);
  llist_d_insert(&head, word(3), &elements[2], LLIST_D_FIRST);
  llist_d_insert(&head, word(4), &elements[3], LLIST_D_FIRST);
  EXPECT_THAT(words(head), ElementsAre(4, 3, 1, 2));
}

TEST(LlistInsert, FirstOnAnAllZeroHead) {
  llist_d head = {};
  llist_d element = {};
  llist_d_insert(&head, word(1), &element, LLIST_D_FIRST);
  EXPECT_THAT(words(head), ElementsAre(1));
}

TEST(LlistInsert, FunctionPutsItBeforeTheFirstThatIsNotLess) {
  llist_d head = {};
  llist_d elements[6] = {};
  const intptr_t data[6] = {30, 10, 50, 31, 9, 60};
  for (int i = 0; i < 6; ++i) llist_d_insert(&head, word(data[i]), &elements[i], by_value);
  // 31 counts as equal to 30, and stands before it.
  EXPECT_THAT(words(head), ElementsAre(9, 10, 31, 30, 50, 60));
}

TEST(LlistInsert, FunctionGetsTheNewWordFirst) {
  llist_d head = {};
  llist_d elements[3] = {};
  compared = {};
  llist_d_insert(&head, word(10), &elements[0], by_value);
  EXPECT_TRUE(compared.empty());
  llist_d_insert(&head, word(30), &elements[1], by_value);
  llist_d_insert(&head, word(20), &elements[2], by_value);
  EXPECT_THAT(compared, ElementsAre(std::pair(30, 10), std::pair(20, 10), std::pair(20, 30)));
}

TEST(LlistInsertBefore, AnElementAndTheHead) {
  llist_d head = {};
  llist_d elements[4] = {};
  llist_d_insert_before(&head, word(1), &elements[0], &head);
  llist_d_insert_before(&head, word(2), &elements[1], &elements[0]);
  llist_d_insert_before(&head, word(3), &elements[2], &elements[0]);
  llist_d_insert_before(&head, word(4), &elements[3], &head);
  EXPECT_THAT(words(head), ElementsAre(2, 3, 1, 4));
}

TEST(LlistInsert, StaleContentsOfAnElementDoNotMatter) {
  llist_d head = {};
  llist_d element = {&element, &head, word(9)};
  llist_d_insert(&head, word(1), &element, LLIST_D_LAST);
  EXPECT_THAT(words(head), ElementsAre(1));
}

TEST(LlistInsert, HeadHasTwoWordsOnly) {
  llist_d head = {nullptr, nullptr, word(77)};
  llist_d elements[2] = {};
  llist_d_insert(&head, word(1), &elements[0], LLIST_D_LAST);
  llist_d_insert(&head, word(2), &elements[1], by_value);
  llist_d_remove_list(&head);
  EXPECT_EQ(head.data, word(77));
}

TEST(LlistRemove, TakesOffAnyElement) {
  llist_d head = {};
  llist_d elements[3] = {};
  for (int i = 0; i < 3; ++i) llist_d_insert(&head, word(i + 1), &elements[i], LLIST_D_LAST);
  EXPECT_EQ(llist_d_remove(&elements[1]), word(2));
  EXPECT_THAT(words(head), ElementsAre(1, 3));
  EXPECT_EQ(llist_d_remove(&elements[0]), word(1));
  EXPECT_THAT(words(head), ElementsAre(3));
  EXPECT_EQ(llist_d_remove(&elements[2]), word(3));
  EXPECT_TRUE(is_ring_of_one(head));
  for (const llist_d &element : elements) EXPECT_TRUE(is_off(element));
}

TEST(LlistRemove, AnElementThatIsOnNoListIsAnAssertion) {
  llist_d off[] = {{}, {nullptr, &off[0], nullptr}, {&off[0], nullptr, nullptr}};
  for (llist_d &element : off) {
    const Outcome outcome = in_child([&] { llist_d_remove(&element); });
    EXPECT_THAT(outcome.err, MatchesRegex("noname: Error: " +
                                          assertion_line("elem->next != NULL && elem->prev != NULL",
                                                         "src/core/llist.cc")));
    EXPECT_EQ(outcome.end(), "signal 6");
  }
}

TEST(LlistRemove, TwiceIsAnAssertion) {
  const Outcome outcome = in_child([] {
    llist_d head = {};
    llist_d element = {};
    llist_d_insert(&head, nullptr, &element, LLIST_D_LAST);
    llist_d_remove(&element);
    llist_d_remove(&element);
  });
  EXPECT_EQ(outcome.end(), "signal 6");
}

TEST(LlistRemoveList, RemovesAllElements) {
  llist_d head = {};
  llist_d elements[3] = {};
  for (int i = 0; i < 3; ++i) llist_d_insert(&head, word(i + 1), &elements[i], LLIST_D_LAST);
  llist_d_remove_list(&head);
  EXPECT_TRUE(is_ring_of_one(head));
  for (const llist_d &element : elements) EXPECT_TRUE(is_off(element));
  llist_d_remove_list(&head);
  EXPECT_TRUE(is_ring_of_one(head));
}

TEST(LlistRemoveList, AllZeroHeadStaysSo) {
  llist_d head = {};
  llist_d_remove_list(&head);
  EXPECT_TRUE(is_off(head));
}

TEST(Llist, AnElementIsThreeWords) { EXPECT_EQ(sizeof(llist_d), sizeof(void *) == 4 ? 12u : 24u); }

}  // namespace

// Rows of lists, rings, stacks and sorting.
#include "list.h"

#include <algorithm>
#include <cstdint>
#include <cstring>
#include <initializer_list>
#include <vector>

#include "llist.h"
#include "pfm.h"
#include "sort.h"
#include "stack.h"
#include "stg.h"
#include "sweep/output.h"
#include "sweep/row.h"

namespace ks_test {
namespace {

constexpr uint32_t kAttributes = 16;  // bytes of each element

struct {
  stg_area_t area;
  list_t *list;
  list_t *other;
  list_element_t *element[3];  // of the list
  llist_d head;
  llist_d ring[3];
  llist_d extra;
  struct stack *stack;
  void *popped;
  size_t popped_length;
  const char *wrong;  // found when the last call was undone
} own;

void *word(intptr_t number) { return reinterpret_cast<void *>(number); }

// Lists

using Words = std::vector<intptr_t>;

// What the list holds, by a walk; its length and its last element must be those of the walk.
Words words_of(const list_t *list) {
  Words words;
  void *data;
  for (list_element_t *at = nullptr; (at = list_next(list, at, &data)) != nullptr;) {
    words.push_back(reinterpret_cast<intptr_t>(data));
  }
  list_final(list, &data);
  const bool ends_there = words.empty() ? data == nullptr : data == word(words.back());
  return ends_there && list_length(list) == words.size() ? words : Words{-1};
}

// The words 1, 2 and 3, with the number in each byte of the attributes.
list_t *make_list(stg_area_t area) {
  list_t *list = list_create(area, kAttributes);
  for (int at = 0; at < 3; ++at) {
    char attributes[kAttributes];
    memset(attributes, at + 1, sizeof attributes);
    own.element[at] = list_append(list, word(at + 1));
    list_set_attrs(list, own.element[at], sizeof attributes, attributes);
  }
  return list;
}

void use_storage(bool heap) {
  catch_messages();
  own.area = heap ? STG_AREA_HEAP : stg_create_area(4000);
}

template <bool kHeap>
void prepare_nothing() {
  use_storage(kHeap);
}

template <bool kHeap>
void prepare_list() {
  use_storage(kHeap);
  own.other = make_list(own.area);
  own.list = make_list(own.area);
}

void drop_lists() {
  forget_messages();
  for (list_t **list : {&own.list, &own.other}) {
    if (*list != nullptr) list_destroy(*list);
    *list = nullptr;
  }
  if (own.area != STG_AREA_HEAP) stg_free_area(own.area, 1);
}

// A list that a call has left half-way must still be walked and appended to.
void renew_lists() {
  own.wrong = nullptr;
  if (own.list != nullptr) {
    Words words = words_of(own.list);
    list_append(own.list, word(9));
    words.push_back(9);
    if (words_of(own.list) != words) own.wrong = "the list was broken";
  }
  drop_lists();
  own.other = make_list(own.area);
  own.list = make_list(own.area);
}

const char *list_has(std::initializer_list<intptr_t> words) {
  if (own.wrong != nullptr) return own.wrong;
  return words_of(own.list) == Words(words) ? nullptr : "the list has other words";
}

bool create_list() {
  pfm_inhibit();
  own.list = list_create(own.area, kAttributes);
  pfm_enable();
  return true;
}

const char *list_is_there(bool) { return list_has({}); }

bool append() {
  list_append(own.list, word(4));
  return true;
}

const char *is_appended(bool) { return list_has({1, 2, 3, 4}); }

// The element that is inserted behind, or -1 for the front.
template <int kBehind>
bool insert() {
  list_insert(own.list, kBehind < 0 ? nullptr : own.element[kBehind < 0 ? 0 : kBehind], word(4));
  return true;
}

const char *is_in_front(bool) { return list_has({4, 1, 2, 3}); }
const char *is_inside(bool) { return list_has({1, 4, 2, 3}); }

bool concat() {
  list_concat(own.list, own.other);
  return true;
}

bool concat_itself() {
  list_concat(own.list, own.list);
  return true;
}

const char *is_twice(bool) { return list_has({1, 2, 3, 1, 2, 3}); }

template <int kElement>
bool remove() {
  list_remove(own.list, own.element[kElement]);
  return true;
}

const char *first_is_gone(bool) { return list_has({2, 3}); }
const char *second_is_gone(bool) { return list_has({1, 3}); }
const char *third_is_gone(bool) { return list_has({1, 2}); }

bool destroy() {
  pfm_inhibit();
  list_destroy(own.list);
  own.list = nullptr;
  pfm_enable();
  return true;
}

const char *list_was_whole(bool) { return own.wrong; }

bool set_data() {
  list_set_data(own.list, own.element[1], word(7));
  return true;
}

const char *data_is_set(bool) { return list_has({1, 7, 3}); }

bool set_attributes() {
  list_set_attrs(own.list, own.element[1], 5, "abcde");
  return true;
}

const char *attributes_are_set(bool) {
  uint32_t size = 0;
  const void *attributes = list_get_attrs(own.list, own.element[1], &size);
  if (size != kAttributes || memcmp(attributes, "abcde\2\2\2\2\2\2\2\2\2\2\2", kAttributes) != 0) {
    return "the attributes are others";
  }
  return list_has({1, 2, 3});
}

// Rings. The header leaves it to the caller to hold signals back.

void drop_ring() {
  llist_d_remove_list(&own.head);
  own.head = {};
}

void renew_ring() {
  drop_ring();
  for (intptr_t at = 0; at < 3; ++at) {
    llist_d_insert(&own.head, word(10 * (at + 1)), &own.ring[at], LLIST_D_LAST);
  }
}

const char *ring_has(std::initializer_list<intptr_t> words) {
  const llist_d *at = &own.head;
  for (intptr_t expected : words) {
    if (at->next->prev != at || at->next->data != word(expected)) return "the ring is another";
    at = at->next;
  }
  return at->next == &own.head && own.head.prev == at ? nullptr : "the ring does not end there";
}

int by_word(void *data, void *other_data) {
  return reinterpret_cast<intptr_t>(data) > reinterpret_cast<intptr_t>(other_data) ? 1 : 0;
}

template <class Change>
bool change_ring(Change change) {
  pfm_inhibit();
  change();
  pfm_enable();
  return true;
}

bool insert_last() {
  return change_ring([] { llist_d_insert(&own.head, word(15), &own.extra, LLIST_D_LAST); });
}
bool insert_first() {
  return change_ring([] { llist_d_insert(&own.head, word(15), &own.extra, LLIST_D_FIRST); });
}
bool insert_sorted() {
  return change_ring([] { llist_d_insert(&own.head, word(15), &own.extra, by_word); });
}
bool insert_before() {
  return change_ring([] { llist_d_insert_before(&own.head, word(15), &own.extra, &own.ring[1]); });
}
bool remove_from_ring() {
  return change_ring([] {
    if (own.ring[1].next != nullptr) llist_d_remove(&own.ring[1]);
  });
}
bool remove_ring() {
  return change_ring([] { llist_d_remove_list(&own.head); });
}

const char *ring_has_last(bool) { return ring_has({10, 20, 30, 15}); }
const char *ring_has_first(bool) { return ring_has({15, 10, 20, 30}); }
const char *ring_has_second(bool) { return ring_has({10, 15, 20, 30}); }
const char *ring_lost_second(bool) { return ring_has({10, 30}); }
const char *ring_is_empty(bool) {
  for (const llist_d &element : own.ring) {
    if (element.next != nullptr || element.prev != nullptr) return "an element is not all zero";
  }
  return ring_has({});
}

// Stacks

Words pop_all() {
  Words words;
  void *data;
  size_t length;
  while (stack_pop(own.stack, &data, &length) == 0)
    words.push_back(reinterpret_cast<intptr_t>(data));
  return words;
}

void drop_stack() {
  if (own.stack == nullptr) return;
  const Words words = pop_all();
  const Words pushed = {4, 3, 2, 1};
  const bool in_order =
      words.size() <= pushed.size() && std::equal(words.rbegin(), words.rend(), pushed.rbegin());
  own.wrong = in_order ? nullptr : "the stack was broken";
  stack_destroy(&own.stack);
}

void make_stack() {
  own.stack = stack_create(own.area, 8);
  for (intptr_t number = 1; number <= 3; ++number) stack_push(own.stack, word(number));
}

template <bool kHeap>
void prepare_stack() {
  use_storage(kHeap);
  make_stack();
}

const char *stack_pops(const Words &words) {
  if (own.wrong != nullptr) return own.wrong;
  return pop_all() == words ? nullptr : "other words were popped";
}

void undo_stack() {
  forget_messages();
  drop_stack();
  if (own.area != STG_AREA_HEAP) stg_free_area(own.area, 1);
}

void renew_stack() {
  undo_stack();
  own.popped = nullptr;
  make_stack();
}

bool create_stack() {
  pfm_inhibit();
  own.stack = stack_create(own.area, 8);
  pfm_enable();
  return own.stack != nullptr;
}

const char *stack_is_there(bool done) { return done ? stack_pops({}) : nullptr; }

template <size_t kLength>
bool push() {
  return kLength == 8 ? stack_push(own.stack, word(4)) == 0
                      : stack_varlen_push(own.stack, word(4), kLength) == 0;
}

// A fault may come behind the push, and what was pushed before stays.
template <size_t kLength>
const char *is_pushed(bool done) {
  if (!done) return stack_pops({3, 2, 1});
  if (stack_depth(own.stack) != 4) return "the depth is not that of four pushes";
  if (stack_pop(own.stack, &own.popped, &own.popped_length) != 0) return "the stack is empty";
  if (own.popped != word(4) || own.popped_length != kLength) return "another word is on top";
  return stack_pops({3, 2, 1});
}

bool pop() { return stack_pop(own.stack, &own.popped, &own.popped_length) == 0; }

const char *is_popped(bool done) {
  if (!done || own.popped != word(3) || own.popped_length != 8) return "another word was popped";
  return stack_pops({2, 1});
}

template <bool kHeap>
void prepare_destroy() {
  use_storage(kHeap);
  own.stack = stack_create(own.area, 8);
}

bool destroy_stack() {
  stack_destroy(&own.stack);
  return true;
}

const char *stack_is_gone(bool) { return own.stack == nullptr ? nullptr : "the handle is there"; }

void renew_empty_stack() {
  undo_stack();
  own.stack = stack_create(own.area, 8);
}

// Sorting

struct SortCase {
  const char *function;
  const char *about;
  decltype(&ks_qsort) sort;
  size_t count;
  size_t size;  // of a record
  uint32_t keys;
  enum { kRandom, kAscending, kDescending } order;
};

constexpr SortCase sort_cases[] = {
    {"ks_qsort", "random", ks_qsort, 60, 8, 1000, SortCase::kRandom},
    {"ks_qsort", "in order", ks_qsort, 60, 4, 1000, SortCase::kAscending},
    {"ks_qsort", "few keys", ks_qsort, 250, 8, 2, SortCase::kRandom},
    {"ks_qsort", "large records", ks_qsort, 12, 700, 1000, SortCase::kRandom},
    {"ks_qsort", "odd records", ks_qsort, 30, 11, 1000, SortCase::kRandom},
    {"ks_quick_sort", "random", ks_quick_sort, 60, 8, 1000, SortCase::kRandom},
    {"ks_quick_sort", "few keys", ks_quick_sort, 250, 8, 2, SortCase::kRandom},
    {"ks_insertion_sort", "random", ks_insertion_sort, 20, 8, 1000, SortCase::kRandom},
    {"ks_insertion_sort", "descending", ks_insertion_sort, 120, 8, 1000, SortCase::kDescending},
    {"ks_insertion_sort", "descending large records", ks_insertion_sort, 120, 300, 1000,
     SortCase::kDescending},
};

// A record begins with its key and its number, of 16 bits each; the other bytes are the number's.
struct Head {
  uint16_t key;
  uint16_t number;
};

unsigned char records[120 * 300];

Head head_at(size_t at, size_t size) {
  Head head;
  memcpy(&head, records + at * size, sizeof head);
  return head;
}

int by_key(const void *first, const void *second, void *) {
  return static_cast<const Head *>(first)->key - static_cast<const Head *>(second)->key;
}

int by_odd_key(const void *first, const void *second, void *) {
  Head one, other;
  memcpy(&one, first, sizeof one);
  memcpy(&other, second, sizeof other);
  return one.key - other.key;
}

uint32_t key_of(const SortCase &sorted, uint32_t number) {
  if (sorted.order == SortCase::kAscending) return number;
  if (sorted.order == SortCase::kDescending) return 1000 - number;
  return (number * 7919 + 101) % 1009 % sorted.keys;
}

template <size_t kCase>
void fill_records() {
  constexpr SortCase sorted = sort_cases[kCase];
  for (uint32_t number = 0; number < sorted.count; ++number) {
    const Head head = {static_cast<uint16_t>(key_of(sorted, number)),
                       static_cast<uint16_t>(number)};
    unsigned char *record = records + number * sorted.size;
    memset(record, static_cast<int>(number), sorted.size);
    memcpy(record, &head, sizeof head);
  }
}

template <size_t kCase>
bool sort() {
  constexpr SortCase sorted = sort_cases[kCase];
  sorted.sort(records, sorted.count, sorted.size,
              sorted.size % alignof(Head) == 0 ? by_key : by_odd_key, nullptr);
  return true;
}

// In order, and each record is there once and whole.
template <size_t kCase>
const char *is_sorted(bool) {
  constexpr SortCase sorted = sort_cases[kCase];
  std::vector<bool> seen(sorted.count);
  for (size_t at = 0; at < sorted.count; ++at) {
    const Head head = head_at(at, sorted.size);
    if (at > 0 && head_at(at - 1, sorted.size).key > head.key) return "the order is wrong";
    if (head.number >= sorted.count || seen[head.number]) return "a record is not there once";
    seen[head.number] = true;
    if (head.key != key_of(sorted, head.number)) return "a key has changed";
    for (size_t byte = sizeof head; byte < sorted.size; ++byte) {
      if (records[at * sorted.size + byte] != (head.number & 0xff)) return "a record is torn";
    }
  }
  return nullptr;
}

template <size_t kCase>
constexpr SweepRow sort_row() {
  constexpr SortCase sorted = sort_cases[kCase];
  return {sorted.function, sorted.about,     fill_records<kCase>,
          sort<kCase>,     is_sorted<kCase>, fill_records<kCase>};
}

// Of what is fatal without storage.
constexpr SweepRow panicking(SweepRow row) {
  row.panics = true;
  return row;
}

constexpr SweepRow rows[] = {
    panicking(
        {"list_create", "heap", prepare_nothing<true>, create_list, list_is_there, drop_lists}),
    panicking(
        {"list_create", "area", prepare_nothing<false>, create_list, list_is_there, drop_lists}),
    panicking({"list_append", "heap", prepare_list<true>, append, is_appended, renew_lists}),
    panicking({"list_append", "area", prepare_list<false>, append, is_appended, renew_lists}),
    panicking(
        {"list_insert", "in front", prepare_list<true>, insert<-1>, is_in_front, renew_lists}),
    panicking({"list_insert", "inside", prepare_list<true>, insert<0>, is_inside, renew_lists}),
    panicking({"list_insert", "at the end, area", prepare_list<false>, insert<2>, is_appended,
               renew_lists}),
    panicking({"list_concat", "heap", prepare_list<true>, concat, is_twice, renew_lists}),
    panicking({"list_concat", "area", prepare_list<false>, concat, is_twice, renew_lists}),
    panicking({"list_concat", "itself", prepare_list<true>, concat_itself, is_twice, renew_lists}),
    {"list_set_data", "", prepare_list<true>, set_data, data_is_set, renew_lists},
    {"list_set_attrs", "", prepare_list<true>, set_attributes, attributes_are_set, renew_lists},
    {"list_remove", "first", prepare_list<true>, remove<0>, first_is_gone, renew_lists},
    {"list_remove", "inside", prepare_list<true>, remove<1>, second_is_gone, renew_lists},
    {"list_remove", "last", prepare_list<true>, remove<2>, third_is_gone, renew_lists},
    {"list_remove", "area", prepare_list<false>, remove<1>, second_is_gone, renew_lists},
    {"list_destroy", "", prepare_list<true>, destroy, list_was_whole, renew_lists},
    {"llist_d_insert", "last", renew_ring, insert_last, ring_has_last, renew_ring},
    {"llist_d_insert", "first", renew_ring, insert_first, ring_has_first, renew_ring},
    {"llist_d_insert", "sorted", renew_ring, insert_sorted, ring_has_second, renew_ring},
    {"llist_d_insert_before", "", renew_ring, insert_before, ring_has_second, renew_ring},
    {"llist_d_remove", "", renew_ring, remove_from_ring, ring_lost_second, renew_ring},
    {"llist_d_remove_list", "", renew_ring, remove_ring, ring_is_empty, renew_ring},
    panicking(
        {"stack_create", "heap", prepare_nothing<true>, create_stack, stack_is_there, undo_stack}),
    panicking(
        {"stack_create", "area", prepare_nothing<false>, create_stack, stack_is_there, undo_stack}),
    panicking({"stack_push", "heap", prepare_stack<true>, push<8>, is_pushed<8>, renew_stack}),
    panicking({"stack_push", "area", prepare_stack<false>, push<8>, is_pushed<8>, renew_stack}),
    panicking({"stack_varlen_push", "", prepare_stack<true>, push<30>, is_pushed<30>, renew_stack}),
    {"stack_pop", "heap", prepare_stack<true>, pop, is_popped, renew_stack},
    {"stack_pop", "area", prepare_stack<false>, pop, is_popped, renew_stack},
    {"stack_destroy", "heap", prepare_destroy<true>, destroy_stack, stack_is_gone,
     renew_empty_stack},
    {"stack_destroy", "area", prepare_destroy<false>, destroy_stack, stack_is_gone,
     renew_empty_stack},
    sort_row<0>(),
    sort_row<1>(),
    sort_row<2>(),
    sort_row<3>(),
    sort_row<4>(),
    sort_row<5>(),
    sort_row<6>(),
    sort_row<7>(),
    sort_row<8>(),
    sort_row<9>(),
};

constexpr SweepExemption exemptions[] = {
    {"list_next", "reads"},   {"list_final", "reads"},    {"list_is_empty", "reads"},
    {"list_length", "reads"}, {"list_get_data", "reads"}, {"list_get_attrs", "reads"},
    {"stack_depth", "reads"},
};

}  // namespace

const SweepModule kSweepList = {rows, exemptions};

}  // namespace ks_test

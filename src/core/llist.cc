// Circular doubly linked lists of elements that the caller provides.
#include "llist.h"

#include <cstddef>

#include "core/ks_assert.h"
#include "core/ks_frame.h"

using namespace ks;

static_assert(sizeof(llist_d) == 3 * sizeof(void *));
static_assert(offsetof(llist_d, next) == 0);
static_assert(offsetof(llist_d, prev) == sizeof(void *));
static_assert(offsetof(llist_d, data) == 2 * sizeof(void *));

namespace {

// The ring that an all-zero head stands for. The head's data word is not ours to touch.
void close_ring(llist_d *head) {
  if (head->next != nullptr) return;
  signals_held([&] { head->next = head->prev = head; });
}

llist_d *first_not_behind(llist_d *head, void *data, llist_d_mode_t compare) {
  llist_d *at = head->next;
  while (at != head && compare(data, at->data) > 0) at = at->next;
  return at;
}

}  // namespace

void llist_d_insert(llist_d *head, void *data, llist_d *element, llist_d_mode_t mode) {
  close_ring(head);
  llist_d *before = head;
  if (mode == LLIST_D_FIRST) {
    before = head->next;
  } else if (mode != LLIST_D_LAST) {
    before = first_not_behind(head, data, mode);
  }
  llist_d_insert_before(head, data, element, before);
}

void llist_d_insert_before(llist_d *head, void *data, llist_d *element, llist_d *before) {
  close_ring(head);
  signals_held([&] {
    *element = {before, before->prev, data};
    before->prev->next = element;
    before->prev = element;
  });
}

void *llist_d_remove(llist_d *elem) {
  KS_ASSERT(elem->next != NULL && elem->prev != NULL);
  void *data = elem->data;
  signals_held([&] {
    elem->prev->next = elem->next;
    elem->next->prev = elem->prev;
    *elem = {};
  });
  return data;
}

void llist_d_remove_list(llist_d *head) {
  while (head->next != nullptr && head->next != head) llist_d_remove(head->next);
}

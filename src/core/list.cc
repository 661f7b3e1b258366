// Singly linked lists of data words.
#include "list.h"

#include <algorithm>

#include "list_msg.h"
#include "msg/ks_print.h"
#include "pfm.h"

using namespace ks;

// The attribute block stands right behind.
struct list_element {
  list_element *next;
  void *data;

  unsigned char *attributes() { return reinterpret_cast<unsigned char *>(this + 1); }
  const unsigned char *attributes() const {
    return reinterpret_cast<const unsigned char *>(this + 1);
  }
};

struct list {
  list_element *first;
  list_element *last;
  stg_area_t area;
  uint32_t attribute_bytes;  // of each element
};

namespace {

void *list_storage(stg_area_t area, size_t size) {
  void *block = stg_alloc(area, size);
  if (block == nullptr) {
    imsg_print_shared(IMSG_TYPE_ERROR, "ks/list", _list_ks_msg_table, LIST_MSG_NO_STORAGE);
    pfm_panic(__FILE__, __LINE__);
  }
  return block;
}

list_element *new_element(const list_t *list, void *data) {
  size_t size;
  if (__builtin_add_overflow(sizeof(list_element), list->attribute_bytes, &size)) size = SIZE_MAX;
  list_element *element = static_cast<list_element *>(list_storage(list->area, size));
  element->data = data;
  return element;
}

// Links behind `after`, at the front for NULL.
void link_element(list_t *list, list_element *after, list_element *element) {
  list_element *&link = after != nullptr ? after->next : list->first;
  element->next = link;
  link = element;
  if (element->next == nullptr) list->last = element;
}

// The one before `element`, NULL for the first one.
list_element *predecessor(const list_t *list, const list_element *element) {
  if (list->first == element) return nullptr;
  list_element *at = list->first;
  while (at->next != element) at = at->next;
  return at;
}

list_element *deliver(list_element *element, void **data) {
  *data = element != nullptr ? element->data : nullptr;
  return element;
}

}  // namespace

list_t *list_create(stg_area_t area, uint32_t attribute_bytes) {
  list_t *made = static_cast<list_t *>(list_storage(area, sizeof(list_t)));
  *made = {nullptr, nullptr, area, attribute_bytes};
  return made;
}

// Elements are made and freed with signals held back, too: a fault between the storage and the
// links would lose one.

list_element_t *list_append(list_t *list, void *data) {
  pfm_inhibit();
  list_element *element = new_element(list, data);
  link_element(list, list->last, element);
  pfm_enable();
  return element;
}

list_element_t *list_insert(list_t *list, list_element_t *after, void *data) {
  pfm_inhibit();
  list_element *element = new_element(list, data);
  link_element(list, after, element);
  pfm_enable();
  return element;
}

void list_concat(list_t *target, const list_t *source) {
  const uint32_t bytes = std::min(target->attribute_bytes, source->attribute_bytes);
  pfm_inhibit();
  // The last one of now: a list that is appended to itself gets longer on the way.
  const list_element *last = source->last;
  const list_element *at = nullptr;
  while (at != last) {
    at = at != nullptr ? at->next : source->first;
    list_element *copy = new_element(target, at->data);
    std::copy_n(at->attributes(), bytes, copy->attributes());
    link_element(target, target->last, copy);
  }
  pfm_enable();
}

list_element_t *list_next(const list_t *list, const list_element_t *cookie, void **data) {
  return deliver(cookie != nullptr ? cookie->next : list->first, data);
}

list_element_t *list_final(const list_t *list, void **data) { return deliver(list->last, data); }

int list_is_empty(const list_t *list) { return list == nullptr || list->first == nullptr; }

uint32_t list_length(const list_t *list) {
  uint32_t length = 0;
  if (list_is_empty(list)) return length;
  for (const list_element *at = list->first; at != nullptr; at = at->next) ++length;
  return length;
}

void list_set_data(list_t *, list_element_t *element, void *data) { element->data = data; }

void *list_get_data(const list_t *, const list_element_t *element) { return element->data; }

void list_set_attrs(list_t *list, list_element_t *element, uint32_t size, const void *attributes) {
  if (size > list->attribute_bytes) {
    print<LIST_MSG_ATTRIBUTES_TOO_LONG>(IMSG_TYPE_ERROR, static_cast<int>(size),
                                        static_cast<int>(list->attribute_bytes));
    pfm_panic(__FILE__, __LINE__);
  }
  std::copy_n(static_cast<const unsigned char *>(attributes), size, element->attributes());
}

void *list_get_attrs(const list_t *list, list_element_t *element, uint32_t *size) {
  *size = list->attribute_bytes;
  return element->attributes();
}

void list_remove(list_t *list, list_element_t *element) {
  pfm_inhibit();
  list_element *before = predecessor(list, element);
  (before != nullptr ? before->next : list->first) = element->next;
  if (list->last == element) list->last = before;
  if (list->area == STG_AREA_HEAP) stg_free(element);
  pfm_enable();
}

void list_destroy(list_t *list) {
  if (list->area != STG_AREA_HEAP) return;
  pfm_inhibit();
  list_element *next;
  for (list_element *element = list->first; element != nullptr; element = next) {
    next = element->next;
    stg_free(element);
  }
  stg_free(list);
  pfm_enable();
}

/* llist.h: a circular doubly linked list whose elements the caller provides.
 *
 * An element is a member of the caller's record or stands beside it, and carries a data word, which
 * leads back to the record. The head is an element whose data word is not used; all zero, it is an
 * empty list. Nothing is allocated, and an element that is off the list is all zero as well:
 *
 *     for (llist_d *at = head.next; at != NULL && at != &head; at = at->next) use(at->data);
 *
 * Signals are not held back here: where a signal routine uses the same list, the caller brackets
 * each change and each walk by pfm_inhibit and pfm_enable.
 */
#ifndef KS_LLIST_H
#define KS_LLIST_H

#include "ks_api.h"

#ifdef __cplusplus
extern "C" {
#endif

typedef struct llist_d {
  struct llist_d *next; /* NULL in an element that is on no list */
  struct llist_d *prev;
  void *data;
} llist_d;

/* Where an element goes: one of the two places, or a function that finds it. The function says by a
 * result above 0 that `data` belongs behind `other_data`. */
typedef int (*llist_d_mode_t)(void *data, void *other_data);
#define LLIST_D_LAST ((llist_d_mode_t)0)
#define LLIST_D_FIRST ((llist_d_mode_t)1)

/* llist_d_insert links `element`, which is on no list, with the data word `data`: at the end with
 * LLIST_D_LAST, at the front with LLIST_D_FIRST. A function is called with `data` and the data word
 * of one element after the other, from the front; the new element goes before the first for which
 * the result is 0 or less, or at the end. So new ones stand before their equals. */
KS_API void llist_d_insert(llist_d *head, void *data, llist_d *element, llist_d_mode_t mode);

/* llist_d_insert_before links `element`, which is on no list, with the data word `data` before
 * `before`: an element of the list, or its head, which makes it the last. */
KS_API void llist_d_insert_before(llist_d *head, void *data, llist_d *element, llist_d *before);

/* llist_d_remove takes `elem` off the list that it is on. Result: its data word; the element itself
 * is all zero then. An element that is on no list is an assertion. */
KS_API void *llist_d_remove(llist_d *elem);

/* llist_d_remove_list removes all elements, the first one first. The head is then linked to itself,
 * or all zero when it was so before; either is an empty list. */
KS_API void llist_d_remove_list(llist_d *head);

#ifdef __cplusplus
}
#endif

#endif

/* list.h: a singly linked list of data words, in one storage area or on the heap.
 *
 * A list knows its end, so that appending costs the same at any length. Each element holds a data
 * word, which stays the caller's, and an attribute block, whose size is the same for all elements
 * of a list. A walk asks for one element after the other:
 *
 *     void *data;
 *     list_element_t *element = NULL;
 *     while ((element = list_next(list, element, &data)) != NULL) ...
 *
 * Running out of storage is fatal here: it is printed as an error and ends in pfm_panic. What
 * changes a list does so with signals held back, so a deferred signal routine that walks it finds
 * it whole; the fault of a signal that arrived meanwhile may leave such a call when its work is
 * done. NULL is no list, but for list_is_empty and list_length.
 */
#ifndef KS_LIST_H
#define KS_LIST_H

#include <stdint.h>

#include "ks_api.h"
#include "stg.h"

#ifdef __cplusplus
extern "C" {
#endif

typedef struct list list_t;
typedef struct list_element list_element_t;

/* list_create makes an empty list that lives in `area`, as its elements will; each of them gets an
 * attribute block of `attribute_bytes` bytes. Result: the list, never NULL. It goes with its area,
 * or with STG_AREA_HEAP by list_destroy. */
KS_API list_t *list_create(stg_area_t area, uint32_t attribute_bytes);

/* list_append adds `data` at the end, list_insert behind the element `after` or, with NULL, at the
 * front. The attribute block is as stg_alloc gave it: not cleared, unless the area clears.
 * Result: the new element, never NULL; it lives until list_remove or the end of the list. */
KS_API list_element_t *list_append(list_t *list, void *data);
KS_API list_element_t *list_insert(list_t *list, list_element_t *after, void *data);

/* list_concat appends copies of the elements that `source` has to `target`; `source` stays as it
 * is, and may be `target` itself. A copy has an attribute block of the size of `target`; as much
 * as both lists have is copied into it. */
KS_API void list_concat(list_t *target, const list_t *source);

/* list_next returns the element behind `cookie`, or the first one for NULL, and stores its data
 * word. At the end the result is NULL, and NULL is stored. The element may be removed once the one
 * behind it has been asked for. */
KS_API list_element_t *list_next(const list_t *list, const list_element_t *cookie, void **data);

/* list_final returns the last element and stores its data word; of an empty list, NULL twice. */
KS_API list_element_t *list_final(const list_t *list, void **data);

/* list_is_empty: 1 for a list without elements and for NULL, else 0. list_length counts the
 * elements by walking over them; NULL has none. */
KS_API int list_is_empty(const list_t *list);
KS_API uint32_t list_length(const list_t *list);

/* list_set_data gives an element another data word, list_get_data returns the present one. */
KS_API void list_set_data(list_t *list, list_element_t *element, void *data);
KS_API void *list_get_data(const list_t *list, const list_element_t *element);

/* list_set_attrs copies `size` bytes to the start of an element's attribute block. More than the
 * block has are an error message and pfm_panic. */
KS_API void list_set_attrs(list_t *list, list_element_t *element, uint32_t size,
                           const void *attributes);

/* list_get_attrs returns the attribute block of an element, which is aligned as a pointer is, and
 * stores its size in bytes. The block may be written to and lives as long as the element. */
KS_API void *list_get_attrs(const list_t *list, list_element_t *element, uint32_t *size);

/* list_remove takes an element off; on the heap it is freed. The search for it starts at the front
 * and has no other end than the element: it must be on the list. */
KS_API void list_remove(list_t *list, list_element_t *element);

/* list_destroy frees the elements and the list with STG_AREA_HEAP; with any other area it does
 * nothing, because the area owns them. The data words are never looked at. */
KS_API void list_destroy(list_t *list);

#ifdef __cplusplus
}
#endif

#endif

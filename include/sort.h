/* sort.h: sorting of an array of records of any size, in place.
 *
 * Which records are compared, in which order and as which argument, is part of the contract, and
 * so is the order in which records end up that compare as equal. Only where a plain pass has gone
 * far beyond what a sort should cost, as with many records of few different keys, is the rest
 * reached by fewer comparisons, and the order is the same. Sorting never fails; the storage that
 * the other way takes is only a help.
 *
 * The comparison function gets two records in their places in the array and the caller's context;
 * the result is below 0 when the first belongs before the second, 0 when they are equal, and above
 * 0 otherwise. It returns, or raises a fault. After a fault, also of a signal that comes in the
 * middle of the sort, every record is still there once, in some order.
 */
#ifndef KS_SORT_H
#define KS_SORT_H

#include <stddef.h>

#include "ks_api.h"

#ifdef __cplusplus
extern "C" {
#endif

typedef int (*ks_compare_t)(const void *first, const void *second, void *context);

/* ks_qsort sorts the `count` records of `size` bytes, which is not 0, at `base`. Equal records may
 * change places. Records in order already cost two comparisons each. */
KS_API void ks_qsort(void *base, size_t count, size_t size, ks_compare_t compare, void *context);

/* The two parts of ks_qsort, for any count. ks_quick_sort parts the records around the middle one
 * or a median of three, and so on with each part; where it finds nothing to exchange it leaves the
 * rest to ks_insertion_sort. That one is stable: equal records keep their order. */
KS_API void ks_quick_sort(void *base, size_t count, size_t size, ks_compare_t compare,
                          void *context);
KS_API void ks_insertion_sort(void *base, size_t count, size_t size, ks_compare_t compare,
                              void *context);

#ifdef __cplusplus
}
#endif

#endif

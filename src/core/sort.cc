// The exported calls of the sort.
#include "sort.h"

#include "core/sort_internal.h"

using namespace ks;

namespace {

SortRecords records_at(void *base, size_t size, ks_compare_t compare, void *context) {
  return {static_cast<unsigned char *>(base), size, compare, context};
}

}  // namespace

void ks_qsort(void *base, size_t count, size_t size, ks_compare_t compare, void *context) {
  const SortRecords records = records_at(base, size, compare, context);
  if (count < kFewToSort) return sort_insert(records, count);
  sort_quick(records, count);
}

void ks_quick_sort(void *base, size_t count, size_t size, ks_compare_t compare, void *context) {
  if (count == 0) return;
  sort_quick(records_at(base, size, compare, context), count);
}

void ks_insertion_sort(void *base, size_t count, size_t size, ks_compare_t compare, void *context) {
  sort_insert(records_at(base, size, compare, context), count);
}

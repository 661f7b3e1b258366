// Walks over the cells of a table in the order of its buckets.
#pragma once

#include <bit>

#include "core/hash_internal.h"

struct hash_scan {
  uintptr_t bucket;   // of the cell, unless the scan is in order of entry
  hash_cell_t *cell;  // the last one given out; hash_no_cell before the first
};

namespace [[gnu::visibility("hidden")]] ks {

extern hash_cell_t hash_no_cell;  // stands for NULL where a cell is only looked at

// The first bucket from `bucket` on that has a cell, or bucket_count: a mark stands there too.
inline uint32_t hash_filled_from(const hash_table &table, uint32_t bucket) {
  for (;; bucket += sizeof(size_t)) {
    size_t marks;
    memcpy(&marks, table.marks + bucket, sizeof marks);
    if (marks != 0) return bucket + static_cast<uint32_t>(std::countr_zero(marks)) / 8;
  }
}

// Has the cells that a walk comes to soon fetched: they lie in the order in which they were made,
// so that it would wait for each. The walk is at `bucket`, and there is no cell from `from` to
// there. The work is done in groups and without a branch for empty buckets, which nobody could
// predict. Inlined by force: the compiler drops the call of a function that does nothing but fetch.
[[gnu::always_inline]] inline void hash_fetch_ahead(const hash_table &table, uint32_t from,
                                                    uint32_t bucket) {
  constexpr uint32_t kGroup = 32;
  const uint32_t group = bucket / kGroup * kGroup;
  if (from > group || table.bucket_count - group < 3 * kGroup) return;
  hash_cell_t *const *soon = table.bkts + group + kGroup;
  hash_cell_t *const *later = soon + kGroup;
  for (uint32_t i = 0; i < kGroup; ++i) {
    __builtin_prefetch(later[i] != nullptr ? later[i] : &hash_no_cell);
  }
  for (uint32_t i = 0; i < kGroup; ++i) {
    const hash_cell_t *next = (soon[i] != nullptr ? soon[i] : &hash_no_cell)->next;
    __builtin_prefetch(next != nullptr ? next : &hash_no_cell);
  }
}

// A state in front of the first cell; false when there is no memory.
bool hash_start_scan(hash_scan_t **scan);

inline hash_cell_t *hash_next_cell(hash_ht_t ht, hash_scan_t **scan) {
  if (*scan == nullptr && !hash_start_scan(scan)) return nullptr;
  hash_cell_t *next = (*scan)->cell->next;
  if (next != nullptr) return (*scan)->cell = next;
  const uint32_t from = static_cast<uint32_t>((*scan)->bucket) + 1;
  const uint32_t bucket = hash_filled_from(*ht, from);
  if (bucket == ht->bucket_count) {
    hash_term_scan(scan);
    return nullptr;
  }
  hash_fetch_ahead(*ht, from, bucket);
  signals_held([&] { **scan = {bucket, ht->bkts[bucket]}; });
  return (*scan)->cell;
}

inline hash_cell_t *hash_next_cell_in_order(hash_ht_t ht, hash_scan_t **scan) {
  if (*scan == nullptr && !hash_start_scan(scan)) return nullptr;
  hash_cell_t *last = (*scan)->cell;
  hash_cell_t *next = last != &hash_no_cell ? HashOrder::of(last).order : ht->first;
  if (next == nullptr) {
    hash_term_scan(scan);
    return nullptr;
  }
  return (*scan)->cell = next;
}

}  // namespace ks

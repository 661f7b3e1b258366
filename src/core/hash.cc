// Tables and their cells: creation, growth, deletion.
#include <algorithm>
#include <cstring>

#include "core/hash_walk.h"
#include "ks_msg.h"
#include "msg/ks_print.h"

using namespace ks;

static_assert(sizeof(hash_cell_t) == (sizeof(void *) == 4 ? 12 : 24));

namespace {

constexpr uint32_t kMostBuckets = 1048573;
constexpr double kAreaGrowth = 1.5;

constexpr uint32_t hash_prime_sizes[] = {
    1,        2,        3,        7,         17,        31,        61,      127,
    257,      509,      1021,     2053,      4093,      8191,      16381,   32771,
    65537,    131071,   262147,   524287,    1048573,   2097143,   4194301, 8388617,
    16777213, 33554467, 67108859, 134217757, 268435459, 536870909,
};
constexpr size_t kLargestSearched = 28;  // index: the entry behind it is never chosen

// What a creation without memory gives out. It takes no cell, so its one bucket stays empty.
constinit hash_cell_t *no_bucket[3] = {};
constinit hash_table no_memory = {};

uint32_t prime_size(uint32_t size) {
  return *std::lower_bound(hash_prime_sizes, hash_prime_sizes + kLargestSearched, size);
}

// The mark behind the last bucket ends the search for a bucket with cells.
void set_buckets(hash_ht_t ht, hash_cell_t **bkts, uint32_t count) {
  ht->bkts = bkts;
  ht->marks = reinterpret_cast<uint8_t *>(bkts + count);
  ht->marks[count] = 1;
  ht->bucket_count = count;
  ht->reciprocal = hash_reciprocal(count);
  ht->climit = ht->limit * count;
}

// Empty buckets with their marks, and room for the one behind the last, or NULL.
hash_cell_t **make_buckets(uint32_t count) {
  const size_t bytes = count * (sizeof(hash_cell_t *) + 1) + sizeof(size_t);
  void *buckets = stg_malloc(bytes);
  if (buckets == nullptr) return nullptr;
  return static_cast<hash_cell_t **>(memset(buckets, 0, bytes));
}

// A table without settings, or NULL.
hash_ht_t make_table(uint32_t size_hint) {
  const uint32_t prime = prime_size(size_hint);
  stg_area_t area = stg_create_area(prime * 4);
  if (area == STG_AREA_NULL) return nullptr;
  stg_set_zero(area);
  stg_set_growth(area, kAreaGrowth);
  const uint32_t count = std::min(prime, kMostBuckets);
  hash_ht_t ht = static_cast<hash_ht_t>(stg_alloc(area, sizeof(hash_table)));
  hash_cell_t **bkts = ht != nullptr ? make_buckets(count) : nullptr;
  if (bkts == nullptr) {
    stg_delete_area(&area);
    return nullptr;
  }
  *ht = {};
  ht->area = area;
  set_buckets(ht, bkts, count);
  return ht;
}

hash_ht_t table_of_no_memory() {
  imsg_print_shared(IMSG_TYPE_ERROR, "ks", ks_message_table(KS_MSG_OUT_OF_MEMORY),
                    KS_MSG_OUT_OF_MEMORY);
  no_memory = {};
  set_buckets(&no_memory, no_bucket, 1);
  return &no_memory;
}

void push_front(hash_ht_t ht, hash_cell_t *cell) {
  const uint32_t bucket = ht->bucket_of(cell->hval);
  cell->next = ht->bkts[bucket];
  ht->bkts[bucket] = cell;
  ht->marks[bucket] |= hash_mark(cell->hval);
}

// A fresh cell of zero bytes, or NULL.
hash_cell_t *alloc_cell(hash_ht_t ht) {
  const size_t order = ht->order != 0 ? sizeof(HashOrder) : 0;
  const uint64_t wanted = uint64_t{order} + sizeof(hash_cell_t) + ht->dbytes;
  const size_t bytes = static_cast<size_t>(std::min<uint64_t>(wanted, SIZE_MAX));
  void *block = stg_alloc(ht->area, bytes);
  if (block == nullptr) return nullptr;
  memset(block, 0, bytes);
  return reinterpret_cast<hash_cell_t *>(static_cast<char *>(block) + order);
}

// A cell that was freed, or a fresh one; NULL when there is no storage.
hash_cell_t *take_cell(hash_ht_t ht) {
  hash_cell_t *cell = ht->free_list;
  if (cell == nullptr) return alloc_cell(ht);
  ht->free_list = cell->next;
  return cell;
}

void link_last(hash_ht_t ht, hash_cell_t *cell) {
  HashOrder::of(cell) = {nullptr, ht->last};
  (ht->last != nullptr ? HashOrder::of(ht->last).order : ht->first) = cell;
  ht->last = cell;
}

// Puts all cells of `old`, bucket by bucket, into the empty buckets of the table.
void move_cells(const hash_table &old, hash_ht_t ht) {
  uint32_t bucket;
  for (uint32_t from = 0; (bucket = hash_filled_from(old, from)) < old.bucket_count;
       from = bucket + 1) {
    hash_fetch_ahead(old, from, bucket);
    hash_cell_t *next;
    for (hash_cell_t *cell = old.bkts[bucket]; cell != nullptr; cell = next) {
      next = cell->next;
      push_front(ht, cell);
    }
  }
}

void unlink_order(hash_ht_t ht, hash_cell_t *cell) {
  const HashOrder &links = HashOrder::of(cell);
  (links.back != nullptr ? HashOrder::of(links.back).order : ht->first) = links.order;
  (links.order != nullptr ? HashOrder::of(links.order).back : ht->last) = links.back;
}

}  // namespace

hash_ht_t hash_create_ht(uint32_t size_hint, uint32_t dbytes, int keytype, int copyk,
                         uint32_t key_bytes, hash_fn_t hash_fn, hash_compare_fn_t compare_fn) {
  hash_ht_t ht = nullptr;
  signals_held([&] { ht = make_table(size_hint); });
  if (ht == nullptr) ht = table_of_no_memory();
  ht->dbytes = dbytes;
  ht->keytype = keytype;
  ht->copyk = copyk != 0;
  ht->key_bytes = key_bytes;
  ht->hash_fn = hash_fn;
  ht->compare_fn = compare_fn;
  return ht;
}

void hash_delete_ht(hash_ht_t *handle) {
  signals_held([&] {
    hash_ht_t ht = *handle;
    *handle = nullptr;
    if (ht == nullptr || ht->area == STG_AREA_NULL) return;
    stg_free(ht->bkts);
    stg_area_t area = ht->area;
    stg_delete_area(&area);
  });
}

uint32_t hash_set_dynamic(hash_ht_t ht, uint32_t limit) {
  ht->limit = limit;
  ht->climit = limit * ht->bucket_count;
  return ht->climit;
}

void hash_set_order(hash_ht_t ht) {
  // Cells that are there already have no room for the order in front of them.
  if (ht->cells == 0 && ht->free_list == nullptr) ht->order = 1;
}

uint32_t hash_get_key_bytes(hash_ht_t ht) { return ht->key_bytes; }

// Signals are held for every change of a table: a fault leaves it with the cell or without.

hash_cell_t *hash_create_cell(hash_ht_t ht, uint32_t hash) {
  if (ht->area == STG_AREA_NULL) return nullptr;
  hash_cell_t *cell = nullptr;
  signals_held([&] {
    cell = take_cell(ht);
    if (cell == nullptr) return;
    if (ht->order != 0) link_last(ht, cell);
    cell->hval = hash;
    push_front(ht, cell);
    ++ht->cells;
    if (ht->limit != 0 && ht->cells > ht->climit) hash_resize(ht);
  });
  return cell;
}

void hash_free_cell(hash_ht_t ht, hash_cell_t *cell, hash_cell_t *previous_in_bucket) {
  signals_held([&] {
    if (ht->order != 0) unlink_order(ht, cell);
    if (previous_in_bucket != nullptr) {
      previous_in_bucket->next = cell->next;
    } else {
      const uint32_t bucket = ht->bucket_of(cell->hval);
      ht->bkts[bucket] = cell->next;
      if (cell->next == nullptr) ht->marks[bucket] = 0;
    }
    --ht->cells;
    cell->next = ht->free_list;
    ht->free_list = cell;
  });
}

void ks::hash_report_null_key() { print<KS_MSG_HASH_ERROR>(IMSG_TYPE_ERROR); }

void ks::hash_drop_cell(hash_ht_t ht, hash_cell_t *cell) {
  hash_cell_t *previous = nullptr;
  hash_cell_t *at = ht->bkts[ht->bucket_of(cell->hval)];
  while (at != cell) {
    previous = at;
    at = at->next;
  }
  hash_free_cell(ht, cell, previous);
}

void hash_resize(hash_ht_t ht) {
  if (ht->bucket_count >= kMostBuckets || ht->area == STG_AREA_NULL) return;
  signals_held([&] {
    const hash_table old = *ht;
    const uint32_t count = std::min(prime_size(old.bucket_count + 1), kMostBuckets);
    hash_cell_t **bkts = make_buckets(count);
    if (bkts == nullptr) return;
    set_buckets(ht, bkts, count);
    move_cells(old, ht);
    stg_free(old.bkts);
  });
}

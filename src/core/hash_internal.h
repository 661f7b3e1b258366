// What the files of the hash module share.
#pragma once

#include <cstddef>
#include <cstdint>
#include <cstring>

#include "core/ks_frame.h"
#include "hash.h"
#include "stg.h"

// Allocated from the area of the table.
struct hash_table {
  hash_cell_t **bkts;      // from stg_malloc
  stg_area_t area;         // STG_AREA_NULL: there was no memory, and no cell is made
  uint32_t cells;          // in use
  hash_cell_t *first;      // in order of entry; NULL unless ordered
  hash_cell_t *last;       // likewise
  hash_cell_t *free_list;  // linked by `next`
  uint32_t dbytes;
  uint32_t key_bytes;
  uint32_t bucket_count;
  uint32_t limit;   // mean chain length, 0: never grows
  uint32_t climit;  // limit * bucket_count: grows above so many cells
  int32_t keytype;
  int32_t copyk;
  int32_t order;                 // cells have a HashOrder in front
  hash_fn_t hash_fn;             // NULL: the family's own
  hash_compare_fn_t compare_fn;  // likewise
  uint64_t reciprocal;           // of bucket_count
  uint8_t *marks;  // by bucket, behind the cell pointers: hash_mark of each cell in it, and perhaps
                   // of cells that were; 0 exactly when there is none

  uint32_t bucket_of(uint32_t hash) const;
};

namespace [[gnu::visibility("hidden")]] ks {

// What stands in front of each cell of an ordered table.
struct HashOrder {
  hash_cell_t *order;  // next in order of entry
  hash_cell_t *back;   // the one before

  static HashOrder &of(hash_cell_t *cell) { return reinterpret_cast<HashOrder *>(cell)[-1]; }
};

inline void *hash_data(hash_cell_t *cell) { return cell + 1; }

// The remainder of a hash by the number of buckets, without a division: the quotient is
// (hash + 1) * reciprocal / 2^64. The rounded reciprocal and the cut low half lose less than 2^-31
// of it, and (hash + 1) / divisor lies at least 1 / divisor above the quotient, so that this is
// exact for every hash and for divisors up to 2^31.
constexpr uint64_t hash_reciprocal(uint32_t divisor) { return UINT64_MAX / divisor; }

constexpr uint32_t hash_remainder(uint32_t hash, uint32_t divisor, uint64_t reciprocal) {
  const uint64_t low = reciprocal & UINT32_MAX;
  const uint64_t high = reciprocal >> 32;
  const uint64_t quotient = (high * hash + high + (low * hash >> 32)) >> 32;
  return hash - static_cast<uint32_t>(quotient) * divisor;
}

// One of eight marks that a cell with this hash leaves at its bucket. Where the mark is missing,
// the chain need not be followed.
constexpr uint8_t hash_mark(uint32_t hash) {
  return static_cast<uint8_t>(1u << (hash * 0x9E3779B1 >> 29));
}
inline constexpr uint8_t kHashAnyMark = 0xFF;

// One step of the hash of a key of bytes; Byte, signed char or unsigned char, says how a byte is
// taken.
template <class Byte>
constexpr uint32_t hash_step(uint32_t hash, unsigned char byte) {
  return hash + ((hash << 7) ^ static_cast<uint32_t>(static_cast<Byte>(byte)));
}

// Four steps at once with bytes below 0x80, the first one lowest. Such a byte only fills the bits
// that the shift has emptied, so that a step is hash * 129 + byte.
constexpr uint32_t hash_four_steps(uint32_t hash, uint32_t bytes) {
  constexpr uint32_t kEven = 0x00FF00FF;
  constexpr uint32_t kSquare = 129 * 129;
  const uint32_t pairs = (bytes & kEven) * 129 + (bytes >> 8 & kEven);
  return hash * (kSquare * kSquare) + (pairs & UINT16_MAX) * kSquare + (pairs >> 16);
}

// The hash of a key of bytes.
template <class Byte>
inline uint32_t hash_bytes(const void *key, size_t count) {
  const unsigned char *at = static_cast<const unsigned char *>(key);
  const unsigned char *end = at + count;
  uint32_t hash = 0;
  while (end - at >= 4) {
    uint32_t four;
    memcpy(&four, at, sizeof four);
    if ((four & 0x80808080) == 0) {
      hash = hash_four_steps(hash, four);
      at += sizeof four;
    } else {
      for (const unsigned char *stop = at + 4; at < stop; ++at) hash = hash_step<Byte>(hash, *at);
    }
  }
  for (; at < end; ++at) hash = hash_step<Byte>(hash, *at);
  return hash;
}

// Prints the error of a null key.
[[gnu::cold]] void hash_report_null_key();

// Takes out a cell that has just been made and got no key.
[[gnu::cold]] void hash_drop_cell(hash_ht_t ht, hash_cell_t *cell);

// A new cell with its key, or NULL without storage. Signals are held: nobody sees a cell without key.
template <class Store>
inline hash_cell_t *hash_enter_cell(hash_ht_t ht, uint32_t hash, Store store) {
  hash_cell_t *cell = nullptr;
  signals_held([&] {
    cell = hash_create_cell(ht, hash);
    if (cell == nullptr || store(cell)) return;
    hash_drop_cell(ht, cell);
    cell = nullptr;
  });
  return cell;
}

enum class HashAction { kLookUp, kEnter, kFree };

struct HashFound {
  hash_cell_t *cell;  // NULL for none
  bool was_there;     // and not made just now
};

// The one routine of the families. `holds` tells whether a cell is that of the key; it is asked
// only in buckets with one of the bits of `mark`. `store` puts the key into a new cell and fails
// when there is no memory for it.
template <HashAction kAction, class Holds, class Store>
inline HashFound hash_act(hash_ht_t ht, uint32_t hash, uint8_t mark, Holds holds, Store store) {
  const uint32_t bucket = ht->bucket_of(hash);
  hash_cell_t *previous = nullptr;
  hash_cell_t *cell = (ht->marks[bucket] & mark) != 0 ? ht->bkts[bucket] : nullptr;
  while (cell != nullptr && !holds(cell)) {
    previous = cell;
    cell = cell->next;
  }
  if (cell != nullptr) {
    if (kAction == HashAction::kFree) hash_free_cell(ht, cell, previous);
    return {cell, true};
  }
  if (kAction != HashAction::kEnter) return {nullptr, false};
  return {hash_enter_cell(ht, hash, store), false};
}

}  // namespace ks

inline uint32_t hash_table::bucket_of(uint32_t hash) const {
  return ks::hash_remainder(hash, bucket_count, reciprocal);
}

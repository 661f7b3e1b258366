// What the parts of the sort share: the records, and other ways to the order that a plain pass would
// reach, for when it has become too dear.
#pragma once

#include <cstddef>
#include <cstdint>
#include <cstdlib>

#include "core/ks_frame.h"
#include "sort.h"

namespace [[gnu::visibility("hidden")]] ks {

// An array of records, or a part of one.
struct SortRecords {
  unsigned char *base;
  size_t size;  // of a record, in bytes
  ks_compare_t compare;
  void *context;

  unsigned char *at(size_t number) const { return base + number * size; }
  int order(size_t first, size_t second) const { return compare(at(first), at(second), context); }
  SortRecords from(unsigned char *first) const { return {first, size, compare, context}; }
};

// So many records are parted further; fewer are inserted.
inline constexpr size_t kFewToSort = 4;

// The two plain passes; a quick sort has at least one record.
void sort_insert(const SortRecords &records, size_t count);
void sort_quick(const SortRecords &records, size_t count);

// Goes on with an insertion pass that has put the first `sorted` records in order: merges the rest,
// since there is but one stable order. Result: false when there is no storage, and nothing is done.
bool sort_merge(const SortRecords &records, size_t count, size_t sorted);

// Does as sort_quick with few comparisons: the records are ranked by merging, and the plain passes
// are replayed on the ranks. Result: false when there is no storage, and nothing is done.
bool sort_replay(const SortRecords &records, size_t count);

// While they are merged and ranked, records go by 32-bit numbers.
inline constexpr size_t kMostNumbered = INT32_MAX;

// Fills `numbers` with the numbers of the records in their stable order; the first `sorted` of them
// are in order already. `spare` has room for half as many numbers.
void sort_numbers(const SortRecords &records, size_t count, size_t sorted, uint32_t *numbers,
                  uint32_t *spare);

// Moves the record with the number numbers[i] to place i, for all of them, with signals held.
// `numbers` is used up; `spare` has room for one record.
void sort_move(const SortRecords &records, size_t count, uint32_t *numbers, unsigned char *spare);

// Runs `body` with a block of storage that goes away behind it, also when a comparison raises. The
// block is the system's, not one of stg: want of it is no error to be told of. Result: false when
// there is none.
template <class Body>
bool with_sort_storage(uint64_t bytes, Body &&body) {
  if (bytes > SIZE_MAX / 2) return false;
  void *block = nullptr;
  bool done = false;
  const auto release = [&] {
    signals_held([&] {
      free(block);
      block = nullptr;
    });
  };
  protect(
      [&] {
        signals_held([&] { block = malloc(static_cast<size_t>(bytes)); });
        if (block == nullptr) return;
        body(block);
        release();
        done = true;
      },
      release);
  return done;
}

}  // namespace ks

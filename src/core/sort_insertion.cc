// Insertion sort: for few records, and for those that are nearly in order.
#include <algorithm>
#include <bit>
#include <cstring>

#include "core/sort_internal.h"

using namespace ks;

namespace {

// Merging takes over when the pass has gone far past n log n: the records inserted so far have moved
// by more places than this on average, and together by more than 1.5 n log2 n. Until then the
// comparisons are those that callers know, and few records never get that far.
constexpr uint64_t kFarMoved = 32;

uint64_t most_moved_for(size_t count) {
  return uint64_t{count} * static_cast<unsigned>(std::bit_width(count)) * 3 / 2;
}

// Moves the record at `from` to `to`, and the records from there on by one place to the back. Large
// records go some columns of bytes at a time, so that none needs to be set aside whole.
void move_back(unsigned char *from, unsigned char *to, size_t size) {
  unsigned char saved[256];
  for (size_t column = 0; column < size; column += sizeof saved) {
    const size_t bytes = std::min(size - column, sizeof saved);
    memcpy(saved, from + column, bytes);
    if (bytes == size) {
      memmove(to + size, to, static_cast<size_t>(from - to));
    } else {
      for (unsigned char *at = from + column; at != to + column; at -= size) {
        memcpy(at, at - size, bytes);
      }
    }
    memcpy(to + column, saved, bytes);
  }
}

}  // namespace

void ks::sort_insert(const SortRecords &records, size_t count) {
  const auto [base, size, compare, context] = records;
  uint64_t most_moved = most_moved_for(count);
  uint64_t moved = 0;
  unsigned char *record = base;
  for (size_t number = 1; number < count; ++number) {
    record += size;
    unsigned char *place = record;
    for (; place != base && compare(record, place - size, context) < 0; place -= size) ++moved;
    if (place == record) continue;
    signals_held([&] { move_back(record, place, size); });
    if (moved <= most_moved || moved <= kFarMoved * number) continue;
    if (sort_merge(records, count, number + 1)) return;
    most_moved = UINT64_MAX;  // there is no storage
  }
}

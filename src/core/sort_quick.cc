// Quick sort of the records themselves.
#include <algorithm>
#include <bit>
#include <cstring>

#include "core/sort_internal.h"
#include "core/sort_partition.h"

using namespace ks;

namespace {

// Swaps word by word. The last word may overlap the one before, so it is read first.
template <class Word>
void swap_words(unsigned char *one, unsigned char *other, size_t size) {
  const size_t last = size - sizeof(Word);
  Word one_last, other_last;
  memcpy(&one_last, one + last, sizeof(Word));
  memcpy(&other_last, other + last, sizeof(Word));
  for (size_t at = 0; at < last; at += sizeof(Word)) {
    Word from_one, from_other;
    memcpy(&from_one, one + at, sizeof(Word));
    memcpy(&from_other, other + at, sizeof(Word));
    memcpy(one + at, &from_other, sizeof(Word));
    memcpy(other + at, &from_one, sizeof(Word));
  }
  memcpy(one + last, &other_last, sizeof(Word));
  memcpy(other + last, &one_last, sizeof(Word));
}

void swap_bytes(unsigned char *one, unsigned char *other, size_t size) {
  if (size >= sizeof(uint64_t)) return swap_words<uint64_t>(one, other, size);
  if (size >= sizeof(uint32_t)) return swap_words<uint32_t>(one, other, size);
  swap_words<unsigned char>(one, other, size);
}

// Plain quick sort costs about 1.5 n log2 n comparisons; beyond several times as many the parts
// must have been lopsided, and replaying is cheaper. Few records can't be so dear.
uint64_t allowance_for(size_t count) {
  return uint64_t{count} * std::max<unsigned>(64, 4 * unsigned(std::bit_width(count)));
}

// The records themselves; kSize is their size, or 0 when only the run knows it.
template <size_t kSize>
struct PlainSequence {
  using Place = unsigned char *;

  const SortRecords records;
  uint64_t allowance;  // elements that may still be walked over

  size_t step() const { return kSize != 0 ? kSize : records.size; }
  int order(Place a, Place b) const { return records.compare(a, b, records.context); }
  // Held, as every move of records is: a fault leaves each of them in the array once.
  void swap(Place a, Place b) const {
    signals_held([&] { swap_bytes(a, b, step()); });
  }

  Place up_to_greater(Place at, Place pivot) const {
    while (at != pivot && order(at, pivot) <= 0) at += step();
    return at;
  }

  Place down_to_smaller(Place at, Place pivot) const {
    while (at != pivot && order(at, pivot) >= 0) at -= step();
    return at;
  }

  void insert(Place first, size_t count) const {
    if (count > 1) sort_insert(records.from(first), count);
  }

  bool finish(Place first, size_t count) {
    if (count <= allowance) {
      allowance -= count;
      return false;
    }
    constexpr size_t kFewToReplay = 64;
    return count > kFewToReplay && sort_replay(records.from(first), count);
  }
};

template <size_t kSize>
void sort_plainly(const SortRecords &records, size_t count) {
  PlainSequence<kSize> sequence = {records, allowance_for(count)};
  quick_sort(sequence, records.base, count);
}

}  // namespace

void ks::sort_quick(const SortRecords &records, size_t count) {
  switch (records.size) {
    case 4:
      return sort_plainly<4>(records, count);
    case 8:
      return sort_plainly<8>(records, count);
    default:
      sort_plainly<0>(records, count);
  }
}

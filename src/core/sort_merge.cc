// Merge sort of the numbers of records: the records stay in place while they are compared, and each
// moves once.
#include <algorithm>
#include <cstring>
#include <numeric>

#include "core/sort_internal.h"

using namespace ks;

namespace {

struct Merging {
  const SortRecords &records;
  uint32_t *numbers;
  uint32_t *spare;
  size_t sorted;  // so many numbers are in order from the start

  void merge_halves(size_t first, size_t mid, size_t end) const {
    if (records.order(numbers[mid], numbers[mid - 1]) >= 0) return;
    const uint32_t *left = spare;
    const uint32_t *left_end = std::copy(numbers + first, numbers + mid, spare);
    const uint32_t *right = numbers + mid;
    const uint32_t *right_end = numbers + end;
    uint32_t *out = numbers + first;
    while (left != left_end && right != right_end) {
      if (records.order(*right, *left) < 0) {
        *out++ = *right++;
      } else {
        *out++ = *left++;
      }
    }
    std::copy(left, left_end, out);
  }

  void sort(size_t first, size_t end) const {
    if (end - first < 2 || end <= sorted) return;
    const size_t mid = first + (end - first) / 2;
    sort(first, mid);
    sort(mid, end);
    merge_halves(first, mid, end);
  }
};

// Moves the records of one cycle: the first is set aside, and its place filled from the next, until
// that is the one set aside.
void move_cycle(const SortRecords &records, uint32_t start, uint32_t *numbers,
                unsigned char *spare) {
  memcpy(spare, records.at(start), records.size);
  uint32_t place = start;
  uint32_t next;
  while ((next = numbers[place]) != start) {
    memcpy(records.at(place), records.at(next), records.size);
    numbers[place] = place;
    place = next;
  }
  memcpy(records.at(place), spare, records.size);
  numbers[place] = place;
}

}  // namespace

void ks::sort_numbers(const SortRecords &records, size_t count, size_t sorted, uint32_t *numbers,
                      uint32_t *spare) {
  std::iota(numbers, numbers + count, 0U);
  Merging{records, numbers, spare, sorted}.sort(0, count);
}

void ks::sort_move(const SortRecords &records, size_t count, uint32_t *numbers,
                   unsigned char *spare) {
  signals_held([&] {
    for (uint32_t start = 0; start < count; ++start) {
      if (numbers[start] != start) move_cycle(records, start, numbers, spare);
    }
  });
}

bool ks::sort_merge(const SortRecords &records, size_t count, size_t sorted) {
  if (count > kMostNumbered) return false;
  const size_t half = count / 2;
  const uint64_t bytes = (uint64_t{count} + half) * sizeof(uint32_t) + records.size;
  return with_sort_storage(bytes, [&](void *block) {
    uint32_t *numbers = static_cast<uint32_t *>(block);
    uint32_t *spare = numbers + count;
    sort_numbers(records, count, sorted, numbers, spare);
    sort_move(records, count, numbers, reinterpret_cast<unsigned char *>(spare + half));
  });
}

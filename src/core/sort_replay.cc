// Quick sort replayed on ranks. Where few keys are different the parts are lopsided, and the plain
// passes walk over the same records again and again. On ranks a tree leads from one exchange to the
// next, and exchanges are few: two of them put at least one record into the smaller part, so that all
// of them together are O(n log n).
#include <algorithm>
#include <bit>
#include <numeric>

#include "core/sort_internal.h"
#include "core/sort_partition.h"

using namespace ks;

namespace {

// The ranks below a node of the tree; a leaf has one.
struct Ranks {
  uint32_t least;
  uint32_t greatest;
  bool operator==(const Ranks &) const = default;
};
constexpr Ranks kNoRanks = {UINT32_MAX, 0};

struct RankedSequence {
  uint64_t *keys;     // room for one for each place
  Ranks *nodes;       // the root is node 1, the leaf of place i is node capacity + i
  uint32_t *numbers;  // of the record that would be at each place by now
  size_t capacity;    // leaves, a power of two

  size_t step() const { return 1; }
  uint32_t rank(size_t place) const { return nodes[capacity + place].least; }

  void update(size_t node) const {
    const Ranks left = nodes[2 * node];
    const Ranks right = nodes[2 * node + 1];
    nodes[node] = {std::min(left.least, right.least), std::max(left.greatest, right.greatest)};
  }

  void update_above(size_t place) const {
    for (size_t node = (capacity + place) / 2; node > 0; node /= 2) {
      const Ranks before = nodes[node];
      update(node);
      if (nodes[node] == before) return;
    }
  }

  int order(size_t a, size_t b) const { return (rank(a) > rank(b)) - (rank(a) < rank(b)); }

  void swap(size_t a, size_t b) const {
    std::swap(numbers[a], numbers[b]);
    std::swap(nodes[capacity + a], nodes[capacity + b]);
    update_above(a);
    update_above(b);
  }

  // Both searches climb until a node at their side has such a rank, and go down in it.

  size_t up_to_greater(size_t place, size_t pivot) const {
    const uint32_t limit = rank(pivot);
    size_t node = capacity + place;
    while (nodes[node].greatest <= limit) {
      while (node % 2 != 0) node /= 2;
      if (node == 0) return pivot;
      ++node;
    }
    while (node < capacity) node = 2 * node + (nodes[2 * node].greatest <= limit);
    return std::min(node - capacity, pivot);
  }

  size_t down_to_smaller(size_t place, size_t pivot) const {
    const uint32_t limit = rank(pivot);
    size_t node = capacity + place;
    while (nodes[node].least >= limit) {
      while (node % 2 == 0) node /= 2;
      if (node == 1) return pivot;
      --node;
    }
    while (node < capacity) node = 2 * node + (nodes[2 * node + 1].least < limit);
    return std::max(node - capacity, pivot);
  }

  // The stable order of a range, in which nothing is compared any more: the tree may stay behind.
  void insert(size_t first, size_t count) const {
    for (size_t i = 0; i < count; ++i) {
      keys[i] = uint64_t{rank(first + i)} << 32 | static_cast<uint32_t>(first + i);
    }
    std::sort(keys, keys + count);
    for (size_t i = 0; i < count; ++i) keys[i] = numbers[static_cast<uint32_t>(keys[i])];
    for (size_t i = 0; i < count; ++i) numbers[first + i] = static_cast<uint32_t>(keys[i]);
  }

  bool finish(size_t, size_t) const { return false; }
};

// Fills the tree with the ranks of the records, which `numbers` names in order; equal ones have the
// same rank.
void rank_records(const SortRecords &records, size_t count, const RankedSequence &ranked) {
  std::fill_n(ranked.nodes, 2 * ranked.capacity, kNoRanks);
  uint32_t rank = 0;
  for (size_t i = 0; i < count; ++i) {
    if (i > 0 && records.order(ranked.numbers[i - 1], ranked.numbers[i]) < 0) ++rank;
    ranked.nodes[ranked.capacity + ranked.numbers[i]] = {rank, rank};
  }
  for (size_t node = ranked.capacity - 1; node > 0; --node) ranked.update(node);
}

}  // namespace

bool ks::sort_replay(const SortRecords &records, size_t count) {
  if (count > kMostNumbered) return false;
  const size_t capacity = std::bit_ceil(count);
  const size_t half = count / 2;
  const uint64_t bytes = uint64_t{count} * sizeof(uint64_t) +
                         2 * uint64_t{capacity} * sizeof(Ranks) +
                         (uint64_t{count} + half) * sizeof(uint32_t) + records.size;
  return with_sort_storage(bytes, [&](void *block) {
    uint64_t *keys = static_cast<uint64_t *>(block);
    Ranks *nodes = reinterpret_cast<Ranks *>(keys + count);
    uint32_t *numbers = reinterpret_cast<uint32_t *>(nodes + 2 * capacity);
    uint32_t *spare = numbers + count;
    RankedSequence ranked = {keys, nodes, numbers, capacity};
    sort_numbers(records, count, 0, numbers, spare);
    rank_records(records, count, ranked);
    std::iota(numbers, numbers + count, 0U);
    quick_sort(ranked, size_t{0}, count);
    sort_move(records, count, numbers, reinterpret_cast<unsigned char *>(spare + half));
  });
}

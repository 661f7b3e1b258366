// Sorts for tests: the library's, with each comparison noted, and a slow model of what they are to do.
#pragma once

#include <cstddef>
#include <random>
#include <utility>
#include <vector>

#include "sort.h"

namespace ks_test {

// The places of the records that a comparison got, in the order of its arguments.
using Comparison = std::pair<size_t, size_t>;
using Trace = std::vector<Comparison>;

// A record has its key in the first byte, and in the others, as many as there are, its number.
struct SortItem {
  unsigned char key;
  unsigned number;
  bool operator==(const SortItem &) const = default;
};

using Items = std::vector<SortItem>;

// Items with these keys, numbered from 0.
Items items_of(const std::vector<int> &keys);

// Keys of different shapes that `random` chooses: random ones, few different ones, ascending,
// descending, up and down, parted.
std::vector<int> any_keys(std::mt19937 &random, size_t most);

// The array of records of `size` bytes for the items. Of numbers, records of less than five bytes
// hold only the low bytes.
std::vector<unsigned char> records_of(const Items &items, size_t size);

// Runs one of the sorts on an array of records, of exactly that size on the heap.
class Sorting {
 public:
  using Call = decltype(ks_qsort);

  Sorting(const Items &items, size_t size);

  void run(Call *sort);

  // What a sort gets, for tests that call it by themselves.
  void *base() { return records_.data(); }
  size_t count() const { return count_; }
  size_t size() const { return size_; }
  static int compare(const void *first, const void *second, void *sorting);

  // From now on, the comparison number `nth` (0 is the next) raises the fault 7.
  void raise_in_comparison(size_t nth) { raise_at_ = trace_.size() + nth; }

  const std::vector<unsigned char> &records() const { return records_; }
  const Trace &trace() const { return trace_; }

 private:
  size_t place(const void *record) const;

  size_t size_;
  size_t count_;
  std::vector<unsigned char> records_;
  Trace trace_;
  size_t raise_at_ = static_cast<size_t>(-1);
};

// The sorts as their description has them, on items, element by element.
struct SortModel {
  Items items;
  Trace trace;

  void qsort();
  void quick_sort();
  void insertion_sort();

 private:
  int compare(size_t first, size_t second);
  void insert(size_t first, size_t count);
  void quick(size_t first, size_t count);
  void part(size_t first, size_t count);
};

}  // namespace ks_test

#include "support/sorting.h"

#include <gtest/gtest.h>

#include <algorithm>

#include "pfm.h"

namespace ks_test {

Items items_of(const std::vector<int> &keys) {
  Items items;
  for (int key : keys) {
    items.push_back({static_cast<unsigned char>(key), static_cast<unsigned>(items.size())});
  }
  return items;
}

std::vector<int> any_keys(std::mt19937 &random, size_t most) {
  const size_t count = random() % (most + 1);
  const unsigned different = random() % 3 == 0 ? 1 + random() % 4 : 1 + random() % 256;
  std::vector<int> keys(count);
  for (int &key : keys) key = static_cast<int>(random() % different);
  const auto mid = keys.begin() + static_cast<ptrdiff_t>(count / 2);
  switch (random() % 6) {
    case 0:
      std::sort(keys.begin(), keys.end());
      break;
    case 1:
      std::sort(keys.rbegin(), keys.rend());
      break;
    case 2:
      std::sort(keys.begin(), mid);
      std::sort(std::make_reverse_iterator(keys.end()), std::make_reverse_iterator(mid));
      break;
    case 3:
      std::nth_element(keys.begin(), mid, keys.end());
      break;
    default:
      break;
  }
  return keys;
}

std::vector<unsigned char> records_of(const Items &items, size_t size) {
  std::vector<unsigned char> records;
  for (const SortItem &item : items) {
    records.push_back(item.key);
    for (size_t at = 1; at < size; ++at) {
      const unsigned byte =
          at < 5 ? item.number >> (8 * (at - 1)) : item.number * 31 + 7 * unsigned(at);
      records.push_back(static_cast<unsigned char>(byte));
    }
  }
  return records;
}

Sorting::Sorting(const Items &items, size_t size)
    : size_(size), count_(items.size()), records_(records_of(items, size)) {
  records_.shrink_to_fit();
}

void Sorting::run(Call *sort) { sort(records_.data(), count_, size_, compare, this); }

size_t Sorting::place(const void *record) const {
  const size_t offset =
      static_cast<size_t>(static_cast<const unsigned char *>(record) - records_.data());
  EXPECT_LT(offset, records_.size());
  EXPECT_EQ(offset % size_, 0u);
  return offset / size_;
}

int Sorting::compare(const void *first, const void *second, void *sorting) {
  Sorting &self = *static_cast<Sorting *>(sorting);
  if (self.trace_.size() == self.raise_at_) pfm_raise(7);
  self.trace_.emplace_back(self.place(first), self.place(second));
  // Results of any size, so that only their sign can matter.
  return 1000 *
         (*static_cast<const unsigned char *>(first) - *static_cast<const unsigned char *>(second));
}

int SortModel::compare(size_t first, size_t second) {
  trace.emplace_back(first, second);
  return items[first].key - items[second].key;
}

void SortModel::qsort() {
  if (items.size() < 2) return;
  if (items.size() <= 3) {
    insert(0, items.size());
  } else {
    quick(0, items.size());
  }
}

void SortModel::quick_sort() { quick(0, items.size()); }

void SortModel::insertion_sort() { insert(0, items.size()); }

void SortModel::insert(size_t first, size_t count) {
  for (size_t i = first + 1; i < first + count; ++i) {
    size_t to = i;
    while (to > first && compare(i, to - 1) < 0) --to;
    const SortItem item = items[i];
    items.erase(items.begin() + static_cast<ptrdiff_t>(i));
    items.insert(items.begin() + static_cast<ptrdiff_t>(to), item);
  }
}

void SortModel::quick(size_t first, size_t count) {
  size_t lo = first;
  size_t mid = first + count / 2;
  size_t hi = first + count - 1;
  if (count > 5) {
    const int first_mid = compare(lo, mid);
    const int mid_last = compare(mid, hi);
    if (first_mid < 0 && mid_last > 0) {
      std::swap(items[mid], items[compare(lo, hi) < 0 ? hi : lo]);
    } else if (first_mid > 0 && mid_last < 0) {
      std::swap(items[mid], items[compare(lo, hi) < 0 ? lo : hi]);
    }
  }
  bool swapped = false;
  while (true) {
    while (lo < mid && compare(lo, mid) <= 0) ++lo;
    while (hi > mid && compare(hi, mid) >= 0) --hi;
    if (lo == mid && hi == mid) break;
    swapped = true;
    std::swap(items[lo], items[hi]);
    if (lo < mid && hi > mid) {
      ++lo;
      --hi;
    } else if (lo == mid) {
      mid = hi;
      ++lo;
    } else {
      mid = lo;
      --hi;
    }
  }
  if (!swapped) {
    insert(first, count);
    return;
  }
  const size_t left = mid - first;
  const size_t right = count - left - 1;
  if (left <= right) {
    part(first, left);
    part(mid + 1, right);
  } else {
    part(mid + 1, right);
    part(first, left);
  }
}

void SortModel::part(size_t first, size_t count) {
  if (count == 2) {
    if (compare(first + 1, first) < 0) std::swap(items[first], items[first + 1]);
  } else if (count == 3) {
    insert(first, 3);
  } else if (count > 3) {
    quick(first, count);
  }
}

}  // namespace ks_test

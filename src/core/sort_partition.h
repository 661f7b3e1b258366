// Quick sort, written once for the records themselves and for their ranks.
//
// A sequence of elements has, over places that are `step()` apart:
//   Place                        a pointer or a number
//   int order(a, b)              compares the elements at two places: below, equal to or above 0
//   void swap(a, b)
//   Place up_to_greater(at, pivot)    the first place from `at` on whose element is greater than the
//   Place down_to_smaller(at, pivot)  one at `pivot`, or the first one down from `at` where it is
//                                     smaller; `pivot` when there is none on the way to it
//   void insert(first, count)    insertion sort of a range
//   bool finish(first, count)    may sort a range that is about to be parted in another way
#pragma once

#include <cstddef>

#include "core/sort_internal.h"

namespace [[gnu::visibility("hidden")]] ks {

// The place of the median. When two comparisons settle it there is no third.
template <class Sequence, class Place>
Place median_of_three(Sequence &sequence, Place first, Place mid, Place last) {
  const int left = sequence.order(first, mid);
  const int right = sequence.order(mid, last);
  const bool mid_is_greatest = left < 0 && right > 0;
  const bool mid_is_least = left > 0 && right < 0;
  if (!mid_is_greatest && !mid_is_least) return mid;
  const bool first_is_less = sequence.order(first, last) < 0;
  return first_is_less == mid_is_least ? first : last;
}

// Parts a range around the element at `mid`, which follows when one side has no more to exchange.
// Result: whether anything was exchanged.
template <class Sequence, class Place>
bool part_around(Sequence &sequence, Place lo, Place &mid, Place hi) {
  bool exchanged = false;
  for (;;) {
    lo = sequence.up_to_greater(lo, mid);
    hi = sequence.down_to_smaller(hi, mid);
    if (lo == hi) return exchanged;
    sequence.swap(lo, hi);
    exchanged = true;
    if (lo == mid) {
      mid = hi;
      lo += sequence.step();
    } else if (hi == mid) {
      mid = lo;
      hi -= sequence.step();
    } else {
      lo += sequence.step();
      hi -= sequence.step();
    }
  }
}

template <class Sequence, class Place>
void quick_sort(Sequence &sequence, Place first, size_t count);

template <class Sequence, class Place>
void sort_part(Sequence &sequence, Place first, size_t count) {
  if (count < kFewToSort) return sequence.insert(first, count);
  quick_sort(sequence, first, count);
}

// The larger part is sorted in the same frame, so that the depth stays logarithmic.
template <class Sequence, class Place>
void quick_sort(Sequence &sequence, Place first, size_t count) {
  constexpr size_t kFewForMid = 5;
  do {
    if (sequence.finish(first, count)) return;
    const size_t step = sequence.step();
    const Place last = first + (count - 1) * step;
    Place mid = first + count / 2 * step;
    if (count > kFewForMid) {
      const Place median = median_of_three(sequence, first, mid, last);
      if (median != mid) sequence.swap(median, mid);
    }
    // Nothing to exchange is the usual sign of elements that are in order already.
    if (!part_around(sequence, first, mid, last)) return sequence.insert(first, count);
    const size_t left = static_cast<size_t>(mid - first) / step;
    const size_t right = count - left - 1;
    const Place behind = mid + step;
    if (left <= right) {
      sort_part(sequence, first, left);
      first = behind;
      count = right;
    } else {
      sort_part(sequence, behind, right);
      count = left;
    }
  } while (count >= kFewToSort);
  sequence.insert(first, count);
}

}  // namespace ks

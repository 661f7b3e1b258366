#pragma once

#include <cstddef>

namespace ks_test {

// How much a sweep looks at. The whole of it is the default.
struct Options {
  unsigned seed = 1;
  size_t all_places = 5000;     // a call that passes more places where a fault may come
  size_t chosen_places = 2000;  // has so many of them tried
  size_t returns = 200;         // places where a signal comes whose routine returns
  size_t steps = 300000;        // instructions of a call behind which no place is looked at
  int patience = 10000;         // milliseconds behind which a copy hangs that has done nothing
  size_t failures = 20000;      // of allocations and system calls that are tried in a row
};

}  // namespace ks_test

// For calls whose header says that they end in pfm_panic when storage runs out.
#pragma once

#include <csignal>

#include "pfm.h"

namespace ks_test {

// From now on the SIGABRT of a panic is raised as a fault. To be called by a row's `prepare`.
inline void expect_panics() {
  signal(SIGABRT, [](int sig) { pfm_raise(sig); });
}

// Runs `body` and absorbs the fault `status`, SIGABRT being that of a panic; other faults go on.
// Result: whether it came to that.
template <class Body>
bool ends_in(int status, Body body) {
  pfm_cleanup_rec_t rec = {};
  const int landed = PFM_CLEANUP_START(&rec, 0);
  if (landed == 0) {
    body();
    pfm_cleanup_rls(&rec);
    return false;
  }
  if (landed < 0) pfm_cleanup_rls(&rec);  // it is still armed, and nothing is held
  if (landed != status) pfm_raise(landed);
  if (landed > 0) pfm_enable();
  return true;
}

}  // namespace ks_test

// Runs a piece of a test under a cleanup record, and tells how a fault landed there.
#pragma once

#include <cstdint>
#include <iosfwd>

#include "pfm.h"

namespace ks_test {

struct Landing {
  int status;         // 0: the body returned
  int32_t inhibited;  // the counts behind the body, or at the landing
  int32_t suspended;
  bool operator==(const Landing &) const = default;
};

void PrintTo(const Landing &landing, std::ostream *out);

// Arms a record with the `inhibit` of pfm_cleanup_start and runs `body`. A fault that lands runs
// `cleanup` and is absorbed; a negative one, too, and its record released. A fault jumps over the
// frames of `body`, so nothing may live in them that has a destructor: the arguments are no
// std::function for that reason.
template <class Body, class Cleanup>
Landing land(Body &&body, Cleanup &&cleanup, int inhibit = 0) {
  pfm_cleanup_rec_t rec = {};
  const int status = PFM_CLEANUP_START(&rec, inhibit);
  if (status == 0) body();
  const Landing landing = {status, pfm_inhibit_count(), pfm_inhibit_suspend_count()};
  if (status != 0) cleanup();
  if (status > 0) {
    pfm_enable();
  } else {
    pfm_cleanup_rls(&rec);
  }
  return landing;
}

template <class Body>
Landing land(Body &&body) {
  return land(body, [] {});
}

// The innermost armed record; NULL when there is none.
const pfm_cleanup_rec_t *innermost_record();

}  // namespace ks_test

#include "support/landing.h"

#include <ostream>

namespace ks_test {

void PrintTo(const Landing &landing, std::ostream *out) {
  *out << "status " << landing.status << ", inhibited " << landing.inhibited << ", suspended "
       << landing.suspended;
}

const pfm_cleanup_rec_t *innermost_record() {
  pfm_cleanup_rec_t rec = {};
  pfm_cleanup_start(&rec, 0);
  const pfm_cleanup_rec_t *prev = rec.prev;
  pfm_cleanup_rls(&rec);
  return prev;
}

}  // namespace ks_test

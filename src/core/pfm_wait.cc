// Waiting with signals held back.
#include <cerrno>

#include "core/ks_assert.h"
#include "pfm.h"
#include "core/pfm_internal.h"

using namespace ks;

// This frame absorbs the one fault that the catcher raises to end the wait, so its protocol is
// spelled out. A signal that arrives anywhere between the flag's setting and its clearing jumps
// here, so none can be missed between the test of the count and the sleep.
int pfm_select_inhibited(int nfds, fd_set *readfds, fd_set *writefds, fd_set *exceptfds,
                         struct timeval *timeout) {
  KS_ASSERT(pfm_inh_count == 1);
  pfm_cleanup_rec_t rec;
  rec.magic = 0;
  rec.status = sigsetjmp(rec.env, 1);
  const int status = pfm_cleanup_start(&rec, 0);
  if (status != 0) {
    pfm_select_sleeping = false;
    if (status < 0) pfm_cleanup_rls(&rec);  // still armed: it would land here again, for ever
    if (status != PFM_STATUS_SELECT_WAKE) pfm_raise(status);
    pfm_enable();
    errno = EINTR;
    return -1;
  }
  pfm_select_sleeping = true;
  order_for_signals();
  int ready = -1;
  if (pfm_pending_count != 0) {
    errno = EINTR;
  } else {
    ready = select(nfds, readfds, writefds, exceptfds, timeout);
  }
  order_for_signals();
  pfm_select_sleeping = false;
  order_for_signals();
  pfm_cleanup_rls(&rec);
  return ready;
}

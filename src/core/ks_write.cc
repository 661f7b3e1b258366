#include "core/ks_write.h"

#include "core/pfm_internal.h"

using namespace ks;

// The piece stands where a deferred signal spoils it, as it spoils the mask of a wait: a write that
// has not begun then finds no bytes to write, and one that waits is ended by the signal itself. Only
// writev leaves the reading of address and size to the system, so that no moment is missed.
static_assert(sizeof(SleepMask) == sizeof(iovec));
static_assert(offsetof(SleepMask, mask) == offsetof(iovec, iov_base));
static_assert(offsetof(SleepMask, bytes) == offsetof(iovec, iov_len));

ssize_t ks::write_until_signal(int fd, const iovec &piece, int32_t pending) {
  pfm_sleep_mask = {piece.iov_base, piece.iov_len};
  order_for_signals();
  if (pfm_pending_count != pending) return 0;
  return writev(fd, reinterpret_cast<const iovec *>(&pfm_sleep_mask), 1);
}

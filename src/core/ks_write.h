// Writing to a descriptor so that it is always known how much has gone out.
#pragma once

#include <cerrno>
#include <cstddef>
#include <cstdint>

#include <sys/types.h>
#include <sys/uio.h>

#include "core/ks_frame.h"

namespace [[gnu::visibility("hidden")]] ks {

// Signals must be held. As write(2), but a signal that is deferred keeps it from waiting: where
// nothing is out by then the result is 0, or -1 with EINTR. `pending` is pfm_pending_count from
// before signals were held.
ssize_t write_until_signal(int fd, const iovec &piece, int32_t pending);

// One write of the piece that `next()` gives, which is not empty; `taken(size)` notes how much of it
// is out. The three are held together, so a routine that raises finds each byte either out and noted
// or neither, and yet a write that waits for its reader does not keep a signal waiting.
// False with errno when the write failed. True does not mean that anything is out.
template <class Next, class Taken>
bool write_once(int fd, Next &&next, Taken &&taken) {
  const int32_t pending = pfm_pending_count;
  ssize_t written = 0;
  int error = 0;
  signals_held([&] {
    written = write_until_signal(fd, next(), pending);
    if (written > 0) taken(static_cast<size_t>(written));
    if (written < 0 && errno != EINTR) error = errno;
  });
  if (error == 0) return true;
  errno = error;
  return false;
}

}  // namespace ks

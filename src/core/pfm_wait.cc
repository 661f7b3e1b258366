// Waiting with signals held back.
#include <sys/syscall.h>
#include <unistd.h>

#include <cerrno>
#include <climits>
#include <ctime>
#include <limits>

#include "core/ks_assert.h"
#include "core/pfm_internal.h"
#include "pfm.h"

namespace ks {
SleepMask pfm_sleep_mask = {};
}

using namespace ks;

namespace {

constexpr long kMicroseconds = 1000000;  // in a second
constexpr long kNanosecondsPerMicro = 1000;

// As select takes its timeout: microseconds of a second and more are carried, and the system refuses
// negative ones.
timespec to_timespec(const timeval &timeout) {
  if (timeout.tv_usec < 0) return {timeout.tv_sec, -1};
  timespec result = {timeout.tv_sec, timeout.tv_usec % kMicroseconds * kNanosecondsPerMicro};
  if (__builtin_add_overflow(timeout.tv_sec, timeout.tv_usec / kMicroseconds, &result.tv_sec)) {
    result.tv_sec = std::numeric_limits<time_t>::max();
  }
  return result;
}

}  // namespace

// A signal that is deferred at any moment spoils the mask that the system is given: where the sleep
// has not begun, the system then refuses it, and a sleep that has begun is ended by the signal
// itself. So none is missed between the test of the count and the sleep. The call is the system's
// own, since libc's have no place for a mask that can be spoiled so late.
int pfm_select_inhibited(int nfds, fd_set *readfds, fd_set *writefds, fd_set *exceptfds,
                         struct timeval *timeout) {
  KS_ASSERT(pfm_inh_count == 1);
  timespec left = {};
  if (timeout != nullptr) left = to_timespec(*timeout);
  pfm_sleep_mask = {nullptr, kSignals / CHAR_BIT};
  order_for_signals();
  int ready = -1;
  if (pfm_pending_count == 0) {
    ready = static_cast<int>(syscall(SYS_pselect6, nfds, readfds, writefds, exceptfds,
                                     timeout != nullptr ? &left : nullptr, &pfm_sleep_mask));
    order_for_signals();
  }
  if (pfm_pending_count != 0) {
    errno = EINTR;
    return -1;
  }
  if (timeout != nullptr) {
    timeout->tv_sec = left.tv_sec;
    timeout->tv_usec = static_cast<suseconds_t>(left.tv_nsec / kNanosecondsPerMicro);
  }
  return ready;
}

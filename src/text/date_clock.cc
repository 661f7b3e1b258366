// The one source of the time of day.
#include <ctime>

#include "date.h"

namespace {

constexpr suseconds_t kMicroseconds = 1000000;  // in a second

}  // namespace

void date_get_timeval(struct timeval *now) {
  if (gettimeofday(now, nullptr) == 0 && now->tv_usec >= 0) {
    if (now->tv_usec < kMicroseconds) return;
    if (now->tv_usec < 2 * kMicroseconds) {
      now->tv_sec += 1;
      now->tv_usec -= kMicroseconds;
      return;
    }
  }
  now->tv_sec = time(nullptr);
  now->tv_usec = 0;
}

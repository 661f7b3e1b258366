#include "ks_zone.h"

#include <cstdlib>

#include "core/ks_frame.h"
#include "date.h"

using namespace ks;

namespace {

constexpr int32_t kHour = 3600;
constexpr int32_t kDay = 24 * kHour;

// The second in which the system's own zone was last read; kOtherZone while libc holds the zone of a
// TZ, or none yet.
constexpr int64_t kOtherZone = INT64_MIN;
constinit int64_t system_zone_read = kOtherZone;

// libc compares a TZ with the one that it has read: that costs no system call.
void read_zone() {
  if (getenv("TZ") != nullptr) {
    system_zone_read = kOtherZone;
  } else {
    const int64_t now = present_seconds();
    if (now == system_zone_read) return;
    system_zone_read = now;
  }
  tzset();
}

}  // namespace

// libc breaks moments down under a lock of its own, and allocates when it reads a zone, so no signal
// may leave these calls half done.

bool ks::local_time(time_t moment, struct tm *broken_down) {
  bool done = false;
  signals_held([&] {
    read_zone();
    done = localtime_r(&moment, broken_down) != nullptr;
  });
  return done;
}

bool ks::utc_time(time_t moment, struct tm *broken_down) {
  bool done = false;
  signals_held([&] { done = gmtime_r(&moment, broken_down) != nullptr; });
  return done;
}

int32_t ks::offset_seconds_of(const struct tm &local) {
  const int32_t offset = static_cast<int32_t>(local.tm_gmtoff);
  const int32_t local_clock = local.tm_hour * kHour + local.tm_min * 60 + local.tm_sec;
  const int64_t utc_clock = int64_t{local_clock} - offset;  // seconds from local midnight on
  if (utc_clock < -kDay) return offset - 2 * kDay;
  if (utc_clock >= 2 * kDay) return offset + 2 * kDay;
  return offset;
}

int32_t ks::local_offset_seconds(time_t moment) {
  struct tm local;
  return local_time(moment, &local) ? offset_seconds_of(local) : 0;
}

time_t ks::time_of_local(struct tm *broken_down) {
  time_t moment = -1;
  signals_held([&] {
    read_zone();  // so does mktime, but unnoted
    moment = mktime(broken_down);
  });
  return moment;
}

int32_t ks::present_seconds() {
  struct timeval now;
  date_get_timeval(&now);
  return static_cast<int32_t>(now.tv_sec);
}

// The moments of local times: what mktime does, which costs a system call where TZ is not set.
#include <array>
#include <cstdint>

#include "date_internal.h"

using namespace ks;

namespace {

constexpr int32_t kDay = 24 * 60 * 60;

// The offset from UTC of the moment found last, where the next search begins. So of a time that the
// clock shows twice it is the one with that offset, as with mktime.
constinit long last_offset = 0;

constexpr int64_t floor_divide(int64_t value, int64_t by) {
  return value / by - (value % by < 0 ? 1 : 0);
}

// Days from the first day of the year 1 to that of `year`.
constexpr int64_t days_to_year(int64_t year) {
  const int64_t past = year - 1;
  return past * 365 + floor_divide(past, 4) - floor_divide(past, 100) + floor_divide(past, 400);
}

// Seconds since the epoch at which a clock of UTC shows the fields, which may lie out of their
// ranges.
int64_t utc_moment(const struct tm &fields) {
  constexpr std::array<int, 12> kDaysBefore = {0,   31,  59,  90,  120, 151,
                                               181, 212, 243, 273, 304, 334};
  const int64_t year = int64_t{fields.tm_year} + 1900 + floor_divide(fields.tm_mon, 12);
  const auto month = static_cast<size_t>(fields.tm_mon - floor_divide(fields.tm_mon, 12) * 12);
  const bool has_leap_day = days_to_year(year + 1) - days_to_year(year) == 366;
  const int64_t days = days_to_year(year) - days_to_year(1970) + kDaysBefore[month] +
                       (has_leap_day && month >= 2 ? 1 : 0) + fields.tm_mday - 1;
  return days * kDay + fields.tm_hour * int64_t{3600} + fields.tm_min * int64_t{60} + fields.tm_sec;
}

// The zone's clock shows the fields at a moment if it is as far ahead of UTC there as was assumed.
bool find_moment(struct tm *fields, int32_t *moment) {
  const int64_t clock = utc_moment(*fields);
  for (int attempt = 0; attempt < 2; ++attempt) {
    const int64_t guess = clock - last_offset;
    struct tm local;
    if (!fits_time(guess) || !local_time(static_cast<time_t>(guess), &local)) return false;
    const bool hit = local.tm_gmtoff == last_offset;
    last_offset = local.tm_gmtoff;
    if (!hit) continue;
    if (fields->tm_isdst >= 0 && fields->tm_isdst != local.tm_isdst) return false;
    *fields = local;
    *moment = static_cast<int32_t>(guess);
    return true;
  }
  return false;
}

}  // namespace

bool ks::moment_of_local(struct tm *fields, int32_t *moment) {
  if (find_moment(fields, moment)) return true;
  // A time that the clock never shows, that has to be brought to another offset, or none at all; in
  // that case the weekday stays as it is.
  fields->tm_wday = -1;
  const time_t found = time_of_local(fields);
  if (fields->tm_wday < 0 || !fits_time(found)) return false;
  *moment = static_cast<int32_t>(found);
  return true;
}

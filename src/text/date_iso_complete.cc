// ISO 8601 dates: what a text leaves out.
#include <algorithm>

#include "date_iso.h"

using namespace ks;

namespace {

// Now, on the clock of the date's zone.
bool present_of(const IsoDate &date, struct tm *now) {
  if (!date.has_zone()) return local_time(present_seconds(), now);
  const int64_t moment = int64_t{present_seconds()} + date.zone_offset();
  return fits_time(moment) && utc_time(static_cast<time_t>(moment), now);
}

// The present week's number. It goes up in the midst of a week, on a weekday that the year decides;
// users know bare weekdays to be resolved by it.
int week_of(const struct tm &now) {
  return (now.tm_yday - (now.tm_yday - now.tm_wday + 9) % 7 + 11) / 7;
}

// How far the year of a month or a day of the year is off the present one.
int years_off(const IsoDate &date, const struct tm &now, int direction) {
  if (date.yday != kAbsent) return periods_off(date.yday, now.tm_yday + 1, direction);
  if (date.month == kAbsent) return 0;
  return periods_off(order_in_year(date.month, date.mday),
                     order_in_year(now.tm_mon + 1, now.tm_mday), direction);
}

// What is greater than the first part given. A month may come out as 0 or 13.
void take_from_now(const struct tm &now, int direction, IsoDate *date) {
  if (date->second != kAbsent && date->minute == kAbsent) date->minute = now.tm_min;
  if (date->minute != kAbsent && date->hour == kAbsent) date->hour = now.tm_hour;
  const bool has_day = date->yday != kAbsent || date->mday != kAbsent || date->wday != kAbsent;
  if (date->hour != kAbsent && !has_day) date->yday = now.tm_yday + 1;
  if (date->mday != kAbsent && date->month == kAbsent) {
    date->month = now.tm_mon + 1 + periods_off(date->mday, now.tm_mday, direction);
  }
  if (date->wday != kAbsent) {
    const int today = (now.tm_wday + 6) % 7 + 1;
    date->week = week_of(now) + periods_off(date->wday, today, direction);
  }
  const int year = now.tm_year + 1900 + years_off(*date, now, direction);
  date->century = year / 100;
  date->year = year % 100;
}

}  // namespace

bool ks::complete_iso(IsoDate *date, int direction) {
  if (date->century == kAbsent && date->year == kAbsent) {
    struct tm now;
    if (!present_of(*date, &now)) return false;
    take_from_now(now, direction, date);
  }
  if (date->century == kAbsent) date->century = date->year < 51 ? 20 : 19;
  date->year = std::max(date->year, 0);
  if (date->yday == kAbsent && date->month == kAbsent && date->week == kAbsent) date->yday = 1;
  if (date->month != kAbsent) date->mday = std::max(date->mday, 1);
  date->hour = std::max(date->hour, 0);
  date->minute = std::max(date->minute, 0);
  date->second = std::max(date->second, 0);
  return true;
}

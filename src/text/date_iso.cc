// ISO 8601 dates: from a text to its moment.
#include "date_iso.h"

#include "date.h"

using namespace ks;

namespace {

constexpr int32_t kDay = 24 * 60 * 60;

bool within(int value, int first, int last) {
  return value == kAbsent || (value >= first && value <= last);
}

// The day of the month that the weekday of a week is in January; it may lie far outside.
bool january_day_of(const IsoDate &date, int year, int *mday) {
  struct tm third = {};
  third.tm_year = year;
  third.tm_mday = 3;
  int32_t moment;
  if (!moment_of_local(&third, &moment)) return false;
  *mday = date.week * 7 + date.wday - third.tm_wday - 4;
  return true;
}

bool set_fields(const IsoDate &date, struct tm *fields) {
  fields->tm_year = date.century * 100 + date.year - 1900;
  fields->tm_hour = date.hour;
  fields->tm_min = date.minute;
  fields->tm_sec = date.second;
  fields->tm_isdst = -1;
  if (date.mday != kAbsent) {
    fields->tm_mon = date.month - 1;
    fields->tm_mday = date.mday;
    return true;
  }
  fields->tm_mday = date.yday;
  return date.wday == kAbsent || january_day_of(date, fields->tm_year, &fields->tm_mday);
}

// At the ends of 32-bit time a local time may lie beyond them while the moment in its own zone does
// not, so there the fields are taken a day nearer, and the offset makes up for it. Fields that the
// user's clock skips come out as far off as it jumps, although they are another zone's.
bool zoned_moment(struct tm fields, int32_t offset, int32_t *time) {
  const int days = fields.tm_year <= 70 ? 1 : fields.tm_year > 137 ? -1 : 0;
  fields.tm_hour += days * 24;
  int32_t moment;
  if (!moment_of_local(&fields, &moment) || moment < 0) return false;
  const int64_t result =
      int64_t{moment} + offset_seconds_of(fields) - (offset + days * int64_t{kDay});
  if (result < 0 || !fits_time(result)) return false;
  *time = static_cast<int32_t>(result);
  return true;
}

}  // namespace

bool ks::is_valid_iso(const IsoDate &date) {
  return within(date.century, 19, 20) && within(date.month, 1, 12) && within(date.mday, 1, 31) &&
         within(date.wday, 1, 7) && within(date.yday, 1, 366) && within(date.hour, 0, 24) &&
         within(date.minute, 0, 59) && within(date.second, 0, 60) && date.zone_hour <= 23 &&
         date.zone_minute <= 59;
}

bool ks::encode_iso(const IsoDate &date, int32_t *time) {
  struct tm fields = {};
  if (!set_fields(date, &fields)) return false;
  if (date.has_zone()) return zoned_moment(fields, date.zone_offset(), time);
  int32_t moment;
  if (!moment_of_local(&fields, &moment) || moment < 0) return false;
  *time = moment;
  return true;
}

int date_parse_iso_date(const char *text, int direction, int32_t *time) {
  date_init();
  IsoDate date;
  const bool done = text != nullptr && parse_iso(text, &date) && is_valid_iso(date) &&
                    complete_iso(&date, direction) && encode_iso(date, time);
  return done ? 0 : 1;
}

// The older language of dates.
#include <cctype>
#include <cstring>
#include <span>

#include "date.h"
#include "date_internal.h"
#include "strutl.h"
#include "strutl_internal.h"

using namespace ks;

namespace {

constexpr size_t kTextSize = 1024;

struct Parts {
  char *date;  // empty where there is none
  char *time;  // likewise
};

struct Clock {
  int hour;
  int minute;
  int second;
  bool has_zone;
  int64_t zone_offset;  // seconds
};

struct Day {
  enum Kind { kToday, kMonthDay, kDaysOn, kWeekday } kind;
  int year;    // kAbsent where it is left out
  int month;   // from 0
  int mday;    // from 1
  int number;  // of days from today on, or of the weekday
};

// Cuts `text` at the separator. Returns what stands behind it, or NULL where there is none.
char *split(char *text, const char *separator) {
  size_t at;
  if (!strutl_find_str(text, 0, separator, &at)) return nullptr;
  text[at] = '\0';
  return text + at + strlen(separator);
}

bool read_number(const char *text, long first, long last, int *value) {
  long number;
  if (strutl_strtol(text, 10, &number) != 0 || number < first || number > last) return false;
  *value = static_cast<int>(number);
  return true;
}

bool is_blank(const Encoding &encoding, const char *text, size_t *length) {
  if (is_ascii(*text) && encoding.stands_alone(*text)) {
    *length = 1;
    return isspace(*text) != 0;
  }
  return strutl_test_char(text, MB_CUR_MAX, STRUTL_CLASS_SPACE, length) != 0;
}

// The first character that is a blank, or is none, or the end.
char *find_blank(const Encoding &encoding, char *text, bool blank) {
  size_t length;
  for (; *text != '\0'; text += length) {
    if (is_blank(encoding, text, &length) == blank) break;
  }
  return text;
}

// Cuts off the blanks at both ends. Returns the word, or NULL where there are blanks inside.
char *trimmed(char *text) {
  const Encoding encoding;
  char *const word = find_blank(encoding, text, false);
  char *const end = find_blank(encoding, word, true);
  if (*find_blank(encoding, end, false) != '\0') return nullptr;
  *end = '\0';
  return word;
}

Parts split_parts(char *text, const DateWords &words) {
  const char *const separator = words.field_separator;
  size_t at, second;
  if (strutl_find_str(text, 0, separator, &at)) {
    // The first of two dots belongs to the date.
    if (strcmp(separator, ".") == 0 && strutl_find_str(text, at + 1, ".", &second)) at = second;
    text[at] = '\0';
    return {text, text + at + strlen(separator)};
  }
  char *const nothing = text + strlen(text);
  if (strutl_find_str(text, 0, words.time_separator, &at)) return {nothing, text};
  return {text, nothing};
}

// The sign before the hours holds for the minutes, which may have one of their own.
bool read_offset(char *hour_text, const DateWords &words, int64_t *offset) {
  const bool negative = *hour_text == '-';
  const char *minute_text = split(hour_text, words.time_separator);
  int hours, minutes = 0;
  if (!read_number(hour_text, INT32_MIN, INT32_MAX, &hours)) return false;
  if (minute_text != nullptr && !read_number(minute_text, INT32_MIN, INT32_MAX, &minutes)) {
    return false;
  }
  *offset = int64_t{3600} * hours + (negative ? int64_t{-60} : int64_t{60}) * minutes;
  return true;
}

bool read_clock(char *hour_text, const DateWords &words, Clock *clock) {
  if (*hour_text == '\0') return true;
  char *const minute_text = split(hour_text, words.time_separator);
  if (minute_text == nullptr) return false;
  // The zone goes first: it may have a separator of its own.
  char *const zone_text = split(minute_text, words.zone_separator);
  const char *const second_text = split(minute_text, words.time_separator);
  clock->has_zone = zone_text != nullptr;
  return read_number(hour_text, 0, 23, &clock->hour) &&
         read_number(minute_text, 0, 59, &clock->minute) &&
         (second_text == nullptr || read_number(second_text, 0, 59, &clock->second)) &&
         (zone_text == nullptr || *zone_text == '\0' ||
          read_offset(zone_text, words, &clock->zone_offset));
}

const DateName *find_name(std::span<const DateName> rows, const char *word) {
  for (const DateName &row : rows) {
    if (strcmp(word, row.name) == 0 || strcmp(word, row.short_name) == 0) return &row;
  }
  return nullptr;
}

bool read_year(const char *text, int *year) {
  if (!read_number(text, 0, INT32_MAX, year) || (*year >= 100 && *year <= 1968)) return false;
  if (*year <= 68) {
    *year += 2000;
  } else if (*year <= 99) {
    *year += 1900;
  }
  return true;
}

bool read_month_day(const char *day_text, char *month_text, const DateWords &words, Day *day) {
  const char *const year_text = split(month_text, words.date_separator);
  // No word at all has always meant January: "1-" and "1--2006" are dates.
  const DateName *const month =
      *month_text == '\0' ? words.months : find_name(words.months, month_text);
  if (month == nullptr || !read_number(day_text, 1, month->number, &day->mday)) return false;
  day->kind = Day::kMonthDay;
  day->month = static_cast<int>(month - words.months);
  return year_text == nullptr || read_year(year_text, &day->year);
}

bool read_day(char *text, const DateWords &words, Day *day) {
  if (*text == '\0') return true;
  if (char *const month_text = split(text, words.date_separator)) {
    return read_month_day(text, month_text, words, day);
  }
  day->kind = Day::kDaysOn;
  const DateName *name = find_name(words.special_days, text);
  if (name == nullptr) {
    day->kind = Day::kWeekday;
    name = find_name(words.weekdays, text);
  }
  if (name == nullptr) return false;
  day->number = name->number;
  return true;
}

// Days from today to the nearest such weekday, which today may be itself.
int days_to_weekday(int weekday, int today, int direction) {
  const int days = weekday - today;
  if (direction == DATE_TO_FUTURE) return days < 0 ? days + 7 : days;
  return days > 0 ? days - 7 : days;
}

// The date of a day that is given without its year. Days that count from today may lie outside the
// month; mktime brings them into range.
bool resolve_day(const Day &day, bool has_zone, int direction, int32_t now, struct tm *fields) {
  struct tm today;
  if (!local_time(now, &today)) return false;
  // With a zone the year is chosen by the day in UTC, also that of a time without a date.
  struct tm present = today;
  if (has_zone && !utc_time(now, &present)) return false;
  fields->tm_year = today.tm_year;
  fields->tm_mon = day.kind == Day::kMonthDay ? day.month : today.tm_mon;
  fields->tm_mday = day.kind == Day::kMonthDay ? day.mday : today.tm_mday;
  if (day.kind == Day::kDaysOn) {
    fields->tm_mday += day.number;
  } else if (day.kind == Day::kWeekday) {
    fields->tm_mday += days_to_weekday(day.number, today.tm_wday, direction);
  } else {
    fields->tm_year += periods_off(order_in_year(fields->tm_mon, fields->tm_mday),
                                   order_in_year(present.tm_mon, present.tm_mday), direction);
  }
  return true;
}

// Every fourth year has one, also 2100.
bool is_missing_leap_day(const struct tm &fields) {
  return fields.tm_mon == 1 && fields.tm_mday == 29 && fields.tm_year % 4 != 0;
}

// How far local time without summer time is behind UTC.
bool standard_shift(int32_t now, int32_t *seconds) {
  struct tm utc;
  int32_t moment;
  if (!utc_time(now, &utc) || !moment_of_local(&utc, &moment)) return false;
  *seconds = moment - now;
  return true;
}

bool moment_of_date(const Day &day, const Clock &clock, int direction, int32_t *time) {
  struct tm fields = {};
  fields.tm_hour = clock.hour;
  fields.tm_min = clock.minute;
  fields.tm_sec = clock.second;
  fields.tm_isdst = clock.has_zone ? 0 : -1;
  fields.tm_year = day.year - 1900;
  fields.tm_mon = day.month;
  fields.tm_mday = day.mday;
  const bool is_whole = day.year != kAbsent;
  const int32_t now = is_whole && !clock.has_zone ? 0 : present_seconds();
  if (!is_whole && !resolve_day(day, clock.has_zone, direction, now, &fields)) return false;
  const bool is_relative = day.kind == Day::kDaysOn || day.kind == Day::kWeekday;
  if (!is_relative && is_missing_leap_day(fields)) return false;
  int32_t moment, shift = 0;
  if (!moment_of_local(&fields, &moment) || moment < 0) return false;
  if (clock.has_zone && !standard_shift(now, &shift)) return false;
  const int64_t result = moment - (shift + clock.zone_offset);
  if (!fits_time(result)) return false;
  *time = static_cast<int32_t>(result);
  return true;
}

}  // namespace

int date_str_to_time_legacy(const char *text, int direction, int32_t *time) {
  const DateWords &words = date_words();
  char upper[kTextSize];
  if (text == nullptr || *text == '\0') return 1;
  if (!strutl_cvt_case_string(text, 1, sizeof upper, upper)) return 1;
  char *const word = trimmed(upper);
  if (word == nullptr) return 1;
  if (strcmp(word, words.none) == 0) {
    *time = 0;
    return 0;
  }
  if (strcmp(word, words.now) == 0) {
    *time = present_seconds();
    return 0;
  }
  const Parts parts = split_parts(word, words);
  Clock clock = {};
  Day day = {Day::kToday, kAbsent, 0, 0, 0};
  if (!read_clock(parts.time, words, &clock) || !read_day(parts.date, words, &day)) return 1;
  return moment_of_date(day, clock, direction, time) ? 0 : 1;
}

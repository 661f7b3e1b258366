// What the readers of dates share.
#pragma once

#include <cstdint>
#include <ctime>

#include "date.h"
#include "ks_zone.h"

namespace [[gnu::visibility("hidden")]] ks {

constexpr int kAbsent = -1;  // a part of a date that its text leaves out

// A word for a day or a month, and what it stands for. All words are in upper case.
struct DateName {
  int32_t number;
  char name[41];
  char short_name[21];
};

// The words and marks of dates, in the user's language.
struct DateWords {
  DateName months[12];       // number: days, of February in a leap year
  DateName weekdays[7];      // from Sunday on; number: tm_wday
  DateName special_days[2];  // number: days from today on
  char date_separator[5];
  char time_separator[5];
  char field_separator[5];  // between date and time
  char zone_separator[5];
  char now[5];
  char none[5];
  // Separators are "-", ":" and ".", and no word that is a date by itself begins with '-' or a
  // digit.
  bool plain;
};

// Loaded by the first call, which every reader makes first; they stay for the process's life.
const DateWords &date_words();

// By how many years, months or weeks a given part of a date lies off the present one, in the
// direction that the caller wants: -1, 0 or 1.
inline int periods_off(int given, int present, int direction) {
  if (direction == DATE_TO_PAST && given > present) return -1;
  return direction == DATE_TO_FUTURE && given < present ? 1 : 0;
}

// A day of a year as one number, in the order of days. The day may be kAbsent.
inline int order_in_year(int month, int mday) { return month * 100 + mday; }

inline bool fits_time(int64_t moment) { return moment >= INT32_MIN && moment <= INT32_MAX; }

// The moment of local fields, and the fields brought into their ranges: mktime. False for a moment
// beyond 32 bits.
bool moment_of_local(struct tm *fields, int32_t *moment);

}  // namespace ks

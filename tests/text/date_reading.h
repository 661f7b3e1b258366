// Dates read in tests: at a now and in a zone of the test's choice; moments are texts in UTC.
#pragma once

#include <cstdint>
#include <cstdlib>
#include <ctime>
#include <string>
#include <string_view>
#include <vector>

#include "date.h"
#include "support/exact_text.h"
#include "support/faults.h"

namespace ks_test {

constexpr const char *kRefused = "refused";

// A moment as "2006-11-24 12:34:56", in UTC.
inline std::string utc_text(time_t moment) {
  struct tm utc;
  char text[32];
  gmtime_r(&moment, &utc);
  strftime(text, sizeof text, "%Y-%m-%d %H:%M:%S", &utc);
  return text;
}

// The other way round.
inline time_t utc_moment(const char *text) {
  struct tm utc = {};
  return strptime(text, "%Y-%m-%d %H:%M:%S", &utc) != nullptr ? timegm(&utc) : -1;
}

// The zone, and now in UTC.
inline void be_in(const char *zone, const char *now) {
  setenv("TZ", zone, 1);
  set_clock(static_cast<long>(utc_moment(now)), 0);
}

// Gives `read` a place for the time, which it must leave alone when its result is not `success`.
template <class Read>
std::string moment_read(int success, Read &&read) {
  constexpr int32_t kUntouched = -123456789;
  int32_t time = kUntouched;
  const int result = read(&time);
  if (result == success) return utc_text(time);
  if (result != 1 - success) return "no result";
  return time == kUntouched ? kRefused : "refused, and the time was changed";
}

using Reader = int (*)(const char *text, int direction, int32_t *time);

inline std::string read_date(Reader reader, std::string_view text, int direction = DATE_TO_PAST) {
  const ExactText exact(text);
  return moment_read(0, [&](int32_t *time) { return reader(exact, direction, time); });
}

inline std::string older(std::string_view text, int direction = DATE_TO_PAST) {
  return read_date(date_str_to_time_legacy, text, direction);
}

inline std::string iso(std::string_view text, int direction = DATE_TO_PAST) {
  return read_date(date_parse_iso_date, text, direction);
}

inline std::string either(std::string_view text, int direction = DATE_TO_PAST) {
  return read_date(date_str_to_time2, text, direction);
}

struct Reading {
  std::string_view text;
  std::string_view moment;
};

}  // namespace ks_test

// ISO dates: what a text says, and the steps from there to a moment.
#pragma once

#include <cstdint>

#include "date_internal.h"

namespace [[gnu::visibility("hidden")]] ks {

struct IsoDate {
  int century = kAbsent;
  int year = kAbsent;  // in the century
  int yday = kAbsent;  // from 1, like all that follow up to the weekday
  int month = kAbsent;
  int mday = kAbsent;
  int week = kAbsent;
  int wday = kAbsent;  // Monday is 1
  int hour = kAbsent;
  int minute = kAbsent;
  int second = kAbsent;
  int zone_sign = 0;  // 0 where there is no zone
  int zone_hour = 0;
  int zone_minute = 0;

  bool has_zone() const { return zone_sign != 0; }
  int32_t zone_offset() const { return zone_sign * (zone_hour * 3600 + zone_minute * 60); }
};

// Takes a text apart; false where it has no form of a date. Numbers may be out of range still.
bool parse_iso(const char *text, IsoDate *date);

// Whether all that is given lies in its range.
bool is_valid_iso(const IsoDate &date);

// Fills in what is absent: what is greater than the first part given comes from now, the rest gets
// its smallest value. False where now cannot be broken down.
bool complete_iso(IsoDate *date, int direction);

// The moment of a complete date; false where there is none from the epoch on.
bool encode_iso(const IsoDate &date, int32_t *time);

}  // namespace ks

// The zones: moments broken down in the user's zone and in UTC, and back.
//
// A changed zone is seen at once where it comes from TZ, and within a second where TZ is not set and
// the system's own zone changes: asking for that one costs a system call.
#pragma once

#include <cstdint>
#include <ctime>

namespace [[gnu::visibility("hidden")]] ks {

// `moment` in the user's zone, or in UTC; false where its year fits no breakdown.
bool local_time(time_t moment, struct tm *broken_down);
bool utc_time(time_t moment, struct tm *broken_down);

// How far the clock of a local breakdown is ahead of UTC, as the weekdays and times of day of the
// two tell it: a zone whose day is two away is taken for one of the same day.
int32_t offset_seconds_of(const struct tm &local);

// The same at a moment.
int32_t local_offset_seconds(time_t moment);

// The moment of a local breakdown, which is brought into range, or -1: mktime.
time_t time_of_local(struct tm *broken_down);

// Now, from the library's one clock.
int32_t present_seconds();

}  // namespace ks

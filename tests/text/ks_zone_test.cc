#include "text/ks_zone.h"

#include <gtest/gtest.h>

#include <cerrno>
#include <climits>
#include <csignal>
#include <cstdlib>
#include <ctime>
#include <limits>
#include <string>

#include "pfm.h"
#include "support/child.h"
#include "support/faults.h"
#include "support/landing.h"
#include "support/signals.h"

using ks_test::count_calls;
using ks_test::fail_call;
using ks_test::in_child;
using ks_test::land;
using ks_test::Outcome;
using ks_test::set_clock;
using ks_test::signal_in_call;

namespace {

constexpr time_t kWinter = 1142418030;  // 2006-03-15T10:20:30Z
constexpr time_t kSummer = 1153131630;  // 2006-07-17T10:20:30Z

void use_zone(const char *zone) { setenv("TZ", zone, 1); }

// "15 10:20:30": day and time.
std::string clock_of(const struct tm &time) {
  char text[32];
  strftime(text, sizeof text, "%d %H:%M:%S", &time);
  return text;
}

std::string local_clock(time_t moment) {
  struct tm local = {};
  return ks::local_time(moment, &local) ? clock_of(local) : "none";
}

TEST(DateZone, BreaksMomentsDownInTheZoneThatIsSet) {
  use_zone("Asia/Kolkata");
  EXPECT_EQ(local_clock(kWinter), "15 15:50:30");
  use_zone("America/New_York");
  EXPECT_EQ(local_clock(kWinter), "15 05:20:30");
  EXPECT_EQ(local_clock(kSummer), "17 06:20:30");
  use_zone("Pacific/Auckland");
  EXPECT_EQ(local_clock(kWinter), "15 23:20:30");
  use_zone("<-12>12");
  EXPECT_EQ(local_clock(kWinter), "14 22:20:30");
  use_zone("");
  EXPECT_EQ(local_clock(kWinter), "15 10:20:30");
}

TEST(DateZone, BreaksMomentsDownInUtcWhateverTheZone) {
  use_zone("Asia/Kolkata");
  struct tm utc = {};
  ASSERT_TRUE(ks::utc_time(kWinter, &utc));
  EXPECT_EQ(clock_of(utc), "15 10:20:30");
  EXPECT_EQ(utc.tm_gmtoff, 0);
}

TEST(DateZone, SeesAZoneThatTheProgramSetAndTookBack) {
  use_zone("Asia/Kolkata");
  EXPECT_EQ(local_clock(kWinter), "15 15:50:30");
  use_zone("America/New_York");
  tzset();
  use_zone("Asia/Kolkata");
  EXPECT_EQ(local_clock(kWinter), "15 15:50:30");
}

TEST(DateZone, ReadsTheSystemsZoneOnceASecond) {
  unsetenv("TZ");
  set_clock(1000, 0);
  local_clock(kWinter);
  const int before = count_calls("tzset");
  local_clock(kWinter);
  struct tm time = {};
  ks::time_of_local(&time);
  set_clock(1000, 999999);
  local_clock(kSummer);
  EXPECT_EQ(count_calls("tzset"), before);
  set_clock(1001, 0);
  local_clock(kWinter);
  EXPECT_EQ(count_calls("tzset"), before + 1);
  set_clock(999, 0);
  local_clock(kWinter);
  EXPECT_EQ(count_calls("tzset"), before + 2);
}

TEST(DateZone, ReadsTheSystemsZoneAtOnceWhenTzGoes) {
  unsetenv("TZ");
  set_clock(1000, 0);
  const std::string system_clock = local_clock(kWinter);
  use_zone("<+0717>-7:17");
  EXPECT_EQ(local_clock(kWinter), "15 17:37:30");
  unsetenv("TZ");
  EXPECT_EQ(local_clock(kWinter), system_clock);
  use_zone("<+0717>-7:17");
  struct tm time = {};
  ks::time_of_local(&time);
  unsetenv("TZ");
  EXPECT_EQ(local_clock(kWinter), system_clock);
}

TEST(DateZone, FailsWhereLibcDoes) {
  fail_call("localtime_r", 0, EOVERFLOW, 2);
  EXPECT_EQ(local_clock(kWinter), "none");
  use_zone("Asia/Kolkata");
  EXPECT_EQ(ks::local_offset_seconds(kWinter), 0);
  fail_call("gmtime_r", 0, EOVERFLOW);
  struct tm utc = {};
  EXPECT_FALSE(ks::utc_time(kWinter, &utc));
  fail_call("mktime", 0, EOVERFLOW);
  EXPECT_EQ(ks::time_of_local(&utc), -1);
}

TEST(DateZone, FailsBeyondTheYearsOfABreakdown) {
  if (sizeof(time_t) == 4) return;  // every 32-bit moment has a year
  const time_t last = std::numeric_limits<time_t>::max();
  struct tm time = {};
  EXPECT_FALSE(ks::local_time(last, &time));
  EXPECT_FALSE(ks::utc_time(last, &time));
}

TEST(DateZone, ReachesBothEndsOf32Bits) {
  use_zone("UTC");
  EXPECT_EQ(local_clock(INT32_MAX), "19 03:14:07");
  EXPECT_EQ(local_clock(INT32_MIN), "13 20:45:52");
  EXPECT_EQ(local_clock(-1), "31 23:59:59");
}

TEST(DateZone, OffsetIsLocalTimeMinusUtc) {
  struct Row {
    const char *zone;
    time_t moment;
    int32_t offset;
  };
  // New York's clocks changed at 1143961200 (2006-04-02T07:00:00Z) and 1162101600
  // (2006-10-29T06:00:00Z).
  constexpr Row kRows[] = {
      {"UTC", kWinter, 0},
      {"Asia/Kolkata", kWinter, 19800},
      {"America/New_York", 1143961199, -18000},
      {"America/New_York", 1143961200, -14400},
      {"America/New_York", 1162101599, -14400},
      {"America/New_York", 1162101600, -18000},
      {"Pacific/Auckland", kWinter, 46800},
      {"Pacific/Auckland", kSummer, 43200},
      {"<-12>12", kWinter, -43200},
      {"<-12>12", 0, -43200},
      {"<+14>-14", kWinter, 50400},
      {"<+00>-0:00:01", kWinter, 1},
      {"<-24>23:59:59", kWinter, -86399},
      {"<+24>-24", kWinter, 86400},
      {"<-24>24", kWinter, -86400},
  };
  for (const Row &row : kRows) {
    use_zone(row.zone);
    EXPECT_EQ(ks::local_offset_seconds(row.moment), row.offset) << row.zone << " " << row.moment;
  }
}

// 10:20:30 UTC and 24 hours 59 minutes: the next day. 23:20:30 UTC and as much: two days on, at
// 00:19:30, whose weekday tells of no difference.
TEST(DateZone, KeepsOnlyTheClocksDifferenceWhereTheDayIsTwoAway) {
  use_zone("<+25>-24:59");
  EXPECT_EQ(ks::local_offset_seconds(kWinter), 89940);
  EXPECT_EQ(ks::local_offset_seconds(kWinter + 13 * 3600), 1170 - 84030);
  use_zone("<-25>24:59");
  EXPECT_EQ(ks::local_offset_seconds(kWinter), -89940);
  EXPECT_EQ(ks::local_offset_seconds(kWinter - 10 * 3600), 84090 - 1230);
}

TEST(DateZone, FindsTheMomentOfALocalTime) {
  use_zone("America/New_York");
  struct tm time = {};
  time.tm_year = 106;
  time.tm_mon = 2;
  time.tm_mday = 15;
  time.tm_hour = 5;
  time.tm_min = 20;
  time.tm_sec = 30;
  time.tm_isdst = -1;
  EXPECT_EQ(ks::time_of_local(&time), kWinter);
  EXPECT_EQ(time.tm_wday, 3);
  use_zone("Asia/Kolkata");
  time.tm_hour = 15;
  time.tm_min = 49;
  time.tm_sec = 90;
  time.tm_isdst = -1;
  EXPECT_EQ(ks::time_of_local(&time), kWinter);
  EXPECT_EQ(time.tm_sec, 30);
}

TEST(DateZone, PresentIsTheLibrarysClock) {
  set_clock(1142418030, 999999);
  EXPECT_EQ(ks::present_seconds(), 1142418030);
}

// libc's calls with a lock in them, and what makes them.
struct Stretch {
  const char *call;
  void (*action)();
};

struct tm scratch = {};
void break_down_locally() { ks::local_time(kWinter, &scratch); }
void break_down_in_utc() { ks::utc_time(kWinter, &scratch); }
void find_moment() { ks::time_of_local(&scratch); }

constexpr Stretch kStretches[] = {
    {"tzset", break_down_locally},
    {"localtime_r", break_down_locally},
    {"gmtime_r", break_down_in_utc},
    {"mktime", find_moment},
};

TEST(DateZone, ASignalThatRaisesArrivesBehindTheCall) {
  for (const Stretch &stretch : kStretches) {
    const Outcome outcome = in_child([&] {
      pfm_signal(SIGINT, [](int sig) {
        if (ks_test::inside_call()) _exit(1);
        pfm_raise(sig);
      });
      signal_in_call(stretch.call, 0, SIGINT);
      if (land(stretch.action).status != SIGINT) _exit(2);
      stretch.action();
    });
    EXPECT_EQ(outcome.end(), "exit 0") << stretch.call;
  }
}

}  // namespace

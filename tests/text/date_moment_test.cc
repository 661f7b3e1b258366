// Moments of local times, held against mktime.
#include <gtest/gtest.h>

#include <cerrno>
#include <climits>
#include <cstring>
#include <set>
#include <string>

#include "support/random.h"
#include "text/date_internal.h"
#include "text/date_reading.h"

using ks::moment_of_local;
using ks_test::count_calls;
using ks_test::fail_call;
using ks_test::Random;
using ks_test::utc_moment;
using ks_test::utc_text;

namespace {

constexpr const char *kZones[] = {"UTC",
                                  "Asia/Kolkata",
                                  "America/New_York",
                                  "Pacific/Auckland",
                                  "Europe/Dublin",
                                  "Africa/Monrovia",
                                  "Australia/Lord_Howe",
                                  "Pacific/Apia",
                                  "<-12>12",
                                  "<+0530>-5:30<+0645>,M3.2.0/1:30,M10.1.0/0:15"};

void use_zone(const char *zone) {
  setenv("TZ", zone, 1);
  tzset();
}

struct tm fields_of(int64_t clock, int isdst = -1) {
  const time_t moment = static_cast<time_t>(clock);
  struct tm fields;
  gmtime_r(&moment, &fields);
  fields.tm_isdst = isdst;
  return fields;
}

// All moments at which the zone's clock shows the time: its offsets are sought within two days.
std::set<time_t> moments_of(time_t clock) {
  std::set<time_t> moments;
  for (time_t near = clock - 172800; near <= clock + 172800; near += 21600) {
    struct tm local;
    localtime_r(&near, &local);
    const time_t guess = clock - local.tm_gmtoff;
    struct tm there;
    localtime_r(&guess, &there);
    if (guess + there.tm_gmtoff == clock) moments.insert(guess);
  }
  return moments;
}

void expect_moment_of(time_t clock) {
  struct tm fields = fields_of(clock), by_mktime = fields;
  const time_t expected = mktime(&by_mktime);
  int32_t moment;
  ASSERT_TRUE(moment_of_local(&fields, &moment)) << clock;
  const std::set<time_t> moments = moments_of(clock);
  if (moments.size() == 1) {
    EXPECT_EQ(moment, expected) << clock;
    EXPECT_EQ(fields.tm_isdst, by_mktime.tm_isdst);
    EXPECT_EQ(fields.tm_gmtoff, by_mktime.tm_gmtoff);
    EXPECT_EQ(fields.tm_wday, by_mktime.tm_wday);
    EXPECT_EQ(fields.tm_hour, by_mktime.tm_hour);
  } else if (moments.size() > 1) {
    EXPECT_TRUE(moments.count(moment)) << clock << ": " << moment;
  } else {  // it is moved by the gap, to one side or the other
    EXPECT_LE(labs(moment - static_cast<long>(expected)), 86400) << clock;
    EXPECT_NE(moment + fields.tm_gmtoff, clock);
  }
}

TEST(DateMoment, IsThatOfMktimeAllOverTime) {
  constexpr uint32_t kSeed = 20061124;
  Random random(kSeed);
  for (const char *zone : kZones) {
    use_zone(zone);
    SCOPED_TRACE(std::string(zone) + ", seed " + std::to_string(kSeed));
    for (int turn = 0; turn < 1500; ++turn) {
      const int64_t wide = int64_t{random()} * 2 - INT32_MAX;
      expect_moment_of(
          static_cast<time_t>(std::clamp<int64_t>(wide, INT32_MIN + 200000, INT32_MAX - 200000)));
    }
  }
}

TEST(DateMoment, IsThatOfMktimeOnBothSidesOfAChange) {
  for (const char *zone : kZones) {
    use_zone(zone);
    SCOPED_TRACE(zone);
    for (const char *day :
         {"1972-01-07", "1986-10-19", "2006-03-12", "2006-04-02", "2006-09-30", "2006-10-01",
          "2006-10-29", "2007-03-11", "2007-03-18", "2008-04-06", "2011-12-30", "2037-10-25"}) {
      const time_t midnight = utc_moment((std::string(day) + " 00:00:00").c_str());
      for (time_t clock = midnight - 43200; clock < midnight + 129600; clock += 450) {
        expect_moment_of(clock);
      }
    }
  }
}

TEST(DateMoment, BringsFieldsIntoTheirRanges) {
  use_zone("Asia/Kolkata");
  Random random(1);
  const auto between = [&](int first, int last) {
    return first + static_cast<int>(random() % static_cast<uint32_t>(last - first + 1));
  };
  for (int turn = 0; turn < 3000; ++turn) {
    struct tm fields = {};
    fields.tm_year = between(75, 130);
    fields.tm_mon = between(-40, 70);
    fields.tm_mday = between(-800, 800);
    fields.tm_hour = between(-50, 99);
    fields.tm_min = between(-99, 99);
    fields.tm_sec = between(-99, 99);
    fields.tm_isdst = -1;
    struct tm by_mktime = fields;
    const struct tm given = fields;
    const time_t expected = mktime(&by_mktime);
    int32_t moment;
    ASSERT_TRUE(moment_of_local(&fields, &moment));
    EXPECT_EQ(moment, expected) << given.tm_year << " " << given.tm_mon << " " << given.tm_mday;
    EXPECT_EQ(fields.tm_year, by_mktime.tm_year);
    EXPECT_EQ(fields.tm_yday, by_mktime.tm_yday);
    EXPECT_EQ(fields.tm_sec, by_mktime.tm_sec);
  }
}

TEST(DateMoment, FailsBeyond32Bits) {
  use_zone("UTC");
  const auto is_found = [](int year, int month, int day, int second) {
    struct tm fields = {};
    fields.tm_year = year - 1900;
    fields.tm_mon = month - 1;
    fields.tm_mday = day;
    fields.tm_hour = 3;
    fields.tm_min = 14;
    fields.tm_sec = second;
    int32_t moment = 5;
    const bool found = moment_of_local(&fields, &moment);
    EXPECT_EQ(moment != 5, found);
    return found;
  };
  EXPECT_TRUE(is_found(2038, 1, 19, 7));
  EXPECT_FALSE(is_found(2038, 1, 19, 8));
  EXPECT_FALSE(is_found(2100, 1, 1, 0));
  EXPECT_FALSE(is_found(INT_MAX, 1, 1, 0));
  EXPECT_TRUE(is_found(1901, 12, 14, 0));
  EXPECT_FALSE(is_found(1901, 12, 13, 0));
  EXPECT_FALSE(is_found(1, 1, 1, 0));
}

TEST(DateMoment, OfTheSecondBeforeTheEpochIsFound) {
  for (const char *zone : kZones) {
    use_zone(zone);
    const time_t last = -1;
    struct tm fields;
    localtime_r(&last, &fields);
    int32_t moment = 5;
    EXPECT_TRUE(moment_of_local(&fields, &moment)) << zone;
    EXPECT_EQ(moment, -1) << zone;
  }
}

TEST(DateMoment, WithoutSummerTimeIsThatOfMktime) {
  for (const char *zone : kZones) {
    use_zone(zone);
    for (time_t clock = 1136073600; clock < 1167609600; clock += 40000) {  // 2006
      struct tm fields = fields_of(clock, 0), by_mktime = fields;
      int32_t moment;
      ASSERT_TRUE(moment_of_local(&fields, &moment));
      EXPECT_EQ(moment, mktime(&by_mktime)) << zone << " " << clock;
    }
  }
}

TEST(DateMoment, AsksTheSystemForItsZoneOnceASecond) {
  unsetenv("TZ");
  ks_test::set_clock(1142418030, 0);
  struct tm first = fields_of(1142418030);
  int32_t moment;
  ASSERT_TRUE(moment_of_local(&first, &moment));
  const int reads = count_calls("tzset") + count_calls("mktime");
  for (int turn = 0; turn < 100; ++turn) {
    struct tm fields = fields_of(1142418030 + turn);
    ASSERT_TRUE(moment_of_local(&fields, &moment));
  }
  EXPECT_EQ(count_calls("tzset") + count_calls("mktime"), reads);
}

TEST(DateMoment, FailsWhereTheCalendarDoes) {
  use_zone("Asia/Kolkata");
  struct tm fields = fields_of(1142418030);
  int32_t moment = 5;
  fail_call("localtime_r", 0, EOVERFLOW);
  fail_call("mktime", 0, EOVERFLOW);
  EXPECT_FALSE(moment_of_local(&fields, &moment));
  EXPECT_EQ(moment, 5);
  fields = fields_of(1142418030);
  fail_call("localtime_r", 0, EOVERFLOW);
  EXPECT_TRUE(moment_of_local(&fields, &moment));  // by mktime
  EXPECT_EQ(utc_text(moment), "2006-03-15 04:50:30");
}

}  // namespace

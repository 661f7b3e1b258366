#include <gmock/gmock.h>
#include <gtest/gtest.h>

#include <cerrno>
#include <string>

#include "support/locale.h"
#include "text/date_iso.h"
#include "text/date_reading.h"

using ks::IsoDate;
using ks::kAbsent;
using ks_test::be_in;
using ks_test::count_calls;
using ks_test::fail_call;
using ks_test::iso;
using ks_test::kRefused;
using ks_test::Reading;
using testing::AnyOf;

namespace {

constexpr const char *kFriday = "2006-11-24 12:34:56";

TEST(IsoRanges, HoldForWhatIsGiven) {
  constexpr struct {
    int IsoDate::*field;
    int first;
    int last;
  } kRanges[] = {
      {&IsoDate::century, 19, 20},  {&IsoDate::month, 1, 12},       {&IsoDate::mday, 1, 31},
      {&IsoDate::wday, 1, 7},       {&IsoDate::yday, 1, 366},       {&IsoDate::hour, 0, 24},
      {&IsoDate::minute, 0, 59},    {&IsoDate::second, 0, 60},      {&IsoDate::year, 0, 99},
      {&IsoDate::zone_hour, 0, 23}, {&IsoDate::zone_minute, 0, 59},
  };
  EXPECT_TRUE(ks::is_valid_iso(IsoDate()));
  for (const auto &range : kRanges) {
    IsoDate date;
    for (int value = range.first; value <= range.last; ++value) {
      date.*range.field = value;
      EXPECT_TRUE(ks::is_valid_iso(date)) << value;
    }
    if (range.field == &IsoDate::year) continue;  // two digits can't be beyond
    date.*range.field = range.last + 1;
    EXPECT_FALSE(ks::is_valid_iso(date)) << range.last + 1;
    if (range.first == 0) continue;
    date.*range.field = range.first - 1;
    EXPECT_FALSE(ks::is_valid_iso(date)) << range.first - 1;
  }
}

TEST(IsoDates, OutOfRangeAreRefused) {
  be_in("UTC", kFriday);
  for (const char *text : {"18",
                           "21",
                           "00",
                           "1899-12-31",
                           "2100-01-01",
                           "2006-00",
                           "2006-13",
                           "2006-11-00",
                           "2006-11-32",
                           "2006-000",
                           "2006-367",
                           "-W-0",
                           "-W-8",
                           "T25",
                           "T24:60",
                           "T10:60",
                           "T10:15:61",
                           "2006-11-24T10Z+",
                           "2006-11-24T10+24",
                           "2006-11-24T10+05:60",
                           "--00",
                           "---00",
                           "---32",
                           "-000",
                           "-367",
                           "--13-01",
                           "--1232",
                           "0632",
                           ""}) {
    EXPECT_EQ(iso(text), kRefused) << text;
  }
  int32_t time = 5;
  EXPECT_EQ(date_parse_iso_date(nullptr, DATE_TO_PAST, &time), 1);
  EXPECT_EQ(time, 5);
}

TEST(IsoDates, KeepsWeekDatesRefused) {
  be_in("UTC", kFriday);
  for (const char *text : {"2006-W12-3", "2006W123", "2006-W12", "06W12", "-W12", "-W12-3"}) {
    EXPECT_EQ(iso(text), kRefused) << text;
  }
}

TEST(IsoDates, KeepsSixDigitsAsYearMonthAndDay) {
  be_in("UTC", kFriday);
  EXPECT_EQ(iso("200601"), "2020-06-01 00:00:00");
  EXPECT_EQ(iso("2006"), "2006-01-01 00:00:00");
  EXPECT_EQ(iso("20"), "2000-01-01 00:00:00");
  EXPECT_EQ(iso("19"), kRefused);  // 1900
}

TEST(IsoDates, BeyondTheMonthGoOn) {
  be_in("UTC", kFriday);
  constexpr Reading kReadings[] = {
      {"2006-02-31", "2006-03-03 00:00:00"},      {"2006-02-29", "2006-03-01 00:00:00"},
      {"2004-02-29", "2004-02-29 00:00:00"},      {"2006-366", "2007-01-01 00:00:00"},
      {"2004-366", "2004-12-31 00:00:00"},        {"2006-11-24T24:00", "2006-11-25 00:00:00"},
      {"2006-12-31T24", "2007-01-01 00:00:00"},   {"2006-11-24T24:59:60", "2006-11-25 01:00:00"},
      {"20061124T235960", "2006-11-25 00:00:00"},
  };
  for (const Reading &row : kReadings) EXPECT_EQ(iso(row.text), row.moment) << row.text;
}

TEST(IsoDates, WithoutAZoneAreInTheUsers) {
  be_in("Asia/Kolkata", kFriday);
  EXPECT_EQ(iso("2006-11-24T10:15"), "2006-11-24 04:45:00");
  EXPECT_EQ(iso("2006-328"), "2006-11-23 18:30:00");
  be_in("America/New_York", kFriday);
  EXPECT_EQ(iso("2006-11-24T10:15"), "2006-11-24 15:15:00");
  EXPECT_EQ(iso("2006-07-24T10:15"), "2006-07-24 14:15:00");
  EXPECT_EQ(iso("2006-04-02T01:59:59"), "2006-04-02 06:59:59");
  EXPECT_EQ(iso("2006-04-02T03:00"), "2006-04-02 07:00:00");
  EXPECT_EQ(iso("2006-10-29T00:59:59"), "2006-10-29 04:59:59");
  EXPECT_EQ(iso("2006-10-29T02:00"), "2006-10-29 07:00:00");
  be_in("Pacific/Auckland", kFriday);
  EXPECT_EQ(iso("2006-11-24T10:15"), "2006-11-23 21:15:00");
  EXPECT_EQ(iso("2006-07-24T10:15"), "2006-07-23 22:15:00");
  be_in("<-12>12", kFriday);
  EXPECT_EQ(iso("2006-11-24T10:15"), "2006-11-24 22:15:00");
}

constexpr const char *kZones[] = {"UTC", "Asia/Kolkata", "America/New_York", "Pacific/Auckland",
                                  "<-12>12"};

TEST(IsoDates, WithAZoneAreTheSameEverywhere) {
  constexpr Reading kReadings[] = {
      {"20061124T101500Z", "2006-11-24 10:15:00"},
      {"2006-11-24T10:15:00z", "2006-11-24 10:15:00"},
      {"2006-11-24T10:15+05:30", "2006-11-24 04:45:00"},
      {"2006-11-24T10:15-0530", "2006-11-24 15:45:00"},
      {"2006-11-24T10-23:59", "2006-11-25 09:59:00"},
      {"2006-07-24T10+12", "2006-07-23 22:00:00"},
      {"2006-11-24T24:00Z", "2006-11-25 00:00:00"},
      // the ends of 32-bit time
      {"1970-01-01T00:00Z", "1970-01-01 00:00:00"},
      {"1970-01-01T05:30+05:30", "1970-01-01 00:00:00"},
      {"1969-12-31T12:00-12:00", "1970-01-01 00:00:00"},
      {"1970-01-01T23:59:59+23:59", "1970-01-01 00:00:59"},
      {"1969-12-31T23:59:59Z", kRefused},
      {"1970-01-01T00:00+00:01", kRefused},
      {"1970-12-31T23:59:59Z", "1970-12-31 23:59:59"},
      {"1971-01-01T00:00Z", "1971-01-01 00:00:00"},
      {"2037-12-31T23:59:59Z", "2037-12-31 23:59:59"},
      {"2038-01-01T00:00Z", "2038-01-01 00:00:00"},
      {"2038-01-19T03:14:07Z", "2038-01-19 03:14:07"},
      {"2038-01-19T15:14:07+12:00", "2038-01-19 03:14:07"},
      {"2038-01-18T15:14:07-12:00", "2038-01-19 03:14:07"},
      {"2038-01-19T03:14:08Z", kRefused},
      {"2038-01-19T15:14:08+12:00", kRefused},
      {"2038-06-01T00:00Z", kRefused},
      {"2050-01-01T00:00Z", kRefused},
      {"1919-01-01T00:00Z", kRefused},
  };
  for (const char *zone : kZones) {
    be_in(zone, kFriday);
    for (const Reading &row : kReadings) {
      EXPECT_EQ(iso(row.text), row.moment) << row.text << " in " << zone;
    }
  }
}

TEST(IsoDates, WithoutAZoneEndWithThe32BitsOfATime) {
  be_in("UTC", kFriday);
  EXPECT_EQ(iso("1970-01-01"), "1970-01-01 00:00:00");
  EXPECT_EQ(iso("1969-12-31T23:59:59"), kRefused);
  EXPECT_EQ(iso("2038-01-19T03:14:07"), "2038-01-19 03:14:07");
  EXPECT_EQ(iso("2038-01-19T03:14:08"), kRefused);
  be_in("<-12>12", kFriday);
  EXPECT_EQ(iso("1969-12-31T12:00"), "1970-01-01 00:00:00");
  EXPECT_EQ(iso("1969-12-31T11:59:59"), kRefused);
  EXPECT_EQ(iso("2038-01-18T15:14:07"), "2038-01-19 03:14:07");
  EXPECT_EQ(iso("2038-01-18T15:14:08"), kRefused);
}

// The way to a moment in another zone leads over the user's clock, which never shows these times.
TEST(IsoDates, KeepsZonedTimesInALocalGapAnHourOff) {
  be_in("America/New_York", kFriday);
  EXPECT_EQ(iso("2006-04-02T01:59:59Z"), "2006-04-02 01:59:59");
  for (int turn = 0; turn < 3; ++turn) {
    EXPECT_THAT(iso("2006-04-02T02:30Z"), AnyOf("2006-04-02 01:30:00", "2006-04-02 03:30:00"));
  }
  EXPECT_EQ(iso("2006-04-02T03:00Z"), "2006-04-02 03:00:00");
  // What the clock shows twice is nothing out of the way.
  EXPECT_EQ(iso("2006-10-29T01:30Z"), "2006-10-29 01:30:00");
}

// Offsets are told by weekdays, so a clock two days behind is taken for one of the same day.
TEST(IsoDates, KeepsZonedTimesTwoDaysOffWhereTheUsersClockIs) {
  be_in("<-2430>24:30", kFriday);
  EXPECT_EQ(iso("2006-11-24T10:15Z"), "2006-11-24 10:15:00");
  EXPECT_EQ(iso("2006-11-24T23:45Z"), "2006-11-26 23:45:00");
}

TEST(IsoDates, AreReadTheSameInAnyEncoding) {
  be_in("UTC", kFriday);
  for (const char *locale : {"C", "C.UTF-8", "ja_JP.SJIS"}) {
    ks_test::use_locale(locale);
    EXPECT_EQ(iso("2006-11-24T10:15"), "2006-11-24 10:15:00") << locale;
    EXPECT_EQ(iso("2006-11-24\xe3\x80\x80"), kRefused) << locale;
    EXPECT_EQ(iso("\xff"), kRefused) << locale;
  }
}

TEST(IsoDates, AreAsLongAsTheyLike) {
  be_in("UTC", kFriday);
  EXPECT_EQ(iso(std::string(100000, '1')), kRefused);
  EXPECT_EQ(iso(std::string(100000, '-')), kRefused);
  EXPECT_EQ(iso("T" + std::string(100000, '-') + "10"), kRefused);
  EXPECT_EQ(iso("2006-11-24T10:15" + std::string(100000, '0')), kRefused);
}

TEST(IsoDates, FailWhereTheCalendarDoes) {
  be_in("UTC", kFriday);
  for (const char *text : {"2006-11-24", "2006-11-24T10Z"}) {
    fail_call("localtime_r", 0, EOVERFLOW);
    fail_call("mktime", 0, EOVERFLOW);
    EXPECT_EQ(iso(text), kRefused) << text;
    EXPECT_NE(iso(text), kRefused) << text;
  }
  fail_call("localtime_r", 1, EOVERFLOW);  // of 3 January
  fail_call("mktime", 0, EOVERFLOW);
  EXPECT_EQ(iso("-W-5"), kRefused);
}

TEST(IsoDates, WithAYearDoNotAskForNow) {
  be_in("UTC", kFriday);
  iso("20061124T101500Z");
  const int clocks = count_calls("gettimeofday");
  const int conversions = count_calls("localtime_r");
  EXPECT_EQ(iso("20061124T101500Z"), "2006-11-24 10:15:00");
  EXPECT_EQ(count_calls("gettimeofday"), clocks);
  EXPECT_EQ(count_calls("localtime_r"), conversions + 1);
}

}  // namespace

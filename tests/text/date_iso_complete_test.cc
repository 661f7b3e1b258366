#include <gtest/gtest.h>

#include <string>

#include "text/date_iso.h"
#include "text/date_reading.h"

using ks::complete_iso;
using ks::IsoDate;
using ks_test::be_in;
using ks_test::fail_call;
using ks_test::iso;
using ks_test::kRefused;
using ks_test::Reading;

namespace {

constexpr const char *kFriday = "2006-11-24 12:34:56";

struct Row {
  const char *text;
  const char *past;
  const char *future;
};

template <size_t kRows>
void expect_rows(const Row (&rows)[kRows]) {
  for (const Row &row : rows) {
    EXPECT_EQ(iso(row.text, DATE_TO_PAST), row.past) << row.text;
    EXPECT_EQ(iso(row.text, DATE_TO_FUTURE), row.future) << row.text;
  }
}

TEST(IsoDefaults, GiveWhatIsLessItsLeastValue) {
  be_in("UTC", kFriday);
  constexpr Reading kReadings[] = {
      {"20", "2000-01-01 00:00:00"},
      {"2004", "2004-01-01 00:00:00"},
      {"04-11", "2004-11-01 00:00:00"},
      {"2004-11-03", "2004-11-03 00:00:00"},
      {"2004-100", "2004-04-09 00:00:00"},
      {"2004-11-03T10", "2004-11-03 10:00:00"},
      {"2004-11-03T10:15", "2004-11-03 10:15:00"},
      {"2004-11-03T10:15:30", "2004-11-03 10:15:30"},
  };
  for (const Reading &row : kReadings) EXPECT_EQ(iso(row.text), row.moment) << row.text;
}

TEST(IsoDefaults, PutYearsUpTo50After2000) {
  be_in("UTC", kFriday);
  EXPECT_EQ(iso("-00"), "2000-01-01 00:00:00");
  EXPECT_EQ(iso("-37"), "2037-01-01 00:00:00");
  EXPECT_EQ(iso("-70"), "1970-01-01 00:00:00");
  EXPECT_EQ(iso("-99"), "1999-01-01 00:00:00");
  const auto century_of = [](int year) {
    IsoDate date;
    date.year = year;
    complete_iso(&date, DATE_TO_PAST);
    return date.century;
  };
  EXPECT_EQ(century_of(50), 20);
  EXPECT_EQ(century_of(51), 19);
}

TEST(IsoDefaults, TakeTheTimeFromNowAboveWhatIsGiven) {
  be_in("UTC", kFriday);
  constexpr Row kRows[] = {
      {"T10", "2006-11-24 10:00:00", "2006-11-24 10:00:00"},
      {"T23:59", "2006-11-24 23:59:00", "2006-11-24 23:59:00"},
      {"T-30", "2006-11-24 12:30:00", "2006-11-24 12:30:00"},
      {"T-30:05", "2006-11-24 12:30:05", "2006-11-24 12:30:05"},
      {"T--15", "2006-11-24 12:34:15", "2006-11-24 12:34:15"},
  };
  expect_rows(kRows);
}

TEST(IsoDefaults, ChooseTheMonthOfADay) {
  be_in("UTC", kFriday);
  constexpr Row kRows[] = {
      {"---23", "2006-11-23 00:00:00", "2006-12-23 00:00:00"},
      {"---24", "2006-11-24 00:00:00", "2006-11-24 00:00:00"},
      {"---25", "2006-10-25 00:00:00", "2006-11-25 00:00:00"},
      {"---31", "2006-10-31 00:00:00", "2006-12-01 00:00:00"},  // 31 November
      {"---25T10:15", "2006-10-25 10:15:00", "2006-11-25 10:15:00"},
  };
  expect_rows(kRows);
  EXPECT_EQ(iso("---25", 2), "2006-11-25 00:00:00");
  EXPECT_EQ(iso("---23", -1), "2006-11-23 00:00:00");
}

TEST(IsoDefaults, ChooseMonthsOverTheEndsOfTheYear) {
  be_in("UTC", "2007-01-10 12:00:00");
  EXPECT_EQ(iso("---25", DATE_TO_PAST), "2006-12-25 00:00:00");
  EXPECT_EQ(iso("---25", DATE_TO_FUTURE), "2007-01-25 00:00:00");
  be_in("UTC", "2006-12-20 12:00:00");
  EXPECT_EQ(iso("---05", DATE_TO_FUTURE), "2007-01-05 00:00:00");
  EXPECT_EQ(iso("---05", DATE_TO_PAST), "2006-12-05 00:00:00");
}

TEST(IsoDefaults, ChooseTheYearOfAMonth) {
  be_in("UTC", kFriday);
  constexpr Row kRows[] = {
      {"--10", "2006-10-01 00:00:00", "2007-10-01 00:00:00"},
      {"--12", "2005-12-01 00:00:00", "2006-12-01 00:00:00"},
      {"--10-31", "2006-10-31 00:00:00", "2007-10-31 00:00:00"},
      {"--11-23", "2006-11-23 00:00:00", "2007-11-23 00:00:00"},
      {"--11-24", "2006-11-24 00:00:00", "2006-11-24 00:00:00"},
      {"--11-25", "2005-11-25 00:00:00", "2006-11-25 00:00:00"},
      {"--1201", "2005-12-01 00:00:00", "2006-12-01 00:00:00"},
      {"--11-24T10:15", "2006-11-24 10:15:00", "2006-11-24 10:15:00"},
      {"--11-25T10:15", "2005-11-25 10:15:00", "2006-11-25 10:15:00"},
  };
  expect_rows(kRows);
  EXPECT_EQ(iso("--12", 2), "2006-12-01 00:00:00");
  EXPECT_EQ(iso("--10", -1), "2006-10-01 00:00:00");
}

TEST(IsoDefaults, KeepsTheMissingDayOfThePresentMonthBeforeToday) {
  be_in("UTC", "2006-11-01 00:00:00");
  EXPECT_EQ(iso("--11", DATE_TO_PAST), "2006-11-01 00:00:00");
  EXPECT_EQ(iso("--11", DATE_TO_FUTURE), "2007-11-01 00:00:00");
}

TEST(IsoDefaults, ChooseTheYearOfADayOfTheYear) {
  be_in("UTC", kFriday);  // its day 328
  constexpr Row kRows[] = {
      {"-001", "2006-01-01 00:00:00", "2007-01-01 00:00:00"},
      {"-327", "2006-11-23 00:00:00", "2007-11-23 00:00:00"},
      {"-328", "2006-11-24 00:00:00", "2006-11-24 00:00:00"},
      {"-329", "2005-11-25 00:00:00", "2006-11-25 00:00:00"},
      {"-366", "2006-01-01 00:00:00", "2007-01-01 00:00:00"},  // one more than there are
      {"-060T10", "2006-03-01 10:00:00", "2007-03-01 10:00:00"},
  };
  expect_rows(kRows);
  EXPECT_EQ(iso("-329", 2), "2006-11-25 00:00:00");
  be_in("UTC", "2008-12-31 23:59:59");
  EXPECT_EQ(iso("-366"), "2008-12-31 00:00:00");
}

TEST(IsoDefaults, ChooseTheWeekOfAWeekday) {
  be_in("UTC", "2006-11-20 12:00:00");  // a Monday
  constexpr Row kRows[] = {
      {"-W-1", "2006-11-20 00:00:00", "2006-11-20 00:00:00"},
      {"-W-3", "2006-11-15 00:00:00", "2006-11-22 00:00:00"},
      {"-W-7", "2006-11-19 00:00:00", "2006-11-26 00:00:00"},
      {"-w-3T10:15", "2006-11-15 10:15:00", "2006-11-22 10:15:00"},
  };
  expect_rows(kRows);
  EXPECT_EQ(iso("-W-3", 2), "2006-11-22 00:00:00");
  be_in("UTC", "2006-12-31 12:00:00");  // a Sunday
  EXPECT_EQ(iso("-W-7T10", DATE_TO_FUTURE), "2007-01-07 10:00:00");
}

// Day 327 of 2006 from 0, a Friday: (327 - (327 - 5 + 9) % 7 + 11) / 7 is 48, where Monday of the
// same week has (323 - (323 - 1 + 9) % 7 + 11) / 7, which is 47. Day 48 * 7 + 5 - 2 - 4 is 335.
TEST(IsoDefaults, KeepsTheWeekThatChangesWithinAWeek) {
  be_in("UTC", kFriday);
  constexpr Row kRows[] = {
      {"-W-1", "2006-11-27 00:00:00", "2006-12-04 00:00:00"},
      {"-W-3", "2006-11-29 00:00:00", "2006-12-06 00:00:00"},
      {"-W-5", "2006-12-01 00:00:00", "2006-12-01 00:00:00"},
      {"-W-6", "2006-11-25 00:00:00", "2006-12-02 00:00:00"},
  };
  expect_rows(kRows);
}

TEST(IsoDefaults, TakeNowFromTheUsersZoneOrTheGivenOne) {
  be_in("America/New_York", "2006-11-24 20:00:00");  // 15:00 there, and the 25th in India
  EXPECT_EQ(iso("T10"), "2006-11-24 15:00:00");
  EXPECT_EQ(iso("T-30"), "2006-11-24 20:30:00");
  EXPECT_EQ(iso("T10Z"), "2006-11-24 10:00:00");
  EXPECT_EQ(iso("T10+05:30"), "2006-11-25 04:30:00");
  EXPECT_EQ(iso("T-45+05:30"), "2006-11-24 20:15:00");
  EXPECT_EQ(iso("--11-25T10Z"), "2005-11-25 10:00:00");
  EXPECT_EQ(iso("--11-25T10+05:30"), "2006-11-25 04:30:00");
  be_in("Pacific/Auckland", "2006-12-31 20:00:00");  // the new year there
  EXPECT_EQ(iso("--01-01"), "2006-12-31 11:00:00");
  EXPECT_EQ(iso("--01-01T00Z"), "2006-01-01 00:00:00");
}

TEST(IsoDefaults, FailWhereNowIsBeyond32BitsInItsZone) {
  be_in("UTC", "2038-01-19 03:14:07");
  EXPECT_EQ(iso("T03:14:07Z"), "2038-01-19 03:14:07");
  EXPECT_EQ(iso("T03:14:08+00:01"), kRefused);
  EXPECT_EQ(iso("T00-01"), "2038-01-19 01:00:00");
}

TEST(IsoDefaults, FailWhereTheCalendarDoes) {
  be_in("UTC", kFriday);
  fail_call("localtime_r", 0, EOVERFLOW);
  EXPECT_EQ(iso("T10"), kRefused);
  fail_call("gmtime_r", 0, EOVERFLOW);
  EXPECT_EQ(iso("T10Z"), kRefused);
}

}  // namespace

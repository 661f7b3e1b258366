#include <gtest/gtest.h>

#include <cerrno>
#include <string>

#include "support/catalogs.h"
#include "text/date_reading.h"

using ks_test::be_in;
using ks_test::Catalogs;
using ks_test::ExactText;
using ks_test::fail_call;
using ks_test::kRefused;
using ks_test::moment_read;
using ks_test::speak;

namespace {

constexpr const char *kFriday = "2006-11-24 12:34:56";

std::string numeric(int style, std::string_view text) {
  const ExactText exact(text);
  return moment_read(1,
                     [&](int32_t *time) { return date_numeric_str_to_time(style, exact, time); });
}

struct Row {
  int style;
  const char *text;
  const char *moment;
};

TEST(NumericDates, HaveTheirDigitsInFixedPlaces) {
  be_in("UTC", kFriday);
  constexpr Row kRows[] = {
      {DATE_NUMERIC_SECONDS, "061124.101530", "2006-11-24 10:15:30"},
      {DATE_NUMERIC_LONG_SECONDS, "20061124.101530", "2006-11-24 10:15:30"},
      {DATE_NUMERIC_MINUTES, "061124.1015", "2006-11-24 10:15:00"},
      {DATE_NUMERIC_LONG_MINUTES, "20061124.1015", "2006-11-24 10:15:00"},
      {DATE_NUMERIC_DATE, "061124", "2006-11-24 00:00:00"},
      {DATE_NUMERIC_LONG_DATE, "20061124", "2006-11-24 00:00:00"},
      {DATE_NUMERIC_COLON, "061124.10:15", "2006-11-24 10:15:00"},
  };
  for (const Row &row : kRows) {
    EXPECT_EQ(numeric(row.style, row.text), row.moment) << row.text;
    EXPECT_EQ(numeric(row.style, row.text + std::string("9 and more")), row.moment) << row.text;
    for (size_t size = 0; size < strlen(row.text); ++size) {
      EXPECT_EQ(numeric(row.style, std::string(row.text, size)), kRefused) << row.text << size;
    }
  }
}

TEST(NumericDates, NeedTheirSeparators) {
  be_in("UTC", kFriday);
  constexpr Row kRows[] = {
      {DATE_NUMERIC_SECONDS, "061124 101530", kRefused},
      {DATE_NUMERIC_SECONDS, "061124101530", kRefused},
      {DATE_NUMERIC_SECONDS, "20061124.1015", kRefused},
      {DATE_NUMERIC_LONG_SECONDS, "20061124:101530", kRefused},
      {DATE_NUMERIC_COLON, "061124.10.15", kRefused},
      {DATE_NUMERIC_COLON, "061124:10:15", kRefused},
      {DATE_NUMERIC_COLON, "061124.1015", kRefused},
  };
  for (const Row &row : kRows) EXPECT_EQ(numeric(row.style, row.text), row.moment) << row.text;
}

TEST(NumericDates, TakeTheSeparatorsOfTheCatalog) {
  const Catalogs catalogs;
  catalogs.add("ks_lib", "$set 12\n43 \"h\"\n44 \"--\"\n");
  speak("de");
  be_in("UTC", kFriday);
  EXPECT_EQ(numeric(DATE_NUMERIC_SECONDS, "061124--101530"), "2006-11-24 10:15:30");
  EXPECT_EQ(numeric(DATE_NUMERIC_COLON, "061124--10h15"), "2006-11-24 10:15:00");
  EXPECT_EQ(numeric(DATE_NUMERIC_COLON, "061124-"), kRefused);
  EXPECT_EQ(numeric(DATE_NUMERIC_SECONDS, "061124.101530"), kRefused);
}

TEST(NumericDates, KeepsYearsOfTwoDigitsUpTo69After2000) {
  be_in("UTC", kFriday);
  EXPECT_EQ(numeric(DATE_NUMERIC_DATE, "000101"), "2000-01-01 00:00:00");
  EXPECT_EQ(numeric(DATE_NUMERIC_DATE, "370101"), "2037-01-01 00:00:00");
  EXPECT_EQ(numeric(DATE_NUMERIC_DATE, "690101"), kRefused);  // 2069
  EXPECT_EQ(numeric(DATE_NUMERIC_DATE, "700101"), "1970-01-01 00:00:00");
  EXPECT_EQ(numeric(DATE_NUMERIC_DATE, "990101"), "1999-01-01 00:00:00");
  EXPECT_EQ(numeric(DATE_NUMERIC_LONG_DATE, "00060101"), "2006-01-01 00:00:00");
  EXPECT_EQ(numeric(DATE_NUMERIC_LONG_DATE, "00990101"), "1999-01-01 00:00:00");
  EXPECT_EQ(numeric(DATE_NUMERIC_LONG_DATE, "01000101"), kRefused);
  EXPECT_EQ(numeric(DATE_NUMERIC_LONG_DATE, "-0101231"), "1990-12-31 00:00:00");
}

TEST(NumericDates, KeepsWhatEachFieldBeginsWith) {
  be_in("UTC", kFriday);
  EXPECT_EQ(numeric(DATE_NUMERIC_SECONDS, " 6+1 3. 14x0x"), "2006-01-03 01:04:00");
  EXPECT_EQ(numeric(DATE_NUMERIC_LONG_DATE, "6   1x3y"), "2006-01-03 00:00:00");
  EXPECT_EQ(numeric(DATE_NUMERIC_DATE, "06x124"), kRefused);
  EXPECT_EQ(numeric(DATE_NUMERIC_DATE, "06+ 24"), kRefused);
  EXPECT_EQ(numeric(DATE_NUMERIC_DATE, "06  24"), kRefused);
  EXPECT_EQ(numeric(DATE_NUMERIC_DATE,
                    "\xff\xff"
                    "1124"),
            kRefused);
}

TEST(NumericDates, KeepsFieldsOfAnySize) {
  be_in("UTC", kFriday);
  EXPECT_EQ(numeric(DATE_NUMERIC_DATE, "060000"), "2005-11-30 00:00:00");
  EXPECT_EQ(numeric(DATE_NUMERIC_DATE, "069999"), "2014-06-07 00:00:00");
  EXPECT_EQ(numeric(DATE_NUMERIC_DATE, "06-1-1"), "2005-10-30 00:00:00");
  EXPECT_EQ(numeric(DATE_NUMERIC_SECONDS, "061124.999999"), "2006-11-28 04:40:39");
}

TEST(NumericDates, AreInTheUsersZone) {
  be_in("Asia/Kolkata", kFriday);
  EXPECT_EQ(numeric(DATE_NUMERIC_MINUTES, "061124.1015"), "2006-11-24 04:45:00");
  be_in("America/New_York", kFriday);
  EXPECT_EQ(numeric(DATE_NUMERIC_MINUTES, "060724.1015"), "2006-07-24 14:15:00");
  EXPECT_EQ(numeric(DATE_NUMERIC_MINUTES, "061124.1015"), "2006-11-24 15:15:00");
}

TEST(NumericDates, KeepsMomentsBeforeTheEpochButTheLastOne) {
  be_in("UTC", kFriday);
  EXPECT_EQ(numeric(DATE_NUMERIC_LONG_SECONDS, "19691231.235958"), "1969-12-31 23:59:58");
  EXPECT_EQ(numeric(DATE_NUMERIC_LONG_SECONDS, "19691231.235959"), kRefused);
  EXPECT_EQ(numeric(DATE_NUMERIC_LONG_SECONDS, "19011213.204552"), "1901-12-13 20:45:52");
  EXPECT_EQ(numeric(DATE_NUMERIC_LONG_SECONDS, "19011213.204551"), kRefused);
  EXPECT_EQ(numeric(DATE_NUMERIC_LONG_SECONDS, "20380119.031407"), "2038-01-19 03:14:07");
  EXPECT_EQ(numeric(DATE_NUMERIC_LONG_SECONDS, "20380119.031408"), kRefused);
  EXPECT_EQ(numeric(DATE_NUMERIC_LONG_DATE, "99991231"), kRefused);
}

TEST(NumericSeconds, AreDecimal) {
  constexpr Row kRows[] = {
      {DATE_NUMERIC_DECIMAL, "0", "1970-01-01 00:00:00"},
      {DATE_NUMERIC_DECIMAL, "1164371696", "2006-11-24 12:34:56"},
      {DATE_NUMERIC_DECIMAL, " \t+60x", "1970-01-01 00:01:00"},
      {DATE_NUMERIC_DECIMAL, "-60", "1969-12-31 23:59:00"},
      {DATE_NUMERIC_DECIMAL, "2147483647", "2038-01-19 03:14:07"},
      {DATE_NUMERIC_DECIMAL, "2147483648", kRefused},
      {DATE_NUMERIC_DECIMAL, "4294967295", kRefused},
      {DATE_NUMERIC_DECIMAL, "-2147483648", "1901-12-13 20:45:52"},
      {DATE_NUMERIC_DECIMAL, "-2147483649", kRefused},
      {DATE_NUMERIC_DECIMAL, "99999999999999999999", kRefused},
      {DATE_NUMERIC_DECIMAL, "", kRefused},
      {DATE_NUMERIC_DECIMAL, "x", kRefused},
      {DATE_NUMERIC_DECIMAL, "+", kRefused},
      {DATE_NUMERIC_DECIMAL, "- 5", kRefused},
  };
  for (const Row &row : kRows) EXPECT_EQ(numeric(row.style, row.text), row.moment) << row.text;
}

TEST(NumericSeconds, AreHexadecimal) {
  constexpr Row kRows[] = {
      {DATE_NUMERIC_HEXADECIMAL, "0", "1970-01-01 00:00:00"},
      {DATE_NUMERIC_HEXADECIMAL, "4566e6f0", "2006-11-24 12:34:56"},
      {DATE_NUMERIC_HEXADECIMAL, " 0X4566E6F0g", "2006-11-24 12:34:56"},
      {DATE_NUMERIC_HEXADECIMAL, "7fffffff", "2038-01-19 03:14:07"},
      {DATE_NUMERIC_HEXADECIMAL, "80000000", "1901-12-13 20:45:52"},
      {DATE_NUMERIC_HEXADECIMAL, "ffffffff", "1969-12-31 23:59:59"},
      {DATE_NUMERIC_HEXADECIMAL, "100000000", kRefused},
      {DATE_NUMERIC_HEXADECIMAL, "-1", "1969-12-31 23:59:59"},
      {DATE_NUMERIC_HEXADECIMAL, "ffffffffffffffff", kRefused},
      {DATE_NUMERIC_HEXADECIMAL, "", kRefused},
      {DATE_NUMERIC_HEXADECIMAL, "g", kRefused},
  };
  for (const Row &row : kRows) EXPECT_EQ(numeric(row.style, row.text), row.moment) << row.text;
}

TEST(NumericDates, FailForWrongArguments) {
  be_in("UTC", kFriday);
  int32_t time = 5;
  for (int style = -1; style <= 9; ++style) {
    EXPECT_EQ(date_numeric_str_to_time(style, nullptr, &time), 0);
    EXPECT_EQ(date_numeric_str_to_time(style, "20061124.101530", nullptr), 0);
  }
  EXPECT_EQ(time, 5);
  EXPECT_EQ(numeric(9, "20061124.101530"), kRefused);
  EXPECT_EQ(numeric(-1, "20061124.101530"), kRefused);
}

TEST(NumericDates, FailWhereTheCalendarDoes) {
  be_in("UTC", kFriday);
  fail_call("localtime_r", 0, EOVERFLOW);
  fail_call("mktime", 0, EOVERFLOW);
  EXPECT_EQ(numeric(DATE_NUMERIC_DATE, "061124"), kRefused);
}

}  // namespace

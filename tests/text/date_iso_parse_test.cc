#include <gtest/gtest.h>

#include <string>
#include <string_view>

#include "support/exact_text.h"
#include "text/date_iso.h"

using ks::IsoDate;
using ks::kAbsent;
using ks_test::ExactText;

namespace {

// The fields that a text gives, as "century 20 year 6 +5:30", or "refused".
std::string fields_of(std::string_view text) {
  const ExactText exact(text);
  IsoDate date;
  if (!ks::parse_iso(exact, &date)) return "refused";
  std::string fields;
  const auto add = [&](const char *name, int value) {
    if (value != kAbsent) fields += std::string(name) + " " + std::to_string(value) + " ";
  };
  add("century", date.century);
  add("year", date.year);
  add("yday", date.yday);
  add("month", date.month);
  add("mday", date.mday);
  add("week", date.week);
  add("wday", date.wday);
  add("hour", date.hour);
  add("minute", date.minute);
  add("second", date.second);
  if (date.has_zone()) fields += std::to_string(date.zone_offset()) + " ";
  if (!fields.empty()) fields.pop_back();
  return fields;
}

struct Row {
  const char *text;
  const char *fields;
};

constexpr const char *kMark[] = {"T", "t"};

TEST(IsoDateForms, ThatATimeMayFollow) {
  constexpr Row kRows[] = {
      {"---24", "mday 24"},
      {"-328", "yday 328"},
      {"--1124", "month 11 mday 24"},
      {"06328", "year 6 yday 328"},
      {"061124", "year 6 month 11 mday 24"},
      {"2006328", "century 20 year 6 yday 328"},
      {"20061124", "century 20 year 6 month 11 mday 24"},
      {"06-11-24", "year 6 month 11 mday 24"},
      {"-06-11-24", "year 6 month 11 mday 24"},
      {"2006-11-24", "century 20 year 6 month 11 mday 24"},
      {"--11-24", "month 11 mday 24"},
      {"06-328", "year 6 yday 328"},
      {"-06-328", "year 6 yday 328"},
      {"2006-328", "century 20 year 6 yday 328"},
      {"-W-3", "wday 3"},
      {"-w-7", "wday 7"},
  };
  for (const Row &row : kRows) {
    EXPECT_EQ(fields_of(row.text), row.fields) << row.text;
    for (const char *mark : kMark) {
      EXPECT_EQ(fields_of(std::string(row.text) + mark + "10:15"),
                std::string(row.fields) + " hour 10 minute 15");
      EXPECT_EQ(fields_of(std::string(row.text) + mark), "refused") << row.text;
      EXPECT_EQ(fields_of(std::string(row.text) + mark + "-15"), "refused") << row.text;
    }
    for (const char *tail : {"x", "-", ":", "+05", " ", "W", "T10T10"}) {
      EXPECT_EQ(fields_of(std::string(row.text) + tail), "refused") << row.text << tail;
    }
  }
}

TEST(IsoDateForms, ThatATimeMayNotFollow) {
  constexpr Row kRows[] = {
      {"20", "century 20"},
      {"2006", "century 20 year 6"},
      {"-06", "year 6"},
      {"--11", "month 11"},
      {"-0611", "year 6 month 11"},
      {"06-11", "year 6 month 11"},
      {"-06-11", "year 6 month 11"},
      {"2006-11", "century 20 year 6 month 11"},
  };
  for (const Row &row : kRows) {
    EXPECT_EQ(fields_of(row.text), row.fields) << row.text;
    for (const char *tail : {"T10", "x", "-", "-x", "-1", "+", " ", "W1", "-W1"}) {
      EXPECT_EQ(fields_of(std::string(row.text) + tail), "refused") << row.text << tail;
    }
  }
}

TEST(IsoDateForms, OfOtherLengthsAreRefused) {
  for (const char *text : {"",
                           "-",
                           "--",
                           "---",
                           "----",
                           "2",
                           "-2",
                           "--2",
                           "---2",
                           "----24",
                           "-----24",
                           "328",
                           "--328",
                           "---328",
                           "---1124",
                           "-06328",
                           "--06328",
                           "-061124",
                           "-20061124",
                           "-2006-11",
                           "123456789",
                           "20061124101500",
                           "99999999999999999999",
                           "2006-1",
                           "2006-1124",
                           "2006-11-2",
                           "2006-11-245",
                           "--11-2",
                           "2006--11",
                           "2006-11--24",
                           "06-",
                           "-06-",
                           "--11-",
                           "2006-11-24-",
                           "--11-328",
                           "---24-11",
                           "W-3",
                           "-W",
                           "-W-",
                           "-W3",
                           "-W-33",
                           "-W-x",
                           "--W-3",
                           "-X-3",
                           "x",
                           " 2006",
                           "2006 ",
                           "+2006",
                           "2006-+1-24",
                           "2006- 1-24",
                           "2006-11-+4",
                           "2006-11- 4"}) {
    EXPECT_EQ(fields_of(text), "refused") << text;
  }
}

TEST(IsoDateForms, WithAWeekAreRefused) {
  for (const char *text : {"2006-W12-3", "2006-W12", "2006W12", "2006W123", "06W12", "06-W12-3",
                           "06w123", "-W12", "-W12-3", "-W123", "-06-W12", "-06W123", "2006-W-3"}) {
    EXPECT_EQ(fields_of(text), "refused") << text;
  }
}

TEST(IsoTimeForms, StandBehindAMarkOrByThemselves) {
  constexpr Row kRows[] = {
      {"10", "hour 10"},
      {"10:15", "hour 10 minute 15"},
      {"10:15:30", "hour 10 minute 15 second 30"},
      {"1015", "hour 10 minute 15"},
      {"101530", "hour 10 minute 15 second 30"},
      {"-15", "minute 15"},
      {"-15:30", "minute 15 second 30"},
      {"-1530", "minute 15 second 30"},
      {"--30", "second 30"},
  };
  for (const Row &row : kRows) {
    for (const char *mark : kMark) {
      EXPECT_EQ(fields_of(mark + std::string(row.text)), row.fields) << row.text;
    }
    for (const char *tail : {"x", ":", ":1", ".5", ",5", " ", "-", "+", "T", "ZZ"}) {
      EXPECT_EQ(fields_of("T" + std::string(row.text) + tail), "refused") << row.text << tail;
    }
  }
}

TEST(IsoTimeForms, NeedNoMarkBeforeAColonOrZ) {
  constexpr Row kRows[] = {
      {"10:15", "hour 10 minute 15"},
      {"10:15:30", "hour 10 minute 15 second 30"},
      {"10Z", "hour 10 0"},
      {"1015z", "hour 10 minute 15 0"},
      {"101530Z", "hour 10 minute 15 second 30 0"},
      {"10:15+05", "hour 10 minute 15 18000"},
      {"-15:30", "minute 15 second 30"},
      {"-15Z", "minute 15 0"},
      {"-1530Z", "minute 15 second 30 0"},
      {"--30Z", "second 30 0"},
  };
  for (const Row &row : kRows) EXPECT_EQ(fields_of(row.text), row.fields) << row.text;
  EXPECT_EQ(fields_of("1015"), "century 10 year 15");
  EXPECT_EQ(fields_of("10+05"), "refused");
}

TEST(IsoTimeForms, OfOtherLengthsAreRefused) {
  for (const char *text :
       {"T",          "t",        "T1",        "T101",      "T10153",   "T1015300", "T10153000",
        "T-1",        "T-153",    "T-153000",  "T--3",      "T--3030",  "T---30",   "T---",
        "TZ",         "T+05",     "T:15",      "T10:",      "T10:1",    "T10:1530", "T10:15:3",
        "T10:15:300", "T1015:30", "T-15:3",    "T-1530:30", "T--30:30", "TT10",     "T 10",
        "T10:+5",     "T10: 5",   "T10:15:+3", "T20061124", "Z",        "z",        ":",
        "-Z",         "123:15",   "10:15T10"}) {
    EXPECT_EQ(fields_of(text), "refused") << text;
  }
}

TEST(IsoZones, AreZOrHoursAndMinutes) {
  constexpr Row kRows[] = {
      {"T10Z", "hour 10 0"},
      {"T10z", "hour 10 0"},
      {"T10+05", "hour 10 18000"},
      {"T10-05", "hour 10 -18000"},
      {"T10+0530", "hour 10 19800"},
      {"T10-0530", "hour 10 -19800"},
      {"T10+05:30", "hour 10 19800"},
      {"T10-05:30", "hour 10 -19800"},
      {"T10+00", "hour 10 0"},
      {"T10-00:00", "hour 10 0"},
      {"T10-00:30", "hour 10 -1800"},
      {"20061124T101530-1200",
       "century 20 year 6 month 11 mday 24 hour 10 minute 15 "
       "second 30 -43200"},
  };
  for (const Row &row : kRows) EXPECT_EQ(fields_of(row.text), row.fields) << row.text;
  for (const char *text : {"T10+", "T10-", "T10+5", "T10+053", "T10+05:", "T10+05:3", "T10+05:300",
                           "T10+05300", "T10+05x", "T10+05Z", "T10Zx", "T10Z+05", "T10+-5",
                           "T10++05", "T10+ 5", "T10x", "T10+05::30", "T10-Z"}) {
    EXPECT_EQ(fields_of(text), "refused") << text;
  }
}

TEST(IsoDateForms, HaveNoOtherBytesForTheirMarks) {
  for (const char *text : {"2006\r11\r24",
                           "2006-11-24\x14"
                           "10",
                           "T10\x1a", "-\x17-3"}) {
    EXPECT_EQ(fields_of(text), "refused") << text;
  }
}

}  // namespace

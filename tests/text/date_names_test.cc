#include <gtest/gtest.h>

#include <cerrno>
#include <cstdlib>
#include <string>
#include <vector>

#include "date.h"
#include "support/catalogs.h"
#include "support/faults.h"
#include "text/date_internal.h"

using ks::date_words;
using ks::DateName;
using ks::DateWords;
using ks_test::Catalogs;
using ks_test::speak;

namespace {

struct Name {
  int number;
  std::string name;
  std::string short_name;
};

void expect_names(const DateName *rows, const std::vector<Name> &names) {
  for (size_t at = 0; at < names.size(); ++at) {
    EXPECT_EQ(rows[at].number, names[at].number) << names[at].name;
    EXPECT_EQ(rows[at].name, names[at].name);
    EXPECT_EQ(rows[at].short_name, names[at].short_name);
  }
}

TEST(DateNames, AreEnglishWithoutACatalog) {
  const DateWords &words = date_words();
  expect_names(words.months, {{31, "JANUARY", "JAN"},
                              {29, "FEBRUARY", "FEB"},
                              {31, "MARCH", "MAR"},
                              {30, "APRIL", "APR"},
                              {31, "MAY", "MAY"},
                              {30, "JUNE", "JUN"},
                              {31, "JULY", "JUL"},
                              {31, "AUGUST", "AUG"},
                              {30, "SEPTEMBER", "SEP"},
                              {31, "OCTOBER", "OCT"},
                              {30, "NOVEMBER", "NOV"},
                              {31, "DECEMBER", "DEC"}});
  expect_names(words.weekdays, {{0, "SUNDAY", "SUN"},
                                {1, "MONDAY", "MON"},
                                {2, "TUESDAY", "TUE"},
                                {3, "WEDNESDAY", "WED"},
                                {4, "THURSDAY", "THU"},
                                {5, "FRIDAY", "FRI"},
                                {6, "SATURDAY", "SAT"}});
  expect_names(words.special_days, {{0, "TODAY", "TODAY"}, {-1, "YESTERDAY", "YESTERDAY"}});
}

TEST(DateNames, HoldTheSeparators) {
  const DateWords &words = date_words();
  EXPECT_STREQ(words.date_separator, "-");
  EXPECT_STREQ(words.time_separator, ":");
  EXPECT_STREQ(words.field_separator, ".");
  EXPECT_STREQ(words.zone_separator, "UTC");
  EXPECT_STREQ(words.now, "NOW");
  EXPECT_STREQ(words.none, "NONE");
  EXPECT_TRUE(words.plain);
}

// Of the numbers in the catalog, 1 is TODAY, 9 APRIL's short name, 40 SUNDAY, 42 to 44 and 49 the
// separators, 47 NOW and 48 NONE.
TEST(DateNames, ComeFromTheCatalogAndAreCutToTheirRoom) {
  const Catalogs catalogs;
  const std::string forty(40, 'A'), twenty(20, 'B');
  catalogs.add("ks_lib", "$set 12\n1 \"" + forty + "XYZ\"\n11 \"" + twenty +
                             "XYZ\"\n40 \"SONNTAG\"\n42 \"/////\"\n49 \"GMT+0\"\n");
  speak("de");
  const DateWords &words = date_words();
  EXPECT_EQ(words.special_days[0].name, forty);
  EXPECT_EQ(words.months[3].short_name, twenty);
  EXPECT_STREQ(words.months[3].name, "APRIL");
  EXPECT_STREQ(words.weekdays[0].name, "SONNTAG");
  EXPECT_STREQ(words.date_separator, "////");
  EXPECT_STREQ(words.zone_separator, "GMT+");
  EXPECT_STREQ(words.time_separator, ":");
}

TEST(DateNames, ArePlainOnlyWhereNoIsoTextLooksLikeOne) {
  for (const char *row :
       {"1 \"1ST\"", "2 \"0\"", "3 \"-T\"", "28 \"9\"", "39 \"-\"", "40 \"7DAY\"", "42 \"/\"",
        "43 \"::\"", "44 \",\"", "46 \"-1\"", "47 \"-\"", "48 \"0\""}) {
    const Catalogs catalogs;
    catalogs.add("ks_lib", std::string("$set 12\n") + row + "\n");
    speak("de");
    EXPECT_EXIT(_exit(date_words().plain ? 1 : 0), testing::ExitedWithCode(0), "") << row;
  }
}

TEST(DateNames, OfMonthsMayBeginWithADigit) {
  const Catalogs catalogs;
  catalogs.add("ks_lib", "$set 12\n4 \"1GATSU\"\n");
  speak("de");
  EXPECT_TRUE(date_words().plain);
}

TEST(DateInit, LoadsOnce) {
  date_init();
  const int texts = ks_test::count_calls("vsnprintf");
  EXPECT_GE(texts, 48);
  date_init();
  date_words();
  EXPECT_EQ(ks_test::count_calls("vsnprintf"), texts);
}

TEST(DateInit, FixesTheLanguage) {
  const Catalogs catalogs;
  catalogs.add("ks_lib", "$set 12\n1 \"HEUTE\"\n", "de");
  catalogs.add("ks_lib", "$set 12\n1 \"AUJOURDHUI\"\n", "fr");
  speak("de");
  date_init();
  speak("fr");
  date_init();
  EXPECT_STREQ(date_words().special_days[0].name, "HEUTE");
}

TEST(DateNames, ThatCannotBeHadAreEmpty) {
  ks_test::fail_call("vsnprintf", 0, ENOMEM, 1000);
  const DateWords &words = date_words();
  EXPECT_STREQ(words.months[0].name, "");
  EXPECT_STREQ(words.none, "");
}

TEST(DateUsageDateTime, IsTheThreeLinesOfTheGrammar) {
  EXPECT_STREQ(date_usage_date_time(),
               "<date-time> = <date>.<time> | <date> | <time> | \"now\" | \"none\"\n"
               "<date>      = d[d]-<month>[-[yy]yy] | <day-of-week> | \"today\" | \"yesterday\"\n"
               "<time>      = h[h]:m[m][:s[s]][UTC[+|-][h[h][:mm]]] (24-hour time)\n");
}

TEST(DateUsageDateTime, StaysAsItWasFirstMadeAndIsCutToItsRoom) {
  const Catalogs catalogs;
  catalogs.add("ks_lib", "$set 12\n45 \"" + std::string(1100, 'u') + "\"\n");
  speak("de");
  const char *usage = date_usage_date_time();
  EXPECT_EQ(usage, std::string(1023, 'u'));
  speak("C");
  EXPECT_EQ(date_usage_date_time(), usage);
  EXPECT_EQ(usage, std::string(1023, 'u'));
}

}  // namespace

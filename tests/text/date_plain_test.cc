#include <gtest/gtest.h>

#include <cerrno>
#include <climits>
#include <csignal>
#include <cstdint>
#include <cstdlib>
#include <ctime>
#include <iterator>
#include <string>

#include "date.h"
#include "pfm.h"
#include "support/child.h"
#include "support/exact_text.h"
#include "support/faults.h"
#include "support/landing.h"
#include "support/locale.h"
#include "text/date_format.h"

using ks_test::ExactText;
using ks_test::fail_call;
using ks_test::in_child;
using ks_test::land;
using ks_test::Outcome;
using ks_test::set_clock;
using ks_test::signal_in_call;

namespace {

using Formatter = const char *(*)(int32_t);

constexpr int32_t kMoment = 1142418030;  // 2006-03-15T10:20:30Z, a Wednesday
constexpr int32_t kOther = 1142331630;   // a day earlier

class DatePlain : public testing::Test {
 protected:
  DatePlain() { setenv("TZ", "UTC", 1); }
};

struct Row {
  Formatter format;
  const char *utc;
  const char *kolkata;
  const char *before_the_epoch;  // -1, in UTC
};

constexpr Row kRows[] = {
    {date_fmt_long_date_time, "Wed Mar 15 10:20:30 2006", "Wed Mar 15 15:50:30 2006",
     "Wed Dec 31 23:59:59 1969"},
    {date_fmt_short_date_time, "03/15/06 10:20:30", "03/15/06 15:50:30", "12/31/69 23:59:59"},
    {date_fmt_short_date, "03/15/06", "03/15/06", "12/31/69"},
    {date_fmt_short_time, "10:20:30", "15:50:30", "23:59:59"},
    {date_fmt_ls_date_time, "Mar 15 10:20", "Mar 15 15:50", "Dec 31  1969"},
};

TEST_F(DatePlain, WritesLocalTime) {
  set_clock(kMoment, 0);
  for (const Row &row : kRows) {
    setenv("TZ", "UTC", 1);
    EXPECT_STREQ(row.format(kMoment), row.utc);
    EXPECT_STREQ(row.format(-1), row.before_the_epoch);
    setenv("TZ", "Asia/Kolkata", 1);
    EXPECT_STREQ(row.format(kMoment), row.kolkata);
  }
}

TEST_F(DatePlain, WritesTheLocalesWords) {
  ks_test::use_locale("ja_JP.SJIS");
  EXPECT_STREQ(date_fmt_short_date(kMoment),
               "2006\x94\x4e"
               "03\x8c\x8e"
               "15\x93\xfa");
  EXPECT_STREQ(date_fmt_short_time(kMoment), "10:20:30");
}

TEST_F(DatePlain, ReachesBothEndsOf32Bits) {
  EXPECT_STREQ(date_fmt_long_date_time(INT32_MAX), "Tue Jan 19 03:14:07 2038");
  EXPECT_STREQ(date_fmt_long_date_time(INT32_MIN), "Fri Dec 13 20:45:52 1901");
}

TEST_F(DatePlain, ListsATimeOfTheLastYearByItsTime) {
  struct Listed {
    int32_t time;
    const char *text;
  };
  constexpr Listed kListed[] = {
      {kMoment, "Mar 15 10:20"},
      {kMoment + 1, "Mar 15  2006"},
      {kMoment - 31536000 + 1, "Mar 15 10:20"},
      {kMoment - 31536000, "Mar 15  2005"},
      {kMoment - 31536000 - 1, "Mar 15  2005"},
      {INT32_MIN, "Dec 13  1901"},
      {INT32_MAX, "Jan 19  2038"},
  };
  set_clock(kMoment, 999999);
  for (const Listed &listed : kListed) {
    EXPECT_STREQ(date_fmt_ls_date_time(listed.time), listed.text) << listed.time;
  }
}

TEST_F(DatePlain, NothingIsRecentAtTheStartOf32Bits) {
  set_clock(INT32_MIN, 0);
  EXPECT_STREQ(date_fmt_ls_date_time(INT32_MIN), "Dec 13  1901");
}

// Each formatter's text stays where it is, and only its own next call changes it.
TEST_F(DatePlain, EachFormatterKeepsATextOfItsOwn) {
  set_clock(kMoment, 0);
  const char *first[std::size(kRows)];
  for (size_t i = 0; i < std::size(kRows); ++i) first[i] = kRows[i].format(kMoment);
  for (size_t i = 0; i < std::size(kRows); ++i) EXPECT_STREQ(first[i], kRows[i].utc);
  for (size_t i = 0; i < std::size(kRows); ++i) EXPECT_EQ(kRows[i].format(kOther), first[i]);
}

TEST_F(DatePlain, TellsAndRecoversWhenThereIsNoStorage) {
  set_clock(kMoment, 0);
  for (const Row &row : kRows) {
    const Outcome outcome = in_child([&] {
      date_one_year_ago(kMoment);
      fail_call("malloc", 0, ENOMEM);
      if (row.format(kMoment) != nullptr) _exit(1);
      if (std::string(row.format(kMoment)) != row.utc) _exit(2);
    });
    EXPECT_EQ(outcome.end(), "exit 0") << row.utc;
    EXPECT_EQ(outcome.err, "noname: Error: No more memory available.\n") << row.utc;
  }
}

TEST_F(DatePlain, GivesNoTextWhereLibcHasNoBreakdown) {
  fail_call("localtime_r", 0, EOVERFLOW);
  EXPECT_EQ(date_fmt_short_date(kMoment), nullptr);
  EXPECT_STREQ(date_fmt_short_date(kMoment), "03/15/06");
}

TEST_F(DatePlain, ATextThatDoesNotFitIsEmpty) {
  struct tm time = {};
  time.tm_year = 106;
  ExactText fits("zzzz", 5);
  ks::write_time(fits, 5, "%Y", time);
  EXPECT_STREQ(fits, "2006");
  ExactText cut("zzz", 4);
  ks::write_time(cut, 4, "%y%Y", time);
  EXPECT_STREQ(cut, "");
}

TEST_F(DatePlain, ASignalThatRaisesArrivesBehindLibcsCall) {
  const Outcome outcome = in_child([&] {
    pfm_signal(SIGINT, [](int sig) {
      if (ks_test::inside_call()) _exit(1);
      pfm_raise(sig);
    });
    signal_in_call("strftime", 0, SIGINT);
    if (land([] { date_fmt_long_date_time(kMoment); }).status != SIGINT) _exit(2);
    if (std::string(date_fmt_long_date_time(kMoment)) != kRows[0].utc) _exit(3);
  });
  EXPECT_EQ(outcome.end(), "exit 0");
}

TEST_F(DatePlain, AFaultComesWhenTheBufferIsKept) {
  pfm_signal(SIGINT, [](int sig) { pfm_raise(sig); });
  signal_in_call("malloc", 0, SIGINT);
  EXPECT_EQ(land([] { date_fmt_short_time(kMoment); }).status, SIGINT);
  const int before = ks_test::count_calls("malloc");
  EXPECT_NE(date_fmt_short_time(kMoment), nullptr);
  EXPECT_EQ(ks_test::count_calls("malloc"), before);
}

constexpr int32_t kDay = 86400;
constexpr int32_t k2004 = 1072915200;  // 2004-01-01T00:00:00Z

TEST_F(DatePlain, AYearAgoIs366DaysWhenALeapDayHasPassed) {
  struct Ago {
    int32_t time;
    int32_t days;
  };
  constexpr int32_t k2005 = k2004 + 366 * kDay;
  constexpr int32_t k2006 = k2005 + 365 * kDay;
  constexpr Ago kAgo[] = {
      {k2004 - 1, 365},  // 2003-12-31T23:59:59
      {k2004, 365},
      {k2004 + 59 * kDay, 365},   // 2004-02-29
      {k2004 + 91 * kDay, 366},   // 2004-04-01
      {k2004 + 365 * kDay, 366},  // 2004-12-31
      {k2005, 366},
      {k2005 + 58 * kDay, 366},      // 2005-02-28
      {k2005 + 90 * kDay - 1, 366},  // 2005-03-31T23:59:59
      {k2005 + 90 * kDay, 365},      // 2005-04-01
      {k2005 + 364 * kDay, 365},     // 2005-12-31
      {k2006, 365},
      {k2006 + 200 * kDay, 365},
      {k2006 + 400 * kDay, 365},     // 2007
      {-63158400, 365},              // 1968-01-01
      {-63158400 + 91 * kDay, 366},  // 1968-04-01
  };
  for (const Ago &ago : kAgo) {
    EXPECT_EQ(date_one_year_ago(ago.time), ago.time - ago.days * kDay) << ago.time;
  }
}

TEST_F(DatePlain, KeepsMarchOfALeapYearForAMonthBeforeTheLeapDay) {
  EXPECT_EQ(date_one_year_ago(k2004 + 60 * kDay), k2004 + (60 - 365) * kDay);
  EXPECT_EQ(date_one_year_ago(k2004 + 91 * kDay - 1), k2004 + (91 - 365) * kDay - 1);
}

TEST_F(DatePlain, AYearAgoGoesByTheLocalMonth) {
  constexpr int32_t kLateInMarch = k2004 + 91 * kDay - 1800;  // 2004-03-31T23:30:00Z
  setenv("TZ", "Asia/Kolkata", 1);
  EXPECT_EQ(date_one_year_ago(kLateInMarch), kLateInMarch - 366 * kDay);
  setenv("TZ", "<-12>12", 1);
  EXPECT_EQ(date_one_year_ago(k2004 + 91 * kDay), k2004 + (91 - 365) * kDay);
}

TEST_F(DatePlain, AYearBeforeTheFirstMomentWrapsAround) {
  EXPECT_EQ(date_one_year_ago(INT32_MIN), INT32_MAX - 31536000 + 1);
}

}  // namespace

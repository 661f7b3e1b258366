#include <gtest/gtest.h>

#include <cerrno>
#include <climits>
#include <clocale>
#include <csignal>
#include <cstdint>
#include <cstdlib>
#include <cstring>
#include <functional>
#include <iterator>
#include <string>

#include "date.h"
#include "pfm.h"
#include "support/child.h"
#include "support/faults.h"
#include "support/folder.h"
#include "support/landing.h"
#include "support/locale.h"

using ks_test::count_calls;
using ks_test::fail_call;
using ks_test::Folder;
using ks_test::in_child;
using ks_test::land;
using ks_test::Outcome;
using ks_test::run_program;
using ks_test::set_clock;
using ks_test::signal_in_call;

namespace {

constexpr int32_t kMoment = 1142418030;  // 2006-03-15T10:20:30Z
constexpr int32_t kYear = 31536000;      // up to then

class DateToken : public testing::Test {
 protected:
  DateToken() {
    setenv("TZ", "UTC", 1);
    unsetenv("TLBAY_ISO_DATE_FMT");
  }
};

std::string token(int32_t time, int kind, int style, int utc = 0, int pname = 0) {
  char *text = date_fmt_token_general(time, kind, style, utc, pname);
  const std::string copy = text != nullptr ? text : "none";
  free(text);
  return copy;
}

std::string iso(const char *zone, int32_t time) {
  setenv("TZ", zone, 1);
  return token(time, DATE_KIND_DATE_TIME, DATE_STYLE_ISO);
}

TEST_F(DateToken, IsoEndsInTheOffset) {
  EXPECT_EQ(iso("Asia/Kolkata", kMoment), "2006-03-15T15:50:30+05:30");
  EXPECT_EQ(iso("Asia/Kathmandu", kMoment), "2006-03-15T16:05:30+05:45");
  EXPECT_EQ(iso("Pacific/Auckland", kMoment), "2006-03-15T23:20:30+13:00");
  EXPECT_EQ(iso("<-12>12", kMoment), "2006-03-14T22:20:30-12:00");
  EXPECT_EQ(iso("America/St_Johns", kMoment), "2006-03-15T06:50:30-03:30");
}

TEST_F(DateToken, IsoEndsInZWhereTheOffsetIsZero) {
  EXPECT_EQ(iso("UTC", kMoment), "2006-03-15T10:20:30Z");
  EXPECT_EQ(iso("", kMoment), "2006-03-15T10:20:30Z");
  EXPECT_EQ(iso("Europe/London", kMoment), "2006-03-15T10:20:30Z");
  EXPECT_EQ(iso("Europe/London", 1153131630), "2006-07-17T11:20:30+01:00");
}

TEST_F(DateToken, IsoShowsTheOffsetOfItsMoment) {
  EXPECT_EQ(iso("America/New_York", 1143961199), "2006-04-02T01:59:59-05:00");
  EXPECT_EQ(iso("America/New_York", 1143961200), "2006-04-02T03:00:00-04:00");
  EXPECT_EQ(iso("America/New_York", 1162101599), "2006-10-29T01:59:59-04:00");
  EXPECT_EQ(iso("America/New_York", 1162101600), "2006-10-29T01:00:00-05:00");
}

TEST_F(DateToken, IsoShowsTheWholeMinutesOfAnOffset) {
  EXPECT_EQ(iso("<+00>-0:00:30", kMoment), "2006-03-15T10:21:00+00:00");
  EXPECT_EQ(iso("<-00>0:00:30", kMoment), "2006-03-15T10:20:00-00:00");
  EXPECT_EQ(iso("<-01>1:01:59", kMoment), "2006-03-15T09:18:31-01:01");
}

TEST_F(DateToken, KeepsTheClocksDifferenceWhereTheDayIsTwoAway) {
  EXPECT_EQ(iso("<+25>-24:59", kMoment), "2006-03-16T11:19:30+24:59");
  EXPECT_EQ(iso("<+25>-24:59", kMoment + 13 * 3600), "2006-03-17T00:19:30-23:01");
}

struct Row {
  int kind;
  int32_t time;
  int utc;
  const char *classic;
  const char *iso;
};

// In Kolkata, at kMoment.
constexpr Row kRows[] = {
    {DATE_KIND_DATE_TIME, kMoment, 0, "15-Mar-06.15:50:30", "2006-03-15T15:50:30+05:30"},
    {DATE_KIND_DATE_TIME, kMoment, 1, "15-Mar-06.10:20:30UTC", "2006-03-15T10:20:30Z"},
    {DATE_KIND_DATE, kMoment, 0, "15-Mar-06", "2006-03-15"},
    {DATE_KIND_DATE, kMoment, 1, "15-Mar-06", "2006-03-15"},
    {DATE_KIND_SHORT, kMoment, 0, "15-Mar.15:50", "--03-15T15:50"},
    {DATE_KIND_SHORT, kMoment, 1, "15-Mar.10:20UTC", "--03-15T10:20"},
    {DATE_KIND_SHORT, kMoment + 1, 0, "15-Mar-2006", "2006-03-15"},
    {DATE_KIND_SHORT, kMoment + 1, 1, "15-Mar-2006", "2006-03-15"},
    {DATE_KIND_SHORT, kMoment - kYear + 1, 0, "15-Mar.15:50", "--03-15T15:50"},
    {DATE_KIND_SHORT, kMoment - kYear, 0, "15-Mar-2005", "2005-03-15"},
    {DATE_KIND_SHORT, kMoment - kYear, 1, "15-Mar-2005", "2005-03-15"},
    {DATE_KIND_DATE_TIME, kMoment + 10 * 3600, 0, "16-Mar-06.01:50:30",
     "2006-03-16T01:50:30+05:30"},
    {DATE_KIND_DATE, kMoment + 10 * 3600, 1, "15-Mar-06", "2006-03-15"},
    {DATE_KIND_DATE_TIME, 0, 0, "01-Jan-70.05:30:00", "1970-01-01T05:30:00+05:30"},
    {DATE_KIND_DATE_TIME, 0, 1, "01-Jan-70.00:00:00UTC", "1970-01-01T00:00:00Z"},
    {DATE_KIND_DATE_TIME, INT32_MAX, 0, "19-Jan-38.08:44:07", "2038-01-19T08:44:07+05:30"},
    {DATE_KIND_DATE_TIME, INT32_MAX, 1, "19-Jan-38.03:14:07UTC", "2038-01-19T03:14:07Z"},
    {DATE_KIND_SHORT, 0, 0, "01-Jan-1970", "1970-01-01"},
    {DATE_KIND_DATE_TIME, -1, 0, "none", "none"},
    {DATE_KIND_DATE_TIME, -1, 1, "none", "none"},
    {DATE_KIND_DATE, INT32_MIN, 0, "none", "none"},
    {DATE_KIND_SHORT, -1, 0, "none", "none"},
};

TEST_F(DateToken, HoldsWhatKindAndStyleSay) {
  setenv("TZ", "Asia/Kolkata", 1);
  set_clock(kMoment, 0);
  for (const Row &row : kRows) {
    const auto trace = ::testing::Message() << row.kind << " " << row.time << " " << row.utc;
    EXPECT_EQ(token(row.time, row.kind, DATE_STYLE_CLASSIC, row.utc), row.classic) << trace;
    EXPECT_EQ(token(row.time, row.kind, DATE_STYLE_ISO, row.utc), row.iso) << trace;
    EXPECT_EQ(token(row.time, row.kind, DATE_STYLE_DEFAULT, row.utc), row.iso) << trace;
  }
}

TEST_F(DateToken, KeepsTheNameFlagWithoutEffect) {
  setenv("TZ", "Asia/Kolkata", 1);
  set_clock(kMoment, 0);
  for (const Row &row : kRows) {
    EXPECT_EQ(token(row.time, row.kind, DATE_STYLE_CLASSIC, row.utc, 1), row.classic);
    EXPECT_EQ(token(row.time, row.kind, DATE_STYLE_ISO, row.utc, 1), row.iso);
  }
  EXPECT_STREQ(date_fmt_token_date_time_pname(kMoment), "2006-03-15T15:50:30+05:30");
}

// The double-byte locale's month is " 3" and a character of two bytes.
TEST_F(DateToken, ClassicHasTheLocalesMonthWithoutItsBlanks) {
  ks_test::use_locale("ja_JP.SJIS");
  EXPECT_EQ(token(kMoment, DATE_KIND_DATE, DATE_STYLE_CLASSIC), "15-3\x8c\x8e-06");
  EXPECT_EQ(token(kMoment, DATE_KIND_DATE, DATE_STYLE_ISO), "2006-03-15");
}

// A locale of which only the words of dates are given.
constexpr const char *kLocaleWithBlanks = R"(comment_char %
escape_char /
LC_TIME
abday "S";"M";"T";"W";"T";"F";"S"
day "S";"M";"T";"W";"T";"F";"S"
abmon "J";"F";"  m a  r ";"A";"M";"J";"J";"A";"S";"O";"N";"D"
mon "J";"F";"M";"A";"M";"J";"J";"A";"S";"O";"N";"D"
d_t_fmt "%d"
d_fmt "%d"
t_fmt "%H"
am_pm "";""
t_fmt_ampm ""
END LC_TIME
)";

TEST_F(DateToken, ClassicHasNoBlankAtAll) {
  const Folder folder;
  run_program({"localedef", "-c", "--no-archive", "-f", "ANSI_X3.4-1968", "-i",
               folder.write("source", kLocaleWithBlanks), folder.path("blanks")});
  setenv("LOCPATH", folder.path().c_str(), 1);
  ASSERT_NE(setlocale(LC_TIME, "blanks"), nullptr);
  EXPECT_EQ(token(kMoment, DATE_KIND_DATE, DATE_STYLE_CLASSIC), "15-mar-06");
}

TEST_F(DateToken, UnknownKindsAndStylesGiveAWordAllTheSame) {
  for (int odd : {-1, 3, INT_MAX, INT_MIN}) {
    for (const std::string &text :
         {token(kMoment, odd, DATE_STYLE_ISO), token(kMoment, odd, DATE_STYLE_CLASSIC),
          token(kMoment, DATE_KIND_SHORT, odd), token(kMoment, odd, odd)}) {
      EXPECT_NE(text, "") << odd;
      EXPECT_EQ(text.find(' '), std::string::npos) << text;
    }
  }
}

TEST_F(DateToken, TheEnvironmentChoosesTheDefaultStyle) {
  struct Choice {
    const char *value;
    int style;
    const char *utc;
  };
  constexpr Choice kChoices[] = {
      {nullptr, DATE_STYLE_ISO, "2006-03-15T10:20:30Z"},
      {"", DATE_STYLE_ISO, "2006-03-15T10:20:30Z"},
      {"0", DATE_STYLE_CLASSIC, "15-Mar-06.10:20:30UTC"},
      {"00", DATE_STYLE_ISO, "2006-03-15T10:20:30Z"},
      {" 0", DATE_STYLE_ISO, "2006-03-15T10:20:30Z"},
      {"0 ", DATE_STYLE_ISO, "2006-03-15T10:20:30Z"},
      {"1", DATE_STYLE_ISO, "2006-03-15T10:20:30Z"},
  };
  for (const Choice &choice : kChoices) {
    if (choice.value != nullptr) setenv("TLBAY_ISO_DATE_FMT", choice.value, 1);
    // Whichever call comes first asks the environment.
    const std::function<bool()> kFirsts[] = {
        [&] { return date_fmt_get_default_date_style() == choice.style; },
        [&] { return date_fmt_set_default_style(DATE_STYLE_CLASSIC) == choice.style; },
        [&] { return token(kMoment, DATE_KIND_DATE_TIME, DATE_STYLE_DEFAULT, 1) == choice.utc; },
        [&] { return strcmp(date_fmt_token_utc(kMoment), choice.utc) == 0; },
    };
    for (size_t i = 0; i < std::size(kFirsts); ++i) {
      EXPECT_EQ(in_child([&] { _exit(kFirsts[i]() ? 0 : 1); }).end(), "exit 0")
          << (choice.value != nullptr ? choice.value : "none") << ", call " << i;
    }
  }
}

TEST_F(DateToken, TheEnvironmentIsAskedOnlyOnce) {
  EXPECT_EQ(date_fmt_get_default_date_style(), DATE_STYLE_ISO);
  setenv("TLBAY_ISO_DATE_FMT", "0", 1);
  EXPECT_EQ(date_fmt_get_default_date_style(), DATE_STYLE_ISO);
}

TEST_F(DateToken, ASetStyleStandsForTheDefault) {
  setenv("TLBAY_ISO_DATE_FMT", "0", 1);
  EXPECT_EQ(date_fmt_set_default_style(DATE_STYLE_ISO), DATE_STYLE_CLASSIC);
  EXPECT_EQ(date_fmt_get_default_date_style(), DATE_STYLE_ISO);
  EXPECT_STREQ(date_fmt_token_date(kMoment), "2006-03-15");
  EXPECT_EQ(date_fmt_set_default_style(DATE_STYLE_CLASSIC), DATE_STYLE_ISO);
  EXPECT_STREQ(date_fmt_token_date(kMoment), "15-Mar-06");
  EXPECT_EQ(token(kMoment, DATE_KIND_DATE, DATE_STYLE_ISO), "2006-03-15");
  EXPECT_EQ(date_fmt_get_default_date_style(), DATE_STYLE_CLASSIC);
}

TEST_F(DateToken, ATextOfTheCallerOutlivesOtherCalls) {
  char *first = date_fmt_token_general(kMoment, DATE_KIND_DATE, DATE_STYLE_ISO, 0, 0);
  char *second = date_fmt_token_general(0, DATE_KIND_DATE, DATE_STYLE_ISO, 0, 0);
  EXPECT_STREQ(first, "2006-03-15");
  EXPECT_STREQ(second, "1970-01-01");
  free(first);
  free(second);
}

struct Wrapper {
  const char *(*call)(int32_t);
  const char *recent;
  const char *old;  // of time 0
};

// In Kolkata, at kMoment.
constexpr Wrapper kWrappers[] = {
    {date_fmt_token_date_time, "2006-03-15T15:50:30+05:30", "1970-01-01T05:30:00+05:30"},
    {date_fmt_token_date, "2006-03-15", "1970-01-01"},
    {date_fmt_token_short_date_time, "--03-15T15:50", "1970-01-01"},
    {date_fmt_token_utc, "2006-03-15T10:20:30Z", "1970-01-01T00:00:00Z"},
    {date_fmt_token_date_time_pname, "2006-03-15T15:50:30+05:30", "1970-01-01T05:30:00+05:30"},
};

class DateTokenWrapper : public DateToken {
 protected:
  DateTokenWrapper() {
    setenv("TZ", "Asia/Kolkata", 1);
    set_clock(kMoment, 0);
  }
};

TEST_F(DateTokenWrapper, GivesTheDefaultStylesToken) {
  for (const Wrapper &wrapper : kWrappers) {
    EXPECT_STREQ(wrapper.call(kMoment), wrapper.recent);
    EXPECT_STREQ(wrapper.call(0), wrapper.old);
  }
}

TEST_F(DateTokenWrapper, KeepsItsTextUntilItsOwnNextCall) {
  const char *texts[std::size(kWrappers)];
  for (size_t i = 0; i < std::size(kWrappers); ++i) texts[i] = kWrappers[i].call(kMoment);
  free(date_fmt_token_general(0, DATE_KIND_DATE_TIME, DATE_STYLE_ISO, 0, 0));
  for (size_t i = 0; i < std::size(kWrappers); ++i) EXPECT_STREQ(texts[i], kWrappers[i].recent);
}

TEST_F(DateTokenWrapper, KeepsItsTextThroughCallsThatGiveNone) {
  for (const Wrapper &wrapper : kWrappers) {
    EXPECT_EQ(wrapper.call(-1), nullptr);
    const char *text = wrapper.call(kMoment);
    EXPECT_EQ(wrapper.call(-1), nullptr);
    EXPECT_EQ(wrapper.call(INT32_MIN), nullptr);
    fail_call("strdup", 0, ENOMEM);
    EXPECT_EQ(wrapper.call(0), nullptr);
    EXPECT_STREQ(text, wrapper.recent);
    EXPECT_STREQ(wrapper.call(0), wrapper.old);
  }
}

void exit_inside_calls(int sig) {
  if (ks_test::inside_call()) _exit(1);
  pfm_raise(sig);
}

TEST_F(DateToken, ASignalThatRaisesArrivesBehindTheCopying) {
  const Outcome outcome = in_child([&] {
    pfm_signal(SIGINT, exit_inside_calls);
    signal_in_call("strdup", 0, SIGINT);
    const auto write = [] {
      date_fmt_token_general(kMoment, DATE_KIND_DATE, DATE_STYLE_ISO, 0, 0);
    };
    if (land(write).status != SIGINT) _exit(2);
  });
  EXPECT_EQ(outcome.end(), "exit 0");
}

// The fault comes when the old text is gone and the new one kept.
TEST_F(DateTokenWrapper, LosesNoTextToAFault) {
  for (const char *call : {"localtime_r", "strdup", "free"}) {
    const Outcome outcome = in_child([&] {
      pfm_signal(SIGINT, exit_inside_calls);
      date_fmt_token_date(kMoment);
      signal_in_call(call, 0, SIGINT);
      const int before = count_calls("free");
      if (land([] { date_fmt_token_date(0); }).status != SIGINT) _exit(2);
      if (count_calls("free") != before + 1) _exit(3);
      if (std::string(date_fmt_token_date(kMoment)) != "2006-03-15") _exit(4);
    });
    EXPECT_EQ(outcome.end(), "exit 0") << call;
  }
}

TEST_F(DateToken, IsNoneWhereLibcHasNoBreakdown) {
  fail_call("localtime_r", 0, EOVERFLOW);
  EXPECT_EQ(token(kMoment, DATE_KIND_DATE, DATE_STYLE_ISO), "none");
  fail_call("gmtime_r", 0, EOVERFLOW);
  EXPECT_EQ(token(kMoment, DATE_KIND_DATE, DATE_STYLE_ISO, 1), "none");
}

TEST_F(DateToken, IsNoneWithoutMemory) {
  fail_call("strdup", 0, ENOMEM);
  EXPECT_EQ(token(kMoment, DATE_KIND_DATE, DATE_STYLE_ISO), "none");
}

}  // namespace

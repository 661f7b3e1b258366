#include <gtest/gtest.h>

#include <cerrno>
#include <climits>
#include <cstdint>
#include <cstdlib>
#include <string>

#include "date.h"
#include "support/catalogs.h"
#include "support/faults.h"

using ks_test::Catalogs;
using ks_test::fail_call;
using ks_test::speak;

namespace {

constexpr int32_t kMoment = 1142418030;  // 2006-03-15T10:20:30Z
constexpr int kStyles = 9;

class DateNumericToken : public testing::Test {
 protected:
  DateNumericToken() { setenv("TZ", "Asia/Kolkata", 1); }
};

void expect_texts(int32_t time, const char *const (&texts)[kStyles]) {
  for (int style = 0; style < kStyles; ++style) {
    EXPECT_STREQ(date_fmt_token_numeric(style, time), texts[style]) << style;
  }
}

TEST_F(DateNumericToken, IsTheDigitsOfItsStyle) {
  expect_texts(kMoment, {"060315.155030", "20060315.155030", "060315.1550", "20060315.1550",
                         "060315", "20060315", "1142418030", "4417ea6e", "060315.15:50"});
  expect_texts(0, {"700101.053000", "19700101.053000", "700101.0530", "19700101.0530", "700101",
                   "19700101", "0", "0", "700101.05:30"});
}

TEST_F(DateNumericToken, ReachesBothEndsOf32Bits) {
  setenv("TZ", "UTC", 1);
  expect_texts(INT32_MAX, {"380119.031407", "20380119.031407", "380119.0314", "20380119.0314",
                           "380119", "20380119", "2147483647", "7fffffff", "380119.03:14"});
  expect_texts(INT32_MIN, {"011213.204552", "19011213.204552", "011213.2045", "19011213.2045",
                           "011213", "19011213", "2147483648", "80000000", "011213.20:45"});
  expect_texts(-1, {"691231.235959", "19691231.235959", "691231.2359", "19691231.2359", "691231",
                    "19691231", "4294967295", "ffffffff", "691231.23:59"});
}

TEST_F(DateNumericToken, HasTheSeparatorsOfTheLanguage) {
  const Catalogs catalogs;
  catalogs.add("ks_lib", "$set 12\n43 \"h\"\n44 \"_a_\"\n");
  speak("de");
  expect_texts(kMoment, {"060315_a_155030", "20060315_a_155030", "060315_a_1550", "20060315_a_1550",
                         "060315", "20060315", "1142418030", "4417ea6e", "060315_a_15h50"});
}

TEST_F(DateNumericToken, IsReadBack) {
  constexpr int32_t kLocalMidnight = kMoment - (15 * 3600 + 50 * 60 + 30);
  constexpr int32_t kReadBack[kStyles] = {kMoment,      kMoment,        kMoment - 30,
                                          kMoment - 30, kLocalMidnight, kLocalMidnight,
                                          kMoment,      kMoment,        kMoment - 30};
  for (int style = 0; style < kStyles; ++style) {
    const std::string token = date_fmt_token_numeric(style, kMoment);
    int32_t time = -1;
    EXPECT_EQ(date_numeric_str_to_time(style, token.c_str(), &time), 1) << token;
    EXPECT_EQ(time, kReadBack[style]) << token;
  }
}

TEST_F(DateNumericToken, IsEmptyInAnotherStyle) {
  date_fmt_token_numeric(DATE_NUMERIC_SECONDS, kMoment);
  for (int style : {-1, 9, INT_MAX, INT_MIN}) {
    EXPECT_STREQ(date_fmt_token_numeric(style, kMoment), "") << style;
  }
}

TEST_F(DateNumericToken, IsEmptyWhereLibcHasNoBreakdown) {
  date_fmt_token_numeric(DATE_NUMERIC_SECONDS, kMoment);
  fail_call("localtime_r", 0, EOVERFLOW);
  EXPECT_STREQ(date_fmt_token_numeric(DATE_NUMERIC_SECONDS, kMoment), "");
  EXPECT_STREQ(date_fmt_token_numeric(DATE_NUMERIC_DECIMAL, kMoment), "1142418030");
}

TEST_F(DateNumericToken, LivesUntilTheNextOne) {
  const char *first = date_fmt_token_numeric(DATE_NUMERIC_DATE, kMoment);
  date_fmt_token_date_time(0);
  date_fmt_short_date(0);
  EXPECT_STREQ(first, "060315");
  EXPECT_EQ(date_fmt_token_numeric(DATE_NUMERIC_DATE, 0), first);
}

}  // namespace

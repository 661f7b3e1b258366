#include <gtest/gtest.h>

#include <cerrno>
#include <ctime>

#include "date.h"
#include "support/faults.h"

using ks_test::fail_call;
using ks_test::set_clock;

namespace {

timeval now() {
  timeval value = {-1, -1};
  date_get_timeval(&value);
  return value;
}

TEST(DateGetTimeval, AnswersTheSystemsTime) {
  const time_t before = time(nullptr);
  const timeval value = now();
  timespec after = {};
  clock_gettime(CLOCK_REALTIME, &after);  // time(2) may still be in the second before
  EXPECT_GE(value.tv_sec, before);
  EXPECT_LE(value.tv_sec, after.tv_sec);
}

TEST(DateGetTimeval, TakesMicrosecondsBelowASecondAsTheyAre) {
  set_clock(1000, 0);
  EXPECT_EQ(now().tv_sec, 1000);
  EXPECT_EQ(now().tv_usec, 0);
  set_clock(1000, 999999);
  EXPECT_EQ(now().tv_sec, 1000);
  EXPECT_EQ(now().tv_usec, 999999);
}

TEST(DateGetTimeval, MovesOneSecondOutOfTheMicroseconds) {
  set_clock(1000, 1000000);
  EXPECT_EQ(now().tv_sec, 1001);
  EXPECT_EQ(now().tv_usec, 0);
  set_clock(1000, 1999999);
  EXPECT_EQ(now().tv_sec, 1001);
  EXPECT_EQ(now().tv_usec, 999999);
}

TEST(DateGetTimeval, TakesTheSecondsFromTimeWhereMicrosecondsMakeNoSense) {
  for (long microseconds : {2000000L, 5000000L, -1L}) {
    set_clock(1000, microseconds);
    const time_t before = time(nullptr);
    EXPECT_GE(now().tv_sec, before) << microseconds;
    EXPECT_EQ(now().tv_usec, 0) << microseconds;
  }
}

TEST(DateGetTimeval, TakesTheSecondsFromTimeWhenGettimeofdayFails) {
  fail_call("gettimeofday", 0, EFAULT);
  const time_t before = time(nullptr);
  const timeval value = now();
  EXPECT_GE(value.tv_sec, before);
  EXPECT_LE(value.tv_sec, time(nullptr));
  EXPECT_EQ(value.tv_usec, 0);
}

}  // namespace

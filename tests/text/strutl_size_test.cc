#include <gtest/gtest.h>

#include <climits>

#include "strutl.h"
#include "support/exact_text.h"

using ks_test::ExactText;

namespace {

constexpr long kUntouched = 777;

// The size that `read` finds in a text; a failure leaves the value as it was.
long size(int (*read)(const char *, long *), const char *text) {
  ExactText copy(text);
  long value = kUntouched;
  const int result = read(copy, &value);
  EXPECT_EQ(result, value == kUntouched) << text;
  return value;
}

long kilobytes(const char *text) { return size(strutl_kstr_to_long, text); }
long bytes(const char *text) { return size(strutl_kstr_or_str_to_long, text); }

TEST(StrutlKstrToLong, GivesKilobytes) {
  EXPECT_EQ(kilobytes("2048"), 2);
  EXPECT_EQ(kilobytes("2047"), 1);
  EXPECT_EQ(kilobytes("1.5k"), 1);
  EXPECT_EQ(kilobytes("7k"), 7);
  EXPECT_EQ(kilobytes("7K"), 7);
  EXPECT_EQ(kilobytes("2m"), 2048);
  EXPECT_EQ(kilobytes("0.5M"), 512);
  EXPECT_EQ(kilobytes("1g"), 1048576);
  EXPECT_EQ(kilobytes("1.5G"), 1572864);
  EXPECT_EQ(kilobytes(" 3k"), 3);
  EXPECT_EQ(kilobytes("1e3k"), 1000);
  EXPECT_EQ(kilobytes("0x10k"), 16);
  EXPECT_EQ(kilobytes("-2048"), -2);
  EXPECT_EQ(kilobytes("-1.5k"), -1);
}

TEST(StrutlKstrOrStrToLong, GivesBytes) {
  EXPECT_EQ(bytes("2048"), 2048);
  EXPECT_EQ(bytes("1.9"), 1);
  EXPECT_EQ(bytes("1.5k"), 1536);
  EXPECT_EQ(bytes("7K"), 7168);
  EXPECT_EQ(bytes("2m"), 2097152);
  EXPECT_EQ(bytes("2M"), 2097152);
  EXPECT_EQ(bytes("1g"), 1073741824);
  EXPECT_EQ(bytes("1G"), 1073741824);
  EXPECT_EQ(bytes("-1k"), -1024);
}

TEST(StrutlKstr, OnlyZeroGivesZero) {
  for (const char *text : {"0", "-0", "0k", "0.0g"}) {
    EXPECT_EQ(kilobytes(text), 0) << text;
    EXPECT_EQ(bytes(text), 0) << text;
  }
  EXPECT_EQ(kilobytes("1"), 1);
  EXPECT_EQ(kilobytes("0.5k"), 1);
  EXPECT_EQ(bytes("0.5"), 1);
  EXPECT_EQ(bytes("1e-300"), 1);
  EXPECT_EQ(kilobytes("0x1p-1074"), 1);
}

TEST(StrutlKstr, KeepsOneForASmallNegativeNumber) {
  EXPECT_EQ(kilobytes("-1"), 1);
  EXPECT_EQ(bytes("-0.5"), 1);
}

TEST(StrutlKstr, OtherTextFails) {
  for (const char *text : {"", " ", "k", "x", "1x", "1kb", "1kk", "1 ", "1 k", "1k ", "-",
                           "1\x95\x5c", "0x", "1b", "1t"}) {
    EXPECT_EQ(kilobytes(text), kUntouched) << text;
    EXPECT_EQ(bytes(text), kUntouched) << text;
  }
}

TEST(StrutlKstr, WhatIsNoSizeFails) {
  for (const char *text : {"nan", "-nan", "nank", "inf", "-inf", "infk", "1e999", "-1e999", "1e300",
                           "-1e300g", "1e308g"}) {
    EXPECT_EQ(kilobytes(text), kUntouched) << text;
    EXPECT_EQ(bytes(text), kUntouched) << text;
  }
}

#if LONG_MAX == INT32_MAX
TEST(StrutlKstr, RangeEndsWhereALongEnds) {
  EXPECT_EQ(bytes("2147483647"), LONG_MAX);
  EXPECT_EQ(bytes("2147483647.9"), LONG_MAX);
  EXPECT_EQ(bytes("2147483648"), kUntouched);
  EXPECT_EQ(bytes("2g"), kUntouched);
  EXPECT_EQ(bytes("-2g"), LONG_MIN);
  EXPECT_EQ(bytes("-2147483648.9"), LONG_MIN);
  EXPECT_EQ(bytes("-2147483649"), kUntouched);
  EXPECT_EQ(kilobytes("2g"), 2097152);
  EXPECT_EQ(kilobytes("2147483648k"), kUntouched);
}
#else
TEST(StrutlKstr, RangeEndsWhereALongEnds) {
  EXPECT_EQ(bytes("9223372036854774784"), LONG_MAX - 1023);  // the largest double below 2^63
  EXPECT_EQ(bytes("9223372036854775808"), kUntouched);
  EXPECT_EQ(bytes("8589934592g"), kUntouched);
  EXPECT_EQ(bytes("-8589934592g"), LONG_MIN);
  EXPECT_EQ(bytes("-9223372036854777856"), kUntouched);  // the next double below -2^63
  EXPECT_EQ(kilobytes("8589934592g"), LONG_MAX / 1024 + 1);
  EXPECT_EQ(kilobytes("9223372036854775808k"), kUntouched);
}
#endif

}  // namespace

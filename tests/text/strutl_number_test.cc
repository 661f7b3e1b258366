#include <gtest/gtest.h>

#include <cerrno>
#include <charconv>
#include <climits>
#include <cmath>
#include <random>
#include <string>

#include "strutl.h"
#include "support/exact_text.h"

using ks_test::ExactText;

namespace {

constexpr bool kLongHas64Bits = sizeof(long) == 8;
constexpr const char *kLongMax = kLongHas64Bits ? "9223372036854775807" : "2147483647";
constexpr const char *kAboveLongMax = kLongHas64Bits ? "9223372036854775808" : "2147483648";
constexpr const char *kLongMin = kLongHas64Bits ? "-9223372036854775808" : "-2147483648";
constexpr const char *kBelowLongMin = kLongHas64Bits ? "-9223372036854775809" : "-2147483649";
constexpr const char *kUlongMax = kLongHas64Bits ? "18446744073709551615" : "4294967295";
constexpr const char *kAboveUlongMax = kLongHas64Bits ? "18446744073709551616" : "4294967296";

template <class Number>
struct Row {
  const char *text;
  int base;
  int whole;     // result for the whole text
  int extended;  // result where text may follow
  Number value;  // in both cases
  size_t end;    // offset of what follows
};

TEST(StrutlStrtol, ReadsAsStrtolAndTellsWhatFails) {
  const Row<long> kRows[] = {
      {"42", 10, 0, 0, 42, 2},
      {" \t\n\v\f\r42", 10, 0, 0, 42, 8},
      {"+7", 10, 0, 0, 7, 2},
      {"-7", 10, 0, 0, -7, 2},
      {"0", 10, 0, 0, 0, 1},
      {"-0", 10, 0, 0, 0, 2},
      {"007", 10, 0, 0, 7, 3},
      {"010", 0, 0, 0, 8, 3},
      {"0x1F", 0, 0, 0, 31, 4},
      {"0x1F", 16, 0, 0, 31, 4},
      {"1f", 16, 0, 0, 31, 2},
      {"101", 2, 0, 0, 5, 3},
      {"zz", 36, 0, 0, 1295, 2},
      {kLongMax, 10, 0, 0, LONG_MAX, strlen(kLongMax)},
      {kLongMin, 10, 0, 0, LONG_MIN, strlen(kLongMin)},
      // text behind the number
      {"42x", 10, 1, 0, 42, 2},
      {"42 ", 10, 1, 0, 42, 2},
      {"0x", 10, 1, 0, 0, 1},
      {"12", 2, 1, 0, 1, 1},
      {"1.5", 10, 1, 0, 1, 1},
      // no digits
      {"", 10, 1, 1, 0, 0},
      {" ", 10, 1, 1, 0, 0},
      {"-", 10, 1, 1, 0, 0},
      {"x", 10, 1, 1, 0, 0},
      {"- 7", 10, 1, 1, 0, 0},
      {"\xff", 10, 1, 1, 0, 0},
      // out of range
      {kAboveLongMax, 10, 1, 1, LONG_MAX, strlen(kAboveLongMax)},
      {kBelowLongMin, 10, 1, 1, LONG_MIN, strlen(kBelowLongMin)},
      // no such base
      {"42", 1, 1, 1, 0, 0},
      {"42", 37, 1, 1, 0, 0},
      {"42", -2, 1, 1, 0, 0},
  };
  for (const Row<long> &row : kRows) {
    ExactText text(row.text);
    long value = 777;
    errno = EDOM;
    EXPECT_EQ(strutl_strtol(text, row.base, &value), row.whole) << row.text;
    EXPECT_EQ(value, row.value) << row.text;
    value = 777;
    char *end = nullptr;
    EXPECT_EQ(strutl_strtol_extended(text, row.base, &value, &end), row.extended) << row.text;
    EXPECT_EQ(value, row.value) << row.text;
    EXPECT_EQ(end, text.get() + row.end) << row.text;
  }
}

TEST(StrutlStrtoul, ReadsAsStrtoulAndTellsWhatFails) {
  const Row<unsigned long> kRows[] = {
      {"42", 10, 0, 0, 42, 2},        {" 42", 10, 0, 0, 42, 3},
      {"-1", 10, 0, 0, ULONG_MAX, 2}, {"ff", 16, 0, 0, 255, 2},
      {"0", 10, 0, 0, 0, 1},          {kUlongMax, 10, 0, 0, ULONG_MAX, strlen(kUlongMax)},
      {"42-", 10, 1, 0, 42, 2},       {"", 10, 1, 1, 0, 0},
      {"x", 10, 1, 1, 0, 0},          {kAboveUlongMax, 10, 1, 1, ULONG_MAX, strlen(kAboveUlongMax)},
      {"42", 1, 1, 1, 0, 0},          {"42", 37, 1, 1, 0, 0},
  };
  for (const Row<unsigned long> &row : kRows) {
    ExactText text(row.text);
    unsigned long value = 777;
    errno = EDOM;
    EXPECT_EQ(strutl_strtoul(text, row.base, &value), row.whole) << row.text;
    EXPECT_EQ(value, row.value) << row.text;
    value = 777;
    char *end = nullptr;
    EXPECT_EQ(strutl_strtoul_extended(text, row.base, &value, &end), row.extended) << row.text;
    EXPECT_EQ(value, row.value) << row.text;
    EXPECT_EQ(end, text.get() + row.end) << row.text;
  }
}

TEST(StrutlStrtod, ReadsAsStrtodAndTellsWhatFails) {
  const Row<double> kRows[] = {
      {"1.5", 0, 0, 0, 1.5, 3},
      {" -2.5e2", 0, 0, 0, -250, 7},
      {"0x1p4", 0, 0, 0, 16, 5},
      {"0", 0, 0, 0, 0, 1},
      {".5", 0, 0, 0, 0.5, 2},
      {"inf", 0, 0, 0, HUGE_VAL, 3},
      {"1.5x", 0, 1, 0, 1.5, 3},
      {"1e", 0, 1, 0, 1, 1},
      {"1 ", 0, 1, 0, 1, 1},
      {"", 0, 1, 1, 0, 0},
      {".", 0, 1, 1, 0, 0},
      {"e5", 0, 1, 1, 0, 0},
      {"1e999", 0, 1, 1, HUGE_VAL, 5},
      {"-1e999", 0, 1, 1, -HUGE_VAL, 6},
      {"1e-999", 0, 1, 1, 0, 6},
  };
  for (const Row<double> &row : kRows) {
    ExactText text(row.text);
    double value = 777;
    errno = EDOM;
    EXPECT_EQ(strutl_strtod(text, &value), row.whole) << row.text;
    EXPECT_EQ(value, row.value) << row.text;
    value = 777;
    char *end = nullptr;
    EXPECT_EQ(strutl_strtod_extended(text, &value, &end), row.extended) << row.text;
    EXPECT_EQ(value, row.value) << row.text;
    EXPECT_EQ(end, text.get() + row.end) << row.text;
  }
}

TEST(StrutlStrtod, ANanIsANumber) {
  double value = 0;
  EXPECT_EQ(strutl_strtod("nan", &value), 0);
  EXPECT_TRUE(std::isnan(value));
}

TEST(StrutlStrtol, ErrnoTellsAnOverflowFromMissingDigits) {
  long value;
  EXPECT_EQ(strutl_strtol(kAboveLongMax, 10, &value), 1);
  EXPECT_EQ(errno, ERANGE);
  EXPECT_EQ(strutl_strtol("x", 10, &value), 1);
  EXPECT_EQ(errno, 0);
}

TEST(StrutlU32tostr, WidthChoosesTheDigits) {
  EXPECT_STREQ(strutl_u32tostr(12345, 10, -1), "12345");
  EXPECT_STREQ(strutl_u32tostr(12345, 10, -100), "12345");
  EXPECT_STREQ(strutl_u32tostr(0, 10, -1), "0");
  EXPECT_STREQ(strutl_u32tostr(12345, 10, 0), "");
  EXPECT_STREQ(strutl_u32tostr(12345, 10, 3), "345");
  EXPECT_STREQ(strutl_u32tostr(42, 10, 5), "00042");
  EXPECT_STREQ(strutl_u32tostr(0, 10, 2), "00");
  EXPECT_STREQ(strutl_u32tostr(0xdeadbeef, 16, 32), "000000000000000000000000deadbeef");
  EXPECT_STREQ(strutl_u32tostr(0xdeadbeef, 16, 33), "000000000000000000000000deadbeef");
  EXPECT_STREQ(strutl_u32tostr(0xdeadbeef, 16, INT_MAX), "000000000000000000000000deadbeef");
}

TEST(StrutlU32tostr, LargestValueInEveryKindOfBase) {
  EXPECT_STREQ(strutl_u32tostr(UINT32_MAX, 2, -1), "11111111111111111111111111111111");
  EXPECT_STREQ(strutl_u32tostr(UINT32_MAX, 10, -1), "4294967295");
  EXPECT_STREQ(strutl_u32tostr(UINT32_MAX, 36, -1), "1z141z3");
}

TEST(StrutlU32tostr, OtherBasesGiveNull) {
  for (int base : {-10, -1, 0, 1, 37, INT_MAX, INT_MIN}) {
    EXPECT_EQ(strutl_u32tostr(5, base, -1), nullptr) << base;
  }
}

TEST(StrutlU32tostr, NothingOfAnEarlierTextIsLeft) {
  strutl_u32tostr(UINT32_MAX, 2, 32);
  EXPECT_STREQ(strutl_u32tostr(1, 2, 32), "00000000000000000000000000000001");
}

TEST(StrutlU32tostr, FollowsToCharsInAllBases) {
  constexpr unsigned kSeed = 32;
  SCOPED_TRACE(kSeed);
  std::mt19937 random(kSeed);
  for (int round = 0; round < 20000; ++round) {
    const uint32_t value = static_cast<uint32_t>(random() >> random() % 32);
    const int base = static_cast<int>(2 + random() % 35);
    char digits[33];
    const std::string expected(digits, std::to_chars(digits, digits + 33, value, base).ptr);
    ASSERT_EQ(strutl_u32tostr(value, base, -1), expected) << value << " in base " << base;
  }
}

TEST(StrutlProcessLongParam, GivesTheValueWithinItsBounds) {
  EXPECT_EQ(strutl_process_long_param("5", 3, 1, 10), 5);
  EXPECT_EQ(strutl_process_long_param("1", 3, 1, 10), 1);
  EXPECT_EQ(strutl_process_long_param("10", 3, 1, 10), 10);
  EXPECT_EQ(strutl_process_long_param("0", 3, 1, 10), 1);
  EXPECT_EQ(strutl_process_long_param("-5", 3, 1, 10), 1);
  EXPECT_EQ(strutl_process_long_param("11", 3, 1, 10), 10);
  EXPECT_EQ(strutl_process_long_param(" 010", 3, 1, 20), 10);
}

TEST(StrutlProcessLongParam, GivesTheDefaultForWhatIsNoNumber) {
  for (const char *text : {"", "x", "5x", "5 ", "0x5", kAboveLongMax}) {
    EXPECT_EQ(strutl_process_long_param(text, 3, 1, 10), 3) << text;
  }
  EXPECT_EQ(strutl_process_long_param(nullptr, 3, 1, 10), 3);
}

TEST(StrutlProcessLongParam, TheDefaultNeedNotLieWithinTheBounds) {
  EXPECT_EQ(strutl_process_long_param(nullptr, -1, 1, 10), -1);
  EXPECT_EQ(strutl_process_long_param("x", 99, 1, 10), 99);
}

}  // namespace

#include <gtest/gtest.h>

#include <string>

#include "strutl.h"
#include "support/exact_text.h"
#include "support/locale.h"

using ks_test::ExactText;
using ks_test::use_locale;

namespace {

using namespace std::string_literals;

TEST(StrutlNcpy, CopiesTheCountAndANul) {
  ExactText target("", 6);
  EXPECT_EQ(strutl_ncpy(target, "abcdef", 3), target.get());
  EXPECT_EQ(target.bytes(), "abc\0zz"s);
}

TEST(StrutlNcpy, DoesNotStopAtANul) {
  ExactText target("", 6);
  strutl_ncpy(target, "a\0bc", 4);
  EXPECT_EQ(target.bytes(), "a\0bc\0z"s);
}

TEST(StrutlNcpy, CountZeroGivesAnEmptyText) {
  ExactText target("abc");
  strutl_ncpy(target, "xyz", 0);
  EXPECT_EQ(target.bytes(), "\0bc\0"s);
}

struct Bounded {
  size_t count;
  size_t size;
  int result;
  const char *text;
};

TEST(StrutlNcpyBuf, CutsToOneByteLessThanTheSize) {
  constexpr Bounded kCases[] = {
      {0, 4, 0, ""},    {2, 4, 0, "ab"}, {3, 4, 0, "abc"}, {4, 4, 1, "abc"},
      {6, 4, 1, "abc"}, {0, 1, 0, ""},   {1, 1, 1, ""},    {6, 7, 0, "abcdef"},
  };
  for (const Bounded &row : kCases) {
    ExactText source("abcdef");
    ExactText target("", row.size);
    EXPECT_EQ(strutl_ncpy_buf(target, source, row.count, row.size), row.result)
        << row.count << " in " << row.size;
    EXPECT_STREQ(target, row.text);
  }
}

TEST(StrutlNcpyBuf, TouchesNothingBehindTheNul) {
  ExactText target("", 6);
  EXPECT_EQ(strutl_ncpy_buf(target, "abcdef", 2, 6), 0);
  EXPECT_EQ(target.bytes(), "ab\0zzz"s);
  EXPECT_EQ(strutl_ncpy_buf(target, "uvwxyz", 6, 4), 1);
  EXPECT_EQ(target.bytes(), "uvw\0zz"s);
}

TEST(StrutlNcpyBuf, DoesNotStopAtANul) {
  ExactText target("", 6);
  EXPECT_EQ(strutl_ncpy_buf(target, "a\0bcdef", 7, 6), 1);
  EXPECT_EQ(target.bytes(), "a\0bcd\0"s);
}

TEST(StrutlNcpyBuf, SizeZeroWritesNothing) {
  char target[] = "z";
  EXPECT_EQ(strutl_ncpy_buf(target, "abc", 3, 0), 1);
  EXPECT_EQ(strutl_ncpy_buf(target, "", 0, 0), 1);
  EXPECT_STREQ(target, "z");
}

TEST(StrutlNcpyBuf, MayCutAMultibyteCharacter) {
  use_locale("C.UTF-8");
  char target[3];
  EXPECT_EQ(strutl_ncpy_buf(target, "aä", 3, sizeof target), 1);
  EXPECT_STREQ(target, "a\xc3");
}

struct Stopped {
  const char *source;
  const char *stop_set;
  size_t size;
  int result;
  const char *text;
  size_t stop;
};

TEST(StrutlCcpyBuf, StopsBeforeAByteOfTheSet) {
  constexpr Stopped kCases[] = {
      {"key=value;", "=;", 16, 0, "key", 3},
      {"key=value", ";", 16, 0, "key=value", 9},
      {"key=value", "", 16, 0, "key=value", 9},
      {"=value", "=", 16, 0, "", 0},
      {"", "=", 16, 0, "", 0},
      {"key=value", "=", 4, 0, "key", 3},
      {"key=value", "=", 3, 1, "ke", 2},
      {"key", "=", 4, 0, "key", 3},
      {"keys", "=", 4, 1, "key", 3},
      {"=", "=", 1, 0, "", 0},
      {"k", "=", 1, 1, "", 0},
  };
  for (const Stopped &row : kCases) {
    ExactText source(row.source);
    ExactText target("", row.size);
    size_t stop = 777;
    EXPECT_EQ(strutl_ccpy_buf(target, source, row.size, row.stop_set, &stop), row.result)
        << row.source << " in " << row.size;
    EXPECT_STREQ(target, row.text);
    EXPECT_EQ(stop, row.stop) << row.source << " in " << row.size;
  }
}

TEST(StrutlCcpyBuf, PositionMayBeLeftOut) {
  char target[8];
  EXPECT_EQ(strutl_ccpy_buf(target, "a,b", sizeof target, ",", nullptr), 0);
  EXPECT_STREQ(target, "a");
}

TEST(StrutlCcpyBuf, SizeZeroWritesNothing) {
  char target[] = "z";
  size_t stop = 777;
  EXPECT_EQ(strutl_ccpy_buf(target, "abc", 0, ",", &stop), 1);
  EXPECT_STREQ(target, "z");
  EXPECT_EQ(stop, 777u);
}

TEST(StrutlCcpyBuf, KeepsStoppingAtAByteInsideACharacter) {
  use_locale("ja_JP.SJIS");
  char target[8];
  size_t stop;
  EXPECT_EQ(strutl_ccpy_buf(target, "a\x95\x5c", sizeof target, "\\", &stop), 0);
  EXPECT_STREQ(target, "a\x95");
  EXPECT_EQ(stop, 2u);
}

TEST(StrutlCpyAndAdvance, MovesTheTargetByTheCount) {
  ExactText buffer("", 8);
  char *target = buffer;
  strutl_cpy_and_advance(&target, "abc", 3);
  EXPECT_EQ(target, buffer.get() + 3);
  strutl_cpy_and_advance(&target, "de", 2);
  EXPECT_EQ(target, buffer.get() + 5);
  EXPECT_EQ(buffer.bytes(), "abcdezzz");
}

TEST(StrutlCpyAndAdvance, FillsAShortTextUpWithNuls) {
  ExactText buffer("", 6);
  ExactText source("ab");
  char *target = buffer;
  strutl_cpy_and_advance(&target, source, 4);
  EXPECT_EQ(target, buffer.get() + 4);
  EXPECT_EQ(buffer.bytes(), "ab\0\0zz"s);
}

TEST(StrutlCpyAndAdvance, CountZeroDoesNothing) {
  ExactText buffer("q");
  char *target = buffer;
  strutl_cpy_and_advance(&target, "abc", 0);
  EXPECT_EQ(target, buffer.get());
  EXPECT_STREQ(buffer, "q");
}

TEST(StrutlPrepend, TextEndsAtThePosition) {
  ExactText buffer("", 8);
  EXPECT_EQ(strutl_prepend(buffer, 8, "def"), 5);
  EXPECT_EQ(strutl_prepend(buffer, 5, "abc"), 2);
  EXPECT_EQ(strutl_prepend(buffer, 2, ""), 2);
  EXPECT_EQ(buffer.bytes(), "\0zabcdef"s);
}

TEST(StrutlPrepend, TextMayBeginAtTheBuffersStart) {
  ExactText buffer("", 4);
  EXPECT_EQ(strutl_prepend(buffer, 3, "abc"), 0);
  EXPECT_EQ(buffer.bytes(), "abcz");
}

TEST(StrutlPrepend, NegativeResultWhenThereIsNoRoom) {
  ExactText buffer("ab", 4);
  EXPECT_EQ(strutl_prepend(buffer, 2, "xyz"), -1);
  EXPECT_EQ(strutl_prepend(buffer, 0, "xyz"), -3);
  EXPECT_EQ(buffer.bytes(), "ab\0z"s);
}

}  // namespace

#include <gtest/gtest.h>

#include <algorithm>
#include <random>
#include <string>

#include "strutl.h"
#include "support/child.h"
#include "support/exact_text.h"
#include "support/locale.h"

using ks_test::ExactText;
using ks_test::in_child;
using ks_test::Outcome;
using ks_test::use_locale;

namespace {

using namespace std::string_literals;

constexpr const char *kTooSmall = "noname: Error: Supplied buffer too small.\n";

struct Strip {
  const char *text;
  int leading;
  int trailing;
  const char *result;
  int cut;  // where a trailing cut was made, or -1
};

TEST(StrutlStripWhitespace, TakesOffWhatTheFlagsSay) {
  constexpr Strip kCases[] = {
      {" \tab c\t ", 1, 1, "ab c", 4},
      {" \tab c\t ", 1, 0, "ab c\t ", -1},
      {" \tab c\t ", 0, 1, " \tab c", 6},
      {" \tab c\t ", 0, 0, " \tab c\t ", -1},
      {"abc", 1, 1, "abc", -1},
      {"  abc", 1, 1, "abc", -1},
      {"abc ", 7, 7, "abc", 3},
      {"a", 1, 1, "a", -1},
      {"", 1, 1, "", -1},
  };
  for (const Strip &row : kCases) {
    ExactText text(row.text);
    const char *end = strutl_strip_whitespace(text, row.leading, row.trailing);
    EXPECT_EQ(end != nullptr ? end - text.get() : -1, row.cut) << row.text;
    EXPECT_STREQ(text, row.result);
  }
}

TEST(StrutlStripWhitespace, BlanksAloneBecomeEmptyWithEitherFlag) {
  constexpr Strip kCases[] = {
      {" \t ", 1, 0, "", -1},
      {" \t ", 0, 1, "", 0},
      {" \t ", 1, 1, "", 0},
      {" \t ", 0, 0, " \t ", -1},
  };
  for (const Strip &row : kCases) {
    ExactText text(row.text);
    const char *end = strutl_strip_whitespace(text, row.leading, row.trailing);
    EXPECT_EQ(end != nullptr ? end - text.get() : -1, row.cut) << row.leading << row.trailing;
    EXPECT_STREQ(text, row.result);
  }
}

TEST(StrutlStripWhitespace, KnowsNoOtherWhiteSpace) {
  ExactText text("\n a \r\v\f");
  EXPECT_EQ(strutl_strip_whitespace(text, 1, 1), nullptr);
  EXPECT_STREQ(text, "\n a \r\v\f");
}

TEST(StrutlStripWhitespace, MultibyteAndInvalidCharactersStay) {
  for (const char *locale : {"C.UTF-8", "ja_JP.SJIS"}) {
    use_locale(locale);
    ExactText text(" \x95\x5c\xff \t");
    EXPECT_EQ(strutl_strip_whitespace(text, 1, 1), text.get() + 3);
    EXPECT_STREQ(text, "\x95\x5c\xff");
  }
}

std::string slid(const std::string &text, size_t size, size_t position, ptrdiff_t distance) {
  ExactText buffer(text, size);
  strutl_slide_tail(buffer, position, distance);
  return buffer.bytes();
}

TEST(StrutlSlideTail, MovesTheTailWithItsNul) {
  EXPECT_EQ(slid("abcdef", 9, 2, 2), "abcdcdef\0"s);
  EXPECT_EQ(slid("abcdef", 7, 4, -2), "abef\0f\0"s);
  EXPECT_EQ(slid("abcdef", 7, 6, -6), "\0bcdef\0"s);
  EXPECT_EQ(slid("abcdef", 8, 0, 1), "aabcdef\0"s);
  EXPECT_EQ(slid("abcdef", 7, 3, 0), "abcdef\0"s);
  EXPECT_EQ(slid("abc", 5, 3, 1), "abc\0\0"s);
}

TEST(StrutlSlideTail, StaysBetweenTheTextsStartAndEnd) {
  EXPECT_EQ(slid("abcdef", 7, 2, -5), "cdef\0f\0"s);
  EXPECT_EQ(slid("abc", 4, 1000, -1), "ab\0\0"s);
}

struct Replacement {
  const char *text;
  size_t position;
  size_t old_length;
  const char *replacement;
  const char *result;
};

TEST(StrutlReplaceSubstr, ReplacesBytes) {
  constexpr Replacement kCases[] = {
      {"/home/ann", 1, 4, "net", "/net/ann"},
      {"/home/ann", 1, 4, "user", "/user/ann"},
      {"/home/ann", 1, 4, "users", "/users/ann"},
      {"/home/ann", 0, 9, "", ""},
      {"/home/ann", 9, 0, "/x", "/home/ann/x"},
      {"/home/ann", 0, 0, "h:", "h:/home/ann"},
      {"", 0, 0, "abc", "abc"},
  };
  for (const Replacement &row : kCases) {
    const size_t size = std::max(strlen(row.text), strlen(row.result)) + 1;
    ExactText text(row.text, size);
    EXPECT_EQ(strutl_replace_substr(text, row.position, size, row.old_length, row.replacement), 0);
    EXPECT_STREQ(text, row.result);
  }
}

TEST(StrutlReplaceSubstr, ReplacesOnlyBytesThatAreThere) {
  ExactText text("abc", 8);
  EXPECT_EQ(strutl_replace_substr(text, 1, 8, 1000, "xyz"), 0);
  EXPECT_STREQ(text, "axyz");
  EXPECT_EQ(strutl_replace_substr(text, 1000, 8, 1000, "-"), 0);
  EXPECT_STREQ(text, "axyz-");
}

TEST(StrutlReplaceSubstr, ReportsATextThatDoesNotFit) {
  const Outcome outcome = in_child([] {
    ExactText text("abc", 5);
    printf("%d", strutl_replace_substr(text, 1, 5, 1, "xyz"));
    printf(" %s", text.get());
    printf(" %d", strutl_replace_substr(text, 1, 5, 1, "xy"));
    printf(" %s", text.get());
    fflush(stdout);
  });
  EXPECT_EQ(outcome.end(), "exit 0");
  EXPECT_EQ(outcome.out, "1 abc 0 axyc");
  EXPECT_EQ(outcome.err, kTooSmall);
}

TEST(StrutlReplaceSubstr, KeepsTheSizeUntestedWhileTheTextDoesNotGrow) {
  ExactText text("abcdef");
  EXPECT_EQ(strutl_replace_substr(text, 0, 1, 3, "xyz"), 0);
  EXPECT_STREQ(text, "xyzdef");
  EXPECT_EQ(strutl_replace_substr(text, 0, 1, 3, "-"), 0);
  EXPECT_STREQ(text, "-def");
}

std::string replaced(const std::string &text, const char *old_text, const char *new_text,
                     int result) {
  ExactText buffer(text, 32);
  EXPECT_EQ(strutl_find_replace_substr(buffer, 32, old_text, new_text), result) << text;
  return buffer.get();
}

TEST(StrutlFindReplaceSubstr, ReplacesTheFirstOccurrenceOnly) {
  EXPECT_EQ(replaced("a-b-c", "-", "::", 1), "a::b-c");
  EXPECT_EQ(replaced("a-b-c", "-b", "", 1), "a-c");
  EXPECT_EQ(replaced("abc", "abc", "xyz", 1), "xyz");
  EXPECT_EQ(replaced("abc", "x", "y", 0), "abc");
  EXPECT_EQ(replaced("", "x", "y", 0), "");
}

TEST(StrutlFindReplaceSubstr, EmptyOldTextMatchesAtTheStart) {
  EXPECT_EQ(replaced("abc", "", "x", 1), "xabc");
}

TEST(StrutlFindReplaceSubstr, AByteInsideACharacterIsNoOccurrence) {
  use_locale("ja_JP.SJIS");
  EXPECT_EQ(replaced("\x95\x5c\\n", "\\", "/", 1), "\x95\x5c/n");
  EXPECT_EQ(replaced("\x95\x5c", "\\", "/", 0), "\x95\x5c");
  EXPECT_EQ(replaced("a\x95\x5c", "\x95\x5c", "\\", 1), "a\\");
}

TEST(StrutlFindReplaceSubstr, WorksBesideInvalidSequences) {
  use_locale("C.UTF-8");
  EXPECT_EQ(replaced("\xc3/ä\xff", "ä", "ae", 1), "\xc3/ae\xff");
  EXPECT_EQ(replaced("\xe2\x82/", "/", "", 1), "\xe2\x82");
}

TEST(StrutlFindReplaceSubstr, ReportsATextThatDoesNotFit) {
  const Outcome outcome = in_child([] {
    ExactText text("a-b");
    printf("%d %s", strutl_find_replace_substr(text, 4, "-", "::"), text.get());
    fflush(stdout);
  });
  EXPECT_EQ(outcome.out, "0 a-b");
  EXPECT_EQ(outcome.err, kTooSmall);
}

std::string random_text(std::mt19937 &random, size_t most) {
  std::string text(random() % (most + 1), ' ');
  for (char &byte : text) byte = "ab-\\\"\x95\xff\xc3"[random() % 8];
  return text;
}

// What replacing gives by the model; the text itself when the result does not fit.
std::string model(const std::string &text, size_t position, size_t size, size_t old_length,
                  const std::string &added) {
  const size_t at = std::min(position, text.size());
  std::string result = text;
  result.replace(at, old_length, added);
  return result.size() > text.size() && result.size() + 1 > size ? text : result;
}

TEST(StrutlReplaceSubstr, AnyEditStaysInItsBufferAndFollowsTheModel) {
  constexpr unsigned kSeed = 3202;
  SCOPED_TRACE(kSeed);
  const Outcome outcome = in_child([] {
    std::mt19937 random(kSeed);
    size_t failures = 0;
    for (int round = 0; round < 100000; ++round) {
      const std::string before = random_text(random, 12);
      const std::string added = random_text(random, 5);
      const size_t size = before.size() + 1 + random() % 4;
      const size_t position = random() % (before.size() + 3);
      const size_t old_length = random() % 16;
      const std::string expected = model(before, position, size, old_length, added);
      ExactText text(before, size);
      const int result = strutl_replace_substr(text, position, size, old_length, added.c_str());
      failures += result != 0;
      if (expected != text.get()) printf("round %d: %s\n", round, text.get());
      if (result != 0 && expected != before) printf("round %d: result %d\n", round, result);
      strutl_slide_tail(text, random() % 20, -static_cast<ptrdiff_t>(random() % 20));
      if (strlen(text) > expected.size()) printf("round %d: %s slid\n", round, text.get());
    }
    printf("%zu failures\n", failures);
    fflush(stdout);
  });
  EXPECT_EQ(outcome.end(), "exit 0") << outcome.err.substr(0, 4000);
  const size_t lines =
      static_cast<size_t>(std::count(outcome.err.begin(), outcome.err.end(), '\n'));
  EXPECT_GT(lines, 1000u);
  EXPECT_EQ(outcome.out, std::to_string(lines) + " failures\n");
}

}  // namespace

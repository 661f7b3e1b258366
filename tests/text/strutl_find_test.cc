#include <gtest/gtest.h>

#include <cstring>
#include <string>

#include "strutl.h"
#include "support/exact_text.h"
#include "support/locale.h"
#include "text/characters.h"

using ks_test::ExactText;
using ks_test::plain_step;
using ks_test::use_locale;

namespace {

constexpr size_t kUntouched = 777;

struct Found {
  int found;
  size_t position;
  bool operator==(const Found &) const = default;
};

void PrintTo(const Found &found, std::ostream *out) {
  *out << found.found << " at " << found.position;
}

Found find_char(const std::string &string, size_t start, char character) {
  size_t position = kUntouched;
  const int found = strutl_find_char(ExactText(string), start, character, &position);
  return {found, position};
}

Found find_range(const std::string &string, size_t start, size_t limit, const std::string &needle) {
  size_t position = kUntouched;
  const int found =
      strutl_find_str_range(ExactText(string), start, limit, ExactText(needle), &position);
  return {found, position};
}

Found find_str(const std::string &string, size_t start, const std::string &needle) {
  size_t position = kUntouched;
  const int found = strutl_find_str(ExactText(string), start, ExactText(needle), &position);
  return {found, position};
}

Found right_char(const std::string &string, size_t length, char character) {
  size_t position = kUntouched;
  const int found = strutl_right_char(ExactText(string), length, character, &position);
  return {found, position};
}

Found end_delim(const std::string &string, size_t start, char open = '(', char close = ')') {
  size_t position = kUntouched;
  const int found = strutl_find_end_delim(ExactText(string), start, open, close, &position);
  return {found, position};
}

Found last_char(const std::string &string, size_t start, ptrdiff_t end) {
  size_t position = kUntouched;
  const int found = strutl_find_last_char(ExactText(string), start, end, &position);
  return {found, position};
}

bool match_last(const std::string &string, char character) {
  return strutl_match_last_char(ExactText(string), character) != 0;
}

constexpr Found kNone = {0, kUntouched};

TEST(StrutlFindChar, FindsTheFirstFromTheStart) {
  for (const char *locale : ks_test::kLocales) {
    use_locale(locale);
    EXPECT_EQ(find_char("a/b/c", 0, '/'), (Found{1, 1})) << locale;
    EXPECT_EQ(find_char("a/b/c", 1, '/'), (Found{1, 1})) << locale;
    EXPECT_EQ(find_char("a/b/c", 2, '/'), (Found{1, 3})) << locale;
  }
}

TEST(StrutlFindChar, WithoutAHitGivesTheEnd) {
  for (const char *locale : ks_test::kLocales) {
    use_locale(locale);
    EXPECT_EQ(find_char("abc", 0, '/'), (Found{0, 3})) << locale;
    EXPECT_EQ(find_char("a/c", 3, '/'), (Found{0, 3})) << locale;
    EXPECT_EQ(find_char("", 0, '/'), (Found{0, 0})) << locale;
  }
}

TEST(StrutlFindChar, TheNulIsNoHit) {
  for (const char *locale : ks_test::kLocales) {
    use_locale(locale);
    EXPECT_EQ(find_char("abc", 0, '\0'), (Found{0, 3})) << locale;
  }
}

TEST(StrutlFindChar, PositionMayBeLeftOut) {
  EXPECT_EQ(strutl_find_char("a/b", 0, '/', nullptr), 1);
  EXPECT_EQ(strutl_find_char("ab", 0, '/', nullptr), 0);
}

TEST(StrutlFindChar, AByteAbove127IsFoundWhereItIsACharacter) {
  EXPECT_EQ(find_char("a\xe4", 0, '\xe4'), (Found{1, 1}));
  use_locale("C.UTF-8");
  EXPECT_EQ(find_char("ä", 0, '\xc3'), (Found{0, 2}));
  EXPECT_EQ(find_char("ä", 0, '\xa4'), (Found{0, 2}));
  EXPECT_EQ(find_char("ä\xa4", 0, '\xa4'), (Found{1, 2}));
  EXPECT_EQ(find_char("ä\xc3", 0, '\xc3'), (Found{1, 2}));
}

TEST(StrutlFindChar, AByteInsideACharacterIsNoHit) {
  use_locale("ja_JP.SJIS");
  EXPECT_EQ(find_char("\x95\x5c", 0, '\\'), (Found{0, 2}));
  EXPECT_EQ(find_char("\x95\x5c\\", 0, '\\'), (Found{1, 2}));
  EXPECT_EQ(find_char("\x83\x7c|", 0, '|'), (Found{1, 2}));
}

TEST(StrutlFindChar, AnInvalidSequenceIsOneByteLong) {
  use_locale("C.UTF-8");
  EXPECT_EQ(find_char("\xc3/\xe2\x82/", 0, '/'), (Found{1, 1}));
  EXPECT_EQ(find_char("\xc3/\xe2\x82/", 2, '/'), (Found{1, 4}));
}

TEST(StrutlFindStr, FindsTheFirstFromTheStart) {
  for (const char *locale : ks_test::kLocales) {
    use_locale(locale);
    EXPECT_EQ(find_str("one two one", 0, "one"), (Found{1, 0})) << locale;
    EXPECT_EQ(find_str("one two one", 1, "one"), (Found{1, 8})) << locale;
    EXPECT_EQ(find_str("one two one", 9, "one"), (Found{0, 11})) << locale;
    EXPECT_EQ(find_str("aab", 0, "ab"), (Found{1, 1})) << locale;
    EXPECT_EQ(find_str("aab", 0, "aabb"), (Found{0, 3})) << locale;
  }
}

TEST(StrutlFindStr, AnEmptyNeedleStandsAtTheStart) {
  EXPECT_EQ(find_str("abc", 2, ""), (Found{1, 2}));
  EXPECT_EQ(find_str("abc", 3, ""), (Found{1, 3}));
  EXPECT_EQ(find_str("", 0, ""), (Found{1, 0}));
  EXPECT_EQ(find_range("abc", 2, 1, ""), (Found{1, 2}));
}

TEST(StrutlFindStr, BeginsOnlyWhereACharacterDoes) {
  use_locale("ja_JP.SJIS");
  EXPECT_EQ(find_str("\x95\x5c\x83\x7c", 0, "\x5c\x83"), (Found{0, 4}));
  EXPECT_EQ(find_str("\x95\x5c\x83\x7c", 0, "\x83\x7c"), (Found{1, 2}));
  use_locale("C.UTF-8");
  EXPECT_EQ(find_str("xäy", 0, "\xa4y"), (Found{0, 4}));
  EXPECT_EQ(find_str("xä\xa4y", 0, "\xa4y"), (Found{1, 3}));
}

TEST(StrutlFindStr, ComparesBytes) {
  use_locale("C.UTF-8");
  EXPECT_EQ(find_str("xä", 0, "\xc3"), (Found{1, 1}));
  EXPECT_EQ(find_str("xäy", 0, "äy"), (Found{1, 1}));
}

TEST(StrutlFindStrRange, TheLimitBoundsWhereAHitBegins) {
  for (const char *locale : ks_test::kLocales) {
    use_locale(locale);
    EXPECT_EQ(find_range("xxabc", 0, 3, "abc"), (Found{1, 2})) << locale;
    EXPECT_EQ(find_range("xxabc", 0, 2, "abc"), (Found{0, 2})) << locale;
    EXPECT_EQ(find_range("xxabc", 0, 0, "abc"), (Found{1, 2})) << locale;
    EXPECT_EQ(find_range("xxabc", 0, 99, "abz"), (Found{0, 5})) << locale;
    EXPECT_EQ(find_range("xxabc", 3, 2, "c"), (Found{0, 3})) << locale;
    EXPECT_EQ(find_range("xxabc", 0, SIZE_MAX, "abc"), (Found{1, 2})) << locale;
  }
}

TEST(StrutlFindStrRange, ACharacterMayReachBeyondTheLimit) {
  use_locale("C.UTF-8");
  EXPECT_EQ(find_range("aäb", 0, 2, "b"), (Found{0, 3}));
  EXPECT_EQ(find_range("aäb", 0, 2, "ä"), (Found{1, 1}));
}

TEST(StrutlRightChar, FindsTheLast) {
  for (const char *locale : ks_test::kLocales) {
    use_locale(locale);
    EXPECT_EQ(right_char("a/b/c", 5, '/'), (Found{1, 3})) << locale;
    EXPECT_EQ(right_char("a/b/c", 4, '/'), (Found{1, 3})) << locale;
    EXPECT_EQ(right_char("a/b/c", 3, '/'), (Found{1, 1})) << locale;
    EXPECT_EQ(right_char("a/b/c", 1, '/'), kNone) << locale;
    EXPECT_EQ(right_char("a/b/c", 0, '/'), kNone) << locale;
    EXPECT_EQ(right_char("", 0, '/'), kNone) << locale;
    EXPECT_EQ(right_char("abc", 3, '\0'), kNone) << locale;
  }
}

TEST(StrutlRightChar, StopsWhereTheStringEnds) {
  for (const char *locale : ks_test::kLocales) {
    use_locale(locale);
    EXPECT_EQ(right_char("a/b", 99, '/'), (Found{1, 1})) << locale;
    EXPECT_EQ(right_char("ab", SIZE_MAX, '/'), kNone) << locale;
  }
}

TEST(StrutlRightChar, ReadsNoMoreThanTheLengthOfPlainBytes) {
  const ExactText bytes("a/b", 3);
  size_t position;
  EXPECT_EQ(strutl_right_char(bytes, 3, '/', &position), 1);
  EXPECT_EQ(position, 1u);
}

TEST(StrutlRightChar, AByteInsideACharacterIsNoHit) {
  use_locale("ja_JP.SJIS");
  EXPECT_EQ(right_char("\\\x95\x5c", 3, '\\'), (Found{1, 0}));
  EXPECT_EQ(right_char("\x95\x5c", 2, '\\'), kNone);
  use_locale("C.UTF-8");
  EXPECT_EQ(right_char("ä", 2, '\xa4'), kNone);
  EXPECT_EQ(right_char("ä", 1, '\xc3'), kNone);
  EXPECT_EQ(right_char("\xa4ä", 3, '\xa4'), (Found{1, 0}));
}

TEST(StrutlFindEndDelim, FindsTheMatchingClose) {
  for (const char *locale : ks_test::kLocales) {
    use_locale(locale);
    EXPECT_EQ(end_delim("(a)b", 1), (Found{1, 2})) << locale;
    EXPECT_EQ(end_delim("(a(b)c)d)", 1), (Found{1, 6})) << locale;
    EXPECT_EQ(end_delim("((()))", 1), (Found{1, 5})) << locale;
    EXPECT_EQ(end_delim("()", 1), (Found{1, 1})) << locale;
  }
}

TEST(StrutlFindEndDelim, WithoutAMatchingCloseLeavesThePositionAlone) {
  EXPECT_EQ(end_delim("(a(b)", 1), kNone);
  EXPECT_EQ(end_delim("abc", 0), kNone);
  EXPECT_EQ(end_delim("", 0), kNone);
}

TEST(StrutlFindEndDelim, TheSameDelimiterTwiceEndsAtTheFirst) {
  EXPECT_EQ(end_delim("'a'b'", 1, '\'', '\''), (Found{1, 2}));
}

TEST(StrutlFindEndDelim, AByteInsideACharacterIsNoDelimiter) {
  use_locale("ja_JP.SJIS");
  EXPECT_EQ(end_delim("\x95\x5c\\", 0, '{', '\\'), (Found{1, 2}));
  EXPECT_EQ(end_delim("\x83\x7c}", 0, '|', '}'), (Found{1, 2}));
}

TEST(StrutlFindLastChar, FindsTheLastThatBegins) {
  for (const char *locale : ks_test::kLocales) {
    use_locale(locale);
    EXPECT_EQ(last_char("abc", 0, -1), (Found{1, 2})) << locale;
    EXPECT_EQ(last_char("abc", 2, -1), (Found{1, 2})) << locale;
    EXPECT_EQ(last_char("abc", 0, 99), (Found{1, 2})) << locale;
    EXPECT_EQ(last_char("abc", 0, PTRDIFF_MAX), (Found{1, 2})) << locale;
  }
}

TEST(StrutlFindLastChar, ACharacterThatBeginsAtTheEndCounts) {
  for (const char *locale : ks_test::kLocales) {
    use_locale(locale);
    EXPECT_EQ(last_char("abc", 0, 1), (Found{1, 1})) << locale;
    EXPECT_EQ(last_char("abc", 1, 1), (Found{1, 1})) << locale;
    EXPECT_EQ(last_char("abc", 0, 0), (Found{1, 0})) << locale;
  }
}

TEST(StrutlFindLastChar, NothingInTheRangeGivesPositionZero) {
  for (const char *locale : ks_test::kLocales) {
    use_locale(locale);
    EXPECT_EQ(last_char("abc", 2, 1), (Found{0, 0})) << locale;
    EXPECT_EQ(last_char("abc", 0, -2), (Found{0, 0})) << locale;
    EXPECT_EQ(last_char("abc", 3, -1), (Found{0, 0})) << locale;
    EXPECT_EQ(last_char("abc", 3, 3), (Found{0, 0})) << locale;
    EXPECT_EQ(last_char("", 0, -1), (Found{0, 0})) << locale;
  }
}

TEST(StrutlFindLastChar, StepsByWholeCharacters) {
  use_locale("C.UTF-8");
  EXPECT_EQ(last_char("aä", 0, -1), (Found{1, 1}));
  EXPECT_EQ(last_char("aäb", 0, 2), (Found{1, 1}));
  EXPECT_EQ(last_char("a\xe2\x82", 0, -1), (Found{1, 2}));
  use_locale("ja_JP.SJIS");
  EXPECT_EQ(last_char("\x95\x5c", 0, -1), (Found{1, 0}));
  EXPECT_EQ(last_char("\x95\x5c\x5c", 0, -1), (Found{1, 2}));
}

TEST(StrutlMatchLastChar, ComparesTheLastCharacter) {
  for (const char *locale : ks_test::kLocales) {
    use_locale(locale);
    EXPECT_TRUE(match_last("a/", '/')) << locale;
    EXPECT_TRUE(match_last("/", '/')) << locale;
    EXPECT_FALSE(match_last("/a", '/')) << locale;
    EXPECT_FALSE(match_last("", '/')) << locale;
    EXPECT_FALSE(match_last("", '\0')) << locale;
    EXPECT_FALSE(match_last("a", '\0')) << locale;
  }
}

TEST(StrutlMatchLastChar, AByteInsideACharacterIsNoMatch) {
  use_locale("ja_JP.SJIS");
  EXPECT_FALSE(match_last("\x95\x5c", '\\'));
  EXPECT_TRUE(match_last("\x95\x5c\\", '\\'));
  use_locale("C.UTF-8");
  EXPECT_FALSE(match_last("ä", '\xa4'));
  EXPECT_TRUE(match_last("ä\xa4", '\xa4'));
}

// The searches as they are described, a step at a time.
struct Model {
  std::string text;

  size_t step(size_t at) const { return plain_step(text.c_str() + at); }

  Found find(size_t start, char character) const {
    size_t at = start;
    while (at < text.size() && !(step(at) == 1 && text[at] == character)) at += step(at);
    return {at < text.size(), at};
  }

  Found find(size_t start, size_t limit, const std::string &needle) const {
    size_t at = start;
    if (needle.empty()) return {1, at};
    for (; at < text.size() && (limit == 0 || at < limit); at += step(at)) {
      if (text.compare(at, needle.size(), needle) == 0) return {1, at};
    }
    return {0, at};
  }

  Found right(size_t length, char character) const {
    Found last = kNone;
    for (size_t at = 0; at < text.size() && at < length; at += step(at)) {
      if (step(at) == 1 && text[at] == character) last = {1, at};
    }
    return last;
  }

  Found last(size_t start, ptrdiff_t end) const {
    Found last = {0, 0};
    if (end != -1 && end < static_cast<ptrdiff_t>(start)) return last;
    for (size_t at = start; at < text.size(); at += step(at)) {
      if (end == -1 || at <= static_cast<size_t>(end)) last = {1, at};
    }
    return last;
  }
};

TEST(StrutlFind, AgreesWithSteppingThroughHardTexts) {
  constexpr char kWanted[] = "/\\|a(,\xc3\xa4\x80\xff\x95\xb1";
  std::mt19937 random(31003);
  for (const char *locale : ks_test::kLocales) {
    use_locale(locale);
    for (int round = 0; round < 4000; ++round) {
      const Model model = {ks_test::hard_text(random, 10)};
      const std::string &text = model.text;
      const std::string needle = ks_test::hard_text(random, 2);
      const char wanted = kWanted[random() % (sizeof kWanted - 1)];
      const size_t start = random() % (text.size() + 1);
      const size_t limit = random() % (text.size() + 2);
      const ptrdiff_t end = static_cast<ptrdiff_t>(limit) - 1;
      SCOPED_TRACE(std::string(locale) + ": " + testing::PrintToString(text));
      ASSERT_EQ(find_char(text, start, wanted), model.find(start, wanted));
      ASSERT_EQ(find_str(text, start, needle), model.find(start, 0, needle));
      ASSERT_EQ(find_range(text, start, limit, needle), model.find(start, limit, needle));
      ASSERT_EQ(right_char(text, limit, wanted), model.right(limit, wanted));
      ASSERT_EQ(last_char(text, start, end), model.last(start, end));
      const Found last = model.last(0, -1);
      ASSERT_EQ(match_last(text, wanted),
                last.found && last.position + 1 == text.size() && text.back() == wanted);
    }
  }
}

}  // namespace

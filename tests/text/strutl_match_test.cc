#include <gtest/gtest.h>

#include <string>

#include "list.h"
#include "strutl.h"
#include "support/exact_text.h"
#include "support/locale.h"
#include "text/characters.h"

using ks_test::ExactText;
using ks_test::use_locale;

namespace {

struct Prefix {
  int differ;
  size_t length;
  bool operator==(const Prefix &) const = default;
};

void PrintTo(const Prefix &prefix, std::ostream *out) {
  *out << prefix.differ << " after " << prefix.length;
}

Prefix match(const std::string &first, const std::string &second) {
  size_t length = 777;
  const int differ = strutl_match_prefix(ExactText(first), ExactText(second), &length);
  return {differ, length};
}

int compare(const std::string &first, const std::string &second) {
  return strutl_cmp_ignore_whitespace(ExactText(first), ExactText(second));
}

TEST(StrutlMatchPrefix, GivesTheCommonBytes) {
  for (const char *locale : ks_test::kLocales) {
    use_locale(locale);
    EXPECT_EQ(match("abc", "abc"), (Prefix{0, 3})) << locale;
    EXPECT_EQ(match("abc", "abd"), (Prefix{1, 2})) << locale;
    EXPECT_EQ(match("abc", "ab"), (Prefix{1, 2})) << locale;
    EXPECT_EQ(match("ab", "abc"), (Prefix{1, 2})) << locale;
    EXPECT_EQ(match("", ""), (Prefix{0, 0})) << locale;
    EXPECT_EQ(match("", "a"), (Prefix{1, 0})) << locale;
  }
}

TEST(StrutlMatchPrefix, LengthMayBeLeftOut) {
  EXPECT_EQ(strutl_match_prefix("a", "a", nullptr), 0);
  EXPECT_EQ(strutl_match_prefix("a", "b", nullptr), 1);
}

TEST(StrutlMatchPrefix, ComparesBytesWhereACharacterHasOne) {
  EXPECT_EQ(match("xä", "xö"), (Prefix{1, 2}));
}

TEST(StrutlMatchPrefix, ComparesWholeCharacters) {
  use_locale("C.UTF-8");
  EXPECT_EQ(match("xäy", "xäz"), (Prefix{1, 3}));
  EXPECT_EQ(match("xä", "xö"), (Prefix{1, 1}));
  EXPECT_EQ(match("xä", "x\xc3"), (Prefix{1, 1}));
  EXPECT_EQ(match("x\xc3", "xä"), (Prefix{1, 1}));
  EXPECT_EQ(match("x\xc3", "x\xc3"), (Prefix{0, 2}));
  use_locale("ja_JP.SJIS");
  EXPECT_EQ(match("\x95\x5c", "\x95\x5d"), (Prefix{1, 0}));
  EXPECT_EQ(match("\x95\x5c/", "\x95\x5c"), (Prefix{1, 2}));
}

TEST(StrutlMatchPrefix, ComparesHardTextsCharacterByCharacter) {
  std::mt19937 random(31004);
  for (const char *locale : ks_test::kLocales) {
    use_locale(locale);
    for (int round = 0; round < 4000; ++round) {
      const std::string common = ks_test::hard_text(random, 4);
      const std::string first = common + ks_test::hard_text(random, 1);
      const std::string second = common + ks_test::hard_text(random, 1);
      const std::vector<size_t> walk = ks_test::plain_walk(first);
      // The longest run of characters that both have, in both of which they end at the same place.
      size_t expected = 0;
      for (size_t at : walk) {
        const size_t step = ks_test::plain_step(first.c_str() + at);
        if (at >= second.size() || ks_test::plain_step(second.c_str() + at) != step) break;
        if (first.compare(at, step, second, at, step) != 0) break;
        expected = at + step;
      }
      ASSERT_EQ(match(first, second), (Prefix{first != second, expected}))
          << locale << ": " << testing::PrintToString(first) << testing::PrintToString(second);
    }
  }
}

TEST(StrutlCmpIgnoreWhitespace, SpaceAtTheEndsDoesNotCount) {
  EXPECT_EQ(compare("  abc", "abc\t\n"), 0);
  EXPECT_EQ(compare(" \v\f\r", ""), 0);
  EXPECT_EQ(compare("", ""), 0);
}

TEST(StrutlCmpIgnoreWhitespace, ARunOfSpaceIsOneBlank) {
  EXPECT_EQ(compare("a \t b", "a b"), 0);
  EXPECT_EQ(compare("a\nb c", "a b\t\tc "), 0);
}

TEST(StrutlCmpIgnoreWhitespace, SpaceInsideCounts) {
  EXPECT_EQ(compare("a b", "ab"), 1);
  EXPECT_EQ(compare("ab", "a b"), 1);
  EXPECT_EQ(compare("a b", "a"), 1);
  EXPECT_EQ(compare("a", "a b"), 1);
}

TEST(StrutlCmpIgnoreWhitespace, OtherBytesMustBeTheSame) {
  EXPECT_EQ(compare("abc", "abd"), 1);
  EXPECT_EQ(compare("abc", "ab"), 1);
  EXPECT_EQ(compare("", "a"), 1);
  EXPECT_EQ(compare("\xff", "\xfe"), 1);
  EXPECT_EQ(compare("\xff ", " \xff"), 0);
}

TEST(StrutlStrInList, ComparesWithEachElement) {
  stg_area_t area = stg_create_area(1000);
  list_t *list = list_create(area, 0);
  char one[] = "one";
  char two[] = "two";
  EXPECT_EQ(strutl_str_in_list(list, "one"), 0);
  list_append(list, one);
  list_append(list, two);
  EXPECT_EQ(strutl_str_in_list(list, "one"), 1);
  EXPECT_EQ(strutl_str_in_list(list, "two"), 1);
  EXPECT_EQ(strutl_str_in_list(list, "tw"), 0);
  EXPECT_EQ(strutl_str_in_list(list, "Two"), 0);
  EXPECT_EQ(strutl_str_in_list(list, ""), 0);
  stg_delete_area(&area);
}

TEST(StrutlStrInList, NoListHasNothing) { EXPECT_EQ(strutl_str_in_list(nullptr, "one"), 0); }

}  // namespace

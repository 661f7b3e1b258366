#include <gmock/gmock.h>
#include <gtest/gtest.h>

#include <string>

#include "strutl.h"
#include "support/assertion.h"
#include "support/child.h"
#include "support/exact_text.h"
#include "support/locale.h"
#include "text/characters.h"

using ks_test::assertion_line;
using ks_test::ExactText;
using ks_test::in_child;
using ks_test::use_locale;
using testing::MatchesRegex;

namespace {

TEST(StrutlMblen, IsTheBytesOfTheFirstCharacter) {
  use_locale("C.UTF-8");
  EXPECT_EQ(strutl_mblen("a", MB_CUR_MAX), 1);
  EXPECT_EQ(strutl_mblen("ä", MB_CUR_MAX), 2);
  EXPECT_EQ(strutl_mblen("€x", MB_CUR_MAX), 3);
  EXPECT_EQ(strutl_mblen("\xf0\x9f\x98\x80", MB_CUR_MAX), 4);
}

TEST(StrutlMblen, IsZeroOnlyAtANul) {
  for (const char *locale : ks_test::kLocales) {
    use_locale(locale);
    EXPECT_EQ(strutl_mblen("", MB_CUR_MAX), 0) << locale;
    EXPECT_EQ(strutl_mblen("", 0), 0) << locale;
    EXPECT_EQ(strutl_mblen("a", 0), 1) << locale;
    EXPECT_EQ(strutl_mblen("\xff", MB_CUR_MAX), 1) << locale;
  }
}

TEST(StrutlMblen, ASequenceThatIsNoCharacterIsOneByte) {
  use_locale("C.UTF-8");
  for (const char *text : {"\xff", "\x80", "\xc3", "\xc3z", "\xe2\x82", "\xed\xa0\x80",
                           "\xe0\x80\x80", "\xc0\xaf", "\xc1\xbf", "\xf0\x8f\xbf\xbf", "\xfe"}) {
    EXPECT_EQ(strutl_mblen(ExactText(text), MB_CUR_MAX), 1) << text;
  }
}

TEST(StrutlMblen, ACharacterCutByTheLimitIsOneByte) {
  use_locale("C.UTF-8");
  EXPECT_EQ(strutl_mblen(ExactText("\xe2\x82\xac", 3), 3), 3);
  EXPECT_EQ(strutl_mblen(ExactText("\xe2\x82", 2), 2), 1);
  EXPECT_EQ(strutl_mblen("\xe2\x82\xac", 0), 1);
  use_locale("ja_JP.SJIS");
  EXPECT_EQ(strutl_mblen("\x95\x5c", 2), 2);
  EXPECT_EQ(strutl_mblen(ExactText("\x95", 1), 1), 1);
}

TEST(StrutlMblen, TakesAnyLimit) {
  for (const char *locale : ks_test::kLocales) {
    use_locale(locale);
    EXPECT_EQ(strutl_mblen("a", SIZE_MAX), 1) << locale;
    EXPECT_EQ(strutl_mblen("\xff", SIZE_MAX), 1) << locale;
  }
}

TEST(StrutlMblen, ACutSequenceDoesNotChangeTheNextAnswer) {
  use_locale("ja_JP.SJIS");
  EXPECT_EQ(strutl_mblen("\x95", 1), 1);
  EXPECT_EQ(strutl_mblen("\x5c", 1), 1);
  EXPECT_EQ(strutl_mblen("\x95\x5c", 2), 2);
}

TEST(StrutlMbCharFromStr, GivesCharacterAfterCharacter) {
  use_locale("C.UTF-8");
  const ExactText text("a€\xff");
  const char *at = text;
  EXPECT_STREQ(strutl_mb_char_from_str(at, &at), "a");
  EXPECT_EQ(at, text + 1);
  EXPECT_STREQ(strutl_mb_char_from_str(at, &at), "€");
  EXPECT_EQ(at, text + 4);
  EXPECT_STREQ(strutl_mb_char_from_str(at, &at), "\xff");
  EXPECT_EQ(at, text + 5);
  EXPECT_STREQ(strutl_mb_char_from_str(at, &at), "");
  EXPECT_EQ(at, text + 5);
}

TEST(StrutlMbCharFromStr, NoTextGivesAnEmptyOneAndLeavesTheTailAlone) {
  const char *const untouched = "untouched";
  const char *tail = untouched;
  EXPECT_STREQ(strutl_mb_char_from_str(nullptr, &tail), "");
  EXPECT_STREQ(strutl_mb_char_from_str("", &tail), "");
  EXPECT_EQ(tail, untouched);
}

TEST(StrutlMbCharFromStr, ALaterCallOverwritesTheText) {
  const char *tail;
  const char *text = strutl_mb_char_from_str("ab", &tail);
  EXPECT_STREQ(text, "a");
  EXPECT_EQ(strutl_mb_char_from_str(tail, &tail), text);
  EXPECT_STREQ(text, "b");
  EXPECT_STREQ(strutl_mb_char_from_str(text, &tail), "b");
  EXPECT_EQ(strutl_mb_char_from_str("", &tail), text);
  EXPECT_STREQ(text, "");
}

TEST(StrutlMbCharFromStr, HoldsTheLongestCharacter) {
  use_locale("C.UTF-8");
  const char *tail;
  EXPECT_STREQ(strutl_mb_char_from_str("\xfd\xbf\xbf\xbf\xbf\xbfz", &tail),
               "\xfd\xbf\xbf\xbf\xbf\xbf");
  EXPECT_STREQ(tail, "z");
}

TEST(StrutlMbCharFromStr, TakesTheSecondByteWithTheFirst) {
  use_locale("ja_JP.SJIS");
  const char *tail;
  EXPECT_STREQ(strutl_mb_char_from_str("\x95\x5c/", &tail), "\x95\x5c");
  EXPECT_STREQ(tail, "/");
}

TEST(StrutlMbCharFromStr, AssertsATail) {
  const ks_test::Outcome outcome = in_child([] { strutl_mb_char_from_str("a", nullptr); });
  EXPECT_EQ(outcome.end(), "signal 6");
  EXPECT_THAT(outcome.err,
              MatchesRegex("noname: Error: " +
                           assertion_line("s_tail != NULL", "src/text/strutl_char.cc")));
}

TEST(StrutlMbStrlen, CountsCharacters) {
  EXPECT_EQ(strutl_mb_strlen(""), 0u);
  EXPECT_EQ(strutl_mb_strlen("aä"), 3u);
  use_locale("C.UTF-8");
  EXPECT_EQ(strutl_mb_strlen(""), 0u);
  EXPECT_EQ(strutl_mb_strlen("aä€\xf0\x9f\x98\x80"), 4u);
  EXPECT_EQ(strutl_mb_strlen("\xe2\x82/\xff"), 4u);
  use_locale("ja_JP.SJIS");
  EXPECT_EQ(strutl_mb_strlen("\x95\x5c\\\x83\x7c\xb1"), 4u);
}

TEST(StrutlMbStrlen, CountsAsSteppingDoes) {
  std::mt19937 random(31001);
  for (const char *locale : ks_test::kLocales) {
    use_locale(locale);
    for (int round = 0; round < 5000; ++round) {
      const std::string text = ks_test::hard_text(random, 20);
      ASSERT_EQ(strutl_mb_strlen(ExactText(text)), ks_test::plain_walk(text).size())
          << locale << ": " << testing::PrintToString(text);
    }
  }
}

TEST(StrutlMbStrlen, CountsAsciiOfAnyLengthAroundACharacter) {
  use_locale("C.UTF-8");
  for (size_t before = 0; before < 150; ++before) {
    for (const size_t behind : {0u, 1u, 7u, 15u, 16u, 17u, 63u, 64u, 65u}) {
      const std::string text = std::string(before, 'x') + "€" + std::string(behind, 'y');
      ASSERT_EQ(strutl_mb_strlen(ExactText(text)), before + 1 + behind) << before << ' ' << behind;
    }
    ASSERT_EQ(strutl_mb_strlen(ExactText(std::string(before, 'x'))), before);
  }
}

TEST(StrutlMbStrlen, AssertsAString) {
  const ks_test::Outcome outcome = in_child([] { strutl_mb_strlen(nullptr); });
  EXPECT_EQ(outcome.end(), "signal 6");
  EXPECT_THAT(outcome.err, MatchesRegex("noname: Error: " +
                                        assertion_line("s != NULL", "src/text/strutl_char.cc")));
}

struct ClassCase {
  uint32_t mask;
  const char *members;
  const char *others;
};

TEST(StrutlTestChar, KnowsEachClass) {
  const ClassCase cases[] = {
      {STRUTL_CLASS_ALPHA, "azAZ", "0 !\x01"},    {STRUTL_CLASS_UPPER, "AZ", "az0 !"},
      {STRUTL_CLASS_LOWER, "az", "AZ0 !"},        {STRUTL_CLASS_DIGIT, "09", "aA !"},
      {STRUTL_CLASS_XDIGIT, "09afAF", "gG !"},    {STRUTL_CLASS_ALNUM, "azAZ09", " !\x01"},
      {STRUTL_CLASS_SPACE, " \t\n\v\f\r", "a0!"}, {STRUTL_CLASS_PUNCT, "!/_~", "a0 \x01"},
      {STRUTL_CLASS_PRINT, "a0! ", "\x01\x7f\n"}, {STRUTL_CLASS_GRAPH, "a0!", " \x01\n"}};
  for (const char *locale : ks_test::kLocales) {
    use_locale(locale);
    for (const ClassCase &row : cases) {
      for (const char *at = row.members; *at != '\0'; ++at) {
        EXPECT_EQ(strutl_test_char(at, 1, row.mask, nullptr), 1) << locale << row.mask << *at;
      }
      for (const char *at = row.others; *at != '\0'; ++at) {
        EXPECT_EQ(strutl_test_char(at, 1, row.mask, nullptr), 0) << locale << row.mask << *at;
      }
    }
  }
}

TEST(StrutlTestChar, ClassesHaveTheseBits) {
  EXPECT_EQ(STRUTL_CLASS_ALPHA | STRUTL_CLASS_LOWER << 4 | STRUTL_CLASS_DIGIT << 8, 0x841);
  EXPECT_EQ(STRUTL_CLASS_UPPER | STRUTL_CLASS_XDIGIT << 4 | STRUTL_CLASS_ALNUM << 8, 0x2102);
  EXPECT_EQ(STRUTL_CLASS_SPACE | STRUTL_CLASS_PUNCT, 0x0C0);
  EXPECT_EQ(STRUTL_CLASS_PRINT | STRUTL_CLASS_GRAPH, 0x300);
}

TEST(StrutlTestChar, WantsAllClassesAtOnce) {
  EXPECT_EQ(strutl_test_char("a", 1, STRUTL_CLASS_ALPHA | STRUTL_CLASS_LOWER, nullptr), 1);
  EXPECT_EQ(strutl_test_char("a", 1, STRUTL_CLASS_ALPHA | STRUTL_CLASS_UPPER, nullptr), 0);
  EXPECT_EQ(strutl_test_char("a", 1, STRUTL_CLASS_ALPHA | STRUTL_CLASS_XDIGIT, nullptr), 1);
  EXPECT_EQ(strutl_test_char("\x01", 1, 0, nullptr), 1);
}

TEST(StrutlTestChar, JudgesAWideCharacterAndGivesItsLength) {
  use_locale("C.UTF-8");
  size_t length = 77;
  EXPECT_EQ(strutl_test_char("Äx", MB_CUR_MAX, STRUTL_CLASS_UPPER, &length), 1);
  EXPECT_EQ(length, 2u);
  EXPECT_EQ(strutl_test_char("€", MB_CUR_MAX, STRUTL_CLASS_ALPHA, &length), 0);
  EXPECT_EQ(length, 3u);
}

TEST(StrutlTestChar, AtANulIsInNoClassAndHasNoLength) {
  for (const char *locale : ks_test::kLocales) {
    use_locale(locale);
    size_t length = 77;
    EXPECT_EQ(strutl_test_char("", MB_CUR_MAX, STRUTL_CLASS_SPACE, &length), 0) << locale;
    EXPECT_EQ(length, 0u) << locale;
  }
}

TEST(StrutlTestChar, ASequenceThatIsNoCharacterIsJudgedByItsFirstByte) {
  use_locale("C.UTF-8");
  size_t length = 77;
  EXPECT_EQ(strutl_test_char("\xff", 1, STRUTL_CLASS_PRINT, &length), 0);
  EXPECT_EQ(length, 1u);
  length = 77;
  EXPECT_EQ(strutl_test_char("ä", 1, STRUTL_CLASS_ALPHA, &length), 0);
  EXPECT_EQ(length, 1u);
  EXPECT_EQ(strutl_test_char("a", 0, STRUTL_CLASS_LOWER, &length), 1);
  EXPECT_EQ(length, 1u);
}

long mb_strchr(const std::string &string, const std::string &character, size_t length) {
  const ExactText text(string);
  const char *hit = strutl_mb_strchr(text, ExactText(character, length), length);
  return hit != nullptr ? hit - text.get() : -1;
}
long mb_strchr(const std::string &string, const std::string &character) {
  return mb_strchr(string, character, character.size());
}

TEST(StrutlMbStrchr, FindsTheFirst) {
  for (const char *locale : ks_test::kLocales) {
    use_locale(locale);
    EXPECT_EQ(mb_strchr("a/b/c", "/"), 1) << locale;
    EXPECT_EQ(mb_strchr("abc", "/"), -1) << locale;
    EXPECT_EQ(mb_strchr("", "/"), -1) << locale;
  }
}

TEST(StrutlMbStrchr, FindsALongerCharacter) {
  use_locale("C.UTF-8");
  EXPECT_EQ(mb_strchr("xöäy", "ä"), 3);
  EXPECT_EQ(mb_strchr("xö", "ä"), -1);
  EXPECT_EQ(mb_strchr("x\xc3", "ä"), -1);
  use_locale("ja_JP.SJIS");
  EXPECT_EQ(mb_strchr("\x83\x7c\x95\x5c", "\x95\x5c"), 2);
}

TEST(StrutlMbStrchr, AByteInsideACharacterIsNoHit) {
  use_locale("ja_JP.SJIS");
  EXPECT_EQ(mb_strchr("\x95\x5c", "\\"), -1);
  EXPECT_EQ(mb_strchr("\x95\x5c\\", "\\"), 2);
  // 0x5C 0x83 stands across two characters.
  EXPECT_EQ(mb_strchr("\x95\x5c\x83\x7c", "\x5c\x83"), -1);
}

TEST(StrutlMbStrchr, KeepsTakingOneByteForAnyCharacterThatBeginsWithIt) {
  use_locale("C.UTF-8");
  EXPECT_EQ(mb_strchr("aä", "\xc3"), 1);
  EXPECT_EQ(mb_strchr("aä", "\xa4"), -1);
}

TEST(StrutlMbStrchr, NoBytesAndTheNulAreNotFound) {
  EXPECT_EQ(mb_strchr("abc", "", 0), -1);
  EXPECT_EQ(mb_strchr("abc", std::string(1, '\0'), 1), -1);
}

TEST(StrutlGetSysCharType, TellsSingleBytesFromTheRest) {
  EXPECT_EQ(strutl_get_sys_char_type(), 1);
  use_locale("C.UTF-8");
  EXPECT_EQ(strutl_get_sys_char_type(), 2);
  use_locale("ja_JP.SJIS");
  EXPECT_EQ(strutl_get_sys_char_type(), 2);
}

}  // namespace

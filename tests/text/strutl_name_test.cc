#include <gtest/gtest.h>

#include <string>

#include "strutl.h"
#include "support/exact_text.h"
#include "support/locale.h"

using ks_test::ExactText;
using ks_test::use_locale;

namespace {

int ok(const std::string &name, const char *forbidden_first = nullptr,
       const char *extra_allowed = nullptr) {
  ExactText copy(name);
  return strutl_is_ok_name(copy, forbidden_first, extra_allowed);
}

TEST(StrutlIsOkName, NullAndEmptyAreNone) {
  EXPECT_EQ(strutl_is_ok_name(nullptr, nullptr, nullptr), 0);
  EXPECT_EQ(ok(""), 0);
  EXPECT_EQ(ok("", "-", "_"), 0);
}

TEST(StrutlIsOkName, LettersAndDigitsAreGood) {
  for (const char *locale : {"C", "C.UTF-8", "ja_JP.SJIS"}) {
    use_locale(locale);
    EXPECT_EQ(ok("a"), 1);
    EXPECT_EQ(ok("Release2"), 1);
    EXPECT_EQ(ok("2nd"), 1);
  }
}

TEST(StrutlIsOkName, EveryOtherAsciiCharacterMustBeAllowed) {
  for (const char *locale : {"C", "C.UTF-8"}) {
    use_locale(locale);
    for (char c = 1; c < 127; ++c) {
      const bool good = (c >= '0' && c <= '9') || (c >= 'a' && c <= 'z') || (c >= 'A' && c <= 'Z');
      const char allowed[] = {c, '\0'};
      EXPECT_EQ(ok(std::string("a") + c), good) << static_cast<int>(c);
      EXPECT_EQ(ok(std::string("a") + c, nullptr, allowed), 1) << static_cast<int>(c);
    }
    EXPECT_EQ(ok("\x7f"), 0);
  }
}

TEST(StrutlIsOkName, EachCharacterIsJudged) {
  EXPECT_EQ(ok("main_line-2.1", nullptr, "._-"), 1);
  EXPECT_EQ(ok("main_line-2.1", nullptr, "._"), 0);
  EXPECT_EQ(ok("main line", nullptr, "._-"), 0);
  EXPECT_EQ(ok("mainline/", nullptr, "._-"), 0);
  EXPECT_EQ(ok("main", nullptr, ""), 1);
}

TEST(StrutlIsOkName, OnlyTheFirstCharacterMayBeForbidden) {
  EXPECT_EQ(ok("-name", "-.", "-."), 0);
  EXPECT_EQ(ok("na-me.", "-.", "-."), 1);
  EXPECT_EQ(ok("2name", "0123456789"), 0);
  EXPECT_EQ(ok("name2", "0123456789"), 1);
  EXPECT_EQ(ok("name", ""), 1);
}

TEST(StrutlIsOkName, CharactersBeyondAsciiMayBePunctuation) {
  use_locale("C.UTF-8");
  EXPECT_EQ(ok("Größe"), 1);
  EXPECT_EQ(ok("\u3042\u3001"), 1);  // a kana and an ideographic comma
  EXPECT_EQ(ok("a\u2026"), 1);       // dots
}

TEST(StrutlIsOkName, WideWhiteSpaceAndControlsAreNotGood) {
  use_locale("C.UTF-8");
  EXPECT_EQ(ok("a\u3000"), 0);  // an ideographic blank
  EXPECT_EQ(ok("a\u3000", nullptr, "\u3000"), 1);
  EXPECT_EQ(ok("a\u0085"), 0);  // a control character
  EXPECT_EQ(ok("a\u0085", nullptr, "_\u0085"), 1);
}

TEST(StrutlIsOkName, WholeCharactersStandInTheSets) {
  use_locale("C.UTF-8");
  EXPECT_EQ(ok("ä", "ö"), 1);  // c3 a4 and c3 b6
  EXPECT_EQ(ok("ä", "öä"), 0);
  use_locale("ja_JP.SJIS");
  EXPECT_EQ(ok("\x95\x5c", "\\"), 1);
  EXPECT_EQ(ok("\x95\x5c", "\\\x95\x5c"), 0);
  EXPECT_EQ(ok("a\\", nullptr, "\x95\x5c"), 0);
  EXPECT_EQ(ok("a\\", nullptr, "\x95\x5c\\"), 1);
  EXPECT_EQ(ok("a\x81\x41"), 1);  // an ideographic comma
  EXPECT_EQ(ok("a\x81\x40"), 0);  // and blank
}

TEST(StrutlIsOkName, InvalidSequencesAreNeverGood) {
  use_locale("C.UTF-8");
  EXPECT_EQ(ok("a\xff"), 0);
  EXPECT_EQ(ok("a\xff", nullptr, "\xff"), 0);
  EXPECT_EQ(ok("a\xe2\x82", nullptr, "\xe2\x82"), 0);
  EXPECT_EQ(ok("\xc3/", nullptr, "\xc3/"), 0);
  use_locale("ja_JP.SJIS");
  EXPECT_EQ(ok("a\x95"), 0);
  use_locale("C");
  EXPECT_EQ(ok("a\xe4", nullptr, "\xe4"), 0);
}

}  // namespace

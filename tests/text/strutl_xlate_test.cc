#include <gtest/gtest.h>

#include <string>

#include "strutl.h"
#include "support/exact_text.h"
#include "support/locale.h"

using ks_test::ExactText;
using ks_test::use_locale;

namespace {

using namespace std::string_literals;

struct Translation {
  int result;
  int changed;
  std::string target;  // up to its NUL
  bool operator==(const Translation &) const = default;
};

void PrintTo(const Translation &translation, std::ostream *out) {
  *out << translation.result << ", changed " << translation.changed << ": " << translation.target;
}

Translation translate(const std::string &source, const char *separators, char separator,
                      size_t size = 32) {
  ExactText text(source);
  ExactText target("untouched", 32);
  Translation translation = {-1, -1, ""};
  translation.result =
      strutl_xlate_pname_sep(text, separators, separator, target, size, &translation.changed);
  translation.target = target.get();
  EXPECT_EQ(text.get(), source);
  return translation;
}

TEST(StrutlXlatePnameSep, ReplacesEachSeparator) {
  for (const char *locale : {"C", "C.UTF-8", "ja_JP.SJIS"}) {
    use_locale(locale);
    EXPECT_EQ(translate("a\\b:c", "\\:", '/'), (Translation{0, 1, "a/b/c"}));
    EXPECT_EQ(translate("\\\\", "\\", '/'), (Translation{0, 1, "//"}));
  }
}

TEST(StrutlXlatePnameSep, TouchesNothingWhenNothingDiffers) {
  EXPECT_EQ(translate("abc", "\\", '/'), (Translation{0, 0, "untouched"}));
  EXPECT_EQ(translate("a/b", "/", '/'), (Translation{0, 0, "untouched"}));
  EXPECT_EQ(translate("", "\\", '/'), (Translation{0, 0, "untouched"}));
  EXPECT_EQ(translate("a/b", "/", '/', 1), (Translation{0, 0, "untouched"}));
}

TEST(StrutlXlatePnameSep, CopiesWhatStandsBeforeTheFirstDifference) {
  EXPECT_EQ(translate("a/b\\c/d", "/\\", '/'), (Translation{0, 1, "a/b/c/d"}));
}

TEST(StrutlXlatePnameSep, TargetMayBeTooSmall) {
  EXPECT_EQ(translate("a\\b", "\\", '/', 4), (Translation{0, 1, "a/b"}));
  EXPECT_EQ(translate("a\\bc", "\\", '/', 4), (Translation{1, 0, "a\\b"}));
  EXPECT_EQ(translate("a\\bc", "\\", '/', 0), (Translation{1, 0, "untouched"}));
}

TEST(StrutlXlatePnameSep, WorksInPlaceWhateverTheSize) {
  ExactText text("a\\b\\c");
  int changed = -1;
  EXPECT_EQ(strutl_xlate_pname_sep(text, "\\", '/', text, 1, &changed), 0);
  EXPECT_EQ(changed, 1);
  EXPECT_STREQ(text, "a/b/c");
}

TEST(StrutlXlatePnameSep, AByteInsideACharacterIsNoSeparator) {
  use_locale("ja_JP.SJIS");
  EXPECT_EQ(translate("\x95\x5c\\a", "\\", '/'), (Translation{0, 1, "\x95\x5c/a"}));
  EXPECT_EQ(translate("\x95\x5c", "\\", '/'), (Translation{0, 0, "untouched"}));
}

TEST(StrutlXlatePnameSep, AMultibyteSeparatorBecomesOneByte) {
  use_locale("C.UTF-8");
  EXPECT_EQ(translate("aäbäc\xc3", "ä", '/'), (Translation{0, 1, "a/b/c\xc3"}));
}

TEST(StrutlXlatePnameSep, InvalidSequencesStay) {
  use_locale("C.UTF-8");
  EXPECT_EQ(translate("\xc3\\\xff\\\xe2\x82", "\\", '/'),
            (Translation{0, 1, "\xc3/\xff/\xe2\x82"}));
}

// The result in a buffer of exactly its size.
std::string exchanged(const std::string &source, const char *characters, const char *const *strings,
                      size_t length) {
  ExactText text(source);
  ExactText target("", length + 1);
  EXPECT_EQ(strutl_xlate_chars_to_strings(target, text, characters, strings), length);
  EXPECT_EQ(target.get()[length], '\0');
  return std::string(target, length);
}

constexpr const char *kEntities[] = {"&lt;", "&gt;", "", "[]"};

TEST(StrutlXlateCharsToStrings, ReplacesEachCharacterByItsString) {
  for (const char *locale : {"C", "C.UTF-8", "ja_JP.SJIS"}) {
    use_locale(locale);
    EXPECT_EQ(exchanged("a<b>c", "<>", kEntities, 11), "a&lt;b&gt;c");
    EXPECT_EQ(exchanged("<<", "<>", kEntities, 8), "&lt;&lt;");
    EXPECT_EQ(exchanged("x.y.", "<>.", kEntities, 2), "xy");
    EXPECT_EQ(exchanged("abc", "<>", kEntities, 3), "abc");
    EXPECT_EQ(exchanged("", "<>", kEntities, 0), "");
    EXPECT_EQ(exchanged("a<b", "", kEntities, 3), "a<b");
  }
}

TEST(StrutlXlateCharsToStrings, KeepsTheByteOffsetInTheSetAsTheIndex) {
  use_locale("C.UTF-8");
  // ä stands at bytes 0 and 1, so > has index 2 and . has index 3.
  EXPECT_EQ(exchanged("ä>.", "ä>.", kEntities, 6), "&lt;[]");
}

TEST(StrutlXlateCharsToStrings, AByteInsideACharacterIsNoHit) {
  use_locale("ja_JP.SJIS");
  EXPECT_EQ(exchanged("\x95\x5c\\", "\\", kEntities, 6), "\x95\x5c&lt;");
  EXPECT_EQ(exchanged("\x95\x5c\\", "\x95\x5c", kEntities, 5), "&lt;\\");
}

TEST(StrutlXlateCharsToStrings, InvalidSequencesStay) {
  use_locale("C.UTF-8");
  EXPECT_EQ(exchanged("\xc3<\xe2\x82", "<", kEntities, 7), "\xc3&lt;\xe2\x82");
}

}  // namespace

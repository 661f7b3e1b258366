#include <gtest/gtest.h>

#include <climits>
#include <cstring>
#include <cwctype>
#include <string>

#include "strutl.h"
#include "support/child.h"
#include "support/exact_text.h"
#include "support/faults.h"
#include "support/locale.h"
#include "text/characters.h"

using ks_test::ExactText;
using ks_test::in_child;
using ks_test::use_locale;

namespace {

std::string convert_char(const std::string &bytes, int to_upper) {
  const ExactText exact(bytes, bytes.size());
  char out[MB_LEN_MAX + 1] = "";
  const size_t size = strutl_cvt_case_char(exact, bytes.size(), to_upper, out);
  return std::string(out, size);
}
std::string upper(const std::string &bytes) { return convert_char(bytes, 1); }
std::string lower(const std::string &bytes) { return convert_char(bytes, 0); }

struct Converted {
  int fitted;
  std::string text;
  bool operator==(const Converted &) const = default;
};

void PrintTo(const Converted &converted, std::ostream *out) {
  *out << converted.fitted << ' ' << testing::PrintToString(converted.text);
}

Converted convert(const std::string &string, int to_upper, size_t size) {
  const ExactText text(string);
  const ExactText buffer("", size);
  const int fitted = strutl_cvt_case_string(text, to_upper, size, buffer);
  return {fitted, buffer.get()};
}
Converted upper(const std::string &string, size_t size) { return convert(string, 1, size); }
Converted lower(const std::string &string, size_t size) { return convert(string, 0, size); }

TEST(StrutlCvtCaseChar, OneByteGoesByTheTable) {
  for (const char *locale : ks_test::kLocales) {
    use_locale(locale);
    EXPECT_EQ(upper("a"), "A") << locale;
    EXPECT_EQ(lower("A"), "a") << locale;
    EXPECT_EQ(upper("1"), "1") << locale;
    EXPECT_EQ(upper("\xff"), "\xff") << locale;
  }
}

TEST(StrutlCvtCaseChar, NoBytesGiveNone) {
  char out = 'z';
  EXPECT_EQ(strutl_cvt_case_char("a", 0, 1, &out), 0u);
  EXPECT_EQ(out, 'z');
}

TEST(StrutlCvtCaseChar, ConvertsALongerCharacter) {
  use_locale("C.UTF-8");
  EXPECT_EQ(upper("ä"), "Ä");
  EXPECT_EQ(lower("Ä"), "ä");
  EXPECT_EQ(upper("€"), "€");
  use_locale("ja_JP.SJIS");
  // The full-width letters a and A.
  EXPECT_EQ(upper("\x82\x81"), "\x82\x60");
  EXPECT_EQ(lower("\x82\x60"), "\x82\x81");
}

TEST(StrutlCvtCaseChar, TheLengthMayChange) {
  use_locale("C.UTF-8");
  EXPECT_EQ(lower("\xc8\xba"), "\xe2\xb1\xa5");  // U+023A and U+2C65
  EXPECT_EQ(upper("\xe2\xb1\xa5"), "\xc8\xba");
  EXPECT_EQ(upper("\xc5\xbf"), "S");  // U+017F, the long s
}

TEST(StrutlCvtCaseChar, WhatIsNoCharacterIsCopied) {
  use_locale("C.UTF-8");
  EXPECT_EQ(upper("\xc3z"), "\xc3z");
  EXPECT_EQ(upper("\xe2\x82"), "\xe2\x82");
  EXPECT_EQ(upper("\xc3\xa4"), "\xc3\x84");
}

TEST(StrutlCvtCaseChar, MoreThanOneByteIsCopiedWhereCharactersHaveOne) {
  EXPECT_EQ(upper("ab"), "ab");
}

TEST(StrutlCvtCaseChar, OfSeveralCharactersTheFirstIsConverted) {
  use_locale("C.UTF-8");
  EXPECT_EQ(upper("ab"), "A");
}

TEST(StrutlCvtCaseChar, ConvertsInPlace) {
  use_locale("C.UTF-8");
  char text[] = "ä";
  EXPECT_EQ(strutl_cvt_case_char(text, 2, 1, text), 2u);
  EXPECT_STREQ(text, "Ä");
}

TEST(StrutlCvtCaseString, ConvertsAllThatFits) {
  for (const char *locale : ks_test::kLocales) {
    use_locale(locale);
    EXPECT_EQ(upper("Ab1-z", 6), (Converted{1, "AB1-Z"})) << locale;
    EXPECT_EQ(lower("Ab1-Z", 60), (Converted{1, "ab1-z"})) << locale;
  }
}

TEST(StrutlCvtCaseString, TheNulNeedsRoomToo) {
  for (const char *locale : ks_test::kLocales) {
    use_locale(locale);
    EXPECT_EQ(upper("abc", 3), (Converted{0, "AB"})) << locale;
    EXPECT_EQ(upper("abc", 1), (Converted{0, ""})) << locale;
  }
}

TEST(StrutlCvtCaseString, AnEmptyStringFits) {
  for (const char *locale : ks_test::kLocales) {
    use_locale(locale);
    EXPECT_EQ(upper("", 1), (Converted{1, ""})) << locale;
  }
}

TEST(StrutlCvtCaseString, SizeZeroWritesNothing) {
  char buffer[2] = "z";
  EXPECT_EQ(strutl_cvt_case_string("abc", 1, 0, buffer), 0);
  EXPECT_EQ(strutl_cvt_case_string("", 1, 0, buffer), 1);
  EXPECT_STREQ(buffer, "z");
}

TEST(StrutlCvtCaseString, CountsTheBytesThatComeOut) {
  use_locale("C.UTF-8");
  // U+023A has two bytes, its lower case U+2C65 three.
  EXPECT_EQ(lower("x\xc8\xba", 5), (Converted{1, "x\xe2\xb1\xa5"}));
  EXPECT_EQ(lower("x\xc8\xba", 4), (Converted{0, "x"}));
  EXPECT_EQ(upper("x\xe2\xb1\xa5", 4), (Converted{1, "X\xc8\xba"}));
  EXPECT_EQ(upper("x\xe2\xb1\xa5", 3), (Converted{0, "X"}));
}

TEST(StrutlCvtCaseString, NeverCutsACharacter) {
  use_locale("C.UTF-8");
  EXPECT_EQ(upper("aäb", 3), (Converted{0, "A"}));
  EXPECT_EQ(upper("aäb", 4), (Converted{0, "AÄ"}));
  EXPECT_EQ(upper("aäb", 5), (Converted{1, "AÄB"}));
  use_locale("ja_JP.SJIS");
  EXPECT_EQ(upper("\x82\x81z", 2), (Converted{0, ""}));
  EXPECT_EQ(upper("\x82\x81z", 4), (Converted{1, "\x82\x60Z"}));
}

TEST(StrutlCvtCaseString, AByteThatIsNoCharacterStaysAsItIs) {
  use_locale("C.UTF-8");
  EXPECT_EQ(upper("a\xff\xc3z\xe2\x82", 8), (Converted{1, "A\xff\xc3Z\xe2\x82"}));
  use_locale("ja_JP.SJIS");
  EXPECT_EQ(upper("a\x95", 8), (Converted{1, "A\x95"}));
}

TEST(StrutlCvtCaseString, ASecondByteThatLooksLikeALetterStaysAsItIs) {
  use_locale("ja_JP.SJIS");
  EXPECT_EQ(upper("\x95\x61z", 8), (Converted{1, "\x95\x61Z"}));
}

// Character by character, as the single calls do it.
std::string plain_upper(const std::string &text) {
  std::string result;
  size_t size;
  for (size_t at = 0; at < text.size(); at += size) {
    mbstate_t fresh = {};
    wchar_t wide;
    size = mbrtowc(&wide, text.c_str() + at, MB_CUR_MAX, &fresh);
    const bool valid = size < static_cast<size_t>(-2);
    if (!valid) size = 1;
    char out[MB_LEN_MAX];
    memcpy(out, text.c_str() + at, size);
    size_t length = size;
    if (valid && size == 1) out[0] = static_cast<char>(toupper(static_cast<unsigned char>(out[0])));
    if (size > 1) {
      fresh = {};
      length = wcrtomb(out, static_cast<wchar_t>(towupper(static_cast<wint_t>(wide))), &fresh);
    }
    result.append(out, length);
  }
  return result;
}

TEST(StrutlCvtCaseString, ConvertsHardTextsAsSingleCharacters) {
  std::mt19937 random(31002);
  for (const char *locale : ks_test::kLocales) {
    use_locale(locale);
    for (int round = 0; round < 3000; ++round) {
      const std::string text = ks_test::hard_text(random, 12);
      const std::string expected = plain_upper(text);
      ASSERT_EQ(upper(text, expected.size() + 1), (Converted{1, expected}))
          << locale << ": " << testing::PrintToString(text);
      if (expected.empty()) continue;
      const Converted cut = upper(text, expected.size());
      ASSERT_EQ(cut.fitted, 0);
      ASSERT_EQ(expected.substr(0, cut.text.size()), cut.text);
    }
  }
}

TEST(StrutlCvtCaseString, ConvertsEveryCharacterOfUtf8) {
  use_locale("C.UTF-8");
  for (wchar_t wide = 1; wide <= 0x10FFFF; ++wide) {
    if (wide >= 0xD800 && wide <= 0xDFFF) continue;
    char text[MB_LEN_MAX + 1] = "";
    char buffer[2 * MB_LEN_MAX];
    for (const int to_upper : {0, 1}) {
      const wint_t other =
          to_upper != 0 ? towupper(static_cast<wint_t>(wide)) : towlower(static_cast<wint_t>(wide));
      mbstate_t fresh = {};
      text[wcrtomb(text, wide, &fresh)] = '\0';
      char expected[MB_LEN_MAX + 1] = "";
      fresh = {};
      expected[wcrtomb(expected, static_cast<wchar_t>(other), &fresh)] = '\0';
      ASSERT_EQ(strutl_cvt_case_string(text, to_upper, sizeof buffer, buffer), 1);
      ASSERT_STREQ(buffer, expected) << "U+" << std::hex << static_cast<long>(wide);
    }
  }
}

TEST(StrutlStricoll, IgnoresCase) {
  for (const char *locale : ks_test::kLocales) {
    use_locale(locale);
    EXPECT_EQ(strutl_stricoll("TeXt", "tExT"), 0) << locale;
    EXPECT_LT(strutl_stricoll("ABC", "abd"), 0) << locale;
    EXPECT_GT(strutl_stricoll("abd", "ABC"), 0) << locale;
    EXPECT_GT(strutl_stricoll("abc", ""), 0) << locale;
    EXPECT_EQ(strutl_stricoll("", ""), 0) << locale;
  }
}

TEST(StrutlStricoll, ComparesInLowerCase) {
  // "_" stands behind "A" and before "a".
  EXPECT_LT(strutl_stricoll("_", "A"), 0);
}

TEST(StrutlStricoll, IgnoresTheCaseOfLongerCharacters) {
  EXPECT_NE(strutl_stricoll("Ä", "ä"), 0);
  use_locale("C.UTF-8");
  EXPECT_EQ(strutl_stricoll("ÄB", "äb"), 0);
  EXPECT_EQ(strutl_stricoll("\xc8\xba\xc8\xbaX", "\xe2\xb1\xa5\xe2\xb1\xa5x"), 0);
}

TEST(StrutlStricoll, WithoutStorageComparesAsGiven) {
  for (const int failing : {0, 1}) {
    const ks_test::Outcome outcome = in_child([&] {
      ks_test::fail_call("malloc", failing, ENOMEM);
      const int order = strutl_stricoll("a", "B");
      printf("%d", order > 0);
      fflush(stdout);
    });
    EXPECT_EQ(outcome.out, "1");
    EXPECT_EQ(outcome.err, "noname: Error: No more memory available.\n");
  }
}

}  // namespace

#include <gtest/gtest.h>

#include <cstring>
#include <string>
#include <vector>

#include "strutl.h"
#include "support/exact_text.h"
#include "support/locale.h"
#include "text/characters.h"

using ks_test::ExactText;
using ks_test::use_locale;

namespace {

using Tokens = std::vector<std::string>;

Tokens tokens(const std::string &string, const std::string &delimiters) {
  const ExactText text(string);
  const ExactText set(delimiters);
  Tokens found;
  for (char *token = strutl_tokenize(text, set); token != nullptr;
       token = strutl_tokenize(nullptr, set)) {
    found.push_back(token);
  }
  EXPECT_EQ(strutl_tokenize(nullptr, set), nullptr);
  return found;
}

TEST(StrutlTokenize, TakesATextApart) {
  for (const char *locale : ks_test::kLocales) {
    use_locale(locale);
    EXPECT_EQ(tokens("a,bc;d", ",;"), (Tokens{"a", "bc", "d"})) << locale;
    EXPECT_EQ(tokens(",,a,,b,", ","), (Tokens{"a", "b"})) << locale;
    EXPECT_EQ(tokens("abc", ","), (Tokens{"abc"})) << locale;
    EXPECT_EQ(tokens("abc", ""), (Tokens{"abc"})) << locale;
    EXPECT_EQ(tokens(",,,", ","), (Tokens{})) << locale;
    EXPECT_EQ(tokens("", ","), (Tokens{})) << locale;
  }
}

TEST(StrutlTokenize, ATokenMayBeLong) {
  for (const char *locale : ks_test::kLocales) {
    use_locale(locale);
    for (size_t length = 1; length < 40; ++length) {
      const std::string token(length, 'x');
      EXPECT_EQ(tokens(token + "," + token, ","), (Tokens{token, token})) << locale;
    }
  }
}

TEST(StrutlTokenize, WritesANulOverOneDelimiterOnly) {
  const ExactText text("ab,,c");
  EXPECT_EQ(strutl_tokenize(text, ","), text.get());
  EXPECT_EQ(text.bytes(), std::string("ab\0,c\0", 6));
  EXPECT_EQ(strutl_tokenize(nullptr, ","), text + 4);
  EXPECT_EQ(text.bytes(), std::string("ab\0,c\0", 6));
}

TEST(StrutlTokenize, TheDelimitersMayChange) {
  char text[] = "a,b;c";
  EXPECT_STREQ(strutl_tokenize(text, ","), "a");
  EXPECT_STREQ(strutl_tokenize(nullptr, ";"), "b");
  EXPECT_STREQ(strutl_tokenize(nullptr, ";"), "c");
  EXPECT_EQ(strutl_tokenize(nullptr, ";"), nullptr);
}

TEST(StrutlTokenize, WithoutATextThereIsNoToken) {
  EXPECT_EQ(strutl_tokenize(nullptr, ","), nullptr);
  char text[] = "a";
  EXPECT_STREQ(strutl_tokenize(text, ","), "a");
  EXPECT_EQ(strutl_tokenize(nullptr, ","), nullptr);
  text[0] = 'b';
  EXPECT_EQ(strutl_tokenize(nullptr, ","), nullptr);
}

TEST(StrutlTokenize, ANewTextTakesTheOldOnesPlace) {
  char first[] = "a,b";
  char second[] = "c,d";
  EXPECT_STREQ(strutl_tokenize(first, ","), "a");
  EXPECT_STREQ(strutl_tokenize(second, ","), "c");
  EXPECT_STREQ(strutl_tokenize(nullptr, ","), "d");
}

TEST(StrutlTokenize, AByteInsideACharacterDoesNotEndAToken) {
  use_locale("ja_JP.SJIS");
  EXPECT_EQ(tokens("\x95\x5c\\b\x83\x7c", "\\|"), (Tokens{"\x95\x5c", "b\x83\x7c"}));
  use_locale("C.UTF-8");
  EXPECT_EQ(tokens("xäy", "\xa4"), (Tokens{"xäy"}));
  EXPECT_EQ(tokens("xä\xa4y", "\xa4"), (Tokens{"xä", "y"}));
}

TEST(StrutlTokenize, TheFirstByteOfACharacterDoes) {
  use_locale("C.UTF-8");
  EXPECT_EQ(tokens("xäy", "ä"), (Tokens{"x", "y"}));
}

TEST(StrutlTokenize, KeepsSkippingByBytes) {
  use_locale("ja_JP.SJIS");
  // A character that begins with a delimiter byte loses it in front of a token.
  EXPECT_EQ(tokens("\x95\x5cz", "\x95"), (Tokens{"\x5cz"}));
}

TEST(StrutlTokenize, AnInvalidSequenceIsOneByteLong) {
  use_locale("C.UTF-8");
  EXPECT_EQ(tokens("a\xc3,b\xe2\x82,c", ","), (Tokens{"a\xc3", "b\xe2\x82", "c"}));
}

Tokens plain_tokens(const std::string &text, const std::string &delimiters) {
  const auto is_delimiter = [&](size_t at) {
    return delimiters.find(text[at]) != std::string::npos;
  };
  Tokens found;
  size_t at = 0;
  while (true) {
    while (at < text.size() && is_delimiter(at)) ++at;
    if (at == text.size()) return found;
    const size_t begin = at;
    while (at < text.size() && !is_delimiter(at)) at += ks_test::plain_step(text.c_str() + at);
    found.push_back(text.substr(begin, at - begin));
    if (at < text.size()) ++at;
  }
}

TEST(StrutlTokenize, TakesHardTextsApartCharacterByCharacter) {
  std::mt19937 random(31005);
  for (const char *locale : ks_test::kLocales) {
    use_locale(locale);
    for (int round = 0; round < 4000; ++round) {
      const std::string text = ks_test::hard_text(random, 12);
      const std::string delimiters = ks_test::hard_text(random, 3);
      ASSERT_EQ(tokens(text, delimiters), plain_tokens(text, delimiters))
          << locale << ": " << testing::PrintToString(text) << " by "
          << testing::PrintToString(delimiters);
    }
  }
}

}  // namespace

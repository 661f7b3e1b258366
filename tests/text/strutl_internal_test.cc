// The library's own decoding of UTF-8 against libc's, sequence by sequence.
#include "text/strutl_internal.h"

#include <gtest/gtest.h>

#include <string>
#include <vector>

#include "support/exact_text.h"
#include "support/locale.h"
#include "text/characters.h"

using ks::Encoding;
using ks_test::ExactText;
using ks_test::use_locale;

namespace {

// mbrtowc's answer from a fresh state, as utf8_size gives it: 0 for what is no character.
size_t libc_size(const char *text, size_t limit, wchar_t *wide) {
  mbstate_t fresh = {};
  const size_t size = mbrtowc(wide, text, limit, &fresh);
  return size >= static_cast<size_t>(-2) ? 0 : size;
}

// Whether both agree on the sequence, which ends with a NUL, and on its value.
bool agrees(const char *text, size_t limit) {
  wchar_t wide = 0;
  const size_t size = ks::utf8_size(text, limit);
  if (size != libc_size(text, limit, &wide)) return false;
  return size < 2 || ks::utf8_value(text, size) == static_cast<uint32_t>(wide);
}

std::string bytes_of(const char *text) {
  std::string dump;
  for (; *text != '\0'; ++text) {
    char hex[4];
    snprintf(hex, sizeof hex, "%02x ", static_cast<unsigned char>(*text));
    dump += hex;
  }
  return dump;
}

// Tries all sequences whose byte at each place is one of those given for it, within each limit.
void expect_agreement(const std::vector<std::string> &places) {
  std::vector<size_t> digits(places.size(), 0);
  std::string text(places.size(), ' ');
  for (size_t place = 0; place < places.size();) {
    for (size_t at = 0; at < places.size(); ++at) text[at] = places[at][digits[at]];
    for (size_t limit = places.size() > 3 ? 3 : 0; limit <= places.size() + 1; ++limit) {
      // libc reports a NUL as 0 bytes; no caller asks there.
      if (text[0] != '\0' && !agrees(text.c_str(), limit)) {
        FAIL() << bytes_of(text.c_str()) << "within " << limit;
      }
    }
    for (place = 0; place < places.size() && ++digits[place] == places[place].size(); ++place) {
      digits[place] = 0;
    }
  }
}

std::string range(int first, int last) {
  std::string bytes;
  for (int byte = first; byte <= last; ++byte) bytes += static_cast<char>(byte);
  return bytes;
}

const std::string kAll = range(0x00, 0xFF);
const std::string kEdges("\x00\x7f\x80\x83\x84\x87\x88\x8f\x90\x9f\xa0\xbf\xc0\xff", 14);
const std::string kFew("\x00\x7f\x80\xbf\xc0", 5);

TEST(Utf8Size, AgreesWithLibcOnAllSequencesOfUpToThreeBytes) {
  use_locale("C.UTF-8");
  expect_agreement({kAll});
  expect_agreement({kAll, kAll});
  expect_agreement({range(0xC0, 0xFF), kAll, kAll});
}

TEST(Utf8Size, AgreesWithLibcOnThreeBytesThatBeginWithNoFirstByte) {
  use_locale("C.UTF-8");
  expect_agreement({range(0x01, 0xBF), kAll, kEdges});
}

TEST(Utf8Size, AgreesWithLibcOnFourBytes) {
  use_locale("C.UTF-8");
  expect_agreement({range(0xE0, 0xFF), kAll, kEdges, kEdges});
}

TEST(Utf8Size, AgreesWithLibcOnFiveAndSixBytes) {
  use_locale("C.UTF-8");
  expect_agreement({range(0xE0, 0xFF), kEdges, kEdges, kFew, kFew});
  expect_agreement({range(0xF0, 0xFF), kEdges, kFew, kFew, kFew, kFew});
}

TEST(Utf8Size, KeepsTheOldFormsOfFiveAndSixBytes) {
  EXPECT_EQ(ks::utf8_size("\xf7\xbf\xbf\xbf"), 4u);
  EXPECT_EQ(ks::utf8_size("\xf8\x88\x80\x80\x80"), 5u);
  EXPECT_EQ(ks::utf8_size("\xfd\xbf\xbf\xbf\xbf\xbf"), 6u);
  EXPECT_EQ(ks::utf8_size("\xfe\xbf\xbf\xbf\xbf\xbf\xbf"), 0u);
}

TEST(Utf8Size, LooksAtNothingBeyondItsLimit) {
  const std::string whole = "\xfd\xbf\xbf\xbf\xbf\xbf";
  for (size_t limit = 1; limit < whole.size(); ++limit) {
    const ExactText cut(whole.substr(0, limit), limit);
    EXPECT_EQ(ks::utf8_size(cut, limit), 0u) << limit;
  }
}

TEST(Utf8Size, LooksAtNothingBehindANul) {
  const std::string whole = "\xfd\xbf\xbf\xbf\xbf\xbf";
  for (size_t length = 1; length < whole.size(); ++length) {
    const ExactText cut(whole.substr(0, length));
    EXPECT_EQ(ks::utf8_size(cut), 0u) << length;
  }
}

TEST(Utf8Put, WritesWhatLibcWrites) {
  use_locale("C.UTF-8");
  for (uint32_t value = 1; value <= 0x10FFFF; ++value) {
    if (value >= 0xD800 && value <= 0xDFFF) continue;
    char expected[MB_LEN_MAX];
    mbstate_t fresh = {};
    const size_t size = wcrtomb(expected, static_cast<wchar_t>(value), &fresh);
    char written[4] = "";
    ASSERT_EQ(ks::utf8_size_of(value), size) << value;
    ks::utf8_put(written, value, size);
    ASSERT_EQ(std::string(written, size), std::string(expected, size)) << value;
  }
}

TEST(ToWide, ACutSequenceDoesNotChangeTheNextAnswer) {
  use_locale("C.UTF-8");
  wchar_t wide;
  EXPECT_EQ(ks::to_wide(&wide, "\xe2\x82", 2), -1);
  EXPECT_EQ(ks::to_wide(&wide, "\xe2\x82\xac", 3), 3);
  EXPECT_EQ(wide, wchar_t{0x20AC});
  EXPECT_EQ(ks::to_wide(&wide, "", 0), 0);
  EXPECT_EQ(wide, L'\0');
}

TEST(EncodingOfTheLocale, IsAskedAgainEachTime) {
  EXPECT_TRUE(Encoding().is_single_byte());
  use_locale("C.UTF-8");
  EXPECT_TRUE(Encoding().is_utf8());
  use_locale("ja_JP.SJIS");
  EXPECT_FALSE(Encoding().is_utf8());
  EXPECT_FALSE(Encoding().is_single_byte());
  use_locale("C");
  EXPECT_TRUE(Encoding().is_single_byte());
}

TEST(EncodingOfTheLocale, StepsAsLibcDoes) {
  std::mt19937 random(20261);
  for (const char *locale : ks_test::kLocales) {
    use_locale(locale);
    const Encoding encoding;
    for (int round = 0; round < 2000; ++round) {
      const std::string text = ks_test::hard_text(random, 12);
      const ExactText exact(text);
      for (size_t at = 0; at < text.size(); ++at) {
        ASSERT_EQ(encoding.step(exact + at), ks_test::plain_step(exact + at))
            << locale << ": " << bytes_of(exact + at);
      }
    }
  }
}

// What the searches that do not step rest on.
TEST(EncodingOfTheLocale, KnowsWhichBytesStandAloneOrBeginACharacter) {
  std::mt19937 random(20262);
  for (const char *locale : ks_test::kLocales) {
    use_locale(locale);
    const Encoding encoding;
    for (int round = 0; round < 5000; ++round) {
      std::string text = ks_test::hard_text(random, 8);
      for (int noise = 0; noise < 3; ++noise) text += static_cast<char>(1 + random() % 255);
      const std::vector<size_t> walk = ks_test::plain_walk(text);
      for (size_t at = 0; at < text.size(); ++at) {
        const bool begins = std::find(walk.begin(), walk.end(), at) != walk.end();
        const bool alone = begins && ks_test::plain_step(text.c_str() + at) == 1;
        ASSERT_TRUE(begins || !encoding.begins_character(text[at])) << bytes_of(text.c_str());
        ASSERT_TRUE(alone || !encoding.stands_alone(text[at])) << bytes_of(text.c_str());
      }
    }
  }
}

TEST(EncodingOfTheLocale, OnlyUtf8AndSingleBytesAreSearchedWithoutSteps) {
  EXPECT_TRUE(Encoding().all_stand_alone("/\xff"));
  use_locale("C.UTF-8");
  EXPECT_TRUE(Encoding().all_stand_alone("/\\"));
  EXPECT_FALSE(Encoding().all_stand_alone("/\xc3"));
  EXPECT_TRUE(Encoding().all_begin_characters("/\xc3"));
  EXPECT_FALSE(Encoding().all_begin_characters("/\x80"));
  use_locale("ja_JP.SJIS");
  EXPECT_FALSE(Encoding().stands_alone('/'));
  EXPECT_FALSE(Encoding().begins_character('/'));
}

}  // namespace

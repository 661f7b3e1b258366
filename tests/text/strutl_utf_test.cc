#include <gtest/gtest.h>
#include <iconv.h>

#include <string>
#include <vector>

#include "strutl.h"
#include "support/exact_text.h"

using ks_test::ExactText;

namespace {

using Words = std::vector<uint32_t>;

struct Narrow {
  int status;
  std::string text;
  bool operator==(const Narrow &) const = default;
};

struct Wide {
  int status;
  Words words;
  size_t consumed;
  bool operator==(const Wide &) const = default;
};

void PrintTo(const Narrow &narrow, std::ostream *out) {
  *out << narrow.status << ' ' << testing::PrintToString(narrow.text);
}
void PrintTo(const Wide &wide, std::ostream *out) {
  *out << wide.status << ' ' << testing::PrintToString(wide.words) << ' ' << wide.consumed;
}

// The targets have room for what is asked and what ends it, and no more.
Narrow to_8(const Words &source, size_t size) {
  const ExactText target(std::string(size, 'z'));
  target.get()[size] = 'z';
  const int status = strutl_utf16to8(target, source.data(), source.size(), size);
  return {status, target.get()};
}

Wide to_16(const std::string &source, size_t length) {
  const ExactText exact(source, source.size());
  Words target(length + 1, 0xEEEEEEEE);
  target.shrink_to_fit();
  size_t consumed = 777;
  const int status = strutl_utf8to16(target.data(), exact, source.size(), length, &consumed);
  size_t used = 0;
  while (used <= length && target[used] != 0) ++used;
  EXPECT_LE(used, length) << "not terminated";
  target.resize(used);
  return {status, target, consumed};
}

struct EucCase {
  unsigned char first;
  unsigned char second;
  int euc;
};

TEST(StrutlCvtSjisToEuc, MapsByArithmetic) {
  const EucCase cases[] = {{0x95, 0x5C, 0xC9BD}, {0x83, 0x41, 0xA5A2}, {0x83, 0x7E, 0xA5DF},
                           {0x83, 0x80, 0xA5E0}, {0x82, 0x9E, 0xA3FE}, {0x82, 0x9F, 0xA4A1},
                           {0x82, 0xA0, 0xA4A2}, {0x9F, 0xFC, 0xDEFE}, {0xE0, 0x40, 0xDFA1}};
  for (const EucCase &row : cases) {
    unsigned char first = 0;
    unsigned char second = 0;
    EXPECT_EQ(strutl_cvt_sjis_to_euc(row.first, row.second, &first, &second), row.euc);
    EXPECT_EQ(first, row.euc >> 8);
    EXPECT_EQ(second, row.euc & 0xFF);
  }
}

TEST(StrutlCvtSjisToEuc, EachResultMayBeLeftOut) {
  unsigned char byte = 0;
  EXPECT_EQ(strutl_cvt_sjis_to_euc(0x95, 0x5C, nullptr, nullptr), 0xC9BD);
  strutl_cvt_sjis_to_euc(0x95, 0x5C, &byte, nullptr);
  EXPECT_EQ(byte, 0xC9);
  strutl_cvt_sjis_to_euc(0x95, 0x5C, nullptr, &byte);
  EXPECT_EQ(byte, 0xBD);
}

TEST(StrutlCvtSjisToEuc, AgreesWithTheSystemsTables) {
  const iconv_t converter = iconv_open("EUC-JP", "SHIFT_JIS");
  ASSERT_NE(converter, reinterpret_cast<iconv_t>(-1));
  int compared = 0;
  for (int first = 0x81; first <= 0xEF; ++first) {
    for (int second = 0x40; second <= 0xFC; ++second) {
      char sjis[2] = {static_cast<char>(first), static_cast<char>(second)};
      char euc[4] = "";
      char *in = sjis;
      char *out = euc;
      size_t in_left = sizeof sjis;
      size_t out_left = sizeof euc;
      iconv(converter, nullptr, nullptr, nullptr, nullptr);
      const bool is_character = first <= 0x9F || first >= 0xE0;
      if (!is_character || iconv(converter, &in, &in_left, &out, &out_left) != 0) continue;
      if (out_left != 2) continue;
      unsigned char high = 0;
      unsigned char low = 0;
      strutl_cvt_sjis_to_euc(static_cast<unsigned char>(first), static_cast<unsigned char>(second),
                             &high, &low);
      EXPECT_EQ(high, static_cast<unsigned char>(euc[0])) << first << ' ' << second;
      EXPECT_EQ(low, static_cast<unsigned char>(euc[1])) << first << ' ' << second;
      ++compared;
    }
  }
  iconv_close(converter);
  EXPECT_GE(compared, 6870);  // JIS X 0208 has 6879 characters
}

TEST(StrutlUtf16To8, ConvertsEachLength) {
  EXPECT_EQ(to_8({'A', 0xE4, 0x20AC, 0xD83D, 0xDE00}, 10), (Narrow{0, "Aä€\xf0\x9f\x98\x80"}));
  EXPECT_EQ(to_8({0x7F, 0x80, 0x7FF, 0x800, 0xFFFF}, 11),
            (Narrow{0, "\x7f\xc2\x80\xdf\xbf\xe0\xa0\x80\xef\xbf\xbf"}));
  EXPECT_EQ(to_8({0xD800, 0xDC00, 0xDBFF, 0xDFFF}, 8),
            (Narrow{0, "\xf0\x90\x80\x80\xf4\x8f\xbf\xbf"}));
}

TEST(StrutlUtf16To8, NoWordsGiveAnEmptyText) { EXPECT_EQ(to_8({}, 0), (Narrow{0, ""})); }

TEST(StrutlUtf16To8, AZeroWordIsAByteLikeOthers) {
  const uint32_t source[] = {'a', 0, 'b'};
  char target[4] = "zzz";
  EXPECT_EQ(strutl_utf16to8(target, source, 3, 3), STRUTL_UTF_DONE);
  EXPECT_EQ(std::string(target, 4), std::string("a\0b\0", 4));
}

TEST(StrutlUtf16To8, TheNulDoesNotCountInTheSize) {
  EXPECT_EQ(to_8({'A', 0x20AC}, 4), (Narrow{0, "A€"}));
}

TEST(StrutlUtf16To8, StopsBeforeACharacterThatDoesNotFit) {
  EXPECT_EQ(to_8({'A', 0x20AC}, 3), (Narrow{STRUTL_UTF_TARGET_FULL, "A"}));
  EXPECT_EQ(to_8({'A', 0xD83D, 0xDE00}, 4), (Narrow{3, "A"}));
  EXPECT_EQ(to_8({'A'}, 0), (Narrow{3, ""}));
}

TEST(StrutlUtf16To8, KeepsHalfAPairAsThreeBytes) {
  EXPECT_EQ(to_8({0xD83D, 'x'}, 4), (Narrow{0, "\xed\xa0\xbdx"}));
  EXPECT_EQ(to_8({0xD83D}, 3), (Narrow{0, "\xed\xa0\xbd"}));
  EXPECT_EQ(to_8({0xDE00, 'x'}, 4), (Narrow{0, "\xed\xb8\x80x"}));
  EXPECT_EQ(to_8({0xD83D, 0xD83D, 0xDE00}, 7), (Narrow{0, "\xed\xa0\xbd\xf0\x9f\x98\x80"}));
}

TEST(StrutlUtf16To8, AWordMayHoldMoreThan16Bits) {
  EXPECT_EQ(to_8({0x10000, 0x10FFFF, 0x110000, 0x1FFFFF}, 16),
            (Narrow{0, "\xf0\x90\x80\x80\xf4\x8f\xbf\xbf\xf4\x90\x80\x80\xf7\xbf\xbf\xbf"}));
}

TEST(StrutlUtf16To8, KeepsTwoBytesForWhatIsTooLarge) {
  // U+FFFD with its surplus bits running into the first byte.
  EXPECT_EQ(to_8({'a', 0x200000, 0xFFFFFFFF, 'b'}, 6), (Narrow{0,
                                                               "a\xff\xbd\xff\xbd"
                                                               "b"}));
}

TEST(StrutlUtf8To16, ConvertsEachLength) {
  EXPECT_EQ(to_16("Aä€\xf0\x9f\x98\x80", 5),
            (Wide{STRUTL_UTF_DONE, {'A', 0xE4, 0x20AC, 0xD83D, 0xDE00}, 10}));
  EXPECT_EQ(to_16("\xf0\x90\x80\x80\xf4\x8f\xbf\xbf", 4),
            (Wide{0, {0xD800, 0xDC00, 0xDBFF, 0xDFFF}, 8}));
  EXPECT_EQ(to_16("", 0), (Wide{0, {}, 0}));
}

TEST(StrutlUtf8To16, ConsumedMayBeLeftOut) {
  uint32_t target[2];
  EXPECT_EQ(strutl_utf8to16(target, "a", 1, 1, nullptr), STRUTL_UTF_DONE);
  EXPECT_EQ(target[0], 'a');
  EXPECT_EQ(target[1], 0u);
}

TEST(StrutlUtf8To16, StopsBeforeASequenceThatTheSourceCuts) {
  EXPECT_EQ(to_16("A\xe2\x82", 9), (Wide{STRUTL_UTF_SOURCE_ENDED, {'A'}, 1}));
  EXPECT_EQ(to_16("\xc3", 9), (Wide{1, {}, 0}));
  EXPECT_EQ(to_16("\xf0\x9f\x98", 9), (Wide{1, {}, 0}));
  EXPECT_EQ(to_16("\xf8\x88\x80\x80", 9), (Wide{1, {}, 0}));
  EXPECT_EQ(to_16("\xff\x80\x80\x80\x80", 9), (Wide{1, {}, 0}));
}

TEST(StrutlUtf8To16, StopsBeforeACharacterThatDoesNotFit) {
  EXPECT_EQ(to_16("AB", 1), (Wide{STRUTL_UTF_TARGET_FULL, {'A'}, 1}));
  EXPECT_EQ(to_16("A\xf0\x9f\x98\x80", 2), (Wide{3, {'A'}, 1}));
  EXPECT_EQ(to_16("A", 0), (Wide{3, {}, 0}));
}

TEST(StrutlUtf8To16, ACutSourceIsSeenBeforeAFullTarget) {
  EXPECT_EQ(to_16("\xc3", 0), (Wide{1, {}, 0}));
}

TEST(StrutlUtf8To16, KeepsDecodingWhatIsNotWellFormed) {
  EXPECT_EQ(to_16("\xc0\xaf", 9), (Wide{0, {0x2F}, 2}));
  EXPECT_EQ(to_16("\xe0\x80\xaf", 9), (Wide{0, {0x2F}, 3}));
  EXPECT_EQ(to_16("\x80\xbf", 9), (Wide{0, {0x80, 0xBF}, 2}));
  EXPECT_EQ(to_16("\xed\xa0\xbd", 9), (Wide{0, {0xD83D}, 3}));
  // C3 << 6, and 41, less 3080: the second byte is taken for what it is.
  EXPECT_EQ(to_16("\xc3\x41", 9), (Wide{0, {0x81}, 2}));
  EXPECT_EQ(to_16("\xe0\xff\xff", 9), (Wide{0, {0x203F}, 3}));
}

TEST(StrutlUtf8To16, WhatIsTooLargeIsReplaced) {
  EXPECT_EQ(to_16("\xf4\x90\x80\x80", 9), (Wide{0, {0xFFFD}, 4}));
  EXPECT_EQ(to_16("\xf7\xbf\xbf\xbf", 9), (Wide{0, {0xFFFD}, 4}));
  EXPECT_EQ(to_16("\xf7\xff\xff\xff", 9), (Wide{0, {0xFFFD}, 4}));
  // C0 << 6, less 3080, is below zero.
  EXPECT_EQ(to_16(std::string("\xc0\0", 2), 9), (Wide{0, {0xFFFD}, 2}));
}

TEST(StrutlUtf8To16, KeepsReplacingAFirstByteOfFiveOrSixUntilTheTargetIsFull) {
  EXPECT_EQ(to_16("\xf8\x88\x80\x80\x80", 3), (Wide{3, {0xFFFD, 0xFFFD, 0xFFFD}, 0}));
  EXPECT_EQ(to_16("A\xfc\x84\x80\x80\x80\x80z", 3), (Wide{3, {'A', 0xFFFD, 0xFFFD}, 1}));
  EXPECT_EQ(to_16("\xfe\x80\x80\x80\x80\x80", 2), (Wide{3, {0xFFFD, 0xFFFD}, 0}));
  EXPECT_EQ(to_16("\xff\x80\x80\x80\x80\x80", 0), (Wide{3, {}, 0}));
}

TEST(StrutlUtf, RoundTripsEveryValue) {
  for (uint32_t value = 1; value <= 0x10FFFF; ++value) {
    const uint32_t source[1] = {value};
    char text[5];
    ASSERT_EQ(strutl_utf16to8(text, source, 1, 4), 0);
    uint32_t words[3];
    size_t consumed;
    ASSERT_EQ(strutl_utf8to16(words, text, strlen(text), 2, &consumed), 0);
    ASSERT_EQ(consumed, strlen(text));
    if (value <= 0xFFFF) {
      ASSERT_EQ(words[0], value);
      continue;
    }
    ASSERT_EQ((words[0] - 0xD800) * 0x400 + (words[1] - 0xDC00) + 0x10000, value);
    ASSERT_EQ(words[0] & ~0x3FFu, 0xD800u);
    ASSERT_EQ(words[1] & ~0x3FFu, 0xDC00u);
  }
}

}  // namespace

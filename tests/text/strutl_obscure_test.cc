#include <gtest/gtest.h>

#include <climits>
#include <cstring>
#include <optional>
#include <random>
#include <string>
#include <vector>

#include "strutl.h"
#include "support/exact_text.h"
#include "support/faults.h"

using ks_test::ExactText;
using ks_test::set_clock;

namespace {

using namespace std::string_literals;

// The tables, once more: words that exist must stay readable.
constexpr unsigned kXor[64] = {22, 35, 44, 10, 43, 9,  0,  23, 20, 46, 44, 21, 21, 46, 50, 44,  //
                               44, 14, 31, 52, 9,  60, 10, 41, 19, 11, 29, 26, 47, 0,  44, 55,  //
                               3,  27, 25, 22, 16, 33, 47, 47, 49, 55, 58, 55, 33, 2,  28, 31,  //
                               59, 60, 50, 61, 59, 14, 63, 46, 9,  50, 15, 59, 43, 39, 12, 23};
const std::string kCharacters = "CvSc5TrBQnMk9lL8pdWOfD0Y-2Ps4hjyewgFoXGVH1J6_AiIR3butUZExzKaqm7N";

// A word from a stream of bits: those of the text, lowest first in each byte, and those of the
// time, lowest first, to fill up the last six.
std::string model(const std::string &text, unsigned seconds) {
  std::vector<bool> bits;
  for (const char byte : text) {
    for (int bit = 0; bit < 8; ++bit) bits.push_back(byte >> bit & 1);
  }
  for (unsigned bit = 0; bits.size() % 6 != 0; ++bit) bits.push_back(seconds >> bit & 1);
  const unsigned start = seconds % 64;
  unsigned check = start;
  std::string word;
  for (size_t i = 0; i < bits.size() / 6; ++i) {
    unsigned value = 0;
    for (size_t bit = 0; bit < 6; ++bit) value += unsigned{bits[6 * i + bit]} << bit;
    value ^= kXor[(start + i) % 64];
    check ^= value;
    word += kCharacters[value];
  }
  return word + kCharacters[check];
}

// What a word hides when there is room for `size` bytes; nothing for one that no text gives.
std::optional<std::string> model_tail(const std::string &word, size_t size) {
  if (word.empty() || word.find_first_not_of(kCharacters) != std::string::npos) return std::nullopt;
  unsigned start = 0;
  for (const char character : word) start ^= static_cast<unsigned>(kCharacters.find(character));
  std::vector<bool> bits;
  for (size_t i = 0; i + 1 < word.size(); ++i) {
    const unsigned value =
        static_cast<unsigned>(kCharacters.find(word[i])) ^ kXor[(start + i) % 64];
    for (int bit = 0; bit < 6; ++bit) bits.push_back(value >> bit & 1);
  }
  std::string text(bits.size() / 8, '\0');
  for (size_t i = 0; i < text.size() * 8; ++i) text[i / 8] |= static_cast<char>(bits[i] << i % 8);
  const bool has_nul = text.find('\0') != std::string::npos;
  // Six bits too many are a whole value too many.
  if (text.empty() || bits.size() % 8 == 6 || has_nul || text.size() >= size) return std::nullopt;
  return text;
}

std::string head(const std::string &text, long seconds) {
  set_clock(seconds, 999999);
  ExactText source(text);
  ExactText target("", (4 * text.size() + 2) / 3 + 2);
  EXPECT_EQ(strutl_extract_head(source, target, (4 * text.size() + 2) / 3 + 2), 0);
  return target.get();
}

// What a word hides; nothing if it is refused.
std::optional<std::string> tail(const std::string &word, size_t size) {
  ExactText source(word);
  ExactText target("", size);
  const int refused = strutl_extract_tail(source, target, size);
  if (refused && size > 0) {
    EXPECT_STREQ(target, "") << word;
  }
  return refused ? std::nullopt : std::optional(std::string(target));
}

std::string random_text(std::mt19937 &random, size_t length) {
  std::string text(length, ' ');
  for (char &byte : text) byte = static_cast<char>(1 + random() % 255);
  return text;
}

TEST(StrutlExtractHead, WordsWorkedOutByHand) {
  EXPECT_EQ(head("a", 0), "EgD");
  EXPECT_EQ(head("ab", 1), "SX4K");
  EXPECT_EQ(head("abc", 63), "ZyDtE");
  EXPECT_EQ(head("secret word", 1714957323), "GC-JjzQSfDkdsSml");
  EXPECT_EQ(head("\xff\x80\x01\x7f", 62), "ufLFOuf");
}

TEST(StrutlExtractTail, WordsWorkedOutByHand) {
  EXPECT_EQ(tail("EgD", 2), "a");
  EXPECT_EQ(tail("SX4K", 3), "ab");
  EXPECT_EQ(tail("ZyDtE", 4), "abc");
  EXPECT_EQ(tail("GC-JjzQSfDkdsSml", 12), "secret word");
  EXPECT_EQ(tail("ufLFOuf", 5), "\xff\x80\x01\x7f");
}

TEST(StrutlExtract, RoundTripOfAllLengthsUnderAllStartsFollowsTheModel) {
  constexpr unsigned kSeed = 3;
  SCOPED_TRACE(kSeed);
  std::mt19937 random(kSeed);
  for (size_t length = 1; length <= 200; ++length) {
    for (unsigned start = 0; start < 64; ++start) {
      const std::string text = random_text(random, length);
      const unsigned seconds = static_cast<unsigned>(random() % 30000000) * 64 + start;
      const std::string word = head(text, static_cast<long>(seconds));
      ASSERT_EQ(word, model(text, seconds)) << length << " bytes, start " << start;
      ASSERT_EQ(tail(word, length + 1), text) << length << " bytes, start " << start;
    }
  }
}

TEST(StrutlExtract, AnyClockWillDo) {
  for (long seconds : {0L, 1L, -1L, -64L, 2147483647L, LONG_MAX, LONG_MIN}) {
    EXPECT_EQ(tail(head("Any clock", seconds), 10), "Any clock") << seconds;
  }
}

TEST(StrutlExtract, RoundTripWithoutASetClock) {
  char word[16];
  char text[8];
  ASSERT_EQ(strutl_extract_head("today", word, sizeof word), 0);
  EXPECT_EQ(strlen(word), 8u);
  ASSERT_EQ(strutl_extract_tail(word, text, sizeof text), 0);
  EXPECT_STREQ(text, "today");
}

TEST(StrutlExtractHead, TheTimeChangesTheWord) {
  EXPECT_NE(head("secret", 1000), head("secret", 1001));
  EXPECT_EQ(head("secret", 1000), head("secret", 1064));
}

TEST(StrutlExtractHead, AnEmptyTextGivesAnEmptyResult) {
  ExactText target("");
  EXPECT_EQ(strutl_extract_head("", target, 1), 0);
  EXPECT_STREQ(target, "");
}

TEST(StrutlExtractHead, ATargetTooSmallBecomesEmpty) {
  // Words of 3, 4, 5, 7 and 8 characters.
  for (const char *text : {"a", "ab", "abc", "abcd", "abcde"}) {
    const size_t needed = model(text, 0).size() + 1;
    for (size_t size = 1; size < needed; ++size) {
      ExactText target("x", std::max(size, size_t{2}));
      EXPECT_EQ(strutl_extract_head(text, target, size), 1) << text << " in " << size;
      EXPECT_STREQ(target, "");
    }
    ExactText target("", needed);
    EXPECT_EQ(strutl_extract_head(text, target, needed), 0) << text;
  }
}

TEST(StrutlExtract, SizeZeroWritesNothing) {
  char target[] = "z";
  EXPECT_EQ(strutl_extract_head("abc", target, 0), 1);
  EXPECT_EQ(strutl_extract_head("", target, 0), 1);
  EXPECT_EQ(strutl_extract_tail("EgD", target, 0), 1);
  EXPECT_STREQ(target, "z");
}

TEST(StrutlExtractTail, ATargetTooSmallIsRefused) {
  for (size_t size = 0; size < 12; ++size) {
    EXPECT_EQ(tail("GC-JjzQSfDkdsSml", size), std::nullopt) << size;
  }
}

TEST(StrutlExtractTail, AnEmptyWordIsRefused) { EXPECT_EQ(tail("", 10), std::nullopt); }

TEST(StrutlExtractTail, EveryBadCharacterIsRefusedAtEveryPlace) {
  const std::string word = "GC-JjzQSfDkdsSml";
  for (size_t at = 0; at < word.size(); ++at) {
    for (int byte = 1; byte < 256; ++byte) {
      const char character = static_cast<char>(byte);
      if (kCharacters.find(character) != std::string::npos) continue;
      std::string damaged = word;
      damaged[at] = character;
      EXPECT_EQ(tail(damaged, 64), std::nullopt) << at << ": " << byte;
    }
  }
}

TEST(StrutlExtractTail, LengthsThatNoTextHasAreRefused) {
  for (size_t values : {1u, 2u, 6u, 10u, 14u}) {
    EXPECT_EQ(tail(std::string("EgDSX4KZyDtEGC").substr(0, values), 64), std::nullopt) << values;
  }
}

TEST(StrutlExtractTail, AWordThatHidesANulIsRefused) {
  for (const std::string &text : {"\0"s, "ab\0"s, "\0ab"s, "abcd\0ef"s}) {
    EXPECT_EQ(tail(model(text, 77), 64), std::nullopt);
  }
}

TEST(StrutlExtractTail, AnyDamageIsSafeAndFollowsTheModel) {
  constexpr unsigned kSeed = 64;
  SCOPED_TRACE(kSeed);
  std::mt19937 random(kSeed);
  int accepted = 0;
  for (int round = 0; round < 100000; ++round) {
    std::string word =
        model(random_text(random, 1 + random() % 12), static_cast<unsigned>(random()));
    for (size_t changes = random() % 3; changes > 0; --changes) {
      const size_t at = random() % word.size();
      word[at] = random() % 2 ? static_cast<char>(1 + random() % 255) : kCharacters[random() % 64];
    }
    if (random() % 4 == 0) word.resize(random() % word.size());
    const size_t size = random() % 16;
    const std::optional<std::string> expected = model_tail(word, size);
    accepted += expected.has_value();
    ASSERT_EQ(tail(word, size), expected) << word << " in " << size;
  }
  EXPECT_GT(accepted, 10000);
}

TEST(StrutlExtractTail, AnyBytesAreSafe) {
  constexpr unsigned kSeed = 65;
  SCOPED_TRACE(kSeed);
  std::mt19937 random(kSeed);
  for (int round = 0; round < 100000; ++round) {
    const std::string word = random_text(random, random() % 4);
    const size_t size = random() % 4;
    ASSERT_EQ(tail(word, size), model_tail(word, size)) << word;
  }
}

}  // namespace

// The plain way through a text, against which the library's is held, and texts that are hard to
// step through.
#pragma once

#include <cstdlib>
#include <cwchar>
#include <iterator>
#include <random>
#include <string>
#include <vector>

namespace ks_test {

// What libc says of the character at `at`, from a fresh state; 1 for a sequence that is none.
inline size_t plain_step(const char *at, size_t limit = MB_CUR_MAX) {
  mbstate_t fresh = {};
  const size_t size = mbrlen(at, limit, &fresh);
  return size < 2 || size >= static_cast<size_t>(-2) ? 1 : size;
}

// The offsets at which the characters of a text begin, from `start` on.
inline std::vector<size_t> plain_walk(const std::string &text, size_t start = 0) {
  std::vector<size_t> offsets;
  for (size_t at = start; at < text.size(); at += plain_step(text.c_str() + at)) {
    offsets.push_back(at);
  }
  return offsets;
}

// The locales in which everything is tried: one byte, UTF-8, and two bytes that look like others.
inline constexpr const char *kLocales[] = {"C", "C.UTF-8", "ja_JP.SJIS"};

// A text of up to `longest` pieces: ASCII, characters of UTF-8 and Shift-JIS, and sequences that are
// cut, too long, or none at all.
inline std::string hard_text(std::mt19937 &random, size_t longest) {
  static const std::string kPieces[] = {
      "a",
      "b",
      "/",
      "\\",
      "|",
      " ",
      ",",
      "(",
      ")",
      "\xc3\xa4",
      "\xc3\xb6",
      "\xe2\x82\xac",
      "\xf0\x9f\x98\x80",
      "\xf8\x88\x80\x80\x80",
      "\xfd\xbf\xbf\xbf\xbf\xbf",
      "\xed\xa0\x80",
      "\xe0\x80\x80",
      "\xc0\xaf",
      "\xc3",
      "\xe2\x82",
      "\x80",
      "\xa4",
      "\xff",
      "\x95\x5c",
      "\x83\x7c",
      "\xb1",
      "\x95",
      "\x81\x40",
      "plain text of some length, so that blocks are passed over"};
  std::string text;
  for (size_t count = random() % (longest + 1); count > 0; --count) {
    text += kPieces[random() % std::size(kPieces)];
  }
  return text;
}

}  // namespace ks_test

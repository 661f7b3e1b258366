// How text is stepped through: the one place that knows the locale's encoding.
//
// Wherever a library call steps from character to character it asks an Encoding, made anew in that
// call because setlocale may have been called since the last one. A step is what mblen says from a
// fresh state; UTF-8, by far the usual encoding, is decoded here instead, with the same answers, and
// a sequence that is no character is a step of one byte.
//
// libc loads the tables of an encoding at the first conversion, under a lock, so signals are held
// around its conversions.
#pragma once

#include <langinfo.h>

#include <algorithm>
#include <bit>
#include <cstddef>
#include <cstdint>
#include <cstdlib>
#include <cwchar>

#include "core/ks_frame.h"

namespace [[gnu::visibility("hidden")]] ks {

constexpr bool is_ascii(char byte) { return static_cast<unsigned char>(byte) < 0x80; }

// A byte that stands in UTF-8 only behind a character's first one.
constexpr bool is_utf8_trail(char byte) {
  return (static_cast<unsigned char>(byte) & 0xC0) == 0x80;
}

// libc goes on taking the old forms of five and six bytes, as far as 0x7FFFFFFF.
constexpr size_t kUtf8Longest = 6;

// Bytes of the UTF-8 character at `text`, not looking beyond `limit` bytes nor behind a NUL; 0 for a
// sequence that is no character: cut, longer than its value needs, or half of a surrogate pair.
inline size_t utf8_size(const char *text, size_t limit = kUtf8Longest) {
  if (is_ascii(text[0])) return limit > 0;
  const unsigned char first = static_cast<unsigned char>(text[0]);
  const size_t size = static_cast<size_t>(std::countl_one(first));
  if (first < 0xC2 || size > limit || size > kUtf8Longest) return 0;
  if (!is_utf8_trail(text[1])) return 0;
  if (size == 2) return size;
  const unsigned char second = static_cast<unsigned char>(text[1]);
  const bool leading_bits_are_zero = (first & (0x7F >> size)) == 0;
  if (leading_bits_are_zero && second < 0x80 + (0x100 >> size)) return 0;
  if (first == 0xED && second >= 0xA0) return 0;
  for (size_t at = 2; at < size; ++at) {
    if (!is_utf8_trail(text[at])) return 0;
  }
  return size;
}

// The value of the UTF-8 character of `size` bytes, at least 2, at `text`.
inline uint32_t utf8_value(const char *text, size_t size) {
  uint32_t value = static_cast<unsigned char>(text[0]) & (0x7Fu >> size);
  for (size_t at = 1; at < size; ++at) {
    value = value << 6 | (static_cast<unsigned char>(text[at]) & 0x3F);
  }
  return value;
}

// Bytes that a value of at most 0x1FFFFF takes in UTF-8.
constexpr size_t utf8_size_of(uint32_t value) {
  if (value < 0x80) return 1;
  if (value < 0x800) return 2;
  return value < 0x10000 ? 3 : 4;
}

// Writes `value` as `size` bytes of UTF-8; of a value that needs more than these the surplus bits
// run into the first byte's mark.
inline void utf8_put(char *out, uint32_t value, size_t size) {
  for (size_t at = size - 1; at > 0; --at) {
    out[at] = static_cast<char>(0x80 | (value & 0x3F));
    value >>= 6;
  }
  out[0] = static_cast<char>(size == 1 ? value : (0xFF00u >> size) | value);
}

// What mbrlen and mbrtowc say of no character: (size_t)-1 invalid, (size_t)-2 cut.
constexpr bool is_no_character(size_t size) { return size >= static_cast<size_t>(-2); }

// mbtowc from a fresh state: bytes of the character at `text`, 0 at a NUL, or -1.
inline int to_wide(wchar_t *wide, const char *text, size_t limit) {
  *wide = L'\0';
  if (*text == '\0') return 0;
  mbstate_t fresh = {};
  size_t size = 0;
  signals_held([&] { size = mbrtowc(wide, text, limit, &fresh); });
  return is_no_character(size) ? -1 : static_cast<int>(size);
}

class Encoding {
 public:
  Encoding() : kind_(kind_now()), longest_(kind_ == kUtf8 ? kUtf8Longest : MB_CUR_MAX) {}

  bool is_utf8() const { return kind_ == kUtf8; }
  bool is_single_byte() const { return kind_ == kSingleByte; }

  // Bytes of the character at `text`, which is not at its end, within `limit` bytes; 0 for a
  // sequence that is no character.
  size_t size(const char *text, size_t limit) const {
    if (kind_ == kUtf8) return utf8_size(text, limit);
    mbstate_t fresh = {};
    size_t size = 0;
    signals_held([&] { size = mbrtowc(nullptr, text, limit, &fresh); });
    return is_no_character(size) ? 0 : size;
  }

  // The same of a whole text, where the NUL is limit enough.
  size_t size(const char *text) const { return size(text, longest_); }

  // From the character at `text`, which is not at its end, to the next one.
  size_t step(const char *text) const {
    if (kind_ == kSingleByte) return 1;
    return std::max<size_t>(size(text), 1);
  }

  // Whether `byte` is a character of its own wherever it occurs in a text, so that a search for it
  // need not step. Of encodings other than UTF-8 that is not known for any byte.
  bool stands_alone(char byte) const {
    return kind_ == kSingleByte || (kind_ == kUtf8 && is_ascii(byte));
  }

  // Whether a character begins wherever `byte` occurs.
  bool begins_character(char byte) const {
    return kind_ == kSingleByte || (kind_ == kUtf8 && !is_utf8_trail(byte));
  }

  // The same of each byte of a set.
  bool all_stand_alone(const char *set) const {
    while (*set != '\0' && stands_alone(*set)) ++set;
    return *set == '\0';
  }
  bool all_begin_characters(const char *set) const {
    while (*set != '\0' && begins_character(*set)) ++set;
    return *set == '\0';
  }

 private:
  enum Kind { kSingleByte, kUtf8, kOtherMultibyte };

  static Kind kind_now() {
    // Compared in place: short texts are stepped through in the time of a call.
    const char *name = nl_langinfo(CODESET);
    if (name[0] == 'U' && name[1] == 'T' && name[2] == 'F' && name[3] == '-' && name[4] == '8' &&
        name[5] == '\0') {
      return kUtf8;
    }
    return MB_CUR_MAX == 1 ? kSingleByte : kOtherMultibyte;
  }

  Kind kind_;
  size_t longest_;  // bytes of the longest character
};

}  // namespace ks

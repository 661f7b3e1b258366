// Conversions between given encodings, whatever the locale's is.
//
// A UTF-16 value stands in a word of 32 bits. The decoder does not look whether a sequence is well
// formed, and what it makes of one that is not, is relied upon.
#include "strutl.h"
#include "text/strutl_internal.h"

namespace {

constexpr uint32_t kReplacement = 0xFFFD;
constexpr uint32_t kLargestBmp = 0xFFFF;
constexpr uint32_t kLargest = 0x10FFFF;
constexpr uint32_t kLargestOf4Bytes = 0x1FFFFF;
constexpr uint32_t kHighSurrogate = 0xD800;
constexpr uint32_t kLowSurrogate = 0xDC00;

constexpr bool is_high_surrogate(uint32_t word) { return (word & ~0x3FFu) == kHighSurrogate; }
constexpr bool is_low_surrogate(uint32_t word) { return (word & ~0x3FFu) == kLowSurrogate; }

constexpr uint32_t value_of_pair(uint32_t high, uint32_t low) {
  return kLargestBmp + 1 + ((high - kHighSurrogate) << 10) + (low - kLowSurrogate);
}

// Trailing bytes that a first byte announces, by its bits alone: 0 to 5.
constexpr size_t announced(unsigned char first) {
  if (first < 0xC0) return 0;
  return first < 0xFC ? static_cast<size_t>(std::countl_one(first)) - 1 : 5;
}

// A sequence's bytes are added up with a shift of six bits between them, their marks included. This
// is what the marks come to with so many trailing bytes, to be taken off again.
constexpr uint32_t marks(size_t trailing) {
  if (trailing == 0) return 0;
  uint32_t sum = (0xFF00u >> (trailing + 1)) & 0xFF;
  for (size_t i = 0; i < trailing; ++i) sum = (sum << 6) + 0x80;
  return sum;
}
static_assert(marks(1) == 0x3080 && marks(2) == 0xE2080 && marks(3) == 0x3C82080);

uint32_t add_up(const char *source, size_t trailing) {
  uint32_t sum = 0;
  for (size_t at = 0; at <= trailing; ++at) {
    sum = (sum << 6) + static_cast<unsigned char>(source[at]);
  }
  return sum - marks(trailing);
}

}  // namespace

int strutl_cvt_sjis_to_euc(unsigned char first, unsigned char second, unsigned char *euc_first,
                           unsigned char *euc_second) {
  int low = second - 31;
  if (second > 158) {
    low = second - 126;
  } else if (second > 126) {
    low = second - 32;
  }
  const int high = 2 * first - (first > 159 ? 353 : 225) + (second >= 159);
  const int euc = (high * 256 + low) | 0x8080;
  if (euc_first != nullptr) *euc_first = static_cast<unsigned char>(euc >> 8);
  if (euc_second != nullptr) *euc_second = static_cast<unsigned char>(euc);
  return euc;
}

int strutl_utf16to8(char *target, const uint32_t *source, size_t source_length,
                    size_t target_size) {
  const uint32_t *const source_end = source + source_length;
  const char *const target_end = target + target_size;
  int status = STRUTL_UTF_DONE;
  while (source != source_end) {
    uint32_t value = source[0];
    const bool pair =
        is_high_surrogate(value) && source + 1 != source_end && is_low_surrogate(source[1]);
    if (pair) value = value_of_pair(value, source[1]);
    const bool too_large = value > kLargestOf4Bytes;
    if (too_large) value = kReplacement;
    // The replacement character would need three bytes; it has always gone out in two.
    const size_t size = too_large ? 2 : ks::utf8_size_of(value);
    if (size > static_cast<size_t>(target_end - target)) {
      status = STRUTL_UTF_TARGET_FULL;
      break;
    }
    ks::utf8_put(target, value, size);
    target += size;
    source += pair ? 2 : 1;
  }
  *target = '\0';
  return status;
}

int strutl_utf8to16(uint32_t *target, const char *source, size_t source_length,
                    size_t target_length, size_t *consumed) {
  const char *const source_end = source + source_length;
  const uint32_t *const target_end = target + target_length;
  const char *at = source;
  int status = STRUTL_UTF_DONE;
  while (at != source_end) {
    const size_t trailing = announced(static_cast<unsigned char>(*at));
    if (trailing >= static_cast<size_t>(source_end - at)) {
      status = STRUTL_UTF_SOURCE_ENDED;
      break;
    }
    // A longer sequence stays where it is: replacements come out until the target is full.
    const bool decoded = trailing <= 3;
    uint32_t value = decoded ? add_up(at, trailing) : kReplacement;
    if (value > kLargest) value = kReplacement;
    const size_t words = value > kLargestBmp ? 2 : 1;
    if (words > static_cast<size_t>(target_end - target)) {
      status = STRUTL_UTF_TARGET_FULL;
      break;
    }
    if (words == 2) {
      *target++ = kHighSurrogate + ((value - kLargestBmp - 1) >> 10);
      *target++ = kLowSurrogate + (value & 0x3FF);
    } else {
      *target++ = value;
    }
    if (decoded) at += trailing + 1;
  }
  *target = 0;
  if (consumed != nullptr) *consumed = static_cast<size_t>(at - source);
  return status;
}

// Texts obscured as printable words, and back.
//
// A word is a row of six-bit values, each written as one character: the text's bytes, lowest bits
// first, each value under a key of a table, beginning with the key number that the seconds of the
// clock give. The last value makes all of them XOR to that number.
#include <algorithm>
#include <array>
#include <cstring>

#include "date.h"
#include "strutl.h"

namespace {

// Words may outlive the program that made them: a changed table can no longer read them.
constexpr unsigned kKeys = 64;
constexpr std::array<unsigned char, kKeys> kXorKeys = {
    22, 35, 44, 10, 43, 9,  0,  23, 20, 46, 44, 21, 21, 46, 50, 44, 44, 14, 31, 52, 9,  60,
    10, 41, 19, 11, 29, 26, 47, 0,  44, 55, 3,  27, 25, 22, 16, 33, 47, 47, 49, 55, 58, 55,
    33, 2,  28, 31, 59, 60, 50, 61, 59, 14, 63, 46, 9,  50, 15, 59, 43, 39, 12, 23,
};
constexpr char kEncodeKeys[] =
    "CvSc5TrBQnMk9lL8pdWOfD0Y-2Ps4hjy"
    "ewgFoXGVH1J6_AiIR3butUZExzKaqm7N";
static_assert(std::ranges::all_of(kXorKeys, [](unsigned key) { return key < kKeys; }));
static_assert(sizeof kEncodeKeys == kKeys + 1);

// The inverse of kEncodeKeys.
constexpr unsigned char kBad = 0xFF;
constexpr std::array<unsigned char, 128> kDecodeKeys = [] {
  std::array<unsigned char, 128> keys;
  keys.fill(kBad);
  for (unsigned value = 0; value < kKeys; ++value) {
    keys[static_cast<unsigned char>(kEncodeKeys[value])] = static_cast<unsigned char>(value);
  }
  return keys;
}();
static_assert(std::ranges::count(kDecodeKeys, kBad) == kDecodeKeys.size() - kKeys, "all distinct");

// How a byte is stored, by its place in a group of three: its bits in `store`, moved up, complete
// the value that the byte before it began; its bits in `carry`, moved down, begin the next value.
struct Place {
  unsigned store, up;
  unsigned carry, down;
};
constexpr Place kPlaces[] = {{0x3F, 0, 0xC0, 6}, {0x0F, 2, 0xF0, 4}, {0x03, 4, 0xFC, 2}};

struct Encoder {
  char *out;       // written next
  unsigned key;    // used next
  unsigned check;  // all values so far, XORed

  void put(unsigned value) {
    const unsigned hidden = value ^ kXorKeys[key];
    key = (key + 1) % kKeys;
    check ^= hidden;
    *out++ = kEncodeKeys[hidden];
  }
};

void encode(const char *text, size_t length, unsigned seconds, char *target) {
  const unsigned start = seconds % kKeys;
  Encoder encoder = {target, start, 0};
  unsigned carried = 0;
  for (size_t i = 0; i < length; ++i) {
    const unsigned byte = static_cast<unsigned char>(text[i]);
    const Place &place = kPlaces[i % 3];
    encoder.put((byte & place.store) << place.up | carried);
    carried = (byte & place.carry) >> place.down;
    if (i % 3 == 2) {
      encoder.put(carried);
      carried = 0;
    }
  }
  if (length % 3 != 0) {
    const Place &place = kPlaces[length % 3];
    encoder.put((seconds & place.store) << place.up | carried);
  }
  encoder.out[0] = kEncodeKeys[encoder.check ^ start];
  encoder.out[1] = '\0';
}

unsigned decode_key(char character) {
  const unsigned char byte = static_cast<unsigned char>(character);
  return byte < kDecodeKeys.size() ? kDecodeKeys[byte] : kBad;
}

// The start index of a word's keys; kKeys or more for a word with a character that is none of ours.
unsigned start_index(const char *word) {
  unsigned start = 0;
  for (; *word != '\0'; ++word) {
    const unsigned value = decode_key(*word);
    if (value >= kKeys) return value;
    start ^= value;
  }
  return start;
}

// Gives `length` bytes of the text that begins with key number `start`. False when one of them is a
// NUL, which no text has inside.
bool decode(const char *word, unsigned start, char *target, size_t length) {
  const auto value = [&](size_t at) {
    return decode_key(word[at]) ^ kXorKeys[(start + at) % kKeys];
  };
  for (size_t i = 0; i < length; ++i) {
    const Place &place = kPlaces[i % 3];
    const size_t at = i / 3 * 4 + i % 3;
    const unsigned stored = value(at) >> place.up & place.store;
    const unsigned carried = value(at + 1) << place.down & place.carry;
    target[i] = static_cast<char>(stored | carried);
    if (target[i] == '\0') return false;
  }
  target[length] = '\0';
  return true;
}

}  // namespace

int strutl_extract_head(const char *text, char *target, size_t size) {
  if (size == 0) return 1;
  target[0] = '\0';
  const size_t length = strlen(text);
  if (length == 0) return 0;
  const uint64_t needed = uint64_t{length} + (length + 2) / 3 + sizeof "=";
  if (needed > size) return 1;
  timeval now;
  date_get_timeval(&now);
  encode(text, length, static_cast<unsigned>(now.tv_sec), target);
  return 0;
}

int strutl_extract_tail(const char *text, char *target, size_t size) {
  if (size == 0) return 1;
  target[0] = '\0';
  const size_t values = strlen(text);
  // The check value is no data, and one value alone holds no byte.
  if (values < 3 || (values - 1) % 4 == 1) return 1;
  const size_t length = (values - 1) - (values + 2) / 4;
  const unsigned start = start_index(text);
  if (start >= kKeys || length >= size) return 1;
  if (decode(text, start, target, length)) return 0;
  target[0] = '\0';
  return 1;
}

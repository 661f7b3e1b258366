// Upper and lower case, and comparing without it.
#include <algorithm>
#include <cctype>
#include <climits>
#include <cstring>
#include <cwctype>

#include "core/ks_frame.h"
#include "stg.h"
#include "strutl.h"
#include "text/strutl_internal.h"

using ks::Encoding;

namespace {

enum class Case { kLower, kUpper };

template <Case kCase>
char convert_byte(char byte) {
  const int value = static_cast<unsigned char>(byte);
  return static_cast<char>(kCase == Case::kUpper ? toupper(value) : tolower(value));
}

template <Case kCase>
wchar_t convert_wide(wchar_t wide) {
  const wint_t value = static_cast<wint_t>(wide);
  return static_cast<wchar_t>(kCase == Case::kUpper ? towupper(value) : towlower(value));
}

// What a conversion to the other case puts to its `out`, which has room for MB_LEN_MAX bytes, is its
// result: the number of bytes.
template <Case kCase>
size_t convert_multibyte(const char *bytes, size_t length, char *out) {
  wchar_t wide;
  char converted[MB_LEN_MAX];
  if (ks::to_wide(&wide, bytes, length) >= 0) {
    mbstate_t fresh = {};
    size_t size = 0;
    ks::signals_held([&] { size = wcrtomb(converted, convert_wide<kCase>(wide), &fresh); });
    if (!ks::is_no_character(size)) {
      memcpy(out, converted, size);
      return size;
    }
  }
  memmove(out, bytes, length);
  return length;
}

// The same for a UTF-8 character of at least two bytes. Most have no other case.
template <Case kCase>
size_t convert_utf8(const char *bytes, size_t length, char *out) {
  const uint32_t value = ks::utf8_value(bytes, length);
  const uint32_t other = static_cast<uint32_t>(convert_wide<kCase>(static_cast<wchar_t>(value)));
  if (other == value) {
    memcpy(out, bytes, length);
    return length;
  }
  const size_t size = ks::utf8_size_of(other);
  ks::utf8_put(out, other, size);
  return size;
}

template <Case kCase>
size_t convert_char(const char *bytes, size_t length, char *out) {
  if (length == 1) {
    *out = convert_byte<kCase>(*bytes);
    return 1;
  }
  if (MB_CUR_MAX > 1) return convert_multibyte<kCase>(bytes, length, out);
  memmove(out, bytes, length);
  return length;
}

// `size` is at least 1.
template <Case kCase>
bool convert_bytes(const char *string, size_t size, char *buffer) {
  const size_t length = strnlen(string, size);
  const bool cut = length == size;
  const size_t kept = cut ? size - 1 : length;
  for (size_t at = 0; at < kept; ++at) buffer[at] = convert_byte<kCase>(string[at]);
  buffer[kept] = '\0';
  return !cut;
}

// Converts the character of `size` bytes at `at`; with size 0 it is a byte that belongs to none and
// stays as it is.
template <Case kCase>
size_t convert_next(const Encoding &encoding, const char *at, size_t size, char *out) {
  if (size == 0) {
    *out = *at;
    return 1;
  }
  if (size > 1 && encoding.is_utf8()) return convert_utf8<kCase>(at, size, out);
  return convert_char<kCase>(at, size, out);
}

// `size` is at least 1.
template <Case kCase>
bool convert_string(const char *string, size_t size, char *buffer) {
  const Encoding encoding;
  if (encoding.is_single_byte()) return convert_bytes<kCase>(string, size, buffer);
  char *out = buffer;
  char *const last = buffer + size - 1;  // where the NUL may stand at the latest
  const char *at = string;
  while (*at != '\0') {
    if (encoding.stands_alone(*at)) {
      if (out == last) break;
      *out++ = convert_byte<kCase>(*at++);
      continue;
    }
    char converted[MB_LEN_MAX];
    const size_t bytes = encoding.size(at);
    const size_t length = convert_next<kCase>(encoding, at, bytes, converted);
    if (length > static_cast<size_t>(last - out)) break;
    memcpy(out, converted, length);
    out += length;
    at += std::max<size_t>(bytes, 1);
  }
  *out = '\0';
  return *at == '\0';
}

// A copy on the heap, or NULL.
char *lower_copy(const char *string) {
  // No character becomes longer than the encoding's longest.
  const size_t growth = MB_CUR_MAX;
  const size_t length = strlen(string);
  if (length >= SIZE_MAX / growth) return nullptr;
  const size_t size = length * growth + 1;
  char *copy = static_cast<char *>(stg_malloc(size));
  if (copy != nullptr) strutl_cvt_case_string(string, 0, size, copy);
  return copy;
}

}  // namespace

size_t strutl_cvt_case_char(const char *bytes, size_t length, int to_upper, char *out) {
  if (length == 0) return 0;
  return to_upper != 0 ? convert_char<Case::kUpper>(bytes, length, out)
                       : convert_char<Case::kLower>(bytes, length, out);
}

int strutl_cvt_case_string(const char *string, int to_upper, size_t size, char *buffer) {
  if (size == 0) return *string == '\0';
  return to_upper != 0 ? convert_string<Case::kUpper>(string, size, buffer)
                       : convert_string<Case::kLower>(string, size, buffer);
}

int strutl_stricoll(const char *first, const char *second) {
  int order = 0;
  ks::signals_held([&] {
    char *first_copy = lower_copy(first);
    char *second_copy = first_copy != nullptr ? lower_copy(second) : nullptr;
    const bool have_copies = second_copy != nullptr;
    order = have_copies ? strcoll(first_copy, second_copy) : strcoll(first, second);
    stg_free(first_copy);
    stg_free(second_copy);
  });
  return order;
}

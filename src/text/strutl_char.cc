// Single characters: their length, their classes, where one stands and how many there are.
#include <algorithm>
#include <array>
#include <cctype>
#include <climits>
#include <cstring>
#include <cwctype>

#include "core/ks_assert.h"
#include "strutl.h"
#include "text/strutl_internal.h"

using ks::Encoding;

namespace {

// The text that strutl_mb_char_from_str returns: one character of any encoding.
char first_character[MB_LEN_MAX + 1];

// Whether the `kBytes` bytes, a multiple of 16, are all ASCII.
template <size_t kBytes>
bool is_ascii_block(const char *at) {
  using Vector [[gnu::vector_size(16)]] = uint64_t;
  Vector any = {};
  for (size_t offset = 0; offset < kBytes; offset += sizeof any) {
    Vector bytes;
    memcpy(&bytes, at + offset, sizeof bytes);
    any |= bytes;
  }
  return ((any[0] | any[1]) & 0x8080808080808080) == 0;
}

// Bytes of ASCII from `text` on, up to `end`; by blocks, since that is what most text is.
size_t ascii_run(const char *text, const char *end) {
  const char *at = text;
  while (end - at >= 64 && is_ascii_block<64>(at)) at += 64;
  while (end - at >= 16 && is_ascii_block<16>(at)) at += 16;
  // What is left at the end, together with some that was looked at already.
  if (end - at < 16 && end - text >= 16 && is_ascii_block<16>(end - 16)) at = end;
  while (at != end && ks::is_ascii(*at)) ++at;
  return static_cast<size_t>(at - text);
}

size_t utf8_strlen(const char *text) {
  const char *const end = text + strlen(text);
  size_t count = 0;
  for (const char *at = text; at != end;) {
    const size_t run = ascii_run(at, end);
    count += run;
    for (at += run; at != end && !ks::is_ascii(*at); ++count) {
      at += std::max<size_t>(ks::utf8_size(at), 1);
    }
  }
  return count;
}

// The classes in the order of their bits, from 1 on.
struct ClassTest {
  int (*wide)(wint_t);
  int (*byte)(int);
};
constexpr std::array<ClassTest, 10> kClassTests = {{{iswalpha, isalpha},
                                                    {iswupper, isupper},
                                                    {iswlower, islower},
                                                    {iswdigit, isdigit},
                                                    {iswxdigit, isxdigit},
                                                    {iswalnum, isalnum},
                                                    {iswspace, isspace},
                                                    {iswpunct, ispunct},
                                                    {iswprint, isprint},
                                                    {iswgraph, isgraph}}};

template <class Test>
bool all_classes(uint32_t classes, Test &&test) {
  for (size_t bit = 0; bit < kClassTests.size(); ++bit) {
    if ((classes >> bit & 1) != 0 && !test(kClassTests[bit])) return false;
  }
  return true;
}

}  // namespace

int strutl_mblen(const char *bytes, size_t limit) {
  if (*bytes == '\0') return 0;
  return static_cast<int>(std::max<size_t>(Encoding().size(bytes, limit), 1));
}

const char *strutl_mb_char_from_str(const char *string, const char **s_tail) {
  KS_ASSERT(s_tail != NULL);
  if (string == nullptr || *string == '\0') {
    first_character[0] = '\0';
    return first_character;
  }
  const size_t size = Encoding().step(string);
  memmove(first_character, string, size);
  first_character[size] = '\0';
  *s_tail = string + size;
  return first_character;
}

size_t strutl_mb_strlen(const char *s) {
  KS_ASSERT(s != NULL);
  const Encoding encoding;
  if (encoding.is_utf8()) return utf8_strlen(s);
  if (encoding.is_single_byte()) return strlen(s);
  size_t count = 0;
  for (const char *at = s; *at != '\0'; at += encoding.step(at)) ++count;
  return count;
}

int strutl_test_char(const char *bytes, size_t limit, uint32_t classes, size_t *length) {
  wchar_t wide;
  const int size = ks::to_wide(&wide, bytes, limit);
  if (length != nullptr) *length = size < 0 ? 1 : static_cast<size_t>(size);
  if (size < 0) {
    const unsigned char byte = static_cast<unsigned char>(*bytes);
    return all_classes(classes, [&](const ClassTest &test) { return test.byte(byte) != 0; });
  }
  const wint_t character = static_cast<wint_t>(wide);
  return all_classes(classes, [&](const ClassTest &test) { return test.wide(character) != 0; });
}

char *strutl_mb_strchr(const char *string, const char *character, size_t length) {
  if (length == 0) return nullptr;
  const Encoding encoding;
  for (const char *at = string; *at != '\0'; at += encoding.step(at)) {
    if (*at != *character) continue;
    // One byte is compared with the first byte of a character of any length.
    if (length == 1 || strncmp(at, character, length) == 0) return const_cast<char *>(at);
  }
  return nullptr;
}

int strutl_get_sys_char_type() { return MB_CUR_MAX >= 2 ? 2 : 1; }

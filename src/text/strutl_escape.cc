// Backslash escapes.
#include <algorithm>
#include <charconv>
#include <cstdlib>
#include <cstring>

#include "strutl.h"

namespace {

constexpr char kDigits[] = "0123456789";
constexpr char kHexDigits[] = "0123456789abcdefABCDEF";

// Letters behind a backslash, and what they stand for, in the same order.
constexpr char kLetters[] = "\"'?\\abfnrtv";
constexpr char kMeanings[] = "\"'?\\\a\b\f\n\r\t\v";
static_assert(sizeof kLetters == sizeof kMeanings);

struct Scan {
  const char *at;   // read next
  const char *end;  // of what is to be read; behind it a NUL or the closing quote
  char *out;        // written next

  bool put(char byte) {
    *out++ = byte;
    return true;
  }
};

// The bytes at hand that are in `digits`, at most `most`, are all read as one byte in `base`.
bool number(Scan &scan, const char *digits, size_t most, int base) {
  const char *last = scan.at + std::min(strspn(scan.at, digits), most);
  unsigned char byte;
  const auto [stop, error] = std::from_chars(scan.at, last, byte, base);
  if (error != std::errc() || stop != last) return false;
  scan.at = last;
  return scan.put(static_cast<char>(byte));
}

// What stands behind a backslash.
bool escape(Scan &scan) {
  if (scan.at == scan.end) return false;
  const char letter = *scan.at;
  if (letter >= '1' && letter <= '9') return number(scan, kDigits, 3, 8);
  ++scan.at;
  if (letter == '0') return scan.put('\0');
  if (letter == 'x') return number(scan, kHexDigits, 2, 16);
  const char *known = strchr(kLetters, letter);
  return known != nullptr && scan.put(kMeanings[known - kLetters]);
}

// Behind a double quote: another one, where two literals meet.
bool joint(Scan &scan) { return scan.at != scan.end && *scan.at++ == '"'; }

bool character(Scan &scan) {
  const size_t size = static_cast<size_t>(strutl_mblen(scan.at, MB_CUR_MAX));
  if (size > static_cast<size_t>(scan.end - scan.at)) return false;
  memcpy(scan.out, scan.at, size);
  scan.at += size;
  scan.out += size;
  return true;
}

bool element(Scan &scan) {
  switch (*scan.at) {
    case '"':
      ++scan.at;
      return joint(scan);
    case '\\':
      ++scan.at;
      return escape(scan);
    default:
      return character(scan);
  }
}

}  // namespace

int strutl_cstr_to_str(const char *text, int quoted, char **out) {
  *out = nullptr;
  if (text == nullptr) return 1;
  size_t length = strlen(text);
  if (quoted != 0) {
    if (length < 2 || text[0] != '"' || text[length - 1] != '"') return 1;
    ++text;
    length -= 2;
  }
  char *result = static_cast<char *>(stg_malloc(length + 1));
  if (result == nullptr) return 1;
  Scan scan = {text, text + length, result};
  while (scan.at != scan.end) {
    if (element(scan)) continue;
    stg_free(result);
    return 1;
  }
  *scan.out = '\0';
  *out = result;
  return 0;
}

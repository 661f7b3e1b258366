// Searching: a character at a time, comparing bytes.
#include <cstring>

#include "strutl.h"
#include "text/strutl_internal.h"

using ks::Encoding;

namespace {

// The result of a search that left off at `at`.
int report(bool found, const char *string, const char *at, size_t *position) {
  if (position != nullptr) *position = static_cast<size_t>(at - string);
  return found;
}

// The hit of a search from `at` on, or the end of the text when there is none.
const char *hit_or_end(const char *hit, const char *at) {
  return hit != nullptr ? hit : at + strlen(at);
}

// Whether the character of `size` bytes at `at` is the one-byte character.
bool is_byte(const char *at, size_t size, char character) { return size == 1 && *at == character; }

// Where the last character that begins before `end` begins, or NULL when there is none. `end` is not
// beyond the text's end.
const char *last_begun(const Encoding &encoding, const char *at, const char *end) {
  const char *last = nullptr;
  for (; at < end; at += encoding.step(at)) last = at;
  return last;
}

}  // namespace

int strutl_find_char(const char *string, size_t start, char character, size_t *position) {
  const Encoding encoding;
  const char *at = string + start;
  if (encoding.stands_alone(character)) {
    at = hit_or_end(strchr(at, character), at);
  } else {
    for (size_t size; *at != '\0'; at += size) {
      size = encoding.step(at);
      if (is_byte(at, size, character)) break;
    }
  }
  return report(*at != '\0', string, at, position);
}

int strutl_find_str(const char *string, size_t start, const char *needle, size_t *position) {
  return strutl_find_str_range(string, start, 0, needle, position);
}

int strutl_find_str_range(const char *string, size_t start, size_t limit, const char *needle,
                          size_t *position) {
  const char *at = string + start;
  if (*needle == '\0') return report(true, string, at, position);
  const Encoding encoding;
  if (limit == 0 && encoding.begins_character(*needle)) {
    const char *hit = strstr(at, needle);
    return report(hit != nullptr, string, hit_or_end(hit, at), position);
  }
  const size_t length = strlen(needle);
  const auto is_within = [&] { return limit == 0 || static_cast<size_t>(at - string) < limit; };
  for (; *at != '\0' && is_within(); at += encoding.step(at)) {
    if (*at == *needle && strncmp(at, needle, length) == 0) {
      return report(true, string, at, position);
    }
  }
  return report(false, string, at, position);
}

int strutl_right_char(const char *string, size_t length, char character, size_t *position) {
  const Encoding encoding;
  const char *const end = string + strnlen(string, length);
  const char *last = nullptr;
  if (encoding.stands_alone(character)) {
    last = static_cast<const char *>(memrchr(string, character, static_cast<size_t>(end - string)));
  } else {
    size_t size;
    for (const char *at = string; at < end; at += size) {
      size = encoding.step(at);
      if (is_byte(at, size, character)) last = at;
    }
  }
  return last != nullptr && report(true, string, last, position);
}

int strutl_find_end_delim(const char *string, size_t start, char open, char close,
                          size_t *position) {
  const Encoding encoding;
  size_t depth = 0;
  size_t size;
  for (const char *at = string + start; *at != '\0'; at += size) {
    size = encoding.step(at);
    if (is_byte(at, size, close)) {
      if (depth == 0) return report(true, string, at, position);
      --depth;
    } else if (is_byte(at, size, open)) {
      ++depth;
    }
  }
  return 0;
}

int strutl_find_last_char(const char *string, size_t start, ptrdiff_t end, size_t *position) {
  report(false, string, string, position);
  const bool whole = end == -1;
  if (!whole && end < static_cast<ptrdiff_t>(start)) return 0;
  // A character that begins at `end` counts.
  const size_t room = whole ? SIZE_MAX : static_cast<size_t>(end) - start + 1;
  const char *first = string + start;
  const char *last = last_begun(Encoding(), first, first + strnlen(first, room));
  return last != nullptr && report(true, string, last, position);
}

int strutl_match_last_char(const char *string, char character) {
  const Encoding encoding;
  const size_t length = strlen(string);
  if (length == 0 || string[length - 1] != character) return 0;
  if (encoding.stands_alone(character)) return 1;
  // The byte may also be the last one of a longer character.
  return last_begun(encoding, string, string + length) == string + length - 1;
}

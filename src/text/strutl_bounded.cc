// The text primitives that printing itself stands on: nothing here allocates or prints.
#include <cstdio>
#include <cstring>

#include "core/ks_frame.h"
#include "strutl.h"
#include "text/strutl_internal.h"

using ks::Encoding;

namespace {

// Where in `set` the character of `size` bytes at `text` stands, or NULL.
const char *find_in_set(const Encoding &encoding, const char *text, size_t size, const char *set) {
  size_t step;
  for (const char *member = set; *member != '\0'; member += step) {
    step = encoding.step(member);
    if (step == size && memcmp(member, text, size) == 0) return member;
  }
  return nullptr;
}

bool hit(const char *string, const char *at, const char *set, const char *member, size_t *position,
         size_t *set_offset) {
  if (position != nullptr) *position = static_cast<size_t>(at - string);
  if (set_offset != nullptr) *set_offset = static_cast<size_t>(member - set);
  return true;
}

int find_byte_from(const char *string, size_t start, const char *set, size_t *position,
                   size_t *set_offset) {
  const char *at = strpbrk(string + start, set);
  return at != nullptr && hit(string, at, set, strchr(set, *at), position, set_offset);
}

}  // namespace

int strutl_cpy_buf(char *target, const char *source, size_t size) {
  if (size == 0) return 1;
  const size_t length = strnlen(source, size);
  const bool cut = length == size;
  const size_t kept = cut ? size - 1 : length;
  memmove(target, source, kept);
  target[kept] = '\0';
  return cut;
}

int strutl_find_char_from(const char *string, size_t start, const char *set, size_t *position,
                          size_t *set_offset) {
  const Encoding encoding;
  if (encoding.all_stand_alone(set)) {
    return find_byte_from(string, start, set, position, set_offset);
  }
  size_t size;
  for (const char *at = string + start; *at != '\0'; at += size) {
    size = encoding.step(at);
    const char *member = find_in_set(encoding, at, size, set);
    if (member != nullptr) return hit(string, at, set, member, position, set_offset);
  }
  return 0;
}

char *strutl_strrpbrk(const char *string, const char *set) {
  const Encoding encoding;
  const char *last = nullptr;
  if (encoding.all_stand_alone(set)) {
    for (const char *at = string + strlen(string); at != string && last == nullptr;) {
      --at;
      if (strchr(set, *at) != nullptr) last = at;
    }
  } else {
    size_t position;
    for (size_t start = 0; strutl_find_char_from(string, start, set, &position, nullptr);
         start = position + encoding.step(last)) {
      last = string + position;
    }
  }
  return const_cast<char *>(last);
}

int strutl_snprintf(char *target, size_t size, const char *format, ...) {
  va_list args;
  va_start(args, format);
  const int result = strutl_vsnprintf(target, size, format, args);
  va_end(args);
  return result;
}

int strutl_vsnprintf(char *target, size_t size, const char *format, va_list args) {
  int result = -1;
  // libc allocates for some directives, and takes locks for wide characters and "%m".
  ks::signals_held([&] { result = vsnprintf(target, size, format, args); });
  if (result > 0 && size > 0 && static_cast<size_t>(result) > size) target[size - 1] = '\0';
  return result;
}

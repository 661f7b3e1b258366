// Strings joined, in a buffer or in new storage.
#include <cstdarg>
#include <cstdint>
#include <cstring>

#include "strutl.h"

namespace {

constexpr int kMostStrings = 32;  // that one call joins in new storage

int join(char *target, size_t size, int count, va_list strings) {
  size_t length = 0;
  if (count <= 0) target[0] = '\0';
  for (int i = 0; i < count; ++i) {
    const char *string = va_arg(strings, const char *);
    if (i == 0 && string == target) {
      length = strnlen(target, size);
      if (length == size) return 1;
      continue;
    }
    const size_t added = strlen(string);
    if (strutl_ncpy_buf(target + length, string, added, size - length)) return 1;
    length += added;
  }
  return 0;
}

// Bytes of all the strings and a NUL; SIZE_MAX, which no area has, when that does not fit.
size_t joined_size(const size_t *lengths, int count) {
  size_t size = 1;
  for (int i = 0; i < count; ++i) {
    if (__builtin_add_overflow(size, lengths[i], &size)) return SIZE_MAX;
  }
  return size;
}

char *int_concat(stg_area_t area, int count, va_list list) {
  if (count > kMostStrings) return nullptr;
  const char *strings[kMostStrings];
  size_t lengths[kMostStrings];
  for (int i = 0; i < count; ++i) {
    strings[i] = va_arg(list, const char *);
    lengths[i] = strlen(strings[i]);
  }
  char *text = static_cast<char *>(stg_alloc(area, joined_size(lengths, count)));
  if (text == nullptr) return nullptr;
  char *at = text;
  for (int i = 0; i < count; ++i) {
    memcpy(at, strings[i], lengths[i]);
    at += lengths[i];
  }
  *at = '\0';
  return text;
}

}  // namespace

int strutl_concat(char *target, size_t size, int count, ...) {
  if (size == 0) return 1;
  va_list strings;
  va_start(strings, count);
  const int cut = join(target, size, count, strings);
  va_end(strings);
  return cut;
}

char *strutl_concat_heap(int count, ...) {
  va_list strings;
  va_start(strings, count);
  char *text = int_concat(STG_AREA_HEAP, count, strings);
  va_end(strings);
  return text;
}

char *strutl_concat_area(stg_area_t area, int count, ...) {
  va_list strings;
  va_start(strings, count);
  char *text = int_concat(area, count, strings);
  va_end(strings);
  return text;
}

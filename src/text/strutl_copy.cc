// Copies of counted bytes, with and without a bound.
#include <cstring>

#include "strutl.h"

char *strutl_ncpy(char *target, const char *source, size_t count) {
  memmove(target, source, count);
  target[count] = '\0';
  return target;
}

int strutl_ncpy_buf(char *target, const char *source, size_t count, size_t size) {
  if (size == 0) return 1;
  const bool cut = count >= size;
  strutl_ncpy(target, source, cut ? size - 1 : count);
  return cut;
}

int strutl_ccpy_buf(char *target, const char *source, size_t size, const char *stop_set,
                    size_t *stop) {
  if (size == 0) return 1;
  const size_t length = strcspn(source, stop_set);
  const int cut = strutl_ncpy_buf(target, source, length, size);
  if (stop != nullptr) *stop = cut ? size - 1 : length;
  return cut;
}

void strutl_cpy_and_advance(char **target, const char *source, size_t count) {
  strncpy(*target, source, count);
  *target += count;
}

ptrdiff_t strutl_prepend(char *buffer, ptrdiff_t position, const char *text) {
  const size_t length = strlen(text);
  const ptrdiff_t begin = position - static_cast<ptrdiff_t>(length);
  if (begin >= 0) memcpy(buffer + begin, text, length);
  return begin;
}

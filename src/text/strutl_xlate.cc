// Characters of a set exchanged for something else.
#include <cstdlib>
#include <cstring>

#include "strutl.h"

namespace {

// Bytes of the character at `text`, which is not at the end.
size_t char_width(const char *text) { return static_cast<size_t>(strutl_mblen(text, MB_CUR_MAX)); }

char *append(char *target, const char *source, size_t count) {
  memcpy(target, source, count);
  return target + count;
}

}  // namespace

int strutl_xlate_pname_sep(const char *source, const char *separators, char separator, char *target,
                           size_t size, int *changed) {
  *changed = 0;
  const char *text = source;
  size_t at;
  for (size_t start = 0; strutl_find_char_from(text, start, separators, &at, nullptr);
       start = at + 1) {
    if (text[at] == separator) continue;
    if (*changed == 0) {
      if (target != source && strutl_cpy_buf(target, source, size)) return 1;
      text = target;
      *changed = 1;
    }
    const size_t width = char_width(target + at);
    if (width > 1) strutl_slide_tail(target, at + width, 1 - static_cast<ptrdiff_t>(width));
    target[at] = separator;
  }
  return 0;
}

size_t strutl_xlate_chars_to_strings(char *target, const char *source, const char *characters,
                                     const char *const *strings) {
  char *end = target;
  size_t start = 0;
  size_t at;
  size_t member;
  while (strutl_find_char_from(source, start, characters, &at, &member)) {
    end = append(end, source + start, at - start);
    end = append(end, strings[member], strlen(strings[member]));
    start = at + char_width(source + at);
  }
  const size_t rest = strlen(source + start);
  end = append(end, source + start, rest + 1) - 1;
  return static_cast<size_t>(end - target);
}

// Changes to a text where it stands.
#include <algorithm>
#include <cstring>

#include "imsg.h"
#include "msg/ks_print.h"
#include "strutl.h"
#include "strutl_msg.h"

namespace {

bool is_blank(char byte) { return byte == ' ' || byte == '\t'; }

}  // namespace

char *strutl_strip_whitespace(char *string, int leading, int trailing) {
  const size_t length = strlen(string);
  size_t first = 0;
  size_t last = length;
  if (trailing != 0) {
    while (last > 0 && is_blank(string[last - 1])) --last;
  }
  if (leading != 0) {
    while (first < last && is_blank(string[first])) ++first;
  }
  char *end = string + (last - first);
  if (first > 0) memmove(string, string + first, last - first);
  *end = '\0';
  return last < length ? end : nullptr;
}

void strutl_slide_tail(char *string, size_t position, ptrdiff_t distance) {
  const size_t begin = strnlen(string, position);
  char *tail = string + begin;
  memmove(tail + std::max(distance, -static_cast<ptrdiff_t>(begin)), tail, strlen(tail) + 1);
}

int strutl_replace_substr(char *string, size_t position, size_t size, size_t old_length,
                          const char *text) {
  char *at = string + strnlen(string, position);
  const size_t removed = strnlen(at, old_length);
  const size_t added = strlen(text);
  if (added > removed && strlen(string) - removed + added + 1 > size) {
    ks::print<STRUTL_MSG_BUFFER_TOO_SMALL>(IMSG_TYPE_ERROR);
    return 1;
  }
  if (added != removed) strutl_slide_tail(at, removed, static_cast<ptrdiff_t>(added - removed));
  memcpy(at, text, added);
  return 0;
}

int strutl_find_replace_substr(char *string, size_t size, const char *old_text,
                               const char *new_text) {
  size_t position;
  if (!strutl_find_str(string, 0, old_text, &position)) return 0;
  return !strutl_replace_substr(string, position, size, strlen(old_text), new_text);
}

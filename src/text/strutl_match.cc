// Comparing texts: in part, but for white space, with the strings of a list.
#include <cctype>
#include <cstring>

#include "strutl.h"
#include "text/strutl_internal.h"

namespace {

bool is_space(char byte) { return isspace(static_cast<unsigned char>(byte)) != 0; }

const char *skip_space(const char *at) {
  while (is_space(*at)) ++at;
  return at;
}

}  // namespace

int strutl_match_prefix(const char *first, const char *second, size_t *length) {
  const ks::Encoding encoding;
  size_t common = 0;
  while (first[common] != '\0' && second[common] != '\0') {
    const size_t step = encoding.step(first + common);
    if (encoding.step(second + common) != step) break;
    if (memcmp(first + common, second + common, step) != 0) break;
    common += step;
  }
  if (length != nullptr) *length = common;
  return first[common] != '\0' || second[common] != '\0';
}

int strutl_cmp_ignore_whitespace(const char *first, const char *second) {
  first = skip_space(first);
  second = skip_space(second);
  while (*first != '\0' && *second != '\0') {
    if (is_space(*first) && is_space(*second)) {
      first = skip_space(first);
      second = skip_space(second);
    } else if (*first++ != *second++) {
      return 1;
    }
  }
  return *skip_space(first) != '\0' || *skip_space(second) != '\0';
}

int strutl_str_in_list(const list_t *list, const char *string) {
  if (list == nullptr) return 0;
  void *data;
  const list_element_t *element = nullptr;
  while ((element = list_next(list, element, &data)) != nullptr) {
    if (strcmp(static_cast<const char *>(data), string) == 0) return 1;
  }
  return 0;
}

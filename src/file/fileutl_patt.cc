// Lists of patterns for the ends of paths.
#include <algorithm>
#include <cstring>
#include <string_view>

#include "core/ks_assert.h"
#include "fileutl.h"

namespace {

size_t count_separators(const char *path) {
  return static_cast<size_t>(std::count(path, path + strlen(path), '/'));
}

// The end of a path that has `dropped` separators less; it has that many.
const char *drop_components(const char *path, size_t dropped) {
  while (dropped-- > 0) path = strchr(path, '/') + 1;
  return path;
}

// Each end is held against the whole of the tail, so both may cover the same bytes of a short one.
bool ends_match(const char *tail, const char *pattern, const char *percent) {
  const std::string_view before(pattern, static_cast<size_t>(percent - pattern));
  const std::string_view behind(percent + 1);
  const std::string_view text(tail);
  return behind.find('/') == std::string_view::npos && text.starts_with(before) &&
         text.ends_with(behind);
}

}  // namespace

int fileutl_patt_list_matched_cell(const list_t *list, const char *name,
                                   list_element_t **match_cursor_p, int *exact) {
  KS_ASSERT(name != NULL);
  KS_ASSERT(match_cursor_p != NULL);
  KS_ASSERT(exact != NULL);
  *exact = 0;
  if (list == nullptr) return 0;
  const size_t components = count_separators(name);
  void *data;
  *match_cursor_p = nullptr;
  while ((*match_cursor_p = list_next(list, *match_cursor_p, &data)) != nullptr) {
    const char *pattern = static_cast<const char *>(data);
    const size_t own = count_separators(pattern);
    if (own > components) continue;
    const char *tail = drop_components(name, components - own);
    const char *percent = strchr(pattern, '%');
    if (percent != nullptr && ends_match(tail, pattern, percent)) return 1;
    if (percent == nullptr && fileutl_pname_equal(tail, pattern) != 0) {
      *exact = 1;
      return 1;
    }
  }
  return 0;
}

int fileutl_patt_list_match(const list_t *list, const char *name, int *exact) {
  list_element_t *cursor;
  return fileutl_patt_list_matched_cell(list, name, &cursor, exact);
}

// Paths as texts: separators and leaves.
#include <cerrno>
#include <cstring>
#include <string_view>

#include "fileutl.h"
#include "strutl.h"

namespace {

void drop_slashes(std::string_view &path) {
  while (path.ends_with('/')) path.remove_suffix(1);
}

}  // namespace

int fileutl_strip_leaf(const char *path, size_t directory_size, char *directory, size_t leaf_size,
                       char *leaf) {
  std::string_view rest(path);
  drop_slashes(rest);
  const size_t slash = rest.rfind('/');
  const size_t leaf_length =
      slash == std::string_view::npos ? rest.size() : rest.size() - slash - 1;
  const char *leaf_start = rest.data() + rest.size() - leaf_length;
  rest.remove_suffix(leaf_length);
  drop_slashes(rest);
  if (rest.empty() && *path == '/') rest = "/";
  const int leaf_cut = strutl_ncpy_buf(leaf, leaf_start, leaf_length, leaf_size);
  const int directory_cut = strutl_ncpy_buf(directory, rest.data(), rest.size(), directory_size);
  if (!leaf_cut && !directory_cut) return 0;
  errno = ENAMETOOLONG;
  return 1;
}

char *fileutl_find_pname_sep_left(const char *path) {
  return const_cast<char *>(strchr(path, '/'));
}

int fileutl_pname_equal(const char *first, const char *second) {
  return strcmp(first, second) == 0;
}

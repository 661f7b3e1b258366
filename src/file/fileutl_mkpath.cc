// Making the directories of a path.
#include <array>
#include <cerrno>

#include "core/ks_retry.h"
#include "fileutl.h"

using namespace ks;

// Each level is shorter than the one before by a component of at least two bytes, and a directory
// part has at most 1023: it never goes deeper than 512.
int fileutl_mkpath(const char *path, mode_t mode, int make_last) {
  std::array<char, 1024> directory;
  std::array<char, 256> leaf;
  if (fileutl_strip_leaf(path, directory.size(), directory.data(), leaf.size(), leaf.data()) != 0) {
    return 1;
  }
  const bool bare = directory[0] == '\0';
  const char *parent = bare ? "." : directory.data();
  if (!fileutl_exists(parent, 1)) {
    if (bare) return 1;  // nothing leads to it that could be made
    if (fileutl_pname_equal(parent, "/")) {
      errno = ENOENT;
      return 1;
    }
    if (fileutl_mkpath(parent, mode, 1) != 0) return 1;
  }
  return make_last != 0 && retry_eintr([&] { return mkdir(path, mode); }) != 0;
}

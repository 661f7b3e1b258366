// Giving a file another name.
#include <unistd.h>

#include <array>
#include <cerrno>
#include <cstdio>

#include "core/ks_retry.h"
#include "fileutl.h"
#include "strutl.h"

using namespace ks;

namespace {

bool is_taken(const char *path) {
  return retry_eintr([&] { return access(path, F_OK); }) == 0;
}

int too_long() {
  errno = ENAMETOOLONG;
  return 1;
}

}  // namespace

int fileutl_rename(const char *old_path, const char *new_path) {
  return retry_eintr([&] { return rename(old_path, new_path); }) != 0;
}

int fileutl_rename_unique(const char *path, const char *suffix, size_t size, char *buffer) {
  if (suffix == nullptr) suffix = "";
  std::array<char, 1024> candidate;
  char *name = candidate.data();
  if (strutl_concat(name, candidate.size(), 2, path, suffix) != 0) return too_long();
  for (unsigned long long number = 1; is_taken(name); ++number) {
    const int length = strutl_snprintf(name, candidate.size(), "%s%s.%llu", path, suffix, number);
    if (length < 0 || static_cast<size_t>(length) >= candidate.size()) return too_long();
  }
  // What could not be looked at may be there: it is not overwritten. A link into a circle is.
  if (errno != ENOENT && errno != ELOOP) return 1;
  if (fileutl_rename(path, name) != 0) return 1;
  if (strutl_cpy_buf(buffer, name, size) != 0) return too_long();
  errno = 0;
  return 0;
}

// Reading directories.
#include <dirent.h>
#include <fcntl.h>
#include <unistd.h>

#include <cerrno>
#include <cstring>

#include "file/fileutl_internal.h"
#include "stg.h"
#include "strutl.h"

using namespace ks;

namespace {

// The next of the system's records; NULL at the end or when reading fails.
const dirent64 *next_record(fileutl_dir *dir) {
  if (dir->next >= dir->filled) {
    const ssize_t count = getdents64(dir->fd, dir->block, sizeof dir->block);
    dir->next = 0;
    dir->filled = count > 0 ? static_cast<size_t>(count) : 0;
    if (count <= 0) return nullptr;
  }
  const void *place = dir->block + dir->next;
  const auto *record = static_cast<const dirent64 *>(place);
  dir->next += record->d_reclen;
  return record;
}

// False when the name does not fit.
template <size_t kSize>
bool copy_name(const char *name, bool fold, char (&target)[kSize]) {
  if (fold) return strutl_cvt_case_string(name, 0, kSize, target) != 0;
  return strutl_cpy_buf(target, name, kSize) == 0;
}

}  // namespace

int ks::fileutl_open_at(fileutl_dir *dir, FilePlace place, bool follow) {
  const int flags = O_RDONLY | O_DIRECTORY | O_CLOEXEC | (follow ? 0 : O_NOFOLLOW);
  dir->case_sensitive = 1;
  dir->next = dir->filled = 0;
  dir->fd = openat(place.fd, place.name, flags);
  return dir->fd < 0 ? -1 : 0;
}

fileutl_dir_t *fileutl_opendir(const char *path) {
  auto *dir = static_cast<fileutl_dir *>(stg_malloc(sizeof(fileutl_dir)));
  if (dir == nullptr) return nullptr;
  if (fileutl_open_at(dir, {AT_FDCWD, path}, true) == 0) return dir;
  const int error = errno;
  stg_free(dir);
  errno = error;
  return nullptr;
}

fileutl_dirent_t *fileutl_readdir(fileutl_dir_t *dir, int fold) {
  const dirent64 *record = next_record(dir);
  if (record == nullptr) return nullptr;
  fileutl_dirent_t &entry = dir->entry;
  if (!copy_name(record->d_name, fold != 0 && !dir->case_sensitive, entry.d_name)) return nullptr;
  const size_t length = strlen(entry.d_name);
  dir->entry_type = DTTOIF(record->d_type);
  entry.d_ino = record->d_ino;
  entry.d_reclen = static_cast<uint16_t>(length + 14);
  entry.d_namlen = static_cast<uint16_t>(length);
  return &entry;
}

// A handle that could not be closed is the caller's for ever: it must not lead to a descriptor that
// meanwhile is somebody else's.
int fileutl_closedir(fileutl_dir_t *dir) {
  const int fd = dir->fd;
  dir->fd = -1;
  if (close(fd) != 0) return 1;
  stg_free(dir);
  return 0;
}

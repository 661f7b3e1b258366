// Reading directories.
#include <dirent.h>
#include <fcntl.h>
#include <unistd.h>

#include <cerrno>
#include <cstring>

#include "core/ks_frame.h"
#include "core/ks_retry.h"
#include "file/fileutl_internal.h"
#include "stg.h"
#include "strutl.h"

using namespace ks;

namespace {

// Reads the next block. Signals are held, since a fault between the system's answer and its noting
// would lose the records. 0 or an errno value; at the end the block is empty.
int read_block(fileutl_dir *dir) {
  int error = 0;
  signals_held([&] {
    const ssize_t count = getdents64(dir->fd, dir->block, sizeof dir->block);
    if (count < 0) error = errno;
    dir->next = 0;
    dir->filled = count > 0 ? static_cast<size_t>(count) : 0;
  });
  return error;
}

// False at the end, with errno 0, and when reading fails. A directory that was removed meanwhile is
// at its end.
bool refill(fileutl_dir *dir) {
  int error;
  do {
    error = read_block(dir);
  } while (error == EINTR);
  if (dir->filled > 0) return true;
  errno = error != ENOENT ? error : 0;
  return false;
}

// The system's record at which the handle stands; NULL as refill says.
const dirent64 *present_record(fileutl_dir *dir) {
  if (dir->next >= dir->filled && !refill(dir)) return nullptr;
  const void *place = dir->block + dir->next;
  return static_cast<const dirent64 *>(place);
}

// False when the name does not fit.
template <size_t kSize>
bool copy_name(const char *name, bool fold, char (&target)[kSize]) {
  if (fold) return strutl_cvt_case_string(name, 0, kSize, target) != 0;
  return strutl_cpy_buf(target, name, kSize) == 0;
}

}  // namespace

int ks::fileutl_close_own(fileutl_dir *dir) {
  const int result = fileutl_closedir(dir);
  if (result == 0) return 0;
  const int error = errno;
  stg_free(dir);
  errno = error;
  return result;
}

int ks::fileutl_open_at(fileutl_dir *dir, FilePlace place, bool follow) {
  const int flags = O_RDONLY | O_DIRECTORY | O_CLOEXEC | (follow ? 0 : O_NOFOLLOW);
  dir->case_sensitive = 1;
  dir->next = dir->filled = 0;
  dir->fd = retry_eintr([&] { return openat(place.fd, place.name, flags); });
  return dir->fd < 0 ? -1 : 0;
}

fileutl_dir_t *fileutl_opendir(const char *path) {
  fileutl_dir *dir = nullptr;
  int error = 0;
  signals_held([&] {
    dir = static_cast<fileutl_dir *>(stg_malloc(sizeof(fileutl_dir)));
    if (dir != nullptr && fileutl_open_at(dir, {AT_FDCWD, path}, true) == 0) return;
    error = errno;
    stg_free(dir);
    dir = nullptr;
  });
  if (dir == nullptr) errno = error;
  return dir;
}

fileutl_dirent_t *fileutl_readdir(fileutl_dir_t *dir, int fold) {
  const dirent64 *record = present_record(dir);
  if (record == nullptr) return nullptr;
  fileutl_dirent_t &entry = dir->entry;
  const bool fits = copy_name(record->d_name, fold != 0 && !dir->case_sensitive, entry.d_name);
  const size_t length = strlen(entry.d_name);
  dir->entry_type = DTTOIF(record->d_type);
  entry.d_ino = record->d_ino;
  entry.d_reclen = static_cast<uint16_t>(length + 14);
  entry.d_namlen = static_cast<uint16_t>(length);
  dir->next += record->d_reclen;  // last: after a fault the entry is still to come
  if (fits) return &entry;
  errno = ENAMETOOLONG;
  return nullptr;
}

// A handle that could not be closed is the caller's for ever: it must not lead to a descriptor that
// meanwhile is somebody else's.
int fileutl_closedir(fileutl_dir_t *dir) {
  int result = 0;
  int error = 0;
  signals_held([&] {
    const int fd = dir->fd;
    dir->fd = -1;
    result = close_fd(fd) != 0 ? 1 : 0;
    error = errno;
    if (result == 0) stg_free(dir);
  });
  if (result != 0) errno = error;
  return result;
}

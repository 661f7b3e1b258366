// What the system knows about a file.
#include <fcntl.h>
#include <sys/statvfs.h>
#include <unistd.h>

#include <algorithm>
#include <cerrno>
#include <cstring>

#include "core/ks_retry.h"
#include "file/fileutl_internal.h"
#include "imsg.h"
#include "ks_msg.h"
#include "msg/ks_print.h"

using namespace ks;

static_assert(sizeof(fileutl_statfs_record_t) == 48);

int ks::fileutl_stat_at(FilePlace place, bool follow, fileutl_stat_t *record) {
  const int flags = follow ? 0 : AT_SYMLINK_NOFOLLOW;
  if (retry_eintr([&] { return fstatat64(place.fd, place.name, record, flags); }) == 0) return 0;
  record->st_nlink = 0;
  return -1;
}

int fileutl_stat(const char *path, int follow, fileutl_stat_t *record) {
  return fileutl_stat_at({AT_FDCWD, path}, follow != 0, record);
}

int fileutl_exists(const char *path, int follow) {
  fileutl_stat_t record;
  return fileutl_stat(path, follow, &record) == 0;
}

int fileutl_statfs(const char *path, void *buffer, size_t size) {
  struct statvfs64 system;
  if (retry_eintr([&] { return statvfs64(path, &system); }) != 0) return -1;
  const fileutl_statfs_record_t record = {
      .block_size = static_cast<uint32_t>(system.f_bsize),
      .fragment_size = static_cast<uint32_t>(system.f_frsize),
      .total_blocks = system.f_blocks,
      .free_blocks = system.f_bfree,
      .available_blocks = system.f_bavail,
      .total_files = system.f_files,
      .free_files = system.f_ffree,
  };
  memcpy(buffer, &record, std::min(size, sizeof record));
  return 0;
}

int fileutl_readlink(const char *path, char *buffer, size_t size) {
  const ssize_t length = retry_eintr([&] { return readlink(path, buffer, size); });
  if (length < 0) return -1;
  if (static_cast<size_t>(length) == size) {
    errno = ENAMETOOLONG;
    return -1;
  }
  buffer[length] = '\0';
  return static_cast<int>(length) + 1;
}

int fileutl_chk_large_file_overflow(uint32_t low, uint32_t high, const char *name) {
  if (high == 0 && low < 0x80000000) return 0;
  if (name != nullptr && *name != '\0') print<KS_MSG_FILE_TOO_LARGE>(IMSG_TYPE_ERROR, name);
  return 1;
}

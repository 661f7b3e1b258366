// Making an NFS client look at a directory anew. Taking and giving back a lock is what makes it
// revalidate what it remembers; the lock itself guards nothing.
#include <fcntl.h>
#include <sys/stat.h>
#include <unistd.h>

#include <array>
#include <cerrno>
#include <cstring>

#include "core/ks_frame.h"
#include "core/ks_retry.h"
#include "imsg.h"
#include "msg/ks_print.h"
#include "server_id_msg.h"
#include "strutl.h"
#include "sysutl.h"

using namespace ks;

namespace {

constexpr size_t kPathSize = 4096;
constexpr mode_t kLockFileMode = 0666;

using PathBuffer = std::array<char, kPathSize>;

int too_long() {
  errno = ENAMETOOLONG;
  return -1;
}

int lock_and_unlink(const char *file) {
  const int fd = retry_eintr([&] { return open(file, O_RDWR | O_CREAT | O_EXCL, kLockFileMode); });
  if (fd < 0) return -1;
  if (retry_eintr([&] { return lockf(fd, F_TLOCK, 0); }) == 0) (void)lockf(fd, F_ULOCK, 0);
  close(fd);
  return retry_eintr([&] { return unlink(file); });
}

int current_directory(PathBuffer &path) {
  if (getcwd(path.data(), path.size()) != nullptr) return 0;
  const int error = errno;
  print<SERVER_ID_MSG_DIRECTORY_INACCESSIBLE>(IMSG_TYPE_ERROR, ".", imsg_strerror(error));
  errno = error;
  return -1;
}

// 0, or -1 with errno.
int make_absolute(const char *path, PathBuffer &absolute) {
  char *text = absolute.data();
  if (path != nullptr && path[0] == '/') {
    return strutl_cpy_buf(text, path, absolute.size()) == 0 ? 0 : too_long();
  }
  if (current_directory(absolute) != 0) return -1;
  if (path == nullptr) return 0;
  return strutl_concat(text, absolute.size(), 3, text, "/", path) == 0 ? 0 : too_long();
}

// Leaves of an absolute path its parent. False for the root, which has none.
bool cut_last_component(char *path) {
  size_t length = strlen(path);
  const auto ends_in_slash = [&] { return path[length - 1] == '/'; };
  while (length > 1 && ends_in_slash()) --length;
  if (length <= 1) return false;
  while (!ends_in_slash()) --length;
  while (length > 1 && ends_in_slash()) --length;
  path[length] = '\0';
  return true;
}

int flush_existing(const char *path, const struct stat &status) {
  if (S_ISDIR(status.st_mode) && status.st_nlink != 0) return sysutl_nfs_lock(path);
  return static_cast<int>(status.st_nlink);
}

}  // namespace

int sysutl_nfs_lock(const char *directory) {
  PathBuffer file;
  const int length = strutl_snprintf(file.data(), file.size(), "%s/.nfs_lock_file.%s.%d", directory,
                                     sysutl_myhostname(), static_cast<int>(getpid()));
  if (length < 0 || static_cast<size_t>(length) >= file.size()) return too_long();
  // A fault in between would leave the file behind.
  int result = -1;
  signals_held([&] { result = lock_and_unlink(file.data()); });
  return result;
}

// Each level of a path that does not exist has its parent flushed before it does so itself. So the
// first level that exists is flushed twice, by the one below it; further below, the parent is what
// is missing, and that is the answer.
int sysutl_nfs_flush(const char *path) {
  PathBuffer absolute;
  if (make_absolute(path, absolute) != 0) return -1;
  struct stat status;
  int missing = 0;
  for (; retry_eintr([&] { return stat(absolute.data(), &status); }) != 0; ++missing) {
    if (!cut_last_component(absolute.data())) return -1;
  }
  if (missing > 0) (void)flush_existing(absolute.data(), status);
  const int result = flush_existing(absolute.data(), status);
  if (missing <= 1) return result;
  errno = ENOENT;
  return -1;
}

// Locks on parts of files.
#include <fcntl.h>
#include <unistd.h>

#include <cerrno>

#include "core/ks_retry.h"
#include "fileutl.h"

using namespace ks;

namespace {

int set_lock(int fd, short type, int64_t start, int64_t length) {
  struct flock64 lock = {};
  lock.l_type = type;
  lock.l_whence = SEEK_SET;
  lock.l_start = start;
  lock.l_len = length;
  return retry_eintr([&] { return fcntl(fd, F_SETLK64, &lock); }) == 0 ? 0 : errno;
}

}  // namespace

int fileutl_lockfd(int fd, int64_t start, int64_t length) {
  return set_lock(fd, F_WRLCK, start, length);
}

int fileutl_unlockfd(int fd, int64_t start, int64_t length) {
  return set_lock(fd, F_UNLCK, start, length);
}

// Random bytes from the system.
#include <fcntl.h>
#include <unistd.h>

#include <cerrno>

#include "core/ks_frame.h"
#include "proc/sysutl_internal.h"
#include "sysutl.h"

using namespace ks;

namespace {

constexpr const char *kDevice = "/dev/urandom";

// What stands in the device's place may end; it then gives no more, and that is a failure too.
int read_all(int fd, unsigned char *buffer, size_t count) {
  size_t done = 0;
  while (done < count) {
    errno = 0;
    const ssize_t got = read(fd, buffer + done, count - done);
    if (got <= 0) {
      sysutl_trace("sysutl_get_random_bytes: read errno=%d bytes read=%d bytes req=%d\n", errno,
                   static_cast<int>(done), static_cast<int>(count));
      return 1;
    }
    done += static_cast<size_t>(got);
  }
  return 0;
}

int read_device(unsigned char *buffer, size_t count) {
  const int fd = open(kDevice, O_RDONLY);
  if (fd < 0) {
    sysutl_trace("sysutl_get_random_bytes: open errno=%d.\n", errno);
    return 1;
  }
  const int result = read_all(fd, buffer, count);
  if (close(fd) != 0) sysutl_trace("sysutl_get_random_bytes: close errno=%d.\n", errno);
  return result;
}

}  // namespace

int sysutl_get_random_bytes(void *buffer, uint32_t count) {
  if (count > SYSUTL_RANDOM_BYTES_MAX) {
    sysutl_trace("sysutl_get_random_bytes: nbytes=%d too big.\n", static_cast<int>(count));
    return 1;
  }
  // A fault in between would leave the descriptor open.
  int result = 1;
  signals_held([&] { result = read_device(static_cast<unsigned char *>(buffer), count); });
  return result;
}

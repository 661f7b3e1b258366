// Random bytes from the system.
#include <fcntl.h>
#include <unistd.h>

#include <cerrno>

#include "core/ks_frame.h"
#include "core/ks_retry.h"
#include "proc/sysutl_internal.h"
#include "sysutl.h"

using namespace ks;

namespace {

constexpr const char *kDevice = "/dev/urandom";

// How far the reading has come, with the errno values of what failed; 0: it did not.
struct Progress {
  int open_error;
  int read_error;
  int close_error;
  size_t done;  // bytes
};

// What stands in the device's place may end; it then gives no more, with errno 0.
void read_all(int fd, unsigned char *buffer, size_t count, Progress &progress) {
  while (progress.done < count) {
    errno = 0;
    const ssize_t got =
        retry_eintr([&] { return read(fd, buffer + progress.done, count - progress.done); });
    if (got <= 0) {
      progress.read_error = errno;
      return;
    }
    progress.done += static_cast<size_t>(got);
  }
}

void read_device(unsigned char *buffer, size_t count, Progress &progress) {
  const int fd = retry_eintr([] { return open(kDevice, O_RDONLY | O_CLOEXEC); });
  if (fd < 0) {
    progress.open_error = errno;
    return;
  }
  read_all(fd, buffer, count, progress);
  if (close_fd(fd) != 0) progress.close_error = errno;
}

void trace_failures(const Progress &progress, size_t count) {
  if (progress.open_error != 0) {
    sysutl_trace("sysutl_get_random_bytes: open errno=%d.\n", progress.open_error);
  } else if (progress.done < count) {
    sysutl_trace("sysutl_get_random_bytes: read errno=%d bytes read=%d bytes req=%d\n",
                 progress.read_error, static_cast<int>(progress.done), static_cast<int>(count));
  }
  if (progress.close_error != 0) {
    sysutl_trace("sysutl_get_random_bytes: close errno=%d.\n", progress.close_error);
  }
}

}  // namespace

int sysutl_get_random_bytes(void *buffer, uint32_t count) {
  if (count > SYSUTL_RANDOM_BYTES_MAX) {
    sysutl_trace("sysutl_get_random_bytes: nbytes=%d too big.\n", static_cast<int>(count));
    return 1;
  }
  // A fault in between would leave the descriptor open.
  Progress progress = {};
  signals_held([&] { read_device(static_cast<unsigned char *>(buffer), count, progress); });
  trace_failures(progress, count);
  return progress.open_error == 0 && progress.done == count ? 0 : 1;
}

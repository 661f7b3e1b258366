// The standard descriptors that a process was started without.
#include <fcntl.h>
#include <unistd.h>

#include <cerrno>

namespace {

bool is_closed(int fd) { return fcntl(fd, F_GETFD) < 0 && errno == EBADF; }

// The lowest descriptor that is free, which cannot be read or written as a standard one is.
int open_wrong_way(int fd) {
  int opened;
  do {
    opened = open("/dev/null", fd == STDIN_FILENO ? O_WRONLY : O_RDONLY);
  } while (opened < 0 && errno == EINTR);
  return opened;
}

// Otherwise the first file that the program opens would get the number, and what is printed would
// go there. It must happen before any other code opens a file: no call of the library is early
// enough. Later it must not happen, because what the program closes itself it may want to reuse.
[[gnu::constructor]] void take_closed_descriptors() {
  const int error = errno;
  for (int fd = STDIN_FILENO; fd <= STDERR_FILENO; ++fd) {
    if (!is_closed(fd)) continue;
    const int opened = open_wrong_way(fd);
    if (opened >= 0 && opened != fd) close(opened);  // one below could not be taken
  }
  errno = error;
}

}  // namespace

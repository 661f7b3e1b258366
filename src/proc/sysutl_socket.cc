// What is done to sockets.
#include <fcntl.h>
#include <sys/ioctl.h>
#include <unistd.h>

#include "date.h"
#include "sysutl.h"

namespace {

constexpr uint32_t kMicroseconds = 1000000;  // in a second

int set_owner_and_signals(int fd, pid_t owner, int on) {
  if (fcntl(fd, F_SETOWN, owner) < 0) return 1;
  return ioctl(fd, FIOASYNC, &on) < 0 ? 1 : 0;
}

}  // namespace

int sysutl_set_socket_interrupting(int fd) { return set_owner_and_signals(fd, getpid(), 1); }

int sysutl_clear_socket_interrupting(int fd) { return set_owner_and_signals(fd, 0, 0); }

int sysutl_socket_bytes_ready(int fd, int *count) { return ioctl(fd, FIONREAD, count) < 0 ? 1 : 0; }

uint32_t sysutl_sock_port_uniquifier() {
  timeval now;
  date_get_timeval(&now);
  return static_cast<uint32_t>(now.tv_sec) * kMicroseconds + static_cast<uint32_t>(now.tv_usec);
}

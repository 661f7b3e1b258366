// Descriptors: their flags, their limit, pipes, and what was written getting to the disk.
#include <fcntl.h>
#include <sys/resource.h>
#include <unistd.h>

#include <algorithm>
#include <bit>
#include <cerrno>
#include <climits>
#include <cstring>

#include "sysutl.h"

namespace {

constinit int proc_fds_limit = 0;         // the soft limit that the process started with
constinit rlim_t limit_that_was_set = 0;  // by this module; 0: none yet

constexpr int kWordBits = 32;

// A pair of fcntl's requests that read and write flags.
struct FlagWord {
  int get;
  int set;
};
constexpr FlagWord kDescriptorFlags = {F_GETFD, F_SETFD};
constexpr FlagWord kStatusFlags = {F_GETFL, F_SETFL};

int set_flag(int fd, FlagWord word, int flag, int on) {
  const int flags = fcntl(fd, word.get);
  if (flags < 0) return 1;
  return fcntl(fd, word.set, on != 0 ? flags | flag : flags & ~flag) < 0 ? 1 : 0;
}

void close_pipe(int *fds) {
  const int error = errno;
  close(fds[0]);
  close(fds[1]);
  errno = error;
}

}  // namespace

int sysutl_fsync(int fd) { return fsync(fd); }

int sysutl_fsync_fptr(FILE *stream) {
  const int result = fflush(stream);
  return result != 0 ? result : sysutl_fsync(fileno(stream));
}

int sysutl_pipe(int read_side, int *fds) {
  if (pipe(fds) == 0) {
    if (sysutl_set_cloexec_file(fds[read_side != 0 ? 0 : 1], 1) == 0) return 0;
    close_pipe(fds);
  }
  fds[0] = fds[1] = -1;
  return 1;
}

int sysutl_pipe_close(int fd) { return close(fd) != 0 ? 1 : 0; }

int sysutl_set_cloexec_file(int fd, int on) {
  return set_flag(fd, kDescriptorFlags, FD_CLOEXEC, on);
}

int sysutl_set_socket_nonblocking(int fd, int on) {
  return set_flag(fd, kStatusFlags, O_NONBLOCK, on);
}

int sysutl_fd_set_popcount(const fd_set *set, int nbits) {
  int count = 0;
  const unsigned char *at = reinterpret_cast<const unsigned char *>(set);
  for (int words = nbits / kWordBits + (nbits % kWordBits > 0); words > 0; --words) {
    uint32_t word;
    memcpy(&word, at, sizeof word);
    count += std::popcount(word);
    at += sizeof word;
  }
  return count;
}

// A select call cannot tell descriptors beyond the 1024th apart, so the process shall get none.
int sysutl_get_max_fds() {
  rlimit limit;
  if (getrlimit(RLIMIT_NOFILE, &limit) == 0) {
    if (limit.rlim_cur != limit_that_was_set) {
      proc_fds_limit = static_cast<int>(std::min(limit.rlim_cur, rlim_t{INT_MAX}));
    }
    if (limit.rlim_cur != SYSUTL_SELECT_FDS) {
      limit.rlim_cur = std::min(limit.rlim_max, rlim_t{SYSUTL_SELECT_FDS});
      if (setrlimit(RLIMIT_NOFILE, &limit) == 0) limit_that_was_set = limit.rlim_cur;
    }
  }
  return static_cast<int>(sysconf(_SC_OPEN_MAX));
}

int sysutl_get_proc_fds(int *limit) {
  *limit = proc_fds_limit;
  return proc_fds_limit;
}

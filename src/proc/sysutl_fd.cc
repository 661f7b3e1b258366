// Descriptors: their flags, their limit, pipes, and what was written getting to the disk.
#include <fcntl.h>
#include <sys/resource.h>
#include <unistd.h>

#include <algorithm>
#include <bit>
#include <cerrno>
#include <climits>
#include <cstring>

#include "core/ks_frame.h"
#include "core/ks_retry.h"
#include "msg/ks_stream.h"
#include "sysutl.h"

using namespace ks;

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

int make_pipe(int read_side, int *fds) {
  if (pipe(fds) == 0) {
    if (sysutl_set_cloexec_file(fds[read_side != 0 ? 0 : 1], 1) == 0) return 0;
    close_pipe(fds);
  }
  fds[0] = fds[1] = -1;
  return 1;
}

void limit_fds() {
  rlimit limit;
  if (getrlimit(RLIMIT_NOFILE, &limit) != 0) return;
  if (limit.rlim_cur != limit_that_was_set) {
    proc_fds_limit = static_cast<int>(std::min(limit.rlim_cur, rlim_t{INT_MAX}));
  }
  if (limit.rlim_cur == SYSUTL_SELECT_FDS) return;
  limit.rlim_cur = std::min(limit.rlim_max, rlim_t{SYSUTL_SELECT_FDS});
  if (setrlimit(RLIMIT_NOFILE, &limit) == 0) limit_that_was_set = limit.rlim_cur;
}

}  // namespace

int sysutl_fsync(int fd) {
  return retry_eintr([&] { return fsync(fd); });
}

int sysutl_fsync_fptr(FILE *stream) {
  return write_to_stream(stream, "", 0) ? sysutl_fsync(fileno(stream)) : EOF;
}

// Held: a fault would leave the ends half marked or, when that has failed, closed and still named.
int sysutl_pipe(int read_side, int *fds) {
  int result = 1;
  int error = 0;
  signals_held([&] {
    result = make_pipe(read_side, fds);
    error = errno;
  });
  if (result != 0) errno = error;
  return result;
}

int sysutl_pipe_close(int fd) { return close_fd(fd) != 0 ? 1 : 0; }

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
  signals_held([] { limit_fds(); });
  return static_cast<int>(sysconf(_SC_OPEN_MAX));
}

int sysutl_get_proc_fds(int *limit) {
  *limit = proc_fds_limit;
  return proc_fds_limit;
}

// A line from a stream, if it comes in time.
#include <algorithm>
#include <cerrno>
#include <climits>

#include "fileutl.h"
#include "imsg.h"
#include "ks_msg.h"
#include "msg/ks_print.h"

using namespace ks;

namespace {

constexpr int kMostInterruptions = 100;

enum class Ready { kYes, kNo, kInterrupted, kFailed };

Ready wait_for(int fd, const timeval *timeout) {
  fd_set readable;
  FD_ZERO(&readable);
  FD_SET(fd, &readable);
  timeval left = timeout != nullptr ? *timeout : timeval{};
  const int count =
      select(fd + 1, &readable, nullptr, nullptr, timeout != nullptr ? &left : nullptr);
  if (count == 0) return Ready::kNo;
  if (count < 0) return errno == EINTR ? Ready::kInterrupted : Ready::kFailed;
  if (FD_ISSET(fd, &readable)) return Ready::kYes;
  print<KS_MSG_UNEXPECTED_ERROR>(IMSG_TYPE_ERROR);
  return Ready::kFailed;
}

}  // namespace

int fileutl_fgets_or_timeout(FILE *stream, const struct timeval *timeout, size_t size, char *buffer,
                             int *eof, int *timed_out) {
  *eof = *timed_out = 0;
  if (size == 0) return 1;
  buffer[0] = '\0';
  const int fd = fileno(stream);
  if (fd < 0 || fd >= FD_SETSIZE) return 1;
  for (int interruptions = 0; interruptions < kMostInterruptions;) {
    const Ready ready = wait_for(fd, timeout);
    if (ready == Ready::kInterrupted) continue;
    if (ready == Ready::kNo) *timed_out = 1;
    if (ready != Ready::kYes) return ready == Ready::kFailed;
    errno = 0;
    if (fgets(buffer, static_cast<int>(std::min<size_t>(size, INT_MAX)), stream) != nullptr)
      return 0;
    buffer[0] = '\0';  // it may hold the begin of a line, without a NUL
    if (ferror(stream) == 0 || errno != EINTR) {
      *eof = feof(stream) != 0;
      return *eof == 0;
    }
    ++interruptions;
    clearerr(stream);
  }
  return 1;
}

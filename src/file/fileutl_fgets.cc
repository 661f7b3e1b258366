// A line from a stream, if it comes in time.
//
// libc's fgets would take the stream's lock and wait with it, and drop what it has of a line when a
// signal interrupts it. So the waiting is done by select, where a fault finds nothing half done, and
// the reading in steps that do not wait, with signals held.
#include <fcntl.h>

#include <cerrno>

#include "core/ks_frame.h"
#include "file/ks_input.h"
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

// The line so far, in the caller's buffer, where it is a text at any time.
struct Line {
  char *text;
  size_t room;  // bytes without the NUL
  size_t length;

  void add(char byte) {
    text[length + 1] = '\0';
    text[length++] = byte;
  }
  bool complete() const { return length == room || (length > 0 && text[length - 1] == '\n'); }
};

enum class Got { kLine, kPart, kEnd, kInterrupted, kFailed };

// What a stream that has nothing more to give makes of the line. A part of one that the end or a
// stream that does not wait cuts short counts as a line.
Got without_byte(FILE *stream, const Line &line) {
  if (feof_unlocked(stream) != 0) return line.length > 0 ? Got::kLine : Got::kEnd;
  if (errno == EINTR) return Got::kInterrupted;
  return errno == EAGAIN && line.length > 0 ? Got::kLine : Got::kFailed;
}

// Moves what the stream holds to the line, and where it holds nothing what one read of the system's
// gives.
Got take(FILE *stream, Line &line) {
  while (!line.complete()) {
    errno = 0;
    const int byte = getc_unlocked(stream);
    if (byte == EOF) return without_byte(stream, line);
    line.add(static_cast<char>(byte));
    if (!line.complete() && stream_ahead(stream) == 0) return Got::kPart;
  }
  return Got::kLine;
}

bool never_waits(int fd) {
  const int flags = fcntl(fd, F_GETFL);
  return flags >= 0 && (flags & O_NONBLOCK) != 0;
}

// Waits for the rest of a line: as long as fgets would, and interrupted as it would be, which the
// stream's error indicator tells.
Got wait_for_rest(FILE *stream, int fd) {
  if (never_waits(fd)) return Got::kPart;
  const Ready ready = wait_for(fd, nullptr);
  if (ready == Ready::kYes) return Got::kPart;
  if (ready == Ready::kFailed) return Got::kFailed;
  stream->_flags |= _IO_ERR_SEEN;
  return Got::kInterrupted;
}

// Reads from a stream that is readable.
Got read_line(FILE *stream, int fd, Line &line) {
  Got got = Got::kPart;
  while (got == Got::kPart) {
    int error = 0;
    signals_held([&] {
      got = take(stream, line);
      error = errno;
    });
    errno = error;
    if (got == Got::kPart) got = wait_for_rest(stream, fd);
  }
  return got;
}

}  // namespace

int fileutl_fgets_or_timeout(FILE *stream, const struct timeval *timeout, size_t size, char *buffer,
                             int *eof, int *timed_out) {
  *eof = *timed_out = 0;
  if (size == 0) return 1;
  buffer[0] = '\0';
  const int fd = fileno(stream);
  if (fd < 0 || fd >= FD_SETSIZE) return 1;
  Line line = {buffer, size - 1, 0};
  for (int interruptions = 0;;) {
    const Ready ready = wait_for(fd, timeout);
    if (ready == Ready::kInterrupted) continue;
    if (ready == Ready::kNo) *timed_out = 1;
    if (ready != Ready::kYes) return ready == Ready::kFailed;
    const Got got = read_line(stream, fd, line);
    if (got == Got::kEnd) *eof = 1;
    if (got != Got::kInterrupted) return got == Got::kFailed;
    if (++interruptions == kMostInterruptions) return 1;
    clearerr_unlocked(stream);
  }
}

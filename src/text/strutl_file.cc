// Whole files as texts. Signals are held back, but where a call would have to wait for input or was
// interrupted: there a routine may raise, and what is open or on the heap is given back.
#include <fcntl.h>
#include <poll.h>
#include <sys/stat.h>
#include <unistd.h>

#include <algorithm>
#include <cerrno>
#include <cstdio>
#include <cstring>

#include "core/ks_frame.h"
#include "core/ks_retry.h"
#include "file/ks_input.h"
#include "fileutl.h"
#include "imsg.h"
#include "ks_msg.h"
#include "msg/ks_print.h"
#include "stg.h"
#include "strutl.h"
#include "strutl_msg.h"

using namespace ks;

namespace {

constexpr size_t kStep = 8192;  // bytes by which a buffer grows

// The text so far; there is always room for a NUL behind it.
struct Buffer {
  stg_area_t area;
  char *text;
  size_t size;
  size_t length;

  bool full() const { return length == size - 1; }
  bool on_heap() const { return area == STG_AREA_HEAP && text != nullptr; }
};

void release(Buffer &buffer) {
  signals_held([&] {
    if (buffer.on_heap()) stg_free(buffer.text);
    buffer.text = nullptr;
  });
}

// False without storage for it; then the buffer stays as it is.
bool resize(Buffer &buffer, size_t size) {
  const bool in_place = buffer.on_heap();
  void *block = in_place ? stg_realloc(buffer.text, size) : stg_alloc(buffer.area, size);
  if (block == nullptr) return false;
  if (!in_place && buffer.text != nullptr) memcpy(block, buffer.text, buffer.length);
  buffer.text = static_cast<char *>(block);
  buffer.size = size;
  return true;
}

// Where a text comes from.
struct Source {
  FILE *stream;  // NULL: the descriptor is read
  int fd;
  bool waits;  // reading may have to wait for input; a descriptor then is one that says EAGAIN
};

enum class Step { kGoesOn, kWaits, kInterrupted, kEnd, kTruncated, kFailed, kNoMemory };

Step why_not(int error) { return error == EINTR ? Step::kInterrupted : Step::kFailed; }

Step read_descriptor(const Source &source, Buffer &buffer) {
  char *end = buffer.text + buffer.length;
  const ssize_t count = read(source.fd, end, buffer.size - 1 - buffer.length);
  if (count < 0) return source.waits && errno == EAGAIN ? Step::kWaits : why_not(errno);
  buffer.length += static_cast<size_t>(count);
  return count == 0 ? Step::kEnd : Step::kGoesOn;
}

// Whether a call would not have to wait, also when it would fail.
bool is_ready(int fd, short event, int timeout_milliseconds) {
  pollfd wanted = {fd, event, 0};
  return retry_eintr([&] { return poll(&wanted, 1, timeout_milliseconds); }) != 0;
}

void wait_for(int fd, short event) { is_ready(fd, event, -1); }

// The stream's lock is not taken. Of a stream that may wait only so much is asked for as it holds or
// one read of the system's gives it.
Step read_stream(const Source &source, Buffer &buffer) {
  FILE *stream = source.stream;
  size_t wanted = buffer.size - 1 - buffer.length;
  if (source.waits) {
    const size_t ahead = stream_ahead(stream);
    if (ahead == 0 && !is_ready(source.fd, POLLIN, 0)) return Step::kWaits;
    wanted = std::min(wanted, std::max(ahead, size_t{1}));
  }
  errno = 0;
  const size_t count = fread_unlocked(buffer.text + buffer.length, 1, wanted, stream);
  buffer.length += count;
  if (count == wanted) return Step::kGoesOn;
  if (ferror_unlocked(stream) == 0) return Step::kEnd;
  if (errno == EINTR) clearerr_unlocked(stream);
  if (errno == 0) errno = EIO;  // an error that the stream had before
  return why_not(errno);
}

// Reads as far as that goes without waiting, into a buffer of `size` bytes, or a growing one for 0.
Step advance(const Source &source, Buffer &buffer, size_t size) {
  const bool grows = size == 0;
  if (buffer.text == nullptr && !resize(buffer, grows ? kStep : size)) return Step::kNoMemory;
  Step step = Step::kGoesOn;
  while (step == Step::kGoesOn) {
    if (buffer.full() && !grows) return Step::kTruncated;
    if (buffer.full() && !resize(buffer, buffer.size + kStep)) return Step::kNoMemory;
    step = source.stream != nullptr ? read_stream(source, buffer) : read_descriptor(source, buffer);
  }
  return step;
}

// Reads to the end of the source or the buffer.
Step read_all(const Source &source, Buffer &buffer, size_t size) {
  Step step = Step::kInterrupted;
  while (step == Step::kWaits || step == Step::kInterrupted) {
    if (step == Step::kWaits) wait_for(source.fd, POLLIN);
    int error = 0;
    signals_held([&] {
      step = advance(source, buffer, size);
      error = errno;
    });
    errno = error;
  }
  return step;
}

void print_read_failed(int quiet) {
  const int error = errno;
  if (!quiet) print<KS_MSG_OPERATION_FAILED>(IMSG_TYPE_ERROR, "read", imsg_strerror(error));
  errno = error;
}

// Without storage is an error, but only a warning where a heap block cannot grow: those who watch
// for errors know the two apart.
void print_no_memory(const Buffer &buffer) {
  print<STRUTL_MSG_NO_MEMORY>(buffer.on_heap() ? IMSG_TYPE_WARNING : IMSG_TYPE_ERROR);
  errno = ENOMEM;
}

// The whole of a source is read, whatever is in it; the first NUL ends the text.
char *read_text(const Source &source, Buffer &buffer, size_t size, int quiet, int *truncated) {
  const Step step = read_all(source, buffer, size);
  *truncated = step == Step::kTruncated;
  if (step == Step::kEnd || step == Step::kTruncated) {
    buffer.text[buffer.length] = '\0';
    return buffer.text;
  }
  if (step == Step::kNoMemory) print_no_memory(buffer);
  if (step == Step::kFailed) print_read_failed(quiet);
  const int error = errno;
  release(buffer);
  errno = error;
  return nullptr;
}

void print_open_failed(const char *path, int quiet) {
  const int error = errno;
  if (!quiet) print<KS_MSG_OPEN_FAILED>(IMSG_TYPE_ERROR, path, imsg_strerror(error));
  errno = error;
}

// Stores the descriptor in `fd`, -1 with errno when that fails. An open that waits, as that of a FIFO
// does, ends at a signal, which then is delivered before it is tried again.
void open_file(const char *path, int flags, int &fd) {
  int error = 0;
  do {
    signals_held([&] {
      fd = open(path, flags | O_CLOEXEC, 0666);
      error = errno;
    });
  } while (fd < 0 && error == EINTR);
  errno = error;
}

// Closes the file if it is open. 0, or an errno value.
int close_file(int &fd) {
  int error = 0;
  signals_held([&] {
    if (fd >= 0 && close_fd(fd) != 0) error = errno;
    fd = -1;
  });
  return error;
}

// 0 or an errno value.
int write_all(int fd, const char *text) {
  size_t left = strlen(text);
  int error = 0;
  while (error == 0 && left > 0) {
    signals_held([&] {
      while (error == 0 && left > 0) {
        const ssize_t count = write(fd, text, left);
        error = count < 0 ? errno : 0;
        if (count < 0) return;
        text += count;
        left -= static_cast<size_t>(count);
      }
    });
    if (error == EAGAIN) wait_for(fd, POLLOUT);
    if (error == EINTR || error == EAGAIN) error = 0;
  }
  return error;
}

// What is no plain file says EAGAIN from now on where writing would have to wait. It is opened without
// that, since a FIFO without a reader then could not be opened.
void never_wait(int fd) {
  struct stat64 status;
  if (fstat64(fd, &status) == 0 && !S_ISREG(status.st_mode)) fcntl(fd, F_SETFL, O_NONBLOCK);
}

int write_file(const char *text, const char *path, int quiet, int &fd) {
  open_file(path, O_WRONLY | O_CREAT | O_TRUNC, fd);
  if (fd < 0) {
    print_open_failed(path, quiet);
    return 1;
  }
  never_wait(fd);
  int error = write_all(fd, text);
  const int close_error = close_file(fd);
  if (error == 0) error = close_error;
  if (error == 0) return 0;
  if (!quiet) {
    print<KS_MSG_OPERATION_ON_FAILED>(IMSG_TYPE_ERROR, "write", path, imsg_strerror(error));
  }
  errno = error;
  return 1;
}

// The room is for one byte more than the file has, and the NUL, so a file that has grown fills it.
char *read_sized(const Source &source, Buffer &buffer, const char *path, uint64_t size, int quiet) {
  const uint32_t low = static_cast<uint32_t>(size);
  const uint32_t high = static_cast<uint32_t>(size >> 32);
  if (fileutl_chk_large_file_overflow(low, high, quiet ? nullptr : path)) {
    errno = EFBIG;
    return nullptr;
  }
  int truncated;
  char *text = read_text(source, buffer, size_t{low} + 2, quiet, &truncated);
  if (!truncated) return text;
  release(buffer);
  if (!quiet) print<KS_MSG_SIZE_CHANGED>(IMSG_TYPE_ERROR, path);
  errno = EFBIG;
  return nullptr;
}

// What is no plain file is opened so that it does not wait; a FIFO would say that it is at its end
// before its first writer comes, so that one is waited for.
char *read_file(Buffer &buffer, const char *path, const fileutl_stat_t &record, int quiet,
                int &fd) {
  const bool waits = !S_ISREG(record.st_mode);
  open_file(path, O_RDONLY | (waits ? O_NONBLOCK : 0), fd);
  if (fd < 0) {
    print_open_failed(path, quiet);
    return nullptr;
  }
  if (S_ISFIFO(record.st_mode)) wait_for(fd, POLLIN);
  const Source source = {nullptr, fd, waits};
  const auto size = static_cast<uint64_t>(record.st_size);
  char *text = read_sized(source, buffer, path, size, quiet);
  const int error = errno;
  close_file(fd);
  errno = error;
  return text;
}

Source source_of(FILE *stream) {
  const int fd = fileno(stream);
  struct stat64 status;
  const bool waits = fd >= 0 && fstat64(fd, &status) == 0 && !S_ISREG(status.st_mode) &&
                     (fcntl(fd, F_GETFL) & O_NONBLOCK) == 0;
  return {stream, fd, waits};
}

}  // namespace

int strutl_write(const char *text, const char *path, int, int quiet) {
  if (text == nullptr) return 0;
  int result = 1;
  int fd = -1;
  protect([&] { result = write_file(text, path, quiet, fd); }, [&] { close_file(fd); });
  return result;
}

char *strutl_read(stg_area_t area, const char *path, int, int quiet, int missing_is_empty) {
  fileutl_stat_t record;
  if (fileutl_stat(path, 1, &record) != 0) {
    if (missing_is_empty && errno == ENOENT) return stg_area_strdup(area, "");
    print_open_failed(path, quiet);
    return nullptr;
  }
  char *text = nullptr;
  int fd = -1;
  Buffer buffer = {area, nullptr, 0, 0};
  protect([&] { text = read_file(buffer, path, record, quiet, fd); },
          [&] {
            release(buffer);
            close_file(fd);
          });
  return text;
}

char *strutl_read_fp(stg_area_t area, uint32_t size, FILE *stream, int quiet, int *truncated) {
  char *text = nullptr;
  Buffer buffer = {area, nullptr, 0, 0};
  const Source source = source_of(stream);
  protect([&] { text = read_text(source, buffer, size, quiet, truncated); },
          [&] { release(buffer); });
  return text;
}

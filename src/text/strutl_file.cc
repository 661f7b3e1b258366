// Whole files as texts. Signals are held back while a stream is open.
#include <cerrno>
#include <cstdio>
#include <cstring>

#include "core/ks_frame.h"
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
};

void release(Buffer &buffer) {
  if (buffer.area == STG_AREA_HEAP) stg_free(buffer.text);
  buffer.text = nullptr;
}

// Without storage for it the buffer stays as it is. That is an error, but only a warning where a
// heap block cannot grow: those who watch for errors know the two apart.
bool resize(Buffer &buffer, size_t size) {
  const bool first = buffer.text == nullptr;
  const bool in_place = buffer.area == STG_AREA_HEAP && !first;
  void *block = in_place ? stg_realloc(buffer.text, size) : stg_alloc(buffer.area, size);
  if (block == nullptr) {
    print<STRUTL_MSG_NO_MEMORY>(in_place ? IMSG_TYPE_WARNING : IMSG_TYPE_ERROR);
    return false;
  }
  if (!in_place && !first) memcpy(block, buffer.text, buffer.length);
  buffer.text = static_cast<char *>(block);
  buffer.size = size;
  return true;
}

// Reads until the end of the stream or of the buffer. False, with errno, when reading fails.
bool fill(Buffer &buffer, FILE *stream) {
  buffer.length += fread(buffer.text + buffer.length, 1, buffer.size - 1 - buffer.length, stream);
  return ferror(stream) == 0;
}

char *read_failed(Buffer &buffer, int quiet) {
  const int error = errno;
  release(buffer);
  if (!quiet) print<KS_MSG_OPERATION_FAILED>(IMSG_TYPE_ERROR, "read", imsg_strerror(error));
  errno = error;
  return nullptr;
}

char *no_memory(Buffer &buffer) {
  release(buffer);
  errno = ENOMEM;
  return nullptr;
}

// The whole of a file is read, whatever is in it; the first NUL ends the text.
char *read_stream(stg_area_t area, size_t size, FILE *stream, int quiet, int *truncated) {
  *truncated = 0;
  const bool grows = size == 0;
  Buffer buffer = {area, nullptr, 0, 0};
  if (!resize(buffer, grows ? kStep : size)) return no_memory(buffer);
  while (true) {
    if (!fill(buffer, stream)) return read_failed(buffer, quiet);
    if (!buffer.full()) break;
    if (!grows) {
      *truncated = 1;
      break;
    }
    if (!resize(buffer, buffer.size + kStep)) return no_memory(buffer);
  }
  buffer.text[buffer.length] = '\0';
  return buffer.text;
}

void print_open_failed(const char *path, int quiet) {
  const int error = errno;
  if (!quiet) print<KS_MSG_OPEN_FAILED>(IMSG_TYPE_ERROR, path, imsg_strerror(error));
  errno = error;
}

int write_file(const char *text, const char *path, int quiet) {
  FILE *stream = fopen64(path, "w");
  if (stream == nullptr) {
    print_open_failed(path, quiet);
    return 1;
  }
  int error = fputs(text, stream) < 0 ? errno : 0;
  // What is still in the stream goes out only now.
  if (fclose(stream) != 0 && error == 0) error = errno;
  if (error == 0) return 0;
  if (!quiet) {
    print<KS_MSG_OPERATION_ON_FAILED>(IMSG_TYPE_ERROR, "write", path, imsg_strerror(error));
  }
  errno = error;
  return 1;
}

// The room is for one byte more than the file has, and the NUL, so a file that has grown fills it.
char *read_sized(stg_area_t area, const char *path, uint64_t size, FILE *stream, int quiet) {
  const uint32_t low = static_cast<uint32_t>(size);
  const uint32_t high = static_cast<uint32_t>(size >> 32);
  if (fileutl_chk_large_file_overflow(low, high, quiet ? nullptr : path)) {
    errno = EFBIG;
    return nullptr;
  }
  int truncated;
  char *text = read_stream(area, low + 2, stream, quiet, &truncated);
  if (!truncated) return text;
  if (area == STG_AREA_HEAP) stg_free(text);
  if (!quiet) print<KS_MSG_SIZE_CHANGED>(IMSG_TYPE_ERROR, path);
  errno = EFBIG;
  return nullptr;
}

char *read_file(stg_area_t area, const char *path, uint64_t size, int quiet) {
  FILE *stream = fopen64(path, "r");
  if (stream == nullptr) {
    print_open_failed(path, quiet);
    return nullptr;
  }
  char *text = read_sized(area, path, size, stream, quiet);
  const int error = errno;
  fclose(stream);
  errno = error;
  return text;
}

}  // namespace

int strutl_write(const char *text, const char *path, int, int quiet) {
  if (text == nullptr) return 0;
  int result = 1;
  signals_held([&] { result = write_file(text, path, quiet); });
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
  signals_held([&] { text = read_file(area, path, static_cast<uint64_t>(record.st_size), quiet); });
  return text;
}

char *strutl_read_fp(stg_area_t area, uint32_t size, FILE *stream, int quiet, int *truncated) {
  char *text = nullptr;
  signals_held([&] { text = read_stream(area, size, stream, quiet, truncated); });
  return text;
}

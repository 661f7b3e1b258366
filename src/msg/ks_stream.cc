#include "ks_stream.h"

#include <stdio_ext.h>
#include <unistd.h>

#include <algorithm>
#include <cerrno>
#include <cstring>
#include <cwchar>

#include "core/ks_frame.h"
#include "core/ks_write.h"

using namespace ks;

namespace {

struct Text {
  const char *bytes;
  size_t size;
};

// Programs learn by ferror that output was lost, and libc has no call that sets the indicator.
void set_error(FILE *stream) { stream->_flags |= _IO_ERR_SEEN; }

// Whether stdio would do nothing but pass the bytes on to the descriptor. It does more for a stream
// of wide characters, and for one that was read from, whose descriptor it has to set back.
bool passes_bytes_on(FILE *stream) {
  int orientation = 0;
  signals_held([&] { orientation = fwide(stream, -1); });  // under the stream's lock
  if (orientation > 0 || fileno(stream) < 0 || !__fwritable(stream)) return false;
  return stream->_IO_read_end == stream->_IO_write_base;
}

// What the stream holds, with the text behind it where its buffer has room. The text stays the
// caller's: the stream does not count it among what it holds.
iovec next_piece(FILE *stream, const Text &text) {
  const size_t held = __fpending(stream);
  const size_t room = static_cast<size_t>(stream->_IO_buf_end - stream->_IO_write_ptr);
  if (text.size > room) return {stream->_IO_write_base, held};
  memcpy(stream->_IO_write_ptr, text.bytes, text.size);
  return {stream->_IO_write_base, held + text.size};
}

// The bytes are moved, not the pointer to the first one: stdio takes its distance from the end of
// what was read for a seek that it owes the descriptor.
void drop_held(FILE *stream, size_t size) {
  const size_t left = __fpending(stream) - size;
  memmove(stream->_IO_write_base, stream->_IO_write_base + size, left);
  stream->_IO_write_ptr = stream->_IO_write_base + left;
}

void note_written(FILE *stream, Text &text, size_t size) {
  const size_t of_stream = std::min(size, __fpending(stream));
  drop_held(stream, of_stream);
  text.bytes += size - of_stream;
  text.size -= size - of_stream;
}

// Writes what the stream holds: each byte of it is at any moment either out and dropped or neither.
bool write_held_bytes(FILE *stream, Text &text) {
  while (__fpending(stream) != 0) {
    const bool written = write_once(
        fileno(stream), [&] { return next_piece(stream, text); },
        [&](size_t size) { note_written(stream, text, size); });
    if (!written) return false;
  }
  return true;
}

// A fault may leave this at any instruction: the rest of the text is dropped then, and nobody asks
// how much of it is out. So the plain call will do, which is cheaper.
bool write_rest(int fd, Text &text) {
  while (text.size != 0) {
    const ssize_t written = write(fd, text.bytes, text.size);
    if (written < 0 && errno != EINTR) return false;
    if (written < 0) continue;
    text.bytes += written;
    text.size -= static_cast<size_t>(written);
  }
  return true;
}

// The descriptor moves on without libc's doing, so libc is to ask where it stands: -1 is its word for
// a place that it does not know.
bool write_to_descriptor(FILE *stream, Text text) {
  stream->_offset = -1;
  if (write_held_bytes(stream, text) && write_rest(fileno(stream), text)) return true;
  set_error(stream);
  return false;
}

// fwrite reports success even when the flushing of a full line failed: only the error indicator
// shows it. So it is cleared first, and an earlier error is put back.
bool write_by_stdio(FILE *stream, Text text) {
  bool written = false;
  signals_held([&] {
    const bool error_before = ferror_unlocked(stream) != 0;
    stream->_flags &= ~_IO_ERR_SEEN;
    written = fwrite_unlocked(text.bytes, 1, text.size, stream) == text.size &&
              fflush_unlocked(stream) == 0 && !ferror_unlocked(stream);
    if (error_before) set_error(stream);
  });
  return written;
}

}  // namespace

bool ks::write_to_stream(FILE *stream, const char *bytes, size_t size) {
  return passes_bytes_on(stream) ? write_to_descriptor(stream, {bytes, size})
                                 : write_by_stdio(stream, {bytes, size});
}

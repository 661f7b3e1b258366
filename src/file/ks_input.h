// Reading from a caller's stream in steps that do not wait.
#pragma once

#include <cstddef>
#include <cstdio>

namespace [[gnu::visibility("hidden")]] ks {

// How many bytes the stream holds: so many can be taken without asking the system. libc has no
// function that tells; these are the two pointers that its getc_unlocked compares.
inline size_t stream_ahead(const FILE *stream) {
  return static_cast<size_t>(stream->_IO_read_end - stream->_IO_read_ptr);
}

}  // namespace ks

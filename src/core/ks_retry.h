// System calls that a signal interrupts.
#pragma once

#include <unistd.h>

#include <cerrno>

namespace [[gnu::visibility("hidden")]] ks {

// Makes a call, one that says -1 and errno when it fails, again as long as signals interrupt it.
// Not for what may wait for long while signals are held: a routine that raises would wait with it.
template <class Call>
inline auto retry_eintr(Call &&call) {
  while (true) {
    const auto result = call();
    if (result != -1 || errno != EINTR) return result;
  }
}

// close(2). A descriptor whose closing a signal interrupts is closed all the same, so it is never
// closed again, and that is no failure.
inline int close_fd(int fd) { return close(fd) == 0 || errno == EINTR ? 0 : -1; }

}  // namespace ks

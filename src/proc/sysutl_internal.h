// What the sources of this module share.
#pragma once

#include <cerrno>

#include "imsg.h"
#include "msg/ks_trace.h"

namespace [[gnu::visibility("hidden")]] ks {

// A trace line of this module; `format` ends in a newline.
template <class... Args>
void sysutl_trace(const char *format, Args... args) {
  if (tracing("ks", 5)) imsg_print(IMSG_TYPE_TRACE, format, -1, args...);
}

// Asks a name service for an entry, and again where a signal has interrupted it.
template <class Ask>
auto *ask_for_entry(Ask &&ask) {
  while (true) {
    errno = 0;
    auto *entry = ask();
    if (entry != nullptr || errno != EINTR) return entry;
  }
}

// Whether a look-up without an answer could have one next time: the service is not there, or could
// not do its work. To be asked right behind it.
inline bool may_be_found_later() {
  return errno != 0 && errno != ENOENT && errno != ESRCH && errno != EBADF && errno != EPERM;
}

}  // namespace ks

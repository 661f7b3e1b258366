// What the sources of this module share.
#pragma once

#include "imsg.h"
#include "msg/ks_trace.h"

namespace [[gnu::visibility("hidden")]] ks {

// A trace line of this module; `format` ends in a newline.
template <class... Args>
void sysutl_trace(const char *format, Args... args) {
  if (tracing("ks", 5)) imsg_print(IMSG_TYPE_TRACE, format, -1, args...);
}

}  // namespace ks

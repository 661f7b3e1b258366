// The trace test as the library's own modules make it.
#pragma once

#include "imsg.h"

namespace [[gnu::visibility("hidden")]] ks {

extern int imsg_desired_verbosity;  // 32767 until TRACE_VERBOSITY has been read

// Whether a trace message is wanted: one comparison while tracing is off.
inline bool tracing(const char *subsys, int level) {
  return imsg_desired_verbosity >= level && imsg_should_trace(subsys, level) != 0;
}

}  // namespace ks

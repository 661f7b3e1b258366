// What the sources of the event loop share.
#pragma once

#include <sys/time.h>

#include "msg/ks_print.h"
#include "rt.h"
#include "rt_msg.h"

namespace [[gnu::visibility("hidden")]] ks {

// The state of a wait that the tables of rt_init describe.
extern bool rt_inited;
extern int rt_num_fds;  // descriptors that a set of the process can hold

// The value of caller_owned for an event that the loop does not take off the list before it calls:
// its callback does so, with signals held. So a fault in between loses nothing, the loop calls again.
inline constexpr uint16_t kTakenByCallback = 2;

// Waits with signals held back exactly once, which it ends, and calls the handlers of the descriptors
// that are ready. A null timeout sleeps until something happens; the timeout may be changed.
void rt_wait(timeval *timeout);

// ORs `source` into `target`. Result: an upper bound of the highest descriptor in `source`, or -1.
int fd_set_or(fd_set *target, const fd_set *source);

// Says that storage is exhausted, with the place that needed it.
inline void report_malloc_failed(const char *file = __builtin_FILE(), int line = __builtin_LINE()) {
  print<RT_MSG_MALLOC_FAILED>(6, file, line);
}

}  // namespace ks

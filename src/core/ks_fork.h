// Making a process of the library's own.
#pragma once

#include <sys/types.h>

namespace [[gnu::visibility("hidden")]] ks {

// What the new process is for.
enum class Child {
  kGoesOn,      // with the program, in the frames that it has been made in
  kRunsOrEnds,  // becomes another program, or only ends
};

// fork, for all that make processes. The child drops the signals that waited for delivery when it was
// made: they are its parent's. Those sent to the child itself come, from its first moment on.
// One that runs or ends also drops the cleanup records and exit hooks of its parent, whose resources
// they would release, and ends by _exit: pfm_exit then runs nothing of the parent's, and what its
// streams hold is not written twice.
pid_t fork_child(Child child);

}  // namespace ks

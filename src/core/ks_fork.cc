#include "core/ks_fork.h"

#include <unistd.h>

#include "core/pfm_internal.h"

using namespace ks;

namespace {

void forget_parent(Child child) {
  forget_deferred_signals();
  if (child == Child::kGoesOn) return;
  forget_cleanup_records();
  forget_exit_hooks();
  pfm_set_exit(_exit);
}

}  // namespace

// Blocked by the system, a signal for the child waits until the parent's are forgotten.
pid_t ks::fork_child(Child child) {
  pid_t pid = -1;
  signals_blocked([&] {
    pid = fork();
    if (pid == 0) forget_parent(child);
  });
  return pid;
}

// State of the fault manager that its sources share.
#pragma once

#include <csignal>
#include <cstddef>
#include <cstdint>

#include "core/ks_frame.h"
#include "pfm.h"

namespace [[gnu::visibility("hidden")]] ks {

inline constexpr int kSignals = 64;  // signal numbers are 1 to 64

extern int32_t pfm_inh_susp_count;  // depth of pfm_inhibit_suspend
extern sigset_t all_async_signals;  // every signal but the synchronous ones; filled by pfm_init
extern sigset_t deferred_signals;   // arrived while held back; pfm_pending_count counts them

// What a wait gives the system as its signal mask: none, so that the process's own stays. One of no
// bytes is refused, and with it the sleep.
struct SleepMask {
  const void *mask;
  size_t bytes;
};
extern SleepMask pfm_sleep_mask;  // refused from the moment on that a signal is deferred

// Runs `body` with all asynchronous signals blocked in the system, for changes of deferred_signals.
template <class Body>
inline void signals_blocked(Body &&body) {
  sigset_t mask;
  sigprocmask(SIG_BLOCK, &all_async_signals, &mask);
  body();
  sigprocmask(SIG_SETMASK, &mask, nullptr);
}

// Notes that `sig` waits for delivery; repeats are merged. Asynchronous signals must be blocked.
void defer_signal(int sig);

// Drops all that wait for delivery. Asynchronous signals must be blocked.
void forget_deferred_signals();

// An abort is on its way: SIGABRT is delivered at once, whatever is held.
extern bool pfm_aborting;

// Two steps of pfm_init: take in the routines that are installed and fill the signal sets; hook the
// signals that the module takes over.
void read_signal_table();
void take_over_signals();

// Runs the exit hooks that are left with status 0, for a process that ends by exit(3).
void pfm_atexit_handler();

// Take all cleanup records off the chain, and all exit hooks off their list: those of a process that
// this one is a copy of.
void forget_cleanup_records();
void forget_exit_hooks();

}  // namespace ks

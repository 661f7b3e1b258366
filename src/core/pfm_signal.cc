// The table of signal routines behind one catcher, and the signals that wait for delivery.
#include <unistd.h>

#include <cerrno>
#include <cstdio>
#include <cstdlib>
#include <utility>

#include "core/ks_assert.h"
#include "pfm.h"
#include "core/pfm_internal.h"

namespace ks {
int32_t pfm_pending_count = 0;
bool pfm_aborting = false;
sigset_t all_async_signals;
sigset_t deferred_signals;
}  // namespace ks

using namespace ks;

namespace {

constexpr int synchronous_signals[] = {SIGFPE, SIGILL, SIGSEGV};
constexpr int user_signals[] = {SIGINT, SIGQUIT, SIGTERM, SIGTSTP};

pfm_signal_t handler_sigvec[kSignals];  // entry sig-1: the routine that the program wants for sig
sigset_t all_user_signals;              // user_signals as a set
int last_inh_signal = 0;                // last signal that was deferred; 0 after each delivery

// Whether a program may have a routine for the signal. The system keeps two signals to itself, and
// libc those below its first real-time one.
bool can_be_caught(int sig) {
  if (sig < 1 || sig > kSignals || sig == SIGKILL || sig == SIGSTOP) return false;
  return sig < __SIGRTMIN || sig >= SIGRTMIN;
}

// Anything but SIG_DFL and SIG_IGN is a routine to be called.
bool is_routine(pfm_signal_t routine) { return reinterpret_cast<uintptr_t>(routine) > 1; }

// SIGTSTP alone is also held back by the suspend count.
bool suspend_held(int sig) { return sig == SIGTSTP && pfm_inh_susp_count != 0; }

void forget_deferred(int sig) {
  sigdelset(&deferred_signals, sig);
  KS_ASSERT(--pfm_pending_count >= 0);
}

// A synchronous signal that is deferred and comes again is that of an instruction, which would be
// tried for ever.
bool repeats_for_ever(int sig) {
  const bool synchronous = sigismember(&all_async_signals, sig) == 0;
  return synchronous && sigismember(&deferred_signals, sig) == 1;
}

// Straight to the descriptor: the flow that the signal interrupted may be in the middle of a print.
void report_repeat(int sig) {
  char line[64];
  const int length =
      snprintf(line, sizeof line, "pfm_signal_handler: got signal %d, inhibited\n", sig);
  if (write(STDERR_FILENO, line, static_cast<size_t>(length)) < 0) return;  // nowhere to say it
}

void hold_back(int sig) {
  if (sig == last_inh_signal && sigismember(&all_user_signals, sig) == 1) report_repeat(sig);
  last_inh_signal = sig;
  defer_signal(sig);
  pfm_sleep_mask = {&pfm_sleep_mask, 0};  // ends a wait
}

void call_now(int sig) {
  if (sigismember(&deferred_signals, sig) == 1) forget_deferred(sig);
  handler_sigvec[sig - 1](sig);
}

// The catcher installed for every routine; it runs with all asynchronous signals blocked.
void pfm_signal_handler(int sig) {
  const int saved_errno = errno;
  KS_ASSERT_TEXT(handler_sigvec[sig - 1] != SIG_DFL,
                 "handler_sigvec[sig-1] != (pfm_signal_t)SIG_DFL");
  KS_ASSERT_TEXT(handler_sigvec[sig - 1] != SIG_IGN,
                 "handler_sigvec[sig-1] != (pfm_signal_t)SIG_IGN");
  const bool held = pfm_inh_count != 0 || suspend_held(sig);
  if (!held || (sig == SIGABRT && pfm_aborting) || repeats_for_ever(sig)) {
    call_now(sig);
  } else {
    hold_back(sig);
  }
  errno = saved_errno;
}

void pfm_quit_signal_catcher(int) { pfm_raise(PFM_STATUS_QUIT); }

void set_blocked(int sig, int how) {
  sigset_t set;
  sigemptyset(&set);
  sigaddset(&set, sig);
  sigprocmask(how, &set, nullptr);
}

// Stops the process as the system would, and takes the signal over again when it goes on.
void pfm_suspend_signal_catcher(int sig) {
  const pfm_signal_t old = pfm_signal(sig, SIG_DFL);
  set_blocked(sig, SIG_UNBLOCK);
  kill(getpid(), sig);
  set_blocked(sig, SIG_BLOCK);
  pfm_signal(sig, old);
}

pfm_signal_t installed_routine(int sig) {
  struct sigaction action;
  if (sigaction(sig, nullptr, &action) != 0 || (action.sa_flags & SA_SIGINFO) != 0) return SIG_DFL;
  return action.sa_handler;
}

void default_child_signal() {
  struct sigaction action;
  if (sigaction(SIGCHLD, nullptr, &action) != 0) return;
  action.sa_handler = SIG_DFL;
  action.sa_flags = 0;
  sigaction(SIGCHLD, &action, nullptr);
}

// Tells the system about a new routine; false when it refuses. From routine to routine the system's
// handler stays, also one that somebody else installed before the start: programs rely on theirs
// being left alone.
bool install(int sig, pfm_signal_t routine) {
  if (is_routine(handler_sigvec[sig - 1]) && is_routine(routine)) return true;
  struct sigaction action = {};
  action.sa_handler = is_routine(routine) ? pfm_signal_handler : routine;
  action.sa_mask = all_async_signals;
  return sigaction(sig, &action, nullptr) == 0;
}

void run_deferred(int sig) {
  forget_deferred(sig);
  const pfm_signal_t routine = handler_sigvec[sig - 1];
  if (is_routine(routine)) {
    routine(sig);
  } else {
    raise(sig);
  }
}

}  // namespace

void ks::defer_signal(int sig) {
  if (sigismember(&deferred_signals, sig) == 1) return;
  sigaddset(&deferred_signals, sig);
  ++pfm_pending_count;
}

void ks::forget_deferred_signals() {
  sigemptyset(&deferred_signals);
  pfm_pending_count = 0;
  last_inh_signal = 0;
}

// A routine may raise out of the loop: the jump restores the mask, and what is left stays pending.
void ks::deliver_pending() {
  KS_ASSERT(pfm_inh_count == 0);
  const int saved_errno = errno;
  signals_blocked([] {
    last_inh_signal = 0;
    for (int sig = 1; sig <= kSignals; ++sig) {
      if (sigismember(&deferred_signals, sig) == 1 && !suspend_held(sig)) run_deferred(sig);
    }
  });
  errno = saved_errno;
}

pfm_signal_t pfm_signal(int sig, pfm_signal_t routine) {
  pfm_init();
  if (!can_be_caught(sig) || routine == SIG_ERR) {
    errno = EINVAL;
    return SIG_ERR;
  }
  // All are blocked, so that a fault of another signal finds the table and the system agreed.
  sigset_t blocked = all_async_signals;
  sigaddset(&blocked, sig);
  sigset_t mask;
  sigprocmask(SIG_BLOCK, &blocked, &mask);
  pfm_signal_t old = SIG_ERR;
  if (install(sig, routine)) old = std::exchange(handler_sigvec[sig - 1], routine);
  sigdelset(&mask, sig);
  sigprocmask(SIG_SETMASK, &mask, nullptr);
  return old;
}

void ks::take_over_signals() {
  for (int sig : {SIGINT, SIGHUP, SIGTERM}) {
    if (handler_sigvec[sig - 1] != SIG_IGN) pfm_signal(sig, pfm_quit_signal_catcher);
  }
  default_child_signal();
  pfm_signal(SIGTSTP, pfm_suspend_signal_catcher);
}

void ks::read_signal_table() {
  for (int sig = 1; sig <= kSignals; ++sig) handler_sigvec[sig - 1] = installed_routine(sig);
  sigfillset(&all_async_signals);
  for (int sig : synchronous_signals) sigdelset(&all_async_signals, sig);
  sigemptyset(&all_user_signals);
  for (int sig : user_signals) sigaddset(&all_user_signals, sig);
}

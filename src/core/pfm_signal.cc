// The table of signal routines behind one catcher, and the signals that wait for delivery.
#include <unistd.h>

#include <cerrno>
#include <cstdio>
#include <cstdlib>

#include "core/ks_assert.h"
#include "pfm.h"
#include "core/pfm_internal.h"

namespace ks {
int32_t pfm_pending_count = 0;
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

// Anything but SIG_DFL and SIG_IGN is a routine to be called.
bool is_routine(pfm_signal_t routine) { return reinterpret_cast<uintptr_t>(routine) > 1; }

// SIGTSTP alone is also held back by the suspend count.
bool suspend_held(int sig) { return sig == SIGTSTP && pfm_inh_susp_count != 0; }

void forget_deferred(int sig) {
  sigdelset(&deferred_signals, sig);
  KS_ASSERT(--pfm_pending_count >= 0);
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
  if (pfm_inh_count == 0 && !suspend_held(sig)) {
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

// A routine may raise out of the loop: the jump restores the mask, and what is left stays pending.
void ks::deliver_pending() {
  KS_ASSERT(pfm_inh_count == 0);
  signals_blocked([] {
    last_inh_signal = 0;
    for (int sig = 1; sig <= kSignals; ++sig) {
      if (sigismember(&deferred_signals, sig) == 1 && !suspend_held(sig)) run_deferred(sig);
    }
  });
}

pfm_signal_t pfm_signal(int sig, pfm_signal_t routine) {
  pfm_init();
  if (sig < 1 || sig > kSignals) {
    errno = EINVAL;
    return SIG_ERR;
  }
  struct sigaction action = {};
  action.sa_handler = is_routine(routine) ? pfm_signal_handler : routine;
  action.sa_mask = all_async_signals;

  sigset_t mask;
  sigset_t set;
  sigemptyset(&set);
  sigaddset(&set, sig);
  sigprocmask(SIG_BLOCK, &set, &mask);
  const pfm_signal_t old = handler_sigvec[sig - 1];
  // From routine to routine the system's handler stays, also one that somebody else installed
  // before the start: programs rely on theirs being left alone.
  if (!is_routine(old) || !is_routine(routine)) sigaction(sig, &action, nullptr);
  handler_sigvec[sig - 1] = routine;
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

// Rows of the fault manager.
#include "pfm.h"

#include <unistd.h>

#include <algorithm>
#include <cerrno>
#include <csignal>
#include <cstdio>
#include <cstdlib>
#include <string>

#include "imsg.h"
#include "support/signals.h"
#include "sweep/output.h"
#include "sweep/panic.h"
#include "sweep/row.h"

namespace ks_test {
namespace {

constexpr int kSignal = SIGUSR1;  // the sweep's own is SIGUSR2
constexpr int kFault = 1001;      // of a row's own, which no signal has as its number

struct {
  int noted;               // signals that have come to note
  int hooked;              // exit hooks that have run
  bool registered;         // there was one to run
  int32_t held;            // signals held back, seen in the middle of a call
  int32_t waiting;         // signals that waited, likewise
  int error;               // errno behind a panic
  int pipe[2];             // with one byte to be read
  bool undone;             // the system had the routine again when the last call was undone
  pfm_exit_routine_t old;  // what pfm_set_exit returned
} own;

void note(int) { ++own.noted; }

void forget() { own.noted = own.hooked = own.held = own.waiting = 0; }

const char *nothing_is_held(bool done) {
  if (!done) return "it came to another end";
  if (pfm_inhibit_count() != 0 || pfm_inhibit_suspend_count() != 0) return "signals are held back";
  return pfm_blocked_count() == 0 ? nullptr : "a signal waits";
}

const char *noted_once(bool done) {
  if (own.noted != 1) return "the signal's routine has not run once";
  return nothing_is_held(done);
}

const char *held_once(bool done) {
  return own.held == 1 ? nothing_is_held(done) : "the body did not hold signals back once";
}

// Records

bool arm_and_release() {
  pfm_cleanup_rec_t rec = {};
  const int status = PFM_CLEANUP_START(&rec, 0);
  if (status != 0) pfm_raise(status);
  pfm_cleanup_rls(&rec);
  return true;
}

bool arm_and_hold() {
  pfm_cleanup_rec_t rec = {};
  const int status = PFM_CLEANUP_START(&rec, 1);
  if (status != 0) pfm_raise(status);
  own.held = pfm_inhibit_count();
  pfm_enable();
  pfm_cleanup_rls(&rec);
  return true;
}

bool land_once() {
  return ends_in(kFault, [] { pfm_raise(kFault); });
}

bool land_below_zero() {
  return ends_in(-kFault, [] { pfm_raise(-kFault); });
}

bool land_outward() {
  return ends_in(kFault, [] { ends_in(kFault + 1, [] { pfm_raise(kFault); }); });
}

bool land_and_reset() {
  pfm_cleanup_rec_t rec = {};
  const int status = PFM_CLEANUP_START(&rec, 0);
  if (status == 0) pfm_raise(kFault);
  if (status != kFault) pfm_raise(status);
  pfm_cleanup_reset(&rec);
  pfm_cleanup_rls(&rec);
  return true;
}

bool defer_nothing() {
  return ends_in(kFault, [] { pfm_raise_deferred(kFault); });
}

void note_interrupts() { pfm_signal(SIGINT, note); }

bool defer_fault() {
  pfm_inhibit();
  pfm_raise_deferred(kFault);
  own.waiting = pfm_blocked_count();
  pfm_enable();
  return own.waiting >= 1;
}

// Signals held back

void note_user_signals() { pfm_signal(kSignal, note); }

bool hold_and_enable() {
  pfm_inhibit();
  own.held = pfm_inhibit_count();
  pfm_enable();
  return true;
}

bool hold_back_a_signal() {
  pfm_inhibit();
  const bool sent = raise(kSignal) == 0;
  pfm_enable();
  return sent;
}

void note_stops() { pfm_signal(SIGTSTP, note); }

bool hold_stops() {
  pfm_inhibit_suspend();
  own.held = pfm_inhibit_suspend_count();
  pfm_enable_suspend();
  return true;
}

bool hold_back_a_stop() {
  pfm_inhibit_suspend();
  const bool sent = raise(SIGTSTP) == 0;
  pfm_enable_suspend();
  return sent;
}

// Routines of signals

bool install() { return pfm_signal(kSignal, note) != SIG_ERR; }

const char *routine_is_called(bool done) {
  if (is_blocked(kSignal)) return "the signal is blocked";
  send_signal(kSignal);
  return noted_once(done);
}

void give_back() {
  pfm_signal(kSignal, SIG_DFL);
  own.undone = system_action(kSignal).sa_handler == SIG_DFL;
  forget();
}

pfm_signal_t of_the_system(bool ignored) { return ignored ? SIG_IGN : SIG_DFL; }

template <bool kIgnored>
bool give_to_system() {
  return pfm_signal(kSignal, of_the_system(kIgnored)) != SIG_ERR;
}

template <bool kIgnored>
const char *system_has(bool done) {
  if (!own.undone) return "the signal did not come back to its routine";
  if (is_blocked(kSignal)) return "the signal is blocked";
  if (system_action(kSignal).sa_handler != of_the_system(kIgnored)) {
    return "the system has another action";
  }
  return nothing_is_held(done);
}

void take_again() {
  pfm_signal(kSignal, note);
  own.undone =
      system_action(kSignal).sa_handler != SIG_DFL && system_action(kSignal).sa_handler != SIG_IGN;
}

void ignore(int) {}

bool exchange() { return pfm_signal(kSignal, note) == ignore; }

void put_ignore() {
  pfm_signal(kSignal, ignore);
  forget();
}

// Waiting

void make_pipe() {
  note_user_signals();
  if (pipe(own.pipe) != 0 || write(own.pipe[1], "x", 1) != 1) abort();
}

int wait_for_pipe(int end, long microseconds) {
  fd_set set;
  FD_ZERO(&set);
  FD_SET(own.pipe[end], &set);
  timeval timeout = {0, microseconds};
  return pfm_select_inhibited(std::max(own.pipe[0], own.pipe[1]) + 1, &set, nullptr, nullptr,
                              &timeout);
}

bool wait_ready() {
  pfm_inhibit();
  const int ready = wait_for_pipe(0, 1000000);
  pfm_enable();
  return ready == 1;
}

bool wait_out() {
  pfm_inhibit();
  const int ready = wait_for_pipe(1, 1000);  // the end for writing is never readable
  pfm_enable();
  return ready == 0;
}

bool wait_signalled() {
  pfm_inhibit();
  const bool sent = raise(kSignal) == 0;
  const int ready = wait_for_pipe(1, 1000000);
  pfm_enable();
  return sent && ready == -1;
}

const char *told_or_done(bool) { return nothing_is_held(true); }

// The end of the process

[[noreturn]] void leave(int status) { pfm_raise(status); }

void leave_by_fault() { pfm_set_exit(leave); }

void count_hook(int, void *) { ++own.hooked; }

bool set_exit() {
  own.old = pfm_set_exit(leave);
  return true;
}

const char *exit_is_set(bool done) {
  if (pfm_set_exit(leave) != leave) return "another routine was set";
  return nothing_is_held(done);
}

void reset_exit() { pfm_set_exit(exit); }

bool exit_by_fault() {
  return ends_in(kFault, [] { pfm_exit(kFault); });
}

bool hook_exit() {
  pfm_inhibit();
  pfm_on_exit(count_hook, nullptr);
  own.registered = true;
  pfm_enable();
  return true;
}

const char *hooks_run(bool) {
  exit_by_fault();
  if (own.hooked != 1) return "the hook has not run once";
  return nothing_is_held(true);
}

bool exit_with_hook() {
  hook_exit();
  return ends_in(kFault, [] { pfm_exit(kFault); });
}

const char *hook_ran(bool done) {
  return own.hooked == 1 ? nothing_is_held(done) : "the hook has not run once";
}

// The storage of a hook stays: each round is to leave that of one.
void forget_hooks() {
  exit_by_fault();
  if (!own.registered) exit_with_hook();
  own.registered = false;
  forget();
}

void catch_panics() {
  expect_panics();
  catch_streams();
  imsg_print(IMSG_TYPE_ERROR, "%s", -1, "");  // what the first message makes, stays
  forget_streams();
}

template <class End>
bool end_by_panic(End end) {
  errno = 0;
  const bool ended = ends_in(SIGABRT, end);
  own.error = errno;
  return ended;
}

bool panic() {
  return end_by_panic([] { pfm_panic("place.cc", 7); });
}

// A line that the system refuses is lost; one that a signal interrupts is not.
bool was_refused() {
  return own.error == EIO || own.error == ENOSPC || own.error == EMFILE || own.error == EACCES;
}

const char *panic_is_told(bool done) {
  if (!was_refused() && caught_err() != "noname: Error: ***ABORT***  'place.cc':7\n")
    return "the line is another";
  return nothing_is_held(done);
}

bool fail_assertion() {
  return end_by_panic([] { pfm_assert_fail("a < b", "place.cc", 7); });
}

// Only the first assertion of a process is printed as a message, with its prefix.
const char *assertion_is_told(bool done) {
  if (!was_refused() && !caught_err().ends_with("PFM_ASSERT:(a < b) failed: 'place.cc':7\n")) {
    return "the line is another";
  }
  return nothing_is_held(done);
}

constexpr SweepRow interruptible(SweepRow row) {
  row.interruptible = true;
  return row;
}

constexpr SweepRow panicking(SweepRow row) {
  row.panics = true;
  return row;
}

constexpr SweepRow rows[] = {
    {"pfm_cleanup_start", "", nullptr, arm_and_release, nothing_is_held, nullptr},
    {"pfm_cleanup_start", "signals held", nullptr, arm_and_hold, held_once, forget},
    {"pfm_cleanup_start", "a fault lands", nullptr, land_once, nothing_is_held, nullptr},
    {"pfm_cleanup_rls", "", nullptr, arm_and_release, nothing_is_held, nullptr},
    {"pfm_cleanup_rls", "behind a negative status", nullptr, land_below_zero, nothing_is_held,
     nullptr},
    {"pfm_cleanup_reset", "", nullptr, land_and_reset, nothing_is_held, nullptr},
    {"pfm_raise", "", nullptr, land_once, nothing_is_held, nullptr},
    {"pfm_raise", "through two records", nullptr, land_outward, nothing_is_held, nullptr},
    {"pfm_raise_deferred", "nothing held", nullptr, defer_nothing, nothing_is_held, nullptr},
    {"pfm_raise_deferred", "signals held", note_interrupts, defer_fault, noted_once, forget},
    {"pfm_inhibit", "", nullptr, hold_and_enable, held_once, forget},
    {"pfm_enable", "", nullptr, hold_and_enable, held_once, forget},
    {"pfm_enable", "a signal waits", note_user_signals, hold_back_a_signal, noted_once, forget},
    {"pfm_inhibit_suspend", "", nullptr, hold_stops, held_once, forget},
    {"pfm_enable_suspend", "", nullptr, hold_stops, held_once, forget},
    {"pfm_enable_suspend", "a stop waits", note_stops, hold_back_a_stop, noted_once, forget},
    {"pfm_signal", "from the default", nullptr, install, routine_is_called, give_back},
    {"pfm_signal", "to the default", take_again, give_to_system<false>, system_has<false>,
     take_again},
    {"pfm_signal", "to ignoring", take_again, give_to_system<true>, system_has<true>, take_again},
    {"pfm_signal", "another routine", put_ignore, exchange, routine_is_called, put_ignore},
    interruptible({"pfm_select_inhibited", "ready", make_pipe, wait_ready, told_or_done, nullptr}),
    interruptible({"pfm_select_inhibited", "timeout", make_pipe, wait_out, told_or_done, nullptr}),
    interruptible(
        {"pfm_select_inhibited", "a signal waits", make_pipe, wait_signalled, noted_once, forget}),
    panicking({"pfm_on_exit", "", leave_by_fault, hook_exit, hooks_run, forget_hooks}),
    {"pfm_set_exit", "", nullptr, set_exit, exit_is_set, reset_exit},
    {"pfm_exit", "", leave_by_fault, exit_by_fault, nothing_is_held, nullptr},
    panicking({"pfm_exit", "with a hook", leave_by_fault, exit_with_hook, hook_ran, forget_hooks}),
    {"pfm_panic", "", catch_panics, panic, panic_is_told, forget_streams},
    {"pfm_assert_fail", "", catch_panics, fail_assertion, assertion_is_told, forget_streams, true},
};

constexpr SweepExemption exemptions[] = {
    {"pfm_init", "has run when the first record is armed; a second call does nothing"},
    {"pfm_inhibit_count", "reads a count"},
    {"pfm_inhibit_suspend_count", "reads a count"},
    {"pfm_blocked_count", "reads a count"},
};

}  // namespace

const SweepModule kSweepPfm = {rows, exemptions};

}  // namespace ks_test

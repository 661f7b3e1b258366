// Children, and signals as events. A sleeping child ends by a signal that the row sends to it, with
// the system's action; all of a row's children are gone behind each round.
#include <sys/prctl.h>
#include <sys/wait.h>
#include <unistd.h>

#include <csignal>
#include <cstring>
#include <string>

#include "pfm.h"
#include "procutl.h"
#include "rt.h"
#include "sweep/answers.h"

using namespace ks_test;

namespace {

struct State {
  pid_t pid;
  int deaths;  // that the callback was told of
  int status;
  int arrivals;  // of the signal
  int was_pending;
  struct rt_event end;
};
State state;

void note_death(pid_t, int status, void *, rt_proc_t *) {
  ++state.deaths;
  state.status = status;
}

void shut_down(void *) { rt_shutdown(); }

// The first wait makes sets that stay; which turn of a loop it is, is up to the clock.
void run_loop() {
  rt_poll();
  rt_sched_int(shut_down, nullptr, 0, &state.end, sizeof state.end);
  rt_run();
  rt_unsched(&state.end);
}

// Ends those children that live, and waits, two seconds at most, until the loop has none.
void end_children() {
  if (state.pid > 0 && rt_proc_alive(state.pid) != 0) kill(state.pid, SIGKILL);
  for (int i = 0; i < 2000 && rt_proc_any_procs() != 0; ++i) {
    raise(SIGCHLD);  // for a death that a failing call has not told
    run_loop();
    usleep(1000);
  }
  state.pid = 0;
}

void forget() {
  run_loop();
  end_children();
  state.deaths = 0;
}

// SIGCHLD, for which a second call finds the loop's own routine.
bool take_over() { return rt_proc_initialize() == 0; }
void give_back() { pfm_signal(SIGCHLD, SIG_DFL); }

// Children that end at once, and are waited for in the loop.
void note_death_and_shut_down(pid_t pid, int status, void *arg, rt_proc_t *record) {
  note_death(pid, status, arg, record);
  rt_shutdown();
}

// A child that could not be recorded leaves a hold.
bool fork_and_run() {
  pfm_inhibit();
  const int32_t holds = pfm_inhibit_count();
  const pid_t pid = rt_proc_fork(note_death_and_shut_down, nullptr);
  if (pid == 0) _exit(7);
  while (pfm_inhibit_count() > holds) pfm_enable();
  pfm_enable();
  if (pid < 0) return false;
  rt_run();
  return true;
}

bool announce_and_run() {
  pfm_inhibit();
  const pid_t pid = fork();
  if (pid == 0) _exit(7);
  const bool done =
      pid > 0 && rt_proc_birth_announcement(pid, note_death_and_shut_down, nullptr) == 0;
  pfm_enable();
  if (done) rt_run();
  return done;
}

const char *check_one_death(bool done) {
  if (!done) return state.deaths == 0 ? nullptr : "a death in spite of the failure";
  if (state.deaths != 1) return "not one death";
  if (rt_proc_any_procs() != 0) return "the loop waits for a child that is gone";
  return WIFEXITED(state.status) && WEXITSTATUS(state.status) == 7 ? nullptr : "another status";
}

// A fault may have come between rt_shutdown and the end of the loop; and a child that nobody could
// record has been terminated, and is reaped by whoever waits for it.
void forget_run() {
  rt_shutdown();
  rt_run();
  forget();
  while (waitpid(-1, nullptr, 0) > 0) {
  }
}

// A child that sleeps, no longer than this process lives. What the process has made of SIGTERM is none
// of its own.
pid_t fork_sleeper() {
  sigset_t term;
  sigset_t before;
  sigemptyset(&term);
  sigaddset(&term, SIGTERM);
  sigprocmask(SIG_BLOCK, &term, &before);
  const pid_t parent = getpid();
  const pid_t pid = fork();
  if (pid == 0) {
    prctl(PR_SET_PDEATHSIG, SIGKILL);
    if (getppid() != parent) _exit(0);  // the row may have ended before
    signal(SIGTERM, SIG_DFL);
    sigprocmask(SIG_SETMASK, &before, nullptr);
    while (true) pause();
  }
  sigprocmask(SIG_SETMASK, &before, nullptr);
  return pid;
}

void start_sleeper() {
  forget();
  pfm_inhibit();
  state.pid = fork_sleeper();
  rt_proc_birth_announcement(state.pid, note_death, nullptr);
  pfm_enable();
}

template <bool (*kCall)()>
constexpr SweepRow sleeper_row(std::string_view function, const char *(*check)(bool)) {
  return anew({function, "", warm<start_sleeper>, kCall, check, start_sleeper});
}

const char *check_unheard(bool) {
  end_children();
  return state.deaths == 0 ? nullptr : "a death that nobody asked for";
}

// Waits, two seconds at most, for the loop to be told.
const char *check_terminated(bool done) {
  if (!done) return nullptr;
  for (int i = 0; i < 2000 && state.deaths == 0; ++i) {
    run_loop();
    usleep(1000);
  }
  if (state.deaths != 1) return "the child lives";
  return WIFSIGNALED(state.status) && WTERMSIG(state.status) == SIGTERM ? nullptr : "another end";
}

// A sleeper that the loop knows nothing of.
void start_own_sleeper() {
  if (state.pid > 0) {
    kill(state.pid, SIGKILL);
    waitpid(state.pid, nullptr, 0);
  }
  state.pid = fork_sleeper();
}

const char *check_own_terminated(bool done) {
  if (!done) return nullptr;
  int status;
  if (waitpid(state.pid, &status, 0) != state.pid) return "no child";
  state.pid = 0;
  return WIFSIGNALED(status) && WTERMSIG(status) == SIGTERM ? nullptr : "another end";
}

// Signals. SIGUSR1 is ignored until it is handled, and once more behind that.
void note_signal(int, void *) { ++state.arrivals; }

bool handle_signal() { return rt_handle_signal(SIGUSR1, note_signal, nullptr) == 1; }
bool unhandle_signal() { return rt_unhandle_signal(SIGUSR1, &state.was_pending) == 1; }
void drop_signal() { unhandle_signal(); }

void ignore_signal() { pfm_signal(SIGUSR1, SIG_IGN); }

const char *check_arrivals(int expected) {
  state.arrivals = 0;
  raise(SIGUSR1);
  run_loop();
  return state.arrivals == expected ? nullptr : "not as many arrivals as told";
}

// One that has come, and whose callback has not run.
void handle_and_raise() {
  ignore_signal();
  handle_signal();
  raise(SIGUSR1);
}

const char *check_cancelled(bool done) {
  if (!done || state.was_pending != 1) return "it was not pending";
  return check_arrivals(0);
}

constexpr SweepRow kRows[] = {
    answer_row<take_over>("rt_proc_initialize", "", warm_messages, give_back),
    cold(answer_row<take_over>("rt_proc_initialize", "", warm_messages, give_back)),
    anew({"rt_proc_fork", "", warm<forget>, fork_and_run, check_one_death, forget_run}),
    anew({"rt_proc_birth_announcement", "", warm<forget>, announce_and_run, check_one_death,
          forget_run}),
    sleeper_row<[] { return rt_proc_disown(state.pid) == 0; }>("rt_proc_disown", check_unheard),
    sleeper_row<[] { return rt_proc_killall() == 0; }>("rt_proc_killall", check_terminated),
    anew(answer_row<[] { return rt_proc_any_procs() == 1; }>("rt_proc_any_procs", "",
                                                             warm<start_sleeper>)),
    anew(answer_row<[] { return rt_proc_alive(state.pid) == 1; }>("rt_proc_alive", "",
                                                                  warm<start_sleeper>)),
    {"rt_handle_signal", "", warm<ignore_signal>, handle_signal,
     [](bool done) { return check_arrivals(done ? 1 : 0); }, drop_signal},
    {"rt_unhandle_signal", "", warm<handle_and_raise>, unhandle_signal, check_cancelled,
     handle_and_raise},
    answer_row<[] { return procutl_exists(getpid()) == 1; }>("procutl_exists"),
    anew({"procutl_terminate", "", warm<start_own_sleeper>,
          [] { return procutl_terminate(state.pid) == 0; }, check_own_terminated,
          start_own_sleeper}),
};

}  // namespace

const SweepModule ks_test::kSweepRtProc = {kRows, {}};

// The loop. Events are scheduled for now, so that a check sees them fire; what is waiting in the
// pipe is one byte.
#include <fcntl.h>
#include <unistd.h>

#include <cstring>
#include <ctime>
#include <string>

#include "pfm.h"
#include "rt.h"
#include "sweep/answers.h"
#include "sweep/panic.h"

using namespace ks_test;

namespace {

struct State {
  char notes[16];  // a letter for each callback that ran
  struct rt_event *event;
  struct rt_event storage;  // of rt_sched_int
  struct rt_event end;      // of the event that ends the loop
  struct rt_event arrived;  // of an event that a signal's routine schedules
  int arrivals;             // of such events, that are due
  int fds[2];
  fd_set set;
};
State state;

void note(char letter) {
  const size_t length = strlen(state.notes);
  if (length + 1 < sizeof state.notes) state.notes[length] = letter;
}

void forget_notes() { memset(state.notes, 0, sizeof state.notes); }

void note_event(void *) { note('e'); }
void shut_down(void *) { rt_shutdown(); }

// The byte stays in the pipe.
void note_fd(int, void *) { note('f'); }
void note_set(fd_set *ready, void *) {
  if (FD_ISSET(state.fds[0], ready)) note('s');
}

// What the routine of a signal does to the list while a call is at it: the event must fire as well.
void note_arrival(void *) { --state.arrivals; }

void schedule_in_routine() {
  ++state.arrivals;
  rt_sched_int(note_arrival, nullptr, 0, &state.arrived, sizeof state.arrived);
}

constexpr SweepRow with_arrivals(SweepRow row) {
  row.arrive = schedule_in_routine;
  return row;
}

// Runs the loop until all that is due has fired.
void run_loop() {
  rt_poll();  // the first wait makes sets that stay; whether the loop waits is up to the clock
  rt_sched_int(shut_down, nullptr, 0, &state.end, sizeof state.end);
  rt_run();
}

const char *check_one_event(bool done) {
  forget_notes();
  run_loop();
  if (state.arrivals != 0) return "not every event of a signal's routine";
  return strcmp(state.notes, done ? "e" : "") == 0 ? nullptr : "not as many events as told";
}

const char *check_no_event(bool done) { return done ? check_one_event(false) : nullptr; }

void unschedule() {
  if (state.event != nullptr) rt_unsched(state.event);
  state.event = nullptr;
}

void schedule() {
  unschedule();
  state.event = rt_sched(note_event, nullptr, 0);
}

void schedule_own() {
  unschedule();
  state.event = rt_sched_int(note_event, nullptr, 0, &state.storage, sizeof state.storage);
}

// The event is stored before signals come in.
template <auto kSchedule>
bool keep_event() {
  pfm_inhibit();
  state.event = kSchedule();
  pfm_enable();
  return state.event != nullptr;
}

template <auto kSchedule>
constexpr SweepRow sched_row(std::string_view function) {
  return with_arrivals(
      {function, "", warm_messages, keep_event<kSchedule>, check_one_event, unschedule});
}

bool schedule_int() {
  rt_sched_int(note_event, nullptr, 0, &state.storage, sizeof state.storage);
  return true;
}

bool cancel() { return rt_unsched(state.event) == 1; }

// A new event in place of the old one, which `undo` makes anew.
struct rt_event *reschedule() {
  return rt_resched(state.event, 0);
}

// Descriptors.
void open_pipe() {
  if (pipe2(state.fds, O_CLOEXEC) != 0 || write(state.fds[1], "x", 1) != 1) abort();
  FD_ZERO(&state.set);
  FD_SET(state.fds[0], &state.set);
}

bool handle_fd() { return rt_handle_fd(RT_FD_READ, note_fd, state.fds[0], nullptr) == 1; }
bool handle_set() { return rt_handle_fd_set(RT_FD_READ, note_set, &state.set, nullptr) == 1; }
bool unhandle_fd() { return rt_unhandle_fd(RT_FD_READ, state.fds[0]) == 1; }
bool unhandle_set() { return rt_unhandle_fd_set(RT_FD_READ, &state.set) == 1; }

void drop_handlers() {
  unhandle_fd();
  unhandle_set();
}

template <bool (*kHandle)()>
void handle_again() {
  drop_handlers();
  kHandle();
}

template <bool (*kHandle)()>
void open_and_handle() {
  open_pipe();
  kHandle();
}

const char *check_polled(const char *expected) {
  forget_notes();
  rt_poll();
  return strcmp(state.notes, expected) == 0 ? nullptr : "not the handlers that were told";
}

template <char kNote>
const char *check_handled(bool done) {
  constexpr char kNotes[] = {kNote, '\0'};
  return check_polled(done ? kNotes : "");
}

const char *check_unhandled(bool) { return check_polled(""); }

// The loop: an event, then the pipe, whose handler ends it.
void end_by_fd(int, void *) {
  note('f');
  rt_shutdown();
}

void plan_run() {
  const timeval long_ago = {1, 0};
  forget_notes();
  rt_unsched(&state.arrived);
  state.arrivals = 0;
  unschedule();
  state.event = rt_sched_abs(note_event, nullptr, &long_ago);
}

void prepare_run() {
  open_pipe();
  rt_handle_fd(RT_FD_READ, end_by_fd, state.fds[0], nullptr);
  plan_run();
}

// A fault may have come between rt_shutdown and the end of the loop.
void plan_next_run() {
  rt_shutdown();
  rt_run();
  plan_run();
}

// Without storage, or where select fails, the loop ends the process.
void expect_end_of_run() {
  expect_panics();
  prepare_run();
}

bool run_once() {
  return !ends_in(SIGABRT, [] { rt_run(); });
}

const char *check_run(bool done) {
  if (!done) return nullptr;
  return strcmp(state.notes, "ef") == 0 ? nullptr : "not the event and then the pipe";
}

void expect_end_of_poll() {
  expect_panics();
  open_and_handle<handle_fd>();
}

Answer poll_once() {
  forget_notes();
  if (ends_in(SIGABRT, [] { rt_poll(); })) return Answer::kTold;
  if (*state.notes == '\0') return Answer::kTold;
  return right_if(strcmp(state.notes, "f") == 0);
}

// A signal ends the one wait of a poll: the next finds what is ready.
constexpr SweepRow interruptible(SweepRow row) {
  row.interruptible = true;
  return row;
}

constexpr SweepRow kRows[] = {
    sched_row<[] { return rt_sched(note_event, nullptr, 0); }>("rt_sched"),
    sched_row<[] {
      const timeval no_time = {};
      return rt_sched_rel(note_event, nullptr, &no_time);
    }>("rt_sched_rel"),
    sched_row<[] {
      const timeval long_ago = {1, 0};
      return rt_sched_abs(note_event, nullptr, &long_ago);
    }>("rt_sched_abs"),
    with_arrivals({"rt_sched_int", "", warm_messages, schedule_int, check_one_event,
                   [] { rt_unsched(&state.storage); }}),
    with_arrivals({"rt_unsched", "", warm<schedule>, cancel, check_no_event, schedule}),
    with_arrivals({"rt_unsched", "the caller's storage", warm<schedule_own>, cancel, check_no_event,
                   schedule_own}),
    with_arrivals(
        {"rt_resched", "", warm<schedule>, keep_event<reschedule>, check_one_event, schedule}),
    with_arrivals({"rt_resched", "the caller's storage", warm<schedule_own>, keep_event<reschedule>,
                   check_one_event, schedule_own}),
    {"rt_handle_fd", "", warm<open_pipe>, handle_fd, check_handled<'f'>, drop_handlers},
    {"rt_handle_fd_set", "", warm<open_pipe>, handle_set, check_handled<'s'>, drop_handlers},
    {"rt_unhandle_fd", "", warm<open_and_handle<handle_fd>>, unhandle_fd, check_unhandled,
     handle_again<handle_fd>},
    {"rt_unhandle_fd_set", "", warm<open_and_handle<handle_set>>, unhandle_set, check_unhandled,
     handle_again<handle_set>},
    answer_row<[] { return rt_fd_validate_max_fd(2000) == 0; }>("rt_fd_validate_max_fd"),
    with_arrivals({"rt_run", "", warm<expect_end_of_run>, run_once, check_run, plan_next_run}),
    cold(
        with_arrivals({"rt_run", "", warm<expect_end_of_run>, run_once, check_run, plan_next_run})),
    interruptible(answer_row<poll_once>("rt_poll", "", warm<expect_end_of_poll>)),
    interruptible(cold(answer_row<poll_once>("rt_poll", "", warm<expect_end_of_poll>))),
    answer_row<[] {
      rt_init();
      return rt_async == 0;
    }>("rt_init"),
};

constexpr SweepExemption kExemptions[] = {
    {"rt_shutdown", "sets one flag"},
    {"rt_async", "a variable"},
};

}  // namespace

const SweepModule ks_test::kSweepRt = {kRows, kExemptions};

// No signal is lost on the way into the loop's sleep, and none that raises a fault leaves the lists in
// pieces: it arrives at every single instruction.
#include <gtest/gtest.h>
#include <malloc.h>
#include <sys/select.h>
#include <unistd.h>

#include <csignal>
#include <cstdio>
#include <ostream>
#include <string>

#include "pfm.h"
#include "proc/rt_support.h"
#include "rt.h"
#include "support/child.h"
#include "support/faults.h"
#include "support/landing.h"
#include "support/signals.h"
#include "support/stepping.h"

using ks_test::kStepBegin;
using ks_test::kStepEnd;
using ks_test::land;
using ks_test::send_signal;
using ks_test::shut_down;

namespace {

// A loop that misses its signal sleeps for ever; this ends it, by the system's own action.
constexpr unsigned kTooLongSeconds = 10;

rt_event woken;  // of the signal routine

void check(bool condition, const char *what) {
  if (condition) return;
  dprintf(STDOUT_FILENO, "not so: %s", what);
  _exit(1);
}

void schedule(int) { rt_sched_int(shut_down, nullptr, 0, &woken, sizeof woken); }

void ask_shut_down(int) { rt_shutdown(); }

// What sends the loop to sleep, and what the signal does.
struct Sleep {
  const char *name;
  void (*prepare)();
  void (*routine)(int);
};

void PrintTo(const Sleep &sleep, std::ostream *out) { *out << sleep.name; }

void prepare_nothing() {}

void prepare_an_event() { rt_sched(shut_down, nullptr, 1000); }

void watch_a_descriptor() {
  int ends[2];
  check(pipe(ends) == 0, "there is a pipe");
  rt_handle_fd(RT_FD_READ, ks_test::note_fd, ends[0], nullptr);
}

class RtWake : public testing::TestWithParam<Sleep> {};

// The round ends where the sleep begins, or where the signal has kept the loop from it.
void run_round(bool traced) {
  alarm(kTooLongSeconds);
  ks_test::signal_in_call("select", 0, traced ? kStepEnd : SIGUSR2);
  send_signal(kStepBegin);
  rt_run();
  send_signal(kStepEnd);
  check(rt_unsched(&woken) == 0, "the loop went on until the event had fired");
  check(pfm_inhibit_count() == 0, "nothing is held back");
  check(pfm_blocked_count() == 0, "no signal waits");
}

TEST_P(RtWake, ASignalAtAnyInstructionOnTheWayIntoTheSleepEndsIt) {
  const ks_test::Steps steps = ks_test::step_through(
      [] {
        ks_test::default_signals();
        pfm_signal(SIGUSR2, GetParam().routine);
        GetParam().prepare();
        run_round(false);  // binds what the round calls
        ks_test::be_traced();
        for (;;) run_round(true);
      },
      SIGUSR2);
  EXPECT_EQ(steps.out, "") << "at place " << steps.done;
  EXPECT_GT(steps.places, 50u);
  EXPECT_EQ(steps.done, steps.places) << steps.end;
}

INSTANTIATE_TEST_SUITE_P(
    Of, RtWake,
    testing::Values(Sleep{"SchedulingWithNothingDue", prepare_nothing, schedule},
                    Sleep{"SchedulingBeforeAnEvent", prepare_an_event, schedule},
                    Sleep{"SchedulingWithADescriptor", watch_a_descriptor, schedule},
                    Sleep{"ShutdownWithNothingDue", prepare_nothing, ask_shut_down},
                    Sleep{"ShutdownBeforeAnEvent", prepare_an_event, ask_shut_down}),
    [](const auto &param) { return std::string(param.param.name); });

// The same with the signal in the middle of select, behind the loop's last look and before the sleep,
// time and again.
TEST(RtWakeInSelect, ASignalBeforeTheSleepEndsIt) {
  for (auto routine : {schedule, ask_shut_down}) {
    pfm_signal(SIGUSR2, routine);
    for (int i = 0; i < 100; ++i) {
      alarm(kTooLongSeconds);
      ks_test::signal_in_call("select", 0, SIGUSR2);
      rt_run();
    }
  }
  alarm(0);
  EXPECT_EQ(pfm_inhibit_count(), 0);
}

// A child that sends a signal for each byte that it gets; the loop asks for the next one as soon as
// one has woken it, so the signals come at all distances from the sleep.
int asking_end;
int turns;

void ask_for_a_signal(void *) {
  if (++turns > 200) return rt_shutdown();
  check(write(asking_end, "", 1) == 1, "the sender listens");
}

TEST(RtWakeInSelect, EachSignalFromOutsideMakesTheLoopTurn) {
  int ends[2];
  ASSERT_EQ(pipe(ends), 0);
  asking_end = ends[1];
  pfm_signal(SIGUSR2,
             [](int) { rt_sched_int(ask_for_a_signal, nullptr, 0, &woken, sizeof woken); });
  ks_test::Child sender([&] {
    close(ends[1]);
    char byte;
    while (read(ends[0], &byte, 1) == 1) kill(getppid(), SIGUSR2);
  });
  alarm(kTooLongSeconds);
  ask_for_a_signal(nullptr);
  rt_run();
  alarm(0);
  EXPECT_EQ(turns, 201);
  for (int end : ends) close(end);
  EXPECT_EQ(sender.finish().end(), "exit 0");
}

// What a fault may interrupt.
struct Change {
  const char *name;
  void (*run)();
};

void PrintTo(const Change &change, std::ostream *out) { *out << change.name; }

constexpr int kFd = 50;
fd_set watched_set;
int fired;

void count_fired(void *) { ++fired; }
void count_fd(int, void *) { ++fired; }
void count_set(fd_set *, void *) { ++fired; }

void change_events() {
  const timeval past = {0, 0};
  rt_sched_abs(count_fired, nullptr, &past);
  rt_event *event = rt_sched(count_fired, nullptr, 2);
  event = rt_resched(event, 0);
  rt_unsched(event);
}

void change_descriptors() {
  rt_handle_fd(RT_FD_READ, count_fd, kFd, nullptr);
  rt_unhandle_fd(RT_FD_READ, kFd);
  rt_handle_fd(RT_FD_READ, count_fd, kFd, nullptr);
}

void change_sets() {
  rt_handle_fd_set(RT_FD_READ, count_set, &watched_set, nullptr);
  rt_unhandle_fd_set(RT_FD_READ, &watched_set);
  rt_handle_fd_set(RT_FD_READ, count_set, &watched_set, nullptr);
}

int calls_of_a_poll() {
  fired = 0;
  rt_poll();
  return fired;
}

// Bytes that the process has allocated; the address sanitizer's allocator does not tell.
size_t allocated() { return mallinfo2().uordblks; }

// Whatever the fault has left of the change, the lists are whole and can be used.
void check_lists() {
  check(pfm_inhibit_count() == 0, "nothing is held back");
  const bool handled = rt_unhandle_fd(RT_FD_READ, kFd) != 0;
  check(!handled || rt_unhandle_fd(RT_FD_READ, kFd) == 0, "a handler is there once");
  const bool set_handled = rt_unhandle_fd_set(RT_FD_READ, &watched_set) != 0;
  check(!set_handled || rt_unhandle_fd_set(RT_FD_READ, &watched_set) == 0, "a set is there once");
  fired = 0;
  rt_run();
  check(fired <= 2, "each event fired once");
  ks_test::take_waits();
  check(calls_of_a_poll() == 0, "nobody is called who is not registered");
  check(ks_test::take_waits()[0].nfds == 0, "nothing is watched any more");
  rt_handle_fd(RT_FD_READ, count_fd, kFd, nullptr);
  check(calls_of_a_poll() == 1, "a handler works again");
  rt_unhandle_fd(RT_FD_READ, kFd);
  ks_test::take_waits();
}

void run_and_stop(void (*change)()) {
  const int status = land([&] {
                       send_signal(kStepBegin);
                       change();
                       send_signal(kStepEnd);
                     }).status;
  if (status != 0) send_signal(kStepEnd);
}

void change_again_and_again(void (*change)()) {
  ks_test::Source source(RT_FD_READ, kFd);
  source.set_ready(true);
  FD_SET(kFd, &watched_set);
  ks_test::simulate_time(1000, 0);
  pfm_signal(SIGUSR2, ks_test::raise_number);
  for (int i = 0; i < 3; ++i) {
    run_and_stop(change);
    check_lists();
  }
  const size_t before = allocated();
  ks_test::be_traced();
  for (;;) {
    run_and_stop(change);
    check_lists();
    check(allocated() == before, "nothing leaks");
  }
}

class RtFault : public testing::TestWithParam<Change> {};

TEST_P(RtFault, MayComeAtEveryInstructionOfAChange) {
  const ks_test::Steps steps =
      ks_test::step_through([] { change_again_and_again(GetParam().run); }, SIGUSR2);
  EXPECT_EQ(steps.out, "") << "at place " << steps.done;
  EXPECT_GT(steps.places, 50u);
  EXPECT_EQ(steps.done, steps.places) << steps.end;
}

INSTANTIATE_TEST_SUITE_P(Of, RtFault,
                         testing::Values(Change{"Events", change_events},
                                         Change{"Descriptors", change_descriptors},
                                         Change{"Sets", change_sets}),
                         [](const auto &param) { return std::string(param.param.name); });

}  // namespace

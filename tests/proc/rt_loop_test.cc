// The loop's turns.
#include <gmock/gmock.h>
#include <gtest/gtest.h>
#include <unistd.h>

#include <cerrno>
#include <csignal>
#include <string>
#include <vector>

#include "pfm.h"
#include "proc/rt_internal.h"
#include "proc/rt_support.h"
#include "rt.h"
#include "support/assertion.h"
#include "support/faults.h"
#include "support/landing.h"
#include "support/signals.h"

using ks_test::arg;
using ks_test::assertion_line;
using ks_test::land;
using ks_test::Landing;
using ks_test::note;
using ks_test::note_and_leave_read;
using ks_test::note_event;
using ks_test::note_fd;
using ks_test::sched_at;
using ks_test::set_clock;
using ks_test::shut_down;
using ks_test::signal_in_call;
using ks_test::simulate_time;
using ks_test::Source;
using ks_test::take_notes;
using ks_test::take_waits;
using ks_test::Wait;
using testing::ElementsAre;
using testing::IsEmpty;
using testing::SizeIs;

namespace {

rt_event *call_at(rt_callback_t callback, long seconds) {
  const timeval time = {seconds, 0};
  return rt_sched_abs(callback, nullptr, &time);
}

// A sleep with nothing registered.
Wait sleep_of(long seconds, long microseconds) { return {0, false, false, seconds, microseconds}; }
const Wait kForEver = sleep_of(-1, 0);

TEST(RtInit, SetsTheLimitsAndKeepsTheLists) {
  simulate_time(1000, 0);
  EXPECT_FALSE(ks::rt_inited);
  EXPECT_EQ(rt_async, 0);
  Source source(RT_FD_READ);
  source.set_ready(true);
  rt_handle_fd(RT_FD_READ, note_and_leave_read, source.fd(), arg("fd"));
  sched_at("event", 999);
  EXPECT_TRUE(ks::rt_inited);
  ks::rt_num_fds = 5;
  rt_async = 1;
  rt_init();
  EXPECT_EQ(ks::rt_num_fds, 1024);
  ASSERT_EQ(rt_async, 0);
  rt_run();
  EXPECT_EQ(take_notes(), (std::vector<std::string>{"event", "fd " + std::to_string(source.fd())}));
}

TEST(RtInit, IsDoneOnceByWhatNeedsIt) {
  void (*const kCalls[])() = {
      [] { rt_run(); },
      [] { rt_poll(); },
      [] { rt_handle_fd(RT_FD_CLOSE, note_fd, 3, nullptr); },
      [] {
        fd_set set;
        rt_handle_fd_set(RT_FD_READ, ks_test::note_set, &set, nullptr);
        rt_unhandle_fd_set(RT_FD_READ, &set);
      },
  };
  simulate_time(1000, 0);
  for (auto call : kCalls) {
    ks::rt_inited = false;
    call();
    EXPECT_TRUE(ks::rt_inited);
    EXPECT_EQ(ks::rt_num_fds, 1024);
    ks::rt_num_fds = 1000;
    call();
    EXPECT_EQ(ks::rt_num_fds, 1000);
  }
}

TEST(RtShutdown, BeforeRunItLeavesNoTurnAndIsUsedUp) {
  simulate_time(1000, 0);
  sched_at("overdue", 999);
  rt_shutdown();
  rt_run();
  EXPECT_THAT(take_notes(), IsEmpty());
  EXPECT_THAT(take_waits(), IsEmpty());
  rt_run();
  EXPECT_THAT(take_notes(), ElementsAre("overdue"));
}

TEST(RtShutdown, EndsTheRunWhenTheTurnIsOver) {
  simulate_time(1000, 0);
  Source first(RT_FD_READ);
  Source second(RT_FD_READ);
  first.set_ready(true);
  second.set_ready(true);
  const auto note_and_shut_down = [](int fd, void *name) {
    note_and_leave_read(fd, name);
    rt_shutdown();
  };
  rt_handle_fd(RT_FD_READ, note_and_leave_read, second.fd(), arg("second"));
  rt_handle_fd(RT_FD_READ, note_and_shut_down, first.fd(), arg("first"));
  rt_run();
  EXPECT_THAT(take_notes(), SizeIs(2)) << "both in one turn";
  EXPECT_THAT(take_waits(), SizeIs(1));
}

TEST(RtRun, WithNothingRegisteredItSleepsWithoutEnd) {
  simulate_time(1000, 0);
  rt_run();
  EXPECT_THAT(take_waits(), ElementsAre(kForEver));
}

TEST(RtRun, FiresOneEventATurn) {
  simulate_time(1000, 0);
  const auto note_and_shut_down = [](void *name) {
    note_event(name);
    rt_shutdown();
  };
  const timeval time = {999, 0};
  for (const char *name : {"1", "2", "3"}) rt_sched_abs(note_and_shut_down, arg(name), &time);
  for (const char *name : {"1", "2", "3"}) {
    rt_run();
    EXPECT_THAT(take_notes(), ElementsAre(name));
  }
  EXPECT_THAT(take_waits(), IsEmpty());
}

TEST(RtRun, AnEventDueNowCostsAWaitThatDoesNotSleepAndFiresInTheNextTurn) {
  simulate_time(1000, 7);
  sched_at("now", 1000, 7);
  rt_run();
  EXPECT_THAT(take_notes(), ElementsAre("now"));
  EXPECT_THAT(take_waits(), ElementsAre(sleep_of(0, 0), kForEver));
}

TEST(RtRun, AnEventOneMicrosecondAgoFiresAtOnce) {
  simulate_time(1000, 0);
  sched_at("just past", 999, 999999);
  sched_at("later", 1000, 1);
  rt_run();
  EXPECT_THAT(take_notes(), ElementsAre("just past", "later"));
  EXPECT_THAT(take_waits(), ElementsAre(sleep_of(0, 1), sleep_of(0, 0), kForEver));
}

TEST(RtRun, SleepsUntilTheNextEventWithBorrow) {
  simulate_time(1000, 700000);
  sched_at("a", 1003, 200000);
  rt_run();
  EXPECT_THAT(take_waits(), ElementsAre(sleep_of(2, 500000), sleep_of(0, 0), kForEver));
}

TEST(RtRun, MicrosecondsOutsideASecondCountAsTheyAre) {
  simulate_time(1000, 0);
  sched_at("3.5", 1001, 2500000);
  sched_at("4.75", 1005, -250000);
  rt_run();
  EXPECT_THAT(take_waits(), ElementsAre(sleep_of(3, 500000), sleep_of(0, 0), sleep_of(1, 249999),
                                        sleep_of(0, 0), kForEver));
  EXPECT_THAT(take_notes(), ElementsAre("3.5", "4.75"));
}

TEST(RtRun, SleepsAtMostAHundredMillionSecondsAndThenTurnsAgain) {
  simulate_time(1000, 0);
  sched_at("far", 200001005, 250000);
  rt_run();
  EXPECT_THAT(take_waits(), ElementsAre(sleep_of(100000000, 250000), sleep_of(100000000, 0),
                                        sleep_of(5, 0), sleep_of(0, 0), kForEver));
  EXPECT_THAT(take_notes(), ElementsAre("far"));
}

TEST(RtRun, AHundredMillionSecondsAreNoTooLong) {
  simulate_time(1000, 0);
  sched_at("far", 100001000, 999999);
  rt_run();
  EXPECT_THAT(take_waits(), ElementsAre(sleep_of(100000000, 999999), sleep_of(0, 0), kForEver));
}

TEST(RtRun, OverdueEventsGoBeforeDescriptors) {
  simulate_time(1000, 0);
  Source source(RT_FD_READ);
  source.set_ready(true);
  rt_handle_fd(RT_FD_READ, note_and_leave_read, source.fd(), arg("fd"));
  sched_at("2", 999, 999999);
  sched_at("1", 5);
  sched_at("later", 1001);
  rt_run();
  EXPECT_THAT(take_notes(), ElementsAre("1", "2", "fd " + std::to_string(source.fd()), "later"));
}

int rounds = 0;

void again_overdue(void *) {
  if (++rounds == 100) return rt_shutdown();
  call_at(again_overdue, 999);
}

TEST(RtRun, KeepsDescriptorsWaitingForAnEventThatIsAlwaysOverdue) {
  simulate_time(1000, 0);
  Source source(RT_FD_READ);
  source.set_ready(true);
  rt_handle_fd(RT_FD_READ, note_fd, source.fd(), arg("fd"));
  call_at(again_overdue, 999);
  rt_run();
  EXPECT_EQ(rounds, 100);
  EXPECT_THAT(take_waits(), IsEmpty());
  EXPECT_THAT(take_notes(), IsEmpty());
}

void note_count(void *) { note("held " + std::to_string(pfm_inhibit_count())); }

TEST(RtRun, CallbacksRunWithSignalsDeliverable) {
  simulate_time(1000, 0);
  call_at(note_count, 999);
  Source source(RT_FD_READ);
  source.set_ready(true);
  rt_handle_fd(
      RT_FD_READ,
      [](int fd, void *) {
        note_count(nullptr);
        rt_unhandle_fd(RT_FD_READ, fd);
      },
      source.fd(), nullptr);
  fd_set writing;
  FD_ZERO(&writing);
  Source sink(RT_FD_WRITE);
  sink.set_ready(true);
  FD_SET(sink.fd(), &writing);
  rt_handle_fd_set(
      RT_FD_WRITE,
      [](fd_set *, void *set) {
        note_count(nullptr);
        FD_ZERO(static_cast<fd_set *>(set));
      },
      &writing, &writing);
  rt_run();
  EXPECT_THAT(take_notes(), ElementsAre("held 0", "held 0", "held 0"));
  EXPECT_EQ(pfm_inhibit_count(), 0);
}

TEST(RtRun, TheClockSetForwardsMakesEventsOverdue) {
  simulate_time(1000, 0);
  sched_at("tomorrow", 87400);
  sched_at("in a year", 31537000);
  call_at([](void *) { set_clock(90000, 0); }, 999);
  rt_run();
  EXPECT_THAT(take_notes(), ElementsAre("tomorrow", "in a year"));
  EXPECT_EQ(take_waits()[0], sleep_of(31537000 - 90000, 0)) << "the first did not wait";
}

TEST(RtRun, TheClockSetBackwardsMakesEventsWaitLonger) {
  simulate_time(1000, 0);
  sched_at("was overdue", 998);
  call_at([](void *) { set_clock(500, 0); }, 997);
  rt_run();
  EXPECT_THAT(take_notes(), ElementsAre("was overdue"));
  EXPECT_EQ(take_waits()[0], sleep_of(498, 0));
}

TEST(RtRun, AFaultOfACallbackLeavesItAndItCanBeEnteredAgain) {
  simulate_time(1000, 0);
  sched_at("1", 997);
  rt_event *raising = call_at([](void *) { pfm_raise(7); }, 998);
  sched_at("2", 999);
  EXPECT_EQ(land([] { rt_run(); }), (Landing{7, 1, 0}));
  EXPECT_THAT(take_notes(), ElementsAre("1"));
  EXPECT_EQ(pfm_inhibit_count(), 0);
  EXPECT_EQ(rt_unsched(raising), 0) << "it has fired";
  EXPECT_EQ(sched_at("3", 999), raising) << "and its record is free";
  rt_run();
  EXPECT_THAT(take_notes(), ElementsAre("2", "3"));
}

TEST(RtRun, AFaultOfAHandlerLeavesItsHandlersInPlace) {
  simulate_time(1000, 0);
  Source source(RT_FD_READ);
  source.set_ready(true);
  const std::string name = " " + std::to_string(source.fd());
  rt_handle_fd(
      RT_FD_READ,
      [](int fd, void *) {
        note_fd(fd, arg("raising"));
        pfm_raise(7);
      },
      source.fd(), nullptr);
  for (int i = 0; i < 2; ++i) {
    EXPECT_EQ(land([] { rt_run(); }), (Landing{7, 1, 0}));
    EXPECT_THAT(take_notes(), ElementsAre("raising" + name));
  }
  EXPECT_EQ(rt_unhandle_fd(RT_FD_READ, source.fd()), 1);
  rt_handle_fd(RT_FD_READ, note_and_leave_read, source.fd(), arg("calm"));
  rt_run();
  EXPECT_THAT(take_notes(), ElementsAre("calm" + name));
}

TEST(RtRun, ASignalEndsTheTurnAndTheEventThatItSchedulesFiresNext) {
  simulate_time(1000, 0);
  Source source(RT_FD_READ);
  source.set_ready(true);
  rt_handle_fd(RT_FD_READ, note_and_leave_read, source.fd(), arg("fd"));
  static rt_event own;
  pfm_signal(SIGUSR1, [](int) {
    note("held " + std::to_string(pfm_inhibit_count()));
    rt_sched_int(note_event, arg("from the signal"), 0, &own, sizeof own);
    set_clock(1000, 1);  // it is overdue
  });
  signal_in_call("select", 0, SIGUSR1);
  rt_run();
  EXPECT_THAT(take_notes(),
              ElementsAre("held 0", "from the signal", "fd " + std::to_string(source.fd())));
}

TEST(RtRun, MayBeNestedInACallback) {
  simulate_time(1000, 0);
  call_at(
      [](void *) {
        note("outer in");
        call_at(shut_down, 999);
        rt_run();
        note("outer out");
      },
      998);
  sched_at("inner", 999);
  sched_at("outer", 1500);
  rt_run();
  EXPECT_THAT(take_notes(), ElementsAre("outer in", "inner", "outer out", "outer"));
}

TEST(RtRunDeathTest, RefusesToWaitWithMoreHeldBack) {
  const std::string line = assertion_line("pfm_inh_count == 1", "src/core/pfm_wait.cc");
  pfm_inhibit();
  EXPECT_DEATH(rt_run(), line);
  EXPECT_DEATH(rt_poll(), line);
}

TEST(RtRunDeathTest, AFailureOfSelectIsAnAssertion) {
  const std::string line = assertion_line("errno == EINTR", "src/proc/rt_fd.cc");
  ks_test::fail_call("select", 0, EBADF);
  EXPECT_DEATH(rt_run(), line);
  ks_test::fail_call("select", 0, EINVAL);
  EXPECT_DEATH(rt_poll(), line);
}

TEST(RtPoll, LeavesAnOverdueEventInPlace) {
  simulate_time(1000, 0);
  sched_at("overdue", 999);
  rt_poll();
  EXPECT_THAT(take_notes(), IsEmpty());
  EXPECT_THAT(take_waits(), ElementsAre(sleep_of(0, 0)));
  EXPECT_EQ(pfm_inhibit_count(), 0);
  rt_run();
  EXPECT_THAT(take_notes(), ElementsAre("overdue"));
}

TEST(RtPoll, DispatchesOnceAndDoesNotLookAtShutdown) {
  simulate_time(1000, 0);
  Source source(RT_FD_READ);
  source.set_ready(true);
  rt_handle_fd(RT_FD_READ, note_fd, source.fd(), arg("fd"));
  rt_shutdown();
  rt_poll();
  EXPECT_THAT(take_notes(), ElementsAre("fd " + std::to_string(source.fd())));
  rt_run();
  EXPECT_THAT(take_notes(), IsEmpty()) << "the shutdown is still there for rt_run";
}

TEST(RtAsync, KeepsOneMoreHoldOnSignalsAtEachAttemptToWait) {
  simulate_time(1000, 0);
  Source source(RT_FD_READ);
  source.set_ready(true);
  rt_handle_fd(RT_FD_READ, note_fd, source.fd(), arg("fd"));
  rt_async = 1;
  rt_poll();
  EXPECT_EQ(pfm_inhibit_count(), 1);
  rt_async = -1;
  rt_poll();
  EXPECT_EQ(pfm_inhibit_count(), 2);
  EXPECT_THAT(take_waits(), IsEmpty());
  EXPECT_THAT(take_notes(), IsEmpty());
}

TEST(RtAsync, OverdueEventsStillFire) {
  simulate_time(1000, 0);
  rt_init();
  rt_async = -1;
  sched_at("1", 998);
  call_at(shut_down, 999);
  rt_run();
  EXPECT_THAT(take_notes(), ElementsAre("1"));
  EXPECT_EQ(pfm_inhibit_count(), 0);
}

// The embedding program moves the clock; the loop tries to wait for the event three times.
TEST(RtAsync, KeepsTheHoldsOfARunThatTriedToWait) {
  simulate_time(1000, 0);
  rt_init();
  rt_async = 1;
  static rt_event own;
  rt_sched_int(shut_down, nullptr, 0, &own, sizeof own);
  ks_test::signal_in_call("gettimeofday", 3, SIGUSR1);
  ks_test::set_system_handler(SIGUSR1, [](int) { set_clock(1001, 0); });
  rt_run();
  EXPECT_EQ(pfm_inhibit_count(), 3);
  EXPECT_THAT(take_waits(), IsEmpty());
}

}  // namespace

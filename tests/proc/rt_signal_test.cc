// Signals as callbacks of the loop.
#include <gmock/gmock.h>
#include <gtest/gtest.h>

#include <cerrno>
#include <csignal>
#include <string>
#include <utility>
#include <vector>

#include "pfm.h"
#include "proc/rt_proc_children.h"
#include "rt.h"
#include "support/faults.h"
#include "support/landing.h"
#include "support/signals.h"

using ks_test::errors_of;
using ks_test::fail_call;
using ks_test::land;
using ks_test::Landing;
using ks_test::note_signal;
using ks_test::note_signals;
using ks_test::run_due_events;
using ks_test::run_due_events_at;
using ks_test::send_signal;
using ks_test::set_clock;
using ks_test::system_action;
using ks_test::take_noted;
using testing::ElementsAre;
using testing::IsEmpty;
using testing::MatchesRegex;

namespace {

constexpr int kUntouched = -77;

// Callbacks in the order in which they came: the signal, and the argument they were given.
using Call = std::pair<int, std::string>;
std::vector<Call> calls;

void note_call(int sig, void *arg) { calls.emplace_back(sig, static_cast<const char *>(arg)); }

std::vector<Call> take_calls() { return std::exchange(calls, {}); }

int handle(int sig, const char *arg = "arg", rt_signal_callback_t callback = note_call) {
  return rt_handle_signal(sig, callback, const_cast<char *>(arg));
}

// Result: was_pending, or kUntouched.
int unhandle(int sig, int result = 1) {
  int was_pending = kUntouched;
  EXPECT_EQ(rt_unhandle_signal(sig, &was_pending), result);
  return was_pending;
}

class RtSignal : public testing::Test {
 protected:
  RtSignal() { ks_test::default_signals(); }
};
using RtHandleSignal = RtSignal;
using RtUnhandleSignal = RtSignal;

TEST_F(RtHandleSignal, CallsBackInTheLoop) {
  EXPECT_EQ(handle(SIGUSR1, "one"), 1);
  EXPECT_EQ(pfm_inhibit_count(), 0);
  run_due_events();
  EXPECT_THAT(take_calls(), IsEmpty());
  for (int i = 0; i < 2; ++i) {
    send_signal(SIGUSR1);
    EXPECT_THAT(take_calls(), IsEmpty());
    run_due_events();
    EXPECT_THAT(take_calls(), ElementsAre(Call(SIGUSR1, "one")));
  }
  run_due_events();
  EXPECT_THAT(take_calls(), IsEmpty());
}

TEST_F(RtHandleSignal, CallsBackWithSignalsDeliverable) {
  handle(SIGUSR1, "one", [](int sig, void *arg) {
    EXPECT_EQ(pfm_inhibit_count(), 0);
    EXPECT_THAT(ks_test::blocked_signals(), IsEmpty());
    note_call(sig, arg);
  });
  send_signal(SIGUSR1);
  run_due_events();
  EXPECT_EQ(take_calls().size(), 1u);
}

TEST_F(RtHandleSignal, TakesEverySignalThatCanBeCaught) {
  std::vector<Call> expected;
  for (int sig = 1; sig <= ks_test::kLastSignal; ++sig) {
    if (!ks_test::is_free(sig)) continue;
    EXPECT_EQ(handle(sig, "any"), 1) << sig;
    send_signal(sig);
    expected.emplace_back(sig, "any");
  }
  run_due_events();
  EXPECT_EQ(take_calls(), expected);
}

TEST_F(RtHandleSignal, EndsTheSleepOfTheLoop) {
  handle(SIGUSR1, "one", [](int sig, void *arg) {
    note_call(sig, arg);
    rt_shutdown();
  });
  ks_test::signal_in_call("select", 0, SIGUSR1);
  rt_run();
  EXPECT_EQ(take_calls().size(), 1u);
}

TEST_F(RtHandleSignal, TakesSigtermFromTheFaultManager) {
  handle(SIGTERM, "one");
  EXPECT_EQ(land([] { send_signal(SIGTERM); }), Landing{});
  run_due_events();
  EXPECT_EQ(take_calls().size(), 1u);
}

TEST_F(RtHandleSignal, ThreeBeforeTheTurnAreOneCall) {
  handle(SIGUSR1, "one");
  handle(SIGUSR2, "two");
  for (int sig : {SIGUSR1, SIGUSR1, SIGUSR2, SIGUSR1}) send_signal(sig);
  run_due_events();
  EXPECT_THAT(take_calls(),
              testing::UnorderedElementsAre(Call(SIGUSR1, "one"), Call(SIGUSR2, "two")));
}

TEST_F(RtHandleSignal, AFurtherOneMovesTheCallToItsOwnTime) {
  handle(SIGUSR1, "one");
  for (long seconds : {100, 150, 200}) {
    set_clock(seconds, 0);
    send_signal(SIGUSR1);
  }
  set_clock(300, 0);
  const timeval before_the_last = {199, 999999};
  const timeval with_the_last = {200, 0};
  rt_sched_abs([](void *) { calls.emplace_back(0, "before"); }, nullptr, &before_the_last);
  rt_sched_abs([](void *) { calls.emplace_back(0, "behind"); }, nullptr, &with_the_last);
  run_due_events_at(300);
  EXPECT_THAT(take_calls(),
              ElementsAre(Call(0, "before"), Call(SIGUSR1, "one"), Call(0, "behind")));
}

TEST_F(RtHandleSignal, ThoseHeldBackAreDeliveredTogether) {
  handle(SIGUSR2, "two");
  handle(SIGUSR1, "one");
  set_clock(100, 0);
  pfm_inhibit();
  for (int sig : {SIGUSR2, SIGUSR1, SIGUSR2, SIGUSR1}) send_signal(sig);
  EXPECT_EQ(pfm_blocked_count(), 2);
  set_clock(200, 0);
  pfm_enable();
  const timeval at_150 = {150, 0};
  rt_sched_abs([](void *) { calls.emplace_back(0, "150"); }, nullptr, &at_150);
  run_due_events_at(300);
  // They count as of their delivery, which is in the order of the signals' numbers.
  EXPECT_THAT(take_calls(),
              testing::ElementsAre(Call(0, "150"), Call(SIGUSR1, "one"), Call(SIGUSR2, "two")));
}

TEST_F(RtHandleSignal, ASecondCallIsRefusedAndTheFirstStays) {
  EXPECT_EQ(errors_of([] {
              EXPECT_EQ(handle(SIGUSR1, "first"), 1);
              EXPECT_EQ(handle(SIGUSR1, "second", [](int, void *) { FAIL(); }), 0);
              EXPECT_EQ(pfm_inhibit_count(), 0);
              send_signal(SIGUSR1);
              EXPECT_EQ(handle(SIGUSR1, "third", [](int, void *) { FAIL(); }), 0);
              run_due_events();
              EXPECT_THAT(take_calls(), ElementsAre(Call(SIGUSR1, "first")));
              EXPECT_EQ(unhandle(SIGUSR1), 0);
              EXPECT_EQ(system_action(SIGUSR1).sa_handler, SIG_DFL);
            }),
            "");
}

TEST_F(RtHandleSignal, RefusesNumbersThatAreNoSignals) {
  EXPECT_EQ(errors_of([] {
              for (int sig : {0, 65, -1, 1 << 30}) {
                errno = 0;
                EXPECT_EQ(handle(sig), 0) << sig;
                EXPECT_EQ(errno, EINVAL) << sig;
                EXPECT_EQ(pfm_inhibit_count(), 0);
                EXPECT_EQ(unhandle(sig, 0), kUntouched) << sig;
              }
            }),
            "");
}

TEST_F(RtHandleSignal, ChangesNothingWithoutStorage) {
  EXPECT_THAT(errors_of([] {
                note_signals({SIGUSR1});
                fail_call("malloc", 0, ENOMEM);
                EXPECT_EQ(handle(SIGUSR1), 0);
                EXPECT_EQ(pfm_inhibit_count(), 0);
                send_signal(SIGUSR1);
                EXPECT_THAT(take_noted(), ElementsAre(SIGUSR1));
                EXPECT_EQ(unhandle(SIGUSR1, 0), kUntouched);
                EXPECT_EQ(handle(SIGUSR1), 1) << "there is storage again";
              }),
              MatchesRegex("noname: Error: No more memory available\\.\n"
                           "noname: Error: Malloc failed at "
                           "\"src/proc/rt_signal\\.cc\":[0-9]+\n"));
}

// A program may take the catcher for a routine of somebody else's and put it back too late.
TEST_F(RtHandleSignal, ASignalWithoutARecordIsAFault) {
  handle(SIGUSR1);
  const pfm_signal_t catcher = pfm_signal(SIGUSR1, note_signal);
  unhandle(SIGUSR1);
  pfm_signal(SIGUSR1, catcher);
  EXPECT_EQ(land([] { send_signal(SIGUSR1); }), (Landing{SIGUSR1, 1, 0}));
  pfm_signal(SIGURG, catcher);
  EXPECT_EQ(land([] { send_signal(SIGURG); }), (Landing{SIGURG, 1, 0}));
  EXPECT_EQ(land([] {
              pfm_inhibit();
              send_signal(SIGURG);
              pfm_enable();
            }),
            (Landing{SIGURG, 1, 0}));
}

TEST_F(RtHandleSignal, AFaultOfTheCallbackLeavesTheLoopWhole) {
  handle(SIGUSR1, "one", [](int sig, void *arg) {
    note_call(sig, arg);
    pfm_raise(9);
  });
  handle(SIGUSR2, "two");
  for (int i = 0; i < 2; ++i) {
    send_signal(SIGUSR1);
    send_signal(SIGUSR2);
    EXPECT_EQ(land([] { rt_run(); }), (Landing{9, 1, 0}));
    EXPECT_THAT(take_calls(), ElementsAre(Call(SIGUSR1, "one")));
    run_due_events();
    EXPECT_THAT(take_calls(), ElementsAre(Call(SIGUSR2, "two")));
  }
}

TEST_F(RtUnhandleSignal, CancelsACallThatWasDue) {
  handle(SIGUSR1, "one");
  handle(SIGUSR2, "two");
  send_signal(SIGUSR1);
  send_signal(SIGUSR2);
  EXPECT_EQ(unhandle(SIGUSR1), 1);
  EXPECT_EQ(pfm_inhibit_count(), 0);
  run_due_events();
  EXPECT_THAT(take_calls(), ElementsAre(Call(SIGUSR2, "two")));
  EXPECT_EQ(unhandle(SIGUSR2), 0) << "it has been called";
}

TEST_F(RtUnhandleSignal, TellsThatNothingWasDue) {
  handle(SIGUSR1);
  EXPECT_EQ(unhandle(SIGUSR1), 0);
}

TEST_F(RtUnhandleSignal, LeavesTheAnswerAloneWithoutARecord) {
  EXPECT_EQ(unhandle(SIGUSR1, 0), kUntouched) << "before the first registration";
  handle(SIGUSR2);
  EXPECT_EQ(unhandle(SIGUSR1, 0), kUntouched);
  EXPECT_EQ(pfm_inhibit_count(), 0);
  EXPECT_EQ(unhandle(SIGUSR2), 0);
  EXPECT_EQ(unhandle(SIGUSR2, 0), kUntouched) << "a second time";
}

TEST_F(RtUnhandleSignal, GivesTheOldRoutineBack) {
  note_signals({SIGUSR1});
  handle(SIGUSR1);
  unhandle(SIGUSR1);
  send_signal(SIGUSR1);
  EXPECT_THAT(take_noted(), ElementsAre(SIGUSR1));
  run_due_events();
  EXPECT_THAT(take_calls(), IsEmpty());
  EXPECT_EQ(pfm_signal(SIGUSR1, SIG_DFL), note_signal);
}

TEST_F(RtUnhandleSignal, GivesDefaultAndIgnoredBackToTheSystem) {
  for (const pfm_signal_t old : {SIG_IGN, SIG_DFL}) {
    pfm_signal(SIGUSR1, old);
    handle(SIGUSR1);
    EXPECT_NE(system_action(SIGUSR1).sa_handler, old);
    unhandle(SIGUSR1);
    EXPECT_EQ(system_action(SIGUSR1).sa_handler, old);
    EXPECT_EQ(pfm_signal(SIGUSR1, old), old);
  }
}

TEST_F(RtUnhandleSignal, TheSignalMayBeHandledAnew) {
  handle(SIGUSR1, "first");
  send_signal(SIGUSR1);
  unhandle(SIGUSR1);
  handle(SIGUSR1, "second");
  send_signal(SIGUSR1);
  run_due_events();
  EXPECT_THAT(take_calls(), ElementsAre(Call(SIGUSR1, "second")));
}

TEST_F(RtUnhandleSignal, ACallbackMayUnhandleItself) {
  handle(SIGUSR1, "one", [](int sig, void *arg) {
    note_call(sig, arg);
    EXPECT_EQ(unhandle(sig), 0);
    EXPECT_EQ(handle(sig, "again"), 1);
  });
  send_signal(SIGUSR1);
  run_due_events();
  send_signal(SIGUSR1);
  run_due_events();
  EXPECT_THAT(take_calls(), ElementsAre(Call(SIGUSR1, "one"), Call(SIGUSR1, "again")));
}

// It has not reached the loop yet, so it is the old routine's.
TEST_F(RtUnhandleSignal, ASignalHeldBackGoesToTheOldRoutine) {
  note_signals({SIGUSR1});
  handle(SIGUSR1);
  pfm_inhibit();
  send_signal(SIGUSR1);
  EXPECT_EQ(unhandle(SIGUSR1), 0);
  EXPECT_THAT(take_noted(), IsEmpty());
  pfm_enable();
  EXPECT_THAT(take_noted(), ElementsAre(SIGUSR1));
}

TEST_F(RtSignal, RefusesSignalsThatNobodyCanCatch) {
  for (int sig : {SIGKILL, SIGSTOP, 32, 33}) {
    errno = 0;
    EXPECT_EQ(errors_of([&] {
                EXPECT_EQ(rt_handle_signal(sig, note_call, nullptr), 0);
                EXPECT_EQ(errno, EINVAL);
              }),
              "")
        << sig;
    EXPECT_EQ(unhandle(sig, 0), kUntouched) << sig;
  }
}

// A signal that comes meanwhile is held back, and leaves the call by a fault when all is done.
TEST_F(RtSignal, IsWholeWhenAFaultLeavesACall) {
  for (const char *call : {"malloc", "sigaction"}) {
    ks_test::signal_in_call(call, 0, SIGINT);
    EXPECT_EQ(land([] { handle(SIGUSR1, "one"); }), (Landing{PFM_STATUS_QUIT, 1, 0})) << call;
    send_signal(SIGUSR1);
    EXPECT_EQ(unhandle(SIGUSR1), 1) << call;
  }
  handle(SIGUSR1, "one");
  send_signal(SIGUSR1);
  ks_test::signal_in_call("sigaction", 0, SIGINT);
  EXPECT_EQ(land([] { rt_unhandle_signal(SIGUSR1, nullptr); }), (Landing{PFM_STATUS_QUIT, 1, 0}));
  EXPECT_EQ(system_action(SIGUSR1).sa_handler, SIG_DFL);
  EXPECT_EQ(unhandle(SIGUSR1, 0), kUntouched);
  run_due_events();
  EXPECT_THAT(take_calls(), IsEmpty());
}

TEST_F(RtSignal, LeavesNoDescriptorsBehind) {
  const std::vector<std::string> before = ks_test::open_descriptors();
  for (int i = 0; i < 20; ++i) {
    handle(SIGUSR1);
    send_signal(SIGUSR1);
    run_due_events();
    unhandle(SIGUSR1);
  }
  EXPECT_EQ(take_calls().size(), 20u);
  EXPECT_EQ(ks_test::open_descriptors(), before);
}

}  // namespace

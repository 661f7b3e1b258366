// The table of routines, the catcher, and the delivery of what was held back.
#include <gmock/gmock.h>
#include <gtest/gtest.h>
#include <sys/mman.h>
#include <sys/time.h>
#include <unistd.h>

#include <cerrno>
#include <climits>
#include <csignal>
#include <cstdio>
#include <string>
#include <vector>

#include "pfm.h"
#include "support/child.h"
#include "support/faults.h"
#include "support/landing.h"
#include "support/signals.h"

using ks_test::blocked_signals;
using ks_test::in_child;
using ks_test::is_blocked;
using ks_test::is_free;
using ks_test::kLastSignal;
using ks_test::land;
using ks_test::Landing;
using ks_test::note_signal;
using ks_test::note_signals;
using ks_test::Outcome;
using ks_test::send_signal;
using ks_test::set_system_handler;
using ks_test::system_action;
using ks_test::take_noted;
using testing::ElementsAre;
using testing::IsEmpty;

namespace {

bool is_synchronous(int sig) { return sig == SIGFPE || sig == SIGILL || sig == SIGSEGV; }

void other_routine(int) {}

void block(int sig) {
  sigset_t set;
  sigemptyset(&set);
  sigaddset(&set, sig);
  sigprocmask(SIG_BLOCK, &set, nullptr);
}

std::vector<int> asynchronous_signals() {
  std::vector<int> sigs;
  for (int sig = 1; sig <= kLastSignal; ++sig) {
    if (is_free(sig) && !is_synchronous(sig)) sigs.push_back(sig);
  }
  return sigs;
}

TEST(PfmSignal, ReturnsTheRoutineBefore) {
  EXPECT_EQ(pfm_signal(SIGUSR1, note_signal), SIG_DFL);
  EXPECT_EQ(pfm_signal(SIGUSR1, other_routine), note_signal);
  EXPECT_EQ(pfm_signal(SIGUSR1, SIG_IGN), other_routine);
  EXPECT_EQ(pfm_signal(SIGUSR1, note_signal), SIG_IGN);
  EXPECT_EQ(pfm_signal(SIGUSR1, SIG_DFL), note_signal);
  EXPECT_EQ(pfm_signal(SIGUSR1, SIG_DFL), SIG_DFL);
}

TEST(PfmSignal, SignalsReachTheRoutineThatWasSetLast) {
  note_signals({SIGUSR1});
  send_signal(SIGUSR1);
  EXPECT_THAT(take_noted(), ElementsAre(SIGUSR1));
  pfm_signal(SIGUSR1, other_routine);
  send_signal(SIGUSR1);
  EXPECT_THAT(take_noted(), IsEmpty());
  note_signals({SIGUSR1});
  send_signal(SIGUSR1);
  send_signal(SIGUSR1);
  EXPECT_THAT(take_noted(), ElementsAre(SIGUSR1, SIGUSR1));
}

TEST(PfmSignal, EverySignalThatCanBeCaughtReachesItsRoutine) {
  for (int sig = 1; sig <= kLastSignal; ++sig) {
    if (!is_free(sig)) continue;
    note_signals({sig});
    send_signal(sig);
    EXPECT_THAT(take_noted(), ElementsAre(sig));
  }
}

TEST(PfmSignal, OneCatcherStandsBehindAllRoutines) {
  pfm_signal(SIGUSR1, note_signal);
  pfm_signal(SIGUSR2, other_routine);
  EXPECT_NE(system_action(SIGUSR1).sa_handler, note_signal);
  EXPECT_EQ(system_action(SIGUSR1).sa_handler, system_action(SIGUSR2).sa_handler);
}

TEST(PfmSignal, DefaultAndIgnoreGoToTheSystemAsTheyAre) {
  note_signals({SIGUSR1});
  pfm_signal(SIGUSR1, SIG_IGN);
  EXPECT_EQ(system_action(SIGUSR1).sa_handler, SIG_IGN);
  send_signal(SIGUSR1);
  EXPECT_THAT(take_noted(), IsEmpty());
  pfm_signal(SIGUSR1, SIG_DFL);
  EXPECT_EQ(system_action(SIGUSR1).sa_handler, SIG_DFL);
  EXPECT_EQ(in_child([] { send_signal(SIGUSR1); }).end(), "signal 10");
}

TEST(PfmSignal, InstallsWithoutFlagsAndWithAllAsynchronousSignalsMasked) {
  constexpr int kFlags = SA_RESTART | SA_SIGINFO | SA_NODEFER | SA_ONSTACK | SA_NOCLDSTOP |
                         SA_NOCLDWAIT | static_cast<int>(SA_RESETHAND);
  note_signals({SIGUSR1});
  const struct sigaction action = system_action(SIGUSR1);
  EXPECT_EQ(action.sa_flags & kFlags, 0);
  for (int sig = 1; sig <= kLastSignal; ++sig) {
    if (!is_free(sig)) continue;
    EXPECT_EQ(sigismember(&action.sa_mask, sig), is_synchronous(sig) ? 0 : 1) << sig;
  }
}

std::vector<int> mask_in_routine;
void look_at_mask(int) { mask_in_routine = blocked_signals(); }

TEST(PfmSignal, RoutinesRunWithAllAsynchronousSignalsBlocked) {
  pfm_signal(SIGUSR1, look_at_mask);
  send_signal(SIGUSR1);
  EXPECT_EQ(mask_in_routine, asynchronous_signals()) << "called at once";
  mask_in_routine.clear();
  pfm_inhibit();
  send_signal(SIGUSR1);
  pfm_enable();
  EXPECT_EQ(mask_in_routine, asynchronous_signals()) << "called by pfm_enable";
  EXPECT_THAT(blocked_signals(), IsEmpty());
}

TEST(PfmSignal, AlwaysUnblocksTheSignalAndNoOther) {
  for (pfm_signal_t routine : {note_signal, other_routine, SIG_IGN, SIG_DFL, note_signal}) {
    block(SIGUSR1);
    block(SIGUSR2);
    pfm_signal(SIGUSR1, routine);
    EXPECT_FALSE(is_blocked(SIGUSR1));
    EXPECT_TRUE(is_blocked(SIGUSR2));
  }
}

TEST(PfmSignal, ASignalThatWasBlockedArrivesAtTheNewRoutine) {
  pfm_signal(SIGUSR1, other_routine);
  block(SIGUSR1);
  send_signal(SIGUSR1);
  note_signals({SIGUSR1});
  EXPECT_THAT(take_noted(), ElementsAre(SIGUSR1));
}

// Writes once the wait has gone on for far too long, so that the test fails instead of hanging.
int ticks = 0;
int rescue_fd = -1;
void tick(int) {
  if (++ticks == 5000 && write(rescue_fd, "", 1) != 1) abort();
}

TEST(PfmSignal, InterruptsSystemCalls) {
  int ends[2];
  ASSERT_EQ(pipe(ends), 0);
  rescue_fd = ends[1];
  pfm_signal(SIGALRM, tick);
  const itimerval every_millisecond = {{0, 1000}, {0, 1000}};
  setitimer(ITIMER_REAL, &every_millisecond, nullptr);
  char byte;
  errno = 0;
  EXPECT_EQ(read(ends[0], &byte, 1), -1);
  EXPECT_EQ(errno, EINTR);
  const itimerval never = {};
  setitimer(ITIMER_REAL, &never, nullptr);
  close(ends[0]);
  close(ends[1]);
}

TEST(PfmSignal, RefusesNumbersThatAreNoSignals) {
  for (int sig : {0, -1, 65, 1000, INT_MIN, INT_MAX}) {
    errno = 0;
    EXPECT_EQ(pfm_signal(sig, note_signal), SIG_ERR) << sig;
    EXPECT_EQ(errno, EINVAL) << sig;
  }
}

// Only the table is asked, so a refusal of the system does not show.
TEST(PfmSignal, RefusesSignalsThatNobodyCanCatch) {
  for (int sig = 1; sig <= kLastSignal; ++sig) {
    if (is_free(sig)) continue;
    for (pfm_signal_t routine : {note_signal, SIG_IGN, SIG_DFL}) {
      errno = 0;
      EXPECT_EQ(pfm_signal(sig, routine), SIG_ERR) << sig;
      EXPECT_EQ(errno, EINVAL) << sig;
    }
  }
}

TEST(PfmSignal, RefusesTheErrorForARoutine) {
  note_signals({SIGUSR1});
  errno = 0;
  EXPECT_EQ(pfm_signal(SIGUSR1, SIG_ERR), SIG_ERR);
  EXPECT_EQ(errno, EINVAL);
  send_signal(SIGUSR1);
  EXPECT_THAT(take_noted(), ElementsAre(SIGUSR1));
  EXPECT_EQ(pfm_signal(SIGUSR1, SIG_DFL), note_signal);
}

TEST(PfmSignal, LeavesTheTableAloneWhereTheSystemRefuses) {
  pfm_init();
  ks_test::fail_call("sigaction", 0, EFAULT);
  errno = 0;
  EXPECT_EQ(pfm_signal(SIGUSR1, note_signal), SIG_ERR);
  EXPECT_EQ(errno, EFAULT);
  EXPECT_FALSE(is_blocked(SIGUSR1));
  EXPECT_EQ(pfm_signal(SIGUSR1, note_signal), SIG_DFL);
}

TEST(PfmSignal, AFaultOfAnInstructionIsNotHeldBackForEver) {
  volatile char *nowhere =
      static_cast<volatile char *>(mmap(nullptr, 1, PROT_NONE, MAP_PRIVATE | MAP_ANONYMOUS, -1, 0));
  ASSERT_NE(nowhere, MAP_FAILED);
  pfm_signal(SIGSEGV, [](int sig) { pfm_raise(sig); });
  for (int round = 0; round < 2; ++round) {
    pfm_inhibit();
    const Landing landing = land([=] { *nowhere = 'x'; });
    EXPECT_EQ(landing, (Landing{SIGSEGV, 2, 0}));
    EXPECT_EQ(pfm_blocked_count(), 0);
    pfm_enable();
  }
}

TEST(PfmSignal, ARoutineThatWasHeldBackLeavesErrnoAlone) {
  pfm_signal(SIGUSR1, [](int) { errno = ERANGE; });
  pfm_inhibit();
  send_signal(SIGUSR1);
  errno = ENOENT;
  pfm_enable();
  EXPECT_EQ(errno, ENOENT);
}

// The catcher is in place already then, as far as the table tells.
TEST(PfmSignal, KeepsTheSystemsHandlerFromRoutineToRoutine) {
  pfm_signal(SIGUSR1, other_routine);
  const auto catcher = system_action(SIGUSR1).sa_handler;
  set_system_handler(SIGUSR1, note_signal);
  EXPECT_EQ(pfm_signal(SIGUSR1, look_at_mask), other_routine);
  EXPECT_EQ(system_action(SIGUSR1).sa_handler, note_signal);
  pfm_signal(SIGUSR1, SIG_DFL);
  pfm_signal(SIGUSR1, look_at_mask);
  EXPECT_EQ(system_action(SIGUSR1).sa_handler, catcher) << "taken over by way of SIG_DFL";
}

void set_another(int sig) {
  note_signal(-sig);
  pfm_signal(sig, note_signal);
}

TEST(PfmSignal, MayBeCalledByARoutineForItsOwnSignal) {
  pfm_signal(SIGUSR1, set_another);
  send_signal(SIGUSR1);
  send_signal(SIGUSR1);
  EXPECT_THAT(take_noted(), ElementsAre(-SIGUSR1, SIGUSR1));
}

void spoil_errno(int) { errno = E2BIG; }

TEST(PfmCatcher, PreservesErrno) {
  pfm_signal(SIGUSR1, spoil_errno);
  errno = ENOENT;
  send_signal(SIGUSR1);
  EXPECT_EQ(errno, ENOENT);
}

TEST(PfmCatcher, PreservesErrnoWhileSignalsAreHeldBack) {
  const Outcome outcome = in_child([] {
    note_signals({SIGINT});
    pfm_inhibit();
    close(STDERR_FILENO);  // the report of the repeat fails
    send_signal(SIGINT);
    errno = ENOENT;
    send_signal(SIGINT);
    dprintf(STDOUT_FILENO, "%d", errno == ENOENT);
  });
  EXPECT_EQ(outcome.out, "1");
  EXPECT_EQ(outcome.end(), "exit 0");
}

TEST(PfmCatcher, SynchronousSignalsAreHeldBackLikeOthers) {
  note_signals({SIGFPE});
  pfm_inhibit();
  raise(SIGFPE);
  EXPECT_THAT(take_noted(), IsEmpty());
  EXPECT_EQ(pfm_blocked_count(), 1);
  pfm_enable();
  EXPECT_THAT(take_noted(), ElementsAre(SIGFPE));
}

void raise_minus_one(int) { pfm_raise(-1); }

// A negative fault out of a delivery leaves the rest pending while nothing is held back any more.
TEST(PfmCatcher, ADirectSignalTakesTheOneThatWaitsAlong) {
  pfm_signal(SIGUSR1, raise_minus_one);
  note_signals({SIGUSR2});
  const Landing landing = land(
      [] {
        pfm_inhibit();
        send_signal(SIGUSR1);
        send_signal(SIGUSR2);
        pfm_enable();
      },
      [] {
        EXPECT_EQ(pfm_blocked_count(), 1);
        EXPECT_THAT(take_noted(), IsEmpty());
        send_signal(SIGUSR2);
        EXPECT_EQ(pfm_blocked_count(), 0);
        EXPECT_THAT(take_noted(), ElementsAre(SIGUSR2));
      });
  EXPECT_EQ(landing, (Landing{-1, 0, 0}));
  pfm_inhibit();
  pfm_enable();
  EXPECT_THAT(take_noted(), IsEmpty());
}

// Steps of a test of repeated signals: a signal to send, or one of these.
constexpr int kDeliver = 0;  // everything, and hold back again
constexpr int kRaiseDeferred = -1;

struct Repeats {
  std::vector<int> steps;
  std::string reports;
};

std::string report(int sig) {
  return "pfm_signal_handler: got signal " + std::to_string(sig) + ", inhibited\n";
}

void run_steps(const std::vector<int> &steps) {
  note_signals({SIGHUP, SIGINT, SIGQUIT, SIGUSR1, SIGTERM, SIGTSTP, SIGALRM, SIGFPE});
  pfm_inhibit();
  for (int step : steps) {
    if (step == kDeliver) {
      pfm_enable();
      pfm_inhibit();
    } else if (step == kRaiseDeferred) {
      pfm_raise_deferred(7);
    } else {
      send_signal(step);
    }
  }
}

TEST(PfmCatcher, ReportsRepeatsOfTheUsersSignalsOnDescriptorTwo) {
  const Repeats kCases[] = {
      {{SIGINT}, ""},
      {{SIGINT, SIGINT}, report(2)},
      {{SIGINT, SIGINT, SIGINT}, report(2) + report(2)},
      {{SIGQUIT, SIGQUIT}, report(3)},
      {{SIGTERM, SIGTERM}, report(15)},
      {{SIGTSTP, SIGTSTP}, report(20)},
      // Not the user's: nothing is said.
      {{SIGHUP, SIGHUP}, ""},
      {{SIGUSR1, SIGUSR1}, ""},
      {{SIGALRM, SIGALRM}, ""},
      {{SIGFPE, SIGFPE}, ""},
      // Only the very last signal counts, whosever it was.
      {{SIGINT, SIGTERM, SIGINT}, ""},
      {{SIGINT, SIGUSR1, SIGINT}, ""},
      {{SIGUSR1, SIGINT, SIGINT}, report(2)},
      {{SIGINT, SIGINT, SIGTERM, SIGTERM}, report(2) + report(15)},
      // A delivery starts anew.
      {{SIGINT, kDeliver, SIGINT}, ""},
      {{SIGINT, kDeliver, SIGINT, SIGINT}, report(2)},
      {{SIGINT, SIGINT, kDeliver, SIGTERM, SIGINT}, report(2)},
      // A deferred raise is no arrival of the signal.
      {{kRaiseDeferred, SIGINT}, ""},
      {{SIGINT, kRaiseDeferred, SIGINT}, report(2)},
  };
  for (const auto &[steps, reports] : kCases) {
    SCOPED_TRACE(testing::PrintToString(steps));
    const Outcome outcome = in_child([&] { run_steps(steps); });
    EXPECT_EQ(outcome.err, reports);
    EXPECT_EQ(outcome.out, "");
    EXPECT_EQ(outcome.end(), "exit 0");
  }
}

TEST(PfmCatcher, ReportsRepeatsOfSigtstpUnderTheSuspendCountAlone) {
  const Outcome outcome = in_child([] {
    note_signals({SIGTSTP, SIGINT});
    pfm_inhibit_suspend();
    send_signal(SIGTSTP);
    send_signal(SIGINT);  // not held back, so it is no intervening one
    send_signal(SIGTSTP);
  });
  EXPECT_EQ(outcome.err, report(20));
}

TEST(PfmCatcher, ForgetsAHeldSigtstpForRepeatsAtADelivery) {
  const Outcome outcome = in_child([] {
    note_signals({SIGTSTP});
    pfm_inhibit_suspend();
    pfm_inhibit();
    send_signal(SIGTSTP);
    pfm_enable();
    send_signal(SIGTSTP);
    dprintf(STDOUT_FILENO, "%d", pfm_blocked_count());
  });
  EXPECT_EQ(outcome.err, "");
  EXPECT_EQ(outcome.out, "1");
}

}  // namespace

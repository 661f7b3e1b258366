// Every wrong call ends in its assertion, and the two ways to abort.
#include <gmock/gmock.h>
#include <gtest/gtest.h>

#include <unistd.h>

#include <cerrno>
#include <csignal>
#include <cstring>
#include <string>
#include <vector>

#include "core/pfm_internal.h"
#include "imsg.h"
#include "pfm.h"
#include "support/assertion.h"
#include "support/child.h"
#include "support/faults.h"
#include "support/landing.h"
#include "support/signals.h"

using ks_test::assertion_line;
using ks_test::in_child;
using ks_test::land;
using ks_test::Landing;
using ks_test::note_signals;
using ks_test::Outcome;
using ks_test::send_signal;
using ks_test::system_action;
using testing::MatchesRegex;

namespace {

void arm(pfm_cleanup_rec_t *rec) {
  rec->status = 0;
  pfm_cleanup_start(rec, 0);
}

// What the owner of `rec` does when a fault has jumped to it.
void land_in(pfm_cleanup_rec_t *rec) {
  rec->status = 7;
  pfm_cleanup_start(rec, 0);
}

pfm_cleanup_rec_t outer;
pfm_cleanup_rec_t inner;

void wait_a_moment() {
  timeval timeout = {0, 1000};
  pfm_select_inhibited(0, nullptr, nullptr, nullptr, &timeout);
}

// Brings the catcher back for a signal that the table gives to `routine`.
void call_catcher_of(pfm_signal_t routine) {
  note_signals({SIGUSR1});
  const auto catcher = system_action(SIGUSR1).sa_handler;
  pfm_signal(SIGUSR1, routine);
  ks_test::set_system_handler(SIGUSR1, catcher);
  send_signal(SIGUSR1);
}

// A signal is noted as waiting, but not counted.
void lose_count_of_a_signal() {
  note_signals({SIGUSR1});
  pfm_inhibit();
  send_signal(SIGUSR1);
  ks::pfm_pending_count = 0;
}

struct Misuse {
  const char *name;
  void (*call)();
  const char *condition;
  const char *file;
};

constexpr const char *kFrames = "src/core/pfm.cc";
constexpr const char *kSignals = "src/core/pfm_signal.cc";
constexpr const char *kInnermost = "cl_rec == cl_rec_root && cl_rec->magic == MAGIC_SET";

const Misuse kMisuses[] = {
    {"ArmingTheInnermostRecord",
     [] {
       arm(&outer);
       arm(&outer);
     },
     "cl_tmp != cl_rec", kFrames},
    {"ArmingARecordFurtherOut",
     [] {
       arm(&outer);
       arm(&inner);
       arm(&outer);
     },
     "cl_tmp != cl_rec", kFrames},
    {"LandingWithAnInnerRecordLeft",
     [] {
       arm(&outer);
       arm(&inner);
       land_in(&outer);
     },
     kInnermost, kFrames},
    {"LandingInAReleasedRecord",
     [] {
       arm(&outer);
       pfm_cleanup_rls(&outer);
       land_in(&outer);
     },
     kInnermost, kFrames},
    {"LandingInASpoiltRecord",
     [] {
       arm(&outer);
       outer.magic = 0;
       land_in(&outer);
     },
     kInnermost, kFrames},
    {"ReleasingWithAnInnerRecordLeft",
     [] {
       arm(&outer);
       arm(&inner);
       pfm_cleanup_rls(&outer);
     },
     kInnermost, kFrames},
    {"ReleasingTwice",
     [] {
       arm(&outer);
       pfm_cleanup_rls(&outer);
       pfm_cleanup_rls(&outer);
     },
     kInnermost, kFrames},
    {"ReleasingWithoutArming", [] { pfm_cleanup_rls(&outer); }, kInnermost, kFrames},
    {"ReleasingASpoiltRecord",
     [] {
       arm(&outer);
       outer.magic = 0;
       pfm_cleanup_rls(&outer);
     },
     kInnermost, kFrames},
    {"EnablingMoreThanInhibitingInABody",
     [] {
       pfm_inhibit();
       land([] {
         pfm_enable();
         pfm_raise(7);
       });
     },
     "pfm_inh_count >= cl_rec->inh", kFrames},
    {"EnablingSuspendMoreThanInhibitingItInABody",
     [] {
       pfm_inhibit_suspend();
       land([] {
         pfm_enable_suspend();
         pfm_raise(7);
       });
     },
     "pfm_inh_susp_count >= cl_rec->inh_susp", kFrames},
    {"ResettingAnArmedRecord",
     [] {
       arm(&outer);
       pfm_cleanup_reset(&outer);
     },
     "cl_rec->magic == MAGIC_TRIPPED", kFrames},
    {"ResettingARecordThatNeverWasArmed", [] { pfm_cleanup_reset(&outer); },
     "cl_rec->magic == MAGIC_TRIPPED", kFrames},
    {"ResettingAReleasedRecordWithNothingHeldBack",
     [] {
       arm(&outer);
       pfm_cleanup_rls(&outer);
       pfm_cleanup_reset(&outer);
     },
     "inh_count >= 0", kFrames},
    {"EnablingWithoutInhibiting", pfm_enable, "inh_count >= 0", kFrames},
    {"EnablingOnceTooOften",
     [] {
       pfm_inhibit();
       pfm_enable();
       pfm_enable();
     },
     "inh_count >= 0", kFrames},
    {"EnablingSuspendWithoutInhibitingIt", pfm_enable_suspend, "pfm_inh_susp_count >= 0", kFrames},
    {"EnablingSuspendOnceTooOften",
     [] {
       pfm_inhibit();
       pfm_inhibit_suspend();
       pfm_enable_suspend();
       pfm_enable_suspend();
     },
     "pfm_inh_susp_count >= 0", kFrames},
    {"WaitingWithNothingHeldBack", wait_a_moment, "pfm_inh_count == 1", "src/core/pfm_wait.cc"},
    {"WaitingInhibitedTwice",
     [] {
       pfm_inhibit();
       pfm_inhibit();
       wait_a_moment();
     },
     "pfm_inh_count == 1", "src/core/pfm_wait.cc"},
    {"DeliveringWhileInhibited",
     [] {
       pfm_inhibit();
       ks::deliver_pending();
     },
     "pfm_inh_count == 0", kSignals},
    {"DeliveringASignalThatIsNotCounted",
     [] {
       lose_count_of_a_signal();
       --ks::pfm_inh_count;
       ks::deliver_pending();
     },
     "--pfm_pending_count >= 0", kSignals},
    {"CatchingASignalThatIsNotCounted",
     [] {
       lose_count_of_a_signal();
       --ks::pfm_inh_count;
       send_signal(SIGUSR1);
     },
     "--pfm_pending_count >= 0", kSignals},
    {"CatchingASignalSetToItsDefault", [] { call_catcher_of(SIG_DFL); },
     "handler_sigvec[sig-1] != (pfm_signal_t)SIG_DFL", kSignals},
    {"CatchingASignalThatIsIgnored", [] { call_catcher_of(SIG_IGN); },
     "handler_sigvec[sig-1] != (pfm_signal_t)SIG_IGN", kSignals},
};

void PrintTo(const Misuse &misuse, std::ostream *out) { *out << misuse.condition; }

class PfmMisuse : public testing::TestWithParam<Misuse> {};

TEST_P(PfmMisuse, EndsInAnAssertion) {
  const Outcome outcome = in_child(GetParam().call);
  EXPECT_THAT(outcome.err, MatchesRegex("noname: Error: " +
                                        assertion_line(GetParam().condition, GetParam().file)));
  EXPECT_EQ(outcome.out, "");
  EXPECT_EQ(outcome.end(), "signal 6");
}

INSTANTIATE_TEST_SUITE_P(Of, PfmMisuse, testing::ValuesIn(kMisuses),
                         [](const auto &misuse) { return std::string(misuse.param.name); });

TEST(PfmAssertFail, PrintsTheTextTheFileAndTheLineAndAborts) {
  const Outcome outcome =
      in_child([] { pfm_assert_fail("left < right", "src/any/file.cc", 1234); });
  EXPECT_EQ(outcome.err,
            "noname: Error: PFM_ASSERT:(left < right) failed: 'src/any/file.cc':1234\n");
  EXPECT_EQ(outcome.out, "");
  EXPECT_EQ(outcome.end(), "signal 6");
}

TEST(PfmAssertFail, TakesPercentSignsForText) {
  const Outcome outcome = in_child([] { pfm_assert_fail("a %s b %n", "100%d.cc", -1); });
  EXPECT_EQ(outcome.err, "noname: Error: PFM_ASSERT:(a %s b %n) failed: '100%d.cc':-1\n");
}

TEST(PfmAssertFail, RunsNoHooksAndLandsInNoRecord) {
  const Outcome outcome = in_child([] {
    pfm_on_exit([](int, void *) { _exit(1); }, nullptr);
    land([] { pfm_assert_fail("never", "file.cc", 1); }, [] { _exit(2); });
  });
  EXPECT_EQ(outcome.end(), "signal 6");
}

TEST(PfmAssertFail, AbortsAlsoWhereSigabrtHasARoutine) {
  for (void (*hold)() : {+[] {}, pfm_inhibit}) {
    const Outcome outcome = in_child([&] {
      note_signals({SIGABRT});
      hold();
      pfm_assert_fail("never", "file.cc", 1);
    });
    EXPECT_EQ(outcome.end(), "signal 6");
  }
}

void write_and_note(int) {
  if (write(STDERR_FILENO, "routine\n", 8) < 0) _exit(3);
}

constexpr void (*kAborts[])() = {+[] { pfm_assert_fail("never", "file.cc", 1); },
                                 +[] { pfm_panic("file.cc", 1); }};

TEST(PfmAssertFail, ARoutineForSigabrtRunsBehindTheMessageWhateverIsHeld) {
  for (void (*fail)() : kAborts) {
    for (void (*hold)() : {+[] {}, pfm_inhibit, pfm_inhibit_suspend}) {
      const Outcome outcome = in_child([&] {
        pfm_signal(SIGABRT, write_and_note);
        hold();
        fail();
      });
      EXPECT_THAT(outcome.err, testing::EndsWith("'file.cc':1\nroutine\n"));
      EXPECT_EQ(outcome.end(), "signal 6");
    }
  }
}

TEST(PfmAssertFail, ARoutineForSigabrtMayRaise) {
  const Outcome outcome = in_child([] {
    pfm_signal(SIGABRT, [](int) { pfm_raise(7); });
    pfm_inhibit();
    const Landing landing = land([] {
      pfm_inhibit();
      pfm_assert_fail("never", "file.cc", 1);
    });
    _exit(landing == Landing{7, 2, 0} ? 0 : 2);
  });
  EXPECT_EQ(outcome.end(), "exit 0");
}

// Prints the text, and waits, as a front end may that keeps its windows alive.
void print_and_wait(void *, const char *text) {
  pfm_inhibit();
  wait_a_moment();
  pfm_enable();
  if (write(STDOUT_FILENO, text, strlen(text)) < 0) _exit(3);
}

TEST(PfmAssertFail, TheMessageReachesAnOutputProcedureThatWaits) {
  for (void (*fail)() : kAborts) {
    for (int holds = 0; holds < 3; ++holds) {
      const Outcome outcome = in_child([&] {
        imsg_redirect_output(print_and_wait, nullptr, print_and_wait, nullptr);
        for (int i = 0; i < holds; ++i) pfm_inhibit();
        fail();
      });
      EXPECT_THAT(outcome.out, testing::EndsWith("'file.cc':1\n")) << holds;
      EXPECT_EQ(outcome.err, "");
      EXPECT_EQ(outcome.end(), "signal 6");
    }
  }
}

TEST(PfmAssertFail, WhatWaitsForDeliveryDoesNotRaiseOutOfIt) {
  for (void (*fail)() : kAborts) {
    const Outcome outcome = in_child([&] {
      imsg_redirect_output(print_and_wait, nullptr, print_and_wait, nullptr);
      land(
          [&] {
            pfm_inhibit();
            send_signal(SIGINT);
            fail();
          },
          [] { _exit(2); });
    });
    EXPECT_THAT(outcome.out, testing::EndsWith("'file.cc':1\n"));
    EXPECT_EQ(outcome.end(), "signal 6");
  }
}

TEST(PfmAssertFail, WhereTheOutputProcedureRaisesTheLineGoesToDescriptorTwo) {
  for (void (*fail)() : kAborts) {
    for (int status : {7, -7}) {
      static int raised;
      raised = status;
      const Outcome outcome = in_child([&] {
        const auto raise_it = [](void *, const char *) { pfm_raise(raised); };
        imsg_redirect_output(raise_it, nullptr, raise_it, nullptr);
        land(fail, [] { _exit(2); });
      });
      EXPECT_THAT(outcome.err, testing::EndsWith("'file.cc':1\n"));
      EXPECT_EQ(outcome.end(), "signal 6");
    }
  }
}

TEST(PfmAssertFail, NoSignalRaisesOutOfIt) {
  for (void (*fail)() : kAborts) {
    const Outcome outcome = in_child([&] {
      pfm_init();
      ks_test::signal_in_call("vsnprintf", 0, SIGINT);
      land(fail, [] { _exit(2); });
    });
    EXPECT_THAT(outcome.err, testing::EndsWith("'file.cc':1\n"));
    EXPECT_EQ(outcome.end(), "signal 6");
  }
}

// Composing the first line has no storage, which is an assertion itself.
TEST(PfmAssertFail, ASecondOneWhileItPrintsGoesStraightToDescriptorTwo) {
  const Outcome outcome = in_child([] {
    ks_test::fail_call("realloc", 0, ENOMEM, 1000);
    pfm_assert_fail("first", "file.cc", 1);
  });
  EXPECT_THAT(outcome.err,
              MatchesRegex(assertion_line("out_buf_p != NULL", "src/msg/imsg_compose.cc")));
  EXPECT_EQ(outcome.out, "");
  EXPECT_EQ(outcome.end(), "signal 6");
}

TEST(PfmPanic, PrintsTheFileAndTheLineAndAborts) {
  const Outcome outcome = in_child([] { pfm_panic("src/any/file.cc", 1234); });
  EXPECT_EQ(outcome.err, "noname: Error: ***ABORT***  'src/any/file.cc':1234\n");
  EXPECT_EQ(outcome.out, "");
  EXPECT_EQ(outcome.end(), "signal 6");
}

TEST(PfmPanic, WithoutStorageForItsLineEndsInThatAssertion) {
  const Outcome outcome = in_child([] {
    ks_test::fail_call("realloc", 0, ENOMEM, 1000);
    pfm_panic("file.cc", 1);
  });
  EXPECT_THAT(outcome.err,
              MatchesRegex(assertion_line("out_buf_p != NULL", "src/msg/imsg_compose.cc")));
  EXPECT_EQ(outcome.end(), "signal 6");
}

}  // namespace

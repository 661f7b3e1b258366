// A signal at every single instruction of the fault manager.
#include <gtest/gtest.h>
#include <sys/select.h>
#include <unistd.h>

#include <cerrno>
#include <csignal>
#include <cstddef>
#include <cstdio>
#include <cstdlib>
#include <string>

#include "core/ks_frame.h"
#include "pfm.h"
#include "support/faults.h"
#include "support/landing.h"
#include "support/signals.h"
#include "support/stepping.h"

using ks_test::innermost_record;
using ks_test::kStepBegin;
using ks_test::kStepEnd;
using ks_test::land;
using ks_test::Landing;
using ks_test::send_signal;

namespace {

// What is run, and what one arrival in it may do.
struct Stretch {
  const char *name;
  void (*run)();
  int own;          // signals, not the arriving one, that the stretch sends itself
  int arriving;     // the signal that arrives
  bool raising;     // its routine raises it
  int calls_least;  // calls of that routine
  int calls_most;
};

void PrintTo(const Stretch &stretch, std::ostream *out) { *out << stretch.name; }

// What a round has done, in the child.
struct Round {
  int arrived;  // calls of the routine for the arriving signal
  int own;      // and for those that the stretch sends itself
  bool early;   // the arriving signal was delivered while it was held back
  int blocks;   // held by protected frames
  Landing landing;
};
Round round_so_far;
bool traced = false;         // places are learnt or tried
volatile bool held = false;  // nothing may be delivered

void note_arrival(int) {
  ++round_so_far.arrived;
  if (held) round_so_far.early = true;
}

void raise_arrival(int sig) {
  ++round_so_far.arrived;
  pfm_raise(sig);
}

void note_own(int) { ++round_so_far.own; }

void check(bool condition, const char *text) {
  if (condition) return;
  dprintf(STDOUT_FILENO, "not so: %s; arrived %d, own %d, status %d, inhibited %d", text,
          round_so_far.arrived, round_so_far.own, round_so_far.landing.status,
          round_so_far.landing.inhibited);
  _exit(1);
}

// One round in the child. The outer record is there for stretches in which the signal raises.
void run_round(const Stretch &stretch) {
  round_so_far = {};
  round_so_far.landing = land([&] {
    send_signal(kStepBegin);
    stretch.run();
    send_signal(kStepEnd);
  });
  if (round_so_far.landing.status != 0) send_signal(kStepEnd);
}

void check_round(const Stretch &stretch) {
  check(!round_so_far.early, "nothing was delivered while signals were held back");
  check(round_so_far.arrived >= stretch.calls_least, "no signal was lost");
  check(round_so_far.arrived <= stretch.calls_most, "no signal came twice");
  check(round_so_far.own == stretch.own, "the stretch's own signals came once each");
  check(round_so_far.landing == Landing{} ||
            (stretch.raising && round_so_far.landing == Landing{stretch.arriving, 1, 0}),
        "the fault landed with the counts of its frame");
  check(round_so_far.blocks == 0, "all blocks were released");
  check(pfm_inhibit_count() == 0, "the inhibit count is back at zero");
  check(pfm_inhibit_suspend_count() == 0, "the suspend count is back at zero");
  check(pfm_blocked_count() == 0, "nothing waits");
  check(innermost_record() == nullptr, "no record is left");
  check(ks_test::blocked_signals().empty(), "no signal is blocked");
}

void child_body(const Stretch &stretch) {
  pfm_signal(SIGUSR1, note_own);
  pfm_signal(SIGTSTP, note_own);
  pfm_signal(stretch.arriving, stretch.raising ? raise_arrival : note_arrival);
  run_round(stretch);  // binds what the stretch calls
  traced = true;
  ks_test::be_traced();
  run_round(stretch);  // to learn the places
  for (;;) {
    run_round(stretch);
    check_round(stretch);
  }
}

class PfmStep : public testing::TestWithParam<Stretch> {};

TEST_P(PfmStep, ASignalMayArriveAtEveryInstruction) {
  const ks_test::Steps steps =
      ks_test::step_through([] { child_body(GetParam()); }, GetParam().arriving);
  EXPECT_EQ(steps.out, "") << "at place " << steps.done;
  EXPECT_GT(steps.places, 20u);
  EXPECT_EQ(steps.done, steps.places) << steps.end;
}

void nest() {
  pfm_inhibit();
  pfm_inhibit();
  pfm_enable();
  send_signal(SIGUSR1);
  pfm_enable();
}

void nest_suspended() {
  pfm_inhibit_suspend();
  send_signal(SIGTSTP);
  pfm_inhibit();
  send_signal(SIGUSR1);
  pfm_enable();
  pfm_enable_suspend();
}

void wait_a_moment() {
  timeval timeout = {0, 0};
  pfm_inhibit();
  const int result = pfm_select_inhibited(0, nullptr, nullptr, nullptr, &timeout);
  check(result == 0 || (result == -1 && errno == EINTR),
        "the wait came to its timeout or was woken");
  check(pfm_inhibit_count() == 1, "the wait leaves the count alone");
  pfm_enable();
}

// The stretch ends where the sleep begins, and the signal must end the sleep wherever it comes.
void fall_asleep() {
  timeval timeout = {5, 0};
  ks_test::signal_in_call("select", 0, traced ? kStepEnd : SIGUSR2);
  pfm_inhibit();
  if (round_so_far.arrived == 0) {
    const int result = pfm_select_inhibited(0, nullptr, nullptr, nullptr, &timeout);
    check(result == -1 && errno == EINTR, "the signal ended the wait");
  }
  pfm_enable();
}

void raise_deferred() {
  pfm_inhibit();
  pfm_raise_deferred(7);
  pfm_enable();
}

void exchange_routines() {
  pfm_signal(SIGUSR2, SIG_IGN);
  pfm_signal(SIGUSR2, note_arrival);
  pfm_signal(SIGUSR2, SIG_IGN);
  pfm_signal(SIGUSR2, note_arrival);
}

void arm_and_release() {
  pfm_cleanup_rec_t rec = {};
  const int status = PFM_CLEANUP_START(&rec, 0);
  if (status != 0) {
    check(pfm_inhibit_count() == 1, "signals are held back at the landing");
    pfm_raise(status);
  }
  pfm_inhibit();
  pfm_enable();
  pfm_cleanup_rls(&rec);
}

void reset() {
  pfm_cleanup_rec_t rec = {};
  const int status = PFM_CLEANUP_START(&rec, 0);
  if (status == 0) pfm_raise(7);
  if (status != 7) pfm_raise(status);
  pfm_cleanup_reset(&rec);
  pfm_cleanup_rls(&rec);
}

// Frames that each hold a block, around `innermost`.
void hold_blocks(int frames, void (*innermost)()) {
  void *block = nullptr;
  const auto release = [&] {
    if (block == nullptr) return;
    free(block);
    block = nullptr;
    --round_so_far.blocks;
  };
  ks::protect(
      [&] {
        ks::signals_held([&] {
          block = malloc(16);
          ++round_so_far.blocks;
        });
        frames > 1 ? hold_blocks(frames - 1, innermost) : innermost();
        ks::signals_held(release);
      },
      release);
}

void run_frames() {
  hold_blocks(2, [] {});
}

void leave_frames() {
  land([] { hold_blocks(2, [] { pfm_raise(7); }); });
}

void land_while_held() {
  pfm_inhibit();
  held = true;
  land([] { pfm_raise(7); });
  held = false;
  pfm_enable();
}

INSTANTIATE_TEST_SUITE_P(
    Of, PfmStep,
    testing::Values(
        Stretch{"ANest", nest, 1, SIGUSR2, false, 1, 1},
        Stretch{"ANestWithSigtstp", nest_suspended, 2, SIGUSR2, false, 1, 1},
        Stretch{"AWait", wait_a_moment, 0, SIGUSR2, false, 1, 1},
        Stretch{"TheWayIntoASleep", fall_asleep, 0, SIGUSR2, false, 1, 1},
        // The deferred raise is an arrival of its own; while it is held back the two are merged.
        Stretch{"ADeferredRaise", raise_deferred, 0, SIGINT, false, 1, 2},
        // While it is ignored the signal vanishes.
        Stretch{"AnExchangeOfRoutines", exchange_routines, 0, SIGUSR2, false, 0, 1},
        Stretch{"ARecord", arm_and_release, 0, SIGUSR2, true, 1, 1},
        Stretch{"AReset", reset, 0, SIGUSR2, true, 1, 1},
        Stretch{"ALandingWhileSignalsAreHeldBack", land_while_held, 0, SIGUSR2, false, 1, 1},
        Stretch{"ProtectedFrames", run_frames, 0, SIGUSR2, true, 1, 1},
        Stretch{"ProtectedFramesThatAFaultLeaves", leave_frames, 0, SIGUSR2, true, 1, 1}),
    [](const auto &param) { return std::string(param.param.name); });

}  // namespace

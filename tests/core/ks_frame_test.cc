// Protected frames and held stretches, as the library's own modules use them.
#include "core/ks_frame.h"

#include <gmock/gmock.h>
#include <gtest/gtest.h>
#include <unistd.h>

#include <climits>
#include <csignal>
#include <cstdio>
#include <cstdlib>
#include <cstring>
#include <string>
#include <utility>
#include <vector>

#include "core/pfm_internal.h"
#include "pfm.h"
#include "support/child.h"
#include "support/landing.h"
#include "support/signals.h"

using ks::protect;
using ks::signals_held;
using ks_test::in_child;
using ks_test::innermost_record;
using ks_test::land;
using ks_test::Landing;
using ks_test::note_signals;
using ks_test::Outcome;
using ks_test::raise_number;
using ks_test::send_signal;
using ks_test::take_noted;
using testing::ElementsAre;
using testing::IsEmpty;

namespace {

// What happened, in order; kept outside all frames, which faults leave.
std::vector<std::string> steps;

void step(const char *text) { steps.push_back(text); }

std::vector<std::string> take_steps() { return std::exchange(steps, {}); }

constexpr auto raise_seven = [] { pfm_raise(7); };

TEST(KsProtect, RunsTheBodyUnderARecordAndNoCleanup) {
  protect(
      [] {
        step("body");
        EXPECT_NE(innermost_record(), nullptr);
        EXPECT_EQ(pfm_inhibit_count(), 0);
      },
      [] { step("cleanup"); });
  EXPECT_THAT(take_steps(), ElementsAre("body"));
  EXPECT_EQ(innermost_record(), nullptr);
}

TEST(KsProtect, CleansUpWithSignalsHeldBackAndRaisesOn) {
  note_signals({SIGUSR1});
  const Landing landing = land([] {
    protect(
        [] {
          step("body");
          for (int i = 0; i < 3; ++i) pfm_inhibit();
          raise_seven();
        },
        [] {
          step("cleanup");
          EXPECT_EQ(pfm_inhibit_count(), 1);
          send_signal(SIGUSR1);
          EXPECT_THAT(take_noted(), IsEmpty());
        });
    step("behind");
  });
  EXPECT_EQ(landing, (Landing{7, 1, 0}));
  EXPECT_THAT(take_steps(), ElementsAre("body", "cleanup"));
  EXPECT_THAT(take_noted(), ElementsAre(SIGUSR1));
}

TEST(KsProtect, CleansUpWithItsRecordOffTheChain) {
  const pfm_cleanup_rec_t *around = nullptr;
  const pfm_cleanup_rec_t *in_cleanup = nullptr;
  land([&] {
    around = innermost_record();
    protect(raise_seven, [&] { in_cleanup = innermost_record(); });
  });
  EXPECT_NE(around, nullptr);
  EXPECT_EQ(in_cleanup, around);
}

TEST(KsProtect, CleansUpWithTheSignalMaskOfItsFrame) {
  pfm_signal(SIGUSR1, raise_number);
  const Landing landing = land([] {
    protect([] { send_signal(SIGUSR1); },
            [] { EXPECT_THAT(ks_test::blocked_signals(), IsEmpty()); });
  });
  EXPECT_EQ(landing.status, SIGUSR1);
}

TEST(KsProtect, CleansUpFromTheInsideOut) {
  const Landing landing = land([] {
    protect(
        [] {
          protect([] { protect(raise_seven, [] { step("innermost"); }); }, [] { step("middle"); });
        },
        [] { step("outermost"); });
  });
  EXPECT_EQ(landing, (Landing{7, 1, 0}));
  EXPECT_THAT(take_steps(), ElementsAre("innermost", "middle", "outermost"));
}

TEST(KsProtect, AnotherFaultInACleanupGoesOutwardInstead) {
  const Landing landing = land([] {
    protect([] { protect(raise_seven, [] { pfm_raise(8); }); }, [] { step("outer cleanup"); });
  });
  EXPECT_EQ(landing, (Landing{8, 1, 0}));
  EXPECT_THAT(take_steps(), ElementsAre("outer cleanup"));
}

TEST(KsProtect, EndsTheProcessBehindTheCleanupWhenNobodyIsFurtherOut) {
  const Outcome outcome = in_child([] {
    pfm_on_exit([](int status, void *) { dprintf(STDOUT_FILENO, "hook %d", status); }, nullptr);
    protect(raise_seven, [] { dprintf(STDOUT_FILENO, "cleanup, "); });
  });
  EXPECT_EQ(outcome.out, "cleanup, hook 7");
  EXPECT_EQ(outcome.end(), "exit 7");
}

// Locals of many kinds, each changed in the body; a fault in `end_body` must not lose the changes.
struct Locals {
  int number;
  long long wide;
  double fraction;
  const char *text;
  char bytes[8];
  bool operator==(const Locals &other) const {
    return number == other.number && wide == other.wide && fraction == other.fraction &&
           strcmp(text, other.text) == 0 && memcmp(bytes, other.bytes, sizeof bytes) == 0;
  }
};

// Filled at the landing from the locals of the frame.
Locals at_landing;

template <class EndBody>
void change_locals(EndBody end_body) {
  int number = 0;
  long long wide = 0;
  double fraction = 0;
  const char *text = "";
  char bytes[8] = {};
  protect(
      [&] {
        for (int i = 1; i <= 10; ++i) number += i;
        wide = number * 1000000000000LL;
        fraction = number / 2.0;
        text = "changed";
        memset(bytes, 'x', sizeof bytes - 1);
        end_body();
        number = -1;
      },
      [&] {
        at_landing = {number, wide, fraction, text, {}};
        memcpy(at_landing.bytes, bytes, sizeof bytes);
      });
}

constexpr Locals kChanged = {55, 55000000000000LL, 27.5, "changed", "xxxxxxx"};

TEST(KsProtect, CapturedLocalsKeepTheirValuesAtTheLanding) {
  EXPECT_EQ(land([] { change_locals(raise_seven); }).status, 7);
  EXPECT_EQ(at_landing, kChanged);
}

TEST(KsProtect, CapturedLocalsKeepTheirValuesWhenASignalRaises) {
  pfm_signal(SIGUSR1, raise_number);
  EXPECT_EQ(land([] { change_locals([] { send_signal(SIGUSR1); }); }).status, SIGUSR1);
  EXPECT_EQ(at_landing, kChanged);
}

// A frame that holds a block of storage, as deep as `depth` says.
int blocks = 0;

void hold_block(int depth) {
  void *block = nullptr;
  const auto release = [&] {
    if (block != nullptr) --blocks;
    free(block);
  };
  protect(
      [&] {
        signals_held([&] {
          block = malloc(100);
          ++blocks;
        });
        if (depth > 1) {
          hold_block(depth - 1);
        } else {
          raise_seven();
        }
      },
      release);
}

TEST(KsProtect, TwentyFramesReleaseWhatTheyHold) {
  EXPECT_EQ(land([] { hold_block(20); }), (Landing{7, 1, 0}));
  EXPECT_EQ(blocks, 0);
}

TEST(KsProtect, TakesANegativeStatusOutwardWithTheCountsAsTheyAre) {
  for (int status : {-1, INT_MIN}) {
    const Landing landing = land([&] {
      pfm_inhibit();
      pfm_inhibit();
      pfm_inhibit_suspend();
      protect(
          [&] {
            protect([&] { pfm_raise(status); },
                    [] {
                      step("inner");
                      EXPECT_EQ(pfm_inhibit_count(), 3);
                    });
          },
          [] {
            step("outer");
            EXPECT_EQ(pfm_inhibit_count(), 3);
          });
    });
    EXPECT_EQ(landing, (Landing{status, 2, 1}));
    EXPECT_THAT(take_steps(), ElementsAre("inner", "outer"));
    EXPECT_EQ(innermost_record(), nullptr);
    pfm_enable();
    pfm_enable();
    pfm_enable_suspend();
  }
}

TEST(KsProtect, HoldsSignalsBackWhileItCleansUpForANegativeStatus) {
  note_signals({SIGUSR1});
  const Landing landing = land([] {
    protect([] { pfm_raise(-1); },
            [] {
              send_signal(SIGUSR1);
              EXPECT_THAT(take_noted(), IsEmpty());
            });
  });
  EXPECT_EQ(landing, (Landing{-1, 0, 0}));
  pfm_inhibit();
  pfm_enable();
  EXPECT_THAT(take_noted(), ElementsAre(SIGUSR1));
}

TEST(KsSignalsHeld, RunsTheBodyOnceWithTheCountOneUp) {
  pfm_init();
  signals_held([] {
    step("body");
    EXPECT_EQ(pfm_inhibit_count(), 1);
    signals_held([] { EXPECT_EQ(pfm_inhibit_count(), 2); });
    EXPECT_EQ(pfm_inhibit_count(), 1);
  });
  EXPECT_THAT(take_steps(), ElementsAre("body"));
  EXPECT_EQ(pfm_inhibit_count(), 0);
}

TEST(KsSignalsHeld, DeliversRightBehindTheBody) {
  note_signals({SIGUSR1, SIGUSR2});
  signals_held([] {
    send_signal(SIGUSR2);
    send_signal(SIGUSR1);
    EXPECT_THAT(take_noted(), IsEmpty());
    EXPECT_EQ(pfm_blocked_count(), 2);
  });
  EXPECT_THAT(take_noted(), ElementsAre(SIGUSR1, SIGUSR2));
  EXPECT_EQ(pfm_blocked_count(), 0);
}

TEST(KsSignalsHeld, LeavesSignalsToAnOuterHold) {
  note_signals({SIGUSR1});
  pfm_inhibit();
  signals_held([] { send_signal(SIGUSR1); });
  EXPECT_THAT(take_noted(), IsEmpty());
  pfm_enable();
  EXPECT_THAT(take_noted(), ElementsAre(SIGUSR1));
}

TEST(KsSignalsHeld, LeavesASigtstpToTheSuspendCount) {
  note_signals({SIGTSTP});
  pfm_inhibit_suspend();
  signals_held([] { send_signal(SIGTSTP); });
  EXPECT_EQ(pfm_blocked_count(), 1);
  pfm_enable_suspend();
  EXPECT_THAT(take_noted(), ElementsAre(SIGTSTP));
}

TEST(KsSignalsHeld, MayBeLeftByAFaultBehindTheBody) {
  pfm_signal(SIGUSR1, raise_number);
  const Landing landing = land([] {
    signals_held([] {
      send_signal(SIGUSR1);
      step("body");
    });
    step("behind");
  });
  EXPECT_EQ(landing, (Landing{SIGUSR1, 1, 0}));
  EXPECT_THAT(take_steps(), ElementsAre("body"));
}

TEST(KsSignalsHeld, NeverStartsTheFaultManager) {
  ks_test::default_signals();
  ks_test::set_system_handler(SIGUSR1, ks_test::note_signal);
  signals_held([] { send_signal(SIGUSR1); });
  EXPECT_THAT(take_noted(), ElementsAre(SIGUSR1)) << "a routine of its own is not held back";
  EXPECT_EQ(ks_test::system_action(SIGINT).sa_handler, SIG_DFL);
  EXPECT_FALSE(ks::pfm_inited);
}

}  // namespace

// Cleanup records, raising, and the two counts.
#include "pfm.h"

#include <gmock/gmock.h>
#include <gtest/gtest.h>

#include <climits>
#include <csignal>
#include <cstdint>
#include <cstdlib>
#include <cstring>
#include <random>
#include <vector>

#include "support/landing.h"
#include "support/signals.h"

using ks_test::default_signals;
using ks_test::innermost_record;
using ks_test::is_blocked;
using ks_test::land;
using ks_test::Landing;
using ks_test::note_signals;
using ks_test::raise_number;
using ks_test::send_signal;
using ks_test::take_noted;
using testing::ElementsAre;
using testing::IsEmpty;

namespace {

// Programs have these compiled in.
static_assert(PFM_STATUS_QUIT == 4);
static_assert(PFM_STATUS_TTOU == 22);
static_assert(PFM_STATUS_SELECT_WAKE == 23792);

constexpr uint32_t kArmed = 0xFA01BEEF;
constexpr uint32_t kOffTheChain = 0x05FE4110;

void times(int count, void (*function)()) {
  for (int i = 0; i < count; ++i) function();
}

// Arms a record in which no fault lands.
int arm(pfm_cleanup_rec_t *rec, int inhibit = 0) {
  rec->status = 0;
  return pfm_cleanup_start(rec, inhibit);
}

TEST(PfmCleanup, ArmingPutsTheRecordOnTheChain) {
  pfm_cleanup_rec_t outer = {};
  pfm_cleanup_rec_t inner = {};
  EXPECT_EQ(arm(&outer), 0);
  EXPECT_EQ(outer.magic, kArmed);
  EXPECT_EQ(outer.prev, nullptr);
  EXPECT_EQ(innermost_record(), &outer);
  EXPECT_EQ(arm(&inner), 0);
  EXPECT_EQ(inner.prev, &outer);
  EXPECT_EQ(innermost_record(), &inner);
}

TEST(PfmCleanup, ReleaseTakesTheRecordOffTheChain) {
  pfm_cleanup_rec_t outer = {};
  pfm_cleanup_rec_t inner = {};
  arm(&outer);
  arm(&inner);
  EXPECT_EQ(pfm_cleanup_rls(&inner), 0);
  EXPECT_EQ(inner.magic, kOffTheChain);
  EXPECT_EQ(innermost_record(), &outer);
  EXPECT_EQ(pfm_cleanup_rls(&outer), 0);
  EXPECT_EQ(innermost_record(), nullptr);
}

TEST(PfmCleanup, AReleasedRecordCanBeArmedAgain) {
  pfm_cleanup_rec_t rec = {};
  for (int i = 0; i < 3; ++i) {
    EXPECT_EQ(arm(&rec), 0);
    EXPECT_EQ(rec.magic, kArmed);
    pfm_cleanup_rls(&rec);
  }
}

TEST(PfmCleanup, ArmingNotesBothCounts) {
  pfm_cleanup_rec_t rec = {};
  times(2, pfm_inhibit);
  times(3, pfm_inhibit_suspend);
  arm(&rec);
  EXPECT_EQ(rec.inh, 2);
  EXPECT_EQ(rec.inh_susp, 3);
  EXPECT_EQ(pfm_inhibit_count(), 2);
  EXPECT_EQ(pfm_inhibit_suspend_count(), 3);
}

TEST(PfmCleanup, ArmingHoldsSignalsBackForTheBodyWhenAsked) {
  for (int inhibit : {1, 2, -1, INT_MIN}) {
    pfm_cleanup_rec_t rec = {};
    pfm_inhibit();
    EXPECT_EQ(arm(&rec, inhibit), 0);
    EXPECT_EQ(rec.inh, 1) << "the count before that hold";
    EXPECT_EQ(pfm_inhibit_count(), 2) << inhibit;
    pfm_cleanup_rls(&rec);
    times(2, pfm_enable);
  }
}

TEST(PfmCleanup, ReleaseLeavesTheCountsAlone) {
  pfm_cleanup_rec_t rec = {};
  arm(&rec, 1);
  times(4, pfm_inhibit);
  times(2, pfm_inhibit_suspend);
  pfm_cleanup_rls(&rec);
  EXPECT_EQ(pfm_inhibit_count(), 5);
  EXPECT_EQ(pfm_inhibit_suspend_count(), 2);
}

// The stack of a function that has returned may still hold its record.
TEST(PfmCleanup, StaleContentsThatLookArmedPass) {
  pfm_cleanup_rec_t outer = {};
  pfm_cleanup_rec_t stale = {};
  stale.magic = kArmed;
  EXPECT_EQ(arm(&stale), 0) << "with an empty chain";
  pfm_cleanup_rls(&stale);
  arm(&outer);
  stale.magic = kArmed;
  EXPECT_EQ(arm(&stale), 0) << "with a record on the chain";
  EXPECT_EQ(innermost_record(), &stale);
  EXPECT_EQ(stale.prev, &outer);
}

TEST(PfmCleanup, LandsWithSignalsHeldBackExactlyOnceMore) {
  for (int before : {0, 1, 2, 7}) {
    for (int inhibit : {0, 1}) {
      for (int in_body : {0, 1, 2, 3, 50}) {
        times(before, pfm_inhibit);
        const Landing landing = land(
            [&] {
              times(in_body, pfm_inhibit);
              pfm_raise(7);
            },
            [] {}, inhibit);
        EXPECT_EQ(landing, (Landing{7, before + 1, 0})) << "in the body " << in_body;
        EXPECT_EQ(pfm_inhibit_count(), before);
        times(before, pfm_enable);
      }
    }
  }
}

TEST(PfmCleanup, LandsWithTheSuspendCountThatItWasArmedWith) {
  for (int before : {0, 1, 7}) {
    for (int in_body : {0, 1, 3, 50}) {
      times(before, pfm_inhibit_suspend);
      const Landing landing = land([&] {
        times(in_body, pfm_inhibit_suspend);
        pfm_raise(7);
      });
      EXPECT_EQ(landing, (Landing{7, 1, before})) << "in the body " << in_body;
      times(before, pfm_enable_suspend);
    }
  }
}

TEST(PfmCleanup, LandingTakesTheRecordOffTheChain) {
  pfm_cleanup_rec_t outer = {};
  arm(&outer);
  land([] { pfm_raise(7); }, [&] { EXPECT_EQ(innermost_record(), &outer); });
  EXPECT_EQ(innermost_record(), &outer);
}

TEST(PfmCleanup, SignalsWaitForTheEndOfTheCleanup) {
  note_signals({SIGUSR1});
  land([] { pfm_raise(7); },
       [] {
         send_signal(SIGUSR1);
         EXPECT_THAT(take_noted(), IsEmpty());
         EXPECT_EQ(pfm_blocked_count(), 1);
       });
  EXPECT_THAT(take_noted(), ElementsAre(SIGUSR1));
  EXPECT_EQ(pfm_blocked_count(), 0);
}

TEST(PfmCleanup, TrimmingTheCountsDeliversNothing) {
  note_signals({SIGUSR1, SIGTSTP});
  land(
      [] {
        times(3, pfm_inhibit_suspend);
        send_signal(SIGTSTP);
        times(3, pfm_inhibit);
        send_signal(SIGUSR1);
        pfm_raise(7);
      },
      [] {
        EXPECT_THAT(take_noted(), IsEmpty());
        EXPECT_EQ(pfm_blocked_count(), 2);
      });
  EXPECT_THAT(take_noted(), ElementsAre(SIGUSR1, SIGTSTP));
}

TEST(PfmCleanup, LandsWithTheSignalMaskOfItsFrame) {
  ASSERT_FALSE(is_blocked(SIGUSR1));
  land(
      [] {
        sigset_t set;
        sigemptyset(&set);
        sigaddset(&set, SIGUSR1);
        sigprocmask(SIG_BLOCK, &set, nullptr);
        pfm_raise(7);
      },
      [] { EXPECT_FALSE(is_blocked(SIGUSR1)); });
}

TEST(PfmCleanup, AnotherFaultInTheCleanupGoesOutward) {
  const Landing outer = land([] { land([] { pfm_raise(7); }, [] { pfm_raise(8); }); });
  EXPECT_EQ(outer, (Landing{8, 1, 0}));
}

// Frames that clean up and raise on, as deep as `depth` says; each notes what it sees.
struct Visit {
  int depth;
  int status;
  int32_t inhibited;
  bool operator==(const Visit &) const = default;
};
std::vector<Visit> visits;

void raise_below(int depth) {
  if (depth == 0) return;
  pfm_cleanup_rec_t rec = {};
  const int status = PFM_CLEANUP_START(&rec, 0);
  if (status != 0) {
    visits.push_back({depth, status, pfm_inhibit_count()});
    pfm_raise(status);
  }
  pfm_inhibit();
  raise_below(depth - 1);
  if (depth == 1) pfm_raise(7);
  pfm_cleanup_rls(&rec);
}

TEST(PfmCleanup, TwentyFramesCleanUpFromTheInsideOut) {
  visits.reserve(20);
  const Landing outermost = land([] { raise_below(20); });
  EXPECT_EQ(outermost, (Landing{7, 1, 0}));
  // The frame at depth 20 was armed at count 0, each one further in at one more.
  std::vector<Visit> expected;
  for (int depth = 1; depth <= 20; ++depth) expected.push_back({depth, 7, 20 - depth + 1});
  EXPECT_EQ(visits, expected);
  EXPECT_EQ(innermost_record(), nullptr);
  EXPECT_EQ(pfm_inhibit_count(), 0);
}

// A negative status changes nothing, and callers rely on it: raised again it lands here again.
TEST(PfmCleanup, KeepsTheRecordArmedForANegativeStatus) {
  static volatile int landings = 0;
  pfm_cleanup_rec_t rec = {};
  pfm_inhibit();
  const int status = PFM_CLEANUP_START(&rec, 0);
  landings = landings + 1;
  switch (landings) {
    case 1:
      times(3, pfm_inhibit);
      times(2, pfm_inhibit_suspend);
      pfm_raise(-1);
    case 2:
    case 3:
      EXPECT_EQ(status, landings == 2 ? -1 : INT_MIN);
      EXPECT_EQ(rec.magic, kArmed);
      EXPECT_EQ(innermost_record(), &rec);
      EXPECT_EQ(pfm_inhibit_count(), 4);
      EXPECT_EQ(pfm_inhibit_suspend_count(), 2);
      pfm_raise(landings == 2 ? INT_MIN : 5);
    default:
      EXPECT_EQ(landings, 4);
      EXPECT_EQ(status, 5);
      EXPECT_EQ(rec.magic, kOffTheChain);
      EXPECT_EQ(pfm_inhibit_count(), 2);
      EXPECT_EQ(pfm_inhibit_suspend_count(), 0);
  }
}

// Random nests of frames, inhibits and faults, against the two numbers that each frame must find.
class Nest {
 public:
  explicit Nest(unsigned seed) : random_(seed) {}

  // Runs a frame, which leaves normally or lands; frames further in raise on or absorb.
  void frame(int depth) {
    pfm_cleanup_rec_t rec = {};
    const int32_t inhibited = pfm_inhibit_count();
    const int32_t suspended = pfm_inhibit_suspend_count();
    const int status = PFM_CLEANUP_START(&rec, static_cast<int>(one_of(2)));
    if (status != 0) {
      ++landings;
      ASSERT_EQ(pfm_inhibit_count(), inhibited + 1);
      ASSERT_EQ(pfm_inhibit_suspend_count(), suspended);
      ASSERT_EQ(status, raised_);
      if (depth > 0 && one_of(2) == 0) pfm_raise(status);
      pfm_enable();
      return;
    }
    times(static_cast<int>(one_of(4)), pfm_inhibit);
    times(static_cast<int>(one_of(3)), pfm_inhibit_suspend);
    while (depth < 20 && one_of(2) == 0) frame(depth + 1);
    if (one_of(2) == 0) pfm_raise(raised_ = 1 + static_cast<int>(one_of(30000)));
    while (pfm_inhibit_count() > inhibited) pfm_enable();
    while (pfm_inhibit_suspend_count() > suspended) pfm_enable_suspend();
    pfm_cleanup_rls(&rec);
  }

  int landings = 0;

 private:
  unsigned one_of(unsigned count) { return static_cast<unsigned>(random_() % count); }

  std::mt19937 random_;
  int raised_ = 0;
};

TEST(PfmCleanup, CountsAreRightInEveryFrameOfRandomNests) {
  for (unsigned seed = 1; seed <= 50; ++seed) {
    SCOPED_TRACE(seed);
    Nest nest(seed);
    for (int i = 0; i < 200; ++i) nest.frame(0);
    ASSERT_GT(nest.landings, 0);
    ASSERT_EQ(pfm_inhibit_count(), 0);
    ASSERT_EQ(pfm_inhibit_suspend_count(), 0);
    ASSERT_EQ(innermost_record(), nullptr);
  }
}

TEST(PfmCleanupReset, GuardsWhatFollowsWithTheSameRecord) {
  static int landings = 0;
  pfm_cleanup_rec_t outer = {};
  pfm_cleanup_rec_t rec = {};
  arm(&outer);
  times(2, pfm_inhibit);
  const int status = PFM_CLEANUP_START(&rec, 0);
  if (status != 0) {
    ++landings;
    EXPECT_EQ(status, landings);
    EXPECT_EQ(pfm_inhibit_count(), 3) << "trimmed by the count of the first arming";
    EXPECT_EQ(pfm_cleanup_reset(&rec), 0);
    EXPECT_EQ(rec.magic, kArmed);
    EXPECT_EQ(rec.prev, &outer);
    EXPECT_EQ(innermost_record(), &rec);
    EXPECT_EQ(pfm_inhibit_count(), 2);
  }
  if (landings < 5) {
    times(landings, pfm_inhibit);
    pfm_raise(landings + 1);
  }
  EXPECT_EQ(landings, 5);
  EXPECT_EQ(pfm_cleanup_rls(&rec), 0);
  EXPECT_EQ(innermost_record(), &outer);
}

// The record is back on the chain before the hold ends.
TEST(PfmCleanupReset, AFaultOfADeferredSignalLandsInTheSameRecord) {
  static std::vector<int> statuses;
  pfm_signal(SIGUSR1, raise_number);
  pfm_cleanup_rec_t rec = {};
  const int status = PFM_CLEANUP_START(&rec, 0);
  if (status != 0) statuses.push_back(status);
  if (status == 0) pfm_raise(7);
  if (status == 7) send_signal(SIGUSR1);
  pfm_cleanup_reset(&rec);
  EXPECT_THAT(statuses, ElementsAre(7, SIGUSR1));
  pfm_cleanup_rls(&rec);
}

TEST(PfmCleanupReset, PutsTheRecordOnTopOfTheChainThatThereIs) {
  pfm_cleanup_rec_t first = {};
  pfm_cleanup_rec_t second = {};
  arm(&first);
  pfm_cleanup_rls(&first);
  arm(&second);
  pfm_inhibit();
  pfm_cleanup_reset(&first);
  EXPECT_EQ(first.prev, &second);
  EXPECT_EQ(innermost_record(), &first);
}

TEST(PfmCleanupReset, KeepsAcceptingAReleasedRecord) {
  pfm_cleanup_rec_t rec = {};
  arm(&rec);
  pfm_cleanup_rls(&rec);
  times(2, pfm_inhibit);
  EXPECT_EQ(pfm_cleanup_reset(&rec), 0);
  EXPECT_EQ(rec.magic, kArmed);
  EXPECT_EQ(innermost_record(), &rec);
  EXPECT_EQ(pfm_inhibit_count(), 1);
}

// What the comment at the macro shows.
int guarded_copy(char *volatile *held, bool fault) {
  pfm_cleanup_rec_t rec;
  char *volatile text = nullptr;
  int status = PFM_CLEANUP_START(&rec, 0);
  if (status != 0) {
    *held = text;
    free(text);
    pfm_raise(status);
  }
  text = strdup("text");
  if (fault) pfm_raise(9);
  pfm_cleanup_rls(&rec);
  const int length = static_cast<int>(strlen(text));
  free(text);
  return length;
}

TEST(PfmCleanupMacro, WorksAsItsCommentShows) {
  static char *volatile held = nullptr;
  EXPECT_EQ(guarded_copy(&held, false), 4);
  EXPECT_EQ(held, nullptr);
  EXPECT_EQ(land([] { guarded_copy(&held, true); }), (Landing{9, 1, 0}));
  EXPECT_NE(held, nullptr);
  EXPECT_EQ(innermost_record(), nullptr);
}

TEST(PfmRaise, CarriesTheStatusUnchanged) {
  for (int status : {1, 4, 22, 23792, 0x10000, INT_MAX, -1, -4, INT_MIN}) {
    EXPECT_EQ(land([&] { pfm_raise(status); }).status, status);
  }
}

TEST(PfmRaise, MayComeFromASignalRoutineAgainAndAgain) {
  pfm_signal(SIGUSR1, raise_number);
  for (int i = 0; i < 3; ++i) {
    EXPECT_EQ(land([] { send_signal(SIGUSR1); }), (Landing{SIGUSR1, 1, 0}));
    EXPECT_FALSE(is_blocked(SIGUSR1));
  }
}

TEST(PfmRaiseDeferred, RaisesItsStatusAtOnceWhenNothingIsHeldBack) {
  EXPECT_EQ(land([] { pfm_raise_deferred(7); }), (Landing{7, 1, 0}));
  EXPECT_EQ(pfm_blocked_count(), 0);
}

TEST(PfmRaiseDeferred, TheSuspendCountAloneDoesNotDeferIt) {
  pfm_inhibit_suspend();
  EXPECT_EQ(land([] { pfm_raise_deferred(7); }), (Landing{7, 1, 1}));
}

TEST(PfmRaiseDeferred, KeepsDroppingTheStatusWhenItWaits) {
  default_signals();
  const Landing landing = land([] {
    times(2, pfm_inhibit);
    pfm_raise_deferred(7);
    EXPECT_EQ(pfm_blocked_count(), 1);
    pfm_enable();
    EXPECT_EQ(pfm_blocked_count(), 1);
    pfm_enable();
  });
  EXPECT_EQ(landing, (Landing{4, 1, 0}));
  EXPECT_EQ(pfm_blocked_count(), 0);
}

TEST(PfmRaiseDeferred, ArrivesThroughTheRoutineForSigint) {
  note_signals({SIGINT});
  pfm_inhibit();
  pfm_raise_deferred(7);
  EXPECT_THAT(take_noted(), IsEmpty());
  pfm_enable();
  EXPECT_THAT(take_noted(), ElementsAre(SIGINT));
}

TEST(PfmRaiseDeferred, IsMergedWithItselfAndWithSigint) {
  note_signals({SIGINT, SIGUSR1});
  pfm_inhibit();
  pfm_raise_deferred(7);
  pfm_raise_deferred(8);
  send_signal(SIGINT);
  pfm_raise_deferred(9);
  EXPECT_EQ(pfm_blocked_count(), 1);
  send_signal(SIGUSR1);
  EXPECT_EQ(pfm_blocked_count(), 2);
  pfm_enable();
  EXPECT_THAT(take_noted(), ElementsAre(SIGINT, SIGUSR1));
}

TEST(PfmRaiseDeferred, VanishesWhereSigintWasIgnoredAtTheStart) {
  default_signals();
  ks_test::set_system_handler(SIGINT, SIG_IGN);
  const Landing landing = land([] {
    pfm_inhibit();
    pfm_raise_deferred(7);
    EXPECT_EQ(pfm_blocked_count(), 1);
    pfm_enable();
  });
  EXPECT_EQ(landing, (Landing{0, 0, 0}));
  EXPECT_EQ(pfm_blocked_count(), 0);
}

TEST(PfmRaiseDeferred, LeavesTheSignalMaskAsItWas) {
  note_signals({SIGINT, SIGUSR1});
  sigset_t set;
  sigemptyset(&set);
  sigaddset(&set, SIGUSR2);
  sigprocmask(SIG_BLOCK, &set, nullptr);
  pfm_inhibit();
  pfm_raise_deferred(7);
  EXPECT_TRUE(is_blocked(SIGUSR2));
  EXPECT_FALSE(is_blocked(SIGINT));
  EXPECT_FALSE(is_blocked(SIGUSR1));
}

}  // namespace

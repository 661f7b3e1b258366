// Signals at any instruction: interval timers fire all the time, and every signal must be delivered
// exactly once.
#include <gtest/gtest.h>
#include <sys/select.h>
#include <sys/time.h>
#include <unistd.h>

#include <cerrno>
#include <csignal>
#include <cstdlib>
#include <random>

#include "core/ks_frame.h"
#include "core/pfm_internal.h"
#include "pfm.h"
#include "support/landing.h"
#include "support/signals.h"

using ks_test::innermost_record;
using ks_test::send_signal;

namespace {

constexpr int kRounds = 100000;
constexpr int kTicks = 10000;  // a storm lasts at least as long
constexpr int kMicroseconds = 70;
constexpr int kErrno = ENOTTY;  // of nothing that happens here

// Fires `routine` for SIGALRM while it lives. The routine stands behind the module's back, so it
// runs wherever signals are not blocked, also while they are held back.
class Timer {
 public:
  explicit Timer(void (*routine)(int)) {
    ks_test::set_system_handler(SIGALRM, routine, SA_RESTART);
    set(kMicroseconds);
  }
  ~Timer() { set(0); }
  Timer(const Timer &) = delete;
  Timer &operator=(const Timer &) = delete;

 private:
  static void set(int microseconds) {
    const itimerval interval = {{0, microseconds}, {0, microseconds}};
    setitimer(ITIMER_REAL, &interval, nullptr);
  }
};

// How often a signal was sent as a new one, not to be merged with one that waits, and delivered.
struct Traffic {
  volatile sig_atomic_t due;
  volatile sig_atomic_t delivered;
};
Traffic random_signal;  // SIGUSR2, sent by ticks
Traffic round_signal;   // SIGUSR1, sent by the rounds
Traffic stop_signal;    // SIGTSTP, sent by the rounds

// The routines' own errno shows only where the module calls them from the main flow.
volatile sig_atomic_t delivering = 0;

void count_up(Traffic *traffic) {
  traffic->delivered = traffic->delivered + 1;
  if (!delivering) errno = E2BIG;
}

void send_new(Traffic *traffic, int sig) {
  if (sigismember(&ks::deferred_signals, sig) == 0) traffic->due = traffic->due + 1;
  send_signal(sig);
}

void tick(int) { send_new(&random_signal, SIGUSR2); }

void take_in_traffic() {
  pfm_signal(SIGUSR1, [](int) { count_up(&round_signal); });
  pfm_signal(SIGUSR2, [](int) { count_up(&random_signal); });
  pfm_signal(SIGTSTP, [](int) { count_up(&stop_signal); });
}

// pfm_enable and pfm_enable_suspend, with a word to the routines that they may call.
void deliver(void (*enable)()) {
  delivering = 1;
  enable();
  delivering = 0;
}

// Holds signals back in one of several nests, and has some of its own arrive there.
void hold_signals(int round) {
  pfm_inhibit();
  if (round % 4 == 0) pfm_inhibit_suspend();
  if (round % 8 == 0) {
    send_new(&round_signal, SIGUSR1);
    send_new(&round_signal, SIGUSR1);
    send_new(&stop_signal, SIGTSTP);
  }
  for (int i = 0; i < round % 3; ++i) {
    pfm_inhibit();
    pfm_enable();
  }
  if (round % 16 == 8) deliver(pfm_enable);
  if (round % 4 == 0) deliver(pfm_enable_suspend);
  if (round % 16 != 8) deliver(pfm_enable);
}

void expect_nothing_lost() {
  EXPECT_EQ(random_signal.delivered, random_signal.due);
  EXPECT_EQ(round_signal.delivered, round_signal.due);
  EXPECT_EQ(stop_signal.delivered, stop_signal.due);
  EXPECT_EQ(pfm_inhibit_count(), 0);
  EXPECT_EQ(pfm_inhibit_suspend_count(), 0);
  EXPECT_EQ(pfm_blocked_count(), 0);
  EXPECT_EQ(innermost_record(), nullptr);
  EXPECT_EQ(ks_test::blocked_signals(), std::vector<int>{});
}

TEST(PfmStorm, EverySignalIsDeliveredOnceAroundInhibitAndEnable) {
  take_in_traffic();
  int round = 0;
  {
    Timer timer(tick);
    for (; round < kRounds || random_signal.due < kTicks; ++round) {
      errno = kErrno;
      hold_signals(round);
      ASSERT_EQ(errno, kErrno) << "round " << round;
      ASSERT_EQ(pfm_blocked_count(), 0) << "round " << round;
    }
  }
  expect_nothing_lost();
  // One of each in every eighth round: repeats are merged.
  EXPECT_EQ(round_signal.delivered, (round + 7) / 8);
  EXPECT_EQ(stop_signal.delivered, (round + 7) / 8);
}

TEST(PfmStorm, EverySignalIsDeliveredOnceAroundWaits) {
  take_in_traffic();
  int ends[2];
  ASSERT_EQ(pipe(ends), 0);
  ASSERT_EQ(write(ends[1], "x", 1), 1);
  int ready = 0;
  int woken = 0;
  {
    Timer timer(tick);
    while (ready + woken < kRounds || random_signal.due < kTicks) {
      fd_set set;
      FD_ZERO(&set);
      FD_SET(ends[0], &set);
      pfm_inhibit();
      errno = kErrno;
      const int result = pfm_select_inhibited(ends[0] + 1, &set, nullptr, nullptr, nullptr);
      ++(result == 1 ? ready : woken);
      ASSERT_EQ(errno, result == 1 ? kErrno : EINTR);
      ASSERT_EQ(pfm_inhibit_count(), 1);
      if (result != 1) {
        ASSERT_EQ(result, -1);
        ASSERT_EQ(pfm_blocked_count(), 1);
      }
      deliver(pfm_enable);
      ASSERT_EQ(pfm_blocked_count(), 0);
      ASSERT_EQ(innermost_record(), nullptr);
    }
  }
  expect_nothing_lost();
  EXPECT_GT(ready, 0);
  EXPECT_GT(woken, 0);
  close(ends[0]);
  close(ends[1]);
}

TEST(PfmStorm, EverySignalEndsItsWaitWheneverItArrives) {
  constexpr int kWaits = 10000;
  const unsigned seed = 1;
  SCOPED_TRACE(seed);
  std::mt19937 random(seed);
  static volatile sig_atomic_t alarms = 0;
  pfm_signal(SIGALRM, [](int) { alarms = alarms + 1; });
  for (int i = 0; i < kWaits; ++i) {
    // From before the wait has begun until it sleeps.
    const itimerval once = {{0, 0}, {0, 1 + static_cast<int>(random() % 100)}};
    timeval too_long = {30, 0};
    pfm_inhibit();
    setitimer(ITIMER_REAL, &once, nullptr);
    ASSERT_EQ(pfm_select_inhibited(0, nullptr, nullptr, nullptr, &too_long), -1);
    ASSERT_EQ(errno, EINTR);
    ASSERT_EQ(alarms, i);
    pfm_enable();
    ASSERT_EQ(alarms, i + 1);
  }
  EXPECT_EQ(pfm_blocked_count(), 0);
  EXPECT_EQ(innermost_record(), nullptr);
}

// Faults at any instruction. Nothing between the arming of the outermost record and its landings
// may have a destructor or be half done, so what is seen there is only counted.
struct Faults {
  volatile sig_atomic_t raised;
  volatile sig_atomic_t landed;
  volatile sig_atomic_t wrong;   // landings with another status or count
  volatile sig_atomic_t blocks;  // held by frames
};
Faults faults;

void raise_seven(int) {
  faults.raised = faults.raised + 1;
  pfm_raise(7);
}

// Runs `body` again and again, behind each fault under the same record, until enough have landed.
template <class Body>
void run_under_faults(Body body) {
  constexpr int kFaults = 5000;
  pfm_cleanup_rec_t rec = {};
  const int status = PFM_CLEANUP_START(&rec, 0);
  if (status != 0) {
    faults.landed = faults.landed + 1;
    if (status != 7 || pfm_inhibit_count() != 1 || pfm_inhibit_suspend_count() != 0) {
      faults.wrong = faults.wrong + 1;
    }
    if (faults.landed >= kFaults) {
      pfm_signal(SIGALRM, SIG_IGN);
      pfm_enable();
      return;
    }
    pfm_cleanup_reset(&rec);
  } else {
    pfm_signal(SIGALRM, raise_seven);
    const itimerval interval = {{0, kMicroseconds}, {0, kMicroseconds}};
    setitimer(ITIMER_REAL, &interval, nullptr);
  }
  for (int round = 0;; ++round) body(round);
}

void expect_faults_in_order() {
  EXPECT_GE(faults.raised, faults.landed);
  EXPECT_EQ(faults.wrong, 0);
  EXPECT_EQ(faults.blocks, 0);
  expect_nothing_lost();
}

TEST(PfmStorm, FaultsLandWithTheCountsOfTheirFrame) {
  run_under_faults([](int round) {
    pfm_inhibit();
    for (int i = 0; i < round % 5; ++i) {
      pfm_inhibit();
      pfm_inhibit_suspend();
      pfm_enable_suspend();
      pfm_enable();
    }
    pfm_enable();
    pfm_inhibit_suspend();
    pfm_enable_suspend();
  });
  expect_faults_in_order();
}

// A frame that holds a block while it works in frames further in.
void hold_block(int depth) {
  void *block = nullptr;
  const auto release = [&] {
    if (block == nullptr) return;
    free(block);
    block = nullptr;
    faults.blocks = faults.blocks - 1;
  };
  ks::protect(
      [&] {
        ks::signals_held([&] {
          block = malloc(16);
          faults.blocks = faults.blocks + 1;
        });
        if (depth > 1) hold_block(depth - 1);
        ks::signals_held(release);
      },
      release);
}

TEST(PfmStorm, FaultsLeaveNothingBehindInProtectedFrames) {
  run_under_faults([](int) { hold_block(3); });
  expect_faults_in_order();
}

}  // namespace

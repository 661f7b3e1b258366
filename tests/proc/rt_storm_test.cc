// Children that are born and killed at random while timers and signals fire all the time: every death
// is reported once and rightly, and no signal is lost or reported twice.
#include <gmock/gmock.h>
#include <gtest/gtest.h>
#include <unistd.h>

#include <array>
#include <csignal>
#include <cstdlib>
#include <ctime>
#include <string>
#include <vector>

#include "pfm.h"
#include "proc/rt_proc_children.h"
#include "rt.h"
#include "support/landing.h"
#include "support/random.h"
#include "support/signals.h"

using ks_test::exited;
using ks_test::killed_by;
using ks_test::land;
using ks_test::Landing;
using ks_test::send_signal;

namespace {

constexpr uint32_t kSeed = 72001;
constexpr int kTurns = 20000;
constexpr int kChildren = 200;
constexpr int kUnknown = -1;

ks_test::Random draw;

int below(int limit) { return static_cast<int>(draw() % static_cast<uint32_t>(limit)); }

// How often a signal was sent and its callback has come, and how many of the sent ones there were at
// the last of the calls.
struct Traffic {
  volatile sig_atomic_t sent;
  int called;
  int seen;
};
Traffic of_fast_timer;  // SIGUSR1, sent by its ticks
Traffic of_slow_timer;  // SIGUSR2, sent by its ticks
Traffic of_turns;       // SIGWINCH, sent in batches by turns

void send_one(Traffic &traffic, int sig) {
  traffic.sent = traffic.sent + 1;
  send_signal(sig);
}

void on_signal(int, void *arg) {
  auto *traffic = static_cast<Traffic *>(arg);
  ++traffic->called;
  traffic->seen = traffic->sent;
}

// Sends `sig` to this process at an interval while it lives; `tick` is its routine, behind the loop's
// back, so that it runs at any instruction.
class Timer {
 public:
  Timer(int sig, void (*tick)(int), long microseconds) {
    ks_test::set_system_handler(sig, tick, SA_RESTART);
    sigevent event = {};
    event.sigev_notify = SIGEV_SIGNAL;
    event.sigev_signo = sig;
    if (timer_create(CLOCK_MONOTONIC, &event, &timer_) != 0) abort();
    const itimerspec interval = {{0, microseconds * 1000}, {0, microseconds * 1000}};
    timer_settime(timer_, 0, &interval, nullptr);
  }
  ~Timer() { timer_delete(timer_); }
  Timer(const Timer &) = delete;
  Timer &operator=(const Timer &) = delete;

 private:
  timer_t timer_;
};

// A child, and the status that its death must be reported with, once that is decided. One that leaves
// by itself may be overtaken by a signal to all.
struct Life {
  pid_t pid;
  int status;
  int other_status;
  bool disowned;
  int reports;
};
std::array<Life, kChildren> lives;
int born = 0;
int turns = 0;
int batches = 0;
bool over = false;

void report(pid_t pid, int status, void *arg, rt_proc_t *record) {
  auto *life = static_cast<Life *>(arg);
  EXPECT_NE(record, nullptr);
  EXPECT_EQ(pid, life->pid);
  EXPECT_FALSE(life->disowned);
  EXPECT_TRUE(status == life->status || status == life->other_status)
      << status << " where " << life->status << " or " << life->other_status;
  ++life->reports;
}

void bear() {
  Life &life = lives[static_cast<size_t>(born++)];
  const int code = below(2) == 0 ? below(256) : kUnknown;
  life = {0, code == kUnknown ? kUnknown : exited(code), kUnknown, false, 0};
  life.pid = rt_proc_fork(report, &life);
  if (life.pid == 0 && code != kUnknown) _exit(code);
  if (life.pid == 0) ks_test::wait_for_a_signal();
  ASSERT_GT(life.pid, 0);
}

Life &any_life() { return lives[static_cast<size_t>(below(born))]; }

void kill_one() {
  Life &life = any_life();
  if (life.status != kUnknown) return;
  constexpr int kSignals[] = {SIGKILL, SIGPIPE, SIGTERM};
  const int sig = kSignals[below(3)];
  life.status = killed_by(sig);
  kill(life.pid, sig);
}

// Before its death is reported only: the number may be somebody else's later.
void disown_one() {
  Life &life = any_life();
  if (life.reports != 0 || life.disowned) return;
  EXPECT_EQ(rt_proc_disown(life.pid), 0);
  life.disowned = true;
}

void kill_all() {
  pfm_inhibit();
  for (Life &life : lives) {
    if (life.pid == 0 || life.reports != 0 || rt_proc_alive(life.pid) == 0) continue;
    (life.status == kUnknown ? life.status : life.other_status) = killed_by(SIGTERM);
  }
  rt_proc_killall();
  pfm_enable();
}

void send_batch() {
  ++batches;
  for (int i = 1 + below(3); i > 0; --i) send_one(of_turns, SIGWINCH);
}

void act() {
  if (born < kChildren && born * (kTurns / kChildren) <= turns) bear();
  if (turns % 5000 == 4999) kill_all();
  switch (below(16)) {
    case 0:
      return kill_one();
    case 1:
      return below(16) == 0 ? disown_one() : void();
    case 2:
      return send_batch();
  }
}

void schedule(rt_callback_t callback) {
  const timeval soon = {0, 50};
  if (below(8) == 0) {
    rt_sched_rel(callback, nullptr, &soon);
  } else {
    rt_sched(callback, nullptr, 0);
  }
}

void wait_for_the_last(void *) {
  over = rt_proc_any_procs() == 0;
  const timeval soon = {0, 1000};
  over ? rt_shutdown() : static_cast<void>(rt_sched_rel(wait_for_the_last, nullptr, &soon));
}

void turn(void *) {
  const bool held = below(4) == 0;
  if (held) pfm_inhibit();
  act();
  if (held) pfm_enable();
  ++turns;
  if (turns == kTurns) kill_all();
  schedule(turns < kTurns ? turn : wait_for_the_last);
  if (below(100) == 0) pfm_raise(9);
}

// Faults of turns leave the loop, which is entered again.
void run_to_the_end() {
  schedule(turn);
  while (!over) {
    const Landing landing = land([] { rt_run(); });
    ASSERT_TRUE(landing == Landing{} || landing == (Landing{9, 1, 0}));
  }
}

void expect_all_served(const Traffic &traffic, const char *name) {
  SCOPED_TRACE(name);
  EXPECT_GT(traffic.sent, 0);
  EXPECT_LE(traffic.called, traffic.sent);
  EXPECT_EQ(traffic.seen, traffic.sent) << "the last one was followed by a call";
}

TEST(RtStorm, EveryDeathAndEveryBatchOfSignalsIsReportedOnce) {
  SCOPED_TRACE("seed " + std::to_string(kSeed));
  draw.seed(kSeed);
  ks_test::default_children();
  const std::vector<std::string> descriptors = ks_test::open_descriptors();
  rt_handle_signal(SIGUSR1, on_signal, &of_fast_timer);
  rt_handle_signal(SIGUSR2, on_signal, &of_slow_timer);
  rt_handle_signal(SIGWINCH, on_signal, &of_turns);
  {
    Timer fast(
        SIGALRM, [](int) { send_one(of_fast_timer, SIGUSR1); }, 100);
    Timer slow(
        SIGVTALRM, [](int) { send_one(of_slow_timer, SIGUSR2); }, 170);
    run_to_the_end();
  }
  ks_test::run_due_events();

  EXPECT_EQ(turns, kTurns);
  EXPECT_EQ(born, kChildren);
  for (const Life &life : lives) EXPECT_EQ(life.reports, life.disowned ? 0 : 1) << life.pid;
  EXPECT_FALSE(ks_test::has_children()) << "nobody is left, dead or alive";
  expect_all_served(of_fast_timer, "SIGUSR1");
  expect_all_served(of_slow_timer, "SIGUSR2");
  expect_all_served(of_turns, "SIGWINCH");
  EXPECT_EQ(of_turns.called, batches);
  EXPECT_EQ(pfm_inhibit_count(), 0);
  EXPECT_EQ(pfm_blocked_count(), 0);
  EXPECT_THAT(ks_test::blocked_signals(), testing::IsEmpty());
  EXPECT_EQ(ks_test::open_descriptors(), descriptors);
}

}  // namespace

// A write that waits, and signals that are held meanwhile.
#include "core/ks_write.h"

#include <fcntl.h>
#include <gtest/gtest.h>
#include <unistd.h>

#include <cerrno>
#include <csignal>
#include <cstring>
#include <ctime>
#include <string>
#include <vector>

#include "pfm.h"
#include "support/child.h"
#include "support/landing.h"
#include "support/signals.h"
#include "support/stepping.h"

using ks::write_once;
using ks_test::in_child;
using ks_test::kStepBegin;
using ks_test::kStepEnd;
using ks_test::land;
using ks_test::Outcome;
using ks_test::send_signal;

namespace {

iovec text(const char *bytes) { return {const_cast<char *>(bytes), strlen(bytes)}; }

// A pipe that takes nothing more until it is read from.
struct FullPipe {
  int ends[2];

  FullPipe() {
    if (pipe(ends) != 0) _exit(100);
    fcntl(ends[1], F_SETPIPE_SZ, 4096);
    fcntl(ends[1], F_SETFL, O_NONBLOCK);
    const char page[4096] = {};
    while (write(ends[1], page, sizeof page) > 0) {
    }
    fcntl(ends[1], F_SETFL, 0);
  }
};

// A signal to this process in some time, again and again.
void send_later(int sig, long milliseconds) {
  sigevent event = {};
  event.sigev_notify = SIGEV_SIGNAL;
  event.sigev_signo = sig;
  timer_t timer;
  const timespec delay = {0, milliseconds * 1000000};
  const itimerspec times = {delay, delay};
  if (timer_create(CLOCK_MONOTONIC, &event, &timer) != 0) _exit(101);
  timer_settime(timer, 0, &times, nullptr);
}

TEST(WriteOnce, WritesWhatThereIsAndNotesIt) {
  int ends[2];
  ASSERT_EQ(pipe(ends), 0);
  size_t noted = 0;
  EXPECT_TRUE(write_once(
      ends[1], [] { return text("bytes"); }, [&](size_t size) { noted += size; }));
  EXPECT_EQ(noted, 5u);
  char found[8] = "";
  EXPECT_EQ(read(ends[0], found, sizeof found), 5);
  EXPECT_STREQ(found, "bytes");
  EXPECT_EQ(pfm_inhibit_count(), 0);
  close(ends[0]);
  close(ends[1]);
}

TEST(WriteOnce, AFailureIsToldWithErrnoAndNothingIsNoted) {
  const int full = open("/dev/full", O_WRONLY | O_CLOEXEC);
  size_t noted = 0;
  EXPECT_FALSE(write_once(
      full, [] { return text("bytes"); }, [&](size_t size) { noted += size; }));
  EXPECT_EQ(errno, ENOSPC);
  EXPECT_EQ(noted, 0u);
  close(full);
}

// Without a wait for the reader, who would never come.
TEST(WriteOnce, ASignalThatIsDeferredBeforeTheWriteKeepsItFromWaiting) {
  const Outcome outcome = in_child([] {
    pfm_signal(SIGUSR1, ks_test::note_signal);
    const FullPipe pipe;
    size_t noted = 0;
    const bool written = write_once(
        pipe.ends[1],
        [] {
          send_signal(SIGUSR1);
          return text("bytes");
        },
        [&](size_t size) { noted += size; });
    _exit(written && noted == 0 && ks_test::take_noted() == std::vector{SIGUSR1} ? 0 : 1);
  });
  EXPECT_EQ(outcome.end(), "exit 0");
}

TEST(WriteOnce, ASignalEndsAWriteThatWaits) {
  const Outcome outcome = in_child([] {
    pfm_signal(SIGUSR1, ks_test::note_signal);
    const FullPipe pipe;
    send_later(SIGUSR1, 20);
    size_t noted = 0;
    const bool written = write_once(
        pipe.ends[1], [] { return text("bytes"); }, [&](size_t size) { noted += size; });
    _exit(written && noted == 0 && ks_test::take_noted() == std::vector{SIGUSR1} ? 0 : 1);
  });
  EXPECT_EQ(outcome.end(), "exit 0");
}

TEST(WriteOnce, ARoutineThatRaisesFindsWhatIsOutNoted) {
  pfm_signal(SIGUSR1, ks_test::raise_number);
  int ends[2];
  ASSERT_EQ(pipe(ends), 0);
  static size_t noted = 0;
  const auto landing = land([&] {
    write_once(
        ends[1], [] { return text("bytes"); },
        [](size_t size) {
          send_signal(SIGUSR1);
          noted += size;
        });
  });
  EXPECT_EQ(landing.status, SIGUSR1);
  EXPECT_EQ(noted, 5u);
  close(ends[0]);
  close(ends[1]);
  pfm_signal(SIGUSR1, SIG_DFL);
}

// Signals that the caller holds wait for the caller; the write goes on.
TEST(WriteOnce, GoesOnWhereTheCallerHoldsSignals) {
  pfm_signal(SIGUSR1, ks_test::note_signal);
  int ends[2];
  ASSERT_EQ(pipe(ends), 0);
  pfm_inhibit();
  send_signal(SIGUSR1);
  size_t noted = 0;
  EXPECT_TRUE(write_once(
      ends[1], [] { return text("bytes"); }, [&](size_t size) { noted += size; }));
  EXPECT_EQ(noted, 5u);
  EXPECT_EQ(ks_test::take_noted(), std::vector<int>{});
  pfm_enable();
  EXPECT_EQ(ks_test::take_noted(), std::vector{SIGUSR1});
  close(ends[0]);
  close(ends[1]);
  pfm_signal(SIGUSR1, SIG_DFL);
}

// SIGTSTP that is held back by its own count is not delivered behind a write either, so it must not
// keep the write from going on.
TEST(WriteOnce, GoesOnBesideASuspensionThatIsHeld) {
  pfm_inhibit_suspend();
  pfm_signal(SIGTSTP, ks_test::note_signal);
  int ends[2];
  ASSERT_EQ(pipe(ends), 0);
  send_signal(SIGTSTP);
  size_t noted = 0;
  EXPECT_TRUE(write_once(
      ends[1], [] { return text("bytes"); }, [&](size_t size) { noted += size; }));
  EXPECT_EQ(noted, 5u);
  pfm_enable_suspend();
  EXPECT_EQ(ks_test::take_noted(), std::vector{SIGTSTP});
  close(ends[0]);
  close(ends[1]);
}

// A signal at every instruction of a write that would wait for ever.

void write_into(const FullPipe &pipe) {
  for (;;) {
    write_once(
        pipe.ends[1], [] { return text("bytes"); }, [](size_t) { _exit(1); });
  }
}

void wait_round(const FullPipe &pipe) {
  const auto landing = land([&] {
    send_signal(kStepBegin);
    write_into(pipe);
  });
  if (landing.status != SIGUSR1 || pfm_blocked_count() != 0) _exit(2);
  send_signal(kStepEnd);
}

TEST(WriteOnce, ASignalAtAnyInstructionEndsTheWait) {
  const ks_test::Steps steps = ks_test::step_through(
      [] {
        pfm_signal(SIGUSR1, ks_test::raise_number);
        const FullPipe pipe;
        sigevent event = {};
        event.sigev_notify = SIGEV_SIGNAL;
        event.sigev_signo = SIGUSR1;
        timer_t timer;
        if (timer_create(CLOCK_MONOTONIC, &event, &timer) != 0) _exit(3);
        const itimerspec soon = {{}, {0, 20000000}};
        timer_settime(timer, 0, &soon, nullptr);
        wait_round(pipe);  // binds what the stretch calls
        ks_test::be_traced();
        event.sigev_signo = kStepEnd;  // where the wait begins, by then
        if (timer_create(CLOCK_MONOTONIC, &event, &timer) != 0) _exit(3);
        const itimerspec later = {{}, {0, 300000000}};
        timer_settime(timer, 0, &later, nullptr);
        wait_round(pipe);
        // Whoever waits now has missed the signal.
        event.sigev_signo = SIGKILL;
        if (timer_create(CLOCK_MONOTONIC, &event, &timer) != 0) _exit(3);
        const itimerspec limit = {{}, {3, 0}};
        for (;;) {
          timer_settime(timer, 0, &limit, nullptr);
          wait_round(pipe);
        }
      },
      SIGUSR1);
  EXPECT_GT(steps.places, 20u);
  EXPECT_EQ(steps.done, steps.places) << steps.end;
  EXPECT_EQ(steps.end, "signal 9");
}

}  // namespace

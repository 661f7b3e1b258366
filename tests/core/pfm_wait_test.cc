// Waiting with signals held back.
#include <fcntl.h>
#include <gmock/gmock.h>
#include <gtest/gtest.h>
#include <sys/ioctl.h>
#include <sys/select.h>
#include <termios.h>
#include <unistd.h>

#include <cerrno>
#include <csignal>
#include <cstdio>
#include <cstdlib>
#include <ctime>
#include <limits>
#include <vector>

#include "pfm.h"
#include "support/child.h"
#include "support/faults.h"
#include "support/landing.h"
#include "support/signals.h"

using ks_test::count_calls;
using ks_test::default_signals;
using ks_test::innermost_record;
using ks_test::is_blocked;
using ks_test::land;
using ks_test::Landing;
using ks_test::note_signals;
using ks_test::send_signal;
using ks_test::set_system_handler;
using ks_test::signal_in_call;
using ks_test::take_noted;
using testing::ElementsAre;
using testing::IsEmpty;

namespace {

// A wait that only a signal can end before that long.
constexpr timeval kTooLong = {30, 0};

// A pipe with its reading end in a descriptor set.
class Pipe {
 public:
  Pipe() {
    if (pipe(ends_) != 0) abort();
    FD_ZERO(&set_);
    FD_SET(ends_[0], &set_);
  }
  ~Pipe() {
    for (int end : ends_) close(end);
  }
  Pipe(const Pipe &) = delete;
  Pipe &operator=(const Pipe &) = delete;

  void fill() { ASSERT_EQ(write(ends_[1], "x", 1), 1); }
  int nfds() const { return ends_[0] + 1; }
  fd_set *set() { return &set_; }
  bool in_set() const { return FD_ISSET(ends_[0], &set_); }
  int writing_end() const { return ends_[1]; }

 private:
  int ends_[2];
  fd_set set_;
};

int wait_for(Pipe &pipe, timeval timeout) {
  return pfm_select_inhibited(pipe.nfds(), pipe.set(), nullptr, nullptr, &timeout);
}

// The wait is over for good: the record is gone, the count is as before, and a further signal waits
// instead of waking anybody up.
void expect_over() {
  EXPECT_EQ(innermost_record(), nullptr);
  EXPECT_EQ(pfm_inhibit_count(), 1);
  take_noted();
  const int32_t waiting = pfm_blocked_count();
  note_signals({SIGURG});
  send_signal(SIGURG);
  EXPECT_EQ(pfm_blocked_count(), waiting + 1);
  EXPECT_THAT(take_noted(), IsEmpty());
}

TEST(PfmSelectInhibited, GivesTheNumberOfReadyDescriptors) {
  Pipe empty;
  Pipe full;
  full.fill();
  fd_set reading;
  FD_ZERO(&reading);
  FD_SET(empty.nfds() - 1, &reading);
  FD_SET(full.nfds() - 1, &reading);
  fd_set writing;
  FD_ZERO(&writing);
  FD_SET(empty.writing_end(), &writing);
  timeval timeout = kTooLong;
  pfm_inhibit();
  EXPECT_EQ(pfm_select_inhibited(full.writing_end() + 1, &reading, &writing, nullptr, &timeout), 2);
  EXPECT_FALSE(FD_ISSET(empty.nfds() - 1, &reading));
  EXPECT_TRUE(FD_ISSET(full.nfds() - 1, &reading));
  EXPECT_TRUE(FD_ISSET(empty.writing_end(), &writing));
  expect_over();
}

// In packet mode, a pseudo-terminal's master tells by an exceptional condition that the other side
// has flushed its input.
TEST(PfmSelectInhibited, ReportsExceptionalConditions) {
  const int master = posix_openpt(O_RDWR | O_NOCTTY);
  ASSERT_GE(master, 0);
  ASSERT_EQ(grantpt(master), 0);
  ASSERT_EQ(unlockpt(master), 0);
  const int slave = open(ptsname(master), O_RDWR | O_NOCTTY);
  ASSERT_GE(slave, 0);
  int on = 1;
  ASSERT_EQ(ioctl(master, TIOCPKT, &on), 0);
  ASSERT_EQ(tcflush(slave, TCIFLUSH), 0);
  fd_set exceptions;
  FD_ZERO(&exceptions);
  FD_SET(master, &exceptions);
  timeval timeout = kTooLong;
  pfm_inhibit();
  EXPECT_EQ(pfm_select_inhibited(master + 1, nullptr, nullptr, &exceptions, &timeout), 1);
  EXPECT_TRUE(FD_ISSET(master, &exceptions));
  close(slave);
  close(master);
}

TEST(PfmSelectInhibited, WaitsWithoutEndForANullTimeout) {
  Pipe pipe;
  pipe.fill();
  pfm_inhibit();
  EXPECT_EQ(pfm_select_inhibited(pipe.nfds(), pipe.set(), nullptr, nullptr, nullptr), 1);
  expect_over();
}

TEST(PfmSelectInhibited, GivesZeroAtTheTimeout) {
  Pipe pipe;
  timespec before;
  timespec after;
  pfm_inhibit();
  clock_gettime(CLOCK_MONOTONIC, &before);
  EXPECT_EQ(wait_for(pipe, {0, 20000}), 0);
  clock_gettime(CLOCK_MONOTONIC, &after);
  const double waited = static_cast<double>(after.tv_sec - before.tv_sec) +
                        static_cast<double>(after.tv_nsec - before.tv_nsec) * 1e-9;
  EXPECT_GE(waited, 0.02);
  EXPECT_FALSE(pipe.in_set());
  expect_over();
}

TEST(PfmSelectInhibited, PassesAFailureOfSelectOn) {
  const int closed = dup(STDOUT_FILENO);
  close(closed);
  fd_set set;
  FD_ZERO(&set);
  FD_SET(closed, &set);
  timeval timeout = kTooLong;
  pfm_inhibit();
  errno = 0;
  EXPECT_EQ(pfm_select_inhibited(closed + 1, &set, nullptr, nullptr, &timeout), -1);
  EXPECT_EQ(errno, EBADF);
  errno = 0;
  EXPECT_EQ(pfm_select_inhibited(-1, nullptr, nullptr, nullptr, &timeout), -1);
  EXPECT_EQ(errno, EINVAL);
  for (timeval negative : {timeval{-1, 0}, timeval{5, -1}, timeval{5, -2000000}}) {
    errno = 0;
    EXPECT_EQ(pfm_select_inhibited(0, nullptr, nullptr, nullptr, &negative), -1);
    EXPECT_EQ(errno, EINVAL);
  }
  expect_over();
}

TEST(PfmSelectInhibited, ASignalThatWaitsAlreadyEndsItBeforeItBegins) {
  Pipe pipe;
  pipe.fill();
  note_signals({SIGUSR1});
  pfm_inhibit();
  send_signal(SIGUSR1);
  const int selects = count_calls("select");
  for (int i = 0; i < 3; ++i) {
    errno = 0;
    EXPECT_EQ(pfm_select_inhibited(pipe.nfds(), pipe.set(), nullptr, nullptr, nullptr), -1);
    EXPECT_EQ(errno, EINTR);
  }
  EXPECT_EQ(count_calls("select"), selects) << "although a descriptor is ready";
  EXPECT_TRUE(pipe.in_set());
  EXPECT_THAT(take_noted(), IsEmpty());
  expect_over();
}

TEST(PfmSelectInhibited, ASigtstpThatIsHeldBackEndsItToo) {
  Pipe pipe;
  note_signals({SIGTSTP});
  pfm_inhibit_suspend();
  send_signal(SIGTSTP);
  pfm_inhibit();
  errno = 0;
  EXPECT_EQ(wait_for(pipe, kTooLong), -1);
  EXPECT_EQ(errno, EINTR);
  EXPECT_EQ(pfm_blocked_count(), 1);
}

TEST(PfmSelectInhibited, ADeferredRaiseEndsItAndComesWithEnable) {
  default_signals();
  Pipe pipe;
  const Landing landing = land([&] {
    pfm_inhibit();
    pfm_raise_deferred(7);
    EXPECT_EQ(wait_for(pipe, kTooLong), -1);
    EXPECT_EQ(errno, EINTR);
    pfm_enable();
  });
  EXPECT_EQ(landing, (Landing{4, 1, 0}));
}

// State letter of a process: 'S' while it sleeps in a system call.
char state_of(pid_t pid) {
  char path[64];
  snprintf(path, sizeof path, "/proc/%d/stat", static_cast<int>(pid));
  FILE *file = fopen(path, "r");
  if (file == nullptr) return '?';
  char state = '?';
  if (fscanf(file, "%*d (%*[^)]) %c", &state) != 1) state = '?';
  fclose(file);
  return state;
}

// The body of a child that waits until its parent sleeps, and then sends it a signal.
void signal_sleeping_parent(int sig) {
  const timespec pause = {0, 1000000};
  for (int i = 0; i < 20000 && state_of(getppid()) != 'S'; ++i) nanosleep(&pause, nullptr);
  kill(getppid(), sig);
}

TEST(PfmSelectInhibited, ASignalEndsTheSleepAndWaitsForEnable) {
  Pipe pipe;
  note_signals({SIGUSR1});
  pfm_inhibit();
  ks_test::Child sender([] { signal_sleeping_parent(SIGUSR1); });
  errno = 0;
  EXPECT_EQ(wait_for(pipe, kTooLong), -1);
  EXPECT_EQ(errno, EINTR);
  EXPECT_THAT(take_noted(), IsEmpty());
  EXPECT_EQ(pfm_blocked_count(), 1);
  EXPECT_EQ(pfm_inhibit_count(), 1);
  EXPECT_FALSE(is_blocked(SIGUSR1));
  EXPECT_EQ(innermost_record(), nullptr);
  pfm_enable();
  EXPECT_THAT(take_noted(), ElementsAre(SIGUSR1));
  EXPECT_EQ(pfm_blocked_count(), 0);
  sender.finish();
}

TEST(PfmSelectInhibited, ASecondSignalBehindTheSleepWakesNobody) {
  Pipe pipe;
  note_signals({SIGUSR1});
  pfm_inhibit();
  signal_in_call("select", 0, SIGUSR1);
  EXPECT_EQ(wait_for(pipe, kTooLong), -1);
  expect_over();
}

// The count has been tested then, and the sleep has not begun.
TEST(PfmSelectInhibited, NoSignalSlipsInBetweenTheTestAndTheSleep) {
  Pipe pipe;
  note_signals({SIGUSR1});
  for (int i = 0; i < 3; ++i) {
    pfm_inhibit();
    signal_in_call("select", 0, SIGUSR1);
    errno = 0;
    EXPECT_EQ(wait_for(pipe, kTooLong), -1);
    EXPECT_EQ(errno, EINTR);
    EXPECT_EQ(pfm_blocked_count(), 1);
    pfm_enable();
    EXPECT_THAT(take_noted(), ElementsAre(SIGUSR1));
  }
}

void do_nothing(int) {}

TEST(PfmSelectInhibited, ASignalBehindTheModulesBackEndsItAsItEndsSelect) {
  Pipe pipe;
  set_system_handler(SIGUSR1, do_nothing);
  pfm_inhibit();
  ks_test::Child sender([] { signal_sleeping_parent(SIGUSR1); });
  errno = 0;
  EXPECT_EQ(wait_for(pipe, kTooLong), -1);
  EXPECT_EQ(errno, EINTR);
  EXPECT_EQ(pfm_blocked_count(), 0);
  expect_over();
  sender.finish();
}

void raise_seven(int) { pfm_raise(7); }

TEST(PfmSelectInhibited, AnotherFaultGoesOutward) {
  Pipe pipe;
  set_system_handler(SIGUSR1, raise_seven);
  const Landing landing = land([&] {
    pfm_inhibit();
    signal_in_call("select", 0, SIGUSR1);
    wait_for(pipe, kTooLong);
  });
  EXPECT_EQ(landing, (Landing{7, 1, 0}));
  pfm_inhibit();
  expect_over();
}

TEST(PfmSelectInhibited, AnotherFaultLandsOnceAboveTheCallersCount) {
  Pipe pipe;
  set_system_handler(SIGUSR1, raise_seven);
  pfm_inhibit();
  const Landing landing = land([&] {
    signal_in_call("select", 0, SIGUSR1);
    wait_for(pipe, kTooLong);
  });
  EXPECT_EQ(landing, (Landing{7, 2, 0}));
  expect_over();
}

void raise_minus_one(int) { pfm_raise(-1); }

// A record stays armed at a negative status: the wait's own must not catch it again and again.
TEST(PfmSelectInhibited, ANegativeStatusGoesOutward) {
  Pipe pipe;
  set_system_handler(SIGUSR1, raise_minus_one);
  const Landing landing = land([&] {
    pfm_inhibit();
    signal_in_call("select", 0, SIGUSR1);
    wait_for(pipe, kTooLong);
  });
  EXPECT_EQ(landing, (Landing{-1, 1, 0}));
  expect_over();
}

// A routine behind the module's back that has frames of its own, in which a signal arrives.
std::vector<int> statuses_in_routine;
void land_twice(int) {
  for (int sig : {SIGUSR2, SIGALRM}) {
    statuses_in_routine.push_back(land([&] { send_signal(sig); }).status);
  }
}

TEST(PfmSelectInhibited, ASignalInAnothersFrameWakesTheWaitAndNotTheFrame) {
  Pipe pipe;
  note_signals({SIGUSR2, SIGALRM});
  set_system_handler(SIGUSR1, land_twice);
  pfm_inhibit();
  signal_in_call("select", 0, SIGUSR1);
  errno = 0;
  EXPECT_EQ(wait_for(pipe, kTooLong), -1);
  EXPECT_EQ(errno, EINTR);
  EXPECT_THAT(statuses_in_routine, ElementsAre(0, 0));
  EXPECT_EQ(pfm_blocked_count(), 2);
}

// Nothing in the wait raises it: it is a status like any other.
TEST(PfmSelectInhibited, ItsPrivateStatusMayComeFromSomebodyElse) {
  Pipe pipe;
  set_system_handler(SIGUSR1, [](int) { pfm_raise(PFM_STATUS_SELECT_WAKE); });
  pfm_inhibit();
  const Landing landing = land([&] {
    signal_in_call("select", 0, SIGUSR1);
    wait_for(pipe, kTooLong);
  });
  EXPECT_EQ(landing, (Landing{23792, 2, 0}));
  expect_over();
}

TEST(PfmSelectInhibited, CarriesMicrosecondsOfASecondAndMore) {
  Pipe pipe;
  pipe.fill();
  timeval timeout = {30, 2500000};
  pfm_inhibit();
  EXPECT_EQ(pfm_select_inhibited(pipe.nfds(), pipe.set(), nullptr, nullptr, &timeout), 1);
  EXPECT_EQ(timeout.tv_sec, 32);
  EXPECT_LT(timeout.tv_usec, 500000);
  timeval longest = {std::numeric_limits<time_t>::max(), 2500000};
  EXPECT_EQ(pfm_select_inhibited(pipe.nfds(), pipe.set(), nullptr, nullptr, &longest), 1);
}

TEST(PfmSelectInhibited, StoresTheTimeThatWasLeft) {
  Pipe pipe;
  pipe.fill();
  timeval timeout = kTooLong;
  pfm_inhibit();
  EXPECT_EQ(pfm_select_inhibited(pipe.nfds(), pipe.set(), nullptr, nullptr, &timeout), 1);
  EXPECT_EQ(timeout.tv_sec, kTooLong.tv_sec - 1);
  EXPECT_GT(timeout.tv_usec, 0);
}

}  // namespace

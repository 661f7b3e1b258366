// What a new process forgets of its parent, and what it keeps.
#include "core/ks_fork.h"

#include <gtest/gtest.h>
#include <pthread.h>
#include <sys/wait.h>
#include <unistd.h>

#include <cerrno>
#include <csignal>
#include <cstdio>
#include <functional>
#include <vector>

#include "pfm.h"
#include "support/child.h"
#include "support/faults.h"
#include "support/landing.h"
#include "support/signals.h"

using ks::Child;
using ks_test::in_child;
using ks_test::innermost_record;
using ks_test::land;
using ks_test::Landing;
using ks_test::note_signals;
using ks_test::send_signal;
using ks_test::take_noted;

namespace {

// Runs `body` in a child made by fork_child. Result: the status that it left with.
int status_of(Child child, const std::function<void()> &body) {
  const pid_t pid = ks::fork_child(child);
  if (pid == 0) {
    body();
    _exit(0);
  }
  int status = 0;
  EXPECT_EQ(waitpid(pid, &status, 0), pid);
  EXPECT_TRUE(WIFEXITED(status)) << status;
  return WEXITSTATUS(status);
}

TEST(KsFork, SignalsThatWaitForDeliveryAreTheParentsAlone) {
  for (Child child : {Child::kGoesOn, Child::kRunsOrEnds}) {
    note_signals({SIGUSR1, SIGUSR2});
    pfm_inhibit();
    send_signal(SIGUSR1);
    send_signal(SIGUSR2);
    EXPECT_EQ(status_of(child,
                        [] {
                          if (pfm_blocked_count() != 0) _exit(1);
                          pfm_enable();
                          if (!take_noted().empty()) _exit(2);
                        }),
              0);
    EXPECT_EQ(pfm_blocked_count(), 2);
    pfm_enable();
    EXPECT_EQ(take_noted(), (std::vector<int>{SIGUSR1, SIGUSR2}));
  }
}

// It comes before fork has returned in the child.
TEST(KsFork, ASignalForTheChildComesHoweverEarly) {
  pthread_atfork(nullptr, nullptr, [] { send_signal(SIGUSR1); });
  note_signals({SIGUSR1});
  const auto expect_it_once = [] {
    if (take_noted() != std::vector<int>{SIGUSR1}) _exit(1);
  };
  EXPECT_EQ(status_of(Child::kGoesOn, expect_it_once), 0);
  pfm_inhibit();
  send_signal(SIGUSR1);
  EXPECT_EQ(status_of(Child::kGoesOn,
                      [&] {
                        if (!take_noted().empty()) _exit(2);
                        pfm_enable();
                        expect_it_once();
                      }),
            0);
  pfm_enable();
}

TEST(KsFork, AChildThatGoesOnKeepsRecordsAndHooks) {
  const ks_test::Outcome outcome = in_child([] {
    pfm_on_exit([](int, void *) { _exit(5); }, nullptr);
    land(
        [] {
          if (status_of(Child::kGoesOn, [] { pfm_exit(0); }) != 5) _exit(1);
          if (status_of(Child::kGoesOn, [] { pfm_raise(7); }) != 6) _exit(2);
        },
        [] { _exit(6); });
  });
  EXPECT_EQ(outcome.end(), "exit 0");
}

TEST(KsFork, AChildThatEndsRunsNothingOfItsParents) {
  const ks_test::Outcome outcome = in_child([] {
    printf("held by the stream, ");
    pfm_on_exit([](int, void *) { _exit(5); }, nullptr);
    land(
        [] {
          if (status_of(Child::kRunsOrEnds, [] { pfm_exit(3); }) != 3) _exit(1);
          if (status_of(Child::kRunsOrEnds, [] { pfm_raise(4); }) != 4) _exit(2);
        },
        [] { _exit(6); });
    printf("written once");
    fflush(stdout);
    _exit(0);
  });
  EXPECT_EQ(outcome.out, "held by the stream, written once");
  EXPECT_EQ(outcome.end(), "exit 0");
}

TEST(KsFork, AChildThatEndsRunsItsOwnHooks) {
  EXPECT_EQ(status_of(Child::kRunsOrEnds,
                      [] {
                        pfm_on_exit([](int, void *) { _exit(5); }, nullptr);
                        pfm_exit(0);
                      }),
            5);
}

TEST(KsFork, LeavesTheParentAsItWas) {
  pfm_init();
  for (Child child : {Child::kGoesOn, Child::kRunsOrEnds}) {
    land([=] {
      const pfm_cleanup_rec_t *record = innermost_record();
      status_of(child, [] {});
      EXPECT_EQ(innermost_record(), record);
    });
    EXPECT_TRUE(ks_test::blocked_signals().empty());
  }
  EXPECT_EQ(pfm_set_exit(exit), exit);
}

TEST(KsFork, AFailureIsForks) {
  ks_test::fail_call("fork", 0, EAGAIN);
  errno = 0;
  EXPECT_EQ(ks::fork_child(Child::kGoesOn), -1);
  EXPECT_EQ(errno, EAGAIN);
  EXPECT_TRUE(ks_test::blocked_signals().empty());
}

}  // namespace

// Births: how children come under the loop's eyes, and what a new process sees of the old one's.
#include <gmock/gmock.h>
#include <gtest/gtest.h>
#include <sys/wait.h>
#include <unistd.h>

#include <cerrno>
#include <csignal>

#include "pfm.h"
#include "proc/rt_proc_children.h"
#include "rt.h"
#include "support/faults.h"
#include "support/signals.h"

using ks_test::await_death;
using ks_test::Death;
using ks_test::errors_of;
using ks_test::exited;
using ks_test::fail_call;
using ks_test::fork_leaving;
using ks_test::fork_waiting;
using ks_test::has_children;
using ks_test::kill_and_await;
using ks_test::killed_by;
using ks_test::leave_with_expectations;
using ks_test::note_death;
using ks_test::run_due_events;
using ks_test::set_clock;
using ks_test::take_deaths;
using ks_test::wait_for_a_signal;
using testing::ElementsAre;
using testing::IsEmpty;
using testing::MatchesRegex;

namespace {

constexpr char kNoStorage[] =
    "noname: Error: No more memory available\\.\n"
    "noname: Error: Malloc failed at \"src/proc/rt_proc\\.cc\":[0-9]+\n";

class RtProcFork : public testing::Test {
 protected:
  RtProcFork() { ks_test::default_children(); }
};
using RtProcBirthAnnouncement = RtProcFork;

// A child by other means that waits for a signal.
pid_t start_elsewhere() {
  const pid_t pid = fork();
  if (pid == 0) wait_for_a_signal();
  return pid;
}

TEST_F(RtProcFork, ReportsTheDeathInTheLoop) {
  int arg = 0;
  const pid_t pid = fork_leaving(7, note_death, &arg);
  EXPECT_GT(pid, 0);
  EXPECT_EQ(pfm_inhibit_count(), 0);
  await_death(pid);
  EXPECT_THAT(take_deaths(), IsEmpty());
  run_due_events();
  EXPECT_THAT(take_deaths(), ElementsAre(Death{pid, exited(7), &arg}));
}

TEST_F(RtProcFork, ReportsTheStatusOfWaitpid) {
  for (int code : {0, 1, 255}) {
    const pid_t pid = fork_leaving(code);
    await_death(pid);
    run_due_events();
    EXPECT_THAT(take_deaths(), ElementsAre(Death{pid, exited(code), nullptr}));
  }
  for (int sig : {SIGKILL, SIGTERM, SIGUSR1, ks_test::kLastSignal}) {
    const pid_t pid = fork_waiting();
    kill_and_await(pid, sig);
    run_due_events();
    EXPECT_THAT(take_deaths(), ElementsAre(Death{pid, killed_by(sig), nullptr}));
  }
}

TEST_F(RtProcFork, ADeathEndsTheSleepOfTheLoop) {
  fork_leaving(0, [](pid_t pid, int status, void *arg, rt_proc_t *record) {
    note_death(pid, status, arg, record);
    rt_shutdown();
  });
  rt_run();
  EXPECT_EQ(take_deaths().size(), 1u);
}

TEST_F(RtProcFork, TakesNoCallback) {
  const pid_t pid = fork_leaving(0, nullptr);
  await_death(pid);
  EXPECT_EQ(rt_proc_any_procs(), 1);
  run_due_events();
  EXPECT_EQ(rt_proc_any_procs(), 0);
  EXPECT_FALSE(has_children());
}

// A routine behind the loop's back: on return a child is dead, and its signal has come.
void await_any_death(int) {
  siginfo_t info;
  while (waitid(P_ALL, 0, &info, WEXITED | WNOWAIT) != 0 && errno == EINTR) {
  }
}

TEST_F(RtProcFork, ADeathBeforeTheRecordStandsIsNotLost) {
  rt_proc_initialize();
  ks_test::set_system_handler(SIGUSR2, await_any_death);
  ks_test::signal_in_call("malloc", 0, SIGUSR2);
  const pid_t pid = fork_leaving(3);
  EXPECT_EQ(rt_proc_alive(pid), 0);
  run_due_events();
  EXPECT_THAT(take_deaths(), ElementsAre(Death{pid, exited(3), nullptr}));
}

bool came_early;

TEST_F(RtProcFork, HoldsSignalsBackUntilTheRecordStands) {
  rt_proc_initialize();
  pfm_signal(SIGUSR1, [](int) { came_early = ks_test::inside_call(); });
  for (const char *call : {"fork", "malloc"}) {
    came_early = true;
    ks_test::signal_in_call(call, 0, SIGUSR1);
    kill_and_await(fork_waiting(), SIGKILL);
    EXPECT_FALSE(came_early) << call;
  }
}

TEST_F(RtProcFork, GivesForksFailure) {
  rt_proc_initialize();
  fail_call("fork", 0, EAGAIN);
  errno = 0;
  EXPECT_EQ(rt_proc_fork(note_death, nullptr), -1);
  EXPECT_EQ(errno, EAGAIN);
  EXPECT_EQ(pfm_inhibit_count(), 0);
  EXPECT_EQ(rt_proc_any_procs(), 0);
}

TEST_F(RtProcFork, ADeathMeanwhileLeavesForksErrnoAlone) {
  rt_proc_initialize();
  ks_test::signal_in_call("fork", 0, SIGCHLD);
  fail_call("fork", 0, EAGAIN);
  errno = 0;
  EXPECT_EQ(rt_proc_fork(note_death, nullptr), -1);
  EXPECT_EQ(errno, EAGAIN);
}

TEST_F(RtProcFork, KeepsSignalsHeldBackWithoutStorage) {
  EXPECT_THAT(errors_of([] {
                rt_proc_initialize();
                fail_call("malloc", 0, ENOMEM);
                EXPECT_EQ(fork_waiting(), -1);
                EXPECT_EQ(pfm_inhibit_count(), 1);

                siginfo_t info = {};
                EXPECT_EQ(waitid(P_ALL, 0, &info, WEXITED | WNOWAIT), 0);
                EXPECT_EQ(info.si_code, CLD_KILLED);
                EXPECT_EQ(info.si_status, SIGTERM);
                EXPECT_EQ(rt_proc_any_procs(), 0);

                pfm_enable();
                EXPECT_FALSE(has_children());
                run_due_events();
                EXPECT_THAT(take_deaths(), IsEmpty());
              }),
              MatchesRegex(kNoStorage));
}

// The parent has one child that lives and two that died and were not reported; what dies in the new
// process is its own.
TEST_F(RtProcFork, AChildSeesNoneOfItsParentsChildren) {
  const pid_t living = fork_waiting();
  const pid_t dead = fork_leaving(1);
  await_death(dead);
  const pid_t child = rt_proc_fork(note_death, nullptr);
  if (child == 0) {
    EXPECT_EQ(pfm_inhibit_count(), 0);
    EXPECT_EQ(rt_proc_any_procs(), 0);
    EXPECT_EQ(rt_proc_alive(living), 0);
    EXPECT_EQ(rt_proc_disown(living), -1);
    EXPECT_EQ(rt_proc_disown(dead), -1);
    EXPECT_EQ(rt_proc_killall(), -1);
    run_due_events();
    EXPECT_THAT(take_deaths(), IsEmpty());
    EXPECT_EQ(rt_proc_any_procs(), 0);
    leave_with_expectations();
  }
  await_death(child);
  EXPECT_EQ(rt_proc_alive(living), 1);
  kill_and_await(living, SIGKILL);
  run_due_events();
  EXPECT_THAT(take_deaths(),
              ElementsAre(Death{dead, exited(1), nullptr}, Death{child, exited(0), nullptr},
                          Death{living, killed_by(SIGKILL), nullptr}));
}

TEST_F(RtProcFork, AChildGetsNoSignalThatWaitedInItsParent) {
  rt_proc_initialize();
  ks_test::note_signals({SIGUSR1});
  pfm_inhibit();
  ks_test::send_signal(SIGUSR1);
  const pid_t child = rt_proc_fork(note_death, nullptr);
  if (child == 0) {
    EXPECT_EQ(pfm_blocked_count(), 0);
    pfm_enable();
    EXPECT_THAT(ks_test::take_noted(), IsEmpty());
    leave_with_expectations();
  }
  pfm_enable();
  EXPECT_THAT(ks_test::take_noted(), ElementsAre(SIGUSR1));
  await_death(child);
  run_due_events();
  EXPECT_THAT(take_deaths(), ElementsAre(Death{child, exited(0), nullptr}));
}

// What a process asks between the events that its parent has left to it.
struct Question {
  pid_t parents_dead;
  int disowned;
  int any_procs;
};

void ask(void *arg) {
  auto *question = static_cast<Question *>(arg);
  question->disowned = rt_proc_disown(question->parents_dead);
  question->any_procs = rt_proc_any_procs();
}

// Its own child dies at 103 seconds, while its parent's are due at 100 and 102.
void expect_only_its_own_child(pid_t parents_dead) {
  Question between = {parents_dead, 0, 0};
  Question behind = {parents_dead, 0, 0};
  const timeval at_101 = {101, 0};
  const timeval before_103 = {102, 500000};
  rt_sched_abs(ask, &between, &at_101);
  rt_sched_abs(ask, &behind, &before_103);
  set_clock(103, 0);
  const pid_t own = fork_leaving(3);
  await_death(own);
  ks_test::run_due_events_at(104);
  EXPECT_EQ(between.disowned, -1);
  EXPECT_EQ(between.any_procs, 1);
  EXPECT_EQ(behind.disowned, -1);
  EXPECT_EQ(behind.any_procs, 1);
  EXPECT_THAT(take_deaths(), ElementsAre(Death{own, exited(3), nullptr}));
  EXPECT_EQ(rt_proc_any_procs(), 0);
}

TEST_F(RtProcFork, AChildFollowsItsOwnWhileItsParentsDeathsFireUnheard) {
  set_clock(100, 0);
  await_death(fork_leaving(1));
  set_clock(102, 0);
  const pid_t second = fork_leaving(2);
  await_death(second);
  const pid_t child = rt_proc_fork(note_death, nullptr);
  if (child == 0) {
    expect_only_its_own_child(second);
    leave_with_expectations();
  }
  await_death(child);
  ks_test::run_due_events_at(103);
  EXPECT_THAT(take_deaths(), testing::Contains(Death{child, exited(0), nullptr}));
}

TEST_F(RtProcFork, ACallbackMayFork) {
  const pid_t pid = fork_leaving(1, [](pid_t dead, int status, void *arg, rt_proc_t *record) {
    note_death(dead, status, arg, record);
    await_death(fork_leaving(2));
  });
  await_death(pid);
  run_due_events();
  run_due_events();
  const auto deaths = take_deaths();
  ASSERT_EQ(deaths.size(), 2u);
  EXPECT_EQ(deaths[0], (Death{pid, exited(1), nullptr}));
  EXPECT_EQ(deaths[1].status, exited(2));
}

TEST_F(RtProcBirthAnnouncement, FollowsAChildStartedByOtherMeans) {
  int arg = 0;
  pfm_inhibit();
  const pid_t pid = start_elsewhere();
  EXPECT_EQ(rt_proc_birth_announcement(pid, note_death, &arg), 0);
  pfm_enable();
  EXPECT_EQ(rt_proc_alive(pid), 1);
  kill_and_await(pid, SIGKILL);
  EXPECT_EQ(rt_proc_alive(pid), 0);
  run_due_events();
  EXPECT_THAT(take_deaths(), ElementsAre(Death{pid, killed_by(SIGKILL), &arg}));
}

TEST_F(RtProcBirthAnnouncement, AChildWithoutARecordIsTerminated) {
  EXPECT_THAT(errors_of([] {
                rt_proc_initialize();
                pfm_inhibit();
                const pid_t pid = start_elsewhere();
                fail_call("malloc", 0, ENOMEM);
                EXPECT_EQ(rt_proc_birth_announcement(pid, note_death, nullptr), 1);
                EXPECT_EQ(pfm_inhibit_count(), 1);
                EXPECT_EQ(rt_proc_alive(pid), 0);
                int status = 0;
                EXPECT_EQ(waitpid(pid, &status, 0), pid);
                EXPECT_EQ(status, killed_by(SIGTERM));
                pfm_enable();
              }),
              MatchesRegex(kNoStorage));
}

// Where the message cannot be written the child must have got its signal already.
TEST_F(RtProcBirthAnnouncement, AChildWithoutARecordIsTerminatedBeforeThatIsPrinted) {
  static off_t printed;
  rt_proc_initialize();
  pfm_inhibit();
  const pid_t pid = start_elsewhere();
  ks_test::set_system_handler(SIGUSR1, [](int) {
    fflush(stderr);
    printed = lseek(STDERR_FILENO, 0, SEEK_CUR);
  });
  ks_test::signal_in_call("kill", 0, SIGUSR1);
  testing::internal::CaptureStderr();
  fail_call("malloc", 0, ENOMEM);
  EXPECT_EQ(rt_proc_birth_announcement(pid, note_death, nullptr), 1);
  const std::string text = testing::internal::GetCapturedStderr();
  ASSERT_LE(static_cast<size_t>(printed), text.size());
  EXPECT_THAT(text.substr(static_cast<size_t>(printed)),
              MatchesRegex("noname: Error: Malloc failed at \"src/proc/rt_proc.cc\":.+\n"));
  EXPECT_EQ(waitpid(pid, nullptr, 0), pid);
  pfm_enable();
}

TEST_F(RtProcBirthAnnouncement, LacksStorageAlsoForAChildThatIsGone) {
  EXPECT_THAT(errors_of([] {
                rt_proc_initialize();
                const pid_t pid = start_elsewhere();
                kill_and_await(pid, SIGKILL);
                fail_call("malloc", 0, ENOMEM);
                EXPECT_EQ(rt_proc_birth_announcement(pid, note_death, nullptr), 1);
                EXPECT_EQ(rt_proc_any_procs(), 0);
              }),
              MatchesRegex(kNoStorage));
}

}  // namespace

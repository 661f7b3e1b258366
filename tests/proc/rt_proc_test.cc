// Children that are followed, and how their deaths come about.
#include <gmock/gmock.h>
#include <gtest/gtest.h>
#include <sys/wait.h>
#include <unistd.h>

#include <cerrno>
#include <csignal>
#include <string>
#include <vector>

#include "pfm.h"
#include "proc/rt_proc_children.h"
#include "proc/rt_support.h"
#include "rt.h"
#include "support/assertion.h"
#include "support/child.h"
#include "support/faults.h"
#include "support/landing.h"
#include "support/signals.h"
#include "support/stepping.h"

using ks_test::await_death;
using ks_test::count_calls;
using ks_test::Death;
using ks_test::errors_of;
using ks_test::exited;
using ks_test::fail_call;
using ks_test::fork_leaving;
using ks_test::fork_waiting;
using ks_test::has_children;
using ks_test::kill_and_await;
using ks_test::killed_by;
using ks_test::land;
using ks_test::Landing;
using ks_test::note_death;
using ks_test::note_signal;
using ks_test::note_signals;
using ks_test::run_due_events;
using ks_test::send_signal;
using ks_test::take_deaths;
using ks_test::take_noted;
using testing::ElementsAre;
using testing::IsEmpty;
using testing::MatchesRegex;

namespace {

constexpr char kConflict[] = "noname: Error: rt_proc: child death signal handler conflict!\n";

class Children : public testing::Test {
 protected:
  Children() { ks_test::default_children(); }
};
using RtProcInitialize = Children;
using RtProcDeath = Children;
using RtProcDisown = Children;
using RtProcKillall = Children;

// A child that nobody has told the loop of; it is dead and not reaped.
pid_t dead_stranger() {
  const pid_t pid = fork();
  if (pid == 0) _exit(5);
  await_death(pid);
  return pid;
}

TEST_F(RtProcInitialize, TakesSigchldOver) {
  pfm_inhibit();
  EXPECT_EQ(rt_proc_initialize(), 0);
  EXPECT_EQ(pfm_inhibit_count(), 1);
  pfm_enable();
  EXPECT_EQ(rt_proc_any_procs(), 0);
  dead_stranger();
  EXPECT_FALSE(has_children());
  EXPECT_NE(pfm_signal(SIGCHLD, SIG_DFL), SIG_DFL);
}

TEST_F(RtProcInitialize, AnIgnoredSigchldIsNoConflict) {
  pfm_signal(SIGCHLD, SIG_IGN);
  EXPECT_EQ(rt_proc_initialize(), 0);
  const pid_t pid = fork_leaving(4);
  await_death(pid);
  run_due_events();
  EXPECT_THAT(take_deaths(), ElementsAre(Death{pid, exited(4), nullptr}));
}

TEST_F(RtProcInitialize, KeepsItsCatcherInstalledAfterAConflict) {
  EXPECT_EQ(errors_of([] {
              note_signals({SIGCHLD});
              EXPECT_EQ(rt_proc_initialize(), -1);
              EXPECT_EQ(pfm_inhibit_count(), 0);
              dead_stranger();
              EXPECT_THAT(take_noted(), IsEmpty());
              EXPECT_FALSE(has_children()) << "the catcher reaps";
              run_due_events();
              EXPECT_THAT(take_deaths(), IsEmpty());
            }),
            kConflict);
}

TEST_F(RtProcInitialize, KeepsBeingAConflictAfterAConflict) {
  const ks_test::Outcome outcome = ks_test::in_child([] {
    note_signals({SIGCHLD});
    EXPECT_EQ(rt_proc_initialize(), -1);
    EXPECT_EQ(rt_proc_initialize(), -1);
    rt_proc_any_procs();
  });
  const std::string assertion =
      ks_test::assertion_line("initialized || rt_proc_initialize() == 0", "src/proc/rt_proc.cc");
  EXPECT_THAT(outcome.err, MatchesRegex(std::string(kConflict) + kConflict + kConflict +
                                        "noname: Error: " + assertion));
  EXPECT_EQ(outcome.end(), "signal 6");
}

// The table still has it, though the start has given the signal back to the system.
TEST(RtProcBeforeTheStart, KeepsARoutineInstalledThenAConflict) {
  EXPECT_EQ(errors_of([] {
              ks_test::set_system_handler(SIGCHLD, note_signal);
              EXPECT_EQ(rt_proc_initialize(), -1);
            }),
            kConflict);
}

TEST_F(RtProcInitialize, KeepsASecondCallAConflictWithItself) {
  EXPECT_EQ(errors_of([] {
              const pid_t pid = fork_waiting();
              EXPECT_EQ(rt_proc_initialize(), -1);
              EXPECT_EQ(rt_proc_alive(pid), 1);
              kill_and_await(pid, SIGKILL);
              run_due_events();
              EXPECT_THAT(take_deaths(), ElementsAre(Death{pid, killed_by(SIGKILL), nullptr}));
            }),
            kConflict);
}

// A program that has taken the signal away may start anew: the children so far are forgotten, but for
// deaths that were due.
TEST_F(RtProcInitialize, KeepsForgettingChildrenWhenStartedAnew) {
  EXPECT_EQ(errors_of([] {
              const pid_t living = fork_waiting();
              const pid_t first = fork_leaving(1);
              await_death(first);
              const pid_t second = fork_leaving(2);
              await_death(second);
              pfm_signal(SIGCHLD, SIG_DFL);
              EXPECT_EQ(rt_proc_initialize(), 0);
              EXPECT_EQ(rt_proc_any_procs(), 0);
              EXPECT_EQ(rt_proc_alive(living), 0);
              run_due_events();
              EXPECT_THAT(take_deaths(), ElementsAre(Death{first, exited(1), nullptr},
                                                     Death{second, exited(2), nullptr}));
              EXPECT_EQ(rt_proc_any_procs(), 0);
              kill_and_await(living, SIGKILL);
            }),
            "");
}

struct FirstUse {
  const char *name;
  void (*call)();
};
void PrintTo(const FirstUse &use, std::ostream *out) { *out << use.name; }

constexpr FirstUse kFirstUses[] = {
    {"Fork", [] { rt_proc_fork(note_death, nullptr); }},
    {"BirthAnnouncement", [] { rt_proc_birth_announcement(getpid(), note_death, nullptr); }},
    {"Disown", [] { rt_proc_disown(getpid()); }},
    {"Killall", [] { rt_proc_killall(); }},
    {"AnyProcs", [] { rt_proc_any_procs(); }},
    {"Alive", [] { rt_proc_alive(getpid()); }},
};

class RtProcFirstUse : public testing::TestWithParam<FirstUse> {};

TEST_P(RtProcFirstUse, IsAnAssertionInAConflict) {
  ks_test::default_children();
  const ks_test::Outcome outcome = ks_test::in_child([this] {
    note_signals({SIGCHLD});
    GetParam().call();
  });
  EXPECT_THAT(
      outcome.err,
      MatchesRegex(kConflict + ("noname: Error: " +
                                ks_test::assertion_line("initialized || rt_proc_initialize() == 0",
                                                        "src/proc/rt_proc.cc"))));
  EXPECT_EQ(outcome.out, "");
  EXPECT_EQ(outcome.end(), "signal 6");
}

TEST_P(RtProcFirstUse, StartsTheModule) {
  ks_test::default_children();
  EXPECT_EQ(errors_of([this] {
              const pid_t parent = getpid();
              fail_call("fork", 0, EAGAIN);
              GetParam().call();
              EXPECT_EQ(getpid(), parent);
              EXPECT_NE(pfm_signal(SIGCHLD, SIG_DFL), SIG_DFL);
              EXPECT_EQ(pfm_inhibit_count(), 0);
            }),
            "");
}

INSTANTIATE_TEST_SUITE_P(, RtProcFirstUse, testing::ValuesIn(kFirstUses),
                         [](const auto &use) { return use.param.name; });

TEST_F(RtProcDeath, GoesThroughItsStages) {
  static int in_callback;
  EXPECT_EQ(rt_proc_any_procs(), 0);
  const pid_t pid = fork_waiting([](pid_t dead, int status, void *arg, rt_proc_t *record) {
    note_death(dead, status, arg, record);
    EXPECT_NE(record, nullptr);
    EXPECT_EQ(pfm_inhibit_count(), 0);
    in_callback = 10 * rt_proc_any_procs() + rt_proc_alive(dead);
  });
  EXPECT_EQ(rt_proc_any_procs(), 1);
  EXPECT_EQ(rt_proc_alive(pid), 1);

  kill_and_await(pid, SIGKILL);
  EXPECT_EQ(rt_proc_any_procs(), 1) << "until it is reported";
  EXPECT_EQ(rt_proc_alive(pid), 0);
  EXPECT_FALSE(has_children()) << "it is reaped at once";

  in_callback = -1;
  run_due_events();
  EXPECT_EQ(in_callback, 0);
  EXPECT_EQ(take_deaths().size(), 1u);
  EXPECT_EQ(rt_proc_any_procs(), 0);
  EXPECT_EQ(rt_proc_alive(pid), 0);
  run_due_events();
  EXPECT_THAT(take_deaths(), IsEmpty()) << "reported once";
}

TEST_F(RtProcDeath, AliveKnowsOnlyChildrenThatAreFollowed) {
  EXPECT_EQ(rt_proc_alive(getpid()), 0);
  EXPECT_EQ(rt_proc_alive(getppid()), 0);
}

TEST_F(RtProcDeath, OneSignalStandsForSeveral) {
  const pid_t first = fork_waiting();
  const pid_t second = fork_waiting();
  pfm_inhibit();
  kill_and_await(second, SIGTERM);
  kill_and_await(first, SIGKILL);
  EXPECT_EQ(pfm_blocked_count(), 1);
  EXPECT_EQ(rt_proc_alive(first), 1) << "nobody has looked yet";
  const int waits = count_calls("waitpid");
  pfm_enable();
  EXPECT_EQ(count_calls("waitpid") - waits, 3);
  EXPECT_EQ(rt_proc_alive(first), 0);
  EXPECT_EQ(rt_proc_alive(second), 0);
  run_due_events();
  EXPECT_THAT(take_deaths(),
              testing::UnorderedElementsAre(Death{first, killed_by(SIGKILL), nullptr},
                                            Death{second, killed_by(SIGTERM), nullptr}));
}

// Has the catcher reap one child only, and tells which of them it was.
pid_t reap_one(const std::vector<pid_t> &pids) {
  std::vector<pid_t> living;
  for (pid_t pid : pids) {
    if (rt_proc_alive(pid) != 0) living.push_back(pid);
  }
  fail_call("waitpid", 1, ECHILD);
  send_signal(SIGCHLD);
  if (pfm_inhibit_count() != 0) pfm_enable();
  for (pid_t pid : living) {
    if (rt_proc_alive(pid) == 0) return pid;
  }
  return 0;
}

TEST_F(RtProcDeath, IsReportedInTheOrderOfReaping) {
  ks_test::set_clock(100, 0);
  std::vector<pid_t> pids;
  for (int i = 0; i < 4; ++i) pids.push_back(fork_waiting());
  pfm_inhibit();
  for (int i : {2, 0, 3, 1}) kill_and_await(pids[static_cast<size_t>(i)], SIGKILL);
  std::vector<pid_t> reaped;
  for (int i = 0; i < 4; ++i) reaped.push_back(reap_one(pids));
  ks_test::run_due_events_at(100);
  std::vector<pid_t> reported;
  for (const Death &death : take_deaths()) reported.push_back(death.pid);
  EXPECT_EQ(reported, reaped);
  EXPECT_THAT(reported, testing::UnorderedElementsAreArray(pids));
}

TEST_F(RtProcDeath, OneEventFiresPerTurn) {
  for (int i = 0; i < 2; ++i) {
    await_death(fork_leaving(i, [](pid_t pid, int status, void *arg, rt_proc_t *record) {
      note_death(pid, status, arg, record);
      rt_shutdown();
    }));
  }
  rt_run();
  EXPECT_EQ(take_deaths().size(), 1u);
  EXPECT_EQ(rt_proc_any_procs(), 1);
  rt_run();
  EXPECT_EQ(take_deaths().size(), 1u);
}

TEST_F(RtProcDeath, OfAStrangerIsReapedAndNothingMore) {
  const pid_t followed = fork_waiting();
  const pid_t stranger = dead_stranger();
  EXPECT_EQ(waitpid(stranger, nullptr, WNOHANG), -1);
  EXPECT_EQ(errno, ECHILD);
  EXPECT_EQ(rt_proc_alive(followed), 1);
  run_due_events();
  EXPECT_THAT(take_deaths(), IsEmpty());
  kill_and_await(followed, SIGKILL);
  run_due_events();
  EXPECT_THAT(take_deaths(), ElementsAre(Death{followed, killed_by(SIGKILL), nullptr}));
}

TEST_F(RtProcDeath, AStoppedChildLives) {
  const pid_t pid = fork_waiting();
  kill(pid, SIGSTOP);
  siginfo_t info;
  while (waitid(P_PID, static_cast<id_t>(pid), &info, WSTOPPED | WNOWAIT) != 0) {
  }
  send_signal(SIGCHLD);
  EXPECT_EQ(rt_proc_alive(pid), 1);
  kill_and_await(pid, SIGKILL);
  run_due_events();
  EXPECT_THAT(take_deaths(), ElementsAre(Death{pid, killed_by(SIGKILL), nullptr}));
}

TEST_F(RtProcDeath, AFaultOfTheCallbackLeavesTheLoopWhole) {
  for (int status : {9, -1}) {
    static int fault;
    fault = status;
    const pid_t first = fork_leaving(1, [](pid_t pid, int word, void *arg, rt_proc_t *record) {
      note_death(pid, word, arg, record);
      pfm_raise(fault);
    });
    await_death(first);
    const pid_t second = fork_leaving(2);
    await_death(second);
    EXPECT_EQ(land([] { rt_run(); }), (Landing{status, status > 0 ? 1 : 0, 0}));
    EXPECT_EQ(pfm_inhibit_count(), 0);
    EXPECT_THAT(take_deaths(), ElementsAre(Death{first, exited(1), nullptr}));
    EXPECT_EQ(rt_proc_any_procs(), 1);
    run_due_events();
    EXPECT_THAT(take_deaths(), ElementsAre(Death{second, exited(2), nullptr}));
    EXPECT_EQ(rt_proc_any_procs(), 0);
  }
}

TEST_F(RtProcDisown, SilencesALivingChild) {
  int arg = 0;
  const pid_t pid = fork_waiting(note_death, &arg);
  EXPECT_EQ(rt_proc_disown(pid), 0);
  EXPECT_EQ(rt_proc_disown(pid), 0) << "its record stays";
  EXPECT_EQ(rt_proc_alive(pid), 1);
  kill_and_await(pid, SIGKILL);
  EXPECT_FALSE(has_children());
  EXPECT_EQ(rt_proc_any_procs(), 1);
  run_due_events();
  EXPECT_THAT(take_deaths(), IsEmpty());
  EXPECT_EQ(rt_proc_any_procs(), 0);
  EXPECT_EQ(rt_proc_disown(pid), -1);
}

TEST_F(RtProcDisown, SilencesADeathThatIsDue) {
  const pid_t pid = fork_leaving(0);
  await_death(pid);
  EXPECT_EQ(rt_proc_disown(pid), 0);
  EXPECT_EQ(rt_proc_any_procs(), 1);
  run_due_events();
  EXPECT_THAT(take_deaths(), IsEmpty());
  EXPECT_EQ(rt_proc_any_procs(), 0);
}

TEST_F(RtProcDisown, KnowsNoStrangers) {
  EXPECT_EQ(rt_proc_disown(getpid()), -1);
  const pid_t pid = fork_waiting();
  EXPECT_EQ(rt_proc_disown(getpid()), -1);
  kill_and_await(pid, SIGKILL);
  run_due_events();
  EXPECT_EQ(take_deaths().size(), 1u);
}

// Numbers are used again: a new child may have that of one whose death is due.
TEST_F(RtProcDisown, TakesTheLivingOfTwoWithOneNumber) {
  int dead_arg = 0;
  int living_arg = 0;
  const pid_t pid = fork_leaving(0, note_death, &dead_arg);
  await_death(pid);
  rt_proc_birth_announcement(pid, note_death, &living_arg);
  EXPECT_EQ(rt_proc_disown(pid), 0);
  run_due_events();
  EXPECT_THAT(take_deaths(), ElementsAre(Death{pid, exited(0), &dead_arg}));
  EXPECT_EQ(rt_proc_alive(pid), 1);
}

#if !defined(__SANITIZE_ADDRESS__)  // through whose code the steps would take minutes

int told;

void count_told(pid_t, int, void *, rt_proc_t *) { ++told; }

void check(bool condition, const char *what) {
  if (condition) return;
  dprintf(STDOUT_FILENO, "not so: %s", what);
  _exit(1);
}

// A death that is due, and a fault on the way to its callback or behind it. Whatever has been left is
// there for the next runs.
void run_a_death() {
  told = 0;
  await_death(fork_leaving(0, count_told));
  rt_event *end = rt_sched(ks_test::shut_down, nullptr, 0);
  const int status = land([] {
                       send_signal(ks_test::kStepBegin);
                       rt_run();
                       send_signal(ks_test::kStepEnd);
                     }).status;
  if (status != 0) send_signal(ks_test::kStepEnd);
  for (int i = 0; i < 2; ++i) {  // the first may find that it was asked to shut down before
    rt_unsched(end);
    end = rt_sched(ks_test::shut_down, nullptr, 0);
    rt_run();
  }
  rt_unsched(end);
  check(told <= 1, "a death is told once");
  check(rt_proc_any_procs() == 0, "no death stays untold");
  check(pfm_inhibit_count() == 0, "nothing is held back");
}

// Blocks that are in use.
int blocks() { return count_calls("malloc") - count_calls("free"); }

TEST(RtProcFault, MayComeAtEveryInstructionOfADeath) {
  const ks_test::Steps steps = ks_test::step_through(
      [] {
        ks_test::default_children();
        pfm_signal(SIGUSR2, ks_test::raise_number);
        for (int i = 0; i < 8; ++i) rt_sched([](void *) {}, nullptr, 0);
        run_due_events();  // from here on the loop has records enough
        run_a_death();
        const int before = blocks();
        ks_test::be_traced();
        for (;;) {
          run_a_death();
          check(blocks() == before, "no record is left");
        }
      },
      SIGUSR2);
  EXPECT_EQ(steps.out, "") << "at place " << steps.done;
  EXPECT_GT(steps.places, 50u);
  EXPECT_EQ(steps.done, steps.places) << steps.end;
}

#endif

TEST_F(RtProcKillall, HasNobodyToKill) {
  EXPECT_EQ(rt_proc_killall(), -1);
  await_death(fork_leaving(0));
  EXPECT_EQ(rt_proc_killall(), -1) << "the dead don't count";
  EXPECT_EQ(pfm_inhibit_count(), 0);
}

// Stops a child. A stop takes its time: a SIGTERM right behind the SIGSTOP would still end the child.
bool stops(pid_t pid) {
  kill(pid, SIGSTOP);
  for (int milliseconds = 0; milliseconds < 20000; ++milliseconds) {
    siginfo_t info = {};
    waitid(P_PID, static_cast<id_t>(pid), &info, WSTOPPED | WNOHANG | WNOWAIT);
    if (info.si_pid == pid) return true;
    usleep(1000);
  }
  return false;
}

TEST_F(RtProcKillall, SendsSigtermToAllAndDoesNotWait) {
  const pid_t first = fork_waiting();
  const pid_t second = fork_waiting();
  ASSERT_TRUE(stops(first));
  EXPECT_EQ(rt_proc_killall(), 0);
  EXPECT_EQ(pfm_inhibit_count(), 0);
  EXPECT_EQ(rt_proc_alive(first), 1);
  kill(first, SIGCONT);
  await_death(first);
  await_death(second);
  run_due_events();
  EXPECT_THAT(take_deaths(),
              testing::UnorderedElementsAre(Death{first, killed_by(SIGTERM), nullptr},
                                            Death{second, killed_by(SIGTERM), nullptr}));
}

// The only one of the children that does not die, counted from the eldest; -1 when that does not come
// out before the deadline.
int only_survivor(const std::vector<pid_t> &pids) {
  for (int tries = 0; tries < 20000; ++tries) {
    std::vector<int> living;
    for (size_t i = 0; i < pids.size(); ++i) {
      if (rt_proc_alive(pids[i]) != 0) living.push_back(static_cast<int>(i));
    }
    if (living.size() == 1) return living[0];
    usleep(1000);
  }
  return -1;
}

// The child that the call number `spared` is for, counted from the eldest.
int eldest_spared_by(int spared) {
  std::vector<pid_t> pids;
  for (int i = 0; i < 3; ++i) pids.push_back(fork_waiting());
  fail_call("kill", spared, EPERM);
  EXPECT_EQ(rt_proc_killall(), 0);
  const int survivor = only_survivor(pids);
  for (pid_t pid : pids) kill_and_await(pid, SIGKILL);
  run_due_events();
  for (const Death &death : take_deaths()) {
    const bool spared_one = survivor >= 0 && death.pid == pids[static_cast<size_t>(survivor)];
    EXPECT_EQ(death.status, killed_by(spared_one ? SIGKILL : SIGTERM));
  }
  return survivor;
}

TEST_F(RtProcKillall, BeginsWithTheYoungestAndGoesOnBehindAFailure) {
  EXPECT_EQ(eldest_spared_by(0), 2);
  EXPECT_EQ(eldest_spared_by(1), 1);
  EXPECT_EQ(eldest_spared_by(2), 0);
}

TEST_F(Children, LeaveNoDescriptorsBehind) {
  const std::vector<std::string> before = ks_test::open_descriptors();
  for (int i = 0; i < 20; ++i) {
    await_death(fork_leaving(i));
    run_due_events();
  }
  EXPECT_EQ(ks_test::open_descriptors(), before);
}

}  // namespace

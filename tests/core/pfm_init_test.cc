// What the start of the module does to the process's signals, and its own two catchers.
#include <fcntl.h>
#include <gmock/gmock.h>
#include <gtest/gtest.h>
#include <sys/prctl.h>
#include <sys/wait.h>
#include <unistd.h>

#include <cerrno>
#include <csignal>
#include <cstdio>
#include <cstdlib>
#include <functional>
#include <string>

#include "pfm.h"
#include "support/child.h"
#include "support/faults.h"
#include "support/landing.h"
#include "support/signals.h"

using ks_test::default_signals;
using ks_test::in_child;
using ks_test::land;
using ks_test::Landing;
using ks_test::note_signal;
using ks_test::note_signals;
using ks_test::Outcome;
using ks_test::send_signal;
using ks_test::set_system_handler;
using ks_test::system_action;
using ks_test::take_noted;
using testing::ElementsAre;
using testing::IsEmpty;

namespace {

// What the system does with the signals that the start may touch.
std::string dispositions() {
  const struct {
    const char *name;
    int sig;
  } kSignals[] = {{"HUP", SIGHUP},   {"INT", SIGINT},   {"QUIT", SIGQUIT},
                  {"TERM", SIGTERM}, {"CHLD", SIGCHLD}, {"TSTP", SIGTSTP}};
  std::string text;
  for (const auto &[name, sig] : kSignals) {
    const auto handler = system_action(sig).sa_handler;
    text += std::string(name) + (handler == SIG_DFL   ? " default "
                                 : handler == SIG_IGN ? " ignored "
                                                      : " caught ");
  }
  return text;
}

constexpr const char *kUntouched =
    "HUP default INT default QUIT default TERM default CHLD default TSTP default ";
constexpr const char *kStarted =
    "HUP caught INT caught QUIT default TERM caught CHLD default TSTP caught ";

// The dispositions in a process that starts the module behind `before`.
std::string started_after(const std::function<void()> &before) {
  return in_child([&] {
           default_signals();
           before();
           pfm_init();
           dprintf(STDOUT_FILENO, "%s", dispositions().c_str());
         })
      .out;
}

void foreign(int sig) { note_signal(1000 + sig); }

void foreign_with_info(int sig, siginfo_t *, void *) { note_signal(2000 + sig); }

void set_foreign_with_info(int sig) {
  struct sigaction action = {};
  action.sa_sigaction = foreign_with_info;
  action.sa_flags = SA_SIGINFO;
  sigaction(sig, &action, nullptr);
}

TEST(PfmInit, TakesOverTheSignalsThatAskTheProcessToStop) {
  EXPECT_EQ(started_after([] {}), kStarted);
}

TEST(PfmInit, LeavesThemIgnoredWhereTheyAre) {
  EXPECT_EQ(started_after([] { set_system_handler(SIGINT, SIG_IGN); }),
            "HUP caught INT ignored QUIT default TERM caught CHLD default TSTP caught ");
  EXPECT_EQ(started_after([] { set_system_handler(SIGHUP, SIG_IGN); }),
            "HUP ignored INT caught QUIT default TERM caught CHLD default TSTP caught ");
  EXPECT_EQ(started_after([] { set_system_handler(SIGTERM, SIG_IGN); }),
            "HUP caught INT caught QUIT default TERM ignored CHLD default TSTP caught ");
}

TEST(PfmInit, TakesIgnoredSignalsIntoTheTable) {
  default_signals();
  set_system_handler(SIGINT, SIG_IGN);
  EXPECT_EQ(pfm_signal(SIGINT, SIG_DFL), SIG_IGN);
}

TEST(PfmInit, TakesSigtstpOverAlsoWhereItIsIgnored) {
  EXPECT_EQ(started_after([] { set_system_handler(SIGTSTP, SIG_IGN); }), kStarted);
}

TEST(PfmInit, LeavesSigquitAlone) {
  EXPECT_EQ(started_after([] { set_system_handler(SIGQUIT, SIG_IGN); }),
            "HUP caught INT caught QUIT ignored TERM caught CHLD default TSTP caught ");
}

TEST(PfmInit, SetsSigchldToItsDefaultAndKeepsItsMask) {
  for (auto handler : {foreign, SIG_IGN}) {
    const Outcome outcome = in_child([&] {
      struct sigaction action = {};
      action.sa_handler = handler;
      action.sa_flags = SA_RESTART | SA_NOCLDSTOP;
      sigaddset(&action.sa_mask, SIGUSR1);
      sigaction(SIGCHLD, &action, nullptr);
      pfm_init();
      action = system_action(SIGCHLD);
      dprintf(STDOUT_FILENO, "default %d flags %d masked %d %d", action.sa_handler == SIG_DFL,
              action.sa_flags & (SA_RESTART | SA_NOCLDSTOP), sigismember(&action.sa_mask, SIGUSR1),
              sigismember(&action.sa_mask, SIGUSR2));
    });
    EXPECT_EQ(outcome.out, "default 1 flags 0 masked 1 0");
  }
}

// The table was read before: the routine of before is still there, and so the system's default
// stays when another one takes its place.
TEST(PfmInit, KeepsAForeignRoutineOfSigchldInTheTable) {
  set_system_handler(SIGCHLD, foreign);
  pfm_init();
  EXPECT_EQ(pfm_signal(SIGCHLD, note_signal), foreign);
  EXPECT_EQ(system_action(SIGCHLD).sa_handler, SIG_DFL);
}

TEST(PfmInit, KeepsForeignRoutinesInstalledWithTheSystem) {
  default_signals();
  for (int sig : {SIGINT, SIGHUP, SIGTERM, SIGTSTP, SIGUSR1}) set_system_handler(sig, foreign);
  pfm_init();
  for (int sig : {SIGINT, SIGHUP, SIGTERM, SIGTSTP, SIGUSR1}) {
    EXPECT_EQ(system_action(sig).sa_handler, foreign) << sig;
  }
  EXPECT_EQ(pfm_signal(SIGUSR1, note_signal), foreign);
  pfm_inhibit();
  send_signal(SIGUSR1);
  EXPECT_THAT(take_noted(), ElementsAre(1000 + SIGUSR1)) << "not held back: not behind the catcher";
  EXPECT_EQ(pfm_blocked_count(), 0);
}

TEST(PfmInit, TakesAForeignRoutineOverByWayOfTheDefault) {
  set_system_handler(SIGUSR1, foreign);
  EXPECT_EQ(pfm_signal(SIGUSR1, SIG_DFL), foreign);
  note_signals({SIGUSR1});
  send_signal(SIGUSR1);
  EXPECT_THAT(take_noted(), ElementsAre(SIGUSR1));
}

TEST(PfmInit, TakesAForeignRoutineWithSiginfoForTheDefault) {
  default_signals();
  for (int sig : {SIGINT, SIGUSR1}) set_foreign_with_info(sig);
  pfm_init();
  EXPECT_NE(system_action(SIGINT).sa_sigaction, foreign_with_info);
  send_signal(SIGUSR1);
  EXPECT_THAT(take_noted(), ElementsAre(2000 + SIGUSR1)) << "untouched until somebody asks for it";
  EXPECT_EQ(pfm_signal(SIGUSR1, note_signal), SIG_DFL);
  send_signal(SIGUSR1);
  EXPECT_THAT(take_noted(), ElementsAre(SIGUSR1));
}

TEST(PfmInit, TakesAnActionThatCannotBeReadForTheDefault) {
  set_system_handler(SIGUSR1, foreign);
  ks_test::fail_call("sigaction", SIGUSR1 - 1, EINVAL);  // the actions of 1, 2, ... are read first
  EXPECT_EQ(pfm_signal(SIGUSR1, note_signal), SIG_DFL);
  send_signal(SIGUSR1);
  EXPECT_THAT(take_noted(), ElementsAre(SIGUSR1));
}

TEST(PfmInit, LeavesSigchldAloneWhereItsActionCannotBeRead) {
  default_signals();
  set_system_handler(SIGCHLD, foreign);
  // Behind the 64 reads of the table and the setting of SIGINT, SIGHUP and SIGTERM.
  ks_test::fail_call("sigaction", 67, EINVAL);
  pfm_init();
  EXPECT_EQ(system_action(SIGCHLD).sa_handler, foreign);
  EXPECT_EQ(dispositions(),
            "HUP caught INT caught QUIT default TERM caught CHLD caught TSTP caught ");
}

TEST(PfmInit, ASecondCallDoesNothing) {
  default_signals();
  pfm_init();
  for (int sig : {SIGHUP, SIGINT, SIGTERM, SIGTSTP}) set_system_handler(sig, SIG_DFL);
  set_system_handler(SIGCHLD, foreign);
  pfm_init();
  EXPECT_EQ(dispositions(),
            "HUP default INT default QUIT default TERM default CHLD caught TSTP default ");
}

void ignore_status(int, void *) {}

struct Entry {
  const char *name;
  std::function<void()> call;
  const char *dispositions;
};

TEST(PfmInit, IsCalledByEachEntryThatNeedsIt) {
  const Entry kEntries[] = {
      {"pfm_cleanup_start", [] { land([] {}); }, kStarted},
      {"pfm_inhibit", pfm_inhibit, kStarted},
      {"pfm_inhibit_suspend", pfm_inhibit_suspend, kStarted},
      {"pfm_signal", [] { pfm_signal(SIGUSR1, SIG_DFL); }, kStarted},
      {"pfm_on_exit", [] { pfm_on_exit(ignore_status, nullptr); }, kStarted},
      {"pfm_inhibit_count", [] { pfm_inhibit_count(); }, kUntouched},
      {"pfm_inhibit_suspend_count", [] { pfm_inhibit_suspend_count(); }, kUntouched},
      {"pfm_blocked_count", [] { pfm_blocked_count(); }, kUntouched},
      {"pfm_set_exit", [] { pfm_set_exit(_exit); }, kUntouched},
  };
  for (const Entry &entry : kEntries) {
    const Outcome outcome = in_child([&] {
      default_signals();
      entry.call();
      dprintf(STDOUT_FILENO, "%s", dispositions().c_str());
    });
    EXPECT_EQ(outcome.out, entry.dispositions) << entry.name;
  }
}

TEST(PfmQuitCatcher, RaisesOneStatusForAllThreeSignals) {
  default_signals();
  pfm_init();
  for (int sig : {SIGINT, SIGHUP, SIGTERM}) {
    EXPECT_EQ(land([&] { send_signal(sig); }), (Landing{4, 1, 0})) << sig;
  }
}

void say_status(int status, void *) { dprintf(STDOUT_FILENO, "hook %d", status); }

TEST(PfmQuitCatcher, EndsAProcessThatHoldsNoRecordWithItsHooksRun) {
  for (int sig : {SIGINT, SIGHUP, SIGTERM}) {
    const Outcome outcome = in_child([&] {
      default_signals();
      pfm_on_exit(say_status, nullptr);
      send_signal(sig);
    });
    EXPECT_EQ(outcome.out, "hook 4") << sig;
    EXPECT_EQ(outcome.end(), "exit 4") << sig;
  }
}

TEST(PfmQuitCatcher, WaitsForTheLastEnable) {
  const Outcome outcome = in_child([] {
    default_signals();
    pfm_on_exit(say_status, nullptr);
    pfm_inhibit();
    send_signal(SIGTERM);
    dprintf(STDOUT_FILENO, "held, ");
    pfm_enable();
  });
  EXPECT_EQ(outcome.out, "held, hook 4");
  EXPECT_EQ(outcome.end(), "exit 4");
}

// A child that can be stopped: in a process group of its own, whose leader has its parent in the
// same session but in another group. The system does not let a group without such a tie stop.
class StoppableChild {
 public:
  explicit StoppableChild(const std::function<void()> &body) {
    if (pipe2(ends_, O_CLOEXEC | O_NONBLOCK) != 0) abort();
    pid_ = fork();
    if (pid_ == 0) {
      prctl(PR_SET_PDEATHSIG, SIGKILL);
      setpgid(0, 0);
      default_signals();
      alarm(30);  // a child that loops dies
      dup2(ends_[1], STDOUT_FILENO);
      body();
      _exit(0);
    }
    close(ends_[1]);
  }
  ~StoppableChild() { close(ends_[0]); }
  StoppableChild(const StoppableChild &) = delete;
  StoppableChild &operator=(const StoppableChild &) = delete;

  // Waits until it stops or ends; tells which, and what it has written since.
  std::string next() {
    int status = 0;
    if (waitpid(pid_, &status, WUNTRACED) != pid_) return "lost";
    if (WIFSTOPPED(status)) return take_output() + "stopped by " + std::to_string(WSTOPSIG(status));
    return take_output() + Outcome{status, "", ""}.end();
  }

  void go_on() { kill(pid_, SIGCONT); }

 private:
  std::string take_output() {
    char text[256];
    const ssize_t count = read(ends_[0], text, sizeof text);
    return count > 0 ? std::string(text, static_cast<size_t>(count)) : "";
  }

  int ends_[2];
  pid_t pid_;
};

void say(const char *text) { dprintf(STDOUT_FILENO, "%s, ", text); }

TEST(PfmSuspendCatcher, StopsTheProcessAndIsInPlaceAgainWhenItGoesOn) {
  StoppableChild child([] {
    pfm_init();
    const auto catcher = system_action(SIGTSTP).sa_handler;
    for (const char *text : {"first", "second", "third"}) {
      say(text);
      send_signal(SIGTSTP);
      if (system_action(SIGTSTP).sa_handler != catcher) say("no catcher");
      if (!ks_test::blocked_signals().empty()) say("something blocked");
    }
    say("done");
  });
  EXPECT_EQ(child.next(), "first, stopped by 20");
  child.go_on();
  EXPECT_EQ(child.next(), "second, stopped by 20");
  child.go_on();
  EXPECT_EQ(child.next(), "third, stopped by 20");
  child.go_on();
  EXPECT_EQ(child.next(), "done, exit 0");
}

TEST(PfmSuspendCatcher, StopsAtTheEndOfTheHold) {
  StoppableChild child([] {
    pfm_inhibit_suspend();
    send_signal(SIGTSTP);
    say("held");
    pfm_enable_suspend();
    pfm_inhibit();
    send_signal(SIGTSTP);
    say("held again");
    pfm_enable();
    say(pfm_blocked_count() == 0 ? "done" : "still waiting");
  });
  EXPECT_EQ(child.next(), "held, stopped by 20");
  child.go_on();
  EXPECT_EQ(child.next(), "held again, stopped by 20");
  child.go_on();
  EXPECT_EQ(child.next(), "done, exit 0");
}

}  // namespace

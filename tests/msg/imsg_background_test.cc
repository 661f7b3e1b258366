// A process that the terminal refuses, because it is in the background: it gets no styles and is not
// stopped.
#include <gtest/gtest.h>
#include <sys/wait.h>
#include <termios.h>
#include <unistd.h>

#include <csignal>
#include <cstdio>
#include <cstdlib>
#include <functional>
#include <string>

#include "imsg.h"
#include "pfm.h"
#include "support/faults.h"
#include "support/landing.h"
#include "support/signals.h"
#include "support/terminal.h"

using ks_test::count_calls;
using ks_test::echoes;
using ks_test::in_background;
using ks_test::on_terminal;
using ks_test::Outcome;
using ks_test::set_echo;
using ks_test::signal_in_call;

namespace {

constexpr const char kBold[] =
    "a \1\1"
    "1Bword\1\1"
    "0B b\n";

void own_routine(int) {}

// SIGTTOU may come in any call of the set-up.

TEST(Background, ARefusalDuringTheSetUpGivesNoStyles) {
  for (const char *call : {"tcgetattr", "setupterm"}) {
    const Outcome outcome = on_terminal([&] {
      setenv("TERM", "vt100", 1);
      pfm_signal(SIGTTOU, own_routine);
      signal_in_call(call, 0, SIGTTOU);
      imsg_fputs(kBold, stdout);
      imsg_fputs(kBold, stdout);
      if (pfm_signal(SIGTTOU, SIG_DFL) != own_routine) _exit(1);
      if (pfm_inhibit_count() != 0 || ks_test::innermost_record() != nullptr) _exit(2);
      _exit(ks_test::is_blocked(SIGTTOU) ? 3 : 0);
    });
    EXPECT_EQ(outcome.out, "a word b\na word b\n") << call;
    EXPECT_EQ(outcome.end(), "exit 0") << call;
  }
}

TEST(Background, AnotherFaultDuringTheSetUpGoesOn) {
  for (const char *call : {"tcgetattr", "setupterm"}) {
    const Outcome outcome = on_terminal([&] {
      setenv("TERM", "vt100", 1);
      pfm_signal(SIGTTOU, own_routine);
      pfm_signal(SIGUSR1, ks_test::raise_number);
      signal_in_call(call, 0, SIGUSR1);
      const int before = count_calls("tcgetattr");
      if (ks_test::land([] { imsg_fputs("lost\n", stdout); }).status != SIGUSR1) _exit(1);
      if (pfm_signal(SIGTTOU, own_routine) != own_routine) _exit(2);
      if (pfm_inhibit_count() != 0) _exit(3);
      imsg_fputs("kept\n", stdout);
      _exit(count_calls("tcgetattr") - before == 1 ? 0 : 4);
    });
    EXPECT_EQ(outcome.out, "kept\n") << call;
    EXPECT_EQ(outcome.end(), "exit 0") << call;
  }
}

TEST(Background, ANegativeFaultDuringTheSetUpGoesOn) {
  const Outcome outcome = on_terminal([&] {
    setenv("TERM", "vt100", 1);
    pfm_signal(SIGTTOU, own_routine);
    pfm_signal(SIGUSR1, [](int) { pfm_raise(-5); });
    signal_in_call("tcgetattr", 0, SIGUSR1);
    if (ks_test::land([] { imsg_fputs("lost\n", stdout); }).status != -5) _exit(1);
    _exit(pfm_signal(SIGTTOU, own_routine) != own_routine);
  });
  EXPECT_EQ(outcome.end(), "exit 0");
}

TEST(Background, TheResetStartsAgainAfterARefusal) {
  const Outcome outcome = on_terminal([] {
    setenv("TERM", "vt100", 1);
    imsg_fputs("text\n", stdout);
    pfm_signal(SIGTTOU, own_routine);
    pfm_signal(SIGUSR1, imsg_sigttou_handler);
    set_echo(true);
    signal_in_call("tcsetattr", 0, SIGUSR1);
    const int before = count_calls("tcsetattr");
    imsg_reset_term();
    if (count_calls("tcsetattr") - before != 2) _exit(1);
    if (pfm_signal(SIGTTOU, own_routine) != own_routine) _exit(2);
    if (pfm_inhibit_count() != 0) _exit(3);
    _exit(echoes());
  });
  EXPECT_EQ(outcome.end(), "exit 0");
}

TEST(Background, AnotherFaultInTheResetGoesOn) {
  const Outcome outcome = on_terminal([] {
    setenv("TERM", "vt100", 1);
    imsg_fputs("text\n", stdout);
    pfm_signal(SIGTTOU, own_routine);
    pfm_signal(SIGUSR1, ks_test::raise_number);
    signal_in_call("tcsetattr", 0, SIGUSR1);
    if (ks_test::land(imsg_reset_term).status != SIGUSR1) _exit(1);
    _exit(pfm_signal(SIGTTOU, own_routine) != own_routine);
  });
  EXPECT_EQ(outcome.end(), "exit 0");
}

TEST(Background, TheTwoRoutines) {
  EXPECT_EQ(ks_test::land([] { imsg_sigttou_handler(SIGTTOU); }).status, PFM_STATUS_TTOU);
  EXPECT_EQ(ks_test::land([] { imsg_null_sigttou_handler(SIGTTOU); }).status, 0);
}

// A job in the background of a terminal that stops such jobs when they write.
Outcome with_tostop(const std::function<void()> &job, const char *term = "vt100") {
  return on_terminal([&] {
    if (term != nullptr) setenv("TERM", term, 1);
    termios attributes;
    tcgetattr(STDOUT_FILENO, &attributes);
    attributes.c_lflag |= TOSTOP;
    tcsetattr(STDOUT_FILENO, TCSANOW, &attributes);
    const int status = in_background(job);
    signal(SIGTTOU, SIG_IGN);
    dprintf(STDOUT_FILENO, "%s %d\n", WIFEXITED(status) ? "exit" : "stopped",
            WIFEXITED(status) ? WEXITSTATUS(status) : WSTOPSIG(status));
  });
}

TEST(Background, AJobIsNotStoppedAndGetsNoStyles) {
  for (const char *term : {"vt100", "no-such-terminal", static_cast<const char *>(nullptr)}) {
    const Outcome outcome = with_tostop(
        [] {
          imsg_print(IMSG_TYPE_OK, "%s", -1, kBold);
          imsg_print(IMSG_TYPE_ERROR_CONT, "%s", -1, kBold);
          exit(0);  // by way of the reset
        },
        term);
    EXPECT_EQ(outcome.out, "a word b\na word b\nexit 0\n") << (term != nullptr ? term : "no TERM");
  }
}

TEST(Background, AJobWithoutStylesByWishIsNotStoppedEither) {
  setenv("NORVA_NO_BOLD", "1", 1);
  const Outcome outcome = with_tostop([] {
    imsg_fputs(kBold, stdout);
    exit(0);
  });
  EXPECT_EQ(outcome.out, "a word b\nexit 0\n");
}

// What the test above shows would mean nothing were the terminal not to stop jobs.
TEST(Background, AJobThatWritesByItselfIsStopped) {
  const Outcome outcome = with_tostop([] {
    if (write(STDOUT_FILENO, "x", 1) != 1) _exit(1);
  });
  EXPECT_EQ(outcome.out, "stopped " + std::to_string(SIGTTOU) + "\n");
}

TEST(Background, AJobKeepsItsOwnRoutineForTheSignal) {
  const Outcome outcome = with_tostop([] {
    imsg_fputs("text\n", stdout);
    if (ks_test::is_blocked(SIGTTOU)) _exit(1);
    _exit(ks_test::system_action(SIGTTOU).sa_handler != SIG_DFL ? 2 : 0);
  });
  EXPECT_EQ(outcome.out, "text\nexit 0\n");
}

TEST(Background, AJobGetsNoStylesFromAPatientTerminalEither) {
  const Outcome outcome = on_terminal([] {
    setenv("TERM", "vt100", 1);
    in_background([] { imsg_fputs(kBold, stdout); });
  });
  EXPECT_EQ(outcome.out, "a word b\n");
}

// A stream whose writing is interrupted by SIGUSR1.
FILE *interrupted_stream() {
  cookie_io_functions_t functions = {};
  functions.write = [](void *, const char *, size_t size) {
    raise(SIGUSR1);
    return static_cast<ssize_t>(size);
  };
  return fopencookie(nullptr, "w", functions);
}

TEST(Background, AFaultInAWriteThatBlocksTheSignalGivesTheMaskBack) {
  const Outcome outcome = with_tostop([] {
    pfm_signal(SIGUSR1, ks_test::raise_number);
    FILE *stream = interrupted_stream();
    if (ks_test::land([&] { imsg_fputs("text", stream); }).status != SIGUSR1) _exit(1);
    if (ks_test::is_blocked(SIGTTOU)) _exit(2);
    imsg_fputs("next\n", stdout);
    _exit(0);
  });
  EXPECT_EQ(outcome.out, "next\nexit 0\n");
}

}  // namespace

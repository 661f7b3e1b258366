// A terminal: the bytes of the styles, which are those of the terminfo entries, written out by hand, and
// the terminal's attributes.
#include <gmock/gmock.h>
#include <gtest/gtest.h>
#include <termios.h>
#include <unistd.h>

#include <algorithm>
#include <csignal>
#include <cstdio>
#include <cstdlib>
#include <string>
#include <utility>

#include "imsg.h"
#include "pfm.h"
#include "support/child.h"
#include "support/faults.h"
#include "support/folder.h"
#include "support/landing.h"
#include "support/locale.h"
#include "support/signals.h"
#include "support/terminal.h"

extern "C" int setupterm(const char *term, int fd, int *found);

using ks_test::count_calls;
using ks_test::echoes;
using ks_test::fail_call;
using ks_test::Folder;
using ks_test::in_foreground;
using ks_test::on_terminal;
using ks_test::Outcome;
using ks_test::set_echo;

namespace {

constexpr const char kBold[] =
    "a \1\1"
    "1Bword\1\1"
    "0B b\n";
constexpr const char kStandOut[] =
    "\1\1"
    "1Iword\1\1"
    "0I\n";
constexpr const char kUnderline[] =
    "\1\1"
    "1Uword\1\1"
    "0U\n";
constexpr const char kNested[] =
    "\1\1"
    "1B1\1\1"
    "1U2\1\1"
    "1I3\1\1"
    "0B4\1\1"
    "0I\1\1"
    "0U\n";

// Without the idle bytes that padding becomes, as many as the line is fast.
std::string without_padding(std::string bytes) {
  std::erase(bytes, '\0');
  return bytes;
}

// The text as it arrives at a terminal of this kind, padding left out; NULL for none.
std::string shown(const char *term, const char *text) {
  const Outcome outcome = on_terminal([&] {
    if (term != nullptr) setenv("TERM", term, 1);
    _exit(imsg_fputs(text, stdout) != 0);
  });
  EXPECT_EQ(outcome.end(), "exit 0");
  return without_padding(outcome.out);
}

// xterm-256color: bold ESC[1m, sgr0 ESC(B ESC[m, smso ESC[7m, rmso ESC[27m, smul ESC[4m, rmul
// ESC[24m. Before the enter strings of what is on go the exit strings of all that is off.

TEST(Styles, OfXterm) {
  EXPECT_EQ(shown("xterm-256color", kBold),
            "a \x1b[27m\x1b[24m\x1b[1mword\x1b(B\x1b[m\x1b[27m\x1b[24m b\n");
  EXPECT_EQ(shown("xterm-256color", kStandOut),
            "\x1b(B\x1b[m\x1b[24m\x1b[7mword\x1b(B\x1b[m\x1b[27m\x1b[24m\n");
  EXPECT_EQ(shown("xterm-256color", kUnderline),
            "\x1b(B\x1b[m\x1b[27m\x1b[4mword\x1b(B\x1b[m\x1b[27m\x1b[24m\n");
}

TEST(Styles, AreAddedAndTakenAwayOneByOne) {
  EXPECT_EQ(shown("xterm-256color", kNested),
            "\x1b[27m\x1b[24m\x1b[1m1"     // B
            "\x1b[27m\x1b[1m\x1b[4m2"      // B, U
            "\x1b[1m\x1b[7m\x1b[4m3"       // B, I, U
            "\x1b(B\x1b[m\x1b[7m\x1b[4m4"  // I, U
            "\x1b(B\x1b[m\x1b[27m\x1b[4m"  // U
            "\x1b(B\x1b[m\x1b[27m\x1b[24m\n");
}

// vt100: bold ESC[1m, sgr0 ESC[m and a shift in, smso ESC[7m, rmso ESC[m, smul ESC[4m, rmul ESC[m,
// each followed by padding.
TEST(Styles, OfAVt100) {
  EXPECT_EQ(shown("vt100", kBold), "a \x1b[m\x1b[m\x1b[1mword\x1b[m\x0f\x1b[m\x1b[m b\n");
  EXPECT_EQ(shown("vt100", kStandOut), "\x1b[m\x0f\x1b[m\x1b[7mword\x1b[m\x0f\x1b[m\x1b[m\n");
  EXPECT_EQ(shown("vt100", kUnderline), "\x1b[m\x0f\x1b[m\x1b[4mword\x1b[m\x0f\x1b[m\x1b[m\n");
}

TEST(Styles, AreNoneWhereTheTerminalHasNoneOrIsUnknown) {
  const std::string overlong(100000, 'x');
  for (const char *term : {static_cast<const char *>(nullptr), "dumb", "", "no-such-terminal",
                           "../../etc/passwd", "xterm-256color/", overlong.c_str()}) {
    EXPECT_EQ(shown(term, kBold), "a word b\n") << (term != nullptr ? term : "no TERM");
  }
}

TEST(Styles, AreNoneWhereTheUserWantsNone) {
  for (const auto &[value, bold] : {std::pair("1", false), {"", false}, {"0", true}}) {
    const Outcome outcome = on_terminal([&] {
      setenv("TERM", "vt100", 1);
      setenv("NORVA_NO_BOLD", value, 1);
      imsg_fputs(kUnderline, stdout);
    });
    EXPECT_EQ(without_padding(outcome.out),
              bold ? "\x1b[m\x0f\x1b[m\x1b[4mword\x1b[m\x0f\x1b[m\x1b[m\n" : "word\n");
  }
}

TEST(Styles, AMarkThatChangesNothingEmitsNothing) {
  EXPECT_EQ(shown("xterm-256color",
                  "\1\1"
                  "0Ba\1\1"
                  "0U\n"),
            "a\n");
  EXPECT_EQ(shown("xterm-256color",
                  "\1\1"
                  "1Ba\1\1"
                  "1Bb\n"),
            "\x1b[27m\x1b[24m\x1b[1mab\n");
}

// Each text begins without styles, whatever the one before has left on.
TEST(Styles, DoNotLastBeyondTheText) {
  const Outcome outcome = on_terminal([&] {
    setenv("TERM", "xterm-256color", 1);
    imsg_fputs(
        "\1\1"
        "1Ba",
        stdout);
    imsg_fputs(
        "\1\1"
        "0Bb\1\1"
        "1Bc",
        stdout);
  });
  EXPECT_EQ(outcome.out, "\x1b[27m\x1b[24m\x1b[1mab\x1b[27m\x1b[24m\x1b[1mc");
}

TEST(Styles, LoneBytesAreWrittenToATerminalToo) {
  EXPECT_EQ(shown("xterm-256color",
                  "a\1b\1\1"
                  "1\1\1"
                  "2B\n"),
            "a\1b\1\1"
            "1\1\1"
            "2B\n");
  EXPECT_EQ(shown("xterm-256color",
                  "\1\1\1"
                  "1Ba\1"),
            "\1\x1b[27m\x1b[24m\x1b[1ma\1");
}

TEST(Styles, StandBetweenMultibyteCharacters) {
  const auto bold = [](const char *locale, const char *text) {
    return on_terminal([&] {
             ks_test::use_locale(locale);
             setenv("TERM", "xterm-256color", 1);
             imsg_fputs(text, stdout);
           })
        .out;
  };
  EXPECT_EQ(bold("C.UTF-8",
                 "\xC3\xA4\1\1"
                 "1B\xE3\x81\x82\n"),
            "\xC3\xA4\x1b[27m\x1b[24m\x1b[1m\xE3\x81\x82\n");
  EXPECT_EQ(bold("ja_JP.SJIS",
                 "\x83|\1\1"
                 "1B\x83\\\n"),
            "\x83|\x1b[27m\x1b[24m\x1b[1m\x83\\\n");
}

TEST(Styles, GoToTerminalsOnly) {
  Folder folder;
  const Outcome outcome = on_terminal([&] {
    setenv("TERM", "xterm-256color", 1);
    FILE *file = fopen(folder.path("file").c_str(), "w");
    imsg_fputs(kBold, file);
    imsg_fputs(
        "\1\1"
        "1Bx",
        stderr);
  });
  EXPECT_EQ(folder.read("file"), "a word b\n");
  EXPECT_EQ(outcome.out, "\x1b[27m\x1b[24m\x1b[1mx");
}

TEST(Styles, AreNoneOnStderrWhileStdoutIsAFile) {
  Folder folder;
  const Outcome outcome = on_terminal([&] {
    setenv("TERM", "xterm-256color", 1);
    if (freopen(folder.path("file").c_str(), "w", stdout) == nullptr) _exit(1);
    imsg_fputs(kBold, stderr);
  });
  EXPECT_EQ(outcome.out, "a word b\n");
}

TEST(Styles, ComeWithPrintedMessages) {
  const Outcome outcome = on_terminal([&] {
    setenv("TERM", "vt100", 1);
    imsg_print(IMSG_TYPE_ERROR, _ks_ks_msg_table, 8);
  });
  EXPECT_EQ(without_padding(outcome.out),
            "noname: Error: \x1b[m\x1b[m\x1b[1mThis product is not installed correctly."
            "\x1b[m\x0f\x1b[m\x1b[m\n");
}

TEST(Styles, AreLookedUpOnce) {
  const Outcome outcome = on_terminal([&] {
    imsg_fputs("", stdout);
    setenv("TERM", "xterm-256color", 1);
    imsg_fputs(kBold, stdout);
  });
  EXPECT_EQ(outcome.out, "a word b\n");
  const Outcome again = on_terminal([&] {
    setenv("TERM", "vt100", 1);
    imsg_fputs("", stdout);
    setenv("TERM", "dumb", 1);
    imsg_fputs(
        "\1\1"
        "1Bx\n",
        stdout);
    dprintf(STDOUT_FILENO, "%d\n", count_calls("setupterm"));
  });
  EXPECT_EQ(without_padding(again.out), "\x1b[m\x1b[m\x1b[1mx\n1\n");
}

// The terminal is looked at by the first text, to whatever stream.
TEST(Styles, AreLookedUpByATextForAFile) {
  const Outcome outcome = on_terminal([&] {
    FILE *null = fopen("/dev/null", "w");
    imsg_fputs("x", null);
    setenv("TERM", "xterm-256color", 1);
    imsg_fputs(kBold, stdout);
  });
  EXPECT_EQ(outcome.out, "a word b\n");
}

// A program that uses terminfo itself has a description in place already.
TEST(Styles, OfAnUnknownTerminalAreNotThoseOfTheProgramsOwn) {
  const Outcome outcome = on_terminal([&] {
    int found = 0;
    if (setupterm("xterm-256color", STDOUT_FILENO, &found) != 0) _exit(1);
    setenv("TERM", "no-such-terminal", 1);
    imsg_fputs(kBold, stdout);
  });
  EXPECT_EQ(outcome.end(), "exit 0");
  EXPECT_EQ(outcome.out, "a word b\n");
}

TEST(Styles, OfATextThatAFaultHasCutShortLeaveNothingForTheNext) {
  const Outcome outcome = on_terminal([&] {
    setenv("TERM", "xterm-256color", 1);
    imsg_fputs("", stdout);
    pfm_signal(SIGUSR1, ks_test::raise_number);
    ks_test::signal_in_call("isatty", 0, SIGUSR1);
    if (ks_test::land([] { imsg_fputs(kBold, stdout); }).status != SIGUSR1) _exit(1);
    imsg_fputs("next\n", stdout);
  });
  EXPECT_EQ(outcome.end(), "exit 0");
  EXPECT_EQ(outcome.out, "next\n");
}

// Terminals of our own making.

// The bytes on such a terminal, padding and all.
std::string shown_by(const std::string &description, const char *text) {
  Folder folder;
  folder.write("source", "own|terminal of a test,\n\t" + description + ",\n");
  EXPECT_EQ(
      ks_test::run_program({"tic", "-x", "-o", folder.path("terminfo"), folder.path("source")})
          .end(),
      "exit 0");
  const Outcome outcome = on_terminal([&] {
    setenv("TERMINFO", folder.path("terminfo").c_str(), 1);
    setenv("TERM", "own", 1);
    imsg_fputs(text, stdout);
  });
  return outcome.out;
}

TEST(Styles, WithoutAnExitStringStayOff) {
  EXPECT_EQ(shown_by("bold=<B>, smso=<I>, smul=<U>, rmul=</U>", kNested),
            "</U>1<U>2<U>3<U>4<U></U>\n");
  EXPECT_EQ(shown_by("bold=<B>, sgr0=<0>, smso=<I>, smul=<U>", kNested),
            "<B>1<B>2<B>3<0>4<0><0>\n");
}

TEST(Styles, WithoutAnEnterStringAreEndedOnly) {
  EXPECT_EQ(shown_by("sgr0=<0>, rmso=</I>, smul=<U>, rmul=</U>", kBold),
            "a </I></U>word<0></I></U> b\n");
}

// Padding becomes idle bytes, in no case the text that asks for it.
TEST(Styles, PaddingIsNoText) {
  const std::string bytes = shown_by("bold=<B>$<20/>, sgr0=<0>$<5>", kBold);
  EXPECT_EQ(bytes.find('\0'), std::string("a <B>").size());
  EXPECT_EQ(without_padding(bytes), "a <B>word<0> b\n");
}

// A text with styles reaches an unbuffered stream in one piece too.
TEST(Styles, GoOutWithTheirTextInOneWrite) {
  for (const char *stream : {"stdout", "stderr"}) {
    const Outcome outcome = on_terminal([&] {
      setenv("TERM", "xterm-256color", 1);
      const auto calls = [] {
        long count = -1;
        char line[64];
        FILE *io = fopen("/proc/self/io", "r");
        while (fgets(line, sizeof line, io) != nullptr) sscanf(line, "syscw: %ld", &count);
        fclose(io);
        return count;
      };
      FILE *out = *stream == 's' && stream[3] == 'o' ? stdout : stderr;
      imsg_fputs("", out);
      const long before = calls();
      imsg_fputs(kNested, out);
      _exit(static_cast<int>(calls() - before));
    });
    EXPECT_EQ(outcome.end(), "exit 1") << stream;
  }
}

// The terminal's attributes at the end.

// Runs, on a terminal, a program that prints, turns the echo on and then ends its own way. Result:
// whether the terminal is afterwards as it was before.
template <class End>
bool comes_back(End &&end, const char *term = "vt100") {
  const Outcome outcome = on_terminal([&] {
    if (term != nullptr) setenv("TERM", term, 1);
    in_foreground([&] {
      imsg_fputs("text\n", stdout);
      set_echo(true);
      end();
    });
    _exit(echoes());
  });
  EXPECT_TRUE(outcome.end() == "exit 0" || outcome.end() == "exit 1") << outcome.end();
  return outcome.end() == "exit 0";
}

TEST(Terminal, ComesBackOnEveryWayOut) {
  EXPECT_TRUE(comes_back([] { exit(0); }));
  EXPECT_TRUE(comes_back([] { pfm_exit(3); }));
  EXPECT_TRUE(comes_back([] { pfm_raise(77); }));
  for (int sig : {SIGINT, SIGTERM, SIGHUP}) {
    EXPECT_TRUE(comes_back([&] {
      raise(sig);
      _exit(1);
    })) << sig;
  }
  EXPECT_TRUE(comes_back([] { exit(0); }, "no-such-terminal"));
}

TEST(Terminal, StaysAsItIsWhereItWasNotLookedAt) {
  EXPECT_FALSE(comes_back([] { exit(0); }, nullptr));
  EXPECT_FALSE(comes_back([] { _exit(0); }));
}

TEST(Terminal, WhoseAttributesCouldNotBeReadIsLeftAlone) {
  const Outcome outcome = on_terminal([] {
    setenv("TERM", "vt100", 1);
    fail_call("tcgetattr", 0, EIO);
    const int before = count_calls("tcsetattr");
    imsg_fputs(
        "\1\1"
        "1Bx\n",
        stdout);
    imsg_reset_term();
    _exit(count_calls("tcsetattr") - before);
  });
  EXPECT_EQ(without_padding(outcome.out), "\x1b[m\x1b[m\x1b[1mx\n");
  EXPECT_EQ(outcome.end(), "exit 0");
}

TEST(Terminal, IsResetOnRequest) {
  const Outcome outcome = on_terminal([] {
    setenv("TERM", "vt100", 1);
    imsg_reset_term();
    imsg_fputs("text\n", stdout);
    set_echo(true);
    imsg_reset_term();
    const bool first = echoes();
    set_echo(true);
    imsg_reset_term();
    _exit(first || echoes());
  });
  EXPECT_EQ(outcome.end(), "exit 0");
}

// Neither before the output has got through, nor so that what the user has typed ahead is lost.
TEST(Terminal, IsResetBehindItsOutputAndKeepsItsInput) {
  const Outcome outcome = on_terminal([] {
    setenv("TERM", "vt100", 1);
    imsg_fputs("text\n", stdout);
    imsg_reset_term();
    _exit(ks_test::last_terminal_action() == TCSADRAIN ? 0 : 1);
  });
  EXPECT_EQ(outcome.end(), "exit 0");
}

void own_routine(int) {}

TEST(Terminal, LeavesTheRoutineForItsRefusalInPlace) {
  const Outcome outcome = on_terminal([] {
    setenv("TERM", "vt100", 1);
    pfm_signal(SIGTTOU, own_routine);
    imsg_fputs("text\n", stdout);
    if (pfm_signal(SIGTTOU, own_routine) != own_routine) _exit(1);
    imsg_reset_term();
    if (pfm_signal(SIGTTOU, own_routine) != own_routine) _exit(2);
    _exit(pfm_inhibit_count() != 0 || ks_test::innermost_record() != nullptr);
  });
  EXPECT_EQ(outcome.end(), "exit 0");
}

TEST(Terminal, SetUpIgnoresNothingAfterwards) {
  const Outcome outcome = on_terminal([] {
    setenv("TERM", "vt100", 1);
    imsg_fputs("text\n", stdout);
    if (ks_test::system_action(SIGTTOU).sa_handler != SIG_DFL) _exit(1);
    imsg_reset_term();
    _exit(ks_test::system_action(SIGTTOU).sa_handler != SIG_DFL || ks_test::is_blocked(SIGTTOU));
  });
  EXPECT_EQ(outcome.end(), "exit 0");
}

TEST(Terminal, OutputThatIsNoneLeavesTheFaultManagerAlone) {
  const Outcome outcome = ks_test::in_child([] {
    setenv("TERM", "vt100", 1);
    ks_test::default_signals();
    imsg_fputs("text\n", stdout);
    _exit(ks_test::system_action(SIGINT).sa_handler != SIG_DFL);
  });
  EXPECT_EQ(outcome.end(), "exit 0");
}

}  // namespace

// The end of the process.
#include <gmock/gmock.h>
#include <gtest/gtest.h>
#include <unistd.h>

#include <cerrno>
#include <cstdint>
#include <cstdio>
#include <cstdlib>

#include "pfm.h"
#include "support/assertion.h"
#include "support/child.h"
#include "support/faults.h"
#include "support/landing.h"

using ks_test::in_child;
using ks_test::Outcome;
using testing::MatchesRegex;

namespace {

// The argument of most hooks is the letter that they say.
void *letter(char c) { return reinterpret_cast<void *>(static_cast<uintptr_t>(c)); }

void say(int status, void *argument) {
  dprintf(STDOUT_FILENO, "%c%d ", static_cast<char>(reinterpret_cast<uintptr_t>(argument)), status);
}

void say_and_exit_9(int status, void *argument) {
  say(status, argument);
  pfm_exit(9);
}

void say_and_raise_9(int status, void *argument) {
  say(status, argument);
  pfm_raise(9);
}

void say_and_register(int status, void *argument) {
  say(status, argument);
  pfm_on_exit(say, letter('n'));
}

void say_end(int status) { dprintf(STDOUT_FILENO, "end %d ", status); }

void end_at_once(int status) {
  say_end(status);
  _exit(33);
}

void register_hooks() {
  for (char c : {'a', 'b', 'c'}) pfm_on_exit(say, letter(c));
}

TEST(PfmExit, EndsTheProcessWithTheStatus) {
  const Outcome outcome = in_child([] { pfm_exit(3); });
  EXPECT_EQ(outcome.out, "");
  EXPECT_EQ(outcome.end(), "exit 3");
}

TEST(PfmExit, RunsTheHooksFromTheLastRegisteredToTheFirst) {
  const Outcome outcome = in_child([] {
    register_hooks();
    pfm_exit(3);
  });
  EXPECT_EQ(outcome.out, "c3 b3 a3 ");
  EXPECT_EQ(outcome.end(), "exit 3");
}

TEST(PfmExit, GivesHooksTheWholeStatus) {
  const Outcome outcome = in_child([] {
    pfm_on_exit(say, letter('a'));
    pfm_exit(-300);
  });
  EXPECT_EQ(outcome.out, "a-300 ");
  EXPECT_EQ(outcome.end(), "exit 212") << "the low eight bits";
}

TEST(PfmExit, FromAHookRunsTheRest) {
  const Outcome outcome = in_child([] {
    pfm_on_exit(say, letter('a'));
    pfm_on_exit(say, letter('b'));
    pfm_on_exit(say_and_exit_9, letter('c'));
    pfm_on_exit(say, letter('d'));
    pfm_exit(3);
  });
  EXPECT_EQ(outcome.out, "d3 c3 b9 a9 ");
  EXPECT_EQ(outcome.end(), "exit 9");
}

TEST(PfmExit, RunsAHookThatAHookRegisters) {
  const Outcome outcome = in_child([] {
    pfm_on_exit(say, letter('a'));
    pfm_on_exit(say_and_register, letter('b'));
    pfm_exit(3);
  });
  EXPECT_EQ(outcome.out, "b3 n3 a3 ");
}

TEST(PfmExit, RunsEachHookOnceWhenExitFollows) {
  const Outcome outcome = in_child([] {
    pfm_on_exit(say, letter('a'));
    pfm_on_exit(say, letter('b'));
    pfm_set_exit(say_end);
    pfm_exit(3);
    exit(5);
  });
  EXPECT_EQ(outcome.out, "b3 a3 end 3 ");
  EXPECT_EQ(outcome.end(), "exit 5");
}

TEST(PfmExit, RegistersAndRunsTheSameHookTwice) {
  const Outcome outcome = in_child([] {
    for (int i = 0; i < 2; ++i) pfm_on_exit(say, letter('a'));
    pfm_exit(3);
  });
  EXPECT_EQ(outcome.out, "a3 a3 ");
}

TEST(PfmExit, DoesNotLandInARecord) {
  const Outcome outcome = in_child([] {
    pfm_on_exit(say, letter('a'));
    ks_test::land([] { pfm_exit(3); }, [] { dprintf(STDOUT_FILENO, "landed"); });
  });
  EXPECT_EQ(outcome.out, "a3 ");
  EXPECT_EQ(outcome.end(), "exit 3");
}

TEST(PfmAtExit, ExitRunsTheHooksWithStatusZero) {
  const Outcome outcome = in_child([] {
    register_hooks();
    exit(5);
  });
  EXPECT_EQ(outcome.out, "c0 b0 a0 ");
  EXPECT_EQ(outcome.end(), "exit 5");
}

TEST(PfmAtExit, DoesNotCallTheExitRoutine) {
  const Outcome outcome = in_child([] {
    pfm_on_exit(say, letter('a'));
    pfm_set_exit(end_at_once);
    exit(5);
  });
  EXPECT_EQ(outcome.out, "a0 ");
  EXPECT_EQ(outcome.end(), "exit 5");
}

TEST(PfmSetExit, ReturnsThePreviousRoutine) {
  EXPECT_EQ(pfm_set_exit(end_at_once), exit);
  EXPECT_EQ(pfm_set_exit(say_end), end_at_once);
  EXPECT_EQ(pfm_set_exit(exit), say_end);
}

TEST(PfmSetExit, TheRoutineIsCalledBehindTheHooks) {
  const Outcome outcome = in_child([] {
    register_hooks();
    pfm_set_exit(end_at_once);
    pfm_exit(3);
  });
  EXPECT_EQ(outcome.out, "c3 b3 a3 end 3 ");
  EXPECT_EQ(outcome.end(), "exit 33");
}

TEST(PfmRaise, WithoutARecordRunsTheHooksAndExitsWithTheStatus) {
  const Outcome outcome = in_child([] {
    register_hooks();
    pfm_raise(7);
  });
  EXPECT_EQ(outcome.out, "c7 b7 a7 ");
  EXPECT_EQ(outcome.end(), "exit 7");
}

TEST(PfmRaise, WithoutARecordCallsTheExitRoutineThatWasSet) {
  const Outcome outcome = in_child([] {
    pfm_set_exit(end_at_once);
    pfm_raise(23792);
  });
  EXPECT_EQ(outcome.out, "end 23792 ");
  EXPECT_EQ(outcome.end(), "exit 33");
}

TEST(PfmRaise, FromAHookWithoutARecordRunsTheRest) {
  const Outcome outcome = in_child([] {
    pfm_on_exit(say, letter('a'));
    pfm_on_exit(say_and_raise_9, letter('b'));
    pfm_exit(3);
  });
  EXPECT_EQ(outcome.out, "b3 a9 ");
  EXPECT_EQ(outcome.end(), "exit 9");
}

// There is nowhere to go then.
TEST(PfmRaise, WithoutARecordAbortsWhenTheExitRoutineReturns) {
  const Outcome outcome = in_child([] {
    pfm_on_exit(say, letter('a'));
    pfm_set_exit(say_end);
    pfm_raise(7);
  });
  EXPECT_EQ(outcome.out, "a7 end 7 ");
  EXPECT_THAT(outcome.err, MatchesRegex("noname: Error: \\*\\*\\*ABORT\\*\\*\\*  "
                                        "'src/core/pfm\\.cc':[0-9]+\n"));
  EXPECT_EQ(outcome.end(), "signal 6");
}

TEST(PfmOnExit, AssertsThatThereIsStorage) {
  const Outcome outcome = in_child([] {
    pfm_on_exit(say, letter('a'));
    ks_test::fail_call("malloc", 0, ENOMEM);
    pfm_on_exit(say, letter('b'));
  });
  EXPECT_EQ(outcome.out, "") << "an abort runs no hooks";
  EXPECT_THAT(outcome.err,
              MatchesRegex("noname: Error: " +
                           ks_test::assertion_line("(new = (struct on_exit_entry *)malloc("
                                                   "sizeof(struct on_exit_entry))) != NULL",
                                                   "src/core/pfm_exit.cc")));
  EXPECT_EQ(outcome.end(), "signal 6");
}

}  // namespace

// Handlers of single descriptors.
#include <gmock/gmock.h>
#include <gtest/gtest.h>
#include <sys/select.h>
#include <unistd.h>

#include <cerrno>
#include <csignal>
#include <iterator>
#include <memory>
#include <string>
#include <vector>

#include "pfm.h"
#include "proc/rt_support.h"
#include "rt.h"
#include "support/assertion.h"
#include "support/child.h"
#include "support/faults.h"
#include "support/landing.h"
#include "support/signals.h"

using ks_test::arg;
using ks_test::assertion_line;
using ks_test::fail_call;
using ks_test::note;
using ks_test::note_and_leave_read;
using ks_test::note_and_leave_write;
using ks_test::note_fd;
using ks_test::notes_of_a_poll;
using ks_test::simulate_time;
using ks_test::Source;
using ks_test::take_notes;
using ks_test::take_waits;
using ks_test::Wait;
using testing::ElementsAre;
using testing::IsEmpty;
using testing::MatchesRegex;

namespace {

class RtFd : public ks_test::ReadySources {
 protected:
  RtFd() : ReadySources(52) {}
};

TEST_F(RtFd, CallsTheHandlerInEveryTurnInWhichTheDescriptorIsReady) {
  EXPECT_EQ(rt_handle_fd(RT_FD_READ, note_fd, 50, arg("a")), 1);
  EXPECT_THAT(notes_of_a_poll(), ElementsAre("a 50"));
  EXPECT_THAT(notes_of_a_poll(), ElementsAre("a 50"));
  a_.set_ready(false);
  EXPECT_THAT(notes_of_a_poll(), IsEmpty());
  a_.set_ready(true);
  EXPECT_THAT(notes_of_a_poll(), ElementsAre("a 50"));
  EXPECT_EQ(rt_unhandle_fd(RT_FD_READ, 50), 1);
  EXPECT_EQ(rt_unhandle_fd(RT_FD_READ, 50), 0);
  EXPECT_THAT(notes_of_a_poll(), IsEmpty());
}

TEST_F(RtFd, EachClassWatchesItsDirection) {
  constexpr int kDirectionOf[] = {RT_FD_READ, RT_FD_WRITE, RT_FD_EXCEPT, RT_FD_READ, RT_FD_WRITE};
  const char *const kExpected[] = {"r 50", "w 60", "x 61"};
  Source writing(RT_FD_WRITE, 60);
  Source exception(RT_FD_EXCEPT, 61);
  const int fds[] = {50, 60, 61};
  const char *const names[] = {"r", "w", "x"};
  writing.set_ready(true);
  exception.set_ready(true);
  for (int fd_class = 0; fd_class < 5; ++fd_class) {
    const int direction = kDirectionOf[fd_class];
    rt_handle_fd(fd_class, note_fd, fds[direction], arg(names[direction]));
    EXPECT_THAT(notes_of_a_poll(), ElementsAre(kExpected[direction])) << "class " << fd_class;
    EXPECT_THAT(take_waits(), ElementsAre(Wait{fds[direction] + 1, direction == RT_FD_WRITE,
                                               direction == RT_FD_EXCEPT, 0, 0}));
    for (int other = 0; other < 5; ++other) {
      if (kDirectionOf[other] == direction) continue;
      EXPECT_EQ(rt_unhandle_fd(other, fds[direction]), 0) << fd_class << " " << other;
    }
    const int twin = fd_class == RT_FD_EXCEPT ? fd_class : (fd_class + 3) % 6;
    EXPECT_EQ(rt_unhandle_fd(twin, fds[direction]), 1) << "class " << fd_class;
    EXPECT_THAT(notes_of_a_poll(), IsEmpty());
    take_waits();
  }
}

TEST_F(RtFd, NothingIsWatchedForClosing) {
  EXPECT_EQ(rt_handle_fd(RT_FD_CLOSE, note_fd, 50, nullptr), 1);
  EXPECT_EQ(rt_handle_fd(RT_FD_CLOSE, note_fd, 50, nullptr), 1);
  EXPECT_EQ(rt_handle_fd(RT_FD_CLOSE, note_fd, -1, nullptr), 1);
  EXPECT_THAT(notes_of_a_poll(), IsEmpty());
  EXPECT_EQ(take_waits()[0].nfds, 0);
  EXPECT_EQ(rt_unhandle_fd(RT_FD_CLOSE, 50), 1);
}

TEST(RtFdDeathTest, PanicsAtAClassThatDoesNotExist) {
  const std::string line = "\\*\\*\\*ABORT\\*\\*\\*  'src/proc/rt_fd\\.cc':[0-9]+\n";
  for (int fd_class : {6, 7, -1, 1000000, -1000000}) {
    EXPECT_DEATH(rt_handle_fd(fd_class, note_fd, 3, nullptr), line) << fd_class;
    EXPECT_DEATH(rt_unhandle_fd(fd_class, 3), line) << fd_class;
  }
}

TEST(RtFdDeathTest, RefusesASecondHandlerOfADescriptorAndDirection) {
  const std::string line = assertion_line("elem->fd != fd", "src/proc/rt_fd.cc");
  for (int fd_class : {0, 1, 2}) {
    EXPECT_EQ(rt_handle_fd(fd_class, note_fd, 3, nullptr), 1);
    EXPECT_EQ(rt_handle_fd(fd_class, note_fd, 4, nullptr), 1) << "each direction has its own";
    EXPECT_DEATH(rt_handle_fd(fd_class, note_fd, 3, nullptr), line);
    EXPECT_DEATH(rt_handle_fd(fd_class, note_fd, 4, nullptr), line);
  }
  EXPECT_DEATH(rt_handle_fd(RT_FD_ACCEPT, note_fd, 3, nullptr), line);
  EXPECT_DEATH(rt_handle_fd(RT_FD_CONNECT, note_fd, 3, nullptr), line);
  EXPECT_EQ(rt_unhandle_fd(RT_FD_ACCEPT, 3), 1);
  EXPECT_EQ(rt_handle_fd(RT_FD_READ, note_fd, 3, nullptr), 1);
}

TEST(RtFdValidateMaxFd, KeepsTheLimitOneBeyondTheSets) {
  const ks_test::Outcome outcome = ks_test::in_child([] {
    const bool good = rt_fd_validate_max_fd(0) == 1 && rt_fd_validate_max_fd(-1) == 1 &&
                      rt_fd_validate_max_fd(1023) == 1 && rt_fd_validate_max_fd(1024) == 1 &&
                      rt_fd_validate_max_fd(1025) == 0 && rt_fd_validate_max_fd(2147483647) == 0;
    _exit(good ? 0 : 1);
  });
  EXPECT_EQ(outcome.end(), "exit 0");
  EXPECT_EQ(outcome.err,
            "noname: Error: File descriptor (1025) too large for rt\n"
            "noname: Error: File descriptor (2147483647) too large for rt\n");
}

// Before the class is looked at, so that one that does not exist is no panic then.
TEST(RtHandleFd, RefusesADescriptorAboveTheLimitInEveryClass) {
  const ks_test::Outcome outcome = ks_test::in_child([] {
    for (int fd_class = -1; fd_class <= 6; ++fd_class) {
      if (rt_handle_fd(fd_class, note_fd, 1025, nullptr) != 0) _exit(1);
    }
    _exit(rt_unhandle_fd(RT_FD_READ, 1025) == 0 ? 0 : 2);
  });
  EXPECT_EQ(outcome.end(), "exit 0");
  std::string expected;
  for (int i = 0; i < 8; ++i) {
    expected += "noname: Error: File descriptor (1025) too large for rt\n";
  }
  EXPECT_EQ(outcome.err, expected);
}

TEST(RtHandleFd, RefusesANegativeDescriptorWithoutAMessage) {
  testing::internal::CaptureStderr();
  for (int fd : {-1, -32, -2147483647 - 1}) {
    errno = 0;
    EXPECT_EQ(rt_handle_fd(RT_FD_READ, note_fd, fd, nullptr), 0);
    EXPECT_EQ(errno, EBADF);
    EXPECT_EQ(rt_unhandle_fd(RT_FD_READ, fd), 0);
  }
  EXPECT_EQ(testing::internal::GetCapturedStderr(), "");
}

TEST_F(RtFd, KeepsDescriptor1024ThoughASetEndsBeforeIt) {
  Source reading(RT_FD_READ, 1024);
  EXPECT_EQ(rt_handle_fd(RT_FD_READ, note_fd, 1024, arg("last")), 1);
  EXPECT_THAT(notes_of_a_poll(), IsEmpty());
  EXPECT_EQ(take_waits()[0].nfds, 1025);
  reading.set_ready(true);
  EXPECT_THAT(notes_of_a_poll(), ElementsAre("last 1024"));
  rt_handle_fd(RT_FD_READ, note_fd, 50, arg("a"));
  EXPECT_THAT(notes_of_a_poll(), ElementsAre("a 50", "last 1024"));
  rt_handle_fd(RT_FD_READ, note_fd, 51, arg("b"));
  rt_unhandle_fd(RT_FD_READ, 51);
  take_waits();
  EXPECT_THAT(notes_of_a_poll(), ElementsAre("a 50", "last 1024"));
  EXPECT_EQ(take_waits()[0].nfds, 1025) << "it is the highest still";
  EXPECT_EQ(rt_unhandle_fd(RT_FD_READ, 1024), 1);
  EXPECT_THAT(notes_of_a_poll(), ElementsAre("a 50"));
  EXPECT_EQ(take_waits()[0].nfds, 51);
}

TEST_F(RtFd, KeepsDescriptor1024ForWritingAndExceptions) {
  for (int fd_class : {RT_FD_WRITE, RT_FD_EXCEPT}) {
    Source source(fd_class, 1024);
    EXPECT_EQ(rt_handle_fd(fd_class, note_fd, 1024, arg("last")), 1);
    EXPECT_THAT(notes_of_a_poll(), IsEmpty());
    source.set_ready(true);
    EXPECT_THAT(notes_of_a_poll(), ElementsAre("last 1024"));
    EXPECT_EQ(rt_unhandle_fd(fd_class, 1024), 1);
  }
}

TEST_F(RtFd, WaitsForAsManyDescriptorsAsTheHighestAsksFor) {
  const int kFds[] = {20, 31, 32, 63, 64, 65, 1000, 1023, 1024};
  std::vector<std::unique_ptr<Source>> sources;
  for (int fd : kFds) {
    sources.push_back(std::make_unique<Source>(RT_FD_READ, fd));
    EXPECT_EQ(rt_handle_fd(RT_FD_READ, note_fd, fd, arg("")), 1);
  }
  for (size_t i = std::size(kFds); i-- > 0;) {
    rt_poll();
    EXPECT_EQ(take_waits()[0].nfds, kFds[i] + 1);
    rt_unhandle_fd(RT_FD_READ, kFds[i]);
  }
  rt_poll();
  EXPECT_EQ(take_waits()[0].nfds, 0);
}

TEST_F(RtFd, TheHandlerRegisteredLastIsLookedAtFirst) {
  rt_handle_fd(RT_FD_READ, note_fd, 51, arg("b"));
  rt_handle_fd(RT_FD_READ, note_fd, 50, arg("a"));
  rt_handle_fd(RT_FD_ACCEPT, note_fd, 52, arg("c"));
  EXPECT_THAT(notes_of_a_poll(), ElementsAre("c 52", "a 50", "b 51"));
  rt_unhandle_fd(RT_FD_READ, 50);
  rt_handle_fd(RT_FD_READ, note_fd, 50, arg("a"));
  EXPECT_THAT(notes_of_a_poll(), ElementsAre("a 50", "c 52", "b 51"));
}

// Removes the handler of the descriptor that `arg` points at.
void note_and_remove(int fd, void *other) {
  note_fd(fd, arg("removing"));
  note("removed " + std::to_string(rt_unhandle_fd(RT_FD_READ, *static_cast<int *>(other))));
}

TEST_F(RtFd, AHandlerThatIsRemovedByAnEarlierOneIsNotCalled) {
  int other = 50;
  rt_handle_fd(RT_FD_READ, note_fd, 50, arg("a"));
  rt_handle_fd(RT_FD_READ, note_fd, 51, arg("b"));
  rt_handle_fd(RT_FD_READ, note_and_remove, 52, &other);
  EXPECT_THAT(notes_of_a_poll(), ElementsAre("removing 52", "removed 1", "b 51"));
}

TEST_F(RtFd, AHandlerMayRemoveItself) {
  int other = 51;
  rt_handle_fd(RT_FD_READ, note_fd, 50, arg("a"));
  rt_handle_fd(RT_FD_READ, note_and_remove, 51, &other);
  rt_handle_fd(RT_FD_READ, note_fd, 52, arg("c"));
  EXPECT_THAT(notes_of_a_poll(), ElementsAre("c 52", "removing 51", "removed 1", "a 50"));
  EXPECT_THAT(notes_of_a_poll(), ElementsAre("c 52", "a 50"));
}

TEST_F(RtFd, AHandlerMayRemoveOneThatHasRun) {
  int other = 52;
  rt_handle_fd(RT_FD_READ, note_fd, 50, arg("a"));
  rt_handle_fd(RT_FD_READ, note_and_remove, 51, &other);
  rt_handle_fd(RT_FD_READ, note_fd, 52, arg("c"));
  EXPECT_THAT(notes_of_a_poll(), ElementsAre("c 52", "removing 51", "removed 1", "a 50"));
}

TEST_F(RtFd, AllHandlersMayGoAtOnce) {
  for (int fd : {50, 51, 52}) {
    rt_handle_fd(
        RT_FD_READ,
        [](int first, void *) {
          note_fd(first, arg("only"));
          for (int one : {50, 51, 52}) rt_unhandle_fd(RT_FD_READ, one);
        },
        fd, nullptr);
  }
  EXPECT_THAT(notes_of_a_poll(), ElementsAre("only 52"));
  EXPECT_THAT(notes_of_a_poll(), IsEmpty());
}

TEST_F(RtFd, ANewHandlerWaitsForTheNextTurnWhereNothingWasRemoved) {
  rt_handle_fd(
      RT_FD_READ,
      [](int fd, void *) {
        note_fd(fd, arg("old"));
        rt_handle_fd(RT_FD_READ, note_fd, 51, arg("new"));
        rt_handle_fd(RT_FD_READ, note_and_leave_read, 52, arg("new"));
        rt_unhandle_fd(RT_FD_WRITE, 51);  // there is none: nothing is removed
      },
      50, nullptr);
  EXPECT_THAT(notes_of_a_poll(), ElementsAre("old 50"));
  rt_unhandle_fd(RT_FD_READ, 50);
  EXPECT_THAT(notes_of_a_poll(), ElementsAre("new 52", "new 51"));
}

// Descriptor 51 was asked for, so its bit is there for the one who comes after the restart.
TEST_F(RtFd, AfterARemovalANewHandlerAtTheHeadIsSeen) {
  rt_handle_fd(RT_FD_READ, note_fd, 51, arg("never"));
  rt_handle_fd(
      RT_FD_READ,
      [](int fd, void *) {
        note_fd(fd, arg("exchanging"));
        rt_unhandle_fd(RT_FD_READ, 51);
        rt_handle_fd(RT_FD_READ, note_fd, 51, arg("new"));
        rt_handle_fd(RT_FD_READ, note_fd, 52, arg("not asked for"));
      },
      50, nullptr);
  EXPECT_THAT(notes_of_a_poll(), ElementsAre("exchanging 50", "new 51"));
}

TEST_F(RtFd, ADescriptorFiresOnceATurnThoughTheWalkStartsAgain) {
  rt_handle_fd(RT_FD_READ, note_and_leave_read, 50, arg("a"));
  rt_handle_fd(
      RT_FD_READ,
      [](int fd, void *) {
        note_fd(fd, arg("anew"));
        rt_unhandle_fd(RT_FD_READ, fd);
        rt_handle_fd(RT_FD_READ, note_fd, fd, arg("next turn"));
      },
      51, nullptr);
  rt_handle_fd(RT_FD_READ, note_fd, 52, arg("c"));
  EXPECT_THAT(notes_of_a_poll(), ElementsAre("c 52", "anew 51", "a 50"));
  EXPECT_THAT(notes_of_a_poll(), ElementsAre("next turn 51", "c 52"));
}

TEST_F(RtFd, ADescriptorFiresOnceForEachDirection) {
  Source sink(RT_FD_WRITE, 60);
  sink.set_ready(true);
  rt_handle_fd(RT_FD_WRITE, note_fd, 60, arg("write"));
  rt_handle_fd(RT_FD_READ, note_fd, 60, arg("read"));
  rt_handle_fd(RT_FD_EXCEPT, note_fd, 60, arg("except"));
  EXPECT_THAT(notes_of_a_poll(), ElementsAre("write 60"))
      << "the end for writing is never readable";
}

TEST_F(RtFd, WritersThatWereNotAskedForWaitForTheNextTurn) {
  Source sink(RT_FD_WRITE, 60);
  sink.set_ready(true);
  rt_handle_fd(
      RT_FD_READ,
      [](int fd, void *) {
        note_and_leave_read(fd, arg("read"));
        rt_handle_fd(RT_FD_WRITE, note_and_leave_write, 60, arg("write"));
      },
      50, nullptr);
  EXPECT_THAT(notes_of_a_poll(), ElementsAre("read 50"));
  EXPECT_THAT(notes_of_a_poll(), ElementsAre("write 60"));
}

TEST_F(RtFd, NothingIsDispatchedWhereASignalEndedTheWait) {
  ks_test::note_signals({SIGUSR1});
  rt_handle_fd(RT_FD_READ, note_fd, 50, arg("a"));
  ks_test::signal_in_call("select", 0, SIGUSR1);
  EXPECT_THAT(notes_of_a_poll(), IsEmpty());
  EXPECT_THAT(ks_test::take_noted(), ElementsAre(SIGUSR1));
  EXPECT_EQ(pfm_inhibit_count(), 0);
  EXPECT_THAT(notes_of_a_poll(), ElementsAre("a 50"));
}

TEST(RtFdDeathTest, ADescriptorClosedWithoutAWordEndsInAnAssertion) {
  const int fd = dup(STDOUT_FILENO);
  rt_handle_fd(RT_FD_READ, note_fd, fd, nullptr);
  close(fd);
  const std::string line = assertion_line("errno == EINTR", "src/proc/rt_fd.cc");
  EXPECT_DEATH(rt_poll(), line);
  EXPECT_DEATH(rt_run(), line);
  rt_unhandle_fd(RT_FD_READ, fd);
  rt_poll();
}

TEST_F(RtFd, AHandlerMayPoll) {
  rt_handle_fd(RT_FD_READ, note_and_leave_read, 50, arg("a"));
  rt_handle_fd(RT_FD_READ, note_and_leave_read, 51, arg("b"));
  rt_handle_fd(
      RT_FD_READ,
      [](int fd, void *) {
        note_and_leave_read(fd, arg("in"));
        rt_poll();
        note("out");
      },
      52, nullptr);
  EXPECT_THAT(notes_of_a_poll(), ElementsAre("in 52", "b 51", "a 50", "out"));
  EXPECT_THAT(notes_of_a_poll(), IsEmpty());
}

// What the inner run has removed is gone for the outer dispatch, and what it has left is called.
TEST_F(RtFd, AHandlerMayRunTheLoop) {
  static bool nested;
  nested = false;
  const auto shut_down_inside = [](int fd, void *) {
    note_fd(fd, arg(nested ? "inner" : "outer"));
    if (nested) return rt_shutdown();
    nested = true;
    rt_unhandle_fd(RT_FD_READ, 51);
    rt_run();
    nested = false;
    note("out");
    rt_shutdown();
  };
  rt_handle_fd(RT_FD_READ, note_fd, 50, arg("a"));
  rt_handle_fd(RT_FD_READ, note_fd, 51, arg("b"));
  rt_handle_fd(RT_FD_READ, shut_down_inside, 52, nullptr);
  rt_run();
  EXPECT_THAT(take_notes(), ElementsAre("outer 52", "inner 52", "a 50", "out"));
}

// The interrupted wait leaves no answer of which the outer dispatch could take a part for its own.
TEST_F(RtFd, APollThatASignalEndsLetsTheOuterDispatchCallNobody) {
  ks_test::note_signals({SIGUSR1});
  b_.set_ready(false);
  rt_handle_fd(RT_FD_READ, note_fd, 51, arg("b"));
  rt_handle_fd(
      RT_FD_READ,
      [](int fd, void *) {
        note_fd(fd, arg("polling"));
        ks_test::signal_in_call("select", 0, SIGUSR1);
        rt_poll();
      },
      50, nullptr);
  EXPECT_THAT(notes_of_a_poll(), ElementsAre("polling 50"));
}

// The descriptors that were ready by then are of the next wait.
TEST_F(RtFd, AWaitThatASignalEndsCallsNobody) {
  ks_test::note_signals({SIGUSR1});
  rt_handle_fd(RT_FD_READ, note_fd, 50, arg("a"));
  ks_test::answer_select(
      [](int nfds, fd_set *reading, fd_set *writing, fd_set *exceptions, timeval *timeout) {
        const int ready = ks_test::system_select(nfds, reading, writing, exceptions, timeout);
        ks_test::send_signal(SIGUSR1);
        return ready;
      });
  EXPECT_THAT(notes_of_a_poll(), IsEmpty());
  EXPECT_THAT(ks_test::take_noted(), ElementsAre(SIGUSR1));
  simulate_time(1000, 0);
  EXPECT_THAT(notes_of_a_poll(), ElementsAre("a 50"));
}

// The inner poll used no set for writing, so that of the outer one still counts.
TEST_F(RtFd, AFaultOutOfAPollOfAHandlerLosesNoOtherHandler) {
  Source sink(RT_FD_WRITE, 60);
  sink.set_ready(true);
  rt_handle_fd(RT_FD_WRITE, note_fd, 60, arg("never"));
  rt_handle_fd(
      RT_FD_READ, [](int, void *) { pfm_raise(7); }, 50, nullptr);
  rt_handle_fd(
      RT_FD_READ,
      [](int fd, void *) {
        note_and_leave_read(fd, arg("absorbing"));
        rt_unhandle_fd(RT_FD_WRITE, 60);
        const int status = ks_test::land([] { rt_poll(); }).status;
        note("status " + std::to_string(status));
        rt_unhandle_fd(RT_FD_READ, 50);
        rt_handle_fd(RT_FD_WRITE, note_fd, 60, arg("write"));
      },
      51, nullptr);
  EXPECT_THAT(notes_of_a_poll(), ElementsAre("absorbing 51", "status 7", "write 60"));
}

TEST_F(RtFd, WithoutStorageItPrintsAndTheHandlersStayAsTheyWere) {
  const ks_test::Outcome outcome = ks_test::in_child([] {
    rt_handle_fd(RT_FD_READ, note_fd, 50, arg("a"));
    fail_call("malloc", 0, ENOMEM);
    if (rt_handle_fd(RT_FD_READ, note_fd, 51, arg("b")) != 0) _exit(1);
    ks_test::stop_failing_calls();
    if (notes_of_a_poll() != std::vector<std::string>{"a 50"} || take_waits()[0].nfds != 51)
      _exit(2);
    if (rt_unhandle_fd(RT_FD_READ, 51) != 0 || pfm_inhibit_count() != 0) _exit(3);
    if (rt_handle_fd(RT_FD_READ, note_fd, 51, arg("b")) != 1) _exit(4);
  });
  EXPECT_EQ(outcome.end(), "exit 0");
  EXPECT_THAT(outcome.err,
              MatchesRegex("(.|\n)*Malloc failed at \"src/proc/rt_fd\\.cc\":[0-9]+\n"));
}

TEST_F(RtFd, PanicsWithoutStorageForTheSetsOfTheFirstWait) {
  for (int nth = 0; nth < 4; ++nth) {
    const ks_test::Outcome outcome = ks_test::in_child([&] {
      fail_call("malloc", nth, ENOMEM);
      rt_poll();
    });
    EXPECT_EQ(outcome.end(), "signal 6") << nth;
    EXPECT_THAT(outcome.err, MatchesRegex("(.|\n)*Malloc failed at \"src/proc/rt_fd\\.cc\":[0-9]+\n"
                                          ".*\\*\\*\\*ABORT\\*\\*\\*  "
                                          "'src/proc/rt_fd\\.cc':[0-9]+\n"));
  }
}

TEST_F(RtFd, AllocatesFourSetsAtTheFirstWaitAndNothingLater) {
  rt_handle_fd(
      RT_FD_READ, [](int, void *) {}, 50, nullptr);
  const int mallocs = ks_test::count_calls("malloc");
  rt_poll();
  EXPECT_EQ(ks_test::count_calls("malloc"), mallocs + 4);
  for (int i = 0; i < 10; ++i) rt_poll();
  EXPECT_EQ(ks_test::count_calls("malloc"), mallocs + 4);
}

}  // namespace

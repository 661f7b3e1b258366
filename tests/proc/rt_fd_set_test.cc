// Handlers of descriptor sets, and the order of all handlers.
#include <gmock/gmock.h>
#include <gtest/gtest.h>
#include <sys/select.h>

#include <cerrno>
#include <cstdint>
#include <cstring>
#include <initializer_list>
#include <memory>
#include <string>
#include <vector>

#include "pfm.h"
#include "proc/rt_internal.h"
#include "proc/rt_support.h"
#include "rt.h"
#include "support/assertion.h"
#include "support/child.h"
#include "support/faults.h"

using ks_test::arg;
using ks_test::fail_call;
using ks_test::note;
using ks_test::note_fd;
using ks_test::note_set;
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

// A caller's set, in exactly its bytes on the heap.
class Set {
 public:
  Set(std::initializer_list<int> fds) : set_(new fd_set) {
    FD_ZERO(set_.get());
    for (int fd : fds) FD_SET(fd, set_.get());
  }
  operator fd_set *() const { return set_.get(); }

 private:
  std::unique_ptr<fd_set> set_;
};

class RtFdSet : public ks_test::ReadySources {
 protected:
  RtFdSet() : ReadySources(1023) {}
};

TEST_F(RtFdSet, ShowsTheHandlerExactlyThoseThatAreReady) {
  const Set set = {50, 51, 1023};
  b_.set_ready(false);
  EXPECT_EQ(rt_handle_fd_set(RT_FD_READ, note_set, set, arg("set")), 1);
  EXPECT_THAT(notes_of_a_poll(), ElementsAre("set 50 1023"));
  b_.set_ready(true);
  EXPECT_THAT(notes_of_a_poll(), ElementsAre("set 50 51 1023"));
  for (Source *source : {&a_, &b_, &c_}) source->set_ready(false);
  EXPECT_THAT(notes_of_a_poll(), IsEmpty());
  EXPECT_TRUE(FD_ISSET(50, static_cast<fd_set *>(set))) << "the caller's set stays as it is";
}

TEST_F(RtFdSet, IsReadAtEachWait) {
  const Set set = {50};
  rt_handle_fd_set(RT_FD_READ, note_set, set, arg("set"));
  EXPECT_THAT(notes_of_a_poll(), ElementsAre("set 50"));
  FD_SET(51, static_cast<fd_set *>(set));
  EXPECT_THAT(notes_of_a_poll(), ElementsAre("set 50 51"));
  FD_ZERO(static_cast<fd_set *>(set));
  EXPECT_THAT(notes_of_a_poll(), IsEmpty());
}

TEST_F(RtFdSet, WaitsUpToTheEndOfItsLastWord) {
  const struct {
    std::initializer_list<int> fds;
    int nfds;
  } kRows[] = {{{}, 0}, {{50}, 64}, {{50, 51}, 64}, {{1023}, 1024}, {{50, 1023}, 1024}};
  for (const auto &row : kRows) {
    const Set set = row.fds;
    rt_handle_fd_set(RT_FD_READ, note_set, set, arg(""));
    rt_poll();
    EXPECT_EQ(take_waits()[0].nfds, row.nfds);
    rt_unhandle_fd_set(RT_FD_READ, set);
  }
  const Set low = {50};
  rt_handle_fd_set(RT_FD_READ, note_set, low, arg(""));
  rt_handle_fd(RT_FD_READ, note_fd, 1023, arg(""));
  rt_poll();
  EXPECT_EQ(take_waits()[0].nfds, 1024);
}

TEST_F(RtFdSet, EachDirectionHasItsOwnHandlers) {
  Source sink(RT_FD_WRITE, 60);
  Source exception(RT_FD_EXCEPT, 61);
  sink.set_ready(true);
  exception.set_ready(true);
  const Set sets[] = {{50}, {60}, {61}};
  const char *const kExpected[] = {"set 50", "set 60", "set 61"};
  for (int direction : {RT_FD_READ, RT_FD_WRITE, RT_FD_EXCEPT}) {
    const Set &set = sets[direction];
    EXPECT_EQ(rt_handle_fd_set(direction, note_set, set, arg("set")), 1);
    EXPECT_THAT(notes_of_a_poll(), ElementsAre(kExpected[direction]));
    EXPECT_THAT(take_waits(),
                ElementsAre(Wait{64, direction == RT_FD_WRITE, direction == RT_FD_EXCEPT, 0, 0}));
    EXPECT_EQ(rt_unhandle_fd_set((direction + 1) % 3, set), 0);
    EXPECT_EQ(rt_unhandle_fd_set(direction, set), 1);
    EXPECT_EQ(rt_unhandle_fd_set(direction, set), 0);
    EXPECT_THAT(notes_of_a_poll(), IsEmpty());
    take_waits();
  }
}

TEST(RtFdSetDeathTest, PanicsAtAnyOtherClass) {
  const std::string line = "\\*\\*\\*ABORT\\*\\*\\*  'src/proc/rt_fd\\.cc':[0-9]+\n";
  const Set set = {};
  for (int fd_class : {3, 4, 5, 6, -1, 1000000}) {
    EXPECT_DEATH(rt_handle_fd_set(fd_class, note_set, set, nullptr), line) << fd_class;
    EXPECT_DEATH(rt_unhandle_fd_set(fd_class, set), line) << fd_class;
  }
}

TEST(RtFdSetDeathTest, RefusesTheSameSetTwiceInAClass) {
  const std::string line =
      ks_test::assertion_line("elem->fd_set_fds != fd_set_fds", "src/proc/rt_fd.cc");
  const Set set = {};
  const Set other = {};
  for (int fd_class : {0, 1, 2}) {
    EXPECT_EQ(rt_handle_fd_set(fd_class, note_set, set, nullptr), 1);
    EXPECT_EQ(rt_handle_fd_set(fd_class, note_set, other, nullptr), 1);
    EXPECT_DEATH(rt_handle_fd_set(fd_class, note_set, set, nullptr), line);
  }
}

TEST_F(RtFdSet, OfTwoThatShareADescriptorTheOneRegisteredLastTakesIt) {
  const Set first = {50, 51};
  const Set second = {51, 1023};
  rt_handle_fd_set(RT_FD_READ, note_set, first, arg("first"));
  rt_handle_fd_set(RT_FD_READ, note_set, second, arg("second"));
  EXPECT_THAT(notes_of_a_poll(), ElementsAre("second 51 1023", "first 50"));
}

TEST_F(RtFdSet, DescriptorsWithAHandlerOfTheirOwnGoToThat) {
  const Set set = {50, 51};
  rt_handle_fd(RT_FD_READ, note_fd, 50, arg("own"));
  rt_handle_fd_set(RT_FD_READ, note_set, set, arg("set"));
  EXPECT_THAT(notes_of_a_poll(), ElementsAre("own 50", "set 51"));
  b_.set_ready(false);
  EXPECT_THAT(notes_of_a_poll(), ElementsAre("own 50"));
}

// What the caller takes out of its set before its handler's turn is nobody's in this turn.
TEST_F(RtFdSet, IsReadAgainWhenItsHandlerIsDue) {
  static fd_set *changed;
  const Set set = {50, 51};
  changed = set;
  rt_handle_fd_set(RT_FD_READ, note_set, set, arg("set"));
  rt_handle_fd(
      RT_FD_READ,
      [](int fd, void *) {
        note_fd(fd, arg("changing"));
        FD_CLR(51, changed);
      },
      1023, nullptr);
  EXPECT_THAT(notes_of_a_poll(), ElementsAre("changing 1023", "set 50"));
}

// Removes the handler of the set that `arg` points at.
void note_and_remove(fd_set *ready, void *other) {
  note_set(ready, arg("removing"));
  note("removed " + std::to_string(rt_unhandle_fd_set(RT_FD_READ, static_cast<fd_set *>(other))));
}

TEST_F(RtFdSet, AHandlerMayRemoveAnyOther) {
  const Set set = {50};
  const Set removing = {51};
  const Set last = {1023};
  for (fd_set *other : {static_cast<fd_set *>(set), static_cast<fd_set *>(removing)}) {
    rt_handle_fd_set(RT_FD_READ, note_set, set, arg("set"));
    rt_handle_fd_set(RT_FD_READ, note_and_remove, removing, other);
    rt_handle_fd_set(RT_FD_READ, note_set, last, arg("last"));
    const std::vector<std::string> called = notes_of_a_poll();
    if (other == set) {
      EXPECT_THAT(called, ElementsAre("last 1023", "removing 51", "removed 1"));
    } else {
      EXPECT_THAT(called, ElementsAre("last 1023", "removing 51", "removed 1", "set 50"));
    }
    for (fd_set *one : {static_cast<fd_set *>(set), static_cast<fd_set *>(removing),
                        static_cast<fd_set *>(last)}) {
      rt_unhandle_fd_set(RT_FD_READ, one);
    }
  }
}

// The walk starts again, so the new handler at the head takes what is left.
TEST_F(RtFdSet, AfterARemovalANewHandlerAtTheHeadIsSeen) {
  static fd_set *added;
  static fd_set *removed;
  const Set set = {50};
  const Set exchanging = {51};
  const Set whole = {50, 51};
  added = whole;
  removed = set;
  rt_handle_fd_set(RT_FD_READ, note_set, set, arg("never"));
  rt_handle_fd_set(
      RT_FD_READ,
      [](fd_set *ready, void *) {
        note_set(ready, arg("exchanging"));
        rt_unhandle_fd_set(RT_FD_READ, removed);
        rt_handle_fd_set(RT_FD_READ, note_set, added, arg("new"));
      },
      exchanging, nullptr);
  EXPECT_THAT(notes_of_a_poll(), ElementsAre("exchanging 51", "new 50"));
}

TEST_F(RtFdSet, TheSixPassesComeInTheirOrder) {
  Source sink(RT_FD_WRITE, 60);
  Source set_sink(RT_FD_WRITE, 61);
  Source exception(RT_FD_EXCEPT, 70);
  Source set_exception(RT_FD_EXCEPT, 71);
  for (Source *one : {&sink, &set_sink, &exception, &set_exception}) one->set_ready(true);
  const Set reading = {51};
  const Set writing = {61};
  const Set exceptions = {71};
  rt_handle_fd_set(RT_FD_EXCEPT, note_set, exceptions, arg("6"));
  rt_handle_fd(RT_FD_EXCEPT, note_fd, 70, arg("5"));
  rt_handle_fd_set(RT_FD_WRITE, note_set, writing, arg("4"));
  rt_handle_fd(RT_FD_CONNECT, note_fd, 60, arg("3"));
  rt_handle_fd_set(RT_FD_READ, note_set, reading, arg("2"));
  rt_handle_fd(RT_FD_ACCEPT, note_fd, 50, arg("1"));
  EXPECT_THAT(notes_of_a_poll(), ElementsAre("1 50", "2 51", "3 60", "4 61", "5 70", "6 71"));
  EXPECT_THAT(notes_of_a_poll(), ElementsAre("1 50", "2 51", "3 60", "4 61", "5 70", "6 71"));
}

TEST_F(RtFdSet, WithoutStorageItPrintsAndTheHandlersStayAsTheyWere) {
  const ks_test::Outcome outcome = ks_test::in_child([] {
    const Set first = {50};
    const Set second = {51};
    rt_handle_fd_set(RT_FD_READ, note_set, first, arg("first"));
    fail_call("malloc", 0, ENOMEM);
    if (rt_handle_fd_set(RT_FD_READ, note_set, second, arg("second")) != 0) _exit(1);
    ks_test::stop_failing_calls();
    if (notes_of_a_poll() != std::vector<std::string>{"first 50"}) _exit(2);
    if (rt_unhandle_fd_set(RT_FD_READ, second) != 0 || pfm_inhibit_count() != 0) _exit(3);
  });
  EXPECT_EQ(outcome.end(), "exit 0");
  EXPECT_THAT(outcome.err,
              MatchesRegex("(.|\n)*Malloc failed at \"src/proc/rt_fd\\.cc\":[0-9]+\n"));
}

// A set of a process that may have more descriptors than the loop waits for, in words of 32 bits.
struct LargeSet {
  explicit LargeSet(size_t word_count) : words(word_count) {}
  std::vector<uint32_t> words;
  fd_set *get() { return reinterpret_cast<fd_set *>(words.data()); }
};

TEST(RtFdSetOr, AddsTheWordsAndBoundsTheHighest) {
  const struct {
    std::initializer_list<int> fds;
    int bound;
  } kRows[] = {{{}, -1},      {{0}, 31},    {{31}, 31},       {{32}, 63},
               {{0, 40}, 63}, {{991}, 991}, {{992, 5}, 1023}, {{1023}, 1023}};
  rt_init();
  for (const auto &row : kRows) {
    const Set source = row.fds;
    const Set target = {7, 1000};
    EXPECT_EQ(ks::fd_set_or(target, source), row.bound);
    const Set expected = {7, 1000};
    for (int fd : row.fds) FD_SET(fd, static_cast<fd_set *>(expected));
    EXPECT_EQ(memcmp(target, expected, sizeof(fd_set)), 0) << row.bound;
  }
}

TEST(RtFdSetOr, SaysOnceThatDescriptorsBeyondTheLimitAreLeftOut) {
  const ks_test::Outcome outcome = ks_test::in_child([] {
    rt_init();
    ks::rt_num_fds = 1024 + 33;  // two words more
    LargeSet source(34);
    LargeSet target(32);
    source.words[1] = 4;
    if (ks::fd_set_or(target.get(), source.get()) != 63) _exit(1);
    dprintf(STDERR_FILENO, "now\n");
    source.words[32] = 1;
    source.words[33] = 1;
    if (ks::fd_set_or(target.get(), source.get()) != 63) _exit(2);
    if (ks::fd_set_or(target.get(), source.get()) != 63) _exit(3);
    for (size_t i = 0; i < 32; ++i) {
      if (target.words[i] != (i == 1 ? 4u : 0u)) _exit(4);
    }
  });
  EXPECT_EQ(outcome.end(), "exit 0");
  EXPECT_EQ(outcome.err, "now\nnoname: Error: File descriptors too large for select, limiting\n");
}

TEST(RtFdSetOr, LooksAtEachWordThatHoldsADescriptorAndAtNoOther) {
  const struct {
    int num_fds;
    size_t word;
    bool message;
  } kRows[] = {{1024, 32, false}, {1025, 32, true}, {1056, 32, true},
               {1056, 33, false}, {1057, 33, true}, {2048, 63, true}};
  for (const auto &row : kRows) {
    const ks_test::Outcome outcome = ks_test::in_child([&] {
      rt_init();
      ks::rt_num_fds = row.num_fds;
      LargeSet source(static_cast<size_t>(row.num_fds + 31) / 32 + 1);
      LargeSet target(32);
      source.words[row.word] = 0x80000000;
      _exit(ks::fd_set_or(target.get(), source.get()) == -1 ? 0 : 1);
    });
    EXPECT_EQ(outcome.end(), "exit 0") << row.num_fds;
    EXPECT_EQ(outcome.err != "", row.message) << row.num_fds << " " << row.word;
  }
}

// Through the loop: the process could have more descriptors, and one set of the caller has some.
TEST_F(RtFdSet, WaitsForTheDescriptorsBelowTheLimit) {
  const ks_test::Outcome outcome = ks_test::in_child([] {
    LargeSet large(33);
    large.words[1] = 1u << (50 - 32);
    large.words[32] = 1;
    rt_handle_fd_set(RT_FD_READ, note_set, large.get(), arg("large"));
    ks::rt_num_fds = 1056;
    if (notes_of_a_poll() != std::vector<std::string>{"large 50"}) _exit(1);
    if (notes_of_a_poll() != std::vector<std::string>{"large 50"}) _exit(2);
  });
  EXPECT_EQ(outcome.end(), "exit 0");
  EXPECT_EQ(outcome.err, "noname: Error: File descriptors too large for select, limiting\n");
}

}  // namespace

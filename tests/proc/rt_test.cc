// Timed events.
#include <gmock/gmock.h>
#include <gtest/gtest.h>

#include <algorithm>
#include <cerrno>
#include <cstdint>
#include <cstdlib>
#include <cstring>
#include <limits>
#include <string>
#include <vector>

#include "pfm.h"
#include "proc/rt_internal.h"
#include "proc/rt_support.h"
#include "rt.h"
#include "support/assertion.h"
#include "support/child.h"
#include "support/faults.h"
#include "support/random.h"

using ks_test::arg;
using ks_test::assertion_line;
using ks_test::count_calls;
using ks_test::fail_call;
using ks_test::note_event;
using ks_test::sched_at;
using ks_test::simulate_time;
using ks_test::take_notes;
using testing::ElementsAre;
using testing::IsEmpty;
using testing::MatchesRegex;

namespace {

constexpr uint16_t kScheduled = 0x7ACE;
constexpr uint16_t kOffTheList = 0x8531;
constexpr int32_t kLastSecond = std::numeric_limits<int32_t>::max();

rt_event *sched_after(long seconds, long microseconds) {
  const timeval timeout = {seconds, static_cast<suseconds_t>(microseconds)};
  return rt_sched_rel(note_event, arg("rel"), &timeout);
}

// What fires from now on until nothing is left to do.
std::vector<std::string> run_to_the_end() {
  rt_run();
  return take_notes();
}

TEST(RtEvent, HasItsSizeAndItsFieldsInOrder) {
  EXPECT_EQ(sizeof(rt_event), sizeof(void *) == 4 ? 28u : 48u);
  EXPECT_EQ(offsetof(rt_event, next), 0u);
  EXPECT_EQ(offsetof(rt_event, previous), sizeof(void *));
  EXPECT_EQ(offsetof(rt_event, seconds), 2 * sizeof(void *));
  EXPECT_EQ(offsetof(rt_event, microseconds), 2 * sizeof(void *) + 4);
  EXPECT_EQ(offsetof(rt_event, callback), 2 * sizeof(void *) + 8);
  EXPECT_EQ(offsetof(rt_event, argument), 3 * sizeof(void *) + 8);
  EXPECT_EQ(offsetof(rt_event, magic), 4 * sizeof(void *) + 8);
  EXPECT_EQ(offsetof(rt_event, caller_owned), 4 * sizeof(void *) + 10);
}

TEST(RtSched, StoresTheMomentAndTheCallback) {
  simulate_time(1000, 123456);
  char text[] = "a";
  const rt_event *event = rt_sched(note_event, text, 5);
  ASSERT_NE(event, nullptr);
  EXPECT_EQ(event->seconds, 1005);
  EXPECT_EQ(event->microseconds, 123456);
  EXPECT_EQ(event->callback, note_event);
  EXPECT_EQ(event->argument, text);
  EXPECT_EQ(event->magic, kScheduled);
  EXPECT_EQ(event->caller_owned, 0);
}

TEST(RtSched, FiresWithItsArgumentWhenTheSecondsArePast) {
  simulate_time(1000, 0);
  rt_sched(note_event, arg("in 5"), 5);
  EXPECT_THAT(run_to_the_end(), ElementsAre("in 5"));
  EXPECT_THAT(ks_test::take_waits(), ElementsAre(ks_test::Wait{0, false, false, 5, 0},
                                                 ks_test::Wait{0, false, false, 0, 0},
                                                 ks_test::Wait{0, false, false, -1, 0}));
}

TEST(RtSched, AMomentBeyondThirtyTwoBitsIsTheLastThatFits) {
  simulate_time(1000, 77);
  for (uint32_t seconds : {0xFFFFFFFFu, 0x7FFFFFFFu, 0x80000000u, 0x7FFFFFFFu - 999}) {
    const rt_event *event = rt_sched(note_event, arg("late"), seconds);
    EXPECT_EQ(event->seconds, kLastSecond) << seconds;
    EXPECT_EQ(event->microseconds, 77) << seconds;
  }
  EXPECT_EQ(rt_sched(note_event, arg("late"), 0x7FFFFFFFu - 1001)->seconds, kLastSecond - 1);
  rt_sched(ks_test::shut_down, nullptr, 1);
  EXPECT_THAT(run_to_the_end(), IsEmpty());
}

TEST(RtSchedRel, AddsMicrosecondsWithCarry) {
  struct {
    long seconds, microseconds;
    int32_t expected_seconds, expected_microseconds;
  } const kRows[] = {
      {0, 0, 1000, 600000},  {2, 0, 1002, 600000},       {2, 399999, 1002, 999999},
      {2, 400000, 1003, 0},  {2, 500000, 1003, 100000},  {0, 999999, 1001, 599999},
      {1, 3400000, 1005, 0}, {1, 3399999, 1004, 999999},
  };
  for (const auto &row : kRows) {
    simulate_time(1000, 600000);
    const rt_event *event = sched_after(row.seconds, row.microseconds);
    EXPECT_EQ(event->seconds, row.expected_seconds) << row.seconds << " " << row.microseconds;
    EXPECT_EQ(event->microseconds, row.expected_microseconds);
  }
}

TEST(RtSchedRelDeathTest, RefusesATimeoutThatIsNegativeOrNotBelowThePresentSeconds) {
  simulate_time(1000, 0);
  const std::string line =
      assertion_line("timeout->tv_sec >= 0 && timeout->tv_sec < abs_time.tv_sec", "src/proc/rt.cc");
  EXPECT_DEATH(sched_after(-1, 999999), line);
  EXPECT_DEATH(sched_after(1000, 0), line);
  EXPECT_DEATH(sched_after(1001, 0), line);
  EXPECT_EQ(sched_after(999, 999999)->seconds, 1999);
}

TEST(RtSchedAbs, StoresTheTimeAsGiven) {
  const rt_event *event = sched_at("a", -5, 2700000);
  EXPECT_EQ(event->seconds, -5);
  EXPECT_EQ(event->microseconds, 2700000);
  event = sched_at("b", 7, -1);
  EXPECT_EQ(event->seconds, 7);
  EXPECT_EQ(event->microseconds, -1);
}

// Where a time has more than 32 bits.
TEST(RtSchedAbs, ATimeBeyondThirtyTwoBitsIsTheNearestThatFits) {
  if constexpr (sizeof(time_t) > sizeof(int32_t)) {
    const auto far = static_cast<long>(int64_t{1} << 40);
    EXPECT_EQ(sched_at("far", far, 1)->seconds, kLastSecond);
    EXPECT_EQ(sched_at("far back", -far, 1)->seconds, std::numeric_limits<int32_t>::min());
  } else {
    EXPECT_EQ(sched_at("last", kLastSecond, 1)->seconds, kLastSecond);
  }
}

TEST(RtSchedInt, UsesTheCallersStorageAndAllocatesNothing) {
  simulate_time(1000, 42);
  // Exactly as much as an event needs.
  auto *storage = static_cast<rt_event *>(malloc(sizeof(rt_event)));
  memset(storage, 0xEE, sizeof *storage);
  const int mallocs = count_calls("malloc");
  EXPECT_EQ(rt_sched_int(note_event, arg("own"), 3, storage, sizeof *storage), storage);
  EXPECT_EQ(storage->seconds, 1003);
  EXPECT_EQ(storage->microseconds, 42);
  EXPECT_EQ(storage->magic, kScheduled);
  EXPECT_EQ(storage->caller_owned, 1);
  EXPECT_EQ(count_calls("malloc"), mallocs);
  EXPECT_THAT(run_to_the_end(), ElementsAre("own"));
  EXPECT_EQ(storage->magic, kOffTheList);
  EXPECT_EQ(rt_unsched(storage), 0);
  EXPECT_NE(rt_sched(note_event, arg("other"), 1), storage) << "it is not the loop's";
  free(storage);
}

TEST(RtSchedIntDeathTest, RefusesStorageThatIsTooSmall) {
  rt_event storage = {};
  EXPECT_DEATH(rt_sched_int(note_event, nullptr, 0, &storage, sizeof storage - 1),
               assertion_line("max_event_size >= sizeof(struct rt_event)", "src/proc/rt.cc"));
  EXPECT_EQ(rt_sched_int(note_event, nullptr, 0, &storage, sizeof storage + 1), &storage);
}

TEST(RtSched, EventsOfOneTimeFireInTheOrderOfScheduling) {
  simulate_time(1000, 0);
  rt_event own = {};
  sched_at("first", 1001, 0);
  rt_sched(note_event, arg("second"), 1);
  rt_sched_int(note_event, arg("third"), 1, &own, sizeof own);
  sched_after(1, 0);
  EXPECT_THAT(run_to_the_end(), ElementsAre("first", "second", "third", "rel"));
}

TEST(RtSched, OrdersBySecondsAndThenMicrosecondsAsSignedNumbers) {
  simulate_time(1000, 0);
  sched_at("5", 5, 0);
  sched_at("5-", 5, -1);
  sched_at("5+", 5, 1);
  sched_at("-1", -1, 2000000);
  sched_at("-2", -2, 0);
  sched_at("4++", 4, 5000000);  // later than the others, but its seconds come first
  EXPECT_THAT(run_to_the_end(), ElementsAre("-2", "-1", "4++", "5-", "5", "5+"));
}

// Against a stable sort. The times are few, so that many are equal.
TEST(RtSched, KeepsTheOrderOfManyEventsWhateverTheOrderOfScheduling) {
  constexpr uint32_t kSeed = 7;
  ks_test::Random random(kSeed);
  simulate_time(1000, 0);
  for (int round = 0; round < 100; ++round) {
    std::vector<std::pair<std::pair<long, long>, std::string>> events;
    const size_t count = random() % 40;
    events.reserve(count);  // callbacks are given the names where they lie
    for (size_t i = 0; i < count; ++i) {
      events.push_back({{random() % 4, random() % 3}, std::to_string(i)});
      sched_at(events[i].second.c_str(), events[i].first.first, events[i].first.second);
    }
    const std::vector<std::string> fired = run_to_the_end();
    std::stable_sort(events.begin(), events.end(),
                     [](const auto &a, const auto &b) { return a.first < b.first; });
    std::vector<std::string> expected;
    for (const auto &event : events) expected.push_back(event.second);
    ASSERT_EQ(fired, expected) << "seed " << kSeed << ", round " << round;
  }
}

TEST(RtUnsched, TellsWhetherTheEventWasScheduled) {
  simulate_time(1000, 0);
  rt_event *event = sched_at("a", 1, 0);
  EXPECT_EQ(rt_unsched(event), 1);
  EXPECT_EQ(event->magic, kOffTheList);
  EXPECT_EQ(rt_unsched(event), 0);
  event = sched_at("b", 1, 0);
  EXPECT_THAT(run_to_the_end(), ElementsAre("b"));
  EXPECT_EQ(rt_unsched(event), 0);
  rt_event never = {};
  EXPECT_EQ(rt_unsched(&never), 0);
}

TEST(RtUnsched, TakesAnyEventOffTheList) {
  simulate_time(1000, 0);
  const char *const kNames[] = {"1", "2", "3", "4"};
  for (size_t first = 0; first < 4; ++first) {
    for (size_t second = 0; second < 4; ++second) {
      rt_event *events[4];
      for (size_t i = 0; i < 4; ++i) events[i] = sched_at(kNames[i], static_cast<long>(i), 0);
      std::vector<std::string> expected(std::begin(kNames), std::end(kNames));
      EXPECT_EQ(rt_unsched(events[first]), 1);
      std::erase(expected, kNames[first]);
      EXPECT_EQ(rt_unsched(events[second]), first != second);
      std::erase(expected, kNames[second]);
      sched_at("9", 9, 0);
      expected.push_back("9");
      EXPECT_EQ(run_to_the_end(), expected) << "without " << first << " and " << second;
    }
  }
}

TEST(RtUnsched, LeavesACallersRecordToItsOwner) {
  rt_event own = {};
  rt_sched_int(note_event, nullptr, 0, &own, sizeof own);
  EXPECT_EQ(rt_unsched(&own), 1);
  EXPECT_EQ(own.magic, kOffTheList);
  EXPECT_EQ(own.caller_owned, 1);
  EXPECT_NE(sched_at("a", 0, 0), &own);
  EXPECT_EQ(rt_unsched(&own), 0);
}

TEST(RtUnsched, FreesTheRecordForTheNextEvent) {
  rt_event *first = sched_at("a", 1, 0);
  rt_event *second = sched_at("b", 2, 0);
  EXPECT_NE(first, second);
  rt_unsched(first);
  rt_unsched(second);
  const int mallocs = count_calls("malloc");
  EXPECT_EQ(sched_at("c", 3, 0), second) << "the last freed is used first";
  EXPECT_EQ(sched_at("d", 4, 0), first);
  EXPECT_EQ(count_calls("malloc"), mallocs);
  EXPECT_EQ(rt_unsched(first), 1) << "it is a scheduled event's record again";
}

rt_event *running = nullptr;
int unsched_answer = -1;
rt_event *made_inside = nullptr;

TEST(RtUnsched, AnswersZeroInsideTheEventsOwnCallback) {
  simulate_time(1000, 0);
  running = rt_sched([](void *) { unsched_answer = rt_unsched(running); }, nullptr, 0);
  rt_run();
  EXPECT_EQ(unsched_answer, 0);
}

TEST(RtRun, ACallbackMaySeeItsOwnRecordUsedAgain) {
  simulate_time(1000, 0);
  running =
      rt_sched([](void *) { made_inside = rt_sched(note_event, arg("next"), 0); }, nullptr, 0);
  EXPECT_THAT(run_to_the_end(), ElementsAre("next"));
  EXPECT_EQ(made_inside, running);
}

TEST(RtResched, SchedulesCallbackAndArgumentAnew) {
  simulate_time(1000, 5);
  rt_event *event = sched_at("a", 1001, 0);
  sched_at("b", 1002, 0);
  rt_event *moved = rt_resched(event, 10);
  ASSERT_NE(moved, nullptr);
  EXPECT_EQ(moved->seconds, 1010);
  EXPECT_EQ(moved->microseconds, 5);
  EXPECT_THAT(run_to_the_end(), ElementsAre("b", "a"));
}

TEST(RtResched, AnswersNullForAnEventThatIsNotScheduled) {
  simulate_time(1000, 0);
  rt_event *event = sched_at("a", 1, 0);
  rt_run();
  EXPECT_THAT(take_notes(), ElementsAre("a"));
  EXPECT_EQ(rt_resched(event, 1), nullptr);
  rt_event never = {};
  EXPECT_EQ(rt_resched(&never, 1), nullptr);
  EXPECT_THAT(run_to_the_end(), IsEmpty());
}

TEST(RtResched, KeepsNoCallersStorage) {
  simulate_time(1000, 0);
  rt_event own = {};
  rt_sched_int(note_event, arg("own"), 1, &own, sizeof own);
  rt_event *moved = rt_resched(&own, 2);
  ASSERT_NE(moved, nullptr);
  EXPECT_NE(moved, &own);
  EXPECT_EQ(moved->caller_owned, 0);
  EXPECT_EQ(own.magic, kOffTheList);
  memset(&own, 0xEE, sizeof own);  // it is the caller's again
  EXPECT_THAT(run_to_the_end(), ElementsAre("own"));
}

const char kMallocFailed[] = "(.|\n)*Malloc failed at \"src/proc/rt\\.cc\":[0-9]+\n";

TEST(RtSched, WithoutStorageItPrintsAndTheListStaysAsItWas) {
  const ks_test::Outcome outcome = ks_test::in_child([] {
    simulate_time(1000, 0);
    sched_at("a", 1, 0);
    sched_at("c", 3, 0);
    fail_call("malloc", 0, ENOMEM);
    const bool failed = sched_at("b", 2, 0) == nullptr;
    ks_test::stop_failing_calls();
    sched_at("d", 4, 0);
    _exit(failed && pfm_inhibit_count() == 0 &&
                  run_to_the_end() == std::vector<std::string>{"a", "c", "d"}
              ? 0
              : 1);
  });
  EXPECT_EQ(outcome.end(), "exit 0");
  EXPECT_THAT(outcome.err, MatchesRegex(kMallocFailed));
}

TEST(RtSched, EachWayOfSchedulingFailsWithoutStorage) {
  simulate_time(1000, 0);
  rt_event own = {};
  testing::internal::CaptureStderr();
  fail_call("malloc", 0, ENOMEM, 3);
  EXPECT_EQ(rt_sched(note_event, nullptr, 1), nullptr);
  EXPECT_EQ(sched_after(1, 0), nullptr);
  EXPECT_EQ(sched_at("a", 1, 0), nullptr);
  EXPECT_EQ(rt_sched_int(note_event, arg("own"), 1, &own, sizeof own), &own);
  fail_call("malloc", 0, ENOMEM);
  EXPECT_EQ(rt_resched(&own, 1), nullptr) << "the new one is the loop's";
  testing::internal::GetCapturedStderr();
  EXPECT_EQ(rt_unsched(&own), 0) << "and the old one is cancelled";
  EXPECT_THAT(run_to_the_end(), IsEmpty());
}

TEST(RtSched, AllocatesNothingInTheSteadyState) {
  simulate_time(1000, 0);
  rt_event *kept = nullptr;
  const auto round = [&] {
    for (long i = 0; i < 5; ++i) kept = sched_at("x", 1 + i % 3, 0);
    rt_unsched(kept);
    rt_resched(sched_at("y", 5, 0), 0);
    rt_run();
    return take_notes().size();
  };
  EXPECT_EQ(round(), 5u);
  const int mallocs = count_calls("malloc");
  const int callocs = count_calls("calloc");
  for (int i = 0; i < 100; ++i) EXPECT_EQ(round(), 5u);
  EXPECT_EQ(count_calls("malloc"), mallocs);
  EXPECT_EQ(count_calls("calloc"), callocs);
}

TEST(RtSched, NeitherStartsTheLoopNorNeedsItStarted) {
  rt_event own = {};
  rt_event *event = sched_at("a", 1, 0);
  rt_sched_int(note_event, nullptr, 1, &own, sizeof own);
  rt_unsched(rt_resched(event, 3));
  EXPECT_FALSE(ks::rt_inited);
  EXPECT_EQ(rt_unhandle_fd(RT_FD_READ, 3), 0);
  fd_set set;
  FD_ZERO(&set);
  EXPECT_EQ(rt_unhandle_fd_set(RT_FD_READ, &set), 0);
  EXPECT_FALSE(ks::rt_inited);
}

#if !defined(__SANITIZE_ADDRESS__)

// The sets of the wait and one event record stay, for the life of the process.
TEST(RtWatch, ValgrindFindsThatAllIsGivenBackButTheRecordsThatStay) {
  const ks_test::Outcome outcome = ks_test::run_program(
      {"valgrind", "--suppressions=" NORVAKS_SOURCE_DIR "/tests/support/valgrind.supp",
       "--leak-check=full", "--error-exitcode=9",
       "--errors-for-leak-kinds=definite,indirect,possible",
       NORVAKS_BUILD_DIR "/bin/rt_watch_program"});
  EXPECT_EQ(outcome.end(), "exit 0") << outcome.err;
  EXPECT_EQ(outcome.out, "5\n");
  EXPECT_THAT(outcome.err, testing::ContainsRegex("still reachable: [0-9]+ bytes in 5 blocks"));
}

#endif

}  // namespace

// Signals held back by the two counts, and their delivery.
#include <gmock/gmock.h>
#include <gtest/gtest.h>
#include <unistd.h>

#include <algorithm>
#include <csignal>
#include <cstdio>
#include <iterator>
#include <random>
#include <set>
#include <string>
#include <vector>

#include "pfm.h"
#include "support/child.h"
#include "support/landing.h"
#include "support/signals.h"

using ks_test::blocked_signals;
using ks_test::in_child;
using ks_test::is_free;
using ks_test::kLastSignal;
using ks_test::land;
using ks_test::Landing;
using ks_test::note_signal;
using ks_test::note_signals;
using ks_test::Outcome;
using ks_test::raise_number;
using ks_test::send_signal;
using ks_test::take_noted;
using testing::ElementsAre;
using testing::ElementsAreArray;
using testing::IsEmpty;

namespace {

void other_routine(int) {}

void times(int count, void (*function)()) {
  for (int i = 0; i < count; ++i) function();
}

TEST(PfmInhibit, BothCountsNestApart) {
  times(3, pfm_inhibit);
  times(2, pfm_inhibit_suspend);
  EXPECT_EQ(pfm_inhibit_count(), 3);
  EXPECT_EQ(pfm_inhibit_suspend_count(), 2);
  times(2, pfm_enable);
  pfm_enable_suspend();
  EXPECT_EQ(pfm_inhibit_count(), 1);
  EXPECT_EQ(pfm_inhibit_suspend_count(), 1);
  pfm_enable();
  pfm_enable_suspend();
  EXPECT_EQ(pfm_inhibit_count(), 0);
  EXPECT_EQ(pfm_inhibit_suspend_count(), 0);
}

TEST(PfmInhibit, SignalsWaitForTheLastEnable) {
  note_signals({SIGUSR1});
  times(3, pfm_inhibit);
  send_signal(SIGUSR1);
  times(2, pfm_enable);
  EXPECT_THAT(take_noted(), IsEmpty());
  EXPECT_EQ(pfm_blocked_count(), 1);
  pfm_enable();
  EXPECT_THAT(take_noted(), ElementsAre(SIGUSR1));
  EXPECT_EQ(pfm_blocked_count(), 0);
}

TEST(PfmInhibitSuspend, HoldsBackSigtstpAlone) {
  note_signals({SIGINT, SIGTSTP});
  times(2, pfm_inhibit_suspend);
  send_signal(SIGTSTP);
  send_signal(SIGINT);
  EXPECT_THAT(take_noted(), ElementsAre(SIGINT));
  EXPECT_EQ(pfm_blocked_count(), 1);
  pfm_enable_suspend();
  EXPECT_THAT(take_noted(), IsEmpty());
  pfm_enable_suspend();
  EXPECT_THAT(take_noted(), ElementsAre(SIGTSTP));
  EXPECT_EQ(pfm_blocked_count(), 0);
}

TEST(PfmInhibitSuspend, SigtstpWaitsForBothCountsInEitherOrder) {
  note_signals({SIGTSTP});
  for (bool suspend_first : {true, false}) {
    pfm_inhibit();
    pfm_inhibit_suspend();
    send_signal(SIGTSTP);
    suspend_first ? pfm_enable_suspend() : pfm_enable();
    EXPECT_THAT(take_noted(), IsEmpty());
    EXPECT_EQ(pfm_blocked_count(), 1);
    suspend_first ? pfm_enable() : pfm_enable_suspend();
    EXPECT_THAT(take_noted(), ElementsAre(SIGTSTP));
  }
}

TEST(PfmInhibitSuspend, AHeldSigtstpStaysCountedWhileOthersAreDelivered) {
  note_signals({SIGUSR1, SIGTSTP, 64});
  pfm_inhibit_suspend();
  pfm_inhibit();
  for (int sig : {64, SIGTSTP, SIGUSR1}) send_signal(sig);
  EXPECT_EQ(pfm_blocked_count(), 3);
  pfm_enable();
  EXPECT_THAT(take_noted(), ElementsAre(SIGUSR1, 64));
  EXPECT_EQ(pfm_blocked_count(), 1);
  pfm_enable_suspend();
  EXPECT_THAT(take_noted(), ElementsAre(SIGTSTP));
}

TEST(PfmEnable, DeliversInAscendingOrder) {
  std::vector<int> sigs;
  for (int sig = 1; sig <= kLastSignal; ++sig) {
    if (is_free(sig)) sigs.push_back(sig);
  }
  pfm_inhibit();
  for (size_t i = sigs.size(); i-- > 0;) {
    note_signals({sigs[i]});
    send_signal(sigs[i]);
  }
  EXPECT_EQ(pfm_blocked_count(), static_cast<int32_t>(sigs.size()));
  pfm_enable();
  EXPECT_THAT(take_noted(), ElementsAreArray(sigs));
  EXPECT_EQ(pfm_blocked_count(), 0);
}

TEST(PfmEnable, DeliversRepeatsOnce) {
  note_signals({SIGUSR1, SIGUSR2});
  pfm_inhibit();
  for (int sig : {SIGUSR2, SIGUSR1, SIGUSR2, SIGUSR2, SIGUSR1}) send_signal(sig);
  EXPECT_EQ(pfm_blocked_count(), 2);
  pfm_enable();
  EXPECT_THAT(take_noted(), ElementsAre(SIGUSR1, SIGUSR2));
}

TEST(PfmEnable, CallsTheRoutineOfTheMomentOfDelivery) {
  pfm_signal(SIGUSR1, other_routine);
  pfm_inhibit();
  send_signal(SIGUSR1);
  note_signals({SIGUSR1});
  pfm_enable();
  EXPECT_THAT(take_noted(), ElementsAre(SIGUSR1));
}

TEST(PfmEnable, ARaiseOutOfARoutineLeavesTheRestWaiting) {
  pfm_signal(SIGUSR1, raise_number);
  note_signals({SIGINT, SIGUSR2, SIGALRM});
  const Landing landing = land(
      [] {
        pfm_inhibit();
        for (int sig : {SIGALRM, SIGUSR2, SIGUSR1, SIGINT}) send_signal(sig);
        pfm_enable();
      },
      [] {
        EXPECT_THAT(take_noted(), ElementsAre(SIGINT));
        EXPECT_EQ(pfm_blocked_count(), 2);
        EXPECT_THAT(blocked_signals(), IsEmpty());
      });
  EXPECT_EQ(landing, (Landing{SIGUSR1, 1, 0}));
  EXPECT_THAT(take_noted(), ElementsAre(SIGUSR2, SIGALRM));
  EXPECT_EQ(pfm_blocked_count(), 0);
}

void send_lower_and_higher(int sig) {
  note_signal(sig);
  send_signal(SIGINT);
  send_signal(SIGUSR2);
  note_signal(-sig);
}

TEST(PfmEnable, WhatARoutineSendsComesBehindTheDelivery) {
  pfm_signal(SIGUSR1, send_lower_and_higher);
  note_signals({SIGINT, SIGUSR2, SIGALRM});
  pfm_inhibit();
  send_signal(SIGUSR1);
  send_signal(SIGALRM);
  pfm_enable();
  std::vector<int> noted = take_noted();
  ASSERT_EQ(noted.size(), 5u);
  std::sort(noted.begin() + 3, noted.end());  // the system orders these two as it likes
  EXPECT_THAT(noted, ElementsAre(SIGUSR1, -SIGUSR1, SIGALRM, SIGINT, SIGUSR2));
}

void inhibit_and_enable(int sig) {
  note_signal(sig);
  pfm_inhibit();
  pfm_enable();
  note_signal(-sig);
}

TEST(PfmEnable, ARoutineThatEnablesDeliversTheRestItself) {
  pfm_signal(SIGUSR1, inhibit_and_enable);
  note_signals({SIGINT, SIGUSR2});
  pfm_inhibit();
  for (int sig : {SIGUSR2, SIGUSR1, SIGINT}) send_signal(sig);
  pfm_enable();
  EXPECT_THAT(take_noted(), ElementsAre(SIGINT, SIGUSR1, SIGUSR2, -SIGUSR1));
  EXPECT_EQ(pfm_blocked_count(), 0);
  EXPECT_THAT(blocked_signals(), IsEmpty());
}

void say_number(int sig) { dprintf(STDOUT_FILENO, "%d;", sig); }

// It is raised with all signals blocked, so the delivery goes on before it strikes.
TEST(PfmEnable, TheDefaultActionComesAtTheEndOfTheDelivery) {
  const Outcome outcome = in_child([] {
    for (int sig : {SIGUSR1, SIGUSR2}) pfm_signal(sig, say_number);
    pfm_inhibit();
    for (int sig : {SIGUSR1, SIGUSR2}) send_signal(sig);
    pfm_signal(SIGUSR1, SIG_DFL);
    pfm_enable();
    say_number(0);
  });
  EXPECT_EQ(outcome.out, "12;");
  EXPECT_EQ(outcome.end(), "signal 10");
}

TEST(PfmEnable, ASignalIgnoredMeanwhileVanishes) {
  note_signals({SIGUSR1, SIGUSR2});
  pfm_inhibit();
  for (int sig : {SIGUSR1, SIGUSR2}) send_signal(sig);
  pfm_signal(SIGUSR1, SIG_IGN);
  EXPECT_EQ(pfm_blocked_count(), 2);
  pfm_enable();
  EXPECT_THAT(take_noted(), ElementsAre(SIGUSR2));
  EXPECT_EQ(pfm_blocked_count(), 0);
}

// Random calls and signals, against a model that is obvious at sight. Both keep a log of what was
// called, of the counts behind each step and of the reported repeats.
enum Step { INHIBIT, ENABLE, INHIBIT_SUSPEND, ENABLE_SUSPEND, RAISE_DEFERRED, FIRST_SIGNAL };
constexpr int kSent[] = {SIGHUP, SIGINT, SIGQUIT, SIGUSR1, SIGTERM, SIGTSTP, kLastSignal};

std::string report(int sig) {
  return "pfm_signal_handler: got signal " + std::to_string(sig) + ", inhibited\n";
}

struct Model {
  int inhibited = 0, suspended = 0, last = 0;
  std::set<int> waiting;
  std::string log, reports;

  bool possible(int step) const {
    if (step == ENABLE || step == RAISE_DEFERRED) return inhibited > 0;
    if (step == ENABLE_SUSPEND) return suspended > 0;
    return true;
  }
  bool holds(int sig) const { return inhibited > 0 || (sig == SIGTSTP && suspended > 0); }
  void deliver() {
    if (inhibited > 0 || waiting.empty()) return;
    last = 0;
    for (int sig : std::set<int>(waiting)) {
      if (holds(sig)) continue;
      waiting.erase(sig);
      log += "call " + std::to_string(sig) + "\n";
    }
  }
  void arrive(int sig) {
    if (!holds(sig)) {
      log += "call " + std::to_string(sig) + "\n";
      return;
    }
    const std::set<int> of_the_user = {SIGINT, SIGQUIT, SIGTERM, SIGTSTP};
    if (sig == last && of_the_user.contains(sig)) reports += report(sig);
    last = sig;
    waiting.insert(sig);
  }
  void step(int step) {
    switch (step) {
      case INHIBIT:
        ++inhibited;
        break;
      case ENABLE:
        if (--inhibited == 0) deliver();
        break;
      case INHIBIT_SUSPEND:
        ++suspended;
        break;
      case ENABLE_SUSPEND:
        if (--suspended == 0) deliver();
        break;
      case RAISE_DEFERRED:
        waiting.insert(SIGINT);
        break;
      default:
        arrive(kSent[step - FIRST_SIGNAL]);
    }
    note_counts(inhibited, suspended, static_cast<int>(waiting.size()));
  }
  void note_counts(int inhibit_count, int suspend_count, int blocked_count) {
    for (int count : {inhibit_count, suspend_count, blocked_count})
      log += std::to_string(count) + " ";
    log += "\n";
  }
};

void real_step(int step) {
  switch (step) {
    case INHIBIT:
      pfm_inhibit();
      break;
    case ENABLE:
      pfm_enable();
      break;
    case INHIBIT_SUSPEND:
      pfm_inhibit_suspend();
      break;
    case ENABLE_SUSPEND:
      pfm_enable_suspend();
      break;
    case RAISE_DEFERRED:
      pfm_raise_deferred(7);
      break;
    default:
      send_signal(kSent[step - FIRST_SIGNAL]);
  }
}

void write_log(const std::vector<int> &steps) {
  for (int sig : kSent) pfm_signal(sig, note_signal);
  Model log;
  for (int step : steps) {
    real_step(step);
    for (int sig : take_noted()) log.log += "call " + std::to_string(sig) + "\n";
    log.note_counts(pfm_inhibit_count(), pfm_inhibit_suspend_count(), pfm_blocked_count());
  }
  dprintf(STDOUT_FILENO, "%s", log.log.c_str());
}

TEST(PfmSignals, RandomTrafficGoesAsTheModelSays) {
  for (unsigned seed = 1; seed <= 20; ++seed) {
    SCOPED_TRACE(seed);
    std::mt19937 random(seed);
    Model model;
    std::vector<int> steps;
    while (steps.size() < 1000) {
      const int step = static_cast<int>(random() % (FIRST_SIGNAL + std::size(kSent)));
      if (!model.possible(step)) continue;
      steps.push_back(step);
      model.step(step);
    }
    const Outcome outcome = in_child([&] { write_log(steps); });
    ASSERT_EQ(outcome.out, model.log);
    ASSERT_EQ(outcome.err, model.reports);
  }
}

}  // namespace

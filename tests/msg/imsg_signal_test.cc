// Signals that arrive while the module is at work: what allocates or takes a lock is done before a
// routine runs, so a routine that raises leaves the module fit for use.
#include <gtest/gtest.h>
#include <sys/mman.h>
#include <sys/time.h>

#include <csignal>
#include <cstdio>
#include <cstdlib>
#include <span>
#include <string>

#include "imsg.h"
#include "pfm.h"
#include "support/catalogs.h"
#include "support/child.h"
#include "support/faults.h"
#include "support/landing.h"
#include "support/signals.h"

using ks_test::Catalogs;
using ks_test::count_calls;
using ks_test::in_child;
using ks_test::land;
using ks_test::Outcome;
using ks_test::signal_in_call;
using ks_test::speak;

namespace {

constexpr const char *kTexts[] = {"English"};
constexpr uint16_t kNumbers[] = {7};
constexpr imsg_table_t kOne = {"one", "any", 3, 1, kTexts, kNumbers};
constexpr imsg_table_t kTwo = {"two", "any", 3, 1, kTexts, kNumbers};
constexpr imsg_table_t kThree = {"three", "any", 3, 1, kTexts, kNumbers};

const std::string kLong(20000, 'x');

void add_catalogs(const Catalogs &catalogs) {
  for (const char *library : {"one", "two", "three", "ks_lib"}) {
    catalogs.add(library, "$set 3\n7 \"translated\"\n$set 10\n19 \"Fehler: \"\n");
  }
  speak("de");
}

void print_short() { imsg_print(IMSG_TYPE_OK, "short\n", -1); }
void print_long() { imsg_print(IMSG_TYPE_OK, "%s\n", -1, kLong.c_str()); }
void print_error() { imsg_print(IMSG_TYPE_ERROR, "error\n", -1); }
void print_trace() { imsg_print(IMSG_TYPE_TRACE, "trace\n", -1); }
void set_name() { imsg_set_app_name("/usr/bin/tool"); }
void set_home() { imsg_set_message_home("/home"); }
void use_one() { cat_extractmsg(&kOne, 0); }
void use_two() { cat_extractmsg(&kTwo, 0); }
void use_three() { cat_extractmsg(&kThree, 0); }
void use_one_and_two() { use_one(), use_two(); }
void nothing() {}

// A call of the C library that must not be left half done, and what makes it.
struct Stretch {
  const char *name;
  const char *call;
  int nth;
  void (*before)();
  void (*action)();
};

void PrintTo(const Stretch &stretch, std::ostream *out) { *out << stretch.name; }

constexpr Stretch kStretches[] = {
    {"FirstBuffer", "realloc", 0, nothing, print_short},
    {"LargerBuffer", "realloc", 0, print_short, print_long},
    {"FirstPrefixWord", "strdup", 1, nothing, print_error},
    {"LastPrefixWord", "strdup", 4, nothing, print_error},
    {"ApplicationName", "strdup", 0, print_error, set_name},
    {"MessageHome", "strdup", 0, print_error, set_home},
    {"CatalogName", "strdup", 0, nothing, use_one},
    {"OpeningACatalog", "catopen", 0, nothing, use_one},
    {"OpeningASecondCatalog", "catopen", 0, use_one, use_two},
    {"ClosingACatalog", "catclose", 0, use_one_and_two, use_three},
    {"ZoneOfTheStamp", "tzset", 0, print_error, print_trace},
    {"TimeOfTheStamp", "localtime_r", 0, print_error, print_trace},
};

// What the routine saw.
struct {
  volatile sig_atomic_t calls = 0;
  volatile sig_atomic_t inside = 0;
  volatile sig_atomic_t held = 0;
} seen;

void see(int) {
  seen.calls = seen.calls + 1;
  seen.inside = ks_test::inside_call();
  seen.held = pfm_inhibit_count();
}

class ImsgSignals : public testing::TestWithParam<Stretch> {
 protected:
  ImsgSignals() { add_catalogs(catalogs_); }

  Catalogs catalogs_;
};

INSTANTIATE_TEST_SUITE_P(Stretches, ImsgSignals, testing::ValuesIn(kStretches),
                         [](const auto &stretch) { return stretch.param.name; });

TEST_P(ImsgSignals, ASignalIsDeliveredRightBehindTheCall) {
  const Stretch &stretch = GetParam();
  const Outcome outcome = in_child([&] {
    pfm_signal(SIGINT, see);
    stretch.before();
    signal_in_call(stretch.call, stretch.nth, SIGINT);
    stretch.action();
    const int calls = seen.calls;
    imsg_print(IMSG_TYPE_ERROR_CONT, "%d call, %d inside, %d held, %d waiting\n", -1, calls,
               static_cast<int>(seen.inside), static_cast<int>(seen.held), pfm_blocked_count());
  });
  EXPECT_EQ(outcome.end(), "exit 0");
  EXPECT_TRUE(outcome.err.ends_with("1 call, 0 inside, 0 held, 0 waiting\n")) << outcome.err;
}

TEST_P(ImsgSignals, ARoutineThatRaisesLeavesTheModuleFitForUse) {
  const Stretch &stretch = GetParam();
  const Outcome outcome = in_child([&] {
    pfm_signal(SIGINT, ks_test::raise_number);
    stretch.before();
    signal_in_call(stretch.call, stretch.nth, SIGINT);
    if (land(stretch.action).status != SIGINT) _exit(1);
    stretch.action();
    print_long();
    for (const imsg_table_t *table : {&kOne, &kTwo, &kThree}) {
      if (std::string(cat_extractmsg(table, 0)) != "translated") _exit(2);
    }
    imsg_set_app_name("last");
    print_error();
  });
  EXPECT_EQ(outcome.end(), "exit 0");
  EXPECT_TRUE(outcome.out.ends_with(kLong + "\n"));
  EXPECT_TRUE(outcome.err.ends_with("last: Fehler: error\n")) << outcome.err;
}

TEST(ImsgSignalsKeep, TheBufferThatWasMade) {
  const Outcome outcome = in_child([] {
    pfm_signal(SIGINT, ks_test::raise_number);
    print_short();
    signal_in_call("realloc", 0, SIGINT);
    if (land(print_long).status != SIGINT) _exit(1);
    const int made = count_calls("realloc");
    print_long();
    _exit(count_calls("realloc") == made ? 0 : 2);
  });
  EXPECT_EQ(outcome.end(), "exit 0");
  EXPECT_EQ(outcome.out, "short\n" + kLong + "\n");
}

TEST(ImsgSignalsKeep, TheCatalogThatWasOpened) {
  Catalogs catalogs;
  add_catalogs(catalogs);
  pfm_signal(SIGINT, ks_test::raise_number);
  signal_in_call("catopen", 0, SIGINT);
  EXPECT_EQ(land(use_one).status, SIGINT);
  EXPECT_STREQ(cat_extractmsg(&kOne, 0), "translated");
  EXPECT_EQ(count_calls("catopen"), 1);
  pfm_signal(SIGINT, SIG_DFL);
}

TEST(ImsgSignalsKeep, TheNameThatWasSet) {
  pfm_signal(SIGINT, ks_test::raise_number);
  signal_in_call("strdup", 0, SIGINT);
  EXPECT_EQ(land(set_name).status, SIGINT);
  EXPECT_STREQ(imsg_get_app_name(), "tool");
  pfm_signal(SIGINT, SIG_DFL);
}

// A storm: a timer's routine raises at any instruction, a thousand times a second.

volatile sig_atomic_t armed = 0;
volatile sig_atomic_t raises = 0;

void raise_when_armed(int sig) {
  if (armed == 0) return;
  armed = 0;
  raises = raises + 1;
  pfm_raise(sig);
}

void set_timer(long microseconds) {
  const itimerval period = {{0, microseconds}, {0, microseconds}};
  setitimer(ITIMER_REAL, &period, nullptr);
}

// Runs body(round) under the timer, each round under a record of its own, until there were many
// rounds and many raises. `done` tells which rounds came to their end.
template <class Body>
void storm(std::span<bool> done, const Body &body) {
  pfm_signal(SIGALRM, raise_when_armed);
  set_timer(1000);
  for (int round = 0; round < 10000 || raises < 200; ++round) {
    if (round == static_cast<int>(done.size())) _exit(3);
    const auto landing = land([&] {
      armed = 1;
      body(round);
      armed = 0;
    });
    done[static_cast<size_t>(round)] = landing.status == 0;
  }
  set_timer(0);
}

// One for each round, shared with the child.
std::span<bool> shared_flags() {
  constexpr size_t kRounds = 10000000;
  void *flags = mmap(nullptr, kRounds, PROT_READ | PROT_WRITE, MAP_SHARED | MAP_ANONYMOUS, -1, 0);
  EXPECT_NE(flags, MAP_FAILED);
  return {static_cast<bool *>(flags), kRounds};
}

class ImsgStorm : public testing::TestWithParam<int> {};

INSTANTIATE_TEST_SUITE_P(Types, ImsgStorm,
                         testing::Values(IMSG_TYPE_OK, IMSG_TYPE_ERROR, IMSG_TYPE_TRACE));

// A raise may cut the line that was on its way; a print that has returned has brought its text out.
TEST_P(ImsgStorm, PrintsThatReturnedAreWhole) {
  const std::span<bool> done = shared_flags();
  const Outcome outcome = in_child([&] {
    storm(done, [&](int round) { imsg_print(GetParam(), "round %d ends\n", -1, round); });
    imsg_print(GetParam() + 1, "The storm is over.\n", -1);
  });
  EXPECT_EQ(outcome.end(), "exit 0");
  const std::string &text = GetParam() == IMSG_TYPE_OK ? outcome.out : outcome.err;
  EXPECT_TRUE(text.ends_with("The storm is over.\n"));
  size_t at = 0;
  int finished = 0;
  for (size_t round = 0; round < done.size(); ++round) {
    if (!done[round]) continue;
    ++finished;
    at = text.find("round " + std::to_string(round) + " ends\n", at);
    ASSERT_NE(at, std::string::npos) << round;
  }
  EXPECT_GT(finished, 1000);
  munmap(done.data(), done.size());
}

// All that the module keeps, changed in each round.
TEST(ImsgStormOfSettings, LeavesTheModuleFitForUse) {
  Catalogs catalogs;
  add_catalogs(catalogs);
  const std::span<bool> done = shared_flags();
  const Outcome outcome = in_child([&] {
    storm(done, [](int round) {
      const imsg_table_t *const tables[] = {&kOne, &kTwo, &kThree};
      imsg_set_app_name(round % 2 == 0 ? "/even/name" : "/odd");
      cat_extractmsg(tables[round % 3], 0);
      imsg_strerror(100000 + round);
      imsg_strerror(-round);
      imsg_print(IMSG_TYPE_LOG_ONLY, "%*d", -1, round % 20000, round);
    });
    const std::string name = imsg_get_app_name();
    if (name != "name" && name != "odd") _exit(1);
    for (const imsg_table_t *table : {&kOne, &kTwo, &kThree}) {
      if (std::string(cat_extractmsg(table, 0)) != "translated") _exit(2);
    }
    imsg_set_app_name("last");
    print_error();
    print_long();
  });
  EXPECT_EQ(outcome.end(), "exit 0");
  EXPECT_EQ(outcome.err, "last: Fehler: error\n");
  EXPECT_TRUE(outcome.out == kLong + "\n");
  munmap(done.data(), done.size());
}

}  // namespace

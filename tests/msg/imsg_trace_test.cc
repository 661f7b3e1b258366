// Tracing: which messages are wanted.
#include <gtest/gtest.h>

#include <climits>
#include <cstdlib>
#include <cstring>
#include <memory>
#include <string>

#include "imsg.h"

namespace {

constexpr int kUnread = 32767;

void trace(const char *verbosity, const char *subsys) {
  verbosity != nullptr ? setenv("TRACE_VERBOSITY", verbosity, 1) : unsetenv("TRACE_VERBOSITY");
  subsys != nullptr ? setenv("TRACE_SUBSYS", subsys, 1) : unsetenv("TRACE_SUBSYS");
}

// Whether `name` is traced by the list. The list is an exact copy on the heap, so that the address
// sanitizer sees a byte too far.
bool traced(const std::string &list, const char *name) {
  const std::unique_ptr<char, void (*)(void *)> copy(strdup(list.c_str()), free);
  imsg_set_trace_verbosity(1);
  imsg_set_trace_subsys(copy.get());
  return imsg_should_trace(name, 1) != 0;
}

TEST(TraceVerbosity, StartsUnread) { EXPECT_EQ(imsg_get_desired_verbosity(), kUnread); }

TEST(TraceVerbosity, IsSettledByTheFirstQuestion) {
  trace("3", "*");
  EXPECT_EQ(imsg_get_desired_verbosity(), kUnread);
  EXPECT_EQ(imsg_should_trace("ks/stg", 3), 1);
  EXPECT_EQ(imsg_get_desired_verbosity(), 3);
  trace("9", "*");
  EXPECT_EQ(imsg_should_trace("ks/stg", 4), 0);
}

TEST(TraceVerbosity, IsSettledByAQuestionThatIsRefused) {
  trace("3", nullptr);
  EXPECT_EQ(imsg_should_trace("ks/stg", 4), 0);
  EXPECT_EQ(imsg_get_desired_verbosity(), 3);
}

TEST(TraceVerbosity, AQuestionBeyondTheUnreadValueSettlesNothing) {
  trace("40000", "*");
  EXPECT_EQ(imsg_should_trace("ks/stg", 32768), 0);
  EXPECT_EQ(imsg_get_desired_verbosity(), kUnread);
  EXPECT_EQ(imsg_should_trace("ks/stg", kUnread), 1);
  EXPECT_EQ(imsg_get_desired_verbosity(), 40000);
  EXPECT_EQ(imsg_should_trace("ks/stg", 32768), 1);
}

TEST(TraceVerbosity, TheUnreadValueItselfIsReadAgainEachTime) {
  trace("32767", "*");
  EXPECT_EQ(imsg_should_trace("ks/stg", 1), 1);
  EXPECT_EQ(imsg_get_desired_verbosity(), kUnread);
  trace("0", "*");
  EXPECT_EQ(imsg_should_trace("ks/stg", 1), 0);
  EXPECT_EQ(imsg_get_desired_verbosity(), 0);
}

TEST(TraceVerbosity, IsReadAgainAfterReset) {
  trace("1", "*");
  EXPECT_EQ(imsg_should_trace("ks/stg", 1), 1);
  imsg_reset_verbosity();
  EXPECT_EQ(imsg_get_desired_verbosity(), kUnread);
  trace("0", "*");
  EXPECT_EQ(imsg_should_trace("ks/stg", 1), 0);
}

TEST(TraceVerbosity, ASetOneReplacesTheEnvironment) {
  trace("9", "*");
  imsg_set_trace_subsys("*");
  imsg_set_trace_verbosity(2);
  EXPECT_EQ(imsg_get_desired_verbosity(), 2);
  EXPECT_EQ(imsg_should_trace("ks/stg", 2), 1);
  EXPECT_EQ(imsg_should_trace("ks/stg", 3), 0);
}

TEST(TraceVerbosity, ANegativeOneStopsLevelZeroToo) {
  trace("-1", "*");
  EXPECT_EQ(imsg_should_trace("ks/stg", 0), 0);
  EXPECT_EQ(imsg_get_desired_verbosity(), -1);
  EXPECT_EQ(imsg_should_trace("ks/stg", -1), 1);
  EXPECT_EQ(imsg_should_trace_subsys("ks/stg"), 0);
}

TEST(TraceVerbosity, ComesFromTheStartOfTheVariable) {
  const struct {
    const char *value;
    int level;
  } cases[] = {{nullptr, 0},  {"", 0},    {"5", 5},     {"0", 0},    {" 7", 7},
               {"12abc", 12}, {"abc", 0}, {"-3", -3},   {"+4", 4},   {"0x10", 0},
               {"2.9", 2},    {"- 1", 0}, {"\t\n8", 8}, {"010", 10}, {"*", 0}};
  for (const auto &[value, level] : cases) {
    trace(value, nullptr);
    EXPECT_EQ(imsg_get_verbosity_ev(), level) << (value != nullptr ? value : "unset");
  }
  EXPECT_EQ(imsg_get_desired_verbosity(), kUnread);
}

TEST(TraceSubsys, StarAndLevelOneTraceEverySubsystemAtLevelOne) {
  trace("1", "*");
  for (const char *name : {"ks/stg", "ks", "clp", "anything", ""}) {
    EXPECT_EQ(imsg_should_trace(name, 1), 1) << name;
    EXPECT_EQ(imsg_should_trace(name, 0), 1) << name;
    EXPECT_EQ(imsg_should_trace(name, 2), 0) << name;
  }
}

TEST(TraceSubsys, UnsetOrEmptyTracesNothing) {
  trace("9", nullptr);
  EXPECT_EQ(imsg_should_trace("ks/stg", 0), 0);
  trace("9", "");
  imsg_reset_verbosity();
  EXPECT_EQ(imsg_should_trace("ks/stg", 0), 0);
  imsg_set_trace_subsys("");
  EXPECT_EQ(imsg_should_trace("ks/stg", 0), 0);
}

TEST(TraceSubsys, IsReadWhileNoneIsSet) {
  trace("9", nullptr);
  EXPECT_EQ(imsg_should_trace("ks/stg", 1), 0);
  trace("9", "ks/stg");
  EXPECT_EQ(imsg_should_trace("ks/stg", 1), 0);  // settled
  imsg_reset_verbosity();
  EXPECT_EQ(imsg_should_trace("ks/stg", 1), 1);
}

TEST(TraceSubsys, ASetOneReplacesTheEnvironment) {
  trace("1", "*");
  imsg_set_trace_subsys("ks/imsg");
  EXPECT_EQ(imsg_should_trace("ks/imsg", 1), 1);
  EXPECT_EQ(imsg_should_trace("ks/stg", 1), 0);
  imsg_set_trace_subsys(nullptr);
  EXPECT_EQ(imsg_should_trace("ks/imsg", 1), 0);  // settled: the environment is not read any more
}

TEST(TraceSubsys, KeepsTheEnvironmentUnreadOnceAVerbosityIsSet) {
  trace("9", "*");
  imsg_set_trace_verbosity(5);
  EXPECT_EQ(imsg_should_trace("ks/stg", 1), 0);
  EXPECT_EQ(imsg_should_trace_subsys("ks/stg"), 0);
}

TEST(TraceSubsys, SettingTheUnreadVerbosityHasTheEnvironmentRead) {
  trace("1", "*");
  imsg_set_trace_verbosity(kUnread);
  EXPECT_EQ(imsg_should_trace("ks/stg", 1), 1);
  EXPECT_EQ(imsg_get_desired_verbosity(), 1);
}

TEST(TraceSubsys, IsKeptByPointer) {
  char list[] = "ks/stg";
  imsg_set_trace_verbosity(1);
  imsg_set_trace_subsys(list);
  EXPECT_EQ(imsg_should_trace("ks/stg", 1), 1);
  memcpy(list, "ks/clp", 6);
  EXPECT_EQ(imsg_should_trace("ks/stg", 1), 0);
  EXPECT_EQ(imsg_should_trace("ks/clp", 1), 1);
}

TEST(TraceSubsys, OfTheEnvironmentIsKeptByPointerToo) {
  static char setting[] = "TRACE_SUBSYS=ks/stg";
  trace("1", nullptr);
  putenv(setting);
  EXPECT_EQ(imsg_should_trace("ks/stg", 1), 1);
  memcpy(strchr(setting, '=') + 1, "ks/clp", 6);
  EXPECT_EQ(imsg_should_trace("ks/clp", 1), 1);
  EXPECT_EQ(imsg_should_trace("ks/stg", 1), 0);
  unsetenv("TRACE_SUBSYS");
}

TEST(TraceSubsys, ListNamesWholeSubsystems) {
  const struct {
    const char *list;
    const char *name;
    bool traced;
  } cases[] = {
      {"ks/stg", "ks/stg", true},
      {"ks/stg:ks/imsg", "ks/stg", true},
      {"ks/stg:ks/imsg", "ks/imsg", true},
      {"ks/stg:clp:ks/imsg", "clp", true},
      {"ks/stg:ks/imsg", "ks/list", false},
      {"ks", "ks/stg", false},
      {"ks/stg", "ks", false},
      {"ks/stg", "stg", false},
      {"ks/stgx", "ks/stg", false},
      {"xks/stg", "ks/stg", false},
      {"ks/stg,ks/imsg", "ks/stg", false},
      {"ks/stg ", "ks/stg", false},
      {"KS/STG", "ks/stg", false},
      // A hit that is refused does not end the search.
      {"ks/stgx:ks/stg", "ks/stg", true},
      {"xks/stg:ks/stg:y", "ks/stg", true},
      {"ks/stgks/stg", "ks/stg", false},
      {"aaa:aa", "aa", true},
      {"aaa", "aa", false},
      {":ks/stg", "ks/stg", true},
      {"ks/stg:", "ks/stg", true},
      // A name with a colon in it may be found across names.
      {"a:a:b", "a:b", true},
      // The search goes on one byte behind a hit that is refused, in the middle of the name too.
      {"xa:a:a", "a:a", true},
      {"x:::", "::", true},
      {"ks/stgx:ks/stg:", "ks/stg", true},
      {"a:b:a:bx:a:b", "a:b", true},
      {"xa:b:a:b", "a:b", true},
      {"a:bx:a:b", "a:b", true},
      // "*" has its meaning only when it is alone.
      {"*", "ks/stg", true},
      {"*:x", "ks/stg", false},
      {"*:x", "x", true},
      {"x:*", "ks/stg", false},
      {"**", "ks/stg", false},
      {"*:x", "*", true},
      // The empty name stands between, before and behind colons.
      {"ks/stg", "", false},
      {"ks/stg:ks/imsg", "", false},
      {"ks/stg:", "", true},
      {":ks/stg", "", true},
      {"ks/stg::ks/imsg", "", true},
      {":", "", true},
  };
  for (const auto &[list, name, wanted] : cases) {
    EXPECT_EQ(traced(list, name), wanted) << '"' << name << "\" in \"" << list << '"';
  }
}

TEST(TraceSubsys, MayBeAskedForAloneAtLevelZero) {
  trace("0", "clp");
  EXPECT_EQ(imsg_should_trace_subsys("clp"), 1);
  EXPECT_EQ(imsg_should_trace_subsys("ks/stg"), 0);
  EXPECT_EQ(imsg_should_trace("clp", 1), 0);
}

TEST(TraceSubsys, UnsetVerbosityTracesLevelZeroOfTheListOnly) {
  trace(nullptr, "clp");
  EXPECT_EQ(imsg_should_trace("clp", 1), 0);
  EXPECT_EQ(imsg_should_trace("clp", 0), 1);
  EXPECT_EQ(imsg_get_desired_verbosity(), 0);
}

}  // namespace

// Printing: what a line looks like, and where it goes.
#include <gmock/gmock.h>
#include <gtest/gtest.h>
#include <sys/socket.h>
#include <unistd.h>

#include <cerrno>
#include <climits>
#include <cstdlib>
#include <string>

#include "imsg.h"
#include "support/assertion.h"
#include "support/child.h"
#include "support/faults.h"

using ks_test::in_child;
using ks_test::Outcome;
using testing::MatchesRegex;

namespace {

// 2024-05-06 01:02:03.045 UTC
constexpr long kMoment = 1714957323;
constexpr long kMicroseconds = 45678;

// Prints one text under a type, in a child with this environment ("NAME=value").
Outcome printed(int type, std::initializer_list<const char *> environment = {}) {
  return in_child([&] {
    ks_test::set_clock(kMoment, kMicroseconds);
    for (const char *setting : environment) putenv(const_cast<char *>(setting));
    imsg_print(type, "%s is %d.\n", -1, "It", 7);
  });
}

struct Line {
  int type;
  const char *out;
  const char *err;
};

constexpr Line kLines[] = {
    {IMSG_TYPE_OK, "It is 7.\n", ""},
    {IMSG_TYPE_OK_CONT, "It is 7.\n", ""},
    {IMSG_TYPE_BOX, "It is 7.\n", ""},
    {IMSG_TYPE_BOX_CONT, "It is 7.\n", ""},
    {IMSG_TYPE_WARNING, "", "noname: Warning: It is 7.\n"},
    {IMSG_TYPE_WARNING_CONT, "", "It is 7.\n"},
    {IMSG_TYPE_ERROR, "", "noname: Error: It is 7.\n"},
    {IMSG_TYPE_ERROR_CONT, "", "It is 7.\n"},
    {IMSG_TYPE_TRACE, "", ">>> 01:02:03.045 (noname): It is 7.\n"},
    {IMSG_TYPE_TRACE_CONT, "", "It is 7.\n"},
    {IMSG_TYPE_LOG_ONLY, "", ""},
};

constexpr Line kLinesWithOk[] = {
    {IMSG_TYPE_OK, "noname: Ok: It is 7.\n", ""},
    {IMSG_TYPE_OK_CONT, "It is 7.\n", ""},
    {IMSG_TYPE_BOX, "noname: It is 7.\n", ""},
    {IMSG_TYPE_BOX_CONT, "It is 7.\n", ""},
    {IMSG_TYPE_WARNING, "", "noname: Warning: It is 7.\n"},
    {IMSG_TYPE_WARNING_CONT, "", "It is 7.\n"},
    {IMSG_TYPE_ERROR, "", "noname: Error: It is 7.\n"},
    {IMSG_TYPE_ERROR_CONT, "", "It is 7.\n"},
    {IMSG_TYPE_TRACE, "", ">>> 01:02:03.045 (noname): It is 7.\n"},
    {IMSG_TYPE_TRACE_CONT, "", "It is 7.\n"},
    {IMSG_TYPE_LOG_ONLY, "", ""},
};

template <size_t Count>
void expect_lines(const Line (&lines)[Count], std::initializer_list<const char *> environment) {
  for (const Line &line : lines) {
    const Outcome outcome = printed(line.type, environment);
    EXPECT_EQ(outcome.end(), "exit 0") << line.type;
    EXPECT_EQ(outcome.out, line.out) << line.type;
    EXPECT_EQ(outcome.err, line.err) << line.type;
  }
}

TEST(ImsgPrint, GivesEachTypeItsPrefixAndStream) { expect_lines(kLines, {"TZ=UTC"}); }

TEST(ImsgPrint, AddsNameAndOkWhereTheUserWantsThem) {
  expect_lines(kLinesWithOk, {"TZ=UTC", "PRINT_SUBSYS_OK=1"});
}

TEST(ImsgPrint, TakesAnEmptyWishForNone) {
  expect_lines(kLines, {"TZ=UTC", "PRINT_SUBSYS_OK=", "PRINT_SUBSYS=", "IMSG_IO_INTERLEAVE="});
}

TEST(ImsgPrint, KeepsLinesWithoutSubsystemWhateverTheUserWishes) {
  expect_lines(kLines, {"TZ=UTC", "PRINT_SUBSYS=1"});
  expect_lines(kLines, {"TZ=UTC", "IMSG_IO_INTERLEAVE=1"});
  expect_lines(kLinesWithOk, {"TZ=UTC", "PRINT_SUBSYS=1", "PRINT_SUBSYS_OK=1"});
}

TEST(ImsgPrint, SubsystemsAreWishedForByTheEnvironment) {
  const auto wish = [](const char *name, const char *value) {
    const Outcome outcome = in_child([&] {
      setenv(name, value, 1);
      imsg_initialize();
      _exit(imsg_output_subsys(0));
    });
    return outcome.end();
  };
  EXPECT_EQ(wish("PRINT_SUBSYS", "1"), "exit 1");
  EXPECT_EQ(wish("PRINT_SUBSYS", "0"), "exit 1");
  EXPECT_EQ(wish("PRINT_SUBSYS", ""), "exit 0");
  EXPECT_EQ(wish("PRINT_SUBSYS_OK", "yes"), "exit 1");
  EXPECT_EQ(wish("PRINT_SUBSYS_OK", ""), "exit 0");
  EXPECT_EQ(wish("UNRELATED", "1"), "exit 0");
}

TEST(ImsgPrint, ReadsTheEnvironmentOnce) {
  const Outcome outcome = in_child([] {
    imsg_print(IMSG_TYPE_OK, "first\n", -1);
    setenv("PRINT_SUBSYS_OK", "1", 1);
    imsg_print(IMSG_TYPE_OK, "second\n", -1);
    imsg_initialize();
    imsg_print(IMSG_TYPE_OK, "third\n", -1);
  });
  EXPECT_EQ(outcome.out, "first\nsecond\nthird\n");
}

TEST(ImsgPrint, PrintsTheMessageOfATable) {
  const Outcome outcome = in_child([] {
    imsg_print(IMSG_TYPE_ERROR, _stg_ks_msg_table, 1);
    imsg_print(IMSG_TYPE_WARNING, _ks_ks_msg_table, 3, "chown", "/tmp/x", "no");
    imsg_print(IMSG_TYPE_OK, _ks_ks_msg_table, 0, "100%");
    imsg_print(IMSG_TYPE_ERROR, _clp_ks_msg_table, 16);
  });
  EXPECT_EQ(outcome.err,
            "noname: Error: No more memory available.\n"
            "noname: Warning: Operation chown, /tmp/x: no\n"
            "noname: Error: Obsolete syntax was used.\n");
  EXPECT_EQ(outcome.out, "100%\n");
}

TEST(ImsgPrint, AddsNoNewline) {
  const Outcome outcome = in_child([] {
    imsg_print(IMSG_TYPE_OK, _imsg_ks_msg_table, 9);
    imsg_print(IMSG_TYPE_OK_CONT, _imsg_ks_msg_table, 10);
    imsg_print(IMSG_TYPE_OK_CONT, "", -1);
  });
  EXPECT_EQ(outcome.out, "Please answer with one of the following: yes");
}

TEST(ImsgPrint, AnEmptyErrorIsItsPrefix) {
  EXPECT_EQ(in_child([] { imsg_print(IMSG_TYPE_ERROR, "", -1); }).err, "noname: Error: ");
}

TEST(ImsgPrint, BearsTheApplicationsName) {
  const Outcome outcome = in_child([] {
    imsg_set_app_name("/usr/bin/tool");
    setenv("TZ", "UTC", 1);
    ks_test::set_clock(kMoment, kMicroseconds);
    imsg_print(IMSG_TYPE_ERROR, "e\n", -1);
    imsg_print(IMSG_TYPE_TRACE, "t\n", -1);
  });
  EXPECT_EQ(outcome.err, "tool: Error: e\n>>> 01:02:03.045 (tool): t\n");
}

TEST(ImsgPrint, APercentSignInTheNameIsPrinted) {
  const Outcome outcome = in_child([] {
    imsg_set_app_name("50%s");
    imsg_print(IMSG_TYPE_ERROR, "e\n", -1);
  });
  EXPECT_EQ(outcome.err, "50%s: Error: e\n");
}

TEST(ImsgPrint, AnUnknownTypeIsReportedAndPrintedAsAnError) {
  for (int type : {11, 12, 1000, INT_MAX, -1, INT_MIN}) {
    const Outcome outcome = printed(type);
    EXPECT_EQ(outcome.end(), "exit 0") << type;
    EXPECT_EQ(outcome.out, "") << type;
    EXPECT_THAT(outcome.err,
                MatchesRegex("noname: Error: Unknown message type " + std::to_string(type) +
                             " in file src/msg/imsg_prefix\\.cc at line [0-9]+\n"
                             "System message: It is 7\\.\n"));
  }
}

TEST(ImsgPrint, AnUnknownTypeWithoutPrefixesIsPrintedBare) {
  const Outcome outcome = in_child([] {
    imsg_suppress_prefix(1);
    imsg_print(11, "text\n", -1);
  });
  EXPECT_EQ(outcome.err, "text\n");
}

TEST(ImsgPrint, PrefixesAreSuppressedAndComeBack) {
  const Outcome outcome = in_child([] {
    setenv("PRINT_SUBSYS_OK", "1", 1);
    const int first = imsg_suppress_prefix(1);
    for (int type = IMSG_TYPE_OK; type <= IMSG_TYPE_LOG_ONLY; type += 2) {
      imsg_print(type, "%d\n", -1, type);
    }
    const int second = imsg_suppress_prefix(0);
    const int third = imsg_suppress_prefix(0);
    imsg_print(IMSG_TYPE_WARNING, "%d%d%d\n", -1, first, second, third);
  });
  EXPECT_EQ(outcome.out, "0\n2\n");
  EXPECT_EQ(outcome.err, "4\n6\n8\nnoname: Warning: 010\n");
}

TEST(ImsgPrintShared, KeepsTheSubsystemOutOfTheLine) {
  const Outcome outcome = in_child([] {
    setenv("TZ", "UTC", 1);
    ks_test::set_clock(kMoment, kMicroseconds);
    imsg_output_subsys(1);
    for (const char *subsys : std::initializer_list<const char *>{"my/subsys", "", nullptr}) {
      imsg_print_shared(IMSG_TYPE_ERROR, subsys, _ks_ks_msg_table, 23);
      imsg_print_shared(IMSG_TYPE_TRACE, subsys, _ks_ks_msg_table, 1);
      imsg_print_shared(IMSG_TYPE_WARNING, subsys, "%d\n", -1, 5);
    }
  });
  const std::string lines =
      "noname: Error: Out of memory>>> 01:02:03.045 (noname): \nnoname: Warning: 5\n";
  EXPECT_EQ(outcome.err, lines + lines + lines);
}

TEST(ImsgPrintSharedv, TakesAnArgumentList) {
  const Outcome outcome = in_child([] {
    const auto print = [](int type, const void *table, int number, ...) {
      va_list args;
      va_start(args, number);
      imsg_print_sharedv(type, "any", table, number, args);
      va_end(args);
    };
    print(IMSG_TYPE_OK, _ks_ks_msg_table, 28, "read", 4);
    print(IMSG_TYPE_ERROR, "%s\n", -1, "plain");
  });
  EXPECT_EQ(outcome.out, "Operation read: 4\n");
  EXPECT_EQ(outcome.err, "noname: Error: plain\n");
}

TEST(ImsgPrint, ANullTableIsAnInternalErrorAndEndsTheCall) {
  for (int type : {IMSG_TYPE_OK, IMSG_TYPE_ERROR, IMSG_TYPE_LOG_ONLY}) {
    const Outcome outcome = in_child([&] { imsg_print(type, nullptr, 3); });
    EXPECT_EQ(outcome.end(), "exit 0");
    EXPECT_EQ(outcome.out, "");
    EXPECT_EQ(outcome.err, "noname: Error: IMSG Internal error (print_sharedv) - tbl 0, num 3.\n");
  }
}

// The clock in the stamp of a trace message.

std::string stamp(const char *zone, long seconds, long microseconds) {
  return in_child([&] {
           setenv("TZ", zone, 1);
           ks_test::set_clock(seconds, microseconds);
           imsg_print(IMSG_TYPE_TRACE, "x", -1);
         })
      .err;
}

TEST(TraceStamp, IsTheLocalTimeOfDayWithMilliseconds) {
  EXPECT_EQ(stamp("UTC", 0, 0), ">>> 00:00:00.000 (noname): x");
  EXPECT_EQ(stamp("UTC", 86399, 999999), ">>> 23:59:59.999 (noname): x");
  EXPECT_EQ(stamp("UTC", 86400, 999), ">>> 00:00:00.000 (noname): x");
  EXPECT_EQ(stamp("UTC", 3661, 7000), ">>> 01:01:01.007 (noname): x");
  EXPECT_EQ(stamp("UTC", 1714957323, 80999), ">>> 01:02:03.080 (noname): x");
  EXPECT_EQ(stamp("XYZ-5:30", 1714957323, 0), ">>> 06:32:03.000 (noname): x");
  EXPECT_EQ(stamp("XYZ4", 1714957323, 0), ">>> 21:02:03.000 (noname): x");
}

TEST(TraceStamp, FollowsAChangedZone) {
  const Outcome outcome = in_child([] {
    ks_test::set_clock(kMoment, 0);
    setenv("TZ", "UTC", 1);
    imsg_print(IMSG_TYPE_TRACE, "a\n", -1);
    setenv("TZ", "XYZ-1", 1);
    imsg_print(IMSG_TYPE_TRACE, "b\n", -1);
  });
  EXPECT_EQ(outcome.err, ">>> 01:02:03.000 (noname): a\n>>> 02:02:03.000 (noname): b\n");
}

// Without a TZ that is a look at the system's file.
TEST(TraceStamp, AsksForTheZoneOnceASecond) {
  const Outcome outcome = in_child([] {
    unsetenv("TZ");
    const int before = ks_test::count_calls("tzset");
    for (int second : {100, 101}) {
      for (int turn = 0; turn < 10; ++turn) {
        ks_test::set_clock(second, turn);
        imsg_print(IMSG_TYPE_TRACE, "\n", -1);
      }
    }
    _exit(ks_test::count_calls("tzset") - before);
  });
  EXPECT_EQ(outcome.end(), "exit 2");
}

TEST(TraceStamp, ThatCannotBeFormattedFailsAnAssertion) {
  const Outcome outcome = in_child([] {
    ks_test::fail_call("vsnprintf", 0, EOVERFLOW);
    imsg_print(IMSG_TYPE_TRACE, "x", -1);
  });
  EXPECT_EQ(outcome.end(), "signal 6");
  EXPECT_THAT(outcome.err,
              MatchesRegex("noname: Error: " +
                           ks_test::assertion_line("ts_count <= ts_sz", "src/msg/imsg.cc")));
}

// Delivery.

TEST(ImsgPrint, IsFlushedBeforeItReturns) {
  const Outcome outcome = in_child([] {
    imsg_print(IMSG_TYPE_OK, "first\n", -1);
    if (write(STDOUT_FILENO, "second\n", 7) != 7) _exit(1);
    imsg_print(IMSG_TYPE_OK_CONT, "third", -1);
    _exit(0);
  });
  EXPECT_EQ(outcome.end(), "exit 0");
  EXPECT_EQ(outcome.out, "first\nsecond\nthird");
}

// Each write to a socket of this kind stays a packet of its own.
TEST(ImsgPrint, GoesOutInOnePiece) {
  for (int type : {IMSG_TYPE_OK, IMSG_TYPE_ERROR}) {
    int ends[2];
    ASSERT_EQ(socketpair(AF_UNIX, SOCK_SEQPACKET, 0, ends), 0);
    const Outcome outcome = in_child([&] {
      dup2(ends[1], STDOUT_FILENO);
      dup2(ends[1], STDERR_FILENO);
      imsg_suppress_prefix(type == IMSG_TYPE_OK);
      imsg_print(type, "one\ntwo %s\nthree\n", -1, "and a half");
    });
    EXPECT_EQ(outcome.end(), "exit 0");
    char packet[100] = "";
    const ssize_t size = recv(ends[0], packet, sizeof packet - 1, MSG_DONTWAIT);
    const std::string prefix = type == IMSG_TYPE_OK ? "" : "noname: Error: ";
    EXPECT_EQ(packet, prefix + "one\ntwo and a half\nthree\n");
    EXPECT_EQ(static_cast<size_t>(size), strlen(packet));
    close(ends[0]);
    close(ends[1]);
  }
}

TEST(ImsgPrint, ReturnsWhereNobodyTakesTheText) {
  const Outcome outcome = in_child([] {
    close(STDOUT_FILENO);
    imsg_print(IMSG_TYPE_OK, "lost\n", -1);
    imsg_print(IMSG_TYPE_ERROR, "kept\n", -1);
  });
  EXPECT_EQ(outcome.end(), "exit 0");
  EXPECT_EQ(outcome.err, "noname: Error: kept\n");
}

}  // namespace

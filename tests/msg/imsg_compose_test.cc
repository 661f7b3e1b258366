// The output buffer: how it grows, and what happens when it cannot.
#include <gmock/gmock.h>
#include <gtest/gtest.h>
#include <sys/resource.h>

#include <cerrno>
#include <cstdarg>
#include <string>

#include "imsg.h"
#include "msg/imsg_internal.h"
#include "support/assertion.h"
#include "support/child.h"
#include "support/faults.h"

using ks_test::assertion_line;
using ks_test::count_calls;
using ks_test::fail_call;
using ks_test::in_child;
using ks_test::Outcome;
using testing::MatchesRegex;

namespace {

constexpr int kFirstSize = 16384;
const std::string kErrorPrefix = "noname: Error: ";

// The line of the assertion about the buffer.
const std::string kNoBuffer = assertion_line("out_buf_p != NULL", "src/msg/imsg_compose.cc");

// From here on, `good` buffers can be had and then no more.
void limit_buffers(int good) {
  fail_call("malloc", good, ENOMEM, 1000000);
  fail_call("realloc", good, ENOMEM, 1000000);
}

int buffers_so_far() { return count_calls("malloc") + count_calls("realloc"); }

std::string repeated(const std::string &text, int times) {
  std::string all;
  while (times-- > 0) all += text;
  return all;
}

// A buffer grows by half until its size is above the length of the line.
int growths_for(long length) {
  int growths = 0;
  for (long size = kFirstSize; size <= length; size += size / 2) ++growths;
  return growths;
}

TEST(ImsgCompose, LinesAroundTheBuffersSizeAreWhole) {
  for (int length : {16382, 16383, 16384, 16385, 24575, 24576, 24577}) {
    const std::string text(static_cast<size_t>(length) - kErrorPrefix.size() - 1, 'x');
    const Outcome outcome = in_child([&] {
      imsg_print(IMSG_TYPE_ERROR, "%s\n", -1, text.c_str());
      imsg_print(IMSG_TYPE_OK, "%s\n", -1, text.c_str());
    });
    EXPECT_EQ(outcome.err, kErrorPrefix + text + "\n") << length;
    EXPECT_EQ(outcome.out, text + "\n") << length;
  }
}

TEST(ImsgCompose, BufferGrowsByHalfWhenALineFillsIt) {
  imsg_print(IMSG_TYPE_LOG_ONLY, "made", -1);
  const int before = buffers_so_far();
  const auto growths_after = [&](int length) {
    const std::string text(static_cast<size_t>(length), 'x');
    imsg_print(IMSG_TYPE_LOG_ONLY, "%s", -1, text.c_str());
    return buffers_so_far() - before;
  };
  EXPECT_EQ(growths_after(16383), 0);
  EXPECT_EQ(growths_after(16384), 1);
  EXPECT_EQ(growths_after(24575), 1);
  EXPECT_EQ(growths_after(24576), 2);
  EXPECT_EQ(growths_after(36864), 3);
  EXPECT_EQ(growths_after(100), 3);
}

TEST(ImsgCompose, AMegabyteIsPrintedWhole) {
  std::string text;
  for (int i = 0; text.size() < 1000000; ++i) text += std::to_string(i) + ",";
  text.resize(1000000);
  const Outcome outcome = in_child([&] {
    imsg_print(IMSG_TYPE_LOG_ONLY, "made", -1);
    const int before = buffers_so_far();
    imsg_print(IMSG_TYPE_ERROR, _ks_ks_msg_table, 0, text.c_str());
    imsg_print(IMSG_TYPE_OK, "%s", -1, text.c_str());
    _exit(buffers_so_far() - before);
  });
  EXPECT_EQ(growths_for(1000016), 11);
  EXPECT_EQ(outcome.end(), "exit 11");
  EXPECT_TRUE(outcome.err == kErrorPrefix + text + "\n");
  EXPECT_TRUE(outcome.out == text);
}

TEST(ImsgCompose, AnApplicationsNameMayBeLargerThanTheBuffer) {
  const std::string name(20000, 'n');
  const Outcome outcome = in_child([&] {
    imsg_set_app_name(name.c_str());
    imsg_print(IMSG_TYPE_WARNING, "text %d\n", -1, 1);
    imsg_print(IMSG_TYPE_OK, "text %d\n", -1, 2);
  });
  EXPECT_EQ(outcome.err, name + ": Warning: text 1\n");
  EXPECT_EQ(outcome.out, "text 2\n");
}

TEST(ImsgCompose, ANameThatJustFillsTheBufferLeavesTheTextWhole) {
  for (size_t prefix : {16382u, 16383u, 16384u, 16385u}) {
    const std::string name(prefix - strlen(": Error: "), 'n');
    const Outcome outcome = in_child([&] {
      imsg_set_app_name(name.c_str());
      imsg_print(IMSG_TYPE_ERROR, "text\n", -1);
    });
    EXPECT_EQ(outcome.err, name + ": Error: text\n") << prefix;
  }
}

TEST(ImsgCompose, ArgumentsAreReadAgainAfterGrowth) {
  const std::string text(50000, 'y');
  const Outcome outcome = in_child(
      [&] { imsg_print(IMSG_TYPE_OK, "%d %s %ld %.1f %c\n", -1, 1, text.c_str(), 3L, 4.5, 'z'); });
  EXPECT_EQ(outcome.out, "1 " + text + " 3 4.5 z\n");
}

TEST(ImsgCompose, ANulInTheTextEndsIt) {
  const Outcome outcome = in_child([] {
    imsg_print(IMSG_TYPE_ERROR, "ab%ccd\n", -1, 0);
    imsg_print(IMSG_TYPE_ERROR_CONT, "\n", -1);
  });
  EXPECT_EQ(outcome.err, "noname: Error: ab\n");
}

// No memory.

TEST(ImsgCompose, WithoutAFirstBufferTheAssertionGoesStraightOut) {
  const Outcome outcome = in_child([] {
    limit_buffers(0);
    imsg_print(IMSG_TYPE_OK, "text\n", -1);
  });
  EXPECT_EQ(outcome.end(), "signal 6");
  EXPECT_EQ(outcome.out, "");
  EXPECT_THAT(outcome.err, MatchesRegex(kNoBuffer));
}

TEST(ImsgCompose, AFirstBufferThatFailsOnceIsPrintedAsAnError) {
  const Outcome outcome = in_child([] {
    fail_call("malloc", 0, ENOMEM);
    fail_call("realloc", 0, ENOMEM);
    imsg_print(IMSG_TYPE_OK, "text\n", -1);
  });
  EXPECT_EQ(outcome.end(), "signal 6");
  EXPECT_EQ(outcome.out, "");
  EXPECT_THAT(outcome.err, MatchesRegex(kErrorPrefix + kNoBuffer));
}

TEST(ImsgCompose, WithoutALargerBufferTheAssertionFails) {
  for (int good : {0, 1, 5}) {
    const Outcome outcome = in_child([&] {
      imsg_print(IMSG_TYPE_OK, "made\n", -1);
      limit_buffers(good);
      imsg_print(IMSG_TYPE_OK, "%1000000d\n", -1, 1);
    });
    EXPECT_EQ(outcome.end(), "signal 6") << good;
    EXPECT_EQ(outcome.out, "made\n") << good;
    EXPECT_THAT(outcome.err, MatchesRegex(kErrorPrefix + kNoBuffer)) << good;
  }
}

TEST(ImsgCompose, WithoutABufferForThePrefixTheAssertionFails) {
  const Outcome outcome = in_child([] {
    imsg_print(IMSG_TYPE_OK, "made\n", -1);
    imsg_set_app_name(std::string(20000, 'n').c_str());
    limit_buffers(0);
    imsg_print(IMSG_TYPE_ERROR, "text\n", -1);
  });
  EXPECT_EQ(outcome.end(), "signal 6");
  EXPECT_THAT(outcome.err, MatchesRegex(kNoBuffer));
}

// A number that the table does not have: reported at every size that the buffer takes, and then the
// assertion, because no larger buffer is had.

// A regular expression for all that a fatal message prints, given that of one report.
std::string fatal(const std::string &line, int times) {
  return repeated(kErrorPrefix + line, times) + kErrorPrefix + kNoBuffer;
}

// 16384 * 1.5^27 is about 930 million, and half as much again is above 1 GiB: 28 sizes.
constexpr int kSizes = 28;

std::string bad_number(const imsg_table_t *table, int number) {
  const long address = static_cast<long>(reinterpret_cast<intptr_t>(table));
  return "IMSG Internal error \\(vsprintf\\) - tbl " + std::to_string(address) + ", num " +
         std::to_string(number) + "\\.\n";
}

// What a number does with room for all sizes; 32-bit address space may end earlier.
void expect_loud_end(const std::string &line, const std::function<void()> &print) {
  const Outcome outcome = in_child(print);
  EXPECT_EQ(outcome.end(), "signal 6");
  EXPECT_EQ(outcome.out, "");
  const int reports =
      static_cast<int>(std::count(outcome.err.begin(), outcome.err.end(), '\n')) - 1;
  if (sizeof(void *) == 4) {
    EXPECT_THAT(reports, testing::AllOf(testing::Ge(kSizes - 3), testing::Le(kSizes)));
  } else {
    EXPECT_EQ(reports, kSizes);
  }
  EXPECT_THAT(outcome.err, MatchesRegex(fatal(line, reports)));
}

TEST(ImsgPrintWrongNumber, IsLoudAndFatal) {
  expect_loud_end(bad_number(_pfm_ks_msg_table, 2),
                  [] { imsg_print(IMSG_TYPE_OK, _pfm_ks_msg_table, 2); });
}

TEST(ImsgPrintNullFormat, IsLoudAndFatal) {
  expect_loud_end("IMSG Internal error \\(vsprintf/NOMSG\\) - NULL Message\\.\n",
                  [] { imsg_print(IMSG_TYPE_WARNING, nullptr, -1); });
}

TEST(ImsgPrintWrongNumber, KeepsReportingAtEachGrowth) {
  for (int number : {2, 3, 65535, INT_MAX, -2, INT_MIN}) {
    const Outcome outcome = in_child([&] {
      imsg_print(IMSG_TYPE_OK, "made\n", -1);
      limit_buffers(3);
      imsg_print(IMSG_TYPE_ERROR, _pfm_ks_msg_table, number);
    });
    EXPECT_EQ(outcome.end(), "signal 6") << number;
    EXPECT_EQ(outcome.out, "made\n") << number;
    EXPECT_THAT(outcome.err, MatchesRegex(fatal(bad_number(_pfm_ks_msg_table, number), 4)));
  }
}

TEST(ImsgPrintWrongNumber, IsFatalForDroppedTypesToo) {
  const Outcome outcome = in_child([&] {
    imsg_print(IMSG_TYPE_OK, "made\n", -1);
    limit_buffers(0);
    imsg_print(IMSG_TYPE_LOG_ONLY, _pfm_ks_msg_table, 2);
  });
  EXPECT_EQ(outcome.end(), "signal 6");
  EXPECT_THAT(outcome.err, MatchesRegex(fatal(bad_number(_pfm_ks_msg_table, 2), 1)));
}

// A text that cannot be formatted is taken for one that does not fit.
TEST(ImsgCompose, ATextThatFailsOnceIsFormattedAgain) {
  const Outcome outcome = in_child([] {
    imsg_print(IMSG_TYPE_OK, "made\n", -1);
    const int before = buffers_so_far();
    fail_call("vsnprintf", 1, EOVERFLOW);  // behind the prefix
    imsg_print(IMSG_TYPE_ERROR, "%s\n", -1, "text");
    _exit(buffers_so_far() - before);
  });
  EXPECT_EQ(outcome.err, kErrorPrefix + "text\n");
  EXPECT_EQ(outcome.end(), "exit 1");
}

// The prefix is the first text of an error that is formatted.
Outcome prefix_fails(int verbosity, const char *subsys) {
  return in_child([&] {
    imsg_set_trace_verbosity(verbosity);
    imsg_set_trace_subsys(subsys);
    fail_call("vsnprintf", 0, EOVERFLOW);
    imsg_print(IMSG_TYPE_ERROR, "lost\n", -1);
    imsg_print(IMSG_TYPE_ERROR, "next\n", -1);
  });
}

TEST(ImsgCompose, APrefixThatFailsEndsTheCallAndIsTraced) {
  for (const char *subsys : {"ks/imsg", "*", "ks/stg:ks/imsg"}) {
    const Outcome outcome = prefix_fails(1, subsys);
    EXPECT_EQ(outcome.end(), "exit 0");
    EXPECT_EQ(outcome.out, "");
    EXPECT_EQ(outcome.err, "prefix consumed entire buffer. (sz: 16384).\nnoname: Error: next\n");
  }
}

TEST(ImsgCompose, APrefixThatFailsIsSilentWithoutTracing) {
  for (const Outcome &outcome :
       {prefix_fails(0, "ks/imsg"), prefix_fails(1, "ks/stg"), prefix_fails(1, nullptr)}) {
    EXPECT_EQ(outcome.end(), "exit 0");
    EXPECT_EQ(outcome.out, "");
    EXPECT_EQ(outcome.err, "noname: Error: next\n");
  }
}

// The two conditions that the inner call asserts.

void compose(char **result, const char *prefix_format, ...) {
  va_list args;
  va_start(args, prefix_format);
  ks::imsg_print_sharedv_util(result, IMSG_TYPE_ERROR, prefix_format, {"", ""}, "%s", -1, args);
  va_end(args);
}

TEST(ImsgPrintSharedvUtil, JoinsPrefixAndText) {
  char *text = nullptr;
  compose(&text, "<%s> ", "text");
  EXPECT_STREQ(text, "<noname> text");
}

TEST(ImsgPrintSharedvUtil, NeedsAPlaceForTheResult) {
  const Outcome outcome = in_child([] { compose(nullptr, "%s: ", "text"); });
  EXPECT_EQ(outcome.end(), "signal 6");
  EXPECT_THAT(outcome.err, MatchesRegex(kErrorPrefix + assertion_line("result_pp != NULL",
                                                                      "src/msg/imsg_compose.cc")));
}

TEST(ImsgPrintSharedvUtil, NeedsAPrefixFormat) {
  const Outcome outcome = in_child([] {
    char *text;
    compose(&text, nullptr, "text");
  });
  EXPECT_EQ(outcome.end(), "signal 6");
  EXPECT_THAT(outcome.err, MatchesRegex(kErrorPrefix + assertion_line("prefix_format != NULL",
                                                                      "src/msg/imsg_compose.cc")));
}

}  // namespace

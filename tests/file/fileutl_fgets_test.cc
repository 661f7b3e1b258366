#include <gtest/gtest.h>
#include <sys/resource.h>
#include <unistd.h>

#include <cerrno>
#include <cstdio>
#include <ctime>
#include <string>

#include "fileutl.h"
#include "support/exact_text.h"
#include "support/faults.h"
#include "file/files.h"

using ks_test::count_calls;
using ks_test::ExactText;
using ks_test::fail_call;

namespace {

constexpr timeval kNone = {0, 0};

// A pipe whose reading end is a stream.
class Pipe {
 public:
  Pipe() {
    if (pipe(ends_) != 0) abort();
    stream_ = fdopen(ends_[0], "r");
  }
  ~Pipe() {
    fclose(stream_);
    end();
  }
  Pipe(const Pipe &) = delete;
  Pipe &operator=(const Pipe &) = delete;

  FILE *stream() const { return stream_; }
  void put(const std::string &text) const {
    EXPECT_EQ(write(ends_[1], text.data(), text.size()), static_cast<ssize_t>(text.size()));
  }
  void end() {
    if (ends_[1] >= 0) close(ends_[1]);
    ends_[1] = -1;
  }

 private:
  int ends_[2];
  FILE *stream_;
};

struct Got {
  int result;
  std::string line;
  int eof;
  int timed_out;
  bool operator==(const Got &) const = default;
};

void PrintTo(const Got &got, std::ostream *out) {
  *out << got.result << " '" << got.line << "' eof " << got.eof << " timed out " << got.timed_out;
}

Got get(FILE *stream, const timeval *timeout, size_t size = 100) {
  const ExactText buffer("old", size < 4 ? 4 : size);
  Got got = {-1, "", 7, 7};
  got.result = fileutl_fgets_or_timeout(stream, timeout, size, buffer, &got.eof, &got.timed_out);
  got.line = buffer.get();
  return got;
}

TEST(FileutlFgetsOrTimeout, GivesALineAsFgetsDoes) {
  Pipe pipe;
  pipe.put("one\n");
  EXPECT_EQ(get(pipe.stream(), &kNone), (Got{0, "one\n", 0, 0}));
  pipe.put("two");
  pipe.end();
  EXPECT_EQ(get(pipe.stream(), nullptr), (Got{0, "two", 0, 0}));
  EXPECT_EQ(get(pipe.stream(), nullptr), (Got{0, "", 1, 0}));
}

TEST(FileutlFgetsOrTimeout, CutsALineToTheBuffer) {
  Pipe pipe;
  pipe.put("12345\n");
  EXPECT_EQ(get(pipe.stream(), &kNone, 4), (Got{0, "123", 0, 0}));
}

TEST(FileutlFgetsOrTimeout, SizeOfZeroFailsAndWritesNothing) {
  Pipe pipe;
  pipe.put("1\n");
  EXPECT_EQ(get(pipe.stream(), &kNone, 0), (Got{1, "old", 0, 0}));
}

TEST(FileutlFgetsOrTimeout, WithoutDataItTimesOutWithAnEmptyBuffer) {
  Pipe pipe;
  EXPECT_EQ(get(pipe.stream(), &kNone), (Got{0, "", 0, 1}));
  const timeval kShort = {0, 30000};
  timespec before, after;
  clock_gettime(CLOCK_MONOTONIC, &before);
  EXPECT_EQ(get(pipe.stream(), &kShort), (Got{0, "", 0, 1}));
  clock_gettime(CLOCK_MONOTONIC, &after);
  const double seconds = static_cast<double>(after.tv_sec - before.tv_sec) +
                         static_cast<double>(after.tv_nsec - before.tv_nsec) / 1e9;
  EXPECT_GE(seconds, 0.03);
  EXPECT_EQ(kShort.tv_usec, 30000) << "the caller's time-out stays";
}

TEST(FileutlFgetsOrTimeout, KeepsNotSeeingWhatTheStreamHoldsAlready) {
  Pipe pipe;
  pipe.put("one\ntwo\n");
  EXPECT_EQ(get(pipe.stream(), &kNone), (Got{0, "one\n", 0, 0}));
  EXPECT_EQ(get(pipe.stream(), &kNone), (Got{0, "", 0, 1}));
}

TEST(FileutlFgetsOrTimeout, InterruptedWaitIsDoneAgain) {
  Pipe pipe;
  pipe.put("one\n");
  fail_call("select", 0, EINTR, 500);
  EXPECT_EQ(get(pipe.stream(), &kNone), (Got{0, "one\n", 0, 0}));
  EXPECT_EQ(count_calls("select"), 501);
}

TEST(FileutlFgetsOrTimeout, WaitThatFailsOtherwiseIsAFailure) {
  Pipe pipe;
  pipe.put("one\n");
  fail_call("select", 0, ENOMEM);
  EXPECT_EQ(ks_test::printed_by([&] {
              EXPECT_EQ(get(pipe.stream(), &kNone), (Got{1, "", 0, 0}));
            }),
            "");
}

TEST(FileutlFgetsOrTimeout, OtherDescriptorThanOursIsUnexpected) {
  Pipe pipe;
  pipe.put("one\n");
  fail_call("select", 0, 0);
  EXPECT_EQ(ks_test::printed_by([&] {
              EXPECT_EQ(get(pipe.stream(), &kNone), (Got{1, "", 0, 0}));
            }),
            ks_test::error_line("Unexpected error."));
}

TEST(FileutlFgetsOrTimeout, ReadingMayBeInterrupted99Times) {
  Pipe pipe;
  pipe.put("one\n");
  fail_call("fgets", 0, EINTR, 99);
  EXPECT_EQ(get(pipe.stream(), &kNone), (Got{0, "one\n", 0, 0}));
  EXPECT_EQ(count_calls("fgets"), 100);
  EXPECT_EQ(count_calls("select"), 100);
  EXPECT_EQ(ferror(pipe.stream()), 0);
}

TEST(FileutlFgetsOrTimeout, HundredthInterruptionIsAFailure) {
  Pipe pipe;
  pipe.put("one\n");
  fail_call("fgets", 0, EINTR, 100);
  EXPECT_EQ(get(pipe.stream(), &kNone), (Got{1, "", 0, 0}));
  EXPECT_EQ(count_calls("fgets"), 100);
}

TEST(FileutlFgetsOrTimeout, ReadingThatFailsOtherwiseIsAFailure) {
  Pipe pipe;
  pipe.put("one\n");
  fail_call("fgets", 0, EIO);
  EXPECT_EQ(get(pipe.stream(), &kNone), (Got{1, "", 0, 0}));
  EXPECT_EQ(count_calls("fgets"), 1);
}

TEST(FileutlFgetsOrTimeout, FailedWaitAfterAnInterruptedReadLeavesNoPartOfALine) {
  Pipe pipe;
  pipe.put("one\n");
  fail_call("fgets", 0, EINTR);
  fail_call("select", 1, ENOMEM);
  EXPECT_EQ(get(pipe.stream(), &kNone), (Got{1, "", 0, 0}));
}

TEST(FileutlFgetsOrTimeout, OldErrorOfTheStreamDoesNotCount) {
  Pipe pipe;
  fputc('x', pipe.stream());
  ASSERT_NE(ferror(pipe.stream()), 0);
  pipe.end();
  errno = EINTR;
  EXPECT_EQ(get(pipe.stream(), &kNone), (Got{0, "", 1, 0}));
  EXPECT_EQ(count_calls("fgets"), 1) << "it is no interruption";
}

TEST(FileutlFgetsOrTimeout, DescriptorThatSelectCannotTakeIsAFailure) {
  char memory[] = "text";
  FILE *stream = fmemopen(memory, sizeof memory, "r");
  EXPECT_EQ(get(stream, &kNone), (Got{1, "", 0, 0}));
  fclose(stream);

  rlimit limit;
  getrlimit(RLIMIT_NOFILE, &limit);
  if (limit.rlim_cur <= 1024) {
    limit.rlim_cur = 1025;
    ASSERT_LE(limit.rlim_cur, limit.rlim_max);
    setrlimit(RLIMIT_NOFILE, &limit);
  }
  ASSERT_EQ(dup2(0, 1024), 1024);
  stream = fdopen(1024, "r");
  EXPECT_EQ(get(stream, &kNone), (Got{1, "", 0, 0}));
  EXPECT_EQ(count_calls("select"), 0);
  fclose(stream);
}

}  // namespace

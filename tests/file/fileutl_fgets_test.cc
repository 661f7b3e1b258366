#include <gtest/gtest.h>
#include <fcntl.h>
#include <sys/resource.h>
#include <sys/time.h>
#include <unistd.h>

#include <cerrno>
#include <csignal>
#include <cstdio>
#include <cstdlib>
#include <ctime>
#include <string>
#include <thread>

#include "fileutl.h"
#include "pfm.h"
#include "support/exact_text.h"
#include "support/faults.h"
#include "support/landing.h"
#include "support/signals.h"
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

TEST(FileutlFgetsOrTimeout, TimeOutStartsAnewBehindASignal) {
  Pipe pipe;
  ks_test::set_system_handler(SIGALRM, [](int) {});
  const itimerval once = {{0, 0}, {0, 150000}};
  timespec before, after;
  clock_gettime(CLOCK_MONOTONIC, &before);
  setitimer(ITIMER_REAL, &once, nullptr);
  const timeval timeout = {0, 200000};
  EXPECT_EQ(get(pipe.stream(), &timeout), (Got{0, "", 0, 1}));
  clock_gettime(CLOCK_MONOTONIC, &after);
  const double seconds = static_cast<double>(after.tv_sec - before.tv_sec) +
                         static_cast<double>(after.tv_nsec - before.tv_nsec) / 1e9;
  EXPECT_GE(seconds, 0.349);
}

// Signals come in the middle of a line: each time when the reader waits for the rest, of which their
// routine sends a byte, and of the last a newline. What they leave is a wait that was interrupted.
class Interrupting {
 public:
  Interrupting(const Pipe &pipe, int times) {
    pipe_ = &pipe;
    left_ = times;
    ks_test::set_system_handler(SIGUSR1, [](int) {
      pipe_->put(--left_ > 0 ? "x" : "\n");
      fail_call("select", -1, EINTR);
      if (left_ > 0) ks_test::signal_in_call("select", 1, SIGUSR1);
    });
    pipe.put("x");
    ks_test::signal_in_call("select", 1, SIGUSR1);
  }

 private:
  static inline const Pipe *pipe_;
  static inline int left_;
};

TEST(FileutlFgetsOrTimeout, ReadingMayBeInterrupted99TimesAndLosesNothing) {
  Pipe pipe;
  const Interrupting interrupting(pipe, 99);
  std::string line(100, 'x');
  line.back() = '\n';
  EXPECT_EQ(get(pipe.stream(), &kNone, 200), (Got{0, line, 0, 0}));
  EXPECT_EQ(count_calls("select"), 199);
  EXPECT_EQ(ferror(pipe.stream()), 0);
}

TEST(FileutlFgetsOrTimeout, HundredthInterruptionIsAFailureThatTheStreamShows) {
  Pipe pipe;
  const Interrupting interrupting(pipe, 100);
  EXPECT_EQ(get(pipe.stream(), &kNone, 200), (Got{1, std::string(100, 'x'), 0, 0}));
  EXPECT_EQ(count_calls("select"), 200);
  EXPECT_NE(ferror(pipe.stream()), 0);
  EXPECT_EQ(get(pipe.stream(), &kNone, 200), (Got{0, "\n", 0, 0})) << "nothing is lost";
}

// A timer's signals at every moment of a line that comes byte by byte.
TEST(FileutlFgetsOrTimeout, LineThatComesAmongSignalsIsWhole) {
  static Pipe pipe;
  static std::string line;
  static size_t sent;
  line = "a line that takes a signal for each of its bytes\n";
  sent = 0;
  ks_test::set_system_handler(SIGALRM, [](int) {
    if (sent < line.size()) pipe.put(line.substr(sent++, 1));
  });
  const itimerval every = {{0, 2000}, {0, 2000}};
  setitimer(ITIMER_REAL, &every, nullptr);
  EXPECT_EQ(get(pipe.stream(), nullptr), (Got{0, line, 0, 0}));
  const itimerval never = {};
  setitimer(ITIMER_REAL, &never, nullptr);
}

TEST(FileutlFgetsOrTimeout, PartOfALineStaysWhenTheRestDoesNotComeInTime) {
  Pipe pipe;
  pipe.put("part");
  fail_call("select", 1, EINTR);
  EXPECT_EQ(get(pipe.stream(), &kNone), (Got{0, "part", 0, 1}));
  EXPECT_EQ(ferror(pipe.stream()), 0);
}

TEST(FileutlFgetsOrTimeout, PartOfALineStaysWhenWaitingForTheRestFails) {
  Pipe pipe;
  pipe.put("part");
  fail_call("select", 1, ENOMEM);
  EXPECT_EQ(get(pipe.stream(), &kNone), (Got{1, "part", 0, 0}));
}

// Of a stream that does not wait fgets gives what is there.
TEST(FileutlFgetsOrTimeout, StreamThatDoesNotWaitGivesWhatItHas) {
  Pipe pipe;
  fcntl(fileno(pipe.stream()), F_SETFL, O_NONBLOCK);
  pipe.put("part");
  EXPECT_EQ(get(pipe.stream(), &kNone), (Got{0, "part", 0, 0}));
  EXPECT_EQ(get(pipe.stream(), &kNone), (Got{0, "", 0, 1}));
}

// The terminal of a session whose other end has been closed gives EIO.
TEST(FileutlFgetsOrTimeout, ReadingThatFailsOtherwiseIsAFailure) {
  const int terminal = posix_openpt(O_RDWR | O_NOCTTY);
  ASSERT_GE(terminal, 0);
  ASSERT_EQ(grantpt(terminal), 0);
  ASSERT_EQ(unlockpt(terminal), 0);
  const int other = open(ptsname(terminal), O_RDWR | O_NOCTTY);
  ASSERT_EQ(write(other, "part", 4), 4);
  close(other);
  FILE *stream = fdopen(terminal, "r");
  const Got got = get(stream, &kNone);
  if (got.line.empty()) {
    EXPECT_EQ(got, (Got{1, "", 0, 0})) << "the system has dropped what was written";
  } else {
    EXPECT_EQ(got, (Got{1, "part", 0, 0}));
  }
  EXPECT_NE(ferror(stream), 0);
  fclose(stream);
}

TEST(FileutlFgetsOrTimeout, FaultLeavesTheStreamUnlockedAndThePartInTheBuffer) {
  Pipe pipe;
  pipe.put("part");
  ks_test::default_signals();
  pfm_signal(SIGUSR1, ks_test::raise_number);
  ks_test::signal_in_call("select", 1, SIGUSR1);
  char buffer[20] = "old";
  int eof, timed_out;
  const ks_test::Landing landing = ks_test::land([&] {
    fileutl_fgets_or_timeout(pipe.stream(), nullptr, sizeof buffer, buffer, &eof, &timed_out);
  });
  EXPECT_EQ(landing.status, SIGUSR1);
  EXPECT_STREQ(buffer, "part");
  bool free = false;
  std::thread([&] {  // the lock lets its own thread in at any time
    free = ftrylockfile(pipe.stream()) == 0;
    if (free) funlockfile(pipe.stream());
  })
      .join();
  EXPECT_TRUE(free);
  pipe.put("ly\n");
  EXPECT_EQ(get(pipe.stream(), &kNone), (Got{0, "ly\n", 0, 0}));
}

TEST(FileutlFgetsOrTimeout, ByteThatWasPutBackComesFirst) {
  Pipe pipe;
  pipe.put("one\ntwo\n");
  EXPECT_EQ(get(pipe.stream(), &kNone), (Got{0, "one\n", 0, 0}));
  ungetc('T', pipe.stream());
  pipe.put("\n");
  EXPECT_EQ(get(pipe.stream(), &kNone), (Got{0, "Ttwo\n", 0, 0}));
}

TEST(FileutlFgetsOrTimeout, OldErrorOfTheStreamDoesNotCount) {
  Pipe pipe;
  fputc('x', pipe.stream());
  ASSERT_NE(ferror(pipe.stream()), 0);
  pipe.end();
  errno = EINTR;
  EXPECT_EQ(get(pipe.stream(), &kNone), (Got{0, "", 1, 0}));
  EXPECT_EQ(count_calls("select"), 1) << "it is no interruption";
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

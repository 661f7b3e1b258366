#include <fcntl.h>
#include <gtest/gtest.h>
#include <sys/stat.h>
#include <sys/time.h>
#include <unistd.h>

#include <cerrno>
#include <csignal>
#include <cstdio>
#include <cstring>
#include <ctime>
#include <string>
#include <thread>

#include "pfm.h"
#include "stg.h"
#include "strutl.h"
#include "support/child.h"
#include "support/faults.h"
#include "support/folder.h"
#include "support/landing.h"
#include "support/random.h"
#include "support/signals.h"
#include "file/files.h"

using ks_test::count_calls;
using ks_test::error_line;
using ks_test::fail_call;
using ks_test::Folder;
using ks_test::open_descriptors;
using ks_test::printed_by;

namespace {

// A text read into the heap, and freed.
std::string take(char *text) {
  if (text == nullptr) return "NULL";
  const std::string copy = text;
  stg_free(text);
  return copy;
}

std::string read(const std::string &path, int missing_is_empty = 0) {
  return take(strutl_read(STG_AREA_HEAP, path.c_str(), 0, 0, missing_is_empty));
}

struct Read {
  std::string text;
  int truncated;
  bool operator==(const Read &) const = default;
};

void PrintTo(const Read &read, std::ostream *out) {
  *out << read.text.size() << " '" << read.text.substr(0, 40) << "' truncated " << read.truncated;
}

// Reads a file by strutl_read_fp into the heap.
Read read_fp(const std::string &path, uint32_t size) {
  FILE *stream = fopen(path.c_str(), "r");
  int truncated = 7;
  char *text = strutl_read_fp(STG_AREA_HEAP, size, stream, 0, &truncated);
  fclose(stream);
  return {take(text), truncated};
}

TEST(StrutlWrite, MakesTheTextTheWholeFile) {
  const Folder folder;
  const std::string path = folder.write("file", "a longer text before");
  EXPECT_EQ(strutl_write("one\ntwo", path.c_str(), 0, 0), 0);
  EXPECT_EQ(folder.read("file"), "one\ntwo");
  EXPECT_EQ(strutl_write("", path.c_str(), 0, 0), 0);
  EXPECT_EQ(folder.read("file"), "");
}

TEST(StrutlWrite, NullTextLeavesTheFileAlone) {
  const Folder folder;
  const std::string path = folder.write("file", "before");
  EXPECT_EQ(strutl_write(nullptr, path.c_str(), 0, 0), 0);
  EXPECT_EQ(folder.read("file"), "before");
}

TEST(StrutlWrite, FailureToOpenIsAnErrorUnlessQuiet) {
  const Folder folder;
  const std::string path = folder.path("absent/file");
  const ptrdiff_t descriptors = open_descriptors();
  EXPECT_EQ(printed_by([&] {
              EXPECT_EQ(strutl_write("text", path.c_str(), 0, 0), 1);
              EXPECT_EQ(errno, ENOENT);
            }),
            error_line("Unable to open " + path + ": No such file or directory"));
  EXPECT_EQ(printed_by([&] { EXPECT_EQ(strutl_write("text", path.c_str(), 0, 1), 1); }), "");
  EXPECT_EQ(open_descriptors(), descriptors);
}

TEST(StrutlWrite, FailureToWriteIsAnErrorUnlessQuiet) {
  const ptrdiff_t descriptors = open_descriptors();
  // A short text stays in the stream up to the end; a long one fails in between.
  for (size_t length : {size_t{4}, size_t{100000}}) {
    const std::string text(length, 'x');
    EXPECT_EQ(printed_by([&] {
                EXPECT_EQ(strutl_write(text.c_str(), "/dev/full", 0, 0), 1);
                EXPECT_EQ(errno, ENOSPC);
              }),
              error_line("Operation write, /dev/full: No space left on device"));
    EXPECT_EQ(printed_by([&] { EXPECT_EQ(strutl_write(text.c_str(), "/dev/full", 0, 1), 1); }), "");
  }
  EXPECT_EQ(open_descriptors(), descriptors);
}

TEST(StrutlRead, GivesTheWholeFile) {
  const Folder folder;
  for (size_t size : {0U, 1U, 4095U, 4096U, 4097U, 8191U, 8192U, 8193U, 100000U}) {
    std::string contents;
    while (contents.size() < size) contents += "line " + std::to_string(contents.size()) + "\n";
    contents.resize(size);
    EXPECT_EQ(read(folder.write("file", contents)), contents);
  }
}

TEST(StrutlRead, AnAreaKeepsTheText) {
  const Folder folder;
  const std::string path = folder.write("file", "one\n\ntwo");
  stg_area_t area = stg_create_area(100);
  EXPECT_STREQ(strutl_read(area, path.c_str(), 0, 0, 0), "one\n\ntwo");
  EXPECT_STREQ(strutl_read(area, folder.path("absent").c_str(), 0, 0, 1), "");
  stg_delete_area(&area);
}

TEST(StrutlRead, FirstNulEndsTheText) {
  const Folder folder;
  EXPECT_EQ(read(folder.write("file", std::string("one\ntw\0o\nthree\n", 15))), "one\ntw");
  EXPECT_EQ(read(folder.write("file", std::string("\0one\n", 5))), "");
  EXPECT_EQ(read(folder.write("file", std::string("one\n\0", 5))), "one\n");
}

TEST(StrutlRead, MissingFileIsAnErrorOrEmptyAsAsked) {
  const Folder folder;
  const std::string path = folder.path("absent");
  const std::string message = error_line("Unable to open " + path + ": No such file or directory");
  EXPECT_EQ(printed_by([&] { EXPECT_EQ(read(path), "NULL"); }), message);
  EXPECT_EQ(errno, ENOENT);
  EXPECT_EQ(printed_by([&] { EXPECT_EQ(read(path, 1), ""); }), "");
  EXPECT_EQ(
      printed_by([&] { EXPECT_EQ(strutl_read(STG_AREA_HEAP, path.c_str(), 0, 1, 0), nullptr); }),
      "");
}

TEST(StrutlRead, OnlyAMissingFileIsTakenForEmpty) {
  const Folder folder;
  folder.write("file", "");
  const std::string path = folder.path("file/below");
  EXPECT_EQ(printed_by([&] { EXPECT_EQ(read(path, 1), "NULL"); }),
            error_line("Unable to open " + path + ": Not a directory"));
}

TEST(StrutlRead, FollowsALink) {
  const Folder folder;
  folder.write("file", "text");
  ASSERT_EQ(symlink("file", folder.path("link").c_str()), 0);
  EXPECT_EQ(read(folder.path("link")), "text");
}

TEST(StrutlRead, FileThatCannotBeOpenedIsAnError) {
  const Folder folder;
  const std::string path = folder.write("file", "text");
  ASSERT_EQ(chmod(folder.path().c_str(), 0755), 0);
  ASSERT_EQ(chmod(path.c_str(), 0), 0);
  const ks_test::Outcome outcome = ks_test::in_child([&] {
    ks_test::become_nobody();
    _exit(strutl_read(STG_AREA_HEAP, path.c_str(), 0, 0, 1) == nullptr && errno == EACCES ? 0 : 1);
  });
  EXPECT_EQ(outcome.end(), "exit 0");
  EXPECT_EQ(outcome.err, error_line("Unable to open " + path + ": Permission denied"));
}

TEST(StrutlRead, SizesFromTwoGigabytesOnAreRefused) {
  const Folder folder;
  const std::string path = folder.write("file", "");
  const ptrdiff_t descriptors = open_descriptors();
  for (off64_t size : {off64_t{0x80000000}, off64_t{0x100000001}}) {
    ASSERT_EQ(truncate64(path.c_str(), size), 0);
    EXPECT_EQ(printed_by([&] {
                EXPECT_EQ(read(path), "NULL");
                EXPECT_EQ(errno, EFBIG);
              }),
              error_line("File \"" + path +
                         "\" is larger than 2GB and cannot be handled by "
                         "Tallowbay."));
    EXPECT_EQ(
        printed_by([&] { EXPECT_EQ(strutl_read(STG_AREA_HEAP, path.c_str(), 0, 1, 0), nullptr); }),
        "");
  }
  EXPECT_EQ(open_descriptors(), descriptors);
}

TEST(StrutlRead, FileThatGrowsMeanwhileIsRefused) {
  const Folder folder;
  const std::string path = folder.write("file", "1234");
  static FILE *more;
  ks_test::set_system_handler(SIGUSR1, [](int) {
    fputc('5', more);
    fflush(more);
  });
  const ptrdiff_t descriptors = open_descriptors();
  for (int quiet : {0, 1}) {
    more = fopen(path.c_str(), "a");
    ks_test::signal_in_call("malloc", 0, SIGUSR1);  // of the text: by then its size is known
    EXPECT_EQ(printed_by([&] {
                EXPECT_EQ(strutl_read(STG_AREA_HEAP, path.c_str(), 0, quiet, 0), nullptr);
                EXPECT_EQ(errno, EFBIG);
              }),
              quiet ? "" : error_line("File \"" + path + "\" changed size during read."));
    fclose(more);
  }
  EXPECT_EQ(open_descriptors(), descriptors);
  EXPECT_EQ(read(path), "123455");
}

TEST(StrutlRead, KeepsRefusingFilesThatTheKernelMakesUp) {
  EXPECT_EQ(printed_by([&] { EXPECT_EQ(read("/proc/self/status"), "NULL"); }),
            error_line("File \"/proc/self/status\" changed size during read."));
}

TEST(StrutlRead, ReadingThatFailsIsAnErrorUnlessQuiet) {
  const Folder folder;
  const ptrdiff_t descriptors = open_descriptors();
  EXPECT_EQ(printed_by([&] {
              EXPECT_EQ(read(folder.path()), "NULL");
              EXPECT_EQ(errno, EISDIR);
            }),
            error_line("Operation read: Is a directory"));
  EXPECT_EQ(printed_by([&] {
              EXPECT_EQ(strutl_read(STG_AREA_HEAP, folder.path().c_str(), 0, 1, 0), nullptr);
            }),
            "");
  EXPECT_EQ(open_descriptors(), descriptors);
}

TEST(StrutlReadFp, GrowsWithTheText) {
  const Folder folder;
  for (size_t size : {0U, 1U, 8190U, 8191U, 8192U, 16383U, 16384U, 50000U}) {
    const std::string contents = std::string(size / 2, 'a') + std::string(size - size / 2, 'b');
    EXPECT_EQ(read_fp(folder.write("file", contents), 0), (Read{contents, 0})) << size;
  }
}

TEST(StrutlReadFp, GrowsBy8192InAnAreaToo) {
  const Folder folder;
  const std::string contents(30000, 'x');
  FILE *stream = fopen(folder.write("file", contents).c_str(), "r");
  stg_area_t area = stg_create_area(200000);
  int truncated = 7;
  const char *first = static_cast<char *>(stg_alloc(area, 0));
  const char *text = strutl_read_fp(area, 0, stream, 0, &truncated);
  EXPECT_EQ(text, contents);
  EXPECT_EQ(truncated, 0);
  // The buffers of 8192, 16384 and 24576 bytes stay behind in the area.
  EXPECT_EQ(text - first, 8192 + 16384 + 24576);
  fclose(stream);
  stg_delete_area(&area);
}

TEST(StrutlReadFp, GrowsBy8192OnTheHeap) {
  const Folder folder;
  const std::string path = folder.write("file", std::string(100000, 'x'));
  const int before = count_calls("realloc");
  EXPECT_EQ(read_fp(path, 0).text.size(), 100000u);
  EXPECT_EQ(count_calls("realloc") - before, 12) << "to 13 times 8192 bytes";
}

TEST(StrutlReadFp, FullBufferBeforeTheEndIsTruncated) {
  const Folder folder;
  const std::string path = folder.write("file", "12345");
  EXPECT_EQ(read_fp(path, 7), (Read{"12345", 0}));
  EXPECT_EQ(read_fp(path, 5), (Read{"1234", 1}));
  EXPECT_EQ(read_fp(path, 2), (Read{"1", 1}));
  EXPECT_EQ(read_fp(path, 1), (Read{"", 1}));
}

TEST(StrutlReadFp, KeepsTakingAFullBufferForTruncatedWhenTheEndHasNotBeenMet) {
  const Folder folder;
  EXPECT_EQ(read_fp(folder.write("file", "12345"), 6), (Read{"12345", 1}));
}

TEST(StrutlReadFp, StartsWhereTheStreamStandsAndLeavesItOpen) {
  const Folder folder;
  FILE *stream = fopen(folder.write("file", "one\ntwo\n").c_str(), "r");
  char line[10];
  ASSERT_NE(fgets(line, sizeof line, stream), nullptr);
  int truncated;
  EXPECT_EQ(take(strutl_read_fp(STG_AREA_HEAP, 0, stream, 0, &truncated)), "two\n");
  EXPECT_EQ(fclose(stream), 0);
}

TEST(StrutlReadFp, ExhaustedStorageIsAnErrorForAFirstBuffer) {
  const Folder folder;
  FILE *stream = fopen(folder.write("file", "text").c_str(), "r");
  const std::string expected = error_line("No more memory available.") +
                               error_line("No memory available for storage allocation.");
  int truncated;
  EXPECT_EQ(printed_by([&] {
              fail_call("malloc", 0, ENOMEM);
              EXPECT_EQ(strutl_read_fp(STG_AREA_HEAP, 0, stream, 1, &truncated), nullptr);
              EXPECT_EQ(errno, ENOMEM);
            }),
            expected);
  fclose(stream);
}

TEST(StrutlReadFp, KeepsWarningOnlyWhenAHeapBufferCannotGrow) {
  const Folder folder;
  FILE *stream = fopen(folder.write("file", std::string(10000, 'x')).c_str(), "r");
  ASSERT_EQ(fgetc(stream), 'x');  // the stream has its own buffer by now
  int truncated;
  EXPECT_EQ(printed_by([&] {
              fail_call("realloc", 0, ENOMEM);
              EXPECT_EQ(strutl_read_fp(STG_AREA_HEAP, 0, stream, 1, &truncated), nullptr);
              EXPECT_EQ(errno, ENOMEM);
            }),
            error_line("No more memory available.") +
                "noname: Warning: No memory available for storage allocation.\n");
  fclose(stream);
}

TEST(StrutlReadFp, ExhaustedStorageIsAnErrorWhereAnAreaCannotGrow) {
  const Folder folder;
  FILE *stream = fopen(folder.write("file", std::string(10000, 'x')).c_str(), "r");
  stg_area_t area = stg_create_area(8192);
  int truncated;
  EXPECT_EQ(printed_by([&] {
              fail_call("malloc", 1, ENOMEM);  // the area's second chunk
              EXPECT_EQ(strutl_read_fp(area, 0, stream, 1, &truncated), nullptr);
            }),
            error_line("No more memory available.") +
                error_line("No memory available for storage allocation."));
  fclose(stream);
  stg_delete_area(&area);
}

TEST(StrutlReadFp, HoldsSignalsBackMeanwhile) {
  const Folder folder;
  FILE *stream = fopen(folder.write("file", "text").c_str(), "r");
  stg_area_t area = stg_create_area(10000);
  pfm_signal(SIGUSR1, ks_test::raise_number);
  ks_test::signal_in_call("malloc", 0, SIGUSR1);  // of the text, before anything is read
  const ks_test::Landing landing = ks_test::land([&] {
    int truncated;
    strutl_read_fp(area, 0, stream, 0, &truncated);
  });
  EXPECT_EQ(landing.status, SIGUSR1);
  EXPECT_NE(feof(stream), 0) << "the fault came when all had been read";
  fclose(stream);
  stg_delete_area(&area);
}

// A timer whose signals have a routine that returns, while it is there.
class Ticking {
 public:
  Ticking() {
    ks_test::set_system_handler(SIGALRM, [](int) { ++ticks; });
    set(1000);
  }
  ~Ticking() { set(0); }
  Ticking(const Ticking &) = delete;
  Ticking &operator=(const Ticking &) = delete;

  static inline int ticks = 0;

 private:
  static void set(suseconds_t microseconds) {
    const itimerval every = {{0, microseconds}, {0, microseconds}};
    setitimer(ITIMER_REAL, &every, nullptr);
  }
};

// A child that does something slowly to the other end of a pipe or FIFO.
void pause_a_moment() {
  const timespec moment = {0, 10000000};
  nanosleep(&moment, nullptr);
}

TEST(StrutlFile, SignalsWhoseRoutineReturnsCostNothing) {
  const Folder folder;
  const std::string contents(100000, 'x');
  const std::string path = folder.write("file", contents);
  fail_call("read", 0, EINTR, 3);
  EXPECT_EQ(read(path), contents);
  fail_call("read", 1, EINTR, 3);
  EXPECT_EQ(read(path), contents);
  fail_call("open64", 0, EINTR, 3);
  EXPECT_EQ(read(path), contents);
  fail_call("write", 0, EINTR, 3);
  EXPECT_EQ(strutl_write("text", path.c_str(), 0, 0), 0);
  EXPECT_EQ(folder.read("file"), "text");
  fail_call("close", 0, EINTR);
  EXPECT_EQ(strutl_write("more", path.c_str(), 0, 0), 0);
  EXPECT_EQ(folder.read("file"), "more");
}

TEST(StrutlFile, FailedReadWriteOrCloseIsTold) {
  const Folder folder;
  const std::string path = folder.write("file", "text");
  const ptrdiff_t descriptors = open_descriptors();
  EXPECT_EQ(printed_by([&] {
              fail_call("read", 1, EIO);
              EXPECT_EQ(read(path), "NULL");
            }),
            error_line("Operation read: Input/output error"));
  for (const char *call : {"write", "close"}) {
    EXPECT_EQ(printed_by([&] {
                fail_call(call, 0, EDQUOT);
                EXPECT_EQ(strutl_write("text", path.c_str(), 0, 0), 1);
                EXPECT_EQ(errno, EDQUOT);
              }),
              error_line("Operation write, " + path + ": Disk quota exceeded"));
  }
  EXPECT_EQ(open_descriptors(), descriptors);
}

TEST(StrutlReadFp, SignalsDuringASlowPipeCostNothing) {
  int ends[2];
  ASSERT_EQ(pipe(ends), 0);
  std::string contents;
  for (int i = 0; i < 5; ++i) contents += std::string(5000, static_cast<char>('a' + i));
  ks_test::Child writer([&] {
    close(ends[0]);
    for (size_t at = 0; at < contents.size(); at += 5000) {
      pause_a_moment();
      if (write(ends[1], contents.data() + at, 5000) != 5000) _exit(1);
    }
  });
  close(ends[1]);
  FILE *stream = fdopen(ends[0], "r");
  int truncated = 7;
  std::string text;
  {
    const Ticking ticking;
    text = take(strutl_read_fp(STG_AREA_HEAP, 0, stream, 0, &truncated));
  }
  EXPECT_EQ(text, contents);
  EXPECT_EQ(truncated, 0);
  EXPECT_GE(Ticking::ticks, 5);
  fclose(stream);
  EXPECT_EQ(writer.finish().end(), "exit 0");
}

TEST(StrutlRead, WaitsForTheFirstWriterOfAFifo) {
  const Folder folder;
  const std::string path = folder.path("fifo");
  ASSERT_EQ(mkfifo(path.c_str(), 0666), 0);
  ks_test::Child writer([&] {
    pause_a_moment();
    const int fd = open(path.c_str(), O_WRONLY);
    pause_a_moment();
    _exit(fd >= 0 && write(fd, "1", 1) == 1 ? 0 : 1);
  });
  EXPECT_EQ(printed_by([&] {
              const Ticking ticking;
              EXPECT_EQ(read(path), "NULL");
            }),
            error_line("File \"" + path + "\" changed size during read."))
      << "what has no size and a byte has grown";
  EXPECT_EQ(writer.finish().end(), "exit 0");
}

TEST(StrutlWrite, SlowReaderGetsAllThroughAFifoWhateverSignalsCome) {
  const Folder folder;
  const std::string path = folder.path("fifo");
  ASSERT_EQ(mkfifo(path.c_str(), 0666), 0);
  const std::string text(300000, 'x');
  ks_test::Child reader([&] {
    pause_a_moment();
    const int fd = open(path.c_str(), O_RDONLY);
    std::string got(100000, '\0');
    size_t bytes = 0;
    while (true) {
      pause_a_moment();
      const ssize_t count = ::read(fd, got.data(), got.size());
      if (count <= 0) break;
      bytes += static_cast<size_t>(count);
    }
    _exit(bytes == text.size() ? 0 : 1);
  });
  {
    const Ticking ticking;
    EXPECT_EQ(strutl_write(text.c_str(), path.c_str(), 0, 0), 0);
  }
  EXPECT_EQ(reader.finish().end(), "exit 0");
}

TEST(StrutlReadFp, SignalRightBeforeAWaitIsNotKeptByIt) {
  int ends[2];
  ASSERT_EQ(pipe(ends), 0);
  FILE *stream = fdopen(ends[0], "r");
  ks_test::default_signals();
  pfm_signal(SIGUSR1, ks_test::raise_number);
  ks_test::signal_in_call("malloc", 0, SIGUSR1);  // of the text, with signals held
  alarm(20);                                      // no input will come to end the wait
  int truncated;
  const ks_test::Landing landing =
      ks_test::land([&] { strutl_read_fp(STG_AREA_HEAP, 0, stream, 0, &truncated); });
  alarm(0);
  EXPECT_EQ(landing.status, SIGUSR1);
  fclose(stream);
  close(ends[1]);
}

// A wait that no end is in sight of: for input, for a writer, for a reader, for room.
TEST(StrutlFile, WaitIsLeftByAFaultAndNothingIsLeftBehind) {
  const Folder folder;
  const std::string path = folder.path("fifo"), full = folder.path("full");
  ASSERT_EQ(mkfifo(path.c_str(), 0666), 0);
  ASSERT_EQ(mkfifo(full.c_str(), 0666), 0);
  const int full_reader = open(full.c_str(), O_RDONLY | O_NONBLOCK);
  int ends[2];
  ASSERT_EQ(pipe(ends), 0);
  ASSERT_EQ(write(ends[1], "part", 4), 4);
  static FILE *stream;
  stream = fdopen(ends[0], "r");
  static std::string text(100000, 'x');
  ks_test::default_signals();
  // A signal that comes right before an open that waits is seen with the next one only.
  static volatile sig_atomic_t waiting;
  pfm_signal(SIGALRM, [](int sig) {
    if (waiting == 0) return;
    waiting = 0;
    pfm_raise(sig);
  });
  const itimerval every = {{0, 30000}, {0, 30000}};
  setitimer(ITIMER_REAL, &every, nullptr);
  const ptrdiff_t descriptors = open_descriptors();
  const int blocks = count_calls("malloc") - count_calls("free");
  const auto leaves = [&](auto &&wait) {
    const int status = ks_test::land([&] {
                         waiting = 1;
                         wait();
                       }).status;
    EXPECT_EQ(status, SIGALRM);
    EXPECT_EQ(open_descriptors(), descriptors);
    EXPECT_EQ(count_calls("malloc") - count_calls("free"), blocks);
  };
  int truncated;
  leaves([&] { strutl_read_fp(STG_AREA_HEAP, 0, stream, 0, &truncated); });
  leaves([&] { strutl_read(STG_AREA_HEAP, path.c_str(), 0, 0, 0); });
  leaves([&] { strutl_write("text", path.c_str(), 0, 0); });
  leaves([&] { strutl_write(text.c_str(), full.c_str(), 0, 0); });
  const itimerval never = {};
  setitimer(ITIMER_REAL, &never, nullptr);
  bool free = false;
  std::thread([&] {  // the lock lets its own thread in at any time
    free = ftrylockfile(stream) == 0;
    if (free) funlockfile(stream);
  })
      .join();
  EXPECT_TRUE(free);
  fclose(stream);
  close(ends[1]);
  close(full_reader);
}

// Signals come at any moment, and each raises; what was open is closed each time.
TEST(StrutlFile, StormOfSignalsLeavesNoStreamOpen) {
  const Folder folder;
  const std::string source = folder.write("source", std::string(20000, 'x'));
  const std::string target = folder.path("target");
  const ptrdiff_t descriptors = open_descriptors();
  stg_area_t area = stg_create_area(100000);
  pfm_signal(SIGALRM, ks_test::raise_number);
  int raised = 0;
  ks_test::Random random(20261121);
  for (int turn = 0; turn < 500; ++turn) {
    const suseconds_t microseconds = 1 + static_cast<suseconds_t>(random() / 16 % 500);
    const ks_test::Landing landing = ks_test::land([&] {
      const itimerval alarm = {{0, 0}, {0, microseconds}};
      setitimer(ITIMER_REAL, &alarm, nullptr);
      while (true) {
        strutl_write("text", target.c_str(), 0, 1);
        strutl_read(area, source.c_str(), 0, 1, 0);
      }
    });
    raised += landing.status == SIGALRM;
    stg_free_area(area, 1);
  }
  EXPECT_EQ(raised, 500);
  EXPECT_EQ(open_descriptors(), descriptors);
  stg_delete_area(&area);
}

}  // namespace

// Output past stdio: all of it, once, in order, whatever signals come.
#include "msg/ks_stream.h"

#include <fcntl.h>
#include <gtest/gtest.h>
#include <poll.h>
#include <sys/mman.h>
#include <sys/socket.h>
#include <sys/time.h>
#include <unistd.h>

#include <cerrno>
#include <csignal>
#include <cstdio>
#include <cstdlib>
#include <cstring>
#include <cwchar>
#include <string>
#include <string_view>

#include "imsg.h"
#include "pfm.h"
#include "support/child.h"
#include "support/landing.h"
#include "support/signals.h"
#include "support/stepping.h"

using ks::write_to_stream;
using ks_test::Child;
using ks_test::in_child;
using ks_test::kStepBegin;
using ks_test::kStepEnd;
using ks_test::land;
using ks_test::Outcome;
using ks_test::send_signal;

namespace {

bool write_text(FILE *stream, std::string_view text) {
  return write_to_stream(stream, text.data(), text.size());
}

// A stream to one end, and what has arrived at the other: of a pipe all, of datagrams one write.
class Wire {
 public:
  enum Kind { kPipe, kDatagrams };

  explicit Wire(Kind kind = kPipe, int mode = _IOFBF) {
    int ends[2];
    const int made = kind == kPipe ? pipe(ends) : socketpair(AF_UNIX, SOCK_DGRAM, 0, ends);
    if (made != 0) _exit(100);
    reading_ = ends[0];
    stream_ = fdopen(ends[1], "w");
    setvbuf(stream_, nullptr, mode, BUFSIZ);
    fcntl(reading_, F_SETFL, O_NONBLOCK);
  }
  ~Wire() {
    fclose(stream_);
    close(reading_);
  }
  Wire(const Wire &) = delete;
  Wire &operator=(const Wire &) = delete;

  FILE *stream() const { return stream_; }
  int fd() const { return fileno(stream_); }

  std::string arrived() const {
    char bytes[70000];
    const ssize_t size = read(reading_, bytes, sizeof bytes);
    return size < 0 ? "" : std::string(bytes, static_cast<size_t>(size));
  }

  // Fills the pipe to its brim and lets nobody wait for it.
  void fill() const {
    fcntl(fd(), F_SETPIPE_SZ, 4096);
    fcntl(fd(), F_SETFL, O_NONBLOCK);
    const std::string page(4096, '.');
    while (write(fd(), page.data(), page.size()) > 0) {
    }
  }
  void let_wait() const { fcntl(fd(), F_SETFL, 0); }

 private:
  int reading_;
  FILE *stream_;
};

TEST(WriteToStream, GoesOutBehindWhatTheStreamHoldsAndInTheSameWrite) {
  for (int mode : {_IOFBF, _IOLBF}) {
    const Wire wire(Wire::kDatagrams, mode);
    fputs("held ", wire.stream());
    EXPECT_TRUE(write_text(wire.stream(), "text\n"));
    EXPECT_EQ(wire.arrived(), "held text\n");
    EXPECT_EQ(wire.arrived(), "");
    fputs("more", wire.stream());
    fflush(wire.stream());
    EXPECT_EQ(wire.arrived(), "more");
  }
}

TEST(WriteToStream, ATextThatDoesNotFitBesideWhatIsHeldIsASecondWrite) {
  const Wire wire(Wire::kDatagrams);
  const std::string text(2 * BUFSIZ, 'x');
  fputs("held", wire.stream());
  EXPECT_TRUE(write_text(wire.stream(), text));
  EXPECT_EQ(wire.arrived(), "held");
  EXPECT_TRUE(wire.arrived() == text);
}

TEST(WriteToStream, ANothingWritesWhatIsHeldAndElseNothing) {
  const Wire wire(Wire::kDatagrams);
  fputs("held", wire.stream());
  EXPECT_TRUE(write_text(wire.stream(), ""));
  EXPECT_EQ(wire.arrived(), "held");
  EXPECT_TRUE(write_text(wire.stream(), ""));
  EXPECT_EQ(recv(wire.fd(), nullptr, 0, MSG_DONTWAIT), -1);
}

TEST(WriteToStream, StdioGoesOnWhereTheTextEnds) {
  FILE *file = tmpfile();
  ASSERT_NE(file, nullptr);
  fputs("one ", file);
  fseek(file, 0, SEEK_END);  // from now on stdio remembers the position
  EXPECT_TRUE(write_text(file, "two "));
  fseek(file, 0, SEEK_CUR);
  fputs("three ", file);
  EXPECT_EQ(ftell(file), 14);
  EXPECT_TRUE(write_text(file, "four"));
  rewind(file);
  char line[32] = "";
  fgets(line, sizeof line, file);
  EXPECT_STREQ(line, "one two three four");
  fclose(file);
}

// The descriptor of such a stream is ahead of its reader.
TEST(WriteToStream, AStreamThatWasReadFromIsWrittenWhereTheReaderIs) {
  FILE *file = tmpfile();
  ASSERT_NE(file, nullptr);
  fputs("0123456789", file);
  rewind(file);
  EXPECT_EQ(fgetc(file), '0');
  fseek(file, 0, SEEK_CUR);
  EXPECT_TRUE(write_text(file, "ab"));
  fseek(file, 0, SEEK_CUR);
  EXPECT_EQ(fgetc(file), '3');
  fseek(file, 0, SEEK_CUR);
  fputs("c", file);
  EXPECT_TRUE(write_text(file, "d"));
  rewind(file);
  char line[32] = "";
  fgets(line, sizeof line, file);
  EXPECT_STREQ(line, "0ab3cd6789");
  fclose(file);
}

TEST(WriteToStream, ThePlaceInAFileIsKnownBehindIt) {
  const int fd = memfd_create("file", MFD_CLOEXEC);
  FILE *stream = fdopen(fd, "w");
  fputs("abcdefgh", stream);
  fseek(stream, 1, SEEK_SET);
  EXPECT_TRUE(write_text(stream, "12"));
  EXPECT_EQ(ftell(stream), 3);
  fputs("3", stream);
  EXPECT_TRUE(write_text(stream, "4"));
  EXPECT_EQ(ftell(stream), 5);
  char text[16] = "";
  EXPECT_EQ(pread(fd, text, sizeof text, 0), 8);
  EXPECT_STREQ(text, "a1234fgh");
  fclose(stream);
}

TEST(WriteToStream, AppendsToWhatOthersHaveAppended) {
  char path[] = "/tmp/ks_stream_XXXXXX";
  const int other = mkstemp(path);
  ASSERT_GE(other, 0);
  FILE *file = fopen(path, "a");
  EXPECT_TRUE(write_text(file, "one "));
  lseek(other, 0, SEEK_END);
  EXPECT_EQ(write(other, "other ", 6), 6);
  fputs("two ", file);
  EXPECT_TRUE(write_text(file, "three"));
  EXPECT_EQ(ftell(file), 19);
  char text[32] = "";
  EXPECT_EQ(pread(other, text, sizeof text, 0), 19);
  EXPECT_STREQ(text, "one other two three");
  fclose(file);
  close(other);
  unlink(path);
}

TEST(WriteToStream, AStreamWithoutADescriptorGetsItFromStdio) {
  char *bytes = nullptr;
  size_t size = 0;
  FILE *memory = open_memstream(&bytes, &size);
  fputs("held ", memory);
  EXPECT_TRUE(write_text(memory, "text"));
  EXPECT_EQ(std::string_view(bytes, size), "held text");
  fclose(memory);
  free(bytes);

  char room[8] = "";
  FILE *small = fmemopen(room, sizeof room, "w");
  EXPECT_FALSE(write_text(small, std::string(100, 'x')));
  EXPECT_NE(ferror(small), 0);
  fclose(small);
}

TEST(WriteToStream, AStreamOfWideCharactersTakesNoBytes) {
  const Wire wire;
  fputws(L"wide", wire.stream());
  EXPECT_FALSE(write_text(wire.stream(), "text"));
  fflush(wire.stream());
  EXPECT_EQ(wire.arrived(), "wide");
}

TEST(WriteToStream, AStreamForReadingTakesNoBytes) {
  FILE *stream = fdopen(dup(STDOUT_FILENO), "r");
  if (stream == nullptr) stream = fopen("/dev/null", "r");
  EXPECT_FALSE(write_text(stream, "This line must not be seen.\n"));
  EXPECT_NE(ferror(stream), 0);
  fclose(stream);
}

// Failures.

TEST(WriteToStream, AFullDiskIsToldByResultAndIndicator) {
  for (int mode : {_IOFBF, _IOLBF, _IONBF}) {
    FILE *full = fopen("/dev/full", "w");
    ASSERT_NE(full, nullptr);
    setvbuf(full, nullptr, mode, BUFSIZ);
    errno = 0;
    EXPECT_FALSE(write_text(full, "text\n"));
    EXPECT_EQ(errno, ENOSPC);
    EXPECT_NE(ferror(full), 0);
    fclose(full);
  }
}

TEST(WriteToStream, WhatTheStreamHeldStaysWhenItCannotBeWritten) {
  const Wire wire;
  fputs("held ", wire.stream());
  const int out = dup(wire.fd());
  const int full = open("/dev/full", O_WRONLY | O_CLOEXEC);
  dup2(full, wire.fd());
  EXPECT_FALSE(write_text(wire.stream(), "lost"));
  dup2(out, wire.fd());
  EXPECT_TRUE(write_text(wire.stream(), "next"));
  EXPECT_NE(ferror(wire.stream()), 0) << "of the text before";
  EXPECT_EQ(wire.arrived(), "held next");
  close(out);
  close(full);
}

TEST(WriteToStream, TheRestOfWhatTheStreamHeldStaysWhenAPartIsOut) {
  static char buffer[16384];
  const Wire wire;
  setvbuf(wire.stream(), buffer, _IOFBF, sizeof buffer);
  std::string held(10000, ' ');
  for (size_t at = 0; at < held.size(); ++at) held[at] = static_cast<char>('!' + at / 7 % 90);
  wire.fill();
  wire.arrived();
  fputs(held.c_str(), wire.stream());
  EXPECT_FALSE(write_text(wire.stream(), "lost"));
  std::string arrived = wire.arrived();
  EXPECT_EQ(arrived.size(), 4096u);
  EXPECT_FALSE(write_text(wire.stream(), "lost"));
  arrived += wire.arrived();
  EXPECT_TRUE(write_text(wire.stream(), "next"));
  arrived += wire.arrived();
  EXPECT_TRUE(arrived == held + "next");
}

TEST(WriteToStream, AFullPipeThatDoesNotWaitIsAFailure) {
  const Wire wire;
  fputs("held ", wire.stream());
  wire.fill();
  EXPECT_FALSE(write_text(wire.stream(), "lost"));
  EXPECT_EQ(errno, EAGAIN);
  EXPECT_NE(ferror(wire.stream()), 0);
  wire.arrived();
  EXPECT_TRUE(write_text(wire.stream(), "next"));
  EXPECT_EQ(wire.arrived(), "held next");
}

// Signals.

// Shared with the child: the signals that it got.
volatile int *signals_seen() {
  static volatile int *const count = static_cast<int *>(
      mmap(nullptr, sizeof(int), PROT_READ | PROT_WRITE, MAP_SHARED | MAP_ANONYMOUS, -1, 0));
  return count;
}

void count_signal(int) { *signals_seen() = *signals_seen() + 1; }

// The reader takes a part only when signals have come since the last one, so the pipe is full and
// the writer waits in it while they come.
TEST(WriteToStream, SixMegabytesArriveThroughAFullPipeUnderSignals) {
  std::string text(6 * 1024 * 1024, ' ');
  for (size_t at = 0; at < text.size(); ++at) text[at] = static_cast<char>('!' + at / 7 % 90);
  int ends[2];
  ASSERT_EQ(pipe(ends), 0);
  signals_seen();
  Child child([&] {
    close(ends[0]);
    FILE *stream = fdopen(ends[1], "w");
    fputs("held", stream);
    pfm_signal(SIGALRM, count_signal);
    const itimerval period = {{0, 200}, {0, 200}};
    setitimer(ITIMER_REAL, &period, nullptr);
    const int result = imsg_fputs(text.c_str(), stream);
    _exit(result == 0 && ferror(stream) == 0 ? 0 : 1);
  });
  close(ends[1]);
  std::string arrived;
  static char part[65536];
  for (ssize_t size = 1; size > 0;) {
    pollfd end = {ends[0], 0, 0};  // tells of the writer's end alone
    for (const int before = *signals_seen(); *signals_seen() < before + 2;) {
      if (poll(&end, 1, 0) != 0) break;
      usleep(50);
    }
    size = read(ends[0], part, sizeof part);
    if (size > 0) arrived.append(part, static_cast<size_t>(size));
  }
  EXPECT_EQ(child.finish().end(), "exit 0");
  EXPECT_EQ(arrived.size(), text.size() + 4);
  EXPECT_TRUE(arrived == "held" + text);
  EXPECT_GT(*signals_seen(), 100);
  close(ends[0]);
}

TEST(WriteToStream, ARoutineThatRaisesLeavesAWriteThatWaits) {
  const Outcome outcome = in_child([] {
    pfm_signal(SIGALRM, ks_test::raise_number);
    const Wire wire;
    fputs("held ", wire.stream());
    wire.fill();
    wire.let_wait();
    const itimerval once = {{}, {0, 20000}};
    setitimer(ITIMER_REAL, &once, nullptr);
    if (land([&] { imsg_fputs("lost", wire.stream()); }).status != SIGALRM) _exit(1);
    wire.arrived();
    if (imsg_fputs("next", wire.stream()) != 0) _exit(2);
    if (wire.arrived() != "held next") _exit(3);
  });
  EXPECT_EQ(outcome.end(), "exit 0");
}

// A fault cuts the text at most; what stdio held comes out, and comes out once.
void fault_round(const Wire &wire) {
  fputs("held ", wire.stream());
  land([&] {
    send_signal(kStepBegin);
    write_text(wire.stream(), "text ");
    send_signal(kStepEnd);
  });
  if (!write_text(wire.stream(), "next")) _exit(1);
  const std::string arrived = wire.arrived();
  if (arrived == "held text next" || arrived == "held next") return;
  dprintf(STDOUT_FILENO, "%s", arrived.c_str());
  _exit(2);
}

TEST(WriteToStream, AFaultAtAnyInstructionLosesAndDoublesNothingThatWasHeld) {
  const ks_test::Steps steps = ks_test::step_through(
      [] {
        pfm_signal(SIGUSR1, ks_test::raise_number);
        const Wire wire;
        fault_round(wire);  // binds what the stretch calls
        ks_test::be_traced();
        for (;;) fault_round(wire);
      },
      SIGUSR1);
  EXPECT_EQ(steps.out, "") << "at place " << steps.done;
  EXPECT_GT(steps.places, 50u);
  EXPECT_EQ(steps.done, steps.places) << steps.end;
}

}  // namespace

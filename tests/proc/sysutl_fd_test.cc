// Descriptors: their flags, their limit, pipes, and what was written getting to the disk.
#include <fcntl.h>
#include <gtest/gtest.h>
#include <sys/resource.h>
#include <unistd.h>

#include <cerrno>
#include <climits>
#include <csignal>
#include <cstdio>
#include <cstring>
#include <vector>

#include "pfm.h"
#include "support/child.h"
#include "support/faults.h"
#include "support/folder.h"
#include "support/landing.h"
#include "support/own_system.h"
#include "support/random.h"
#include "support/signals.h"
#include "sysutl.h"

using ks_test::count_calls;
using ks_test::count_descriptors;
using ks_test::expect_in_child;
using ks_test::fail_call;
using ks_test::must;

namespace {

bool closes_on_exec(int fd) { return (fcntl(fd, F_GETFD) & FD_CLOEXEC) != 0; }

// The hard limit can only be lowered.
void limit_descriptors(rlim_t soft, rlim_t hard) {
  const rlimit limit = {soft, hard};
  must(setrlimit(RLIMIT_NOFILE, &limit) == 0, "setrlimit");
}

rlimit descriptor_limit() {
  rlimit limit = {};
  getrlimit(RLIMIT_NOFILE, &limit);
  return limit;
}

class Pipe {
 public:
  Pipe() { EXPECT_EQ(pipe(ends_), 0); }
  ~Pipe() {
    close(ends_[0]);
    close(ends_[1]);
  }
  int read_end() const { return ends_[0]; }
  int write_end() const { return ends_[1]; }

 private:
  int ends_[2];
};

TEST(SysutlFsync, WritesAFileToTheDisk) {
  ks_test::Folder folder;
  const int fd = open(folder.write("file", "text").c_str(), O_WRONLY);
  EXPECT_EQ(sysutl_fsync(fd), 0);
  EXPECT_EQ(count_calls("fsync"), 1);
  close(fd);
}

TEST(SysutlFsync, FailsAsFsyncDoes) {
  Pipe channel;
  EXPECT_EQ(sysutl_fsync(channel.write_end()), -1);
  EXPECT_EQ(errno, EINVAL);
}

TEST(SysutlFsyncFptr, EmptiesTheStreamsBufferFirst) {
  ks_test::Folder folder;
  FILE *stream = fopen(folder.path("file").c_str(), "w");
  fputs("text", stream);
  EXPECT_EQ(folder.read("file"), "");
  EXPECT_EQ(sysutl_fsync_fptr(stream), 0);
  EXPECT_EQ(folder.read("file"), "text");
  EXPECT_EQ(count_calls("fsync"), 1);
  fclose(stream);
}

TEST(SysutlFsyncFptr, AFailureToEmptyTheBufferIsTheResult) {
  FILE *stream = fopen("/dev/full", "w");
  fputs("text", stream);
  EXPECT_EQ(sysutl_fsync_fptr(stream), EOF);
  EXPECT_EQ(errno, ENOSPC);
  EXPECT_EQ(count_calls("fsync"), 0);
  fclose(stream);
}

TEST(SysutlFsyncFptr, FailsAsFsyncDoes) {
  ks_test::Folder folder;
  FILE *stream = fopen(folder.path("file").c_str(), "w");
  fail_call("fsync", 0, EIO);
  EXPECT_EQ(sysutl_fsync_fptr(stream), -1);
  EXPECT_EQ(errno, EIO);
  fclose(stream);
}

TEST(SysutlPipe, OneEndClosesOnExec) {
  for (int read_side : {0, 1, -1}) {
    int fds[2] = {-1, -1};
    EXPECT_EQ(sysutl_pipe(read_side, fds), 0);
    EXPECT_EQ(closes_on_exec(fds[0]), read_side != 0) << read_side;
    EXPECT_EQ(closes_on_exec(fds[1]), read_side == 0) << read_side;
    char byte = 0;
    EXPECT_EQ(write(fds[1], "x", 1), 1);
    EXPECT_EQ(read(fds[0], &byte, 1), 1);
    EXPECT_EQ(byte, 'x');
    EXPECT_EQ(sysutl_pipe_close(fds[0]), 0);
    EXPECT_EQ(sysutl_pipe_close(fds[1]), 0);
  }
}

TEST(SysutlPipe, WithoutDescriptorsThereIsNone) {
  const rlimit before = descriptor_limit();
  limit_descriptors(3, before.rlim_max);
  int fds[2] = {77, 78};
  errno = 0;
  EXPECT_EQ(sysutl_pipe(0, fds), 1);
  EXPECT_EQ(errno, EMFILE);
  EXPECT_EQ(fds[0], -1);
  EXPECT_EQ(fds[1], -1);
  limit_descriptors(before.rlim_cur, before.rlim_max);
}

TEST(SysutlPipe, IsClosedWhenItsFlagCannotBeSet) {
  const int descriptors = count_descriptors();
  for (int nth = 0; nth < 2; ++nth) {
    fail_call("fcntl64", nth, EIO);
    int fds[2] = {77, 78};
    EXPECT_EQ(sysutl_pipe(1, fds), 1) << nth;
    EXPECT_EQ(errno, EIO) << nth;
    EXPECT_EQ(fds[0], -1) << nth;
    EXPECT_EQ(fds[1], -1) << nth;
    EXPECT_EQ(count_descriptors(), descriptors) << nth;
  }
}

TEST(SysutlPipe, AFaultComesWhenBothEndsAreAsAskedFor) {
  ks_test::default_signals();
  pfm_signal(SIGUSR1, ks_test::raise_number);
  int fds[2] = {-1, -1};
  ks_test::signal_in_call("fcntl64", 0, SIGUSR1);
  EXPECT_EQ(ks_test::land([&] { sysutl_pipe(1, fds); }).status, SIGUSR1);
  EXPECT_EQ(fcntl(fds[0], F_GETFD), FD_CLOEXEC);
  EXPECT_EQ(fcntl(fds[1], F_GETFD), 0);
  close(fds[0]);
  close(fds[1]);
}

TEST(SysutlFd, SignalsCostNothing) {
  int fds[2];
  must(sysutl_pipe(0, fds) == 0, "sysutl_pipe");
  const int descriptors = count_descriptors();
  for (const int fd : fds) {
    fail_call("close", 0, EINTR);
    EXPECT_EQ(sysutl_pipe_close(fd), 0);
  }
  EXPECT_EQ(count_descriptors(), descriptors - 2);
  const ks_test::Folder folder;
  FILE *stream = fopen(folder.path("file").c_str(), "w");
  fputs("text", stream);
  fail_call("fsync", 0, EINTR, 2);
  EXPECT_EQ(sysutl_fsync_fptr(stream), 0);
  EXPECT_EQ(folder.read("file"), "text");
  fclose(stream);
}

TEST(SysutlPipeClose, AClosedOneFails) {
  errno = 0;
  EXPECT_EQ(sysutl_pipe_close(-1), 1);
  EXPECT_EQ(errno, EBADF);
}

TEST(SysutlSetCloexecFile, SetsAndClearsTheFlag) {
  Pipe channel;
  EXPECT_EQ(sysutl_set_cloexec_file(channel.read_end(), 7), 0);
  EXPECT_TRUE(closes_on_exec(channel.read_end()));
  EXPECT_EQ(sysutl_set_cloexec_file(channel.read_end(), 1), 0);
  EXPECT_TRUE(closes_on_exec(channel.read_end()));
  EXPECT_EQ(sysutl_set_cloexec_file(channel.read_end(), 0), 0);
  EXPECT_FALSE(closes_on_exec(channel.read_end()));
  EXPECT_FALSE(closes_on_exec(channel.write_end()));
}

TEST(SysutlSetSocketNonblocking, SetsAndClearsTheFlagAndLeavesTheOthers) {
  Pipe channel;
  const int fd = channel.write_end();
  EXPECT_EQ(fcntl(fd, F_SETFL, O_APPEND), 0);
  EXPECT_EQ(sysutl_set_socket_nonblocking(fd, 1), 0);
  EXPECT_EQ(fcntl(fd, F_GETFL) & (O_APPEND | O_NONBLOCK), O_APPEND | O_NONBLOCK);
  EXPECT_EQ(sysutl_set_socket_nonblocking(fd, 0), 0);
  EXPECT_EQ(fcntl(fd, F_GETFL) & (O_APPEND | O_NONBLOCK), O_APPEND);
}

TEST(SysutlFlags, ReadingOrWritingThemMayFail) {
  Pipe channel;
  for (auto *call : {sysutl_set_cloexec_file, sysutl_set_socket_nonblocking}) {
    for (int nth = 0; nth < 2; ++nth) {
      fail_call("fcntl64", nth, EIO);
      errno = 0;
      EXPECT_EQ(call(channel.read_end(), 1), 1) << nth;
      EXPECT_EQ(errno, EIO) << nth;
    }
    EXPECT_EQ(call(-1, 1), 1);
    EXPECT_EQ(errno, EBADF);
  }
}

// The count bit by bit, of whole words of 32.
int count_bits(const std::vector<uint32_t> &words) {
  int count = 0;
  for (uint32_t word : words) {
    for (; word != 0; word >>= 1) count += static_cast<int>(word & 1);
  }
  return count;
}

// The set is in a block of exactly the words that hold `nbits`.
int popcount(const std::vector<uint32_t> &words, int nbits) {
  return sysutl_fd_set_popcount(reinterpret_cast<const fd_set *>(words.data()), nbits);
}

TEST(SysutlFdSetPopcount, CountsTheDescriptorsOfASet) {
  fd_set set;
  FD_ZERO(&set);
  for (int fd : {0, 31, 32, 63, 64, 1023}) FD_SET(fd, &set);
  EXPECT_EQ(sysutl_fd_set_popcount(&set, 1024), 6);
  EXPECT_EQ(sysutl_fd_set_popcount(&set, 0), 0);
  EXPECT_EQ(sysutl_fd_set_popcount(&set, -1), 0);
  EXPECT_EQ(sysutl_fd_set_popcount(&set, INT_MIN), 0);
}

TEST(SysutlFdSetPopcount, KeepsCountingWholeWords) {
  const std::vector<uint32_t> words = {0x80000001, 0xFFFFFFFF, 0x00010000};
  const struct {
    int nbits;
    int count;
  } kRows[] = {{1, 2}, {31, 2}, {32, 2}, {33, 34}, {64, 34}, {65, 35}, {96, 35}};
  for (const auto &row : kRows) EXPECT_EQ(popcount(words, row.nbits), row.count) << row.nbits;
}

TEST(SysutlFdSetPopcount, AgreesWithCountingBitByBit) {
  constexpr uint32_t kSeed = 20;
  SCOPED_TRACE(kSeed);
  ks_test::Random random(kSeed);
  for (size_t words = 0; words <= 33; ++words) {
    std::vector<uint32_t> set(words);
    for (uint32_t &word : set) word = random() ^ (random() << 16);
    EXPECT_EQ(popcount(set, static_cast<int>(words * 32)), count_bits(set)) << words;
  }
}

TEST(SysutlGetMaxFds, TheSoftLimitBecomes1024OrTheHardLimit) {
  const rlim_t most = descriptor_limit().rlim_max;
  const struct {
    rlim_t soft;
    rlim_t hard;
    rlim_t then;
  } kRows[] = {
      {512, 512, 512},    {512, 900, 900},    {512, 4096, 1024},  {1024, 1024, 1024},
      {1024, 4096, 1024}, {4096, 4096, 1024}, {most, most, 1024}, {1023, 1025, 1024},
  };
  for (const auto &row : kRows) {
    expect_in_child([&row] {
      limit_descriptors(row.soft, row.hard);
      EXPECT_EQ(sysutl_get_max_fds(), static_cast<int>(row.then)) << row.soft;
      EXPECT_EQ(descriptor_limit().rlim_cur, row.then) << row.soft;
      EXPECT_EQ(descriptor_limit().rlim_max, row.hard) << row.soft;
      int limit = 0;
      EXPECT_EQ(sysutl_get_proc_fds(&limit), static_cast<int>(row.soft));
      EXPECT_EQ(limit, static_cast<int>(row.soft));
    });
  }
}

TEST(SysutlGetMaxFds, WhatTheProcessStartedWithStaysKnown) {
  expect_in_child([] {
    limit_descriptors(2048, 4096);
    EXPECT_EQ(sysutl_get_max_fds(), 1024);
    EXPECT_EQ(sysutl_get_max_fds(), 1024);
    int limit = 0;
    EXPECT_EQ(sysutl_get_proc_fds(&limit), 2048);
  });
}

TEST(SysutlGetMaxFds, ALimitThatTheProgramChangesIsFoundAnew) {
  expect_in_child([] {
    limit_descriptors(2048, 4096);
    EXPECT_EQ(sysutl_get_max_fds(), 1024);
    limit_descriptors(300, 700);
    EXPECT_EQ(sysutl_get_max_fds(), 700);
    int limit = 0;
    EXPECT_EQ(sysutl_get_proc_fds(&limit), 300);
  });
}

TEST(SysutlGetMaxFds, AnUnlimitedProcessStartsWithAllThatFitsAnInt) {
  ks_test::lift_descriptor_limit();
  sysutl_get_max_fds();
  int limit = 0;
  EXPECT_EQ(sysutl_get_proc_fds(&limit), INT_MAX);
}

TEST(SysutlGetMaxFds, ALimitThatCannotBeReadStays) {
  expect_in_child([] {
    limit_descriptors(600, 700);
    fail_call("getrlimit64", 0, EINVAL);
    EXPECT_EQ(sysutl_get_max_fds(), 600);
    int limit = 77;
    EXPECT_EQ(sysutl_get_proc_fds(&limit), 0);
    EXPECT_EQ(limit, 0);
  });
}

}  // namespace

// The sweeps find what is wrong with rows that are known to be so, and nothing with one that is not.
#include <fcntl.h>
#include <gmock/gmock.h>
#include <gtest/gtest.h>
#include <unistd.h>

#include <cerrno>
#include <csignal>
#include <cstdio>
#include <cstdlib>
#include <cstring>

#include "pfm.h"
#include "sweep/failure_sweep.h"
#include "sweep/fault_sweep.h"
#include "sweep/options.h"
#include "sweep/row.h"

using ks_test::Options;
using ks_test::Result;
using ks_test::sweep_failures;
using ks_test::sweep_faults;
using ks_test::SweepRow;
using testing::HasSubstr;

namespace {

// What a sweep prints of a row, and whether it counts it as found.
std::string found(Result (&sweep)(const SweepRow &, const Options &), const SweepRow &row) {
  Options options;
  options.returns = 50;
  options.patience = 200;
  testing::internal::CaptureStdout();
  const Result result = sweep(row, options);
  fflush(stdout);
  const std::string text = testing::internal::GetCapturedStdout();
  EXPECT_EQ(result.findings != 0, !text.empty()) << text;
  EXPECT_GT(result.attempts, 0u);
  EXPECT_EQ(result.missed, 0u);
  return text;
}

char *block = nullptr;
volatile int spins = 0;

void spin() {
  for (spins = 0; spins < 10;) spins = spins + 1;
}

const char *has_block(bool done) {
  return done == (block != nullptr) ? nullptr : "the block is missing";
}

const char *nothing_to_check(bool) { return nullptr; }

void free_block() {
  pfm_inhibit();
  free(block);
  block = nullptr;
  pfm_enable();
}

bool allocate_held() {
  pfm_inhibit();
  block = static_cast<char *>(malloc(10));
  pfm_enable();
  return block != nullptr;
}

bool allocate_and_wait() {
  char *const made = static_cast<char *>(malloc(10));
  spin();
  block = made;
  return block != nullptr;
}

const SweepRow kSound = {"sound", "", nullptr, allocate_held, has_block, free_block};

TEST(FaultSweep, FindsNothingInASoundCall) { EXPECT_EQ(found(sweep_faults, kSound), ""); }

TEST(FaultSweep, FindsABlockThatNobodyOwnsYet) {
  const SweepRow row = {"leaks", "", nullptr, allocate_and_wait, has_block, free_block};
  EXPECT_THAT(found(sweep_faults, row), HasSubstr("left: 1 blocks of"));
}

FILE *stream = nullptr;

bool lock_stream() {
  flockfile(stream);
  spin();
  funlockfile(stream);
  return true;
}

TEST(FaultSweep, FindsALockOfLibcThatIsLeft) {
  const SweepRow row = {"locks",          "",     [] { stream = fopen("file", "w+"); }, lock_stream,
                        nothing_to_check, nullptr};
  EXPECT_THAT(found(sweep_faults, row), HasSubstr("taking the lock of each stream"));
}

bool ignore_for_a_while() {
  void (*const old)(int) = signal(SIGUSR1, SIG_IGN);
  spin();
  signal(SIGUSR1, old);
  return true;
}

TEST(FaultSweep, FindsAnActionThatIsNotGivenBack) {
  const SweepRow row = {"changes", "", nullptr, ignore_for_a_while, nothing_to_check, nullptr};
  EXPECT_THAT(found(sweep_faults, row), HasSubstr("left: ignored signal 10"));
}

int files_made = 0;

bool make_and_remove_file() {
  char name[32];
  snprintf(name, sizeof name, "temporary-%d", ++files_made);
  close(open(name, O_CREAT | O_WRONLY | O_CLOEXEC, 0600));
  return unlink(name) == 0;
}

TEST(FaultSweep, FindsFilesAndDescriptorsThatAreLeft) {
  const SweepRow row = {"litters", "", nullptr, make_and_remove_file, nothing_to_check, nullptr};
  const std::string text = found(sweep_faults, row);
  EXPECT_THAT(text, HasSubstr("left: file temporary"));
  EXPECT_THAT(text, HasSubstr("left: descriptor"));
}

bool swallow_fault() {
  pfm_cleanup_rec_t rec = {};
  const int status = PFM_CLEANUP_START(&rec, 0);
  if (status != 0) {
    pfm_enable();
    return true;
  }
  spin();
  pfm_cleanup_rls(&rec);
  return true;
}

TEST(FaultSweep, FindsAFaultThatIsSwallowed) {
  const SweepRow row = {"swallows", "", nullptr, swallow_fault, nothing_to_check, nullptr};
  EXPECT_THAT(found(sweep_faults, row), HasSubstr("the fault was swallowed"));
}

volatile bool busy = false;

bool wait_while_busy() {
  while (busy) usleep(1000);
  busy = true;
  spin();
  busy = false;
  return true;
}

TEST(FaultSweep, FindsACallThatHangsBehindAFault) {
  const SweepRow row = {"hangs", "", nullptr, wait_while_busy, nothing_to_check, nullptr};
  EXPECT_THAT(found(sweep_faults, row), HasSubstr("hangs in the untouched call behind it"));
}

bool believe_errno() {
  errno = 0;
  spin();
  return errno == 0;
}

TEST(FaultSweep, FindsACallThatAReturningRoutineMakesFail) {
  const SweepRow row = {"believes", "",    nullptr, believe_errno, nothing_to_check,   nullptr,
                        false,      false, false,   false,         [] { spins = 100; }};
  EXPECT_EQ(found(sweep_faults, row), "");  // the catcher keeps errno
  static volatile bool touched;
  static const auto be_touched = [] {
    touched = false;
    spin();
    return !touched;
  };
  const SweepRow other = {
      "is touched", "",    nullptr, [] { return be_touched(); }, nothing_to_check, nullptr, false,
      false,        false, false,   [] { touched = true; }};
  EXPECT_THAT(found(sweep_faults, other), HasSubstr("the call is not done"));
}

bool write_whole() {
  const int fd = open("file", O_CREAT | O_TRUNC | O_WRONLY | O_CLOEXEC, 0600);
  if (fd < 0) return errno == EINTR ? write_whole() : false;
  ssize_t count;
  do count = write(fd, "text", 4);
  while (count < 0 && errno == EINTR);
  const bool closed = close(fd) == 0 || errno == EINTR;
  return count == 4 && closed;
}

bool write_blindly() {
  const int fd = open("file", O_CREAT | O_TRUNC | O_WRONLY | O_CLOEXEC, 0600);
  if (write(fd, "text", 4) < 0 || close(fd) < 0) return true;
  return true;
}

const char *is_written(bool done) {
  char text[8] = {};
  const int fd = open("file", O_RDONLY | O_CLOEXEC);
  const ssize_t count = read(fd, text, sizeof text);
  close(fd);
  return done && (count != 4 || strcmp(text, "text") != 0) ? "the file is not whole" : nullptr;
}

void remove_file() { unlink("file"); }

TEST(FailureSweep, FindsNothingInASoundCall) {
  EXPECT_EQ(found(sweep_failures, kSound), "");
  const SweepRow row = {"writes", "", nullptr, write_whole, is_written, remove_file};
  EXPECT_EQ(found(sweep_failures, row), "");
}

TEST(FailureSweep, FindsAFailureThatIsSwallowed) {
  const SweepRow row = {"swallows", "", nullptr, write_blindly, is_written, remove_file};
  const std::string text = found(sweep_failures, row);
  EXPECT_THAT(
      text, HasSubstr("write, fails with ENOSPC\n    the call is done, but the file is not whole"));
  EXPECT_THAT(text, HasSubstr("openat, fails with EINTR (and 4 like it)"));
}

bool write_impatiently() {
  const int fd = open("file", O_CREAT | O_TRUNC | O_WRONLY | O_CLOEXEC, 0600);
  if (fd < 0) return false;
  const bool written = write(fd, "text", 4) == 4;
  return close(fd) == 0 && written;
}

TEST(FailureSweep, FindsACallThatASignalMakesFail) {
  const SweepRow row = {"gives up", "", nullptr, write_impatiently, is_written, remove_file};
  const std::string text = found(sweep_failures, row);
  EXPECT_THAT(text, HasSubstr("write, fails with EINTR\n    the call is not done"));
  EXPECT_THAT(text, testing::Not(HasSubstr("ENOSPC")));
}

char *other_block = nullptr;

bool allocate_two() {
  pfm_inhibit();
  char *const first = static_cast<char *>(malloc(10));
  char *const second = strdup("text");
  if (first != nullptr && second != nullptr) {
    block = first;
    other_block = second;
  }
  pfm_enable();
  return block != nullptr;
}

void free_two() {
  free_block();
  free(other_block);
  other_block = nullptr;
}

TEST(FailureSweep, FindsABlockThatIsLostWhereAnotherCannotBeHad) {
  const SweepRow row = {"loses", "", nullptr, allocate_two, has_block, free_two};
  const std::string text = found(sweep_failures, row);
  EXPECT_THAT(text, HasSubstr("allocation 1 fails"));
  EXPECT_THAT(text, HasSubstr("allocation 0 fails\n    left: 1 blocks of"));
}

}  // namespace

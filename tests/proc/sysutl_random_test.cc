// Random bytes from the system.
#include <fcntl.h>
#include <gmock/gmock.h>
#include <gtest/gtest.h>
#include <sys/stat.h>
#include <unistd.h>

#include <cerrno>
#include <csignal>
#include <cstdlib>
#include <memory>
#include <string>

#include "pfm.h"
#include "support/child.h"
#include "support/faults.h"
#include "support/landing.h"
#include "support/own_system.h"
#include "support/signals.h"
#include "sysutl.h"

using ks_test::count_calls;
using ks_test::fail_call;
using ks_test::in_own_system;
using ks_test::mount_empty;
using ks_test::must;
using ks_test::Outcome;
using ks_test::put_file;
using testing::EndsWith;

namespace {

constexpr const char *kDevice = "/dev/urandom";

void trace_all() {
  setenv("TRACE_VERBOSITY", "5", 1);
  setenv("TRACE_SUBSYS", "ks", 1);
}

// The bytes that come from the device, in a block of exactly that size, or what went wrong.
std::string random_bytes(uint32_t count) {
  const std::unique_ptr<char[]> block(new char[count]);
  const int result = sysutl_get_random_bytes(block.get(), count);
  return result == 0 ? std::string(block.get(), count) : "result " + std::to_string(result);
}

// Runs `body` where the device can be replaced, with traces on.
Outcome with_own_device(const std::function<void()> &body) {
  return in_own_system([&body] {
    trace_all();
    mount_empty("/dev");
    const int descriptors = ks_test::count_descriptors();
    body();
    EXPECT_EQ(ks_test::count_descriptors(), descriptors);
  });
}

TEST(SysutlGetRandomBytes, TwoOfThemDiffer) {
  const std::string first = random_bytes(32);
  EXPECT_EQ(first.size(), 32u);
  EXPECT_NE(first, random_bytes(32));
}

TEST(SysutlGetRandomBytes, ComeFromTheDevice) {
  const Outcome outcome = with_own_device([] {
    put_file(kDevice, "0123456789abcdef0123456789ABCDEFmore");
    EXPECT_EQ(random_bytes(32), "0123456789abcdef0123456789ABCDEF");
    EXPECT_EQ(random_bytes(1), "0");
  });
  EXPECT_EQ(outcome.err, "");
}

// A pipe in packet mode gives one packet at a time.
TEST(SysutlGetRandomBytes, MayComeInPieces) {
  with_own_device([] {
    int ends[2];
    must(pipe2(ends, O_DIRECT) == 0, "pipe2");
    must(write(ends[1], "0123456789abcdef0123", 20) == 20, "write");
    must(write(ends[1], "456789ABCDEF", 12) == 12, "write");
    must(symlink(("/proc/self/fd/" + std::to_string(ends[0])).c_str(), kDevice) == 0, "symlink");
    EXPECT_EQ(random_bytes(32), "0123456789abcdef0123456789ABCDEF");
    EXPECT_EQ(count_calls("read"), 2);
    close(ends[0]);
    close(ends[1]);
  });
}

TEST(SysutlGetRandomBytes, NoneNeedNoReading) {
  EXPECT_EQ(sysutl_get_random_bytes(nullptr, 0), 0);
  EXPECT_EQ(count_calls("read"), 0);
}

TEST(SysutlGetRandomBytes, MoreThan32AreRefusedWithoutOpeningTheDevice) {
  const Outcome outcome = with_own_device([] {
    EXPECT_EQ(random_bytes(33), "result 1");
    unsigned char byte;
    EXPECT_EQ(sysutl_get_random_bytes(&byte, UINT32_MAX), 1);
    EXPECT_EQ(count_calls("open64"), 0);
  });
  EXPECT_THAT(outcome.err,
              testing::MatchesRegex(
                  ">>> .{12} \\(noname\\): sysutl_get_random_bytes: nbytes=33 too big.\n"
                  ">>> .{12} \\(noname\\): sysutl_get_random_bytes: nbytes=-1 too big.\n"));
}

TEST(SysutlGetRandomBytes, AMissingDeviceIsAFailure) {
  const Outcome outcome = with_own_device([] { EXPECT_EQ(random_bytes(32), "result 1"); });
  EXPECT_THAT(outcome.err, EndsWith("): sysutl_get_random_bytes: open errno=2.\n"));
}

TEST(SysutlGetRandomBytes, AnUnreadableDeviceIsAFailure) {
  const Outcome outcome = with_own_device([] {
    must(mkdir(kDevice, 0755) == 0, "mkdir");
    EXPECT_EQ(random_bytes(32), "result 1");
  });
  EXPECT_THAT(outcome.err, EndsWith("): sysutl_get_random_bytes: read errno=21 bytes read=0 bytes "
                                    "req=32\n"));
}

TEST(SysutlGetRandomBytes, AReadThatFailsHalfwayIsAFailure) {
  const Outcome outcome = with_own_device([] {
    put_file(kDevice, "0123456789");
    fail_call("read", 1, EIO);
    EXPECT_EQ(random_bytes(31), "result 1");
  });
  EXPECT_THAT(outcome.err, EndsWith("): sysutl_get_random_bytes: read errno=5 bytes read=10 bytes "
                                    "req=31\n"));
}

TEST(SysutlGetRandomBytes, SignalsCostNothing) {
  const Outcome outcome = with_own_device([] {
    put_file(kDevice, "0123456789");
    fail_call("open64", 0, EINTR, 2);
    fail_call("read", 0, EINTR, 2);
    fail_call("close", 0, EINTR);
    EXPECT_EQ(random_bytes(10), "0123456789");
  });
  EXPECT_EQ(outcome.err, "");
}

// A line that blocks must not keep signals from their routines.
TEST(SysutlGetRandomBytes, TracesWithSignalsDeliverable) {
  with_own_device([] {
    static int held;
    held = -1;
    ks_test::set_system_handler(SIGUSR1, [](int) { held = pfm_inhibit_count(); });
    ks_test::signal_in_call("gettimeofday", 0, SIGUSR1);  // of the line's time
    EXPECT_EQ(random_bytes(32), "result 1");
    EXPECT_EQ(held, 0);
  });
}

TEST(SysutlGetRandomBytes, ADeviceThatEndsIsAFailure) {
  const Outcome outcome = with_own_device([] {
    put_file(kDevice, "0123456789");
    errno = EDOM;
    EXPECT_EQ(random_bytes(11), "result 1");
  });
  EXPECT_THAT(outcome.err, EndsWith("): sysutl_get_random_bytes: read errno=0 bytes read=10 bytes "
                                    "req=11\n"));
}

TEST(SysutlGetRandomBytes, AFailedCloseChangesNothing) {
  const Outcome outcome = with_own_device([] {
    put_file(kDevice, "0123456789");
    fail_call("close", 0, EIO);
    EXPECT_EQ(random_bytes(10), "0123456789");
  });
  EXPECT_THAT(outcome.err, EndsWith("): sysutl_get_random_bytes: close errno=5.\n"));
}

TEST(SysutlGetRandomBytes, AFaultLeavesNothingOpen) {
  with_own_device([] {
    ks_test::default_signals();
    pfm_signal(SIGUSR1, ks_test::raise_number);
    put_file(kDevice, "0123456789");
    ks_test::signal_in_call("read", 0, SIGUSR1);
    char byte = '?';
    const ks_test::Landing landing = ks_test::land([&] { sysutl_get_random_bytes(&byte, 1); });
    EXPECT_EQ(landing.status, SIGUSR1);
    EXPECT_EQ(byte, '0');
  });
}

TEST(SysutlGetRandomBytes, SaysNothingBelowLevel5OrForOtherModules) {
  for (const char *setting : {"TRACE_VERBOSITY=4", "TRACE_SUBSYS=other"}) {
    const Outcome outcome = with_own_device([setting] {
      putenv(const_cast<char *>(setting));
      EXPECT_EQ(random_bytes(33), "result 1");
    });
    EXPECT_EQ(outcome.err, "") << setting;
  }
}

}  // namespace

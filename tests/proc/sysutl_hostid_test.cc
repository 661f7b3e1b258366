// Bytes that tell this machine from others.
#include <arpa/inet.h>
#include <fcntl.h>
#include <gmock/gmock.h>
#include <gtest/gtest.h>
#include <linux/if_tun.h>
#include <net/if.h>
#include <net/if_arp.h>
#include <sys/ioctl.h>
#include <sys/resource.h>
#include <sys/socket.h>
#include <unistd.h>

#include <array>
#include <cerrno>
#include <csignal>
#include <cstdlib>
#include <cstring>
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
using ks_test::must;
using ks_test::Outcome;
using ks_test::put_file;
using testing::EndsWith;

namespace {

using Id = std::array<unsigned char, 6>;

constexpr Id kNothing = {0, 0, 0, 0, 0, 0};
constexpr Id kCard = {0x02, 0x11, 0x22, 0x33, 0x44, 0x55};
constexpr Id kOtherCard = {0x02, 0x66, 0x77, 0x88, 0x99, 0xAA};

// An answer and its result; the bytes are at first those of no machine.
struct Answer {
  int result;
  Id id;
  bool operator==(const Answer &) const = default;
};

void PrintTo(const Answer &answer, std::ostream *out) {
  *out << answer.result << " " << testing::PrintToString(answer.id);
}

Answer ask(int (*call)(unsigned char *)) {
  Answer answer = {77, {9, 9, 9, 9, 9, 9}};
  answer.result = call(answer.id.data());
  return answer;
}

ifreq request_for(const char *name) {
  ifreq request = {};
  strncpy(request.ifr_name, name, IFNAMSIZ - 1);
  return request;
}

void set_address(int fd, const char *name, const char *address) {
  ifreq request = request_for(name);
  auto *internet = reinterpret_cast<sockaddr_in *>(&request.ifr_addr);
  internet->sin_family = AF_INET;
  must(inet_pton(AF_INET, address, &internet->sin_addr) == 1, "address");
  must(ioctl(fd, SIOCSIFADDR, &request) == 0, "SIOCSIFADDR");
}

// With an address, "lo" is among the interfaces.
void raise_loopback() {
  const int fd = socket(AF_INET, SOCK_STREAM, 0);
  ifreq request = request_for("lo");
  request.ifr_flags = IFF_UP;
  must(ioctl(fd, SIOCSIFFLAGS, &request) == 0, "SIOCSIFFLAGS");
  close(fd);
}

// A card that lives as long as the process. One without a hardware address, of the kind `kind`,
// answers zeros when asked for it.
void add_interface(const char *name, const char *address, short kind) {
  const int device = open("/dev/net/tun", O_RDWR);
  must(device >= 0, "/dev/net/tun");
  ifreq request = request_for(name);
  request.ifr_flags = static_cast<short>(kind | IFF_NO_PI);
  must(ioctl(device, TUNSETIFF, &request) == 0, "TUNSETIFF");
  const int fd = socket(AF_INET, SOCK_STREAM, 0);
  set_address(fd, name, address);
  close(fd);
}

void add_card(const char *name, const char *address, const Id &id) {
  add_interface(name, address, IFF_TAP);
  const int fd = socket(AF_INET, SOCK_STREAM, 0);
  ifreq request = request_for(name);
  request.ifr_hwaddr.sa_family = ARPHRD_ETHER;
  memcpy(request.ifr_hwaddr.sa_data, id.data(), id.size());
  must(ioctl(fd, SIOCSIFHWADDR, &request) == 0, "SIOCSIFHWADDR");
  close(fd);
}

// Checks that the call fails for the reason `why`, says so once, and says no more afterwards.
void expect_no_card(const std::function<void()> &prepare, const std::string &why) {
  const Outcome outcome = in_own_system([&prepare] {
    prepare();
    const int descriptors = ks_test::count_descriptors();
    EXPECT_EQ(ask(sysutl_my_ieee_hostid), (Answer{1, kNothing}));
    EXPECT_EQ(ks_test::count_descriptors(), descriptors);
    EXPECT_EQ(ask(sysutl_my_ieee_hostid), (Answer{1, kNothing}));
  });
  EXPECT_EQ(outcome.err, "noname: Error: Operation sysutl_my_ieee_hostid: " + why + "\n");
}

TEST(SysutlMyIeeeHostid, IsTheAddressOfTheFirstCard) {
  const Outcome outcome = in_own_system([] {
    raise_loopback();
    add_card("card0", "10.0.0.1", kCard);
    add_card("card1", "10.0.1.1", kOtherCard);
    const int descriptors = ks_test::count_descriptors();
    EXPECT_EQ(ask(sysutl_my_ieee_hostid), (Answer{0, kCard}));
    EXPECT_EQ(ks_test::count_descriptors(), descriptors);
  });
  EXPECT_EQ(outcome.err, "");
}

TEST(SysutlMyIeeeHostid, IsAskedForOnce) {
  in_own_system([] {
    add_card("card0", "10.0.0.1", kCard);
    EXPECT_EQ(ask(sysutl_my_ieee_hostid), (Answer{0, kCard}));
    const int requests = count_calls("ioctl");
    EXPECT_EQ(ask(sysutl_my_ieee_hostid), (Answer{0, kCard}));
    EXPECT_EQ(count_calls("ioctl"), requests);
  });
}

TEST(SysutlMyIeeeHostid, OnlyTheNameLoIsPassedOver) {
  for (const char *name : {"lo0", "l", "loop"}) {
    in_own_system([name] {
      raise_loopback();
      add_card(name, "10.0.0.1", kCard);
      EXPECT_EQ(ask(sysutl_my_ieee_hostid), (Answer{0, kCard})) << name;
    });
  }
}

TEST(SysutlMyIeeeHostid, ACardThatFailsIsPassedOver) {
  const Outcome outcome = in_own_system([] {
    add_card("card0", "10.0.0.1", kCard);
    add_card("card1", "10.0.1.1", kOtherCard);
    fail_call("ioctl", 1, ENODEV);
    EXPECT_EQ(ask(sysutl_my_ieee_hostid), (Answer{0, kOtherCard}));
  });
  EXPECT_EQ(outcome.err, "");
}

TEST(SysutlMyIeeeHostid, WithoutACardThereIsNone) {
  expect_no_card([] {}, "No such device");
  expect_no_card(raise_loopback, "No such device");
}

TEST(SysutlMyIeeeHostid, ItsFailuresAreReportedOnce) {
  expect_no_card(
      [] {
        const rlimit none = {3, 3};
        must(setrlimit(RLIMIT_NOFILE, &none) == 0, "setrlimit");
      },
      "Too many open files");
  expect_no_card([] { fail_call("ioctl", 0, EIO); }, "Input/output error");
  expect_no_card(
      [] {
        add_card("card0", "10.0.0.1", kCard);
        fail_call("ioctl", 1, EIO);
      },
      "Input/output error");
}

TEST(SysutlMyIeeeHostid, AFaultLeavesNothingOpen) {
  in_own_system([] {
    ks_test::default_signals();
    pfm_signal(SIGUSR1, ks_test::raise_number);
    add_card("card0", "10.0.0.1", kCard);
    const int descriptors = ks_test::count_descriptors();
    ks_test::signal_in_call("ioctl", 0, SIGUSR1);
    const ks_test::Landing landing = ks_test::land([] { ask(sysutl_my_ieee_hostid); });
    EXPECT_EQ(landing.status, SIGUSR1);
    EXPECT_EQ(ks_test::count_descriptors(), descriptors);
    EXPECT_EQ(ask(sysutl_my_ieee_hostid), (Answer{0, kCard}));
  });
}

TEST(SysutlMyIeeeHostid, AnAddressOfZerosIsNone) {
  const Outcome outcome = in_own_system([] {
    setenv("TRACE_VERBOSITY", "5", 1);
    setenv("TRACE_SUBSYS", "ks", 1);
    add_interface("wire0", "10.0.0.1", IFF_TUN);
    add_card("card0", "10.0.1.1", kCard);
    EXPECT_EQ(ask(sysutl_my_ieee_hostid), (Answer{1, kNothing}));
    EXPECT_EQ(ask(sysutl_my_ieee_hostid), (Answer{1, kNothing}));
  });
  EXPECT_THAT(outcome.err,
              testing::MatchesRegex(">>> .{12} \\(noname\\): sysutl_my_ieee_hostid: MAC addr ioctl "
                                    "succeeded but returned 0.\n"));
}

// The number is the 4 bytes of a file, in the order of the machine.
void set_host_number(std::string_view bytes) { put_file("/etc/hostid", bytes); }

void call_this_machine(std::string_view name) {
  must(sethostname(name.data(), name.size()) == 0, "sethostname");
}

TEST(SysutlMyhostid, IsTheSystemsNumberAndKept) {
  in_own_system([] {
    set_host_number("\x44\x33\x22\xF1");
    EXPECT_EQ(sysutl_myhostid(), 0xF1223344u);
    set_host_number("\x01\x02\x03\x04");
    EXPECT_EQ(sysutl_myhostid(), 0xF1223344u);
  });
}

TEST(SysutlMyhostid, ZeroIsNotKept) {
  in_own_system([] {
    set_host_number(std::string(4, '\0'));
    EXPECT_EQ(sysutl_myhostid(), 0u);
    set_host_number("\x01\x02\x03\x04");
    EXPECT_EQ(sysutl_myhostid(), 0x04030201u);
  });
}

// Of "ab": 97, then 97 + (97 * 128 xor 98) = 97 + 12514 = 12611 = 0x3143. Of the byte E9, which is
// -23: 0xFFE9; with "a" behind, 0xFFE9 + (0xFFE9 * 128 xor 97) = 0xFFE9 + 0xF4E1 = 0xF4CA.
TEST(SysutlMyStableHostid, IsTheNumberAndAHashOfTheName) {
  const struct {
    const char *number;
    const char *name;
    Id id;
  } kRows[] = {
      {"\x11\x22\x33\x44", "ab", {0x91, 0x22, 0x33, 0x44, 0x43, 0x31}},
      {"\xF1\xF2\xF3\xF4", "a", {0xF1, 0xF2, 0xF3, 0xF4, 0x61, 0x00}},
      {"\x11\x22\x33\x44", "\xE9", {0x91, 0x22, 0x33, 0x44, 0xE9, 0xFF}},
      {"\x11\x22\x33\x44", "\xE9\x61", {0x91, 0x22, 0x33, 0x44, 0xCA, 0xF4}},
  };
  for (const auto &row : kRows) {
    in_own_system([&row] {
      set_host_number(row.number);
      call_this_machine(row.name);
      EXPECT_EQ(ask(sysutl_my_stable_hostid), (Answer{0, row.id})) << row.name;
      set_host_number("\x05\x06\x07\x08");
      EXPECT_EQ(ask(sysutl_my_stable_hostid), (Answer{0, row.id})) << row.name;
    });
  }
}

// The hash as its description has it, on plain integers.
int hash_of(const std::string &name) {
  int hash = 0;
  for (char c : name) hash = (hash + ((hash * 128) ^ static_cast<signed char>(c))) & 0xFFFF;
  return hash;
}

// Its hashes byte by byte: 97, 12611, 54075, 28957, 0.
constexpr const char *kNameOfHashZero = "abxbc";

TEST(SysutlMyStableHostid, LongNamesHashAsDescribed) {
  const std::string name = "alpha-17.Site.Example.\xC3\xA9.a-name-of-64-bytes-is-the-longest-one!!";
  ASSERT_EQ(name.size(), 64u);
  in_own_system([&name] {
    set_host_number("\x11\x22\x33\x44");
    call_this_machine(name);
    const Id id = ask(sysutl_my_stable_hostid).id;
    EXPECT_EQ(id[4] | (id[5] << 8), hash_of(name));
  });
}

TEST(SysutlMyStableHostid, OneByteIsEnough) {
  in_own_system([] {
    set_host_number(std::string(4, '\0'));
    call_this_machine("a");
    EXPECT_EQ(ask(sysutl_my_stable_hostid), (Answer{0, {0x80, 0, 0, 0, 0x61, 0}}));
  });
  in_own_system([] {
    set_host_number(std::string("\0\0\1\0", 4));
    call_this_machine(kNameOfHashZero);
    EXPECT_EQ(ask(sysutl_my_stable_hostid), (Answer{0, {0x80, 0, 1, 0, 0, 0}}));
  });
}

TEST(SysutlMyStableHostid, AllZerosAreNoneAndKept) {
  ASSERT_EQ(hash_of(kNameOfHashZero), 0);
  const Outcome outcome = in_own_system([] {
    setenv("TRACE_VERBOSITY", "5", 1);
    setenv("TRACE_SUBSYS", "ks", 1);
    set_host_number(std::string(4, '\0'));
    call_this_machine(kNameOfHashZero);
    EXPECT_EQ(ask(sysutl_my_stable_hostid), (Answer{1, kNothing}));
    set_host_number("\x01\x02\x03\x04");
    EXPECT_EQ(ask(sysutl_my_stable_hostid), (Answer{1, kNothing}));
  });
  EXPECT_THAT(outcome.err, testing::MatchesRegex(
                               ">>> .{12} \\(noname\\): sysutl_my_stable_hostid: hostid is all "
                               "zeros.\n"));
}

}  // namespace

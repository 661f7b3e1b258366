// The modes in the environment. What a reader finds is kept for the process, so each answer is
// asked for in a process of its own.
#include <arpa/inet.h>
#include <gtest/gtest.h>

#include <cerrno>
#include <cstdlib>
#include <cstring>
#include <string>

#include "ks_product.h"
#include "support/child.h"
#include "support/faults.h"

using ks_test::in_child;
using ks_test::Outcome;

namespace {

struct Mode {
  const char *variable;
  int (*reader)();
  int (*writer)(int flag);
};

constexpr Mode kModes[] = {
    {"NORVA_FORCE_GUI", ks_force_gui, ks_set_force_gui},
    {"NORVA_WEB_GUI", ks_web_gui, ks_set_web_gui},
    {"NORVA_WEB_TALLOWQUERY", ks_web_tallowquery, ks_set_web_tallowquery},
};

// What a reader answers in a process whose variable has this value.
int answer(const char *variable, int (*reader)(), const char *value) {
  const Outcome outcome = in_child([&] {
    if (value != nullptr) setenv(variable, value, 1);
    _exit(10 + reader());
  });
  return std::stoi(outcome.end().substr(strlen("exit "))) - 10;
}

constexpr const char *kOn[] = {
    "1",         "yes", "no", "7x",  "01", "10",   "-1",
    "-0",        "-",   " 0", "off", "x0", "0009", "99999999999999999999999",
    "4294967296"};
constexpr const char *kOff[] = {"0", "00", "000000000000000000000000", "0x1", "0 1", "0yes"};

TEST(ModeReader, TakesAnyWordAndAnyNumberButZeroForOn) {
  for (const Mode &mode : kModes) {
    for (const char *value : kOn) EXPECT_EQ(answer(mode.variable, mode.reader, value), 1) << value;
    for (const char *value : kOff) EXPECT_EQ(answer(mode.variable, mode.reader, value), 0) << value;
    EXPECT_EQ(answer(mode.variable, mode.reader, nullptr), 0) << mode.variable;
    EXPECT_EQ(answer(mode.variable, mode.reader, ""), 0) << mode.variable;
  }
}

TEST(ModeReader, TakesTheBytesOfAnyLanguageForAWord) {
  EXPECT_EQ(answer("NORVA_FORCE_GUI", ks_force_gui, "\xE3\x81\x82"), 1);
  EXPECT_EQ(answer("NORVA_FORCE_GUI", ks_force_gui, "\xFF"), 1);
}

TEST(ModeReader, LooksAtItsOwnVariable) {
  for (const Mode &set : kModes) {
    for (const Mode &asked : kModes) {
      const Outcome outcome = in_child([&] {
        setenv(set.variable, "1", 1);
        _exit(asked.reader());
      });
      EXPECT_EQ(outcome.end(), set.reader == asked.reader ? "exit 1" : "exit 0");
    }
  }
}

TEST(NoBold, IsReadLikeTheOthers) {
  for (const char *value : kOn) EXPECT_EQ(answer("NORVA_NO_BOLD", ks_no_bold, value), 1) << value;
  for (const char *value : kOff) EXPECT_EQ(answer("NORVA_NO_BOLD", ks_no_bold, value), 0) << value;
  EXPECT_EQ(answer("NORVA_NO_BOLD", ks_no_bold, nullptr), 0);
}

TEST(NoBold, KeepsTheEmptyValueAsOn) { EXPECT_EQ(answer("NORVA_NO_BOLD", ks_no_bold, ""), 1); }

TEST(NoBold, IsReadOnce) {
  EXPECT_EQ(ks_no_bold(), 0);
  setenv("NORVA_NO_BOLD", "1", 1);
  EXPECT_EQ(ks_no_bold(), 0);
}

TEST(ModeWriter, DoesNotChangeWhatThisProcessHasRead) {
  for (const Mode &mode : kModes) {
    EXPECT_EQ(mode.reader(), 0);
    EXPECT_EQ(mode.writer(1), 0);
    EXPECT_EQ(mode.reader(), 0);
  }
}

TEST(ModeWriter, IsForTheReadersOfTheChildren) {
  for (const Mode &mode : kModes) {
    mode.reader();
    mode.writer(-5);
    const Outcome on = ks_test::run_program({"printenv", mode.variable});
    EXPECT_EQ(on.out, "1\n");
    mode.writer(0);
    const Outcome off = ks_test::run_program({"printenv", mode.variable});
    EXPECT_EQ(off.out, "\n");
    EXPECT_EQ(off.end(), "exit 0");
  }
}

TEST(ModeWriter, IsSeenByAReaderThatComesLater) {
  for (const Mode &mode : kModes) {
    EXPECT_EQ(in_child([&] {
                mode.writer(1);
                _exit(mode.reader());
              }).end(),
              "exit 1");
    EXPECT_EQ(in_child([&] {
                mode.writer(1);
                mode.writer(0);
                _exit(mode.reader());
              }).end(),
              "exit 0");
  }
}

TEST(ModeWriter, EachHasItsOwnStorage) {
  for (const Mode &mode : kModes) mode.writer(1);
  kModes[1].writer(0);
  EXPECT_STREQ(getenv("NORVA_FORCE_GUI"), "1");
  EXPECT_STREQ(getenv("NORVA_WEB_GUI"), "");
  EXPECT_STREQ(getenv("NORVA_WEB_TALLOWQUERY"), "1");
}

TEST(ModeWriter, SaysThatTheEnvironmentCouldNotBeChanged) {
  for (const Mode &mode : kModes) {
    ks_test::fail_call("putenv", 0, ENOMEM);
    EXPECT_EQ(mode.writer(1), 1);
    EXPECT_EQ(errno, ENOMEM);
    EXPECT_EQ(getenv(mode.variable), nullptr);
    EXPECT_EQ(mode.writer(1), 0);
  }
}

// The prompt server's address.

struct Prompt {
  const char *value;
  const char *address;  // family, port and address, or NULL for none
};

constexpr Prompt kPrompts[] = {
    {"5000,10.1.2.3", "2 5000 10.1.2.3"},
    {"1,127.0.0.1", "2 1 127.0.0.1"},
    {"65535,0.0.0.0", "2 65535 0.0.0.0"},
    {" 80,10.1.2.3", "2 80 10.1.2.3"},
    {"80, 10.1.2.3", "2 80 10.1.2.3"},
    {"80,10.1.2.3 and more", "2 80 10.1.2.3"},
    {"80,0x0a.1.515", "2 80 10.1.2.3"},
    {"80,10.1.2.00000000000000000000000000000000000000000000000000000000000000000000000000000003",
     "2 80 10.1.2.3"},
    {"5000", nullptr},
    {"5000,", nullptr},
    {"5000, ", nullptr},
    {"5000,bogus", nullptr},
    {"5000 ,10.1.2.3", nullptr},
    {"0,10.1.2.3", nullptr},
    {"65536,10.1.2.3", nullptr},
    {",10.1.2.3", nullptr},
    {"x,10.1.2.3", nullptr},
    {"5000,10.1.2.256", nullptr},
    {"5000,10.1.2.3x", nullptr},
    {"5000,255.255.255.255", nullptr},
    {"", nullptr},
    {nullptr, nullptr},
};

// The fields, and the 8 bytes behind them, which are clear.
std::string shown(const sockaddr_in &address) {
  constexpr unsigned char kClear[8] = {};
  if (memcmp(address.sin_zero, kClear, sizeof kClear) != 0) return "not clear";
  return std::to_string(address.sin_family) + " " + std::to_string(ntohs(address.sin_port)) + " " +
         inet_ntoa(address.sin_addr);
}

TEST(RemotePrompt, IsAPortAndADottedAddress) {
  for (const Prompt &prompt : kPrompts) {
    const Outcome outcome = in_child([&] {
      if (prompt.value != nullptr) setenv("NORVA_REMOTE_PROMPT", prompt.value, 1);
      sockaddr_in address;
      memset(&address, 0x55, sizeof address);
      const sockaddr_in before = address;
      const int result = ks_remote_prompt(&address);
      if (result == 2) _exit(memcmp(&address, &before, sizeof address) == 0 ? 2 : 3);
      printf("%s", shown(address).c_str());
      fflush(stdout);
      _exit(result);
    });
    const char *value = prompt.value != nullptr ? prompt.value : "none";
    EXPECT_EQ(outcome.end(), prompt.address != nullptr ? "exit 0" : "exit 2") << value;
    EXPECT_EQ(outcome.out, prompt.address != nullptr ? prompt.address : "") << value;
  }
}

TEST(RemotePrompt, IsReadOnce) {
  setenv("NORVA_REMOTE_PROMPT", "5000,10.1.2.3", 1);
  sockaddr_in address;
  EXPECT_EQ(ks_remote_prompt(&address), 0);
  setenv("NORVA_REMOTE_PROMPT", "6000,10.1.2.4", 1);
  EXPECT_EQ(ks_remote_prompt(&address), 0);
  EXPECT_EQ(ntohs(address.sin_port), 5000);
}

TEST(RemotePrompt, IsReadOnceAlsoWhenThereIsNone) {
  sockaddr_in address;
  EXPECT_EQ(ks_remote_prompt(&address), 2);
  setenv("NORVA_REMOTE_PROMPT", "6000,10.1.2.4", 1);
  EXPECT_EQ(ks_remote_prompt(&address), 2);
}

sockaddr_in address_of(unsigned short port, const char *host) {
  sockaddr_in address = {};
  address.sin_family = AF_INET;
  address.sin_port = htons(port);
  address.sin_addr.s_addr = inet_addr(host);
  return address;
}

TEST(SetRemotePrompt, WritesWhatTheReaderReads) {
  EXPECT_EQ(ks_set_remote_prompt(address_of(5000, "10.1.2.3")), 0);
  EXPECT_STREQ(getenv("NORVA_REMOTE_PROMPT"), "5000,10.1.2.3");
  EXPECT_EQ(ks_set_remote_prompt(address_of(65535, "255.255.255.255")), 0);
  EXPECT_STREQ(getenv("NORVA_REMOTE_PROMPT"), "65535,255.255.255.255");
  EXPECT_EQ(ks_set_remote_prompt(address_of(258, "1.0.0.1")), 0);
  EXPECT_EQ(ks_test::run_program({"printenv", "NORVA_REMOTE_PROMPT"}).out, "258,1.0.0.1\n");
  sockaddr_in address;
  ASSERT_EQ(ks_remote_prompt(&address), 0);
  const sockaddr_in expected = address_of(258, "1.0.0.1");
  EXPECT_EQ(memcmp(&address, &expected, sizeof address), 0);
}

TEST(SetRemotePrompt, WithPortZeroTakesTheServerAway) {
  EXPECT_EQ(ks_set_remote_prompt(address_of(5000, "10.1.2.3")), 0);
  EXPECT_EQ(ks_set_remote_prompt(address_of(0, "10.1.2.3")), 0);
  EXPECT_STREQ(getenv("NORVA_REMOTE_PROMPT"), "");
  sockaddr_in address;
  EXPECT_EQ(ks_remote_prompt(&address), 2);
}

TEST(SetRemotePrompt, SaysThatTheEnvironmentCouldNotBeChanged) {
  ks_test::fail_call("putenv", 0, ENOMEM);
  EXPECT_EQ(ks_set_remote_prompt(address_of(5000, "10.1.2.3")), 1);
  EXPECT_EQ(getenv("NORVA_REMOTE_PROMPT"), nullptr);
}

// The rest.

TEST(Connected, IsAlwaysSo) {
  EXPECT_EQ(ks_connected(), 1);
  ks_set_connected();
  ks_disable_long_path();
  EXPECT_EQ(ks_connected(), 1);
}

TEST(FullCheck, IsTurnedOnForGood) {
  EXPECT_EQ(ks_is_enabled_rmview_full_cr_check(), 0);
  ks_enable_rmview_full_cr_check();
  EXPECT_EQ(ks_is_enabled_rmview_full_cr_check(), 1);
  ks_enable_rmview_full_cr_check();
  EXPECT_EQ(ks_is_enabled_rmview_full_cr_check(), 1);
}

}  // namespace

// What machines are called.
#include <arpa/inet.h>
#include <gtest/gtest.h>
#include <rpcsvc/ypclnt.h>
#include <sys/socket.h>
#include <unistd.h>

#include <cerrno>
#include <csignal>
#include <cstring>
#include <string>
#include <vector>

#include "pfm.h"
#include "support/child.h"
#include "support/exact_text.h"
#include "support/faults.h"
#include "support/landing.h"
#include "support/own_system.h"
#include "support/signals.h"
#include "sysutl.h"

using ks_test::ExactText;
using ks_test::in_own_system;
using ks_test::must;
using ks_test::put_file;

namespace {

void call_this_machine(std::string_view name) {
  must(sethostname(name.data(), name.size()) == 0, "sethostname");
}

void set_domain(std::string_view name) {
  must(setdomainname(name.data(), name.size()) == 0, "setdomainname");
}

// Names come from /etc/hosts and from nowhere else.
void put_hosts(std::string_view hosts) {
  put_file("/etc/nsswitch.conf", "hosts: files\n");
  put_file("/etc/hosts", hosts);
}

std::vector<std::string> texts(char **list) {
  std::vector<std::string> all;
  for (; *list != nullptr; ++list) all.push_back(*list);
  return all;
}

std::string address_of(const hostent *host) {
  char text[INET_ADDRSTRLEN];
  return inet_ntop(host->h_addrtype, host->h_addr_list[0], text, sizeof text);
}

TEST(SysutlMyhostname, IsTheSystemsNameAndKept) {
  in_own_system([] {
    call_this_machine("alpha.site.example");
    const char *name = sysutl_myhostname();
    EXPECT_STREQ(name, "alpha.site.example");
    call_this_machine("beta");
    EXPECT_EQ(sysutl_myhostname(), name);
    EXPECT_STREQ(name, "alpha.site.example");
    EXPECT_EQ(ks_test::count_calls("gethostname"), 1);
  });
}

TEST(SysutlMyhostname, AnEmptyNameIsUnknownAndKept) {
  in_own_system([] {
    call_this_machine("");
    EXPECT_STREQ(sysutl_myhostname(), "UnknownHost");
    call_this_machine("beta");
    EXPECT_STREQ(sysutl_myhostname(), "UnknownHost");
  });
}

TEST(SysutlMyhostname, AnErrorIsUnknownAndKept) {
  ks_test::fail_call("gethostname", 0, ENAMETOOLONG);
  EXPECT_STREQ(sysutl_myhostname(), "UnknownHost");
  EXPECT_STREQ(sysutl_myhostname(), "UnknownHost");
  EXPECT_EQ(ks_test::count_calls("gethostname"), 1);
}

TEST(SysutlMyhostname, ANameThatFillsTheBufferIsCutAt1023Bytes) {
  const std::string long_name(2000, 'n');
  ks_test::set_host_name(long_name);
  EXPECT_EQ(sysutl_myhostname(), std::string(1023, 'n'));
}

TEST(SysutlMyhostname, IsAskedForAgainAfterStorageRanOut) {
  in_own_system([] {
    call_this_machine("alpha");
    ks_test::fail_call("malloc", 0, ENOMEM);
    EXPECT_STREQ(sysutl_myhostname(), "UnknownHost");
    EXPECT_STREQ(sysutl_myhostname(), "alpha");
  });
}

TEST(SysutlMyhostname, AFaultComesWhenTheAnswerStands) {
  ks_test::default_signals();
  pfm_signal(SIGUSR1, ks_test::raise_number);
  ks_test::signal_in_call("malloc", 0, SIGUSR1);
  EXPECT_EQ(ks_test::land([] { sysutl_myhostname(); }).status, SIGUSR1);
  const int asked = ks_test::count_calls("gethostname");
  EXPECT_STRNE(sysutl_myhostname(), "");
  EXPECT_EQ(ks_test::count_calls("gethostname"), asked);
}

TEST(SysutlHostnameAliases, AreTheHostsOtherNames) {
  in_own_system([] {
    put_hosts("10.1.2.3 alpha.site.example alpha al\n10.1.2.4 beta\n");
    char **aliases = sysutl_hostname_aliases("al");
    ASSERT_NE(aliases, nullptr);
    EXPECT_EQ(texts(aliases), (std::vector<std::string>{"alpha", "al"}));
    aliases = sysutl_hostname_aliases("beta");
    ASSERT_NE(aliases, nullptr);
    EXPECT_EQ(texts(aliases), std::vector<std::string>());
  });
}

TEST(SysutlHostnameAliases, AnUnknownHostHasNoList) {
  in_own_system([] {
    put_hosts("10.1.2.3 alpha\n");
    EXPECT_EQ(sysutl_hostname_aliases("gamma"), nullptr);
  });
}

TEST(SysutlHostAddr, AnAddressWithDotsStandsForItself) {
  const struct {
    const char *text;
    const char *address;
  } kRows[] = {
      {"10.1.2.3", "10.1.2.3"},    {"127.1", "127.0.0.1"},
      {"0x7f.0.0.2", "127.0.0.2"}, {"255.255.255.254", "255.255.255.254"},
      {"0.0.0.0", "0.0.0.0"},
  };
  for (const auto &row : kRows) {
    ExactText text(row.text);
    const hostent *host = sysutl_host_addr(text);
    ASSERT_NE(host, nullptr) << row.text;
    EXPECT_STREQ(host->h_name, row.text);
    EXPECT_NE(host->h_name, text.get());
    EXPECT_EQ(host->h_addrtype, 2);
    EXPECT_EQ(host->h_length, 4);
    ASSERT_NE(host->h_aliases, nullptr);
    EXPECT_EQ(host->h_aliases[0], nullptr);
    EXPECT_EQ(address_of(host), row.address);
    EXPECT_EQ(host->h_addr_list[1], nullptr);
  }
}

TEST(SysutlHostAddr, TheRecordOfAnAddressIsStatic) {
  const hostent *first = sysutl_host_addr("10.1.2.3");
  EXPECT_EQ(sysutl_host_addr("10.1.2.4"), first);
  EXPECT_EQ(address_of(first), "10.1.2.4");
}

// What is an address ends at the first white space, so the text behind it may have any length.
TEST(SysutlHostAddr, TheNameOfAnAddressIsCutAt1023Bytes) {
  const std::string long_text = "10.1.2.3 " + std::string(5000, 'x');
  const hostent *host = sysutl_host_addr(ExactText(long_text));
  ASSERT_NE(host, nullptr);
  EXPECT_EQ(host->h_name, long_text.substr(0, 1023));
  EXPECT_EQ(address_of(host), "10.1.2.3");
}

TEST(SysutlHostAddr, ANameIsLookedUp) {
  in_own_system([] {
    put_hosts("10.1.2.3 alpha.site.example alpha\n");
    const hostent *host = sysutl_host_addr("alpha");
    ASSERT_NE(host, nullptr);
    EXPECT_STREQ(host->h_name, "alpha.site.example");
    EXPECT_EQ(texts(host->h_aliases), std::vector<std::string>{"alpha"});
    EXPECT_EQ(address_of(host), "10.1.2.3");
    EXPECT_EQ(sysutl_host_addr("gamma"), nullptr);
    EXPECT_EQ(sysutl_host_addr("1.2.3.400"), nullptr);
  });
}

TEST(SysutlHostAddr, KeepsTheAllOnesAddressForTheResolver) {
  in_own_system([] {
    put_hosts("");
    const hostent *dotted = sysutl_host_addr("10.1.2.3");
    const hostent *host = sysutl_host_addr("255.255.255.255");
    ASSERT_NE(host, nullptr);
    EXPECT_NE(host, dotted);
    EXPECT_EQ(address_of(dotted), "10.1.2.3");
    EXPECT_EQ(address_of(host), "255.255.255.255");
  });
}

TEST(SysutlGetHostDomainName, IsTheNisDomain) {
  in_own_system([] {
    set_domain("nis.example");
    char *name = nullptr;
    EXPECT_EQ(sysutl_get_host_domain_name(&name), 0);
    EXPECT_STREQ(name, "nis.example");
  });
}

TEST(SysutlGetHostDomainName, FailsWhereNoneIsSet) {
  in_own_system([] {
    set_domain("(none)");  // what the system has at its start
    char *name = nullptr;
    EXPECT_EQ(sysutl_get_host_domain_name(&name), YPERR_NODOM);
  });
}

// uname(1) prints the three with blanks in between, of which the release has none.
TEST(SysutlPlatformDescription, NamesSystemReleaseAndMachine) {
  const std::string printed = ks_test::run_program({"uname", "-srm"}).out;
  const size_t last = printed.rfind(' ');
  ASSERT_NE(last, std::string::npos);
  const std::string machine = printed.substr(last + 1, printed.size() - last - 2);
  ExactText buffer("", SYSUTL_PLATFORM_SIZE);
  sysutl_platform_description(buffer);
  EXPECT_EQ(buffer.get(), printed.substr(0, last) + " (" + machine + ")");
}

TEST(SysutlPlatformDescription, IsI386WhereTheSystemDoesNotTell) {
  ks_test::fail_call("uname", 0, EFAULT);
  ExactText buffer("", SYSUTL_PLATFORM_SIZE);
  sysutl_platform_description(buffer);
  EXPECT_STREQ(buffer, "i386");
}

}  // namespace

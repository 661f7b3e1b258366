// The process's groups.
#include <grp.h>
#include <gtest/gtest.h>
#include <sys/resource.h>
#include <unistd.h>

#include <algorithm>
#include <cerrno>
#include <csignal>
#include <memory>
#include <numeric>
#include <string>
#include <vector>

#include "pfm.h"
#include "support/faults.h"
#include "support/landing.h"
#include "support/own_system.h"
#include "support/signals.h"
#include "sysutl.h"

using ks_test::expect_in_child;
using ks_test::in_own_system;
using ks_test::must;
using ks_test::put_file;

namespace {

void put_groups() {
  put_file("/etc/nsswitch.conf", "passwd: files\ngroup: files\n");
  put_file("/etc/group", "root:x:0:\nstaff:x:50:\ndrive:x:600:ann,bob\nsound:x:700:ann\n");
}

void be_group(gid_t gid) { must(setegid(gid) == 0, "setegid, as root"); }

// Groups 1001, 1002 and so on.
std::vector<gid_t> numbered_groups(size_t count) {
  std::vector<gid_t> groups(count);
  std::iota(groups.begin(), groups.end(), gid_t{1001});
  return groups;
}

void join_groups(size_t count) {
  const std::vector<gid_t> groups = numbered_groups(count);
  must(setgroups(groups.size(), groups.data()) == 0, "setgroups, as root");
}

// What sysutl_getgroups stores in a block of exactly that size; `count` is at first 77.
struct Groups {
  int result;
  int count = 77;
  std::vector<gid_t> stored;
};

Groups groups_up_to(int max) {
  Groups groups = {};
  groups.count = 77;
  const std::unique_ptr<gid_t[]> block(new gid_t[static_cast<size_t>(max)]);
  groups.result = sysutl_getgroups(max, &groups.count, block.get());
  if (groups.result == 0) groups.stored.assign(block.get(), block.get() + groups.count);
  return groups;
}

TEST(SysutlMygroupname, IsThatOfTheEffectiveGroup) {
  in_own_system([] {
    put_groups();
    be_group(50);
    EXPECT_STREQ(sysutl_mygroupname(), "staff");
    EXPECT_EQ(getgid(), 0u);
  });
}

TEST(SysutlMygroupname, IsTheNumberWithoutAName) {
  in_own_system([] {
    put_groups();
    be_group(4242);
    EXPECT_STREQ(sysutl_mygroupname(), "4242");
  });
}

TEST(SysutlMygroupname, KeepsANumberAbove31BitsNegative) {
  in_own_system([] {
    put_groups();
    be_group(4294967294u);
    EXPECT_STREQ(sysutl_mygroupname(), "-2");
    be_group(2147483648u);
    EXPECT_STREQ(sysutl_mygroupname(), "-2147483648");
  });
}

TEST(SysutlMygroupname, IsRememberedUntilTheGroupChanges) {
  in_own_system([] {
    put_groups();
    be_group(50);
    const char *name = sysutl_mygroupname();
    put_file("/etc/group", "changed:x:50:\nother:x:51:\n");
    EXPECT_EQ(sysutl_mygroupname(), name);
    EXPECT_STREQ(name, "staff");
    be_group(51);
    EXPECT_STREQ(sysutl_mygroupname(), "other");
    be_group(50);
    EXPECT_STREQ(sysutl_mygroupname(), "changed");
  });
}

TEST(SysutlMygroupname, ANumberForWantOfDescriptorsIsNotRemembered) {
  in_own_system([] {
    put_file("/etc/group", "people:x:7:\n");
    must(setegid(7) == 0, "setegid");
    must(getgrgid(7) != nullptr, "getgrgid");  // loads what is loaded but once
    rlimit limit;
    getrlimit(RLIMIT_NOFILE, &limit);
    const rlimit none = {0, limit.rlim_max};
    setrlimit(RLIMIT_NOFILE, &none);
    const std::string number = sysutl_mygroupname();
    setrlimit(RLIMIT_NOFILE, &limit);
    EXPECT_EQ(number, "7");
    EXPECT_STREQ(sysutl_mygroupname(), "people");
  });
}

TEST(SysutlMygroupname, IsNullWithoutStorageAndAskedForAgain) {
  in_own_system([] {
    put_groups();
    be_group(50);
    ks_test::fail_call("malloc", 0, ENOMEM);
    EXPECT_EQ(sysutl_mygroupname(), nullptr);
    EXPECT_STREQ(sysutl_mygroupname(), "staff");
  });
}

TEST(SysutlInitgroups, TakesOnTheUsersGroups) {
  in_own_system([] {
    put_groups();
    EXPECT_EQ(sysutl_initgroups("ann", 50), 0);
    std::vector<gid_t> groups = groups_up_to(32).stored;
    std::sort(groups.begin(), groups.end());
    EXPECT_EQ(groups, (std::vector<gid_t>{50, 600, 700}));
  });
}

TEST(SysutlInitgroups, FailsForWhoIsNotRoot) {
  in_own_system([] {
    put_groups();
    must(setresuid(1000, 1000, 1000) == 0, "setresuid");
    errno = 0;
    EXPECT_EQ(sysutl_initgroups("ann", 50), 1);
    EXPECT_EQ(errno, EPERM);
  });
}

TEST(SysutlGetgroups, StoresTheFirstMaxAndNeverMoreThan32) {
  const struct {
    size_t present;
    int max;
    size_t stored;
  } kRows[] = {
      {5, 40, 5},   {5, 5, 5},    {5, 4, 4},    {5, 1, 1},    {0, 5, 0},    {32, 32, 32},
      {32, 40, 32}, {33, 32, 32}, {33, 33, 32}, {40, 40, 32}, {40, 31, 31}, {2000, 3, 3},
  };
  for (const auto &row : kRows) {
    expect_in_child([&row] {
      join_groups(row.present);
      const Groups groups = groups_up_to(row.max);
      EXPECT_EQ(groups.result, 0);
      EXPECT_EQ(groups.stored, numbered_groups(row.stored)) << row.present << " " << row.max;
    });
  }
}

TEST(SysutlGetgroups, WithNoRoomCountsThemAll) {
  expect_in_child([] {
    join_groups(40);
    int count = 77;
    EXPECT_EQ(sysutl_getgroups(0, &count, nullptr), 0);
    EXPECT_EQ(count, 40);
  });
}

TEST(SysutlGetgroups, ANegativeRoomIsInvalid) {
  int count = 77;
  EXPECT_EQ(sysutl_getgroups(-1, &count, nullptr), EINVAL);
  EXPECT_EQ(count, 77);
}

TEST(SysutlGetgroups, AFailureGivesErrno) {
  expect_in_child([] {
    join_groups(5);
    for (int nth = 0; nth < 2; ++nth) {
      ks_test::fail_call("getgroups", nth, EPERM);
      const Groups groups = groups_up_to(5);
      EXPECT_EQ(groups.result, EPERM) << nth;
      EXPECT_EQ(groups.count, 77) << nth;
    }
    ks_test::fail_call("malloc", 0, ENOMEM);
    const Groups groups = groups_up_to(5);
    EXPECT_EQ(groups.result, ENOMEM);
    EXPECT_EQ(groups.count, 77);
  });
}

TEST(SysutlGetgroups, AFaultComesWhenTheyAreStored) {
  expect_in_child([] {
    ks_test::default_signals();
    pfm_signal(SIGUSR1, ks_test::raise_number);
    join_groups(2);
    gid_t groups[2] = {};
    int count = 0;
    ks_test::signal_in_call("getgroups", 1, SIGUSR1);
    const ks_test::Landing landing = ks_test::land([&] { sysutl_getgroups(2, &count, groups); });
    EXPECT_EQ(landing.status, SIGUSR1);
    EXPECT_EQ(groups[0], 1001u);
    EXPECT_EQ(groups[1], 1002u);
  });
}

TEST(SysutlInitSecurity, HasNothingToDo) { EXPECT_EQ(sysutl_init_security(), 0); }

}  // namespace

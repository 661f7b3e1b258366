// Names of users.
#include <gtest/gtest.h>
#include <unistd.h>

#include <cerrno>
#include <csignal>
#include <string>

#include "pfm.h"
#include "support/child.h"
#include "support/exact_text.h"
#include "support/faults.h"
#include "support/landing.h"
#include "support/own_system.h"
#include "support/signals.h"
#include "sysutl.h"

using ks_test::count_calls;
using ks_test::ExactText;
using ks_test::in_own_system;
using ks_test::must;
using ks_test::put_file;

namespace {

constexpr const char *kPasswords =
    "root:x:0:0:root:/root:/bin/sh\n"
    "ann:x:1000:1000:Ann & Co,room 2:/home/ann:/bin/sh\n"
    "bob:x:1001:1001:Bob Brown:/home/bob:/bin/sh\n"
    "annalias:x:1000:1000:The Other:/home/ann:/bin/sh\n"
    "none:x:1002:1002::/home/none:/bin/sh\n"
    "comma:x:1003:1003:,room 3:/home/comma:/bin/sh\n"
    "twice:x:1004:1004:& and &:/home/twice:/bin/sh\n"
    "later:x:1005:1005:Late,by &:/home/later:/bin/sh\n"
    "ends:x:1006:1006:Mr &:/home/ends:/bin/sh\n";

void put_users() {
  put_file("/etc/nsswitch.conf", "passwd: files\ngroup: files\n");
  put_file("/etc/passwd", kPasswords);
}

// The user that logged in, for getlogin: "-1" is nobody.
void log_in(std::string_view uid) {
  put_file("/etc/loginuid", uid);
  ks_test::bind_file("/etc/loginuid", "/proc/self/loginuid");
}

// The process can still become any other user.
void be_user(uid_t uid) { must(setresuid(uid, 0, 0) == 0, "setresuid"); }

void in_system_with_users(const std::function<void()> &body) {
  in_own_system([&body] {
    put_users();
    log_in("-1");
    body();
  });
}

TEST(SysutlMyloginname, IsThatOfTheRealUsersEntry) {
  in_system_with_users([] {
    be_user(1001);
    EXPECT_STREQ(sysutl_myloginname(), "bob");
  });
}

TEST(SysutlMyloginname, TheTerminalsNameIsTakenWhenItsEntryHasTheUserId) {
  in_system_with_users([] {
    ks_test::set_terminal_login("annalias");
    be_user(1000);
    EXPECT_STREQ(sysutl_myloginname(), "annalias");
  });
}

TEST(SysutlMyloginname, TheTerminalsNameIsAskedOfTheSystem) {
  in_system_with_users([] {
    log_in("1000");
    be_user(1000);
    EXPECT_STREQ(sysutl_myloginname(), "ann");
    // One look-up, of the terminal's name.
    EXPECT_EQ(count_calls("getlogin"), 1);
    EXPECT_EQ(count_calls("getpwnam"), 1);
  });
}

TEST(SysutlMyloginname, TheTerminalsNameIsNotTakenForAnotherUser) {
  in_system_with_users([] {
    log_in("1001");
    be_user(1000);
    EXPECT_STREQ(sysutl_myloginname(), "ann");
  });
}

TEST(SysutlMyloginname, ATerminalsNameWithoutAnEntryIsNotTaken) {
  in_system_with_users([] {
    ks_test::set_terminal_login("gone");
    be_user(1001);
    EXPECT_STREQ(sysutl_myloginname(), "bob");
  });
}

TEST(SysutlMyloginname, IsNullWithoutAnEntryAndAskedForAgain) {
  in_system_with_users([] {
    be_user(4242);
    EXPECT_EQ(sysutl_myloginname(), nullptr);
    put_file("/etc/passwd", "new:x:4242:4242::/:/bin/sh\n");
    EXPECT_STREQ(sysutl_myloginname(), "new");
  });
}

TEST(SysutlMyloginname, IsRememberedForTheRealUserId) {
  in_system_with_users([] {
    be_user(1000);
    const char *ann = sysutl_myloginname();
    EXPECT_STREQ(ann, "ann");
    put_file("/etc/passwd", "changed:x:1000:1000::/:/bin/sh\nbob:x:1001:1001::/:/bin/sh\n");
    EXPECT_EQ(sysutl_myloginname(), ann);
    EXPECT_EQ(count_calls("getlogin"), 1);

    be_user(1001);
    EXPECT_STREQ(sysutl_myloginname(), "bob");
    EXPECT_STREQ(ann, "ann");  // the old copy lives on
    be_user(1000);
    EXPECT_STREQ(sysutl_myloginname(), "changed");
  });
}

TEST(SysutlMyloginname, ANameThatIsKnownIsForItsUserOnly) {
  in_system_with_users([] {
    be_user(1000);
    const char *ann = sysutl_myloginname();
    be_user(4242);
    EXPECT_EQ(sysutl_myloginname(), nullptr);
    be_user(1000);
    EXPECT_EQ(sysutl_myloginname(), ann);
  });
}

TEST(SysutlMyloginname, AFaultComesWhenTheAnswerStands) {
  in_system_with_users([] {
    ks_test::default_signals();
    pfm_signal(SIGUSR1, ks_test::raise_number);
    be_user(1000);
    ks_test::signal_in_call("getlogin", 0, SIGUSR1);
    const ks_test::Landing landing = ks_test::land([] { sysutl_myloginname(); });
    EXPECT_EQ(landing.status, SIGUSR1);
    EXPECT_STREQ(sysutl_myloginname(), "ann");
    EXPECT_EQ(count_calls("getlogin"), 1);
  });
}

TEST(SysutlMyloginname, IsNullWithoutStorage) {
  const ks_test::Outcome outcome = in_own_system([] {
    put_users();
    log_in("-1");
    be_user(1000);
    ks_test::fail_call("malloc", 0, ENOMEM);
    EXPECT_EQ(sysutl_myloginname(), nullptr);
    EXPECT_STREQ(sysutl_myloginname(), "ann");
  });
  EXPECT_EQ(outcome.err, "noname: Error: No more memory available.\n");
}

TEST(SysutlUserToFullname, IsWhatTheEntrySaysBeforeTheComma) {
  in_system_with_users([] {
    const struct {
      const char *user;
      const char *full_name;
    } kRows[] = {
        {"ann", "Ann ann Co"}, {"bob", "Bob Brown"},     {"none", ""},        {"comma", ""},
        {"later", "Late"},     {"twice", "twice and &"}, {"ends", "Mr ends"},
    };
    for (const auto &row : kRows) {
      EXPECT_STREQ(sysutl_user_to_fullname(ExactText(row.user)), row.full_name) << row.user;
    }
  });
}

TEST(SysutlUserToFullname, KeepsTheNamesCase) {
  in_own_system([] {
    put_file("/etc/passwd", "mcX:x:1:1:& B:/:/bin/sh\n");
    EXPECT_STREQ(sysutl_user_to_fullname("mcX"), "mcX B");
  });
}

TEST(SysutlUserToFullname, TakesTheFirst256Bytes) {
  in_own_system([] {
    const std::string a(255, 'a');
    put_file("/etc/passwd", "long:x:1:1:" + a + "bcd:/:/bin/sh\n" +       //
                                "comma:x:2:2:" + a + "b,c:/:/bin/sh\n" +  //
                                "expand:x:3:3:" + a + "&&:/:/bin/sh\n" +  //
                                "beyond:x:4:4:" + a + "b&:/:/bin/sh\n");
    EXPECT_EQ(sysutl_user_to_fullname("long"), a + "b");
    EXPECT_EQ(sysutl_user_to_fullname("comma"), a + "b");
    EXPECT_EQ(sysutl_user_to_fullname("expand"), a + "expand");
    EXPECT_EQ(sysutl_user_to_fullname("beyond"), a + "b");
  });
}

TEST(SysutlUserToFullname, IsNullForAnUnknownUserOrAnEntryWithoutTheField) {
  in_system_with_users([] {
    EXPECT_EQ(sysutl_user_to_fullname("gone"), nullptr);
    ks_test::hide_full_names();
    EXPECT_EQ(sysutl_user_to_fullname("ann"), nullptr);
    EXPECT_EQ(sysutl_user_to_fullname("ann"), nullptr);
    EXPECT_EQ(count_calls("getpwnam"), 2);
  });
}

TEST(SysutlUserToFullname, TheLastAnswerIsRememberedNullIncluded) {
  in_system_with_users([] {
    const char *bob = sysutl_user_to_fullname("bob");
    put_file("/etc/passwd", "bob:x:1:1:Changed:/:/bin/sh\n");
    EXPECT_EQ(sysutl_user_to_fullname(ExactText("bob")), bob);
    EXPECT_STREQ(bob, "Bob Brown");

    EXPECT_EQ(sysutl_user_to_fullname("ann"), nullptr);
    put_file("/etc/passwd", kPasswords);
    EXPECT_EQ(sysutl_user_to_fullname("ann"), nullptr);
    EXPECT_STREQ(sysutl_user_to_fullname("bob"), "Bob Brown");
    EXPECT_STREQ(sysutl_user_to_fullname("ann"), "Ann ann Co");
    EXPECT_EQ(count_calls("getpwnam"), 4);
  });
}

TEST(SysutlUserToFullname, ALookUpThatFailsIsNoAnswer) {
  in_own_system([] {
    put_file("/etc/passwd", "ann:x:7:7:Ann:/:/bin/sh\n");
    for (const int error : {EIO, EMFILE, ENFILE, ENOMEM, EAGAIN}) {
      ks_test::fail_call("getpwnam", 0, error);
      EXPECT_EQ(sysutl_user_to_fullname("ann"), nullptr);
      EXPECT_STREQ(sysutl_user_to_fullname("ann"), "Ann") << "it is asked for again";
      EXPECT_EQ(sysutl_user_to_fullname("nobody else"), nullptr);
    }
    ks_test::fail_call("getpwnam", 0, EINTR, 3);
    EXPECT_STREQ(sysutl_user_to_fullname("ann"), "Ann");
  });
}

TEST(SysutlUserToFullname, AnAnswerMayBeTheNextQuestion) {
  in_own_system([] {
    put_file("/etc/passwd", "ann:x:1:1:bob:/:/bin/sh\nbob:x:2:2:Bob & Co:/:/bin/sh\n");
    EXPECT_STREQ(sysutl_user_to_fullname(sysutl_user_to_fullname("ann")), "Bob bob Co");
  });
}

TEST(SysutlUserToFullname, AFaultComesWhenTheAnswerStands) {
  in_system_with_users([] {
    ks_test::default_signals();
    pfm_signal(SIGUSR1, ks_test::raise_number);
    ks_test::signal_in_call("getpwnam", 0, SIGUSR1);
    const ks_test::Landing landing = ks_test::land([] { sysutl_user_to_fullname("ann"); });
    EXPECT_EQ(landing.status, SIGUSR1);
    EXPECT_STREQ(sysutl_user_to_fullname("ann"), "Ann ann Co");
    EXPECT_EQ(count_calls("getpwnam"), 1);
  });
}

TEST(SysutlUserToFullname, ForgetsNothingWhenStorageRunsOut) {
  in_system_with_users([] {
    const char *bob = sysutl_user_to_fullname("bob");
    for (int nth = 0; nth < 2; ++nth) {
      ks_test::fail_call("malloc", nth, ENOMEM);
      EXPECT_EQ(sysutl_user_to_fullname("ann"), nullptr) << nth;
      EXPECT_EQ(sysutl_user_to_fullname("bob"), bob) << nth;
    }
    EXPECT_STREQ(sysutl_user_to_fullname("ann"), "Ann ann Co");
  });
}

TEST(SysutlMyfullname, IsTheLoginNamesFullName) {
  in_system_with_users([] {
    be_user(1000);
    EXPECT_STREQ(sysutl_myfullname(), "Ann ann Co");
    be_user(1002);
    EXPECT_STREQ(sysutl_myfullname(), "");
    be_user(4242);
    EXPECT_EQ(sysutl_myfullname(), nullptr);
  });
}

TEST(SysutlMyfullname, IsTheLoginNameWithoutOne) {
  in_system_with_users([] {
    be_user(1000);
    ks_test::hide_full_names();
    EXPECT_STREQ(sysutl_myfullname(), "ann");
  });
}

TEST(SysutlMyfullname, IsRememberedForTheLoginName) {
  in_system_with_users([] {
    be_user(1000);
    const char *ann = sysutl_myfullname();
    EXPECT_STREQ(sysutl_user_to_fullname("bob"), "Bob Brown");
    const int look_ups = count_calls("getpwnam");
    EXPECT_EQ(sysutl_myfullname(), ann);
    EXPECT_STREQ(ann, "Ann ann Co");
    EXPECT_EQ(count_calls("getpwnam"), look_ups);
    be_user(1001);
    EXPECT_STREQ(sysutl_myfullname(), "Bob Brown");
  });
}

TEST(SysutlMyfullname, IsNullWithoutStorageAndAskedForAgain) {
  in_system_with_users([] {
    be_user(1000);
    ASSERT_STREQ(sysutl_myloginname(), "ann");
    ASSERT_STREQ(sysutl_user_to_fullname("ann"), "Ann ann Co");
    for (int nth = 0; nth < 2; ++nth) {
      ks_test::fail_call("malloc", nth, ENOMEM);
      EXPECT_EQ(sysutl_myfullname(), nullptr) << nth;
    }
    EXPECT_STREQ(sysutl_myfullname(), "Ann ann Co");
  });
}

}  // namespace

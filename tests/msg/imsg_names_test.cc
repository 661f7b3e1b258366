// The application's name, and the two names that are only kept.
#include <gtest/gtest.h>
#include <sys/stat.h>
#include <unistd.h>

#include <cerrno>
#include <cstring>
#include <string>

#include "imsg.h"
#include "support/faults.h"
#include "support/folder.h"
#include "support/locale.h"

namespace {

std::string app_name(const char *path) {
  imsg_set_app_name(path);
  return imsg_get_app_name();
}

TEST(ImsgAppName, IsNonameUntilItIsSet) { EXPECT_STREQ(imsg_get_app_name(), "noname"); }

TEST(ImsgAppName, IsWhatFollowsTheLastSlash) {
  EXPECT_EQ(app_name("/usr/bin/tool"), "tool");
  EXPECT_EQ(app_name("./tool"), "tool");
  EXPECT_EQ(app_name("tool"), "tool");
  EXPECT_EQ(app_name("/tool"), "tool");
  EXPECT_EQ(app_name("tool.v2-x"), "tool.v2-x");
  EXPECT_EQ(app_name("back\\slash"), "back\\slash");
}

TEST(ImsgAppName, IsEmptyBehindATrailingSlash) {
  EXPECT_EQ(app_name("bin/"), "");
  EXPECT_EQ(app_name("/"), "");
  EXPECT_EQ(app_name(""), "");
}

TEST(ImsgAppName, ComesBackToNonameByNull) {
  EXPECT_EQ(app_name("/usr/bin/tool"), "tool");
  EXPECT_EQ(app_name(nullptr), "noname");
  EXPECT_EQ(app_name(nullptr), "noname");
  EXPECT_EQ(app_name("noname"), "noname");
  EXPECT_EQ(app_name("again"), "again");
}

TEST(ImsgAppName, IsACopy) {
  char path[] = "/usr/bin/tool";
  imsg_set_app_name(path);
  memset(path, 'x', strlen(path));
  EXPECT_STREQ(imsg_get_app_name(), "tool");
}

TEST(ImsgAppName, MayBeSetFromItself) {
  imsg_set_app_name("tool");
  imsg_set_app_name(imsg_get_app_name());
  EXPECT_STREQ(imsg_get_app_name(), "tool");
}

TEST(ImsgAppName, IsCutByWholeCharacters) {
  ks_test::use_locale("ja_JP.SJIS");
  // 0x95 0x5C is one character; 0x95 in front of a slash is none, and the slash separates.
  EXPECT_EQ(app_name("/bin/\x95\x5c"), "\x95\x5c");
  EXPECT_EQ(app_name("\x95\x5c/tool"), "tool");
  EXPECT_EQ(app_name("\x95/tool"), "tool");
  EXPECT_EQ(app_name("/tool\x95"), "tool\x95");
}

TEST(ImsgAppName, StaysWithoutStorageForANewOne) {
  imsg_set_app_name("old");
  ks_test::fail_call("strdup", 0, ENOMEM);
  EXPECT_EQ(app_name("/usr/bin/new"), "old");
  EXPECT_EQ(app_name("/usr/bin/new"), "new");
}

TEST(ImsgAppName, StaysNonameWithoutStorage) {
  ks_test::fail_call("strdup", 0, ENOMEM);
  EXPECT_EQ(app_name("tool"), "noname");
}

// Nothing reads the other two: what can be seen is that values are copied and replaced soundly,
// which the sanitizers watch, and what the calls answer.

TEST(ImsgMessageHome, TakesNamesAndNull) {
  const int copies = ks_test::count_calls("strdup");
  for (const char *home : {"/one", "/two", "", "/opt/quillons/tallowbay"}) {
    imsg_set_message_home(home);
  }
  EXPECT_EQ(ks_test::count_calls("strdup"), copies + 4);
  imsg_set_message_home(nullptr);
  imsg_set_message_home(nullptr);
  EXPECT_EQ(ks_test::count_calls("strdup"), copies + 4);
  ks_test::fail_call("strdup", 0, ENOMEM);
  imsg_set_message_home("/three");
  imsg_set_message_home(nullptr);
  EXPECT_STREQ(imsg_get_app_name(), "noname");
}

TEST(ImsgErrnumFile, TakesAReadableFile) {
  const ks_test::Folder folder;
  EXPECT_EQ(imsg_set_errnum_file(folder.write("errnum", "1 one\n").c_str()), 0);
  EXPECT_EQ(imsg_set_errnum_file(folder.write("other", "").c_str()), 0);
  EXPECT_EQ(imsg_set_errnum_file(folder.path().c_str()), 0);
  EXPECT_EQ(imsg_set_errnum_file(nullptr), 0);
  EXPECT_EQ(imsg_set_errnum_file(nullptr), 0);
}

TEST(ImsgErrnumFile, RefusesAMissingFileAndKeepsTheOldName) {
  const ks_test::Folder folder;
  EXPECT_EQ(imsg_set_errnum_file(folder.write("errnum", "").c_str()), 0);
  const int copies = ks_test::count_calls("strdup");
  errno = 0;
  EXPECT_EQ(imsg_set_errnum_file(folder.path("missing").c_str()), -1);
  EXPECT_EQ(errno, ENOENT);
  EXPECT_EQ(imsg_set_errnum_file(""), -1);
  EXPECT_EQ(ks_test::count_calls("strdup"), copies);
}

// Root may read every file; another user may not.
TEST(ImsgErrnumFile, RefusesAFileThatTheUserMayNotRead) {
  const ks_test::Folder folder;
  const std::string file = folder.write("errnum", "");
  ASSERT_EQ(chmod(file.c_str(), 0), 0);
  ASSERT_EQ(chmod(folder.path().c_str(), 0755), 0);
  if (getuid() == 0) {
    ASSERT_EQ(setreuid(65534, 0), 0);  // access asks for the real user
  }
  errno = 0;
  EXPECT_EQ(imsg_set_errnum_file(file.c_str()), -1);
  EXPECT_EQ(errno, EACCES);
}

}  // namespace

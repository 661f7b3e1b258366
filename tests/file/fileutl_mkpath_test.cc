#include <gtest/gtest.h>
#include <sys/stat.h>
#include <unistd.h>

#include <cerrno>
#include <string>

#include "fileutl.h"
#include "support/child.h"
#include "support/faults.h"
#include "support/folder.h"
#include "file/files.h"

using ks_test::Folder;
using ks_test::in_child;

namespace {

bool is_directory(const std::string &path) {
  fileutl_stat_t record;
  fileutl_stat(path.c_str(), 0, &record);
  return record.st_nlink != 0 && S_ISDIR(record.st_mode);
}

mode_t mode_of(const std::string &path) {
  fileutl_stat_t record;
  EXPECT_EQ(fileutl_stat(path.c_str(), 0, &record), 0);
  return record.st_mode & 07777;
}

TEST(FileutlMkpath, MakesTheParentsOfAFile) {
  const Folder folder;
  EXPECT_EQ(fileutl_mkpath(folder.path("a/b/c").c_str(), 0777, 0), 0);
  EXPECT_TRUE(is_directory(folder.path("a/b")));
  EXPECT_FALSE(fileutl_exists(folder.path("a/b/c").c_str(), 0));
  EXPECT_EQ(fileutl_mkpath(folder.path("a/b/c").c_str(), 0777, 0), 0) << "nothing is left to do";
}

TEST(FileutlMkpath, MakesAllOfItWithTheModeOfTheCaller) {
  const Folder folder;
  umask(022);
  EXPECT_EQ(fileutl_mkpath(folder.path("a//b/c//").c_str(), 0770, 1), 0);
  EXPECT_EQ(mode_of(folder.path("a")), 0750u);
  EXPECT_EQ(mode_of(folder.path("a/b")), 0750u);
  EXPECT_EQ(mode_of(folder.path("a/b/c")), 0750u);
}

TEST(FileutlMkpath, FailsWhenTheLastIsThereAlready) {
  const Folder folder;
  EXPECT_EQ(fileutl_mkpath(folder.path().c_str(), 0777, 1), 1);
  EXPECT_EQ(errno, EEXIST);
  EXPECT_EQ(fileutl_mkpath("/", 0777, 1), 1);
  EXPECT_EQ(errno, EEXIST);
  EXPECT_EQ(fileutl_mkpath("/", 0777, 0), 0);
}

TEST(FileutlMkpath, TakesTheCurrentDirectoryForAnEmptyOne) {
  const Folder folder;
  ASSERT_EQ(chdir(folder.path().c_str()), 0);
  EXPECT_EQ(fileutl_mkpath("a", 0777, 1), 0);
  EXPECT_TRUE(is_directory(folder.path("a")));
  EXPECT_EQ(fileutl_mkpath("b/c", 0777, 1), 0);
  EXPECT_TRUE(is_directory(folder.path("b/c")));
  EXPECT_EQ(fileutl_mkpath("", 0777, 0), 0);
  EXPECT_EQ(fileutl_mkpath("", 0777, 1), 1);
  EXPECT_EQ(errno, ENOENT);
  ASSERT_EQ(chdir("/"), 0);
}

TEST(FileutlMkpath, ParentMayBeALinkButNotADanglingOneOrAFile) {
  const Folder folder;
  folder.write("real/file", "");
  ASSERT_EQ(symlink("real", folder.path("link").c_str()), 0);
  ASSERT_EQ(symlink("absent", folder.path("dangling").c_str()), 0);
  EXPECT_EQ(fileutl_mkpath(folder.path("link/a").c_str(), 0777, 1), 0);
  EXPECT_TRUE(is_directory(folder.path("real/a")));
  EXPECT_EQ(fileutl_mkpath(folder.path("dangling/a").c_str(), 0777, 1), 1);
  EXPECT_EQ(errno, EEXIST);
  EXPECT_EQ(fileutl_mkpath(folder.path("real/file/a").c_str(), 0777, 1), 1);
  EXPECT_EQ(errno, ENOTDIR);
}

TEST(FileutlMkpath, PartsHaveAtMost1023And255Bytes) {
  const Folder folder;
  const std::string slashes(1023 - folder.path().size() - 2, '/');
  const std::string longest = folder.path() + slashes + "./";
  ASSERT_EQ(longest.size(), 1023u);
  EXPECT_EQ(
      fileutl_mkpath((longest.substr(0, 1022) + "//" + std::string(255, 'l')).c_str(), 0777, 1), 0);
  EXPECT_TRUE(is_directory(folder.path(std::string(255, 'l'))));
  errno = 0;
  EXPECT_EQ(fileutl_mkpath(folder.path(std::string(256, 'l')).c_str(), 0777, 1), 1);
  EXPECT_EQ(errno, ENAMETOOLONG);
  errno = 0;
  EXPECT_EQ(fileutl_mkpath((folder.path() + slashes + "..." + "/a").c_str(), 0777, 0), 1);
  EXPECT_EQ(errno, ENAMETOOLONG);
}

TEST(FileutlMkpath, DeepPathsAreMadeToTheLastLevel) {
  const Folder folder;
  std::string path = folder.path();
  int levels = 0;
  for (; path.size() < 1018; ++levels) path += "/d";
  EXPECT_EQ(fileutl_mkpath(path.c_str(), 0777, 1), 0);
  EXPECT_TRUE(is_directory(path));
  EXPECT_GT(levels, 400);
}

TEST(FileutlMkpath, NeverMakesTheRoot) {
  ks_test::fail_call("fstatat64", 0, EIO);
  errno = 0;
  EXPECT_EQ(fileutl_mkpath("/a", 0777, 0), 1);
  EXPECT_EQ(errno, ENOENT);
}

TEST(FileutlMkpath, EndsWhereNothingAtAllCanBeReached) {
  const Folder folder;
  ASSERT_EQ(chmod(folder.path().c_str(), 0), 0);
  const ks_test::Outcome outcome = in_child([&] {
    if (chdir(folder.path().c_str()) != 0) _exit(98);
    ks_test::become_nobody();
    const bool relative = fileutl_mkpath("a/b", 0777, 1) == 1 && errno == EACCES;
    const bool absolute = fileutl_mkpath(folder.path("a/b").c_str(), 0777, 1) == 1;
    _exit(relative && absolute && errno == EACCES ? 0 : 1);
  });
  EXPECT_EQ(outcome.end(), "exit 0");
}

}  // namespace

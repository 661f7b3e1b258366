#include <gtest/gtest.h>
#include <sys/stat.h>

#include <cerrno>
#include <string>

#include "fileutl.h"
#include "support/exact_text.h"
#include "support/folder.h"

using ks_test::ExactText;
using ks_test::Folder;

namespace {

TEST(FileutlRename, IsTheSystems) {
  const Folder folder;
  folder.write("old", "text");
  folder.write("taken", "gone");
  EXPECT_EQ(fileutl_rename(folder.path("old").c_str(), folder.path("taken").c_str()), 0);
  EXPECT_EQ(folder.read("taken"), "text");
  EXPECT_EQ(fileutl_exists(folder.path("old").c_str(), 0), 0);
  EXPECT_EQ(fileutl_rename(folder.path("old").c_str(), folder.path("new").c_str()), 1);
  EXPECT_EQ(errno, ENOENT);
}

// Renames "x" in the folder and returns the new name in the folder.
std::string rename_unique(const Folder &folder, const char *suffix) {
  const std::string path = folder.write("x", "moved");
  char name[1024];
  errno = EIO;
  EXPECT_EQ(fileutl_rename_unique(path.c_str(), suffix, sizeof name, name), 0);
  EXPECT_EQ(errno, 0);
  EXPECT_EQ(fileutl_exists(path.c_str(), 0), 0);
  const std::string in_folder = std::string(name).substr(folder.path().size() + 1);
  EXPECT_EQ(folder.read(in_folder), "moved");
  return in_folder;
}

TEST(FileutlRenameUnique, TakesTheSuffixAndThenTheFirstFreeNumber) {
  const Folder folder;
  EXPECT_EQ(rename_unique(folder, ".bak"), "x.bak");
  EXPECT_EQ(rename_unique(folder, ".bak"), "x.bak.1");
  EXPECT_EQ(rename_unique(folder, ".bak"), "x.bak.2");
  folder.write("x.bak.4", "");
  EXPECT_EQ(rename_unique(folder, ".bak"), "x.bak.3");
  EXPECT_EQ(rename_unique(folder, ".bak"), "x.bak.5");
}

TEST(FileutlRenameUnique, WithoutASuffixTheOwnNameIsTaken) {
  const Folder folder;
  EXPECT_EQ(rename_unique(folder, nullptr), "x.1");
  EXPECT_EQ(rename_unique(folder, ""), "x.2");
}

TEST(FileutlRenameUnique, NumbersHaveNoUpperLimit) {
  const Folder folder;
  folder.write("x.bak", "");
  for (int number = 1; number < 1001; ++number) folder.write("x.bak." + std::to_string(number), "");
  EXPECT_EQ(rename_unique(folder, ".bak"), "x.bak.1001");
}

TEST(FileutlRenameUnique, FailsWhereThereIsNothing) {
  const Folder folder;
  char name[1024] = "untouched";
  EXPECT_EQ(fileutl_rename_unique(folder.path("absent").c_str(), ".bak", sizeof name, name), 1);
  EXPECT_EQ(errno, ENOENT);
  EXPECT_STREQ(name, "untouched");
}

// A path of so many bytes in a folder below.
std::string long_path(const Folder &folder, size_t bytes) {
  std::string path = folder.path();
  while (path.size() + 202 < bytes) {
    path += "/" + std::string(100, 'd');
    mkdir(path.c_str(), 0777);  // some are there from a call before
  }
  path += "/" + std::string(bytes - path.size() - 1, 'f');
  fclose(fopen(path.c_str(), "w"));
  return path;
}

TEST(FileutlRenameUnique, CandidateHasAtMost1023Bytes) {
  const Folder folder;
  const ExactText name("", 1024);
  std::string path = long_path(folder, 1021);
  EXPECT_EQ(fileutl_rename_unique(path.c_str(), ".b", 1024, name), 0);
  EXPECT_EQ(name.get(), path + ".b");

  path = long_path(folder, 1022);
  errno = 0;
  EXPECT_EQ(fileutl_rename_unique(path.c_str(), ".b", 1024, name), 1);
  EXPECT_EQ(errno, ENAMETOOLONG);
  EXPECT_EQ(fileutl_exists(path.c_str(), 0), 1) << "nothing has happened to it";

  path = long_path(folder, 1022);
  EXPECT_EQ(fileutl_rename_unique(path.c_str(), nullptr, 1024, name), 1) << "no room for .1";
  EXPECT_EQ(errno, ENAMETOOLONG);
}

TEST(FileutlRenameUnique, KeepsTheNewNameWhenTheCallersBufferIsTooSmall) {
  const Folder folder;
  const std::string path = folder.write("x", "moved");
  const std::string expected = path + ".b";
  ExactText exact("", expected.size() + 1);
  EXPECT_EQ(fileutl_rename_unique(path.c_str(), ".b", expected.size() + 1, exact), 0);
  EXPECT_EQ(exact.get(), expected);

  folder.write("x", "again");
  ExactText small("", path.size());
  errno = 0;
  EXPECT_EQ(fileutl_rename_unique(path.c_str(), ".b", path.size(), small), 1);
  EXPECT_EQ(errno, ENAMETOOLONG);
  EXPECT_EQ(small.get(), path.substr(0, path.size() - 1));
  EXPECT_EQ(folder.read("x.b.1"), "again");
}

}  // namespace

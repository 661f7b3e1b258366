#include <gtest/gtest.h>

#include <cerrno>
#include <string>
#include <string_view>

#include "fileutl.h"
#include "support/exact_text.h"
#include "support/random.h"

using ks_test::ExactText;

namespace {

TEST(FileutlStripLeaf, CutsAPathInTwo) {
  const struct {
    const char *path, *directory, *leaf;
  } kRows[] = {
      {"a/b/c", "a/b", "c"}, {"a/b/", "a", "b"},      {"a//b", "a", "b"},      {"a", "", "a"},
      {"a/", "", "a"},       {"/a", "/", "a"},        {"//a", "/", "a"},       {"/", "/", ""},
      {"", "", ""},          {"//", "/", ""},         {"/a/", "/", "a"},       {"/a//", "/", "a"},
      {"a//b//", "a", "b"},  {"///a/b", "///a", "b"}, {"a///", "", "a"},       {"./a", ".", "a"},
      {"../..", "..", ".."}, {"a/b//c", "a/b", "c"},  {"a//b/c", "a//b", "c"}, {"/a/b", "/a", "b"},
  };
  for (const auto &row : kRows) {
    const ExactText path(row.path);
    const ExactText directory("", strlen(row.directory) + 1);
    const ExactText leaf("", strlen(row.leaf) + 1);
    EXPECT_EQ(
        fileutl_strip_leaf(path, strlen(row.directory) + 1, directory, strlen(row.leaf) + 1, leaf),
        0)
        << row.path;
    EXPECT_STREQ(directory.get(), row.directory) << row.path;
    EXPECT_STREQ(leaf.get(), row.leaf) << row.path;
  }
}

TEST(FileutlStripLeaf, WhatDoesNotFitIsTooLong) {
  const ExactText directory("", 4), leaf("", 4);
  errno = 0;
  EXPECT_EQ(fileutl_strip_leaf("abc/def", 4, directory, 3, leaf), 1);
  EXPECT_EQ(errno, ENAMETOOLONG);
  EXPECT_STREQ(directory.get(), "abc");
  EXPECT_STREQ(leaf.get(), "de");
  errno = 0;
  EXPECT_EQ(fileutl_strip_leaf("abc/def", 3, directory, 4, leaf), 1);
  EXPECT_EQ(errno, ENAMETOOLONG);
  EXPECT_STREQ(directory.get(), "ab");
  EXPECT_STREQ(leaf.get(), "def");
  errno = 0;
  EXPECT_EQ(fileutl_strip_leaf("", 0, nullptr, 1, leaf), 1) << "not even the NUL fits";
  EXPECT_EQ(errno, ENAMETOOLONG);
}

// The parts by the words of the rule, a character at a time.
void strip_slowly(std::string path, std::string &directory, std::string &leaf) {
  const bool absolute = !path.empty() && path.front() == '/';
  directory = leaf = "";
  while (!path.empty() && path.back() == '/') path.pop_back();
  while (!path.empty() && path.back() != '/') {
    leaf.insert(leaf.begin(), path.back());
    path.pop_back();
  }
  while (!path.empty() && path.back() == '/') path.pop_back();
  directory = path.empty() && absolute ? "/" : path;
}

TEST(FileutlStripLeaf, AgreesWithAModel) {
  ks_test::Random random(20261121);
  for (int turn = 0; turn < 20000; ++turn) {
    std::string path;
    for (unsigned length = random() / 16 % 12; length > 0; --length) {
      path += "//ab"[random() / 16 % 4];
    }
    std::string directory, leaf;
    strip_slowly(path, directory, leaf);
    char got_directory[20], got_leaf[20];
    ASSERT_EQ(fileutl_strip_leaf(path.c_str(), 20, got_directory, 20, got_leaf), 0);
    ASSERT_EQ(got_directory, directory) << path;
    ASSERT_EQ(got_leaf, leaf) << path;
  }
}

TEST(FileutlFindPnameSepLeft, FindsTheFirstSlash) {
  const char *path = "ab/c/d";
  EXPECT_EQ(fileutl_find_pname_sep_left(path), path + 2);
  EXPECT_EQ(fileutl_find_pname_sep_left(path + 2), path + 2);
  EXPECT_EQ(fileutl_find_pname_sep_left("abc"), nullptr);
  EXPECT_EQ(fileutl_find_pname_sep_left(""), nullptr);
}

TEST(FileutlPnameEqual, ComparesBytesOnly) {
  EXPECT_EQ(fileutl_pname_equal("a/b", "a/b"), 1);
  EXPECT_EQ(fileutl_pname_equal("", ""), 1);
  EXPECT_EQ(fileutl_pname_equal("a/b", "a//b"), 0);
  EXPECT_EQ(fileutl_pname_equal("a/b", "a/b/"), 0);
  EXPECT_EQ(fileutl_pname_equal("a", "A"), 0);
  EXPECT_EQ(fileutl_pname_equal("a", "ab"), 0);
}

}  // namespace

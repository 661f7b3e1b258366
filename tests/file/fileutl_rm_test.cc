#include <fcntl.h>
#include <gtest/gtest.h>
#include <sys/stat.h>
#include <unistd.h>

#include <algorithm>
#include <cerrno>
#include <filesystem>
#include <string>
#include <vector>

#include "fileutl.h"
#include "support/child.h"
#include "support/faults.h"
#include "support/folder.h"
#include "file/files.h"

namespace fs = std::filesystem;

using ks_test::error_line;
using ks_test::Folder;
using ks_test::in_child;
using ks_test::open_descriptors;
using ks_test::Outcome;
using ks_test::printed_by;

namespace {

constexpr int kFailed = -4;

bool exists(const std::string &path) { return fileutl_exists(path.c_str(), 0) != 0; }

TEST(FileutlRm, RemovesATree) {
  const Folder folder;
  folder.write("tree/a/b/c/file", "");
  folder.write("tree/\xff\n", "");
  folder.write("tree/" + std::string(200, 'n') + "/x", "");
  ASSERT_EQ(mkfifo(folder.path("tree/fifo").c_str(), 0666), 0);
  const ptrdiff_t descriptors = open_descriptors();
  EXPECT_EQ(fileutl_rm(folder.path("tree").c_str(), FILEUTL_WALK_RECURSE), 0);
  EXPECT_FALSE(exists(folder.path("tree")));
  EXPECT_EQ(open_descriptors(), descriptors);
}

TEST(FileutlRm, RemovesASingleObject) {
  const Folder folder;
  folder.write("file", "");
  ASSERT_EQ(mkdir(folder.path("empty").c_str(), 0777), 0);
  EXPECT_EQ(fileutl_rm(folder.path("file").c_str(), 0), 0);
  EXPECT_EQ(fileutl_rm(folder.path("empty").c_str(), 0), 0);
  EXPECT_TRUE(fs::is_empty(folder.path()));
}

TEST(FileutlRm, WithoutRecursionAFullDirectoryStays) {
  const Folder folder;
  folder.write("full/file", "");
  const std::string path = folder.path("full");
  const std::string printed = printed_by([&] { EXPECT_EQ(fileutl_rm(path.c_str(), 0), kFailed); });
  EXPECT_EQ(printed, error_line(path + ": Directory not empty"));
  EXPECT_TRUE(exists(folder.path("full/file")));
  EXPECT_EQ(printed_by([&] { EXPECT_EQ(fileutl_rm(path.c_str(), FILEUTL_WALK_QUIET), kFailed); }),
            "");
}

TEST(FileutlRm, RemovesLinksAndNotWhatTheyLeadTo) {
  const Folder folder;
  folder.write("outside/file", "kept");
  ASSERT_EQ(mkdir(folder.path("tree").c_str(), 0777), 0);
  ASSERT_EQ(symlink("../outside", folder.path("tree/link").c_str()), 0);
  ASSERT_EQ(symlink("nowhere", folder.path("tree/dangling").c_str()), 0);
  ASSERT_EQ(symlink("tree", folder.path("root").c_str()), 0);
  EXPECT_EQ(fileutl_rm(folder.path("tree").c_str(), FILEUTL_WALK_RECURSE), 0);
  EXPECT_EQ(fileutl_rm(folder.path("root").c_str(), FILEUTL_WALK_RECURSE), 0);
  EXPECT_EQ(folder.read("outside/file"), "kept");
  EXPECT_FALSE(exists(folder.path("tree")));
  EXPECT_FALSE(exists(folder.path("root")));
}

TEST(FileutlRm, KeepsALinkToADirectoryThatIsFollowed) {
  const Folder folder;
  folder.write("outside/file", "");
  ASSERT_EQ(symlink("outside", folder.path("root").c_str()), 0);
  const std::string root = folder.path("root");
  const std::string printed = printed_by([&] {
    EXPECT_EQ(fileutl_rm(root.c_str(), FILEUTL_WALK_RECURSE | FILEUTL_WALK_FOLLOW_ALL), kFailed);
  });
  EXPECT_EQ(printed, error_line(root + ": Not a directory"));
  EXPECT_TRUE(fs::is_empty(folder.path("outside")));
  EXPECT_TRUE(exists(root));
}

TEST(FileutlRm, NothingThereIsAFailure) {
  const Folder folder;
  const std::string path = folder.path("absent");
  EXPECT_EQ(printed_by([&] { EXPECT_EQ(fileutl_rm(path.c_str(), 2), kFailed); }),
            error_line(path + ": No such file or directory"));
}

TEST(FileutlRm, PrintsEachObjectFirstOnRequest) {
  const Folder folder;
  folder.write("tree/a/file", "");
  const Outcome outcome = in_child([&] {
    _exit(fileutl_rm(folder.path("tree").c_str(), FILEUTL_WALK_RECURSE | FILEUTL_WALK_TRACE));
  });
  EXPECT_EQ(outcome.end(), "exit 0");
  const std::string tree = folder.path("tree");
  EXPECT_EQ(outcome.out,
            "unlink( " + tree + "/a/file )\nunlink( " + tree + "/a )\nunlink( " + tree + " )\n");
}

// What one may not remove is said, and all else goes.
TEST(FileutlRm, GoesOnBehindAFailure) {
  const Folder folder;
  folder.write("tree/open/file", "");
  folder.write("tree/shut/file", "");
  ASSERT_EQ(chmod(folder.path().c_str(), 0755), 0);
  ASSERT_EQ(chmod(folder.path("tree").c_str(), 0777), 0);
  ASSERT_EQ(chmod(folder.path("tree/open").c_str(), 0777), 0);
  ASSERT_EQ(chmod(folder.path("tree/shut").c_str(), 0755), 0);
  const std::string tree = folder.path("tree");
  const Outcome outcome = in_child([&] {
    ks_test::become_nobody();
    _exit(fileutl_rm(tree.c_str(), FILEUTL_WALK_RECURSE) == kFailed ? 0 : 1);
  });
  EXPECT_EQ(outcome.end(), "exit 0");
  EXPECT_FALSE(exists(folder.path("tree/open")));
  EXPECT_TRUE(exists(folder.path("tree/shut/file")));
  std::vector<std::string> lines;
  for (const auto &line : {tree + "/shut/file: Permission denied",
                           tree + "/shut: Directory not empty", tree + ": Permission denied"}) {
    EXPECT_NE(outcome.err.find(error_line(line)), std::string::npos) << line << "\n" << outcome.err;
  }
  EXPECT_EQ(std::count(outcome.err.begin(), outcome.err.end(), '\n'), 3) << outcome.err;
}

// Of a directory that can be listed but not searched nothing is known but the names. None of what is
// in it can be looked at, which the walk says of each and which does not end it.
TEST(FileutlRm, DirectoryThatCanOnlyBeListedIsSpokenOfAsByAnyWalk) {
  const Folder folder;
  folder.write("tree/shut/a", "");
  folder.write("tree/shut/b", "");
  ASSERT_EQ(chmod(folder.path().c_str(), 0755), 0);
  ASSERT_EQ(chmod(folder.path("tree").c_str(), 0777), 0);
  ASSERT_EQ(chmod(folder.path("tree/shut").c_str(), 0744), 0);
  const std::string tree = folder.path("tree"), shut = tree + "/shut";
  for (const int stop : {0, int{FILEUTL_WALK_STOP_ON_ERROR}}) {
    const Outcome outcome = in_child([&] {
      ks_test::become_nobody();
      _exit(fileutl_rm(tree.c_str(), FILEUTL_WALK_RECURSE | stop) == kFailed ? 0 : 1);
    });
    EXPECT_EQ(outcome.end(), "exit 0");
    for (const char *name : {"/a", "/b"}) {
      EXPECT_NE(outcome.err.find(error_line(shut + name + ": Permission denied")),
                std::string::npos)
          << outcome.err;
    }
    EXPECT_EQ(std::count(outcome.err.begin(), outcome.err.end(), '\n'), stop != 0 ? 2 : 4)
        << outcome.err;
  }
}

TEST(FileutlRm, InterruptedRemovalIsRepeated) {
  const Folder folder;
  folder.write("tree/a/file", "");
  ks_test::fail_call("unlinkat", 0, EINTR, 2);
  EXPECT_EQ(fileutl_rm(folder.path("tree").c_str(), FILEUTL_WALK_RECURSE), 0);
  ASSERT_EQ(mkdir(folder.path("tree").c_str(), 0777), 0);
  ks_test::fail_call("unlinkat", 0, EINTR, 2);
  EXPECT_EQ(fileutl_rm(folder.path("tree").c_str(), 0), 0);
}

// A tree with a directory, and a link to one outside that is put in its place meanwhile.
struct Swapped {
  Folder folder;
  std::string tree = folder.path("tree");
  std::string inner = folder.path("tree/inner");
  std::string link = folder.path("link");

  Swapped() {
    folder.write("tree/inner/file", "");
    EXPECT_EQ(mkdir(folder.path("tree/inner/deep").c_str(), 0777), 0);
    folder.write("outside/file", "kept");
    EXPECT_EQ(symlink("../outside", link.c_str()), 0);
  }

  std::string remove(const char *call, int nth) const {
    const ks_test::Exchange exchange(call, nth, inner, link);
    return printed_by([&] { EXPECT_EQ(fileutl_rm(tree.c_str(), FILEUTL_WALK_RECURSE), kFailed); });
  }
};

TEST(FileutlRm, LinkPutInADirectorysPlaceBeforeItIsOpenedIsNotEntered) {
  const Swapped swapped;
  // The first directory that is opened is the root. The other is neither opened nor removed.
  EXPECT_EQ(swapped.remove("openat64", 1), error_line(swapped.inner + ": Not a directory") +
                                               error_line(swapped.inner + ": Not a directory") +
                                               error_line(swapped.tree + ": Directory not empty"));
  EXPECT_EQ(swapped.folder.read("outside/file"), "kept");
  EXPECT_TRUE(exists(swapped.link + "/file")) << "nor is what has been moved away";
}

TEST(FileutlRm, LinkPutInADirectorysPlaceBehindItsOpeningLeadsNowhere) {
  const Swapped swapped;
  // The root, the directory, the directory in it.
  EXPECT_EQ(swapped.remove("fstatat64", 2), error_line(swapped.inner + ": Not a directory") +
                                                error_line(swapped.tree + ": Directory not empty"));
  EXPECT_EQ(swapped.folder.read("outside/file"), "kept");
  EXPECT_FALSE(exists(swapped.link + "/file")) << "it was in the tree when it was reached";
  EXPECT_FALSE(exists(swapped.link + "/deep"));
}

// Of all objects where a time may not fit their record: only a look tells.
TEST(FileutlRm, LooksAtDirectoriesOnlyUnlessItTraces) {
  const bool times_fit = sizeof(time_t) > 4;
  for (const int flags : {0, int{FILEUTL_WALK_TRACE}}) {
    const Folder folder;
    for (const char *name : {"tree/a", "tree/b", "tree/c"}) folder.write(name, "");
    const int before = ks_test::count_calls("fstatat64");
    printed_by([&] {
      EXPECT_EQ(fileutl_rm(folder.path("tree").c_str(), FILEUTL_WALK_RECURSE | flags), 0);
    });
    EXPECT_EQ(ks_test::count_calls("fstatat64") - before, flags == 0 && times_fit ? 1 : 4);
  }
}

}  // namespace

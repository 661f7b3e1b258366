#include <gmock/gmock.h>
#include <gtest/gtest.h>
#include <sys/stat.h>
#include <unistd.h>

#include <algorithm>
#include <cerrno>
#include <climits>
#include <cstddef>
#include <cstdlib>
#include <cstring>
#include <map>
#include <string>
#include <vector>

#include "fileutl.h"
#include "pfm.h"
#include "support/child.h"
#include "support/faults.h"
#include "support/folder.h"
#include "file/files.h"
#include "file/walking.h"

using ks_test::error_line;
using ks_test::Folder;
using ks_test::open_descriptors;
using ks_test::Outcome;
using ks_test::printed_by;
using ks_test::WalkCall;
using ks_test::Walker;
using testing::ElementsAre;

namespace {

constexpr int kBefore = FILEUTL_WALK_BEFORE, kAfter = FILEUTL_WALK_AFTER, kBoth = kBefore | kAfter;
constexpr int kRecurse = FILEUTL_WALK_RECURSE;
constexpr int kFailed = -4;

int walk(const std::string &path, const Walker &walker, int flags) {
  return fileutl_walk_tree(path.c_str(), walker.chain(), flags);
}

TEST(FileutlWalkFlags, HaveTheStatedValues) {
  static_assert(FILEUTL_WALK_STOP_ON_ERROR == 1 && FILEUTL_WALK_RECURSE == 2 &&
                FILEUTL_WALK_FOLLOW_ROOT == 4 && FILEUTL_WALK_FOLLOW_ALL == 8 &&
                FILEUTL_WALK_QUIET == 16 && FILEUTL_WALK_TRACE == 32);
  static_assert(FILEUTL_WALK_BEFORE == 1 && FILEUTL_WALK_AFTER == 2);
  static_assert(FILEUTL_WALK_SKIP == 1 && FILEUTL_WALK_STOP == 2 && FILEUTL_WALK_FAILED == -4);
}

TEST(FileutlWalkRecords, HaveTheStatedLayout) {
  constexpr size_t kWord = sizeof(void *);
  static_assert(offsetof(fileutl_walk_callback_t, next) == 0);
  static_assert(offsetof(fileutl_walk_callback_t, when) == kWord);
  static_assert(offsetof(fileutl_walk_callback_t, function) == 2 * kWord);
  static_assert(offsetof(fileutl_walk_callback_t, argument) == 3 * kWord);
  static_assert(sizeof(fileutl_walk_callback_t) == 4 * kWord);
  static_assert(offsetof(fileutl_walk_ops_t, stat_object) == 0);
  static_assert(offsetof(fileutl_walk_ops_t, open_directory) == kWord);
  static_assert(offsetof(fileutl_walk_ops_t, read_directory) == 2 * kWord);
  static_assert(offsetof(fileutl_walk_ops_t, close_directory) == 3 * kWord);
  static_assert(sizeof(fileutl_walk_ops_t) == 4 * kWord);
}

TEST(FileutlWalkTree, PlainFileGetsAllCallbacksOnceWhateverTheirBits) {
  const Folder folder;
  const std::string path = folder.write("file", "");
  const Walker walker({0, kBefore, kAfter, kBoth});
  EXPECT_EQ(walk(path, walker, kRecurse), 0);
  ASSERT_EQ(walker.calls().size(), 4u);
  for (size_t i = 0; i < 4; ++i) {
    EXPECT_EQ(walker.calls()[i],
              (WalkCall{static_cast<int>(i), path, path, "NULL", "NULL", S_IFREG, 1, 0}));
  }
}

TEST(FileutlWalkTree, TellsEachCallWhereItIs) {
  const Folder folder;
  folder.write("tree/a/b/file", "");
  const std::string tree = folder.path("tree");
  const Walker walker({kBoth});
  EXPECT_EQ(walk(tree, walker, kRecurse), 0);
  const WalkCall kCalls[] = {
      {0, tree, tree, "NULL", "NULL", S_IFDIR, 1, 0},
      {0, tree + "/a", tree, "", "a", S_IFDIR, 1, 1},
      {0, tree + "/a/b", tree, "a", "b", S_IFDIR, 1, 2},
      {0, tree + "/a/b/file", tree, "a/b", "file", S_IFREG, 1, 3},
      {0, tree + "/a/b", tree, "a", "b", S_IFDIR, 1, 2},
      {0, tree + "/a", tree, "", "a", S_IFDIR, 1, 1},
      {0, tree, tree, "NULL", "NULL", S_IFDIR, 2, 0},
  };
  EXPECT_THAT(walker.calls(), testing::ElementsAreArray(kCalls));
}

TEST(FileutlWalkTree, AddsNoSecondSlashBehindTheRoot) {
  const Folder folder;
  folder.write("tree/file", "");
  const std::string root = folder.path("tree/");
  const Walker walker({kBefore});
  EXPECT_EQ(walk(root, walker, kRecurse), 0);
  ASSERT_EQ(walker.calls().size(), 2u);
  EXPECT_EQ(walker.calls()[1].path, root + "file");
  EXPECT_EQ(walker.calls()[1].root, root);
}

TEST(FileutlWalkTree, WithoutRecursionOnlyTheRootIsVisited) {
  const Folder folder;
  folder.write("tree/file", "");
  const Walker walker({kBefore, kAfter, kBoth, 0});
  EXPECT_EQ(walk(folder.path("tree"), walker, 0), 0);
  std::vector<std::pair<int, int>> calls;
  for (const WalkCall &call : walker.calls()) calls.emplace_back(call.callback, call.phase);
  EXPECT_THAT(calls,
              ElementsAre(std::pair(0, 1), std::pair(2, 1), std::pair(1, 2), std::pair(2, 2)));
}

TEST(FileutlWalkTree, FailureOfACallbackIsKeptAndTheWalkGoesOn) {
  const Folder folder;
  for (int i = 0; i < 10; ++i) folder.write("tree/file" + std::to_string(i), "");
  const Walker walker({0}, [](const WalkCall &) { return kFailed; });
  EXPECT_EQ(walk(folder.path("tree"), walker, kRecurse), kFailed);
  EXPECT_EQ(walker.calls().size(), 10u);
  const Walker stopped({0}, [](const WalkCall &) { return kFailed; });
  EXPECT_EQ(walk(folder.path("tree"), stopped, kRecurse | FILEUTL_WALK_STOP_ON_ERROR), kFailed);
  EXPECT_EQ(stopped.calls().size(), 1u);
}

TEST(FileutlWalkTree, StatusBitsAreOredAndTheLowTwoAreNot) {
  const Folder folder;
  folder.write("tree/a", "");
  folder.write("tree/b", "");
  const Walker walker({0}, [](const WalkCall &call) { return call.name == "a" ? 4 | 1 : 16; });
  EXPECT_EQ(walk(folder.path("tree"), walker, kRecurse), 20);
  const Walker stop({kBefore}, [](const WalkCall &) { return 8 | 2; });
  EXPECT_EQ(walk(folder.path("tree"), stop, kRecurse), 8);
}

TEST(FileutlWalkTree, SkipOnADirectoryLeavesOutItsContentsAndItsOtherCalls) {
  const Folder folder;
  folder.write("tree/kept/file", "");
  folder.write("tree/skipped/file", "");
  const auto calls = [&](const std::vector<int> &whens, int phase_callback) {
    const Walker walker(whens, [&](const WalkCall &call) {
      return call.name == "skipped" && call.callback == phase_callback ? FILEUTL_WALK_SKIP : 0;
    });
    EXPECT_EQ(walk(folder.path("tree"), walker, kRecurse), 0);
    std::vector<std::string> below;
    for (const WalkCall &call : walker.calls()) {
      if (call.depth == 0) continue;
      below.push_back(std::to_string(call.callback) + call.path.substr(call.root.size()));
    }
    return below;
  };
  using testing::UnorderedElementsAre;
  EXPECT_THAT(calls({kBefore, kBoth}, 0),
              UnorderedElementsAre("0/skipped", "0/kept", "1/kept", "0/kept/file", "1/kept/file",
                                   "1/kept"));
  EXPECT_THAT(calls({kAfter, kAfter}, 0),
              UnorderedElementsAre("0/skipped/file", "1/skipped/file", "0/skipped", "0/kept/file",
                                   "1/kept/file", "0/kept", "1/kept"));
}

TEST(FileutlWalkTree, OnlyTheStatusOfAFailureEndsAWalk) {
  const Folder folder;
  folder.write("tree/inner/a", "");
  folder.write("tree/inner/b", "");
  const auto calls_until_end = [&](Walker::Answer answer, int result) {
    const Walker walker({kBoth}, std::move(answer));
    EXPECT_EQ(walk(folder.path("tree"), walker, kRecurse | FILEUTL_WALK_STOP_ON_ERROR), result);
    return walker.calls().size();
  };
  for (const int status : {-8, -5, -12, -256}) {
    EXPECT_EQ(calls_until_end([status](const WalkCall &) { return status & ~3; }, status & ~3), 6u)
        << status;
  }
  // The sum of these is the status of a failure, and none of them is one.
  EXPECT_EQ(calls_until_end([](const WalkCall &call) { return call.name == "a" ? -8 : 4; }, -4),
            6u);
  // The low two bits are no part of a status.
  EXPECT_EQ(calls_until_end([](const WalkCall &call) { return call.depth == 2 ? -1 & ~3 : 0; }, -4),
            3u);
}

TEST(FileutlWalkTree, FlushesWhatAnNfsClientRemembersBeforeTheFirstCall) {
  const Folder folder;
  folder.write("tree/file", "");
  int locks = -1;
  const Walker walker({0}, [&](const WalkCall &) {
    locks = ks_test::count_calls("lockf64");
    return 0;
  });
  EXPECT_EQ(walk(folder.path("tree"), walker, kRecurse), 0);
  EXPECT_EQ(locks, 2) << "one taken and given back";
  EXPECT_EQ(ks_test::count_calls("lockf64"), 2);
}

// A folder whose listing takes the system more than one call.
void fill(const Folder &folder, const std::string &directory, int files) {
  folder.write(directory + "/" + std::string(40, 'n'), "");
  for (int i = 1; i < files; ++i) {
    const std::string path = folder.path(directory + "/" + std::string(40, 'n'));
    ASSERT_EQ(mknod((path + std::to_string(i)).c_str(), S_IFREG | 0644, 0), 0);
  }
}

TEST(FileutlWalkTree, DirectoryWhoseReadingFailsIsReportedAndTheWalkGoesOn) {
  const Folder folder;
  fill(folder, "tree/inner", 1000);
  const std::string tree = folder.path("tree");
  for (const int stop : {0, int{FILEUTL_WALK_STOP_ON_ERROR}}) {
    const Walker walker({kBoth});
    ks_test::fail_call("getdents64", 2, EIO);  // the tree, then twice the inner one
    EXPECT_EQ(printed_by([&] { EXPECT_EQ(walk(tree, walker, kRecurse | stop), kFailed); }),
              error_line(tree + "/inner: Input/output error"));
    const std::vector<std::string> steps = walker.steps();
    EXPECT_LT(steps.size(), 800u);
    ASSERT_GT(steps.size(), 200u);
    EXPECT_EQ(steps.back(), stop != 0
                                ? "./" + walker.calls().back().path.substr(tree.size() + 1) + " 1 2"
                                : ". 2 0");
    EXPECT_EQ(std::count(steps.begin(), steps.end(), "./inner 1 1"), stop != 0 ? 1 : 2);
  }
  ks_test::fail_call("getdents64", 1, EIO);
  EXPECT_EQ(printed_by([&] {
              EXPECT_EQ(fileutl_walk_tree(tree.c_str(), nullptr, kRecurse | FILEUTL_WALK_QUIET),
                        kFailed);
            }),
            "");
}

TEST(FileutlWalkTree, InterruptedReadingOfADirectoryIsRepeated) {
  const Folder folder;
  fill(folder, "tree", 1000);
  const Walker walker({0});
  ks_test::fail_call("getdents64", 1, EINTR, 3);
  EXPECT_EQ(walk(folder.path("tree"), walker, kRecurse), 0);
  EXPECT_EQ(walker.calls().size(), 1000u);
}

TEST(FileutlWalkTree, FollowsLinksAsTheFlagsSay) {
  const Folder folder;
  folder.write("real/file", "");
  folder.write("tree/file", "");
  ASSERT_EQ(symlink("../real", folder.path("tree/link").c_str()), 0);
  ASSERT_EQ(symlink("tree", folder.path("root").c_str()), 0);
  const std::string root = folder.path("root");
  const auto paths = [&](int flags) {
    const Walker walker({kBefore});
    EXPECT_EQ(walk(root, walker, flags), 0);
    std::vector<std::string> found;
    for (const WalkCall &call : walker.calls()) {
      found.push_back(call.path.substr(root.size()) + (call.type == S_IFLNK ? "@" : ""));
    }
    return found;
  };
  using testing::UnorderedElementsAre;
  EXPECT_THAT(paths(kRecurse), UnorderedElementsAre("@"));
  EXPECT_THAT(paths(kRecurse | FILEUTL_WALK_FOLLOW_ROOT),
              UnorderedElementsAre("", "/file", "/link@"));
  EXPECT_THAT(paths(kRecurse | FILEUTL_WALK_FOLLOW_ALL),
              UnorderedElementsAre("", "/file", "/link", "/link/file"));
}

TEST(FileutlWalkTree, LoopOfLinksEndsInTheSystemsError) {
  const Folder folder;
  folder.write("tree/file", "");
  ASSERT_EQ(symlink(".", folder.path("tree/loop").c_str()), 0);
  const std::string tree = folder.path("tree");
  const Walker walker({kBefore});
  int status = 0;
  const std::string printed =
      printed_by([&] { status = walk(tree, walker, kRecurse | FILEUTL_WALK_FOLLOW_ALL); });
  // The system follows 40 links in a path.
  std::string deepest = tree;
  for (int i = 0; i < 41; ++i) deepest += "/loop";
  EXPECT_EQ(status, kFailed);
  EXPECT_EQ(printed, error_line(deepest + ": Too many levels of symbolic links"));
  EXPECT_EQ(walker.calls().size(), 41u + 41u) << "the directory and the file, 41 times";
}

TEST(FileutlWalkTree, RootThatIsMissingIsReportedUnlessQuiet) {
  const Folder folder;
  const std::string path = folder.path("absent");
  const Walker walker({kBoth});
  EXPECT_EQ(printed_by([&] { EXPECT_EQ(walk(path, walker, kRecurse), kFailed); }),
            error_line(path + ": No such file or directory"));
  EXPECT_EQ(printed_by([&] { EXPECT_EQ(walk(path, walker, FILEUTL_WALK_QUIET), kFailed); }), "");
  EXPECT_TRUE(walker.calls().empty());
}

TEST(FileutlWalkTree, DirectoryThatCannotBeOpenedIsReportedAndTheWalkGoesOn) {
  const Folder folder;
  folder.write("tree/shut/file", "");
  folder.write("tree/open/file", "");
  ASSERT_EQ(chmod(folder.path().c_str(), 0755), 0);
  ASSERT_EQ(chmod(folder.path("tree/shut").c_str(), 0), 0);
  const std::string tree = folder.path("tree");
  const Outcome outcome = ks_test::in_child([&] {
    ks_test::become_nobody();
    const Walker walker({kBoth});
    if (walk(tree, walker, kRecurse) != kFailed) _exit(1);
    std::vector<std::string> steps = walker.steps();
    std::sort(steps.begin(), steps.end());
    const std::vector<std::string> expected = {". 1 0",      ". 2 0",           "./open 1 1",
                                               "./open 1 1", "./open/file 1 2", "./shut 1 1",
                                               "./shut 1 1"};
    _exit(steps == expected ? 0 : 2);
  });
  EXPECT_EQ(outcome.end(), "exit 0");
  EXPECT_EQ(outcome.err, error_line(tree + "/shut: Permission denied"));
}

TEST(FileutlWalkTree, ObjectThatCannotBeStatedIsReportedWhateverStopOnErrorSays) {
  const Folder folder;
  folder.write("tree/inner/a", "");
  folder.write("tree/inner/b", "");
  ASSERT_EQ(chmod(folder.path().c_str(), 0755), 0);
  ASSERT_EQ(chmod(folder.path("tree/inner").c_str(), 0744), 0);
  const std::string inner = folder.path("tree/inner");
  const Outcome outcome = ks_test::in_child([&] {
    ks_test::become_nobody();
    const Walker walker({kBoth});
    const int status = walk(folder.path("tree"), walker, kRecurse | FILEUTL_WALK_STOP_ON_ERROR);
    // Both are tried; then the failed directory ends the walk, without the calls behind it.
    const std::vector<std::string> expected = {". 1 0", "./inner 1 1"};
    _exit(status == kFailed && walker.steps() == expected ? 0 : 1);
  });
  EXPECT_EQ(outcome.end(), "exit 0");
  for (const char *name : {"/a", "/b"}) {
    EXPECT_NE(outcome.err.find(error_line(inner + name + ": Permission denied")), std::string::npos)
        << outcome.err;
  }
}

TEST(FileutlWalkTree, ObjectsThatGoMeanwhileAreReported) {
  const Folder folder;
  for (const char *name : {"tree/a", "tree/b", "tree/c"}) folder.write(name, "");
  const std::string tree = folder.path("tree");
  const Walker walker({0}, [&](const WalkCall &) {
    for (const char *name : {"/a", "/b", "/c"}) unlink((tree + name).c_str());
    return 0;
  });
  int status = 0;
  const std::string printed = printed_by([&] { status = walk(tree, walker, kRecurse); });
  EXPECT_EQ(status, kFailed);
  EXPECT_EQ(walker.calls().size(), 1u);
  EXPECT_EQ(std::count(printed.begin(), printed.end(), '\n'), 2);
  EXPECT_NE(printed.find(": No such file or directory\n"), std::string::npos);
}

TEST(FileutlWalkTree, LinkPutInADirectorysPlaceIsReportedAndTheWalkGoesOn) {
  const Folder folder;
  folder.write("tree/inner/file", "");
  folder.write("outside/secret", "");
  ASSERT_EQ(symlink("../outside", folder.path("link").c_str()), 0);
  const std::string tree = folder.path("tree");
  const Walker walker({kBoth});
  const ks_test::Exchange exchange("openat64", 1, tree + "/inner", folder.path("link"));
  EXPECT_EQ(printed_by([&] { EXPECT_EQ(walk(tree, walker, kRecurse), kFailed); }),
            error_line(tree + "/inner: Not a directory"));
  EXPECT_THAT(walker.steps(), ElementsAre(". 1 0", "./inner 1 1", "./inner 1 1", ". 2 0"));
}

TEST(FileutlWalkTree, RootPutAwayForALinkIsNotEntered) {
  const Folder folder;
  folder.write("tree/file", "");
  folder.write("outside/secret", "");
  ASSERT_EQ(symlink("outside", folder.path("link").c_str()), 0);
  const std::string tree = folder.path("tree");
  const Walker walker({kBefore});
  const ks_test::Exchange exchange("openat64", 0, tree, folder.path("link"));
  EXPECT_EQ(printed_by([&] { EXPECT_EQ(walk(tree, walker, kRecurse), kFailed); }),
            error_line(tree + ": Not a directory"));
  EXPECT_THAT(walker.steps(), ElementsAre(". 1 0"));
}

TEST(FileutlWalkTree, CallbackMayWalkAgain) {
  const Folder folder;
  folder.write("tree/a/file", "");
  folder.write("tree/b/file", "");
  const std::string tree = folder.path("tree");
  std::vector<std::string> inner_steps;
  const Walker walker({kBoth}, [&](const WalkCall &call) {
    const Walker inner({kBoth});
    EXPECT_EQ(walk(call.path, inner, kRecurse), 0);
    if (call.name == "a" && inner_steps.empty()) inner_steps = inner.steps();
    return 0;
  });
  EXPECT_EQ(walk(tree, walker, kRecurse), 0);
  EXPECT_THAT(inner_steps, ElementsAre(". 1 0", "./file 1 1", ". 2 0"));
  std::vector<std::string> steps = walker.steps();
  std::sort(steps.begin(), steps.end());
  EXPECT_THAT(steps, ElementsAre(". 1 0", ". 2 0", "./a 1 1", "./a 1 1", "./a/file 1 2", "./b 1 1",
                                 "./b 1 1", "./b/file 1 2"));
}

TEST(FileutlWalkTree, NeedsNoStorageBehindTheFirstDescent) {
  const Folder folder;
  for (int i = 0; i < 20; ++i) {
    const std::string directory = "tree/a" + std::to_string(i % 4) + "/b" + std::to_string(i);
    for (int file = 0; file < 5; ++file) folder.write(directory + "/f" + std::to_string(file), "");
  }
  const fileutl_walk_callback_t chain = {
      nullptr, kBoth,
      [](void *, const char *, const char *, const char *, const char *, const fileutl_stat_t *,
         int, int) { return 0; },
      nullptr};
  const std::string tree = folder.path("tree");
  fileutl_walk_tree(tree.c_str(), &chain, kRecurse);
  const int before = ks_test::count_calls("malloc");
  EXPECT_EQ(fileutl_walk_tree(tree.c_str(), &chain, kRecurse), 0);
  EXPECT_EQ(ks_test::count_calls("malloc") - before, 3) << "one for each level";
}

// A chain of directories below the folder that ends with a path of exactly `bytes`; the last one is
// a file. It is made step by step: the system takes no such path.
std::string deep_file(const std::string &top, size_t bytes) {
  std::string path = top;
  EXPECT_EQ(chdir(top.c_str()), 0);
  while (path.size() < bytes) {
    size_t length = std::min<size_t>(bytes - path.size() - 1, 200);
    if (bytes - path.size() - 1 - length == 1) --length;  // leave room for a slash and a name
    const std::string name(length, 'd');
    path += "/" + name;
    if (path.size() == bytes) {
      EXPECT_EQ(mknod(name.c_str(), S_IFREG | 0644, 0), 0);
    } else {
      EXPECT_EQ(mkdir(name.c_str(), 0755), 0);
      EXPECT_EQ(chdir(name.c_str()), 0);
    }
  }
  EXPECT_EQ(chdir("/"), 0);
  return path;
}

TEST(FileutlWalkTree, PathsThatTheSystemDoesNotTakeAreReported) {
  for (size_t bytes : {4095U, 4096U, 4097U, 4250U}) {
    const Folder folder;
    const std::string deepest = deep_file(folder.path(), bytes);
    const Walker walker({0});
    int status = 0;
    const std::string printed = printed_by([&] { status = walk(folder.path(), walker, kRecurse); });
    if (bytes == 4095) {
      EXPECT_EQ(status, 0);
      ASSERT_EQ(walker.calls().size(), 1u);
      EXPECT_EQ(walker.calls()[0].path, deepest);
      EXPECT_EQ(printed, "");
    } else {
      EXPECT_EQ(status, kFailed);
      EXPECT_TRUE(walker.calls().empty());
      // The first on the way down that is too long ends it.
      const std::string reported = deepest.substr(0, deepest.find('/', 4096));
      EXPECT_EQ(printed, error_line(reported + ": File name too long"));
    }
    EXPECT_EQ(fileutl_rm(folder.path().c_str(), kRecurse | FILEUTL_WALK_QUIET),
              bytes == 4095 ? 0 : kFailed);
    if (bytes != 4095) ks_test::run_program({"rm", "-rf", folder.path()});
  }
}

TEST(FileutlWalkTree, RootThatIsTooLongIsReported) {
  for (size_t bytes : {4096U, 4097U, 10000U}) {
    const std::string root(bytes, '/');
    const Walker walker({kBoth});
    EXPECT_EQ(printed_by([&] { EXPECT_EQ(walk(root, walker, kRecurse), kFailed); }),
              error_line(root + ": File name too long"));
    EXPECT_EQ(printed_by([&] { EXPECT_EQ(walk(root, walker, FILEUTL_WALK_QUIET), kFailed); }), "");
  }
}

// A tree in memory: the paths of its directories, with the names in each.
std::map<std::string, std::vector<std::string>> memory_tree;
int memory_open = 0;

struct MemoryDirectory {
  std::vector<std::string> names;
  size_t next = 0;
  fileutl_dirent_t entry;
};

const fileutl_walk_ops_t kMemoryOperations = {
    [](const char *path, int, fileutl_stat_t *record) {
      *record = {};
      const char *name = strrchr(path, '/');
      if (name != nullptr && strncmp(name, "/missing", 8) == 0) {
        errno = EIO;
        return -1;
      }
      record->st_nlink = 1;
      record->st_mode = memory_tree.count(path) != 0 ? S_IFDIR : S_IFREG;
      return 0;
    },
    [](const char *path) -> fileutl_dir_t * {
      if (memory_tree.at(path) == std::vector<std::string>{"SHUT"}) {
        errno = EPERM;
        return nullptr;
      }
      ++memory_open;
      return reinterpret_cast<fileutl_dir_t *>(new MemoryDirectory{memory_tree.at(path), 0, {}});
    },
    [](fileutl_dir_t *handle, int fold) -> fileutl_dirent_t * {
      EXPECT_EQ(fold, 1);
      auto *directory = reinterpret_cast<MemoryDirectory *>(handle);
      if (directory->next == directory->names.size()) return nullptr;
      const std::string &name = directory->names[directory->next++];
      name.copy(directory->entry.d_name, sizeof directory->entry.d_name);
      if (name.size() < 256) directory->entry.d_name[name.size()] = '\0';
      return &directory->entry;
    },
    [](fileutl_dir_t *handle) {
      --memory_open;
      delete reinterpret_cast<MemoryDirectory *>(handle);
      return 0;
    },
};

TEST(FileutlWalkTreeAny, WalksATreeThatIsNotTheSystems) {
  memory_tree = {
      {"/m", {".", "..", "a", "missing", "shut", "d"}}, {"/m/d", {"x"}}, {"/m/shut", {"SHUT"}}};
  const Walker walker({kBoth});
  int status = 0;
  const std::string printed = printed_by(
      [&] { status = fileutl_walk_tree_any("/m", walker.chain(), &kMemoryOperations, kRecurse); });
  EXPECT_EQ(status, kFailed);
  EXPECT_EQ(printed, error_line("/m/missing: Input/output error") +
                         error_line("/m/shut: Operation not permitted"));
  EXPECT_THAT(walker.steps(), ElementsAre(". 1 0", "./a 1 1", "./shut 1 1", "./shut 1 1", "./d 1 1",
                                          "./d/x 1 2", "./d 1 1", ". 2 0"));
  EXPECT_EQ(memory_open, 0);
}

// A wait of an event loop's kind, which wants signals to be held by itself alone.
void wait_a_moment() {
  pfm_inhibit();
  timeval moment = {0, 1000};
  EXPECT_EQ(pfm_select_inhibited(0, nullptr, nullptr, nullptr, &moment), 0);
  pfm_enable();
}

TEST(FileutlWalkTreeAny, OperationsMayWait) {
  static fileutl_walk_ops_t operations;
  operations = {
      [](const char *path, int follow, fileutl_stat_t *record) {
        wait_a_moment();
        return kMemoryOperations.stat_object(path, follow, record);
      },
      [](const char *path) {
        wait_a_moment();
        return kMemoryOperations.open_directory(path);
      },
      [](fileutl_dir_t *handle, int fold) {
        wait_a_moment();
        return kMemoryOperations.read_directory(handle, fold);
      },
      [](fileutl_dir_t *handle) {
        wait_a_moment();
        return kMemoryOperations.close_directory(handle);
      },
  };
  memory_tree = {{"/m", {"shut", "d"}}, {"/m/d", {"x"}}, {"/m/shut", {"SHUT"}}};
  const Walker walker({0});
  printed_by([&] {
    EXPECT_EQ(fileutl_walk_tree_any("/m", walker.chain(), &operations, kRecurse), kFailed);
  });
  EXPECT_THAT(walker.steps(), ElementsAre("./d/x 1 2"));
  EXPECT_EQ(memory_open, 0);
}

TEST(FileutlWalkTreeAny, NullOfAReadingOperationIsTheEndWhateverErrnoSays) {
  static fileutl_walk_ops_t operations;
  operations = kMemoryOperations;
  operations.read_directory = [](fileutl_dir_t *handle, int fold) {
    fileutl_dirent_t *entry = kMemoryOperations.read_directory(handle, fold);
    errno = EIO;
    return entry;
  };
  memory_tree = {{"/m", {"a"}}};
  const Walker walker({0});
  EXPECT_EQ(printed_by([&] {
              EXPECT_EQ(fileutl_walk_tree_any("/m", walker.chain(), &operations, kRecurse), 0);
            }),
            "");
  EXPECT_EQ(walker.calls().size(), 1u);
}

TEST(FileutlWalkTreeAny, NameWithoutAnEndIsCutTo255Bytes) {
  memory_tree = {{"/m", {std::string(256, 'n')}}};
  const Walker walker({0});
  EXPECT_EQ(fileutl_walk_tree_any("/m", walker.chain(), &kMemoryOperations, kRecurse), 0);
  ASSERT_EQ(walker.calls().size(), 1u);
  EXPECT_EQ(walker.calls()[0].name, std::string(255, 'n'));
}

TEST(FileutlWalkTreeAny, PathsHaveUpTo4096Bytes) {
  const std::string root = "/" + std::string(4000, 'r');
  const std::string middle = root + "/" + std::string(89, 'm');  // 4091 bytes
  memory_tree = {
      {root,
       {std::string(89, 'm'), std::string(94, 'n'), std::string(95, 'o'), std::string(255, 'p')}},
      {middle, {"1234", "12345"}}};
  const Walker walker({kBefore});
  int status = 0;
  const std::string printed = printed_by([&] {
    status = fileutl_walk_tree_any(root.c_str(), walker.chain(), &kMemoryOperations, kRecurse);
  });
  EXPECT_EQ(status, kFailed);
  std::vector<std::string> paths;
  for (const WalkCall &call : walker.calls()) paths.push_back(call.path);
  EXPECT_THAT(paths,
              ElementsAre(root, middle, middle + "/1234", root + "/" + std::string(94, 'n')));
  const std::string reason = ": File name too long";
  EXPECT_EQ(printed, error_line(middle + "/12345" + reason) +
                         error_line(root + "/" + std::string(95, 'o') + reason) +
                         error_line(root + "/" + std::string(255, 'p') + reason));
}

TEST(FileutlWalkTreeAny, DirectoryAtTheLimitCanBeOpenedAndItsEntriesNot) {
  const std::string root = "/" + std::string(4095, 'r');
  memory_tree = {{root, {"a", std::string(255, 'b')}}};
  const Walker walker({kBefore});
  int status = 0;
  const std::string printed = printed_by([&] {
    status = fileutl_walk_tree_any(root.c_str(), walker.chain(), &kMemoryOperations, kRecurse);
  });
  EXPECT_EQ(status, kFailed);
  EXPECT_EQ(walker.calls().size(), 1u);
  EXPECT_EQ(printed, error_line(root + "/a: File name too long") +
                         error_line(root + "/" + std::string(255, 'b') + ": File name too long"));
  EXPECT_EQ(memory_open, 0);
}

}  // namespace

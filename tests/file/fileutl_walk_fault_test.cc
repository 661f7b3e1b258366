// Walks that are left by a fault, or run out of storage or descriptors.
#include <gtest/gtest.h>
#include <sys/resource.h>
#include <sys/time.h>
#include <unistd.h>

#include <cerrno>
#include <csignal>
#include <cstring>
#include <string>

#include "fileutl.h"
#include "pfm.h"
#include "support/faults.h"
#include "support/folder.h"
#include "support/landing.h"
#include "support/random.h"
#include "support/signals.h"
#include "file/files.h"

using ks_test::error_line;
using ks_test::Folder;
using ks_test::land;
using ks_test::open_descriptors;
using ks_test::printed_by;

namespace {

constexpr int kRecurse = FILEUTL_WALK_RECURSE, kFollowAll = FILEUTL_WALK_FOLLOW_ALL;
constexpr int kFailed = -4;

// Raises the status that the argument points to at an object named "trigger".
int raise_at_trigger(void *argument, const char *, const char *, const char *, const char *name,
                     const fileutl_stat_t *, int, int) {
  if (name != nullptr && strcmp(name, "trigger") == 0) pfm_raise(*static_cast<int *>(argument));
  return 0;
}

constexpr fileutl_walk_ops_t kOperations = {fileutl_stat, fileutl_opendir, fileutl_readdir,
                                            fileutl_closedir};

TEST(FileutlWalkFault, CallbackThatRaisesLeavesNothingOpen) {
  const Folder folder;
  folder.write("tree/a/b/c/trigger", "");
  const std::string tree = folder.path("tree");
  const ptrdiff_t descriptors = open_descriptors();
  for (int status : {7, -7}) {
    const fileutl_walk_callback_t chain = {nullptr, 0, raise_at_trigger, &status};
    for (int flags : {kRecurse, kRecurse | kFollowAll}) {
      ks_test::Landing landing = land([&] { fileutl_walk_tree(tree.c_str(), &chain, flags); });
      EXPECT_EQ(landing.status, status);
      EXPECT_EQ(open_descriptors(), descriptors);
      landing = land([&] { fileutl_walk_tree_any(tree.c_str(), &chain, &kOperations, flags); });
      EXPECT_EQ(landing.status, status);
      EXPECT_EQ(open_descriptors(), descriptors);
    }
  }
  EXPECT_EQ(ks_test::innermost_record(), nullptr);
}

int walk_again(void *argument, const char *path, const char *, const char *, const char *name,
               const fileutl_stat_t *, int, int) {
  if (name == nullptr || strcmp(name, "b") != 0) return 0;
  const fileutl_walk_callback_t chain = {nullptr, 0, raise_at_trigger, argument};
  return fileutl_walk_tree(path, &chain, kRecurse);
}

TEST(FileutlWalkFault, FaultPassesThroughAWalkInsideAWalk) {
  const Folder folder;
  folder.write("tree/a/b/c/trigger", "");
  const std::string tree = folder.path("tree");
  const ptrdiff_t descriptors = open_descriptors();
  int status = 7;
  const fileutl_walk_callback_t chain = {nullptr, FILEUTL_WALK_BEFORE, walk_again, &status};
  EXPECT_EQ(land([&] { fileutl_walk_tree(tree.c_str(), &chain, kRecurse); }).status, 7);
  EXPECT_EQ(open_descriptors(), descriptors);
}

TEST(FileutlWalkFault, SignalThatRaisesWhileADirectoryIsOpenedLeavesNothingOpen) {
  const Folder folder;
  folder.write("tree/a/b/c/file", "");
  const std::string tree = folder.path("tree");
  pfm_signal(SIGUSR1, ks_test::raise_number);
  const ptrdiff_t descriptors = open_descriptors();
  for (int nth = 0; nth < 4; ++nth) {
    ks_test::signal_in_call("openat64", nth, SIGUSR1);
    EXPECT_EQ(land([&] { fileutl_walk_tree(tree.c_str(), nullptr, kRecurse); }).status, SIGUSR1);
    EXPECT_EQ(open_descriptors(), descriptors) << nth;
  }
}

// Signals come at any moment, and each raises.
TEST(FileutlWalkFault, StormOfSignalsLeavesNothingOpen) {
  const Folder folder;
  for (int i = 0; i < 30; ++i) folder.write("tree/a/b" + std::to_string(i) + "/c/file", "");
  const std::string tree = folder.path("tree");
  pfm_signal(SIGALRM, ks_test::raise_number);
  const ptrdiff_t descriptors = open_descriptors();
  ks_test::Random random(20261121);
  for (int turn = 0; turn < 300; ++turn) {
    const suseconds_t microseconds = 1 + static_cast<suseconds_t>(random() / 16 % 1000);
    const int flags = kRecurse | (turn % 2 == 0 ? kFollowAll : 0);
    const ks_test::Landing landing = land([&] {
      const itimerval alarm = {{0, 0}, {0, microseconds}};
      setitimer(ITIMER_REAL, &alarm, nullptr);
      while (true) {
        if (turn % 3 == 0) {
          fileutl_walk_tree_any(tree.c_str(), nullptr, &kOperations, flags);
        } else {
          fileutl_walk_tree(tree.c_str(), nullptr, flags);
        }
      }
    });
    ASSERT_EQ(landing.status, SIGALRM);
  }
  EXPECT_EQ(open_descriptors(), descriptors);
}

// Operations of a caller's own, which count what is open and raise at the call that is chosen.
struct Counted {
  static inline int opened, closed;
  static inline int raise_in_open, raise_in_close;  // numbers of the calls, -1 for none

  static fileutl_dir_t *open(const char *path) {
    if (opened == raise_in_open) pfm_raise(7);
    fileutl_dir_t *dir = fileutl_opendir(path);
    ++opened;
    return dir;
  }
  static int close(fileutl_dir_t *dir) {
    if (closed++ == raise_in_close) {
      fileutl_closedir(dir);
      pfm_raise(7);
    }
    return fileutl_closedir(dir);
  }
};

TEST(FileutlWalkFault, FaultOutOfACallersOperationClosesEachDirectoryOnce) {
  const Folder folder;
  folder.write("tree/a/b/trigger", "");
  const std::string tree = folder.path("tree");
  const fileutl_walk_ops_t operations = {fileutl_stat, Counted::open, fileutl_readdir,
                                         Counted::close};
  const ptrdiff_t descriptors = open_descriptors();
  for (int nth = 0; nth < 3; ++nth) {
    for (const bool opening : {true, false}) {
      Counted::opened = Counted::closed = 0;
      Counted::raise_in_open = opening ? nth : -1;
      Counted::raise_in_close = opening ? -1 : nth;
      const ks_test::Landing landing =
          land([&] { fileutl_walk_tree_any(tree.c_str(), nullptr, &operations, kRecurse); });
      EXPECT_EQ(landing.status, 7);
      EXPECT_EQ(Counted::opened, opening ? nth : 3);
      EXPECT_EQ(Counted::closed, Counted::opened);
      EXPECT_EQ(open_descriptors(), descriptors);
    }
  }
}

TEST(FileutlWalkFault, DirectoryWithoutStorageIsReportedAndTheWalkGoesOn) {
  const Folder folder;
  folder.write("tree/a/file", "");
  const std::string tree = folder.path("tree");
  fileutl_walk_tree(tree.c_str(), nullptr, 0);  // what is set up at a first call is there
  const ptrdiff_t descriptors = open_descriptors();
  for (int nth : {0, 1}) {
    EXPECT_EQ(printed_by([&] {
                ks_test::fail_call("malloc", nth, ENOMEM);
                EXPECT_EQ(fileutl_walk_tree(tree.c_str(), nullptr, kRecurse), kFailed);
              }),
              error_line("No more memory available.") +
                  error_line(tree + (nth == 0 ? "" : "/a") + ": Cannot allocate memory"));
    EXPECT_EQ(open_descriptors(), descriptors);
  }
}

TEST(FileutlWalkFault, DepthWithoutDescriptorsIsReported) {
  const Folder folder;
  folder.write("tree/a/b/c/file", "");
  const std::string tree = folder.path("tree");
  fileutl_walk_tree(tree.c_str(), nullptr, 0);
  rlimit limit;
  getrlimit(RLIMIT_NOFILE, &limit);
  int status = 0;
  const std::string printed = printed_by([&] {
    const int next = dup(0);
    close(next);
    const rlimit two_more = {static_cast<rlim_t>(next + 2), limit.rlim_max};
    setrlimit(RLIMIT_NOFILE, &two_more);
    status = fileutl_walk_tree(tree.c_str(), nullptr, kRecurse);
    setrlimit(RLIMIT_NOFILE, &limit);
  });
  EXPECT_EQ(status, kFailed);
  EXPECT_EQ(printed, error_line(tree + "/a/b: Too many open files"));
}

}  // namespace

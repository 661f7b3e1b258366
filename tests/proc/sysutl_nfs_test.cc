// Making an NFS client look at a directory anew.
#include <fcntl.h>
#include <gtest/gtest.h>
#include <sys/inotify.h>
#include <sys/stat.h>
#include <unistd.h>

#include <cerrno>
#include <csignal>
#include <filesystem>
#include <string>
#include <vector>

#include "pfm.h"
#include "support/child.h"
#include "support/exact_text.h"
#include "support/faults.h"
#include "support/folder.h"
#include "support/landing.h"
#include "support/own_system.h"
#include "support/signals.h"
#include "sysutl.h"

using ks_test::count_calls;
using ks_test::ExactText;
using ks_test::expect_in_child;
using ks_test::fail_call;
using ks_test::Folder;
using ks_test::in_own_system;

namespace {

// Notes the files that come and go in a directory.
class Watch {
 public:
  explicit Watch(const std::string &directory) : fd_(inotify_init1(IN_NONBLOCK)) {
    EXPECT_GE(inotify_add_watch(fd_, directory.c_str(), IN_CREATE | IN_DELETE), 0);
  }
  ~Watch() { close(fd_); }
  Watch(const Watch &) = delete;
  Watch &operator=(const Watch &) = delete;

  // "+NAME" for one that came, "-NAME" for one that went.
  std::vector<std::string> take() const {
    std::vector<std::string> events;
    alignas(inotify_event) char block[4096];
    const ssize_t size = read(fd_, block, sizeof block);
    for (ssize_t at = 0; at < size;) {
      const auto *event = reinterpret_cast<const inotify_event *>(block + at);
      events.push_back(((event->mask & IN_CREATE) != 0 ? "+" : "-") + std::string(event->name));
      at += static_cast<ssize_t>(sizeof *event + event->len);
    }
    return events;
  }

 private:
  int fd_;
};

std::string lock_name() {
  return ".nfs_lock_file." + std::string(sysutl_myhostname()) + "." + std::to_string(getpid());
}

// What a watch sees of so many flushes.
std::vector<std::string> flushes(int count) {
  std::vector<std::string> events;
  for (; count > 0; --count) {
    events.push_back("+" + lock_name());
    events.push_back("-" + lock_name());
  }
  return events;
}

TEST(SysutlNfsLock, MakesLocksAndRemovesAFile) {
  Folder folder;
  Watch watch(folder.path());
  const int descriptors = ks_test::count_descriptors();
  EXPECT_EQ(sysutl_nfs_lock(folder.path().c_str()), 0);
  EXPECT_EQ(watch.take(), flushes(1));
  EXPECT_EQ(count_calls("lockf64"), 2);
  EXPECT_EQ(ks_test::count_descriptors(), descriptors);
  EXPECT_TRUE(std::filesystem::is_empty(folder.path()));
}

TEST(SysutlNfsLock, ALockThatIsNotHadIsNotGivenBack) {
  Folder folder;
  fail_call("lockf64", 0, EAGAIN);
  EXPECT_EQ(sysutl_nfs_lock(folder.path().c_str()), 0);
  EXPECT_EQ(count_calls("lockf64"), 1);
}

TEST(SysutlNfsLock, TheFileIsForAllToReadAndWrite) {
  Folder folder;
  umask(0);
  fail_call("unlink", 0, EIO);
  errno = 0;
  EXPECT_EQ(sysutl_nfs_lock(folder.path().c_str()), -1);
  EXPECT_EQ(errno, EIO);
  struct stat status = {};
  EXPECT_EQ(stat(folder.path(lock_name()).c_str(), &status), 0);
  EXPECT_EQ(status.st_mode, S_IFREG | 0666u);
}

TEST(SysutlNfsLock, AFileThatIsThereIsLeftAlone) {
  Folder folder;
  folder.write(lock_name(), "someone's");
  errno = 0;
  EXPECT_EQ(sysutl_nfs_lock(folder.path().c_str()), -1);
  EXPECT_EQ(errno, EEXIST);
  EXPECT_EQ(folder.read(lock_name()), "someone's");
}

TEST(SysutlNfsLock, FailsInADirectoryThatIsMissingReadOnlyOrFull) {
  in_own_system([] {
    errno = 0;
    EXPECT_EQ(sysutl_nfs_lock("/etc/missing"), -1);
    EXPECT_EQ(errno, ENOENT);

    ks_test::mount_empty("/etc", "nr_inodes=1");
    errno = 0;
    EXPECT_EQ(sysutl_nfs_lock("/etc"), -1);
    EXPECT_EQ(errno, ENOSPC);
    errno = 0;
    EXPECT_EQ(sysutl_nfs_flush("/etc"), -1);
    EXPECT_EQ(errno, ENOSPC);

    ks_test::mount_empty("/etc", "ro");
    errno = 0;
    EXPECT_EQ(sysutl_nfs_lock("/etc"), -1);
    EXPECT_EQ(errno, EROFS);
    errno = 0;
    EXPECT_EQ(sysutl_nfs_flush("/etc"), -1);
    EXPECT_EQ(errno, EROFS);
  });
}

TEST(SysutlNfsLock, ANameThatDoesNotFitIsTooLong) {
  in_own_system([] {
    // With its NUL the path, which has one more slash, fills the buffer.
    std::string directory = "/etc";
    directory.append(4096 - 2 - lock_name().size() - directory.size(), '/');
    EXPECT_EQ(sysutl_nfs_lock(ExactText(directory)), 0);
    EXPECT_EQ(count_calls("unlink"), 1);
    errno = 0;
    EXPECT_EQ(sysutl_nfs_lock(ExactText(directory + "/")), -1);
    EXPECT_EQ(errno, ENAMETOOLONG);
    EXPECT_EQ(count_calls("unlink"), 1);
  });
}

TEST(SysutlNfsLock, AFaultLeavesNoFileBehind) {
  Folder folder;
  ks_test::default_signals();
  pfm_init();
  pfm_signal(SIGUSR1, ks_test::raise_number);
  ks_test::signal_in_call("lockf64", 0, SIGUSR1);
  const int descriptors = ks_test::count_descriptors();
  const ks_test::Landing landing = ks_test::land([&] { sysutl_nfs_lock(folder.path().c_str()); });
  EXPECT_EQ(landing.status, SIGUSR1);
  EXPECT_EQ(ks_test::count_descriptors(), descriptors);
  EXPECT_TRUE(std::filesystem::is_empty(folder.path()));
}

TEST(SysutlNfsLock, SignalsCostNothing) {
  const Folder folder;
  for (const char *call : {"open64", "lockf64", "unlink"}) {
    const int locks = count_calls("lockf64");
    fail_call(call, 0, EINTR, 2);
    EXPECT_EQ(sysutl_nfs_lock(folder.path().c_str()), 0) << call;
    EXPECT_TRUE(std::filesystem::is_empty(folder.path())) << call;
    EXPECT_GE(count_calls("lockf64") - locks, 2) << call;
  }
}

TEST(SysutlNfsFlush, AnInterruptedLookDoesNotMakeAPathMissing) {
  const Folder folder;
  ASSERT_EQ(mkdir(folder.path("directory").c_str(), 0777), 0);
  const Watch watch(folder.path("directory"));
  fail_call("stat64", 0, EINTR, 2);
  EXPECT_EQ(sysutl_nfs_flush(folder.path("directory").c_str()), 0);
  EXPECT_EQ(watch.take(), flushes(1));
}

TEST(SysutlNfsFlush, FlushesADirectory) {
  Folder folder;
  Watch watch(folder.path());
  EXPECT_EQ(sysutl_nfs_flush(ExactText(folder.path())), 0);
  EXPECT_EQ(sysutl_nfs_flush(ExactText(folder.path() + "//")), 0);
  EXPECT_EQ(watch.take(), flushes(2));
}

TEST(SysutlNfsFlush, FollowsLinks) {
  Folder folder;
  Folder other;
  Watch watch(other.path());
  std::filesystem::create_directory_symlink(other.path(), folder.path("link"));
  EXPECT_EQ(sysutl_nfs_flush(folder.path("link").c_str()), 0);
  EXPECT_EQ(watch.take(), flushes(1));
}

TEST(SysutlNfsFlush, APathIsOfTheCurrentDirectory) {
  Folder folder;
  std::filesystem::create_directory(folder.path("below"));
  Watch here(folder.path());
  Watch below(folder.path("below"));
  std::filesystem::current_path(folder.path());
  EXPECT_EQ(sysutl_nfs_flush(nullptr), 0);
  EXPECT_EQ(here.take(), flushes(1));
  EXPECT_EQ(sysutl_nfs_flush("below"), 0);
  EXPECT_EQ(sysutl_nfs_flush("below/.."), 0);
  EXPECT_EQ(here.take(), flushes(1));
  EXPECT_EQ(below.take(), flushes(1));
  std::filesystem::current_path("/");
}

TEST(SysutlNfsFlush, KeepsFlushingTheParentOfWhatIsMissingTwice) {
  Folder folder;
  for (const char *missing : {"/missing", "/missing/", "//missing//"}) {
    Watch watch(folder.path());
    EXPECT_EQ(sysutl_nfs_flush(ExactText(folder.path() + missing)), 0) << missing;
    EXPECT_EQ(watch.take(), flushes(2)) << missing;
  }
}

TEST(SysutlNfsFlush, TheResultForAMissingPathIsThatOfTheSecondFlush) {
  Folder folder;
  folder.write(lock_name(), "someone's");
  EXPECT_EQ(sysutl_nfs_flush(folder.path("missing").c_str()), -1);
  ASSERT_EQ(unlink(folder.path(lock_name()).c_str()), 0);
  fail_call("open64", 0, EACCES);
  EXPECT_EQ(sysutl_nfs_flush(folder.path("missing").c_str()), 0);
}

TEST(SysutlNfsFlush, KeepsFailingWhereTheParentIsMissingToo) {
  Folder folder;
  for (const char *missing : {"a/b", "a/b/c", "a//b/c/d/"}) {
    Watch watch(folder.path());
    errno = 0;
    EXPECT_EQ(sysutl_nfs_flush(folder.path(missing).c_str()), -1) << missing;
    EXPECT_EQ(errno, ENOENT) << missing;
    EXPECT_EQ(watch.take(), flushes(2)) << missing;
  }
}

TEST(SysutlNfsFlush, ADanglingLinkIsMissing) {
  Folder folder;
  Watch watch(folder.path());
  std::filesystem::create_symlink("nowhere", folder.path("link"));
  watch.take();
  EXPECT_EQ(sysutl_nfs_flush(folder.path("link").c_str()), 0);
  EXPECT_EQ(watch.take(), flushes(2));
}

TEST(SysutlNfsFlush, KeepsTheLinkCountOfAFileForAResult) {
  Folder folder;
  folder.write("file", "text");
  std::filesystem::create_hard_link(folder.path("file"), folder.path("second"));
  std::filesystem::create_hard_link(folder.path("file"), folder.path("third"));
  Watch watch(folder.path());
  EXPECT_EQ(sysutl_nfs_flush(folder.path("file").c_str()), 3);
  EXPECT_EQ(sysutl_nfs_flush(folder.path("file/below").c_str()), 3);
  EXPECT_EQ(watch.take(), flushes(0));
}

// A directory that has been removed is still there for who has it open, with a link count of 0.
TEST(SysutlNfsFlush, KeepsTheLinkCountOfARemovedDirectoryForAResult) {
  Folder folder;
  std::filesystem::create_directory(folder.path("gone"));
  const int fd = open(folder.path("gone").c_str(), O_RDONLY | O_DIRECTORY);
  std::filesystem::remove(folder.path("gone"));
  EXPECT_EQ(sysutl_nfs_flush(("/proc/self/fd/" + std::to_string(fd)).c_str()), 0);
  EXPECT_EQ(count_calls("unlink"), 0);
  close(fd);
}

TEST(SysutlNfsFlush, NothingIsAboveTheRoot) {
  in_own_system([] {
    ks_test::mount_empty("/etc");
    ks_test::must(chroot("/etc") == 0 && chdir("/") == 0, "chroot");
    EXPECT_EQ(sysutl_nfs_flush("/"), 0);
    EXPECT_EQ(sysutl_nfs_flush("/missing"), 0);
    EXPECT_EQ(sysutl_nfs_flush("missing"), 0);
    EXPECT_EQ(sysutl_nfs_flush("/missing/below"), -1);
    EXPECT_EQ(count_calls("unlink"), 1 + 2 + 2 + 2);
  });
}

TEST(SysutlNfsFlush, ARootThatCannotBeReachedEndsTheSearch) {
  fail_call("stat64", 0, ESTALE, 1000);
  errno = 0;
  EXPECT_EQ(sysutl_nfs_flush("/missing/below"), -1);
  EXPECT_EQ(errno, ESTALE);
  EXPECT_EQ(count_calls("stat64"), 3);
}

TEST(SysutlNfsFlush, ACurrentDirectoryThatIsGoneIsReported) {
  for (const char *path : {static_cast<const char *>(nullptr), "below"}) {
    const ks_test::Outcome outcome = expect_in_child([path] {
      Folder folder;
      std::filesystem::current_path(folder.path());
      std::filesystem::remove(folder.path());
      errno = 0;
      EXPECT_EQ(sysutl_nfs_flush(path), -1);
      EXPECT_EQ(errno, ENOENT);
    });
    EXPECT_EQ(outcome.err,
              "noname: Error: unable to access directory .: No such file or directory\n");
  }
}

TEST(SysutlNfsFlush, APathThatDoesNotFitIsTooLong) {
  errno = 0;
  EXPECT_EQ(sysutl_nfs_flush(ExactText("/" + std::string(4095, 'x'))), -1);
  EXPECT_EQ(errno, ENAMETOOLONG);
  std::filesystem::current_path("/tmp");
  errno = 0;
  EXPECT_EQ(sysutl_nfs_flush(ExactText(std::string(4096 - 5, 'x'))), -1);
  EXPECT_EQ(errno, ENAMETOOLONG);
  EXPECT_EQ(count_calls("open64"), 0);
}

// Some two thousand missing levels.
TEST(SysutlNfsFlush, ADeepPathIsNoMoreThanADeepPath) {
  Folder folder;
  std::string path = folder.path();
  while (path.size() + 2 < 4096) path += "/x";
  Watch watch(folder.path());
  EXPECT_EQ(sysutl_nfs_flush(ExactText(path)), -1);
  EXPECT_EQ(watch.take(), flushes(2));
}

}  // namespace

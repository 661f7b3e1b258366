#include <dirent.h>
#include <fcntl.h>
#include <gmock/gmock.h>
#include <gtest/gtest.h>
#include <sys/stat.h>
#include <unistd.h>

#include <cerrno>
#include <clocale>
#include <cstring>
#include <memory>
#include <string>
#include <vector>

#include "file/fileutl_internal.h"
#include "fileutl.h"
#include "pfm.h"
#include "support/faults.h"
#include "support/folder.h"
#include "support/landing.h"
#include "support/locale.h"
#include "file/files.h"

using ks_test::fail_call;
using ks_test::Folder;
using testing::ElementsAre;
using testing::IsSupersetOf;

namespace {

struct Entry {
  uint64_t ino;
  std::string name;
  bool operator==(const Entry &) const = default;
};

std::vector<Entry> list(const std::string &path) {
  std::vector<Entry> entries;
  fileutl_dir_t *dir = fileutl_opendir(path.c_str());
  EXPECT_NE(dir, nullptr);
  while (const fileutl_dirent_t *entry = fileutl_readdir(dir, 1)) {
    EXPECT_EQ(entry->d_namlen, strlen(entry->d_name));
    EXPECT_EQ(entry->d_reclen, entry->d_namlen + 14);
    entries.push_back({entry->d_ino, entry->d_name});
  }
  EXPECT_EQ(fileutl_closedir(dir), 0);
  return entries;
}

std::vector<Entry> list_by_libc(const std::string &path) {
  std::vector<Entry> entries;
  DIR *dir = opendir(path.c_str());
  while (const struct dirent *entry = readdir(dir))
    entries.push_back({entry->d_ino, entry->d_name});
  closedir(dir);
  return entries;
}

// Puts one record of the system's into the handle's block: what the file systems at hand never give.
void plant(fileutl_dir_t *dir, const std::string &name) {
  const size_t size = (offsetof(dirent64, d_name) + name.size() + 8) / 8 * 8;
  auto *record = reinterpret_cast<dirent64 *>(dir->block);
  record->d_ino = 7;
  record->d_reclen = static_cast<unsigned short>(size);
  memcpy(reinterpret_cast<char *>(record) + offsetof(dirent64, d_name), name.c_str(),
         name.size() + 1);
  dir->next = 0;
  dir->filled = size;
}

TEST(FileutlReaddir, EntryHasTheStatedLayout) {
  static_assert(offsetof(fileutl_dirent_t, d_ino) == 0 && sizeof(fileutl_dirent_t::d_ino) == 8);
  static_assert(offsetof(fileutl_dirent_t, d_reclen) == 8);
  static_assert(offsetof(fileutl_dirent_t, d_namlen) == 10);
  static_assert(offsetof(fileutl_dirent_t, d_name) == 12);
  static_assert(sizeof(fileutl_dirent_t::d_name) == 256);
}

TEST(FileutlReaddir, ListsAsTheSystemDoes) {
  const Folder folder;
  for (const std::string &name :
       {std::string(255, 'n'), std::string("\xff\xfe invalid"), std::string("line\nbreak"),
        std::string(".hidden"), std::string("UPPER"), std::string("-rf *")}) {
    folder.write("listed/" + name.substr(0, 254), "");
    ASSERT_EQ(rename(folder.path("listed/" + name.substr(0, 254)).c_str(),
                     folder.path("listed/" + name).c_str()),
              0);
  }
  const std::vector<Entry> entries = list(folder.path("listed"));
  EXPECT_EQ(entries.size(), 8u);
  EXPECT_EQ(entries, list_by_libc(folder.path("listed")));
}

TEST(FileutlReaddir, ReadsMoreThanOneBlock) {
  const Folder folder;
  for (int i = 0; i < 3000; ++i) {
    const std::string name = std::string(40, 'n') + std::to_string(i);
    ASSERT_EQ(mknod(folder.path(name).c_str(), S_IFREG | 0666, 0), 0);
  }
  const std::vector<Entry> entries = list(folder.path());
  EXPECT_EQ(entries.size(), 3002u);
  EXPECT_EQ(entries, list_by_libc(folder.path()));
}

TEST(FileutlReaddir, DirectoryThatChangesMeanwhileStillEnds) {
  const Folder folder;
  for (int i = 0; i < 1000; ++i) {
    ASSERT_EQ(mknod(folder.path("old" + std::to_string(i)).c_str(), S_IFREG | 0666, 0), 0);
  }
  fileutl_dir_t *dir = fileutl_opendir(folder.path().c_str());
  int old = 0, made = 0;
  while (const fileutl_dirent_t *entry = fileutl_readdir(dir, 0)) {
    ASSERT_LT(made, 100000);
    if (strncmp(entry->d_name, "old", 3) != 0) continue;
    ++old;
    unlink(folder.path(entry->d_name).c_str());
    mknod(folder.path("new" + std::to_string(made++)).c_str(), S_IFREG | 0666, 0);
  }
  EXPECT_EQ(old, 1000);
  EXPECT_EQ(fileutl_closedir(dir), 0);
}

TEST(FileutlReaddir, RemovedDirectoryIsAtItsEnd) {
  const Folder folder;
  ASSERT_EQ(mkdir(folder.path("gone").c_str(), 0777), 0);
  fileutl_dir_t *dir = fileutl_opendir(folder.path("gone").c_str());
  ASSERT_EQ(rmdir(folder.path("gone").c_str()), 0);
  EXPECT_EQ(fileutl_readdir(dir, 0), nullptr);
  EXPECT_EQ(errno, 0);
  EXPECT_EQ(fileutl_closedir(dir), 0);
}

TEST(FileutlReaddir, NameOf256BytesEndsTheListing) {
  const Folder folder;
  fileutl_dir_t *dir = fileutl_opendir(folder.path().c_str());
  for (int fold : {0, 1}) {
    plant(dir, std::string(255, 'n'));
    const fileutl_dirent_t *entry = fileutl_readdir(dir, fold);
    ASSERT_NE(entry, nullptr);
    EXPECT_EQ(entry->d_name, std::string(255, 'n'));
    EXPECT_EQ(entry->d_namlen, 255);
    EXPECT_EQ(entry->d_reclen, 269);
    EXPECT_EQ(entry->d_ino, 7u);
    plant(dir, std::string(256, 'n'));
    EXPECT_EQ(fileutl_readdir(dir, fold), nullptr);
    EXPECT_EQ(errno, ENAMETOOLONG);
  }
  EXPECT_EQ(fileutl_closedir(dir), 0);
}

TEST(FileutlReaddir, FoldsOnlyOnRequestAndWhereCasesAreNotTold) {
  ks_test::use_locale("C.UTF-8");
  const Folder folder;
  fileutl_dir_t *dir = fileutl_opendir(folder.path().c_str());
  EXPECT_EQ(dir->case_sensitive, 1);
  const auto read = [&](const std::string &name, int fold) -> std::string {
    plant(dir, name);
    const fileutl_dirent_t *entry = fileutl_readdir(dir, fold);
    if (entry == nullptr) return "none";
    EXPECT_EQ(entry->d_namlen, strlen(entry->d_name));
    return entry->d_name;
  };
  EXPECT_EQ(read("NaMe\xff", 1), "NaMe\xff");
  dir->case_sensitive = 0;
  EXPECT_EQ(read("NaMe\xff", 0), "NaMe\xff");
  EXPECT_EQ(read("NaMe\xff", 1), "name\xff");
  // U+023A takes a byte more in lower case.
  EXPECT_EQ(read("\u023A", 1), "\u2C65");
  std::string name(252, 'N'), folded(252, 'n');
  name += "\u023A";
  folded += "\u2C65";
  EXPECT_EQ(read(name, 1), folded);
  name.insert(0, 1, 'N');
  EXPECT_EQ(read(name, 1), "none");
  EXPECT_EQ(fileutl_closedir(dir), 0);
}

TEST(FileutlReaddir, ErrnoTellsAFailureFromTheEnd) {
  const Folder folder;
  fileutl_dir_t *dir = fileutl_opendir(folder.path().c_str());
  while (fileutl_readdir(dir, 0) != nullptr) errno = EDOM;
  EXPECT_EQ(errno, 0);
  fail_call("getdents64", 0, EIO);
  EXPECT_EQ(fileutl_readdir(dir, 0), nullptr);
  EXPECT_EQ(errno, EIO);
  EXPECT_EQ(fileutl_readdir(dir, 0), nullptr);
  EXPECT_EQ(errno, 0) << "the next call asks the system again";
  EXPECT_EQ(fileutl_closedir(dir), 0);
}

TEST(FileutlReaddir, InterruptedReadingIsRepeated) {
  const Folder folder;
  fileutl_dir_t *dir = fileutl_opendir(folder.path().c_str());
  fail_call("getdents64", 0, EINTR, 5);
  EXPECT_NE(fileutl_readdir(dir, 0), nullptr);
  EXPECT_NE(fileutl_readdir(dir, 0), nullptr);
  EXPECT_EQ(fileutl_readdir(dir, 0), nullptr);
  EXPECT_EQ(errno, 0);
  EXPECT_EQ(fileutl_closedir(dir), 0);
}

// A signal that arrives while the system answers and raises: no entry is lost.
TEST(FileutlReaddir, FaultLosesNoEntry) {
  const Folder folder;
  folder.write("a", "");
  fileutl_dir_t *dir = fileutl_opendir(folder.path().c_str());
  ks_test::default_signals();
  pfm_signal(SIGUSR1, ks_test::raise_number);
  ks_test::signal_in_call("getdents64", 0, SIGUSR1);
  EXPECT_EQ(ks_test::land([&] { fileutl_readdir(dir, 0); }).status, SIGUSR1);
  int entries = 0;
  while (fileutl_readdir(dir, 0) != nullptr) ++entries;
  EXPECT_EQ(entries, 3);
  EXPECT_EQ(fileutl_closedir(dir), 0);
}

TEST(FileutlReaddir, ReadingOfAClosedHandleFails) {
  const Folder folder;
  fileutl_dir_t *dir = fileutl_opendir(folder.path().c_str());
  close(dir->fd);
  errno = 0;
  EXPECT_EQ(fileutl_readdir(dir, 0), nullptr);
  EXPECT_EQ(errno, EBADF);
  EXPECT_EQ(fileutl_closedir(dir), 1);
  stg_free(dir);
}

TEST(FileutlOpendir, FailsWithTheReasonAndNothingIsLeft) {
  const Folder folder;
  folder.write("file", "");
  const ptrdiff_t descriptors = ks_test::open_descriptors();
  EXPECT_EQ(fileutl_opendir(folder.path("absent").c_str()), nullptr);
  EXPECT_EQ(errno, ENOENT);
  EXPECT_EQ(fileutl_opendir(folder.path("file").c_str()), nullptr);
  EXPECT_EQ(errno, ENOTDIR);
  EXPECT_EQ(ks_test::open_descriptors(), descriptors);
}

TEST(FileutlOpendir, FollowsALink) {
  const Folder folder;
  folder.write("dir/file", "");
  ASSERT_EQ(symlink("dir", folder.path("link").c_str()), 0);
  EXPECT_EQ(list(folder.path("link")).size(), 3u);
}

TEST(FileutlOpendir, HandleIsNotInherited) {
  const Folder folder;
  fileutl_dir_t *dir = fileutl_opendir(folder.path().c_str());
  EXPECT_EQ(fcntl(dir->fd, F_GETFD), FD_CLOEXEC);
  EXPECT_EQ(fileutl_closedir(dir), 0);
}

TEST(FileutlOpendir, ExhaustedStorageIsAnErrorAndOpensNothing) {
  const Folder folder;
  const ptrdiff_t descriptors = ks_test::open_descriptors();
  const std::string printed = ks_test::printed_by([&] {
    fail_call("malloc", 0, ENOMEM);
    EXPECT_EQ(fileutl_opendir(folder.path().c_str()), nullptr);
    EXPECT_EQ(errno, ENOMEM);
  });
  EXPECT_EQ(printed, ks_test::error_line("No more memory available."));
  EXPECT_EQ(ks_test::open_descriptors(), descriptors);
}

TEST(FileutlClosedir, InterruptedClosingIsDone) {
  const Folder folder;
  const ptrdiff_t descriptors = ks_test::open_descriptors();
  fileutl_dir_t *dir = fileutl_opendir(folder.path().c_str());
  fail_call("close", 0, EINTR);
  EXPECT_EQ(fileutl_closedir(dir), 0);
  EXPECT_EQ(ks_test::open_descriptors(), descriptors);
}

TEST(FileutlClosedir, KeepsTheHandleWhenClosingFails) {
  const Folder folder;
  fileutl_dir_t *dir = fileutl_opendir(folder.path().c_str());
  const int fd = dir->fd;
  ASSERT_EQ(close(fd), 0);
  EXPECT_EQ(fileutl_closedir(dir), 1);
  EXPECT_EQ(errno, EBADF);
  // Closed once more it must not close what has the number by now.
  ASSERT_EQ(dup2(0, fd), fd);
  EXPECT_EQ(fileutl_closedir(dir), 1);
  EXPECT_EQ(fcntl(fd, F_GETFD), 0);
  close(fd);
  stg_free(dir);
}

}  // namespace

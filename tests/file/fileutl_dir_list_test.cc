#include <gtest/gtest.h>
#include <sys/stat.h>
#include <unistd.h>

#include <cerrno>
#include <dirent.h>
#include <string>
#include <vector>

#include "fileutl.h"
#include "stg.h"
#include "support/faults.h"
#include "support/folder.h"
#include "support/landing.h"
#include "support/signals.h"
#include "file/files.h"

using ks_test::fail_call;
using ks_test::Folder;
using ks_test::open_descriptors;

namespace {

std::vector<std::string> names_by_libc(const std::string &path) {
  std::vector<std::string> names;
  DIR *dir = opendir(path.c_str());
  while (const struct dirent *entry = readdir(dir)) names.push_back(entry->d_name);
  closedir(dir);
  return names;
}

void fill(const Folder &folder, int files) {
  for (int i = 0; i < files; ++i) {
    ASSERT_EQ(mknod(folder.path("File" + std::to_string(i)).c_str(), S_IFREG | 0666, 0), 0);
  }
}

void free_heap(char **names, int count) {
  while (count > 0) stg_free(names[--count]);
  stg_free(names);
}

TEST(FileutlReadWholeDir, GivesAllNamesInTheDirectorysOrder) {
  // Around the first room of 512 and its doubles; "." and ".." are among them.
  for (int files : {0, 1, 509, 510, 511, 1022, 1023}) {
    const Folder folder;
    fill(folder, files);
    char **names = nullptr;
    const int count = fileutl_read_whole_dir(folder.path().c_str(), STG_AREA_HEAP, &names);
    ASSERT_EQ(count, files + 2);
    EXPECT_EQ(std::vector<std::string>(names, names + count), names_by_libc(folder.path()));
    free_heap(names, count);
  }
}

TEST(FileutlReadWholeDir, AnAreaKeepsItAll) {
  const Folder folder;
  fill(folder, 1100);
  stg_area_t area = stg_create_area(1000);
  char **names = nullptr;
  const int count = fileutl_read_whole_dir(folder.path().c_str(), area, &names);
  ASSERT_EQ(count, 1102);
  EXPECT_EQ(std::vector<std::string>(names, names + count), names_by_libc(folder.path()));
  stg_delete_area(&area);
}

TEST(FileutlReadWholeDir, DirectoryThatCannotBeOpenedLeavesTheBareArray) {
  char **names = nullptr;
  EXPECT_EQ(fileutl_read_whole_dir("/absent", STG_AREA_HEAP, &names), -1);
  EXPECT_EQ(errno, ENOENT);
  EXPECT_NE(names, nullptr);
  stg_free(names);
}

// The calls of the allocator fail one after the other, and nothing is left of what was made.
TEST(FileutlReadWholeDir, ExhaustedStorageIsAnErrorAndNothingIsLeft) {
  const Folder folder;
  fill(folder, 520);
  const ptrdiff_t descriptors = open_descriptors();
  // The array, the handle, then the names, with a second array behind 512 of them.
  for (int nth : {0, 1, 2, 3, 100, 514, 515, 523}) {
    char **names = nullptr;
    const std::string printed = ks_test::printed_by([&] {
      fail_call("malloc", nth, ENOMEM);
      EXPECT_EQ(fileutl_read_whole_dir(folder.path().c_str(), STG_AREA_HEAP, &names), -1) << nth;
      EXPECT_EQ(errno, ENOMEM) << nth;
    });
    EXPECT_EQ(printed, ks_test::error_line("No more memory available.")) << nth;
    EXPECT_EQ(names == nullptr, nth == 0);
    EXPECT_EQ(open_descriptors(), descriptors) << nth;
    stg_free(names);
  }
}

TEST(FileutlReadWholeDir, ReadingThatFailsHalfwayIsAFailureAndNoNameIsLeft) {
  const Folder folder;
  for (int i = 0; i < 3000; ++i) {
    const std::string name = std::string(40, 'n') + std::to_string(i);
    ASSERT_EQ(mknod(folder.path(name).c_str(), S_IFREG | 0666, 0), 0);
  }
  const ptrdiff_t descriptors = open_descriptors();
  char **names = nullptr;
  fail_call("getdents64", 1, EIO);
  const int blocks = ks_test::count_calls("malloc") - ks_test::count_calls("free");
  EXPECT_EQ(fileutl_read_whole_dir(folder.path().c_str(), STG_AREA_HEAP, &names), -1);
  EXPECT_EQ(errno, EIO);
  EXPECT_EQ(ks_test::count_calls("malloc") - ks_test::count_calls("free"), blocks + 1);
  EXPECT_NE(names, nullptr);
  EXPECT_EQ(open_descriptors(), descriptors);
  stg_free(names);

  fail_call("getdents64", 1, EINTR, 2);
  const int count = fileutl_read_whole_dir(folder.path().c_str(), STG_AREA_HEAP, &names);
  ASSERT_EQ(count, 3002);
  free_heap(names, count);
}

TEST(FileutlReadWholeDir, FaultOnTheWayReleasesWhatIsOnTheHeap) {
  const Folder folder;
  fill(folder, 600);
  pfm_signal(SIGUSR1, ks_test::raise_number);
  const ptrdiff_t descriptors = open_descriptors();
  for (int nth : {0, 1, 2, 300, 515, 603}) {
    char **names = nullptr;
    ks_test::signal_in_call("malloc", nth, SIGUSR1);
    const ks_test::Landing landing = ks_test::land(
        [&] { fileutl_read_whole_dir(folder.path().c_str(), STG_AREA_HEAP, &names); });
    EXPECT_EQ(landing.status, SIGUSR1) << nth;
    EXPECT_EQ(names, nullptr) << nth;
    EXPECT_EQ(open_descriptors(), descriptors) << nth;
  }
}

}  // namespace

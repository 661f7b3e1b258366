#include "fileutl.h"

#include <fcntl.h>
#include <gtest/gtest.h>
#include <sys/statvfs.h>
#include <sys/sysmacros.h>
#include <unistd.h>

#include <cerrno>
#include <climits>
#include <cstdlib>
#include <cstring>
#include <string>

#include "support/child.h"
#include "support/exact_text.h"
#include "support/folder.h"
#include "file/files.h"

using ks_test::error_line;
using ks_test::ExactText;
using ks_test::Folder;
using ks_test::in_child;
using ks_test::printed_by;

namespace {

TEST(FileutlStat, FollowsALinkOrTellsOfTheLinkItself) {
  const Folder folder;
  folder.write("file", "12345");
  ASSERT_EQ(symlink("file", folder.path("link").c_str()), 0);
  fileutl_stat_t record;
  EXPECT_EQ(fileutl_stat(folder.path("link").c_str(), 1, &record), 0);
  EXPECT_TRUE(S_ISREG(record.st_mode));
  EXPECT_EQ(record.st_size, 5);
  EXPECT_EQ(record.st_nlink, 1u);
  EXPECT_EQ(fileutl_stat(folder.path("link").c_str(), 0, &record), 0);
  EXPECT_TRUE(S_ISLNK(record.st_mode));
  EXPECT_EQ(record.st_size, 4);
  EXPECT_EQ(fileutl_stat(folder.path("link").c_str(), -1, &record), 0);
  EXPECT_TRUE(S_ISREG(record.st_mode)) << "any value but 0 follows";
}

TEST(FileutlStat, FailureGivesALinkCountOfZeroAndTheReason) {
  const Folder folder;
  folder.write("file", "");
  ASSERT_EQ(symlink("loop", folder.path("loop").c_str()), 0);
  const struct {
    std::string path;
    int error;
  } kRows[] = {
      {folder.path("absent"), ENOENT},
      {folder.path("file/below"), ENOTDIR},
      {folder.path("loop"), ELOOP},
      {folder.path(std::string(NAME_MAX + 1, 'n')), ENAMETOOLONG},
      {std::string(PATH_MAX, '/'), ENAMETOOLONG},
      {"", ENOENT},
  };
  for (const auto &row : kRows) {
    fileutl_stat_t record;
    memset(&record, 0xFF, sizeof record);
    errno = 0;
    EXPECT_NE(fileutl_stat(row.path.c_str(), 1, &record), 0) << row.path;
    EXPECT_EQ(errno, row.error) << row.path;
    EXPECT_EQ(record.st_nlink, 0u) << row.path;
  }
}

TEST(FileutlStat, TellsWhatIsForbidden) {
  const Folder folder;
  folder.write("closed/file", "");
  ASSERT_EQ(chmod(folder.path().c_str(), 0755), 0);
  ASSERT_EQ(chmod(folder.path("closed").c_str(), 0), 0);
  const ks_test::Outcome outcome = in_child([&] {
    ks_test::become_nobody();
    fileutl_stat_t record;
    const int result = fileutl_stat(folder.path("closed/file").c_str(), 1, &record);
    _exit(result != 0 && errno == EACCES && record.st_nlink == 0 ? 0 : 1);
  });
  EXPECT_EQ(outcome.end(), "exit 0");
}

TEST(FileutlStat, KnowsSizesAboveFourGigabytes) {
  const Folder folder;
  const std::string path = folder.write("sparse", "");
  ASSERT_EQ(truncate64(path.c_str(), 5368709123), 0);
  fileutl_stat_t record;
  EXPECT_EQ(fileutl_stat(path.c_str(), 1, &record), 0);
  EXPECT_EQ(record.st_size, 5368709123);
}

TEST(FileutlStat, RecordHas64BitFieldsWhateverTheSettings) {
  static_assert(sizeof(fileutl_stat_t::st_size) == 8);
  static_assert(sizeof(fileutl_stat_t::st_ino) == 8);
  static_assert(sizeof(fileutl_stat_t::st_blocks) == 8);
  // A program that was compiled without large files sees the same record.
  const ks_test::Outcome outcome =
      ks_test::run_program({NORVAKS_TEST_CXX, "-x", "c++", "-std=c++20", "-U_FILE_OFFSET_BITS",
                            "-fsyntax-only", "-I" NORVAKS_SOURCE_DIR "/include",
                            NORVAKS_SOURCE_DIR "/tests/file/fileutl_small_offsets.cc"});
  EXPECT_EQ(outcome.end(), "exit 0") << outcome.err;
}

TEST(FileutlExists, TellsWhetherThereIsAnything) {
  const Folder folder;
  folder.write("file", "");
  ASSERT_EQ(symlink("nowhere", folder.path("dangling").c_str()), 0);
  EXPECT_EQ(fileutl_exists(folder.path("file").c_str(), 0), 1);
  EXPECT_EQ(fileutl_exists(folder.path("file").c_str(), 1), 1);
  EXPECT_EQ(fileutl_exists(folder.path("absent").c_str(), 0), 0);
  EXPECT_EQ(fileutl_exists(folder.path("dangling").c_str(), 0), 1);
  EXPECT_EQ(fileutl_exists(folder.path("dangling").c_str(), 1), 0);
}

TEST(FileutlStatfs, TellsOfTheFileSystem) {
  const Folder folder;
  fileutl_statfs_record_t record;
  struct statvfs64 system;
  ASSERT_EQ(fileutl_statfs("/proc", &record, sizeof record), 0);
  ASSERT_EQ(statvfs64("/proc", &system), 0);
  EXPECT_EQ(record.block_size, system.f_bsize);
  EXPECT_EQ(record.fragment_size, system.f_frsize);
  EXPECT_EQ(record.total_blocks, 0u);
  // Of a real one the counts that do not change while others write.
  ASSERT_EQ(fileutl_statfs(folder.path().c_str(), &record, sizeof record), 0);
  ASSERT_EQ(statvfs64(folder.path().c_str(), &system), 0);
  EXPECT_EQ(record.total_blocks, system.f_blocks);
  EXPECT_EQ(record.total_files, system.f_files);
  EXPECT_LE(record.available_blocks, record.free_blocks);
  EXPECT_LE(record.free_blocks, record.total_blocks);
  EXPECT_LE(record.free_files, record.total_files);
  EXPECT_GT(record.free_blocks, 0u);
}

TEST(FileutlStatfs, RecordHas48BytesInThisOrder) {
  static_assert(sizeof(fileutl_statfs_record_t) == 48);
  static_assert(offsetof(fileutl_statfs_record_t, block_size) == 0);
  static_assert(offsetof(fileutl_statfs_record_t, fragment_size) == 4);
  static_assert(offsetof(fileutl_statfs_record_t, total_blocks) == 8);
  static_assert(offsetof(fileutl_statfs_record_t, free_blocks) == 16);
  static_assert(offsetof(fileutl_statfs_record_t, available_blocks) == 24);
  static_assert(offsetof(fileutl_statfs_record_t, total_files) == 32);
  static_assert(offsetof(fileutl_statfs_record_t, free_files) == 40);
}

TEST(FileutlStatfs, WritesNoMoreThanTheSizeOrTheRecord) {
  fileutl_statfs_record_t whole;
  ASSERT_EQ(fileutl_statfs("/proc", &whole, sizeof whole), 0);
  for (size_t size : {size_t{0}, size_t{1}, size_t{6}, size_t{47}, size_t{48}, size_t{60}}) {
    const ExactText buffer("", size + 1);  // one byte behind, which stays
    memset(buffer.get(), 'z', size + 1);
    EXPECT_EQ(fileutl_statfs("/proc", buffer.get(), size), 0);
    const size_t written = std::min<size_t>(size, 48);
    EXPECT_EQ(memcmp(buffer.get(), &whole, written), 0) << size;
    EXPECT_EQ(buffer.bytes().substr(written), std::string(size + 1 - written, 'z')) << size;
  }
}

TEST(FileutlStatfs, FailureWritesNothing) {
  char buffer[48] = "untouched";
  EXPECT_EQ(fileutl_statfs("/absent", buffer, sizeof buffer), -1);
  EXPECT_EQ(errno, ENOENT);
  EXPECT_STREQ(buffer, "untouched");
}

TEST(FileutlReadlink, CountsTheTerminator) {
  const Folder folder;
  ASSERT_EQ(symlink("12345", folder.path("link").c_str()), 0);
  const ExactText buffer("", 6);
  EXPECT_EQ(fileutl_readlink(folder.path("link").c_str(), buffer, 6), 6);
  EXPECT_STREQ(buffer.get(), "12345");
}

TEST(FileutlReadlink, TargetThatFillsTheBufferIsTooLong) {
  const Folder folder;
  ASSERT_EQ(symlink("12345", folder.path("link").c_str()), 0);
  for (size_t size : {size_t{5}, size_t{4}, size_t{1}}) {
    const ExactText buffer("", size);
    errno = 0;
    EXPECT_EQ(fileutl_readlink(folder.path("link").c_str(), buffer, size), -1) << size;
    EXPECT_EQ(errno, ENAMETOOLONG) << size;
  }
}

TEST(FileutlReadlink, FailsOnWhatIsNoLink) {
  const Folder folder;
  char buffer[100];
  EXPECT_EQ(fileutl_readlink(folder.path().c_str(), buffer, sizeof buffer), -1);
  EXPECT_EQ(errno, EINVAL);
  EXPECT_EQ(fileutl_readlink(folder.path("absent").c_str(), buffer, sizeof buffer), -1);
  EXPECT_EQ(errno, ENOENT);
}

TEST(FileutlChkLargeFileOverflow, SizesFromTwoGigabytesOnAreTooLarge) {
  const struct {
    uint32_t low, high;
    int result;
  } kRows[] = {
      {0, 0, 0},          {0x7FFFFFFF, 0, 0}, {0x80000000, 0, 1},
      {0xFFFFFFFF, 0, 1}, {0, 1, 1},          {5, 0x80000000, 1},
  };
  for (const auto &row : kRows) {
    const std::string printed = printed_by([&] {
      EXPECT_EQ(fileutl_chk_large_file_overflow(row.low, row.high, "big"), row.result) << row.low;
    });
    const std::string expected =
        error_line("File \"big\" is larger than 2GB and cannot be handled by Tallowbay.");
    EXPECT_EQ(printed, row.result ? expected : "") << row.low << " " << row.high;
  }
}

TEST(FileutlChkLargeFileOverflow, WithoutANameNothingIsPrinted) {
  for (const char *name : {static_cast<const char *>(nullptr), ""}) {
    EXPECT_EQ(printed_by([&] { EXPECT_EQ(fileutl_chk_large_file_overflow(0, 1, name), 1); }), "");
  }
}

}  // namespace

#include <fcntl.h>
#include <gtest/gtest.h>
#include <unistd.h>

#include <cerrno>
#include <string>

#include "fileutl.h"
#include "support/child.h"
#include "support/folder.h"

using ks_test::Folder;
using ks_test::in_child;

namespace {

// The errno value that another process gets for a lock: it exits with it.
std::string lock_elsewhere(const std::string &path, int64_t start, int64_t length) {
  return in_child([&] {
           const int fd = open(path.c_str(), O_RDWR);
           _exit(fileutl_lockfd(fd, start, length));
         })
      .end();
}

const std::string kTaken = "exit " + std::to_string(EAGAIN);
const std::string kFree = "exit 0";

TEST(FileutlLockfd, KeepsOthersOutOfTheRangeOnly) {
  const Folder folder;
  const std::string path = folder.write("file", "");
  const int fd = open(path.c_str(), O_RDWR);
  EXPECT_EQ(fileutl_lockfd(fd, 10, 5), 0);
  EXPECT_EQ(lock_elsewhere(path, 10, 1), kTaken);
  EXPECT_EQ(lock_elsewhere(path, 14, 1), kTaken);
  EXPECT_EQ(lock_elsewhere(path, 0, 10), kFree);
  EXPECT_EQ(lock_elsewhere(path, 15, 0), kFree);
  EXPECT_EQ(lock_elsewhere(path, 0, 0), kTaken);
  EXPECT_EQ(fileutl_unlockfd(fd, 10, 5), 0);
  EXPECT_EQ(lock_elsewhere(path, 0, 0), kFree);
  close(fd);
}

TEST(FileutlLockfd, OffsetsHave64Bits) {
  const Folder folder;
  const std::string path = folder.write("file", "");
  const int fd = open(path.c_str(), O_RDWR);
  const int64_t far = int64_t{5} << 32;
  EXPECT_EQ(fileutl_lockfd(fd, far, far), 0);
  EXPECT_EQ(lock_elsewhere(path, 0, far), kFree);
  EXPECT_EQ(lock_elsewhere(path, far, 1), kTaken);
  EXPECT_EQ(lock_elsewhere(path, 2 * far - 1, 1), kTaken);
  EXPECT_EQ(lock_elsewhere(path, 2 * far, 1), kFree);
  EXPECT_EQ(fileutl_unlockfd(fd, far, far), 0);
  EXPECT_EQ(lock_elsewhere(path, far, 1), kFree);
  close(fd);
}

TEST(FileutlLockfd, CountsFromTheStartOfTheFile) {
  const Folder folder;
  const std::string path = folder.write("file", "0123456789");
  const int fd = open(path.c_str(), O_RDWR);
  lseek(fd, 5, SEEK_SET);
  EXPECT_EQ(fileutl_lockfd(fd, 0, 1), 0);
  EXPECT_EQ(lock_elsewhere(path, 0, 1), kTaken);
  EXPECT_EQ(lock_elsewhere(path, 5, 1), kFree);
  close(fd);
}

TEST(FileutlLockfd, FailureIsTheErrnoValue) {
  const Folder folder;
  const int fd = open(folder.write("file", "").c_str(), O_RDONLY);
  EXPECT_EQ(fileutl_lockfd(fd, 0, 0), EBADF) << "a lock for writing takes a descriptor for writing";
  EXPECT_EQ(fileutl_lockfd(fd, -1, 1), EINVAL);
  EXPECT_EQ(fileutl_unlockfd(fd, 0, 0), 0) << "what is not locked is given back in peace";
  close(fd);
  EXPECT_EQ(fileutl_lockfd(-1, 0, 0), EBADF);
  EXPECT_EQ(fileutl_unlockfd(-1, 0, 0), EBADF);
}

}  // namespace

#include <fcntl.h>
#include <gmock/gmock.h>
#include <gtest/gtest.h>
#include <sys/mount.h>
#include <unistd.h>

#include "support/child.h"
#include "support/folder.h"
#include "support/own_system.h"

using ks_test::Folder;
using testing::HasSubstr;
using testing::StartsWith;

namespace {

// Becomes the program, which finds these standard descriptors closed, bit 0 for 0 and so on, and
// the others open on `file` of the folder. What it tells is in `report` there.
void become_program(const Folder &folder, unsigned closed) {
  const std::string file = folder.write("file", "text\n");
  for (int fd = 0; fd <= 2; ++fd) dup2(open(file.c_str(), O_RDWR), fd);
  close_range(3, ~0u, 0);
  for (int fd = 0; fd <= 2; ++fd) {
    if ((closed & 1u << fd) != 0) close(fd);
  }
  ks_test::program({NORVAKS_BUILD_DIR "/bin/imsg_descriptors_program", folder.path("report")})();
}

TEST(ImsgDescriptors, ClosedOnesAreTakenAndFailAsTheyWould) {
  for (unsigned closed = 0; closed < 8; ++closed) {
    Folder folder;
    const std::string file = folder.path("file");
    EXPECT_EQ(ks_test::in_child([&] { become_program(folder, closed); }).end(), "exit 0");
    std::string expected = "errno 0, first file 3\n";
    for (int fd = 0; fd <= 2; ++fd) {
      const std::string moved = fd == 0 ? "1" : "5";
      expected += std::to_string(fd) + ": ";
      expected += (closed & 1u << fd) != 0 ? "/dev/null, kept, -1, EBADF\n"
                                           : file + ", kept, " + moved + ", 0\n";
    }
    expected += std::string("fputs ") + ((closed & 2) != 0 ? "-1" : "0");
    expected += (closed & 4) != 0 ? " -1\n" : " 0\n";
    expected += "its own to use: 1\n";
    EXPECT_EQ(folder.read("report"), expected) << closed;
  }
}

// Here /dev/null can be read and not be written, so 0 cannot be taken; 2 must not be taken as 0.
TEST(ImsgDescriptors, OnesThatCannotBeTakenStayClosed) {
  Folder folder;
  ks_test::in_own_system([&] {
    ks_test::mount_empty("/dev");
    ks_test::put_file("/dev/null", "");
    ks_test::must(mount(nullptr, "/dev", nullptr, MS_REMOUNT | MS_RDONLY, nullptr) == 0, "remount");
    become_program(folder, 1 | 4);
  });
  EXPECT_THAT(folder.read("report"), StartsWith("errno 0, first file 0\n"));
  EXPECT_THAT(folder.read("report"), HasSubstr("2: , not kept, -1, EBADF\n"));
}

}  // namespace

#include "support/own_system.h"

#include <fcntl.h>
#include <gtest/gtest.h>
#include <sched.h>
#include <sys/mount.h>
#include <sys/select.h>
#include <unistd.h>

#include <cerrno>
#include <cstdio>
#include <cstring>
#include <fstream>

namespace ks_test {
namespace {

// Of the present test; expectations that hold are not counted.
int failed_expectations() {
  return testing::UnitTest::GetInstance()->current_test_info()->result()->total_part_count();
}

}  // namespace

void enter_own_system() {
  must(unshare(CLONE_NEWNS | CLONE_NEWUTS | CLONE_NEWNET) == 0, "namespaces of its own, as root");
  // A changed root that is no mount point can't be made private; tools/i386-run has seen to that.
  must(mount(nullptr, "/", nullptr, MS_REC | MS_PRIVATE, nullptr) == 0 || errno == EINVAL, "mount");
  mount_empty("/etc");
}

Outcome expect_in_child(const std::function<void()> &body) {
  const int failed_before = failed_expectations();
  Outcome outcome = in_child([&body, failed_before] {
    body();
    fflush(nullptr);
    if (failed_expectations() > failed_before) _exit(1);
  });
  EXPECT_EQ(outcome.end(), "exit 0") << outcome.out << outcome.err;
  return outcome;
}

Outcome in_own_system(const std::function<void()> &body) {
  return expect_in_child([&body] {
    enter_own_system();
    body();
  });
}

void mount_empty(const char *path, const char *options) {
  must(mount("tmpfs", path, "tmpfs", 0, options) == 0, path);
}

void put_file(const char *path, std::string_view contents) {
  std::ofstream file(path, std::ios::binary | std::ios::trunc);
  file << contents;
  file.close();
  must(file.good(), path);
}

void bind_file(const char *source, const char *path) {
  must(mount(source, path, nullptr, MS_BIND, nullptr) == 0, path);
}

void must(bool works, std::string_view what) {
  if (works) return;
  fprintf(stderr, "%.*s: %s\n", static_cast<int>(what.size()), what.data(), strerror(errno));
  _exit(99);
}

int count_descriptors() {
  int count = 0;
  for (int fd = 0; fd < FD_SETSIZE; ++fd) count += fcntl(fd, F_GETFD) >= 0 ? 1 : 0;
  return count;
}

}  // namespace ks_test

// What is done to sockets.
#include <fcntl.h>
#include <gtest/gtest.h>
#include <sys/socket.h>
#include <unistd.h>

#include <cerrno>
#include <csignal>

#include "support/faults.h"
#include "support/signals.h"
#include "sysutl.h"

using ks_test::take_noted;

namespace {

class SysutlSocket : public testing::Test {
 protected:
  SysutlSocket() { EXPECT_EQ(socketpair(AF_UNIX, SOCK_STREAM, 0, ends_), 0); }
  ~SysutlSocket() override {
    close(ends_[0]);
    close(ends_[1]);
  }

  int socket() const { return ends_[0]; }
  void send(size_t size) const {
    EXPECT_EQ(write(ends_[1], "0123456789", size), static_cast<ssize_t>(size));
  }

 private:
  int ends_[2];
};

TEST_F(SysutlSocket, InputInterruptsUntilThatIsCleared) {
  ks_test::set_system_handler(SIGIO, ks_test::note_signal);
  send(1);
  EXPECT_EQ(take_noted(), std::vector<int>());

  EXPECT_EQ(sysutl_set_socket_interrupting(socket()), 0);
  EXPECT_EQ(fcntl(socket(), F_GETOWN), getpid());
  send(1);
  EXPECT_EQ(take_noted(), std::vector<int>{SIGIO});

  EXPECT_EQ(sysutl_clear_socket_interrupting(socket()), 0);
  EXPECT_EQ(fcntl(socket(), F_GETOWN), 0);
  EXPECT_EQ(fcntl(socket(), F_GETFL) & O_ASYNC, 0);
  send(1);
  EXPECT_EQ(take_noted(), std::vector<int>());
}

TEST_F(SysutlSocket, InterruptingFailsAtEitherStep) {
  for (auto *call : {sysutl_set_socket_interrupting, sysutl_clear_socket_interrupting}) {
    ks_test::fail_call("fcntl64", 0, EPERM);
    const int requests = ks_test::count_calls("ioctl");
    EXPECT_EQ(call(socket()), 1);
    EXPECT_EQ(errno, EPERM);
    EXPECT_EQ(ks_test::count_calls("ioctl"), requests);
    ks_test::fail_call("ioctl", 0, ENOTTY);
    EXPECT_EQ(call(socket()), 1);
    EXPECT_EQ(errno, ENOTTY);
    EXPECT_EQ(call(-1), 1);
    EXPECT_EQ(errno, EBADF);
  }
}

TEST_F(SysutlSocket, TellsHowManyBytesAreReady) {
  int count = 77;
  EXPECT_EQ(sysutl_socket_bytes_ready(socket(), &count), 0);
  EXPECT_EQ(count, 0);
  send(7);
  EXPECT_EQ(sysutl_socket_bytes_ready(socket(), &count), 0);
  EXPECT_EQ(count, 7);
}

TEST_F(SysutlSocket, TellingTheBytesOfNothingFails) {
  int count = 77;
  EXPECT_EQ(sysutl_socket_bytes_ready(-1, &count), 1);
  EXPECT_EQ(errno, EBADF);
  EXPECT_EQ(count, 77);
}

TEST(SysutlSockPortUniquifier, IsTheMicrosecondsCutTo32Bits) {
  ks_test::set_clock(7, 89);
  EXPECT_EQ(sysutl_sock_port_uniquifier(), 7000089u);
  ks_test::set_clock(5000, 123456);
  EXPECT_EQ(sysutl_sock_port_uniquifier(), 705156160u);  // 5000123456 - 2^32
  ks_test::set_clock(4294, 967295);
  EXPECT_EQ(sysutl_sock_port_uniquifier(), 4294967295u);
  ks_test::set_clock(4294, 967296);
  EXPECT_EQ(sysutl_sock_port_uniquifier(), 0u);
}

}  // namespace

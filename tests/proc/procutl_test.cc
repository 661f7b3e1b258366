#include "procutl.h"

#include <gtest/gtest.h>
#include <sys/wait.h>
#include <unistd.h>

#include <cerrno>
#include <csignal>

#include "proc/rt_proc_children.h"
#include "support/child.h"

using ks_test::await_death;
using ks_test::Child;
using ks_test::in_child;
using ks_test::wait_for_a_signal;

namespace {

// The number of a process that was there and has been reaped.
pid_t gone_pid() {
  Child child([] {});
  const pid_t pid = child.pid();
  child.finish();
  return pid;
}

// A process of the superuser, which nobody else may send signals to.
constexpr pid_t kForeign = 1;

// Runs `answer` as an ordinary user, and leaves the child with what it gives.
ks_test::Outcome as_nobody(int (*answer)()) {
  return in_child([&] {
    constexpr uid_t kNobody = 65534;
    if (geteuid() == 0 && setresuid(kNobody, kNobody, kNobody) != 0) _exit(100);
    _exit(answer());
  });
}

TEST(ProcutlExists, IsOneForALivingProcess) {
  EXPECT_EQ(procutl_exists(getpid()), 1);
  Child child([] { wait_for_a_signal(); });
  EXPECT_EQ(procutl_exists(child.pid()), 1);
  kill(child.pid(), SIGKILL);
  child.finish();
}

TEST(ProcutlExists, IsOneForAnotherUsersProcess) {
  EXPECT_EQ(as_nobody([] {
              errno = 0;
              if (kill(kForeign, 0) != -1 || errno != EPERM) return 101;
              return procutl_exists(kForeign);
            }).end(),
            "exit 1");
}

TEST(ProcutlExists, IsOneForADeadProcessUntilItIsReaped) {
  Child child([] {});
  await_death(child.pid());
  EXPECT_EQ(procutl_exists(child.pid()), 1);
  child.finish();
  EXPECT_EQ(procutl_exists(child.pid()), 0);
}

TEST(ProcutlExists, DoesNoHarm) {
  Child child([] { wait_for_a_signal(); });
  EXPECT_EQ(procutl_exists(child.pid()), 1);
  kill(child.pid(), SIGTERM);
  EXPECT_EQ(child.finish().end(), "signal 15");
}

TEST(ProcutlTerminate, SendsSigterm) {
  Child child([] { wait_for_a_signal(); });
  EXPECT_EQ(procutl_terminate(child.pid()), 0);
  EXPECT_EQ(child.finish().end(), "signal 15");
}

TEST(ProcutlTerminate, IsContentWithSending) {
  Child child([] {
    signal(SIGTERM, SIG_IGN);
    raise(SIGSTOP);
    wait_for_a_signal();
  });
  int status = 0;
  ASSERT_EQ(waitpid(child.pid(), &status, WUNTRACED), child.pid());
  EXPECT_EQ(procutl_terminate(child.pid()), 0);
  kill(child.pid(), SIGKILL);
  EXPECT_EQ(child.finish().end(), "signal 9");
}

TEST(ProcutlTerminate, FailsForAProcessThatIsGone) {
  const pid_t pid = gone_pid();
  errno = 0;
  EXPECT_EQ(procutl_terminate(pid), 1);
  EXPECT_EQ(errno, ESRCH);
}

TEST(ProcutlTerminate, FailsForAnotherUsersProcess) {
  EXPECT_EQ(as_nobody([] {
              errno = 0;
              const int result = procutl_terminate(kForeign);
              return errno == EPERM ? result : 101;
            }).end(),
            "exit 1");
}

}  // namespace

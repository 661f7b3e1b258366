#include "proc/rt_proc_children.h"

#include <gtest/gtest.h>
#include <sys/prctl.h>
#include <sys/wait.h>
#include <unistd.h>

#include <algorithm>
#include <cerrno>
#include <csignal>
#include <cstdio>
#include <filesystem>
#include <ostream>
#include <utility>

#include "pfm.h"
#include "support/child.h"
#include "support/faults.h"
#include "support/signals.h"

namespace ks_test {
namespace {

std::vector<Death> deaths;

void shut_down(void *) { rt_shutdown(); }

}  // namespace

void PrintTo(const Death &death, std::ostream *out) {
  *out << "pid " << death.pid << ", status " << death.status << ", arg " << death.arg;
}

void note_death(pid_t pid, int status, void *arg, rt_proc_t *) {
  deaths.push_back({pid, status, arg});
}

std::vector<Death> take_deaths() { return std::exchange(deaths, {}); }

void default_children() {
  default_signals();
  pfm_signal(SIGTERM, SIG_DFL);
}

void wait_for_a_signal() {
  prctl(PR_SET_PDEATHSIG, SIGKILL);
  for (;;) pause();
}

void leave_with_expectations() {
  fflush(stdout);
  _exit(testing::Test::HasFailure() ? 1 : 0);
}

pid_t fork_waiting(rt_proc_callback_t callback, void *arg) {
  const pid_t pid = rt_proc_fork(callback, arg);
  if (pid == 0) wait_for_a_signal();
  return pid;
}

pid_t fork_leaving(int code, rt_proc_callback_t callback, void *arg) {
  const pid_t pid = rt_proc_fork(callback, arg);
  if (pid == 0) _exit(code);
  return pid;
}

void await_death(pid_t pid) {
  siginfo_t info;
  while (waitid(P_PID, static_cast<id_t>(pid), &info, WEXITED | WNOWAIT) != 0 && errno == EINTR) {
  }
}

void kill_and_await(pid_t pid, int sig) {
  kill(pid, sig);
  await_death(pid);
}

bool has_children() {
  siginfo_t info;
  return waitid(P_ALL, 0, &info, WEXITED | WNOHANG | WNOWAIT) == 0;
}

void run_due_events() {
  rt_sched(shut_down, nullptr, 0);
  rt_run();
}

// An event is due a microsecond after its time.
void run_due_events_at(long seconds) {
  set_clock(seconds, 0);
  rt_sched(shut_down, nullptr, 0);
  set_clock(seconds, 1);
  rt_run();
}

std::string errors_of(const std::function<void()> &body) {
  const Outcome outcome = in_child([&] {
    body();
    fflush(stdout);
  });
  EXPECT_EQ(outcome.out, "");
  EXPECT_EQ(outcome.end(), "exit 0");
  return outcome.err;
}

std::vector<std::string> open_descriptors() {
  std::vector<std::string> numbers;
  for (const auto &entry : std::filesystem::directory_iterator("/proc/self/fd")) {
    numbers.push_back(entry.path().filename());
  }
  std::sort(numbers.begin(), numbers.end());
  return numbers;
}

}  // namespace ks_test

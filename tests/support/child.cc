#include "support/child.h"

#include <sys/mman.h>
#include <sys/prctl.h>
#include <sys/wait.h>
#include <unistd.h>

#include <csignal>
#include <cstdio>
#include <cstdlib>
#include <vector>

namespace ks_test {
namespace {

// A file without a name: it takes any amount of output, and nothing is left behind.
int scratch_file() {
  const int fd = memfd_create("output", MFD_CLOEXEC);
  if (fd < 0) {
    perror("memfd_create");
    abort();
  }
  return fd;
}

std::string take_contents(int fd) {
  std::string text;
  char block[65536];
  lseek(fd, 0, SEEK_SET);
  for (ssize_t count; (count = read(fd, block, sizeof block)) > 0;) {
    text.append(block, static_cast<size_t>(count));
  }
  close(fd);
  return text;
}

}  // namespace

std::string Outcome::end() const {
  if (WIFSIGNALED(wait_status)) return "signal " + std::to_string(WTERMSIG(wait_status));
  return "exit " + std::to_string(WEXITSTATUS(wait_status));
}

Outcome in_child(const std::function<void()> &body) {
  const int out = scratch_file();
  const int err = scratch_file();
  fflush(nullptr);
  const pid_t pid = fork();
  if (pid == 0) {
    prctl(PR_SET_PDEATHSIG, SIGKILL);
    dup2(out, STDOUT_FILENO);
    dup2(err, STDERR_FILENO);
    body();
    _exit(0);
  }
  Outcome outcome = {};
  if (pid < 0 || waitpid(pid, &outcome.wait_status, 0) != pid) {
    perror("in_child");
    abort();
  }
  outcome.out = take_contents(out);
  outcome.err = take_contents(err);
  return outcome;
}

Outcome run_program(const std::vector<std::string> &argv,
                    const std::vector<std::string> &environment) {
  return in_child([&] {
    for (const std::string &setting : environment) putenv(const_cast<char *>(setting.c_str()));
    std::vector<char *> arguments;
    for (const std::string &argument : argv) arguments.push_back(const_cast<char *>(argument.c_str()));
    arguments.push_back(nullptr);
    execvp(arguments[0], arguments.data());
    perror(arguments[0]);
    _exit(127);
  });
}

}  // namespace ks_test

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

Child::Child(const std::function<void()> &body) : out_(scratch_file()), err_(scratch_file()) {
  fflush(nullptr);
  pid_ = fork();
  if (pid_ < 0) {
    perror("fork");
    abort();
  }
  if (pid_ == 0) {
    prctl(PR_SET_PDEATHSIG, SIGKILL);
    dup2(out_, STDOUT_FILENO);
    dup2(err_, STDERR_FILENO);
    body();
    _exit(0);
  }
}

Outcome Child::finish() {
  Outcome outcome = {};
  if (waitpid(pid_, &outcome.wait_status, 0) != pid_) {
    perror("waitpid");
    abort();
  }
  outcome.out = take_contents(out_);
  outcome.err = take_contents(err_);
  return outcome;
}

std::function<void()> program(const std::vector<std::string> &argv,
                              const std::vector<std::string> &environment) {
  return [argv, environment] {
    for (const std::string &setting : environment) putenv(const_cast<char *>(setting.c_str()));
    std::vector<char *> arguments;
    for (const std::string &word : argv) arguments.push_back(const_cast<char *>(word.c_str()));
    arguments.push_back(nullptr);
    execvp(arguments[0], arguments.data());
    perror(arguments[0]);
    _exit(127);
  };
}

Outcome in_child(const std::function<void()> &body) { return Child(body).finish(); }

Outcome run_program(const std::vector<std::string> &argv,
                    const std::vector<std::string> &environment) {
  return in_child(program(argv, environment));
}

}  // namespace ks_test

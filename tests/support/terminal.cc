#include "support/terminal.h"

#include <fcntl.h>
#include <sys/ioctl.h>
#include <sys/prctl.h>
#include <sys/wait.h>
#include <termios.h>
#include <unistd.h>

#include <csignal>
#include <cstdio>
#include <cstdlib>

#include "support/signals.h"

namespace ks_test {
namespace {

[[noreturn]] void fail(const char *call) {
  perror(call);
  abort();
}

int new_terminal() {
  const int fd = posix_openpt(O_RDWR | O_NOCTTY | O_CLOEXEC);
  if (fd < 0 || grantpt(fd) != 0 || unlockpt(fd) != 0) fail("posix_openpt");
  return fd;
}

termios attributes_of(int fd) {
  termios attributes;
  if (tcgetattr(fd, &attributes) != 0) fail("tcgetattr");
  return attributes;
}

// Of a child that has just been forked.
void take_terminal(const char *name) {
  setsid();
  const int fd = open(name, O_RDWR);  // becomes the session's
  if (fd < 0) fail(name);
  termios attributes = attributes_of(fd);
  cfmakeraw(&attributes);
  if (tcsetattr(fd, TCSANOW, &attributes) != 0) fail(name);
  for (int standard : {STDIN_FILENO, STDOUT_FILENO, STDERR_FILENO}) dup2(fd, standard);
  if (fd > STDERR_FILENO) close(fd);
}

pid_t forked() {
  fflush(nullptr);
  const pid_t pid = fork();
  if (pid < 0) fail("fork");
  if (pid == 0) prctl(PR_SET_PDEATHSIG, SIGKILL);
  return pid;
}

int wait_for(pid_t pid, int options) {
  int status;
  if (waitpid(pid, &status, options) != pid) fail("waitpid");
  return status;
}

}  // namespace

Outcome on_terminal(const std::function<void()> &body) {
  const int fd = new_terminal();
  char name[64];
  if (ptsname_r(fd, name, sizeof name) != 0) fail("ptsname_r");
  // Held open until the child has its own: without any user the terminal would be at its end.
  const int user = open(name, O_RDWR | O_NOCTTY | O_CLOEXEC);
  int ready[2];
  if (user < 0 || pipe2(ready, O_CLOEXEC) != 0) fail(name);
  const pid_t pid = forked();
  if (pid == 0) {
    default_signals();
    take_terminal(name);
    close(ready[0]), close(ready[1]), close(user), close(fd);
    body();
    _exit(0);
  }
  Outcome outcome = {};
  char block[4096];
  close(ready[1]);
  while (read(ready[0], block, sizeof block) > 0) {
  }
  close(ready[0]);
  close(user);
  // Ends with an error when the last user is gone and all has been read.
  for (ssize_t count; (count = read(fd, block, sizeof block)) > 0;) {
    outcome.out.append(block, static_cast<size_t>(count));
  }
  close(fd);
  outcome.wait_status = wait_for(pid, 0);
  return outcome;
}

int in_background(const std::function<void()> &body) {
  const pid_t pid = forked();
  if (pid == 0) {
    setpgid(0, 0);
    body();
    _exit(0);
  }
  const int status = wait_for(pid, WUNTRACED);
  if (WIFSTOPPED(status)) {
    kill(pid, SIGKILL);
    wait_for(pid, 0);
  }
  return status;
}

int in_foreground(const std::function<void()> &body) {
  const pid_t pid = forked();
  if (pid == 0) {
    body();
    _exit(0);
  }
  return wait_for(pid, 0);
}

bool echoes() { return (attributes_of(STDOUT_FILENO).c_lflag & ECHO) != 0; }

void set_echo(bool on) {
  termios attributes = attributes_of(STDOUT_FILENO);
  attributes.c_lflag = (attributes.c_lflag & ~tcflag_t{ECHO}) | (on ? ECHO : 0);
  if (tcsetattr(STDOUT_FILENO, TCSANOW, &attributes) != 0) fail("tcsetattr");
}

}  // namespace ks_test

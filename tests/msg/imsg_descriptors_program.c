/* Tells, in the file that it is given, what it finds at the standard descriptors and can do there:
 * imsg_descriptors_program FILE */
#define _GNU_SOURCE 1
#include <errno.h>
#include <fcntl.h>
#include <limits.h>
#include <stdio.h>
#include <string.h>
#include <unistd.h>

#include <norvaks/imsg.h>

static void tell_of(FILE *report, int fd) {
  char link[32], target[PATH_MAX], byte;
  snprintf(link, sizeof link, "/proc/self/fd/%d", fd);
  const ssize_t length = readlink(link, target, sizeof target);
  const int for_exec = (fcntl(fd, F_GETFD) & FD_CLOEXEC) == 0;
  errno = 0;
  const ssize_t moved = fd == STDIN_FILENO ? read(fd, &byte, 1) : write(fd, "text\n", 5);
  fprintf(report, "%d: %.*s, %s, %d, %s\n", fd, (int)(length < 0 ? 0 : length), target,
          for_exec ? "kept" : "not kept", (int)moved, strerrorname_np(errno));
}

int main(int argc, char **argv) {
  const int error = errno;
  FILE *report = argc == 2 ? fopen(argv[1], "w") : NULL;
  if (report == NULL) return 2;
  fprintf(report, "errno %d, first file %d\n", error, fileno(report));
  for (int fd = STDIN_FILENO; fd <= STDERR_FILENO; ++fd) tell_of(report, fd);
  const int out = imsg_fputs("text\n", stdout), err = imsg_fputs("text\n", stderr);
  fprintf(report, "fputs %d %d\n", out, err);

  close(STDOUT_FILENO);
  imsg_print(IMSG_TYPE_OK, "%s\n", -1, "text");
  fprintf(report, "its own to use: %d\n", dup(STDERR_FILENO));
  return fclose(report) == 0 ? 0 : 2;
}

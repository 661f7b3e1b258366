// The checked forms of libc's calls, to which a compiler with _FORTIFY_SOURCE turns the plain ones
// where it knows the size of a buffer but not how much goes there. Here each checks and makes the
// plain call, so that tests/support/faults.cc reaches both, and a test names only the plain one.
#undef _FORTIFY_SOURCE
#include <fcntl.h>
#include <unistd.h>

#include <cstdarg>
#include <cstdio>

extern "C" {

[[noreturn]] void __chk_fail(void);

#pragma GCC visibility push(hidden)  // other libraries in the process go on to libc's

static void check(bool fits) {
  if (!fits) __chk_fail();
}

static bool wants_mode(int flags) {
  return (flags & O_CREAT) != 0 || (flags & O_TMPFILE) == O_TMPFILE;
}

ssize_t __read_chk(int fd, void *buffer, size_t count, size_t size);
ssize_t __read_chk(int fd, void *buffer, size_t count, size_t size) {
  check(count <= size);
  return read(fd, buffer, count);
}

char *__fgets_chk(char *line, size_t size, int count, FILE *stream);
char *__fgets_chk(char *line, size_t size, int count, FILE *stream) {
  check(static_cast<size_t>(count) <= size);
  return fgets(line, count, stream);
}

int __vsnprintf_chk(char *target, size_t count, int flag, size_t size, const char *format,
                    va_list args);
int __vsnprintf_chk(char *target, size_t count, int, size_t size, const char *format,
                    va_list args) {
  check(count <= size);
  return vsnprintf(target, count, format, args);
}

int __gethostname_chk(char *buffer, size_t count, size_t size);
int __gethostname_chk(char *buffer, size_t count, size_t size) {
  check(count <= size);
  return gethostname(buffer, count);
}

int __getgroups_chk(int count, gid_t *groups, size_t size);
int __getgroups_chk(int count, gid_t *groups, size_t size) {
  check(static_cast<size_t>(count) * sizeof *groups <= size);
  return getgroups(count, groups);
}

// Of an opening whose flags the compiler does not know: they must not want a mode.
int __open64_2(const char *path, int flags);
int __open64_2(const char *path, int flags) {
  check(!wants_mode(flags));
  return open64(path, flags);
}

int __openat64_2(int at, const char *path, int flags);
int __openat64_2(int at, const char *path, int flags) {
  check(!wants_mode(flags));
  return openat64(at, path, flags);
}

#pragma GCC visibility pop

}  // extern "C"

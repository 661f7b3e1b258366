#include "support/faults.h"

#include <fcntl.h>
#include <nl_types.h>
#include <pwd.h>
#include <sys/resource.h>
#include <sys/select.h>
#include <sys/stat.h>
#include <sys/syscall.h>
#include <sys/time.h>
#include <sys/wait.h>
#include <sys/utsname.h>
#include <unistd.h>
#include <termios.h>

#include <cerrno>
#include <csignal>
#include <cstdarg>
#include <cstdio>
#include <cstdlib>
#include <cstring>
#include <ctime>
#include <cwchar>
#include <iterator>

#include "support/blocks.h"

namespace ks_test {
namespace {

struct Call {
  std::string_view name;
  int count = 0;        // calls so far
  int first_fail = -1;  // number of the first call that fails, -1 for none
  int fails = 0;        // how many in a row
  int error = 0;
  int signal_at = -1;  // number of the call in which a signal arrives, -1 for none
  int signal = 0;
};

constinit Call calls[] = {
    {"calloc"},      {"catclose"}, {"catopen"},   {"close"},       {"fcntl64"},      {"fgets"},
    {"fork"},        {"free"},     {"fstatat64"}, {"fsync"},       {"getdents64"},   {"getgroups"},
    {"gethostname"}, {"getlogin"}, {"getpwnam"},  {"getrlimit64"}, {"gettimeofday"}, {"gmtime_r"},
    {"ioctl"},       {"isatty"},   {"kill"},      {"localtime_r"}, {"lockf64"},      {"malloc"},
    {"mbrtowc"},     {"mbstowcs"}, {"mktime"},    {"open64"},      {"openat64"},     {"putenv"},
    {"read"},        {"realloc"},  {"select"},    {"setupterm"},   {"sigaction"},    {"stat64"},
    {"strdup"},      {"strftime"}, {"tcgetattr"}, {"tcsetattr"},   {"time"},         {"tzset"},
    {"uname"},       {"unlink"},   {"unlinkat"},  {"vsnprintf"},   {"vsprintf"},     {"waitpid"},
    {"wcrtomb"},     {"wcstombs"}, {"write"},
};

constinit bool unnoticed = false;  // calls are neither counted nor made to fail
constinit bool inside = false;     // a signal is arriving in a call

constinit bool keep_freed = false;
constinit void *kept[64] = {};
constinit size_t kept_count = 0;

constinit bool clock_set = false;
constinit timeval clock_value = {};

constinit int terminal_action = -1;

constinit SelectAnswer *select_answer = nullptr;  // in place of the system's
constinit void *pselect_mask = nullptr;           // of the call in progress
constinit std::string_view host_name = {};
constinit const char *terminal_login = nullptr;
constinit bool full_names_hidden = false;
constinit bool descriptor_limit_lifted = false;

Call &find(std::string_view name) {
  for (Call &call : calls) {
    if (call.name == name) return call;
  }
  fprintf(stderr, "faults: %.*s is not wrapped\n", static_cast<int>(name.size()), name.data());
  abort();
}

// Counts a call, and has a signal arrive in it; true when it is to fail, with errno set.
bool fails(std::string_view name) {
  if (unnoticed) return false;
  Call &call = find(name);
  const int number = call.count++;
  if (number == call.signal_at) {
    inside = true;
    raise(call.signal);
    inside = false;
  }
  if (call.first_fail < 0 || number < call.first_fail || number >= call.first_fail + call.fails) {
    return false;
  }
  errno = call.error;
  return true;
}

}  // namespace

int answer_pselect(const long (&argument)[6]);

void fail_call(std::string_view name, int nth, int error, int times) {
  Call &call = find(name);
  call.first_fail = call.count + nth;
  call.fails = times;
  call.error = error;
}

void stop_failing_calls() {
  for (Call &call : calls) call.first_fail = -1;
}

void signal_in_call(std::string_view name, int nth, int sig) {
  Call &call = find(name);
  call.signal_at = call.count + nth;
  call.signal = sig;
}

void leave_calls_alone() { unnoticed = true; }

bool inside_call() { return inside; }

int count_calls(std::string_view name) { return find(name).count; }

void keep_freed_blocks() { keep_freed = true; }

void free_kept_blocks() {
  keep_freed = false;
  while (kept_count > 0) free(kept[--kept_count]);
}

void set_clock(long seconds, long microseconds) {
  clock_set = true;
  clock_value.tv_sec = seconds;
  clock_value.tv_usec = microseconds;
}

int last_terminal_action() { return terminal_action; }

void answer_select(SelectAnswer *answer) { select_answer = answer; }
void set_host_name(std::string_view name) { host_name = name; }

void set_terminal_login(const char *name) { terminal_login = name; }

void hide_full_names() { full_names_hidden = true; }

void lift_descriptor_limit() { descriptor_limit_lifted = true; }

}  // namespace ks_test

using ks_test::allocation_fails;
using ks_test::fails;
using ks_test::forget_block;
using ks_test::note_block;

extern "C" {

void *__real_malloc(size_t size);
void *__wrap_malloc(size_t size);
void *__wrap_malloc(size_t size) {
  if (fails("malloc") || allocation_fails()) return nullptr;
  return note_block(__real_malloc(size), __builtin_return_address(0));
}

void *__real_calloc(size_t count, size_t size);
void *__wrap_calloc(size_t count, size_t size);
void *__wrap_calloc(size_t count, size_t size) {
  if (fails("calloc") || allocation_fails()) return nullptr;
  return note_block(__real_calloc(count, size), __builtin_return_address(0));
}

void __real_free(void *block);
void __wrap_free(void *block);
void __wrap_free(void *block) {
  if (fails("free")) return;
  forget_block(block);
  if (ks_test::keep_freed && ks_test::kept_count < std::size(ks_test::kept)) {
    ks_test::kept[ks_test::kept_count++] = block;
  } else {
    __real_free(block);
  }
}

void *__real_realloc(void *block, size_t size);
void *__wrap_realloc(void *block, size_t size);
void *__wrap_realloc(void *block, size_t size) {
  if (fails("realloc") || allocation_fails()) return nullptr;
  void *moved = __real_realloc(block, size);
  if (moved != nullptr || size == 0) forget_block(block);
  return note_block(moved, __builtin_return_address(0));
}

char *__real_strdup(const char *text);
char *__wrap_strdup(const char *text);
char *__wrap_strdup(const char *text) {
  if (fails("strdup") || allocation_fails()) return nullptr;
  return static_cast<char *>(note_block(__real_strdup(text), __builtin_return_address(0)));
}

nl_catd __real_catopen(const char *name, int flags);
nl_catd __wrap_catopen(const char *name, int flags);
nl_catd __wrap_catopen(const char *name, int flags) {
  return fails("catopen") ? reinterpret_cast<nl_catd>(-1) : __real_catopen(name, flags);
}

int __real_catclose(nl_catd catalog);
int __wrap_catclose(nl_catd catalog);
int __wrap_catclose(nl_catd catalog) { return fails("catclose") ? -1 : __real_catclose(catalog); }

void __real_tzset(void);
void __wrap_tzset(void);
void __wrap_tzset(void) {
  if (!fails("tzset")) __real_tzset();
}

struct tm *__real_localtime_r(const time_t *moment, struct tm *local);
struct tm *__wrap_localtime_r(const time_t *moment, struct tm *local);
struct tm *__wrap_localtime_r(const time_t *moment, struct tm *local) {
  return fails("localtime_r") ? nullptr : __real_localtime_r(moment, local);
}

struct tm *__real_gmtime_r(const time_t *moment, struct tm *utc);
struct tm *__wrap_gmtime_r(const time_t *moment, struct tm *utc);
struct tm *__wrap_gmtime_r(const time_t *moment, struct tm *utc) {
  return fails("gmtime_r") ? nullptr : __real_gmtime_r(moment, utc);
}

time_t __real_mktime(struct tm *local);
time_t __wrap_mktime(struct tm *local);
time_t __wrap_mktime(struct tm *local) {
  return fails("mktime") ? time_t{-1} : __real_mktime(local);
}

size_t __real_strftime(char *target, size_t size, const char *format, const struct tm *time);
size_t __wrap_strftime(char *target, size_t size, const char *format, const struct tm *time);
size_t __wrap_strftime(char *target, size_t size, const char *format, const struct tm *time) {
  return fails("strftime") ? 0 : __real_strftime(target, size, format, time);
}

time_t __real_time(time_t *out);
time_t __wrap_time(time_t *out);
time_t __wrap_time(time_t *out) { return fails("time") ? time_t{-1} : __real_time(out); }

int __real_vsnprintf(char *target, size_t size, const char *format, va_list args);
int __wrap_vsnprintf(char *target, size_t size, const char *format, va_list args);
int __wrap_vsnprintf(char *target, size_t size, const char *format, va_list args) {
  return fails("vsnprintf") ? -1 : __real_vsnprintf(target, size, format, args);
}

int __real_vsprintf(char *target, const char *format, va_list args);
int __wrap_vsprintf(char *target, const char *format, va_list args);
int __wrap_vsprintf(char *target, const char *format, va_list args) {
  return fails("vsprintf") ? -1 : __real_vsprintf(target, format, args);
}

constexpr size_t kNoCharacter = static_cast<size_t>(-1);

size_t __real_mbrtowc(wchar_t *wide, const char *text, size_t limit, mbstate_t *state);
size_t __wrap_mbrtowc(wchar_t *wide, const char *text, size_t limit, mbstate_t *state);
size_t __wrap_mbrtowc(wchar_t *wide, const char *text, size_t limit, mbstate_t *state) {
  return fails("mbrtowc") ? kNoCharacter : __real_mbrtowc(wide, text, limit, state);
}

size_t __real_mbstowcs(wchar_t *wide, const char *text, size_t count);
size_t __wrap_mbstowcs(wchar_t *wide, const char *text, size_t count);
size_t __wrap_mbstowcs(wchar_t *wide, const char *text, size_t count) {
  return fails("mbstowcs") ? kNoCharacter : __real_mbstowcs(wide, text, count);
}

size_t __real_wcrtomb(char *text, wchar_t wide, mbstate_t *state);
size_t __wrap_wcrtomb(char *text, wchar_t wide, mbstate_t *state);
size_t __wrap_wcrtomb(char *text, wchar_t wide, mbstate_t *state) {
  return fails("wcrtomb") ? kNoCharacter : __real_wcrtomb(text, wide, state);
}

size_t __real_wcstombs(char *text, const wchar_t *wide, size_t size);
size_t __wrap_wcstombs(char *text, const wchar_t *wide, size_t size);
size_t __wrap_wcstombs(char *text, const wchar_t *wide, size_t size) {
  return fails("wcstombs") ? kNoCharacter : __real_wcstombs(text, wide, size);
}

int __real_gettimeofday(timeval *now, void *zone);
int __wrap_gettimeofday(timeval *now, void *zone);
int __wrap_gettimeofday(timeval *now, void *zone) {
  if (fails("gettimeofday")) return -1;
  if (!ks_test::clock_set) return __real_gettimeofday(now, zone);
  *now = ks_test::clock_value;
  return 0;
}

// The library's select, and what it has of the system's besides.
long __real_syscall(long number, ...);
long __wrap_syscall(long number, ...);
long __wrap_syscall(long number, ...) {
  va_list args;
  va_start(args, number);
  long argument[6];
  for (long &each : argument) each = va_arg(args, long);  // the system takes as many as it needs
  va_end(args);
  if (number == SYS_pselect6 && fails("select")) return -1;
  if (number == SYS_pselect6 && ks_test::select_answer != nullptr) {
    return ks_test::answer_pselect(argument);
  }
  return __real_syscall(number, argument[0], argument[1], argument[2], argument[3], argument[4],
                        argument[5]);
}

int __real_select(int nfds, fd_set *in, fd_set *out, fd_set *except, timeval *timeout);
int __wrap_select(int nfds, fd_set *in, fd_set *out, fd_set *except, timeval *timeout);
int __wrap_select(int nfds, fd_set *in, fd_set *out, fd_set *except, timeval *timeout) {
  if (!fails("select")) return __real_select(nfds, in, out, except, timeout);
  if (errno != 0) return -1;
  FD_ZERO(in);
  return 1;
}

char *__real_fgets(char *line, int size, FILE *stream);
char *__wrap_fgets(char *line, int size, FILE *stream);
char *__wrap_fgets(char *line, int size, FILE *stream) {
  if (!fails("fgets")) return __real_fgets(line, size, stream);
  const int error = errno;
  memset(line, 'p', static_cast<size_t>(size));  // a part of a line, as libc leaves it
  fputc('x', stream);                            // sets the error flag of a stream for reading
  errno = error;
  return nullptr;
}

int __real_fstatat64(int at, const char *path, struct stat64 *record, int flags);
int __wrap_fstatat64(int at, const char *path, struct stat64 *record, int flags);
int __wrap_fstatat64(int at, const char *path, struct stat64 *record, int flags) {
  return fails("fstatat64") ? -1 : __real_fstatat64(at, path, record, flags);
}

int __real_openat64(int at, const char *path, int flags, ...);
int __wrap_openat64(int at, const char *path, int flags, ...);
int __wrap_openat64(int at, const char *path, int flags, ...) {
  va_list args;
  va_start(args, flags);
  const unsigned mode = (flags & (O_CREAT | O_TMPFILE)) != 0 ? va_arg(args, unsigned) : 0;
  va_end(args);
  return fails("openat64") ? -1 : __real_openat64(at, path, flags, mode);
}

int __real_sigaction(int sig, const struct sigaction *action, struct sigaction *old);
int __wrap_sigaction(int sig, const struct sigaction *action, struct sigaction *old);
int __wrap_sigaction(int sig, const struct sigaction *action, struct sigaction *old) {
  return fails("sigaction") ? -1 : __real_sigaction(sig, action, old);
}

pid_t __real_fork(void);
pid_t __wrap_fork(void);
pid_t __wrap_fork(void) { return fails("fork") ? -1 : __real_fork(); }

int __real_kill(pid_t pid, int sig);
int __wrap_kill(pid_t pid, int sig);
int __wrap_kill(pid_t pid, int sig) { return fails("kill") ? -1 : __real_kill(pid, sig); }

pid_t __real_waitpid(pid_t pid, int *status, int options);
pid_t __wrap_waitpid(pid_t pid, int *status, int options);
pid_t __wrap_waitpid(pid_t pid, int *status, int options) {
  return fails("waitpid") ? -1 : __real_waitpid(pid, status, options);
}

// A descriptor whose closing fails is closed all the same.
int __real_close(int fd);
int __wrap_close(int fd);
int __wrap_close(int fd) {
  const int result = __real_close(fd);
  return fails("close") ? -1 : result;
}

int __real_fcntl64(int fd, int request, ...);
int __wrap_fcntl64(int fd, int request, ...);
int __wrap_fcntl64(int fd, int request, ...) {
  va_list args;
  va_start(args, request);
  void *argument = va_arg(args, void *);
  va_end(args);
  return fails("fcntl64") ? -1 : __real_fcntl64(fd, request, argument);
}

int __real_ioctl(int fd, unsigned long request, ...);
int __wrap_ioctl(int fd, unsigned long request, ...);
int __wrap_ioctl(int fd, unsigned long request, ...) {
  va_list args;
  va_start(args, request);
  void *argument = va_arg(args, void *);
  va_end(args);
  return fails("ioctl") ? -1 : __real_ioctl(fd, request, argument);
}

int __real_open64(const char *path, int flags, ...);
int __wrap_open64(const char *path, int flags, ...);
int __wrap_open64(const char *path, int flags, ...) {
  va_list args;
  va_start(args, flags);
  const mode_t mode = (flags & (O_CREAT | O_TMPFILE)) != 0 ? va_arg(args, mode_t) : 0;
  va_end(args);
  return fails("open64") ? -1 : __real_open64(path, flags, mode);
}

ssize_t __real_read(int fd, void *buffer, size_t size);
ssize_t __wrap_read(int fd, void *buffer, size_t size);
ssize_t __wrap_read(int fd, void *buffer, size_t size) {
  return fails("read") ? -1 : __real_read(fd, buffer, size);
}

int __real_lockf64(int fd, int request, off64_t size);
int __wrap_lockf64(int fd, int request, off64_t size);
int __wrap_lockf64(int fd, int request, off64_t size) {
  return fails("lockf64") ? -1 : __real_lockf64(fd, request, size);
}

int __real_stat64(const char *path, struct stat64 *status);
int __wrap_stat64(const char *path, struct stat64 *status);
int __wrap_stat64(const char *path, struct stat64 *status) {
  return fails("stat64") ? -1 : __real_stat64(path, status);
}

int __real_fsync(int fd);
int __wrap_fsync(int fd);
int __wrap_fsync(int fd) { return fails("fsync") ? -1 : __real_fsync(fd); }

int __real_unlink(const char *path);
int __wrap_unlink(const char *path);
int __wrap_unlink(const char *path) { return fails("unlink") ? -1 : __real_unlink(path); }

int __real_unlinkat(int at, const char *path, int flags);
int __wrap_unlinkat(int at, const char *path, int flags);
int __wrap_unlinkat(int at, const char *path, int flags) {
  return fails("unlinkat") ? -1 : __real_unlinkat(at, path, flags);
}

ssize_t __real_getdents64(int fd, void *buffer, size_t size);
ssize_t __wrap_getdents64(int fd, void *buffer, size_t size);
ssize_t __wrap_getdents64(int fd, void *buffer, size_t size) {
  return fails("getdents64") ? -1 : __real_getdents64(fd, buffer, size);
}

ssize_t __real_write(int fd, const void *bytes, size_t size);
ssize_t __wrap_write(int fd, const void *bytes, size_t size);
ssize_t __wrap_write(int fd, const void *bytes, size_t size) {
  return fails("write") ? -1 : __real_write(fd, bytes, size);
}

int __real_uname(utsname *system);
int __wrap_uname(utsname *system);
int __wrap_uname(utsname *system) { return fails("uname") ? -1 : __real_uname(system); }

int __real_gethostname(char *buffer, size_t size);
int __wrap_gethostname(char *buffer, size_t size);
int __wrap_gethostname(char *buffer, size_t size) {
  if (fails("gethostname")) return -1;
  if (ks_test::host_name.empty()) return __real_gethostname(buffer, size);
  strncpy(buffer, ks_test::host_name.data(), size);
  return 0;
}

char *__real_getlogin(void);
char *__wrap_getlogin(void);
char *__wrap_getlogin(void) {
  if (fails("getlogin")) return nullptr;
  if (ks_test::terminal_login == nullptr) return __real_getlogin();
  return const_cast<char *>(ks_test::terminal_login);
}

passwd *__real_getpwnam(const char *name);
passwd *__wrap_getpwnam(const char *name);
passwd *__wrap_getpwnam(const char *name) {
  if (fails("getpwnam")) return nullptr;
  passwd *entry = __real_getpwnam(name);
  if (entry != nullptr && ks_test::full_names_hidden) entry->pw_gecos = nullptr;
  return entry;
}

int __real_getgroups(int size, gid_t *groups);
int __wrap_getgroups(int size, gid_t *groups);
int __wrap_getgroups(int size, gid_t *groups) {
  return fails("getgroups") ? -1 : __real_getgroups(size, groups);
}

int __real_getrlimit64(__rlimit_resource_t resource, rlimit64 *limit);
int __wrap_getrlimit64(__rlimit_resource_t resource, rlimit64 *limit);
int __wrap_getrlimit64(__rlimit_resource_t resource, rlimit64 *limit) {
  if (fails("getrlimit64")) return -1;
  const int result = __real_getrlimit64(resource, limit);
  if (ks_test::descriptor_limit_lifted && resource == RLIMIT_NOFILE) {
    *limit = {RLIM64_INFINITY, RLIM64_INFINITY};
  }
  return result;
}

int __real_isatty(int fd);
int __wrap_isatty(int fd);
int __wrap_isatty(int fd) { return fails("isatty") ? 0 : __real_isatty(fd); }

int __real_putenv(char *setting);
int __wrap_putenv(char *setting);
int __wrap_putenv(char *setting) { return fails("putenv") ? -1 : __real_putenv(setting); }

int __real_setupterm(const char *term, int fd, int *found);
int __wrap_setupterm(const char *term, int fd, int *found);
int __wrap_setupterm(const char *term, int fd, int *found) {
  if (!fails("setupterm")) return __real_setupterm(term, fd, found);
  *found = -1;
  return -1;
}

int __real_tcgetattr(int fd, termios *attributes);
int __wrap_tcgetattr(int fd, termios *attributes);
int __wrap_tcgetattr(int fd, termios *attributes) {
  return fails("tcgetattr") ? -1 : __real_tcgetattr(fd, attributes);
}

int __real_tcsetattr(int fd, int when, const termios *attributes);
int __wrap_tcsetattr(int fd, int when, const termios *attributes);
int __wrap_tcsetattr(int fd, int when, const termios *attributes) {
  ks_test::terminal_action = when;
  return fails("tcsetattr") ? -1 : __real_tcsetattr(fd, when, attributes);
}

}  // extern "C"

// The wait's way of refusing to sleep travels in the last argument of the call, so that is kept.
int ks_test::system_select(int nfds, fd_set *reading, fd_set *writing, fd_set *exceptions,
                           timeval *timeout) {
  timespec left = {};
  if (timeout != nullptr) left = {timeout->tv_sec, timeout->tv_usec * 1000};
  const auto ready =
      static_cast<int>(__real_syscall(SYS_pselect6, nfds, reading, writing, exceptions,
                                      timeout != nullptr ? &left : nullptr, pselect_mask));
  if (timeout != nullptr) *timeout = {left.tv_sec, static_cast<suseconds_t>(left.tv_nsec / 1000)};
  return ready;
}

int ks_test::answer_pselect(const long (&argument)[6]) {
  auto *left = reinterpret_cast<timespec *>(argument[4]);
  timeval timeout = {};
  if (left != nullptr) timeout = {left->tv_sec, static_cast<suseconds_t>(left->tv_nsec / 1000)};
  pselect_mask = reinterpret_cast<void *>(argument[5]);
  const int ready =
      select_answer(static_cast<int>(argument[0]), reinterpret_cast<fd_set *>(argument[1]),
                    reinterpret_cast<fd_set *>(argument[2]),
                    reinterpret_cast<fd_set *>(argument[3]), left != nullptr ? &timeout : nullptr);
  if (left != nullptr) *left = {timeout.tv_sec, timeout.tv_usec * 1000};
  return ready;
}

// Makes system and library calls fail, by name and count. The calls are wrapped by the linker, so
// this sees those of the library's objects and of the tests, not libc's own.
#pragma once

#include <sys/select.h>

#include <string_view>

namespace ks_test {

// The calls that can be made to fail; tests/CMakeLists.txt wraps the same names, and
// syscall, by which the fault manager calls its select.
//   calloc catclose catopen close fcntl64 fgets fork free fstatat64 fsync getdents64 getgroups
//   gethostname getlogin getpwnam getrlimit64 gettimeofday gmtime_r ioctl isatty kill localtime_r
//   lockf64 malloc mbrtowc mbstowcs mktime open64 openat64 putenv read realloc select setupterm
//   sigaction stat64 strdup strftime tcgetattr tcsetattr time tzset uname unlink unlinkat
//   vsnprintf vsprintf waitpid wcrtomb wcstombs write

// The call number `nth` from now on (0 is the next) of `name` fails, with errno `error`; with `times`
// above 1 so many calls in a row do.
void fail_call(std::string_view name, int nth, int error, int times = 1);

// From now on no call fails.
void stop_failing_calls();

// From now on no call is counted either: for a process that is stepped through, which the search for
// the name would take the longest part of.
void leave_calls_alone();

// Calls of `name` since the process started, failed ones included.
int count_calls(std::string_view name);

// Signal `sig` arrives in the middle of the call number `nth` from now on of `name`.
void signal_in_call(std::string_view name, int nth, int sig);

// Whether that is happening: what a signal routine asks.
bool inside_call();

// The action that tcsetattr was last asked for; -1 before.
int last_terminal_action();

// From now on freed blocks are kept as they are, for a test to look at what was left in them, and
// until given back.
void keep_freed_blocks();
void free_kept_blocks();

// gettimeofday answers these from now on.
void set_clock(long seconds, long microseconds);

// From now on `answer` is called in place of select, where that does not fail. It may ask
// system_select.
using SelectAnswer = int(int nfds, fd_set *reading, fd_set *writing, fd_set *exceptions,
                         timeval *timeout);
void answer_select(SelectAnswer *answer);
SelectAnswer system_select;

// What no test's own system can be made to say: gethostname fills its buffer with `name`, without a
// NUL where there is no room; getlogin answers `name`; getpwnam's entries have no full name;
// getrlimit answers that there is no limit on descriptors.
void set_host_name(std::string_view name);
void set_terminal_login(const char *name);
void hide_full_names();
void lift_descriptor_limit();

}  // namespace ks_test

// Makes system and library calls fail, by name and count. The calls are wrapped by the linker, so
// this sees those of the library's objects and of the tests, not libc's own.
#pragma once

#include <string_view>

namespace ks_test {

// The calls that can be made to fail; tests/CMakeLists.txt wraps the same names.
//   malloc calloc realloc strdup catopen catclose gettimeofday time tzset localtime_r vsnprintf
//   select sigaction

// The call number `nth` from now on (0 is the next) of `name` fails, with errno `error`; with `times`
// above 1 so many calls in a row do.
void fail_call(std::string_view name, int nth, int error, int times = 1);

// From now on no call fails.
void stop_failing_calls();

// Calls of `name` since the process started, failed ones included.
int count_calls(std::string_view name);

// Signal `sig` arrives in the middle of the call number `nth` from now on of `name`.
void signal_in_call(std::string_view name, int nth, int sig);

// Whether that is happening: what a signal routine asks.
bool inside_call();

// From now on freed blocks are kept as they are, for a test to look at what was left in them, and
// until given back.
void keep_freed_blocks();
void free_kept_blocks();

// gettimeofday answers these from now on.
void set_clock(long seconds, long microseconds);

}  // namespace ks_test

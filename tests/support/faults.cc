#include "support/faults.h"

#include <nl_types.h>
#include <sys/select.h>
#include <sys/time.h>

#include <cerrno>
#include <csignal>
#include <cstdarg>
#include <cstdio>
#include <cstdlib>
#include <ctime>
#include <iterator>

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
    {"malloc"}, {"calloc"}, {"realloc"},  {"strdup"},  {"catopen"},     {"catclose"},
    {"time"},   {"vsnprintf"}, {"tzset"},  {"localtime_r"}, {"gettimeofday"},
    {"select"}, {"sigaction"},
};

constinit bool inside = false;  // a signal is arriving in a call

constinit bool keep_freed = false;
constinit void *kept[64] = {};
constinit size_t kept_count = 0;

constinit bool clock_set = false;
constinit timeval clock_value = {};

Call &find(std::string_view name) {
  for (Call &call : calls) {
    if (call.name == name) return call;
  }
  fprintf(stderr, "faults: %.*s is not wrapped\n", static_cast<int>(name.size()), name.data());
  abort();
}

// Counts a call, and has a signal arrive in it; true when it is to fail, with errno set.
bool fails(std::string_view name) {
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

}  // namespace ks_test

using ks_test::fails;

extern "C" {

void *__real_malloc(size_t size);
void *__wrap_malloc(size_t size);
void *__wrap_malloc(size_t size) { return fails("malloc") ? nullptr : __real_malloc(size); }

void *__real_calloc(size_t count, size_t size);
void *__wrap_calloc(size_t count, size_t size);
void *__wrap_calloc(size_t count, size_t size) {
  return fails("calloc") ? nullptr : __real_calloc(count, size);
}

void __real_free(void *block);
void __wrap_free(void *block);
void __wrap_free(void *block) {
  if (ks_test::keep_freed && ks_test::kept_count < std::size(ks_test::kept)) {
    ks_test::kept[ks_test::kept_count++] = block;
  } else {
    __real_free(block);
  }
}

void *__real_realloc(void *block, size_t size);
void *__wrap_realloc(void *block, size_t size);
void *__wrap_realloc(void *block, size_t size) {
  return fails("realloc") ? nullptr : __real_realloc(block, size);
}

char *__real_strdup(const char *text);
char *__wrap_strdup(const char *text);
char *__wrap_strdup(const char *text) { return fails("strdup") ? nullptr : __real_strdup(text); }

nl_catd __real_catopen(const char *name, int flags);
nl_catd __wrap_catopen(const char *name, int flags);
nl_catd __wrap_catopen(const char *name, int flags) {
  return fails("catopen") ? reinterpret_cast<nl_catd>(-1) : __real_catopen(name, flags);
}

int __real_catclose(nl_catd catalog);
int __wrap_catclose(nl_catd catalog);
int __wrap_catclose(nl_catd catalog) {
  return fails("catclose") ? -1 : __real_catclose(catalog);
}

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

time_t __real_time(time_t *out);
time_t __wrap_time(time_t *out);
time_t __wrap_time(time_t *out) { return fails("time") ? time_t{-1} : __real_time(out); }

int __real_vsnprintf(char *target, size_t size, const char *format, va_list args);
int __wrap_vsnprintf(char *target, size_t size, const char *format, va_list args);
int __wrap_vsnprintf(char *target, size_t size, const char *format, va_list args) {
  return fails("vsnprintf") ? -1 : __real_vsnprintf(target, size, format, args);
}

int __real_gettimeofday(timeval *now, void *zone);
int __wrap_gettimeofday(timeval *now, void *zone);
int __wrap_gettimeofday(timeval *now, void *zone) {
  if (fails("gettimeofday")) return -1;
  if (!ks_test::clock_set) return __real_gettimeofday(now, zone);
  *now = ks_test::clock_value;
  return 0;
}

int __real_select(int nfds, fd_set *in, fd_set *out, fd_set *except, timeval *timeout);
int __wrap_select(int nfds, fd_set *in, fd_set *out, fd_set *except, timeval *timeout);
int __wrap_select(int nfds, fd_set *in, fd_set *out, fd_set *except, timeval *timeout) {
  return fails("select") ? -1 : __real_select(nfds, in, out, except, timeout);
}

int __real_sigaction(int sig, const struct sigaction *action, struct sigaction *old);
int __wrap_sigaction(int sig, const struct sigaction *action, struct sigaction *old);
int __wrap_sigaction(int sig, const struct sigaction *action, struct sigaction *old) {
  return fails("sigaction") ? -1 : __real_sigaction(sig, action, old);
}

}  // extern "C"

// Children that end when a test says so, and what the loop tells of them.
#pragma once

#include <sys/types.h>

#include <functional>
#include <iosfwd>
#include <string>
#include <vector>

#include "rt.h"

namespace ks_test {

// Status words of waitpid(2).
constexpr int exited(int code) { return code << 8; }
constexpr int killed_by(int sig) { return sig; }

// What a callback was told.
struct Death {
  pid_t pid;
  int status;
  void *arg;
  bool operator==(const Death &) const = default;
};
void PrintTo(const Death &death, std::ostream *out);

// A callback that notes a death, and what has been noted since the last call.
void note_death(pid_t pid, int status, void *arg, rt_proc_t *record);
std::vector<Death> take_deaths();

// The signals of terminals and children are at their defaults, and so is SIGTERM: children die of it.
void default_children();

// The body of a child that waits for a signal to end it; it dies with its parent.
[[noreturn]] void wait_for_a_signal();

// Leaves a child with 0, or 1 when an expectation of its own has failed, which is printed.
[[noreturn]] void leave_with_expectations();

// A child of the loop that waits for a signal, and one that leaves at once.
pid_t fork_waiting(rt_proc_callback_t callback = note_death, void *arg = nullptr);
pid_t fork_leaving(int code, rt_proc_callback_t callback = note_death, void *arg = nullptr);

// Waits until a child is dead, which others reap: on return the signal of its death has come.
void await_death(pid_t pid);
void kill_and_await(pid_t pid, int sig);

// Whether this process has a child, dead or alive, that was not reaped.
bool has_children();

// Turns the loop until all that is due has run; and with the clock standing at `seconds`.
void run_due_events();
void run_due_events_at(long seconds);

// Runs a body with expectations in a child of its own. Result: what it printed to descriptor 2.
std::string errors_of(const std::function<void()> &body);

// Descriptors of this process, by number.
std::vector<std::string> open_descriptors();

}  // namespace ks_test

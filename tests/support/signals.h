// Signals for tests: sent to the test's own process, and what their routines saw.
#pragma once

#include <csignal>
#include <initializer_list>
#include <vector>

namespace ks_test {

inline constexpr int kLastSignal = 64;

// The system lets nobody catch or block SIGKILL and SIGSTOP, and libc keeps 32 and 33 to itself.
bool is_free(int sig);

// Sends `sig` to this process: where nothing blocks it, it has arrived on return.
void send_signal(int sig);

// A signal routine that notes the signals it is called with, and its installing by pfm_signal.
void note_signal(int sig);
void note_signals(std::initializer_list<int> sigs);

// What has been noted since the last call, in order.
std::vector<int> take_noted();

// A signal routine that raises the signal's number as a fault.
void raise_number(int sig);

// Whether the process's mask blocks `sig`, and all that it blocks.
bool is_blocked(int sig);
std::vector<int> blocked_signals();

// The action that the system has for `sig`, and another in its place, without the library's help.
struct sigaction system_action(int sig);
void set_system_handler(int sig, void (*handler)(int), int flags = 0);

// The signals of the terminal and of children as a shell's foreground job gets them, whatever the
// test's own parent ignores or blocks.
void default_signals();

}  // namespace ks_test

#include "support/signals.h"

#include <unistd.h>

#include <utility>

#include "pfm.h"

namespace ks_test {
namespace {

std::vector<int> noted;

}  // namespace

bool is_free(int sig) { return sig != SIGKILL && sig != SIGSTOP && sig != 32 && sig != 33; }

void send_signal(int sig) { kill(getpid(), sig); }

void note_signal(int sig) { noted.push_back(sig); }

void note_signals(std::initializer_list<int> sigs) {
  for (int sig : sigs) pfm_signal(sig, note_signal);
}

std::vector<int> take_noted() { return std::exchange(noted, {}); }

void raise_number(int sig) { pfm_raise(sig); }

bool is_blocked(int sig) {
  sigset_t mask;
  sigprocmask(SIG_SETMASK, nullptr, &mask);
  return sigismember(&mask, sig) == 1;
}

std::vector<int> blocked_signals() {
  std::vector<int> blocked;
  for (int sig = 1; sig <= kLastSignal; ++sig) {
    if (is_blocked(sig)) blocked.push_back(sig);
  }
  return blocked;
}

struct sigaction system_action(int sig) {
  struct sigaction action = {};
  sigaction(sig, nullptr, &action);
  return action;
}

void set_system_handler(int sig, void (*handler)(int), int flags) {
  struct sigaction action = {};
  action.sa_handler = handler;
  action.sa_flags = flags;
  sigaction(sig, &action, nullptr);
}

void default_signals() {
  sigset_t none;
  sigemptyset(&none);
  sigprocmask(SIG_SETMASK, &none, nullptr);
  for (int sig : {SIGHUP, SIGINT, SIGQUIT, SIGTERM, SIGTSTP, SIGCHLD}) {
    set_system_handler(sig, SIG_DFL);
  }
}

}  // namespace ks_test

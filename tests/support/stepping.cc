#include "support/stepping.h"

#include <sys/ptrace.h>
#include <sys/user.h>
#include <sys/wait.h>
#include <unistd.h>

#include <cstdint>
#include <cstdio>
#include <map>
#include <vector>

#include "support/child.h"

namespace ks_test {
namespace {

// Where the program's own code lies, as the linker says; what lies elsewhere is libc's.
extern "C" const char __executable_start;
extern "C" const char etext;

using Address = uintptr_t;

bool is_own_code(Address address) {
  return address >= reinterpret_cast<Address>(&__executable_start) &&
         address < reinterpret_cast<Address>(&etext);
}

// The tracer's side of one child.
class Tracer {
 public:
  explicit Tracer(const ks_test::Child &child) : pid_(child.pid()) { wait_for_stop(); }

  // Lets the child run until it sends `mark`; false when it ends before.
  bool run_to(int mark) {
    do {
      if (!go(PTRACE_CONT)) return false;
    } while (stop_signal() != mark);
    return true;
  }

  // Goes step by step to the end of the stretch. Result: the places in the program's own code, in
  // order.
  std::vector<Address> places_to_end() {
    std::vector<Address> places;
    while (go(PTRACE_SINGLESTEP) && stop_signal() != kStepEnd) {
      const Address place = static_cast<Address>(peek(PTRACE_PEEKUSER, kInstructionPointer));
      if (stop_signal() == SIGTRAP && is_own_code(place)) places.push_back(place);
    }
    return places;
  }

  // Lets the child run until it is about to pass `place` for the `time`-th time; false when it does
  // not do so before the end of the stretch.
  bool run_to_place(Address place, int time) {
    for (; run_to_trap(place); --time) {
      if (time == 1) return true;
      if (!go(PTRACE_SINGLESTEP)) return false;
    }
    return false;
  }

 private:
#ifdef __i386__
  static constexpr Address kInstructionPointer = offsetof(user, regs.eip);
#else
  static constexpr Address kInstructionPointer = offsetof(user, regs.rip);
#endif

  int stop_signal() const { return WIFSTOPPED(status_) ? WSTOPSIG(status_) : 0; }

  long peek(__ptrace_request what, Address address) const {
    return ptrace(what, pid_, reinterpret_cast<void *>(address), nullptr);
  }
  void poke(__ptrace_request what, Address address, long word) const {
    ptrace(what, pid_, reinterpret_cast<void *>(address), reinterpret_cast<void *>(word));
  }

  bool run_to_trap(Address place) {
    const long word = peek(PTRACE_PEEKTEXT, place);
    poke(PTRACE_POKETEXT, place, (word & ~0xffL) | 0xcc);  // a trap instead of the first byte
    bool running;
    do {
      running = go(PTRACE_CONT) && stop_signal() != kStepEnd;
    } while (running && stop_signal() != SIGTRAP);
    poke(PTRACE_POKETEXT, place, word);
    if (running) poke(PTRACE_POKEUSER, kInstructionPointer, static_cast<long>(place));
    return running;
  }

  // Lets the child go on, with the signal for which it stopped, and waits for the next stop.
  bool go(__ptrace_request how) {
    const long sig = stop_signal();
    const bool for_tracer =
        sig == SIGTRAP || sig == SIGSTOP || sig == kStepBegin || sig == kStepEnd;
    if (ptrace(how, pid_, nullptr, reinterpret_cast<void *>(for_tracer ? 0 : sig)) != 0)
      return false;
    return wait_for_stop();
  }

  // False when the child has ended; it can still be waited for then.
  bool wait_for_stop() {
    siginfo_t info = {};
    waitid(P_PID, static_cast<id_t>(pid_), &info, WEXITED | WSTOPPED | WNOWAIT);
    if (info.si_code != CLD_TRAPPED && info.si_code != CLD_STOPPED) return false;
    return waitpid(pid_, &status_, 0) == pid_;
  }

  pid_t pid_;
  int status_ = 0;
};

}  // namespace

void be_traced() {
  if (ptrace(PTRACE_TRACEME, 0, nullptr, nullptr) != 0) {
    dprintf(STDOUT_FILENO, "ptrace is not allowed");
    _exit(1);
  }
  raise(SIGSTOP);
}

Steps step_through(const std::function<void()> &body, int arriving) {
  Child child(body);
  Tracer tracer(child);
  Steps steps = {};
  if (tracer.run_to(kStepBegin)) {
    const std::vector<Address> places = tracer.places_to_end();
    steps.places = places.size();
    kill(child.pid(), arriving);  // a stretch may wait for it
    std::map<Address, int> times;
    for (; steps.done < places.size(); ++steps.done) {
      const Address place = places[steps.done];
      const int time = ++times[place];
      if (time > 16 && time % 8 != 0) continue;  // of a long loop only some passes are tried
      if (!tracer.run_to(kStepBegin) || !tracer.run_to_place(place, time)) break;
      kill(child.pid(), arriving);
    }
    tracer.run_to(kStepBegin);  // behind the last check
  }
  kill(child.pid(), SIGKILL);
  const Outcome outcome = child.finish();
  steps.out = outcome.out;
  steps.end = outcome.end();
  return steps;
}

}  // namespace ks_test

#include "sweep/tracee.h"

#include <sys/ptrace.h>
#include <sys/user.h>
#include <sys/wait.h>
#include <unistd.h>

#include <cerrno>
#include <csignal>
#include <cstdio>
#include <cstdlib>

namespace ks_test {
namespace {

constexpr int kSystemCallStop = SIGTRAP | 0x80;

#ifdef __i386__
constexpr size_t kInstructionPointer = offsetof(user, regs.eip);
constexpr size_t kCall = offsetof(user, regs.orig_eax);
constexpr size_t kResult = offsetof(user, regs.eax);
constexpr size_t kArguments[] = {offsetof(user, regs.ebx), offsetof(user, regs.ecx),
                                 offsetof(user, regs.edx)};
#else
constexpr size_t kInstructionPointer = offsetof(user, regs.rip);
constexpr size_t kCall = offsetof(user, regs.orig_rax);
constexpr size_t kResult = offsetof(user, regs.rax);
constexpr size_t kArguments[] = {offsetof(user, regs.rdi), offsetof(user, regs.rsi),
                                 offsetof(user, regs.rdx)};
#endif

constexpr size_t kWatchedPlace = offsetof(user, u_debugreg[0]);
constexpr size_t kWatchedEnd = offsetof(user, u_debugreg[1]);
constexpr size_t kWatchControl = offsetof(user, u_debugreg[7]);

void *as_pointer(long value) { return reinterpret_cast<void *>(value); }

}  // namespace

void be_traced_by_parent() {
  if (ptrace(PTRACE_TRACEME, 0, nullptr, nullptr) != 0) {
    perror("ptrace");
    _exit(1);
  }
  raise(SIGSTOP);
}

Tracee::Tracee(pid_t pid) : pid_(pid) {
  wait();
  if (ended_) return;
  ptrace(PTRACE_SETOPTIONS, pid_, nullptr, as_pointer(PTRACE_O_TRACESYSGOOD));
  status_ = 0;
}

// A signal for which the child stopped goes to it when it runs on, but the tracer's own traps.
Tracee::Stop Tracee::go(int how) {
  if (ended_) return Stop::kEnd;
  const int sig = WIFSTOPPED(status_) ? WSTOPSIG(status_) : 0;
  const bool own = sig == SIGTRAP || sig == kSystemCallStop;
  // This fails for one that is being killed; then the wait tells.
  ptrace(static_cast<__ptrace_request>(how), pid_, nullptr, as_pointer(own ? 0 : sig));
  wait();
  if (ended_) return Stop::kEnd;
  if (WSTOPSIG(status_) == SIGTRAP) return Stop::kTrap;
  return WSTOPSIG(status_) == kSystemCallStop ? Stop::kSystemCall : Stop::kSignal;
}

bool Tracee::go_on(int how, Stop wanted) {
  Stop stop;
  do stop = go(how);
  while (stop != wanted && stop != Stop::kEnd);
  return stop == wanted;
}

bool Tracee::step() { return go_on(PTRACE_SINGLESTEP, Stop::kTrap); }

// A breakpoint of the processor's is not inherited by children that the tracee makes.
void Tracee::watch_place(Address place) {
  poke_register(kWatchControl, 0);
  poke_register(kWatchedPlace, static_cast<long>(place));
  if (place != 0) poke_register(kWatchControl, 1);
}

bool Tracee::run_to(Address place, int times) {
  if (ended_) return false;
  watch_place(place);
  while (times > 0 && go_on(PTRACE_CONT, Stop::kTrap)) --times;
  if (!ended_) watch_place(0);
  return !ended_;
}

bool Tracee::run_to_before(Address end, Address place, int times) {
  if (ended_) return false;
  watch_place(place);
  poke_register(kWatchedEnd, static_cast<long>(end));
  poke_register(kWatchControl, 1 | 1 << 2);
  bool at_end = false;
  while (times > 0 && !at_end && go_on(PTRACE_CONT, Stop::kTrap)) {
    at_end = this->place() == end;
    --times;
  }
  if (!ended_) watch_place(0);
  return !ended_ && !at_end;
}

bool Tracee::run_to_call_or(Address place) {
  if (ended_) return false;
  watch_place(place);
  Stop stop;
  do stop = go(PTRACE_SYSCALL);
  while (stop == Stop::kSignal);
  if (!ended_) watch_place(0);
  return stop == Stop::kSystemCall;
}

bool Tracee::run_to_call() { return go_on(PTRACE_SYSCALL, Stop::kSystemCall); }

bool Tracee::finish_call() { return go_on(PTRACE_SYSCALL, Stop::kSystemCall); }

void Tracee::let_go(int sig) {
  if (!ended_) ptrace(PTRACE_DETACH, pid_, nullptr, as_pointer(sig));
}

int Tracee::wait_for_end() {
  while (!ended_) wait();
  return status_;
}

void Tracee::wait() {
  if (waitpid(pid_, &status_, 0) != pid_) {
    perror("waitpid");
    abort();
  }
  ended_ = !WIFSTOPPED(status_);
}

Address Tracee::place() const { return static_cast<Address>(peek_register(kInstructionPointer)); }

long Tracee::word_at(Address data) const {
  return ptrace(PTRACE_PEEKDATA, pid_, reinterpret_cast<void *>(data), nullptr);
}

bool Tracee::blocks(int sig) const {
  uint64_t mask = 0;
  ptrace(static_cast<__ptrace_request>(PTRACE_GETSIGMASK), pid_, sizeof mask, &mask);
  return (mask >> (sig - 1) & 1) != 0;
}

long Tracee::call() const { return peek_register(kCall); }
long Tracee::argument(int which) const { return peek_register(kArguments[which]); }
void Tracee::set_call(long number) { poke_register(kCall, number); }
void Tracee::set_argument(long value) { poke_register(kArguments[0], value); }
long Tracee::result() const { return peek_register(kResult); }
void Tracee::set_result(long value) { poke_register(kResult, value); }

long Tracee::peek_register(size_t offset) const {
  return ptrace(PTRACE_PEEKUSER, pid_, reinterpret_cast<void *>(offset), nullptr);
}

void Tracee::poke_register(size_t offset, long value) {
  if (ptrace(PTRACE_POKEUSER, pid_, reinterpret_cast<void *>(offset), as_pointer(value)) == 0 ||
      errno == ESRCH) {
    return;
  }
  perror("ptrace");
  abort();
}

}  // namespace ks_test

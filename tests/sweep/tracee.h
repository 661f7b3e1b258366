// A process under ptrace: run to a place in its code, gone through step by step, its system calls
// made to fail.
#pragma once

#include <sys/types.h>

#include <cstddef>
#include <cstdint>
#include <functional>

namespace ks_test {

using Address = uintptr_t;

// To be called by the child: from here on its parent traces it, and it stops.
void be_traced_by_parent();

class Tracee {
 public:
  // Takes over a child that calls be_traced_by_parent.
  explicit Tracee(pid_t pid);

  // Each lets the child run, with the signals that come to it delivered; false when the child has
  // ended instead.
  bool step();                            // one instruction
  bool run_to(Address place, int times);  // until it is about to pass `place` for the n-th time
  bool run_to_before(Address end, Address place, int times);  // likewise, unless it comes to `end`
  bool run_to_call();                                         // to the entry of a system call
  bool run_to_call_or(Address place);  // to the entry of a system call, or to `place`
  bool finish_call();                  // behind the system call at whose entry it stands

  pid_t pid() const { return pid_; }

  // Lets it go, with signal `sig` delivered before its next instruction; 0 for none.
  void let_go(int sig);

  // Waits for its end. Result: as waitpid gives it.
  int wait_for_end();

  Address place() const;  // of its next instruction
  long word_at(Address data) const;
  bool blocks(int sig) const;  // in the system's mask

  // At the entry of a system call: its number, its first argument, and another number or first
  // argument in their place. Behind it: its result.
  long call() const;
  long argument(int which) const;
  void set_call(long number);
  void set_argument(long value);
  long result() const;
  void set_result(long value);

 private:
  enum class Stop { kTrap, kSignal, kSystemCall, kEnd };

  void wait();
  Stop go(int how);
  bool go_on(int how, Stop wanted);
  void watch_place(Address place);
  long peek_register(size_t offset) const;
  void poke_register(size_t offset, long value);

  pid_t pid_;
  int status_ = 0;
  bool ended_ = false;
};

}  // namespace ks_test

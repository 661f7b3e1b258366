// What can be made to fail of the system, and how.
#pragma once

#include <span>
#include <string>

#include "sweep/tracee.h"

namespace ks_test {

enum class Failing {
  kNever,          // it cannot fail, or nobody could do anything about it
  kWithError,      // with any
  kInterruptible,  // with any; EINTR is what a signal does to it whose routine returns
  kBySignal,       // with EINTR only, likewise
  kDone,           // as kInterruptible, but what it does is done
  kStorage         // with ENOMEM only
};

// The errors that a call of this kind is made to fail with.
std::span<const int> errors_of(Failing how);

// Of the system call `number`, with its second argument: what some do depends on it.
Failing failing(long number, long second_argument);

// Makes the system call at whose entry `tracee` stands fail. Result: whether it got behind it.
bool fail_call(Tracee &tracee, int error);

std::string name_of_call(long number);

}  // namespace ks_test

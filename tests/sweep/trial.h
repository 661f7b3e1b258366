// One try of a fault or a failure: a row's rounds in a process of its own, and what it tells.
#pragma once

#include <sys/types.h>

#include <string>

#include "sweep/row.h"
#include "sweep/tracee.h"

namespace ks_test {

enum class Disturbance {
  kNone,
  kFault,         // a signal whose routine raises
  kArrival,       // one whose routine returns
  kInterruption,  // a system call ends with EINTR, as for a signal whose routine returns
  kFailure        // a system call or an allocation fails
};

struct Trial {
  const SweepRow *row;
  Disturbance disturbance = Disturbance::kNone;
  bool traced = false;
  int failing_allocation = -1;  // the number of the first in the call that fails; -1 for none
  int failing_in_a_row = 0;
};

// What the process of a trial tells, in memory that it shares with the sweep.
struct Told {
  char step[80];           // what it does
  bool arrived;            // the signal's routine was called
  bool over;               // the whole trial went through
  int allocations;         // of the disturbed call
  char wrong[4096];        // empty: nothing
  char standing[1 << 16];  // at the end
};

// Where the disturbed call begins and ends.
Address stretch_begin();
Address stretch_end();

// Makes of the calling process one in which rows run: `folder` is the current one, nothing is read
// from the standard input, and what is printed goes to a file that has no name.
void prepare_process(const std::string &folder);

// prepare, and untouched rounds if the row has any; in the process that the copies are made of.
void prepare_row(const SweepRow &row);

// Starts a copy of this process that goes through the trial. `reference` is the standing of an
// undisturbed trial, empty for that itself.
pid_t start(const Trial &trial, Told &told, const std::string &folder,
            const std::string &reference);

// Whether a trial ended in the disturbed call by a panic or an assertion.
bool has_panicked(const Told &told, int wait_status);

// What went wrong in a trial that ended with `wait_status`; empty where nothing did.
std::string verdict(const Told &told, int wait_status);

}  // namespace ks_test

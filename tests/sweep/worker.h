// The processes behind the sweep of one row.
//
// The sweep watches a worker, which prepares the row and makes a copy of itself for each attempt.
// A copy that goes wrong may leave anything behind, so the worker ends then, and another in a new
// folder goes on; and a copy that hangs is ended by the sweep.
#pragma once

#include <sys/types.h>

#include <atomic>
#include <cstddef>
#include <functional>
#include <string>

#include "sweep/options.h"
#include "sweep/row.h"
#include "sweep/tracee.h"
#include "sweep/trial.h"

namespace ks_test {

// One disturbance of a row's call.
struct Attempt {
  Disturbance disturbance;
  Address place;  // where a signal arrives, and how many times the call has come there then
  int pass;
  Address own;     // the last place in the program's own code on the way there
  int allocation;  // or the number of the allocation that fails, and how many in a row do
  int in_a_row;
  int call;  // or the number of the system call that fails, in the order of the call's; what it is,
  long call_number;
  int error;  // and how
};

inline constexpr Attempt kUndisturbed = {Disturbance::kNone, 0, 0, 0, -1, 0, -1, -1, 0};

struct Finding {
  Attempt attempt;
  char what[1024];
};

// What a sweep, its workers and their copies share.
struct Board {
  static constexpr size_t kAttempts = 400000;
  static constexpr size_t kFindings = 1000;

  std::atomic<unsigned> beat;  // goes on as long as something does
  std::atomic<pid_t> copy;     // that runs; 0 for none
  bool planned;                // the attempts stand
  bool finished;
  bool cut;         // the call was longer than what is looked at
  size_t places;    // that it passes
  size_t attempts;  // and those to be made
  size_t next;
  size_t missed;  // disturbances that the call did not come to
  size_t findings;
  Told told;
  Attempt attempt[kAttempts];
  Finding finding[kFindings];
};

// In a worker.
class Worker {
 public:
  Worker(const SweepRow &row, Board &board, const std::string &folder);

  Board &board() { return board_; }

  // Makes a copy that is disturbed so, `drive` being what the tracer does of it; NULL for a copy that
  // is not traced. Result: what went wrong, or empty. `drive` tells whether it came to the
  // disturbance.
  using Drive = std::function<bool(Tracee &)>;
  std::string try_once(const Attempt &attempt, const Drive *drive);

  // Notes what went wrong, and ends the worker.
  [[noreturn]] void found(const Attempt &attempt, const std::string &what);

  // Ends the worker when it has made the plan: another's heap is as that of all that follow.
  [[noreturn]] void planned();

  // Goes through the attempts that are left, with `drive_of` for those that are traced.
  void try_rest(const std::function<bool(const Attempt &, Tracee &)> &drive);

 private:
  const SweepRow &row_;
  Board &board_;
  std::string folder_;
  std::string reference_;
};

struct Result {
  size_t rows = 0;
  size_t places = 0;
  size_t attempts = 0;
  size_t missed = 0;
  size_t findings = 0;
  size_t cut = 0;  // rows that were not looked at to their end

  Result &operator+=(const Result &other);
};

// Runs workers that do `work` until they have finished, and prints what they found. Result: the
// counts.
Result watch_workers(const SweepRow &row, const Options &options,
                     const std::function<void(Worker &)> &work);

}  // namespace ks_test

#include "sweep/failure_sweep.h"

#include <algorithm>
#include <cerrno>
#include <climits>
#include <random>
#include <vector>

#include "sweep/system_calls.h"

namespace ks_test {
namespace {

struct Call {
  long number;
  long argument;
};

// The system calls of the call.
bool learn(Tracee &tracee, std::vector<Call> &calls) {
  if (!tracee.run_to(stretch_begin(), 1)) return false;
  while (tracee.run_to_call_or(stretch_end())) {
    calls.push_back({tracee.call(), tracee.argument(1)});
    if (!tracee.finish_call()) return false;
  }
  tracee.let_go(0);
  return true;
}

bool disturb(Tracee &tracee, const Attempt &attempt) {
  if (!tracee.run_to(stretch_begin(), 1)) return false;
  for (int call = 0; tracee.run_to_call_or(stretch_end()); ++call) {
    if (call == attempt.call) {
      if (tracee.call() != attempt.call_number) break;
      return fail_call(tracee, attempt.error);
    }
    if (!tracee.finish_call()) return false;
  }
  return false;
}

void plan_allocations(int count, std::vector<Attempt> &attempts) {
  for (int nth = 0; nth < count; ++nth) {
    for (const int in_a_row : {1, INT_MAX}) {
      Attempt attempt = kUndisturbed;
      attempt.disturbance = Disturbance::kFailure;
      attempt.allocation = nth;
      attempt.in_a_row = in_a_row;
      attempts.push_back(attempt);
    }
  }
}

void plan_calls(const std::vector<Call> &calls, std::vector<Attempt> &attempts) {
  for (size_t nth = 0; nth < calls.size(); ++nth) {
    const Failing how = failing(calls[nth].number, calls[nth].argument);
    Attempt attempt = kUndisturbed;
    attempt.disturbance = Disturbance::kFailure;
    attempt.call = static_cast<int>(nth);
    attempt.call_number = calls[nth].number;
    for (const int error : errors_of(how)) {
      attempt.error = error;
      const bool interruption = error == EINTR && how != Failing::kWithError;
      attempt.disturbance = interruption ? Disturbance::kInterruption : Disturbance::kFailure;
      attempts.push_back(attempt);
    }
  }
}

void work(Worker &worker, const Options &options) {
  Board &board = worker.board();
  if (!board.planned) {
    std::vector<Call> calls;
    const Worker::Drive drive = [&](Tracee &tracee) { return learn(tracee, calls); };
    if (const std::string wrong = worker.try_once(kUndisturbed, &drive); !wrong.empty()) {
      board.finished = true;
      worker.found(kUndisturbed, wrong);
    }
    std::vector<Attempt> all;
    plan_allocations(board.told.allocations, all);
    plan_calls(calls, all);
    board.places = all.size();
    board.cut = all.size() > options.failures;
    std::mt19937 random(options.seed);
    Attempt *const end = std::sample(all.begin(), all.end(), board.attempt,
                                     std::min(options.failures, Board::kAttempts), random);
    board.attempts = static_cast<size_t>(end - board.attempt);
    worker.planned();
  }
  worker.try_rest([](const Attempt &attempt, Tracee &tracee) {
    const bool disturbed = disturb(tracee, attempt);
    tracee.let_go(0);
    return disturbed;
  });
}

}  // namespace

Result sweep_failures(const SweepRow &row, const Options &options) {
  return watch_workers(row, options, [&](Worker &worker) { work(worker, options); });
}

}  // namespace ks_test

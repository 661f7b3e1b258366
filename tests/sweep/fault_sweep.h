// A fault at every instruction of a row's call, libc's included, and the arrival of a signal whose
// routine returns at some of them.
//
// The call is gone through once, step by step. Then each place that was passed is tried in a copy
// that runs up to it and has the signal delivered there. A place in a loop is tried in its first
// sixteen passes, in those whose number is a power of two, and in the last; a stretch through which
// signals are held back, at its begin and its end, as its own places make no difference.
#pragma once

#include "sweep/options.h"
#include "sweep/row.h"
#include "sweep/worker.h"

namespace ks_test {

Result sweep_faults(const SweepRow &row, const Options &options);

}  // namespace ks_test

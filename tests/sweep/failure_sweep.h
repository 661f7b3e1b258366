// The n-th failure in a row's call: of each allocation, alone and with all behind it; and of each
// system call, libc's included, with each of some errors.
#pragma once

#include "sweep/options.h"
#include "sweep/row.h"
#include "sweep/worker.h"

namespace ks_test {

Result sweep_failures(const SweepRow &row, const Options &options);

}  // namespace ks_test

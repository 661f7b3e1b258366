// The n-th system call of the examples failing, as whole programs: an end with status 0 has all of
// the output, and no end leaves a temporary file.
#pragma once

#include "sweep/options.h"
#include "sweep/worker.h"

namespace ks_test {

// Prints what goes wrong.
Result sweep_programs(const Options &options);

}  // namespace ks_test

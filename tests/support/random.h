// The random numbers of tests: the same on both ABIs, from a seed that a failure shows.
#pragma once

#include <cstdint>
#include <random>

namespace ks_test {

using Random = std::linear_congruential_engine<uint32_t, 48271, 0, 2147483647>;

}  // namespace ks_test

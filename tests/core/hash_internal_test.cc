#include "core/hash_internal.h"

#include <gtest/gtest.h>

#include <cstdint>
#include <random>

namespace {

// Where the remainder is right at both ends of each stretch with the same quotient it is right
// within, too, since the quotient never falls as the hash rises.
TEST(HashRemainder, IsThatOfADivision) {
  for (uint32_t divisor : {257u, 509u, 1021u, 2053u, 4093u, 8191u, 16381u, 32771u, 65537u, 131071u,
                           262147u, 524287u, 1048573u}) {
    const uint64_t reciprocal = ks::hash_reciprocal(divisor);
    uint32_t wrong = 0;
    for (uint64_t start = 0; start <= UINT32_MAX; start += divisor) {
      const uint32_t hash = static_cast<uint32_t>(start);
      wrong += ks::hash_remainder(hash, divisor, reciprocal) != 0;
      if (hash != 0) wrong += ks::hash_remainder(hash - 1, divisor, reciprocal) != divisor - 1;
    }
    wrong += ks::hash_remainder(UINT32_MAX, divisor, reciprocal) != UINT32_MAX % divisor;
    EXPECT_EQ(wrong, 0u) << divisor;
  }
}

TEST(HashRemainder, IsThatOfADivisionBySmallPrimes) {
  std::mt19937 random(19);
  for (uint32_t divisor : {1u, 2u, 3u, 7u, 17u, 31u, 61u, 127u}) {
    const uint64_t reciprocal = ks::hash_reciprocal(divisor);
    uint32_t wrong = 0;
    const auto check = [&](uint32_t hash) {
      wrong += ks::hash_remainder(hash, divisor, reciprocal) != hash % divisor;
    };
    for (uint32_t i = 0; i < 100000; ++i) {
      check(i);
      check(UINT32_MAX - i);
      check(static_cast<uint32_t>(random()));
    }
    for (int bit = 0; bit < 32; ++bit) {
      for (uint32_t around = 0; around < 256; ++around) check((1u << bit) - 128 + around);
    }
    EXPECT_EQ(wrong, 0u) << divisor;
  }
}

}  // namespace

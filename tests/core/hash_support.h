// What the tests of hash tables share.
#pragma once

#include <cstdint>
#include <cstdio>
#include <random>
#include <string>

#include "support/child.h"

namespace hash_test {

inline const std::string kNoMemory = "noname: Error: No more memory available.\n";
inline const std::string kHashError = "noname: Error: Unexpected error in hash package.\n";

// As ks_test::in_child, for bodies that use printf.
template <class Body>
ks_test::Outcome in_child(const Body &body) {
  return ks_test::in_child([&] {
    body();
    fflush(stdout);
  });
}

inline uint32_t below(uint32_t limit, std::mt19937 &random) {
  return static_cast<uint32_t>(random() % limit);
}

// The hash of a key of bytes, byte by byte and in 64 bits.
inline uint32_t model_hash(const std::string &key, bool is_signed) {
  int64_t hash = 0;
  for (const char byte : key) {
    const int64_t number = is_signed ? static_cast<signed char>(byte) : byte & 0xFF;
    hash = (hash + ((hash * 128) ^ number)) & 0xFFFFFFFF;
  }
  return static_cast<uint32_t>(hash);
}

}  // namespace hash_test

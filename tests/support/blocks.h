// The heap blocks of the library's objects and of the tests: who holds how many, and the n-th
// allocation of any kind failing. libc's own blocks are not seen.
#pragma once

#include <cstddef>
#include <string>

namespace ks_test {

// From here on blocks are noted.
void watch_blocks();

// A line for each place that has allocated blocks that are held still: the address behind the call,
// and how many they are. In order of address.
std::string held_blocks();

// Allocations of any kind since watch_blocks, failed ones included.
int count_allocations();

// The allocation number `nth` from now on (0 is the next) and the `times` - 1 behind it fail with
// ENOMEM; `times` 0 ends that.
void fail_allocations(int nth, int times);

// What the wrapped calls tell. The first counts an allocation and says whether it is to fail; the
// second returns `block`.
bool allocation_fails();
void *note_block(void *block, const void *caller);
void forget_block(void *block);

}  // namespace ks_test

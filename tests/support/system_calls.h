// Makes system calls of a program fail that a test starts, where the system itself can't be made to:
// the tests' own process and the library in it have tests/support/faults.h.
#pragma once

namespace ks_test {

// From now on this process, and the program that it becomes, gets `error` for each system call
// `number` that has all bits of `bits` in its argument number `argument`; 0 for every such call. To
// be called in a child.
void fail_system_call(long number, int argument, unsigned bits, int error);

}  // namespace ks_test

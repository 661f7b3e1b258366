// What a process has, as text, so that two moments of it can be held against each other; and whether
// libc still works.
#pragma once

#include <string>

namespace ks_test {

// One fact a line: descriptors, files below `folder`, heap blocks that the library's objects hold,
// holds on signals, records, signals' actions, children, timers, working directory and locale.
std::string standing(const std::string &folder);

// The lines that only one of two standings has: "left: " and "gone: " in front of each.
std::string difference(const std::string &before, const std::string &after);

// Makes a scratch stream, for the probes of later.
void prepare_probes();

// Calls, in another thread, what takes libc's locks: a lock that this thread was thrown out of keeps
// the other waiting. Then prints through the library. `tell` is called with each step's name before
// it; result: what is wrong, or NULL.
const char *probe(void (*tell)(const char *step));

}  // namespace ks_test

// A pseudo-terminal for a piece of a test.
#pragma once

#include <functional>
#include <string>

#include "support/child.h"

namespace ks_test {

// Runs `body` in a child that is the leader of a session of its own, with a new terminal as the
// session's and as its descriptors 0, 1 and 2. The terminal passes all bytes on as they are. When
// `body` returns, the child leaves by _exit(0), without exit hooks. What was written to the terminal
// is in `out`.
Outcome on_terminal(const std::function<void()> &body);

// For such a body. Runs `body` in a child with a process group of its own, which does not become the
// terminal's: a job in the background. Result: the status of its end or of its being stopped; one
// that was stopped is killed.
int in_background(const std::function<void()> &body);

// Runs `body` in a child and returns its wait status.
int in_foreground(const std::function<void()> &body);

// Whether the terminal of descriptor 1 echoes, and its changing: an attribute that a program may
// leave behind. A new terminal does not.
bool echoes();
void set_echo(bool on);

}  // namespace ks_test

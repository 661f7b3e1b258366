// A signal at every single instruction of a stretch: a child runs the stretch again and again under
// ptrace, and in each round the signal arrives at another place of the program's code.
#pragma once

#include <csignal>
#include <cstddef>
#include <functional>
#include <string>

namespace ks_test {

// Signals that the child sends to the tracer alone, around the stretch.
inline constexpr int kStepBegin = SIGURG;
inline constexpr int kStepEnd = SIGWINCH;

// To be called by the child before its first round, but behind one that binds what the stretch calls.
void be_traced();

struct Steps {
  size_t places;    // in the program's own code that the stretch passes
  size_t done;      // how many of them the signal arrived at before the child ended
  std::string out;  // what the child printed
  std::string end;  // how it ended: "signal 9" where the last place was done
};

// Runs `body` in a child. It calls be_traced and then runs rounds without end, each from kStepBegin to
// kStepEnd, leaving by _exit at the first that went wrong. `arriving` is the signal; for the first
// round, in which the places are learnt, it arrives at the end.
Steps step_through(const std::function<void()> &body, int arriving);

}  // namespace ks_test

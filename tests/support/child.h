// Runs a piece of a test in a child process, for what prints, ends the process or changes it.
#pragma once

#include <functional>
#include <string>
#include <vector>

namespace ks_test {

struct Outcome {
  int wait_status;  // as waitpid gives it
  std::string out;  // what it wrote to descriptor 1
  std::string err;  // and to descriptor 2

  // "exit 0", "signal 6": how it ended.
  std::string end() const;
};

// `body` runs in a forked child; when it returns, the child leaves by _exit(0), without exit hooks.
// The child dies with the test.
Outcome in_child(const std::function<void()> &body);

// The same for a program: argv[0] is looked up in PATH; what `environment` holds ("NAME=value") is
// set besides.
Outcome run_program(const std::vector<std::string> &argv,
                    const std::vector<std::string> &environment = {});

}  // namespace ks_test

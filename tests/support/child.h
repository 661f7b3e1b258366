// Runs a piece of a test in a child process, for what prints, ends the process or changes it.
#pragma once

#include <sys/types.h>

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

// A child that runs; it dies with the test.
class Child {
 public:
  // `body` runs in a forked child; when it returns, the child leaves by _exit(0), without exit hooks.
  explicit Child(const std::function<void()> &body);

  pid_t pid() const { return pid_; }

  // Waits for its end. To be called once.
  Outcome finish();

 private:
  int out_;
  int err_;
  pid_t pid_;
};

// The body of a child that becomes a program: argv[0] is looked up in PATH; what `environment` holds
// ("NAME=value") is set besides.
std::function<void()> program(const std::vector<std::string> &argv,
                              const std::vector<std::string> &environment = {});

Outcome in_child(const std::function<void()> &body);
Outcome run_program(const std::vector<std::string> &argv,
                    const std::vector<std::string> &environment = {});

}  // namespace ks_test

// The program of the sweeps:
//
//   norvaks_sweep table                          whether each exported function has its rows
//   norvaks_sweep rounds [OPTION...] [NAME...]   the rows' calls undisturbed
//   norvaks_sweep faults [OPTION...] [NAME...]   a fault at every instruction of them
//   norvaks_sweep failures [OPTION...] [NAME...] the n-th allocation or system call of them failing
//   norvaks_sweep programs [OPTION...]           the n-th system call of the examples failing
//
// NAME is a function or a module. The exit status is 1 when something was found.
#include <sys/mman.h>
#include <sys/wait.h>
#include <unistd.h>

#include <chrono>
#include <cstdio>
#include <cstdlib>
#include <map>
#include <string>
#include <string_view>
#include <vector>

#include "support/child.h"
#include "support/surroundings.h"
#include "sweep/failure_sweep.h"
#include "sweep/fault_sweep.h"
#include "sweep/options.h"
#include "sweep/program_sweep.h"
#include "sweep/table.h"

using namespace ks_test;

namespace {

[[noreturn]] void usage() {
  fprintf(
      stderr,
      "usage: norvaks_sweep table | MODE [OPTION...] [NAME...]\n"
      "MODE: rounds, faults, failures or programs; NAME: a function or a module\n"
      "--seed N      of what is chosen where not all is tried (1)\n"
      "--places N    that are tried of a call where a fault may come (all, or 2000 of more than\n"
      "              5000)\n"
      "--returns N   places where a signal comes whose routine returns (200)\n"
      "--steps N     instructions of a call that are looked at (300000)\n"
      "--failures N  that are tried of a call (all)\n"
      "--jobs N      rows at a time (1)\n");
  exit(2);
}

Result undisturbed(const SweepRow &row, const Options &options) {
  return watch_workers(row, options, [](Worker &) {});
}

using Sweep = Result(const SweepRow &row, const Options &options);

Sweep *sweep_of(std::string_view mode) {
  if (mode == "rounds") return undisturbed;
  if (mode == "faults") return sweep_faults;
  if (mode == "failures") return sweep_failures;
  if (mode == "programs") return nullptr;
  usage();
}

struct Command {
  Sweep *sweep = nullptr;  // of a row; NULL for the programs
  Options options = {};
  size_t jobs = 1;
  std::vector<std::string_view> names = {};
};

void set_option(Command &command, std::string_view option, const char *value) {
  if (value == nullptr) usage();
  const size_t number = strtoul(value, nullptr, 10);
  Options &options = command.options;
  if (option == "--seed") {
    options.seed = static_cast<unsigned>(number);
  } else if (option == "--places") {
    options.all_places = options.chosen_places = number;
  } else if (option == "--returns") {
    options.returns = number;
  } else if (option == "--steps") {
    options.steps = number;
  } else if (option == "--failures") {
    options.failures = number;
  } else if (option == "--jobs" && number > 0) {
    command.jobs = number;
  } else {
    usage();
  }
}

Command command_of(int argc, char **argv) {
  if (argc < 2) usage();
  Command command;
  command.sweep = sweep_of(argv[1]);
  for (int i = 2; i < argc; ++i) {
    if (argv[i][0] == '-') {
      set_option(command, argv[i], argv[i + 1]);
      ++i;
    } else {
      command.names.push_back(argv[i]);
    }
  }
  return command;
}

// Each row in a child; what it prints comes when it has ended, so that no two rows' are mixed.
Result run(const Command &command, const std::vector<const SweepRow *> &rows) {
  auto *const results =
      static_cast<Result *>(mmap(nullptr, rows.size() * sizeof(Result) + 1, PROT_READ | PROT_WRITE,
                                 MAP_SHARED | MAP_ANONYMOUS, -1, 0));
  Result all;
  std::map<pid_t, Child> running;
  const auto finish_one = [&] {
    siginfo_t info = {};
    waitid(P_ALL, 0, &info, WEXITED | WNOWAIT);
    const auto child = running.find(info.si_pid);
    const Outcome outcome = child->second.finish();
    running.erase(child);
    printf("%s%s", outcome.out.c_str(), outcome.err.c_str());
    fflush(stdout);
    if (outcome.end() == "exit 0") return;
    printf("the sweep of a row: %s\n", outcome.end().c_str());
    ++all.findings;
  };
  for (size_t i = 0; i < rows.size(); ++i) {
    if (running.size() == command.jobs) finish_one();
    Child child([&, i] {
      results[i] = command.sweep(*rows[i], command.options);
      fflush(stdout);
    });
    running.emplace(child.pid(), child);
  }
  while (!running.empty()) finish_one();
  for (size_t i = 0; i < rows.size(); ++i) all += results[i];
  return all;
}

}  // namespace

int main(int argc, char **argv) {
  clear_surroundings();
  if (argc == 2 && std::string_view(argv[1]) == "table") return table_is_whole() ? 0 : 1;
  const Command command = command_of(argc, argv);
  const auto start = std::chrono::steady_clock::now();
  const Result result = command.sweep != nullptr ? run(command, rows_of(command.names))
                                                 : sweep_programs(command.options);
  const std::chrono::duration<double> seconds = std::chrono::steady_clock::now() - start;
  printf(
      "%s: %zu rows, %zu places, %zu tried, %zu missed, %zu rows cut short, %zu findings; "
      "seed %u, %.0f s\n",
      argv[1], result.rows, result.places, result.attempts, result.missed, result.cut,
      result.findings, command.options.seed, seconds.count());
  return result.findings != 0;
}

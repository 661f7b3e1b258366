#include "sweep/program_sweep.h"

#include <fcntl.h>
#include <sys/prctl.h>
#include <sys/syscall.h>
#include <sys/wait.h>
#include <unistd.h>

#include <cerrno>
#include <csignal>
#include <cstdio>
#include <cstdlib>
#include <cstring>
#include <filesystem>
#include <fstream>
#include <functional>
#include <map>
#include <random>
#include <sstream>
#include <string>
#include <vector>

#include "support/folder.h"
#include "sweep/system_calls.h"

namespace fs = std::filesystem;

namespace ks_test {
namespace {

constexpr int kPatience = 10;  // seconds

// A run of a program, in a folder where `in` is what it works on.
struct Session {
  const char *name;
  std::vector<std::string> argv;
  bool goes_on;  // where something fails, having told it, and its status says nothing of that
  void (*accompany)(const Folder &folder, pid_t program);  // what a user does meanwhile, in a child
};

void sleep_briefly() { usleep(5000); }

// Waits until the program has printed `text`, for a time.
bool sees(const Folder &folder, const std::string &text) {
  for (int i = 0; i < 600 && folder.read("out").find(text) == std::string::npos; ++i) {
    sleep_briefly();
  }
  return folder.read("out").find(text) != std::string::npos;
}

// Changes a file, and ends the server when its command has run.
void change_and_stop(const Folder &folder, pid_t program) {
  if (sees(folder, "Watching")) {
    fs::rename(folder.write("new", "changed\n"), folder.path("in/new"));
    sees(folder, "in/new: finished");
  }
  kill(program, SIGTERM);
}

const Session kSessions[] = {
    {"tally", {NORVAKS_BUILD_DIR "/bin/tally", "in"}, false, nullptr},
    {"watchd",
     {NORVAKS_BUILD_DIR "/bin/watchd", "-quiet", "0", "-do", "echo run", "in"},
     true,
     change_and_stop},
};

// What a run did.
struct Run {
  int wait_status;
  std::string out;
  std::string left;  // what is in its folder for temporary files
};

struct Call {
  long number;
  long argument;
  bool loading;  // of the dynamic loader's, before the program
};

// The system call that fails: which one of the program's, what it is, and how.
struct Failure {
  int call;
  long number;
  int error;
};

std::string listing(const std::string &folder) {
  std::string names;
  for (const auto &entry : fs::directory_iterator(folder))
    names += entry.path().filename().string() + " ";
  return names;
}

[[noreturn]] void become(const Session &session, const Folder &folder) {
  prctl(PR_SET_PDEATHSIG, SIGKILL);
  setpgid(0, 0);  // with the commands that it runs
  const int out = open(folder.path("out").c_str(), O_WRONLY | O_CREAT | O_APPEND | O_CLOEXEC, 0600);
  const int nothing = open("/dev/null", O_RDONLY | O_CLOEXEC);
  if (out < 0 || chdir(folder.path().c_str()) != 0) _exit(126);
  dup2(nothing, STDIN_FILENO);
  dup2(out, STDOUT_FILENO);
  dup2(out, STDERR_FILENO);
  setenv("TMPDIR", folder.path("tmp").c_str(), 1);
  std::vector<char *> argv;
  for (const std::string &word : session.argv) argv.push_back(const_cast<char *>(word.c_str()));
  argv.push_back(nullptr);
  be_traced_by_parent();
  execv(argv[0], argv.data());
  _exit(127);
}

// Ends the program where it has not come to its end after a time.
pid_t start_watchdog(pid_t program) {
  const pid_t pid = fork();
  if (pid != 0) return pid;
  prctl(PR_SET_PDEATHSIG, SIGKILL);
  sleep(kPatience);
  kill(program, SIGKILL);
  _exit(0);
}

pid_t start_company(const Session &session, const Folder &folder, pid_t program) {
  if (session.accompany == nullptr) return 0;
  const pid_t pid = fork();
  if (pid != 0) return pid;
  prctl(PR_SET_PDEATHSIG, SIGKILL);
  session.accompany(folder, program);
  _exit(0);
}

void finish(pid_t helper) {
  if (helper == 0) return;
  kill(helper, SIGKILL);
  waitpid(helper, nullptr, 0);
}

// `drive` goes through the program's system calls.
Run run(const Session &session, const std::function<void(Tracee &)> &drive) {
  const Folder folder;
  fs::create_directory(folder.path("tmp"));
  folder.write("in/one", "a line\n");
  folder.write("in/below/two", "two\nlines\n");
  fflush(nullptr);
  const pid_t pid = fork();
  if (pid == 0) become(session, folder);
  const pid_t watchdog = start_watchdog(pid);
  const pid_t company = start_company(session, folder, pid);
  Tracee tracee(pid);
  while (tracee.run_to_call() && tracee.call() != SYS_execve) tracee.finish_call();
  if (tracee.finish_call()) drive(tracee);
  tracee.let_go(0);
  Run done = {tracee.wait_for_end(), "", ""};
  kill(-pid, SIGKILL);  // commands that it may have left
  finish(watchdog);
  finish(company);
  done.out = folder.read("out");
  done.left = listing(folder.path("tmp"));
  return done;
}

// The loader is mapped where the first instruction behind execve is.
bool is_mapped_from_loader(pid_t pid, Address place) {
  std::ifstream maps("/proc/" + std::to_string(pid) + "/maps");
  for (std::string line; std::getline(maps, line);) {
    char *end;
    const auto begin = static_cast<Address>(strtoull(line.c_str(), &end, 16));
    if (place >= begin && place < static_cast<Address>(strtoull(end + 1, nullptr, 16))) {
      return line.find("/ld-") != std::string::npos;
    }
  }
  return false;
}

std::vector<Call> learn(const Session &session, Run &undisturbed) {
  std::vector<Call> calls;
  undisturbed = run(session, [&](Tracee &tracee) {
    while (tracee.run_to_call()) {
      const bool loading = is_mapped_from_loader(tracee.pid(), tracee.place());
      calls.push_back({tracee.call(), tracee.argument(1), loading});
      if (!tracee.finish_call()) break;
    }
  });
  return calls;
}

Run run_failing(const Session &session, const Failure &failure, bool &failed) {
  failed = false;
  return run(session, [&](Tracee &tracee) {
    for (int call = 0; tracee.run_to_call(); ++call) {
      if (call == failure.call) {
        failed = tracee.call() == failure.number && fail_call(tracee, failure.error);
        return;
      }
      if (!tracee.finish_call()) return;
    }
  });
}

std::string end_of(int wait_status) {
  if (WIFSIGNALED(wait_status)) {
    return WTERMSIG(wait_status) == SIGKILL
               ? "hangs"
               : "ends with signal " + std::to_string(WTERMSIG(wait_status));
  }
  return "ends with status " + std::to_string(WEXITSTATUS(wait_status));
}

std::string on_one_line(std::string text) {
  for (char &each : text) {
    if (each == '\n') each = '|';
  }
  return text;
}

// A signal whose routine returns costs nothing; another failure is told by the status, or costs
// nothing either.
std::string wrong_in(const Session &session, const Run &done, const Run &undisturbed,
                     bool interrupted) {
  if (!done.left.empty()) return "leaves " + done.left;
  if (WIFSIGNALED(done.wait_status)) return end_of(done.wait_status);
  if (done.wait_status != 0 && !interrupted) return "";
  if (done.wait_status != 0) return end_of(done.wait_status) + ": " + on_one_line(done.out);
  const bool told = done.out.find(std::string(session.name) + ": ") != std::string::npos;
  if (session.goes_on && told && !interrupted) return "";
  std::istringstream lines(undisturbed.out);
  for (std::string line; std::getline(lines, line);) {
    if (("\n" + done.out).find("\n" + line + "\n") == std::string::npos) {
      return "ends well, having printed: " + on_one_line(done.out);
    }
  }
  return "";
}

Result sweep_program(const Session &session, const Options &options) {
  Result result = {1, 0, 0, 0, 0, 0};
  Run undisturbed;
  const std::vector<Call> calls = learn(session, undisturbed);
  if (undisturbed.wait_status != 0 || !undisturbed.left.empty()) {
    printf("%s, undisturbed: %s: %s\n", session.name, end_of(undisturbed.wait_status).c_str(),
           on_one_line(undisturbed.out).c_str());
    ++result.findings;
    return result;
  }
  std::vector<Failure> failures;
  for (size_t i = 0; i < calls.size(); ++i) {
    if (calls[i].loading) continue;
    if (calls[i].number == SYS_unlink) continue;  // what may not be removed stays, whoever is told
    const Failing how = failing(calls[i].number, calls[i].argument);
    for (const int error : errors_of(how)) {
      failures.push_back({static_cast<int>(i), calls[i].number, error});
    }
  }
  result.places = failures.size();
  std::mt19937 random(options.seed);
  std::vector<Failure> chosen;
  std::sample(failures.begin(), failures.end(), std::back_inserter(chosen), options.failures,
              random);
  std::map<std::string, int> found;
  for (const Failure &failure : chosen) {
    bool failed;
    const Run done = run_failing(session, failure, failed);
    ++result.attempts;
    result.missed += !failed;
    const Failing how = failing(failure.number, calls[static_cast<size_t>(failure.call)].argument);
    const bool interrupted = failure.error == EINTR && how != Failing::kWithError;
    const std::string wrong = wrong_in(session, done, undisturbed, interrupted);
    if (wrong.empty()) continue;
    if (++found[name_of_call(failure.number) + wrong] > 1) continue;
    printf("%s: system call %d, %s, fails with %s\n    %s\n", session.name, failure.call,
           name_of_call(failure.number).c_str(), strerrorname_np(failure.error), wrong.c_str());
    fflush(stdout);
    ++result.findings;
  }
  return result;
}

}  // namespace

Result sweep_programs(const Options &options) {
  Result all;
  for (const Session &session : kSessions) all += sweep_program(session, options);
  return all;
}

}  // namespace ks_test

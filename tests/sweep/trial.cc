#include "sweep/trial.h"

#include <fcntl.h>
#include <sys/mman.h>
#include <sys/prctl.h>
#include <sys/wait.h>
#include <unistd.h>

#include <algorithm>
#include <cerrno>
#include <csignal>
#include <cstdio>
#include <cstdlib>
#include <cstring>
#include <string_view>

#include "imsg.h"
#include "pfm.h"
#include "support/blocks.h"
#include "support/faults.h"
#include "support/landing.h"
#include "sweep/standing.h"

namespace ks_test {
namespace {

constexpr int kStatus = 77;  // what the signal's routine raises
constexpr char kDisturbedCall[] = "the disturbed call";

// The trial of this process, for the signal's routine.
const Trial *trial_here = nullptr;
Told *told_here = nullptr;
bool raising = false;

void tell_step(const char *step) { snprintf(told_here->step, sizeof told_here->step, "%s", step); }

void tell_more(const char *what) {
  char *const wrong = told_here->wrong;
  const size_t length = strlen(wrong);
  snprintf(wrong + length, sizeof told_here->wrong - length, "%s", what);
}

void tell_wrong(const char *what) {
  if (told_here->wrong[0] != '\0') tell_more("; ");
  tell_more(what);
}

void take_signal(int) {
  if (told_here == nullptr || told_here->arrived) return;
  told_here->arrived = true;
  if (told_here->step != std::string_view(kDisturbedCall)) {
    return tell_wrong("the signal came behind the call");
  }
  if (raising) pfm_raise(kStatus);
  if (trial_here->row->arrive != nullptr) trial_here->row->arrive();
  errno = EXDEV;  // a routine may leave anything in it
}

// The begin and the end of the disturbed call, for the tracer. They differ, or they would be one.
[[gnu::noinline]] void call_begins() { asm volatile("# begin"); }
[[gnu::noinline]] void call_ends() { asm volatile("# end"); }

void judge_result(bool done, bool must_be_done) {
  if (const char *wrong = trial_here->row->check(done)) {
    tell_wrong(done ? "the call is done, but " : "the call has told, but ");
    tell_more(wrong);
  }
  if (must_be_done && !done) tell_wrong("the call is not done");
}

void undo() {
  tell_step("undo");
  if (trial_here->row->undo != nullptr) trial_here->row->undo();
}

// Each copy's heap is to have the same on hand, whatever the sweep has used and freed before, or the
// call would go another way through it in each: all that libc keeps of small blocks for a thread.
void fill_stock() {
  constexpr size_t kSizes = 64;
  constexpr size_t kOfEach = 7;
  constexpr size_t kStep = 2 * sizeof(size_t);
  static void *stock[kSizes][kOfEach];
  for (size_t size = 0; size < kSizes; ++size) {
    for (void *&each : stock[size]) each = malloc(size * kStep + 1);
  }
  for (auto &blocks : stock) {
    for (void *each : blocks) free(each);
  }
}

void disturbed_round() {
  const Trial &trial = *trial_here;
  volatile bool done = false;
  tell_step(kDisturbedCall);
  const int allocations = count_allocations();
  if (trial.failing_allocation >= 0) {
    fail_allocations(trial.failing_allocation, trial.failing_in_a_row);
  }
  const Landing landing = land([&] {
    call_begins();
    done = trial.row->call();
    call_ends();
  });
  fail_allocations(0, 0);
  told_here->allocations = count_allocations() - allocations;
  const bool fault = trial.disturbance == Disturbance::kFault && told_here->arrived;
  if (landing.status == 0) {
    if (fault && !trial.row->absorbs) tell_wrong("the fault was swallowed");
    tell_step("the check of the disturbed call");
    const bool may_tell = trial.disturbance == Disturbance::kFailure || fault ||
                          (trial.disturbance != Disturbance::kNone && trial.row->interruptible);
    judge_result(done, !may_tell);
  } else if (!fault) {
    tell_wrong("a fault left the call");
  } else if (landing.status != kStatus) {
    tell_wrong("another fault than the signal's left the call");
  }
  undo();
}

void untouched_round() {
  tell_step("the untouched call behind it");
  const bool done = trial_here->row->call();
  tell_step("the check of the untouched call");
  const size_t length = strlen(told_here->wrong);
  judge_result(done, true);
  if (strlen(told_here->wrong) > length) tell_wrong("(the call behind the disturbed one)");
  undo();
}

void look_around(const std::string &folder, const std::string &reference) {
  tell_step("looking around");
  const std::string now = standing(folder);
  snprintf(told_here->standing, sizeof told_here->standing, "%s", now.c_str());
  if (!reference.empty()) {
    if (const std::string text = difference(reference, now); !text.empty())
      tell_wrong(text.c_str());
  }
  if (const char *step = probe(tell_step)) {
    tell_wrong("does not work any more: ");
    tell_more(step);
  }
}

// The end of what the process and its copies have printed since the last one started.
std::string last_output() {
  char text[256];
  const off_t length = lseek(STDERR_FILENO, 0, SEEK_END);
  const off_t from = std::max<off_t>(length - static_cast<off_t>(sizeof text), 0);
  const ssize_t count = pread(STDERR_FILENO, text, sizeof text, from);
  std::string printed(text, static_cast<size_t>(std::max<ssize_t>(count, 0)));
  std::replace_if(
      printed.begin(), printed.end(), [](char each) { return each < ' '; }, ' ');
  return printed;
}

}  // namespace

Address stretch_begin() { return reinterpret_cast<Address>(&call_begins); }
Address stretch_end() { return reinterpret_cast<Address>(&call_ends); }

void prepare_process(const std::string &folder) {
  const int nothing = open("/dev/null", O_RDONLY | O_CLOEXEC);
  const int output = memfd_create("output", MFD_CLOEXEC);
  if (nothing < 0 || output < 0 || chdir(folder.c_str()) != 0) {
    perror("sweep");
    _exit(2);
  }
  dup2(nothing, STDIN_FILENO);
  dup2(output, STDOUT_FILENO);
  dup2(output, STDERR_FILENO);
  close(nothing);
  close(output);
  setenv("TMPDIR", folder.c_str(), 1);
  setenv("TEST_TMPDIR", folder.c_str(), 1);
  prepare_probes();
  leave_calls_alone();
  watch_blocks();
  pfm_signal(SIGUSR2, take_signal);
}

// A call that fails may be the first to print.
void prepare_row(const SweepRow &row) {
  if (row.prepare != nullptr) row.prepare();
  if (row.cold) return;
  imsg_print(IMSG_TYPE_ERROR, "%s\n", -1, cat_extractmsg(_ks_ks_msg_table, 0));
  imsg_print(IMSG_TYPE_OK, "%s", -1, "");  // leaves the stream as a row expects it
  for (int round = 0; round < 2; ++round) {
    row.check(row.call());
    if (row.undo != nullptr) row.undo();
  }
}

pid_t start(const Trial &trial, Told &told, const std::string &folder,
            const std::string &reference) {
  told.step[0] = told.wrong[0] = '\0';
  told.arrived = told.over = false;
  if (ftruncate(STDERR_FILENO, 0) == 0) lseek(STDERR_FILENO, 0, SEEK_SET);
  const pid_t pid = fork();
  if (pid != 0) return pid;
  prctl(PR_SET_PDEATHSIG, SIGKILL);
  setpgid(0, 0);  // with the children that it may leave
  trial_here = &trial;
  told_here = &told;
  raising = trial.disturbance == Disturbance::kFault;
  if (trial.row->anew) {
    tell_step("prepare");
    if (chdir(folder.c_str()) != 0) _exit(2);
    prepare_row(*trial.row);
  }
  fill_stock();
  if (trial.traced) be_traced_by_parent();
  disturbed_round();
  untouched_round();
  look_around(folder, reference);
  told.over = true;
  _exit(0);
}

bool has_panicked(const Told &told, int wait_status) {
  return WIFSIGNALED(wait_status) && WTERMSIG(wait_status) == SIGABRT &&
         strcmp(told.step, kDisturbedCall) == 0;
}

std::string verdict(const Told &told, int wait_status) {
  if (told.over) return told.wrong;
  std::string text = told.wrong;
  if (!text.empty()) text += "; ";
  if (WIFSIGNALED(wait_status)) {
    text += WTERMSIG(wait_status) == SIGKILL
                ? "hangs"
                : "ends with signal " + std::to_string(WTERMSIG(wait_status));
  } else {
    text += "ends with status " + std::to_string(WEXITSTATUS(wait_status));
  }
  text += std::string(" in ") + told.step;
  const std::string printed = last_output();
  return printed.empty() ? text : text + ", having printed: " + printed;
}

}  // namespace ks_test

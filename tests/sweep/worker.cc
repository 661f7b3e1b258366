#include "sweep/worker.h"

#include <poll.h>
#include <sys/mman.h>
#include <sys/prctl.h>
#include <sys/syscall.h>
#include <sys/wait.h>
#include <unistd.h>

#include <algorithm>
#include <cctype>
#include <csignal>
#include <cstdio>
#include <cstdlib>
#include <cstring>
#include <filesystem>
#include <map>
#include <set>

#include "support/folder.h"
#include "sweep/standing.h"
#include "sweep/symbols.h"
#include "sweep/system_calls.h"

namespace ks_test {
namespace {

// Behind some copies that hang, less is waited for.
constexpr int kImpatience = 3000;  // milliseconds
constexpr int kForWorker = 5;      // times more for a worker that has no copy running
constexpr int kHangsForImpatience = 3;
constexpr int kHangsToTheEnd = 20;

Board *new_board() {
  void *const memory = mmap(nullptr, sizeof(Board), PROT_READ | PROT_WRITE,
                            MAP_SHARED | MAP_ANONYMOUS | MAP_NORESERVE, -1, 0);
  if (memory == MAP_FAILED) {
    perror("mmap");
    abort();
  }
  return static_cast<Board *>(memory);
}

pid_t start_worker(const SweepRow &row, Board &board, const std::string &folder,
                   const std::function<void(Worker &)> &work) {
  fflush(nullptr);
  const pid_t pid = fork();
  if (pid != 0) return pid;
  prctl(PR_SET_PDEATHSIG, SIGKILL);
  Worker worker(row, board, folder);
  work(worker);
  board.finished = true;
  _exit(0);
}

// Waits for a worker's end, and ends a copy that hangs, or the worker where it does itself. Result:
// how many were ended.
int watch(pid_t worker, Board &board, int patience) {
  int hangs = 0;
  const int end = static_cast<int>(syscall(SYS_pidfd_open, worker, 0));
  pollfd ended = {end, POLLIN, 0};
  int idle = 0;
  for (unsigned beat = board.beat; poll(&ended, 1, patience) == 0; beat = board.beat) {
    if (beat != board.beat) idle = 0;
    if (beat != board.beat) continue;
    const pid_t copy = board.copy;
    if (copy == 0 && ++idle < kForWorker) continue;
    ++hangs;
    kill(copy != 0 ? copy : worker, SIGKILL);
  }
  close(end);
  return hangs;
}

// The addresses in what went wrong: "0x1234".
std::set<Address> addresses_in(const std::string &text) {
  std::set<Address> found;
  for (size_t at = text.find("0x"); at != std::string::npos; at = text.find("0x", at + 2)) {
    found.insert(static_cast<Address>(strtoull(text.c_str() + at, nullptr, 16)));
  }
  return found;
}

std::string with_names(const std::string &text, const std::map<Address, Symbol> &symbols) {
  std::string named;
  for (size_t at = 0; at < text.size();) {
    if (text.compare(at, 2, "0x") != 0) {
      named += text[at++];
      continue;
    }
    char *end;
    const auto place = static_cast<Address>(strtoull(text.c_str() + at, &end, 16));
    const Symbol &symbol = symbols.at(place);
    named += symbol.function + " (" + symbol.place + ")";
    at = static_cast<size_t>(end - text.c_str());
  }
  return named;
}

std::string title(const SweepRow &row) {
  std::string text(row.function);
  if (!row.about.empty()) text += ", " + std::string(row.about);
  return text;
}

std::string description(const Attempt &attempt, const std::map<Address, Symbol> &symbols) {
  switch (attempt.disturbance) {
    case Disturbance::kNone:
      return "undisturbed";
    case Disturbance::kFault:
    case Disturbance::kArrival:
      break;
    default:
      if (attempt.allocation >= 0) {
        return "allocation " + std::to_string(attempt.allocation) +
               (attempt.in_a_row > 1 ? " and all behind it fail" : " fails");
      }
      return "system call " + std::to_string(attempt.call) + ", " +
             name_of_call(attempt.call_number) + ", fails with " + strerrorname_np(attempt.error);
  }
  const Symbol &place = symbols.at(attempt.place);
  const Symbol &own = symbols.at(attempt.own);
  std::string text = attempt.disturbance == Disturbance::kFault ? "a fault at " : "a signal at ";
  text += place.place;
  if (attempt.own != attempt.place) text += ", called from " + own.place;
  if (attempt.pass > 1) text += ", pass " + std::to_string(attempt.pass);
  return text;
}

// Where attempts that go wrong in the same way are said to be the same.
std::string group_of(const Attempt &attempt, const std::map<Address, Symbol> &symbols) {
  switch (attempt.disturbance) {
    case Disturbance::kFault:
    case Disturbance::kArrival:
      return symbols.at(attempt.own).function +
             (attempt.disturbance == Disturbance::kFault ? "!" : "?");
    default:
      return name_of_call(attempt.call_number);
  }
}

// Prints each way to go wrong once, with the first attempt that did. Result: how many there are.
size_t print_findings(const SweepRow &row, const Board &board) {
  std::set<Address> places;
  for (size_t i = 0; i < board.findings; ++i) {
    const Finding &each = board.finding[i];
    places.insert({each.attempt.place, each.attempt.own});
    places.merge(addresses_in(each.what));
  }
  const std::map<Address, Symbol> symbols = find_symbols(places);
  struct Group {
    const Finding *first;
    size_t count;
  };
  std::map<std::string, Group> groups;
  std::vector<std::string> order;
  for (size_t i = 0; i < board.findings; ++i) {
    const Finding &each = board.finding[i];
    const std::string key = group_of(each.attempt, symbols) + with_names(each.what, symbols);
    if (++groups.try_emplace(key, &each, 0).first->second.count == 1) order.push_back(key);
  }
  for (const std::string &key : order) {
    const Group &group = groups.at(key);
    printf("%s: %s", title(row).c_str(), description(group.first->attempt, symbols).c_str());
    if (group.count > 1) printf(" (and %zu like it)", group.count - 1);
    printf("\n    %s\n", with_names(group.first->what, symbols).c_str());
  }
  return order.size();
}

}  // namespace

Worker::Worker(const SweepRow &row, Board &board, const std::string &folder)
    : row_(row), board_(board), folder_(folder) {
  prepare_process(folder_);
  if (!row_.anew) prepare_row(row_);
  const std::string wrong = try_once(kUndisturbed, nullptr);
  if (!wrong.empty()) {
    board_.finished = true;
    found(kUndisturbed, wrong);
  }
  reference_ = board_.told.standing;
}

std::string Worker::try_once(const Attempt &attempt, const Drive *drive) {
  Trial trial = {&row_};
  trial.disturbance = attempt.disturbance;
  trial.traced = drive != nullptr;
  trial.failing_allocation = attempt.allocation;
  trial.failing_in_a_row = attempt.in_a_row;
  std::string folder = folder_;
  if (row_.anew) {
    folder += "/copy";
    std::filesystem::create_directory(folder);
  }
  ++board_.beat;
  int wait_status;
  bool disturbed = false;
  const pid_t pid = start(trial, board_.told, folder, reference_);
  board_.copy = pid;
  if (drive != nullptr) {
    Tracee tracee(pid);
    disturbed = (*drive)(tracee);
    if (!disturbed) ++board_.missed;
    wait_status = tracee.wait_for_end();
  } else {
    waitpid(pid, &wait_status, 0);
  }
  board_.copy = 0;
  ++board_.beat;
  kill(-pid, SIGKILL);  // its children, if it has left any
  if (row_.anew) std::filesystem::remove_all(folder);
  const bool may_panic = row_.panics && attempt.allocation >= 0;
  if (may_panic && has_panicked(board_.told, wait_status)) return {};
  const bool sent = disturbed && (attempt.disturbance == Disturbance::kFault ||
                                  attempt.disturbance == Disturbance::kArrival);
  std::string wrong = verdict(board_.told, wait_status);
  if (wrong.empty() && sent && !board_.told.arrived) wrong = "the signal never came";
  return wrong;
}

void Worker::found(const Attempt &attempt, const std::string &what) {
  if (board_.findings < Board::kFindings) {
    Finding &finding = board_.finding[board_.findings++];
    finding.attempt = attempt;
    snprintf(finding.what, sizeof finding.what, "%s", what.c_str());
  }
  _exit(0);
}

void Worker::planned() {
  board_.planned = true;
  _exit(0);
}

void Worker::try_rest(const std::function<bool(const Attempt &, Tracee &)> &drive) {
  while (board_.next < board_.attempts) {
    const Attempt &attempt = board_.attempt[board_.next++];
    const Drive drive_this = [&](Tracee &tracee) { return drive(attempt, tracee); };
    const std::string wrong = try_once(attempt, attempt.allocation < 0 ? &drive_this : nullptr);
    if (!wrong.empty()) found(attempt, wrong);
  }
}

Result &Result::operator+=(const Result &other) {
  rows += other.rows;
  places += other.places;
  attempts += other.attempts;
  missed += other.missed;
  findings += other.findings;
  cut += other.cut;
  return *this;
}

Result watch_workers(const SweepRow &row, const Options &options,
                     const std::function<void(Worker &)> &work) {
  Board *const board = new_board();
  Result result = {};
  int hangs = 0;
  while (!board->finished) {
    const Folder folder;
    const size_t next = board->next;
    const size_t findings = board->findings;
    const bool planned = board->planned;
    const pid_t pid = start_worker(row, *board, folder.path(), work);
    hangs += watch(
        pid, *board,
        hangs < kHangsForImpatience ? options.patience : std::min(options.patience, kImpatience));
    waitpid(pid, nullptr, 0);
    if (!board->finished && board->next == next && board->findings == findings &&
        board->planned == planned) {
      printf("%s: the worker ended at attempt %zu, in %s\n", title(row).c_str(), next,
             board->told.step);
      ++result.findings;
      break;
    }
    if (hangs > kHangsToTheEnd) {
      board->cut = true;
      break;
    }
  }
  result += {1, board->places, board->next, board->missed, print_findings(row, *board), board->cut};
  munmap(board, sizeof *board);
  return result;
}

}  // namespace ks_test

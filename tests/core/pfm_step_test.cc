// A signal at every single instruction: a child runs the same stretch again and again under ptrace,
// and in each round the signal arrives at another place of the program's code.
#include <gtest/gtest.h>
#include <sys/ptrace.h>
#include <sys/select.h>
#include <sys/user.h>
#include <sys/wait.h>
#include <unistd.h>

#include <cerrno>
#include <csignal>
#include <cstddef>
#include <cstdint>
#include <cstdio>
#include <cstdlib>
#include <map>
#include <string>
#include <vector>

#include "core/ks_frame.h"
#include "pfm.h"
#include "support/child.h"
#include "support/faults.h"
#include "support/landing.h"
#include "support/signals.h"

using ks_test::innermost_record;
using ks_test::land;
using ks_test::Landing;
using ks_test::send_signal;

namespace {

// Signals that the child sends to the tracer alone, around the stretch.
constexpr int kBegin = SIGURG;
constexpr int kEnd = SIGWINCH;

// What is run, and what one arrival in it may do.
struct Stretch {
  const char *name;
  void (*run)();
  int own;          // signals, not the arriving one, that the stretch sends itself
  int arriving;     // the signal that arrives
  bool raising;     // its routine raises it
  int calls_least;  // calls of that routine
  int calls_most;
};

void PrintTo(const Stretch &stretch, std::ostream *out) { *out << stretch.name; }

// What a round has done, in the child.
struct Round {
  int arrived;  // calls of the routine for the arriving signal
  int own;      // and for those that the stretch sends itself
  bool early;   // the arriving signal was delivered while it was held back
  int blocks;   // held by protected frames
  Landing landing;
};
Round round_so_far;
bool traced = false;         // places are learnt or tried
volatile bool held = false;  // nothing may be delivered

void note_arrival(int) {
  ++round_so_far.arrived;
  if (held) round_so_far.early = true;
}

void raise_arrival(int sig) {
  ++round_so_far.arrived;
  pfm_raise(sig);
}

void note_own(int) { ++round_so_far.own; }

void check(bool condition, const char *text) {
  if (condition) return;
  dprintf(STDOUT_FILENO, "not so: %s; arrived %d, own %d, status %d, inhibited %d", text,
          round_so_far.arrived, round_so_far.own, round_so_far.landing.status,
          round_so_far.landing.inhibited);
  _exit(1);
}

// One round in the child. The outer record is there for stretches in which the signal raises.
void run_round(const Stretch &stretch) {
  round_so_far = {};
  round_so_far.landing = land([&] {
    send_signal(kBegin);
    stretch.run();
    send_signal(kEnd);
  });
  if (round_so_far.landing.status != 0) send_signal(kEnd);
}

void check_round(const Stretch &stretch) {
  check(!round_so_far.early, "nothing was delivered while signals were held back");
  check(round_so_far.arrived >= stretch.calls_least, "no signal was lost");
  check(round_so_far.arrived <= stretch.calls_most, "no signal came twice");
  check(round_so_far.own == stretch.own, "the stretch's own signals came once each");
  check(round_so_far.landing == Landing{} ||
            (stretch.raising && round_so_far.landing == Landing{stretch.arriving, 1, 0}),
        "the fault landed with the counts of its frame");
  check(round_so_far.blocks == 0, "all blocks were released");
  check(pfm_inhibit_count() == 0, "the inhibit count is back at zero");
  check(pfm_inhibit_suspend_count() == 0, "the suspend count is back at zero");
  check(pfm_blocked_count() == 0, "nothing waits");
  check(innermost_record() == nullptr, "no record is left");
  check(ks_test::blocked_signals().empty(), "no signal is blocked");
}

void child_body(const Stretch &stretch) {
  pfm_signal(SIGUSR1, note_own);
  pfm_signal(SIGTSTP, note_own);
  pfm_signal(stretch.arriving, stretch.raising ? raise_arrival : note_arrival);
  run_round(stretch);  // binds what the stretch calls
  traced = true;
  check(ptrace(PTRACE_TRACEME, 0, nullptr, nullptr) == 0, "ptrace is allowed");
  raise(SIGSTOP);
  run_round(stretch);  // to learn the places
  for (;;) {
    run_round(stretch);
    check_round(stretch);
  }
}

// Where the program's own code lies, as the linker says; what lies elsewhere is libc's.
extern "C" const char __executable_start;
extern "C" const char etext;

using Address = uintptr_t;

bool is_own_code(Address address) {
  return address >= reinterpret_cast<Address>(&__executable_start) &&
         address < reinterpret_cast<Address>(&etext);
}

// The tracer's side of one child.
class Tracer {
 public:
  explicit Tracer(const ks_test::Child &child) : pid_(child.pid()) { wait_for_stop(); }

  // Lets the child run until it sends `mark`; false when it ends before.
  bool run_to(int mark) {
    do {
      if (!go(PTRACE_CONT)) return false;
    } while (stop_signal() != mark);
    return true;
  }

  // Goes step by step to the end of the stretch. Result: the places in the program's own code, in
  // order.
  std::vector<Address> places_to_end() {
    std::vector<Address> places;
    while (go(PTRACE_SINGLESTEP) && stop_signal() != kEnd) {
      const Address place = static_cast<Address>(peek(PTRACE_PEEKUSER, kInstructionPointer));
      if (stop_signal() == SIGTRAP && is_own_code(place)) places.push_back(place);
    }
    return places;
  }

  // Lets the child run until it is about to pass `place` for the `time`-th time; false when it does
  // not do so before the end of the stretch.
  bool run_to_place(Address place, int time) {
    for (; run_to_trap(place); --time) {
      if (time == 1) return true;
      if (!go(PTRACE_SINGLESTEP)) return false;
    }
    return false;
  }

 private:
#ifdef __i386__
  static constexpr Address kInstructionPointer = offsetof(user, regs.eip);
#else
  static constexpr Address kInstructionPointer = offsetof(user, regs.rip);
#endif

  int stop_signal() const { return WIFSTOPPED(status_) ? WSTOPSIG(status_) : 0; }

  long peek(__ptrace_request what, Address address) const {
    return ptrace(what, pid_, reinterpret_cast<void *>(address), nullptr);
  }
  void poke(__ptrace_request what, Address address, long word) const {
    ptrace(what, pid_, reinterpret_cast<void *>(address), reinterpret_cast<void *>(word));
  }

  bool run_to_trap(Address place) {
    const long word = peek(PTRACE_PEEKTEXT, place);
    poke(PTRACE_POKETEXT, place, (word & ~0xffL) | 0xcc);  // a trap instead of the first byte
    bool running;
    do {
      running = go(PTRACE_CONT) && stop_signal() != kEnd;
    } while (running && stop_signal() != SIGTRAP);
    poke(PTRACE_POKETEXT, place, word);
    if (running) poke(PTRACE_POKEUSER, kInstructionPointer, static_cast<long>(place));
    return running;
  }

  // Lets the child go on, with the signal for which it stopped, and waits for the next stop.
  bool go(__ptrace_request how) {
    const long sig = stop_signal();
    const bool for_tracer = sig == SIGTRAP || sig == SIGSTOP || sig == kBegin || sig == kEnd;
    if (ptrace(how, pid_, nullptr, reinterpret_cast<void *>(for_tracer ? 0 : sig)) != 0)
      return false;
    return wait_for_stop();
  }

  // False when the child has ended; it can still be waited for then.
  bool wait_for_stop() {
    siginfo_t info = {};
    waitid(P_PID, static_cast<id_t>(pid_), &info, WEXITED | WSTOPPED | WNOWAIT);
    if (info.si_code != CLD_TRAPPED && info.si_code != CLD_STOPPED) return false;
    return waitpid(pid_, &status_, 0) == pid_;
  }

  pid_t pid_;
  int status_ = 0;
};

class PfmStep : public testing::TestWithParam<Stretch> {};

TEST_P(PfmStep, ASignalMayArriveAtEveryInstruction) {
  ks_test::Child child([] { child_body(GetParam()); });
  Tracer tracer(child);
  ASSERT_TRUE(tracer.run_to(kBegin)) << child.finish().out;
  const std::vector<Address> places = tracer.places_to_end();
  EXPECT_GT(places.size(), 20u);
  kill(child.pid(), GetParam().arriving);  // a stretch may wait for it
  std::map<Address, int> times;
  size_t done = 0;
  for (; done < places.size(); ++done) {
    const int time = ++times[places[done]];
    if (time > 16 && time % 8 != 0) continue;  // of a long loop only some passes are tried
    if (!tracer.run_to(kBegin) || !tracer.run_to_place(places[done], time)) break;
    kill(child.pid(), GetParam().arriving);
  }
  tracer.run_to(kBegin);  // behind the last check
  kill(child.pid(), SIGKILL);
  const ks_test::Outcome outcome = child.finish();
  EXPECT_EQ(outcome.out, "") << "at place " << done;
  EXPECT_EQ(done, places.size()) << outcome.end();
}

void nest() {
  pfm_inhibit();
  pfm_inhibit();
  pfm_enable();
  send_signal(SIGUSR1);
  pfm_enable();
}

void nest_suspended() {
  pfm_inhibit_suspend();
  send_signal(SIGTSTP);
  pfm_inhibit();
  send_signal(SIGUSR1);
  pfm_enable();
  pfm_enable_suspend();
}

void wait_a_moment() {
  timeval timeout = {0, 0};
  pfm_inhibit();
  const int result = pfm_select_inhibited(0, nullptr, nullptr, nullptr, &timeout);
  check(result == 0 || (result == -1 && errno == EINTR),
        "the wait came to its timeout or was woken");
  check(pfm_inhibit_count() == 1, "the wait leaves the count alone");
  pfm_enable();
}

// The stretch ends where the sleep begins, and the signal must end the sleep wherever it comes.
void fall_asleep() {
  timeval timeout = {5, 0};
  ks_test::signal_in_call("select", 0, traced ? kEnd : SIGUSR2);
  pfm_inhibit();
  if (round_so_far.arrived == 0) {
    const int result = pfm_select_inhibited(0, nullptr, nullptr, nullptr, &timeout);
    check(result == -1 && errno == EINTR, "the signal ended the wait");
  }
  pfm_enable();
}

void raise_deferred() {
  pfm_inhibit();
  pfm_raise_deferred(7);
  pfm_enable();
}

void exchange_routines() {
  pfm_signal(SIGUSR2, SIG_IGN);
  pfm_signal(SIGUSR2, note_arrival);
  pfm_signal(SIGUSR2, SIG_IGN);
  pfm_signal(SIGUSR2, note_arrival);
}

void arm_and_release() {
  pfm_cleanup_rec_t rec = {};
  const int status = PFM_CLEANUP_START(&rec, 0);
  if (status != 0) {
    check(pfm_inhibit_count() == 1, "signals are held back at the landing");
    pfm_raise(status);
  }
  pfm_inhibit();
  pfm_enable();
  pfm_cleanup_rls(&rec);
}

void reset() {
  pfm_cleanup_rec_t rec = {};
  const int status = PFM_CLEANUP_START(&rec, 0);
  if (status == 0) pfm_raise(7);
  if (status != 7) pfm_raise(status);
  pfm_cleanup_reset(&rec);
  pfm_cleanup_rls(&rec);
}

// Frames that each hold a block, around `innermost`.
void hold_blocks(int frames, void (*innermost)()) {
  void *block = nullptr;
  const auto release = [&] {
    if (block == nullptr) return;
    free(block);
    block = nullptr;
    --round_so_far.blocks;
  };
  ks::protect(
      [&] {
        ks::signals_held([&] {
          block = malloc(16);
          ++round_so_far.blocks;
        });
        frames > 1 ? hold_blocks(frames - 1, innermost) : innermost();
        ks::signals_held(release);
      },
      release);
}

void run_frames() {
  hold_blocks(2, [] {});
}

void leave_frames() {
  land([] { hold_blocks(2, [] { pfm_raise(7); }); });
}

void land_while_held() {
  pfm_inhibit();
  held = true;
  land([] { pfm_raise(7); });
  held = false;
  pfm_enable();
}

INSTANTIATE_TEST_SUITE_P(
    Of, PfmStep,
    testing::Values(
        Stretch{"ANest", nest, 1, SIGUSR2, false, 1, 1},
        Stretch{"ANestWithSigtstp", nest_suspended, 2, SIGUSR2, false, 1, 1},
        Stretch{"AWait", wait_a_moment, 0, SIGUSR2, false, 1, 1},
        Stretch{"TheWayIntoASleep", fall_asleep, 0, SIGUSR2, false, 1, 1},
        // The deferred raise is an arrival of its own; while it is held back the two are merged.
        Stretch{"ADeferredRaise", raise_deferred, 0, SIGINT, false, 1, 2},
        // While it is ignored the signal vanishes.
        Stretch{"AnExchangeOfRoutines", exchange_routines, 0, SIGUSR2, false, 0, 1},
        Stretch{"ARecord", arm_and_release, 0, SIGUSR2, true, 1, 1},
        Stretch{"AReset", reset, 0, SIGUSR2, true, 1, 1},
        Stretch{"ALandingWhileSignalsAreHeldBack", land_while_held, 0, SIGUSR2, false, 1, 1},
        Stretch{"ProtectedFrames", run_frames, 0, SIGUSR2, true, 1, 1},
        Stretch{"ProtectedFramesThatAFaultLeaves", leave_frames, 0, SIGUSR2, true, 1, 1}),
    [](const auto &param) { return std::string(param.param.name); });

}  // namespace

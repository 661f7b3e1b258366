#include "sweep/fault_sweep.h"

#include <algorithm>
#include <bit>
#include <csignal>
#include <map>
#include <random>
#include <vector>

#include "core/ks_frame.h"

namespace ks_test {
namespace {

constexpr int kAllPasses = 16;
constexpr int kMostPasses = 1024;  // each costs the way into the tracer and back

extern "C" const char __executable_start;
extern "C" const char etext;

bool is_own_code(Address place) {
  return place >= reinterpret_cast<Address>(&__executable_start) &&
         place < reinterpret_cast<Address>(&etext);
}

// A stub of the linker's for calls into libraries: a jump by a table, with or without a mark in front.
bool is_stub(const Tracee &tracee, Address place) {
  constexpr uint32_t kMark64 = 0xfa1e0ff3;
  constexpr uint32_t kMark32 = 0xfb1e0ff3;
  auto bytes = static_cast<uint32_t>(tracee.word_at(place));
  if (bytes == kMark64 || bytes == kMark32)
    bytes = static_cast<uint32_t>(tracee.word_at(place + 4));
  if ((bytes & 0xff) == 0xf2) bytes >>= 8;
  return (bytes & 0xffff) == 0x25ff || (bytes & 0xffff) == 0xa3ff;
}

struct Place {
  Address address;
  Address own;
  int pass;
  bool held;
};

bool holds_signals(const Tracee &tracee) {
  return static_cast<int32_t>(tracee.word_at(reinterpret_cast<Address>(&ks::pfm_inh_count))) > 0 ||
         tracee.blocks(SIGUSR2);
}

// All places of the call, in order. Result of the trial: whether it came to its end.
bool learn(Tracee &tracee, const Options &options, Board &board, std::vector<Place> &places) {
  if (!tracee.run_to(stretch_begin(), 1)) return false;
  std::map<Address, int> passes;
  Address own = stretch_begin();
  Address last = 0;
  while (tracee.step()) {
    const Address address = tracee.place();
    if (address == stretch_end()) break;
    if (places.size() == options.steps) {
      board.cut = true;
      break;
    }
    ++board.beat;
    if (address == last) continue;  // an instruction that repeats itself is passed once
    last = address;
    if (is_own_code(address) && !is_stub(tracee, address)) own = address;
    places.push_back({address, own, ++passes[address], holds_signals(tracee)});
  }
  tracee.let_go(0);
  return true;
}

// What is worth a try of what was passed.
std::vector<Place> worth_trying(const std::vector<Place> &places) {
  std::map<Address, int> passes;
  for (const Place &each : places) passes[each.address] = each.pass;
  std::vector<Place> chosen;
  for (size_t i = 0; i < places.size(); ++i) {
    const Place &each = places[i];
    const bool inner =
        each.held && i > 0 && places[i - 1].held && i + 1 < places.size() && places[i + 1].held;
    if (inner || each.pass > kMostPasses) continue;
    if (each.pass <= kAllPasses || std::has_single_bit(static_cast<unsigned>(each.pass)) ||
        each.pass == passes[each.address]) {
      chosen.push_back(each);
    }
  }
  return chosen;
}

void plan(Disturbance disturbance, std::vector<Place> places, size_t count, unsigned seed,
          Board &board) {
  std::vector<Place> chosen;
  std::mt19937 random(seed);
  std::sample(places.begin(), places.end(), std::back_inserter(chosen), count, random);
  for (const Place &each : chosen) {
    if (board.attempts == Board::kAttempts) return;
    Attempt &attempt = board.attempt[board.attempts++];
    attempt = kUndisturbed;
    attempt.disturbance = disturbance;
    attempt.place = each.address;
    attempt.pass = each.pass;
    attempt.own = each.own;
  }
}

void work(Worker &worker, const Options &options) {
  Board &board = worker.board();
  if (!board.planned) {
    std::vector<Place> passed;
    const Worker::Drive drive = [&](Tracee &tracee) {
      return learn(tracee, options, board, passed);
    };
    if (const std::string wrong = worker.try_once(kUndisturbed, &drive); !wrong.empty()) {
      board.finished = true;
      worker.found(kUndisturbed, wrong);
    }
    const std::vector<Place> places = worth_trying(passed);
    board.places = passed.size();
    plan(Disturbance::kFault, places,
         places.size() > options.all_places ? options.chosen_places : places.size(), options.seed,
         board);
    plan(Disturbance::kArrival, places, options.returns, options.seed + 1, board);
    worker.planned();
  }
  worker.try_rest([](const Attempt &attempt, Tracee &tracee) {
    const bool there = tracee.run_to(stretch_begin(), 1) &&
                       tracee.run_to_before(stretch_end(), attempt.place, attempt.pass);
    tracee.let_go(there ? SIGUSR2 : 0);
    return there;
  });
}

}  // namespace

Result sweep_faults(const SweepRow &row, const Options &options) {
  return watch_workers(row, options, [&](Worker &worker) { work(worker, options); });
}

}  // namespace ks_test

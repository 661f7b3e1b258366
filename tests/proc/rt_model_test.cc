// The loop and its model live through the same random scenarios, and must tell the same story.
#include <gtest/gtest.h>

#include <algorithm>
#include <array>
#include <cerrno>
#include <cstdint>
#include <cstring>
#include <iterator>
#include <map>
#include <memory>
#include <set>
#include <string>
#include <utility>
#include <vector>

#include "pfm.h"
#include "proc/rt_support.h"
#include "proc/rt_model.h"
#include "rt.h"
#include "support/faults.h"
#include "support/landing.h"
#include "support/random.h"

using ks_test::kDirections;
using ks_test::kSets;
using ks_test::kSlots;
using ks_test::Loop;
using ks_test::ModelLoop;
using ks_test::Source;
using ks_test::Time;
using ks_test::Wait;
using ks_test::World;

namespace {

#if defined(__SANITIZE_ADDRESS__)
constexpr int kScenarios = 2500;  // each takes ten times as long
#else
constexpr int kScenarios = 10000;
#endif
constexpr uint32_t kFirstSeed = 20261;

// Descriptors by direction: around the ends of words of 32 and 64 bits, and the last one that is
// admitted, which fits in no set.
const std::vector<int> kFds[kDirections] = {{61, 62, 95, 1024}, {63, 96, 1023}, {64, 128}};
constexpr int kLargestInSet = 1023;

// The library's loop, with real descriptors.
class RealLoop : public Loop {
 public:
  RealLoop(const World &world, ks_test::LoopUser &user) : world_(world) {
    user_ = &user;
    for (int d = 0; d < kDirections; ++d) {
      for (int fd : kFds[d]) sources_[Key(d, fd)] = std::make_unique<Source>(d, fd);
    }
    for (rt_event &slot : slots_) records_.push_back(&slot);
    ks_test::answer_select(answer);
    look();
  }

  int sched(uint32_t seconds, int argument) override {
    return number_of(rt_sched(fired, as_pointer(argument), seconds));
  }
  int sched_rel(Time timeout, int argument) override {
    const timeval value = as_timeval(timeout);
    return number_of(rt_sched_rel(fired, as_pointer(argument), &value));
  }
  int sched_abs(Time time, int argument) override {
    const timeval value = as_timeval(time);
    return number_of(rt_sched_abs(fired, as_pointer(argument), &value));
  }
  int sched_int(int slot, uint32_t seconds, int argument) override {
    return number_of(
        rt_sched_int(fired, as_pointer(argument), seconds, &slots_[slot], sizeof(rt_event)));
  }
  int unsched(int record) override { return rt_unsched(records_[static_cast<size_t>(record)]); }
  int resched(int record, uint32_t seconds) override {
    return number_of(rt_resched(records_[static_cast<size_t>(record)], seconds));
  }
  int handle_fd(int fd_class, int fd, int argument) override {
    return rt_handle_fd(fd_class, fd_ready, fd, as_pointer(argument));
  }
  int unhandle_fd(int fd_class, int fd) override { return rt_unhandle_fd(fd_class, fd); }
  int handle_set(int direction, int set, int argument) override {
    return rt_handle_fd_set(direction, set_ready, &sets_[direction][set], as_pointer(argument));
  }
  int unhandle_set(int direction, int set) override {
    return rt_unhandle_fd_set(direction, &sets_[direction][set]);
  }
  void shutdown() override { rt_shutdown(); }
  bool run() override {
    return ks_test::land([] { rt_run(); }) == ks_test::Landing{0, 0, 0};
  }
  bool poll() override {
    return ks_test::land([] { rt_poll(); }) == ks_test::Landing{0, 0, 0};
  }

  void look() override {
    ks_test::set_clock(static_cast<long>(world_.now.seconds),
                       static_cast<long>(world_.now.microseconds));
    for (auto &[key, source] : sources_) {
      source->set_ready(world_.ready[static_cast<size_t>(key.first)].count(key.second) != 0);
    }
    for (size_t d = 0; d < kDirections; ++d) {
      for (size_t set = 0; set < kSets; ++set) {
        FD_ZERO(&sets_[d][set]);
        for (int fd : world_.set_contents[d][set]) FD_SET(fd, &sets_[d][set]);
      }
    }
  }

 private:
  using Key = std::pair<int, int>;  // direction and descriptor

  static void *as_pointer(int argument) {
    return reinterpret_cast<void *>(static_cast<intptr_t>(argument));
  }
  static int as_int(void *pointer) { return static_cast<int>(reinterpret_cast<intptr_t>(pointer)); }
  static timeval as_timeval(Time time) {
    return {static_cast<time_t>(time.seconds), static_cast<suseconds_t>(time.microseconds)};
  }

  static void fired(void *arg) {
    if (user_->fired(as_int(arg))) pfm_raise(7);
  }
  static void fd_ready(int fd, void *arg) {
    if (user_->fd_ready(fd, as_int(arg))) pfm_raise(7);
  }
  static void set_ready(fd_set *ready, void *arg) {
    if (tell_set_ready(ready, as_int(arg))) pfm_raise(7);
  }

  // The set is gone before the fault.
  static bool tell_set_ready(fd_set *ready, int argument) {
    std::set<int> fds;
    for (int fd = 0; fd <= kLargestInSet; ++fd) {
      if (FD_ISSET(fd, ready)) fds.insert(fd);
    }
    return user_->set_ready(fds, argument);
  }

  // The system says what is ready; it forgets the answer where a signal interrupts.
  static int answer(int nfds, fd_set *reading, fd_set *writing, fd_set *exceptions,
                    timeval *timeout) {
    using Bits = std::array<unsigned char, 136>;  // room for 1088 descriptors
    fd_set *const asked[kDirections] = {reading, writing, exceptions};
    const size_t bytes = static_cast<size_t>(nfds + 63) / 64 * 8;
    alignas(8) Bits answers[kDirections] = {};
    fd_set *as_sets[kDirections] = {};
    for (int d = 0; d < kDirections; ++d) {
      if (asked[d] == nullptr) continue;
      memcpy(answers[d].data(), asked[d], bytes);
      as_sets[d] = reinterpret_cast<fd_set *>(answers[d].data());
    }
    timeval no_time = {};
    const int ready = ks_test::system_select(nfds, as_sets[0], as_sets[1], as_sets[2], &no_time);
    const Wait wait = {nfds, writing != nullptr, exceptions != nullptr,
                       timeout != nullptr ? timeout->tv_sec : -1,
                       timeout != nullptr ? timeout->tv_usec : 0};
    if (user_->waits(wait, ready)) {
      errno = EINTR;
      return -1;
    }
    for (int d = 0; d < kDirections; ++d) {
      if (asked[d] != nullptr) memcpy(asked[d], answers[d].data(), bytes);
    }
    return ready;
  }

  int number_of(rt_event *event) {
    if (event == nullptr) return -1;
    const auto place = std::find(records_.begin(), records_.end(), event);
    if (place == records_.end()) records_.push_back(event);
    return static_cast<int>(std::find(records_.begin(), records_.end(), event) - records_.begin());
  }

  static inline ks_test::LoopUser *user_ = nullptr;  // callbacks find it here
  const World &world_;
  std::map<Key, std::unique_ptr<Source>> sources_;
  rt_event slots_[kSlots] = {};
  std::vector<rt_event *> records_;
  fd_set sets_[kDirections][kSets] = {};
};

// What happens to a loop: decided at random, but the same for two loops that call back the same.
template <class LoopKind>
class Player : public ks_test::LoopUser {
 public:
  Player() : loop_(world_, *this) {}

  // Result: all that the loop has answered and called.
  std::string play(uint32_t seed) {
    random_.seed(seed);
    story_.clear();
    left_ = 40;
    next_argument_ = 1;
    registered_ = {};
    world_ = {};
    world_.now = {1000000, 500000};
    loop_.look();
    for (int i = 0; i < 8; ++i) act(kBesidesTurns);
    while (left_ > 0) tell("run", run());
    clear_away();
    return std::move(story_);
  }

  bool fired(int argument) override {
    tell("fired", argument);
    return called();
  }
  bool fd_ready(int fd, int argument) override {
    tell("fd", fd, argument);
    return called();
  }
  bool set_ready(const std::set<int> &fds, int argument) override {
    tell("set", argument);
    for (int fd : fds) tell("has", fd);
    return called();
  }

  // The clock goes on while the loop sleeps. Only a signal ends a sleep that is too long.
  bool waits(const Wait &wait, int ready) override {
    tell("waits", wait.nfds, wait.writing * 2 + wait.exceptions);
    tell("for", wait.seconds, wait.microseconds);
    tell("ready", ready);
    const bool too_long = ready == 0 && (wait.seconds < 0 || wait.seconds > 1000);
    if (too_long || one_in(8)) {
      interrupt();
      return true;
    }
    if (ready == 0) {
      sleep({wait.seconds, std::max(1l, wait.microseconds)});
      loop_.look();
    }
    return false;
  }

 private:
  bool one_in(uint32_t count) { return random_() % count == 0; }
  int below(size_t count) { return static_cast<int>(random_() % count); }

  template <class... Numbers>
  void tell(const char *what, Numbers... numbers) {
    story_ += what;
    ((story_ += ' ', story_ += std::to_string(numbers)), ...);
    story_ += '\n';
  }

  void sleep(Time time) {
    world_.now.seconds += time.seconds;
    world_.now.microseconds += time.microseconds;
    if (world_.now.microseconds < 1000000) return;
    world_.now.microseconds -= 1000000;
    ++world_.now.seconds;
  }

  bool run() {
    ++depth_;
    const bool ended = loop_.run();
    --depth_;
    return ended;
  }
  bool poll() {
    ++depth_;
    const bool ended = loop_.poll();
    --depth_;
    return ended;
  }

  // Some way into a callback. Result: whether to raise a fault.
  bool called() {
    if (--left_ <= 0) {
      loop_.shutdown();
      return false;
    }
    for (int actions = below(4); actions > 0; --actions) act(kActions.size());
    return one_in(16);
  }

  // As a signal routine.
  void interrupt() {
    const int slot = below(kSlots);
    tell("unsched", loop_.unsched(slot));
    if (--left_ <= 0 || one_in(4)) return loop_.shutdown();
    tell("int", loop_.sched_int(slot, 0, next_argument_++));
  }

  // One of the first `choices` actions.
  void act(size_t choices) { (this->*kActions[static_cast<size_t>(below(choices))])(); }

  uint32_t any_seconds() { return one_in(20) ? 0xFFFFFFFF : static_cast<uint32_t>(below(4)); }
  int64_t any_microseconds() {
    static constexpr int64_t kMicroseconds[] = {0, 1, 500000, 999999, 1000000, 2700000, -1};
    return kMicroseconds[below(std::size(kMicroseconds))];
  }

  void schedule() {
    const int argument = next_argument_++;
    int record;
    switch (below(4)) {
      case 0:
        record = loop_.sched(any_seconds(), argument);
        break;
      case 1:
        record = loop_.sched_rel({below(3), std::max<int64_t>(0, any_microseconds())}, argument);
        break;
      case 2:
        record = loop_.sched_abs({world_.now.seconds + below(4) - 2, any_microseconds()}, argument);
        break;
      default: {
        const int slot = below(kSlots);
        loop_.unsched(slot);
        record = loop_.sched_int(slot, any_seconds(), argument);
      }
    }
    tell("sched", record);
    most_records_ = std::max(most_records_, record + 1);
  }

  void cancel() { tell("unsched", loop_.unsched(below(static_cast<size_t>(most_records_)))); }

  void reschedule() {
    const int record = loop_.resched(below(static_cast<size_t>(most_records_)), any_seconds());
    tell("resched", record);
    most_records_ = std::max(most_records_, record + 1);
  }

  void toggle_fd() {
    const int fd_class = below(6);
    const int direction = fd_class < 3 ? fd_class : fd_class - 3;
    const std::vector<int> &fds = kFds[direction];
    const int fd = fds[static_cast<size_t>(below(fds.size()))];
    if (fd_class == 5) {
      tell("close", loop_.handle_fd(5, fd, 0), loop_.unhandle_fd(5, fd));
    } else if (registered_.insert({direction, fd}).second) {
      tell("handle", loop_.handle_fd(fd_class, fd, next_argument_++));
    } else {
      registered_.erase({direction, fd});
      tell("unhandle", loop_.unhandle_fd(fd_class, fd));
      if (one_in(8)) tell("again", loop_.unhandle_fd(fd_class, fd));
    }
  }

  // Sets are known by negative numbers.
  void toggle_set() {
    const int direction = below(kDirections);
    const int set = below(kSets);
    if (registered_.insert({direction, -1 - set}).second) {
      tell("handle set", loop_.handle_set(direction, set, next_argument_++));
    } else {
      registered_.erase({direction, -1 - set});
      tell("unhandle set", loop_.unhandle_set(direction, set));
    }
  }

  template <class Place>
  void flip(std::set<int> &fds, const Place &place) {
    const int fd = place[static_cast<size_t>(below(place.size()))];
    if (fds.erase(fd) == 0) fds.insert(fd);
  }

  void change_set() {
    const int direction = below(kDirections);
    std::vector<int> fds = kFds[direction];
    fds.erase(std::remove(fds.begin(), fds.end(), kLargestInSet + 1), fds.end());
    flip(world_.set_contents[static_cast<size_t>(direction)][static_cast<size_t>(below(kSets))],
         fds);
    loop_.look();
  }

  void make_ready() {
    const int direction = below(kDirections);
    flip(world_.ready[static_cast<size_t>(direction)], kFds[direction]);
    loop_.look();
  }

  void step_clock() {
    world_.now = {world_.now.seconds + below(5) - 2, below(2) * 500000};
    loop_.look();
  }

  void nest() {
    if (depth_ > 2) return;
    if (one_in(2)) {
      tell("poll", poll());
    } else {
      tell("nested run", run());
    }
  }

  void ask_shut_down() { loop_.shutdown(); }

  void clear_away() {
    for (int record = 0; record < most_records_; ++record) {
      tell("unsched", loop_.unsched(record));
    }
    for (auto [direction, what] : registered_) {
      tell("unhandle", what < 0 ? loop_.unhandle_set(direction, -1 - what)
                                : loop_.unhandle_fd(direction, what));
    }
    loop_.shutdown();
    tell("run", run());
  }

  // What happens often stands there more than once. The last two are for callbacks only.
  static constexpr std::array kActions = {
      &Player::schedule,   &Player::schedule,     &Player::cancel,     &Player::reschedule,
      &Player::toggle_fd,  &Player::toggle_fd,    &Player::toggle_set, &Player::change_set,
      &Player::make_ready, &Player::make_ready,   &Player::make_ready, &Player::step_clock,
      &Player::nest,       &Player::ask_shut_down};
  static constexpr size_t kBesidesTurns = kActions.size() - 2;

  World world_;
  LoopKind loop_;
  ks_test::Random random_;
  std::string story_;
  int left_ = 0;           // callbacks and interruptions until the scenario ends
  int next_argument_ = 0;  // each event and handler gets one of its own
  int depth_ = 0;          // of runs and polls
  int most_records_ = kSlots;
  std::set<std::pair<int, int>> registered_;
};

int count_of(const std::string &text, const std::string &what) {
  int count = 0;
  for (size_t at = text.find(what); at != text.npos; at = text.find(what, at + 1)) ++count;
  return count;
}

TEST(RtModel, TheLoopAndItsModelTellTheSameStory) {
  auto real = std::make_unique<Player<RealLoop>>();
  auto model = std::make_unique<Player<ModelLoop>>();
  std::map<std::string, int> seen;
  for (uint32_t seed = kFirstSeed; seed < kFirstSeed + kScenarios; ++seed) {
    const std::string expected = model->play(seed);
    ASSERT_EQ(real->play(seed), expected) << "seed " << seed;
    for (const char *what :
         {"fired", "fd ", "fd 1024 ", "set ", "has", "run 0", "nested run 0", "nested run 1",
          "poll 0", "poll 1", "resched -1", "waits 1025 3", "for 100000000 ", "int "}) {
      seen[what] += count_of(expected, what);
    }
  }
  // The scenarios are worth their time.
  for (const auto &[what, count] : seen) EXPECT_GT(count, kScenarios / 20) << what;
}

}  // namespace

// A slow and obvious event loop, as the independent judge of the library's: it keeps everything in
// plain containers, looks through all events for the next one, and knows by itself which descriptors
// are ready.
#pragma once

#include <array>
#include <compare>
#include <cstdint>
#include <list>
#include <optional>
#include <set>
#include <vector>

#include "proc/rt_support.h"

namespace ks_test {

// A moment or a span; the microseconds may be anything.
struct Time {
  int64_t seconds;
  int64_t microseconds;
  auto operator<=>(const Time &) const = default;
};

inline constexpr int kDirections = 3;  // RT_FD_READ, RT_FD_WRITE, RT_FD_EXCEPT
inline constexpr int kSets = 3;        // descriptor sets that can be registered
inline constexpr int kSlots = 3;       // storages for events that are not the loop's

// What a loop finds outside.
struct World {
  Time now = {};
  std::array<std::set<int>, kDirections> ready;  // descriptors
  std::array<std::array<std::set<int>, kSets>, kDirections> set_contents;
};

// What a loop tells those who use it. The callbacks answer whether to raise a fault.
class LoopUser {
 public:
  virtual ~LoopUser() = default;
  virtual bool fired(int argument) = 0;
  virtual bool fd_ready(int fd, int argument) = 0;
  virtual bool set_ready(const std::set<int> &fds, int argument) = 0;

  // It waits, and so many descriptors are ready. Result: whether a signal interrupts it.
  virtual bool waits(const Wait &wait, int ready) = 0;
};

// A loop as its user sees it. Events go by the number of their record: slots come first, then the
// loop's own in the order in which they are made. Results are as in rt.h, with -1 for no event.
class Loop {
 public:
  virtual ~Loop() = default;
  virtual int sched(uint32_t seconds, int argument) = 0;
  virtual int sched_rel(Time timeout, int argument) = 0;
  virtual int sched_abs(Time time, int argument) = 0;
  virtual int sched_int(int slot, uint32_t seconds, int argument) = 0;
  virtual int unsched(int record) = 0;
  virtual int resched(int record, uint32_t seconds) = 0;
  virtual int handle_fd(int fd_class, int fd, int argument) = 0;
  virtual int unhandle_fd(int fd_class, int fd) = 0;
  virtual int handle_set(int direction, int set, int argument) = 0;
  virtual int unhandle_set(int direction, int set) = 0;
  virtual void shutdown() = 0;

  // Whether they came to an end; false when a fault left them.
  virtual bool run() = 0;
  virtual bool poll() = 0;

  // Tells of changes in the world.
  virtual void look() = 0;
};

class ModelLoop : public Loop {
 public:
  ModelLoop(const World &world, LoopUser &user) : world_(world), user_(user), records_(kSlots) {}

  int sched(uint32_t seconds, int argument) override;
  int sched_rel(Time timeout, int argument) override;
  int sched_abs(Time time, int argument) override;
  int sched_int(int slot, uint32_t seconds, int argument) override;
  int unsched(int record) override;
  int resched(int record, uint32_t seconds) override;
  int handle_fd(int fd_class, int fd, int argument) override;
  int unhandle_fd(int fd_class, int fd) override;
  int handle_set(int direction, int set, int argument) override;
  int unhandle_set(int direction, int set) override;
  void shutdown() override { shut_down_ = true; }
  bool run() override;
  bool poll() override;
  void look() override {}

 private:
  struct Fault {};

  struct Record {
    bool scheduled = false;
    Time time = {};
    int order = 0;  // of scheduling
    int argument = 0;
  };

  struct Handler {
    int what;  // the descriptor, or the number of the set
    int argument;
  };
  using Handlers = std::list<Handler>;

  int put(int record, Time time, int argument);
  void retire(int record);
  int first() const;
  void turn();
  void wait(std::optional<Time> timeout);
  void call_fds(int direction);
  void call_sets(int direction);
  int remove(Handlers &handlers, int what);

  const World &world_;
  LoopUser &user_;
  std::vector<Record> records_;
  std::vector<int> free_records_;  // the one on top is used next
  int scheduled_so_far_ = 0;
  bool shut_down_ = false;

  std::array<Handlers, kDirections> fds_;   // newest first
  std::array<Handlers, kDirections> sets_;  // newest first
  int removals_ = 0;
  std::array<std::set<int>, kDirections>
      ready_;  // as left by the last wait, by whomever it was made
};

}  // namespace ks_test

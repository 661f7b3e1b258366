#include "proc/rt_model.h"

#include <algorithm>

namespace ks_test {
namespace {

constexpr int64_t kLastSecond = 2147483647;
constexpr int64_t kLongestSleep = 100000000;

// The direction in which descriptors of a class are watched; -1 for none.
int direction_of(int fd_class) {
  const int kDirectionOf[] = {0, 1, 2, 0, 1, -1};
  return kDirectionOf[fd_class];
}

Time with_whole_microseconds(Time time) {
  for (; time.microseconds < 0; --time.seconds) time.microseconds += 1000000;
  for (; time.microseconds >= 1000000; ++time.seconds) time.microseconds -= 1000000;
  return time;
}

}  // namespace

int ModelLoop::put(int record, Time time, int argument) {
  if (record < 0) {
    if (free_records_.empty()) {
      free_records_.push_back(static_cast<int>(records_.size()));
      records_.emplace_back();
    }
    record = free_records_.back();
    free_records_.pop_back();
  }
  time.seconds = std::min(time.seconds, kLastSecond);
  records_[static_cast<size_t>(record)] = {true, time, scheduled_so_far_++, argument};
  return record;
}

void ModelLoop::retire(int record) {
  records_[static_cast<size_t>(record)].scheduled = false;
  if (record >= kSlots) free_records_.push_back(record);
}

int ModelLoop::sched(uint32_t seconds, int argument) {
  return put(-1, {world_.now.seconds + seconds, world_.now.microseconds}, argument);
}

int ModelLoop::sched_rel(Time timeout, int argument) {
  return put(-1,
             with_whole_microseconds({world_.now.seconds + timeout.seconds,
                                      world_.now.microseconds + timeout.microseconds}),
             argument);
}

int ModelLoop::sched_abs(Time time, int argument) { return put(-1, time, argument); }

int ModelLoop::sched_int(int slot, uint32_t seconds, int argument) {
  return put(slot, {world_.now.seconds + seconds, world_.now.microseconds}, argument);
}

int ModelLoop::unsched(int record) {
  if (!records_[static_cast<size_t>(record)].scheduled) return 0;
  retire(record);
  return 1;
}

int ModelLoop::resched(int record, uint32_t seconds) {
  if (unsched(record) == 0) return -1;
  return sched(seconds, records_[static_cast<size_t>(record)].argument);
}

int ModelLoop::handle_fd(int fd_class, int fd, int argument) {
  const int direction = direction_of(fd_class);
  if (direction >= 0) fds_[static_cast<size_t>(direction)].push_front({fd, argument});
  return 1;
}

int ModelLoop::unhandle_fd(int fd_class, int fd) {
  const int direction = direction_of(fd_class);
  return direction < 0 ? 1 : remove(fds_[static_cast<size_t>(direction)], fd);
}

int ModelLoop::handle_set(int direction, int set, int argument) {
  sets_[static_cast<size_t>(direction)].push_front({set, argument});
  return 1;
}

int ModelLoop::unhandle_set(int direction, int set) {
  return remove(sets_[static_cast<size_t>(direction)], set);
}

int ModelLoop::remove(Handlers &handlers, int what) {
  const auto removed = handlers.remove_if([&](const Handler &one) { return one.what == what; });
  if (removed != 0) ++removals_;
  return removed != 0;
}

bool ModelLoop::run() {
  try {
    while (!shut_down_) turn();
  } catch (Fault) {
    return false;
  }
  shut_down_ = false;
  return true;
}

bool ModelLoop::poll() {
  try {
    wait(Time{0, 0});
  } catch (Fault) {
    return false;
  }
  return true;
}

// The event that is next, or -1: of the earliest the one that was scheduled first.
int ModelLoop::first() const {
  int first = -1;
  for (int i = 0; i < static_cast<int>(records_.size()); ++i) {
    const Record &one = records_[static_cast<size_t>(i)];
    if (!one.scheduled) continue;
    if (first >= 0) {
      const Record &best = records_[static_cast<size_t>(first)];
      if (best.time < one.time || (best.time == one.time && best.order < one.order)) continue;
    }
    first = i;
  }
  return first;
}

void ModelLoop::turn() {
  const int record = first();
  if (record < 0) return wait(std::nullopt);
  const Record event = records_[static_cast<size_t>(record)];
  Time left = with_whole_microseconds(
      {event.time.seconds - world_.now.seconds, event.time.microseconds - world_.now.microseconds});
  if (left.seconds >= 0) {
    left.seconds = std::min(left.seconds, kLongestSleep);
    return wait(left);
  }
  retire(record);
  if (user_.fired(event.argument)) throw Fault();
}

void ModelLoop::wait(std::optional<Time> timeout) {
  int highest = -1;
  int count = 0;
  std::array<bool, kDirections> used = {true, false, false};
  std::array<std::set<int>, kDirections> answer;
  for (size_t d = 0; d < kDirections; ++d) {
    std::set<int> asked;
    for (const Handler &one : fds_[d]) {
      asked.insert(one.what);
      highest = std::max(highest, one.what);
    }
    for (const Handler &one : sets_[d]) {
      const std::set<int> &contents = world_.set_contents[d][static_cast<size_t>(one.what)];
      asked.insert(contents.begin(), contents.end());
      if (!contents.empty()) highest = std::max(highest, *contents.rbegin() / 32 * 32 + 31);
    }
    if (!fds_[d].empty() || !sets_[d].empty()) used[d] = true;
    for (int fd : asked) {
      if (world_.ready[d].count(fd) != 0) answer[d].insert(fd);
    }
    count += static_cast<int>(answer[d].size());
  }

  const Time time = timeout.value_or(Time{-1, 0});
  const Wait as_seen = {highest + 1, used[1], used[2], static_cast<long>(time.seconds),
                        static_cast<long>(time.microseconds)};
  if (user_.waits(as_seen, count)) {
    ready_ = {};
    return;
  }
  for (size_t d = 0; d < kDirections; ++d) {
    if (used[d]) ready_[d] = answer[d];
  }
  if (count == 0) return;
  for (int d = 0; d < kDirections; ++d) {
    if (!used[static_cast<size_t>(d)]) continue;
    call_fds(d);
    call_sets(d);
  }
}

void ModelLoop::call_fds(int direction) {
  Handlers &handlers = fds_[static_cast<size_t>(direction)];
  for (auto one = handlers.begin(); one != handlers.end();) {
    if (ready_[static_cast<size_t>(direction)].erase(one->what) == 0) {
      ++one;
      continue;
    }
    const int removals = removals_;
    if (user_.fd_ready(one->what, one->argument)) throw Fault();
    one = removals == removals_ ? std::next(one) : handlers.begin();
  }
}

void ModelLoop::call_sets(int direction) {
  const auto d = static_cast<size_t>(direction);
  for (auto one = sets_[d].begin(); one != sets_[d].end();) {
    std::set<int> taken;
    for (int fd : world_.set_contents[d][static_cast<size_t>(one->what)]) {
      if (ready_[d].erase(fd) != 0) taken.insert(fd);
    }
    if (taken.empty()) {
      ++one;
      continue;
    }
    const int removals = removals_;
    if (user_.set_ready(taken, one->argument)) throw Fault();
    one = removals == removals_ ? std::next(one) : sets_[d].begin();
  }
}

}  // namespace ks_test

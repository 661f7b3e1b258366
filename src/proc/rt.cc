// Timed events, and the loop.
#include "rt.h"

#include <algorithm>
#include <cstddef>
#include <limits>

#include "core/ks_assert.h"
#include "core/ks_frame.h"
#include "date.h"
#include "proc/rt_internal.h"
#include "stg.h"

using namespace ks;

#ifdef __i386__
static_assert(sizeof(rt_event) == 28);
#else
static_assert(sizeof(rt_event) == 48);
#endif
static_assert(offsetof(rt_event, seconds) == 2 * sizeof(void *));
static_assert(offsetof(rt_event, callback) == 2 * sizeof(void *) + 8);
static_assert(offsetof(rt_event, magic) == 4 * sizeof(void *) + 8);
static_assert(offsetof(rt_event, caller_owned) == 4 * sizeof(void *) + 10);

namespace {

constexpr uint16_t kScheduled = 0x7ACE;
constexpr uint16_t kOffTheList = 0x8531;
constexpr int32_t kMicroseconds = 1000000;           // in a second
constexpr int64_t kLongestSleepSeconds = 100000000;  // the turn then repeats

// Changed with signals held back only: signal routines schedule.
struct {
  rt_event *first = nullptr;  // rt_event_list, by ascending time
  rt_event *last = nullptr;
} rt_event_list;
rt_event *rt_free_list = nullptr;  // linked by `next`; never given back to the heap

bool rt_shutdown_flag = false;

int32_t to_int32(int64_t value) {
  return static_cast<int32_t>(std::clamp<int64_t>(value, std::numeric_limits<int32_t>::min(),
                                                  std::numeric_limits<int32_t>::max()));
}

bool is_later(const rt_event *event, const rt_event *other) {
  if (event->seconds != other->seconds) return event->seconds > other->seconds;
  return event->microseconds > other->microseconds;
}

// The first event on the list that is later than `event`, or null. Most new events belong near one
// end: timeouts near the last, signals and dead children near the first. So both ends are tried in
// turn.
rt_event *first_later(const rt_event *event) {
  rt_event *from_front = rt_event_list.first;
  rt_event *from_back = rt_event_list.last;
  while (from_back != nullptr && is_later(from_back, event)) {
    if (is_later(from_front, event)) return from_front;
    from_front = from_front->next;
    from_back = from_back->previous;
  }
  return from_back != nullptr ? from_back->next : rt_event_list.first;
}

void link_before(rt_event *event, rt_event *later) {
  event->next = later;
  event->previous = later != nullptr ? later->previous : rt_event_list.last;
  (event->previous != nullptr ? event->previous->next : rt_event_list.first) = event;
  (later != nullptr ? later->previous : rt_event_list.last) = event;
}

// Takes an event off the list; its record is free for the next one, or its owner's.
void retire(rt_event *event) {
  event->magic = kOffTheList;
  (event->previous != nullptr ? event->previous->next : rt_event_list.first) = event->next;
  (event->next != nullptr ? event->next->previous : rt_event_list.last) = event->previous;
  if (event->caller_owned != 0) return;
  event->next = rt_free_list;
  rt_free_list = event;
}

rt_event *free_record() {
  rt_event *event = rt_free_list;
  if (event != nullptr) {
    rt_free_list = event->next;
  } else {
    event = static_cast<rt_event *>(stg_malloc(sizeof(rt_event)));
  }
  return event;
}

// The one way onto the list; `storage` is the caller's or null. Signals may come from then on, so the
// fault manager is started.
rt_event *sched_abs(rt_callback_t callback, void *arg, int64_t seconds, int64_t microseconds,
                    void *storage) {
  if (!pfm_inited) pfm_init();
  rt_event *event = nullptr;
  signals_held([&] {
    event = storage != nullptr ? static_cast<rt_event *>(storage) : free_record();
    if (event == nullptr) return;
    event->seconds = to_int32(seconds);
    event->microseconds = to_int32(microseconds);
    event->callback = callback;
    event->argument = arg;
    event->magic = kScheduled;
    event->caller_owned = storage != nullptr;
    link_before(event, first_later(event));
  });
  if (event == nullptr) report_malloc_failed();
  return event;
}

rt_event *sched_in(rt_callback_t callback, void *arg, uint32_t seconds, void *storage) {
  timeval now;
  date_get_timeval(&now);
  return sched_abs(callback, arg, int64_t{now.tv_sec} + seconds, now.tv_usec, storage);
}

int64_t microseconds_until(const rt_event *event) {
  timeval now;
  date_get_timeval(&now);
  return (event->seconds - int64_t{now.tv_sec}) * kMicroseconds + event->microseconds - now.tv_usec;
}

// The record is off the list before its callback runs, so the callback may see it used again.
void fire(rt_event *event) {
  const rt_callback_t callback = event->callback;
  void *arg = event->argument;
  if (event->caller_owned != kTakenByCallback) retire(event);
  pfm_enable();
  callback(arg);
}

// One turn, entered with signals held back. The list is looked at and the sleep is begun in one such
// stretch: what a signal routine schedules in between ends the sleep at once.
void turn() {
  rt_event *event = rt_event_list.first;
  if (event == nullptr) return rt_wait(nullptr);
  const int64_t left = microseconds_until(event);
  if (left < 0) return fire(event);
  timeval timeout;
  timeout.tv_sec = static_cast<time_t>(std::min(left / kMicroseconds, kLongestSleepSeconds));
  timeout.tv_usec = static_cast<suseconds_t>(left % kMicroseconds);
  rt_wait(&timeout);
}

}  // namespace

struct rt_event *rt_sched(rt_callback_t callback, void *arg, uint32_t seconds) {
  return sched_in(callback, arg, seconds, nullptr);
}

struct rt_event *rt_sched_rel(rt_callback_t callback, void *arg, const struct timeval *timeout) {
  timeval abs_time;
  date_get_timeval(&abs_time);
  KS_ASSERT(timeout->tv_sec >= 0 && timeout->tv_sec < abs_time.tv_sec);
  int64_t seconds = int64_t{abs_time.tv_sec} + timeout->tv_sec;
  int64_t microseconds = int64_t{abs_time.tv_usec} + timeout->tv_usec;
  if (microseconds >= kMicroseconds) {
    seconds += microseconds / kMicroseconds;
    microseconds %= kMicroseconds;
  }
  return sched_abs(callback, arg, seconds, microseconds, nullptr);
}

struct rt_event *rt_sched_abs(rt_callback_t callback, void *arg, const struct timeval *abs_time) {
  return sched_abs(callback, arg, abs_time->tv_sec, abs_time->tv_usec, nullptr);
}

struct rt_event *rt_sched_int(rt_callback_t callback, void *arg, uint32_t seconds,
                              void *event_storage, uint32_t max_event_size) {
  KS_ASSERT(max_event_size >= sizeof(struct rt_event));
  return sched_in(callback, arg, seconds, event_storage);
}

int rt_unsched(struct rt_event *event) {
  if (event->magic != kScheduled) return 0;
  bool scheduled = false;  // still, with signals held back
  signals_held([&] {
    scheduled = event->magic == kScheduled;
    if (scheduled) retire(event);
  });
  return scheduled;
}

struct rt_event *rt_resched(struct rt_event *event, uint32_t seconds) {
  const rt_callback_t callback = event->callback;
  void *arg = event->argument;
  return rt_unsched(event) != 0 ? rt_sched(callback, arg, seconds) : nullptr;
}

// The flag is tested with signals held back, so that a signal routine that sets it ends a sleep.
void rt_run(void) {
  if (!rt_inited) rt_init();
  for (pfm_inhibit(); !rt_shutdown_flag; pfm_inhibit()) turn();
  rt_shutdown_flag = false;
  pfm_enable();
}

void rt_poll(void) {
  if (!rt_inited) rt_init();
  pfm_inhibit();
  timeval no_time = {};
  rt_wait(&no_time);
}

void rt_shutdown(void) { rt_shutdown_flag = true; }

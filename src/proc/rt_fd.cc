// Descriptors: their handlers, and the wait for them.
#include <algorithm>
#include <bit>
#include <cerrno>
#include <cstdint>
#include <limits>

#include "core/ks_assert.h"
#include "core/ks_frame.h"
#include "pfm.h"
#include "proc/rt_internal.h"
#include "stg.h"

namespace ks {
bool rt_inited = false;
int rt_num_fds = 0;
}  // namespace ks

using namespace ks;

int rt_async = 0;

namespace {

constexpr int kLargestFd = 1024;  // admitted, though a set of the system ends at 1023
constexpr int kWordBits = 32;
constexpr int kSetWords = 32;  // in a set of the system

using Word [[gnu::may_alias]] = uint32_t;

// A set of the system with room behind it for the one descriptor that is admitted and does not fit:
// the system counts in its own words, which may have 64 bits.
struct FdSet {
  Word words[kSetWords + 2];
};
static_assert(sizeof(fd_set) == kSetWords * sizeof(Word));

fd_set *as_system_set(FdSet *set) { return reinterpret_cast<fd_set *>(set); }
Word &word_of(FdSet &set, int fd) { return set.words[fd / kWordBits]; }
Word bit_of(int fd) { return Word{1} << (fd % kWordBits); }

// A handler of one descriptor or of a set of them.
struct FdHandler {
  FdHandler *next;
  union {
    rt_fd_callback_t callback;
    rt_fd_set_callback_t set_callback;
  };
  union {
    int fd;
    fd_set *fd_set_fds;
  };
  void *argument;
};

// All that there is for one of reading, writing and exceptions. `watched` and `highest` are kept in
// step with `fds`, so that a wait copies a set instead of building it.
struct Direction {
  FdHandler *fds = nullptr;      // handlers of single descriptors, the last registered first
  FdHandler *fd_sets = nullptr;  // handlers of sets, the last registered first
  FdSet watched = {};            // the descriptors of `fds`
  int highest = -1;              // the highest of them
  FdSet *ready = nullptr;        // what select is given and answers; made at the first wait

  bool in_use() const { return fds != nullptr || fd_sets != nullptr; }
};

Direction directions[3];  // by RT_FD_READ, RT_FD_WRITE and RT_FD_EXCEPT

FdSet *shown_fds = nullptr;  // what the handler of a set is shown; made at the first wait

// Grows whenever a handler is freed: a walk over handlers that finds it changed starts again.
uint32_t fd_removals = 0;

// Grows with every wait. A handler may wait too, which refills the ready sets that the dispatch around
// it goes on with.
uint32_t waits = 0;

bool error_flagged = false;  // the message about a set that is too large has been printed

FdSet *new_set() {
  auto *set = static_cast<FdSet *>(stg_malloc(sizeof(FdSet)));
  if (set == nullptr) {
    report_malloc_failed();
    pfm_panic(__FILE__, __LINE__);
  }
  *set = {};
  return set;
}

void make_scratch_sets() {
  pfm_inhibit();
  for (Direction &direction : directions) {
    if (direction.ready == nullptr) direction.ready = new_set();
  }
  shown_fds = new_set();
  pfm_enable();
}

void find_highest(Direction &direction) {
  int word = kSetWords;
  while (word >= 0 && direction.watched.words[word] == 0) --word;
  direction.highest =
      word < 0 ? -1
               : word * kWordBits + kWordBits - 1 - std::countl_zero(direction.watched.words[word]);
}

// Fills the ready set with all that is watched. Result: an upper bound of the descriptors in it.
int fill(Direction &direction) {
  *direction.ready = direction.watched;
  int highest = direction.highest;
  for (FdHandler *elem = direction.fd_sets; elem != nullptr; elem = elem->next) {
    highest = std::max(highest, fd_set_or(as_system_set(direction.ready), elem->fd_set_fds));
  }
  return highest;
}

// Calls a handler, and notes in `left` when the ready sets are not those that were counted any more,
// also where the handler has absorbed a fault out of a wait of its own.
template <class Call>
void call_handler(int &left, Call call) {
  const uint32_t waits_before = waits;
  call();
  if (waits != waits_before) left = std::numeric_limits<int>::max();
}

// Calls the handlers of single descriptors that are ready. Each takes its bit first, so that it is
// called once, however often the walk starts again. In `left` are the bits that the ready sets still
// hold, or more: with none left a pass need not look at handlers.
void dispatch_fds(Direction &direction, int &left) {
  FdHandler *elem = direction.fds;
  while (elem != nullptr && left > 0) {
    Word &word = word_of(*direction.ready, elem->fd);
    if ((word & bit_of(elem->fd)) == 0) {
      elem = elem->next;
      continue;
    }
    word &= ~bit_of(elem->fd);
    --left;
    const uint32_t removals = fd_removals;
    call_handler(left, [&] { elem->callback(elem->fd, elem->argument); });
    elem = fd_removals == removals ? elem->next : direction.fds;
  }
}

// Moves the descriptors that are ready and in `wanted` to the set that handlers are shown. Result:
// how many.
int take_ready(FdSet &ready, const fd_set *wanted) {
  const auto *wanted_words = reinterpret_cast<const Word *>(wanted);
  int taken = 0;
  for (int word = 0; word < kSetWords; ++word) {
    shown_fds->words[word] = ready.words[word] & wanted_words[word];
    ready.words[word] &= ~wanted_words[word];
    taken += std::popcount(shown_fds->words[word]);
  }
  return taken;
}

void dispatch_fd_sets(Direction &direction, int &left) {
  FdHandler *elem = direction.fd_sets;
  while (elem != nullptr && left > 0) {
    const int taken = take_ready(*direction.ready, elem->fd_set_fds);
    const uint32_t removals = fd_removals;
    if (taken > 0) {
      left -= taken;
      call_handler(left, [&] { elem->set_callback(as_system_set(shown_fds), elem->argument); });
    }
    elem = fd_removals == removals ? elem->next : direction.fd_sets;
  }
}

// Puts a handler at the head of the list; `fill_in` stores what tells descriptors and sets apart.
// Signals are held back: a fault must not leave a list with a handler that is half made.
// Result: 1, or 0 when storage is exhausted, as rt_handle_fd's.
template <class FillIn>
int add_handler(FdHandler *&list, void *arg, FillIn fill_in) {
  FdHandler *elem = nullptr;
  signals_held([&] {
    elem = static_cast<FdHandler *>(stg_malloc(sizeof(FdHandler)));
    if (elem == nullptr) return;
    elem->next = list;
    elem->argument = arg;
    fill_in(*elem);
    list = elem;
  });
  if (elem != nullptr) return 1;
  report_malloc_failed();
  return 0;
}

// Frees the first handler of the list that `is_it` finds, and has `forget` drop what is kept in step
// with the list. Result: 1, or 0 when there was none.
template <class IsIt, class Forget>
int remove_handler(FdHandler *&list, IsIt is_it, Forget forget) {
  int removed = 0;
  signals_held([&] {
    FdHandler **link = &list;
    while (*link != nullptr && !is_it(**link)) link = &(*link)->next;
    FdHandler *elem = *link;
    if (elem == nullptr) return;
    *link = elem->next;
    forget();
    ++fd_removals;
    stg_free(elem);
    removed = 1;
  });
  return removed;
}

// The direction of a class that is watched; null for RT_FD_CLOSE.
Direction *direction_of(int fd_class) {
  switch (fd_class) {
    case RT_FD_READ:
    case RT_FD_ACCEPT:
      return &directions[RT_FD_READ];
    case RT_FD_WRITE:
    case RT_FD_CONNECT:
      return &directions[RT_FD_WRITE];
    case RT_FD_EXCEPT:
      return &directions[RT_FD_EXCEPT];
    case RT_FD_CLOSE:
      return nullptr;
    default:
      pfm_panic(__FILE__, __LINE__);
  }
}

Direction &direction_of_sets(int fd_class) {
  if (fd_class < RT_FD_READ || fd_class > RT_FD_EXCEPT) pfm_panic(__FILE__, __LINE__);
  return directions[fd_class];
}

}  // namespace

void rt_init(void) {
  rt_num_fds = kSetWords * kWordBits;
  rt_async = 0;
  rt_inited = true;
}

int ks::fd_set_or(fd_set *target, const fd_set *source) {
  auto *into = reinterpret_cast<Word *>(target);
  const auto *from = reinterpret_cast<const Word *>(source);
  int last = -1;
  for (int word = 0; word < kSetWords; ++word) {
    into[word] |= from[word];
    if (from[word] != 0) last = word;
  }
  for (int word = kSetWords; !error_flagged && word < (rt_num_fds + kWordBits - 1) / kWordBits;
       ++word) {
    if (from[word] == 0) continue;
    error_flagged = true;
    print<RT_MSG_FDS_LIMITED>(6);
  }
  return last < 0 ? -1 : last * kWordBits + kWordBits - 1;
}

void ks::rt_wait(timeval *timeout) {
  // The caller's hold on signals stays: programs that embed the loop count on it.
  if (rt_async != 0) return;
  if (shown_fds == nullptr) make_scratch_sets();

  auto &[reading, writing, exceptions] = directions;
  int highest = fill(reading);
  const bool write_used = writing.in_use();
  const bool except_used = exceptions.in_use();
  if (write_used) highest = std::max(highest, fill(writing));
  if (except_used) highest = std::max(highest, fill(exceptions));

  int left = pfm_select_inhibited(highest + 1, as_system_set(reading.ready),
                                  write_used ? as_system_set(writing.ready) : nullptr,
                                  except_used ? as_system_set(exceptions.ready) : nullptr, timeout);
  ++waits;
  if (left < 0) {
    KS_ASSERT(errno == EINTR);
    // They still hold what was asked for, and a handler of an outer dispatch may have polled.
    for (Direction &direction : directions) *direction.ready = {};
  }
  pfm_enable();

  dispatch_fds(reading, left);
  dispatch_fd_sets(reading, left);
  if (write_used) dispatch_fds(writing, left);
  if (write_used) dispatch_fd_sets(writing, left);
  if (except_used) dispatch_fds(exceptions, left);
  if (except_used) dispatch_fd_sets(exceptions, left);
}

int rt_fd_validate_max_fd(int fd) {
  if (fd <= kLargestFd) return 1;
  print<RT_MSG_FD_TOO_LARGE>(6, fd);
  return 0;
}

int rt_handle_fd(int fd_class, rt_fd_callback_t callback, int fd, void *arg) {
  if (!rt_inited) rt_init();
  if (rt_fd_validate_max_fd(fd) == 0) return 0;
  Direction *direction = direction_of(fd_class);
  if (direction == nullptr) return 1;
  if (fd < 0) {
    errno = EBADF;
    return 0;
  }
  for (FdHandler *elem = direction->fds; elem != nullptr; elem = elem->next) {
    KS_ASSERT(elem->fd != fd);
  }
  return add_handler(direction->fds, arg, [&](FdHandler &elem) {
    elem.callback = callback;
    elem.fd = fd;
    word_of(direction->watched, fd) |= bit_of(fd);
    direction->highest = std::max(direction->highest, fd);
  });
}

int rt_unhandle_fd(int fd_class, int fd) {
  Direction *direction = direction_of(fd_class);
  if (direction == nullptr) return 1;
  const auto is_it = [&](const FdHandler &elem) { return elem.fd == fd; };
  return remove_handler(direction->fds, is_it, [&] {
    word_of(direction->watched, fd) &= ~bit_of(fd);
    find_highest(*direction);
  });
}

int rt_handle_fd_set(int fd_class, rt_fd_set_callback_t callback, fd_set *fd_set_fds, void *arg) {
  if (!rt_inited) rt_init();
  Direction &direction = direction_of_sets(fd_class);
  for (FdHandler *elem = direction.fd_sets; elem != nullptr; elem = elem->next) {
    KS_ASSERT(elem->fd_set_fds != fd_set_fds);
  }
  return add_handler(direction.fd_sets, arg, [&](FdHandler &elem) {
    elem.set_callback = callback;
    elem.fd_set_fds = fd_set_fds;
  });
}

int rt_unhandle_fd_set(int fd_class, fd_set *fd_set_fds) {
  const auto is_it = [&](const FdHandler &elem) { return elem.fd_set_fds == fd_set_fds; };
  return remove_handler(direction_of_sets(fd_class).fd_sets, is_it, [] {});
}

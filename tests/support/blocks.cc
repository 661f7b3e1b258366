#include "support/blocks.h"

#include <cerrno>
#include <cinttypes>
#include <cstdint>
#include <cstdio>
#include <cstdlib>
#include <map>

namespace ks_test {
namespace {

// An open hash table that allocates nothing. An entry moves up when one in front of it goes.
struct Held {
  void *block;
  const void *caller;
};
constexpr size_t kPlaces = 1 << 15;
constinit Held held[kPlaces] = {};
constinit size_t held_count = 0;

constinit bool watching = false;
constinit int allocations = 0;
constinit int first_fail = -1;
constinit int fails = 0;

size_t home(const void *block) {
  return (reinterpret_cast<uintptr_t>(block) >> 4) * 2654435761u % kPlaces;
}

size_t next(size_t place) { return (place + 1) % kPlaces; }

// Where `block` stands, or the free place where it would.
size_t find(const void *block) {
  size_t place = home(block);
  while (held[place].block != nullptr && held[place].block != block) place = next(place);
  return place;
}

// Closes the gap at `gap`, so that each block behind it is still found from its home on.
void close_gap(size_t gap) {
  for (size_t place = next(gap); held[place].block != nullptr; place = next(place)) {
    const size_t from_home = (place - home(held[place].block)) % kPlaces;
    const size_t from_gap = (place - gap) % kPlaces;
    if (from_home < from_gap) continue;
    held[gap] = held[place];
    gap = place;
  }
  held[gap] = {};
}

}  // namespace

void watch_blocks() { watching = true; }

std::string held_blocks() {
  std::map<const void *, int> by_caller;
  for (const Held &each : held) {
    if (each.block != nullptr) ++by_caller[each.caller];
  }
  std::string text;
  for (const auto &[caller, count] : by_caller) {
    char line[64];
    snprintf(line, sizeof line, "%#" PRIxPTR " %d\n", reinterpret_cast<uintptr_t>(caller), count);
    text += line;
  }
  return text;
}

int count_allocations() { return allocations; }

void fail_allocations(int nth, int times) {
  first_fail = times > 0 ? allocations + nth : -1;
  fails = times;
}

bool allocation_fails() {
  if (!watching) return false;
  const int number = allocations++;
  if (first_fail < 0 || number < first_fail || number - first_fail >= fails) return false;
  errno = ENOMEM;
  return true;
}

void *note_block(void *block, const void *caller) {
  if (!watching || block == nullptr) return block;
  if (held_count == kPlaces - 1) {
    fprintf(stderr, "blocks: no room for more than %zu\n", kPlaces - 1);
    abort();
  }
  const size_t place = find(block);
  held_count += held[place].block == nullptr;
  held[place] = {block, caller};
  return block;
}

void forget_block(void *block) {
  if (!watching || block == nullptr) return;
  const size_t place = find(block);
  if (held[place].block == nullptr) return;  // libc's, or made before
  close_gap(place);
  --held_count;
}

}  // namespace ks_test

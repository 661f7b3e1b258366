// The heap: the system's allocator, with a report on exhaustion and, while storage is checked, guard
// bytes around each block.
#include <cerrno>
#include <cstdlib>
#include <cstring>

#include "core/ks_frame.h"
#include "core/stg_internal.h"
#include "msg/ks_trace.h"
#include "msg/ks_print.h"
#include "stg.h"
#include "stg_msg.h"

using namespace ks;

namespace {

// A checked block is a header with the size, the caller's bytes, and a guard of 8 to 15 bytes that
// ends on a multiple of 8.
constexpr size_t kHeader = 8;
constexpr size_t kOverhead = 16;
constexpr unsigned char kFresh = 0xFF;
constexpr unsigned char kGuard = 0xAA;
constexpr double kFreed = 3735928559.0;  // fills a freed block: 00 00 E0 DD B7 D5 EB 41
static_assert(sizeof kFreed == kStgUnit);

struct CheckedBlock {
  unsigned char *header;

  static CheckedBlock of(void *block) { return {static_cast<unsigned char *>(block) - kHeader}; }

  unsigned char *data() const { return header + kHeader; }

  uint32_t size() const {
    uint32_t size;
    memcpy(&size, header, sizeof size);
    return size;
  }

  size_t guard_size() const { return stg_round_up(size()) - size() + kStgUnit; }

  void set_size(uint32_t size) const {
    memcpy(header, &size, sizeof size);
    memset(data() + size, kGuard, guard_size());
  }

  // The first byte of the guard that is not as it was set, or NULL.
  const unsigned char *damage() const {
    return stg_first_difference(data() + size(), guard_size(), kGuard);
  }

  void overwrite() const {
    const size_t total = stg_round_up(size()) + kOverhead;
    for (size_t at = 0; at < total; at += kStgUnit) memcpy(header + at, &kFreed, kStgUnit);
  }
};

bool checking() { return tracing("ks/stg", 1); }

// A trace does not hide the errno of the failure that it reports.
template <class Print>
void trace(Print print) {
  if (!tracing("ks/stg", 5)) return;
  const int error = errno;
  print();
  errno = error;
}

void report_damage(const void *block, const unsigned char *damage) {
  if (damage == nullptr) return;
  print<STG_MSG_BLOCK_OVERWRITTEN>(IMSG_TYPE_ERROR, address(block), address(damage));
}

// Makes `block`, which may be NULL, `size` bytes long; with checking its layout is kept. NULL when
// there is no storage. The header has room for 32 bits.
void *resize_checked(void *block, size_t size) {
  if (size > UINT32_MAX - kOverhead - kStgUnit) return nullptr;
  void *old = block != nullptr ? CheckedBlock::of(block).header : nullptr;
  unsigned char *data = nullptr;
  signals_held([&] {
    void *header = realloc(old, stg_round_up(size) + kOverhead);
    if (header == nullptr) return;
    const CheckedBlock checked = {static_cast<unsigned char *>(header)};
    checked.set_size(static_cast<uint32_t>(size));
    data = checked.data();
  });
  return data;
}

void *malloc_checked(size_t size) {
  void *block = resize_checked(nullptr, size);
  return block != nullptr ? memset(block, kFresh, size) : nullptr;
}

void *malloc_plain(size_t size) {
  void *block = nullptr;
  signals_held([&] { block = malloc(size); });
  return block;
}

void *realloc_plain(void *old, size_t size) {
  void *block = nullptr;
  signals_held([&] { block = realloc(old, size); });
  return block;
}

void free_plain(void *block) {
  signals_held([&] { free(block); });
}

// The same with all that the trace settings ask for.
[[gnu::cold, gnu::noinline]] void *malloc_traced(size_t size) {
  void *block = stg_take(size);
  stg_tell_taken(block, size);
  return block;
}

[[gnu::cold, gnu::noinline]] void *realloc_traced(void *old, size_t size) {
  const bool checked = checking();
  const unsigned long old_address = address(old);
  if (checked && old != nullptr) report_damage(old, CheckedBlock::of(old).damage());
  void *block = checked ? resize_checked(old, size) : realloc_plain(old, size);
  if (block == nullptr) stg_exhausted();
  trace([&] {
    print<STG_MSG_BLOCK_REALLOCATED>(IMSG_TYPE_TRACE, old_address, address(block),
                                     static_cast<unsigned>(size));
  });
  return block;
}

[[gnu::cold, gnu::noinline]] void free_traced(void *block) {
  stg_tell_given_back(block, stg_give_back(block));
}

}  // namespace

void *ks::stg_exhausted() {
  print<STG_MSG_NO_MEMORY>(IMSG_TYPE_ERROR);
  errno = ENOMEM;
  return nullptr;
}

void *ks::stg_take(size_t size) { return checking() ? malloc_checked(size) : malloc_plain(size); }

void ks::stg_tell_taken(const void *block, size_t size) {
  if (block == nullptr) stg_exhausted();
  trace([&] {
    print<STG_MSG_BLOCK_ALLOCATED>(IMSG_TYPE_TRACE, address(block), static_cast<unsigned>(size));
  });
}

const unsigned char *ks::stg_give_back(void *block) {
  if (block == nullptr || !checking()) {
    free_plain(block);
    return nullptr;
  }
  const CheckedBlock checked = CheckedBlock::of(block);
  const unsigned char *damage = checked.damage();
  checked.overwrite();
  free_plain(checked.header);
  return damage;
}

void ks::stg_tell_given_back(const void *block, const unsigned char *damage) {
  trace([&] { print<STG_MSG_BLOCK_FREED>(IMSG_TYPE_TRACE, address(block)); });
  report_damage(block, damage);
}

const unsigned char *ks::stg_first_difference(const unsigned char *bytes, size_t count,
                                              unsigned char value) {
  for (size_t i = 0; i < count; ++i) {
    if (bytes[i] != value) return bytes + i;
  }
  return nullptr;
}

void *stg_malloc(size_t size) {
  if (size == 0) size = 1;
  if (imsg_desired_verbosity >= 1) return malloc_traced(size);
  void *block = malloc_plain(size);
  return block != nullptr ? block : stg_exhausted();
}

void *stg_realloc(void *old, size_t size) {
  if (size == 0) size = 1;
  if (imsg_desired_verbosity >= 1) return realloc_traced(old, size);
  void *block = realloc_plain(old, size);
  return block != nullptr ? block : stg_exhausted();
}

void stg_free(void *block) {
  if (imsg_desired_verbosity >= 1) return free_traced(block);
  free_plain(block);
}

char *stg_strdup(const char *text) {
  const size_t bytes = strlen(text) + 1;
  void *copy = stg_malloc(bytes);
  return copy != nullptr ? stg_copy_text(copy, text, bytes) : nullptr;
}

// What the heap and the areas share.
#pragma once

#include <cstddef>
#include <cstdint>
#include <cstring>

namespace [[gnu::visibility("hidden")]] ks {

// Sizes are multiples of this, and fills are tested and written against it.
inline constexpr size_t kStgUnit = 8;

// Rounded up to a multiple of the unit. The size must leave room for it.
constexpr size_t stg_round_up(size_t size) { return (size + kStgUnit - 1) & ~(kStgUnit - 1); }

// An address as the messages print it.
inline unsigned long address(const void *object) { return reinterpret_cast<unsigned long>(object); }

// Prints that there is no more memory and sets errno. Result: NULL, for the caller to return.
[[gnu::cold]] void *stg_exhausted();

// stg_malloc and stg_free in two parts, for stretches with signals held, in which nothing is printed:
// first what is done, then, when signals may come again, what is said of it.
void *stg_take(size_t size);
void stg_tell_taken(const void *block, size_t size);
// Result: the first byte that was overwritten behind the block, or NULL.
const unsigned char *stg_give_back(void *block);
void stg_tell_given_back(const void *block, const unsigned char *damage);

// The first of `count` bytes that is not `value`, or NULL.
const unsigned char *stg_first_difference(const unsigned char *bytes, size_t count,
                                          unsigned char value);

// memcpy of a text. Most texts are short, and for these the call would be half of the work.
inline char *stg_copy_text(void *target, const char *text, size_t bytes) {
  char *copy = static_cast<char *>(target);
  if (bytes < 16 || bytes > 32) return static_cast<char *>(memcpy(copy, text, bytes));
  memcpy(copy, text, 16);
  memcpy(copy + bytes - 16, text + bytes - 16, 16);
  return copy;
}

}  // namespace ks

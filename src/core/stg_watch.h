// Areas tell memory checkers which bytes of their chunks are allocated, so that a write past an
// allocation is caught when it happens. Without a checker nothing is called.
#pragma once

#include <valgrind/memcheck.h>

#include <cstddef>

#if defined(__SANITIZE_ADDRESS__)
#include <sanitizer/asan_interface.h>
#endif

namespace ks {

#if defined(__SANITIZE_ADDRESS__)

inline bool stg_watched() { return true; }
inline void stg_watch_free(void *bytes, size_t count) { __asan_poison_memory_region(bytes, count); }
inline void stg_watch_used(void *bytes, size_t count, bool) {
  __asan_unpoison_memory_region(bytes, count);
}

#else

inline bool stg_watched() { return RUNNING_ON_VALGRIND != 0; }
inline void stg_watch_free(void *bytes, size_t count) { VALGRIND_MAKE_MEM_NOACCESS(bytes, count); }
// What an area without stg_set_zero hands out has no value that a program may rely on.
inline void stg_watch_used(void *bytes, size_t count, bool defined) {
  if (defined) {
    VALGRIND_MAKE_MEM_DEFINED(bytes, count);
  } else {
    VALGRIND_MAKE_MEM_UNDEFINED(bytes, count);
  }
}

#endif

}  // namespace ks

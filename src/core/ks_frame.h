// What every module of the library uses of the fault manager, beyond pfm.h: protected frames and
// stretches with signals held back, as functions that take the body.
//
// A raise is a siglongjmp and runs no destructor, so in a body nothing may live whose destructor
// matters, and pairs are closed by these functions, not by guard objects.
#pragma once

#include <atomic>
#include <cstdint>
#include <type_traits>

#include "pfm.h"

namespace [[gnu::visibility("hidden")]] ks {

// Depth of pfm_inhibit, and the number of signals that wait for it to end. A signal routine may run
// at any instruction, so each access is fenced with order_for_signals where its order matters;
// plain integers, because a volatile counter costs two instructions more on each side.
extern int32_t pfm_inh_count;
extern int32_t pfm_pending_count;

extern bool pfm_inited;  // pfm_init has run

// Delivers the signals that wait; the count must be 0. May raise.
void deliver_pending();

// Keeps the compiler from moving accesses to memory across: what stands before has happened for a
// signal routine that runs behind.
inline void order_for_signals() { std::atomic_signal_fence(std::memory_order_seq_cst); }

// Runs `body` with signals held back, for short stretches that allocate or change what a signal
// routine may see: no signal can leave them half done. A signal that arrived is delivered at the
// end and may raise, so whatever `body` made must by then be where its owner finds it. Unlike
// pfm_inhibit it never starts the fault manager: while nothing is caught there is nothing to hold.
template <class Body>
inline void signals_held(Body &&body) {
  static_assert(std::is_trivially_destructible_v<std::decay_t<Body>>);
  // Stored, not counted back down: a count up and down again in memory would wait for each other.
  const int32_t inh_count = pfm_inh_count;
  pfm_inh_count = inh_count + 1;
  order_for_signals();
  body();
  order_for_signals();
  pfm_inh_count = inh_count;
  order_for_signals();
  if (pfm_pending_count != 0 && inh_count == 0) deliver_pending();
}

// Runs `body`; when a fault leaves it, runs `cleanup` with signals held back and raises on. Locals
// of the caller that both use, captured by reference, keep their values at the landing: they do not
// live in the function that calls sigsetjmp. They must have their empty values before.
template <class Body, class Cleanup>
void protect(Body &&body, Cleanup &&cleanup) {
  static_assert(std::is_trivially_destructible_v<std::decay_t<Body>> &&
                std::is_trivially_destructible_v<std::decay_t<Cleanup>>);
  pfm_cleanup_rec_t rec;
  rec.magic = 0;
  rec.status = sigsetjmp(rec.env, 1);
  if (int status = pfm_cleanup_start(&rec, 0); status > 0) {
    cleanup();
    pfm_raise(status);
  } else if (status < 0) {
    // A negative status leaves the record armed and moves no count: take the record off, and hold
    // signals back for the cleanup only, since no landing further out would trim the count.
    pfm_cleanup_rls(&rec);
    ++pfm_inh_count;
    order_for_signals();
    cleanup();
    order_for_signals();
    --pfm_inh_count;
    pfm_raise(status);
  }
  body();
  pfm_cleanup_rls(&rec);
}

}  // namespace ks

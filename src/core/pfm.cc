// Cleanup records, raising, the two counts that hold signals back, and the start of the module.
#include "pfm.h"

#include <valgrind/memcheck.h>

#include <cstddef>
#include <cstdlib>

#include "core/ks_assert.h"
#include "core/pfm_internal.h"

namespace ks {
int32_t pfm_inh_count = 0;
int32_t pfm_inh_susp_count = 0;
bool pfm_inited = false;
}  // namespace ks

using namespace ks;

namespace {

constexpr uint32_t MAGIC_SET = 0xFA01BEEF;      // on the chain
constexpr uint32_t MAGIC_TRIPPED = 0x05FE4110;  // taken off by a fault or released

pfm_cleanup_rec_t *cl_rec_root = nullptr;  // innermost armed record

// A signal may raise as soon as the record is the root, and must then find it whole.
void push_record(pfm_cleanup_rec_t *cl_rec) {
  cl_rec->prev = cl_rec_root;
  cl_rec->magic = MAGIC_SET;
  order_for_signals();
  cl_rec_root = cl_rec;
}

// The root goes first: a signal that raises in between lands in the next record outward.
void pop_record(pfm_cleanup_rec_t *cl_rec) {
  cl_rec_root = cl_rec->prev;
  order_for_signals();
  cl_rec->magic = MAGIC_TRIPPED;
}

int arm(pfm_cleanup_rec_t *cl_rec, bool inhibit) {
  pfm_init();
  cl_rec->inh = pfm_inh_count;
  cl_rec->inh_susp = pfm_inh_susp_count;
  if (inhibit) pfm_inhibit();
  // Stale contents of the stack may look armed: only a record that is on the chain is armed. A memory
  // checker need not report that they are read.
  (void)VALGRIND_MAKE_MEM_DEFINED(&cl_rec->magic, sizeof cl_rec->magic);
  if (cl_rec->magic == MAGIC_SET) {
    for (pfm_cleanup_rec_t *cl_tmp = cl_rec_root; cl_tmp != nullptr; cl_tmp = cl_tmp->prev) {
      KS_ASSERT(cl_tmp != cl_rec);
    }
  }
  push_record(cl_rec);
  return 0;
}

int land(pfm_cleanup_rec_t *cl_rec) {
  KS_ASSERT(cl_rec == cl_rec_root && cl_rec->magic == MAGIC_SET);
  KS_ASSERT(pfm_inh_count >= cl_rec->inh);
  pfm_inh_count = cl_rec->inh + 1;
  order_for_signals();
  KS_ASSERT(pfm_inh_susp_count >= cl_rec->inh_susp);
  pfm_inh_susp_count = cl_rec->inh_susp;
  pop_record(cl_rec);
  return cl_rec->status;
}

void start() {
  read_signal_table();
  pfm_inited = true;  // pfm_signal, which comes next, would start the module otherwise
  take_over_signals();
  signals_held([] { atexit(pfm_atexit_handler); });
}

// What is rare of pfm_inhibit and pfm_enable stands out of line and is called last, so that the
// counting itself needs no frame.
[[gnu::noinline, gnu::cold]] void start_and_inhibit() {
  start();
  ++pfm_inh_count;
}

[[gnu::noinline, gnu::cold]] void check_inhibit_count() {
  const int32_t inh_count = pfm_inh_count;
  KS_ASSERT(inh_count >= 0);
}

}  // namespace

void ks::forget_cleanup_records() { cl_rec_root = nullptr; }

int pfm_cleanup_start(pfm_cleanup_rec_t *cl_rec, int inhibit) {
  if (cl_rec->status == 0) return arm(cl_rec, inhibit != 0);
  // Callers rely on a negative status leaving everything as it is.
  if (cl_rec->status < 0) return cl_rec->status;
  return land(cl_rec);
}

int pfm_cleanup_rls(pfm_cleanup_rec_t *cl_rec) {
  KS_ASSERT(cl_rec == cl_rec_root && cl_rec->magic == MAGIC_SET);
  pop_record(cl_rec);
  return 0;
}

int pfm_cleanup_reset(pfm_cleanup_rec_t *cl_rec) {
  KS_ASSERT(cl_rec->magic == MAGIC_TRIPPED);
  push_record(cl_rec);
  pfm_enable();
  return 0;
}

void pfm_raise(int status) {
  if (cl_rec_root == nullptr) {
    pfm_exit(status);
    pfm_panic(__FILE__, __LINE__);  // a replaced exit routine has returned: there is nowhere to go
  }
  siglongjmp(cl_rec_root->env, status);
}

void pfm_raise_deferred(int status) {
  if (pfm_inh_count == 0) pfm_raise(status);
  signals_blocked([] { defer_signal(SIGINT); });
}

void pfm_inhibit() {
  if (!pfm_inited) return start_and_inhibit();
  ++pfm_inh_count;
  order_for_signals();
}

void pfm_enable() {
  order_for_signals();
  if (--pfm_inh_count == 0) [[likely]] {
    order_for_signals();
    if (pfm_pending_count != 0) deliver_pending();
    return;
  }
  if (pfm_inh_count < 0) check_inhibit_count();
}

void pfm_inhibit_suspend() {
  pfm_init();
  ++pfm_inh_susp_count;
  order_for_signals();
}

void pfm_enable_suspend() {
  order_for_signals();
  --pfm_inh_susp_count;
  order_for_signals();
  if (pfm_inh_susp_count > 0) return;
  KS_ASSERT(pfm_inh_susp_count >= 0);
  if (pfm_inh_count == 0 && pfm_pending_count != 0) deliver_pending();
}

int32_t pfm_inhibit_count() { return pfm_inh_count; }
int32_t pfm_inhibit_suspend_count() { return pfm_inh_susp_count; }
int32_t pfm_blocked_count() { return pfm_pending_count; }

void pfm_init() {
  if (!pfm_inited) start();
}

#ifdef __i386__
static_assert(sizeof(pfm_cleanup_rec_t) == 176);
static_assert(offsetof(pfm_cleanup_rec_t, magic) == 0);
static_assert(offsetof(pfm_cleanup_rec_t, prev) == 4);
static_assert(offsetof(pfm_cleanup_rec_t, env) == 8);
static_assert(offsetof(pfm_cleanup_rec_t, inh) == 164);
static_assert(offsetof(pfm_cleanup_rec_t, inh_susp) == 168);
static_assert(offsetof(pfm_cleanup_rec_t, status) == 172);
#endif

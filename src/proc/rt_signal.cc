// Signals as events.
#include <csignal>

#include "llist.h"
#include "proc/rt_internal.h"
#include "stg.h"

using namespace ks;

namespace {

struct SignalRecord {
  llist_d element;  // on the list of records, with the record as its data
  int32_t signal;
  rt_signal_callback_t callback;
  void *arg;
  pfm_signal_t old_routine;  // the signal's routine before this record
  rt_event event;
};

// The records; all zero is the empty list. Changed and walked with signals held back only.
llist_d signal_list;

SignalRecord *find(int sig) {
  for (llist_d *at = signal_list.next; at != nullptr && at != &signal_list; at = at->next) {
    auto *record = static_cast<SignalRecord *>(at->data);
    if (record->signal == sig) return record;
  }
  return nullptr;
}

void rt_signal_callback(void *arg) {
  const auto *record = static_cast<SignalRecord *>(arg);
  record->callback(record->signal, record->arg);
}

// A signal that comes again before its callback has run moves the callback to now.
void rt_signal_catcher(int sig) {
  SignalRecord *record = find(sig);
  if (record == nullptr) pfm_raise(sig);
  rt_unsched(&record->event);
  rt_sched_int(rt_signal_callback, record, 0, &record->event, sizeof(struct rt_event));
}

// Takes the signal over for a record that is not on the list yet. Result: 1, or 0.
int install(SignalRecord *record) {
  if (find(record->signal) != nullptr) return 0;
  record->old_routine = pfm_signal(record->signal, rt_signal_catcher);
  if (record->old_routine == SIG_ERR) return 0;
  llist_d_insert(&signal_list, record, &record->element, LLIST_D_LAST);
  return 1;
}

}  // namespace

// Signals are held back from the allocation on: a fault must not lose the record.
int rt_handle_signal(int sig, rt_signal_callback_t callback, void *arg) {
  pfm_inhibit();
  auto *record = static_cast<SignalRecord *>(stg_malloc(sizeof(SignalRecord)));
  if (record == nullptr) {
    pfm_enable();
    report_malloc_failed();
    return 0;
  }
  *record = {};
  record->signal = sig;
  record->callback = callback;
  record->arg = arg;
  const int installed = install(record);
  if (installed == 0) stg_free(record);
  pfm_enable();
  return installed;
}

int rt_unhandle_signal(int sig, int *was_pending) {
  pfm_inhibit();
  SignalRecord *record = find(sig);
  const bool handled = record != nullptr;
  int pending = 0;
  if (handled) {
    pfm_signal(sig, record->old_routine);
    pending = rt_unsched(&record->event);
    llist_d_remove(&record->element);
    stg_free(record);  // before signals come: the old routine may raise
  }
  pfm_enable();
  if (!handled) return 0;
  *was_pending = pending;
  return 1;
}

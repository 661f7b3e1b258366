// Children: their deaths as events.
#include <sys/wait.h>
#include <unistd.h>

#include <cerrno>
#include <csignal>

#include "core/ks_assert.h"
#include "core/ks_fork.h"
#include "core/ks_frame.h"
#include "core/ks_retry.h"
#include "llist.h"
#include "proc/rt_internal.h"
#include "procutl.h"
#include "stg.h"

using namespace ks;

struct rt_proc {
  llist_d element;  // on active_list or zombie_list, with the record as its data
  int32_t pid;
  int32_t status;  // as waitpid gave it, once the child is dead
  rt_proc_callback_t callback;
  void *arg;
  rt_event event;
};

namespace {

// Changed and walked with signals held back only: the catcher moves records between them.
// Rings from the start, since the catcher also runs where the start has failed.
constinit llist_d active_list = {&active_list, &active_list, nullptr};  // living, youngest first
constinit llist_d zombie_list = {&zombie_list, &zombie_list, nullptr};  // dead, callback not run
bool initialized = false;

rt_proc *record_of(const llist_d *element) { return static_cast<rt_proc *>(element->data); }

void close_ring(llist_d &head) { head.next = head.prev = &head; }

// The record of the child `pid` on a list, or null.
rt_proc *find(const llist_d &head, pid_t pid) {
  for (llist_d *at = head.next; at != &head; at = at->next) {
    if (record_of(at)->pid == pid) return record_of(at);
  }
  return nullptr;
}

// The record goes also when a fault leaves the child's callback. One that comes before the record has
// been taken leaves record and event where they are.
void rt_proc_callback(void *arg) {
  auto *record = static_cast<rt_proc *>(arg);
  bool taken = false;
  const auto drop = [&] {
    if (taken) stg_free(record);
    taken = false;
  };
  protect(
      [&] {
        signals_held([&] {
          rt_unsched(&record->event);
          llist_d_remove(&record->element);
          taken = true;
        });
        if (record->callback != nullptr) {
          record->callback(record->pid, record->status, record->arg, record);
        }
        signals_held(drop);
      },
      drop);
}

void note_death(pid_t pid, int status) {
  rt_proc *record = find(active_list, pid);
  if (record == nullptr) return;
  record->status = status;
  llist_d_remove(&record->element);
  llist_d_insert(&zombie_list, record, &record->element, LLIST_D_LAST);
  rt_sched_int(rt_proc_callback, record, 0, &record->event, sizeof(struct rt_event));
  record->event.caller_owned = kTakenByCallback;
}

// One signal may stand for several deaths. It is delivered at any pfm_enable, whose callers don't
// expect their errno to become "no children".
void rt_proc_signal_catcher(int) {
  const int saved_errno = errno;
  int status = 0;
  const auto reap = [&] { return retry_eintr([&] { return waitpid(-1, &status, WNOHANG); }); };
  for (pid_t pid; (pid = reap()) > 0;) note_death(pid, status);
  errno = saved_errno;
}

void ensure_initialized() { KS_ASSERT(initialized || rt_proc_initialize() == 0); }

// Empties both lists and leaves the records alone. The events of dead children still fire, and each
// takes its record off a list, which is then one of its own: on the old ring it would pull the others
// back onto zombie_list.
void forget_children() {
  llist_d *next = nullptr;
  for (llist_d *at = zombie_list.next; at != &zombie_list; at = next) {
    next = at->next;
    close_ring(*at);
  }
  close_ring(active_list);
  close_ring(zombie_list);
}

// A new process has none of its parent's children; deaths that were due fire in it unheard.
void disown_inherited_children() {
  for (llist_d *at = zombie_list.next; at != &zombie_list; at = at->next) {
    record_of(at)->callback = nullptr;
  }
  forget_children();
}

}  // namespace

int rt_proc_initialize(void) {
  pfm_inhibit();
  const pfm_signal_t old = pfm_signal(SIGCHLD, rt_proc_signal_catcher);
  const bool conflict = old != SIG_DFL && old != SIG_IGN;
  if (conflict) {
    print<RT_MSG_CHILD_HANDLER_CONFLICT>(6);
  } else {
    forget_children();
    initialized = true;
  }
  pfm_enable();
  return conflict ? -1 : 0;
}

pid_t rt_proc_fork(rt_proc_callback_t callback, void *arg) {
  ensure_initialized();
  pfm_inhibit();  // a child that dies at once is not reaped before its record exists
  const pid_t pid = fork_child(Child::kGoesOn);
  if (pid > 0 && rt_proc_birth_announcement(pid, callback, arg) != 0) {
    return -1;  // with signals held back still: callers rely on it
  }
  if (pid == 0) disown_inherited_children();
  pfm_enable();
  return pid;
}

int rt_proc_birth_announcement(pid_t pid, rt_proc_callback_t callback, void *arg) {
  ensure_initialized();
  bool recorded = false;
  pfm_inhibit();
  if (auto *record = static_cast<rt_proc *>(stg_malloc(sizeof(rt_proc))); record != nullptr) {
    *record = {};
    record->pid = pid;
    record->callback = callback;
    record->arg = arg;
    llist_d_insert(&active_list, record, &record->element, LLIST_D_FIRST);
    recorded = true;
  } else {
    procutl_terminate(pid);  // it cannot be followed and must not outlive the call
  }
  pfm_enable();
  if (recorded) return 0;
  report_malloc_failed();
  return 1;
}

int rt_proc_disown(pid_t pid) {
  ensure_initialized();
  pfm_inhibit();
  rt_proc *record = find(active_list, pid);
  if (record == nullptr) record = find(zombie_list, pid);
  if (record != nullptr) {
    record->callback = nullptr;
    record->arg = nullptr;
  }
  pfm_enable();
  return record != nullptr ? 0 : -1;
}

int rt_proc_killall(void) {
  ensure_initialized();
  pfm_inhibit();
  const bool any = active_list.next != &active_list;
  for (llist_d *at = active_list.next; at != &active_list; at = at->next) {
    procutl_terminate(record_of(at)->pid);
  }
  pfm_enable();
  return any ? 0 : -1;
}

int rt_proc_any_procs(void) {
  ensure_initialized();
  pfm_inhibit();
  const bool any = active_list.next != &active_list || zombie_list.next != &zombie_list;
  pfm_enable();
  return any;
}

int rt_proc_alive(pid_t pid) {
  ensure_initialized();
  pfm_inhibit();
  const bool alive = find(active_list, pid) != nullptr;
  pfm_enable();
  return alive;
}

// The end of the process: exit hooks, and the exit routine behind them.
#include <cstdlib>

#include "core/ks_assert.h"
#include "pfm.h"
#include "core/pfm_internal.h"

using namespace ks;

namespace {

// From malloc, and never given back: the process is about to end.
struct on_exit_entry {
  pfm_exit_hook_t routine;
  void *argument;
  on_exit_entry *next;
};

on_exit_entry *on_exit_list = nullptr;         // last registered first
on_exit_entry *ran_list = nullptr;             // kept, so that memory checkers see no leak
pfm_exit_routine_t saved_exit_routine = exit;  // what pfm_exit finally calls

// Each hook is off the list before it runs: one that calls pfm_exit itself runs only the rest.
void run_hooks(int status) {
  while (on_exit_list != nullptr) {
    on_exit_entry *entry = on_exit_list;
    on_exit_list = entry->next;
    entry->next = ran_list;
    ran_list = entry;
    entry->routine(status, entry->argument);
  }
}

}  // namespace

void ks::pfm_atexit_handler() { run_hooks(0); }

void ks::forget_exit_hooks() { on_exit_list = nullptr; }

void pfm_on_exit(pfm_exit_hook_t routine, void *argument) {
  pfm_init();
  signals_held([&] {
    on_exit_entry *entry = static_cast<on_exit_entry *>(malloc(sizeof(on_exit_entry)));
    KS_ASSERT_TEXT(entry != nullptr,
                   "(new = (struct on_exit_entry *)malloc(sizeof(struct on_exit_entry))) != NULL");
    *entry = {routine, argument, on_exit_list};
    on_exit_list = entry;
  });
}

pfm_exit_routine_t pfm_set_exit(pfm_exit_routine_t routine) {
  const pfm_exit_routine_t old = saved_exit_routine;
  saved_exit_routine = routine;
  return old;
}

void pfm_exit(int status) {
  run_hooks(status);
  saved_exit_routine(status);
}

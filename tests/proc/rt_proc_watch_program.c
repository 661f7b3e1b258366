/* Has children die and signals come in every way that allocates, for a memory checker to watch. What
 * it prints is the number of callbacks. The children are killed, so that the checker does not look for
 * the records that they have forgotten. */
#include <signal.h>
#include <stdio.h>
#include <stdlib.h>
#include <string.h>
#include <unistd.h>

#include <norvaks/pfm.h>
#include <norvaks/rt.h>

enum { ROUNDS = 100 };

static int calls;

static void died(pid_t pid, int status, void *arg, rt_proc_t *record) {
  (void)pid;
  (void)arg;
  (void)record;
  if (status == SIGKILL) ++calls;
}

static void died_with_a_fault(pid_t pid, int status, void *arg, rt_proc_t *record) {
  died(pid, status, arg, record);
  pfm_raise(9);
}

static void came(int sig, void *arg) {
  (void)sig;
  (void)arg;
  ++calls;
}

static void shut_down_after_the_last(void *arg) {
  struct timeval soon = {0, 100};
  if (rt_proc_any_procs()) {
    rt_sched_rel(shut_down_after_the_last, arg, &soon);
  } else {
    rt_shutdown();
  }
}

static pid_t bear(rt_proc_callback_t callback) {
  pid_t pid = rt_proc_fork(callback, NULL);
  while (pid == 0) pause();
  kill(pid, SIGKILL);
  return pid;
}

/* Faults of callbacks leave rt_run, which is entered again. */
static void run_until_all_are_dead(void) {
  volatile int faults = 0;
  pfm_cleanup_rec_t rec;
  rt_sched(shut_down_after_the_last, NULL, 0);
  memset(&rec, 0, sizeof rec);
  if (PFM_CLEANUP_START(&rec, 0) != 0) {
    faults = faults + 1;
    pfm_cleanup_reset(&rec);
  }
  rt_run();
  pfm_cleanup_rls(&rec);
  if (faults != 1) exit(2);
}

int main(void) {
  int was_pending = 0;
  for (int i = 0; i < ROUNDS; ++i) {
    rt_handle_signal(SIGUSR1, came, NULL);
    rt_handle_signal(SIGUSR1, came, NULL); /* refused */
    rt_handle_signal(65, came, NULL);      /* no signal */
    rt_handle_signal(SIGUSR2, came, NULL);
    raise(SIGUSR1);
    raise(SIGUSR2);
    rt_unhandle_signal(SIGUSR2, &was_pending);
    bear(died);
    bear(died_with_a_fault);
    rt_proc_disown(bear(died));
    run_until_all_are_dead();
    rt_unhandle_signal(SIGUSR1, &was_pending);
  }
  printf("%d\n", calls);
  return 0;
}

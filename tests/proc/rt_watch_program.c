/* Runs the loop with all that it allocates, for a memory checker to watch. What it prints is the
 * number of callbacks. */
#include <stdio.h>
#include <unistd.h>

#include <norvaks/rt.h>

static int calls;
static int ends[2];

static void fired(void *arg) {
  ++calls;
  if (arg != NULL) rt_shutdown();
}

static void readable(int fd, void *arg) {
  (void)arg;
  ++calls;
  rt_unhandle_fd(RT_FD_READ, fd);
}

static void some_writable(fd_set *ready, void *set) {
  (void)ready;
  ++calls;
  rt_unhandle_fd_set(RT_FD_WRITE, set);
  rt_sched(fired, &calls, 0);
}

int main(void) {
  fd_set set;
  struct rt_event own = {0};
  if (pipe(ends) != 0 || write(ends[1], "x", 1) != 1) return 1;
  FD_ZERO(&set);
  FD_SET(ends[1], &set);
  rt_unsched(rt_sched(fired, NULL, 1000));
  rt_sched(fired, NULL, 0);
  rt_sched_int(fired, NULL, 0, &own, sizeof own);
  rt_handle_fd(RT_FD_READ, readable, ends[0], NULL);
  rt_handle_fd_set(RT_FD_WRITE, some_writable, &set, &set);
  rt_run();
  printf("%d\n", calls);
  return 0;
}

#define _GNU_SOURCE 1 /* pipe2 */

#include "job.h"

#include <errno.h>
#include <fcntl.h>
#include <signal.h>
#include <string.h>
#include <sys/wait.h>
#include <unistd.h>

#include <norvaks/imsg.h>
#include <norvaks/llist.h>
#include <norvaks/pfm.h>
#include <norvaks/rt.h>
#include <norvaks/stg.h>

#include "show.h"
#include "watchd_msg.h"

struct job {
  llist_d element; /* on `running` */
  pid_t pid;
  int alive;
  int status; /* of waitpid, once it is dead */
  int output; /* reading end of the pipe, -1 once it is closed */
  job_done_t done;
  void *arg;
  size_t length; /* of the line that has begun */
  char line[SHOW_LONGEST];
  char path[];
};

static llist_d running;
static unsigned running_count;
static unsigned long long started, failed;

unsigned jobs_running(void) { return running_count; }
unsigned long long jobs_started(void) { return started; }
unsigned long long jobs_failed(void) { return failed; }

static void print_line(const struct job *job, const char *line, size_t length) {
  char path[SHOW_SIZE], text[SHOW_SIZE];
  imsg_print(IMSG_TYPE_OK, watchd_msg_table, WATCHD_MSG_OUTPUT, show_string(path, job->path),
             show(text, line, length));
}

/* Prints the lines that are complete, and a line that fills the buffer as far as it goes. */
static void print_lines(struct job *job) {
  const char *line = job->line, *end = job->line + job->length;
  for (const char *stop; (stop = memchr(line, '\n', (size_t)(end - line))) != NULL;
       line = stop + 1) {
    print_line(job, line, (size_t)(stop - line));
  }
  job->length = (size_t)(end - line);
  if (job->length == sizeof job->line) {
    print_line(job, line, job->length);
    job->length = 0;
  }
  memmove(job->line, line, job->length);
}

static void print_end(const struct job *job) {
  char path[SHOW_SIZE];
  show_string(path, job->path);
  if (WIFSIGNALED(job->status)) {
    imsg_print(IMSG_TYPE_WARNING, watchd_msg_table, WATCHD_MSG_KILLED, path, WTERMSIG(job->status));
  } else {
    imsg_print(job->status == 0 ? IMSG_TYPE_OK : IMSG_TYPE_WARNING, watchd_msg_table,
               WATCHD_MSG_FINISHED, path, WEXITSTATUS(job->status));
  }
}

/* The death and the end of the output come in either order; the later one ends the job. */
static void end_when_both_are_known(struct job *job) {
  if (job->alive || job->output >= 0) return;
  const job_done_t done = job->done;
  void *arg = job->arg;
  print_end(job);
  if (job->status != 0) ++failed;
  llist_d_remove(&job->element);
  --running_count;
  stg_free(job);
  done(arg);
}

static void close_output(struct job *job) {
  if (job->length > 0) print_line(job, job->line, job->length);
  rt_unhandle_fd(RT_FD_READ, job->output);
  close(job->output);
  job->output = -1;
}

static void on_output(int fd, void *arg) {
  struct job *job = arg;
  const ssize_t got = read(fd, job->line + job->length, sizeof job->line - job->length);
  if (got < 0 && errno == EINTR) return; /* it is still ready */
  if (got > 0) {
    job->length += (size_t)got;
    print_lines(job);
    return;
  }
  if (got < 0) {
    char path[SHOW_SIZE];
    const char *reason = imsg_strerror(errno);
    imsg_print(IMSG_TYPE_ERROR, watchd_msg_table, WATCHD_MSG_OUTPUT_FAILED,
               show_string(path, job->path), reason);
  }
  close_output(job);
  end_when_both_are_known(job);
}

static void on_death(pid_t pid, int status, void *arg, rt_proc_t *record) {
  struct job *job = arg;
  (void)pid;
  (void)record;
  job->alive = 0;
  job->status = status;
  end_when_both_are_known(job);
}

/* Signals are blocked here: with the default actions in place one that has come meanwhile counts.
 * What fails here shows as the status that a shell has for a command it cannot run. */
static _Noreturn void become_command(const char *script, const char *path, int output) {
  sigset_t none;
  setpgid(0, 0);
  for (int sig = 1; sig < NSIG; ++sig) signal(sig, SIG_DFL);
  sigemptyset(&none);
  sigprocmask(SIG_SETMASK, &none, NULL);
  const int input = open("/dev/null", O_RDONLY | O_CLOEXEC);
  if (input >= 0 && dup2(input, STDIN_FILENO) >= 0 && dup2(output, STDOUT_FILENO) >= 0 &&
      dup2(output, STDERR_FILENO) >= 0) {
    execl("/bin/sh", "sh", "-c", script, "watchd", path, (char *)NULL);
  }
  _exit(127);
}

/* Signals are blocked during the fork: one that came to the child before it is the command would go
 * to this program's routines there, and be lost. Result: as fork's. */
static pid_t fork_command(struct job *job, const char *script, int output) {
  const int32_t held = pfm_inhibit_count();
  sigset_t all, before;
  sigfillset(&all);
  sigprocmask(SIG_SETMASK, &all, &before);
  const pid_t pid = rt_proc_fork(on_death, job);
  if (pid == 0) become_command(script, job->path, output);
  int error = errno;
  if (pid > 0) setpgid(pid, pid); /* in case the child has not come to it yet */
  sigprocmask(SIG_SETMASK, &before, NULL);
  if (pfm_inhibit_count() > held) { /* there is a child, but no storage to follow it */
    error = ENOMEM;
    pfm_enable();
  }
  errno = error;
  return pid;
}

static struct job *new_job(const char *path, int output, job_done_t done, void *arg) {
  const size_t size = strlen(path) + 1;
  struct job *job = stg_malloc(sizeof *job + size);
  if (job == NULL) return NULL;
  memset(job, 0, sizeof *job);
  job->output = output;
  job->done = done;
  job->arg = arg;
  memcpy(job->path, path, size);
  return job;
}

/* Result: whether the command runs; otherwise errno says why not, and nothing is left of it. */
static int start_on_pipe(const char *script, const int ends[2], struct job *job) {
  if (!rt_handle_fd(RT_FD_READ, on_output, ends[0], job)) {
    errno = ENOMEM;
    return 0;
  }
  job->pid = fork_command(job, script, ends[1]);
  if (job->pid < 0) {
    const int error = errno;
    rt_unhandle_fd(RT_FD_READ, ends[0]);
    errno = error;
    return 0;
  }
  job->alive = 1;
  llist_d_insert(&running, job, &job->element, LLIST_D_LAST);
  ++running_count;
  ++started;
  return 1;
}

int job_start(const char *script, const char *path, job_done_t done, void *arg) {
  char shown[SHOW_SIZE];
  int ends[2] = {-1, -1};
  struct job *job = NULL;
  if (pipe2(ends, O_CLOEXEC) == 0) job = new_job(path, ends[0], done, arg);
  if (job != NULL && start_on_pipe(script, ends, job)) {
    close(ends[1]);
    imsg_print(IMSG_TYPE_OK, watchd_msg_table, WATCHD_MSG_STARTED, show_string(shown, path));
    return 1;
  }
  const char *reason = imsg_strerror(errno);
  imsg_print(IMSG_TYPE_ERROR, watchd_msg_table, WATCHD_MSG_START_FAILED, show_string(shown, path),
             reason);
  ++failed;
  stg_free(job);
  if (ends[0] >= 0) close(ends[0]);
  if (ends[1] >= 0) close(ends[1]);
  return 0;
}

/* To the groups of the commands that have not been reaped: the number of another could be a
 * stranger's by now. */
static void signal_groups(int sig) {
  pfm_inhibit();
  for (llist_d *at = running.next; at != NULL && at != &running; at = at->next) {
    const pid_t pid = ((struct job *)at->data)->pid;
    if (rt_proc_alive(pid)) kill(-pid, sig);
  }
  pfm_enable();
}

void jobs_terminate(void) { signal_groups(SIGTERM); }

void jobs_kill(void) {
  signal_groups(SIGKILL);
  for (llist_d *at = running.next, *next; at != NULL && at != &running; at = next) {
    struct job *job = at->data;
    next = at->next;
    if (job->output >= 0) close_output(job);
    end_when_both_are_known(job);
  }
}

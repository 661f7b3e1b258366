/* Jobs: commands that run as children, with their output on a pipe that the loop reads. */
#ifndef JOB_H
#define JOB_H

typedef void (*job_done_t)(void *arg);

/* Starts `script`, which the shell reads, with `path` as its "$1" and in a process group of its own.
 * What it prints appears line by line, then how it ended, and then `done` is called with `arg`, in
 * the loop. A command ends when it has died and nobody holds its output open any more.
 * Result: 1; or 0 after an error has been printed, and `done` is never called. */
int job_start(const char *script, const char *path, job_done_t done, void *arg);

/* Sends SIGTERM to all that run. */
void jobs_terminate(void);

/* Kills all that run, and does not wait for output that processes left behind hold open. */
void jobs_kill(void);

unsigned jobs_running(void);
unsigned long long jobs_started(void); /* ever */
unsigned long long jobs_failed(void);  /* ended in any way but status 0, or could not be started */

#endif

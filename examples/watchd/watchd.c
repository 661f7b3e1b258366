/* watchd: runs a command for each file of some folders that has changed and then been quiet. A model
 * of a server on libnorvaks: one loop waits for changes, quiet files, the commands' output and ends,
 * and signals; nothing else waits, and what is started is followed to its end. */
#define _GNU_SOURCE 1 /* ferror_unlocked */

#include <locale.h>
#include <signal.h>
#include <stdio.h>
#include <string.h>

#include <norvaks/imsg.h>
#include <norvaks/pfm.h>
#include <norvaks/rt.h>
#include <norvaks/stg.h>
#include <norvaks/strutl.h>

#include "files.h"
#include "folders.h"
#include "job.h"
#include "watchd_msg.h"

struct options {
  struct timeval quiet;
  unsigned jobs;
  const char *command;
};

static int parse_quiet(const char *text, struct options *options) {
  double seconds;
  if (strutl_strtod(text, &seconds) != 0 || !(seconds >= 0 && seconds <= 86400)) return 0;
  options->quiet.tv_sec = (time_t)seconds;
  options->quiet.tv_usec = (suseconds_t)((seconds - (double)options->quiet.tv_sec) * 1e6);
  return 1;
}

static int parse_jobs(const char *text, struct options *options) {
  long jobs;
  if (strutl_strtol(text, 10, &jobs) != 0 || jobs < 1 || jobs > 100) return 0;
  options->jobs = (unsigned)jobs;
  return 1;
}

static int parse_command(const char *text, struct options *options) {
  options->command = text;
  return *text != '\0';
}

static const struct {
  const char *name;
  int (*parse)(const char *text, struct options *options);
} known_options[] = {{"-quiet", parse_quiet}, {"-jobs", parse_jobs}, {"-do", parse_command}};

/* Result: 1; or 0 after a message. `value` is NULL for the last word of the command line. */
static int parse_option(const char *name, const char *value, struct options *options) {
  for (size_t i = 0; i < sizeof known_options / sizeof *known_options; ++i) {
    if (strcmp(name, known_options[i].name) != 0) continue;
    if (value != NULL && known_options[i].parse(value, options)) return 1;
    imsg_print(IMSG_TYPE_ERROR, watchd_msg_table, WATCHD_MSG_BAD_VALUE, name);
    return 0;
  }
  imsg_print(IMSG_TYPE_ERROR, watchd_msg_table, WATCHD_MSG_BAD_OPTION, name);
  return 0;
}

/* Result: the index of the first folder's name, or 0 after messages. */
static int parse(int argc, char **argv, struct options *options) {
  int at = 1, good = 1;
  for (; good && at < argc && argv[at][0] == '-'; at += 2) {
    good = parse_option(argv[at], argv[at + 1], options);
  }
  if (good && at < argc && options->command != NULL) return at;
  imsg_print(IMSG_TYPE_ERROR, watchd_msg_table, WATCHD_MSG_USAGE);
  return 0;
}

static void on_read_again(int sig, void *arg) {
  (void)sig;
  (void)arg;
  imsg_print(IMSG_TYPE_OK, watchd_msg_table, WATCHD_MSG_READING_AGAIN);
  folders_read_again();
}

static void on_report(int sig, void *arg) {
  (void)sig;
  (void)arg;
  imsg_print(IMSG_TYPE_OK, watchd_msg_table, WATCHD_MSG_REPORT, folders_watched(), folders_named(),
             files_waiting(), files_queued(), jobs_running(), jobs_started(), jobs_failed());
}

static void on_leave(int sig, void *arg) {
  static int asked_before;
  (void)sig;
  (void)arg;
  imsg_print(IMSG_TYPE_OK, watchd_msg_table, asked_before ? WATCHD_MSG_KILLING : WATCHD_MSG_LEAVING,
             jobs_running());
  if (asked_before) {
    jobs_kill();
  } else {
    asked_before = 1;
    folders_stop();
    files_stop();
    jobs_terminate();
  }
}

static int take_signals(void) {
  static const struct {
    int number;
    rt_signal_callback_t callback;
  } signals[] = {
      {SIGHUP, on_read_again}, {SIGUSR1, on_report}, {SIGTERM, on_leave}, {SIGINT, on_leave}};
  pfm_signal(SIGPIPE, SIG_IGN); /* nobody reads what is printed, or its file may not grow: */
  pfm_signal(SIGXFSZ, SIG_IGN); /* the commands go on, and the end tells */
  if (rt_proc_initialize() != 0) return 0;
  for (size_t i = 0; i < sizeof signals / sizeof *signals; ++i) {
    if (!rt_handle_signal(signals[i].number, signals[i].callback, NULL)) return 0;
  }
  return 1;
}

/* What could not be written has marked the stream. */
static int output_is_complete(void) {
  if (!ferror_unlocked(stdout)) return 1;
  imsg_print(IMSG_TYPE_ERROR, watchd_msg_table, WATCHD_MSG_OUTPUT_LOST);
  return 0;
}

static int serve(const struct options *options, char **paths, unsigned count) {
  char *script = strutl_concat_heap(2, options->command, " \"$1\"");
  int good = script != NULL && take_signals();
  files_start(script, &options->quiet, options->jobs);
  good = good && folders_start(paths, count);
  if (good) {
    rt_run();
    imsg_print(IMSG_TYPE_OK, watchd_msg_table, WATCHD_MSG_GOODBYE, jobs_started(), jobs_failed());
  }
  folders_end();
  files_end();
  stg_free(script);
  return good;
}

int main(int argc, char **argv) {
  struct options options = {.quiet = {1, 0}, .jobs = 8, .command = NULL};
  setlocale(LC_ALL, "");
  setlocale(LC_NUMERIC, "C"); /* a command line means the same to all users */
  imsg_set_app_name(argv[0]);
  const int first = parse(argc, argv, &options);
  if (first == 0) return 2;
  const int good = serve(&options, argv + first, (unsigned)(argc - first));
  return output_is_complete() && good ? 0 : 1;
}

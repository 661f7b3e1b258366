/* tally: counts the lines and bytes of files, and of all files below folders, or of those that have
 * changed since a date. A model of a program on libnorvaks: all text comes from a message table; what
 * fails is reported once, the rest goes on, and the status is 0 only when nothing failed; what is
 * open or temporary hangs on a cleanup record, so that no interrupt leaves it behind. A signal may
 * raise anywhere but between pfm_inhibit and pfm_enable, and out of stdio it would leave a lock
 * taken: so files are read and written by descriptor. */
#define _GNU_SOURCE 1 /* what a stat record holds */

#include <errno.h>
#include <fcntl.h>
#include <limits.h>
#include <locale.h>
#include <signal.h>
#include <stddef.h>
#include <stdio.h>
#include <stdlib.h>
#include <string.h>
#include <sys/stat.h>
#include <unistd.h>

#include <norvaks/date.h>
#include <norvaks/fileutl.h>
#include <norvaks/imsg.h>
#include <norvaks/pfm.h>
#include <norvaks/stg.h>
#include <norvaks/strutl.h>

#include "folders.h"
#include "tally_msg.h"

static stg_area_t area; /* of the folders' totals */
static struct counts total;
static unsigned long long files;    /* counted so far */
static int failures;                /* reported so far */
static int32_t since;               /* files that have not changed since then don't count */
static int follow;                  /* symbolic links below folders, too */
static char records_path[PATH_MAX]; /* temporary file: a record of each file counted */
static int records = -1;            /* its descriptor */
static off_t records_end;           /* what lies behind was written in vain */

/* As it is in the temporary file, where it ends with the NUL of the path. */
struct record {
  struct counts counts;
  char path[PATH_MAX];
};

static size_t record_size(const struct record *record) {
  return offsetof(struct record, path) + strlen(record->path) + 1;
}

static void report_failure(int message, const char *path) {
  imsg_print(IMSG_TYPE_ERROR, tally_msg_table, message, path, imsg_strerror(errno));
  ++failures;
}

static int count_descriptor(int fd, struct counts *counts) {
  char block[65536];
  ssize_t got;
  while ((got = read(fd, block, sizeof block)) > 0 || (got < 0 && errno == EINTR)) {
    if (got < 0) continue; /* stopped and continued */
    const char *end = block + got;
    counts->bytes += (unsigned long long)got;
    for (const char *at = block; (at = memchr(at, '\n', (size_t)(end - at))) != NULL; ++at) {
      ++counts->lines;
    }
  }
  return (int)got;
}

/* Result: 1, or 0 with errno. */
static int write_record(const struct record *record) {
  const char *bytes = (const char *)record;
  const size_t size = record_size(record);
  for (size_t done = 0; done < size;) {
    const ssize_t put = pwrite(records, bytes + done, size - done, records_end + (off_t)done);
    if (put > 0) done += (size_t)put;
    if (put < 0 && errno != EINTR) return 0;
  }
  return 1;
}

/* A file is recorded and in all totals, or in none. Result: 1, or 0 with errno. */
static int keep_counts(const char *path, const struct counts *counts) {
  struct record record = {.counts = *counts};
  struct counts *folder = NULL;
  strutl_cpy_buf(record.path, path, sizeof record.path); /* what could be opened fits */
  pfm_inhibit();
  if (write_record(&record)) folder = folder_counts(path);
  const int error = errno;
  if (folder != NULL) {
    records_end += (off_t)record_size(&record);
    add_counts(folder, counts);
    add_counts(&total, counts);
    ++files;
  }
  pfm_enable();
  errno = error;
  return folder != NULL;
}

static void count_content(const char *path, int fd) {
  struct counts counts = {0, 0};
  if (imsg_get_desired_verbosity() >= 1 && imsg_should_trace("tally", 1)) {
    imsg_print(IMSG_TYPE_TRACE, tally_msg_table, TALLY_MSG_COUNTING, path);
  }
  if (count_descriptor(fd, &counts) != 0) {
    report_failure(TALLY_MSG_READ_FAILED, path);
  } else if (!keep_counts(path, &counts)) {
    report_failure(TALLY_MSG_RECORD_FAILED, path);
  }
}

static void count_file(const char *path) {
  pfm_cleanup_rec_t rec;
  volatile int fd = -1;
  int status = PFM_CLEANUP_START(&rec, 0);
  if (status != 0) {
    if (fd >= 0) close(fd);
    pfm_raise(status);
  }
  do {
    pfm_inhibit(); /* no signal comes between the opening and its result */
    fd = open(path, O_RDONLY | O_CLOEXEC);
    pfm_enable();
  } while (fd < 0 && errno == EINTR);
  if (fd >= 0) count_content(path, fd);
  if (fd < 0) report_failure(TALLY_MSG_OPEN_FAILED, path);
  pfm_inhibit(); /* closed and released are one step */
  if (fd >= 0) close(fd);
  pfm_cleanup_rls(&rec);
  pfm_enable();
}

/* Called for each object of a walk. Below a folder only regular files count; what was named on the
 * command line counts whatever it is. */
static int visit(void *argument, const char *path, const char *root, const char *folder,
                 const char *name, const fileutl_stat_t *info, int phase, int depth) {
  (void)argument, (void)root, (void)folder, (void)name, (void)phase;
  if (S_ISDIR(info->st_mode) || (depth > 0 && !S_ISREG(info->st_mode))) return 0;
  if (info->st_mtime >= since) count_file(path);
  return 0;
}

static void count_path(const char *path) {
  const fileutl_walk_callback_t chain = {NULL, FILEUTL_WALK_BEFORE, visit, NULL};
  const int flags =
      FILEUTL_WALK_RECURSE | FILEUTL_WALK_FOLLOW_ROOT | (follow ? FILEUTL_WALK_FOLLOW_ALL : 0);
  if (fileutl_walk_tree(path, &chain, flags) != 0) ++failures; /* it has said what it can't read */
}

/* Result: 1; or 0 after a message, and release takes back what there is. */
static int start(void) {
  const char *tmp = getenv("TMPDIR");
  const char *folder = tmp != NULL ? tmp : "/tmp";
  pfm_inhibit(); /* what is made is noted where release finds it */
  do {
    strutl_concat(records_path, sizeof records_path, 2, folder, "/tally.XXXXXX");
    records = mkostemp(records_path, O_CLOEXEC);
  } while (records < 0 && errno == EINTR);
  if (records < 0) {
    report_failure(TALLY_MSG_TEMPORARY_FAILED, records_path);
  } else if ((area = stg_create_area(32000)) != STG_AREA_NULL) {
    stg_set_zero(area);
    folders_start(area);
  } else {
    ++failures;
  }
  pfm_enable();
  return area != STG_AREA_NULL;
}

/* To be called with signals held back. */
static void release(void) {
  folders_end();
  if (area != STG_AREA_NULL) stg_delete_area(&area);
  if (records < 0) return;
  close(records);
  records = -1;
  if (unlink(records_path) != 0) report_failure(TALLY_MSG_REMOVE_FAILED, records_path);
}

/* Result: 1, or 0 with errno. */
static int read_record(struct record *record, off_t at) {
  ssize_t got;
  do {
    got = pread(records, record, sizeof *record, at);
  } while (got < 0 && errno == EINTR);
  const ssize_t path_bytes = got - (ssize_t)offsetof(struct record, path);
  if (path_bytes > 0 && memchr(record->path, '\0', (size_t)path_bytes) != NULL) return 1;
  if (got >= 0) errno = EIO; /* somebody has cut the file */
  return 0;
}

static void print_records(int lines_width, int bytes_width) {
  struct record record;
  for (off_t at = 0; at < records_end; at += (off_t)record_size(&record)) {
    if (!read_record(&record, at)) {
      report_failure(TALLY_MSG_READ_FAILED, records_path);
      return;
    }
    imsg_print(IMSG_TYPE_OK, tally_msg_table, TALLY_MSG_COUNTS, lines_width, record.counts.lines,
               bytes_width, record.counts.bytes, record.path);
  }
}

/* The columns are as wide as the totals, which is why the counts wait in a file until the end. */
static void print_report(void) {
  const int lines_width = strutl_snprintf(NULL, 0, "%llu", total.lines);
  const int bytes_width = strutl_snprintf(NULL, 0, "%llu", total.bytes);
  print_records(lines_width, bytes_width);
  if (!folders_print(lines_width, bytes_width)) ++failures;
  imsg_print(IMSG_TYPE_OK, tally_msg_table, TALLY_MSG_TOTAL, lines_width, total.lines, bytes_width,
             total.bytes, files);
}

static void tally(int count, char **paths) {
  pfm_cleanup_rec_t rec;
  int status = PFM_CLEANUP_START(&rec, 0);
  if (status != 0) {
    release();
    pfm_raise(status);
  }
  if (start()) {
    for (int i = 0; i < count; ++i) count_path(paths[i]);
    print_report();
  }
  pfm_inhibit();
  release();
  pfm_cleanup_rls(&rec);
  pfm_enable();
}

/* Printing has no result of meaning: what could not be written has marked the stream. */
static void check_output(void) {
  if (!ferror_unlocked(stdout)) return;
  imsg_print(IMSG_TYPE_ERROR, tally_msg_table, TALLY_MSG_OUTPUT_FAILED);
  ++failures;
}

static void say_interrupted(int status, void *counted) {
  if (status == PFM_STATUS_QUIT) {
    imsg_print(IMSG_TYPE_WARNING, tally_msg_table, TALLY_MSG_INTERRUPTED,
               *(unsigned long long *)counted);
  }
}

/* A date without a year, or a day of the week, is the last such one. */
static int take_date(const char *text) {
  if (date_str_to_time2(text, DATE_TO_PAST, &since) != 0) {
    imsg_print(IMSG_TYPE_ERROR, tally_msg_table, TALLY_MSG_BAD_DATE, text);
    imsg_print(IMSG_TYPE_ERROR_CONT, "%s", -1, date_usage_date_time());
    return 0;
  }
  imsg_print(IMSG_TYPE_OK, tally_msg_table, TALLY_MSG_SINCE, date_fmt_token_date_time(since));
  return 1;
}

/* Result: where the paths begin, or 0 after saying what is wrong. */
static int take_options(int argc, char **argv) {
  int at = 1;
  for (; at < argc && argv[at][0] == '-'; ++at) {
    if (strcmp(argv[at], "-follow") == 0) {
      follow = 1;
    } else if (strcmp(argv[at], "-since") == 0 && at + 1 < argc) {
      if (!take_date(argv[++at])) return 0;
    } else {
      break;
    }
  }
  if (at < argc && argv[at][0] != '-') return at;
  imsg_print(IMSG_TYPE_ERROR, tally_msg_table, TALLY_MSG_USAGE);
  return 0;
}

int main(int argc, char **argv) {
  setlocale(LC_ALL, "");
  imsg_set_app_name(argv[0]);
  pfm_on_exit(say_interrupted, &files);
  pfm_signal(SIGPIPE, SIG_IGN);           /* a reader that has gone and a file that may not grow */
  pfm_signal(SIGXFSZ, SIG_IGN);           /* are failing calls, and not the end */
  imsg_print(IMSG_TYPE_OK, "%s", -1, ""); /* makes the buffer by which want of storage is told */
  const int first = take_options(argc, argv);
  if (first == 0) return 2;
  tally(argc - first, argv + first);
  check_output();
  return failures == 0 ? 0 : 1;
}
